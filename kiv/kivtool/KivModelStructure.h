// A model's parts, instances and nodes, gathered from its elements.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivToolModel.h"

namespace kiv {

// Instances with the same keys are placements of one part.
struct KivToolPart {
  struct Level {
    uint64_t m_iFaceEdgeKey = 0;
    uint64_t m_iCommonKey = 0;
    uint64_t m_iPolyElemKey = 0;
    auto operator<=>(const Level&) const = default;
  };
  std::vector<Level> m_vzLevel;
  uint64_t m_iBrepKey = 0;
  std::array<uint64_t, 2> m_iVertexKey{};
  uint64_t m_iExtraKey = 0;
  auto operator<=>(const KivToolPart&) const = default;

  bool IsEmpty() const { return *this == KivToolPart(); }
};

struct KivToolInstance {
  uint64_t m_iElementKey = 0;  // of the element it stands in
  uint32_t m_iEntry = 0;       // there
  uint32_t m_iNode = 0;        // by m_iInstanceData[0]; need not be a node
  size_t m_iPart = 0;
  KivEMatrix4 m_zMatrix;
  std::array<float, 6> m_fBox = kNoBox;
};

struct KivToolStructure {
  std::vector<float> m_vfLevelTolerance;  // of the first element of instances
  std::vector<KivToolPart> m_vzPart;      // in the order of their first instances
  std::vector<KivToolInstance> m_vzInstance;
  std::vector<KivAssemblyNode> m_vzNode;  // gaps among them, since children name them by index
  std::array<float, 6> m_fBox = kNoBox;   // the model's
  std::optional<double> m_dUnit;          // metres for one unit
  uint64_t m_iInstanceRootKey = 0;
  uint64_t m_iNoteKey = 0;
  uint64_t m_iAssemblyKey = 0;
  uint64_t m_iSecondKey = 0;
  bool m_bComplete = true;  // false: something on the way could not be loaded and is missing here

  size_t GetLevelNum() const;  // the most that a part has
};

// Loads the model, its note, the assembly tree and all instances; no meshes. Circles are followed once. Throws
// KivToolError if the user stops it.
KivToolStructure KivLoadStructure(KivToolModel& zModel);

bool KivIsBox(const std::array<float, 6>& fBox);  // a low corner that is not above the high one

}  // namespace kiv
