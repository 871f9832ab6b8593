// What the library of formats gives, as a scene.
#pragma once

#include <assimp/scene.h>

#include "KivMeshSource.h"
#include "KivScene.h"

namespace kiv {

// Throws KivSceneError for a mesh whose polygons name vertices that do not exist, or whose coordinates are no numbers.
void KivCheckMeshes(const aiScene& zSource, const KivMeshFormat& zFormat);

// Meshes of polygons, lines and points, which KivCheckMeshes has let pass. Nodes that hold the same meshes share a
// part. csName is the root's name where the source has none. Names and placements are those of vzPlace where its nodes
// are those of the library's. Warnings are added.
void KivSceneFromMeshes(const aiScene& zSource, const KivMeshFormat& zFormat, const KivMeshSource& zBytes,
                        const KivMeshPlaces& vzPlace, const KivWString& csName, KivScene& zScene);

}  // namespace kiv
