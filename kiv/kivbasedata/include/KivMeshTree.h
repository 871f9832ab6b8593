// Walks over trees of mesh elements.
#pragma once

#include <cstdint>

#include "KivMemoryBlock.h"
#include "KivMeshCodec.h"

namespace kiv {

// Adds the faces of all elements of a tree, of either kind of mesh, as they are in memory. Follows the links 1 and 2
// from the root on and visits each element once; a root of 0 is an empty tree. What cannot be loaded or is no mesh is
// reported and left out, and the result is then false.
bool KivAddMeshTree(uint32_t iManagerKey, uint64_t iRootKey, KivMeshStatistics& zStatistics);

// Adds the faces of one element's block. False for null and for a block of no mesh.
bool KivAddMeshBlock(const KivMemoryBlock* pzBlock, KivMeshStatistics& zStatistics);

}  // namespace kiv
