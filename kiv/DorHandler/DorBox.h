// Boxes as the records keep them: low and high corner as floats, and kNoBox around nothing.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "KivAssemblyTree.h"
#include "KivEMatrix4.h"
#include "KivMemoryBlock.h"

namespace kiv {

struct DorBox {
  std::array<float, 6> m_af = kNoBox;

  bool IsEmpty() const { return !(m_af[0] <= m_af[3] && m_af[1] <= m_af[4] && m_af[2] <= m_af[5]); }
  // No corner has left the range of floats.
  bool IsFinite() const {
    return std::all_of(m_af.begin(), m_af.end(), [](float f) { return std::isfinite(f); });
  }
  KivECoord3 Low() const { return {m_af[0], m_af[1], m_af[2]}; }
  KivECoord3 High() const { return {m_af[3], m_af[4], m_af[5]}; }

  void Add(const float* pPoint) {
    for (size_t i = 0; i < 3; ++i) {
      m_af[i] = std::min(m_af[i], pPoint[i]);
      m_af[3 + i] = std::max(m_af[3 + i], pPoint[i]);
    }
  }
  void Add(const DorBox& zOther) {
    if (zOther.IsEmpty()) return;
    Add(&zOther.m_af[0]);
    Add(&zOther.m_af[3]);
  }
  void AddPoints(const std::vector<float>& vfPoint) {
    for (size_t i = 0; i + 2 < vfPoint.size(); i += 3) Add(&vfPoint[i]);
  }
  // The box of the eight corners, moved.
  DorBox Moved(const KivEMatrix4& zMatrix) const {
    DorBox zOut;
    if (IsEmpty()) return zOut;
    float afCorner[24], afMoved[24];
    for (size_t i = 0; i < 8; ++i)
      for (size_t k = 0; k < 3; ++k) afCorner[3 * i + k] = m_af[((i >> k) & 1) != 0 ? 3 + k : k];
    zMatrix.TransformBoxCorners(afCorner, afMoved);
    for (size_t i = 0; i < 8; ++i) zOut.Add(&afMoved[3 * i]);
    return zOut;
  }

  // A header's box is never upside down; an empty one is 0.
  static DorBox OfHeader(const KivMemoryBlockHeader& zHeader) {
    DorBox z;
    std::copy(zHeader.m_afBoxMin.begin(), zHeader.m_afBoxMin.end(), z.m_af.begin());
    std::copy(zHeader.m_afBoxMax.begin(), zHeader.m_afBoxMax.end(), z.m_af.begin() + 3);
    return z;
  }
  void PutInto(KivMemoryBlockHeader& zHeader) const {
    for (size_t i = 0; i < 3; ++i) {
      zHeader.m_afBoxMin[i] = IsEmpty() ? 0 : m_af[i];
      zHeader.m_afBoxMax[i] = IsEmpty() ? 0 : m_af[3 + i];
    }
  }
};

}  // namespace kiv
