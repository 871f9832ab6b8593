// The tree of nodes of the open model, and how its boxes follow when something in it moves.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "DorSession.h"
#include "KivAssemblyTree.h"

namespace kiv {

constexpr int64_t kDorNoNode = -1;

// The block of the assembly tree; null for a model that has none. Refuses with Damaged.
const KivMemoryBlockAssemblyTree* DorAssemblyBlock(DorSession& zSession);
// The same with its key, for changes; refuses with UnknownNode if there is no such node.
uint64_t DorAssemblyKey(DorSession& zSession);
// Refuses with UnknownNode.
const KivAssemblyNode& DorNodeOf(const KivMemoryBlockAssemblyTree* pzTree, int64_t iNode);

// The parent of each node, kDorNoNode for those without one. A node that several name as their child belongs to the
// first one; nobody is above himself.
std::vector<int64_t> DorParents(const KivMemoryBlockAssemblyTree& zTree);
// All nodes, each behind its parent.
std::vector<int64_t> DorTopDown(const std::vector<int64_t>& viParent);
// Where each node stands in the model: its matrix and those above it, from the inside out.
std::vector<KivEMatrix4> DorAbsoluteMatrices(const KivMemoryBlockAssemblyTree& zTree,
                                             const std::vector<int64_t>& viParent);
// Instances that stand in each node.
std::vector<std::vector<int64_t>> DorInstancesOfNodes(DorSession& zSession, size_t nNodes);

// What has happened to instances.
struct DorMoved {
  std::map<int64_t, KivEMatrix4> m_mapMatrix;  // the new placement, by instance
  std::map<uint64_t, DorBox> m_mapMeshBox;     // the new box of mesh elements, by key
  std::vector<uint32_t> m_viPart;              // whose meshes have changed
};
// Adds to a change what follows: placements, and the boxes of instances, their elements, nodes, and the model. Refuses
// with NotANumber if one of them leaves the range of floats. Gives the number of instances.
size_t DorFollow(DorSession& zSession, const DorMoved& zMoved, DorChange& zChange);

}  // namespace kiv
