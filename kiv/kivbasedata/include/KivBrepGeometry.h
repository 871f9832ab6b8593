// The geometry strings of B-rep entries: exact surfaces and curves in a compact form. docs/element_records.md has it.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "KivECoord3.h"

namespace kiv {

constexpr uint32_t kBrepNurbsKind = 10004;
constexpr uint32_t kBrepAnalyticKind = 10005;

// One string, decoded. What its kind does not have is 0 or empty.
struct KivBrepGeometry {
  uint32_t m_iKind = 0;

  // Analytic form. What the types 1 to 5 stand for is the business of whoever writes them.
  uint32_t m_iAnalyticType = 0;
  KivECoord3 m_zPoint;
  KivECoord3 m_zAxis;    // need not have length 1
  double m_dRadius = 0;  // of the types 2 and 3

  // NURBS form
  uint32_t m_iOrder = 0;         // degree + 1
  std::vector<double> m_vdKnot;  // order + number of poles
  std::vector<KivECoord3> m_vzPole;
  std::vector<double> m_vdWeight;  // one for each pole, or empty for a plain one

  uint32_t GetDegree() const { return m_iOrder == 0 ? 0 : m_iOrder - 1; }
};

// False for a string that is not well-formed, at its first fault: quietly reported, but for an empty string. More knots
// and poles than the string has bytes, repeats, are decoded up to kBrepRepeatMax. zGeometry is then half filled.
// Nothing is thrown.
constexpr uint64_t kBrepRepeatMax = 4000000;
bool KivDecodeBrepGeometry(uint32_t iKind, std::span<const uint8_t> vcGeometry, KivBrepGeometry& zGeometry);

}  // namespace kiv
