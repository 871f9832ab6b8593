// Statistics of the meshes that a walk finds.
//
// What cannot be loaded, is no mesh or finds no memory is reported (quietly) and left out, and the answer is then
// false.
#pragma once

#include <cstdint>

#include "KivMeshCodec.h"

namespace kiv {

// Adds the faces of all elements of a tree, of either kind of mesh, as they are in memory. Follows the links 1 and 2
// from the root on and visits each element once; a root of 0 is an empty tree.
bool KivAddMeshTree(uint32_t iManagerKey, uint64_t iRootKey, KivMeshStatistics& zStatistics);

// Adds the faces of all meshes of a model, or with an iLevel that is not negative those of that level of detail.
bool KivAddModelMeshes(uint32_t iManagerKey, int32_t iLevel, KivMeshStatistics& zStatistics);

}  // namespace kiv
