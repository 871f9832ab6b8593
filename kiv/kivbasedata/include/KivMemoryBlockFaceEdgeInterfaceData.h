// The mesh header: what all entries of one mesh element share.
#pragma once

#include <cstdint>

namespace kiv {

// Bits of m_iMeshFlags. Other bits are carried.
constexpr uint32_t kMeshIndexCount = 1u << 0;  // each face stores its index count, and may end in a triangle strip
constexpr uint32_t kMeshDelta = 1u << 3;       // delta coding is allowed

struct KivMemoryBlockFaceEdgeInterfaceData {
  uint32_t m_iCoordWidth = 4;      // bytes per quantised coordinate: 1, 2 or 4
  float m_fOrigin[3] = {0, 0, 0};  // quantisation origin
  float m_fStep = 0.01f;           // quantisation step, in units of the model
  uint32_t m_iMeshFlags = 0;
  uint32_t m_iMeshValue = 0;     // carried
  uint32_t m_iDisplayValue = 0;  // above 0: the element belongs to tree level 1, else to 2
};

}  // namespace kiv
