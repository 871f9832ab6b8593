// The assembly of a model as rows, from the roots down.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KivModelStructure.h"

namespace kiv {

struct KivTreeRow {
  enum class Kind {
    Node,
    Again,    // a node that stands elsewhere in the tree already; its children are not repeated
    Circle,   // a child that is one of its own parents; not followed
    Missing,  // a child that is no node
    NoNode    // an instance whose node does not exist
  };
  Kind m_eKind = Kind::Node;
  size_t m_iDepth = 0;
  size_t m_iParent = 0;  // node; only where m_iDepth is not 0
  uint64_t m_iNode = 0;  // as the parent names it
  bool m_bLast = false;  // of its parent's children
  std::vector<size_t> m_viInstance;
};

// Calls pfnRow for each row, parents first. Memory grows with the number of nodes and not with the depth of the tree.
// Nodes that no other one names are roots; nodes that only a circle leads to come last.
void KivWalkAssembly(const KivToolStructure& zStructure, const std::function<void(const KivTreeRow&)>& pfnRow);

// "at 1 2 3, turned 90 deg, scaled 2"; empty for the identity.
std::string KivPlacementText(const KivEMatrix4& zMatrix);
const char* KivNodeTypeName(uint32_t iNodeType);

}  // namespace kiv
