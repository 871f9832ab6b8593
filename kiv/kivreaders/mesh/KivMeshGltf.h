// What the checks of a glTF share: its JSON, and members of it that may be of any kind. In version 2 the parts of a
// file stand in lists and are named by numbers, in version 1 they stand in objects and are named by texts; most rules
// are the same.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kiv::gltf {

using Json = nlohmann::json;

// Null without it, or where zObject is no object.
const Json* Member(const Json& zObject, const char* szName);
// The entries of a list or object; none of anything else.
const Json& Entries(const Json* pzMember);
// 0 without it. Throws KivSceneError for what is no whole number of 32 bits.
uint64_t Count(const Json& zObject, const char* szName);
// Empty without it, or for what is no text.
std::string Text(const Json& zObject, const char* szName);

// Throws KivSceneError for nodes that are no shallow trees, and for placements that are none. (KivMeshGltf_Nodes.cpp)
void CheckNodes(const Json& zFile, bool bFirst);
// Throws KivSceneError for numbers behind the end of their buffer, or of a kind that is not read. nBinary: bytes of a
// GLB's second piece, or 0. (KivMeshGltf_Meshes.cpp)
void CheckMeshes(const Json& zFile, bool bFirst, uint64_t nBinary);
// Of version 2: skeletons, movements, other forms of meshes and placements of pictures are taken away, since the
// library reads them by names and counts that it does not hold against each other. True if there was any.
// (KivMeshGltf_Movements.cpp)
bool TakeAwayMovements(Json& zFile, std::vector<std::string>& vstrWarning);

}  // namespace kiv::gltf
