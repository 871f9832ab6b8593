#include "KivMeshPolygon.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "KivSceneReader.h"

namespace kiv {
namespace {

constexpr uint32_t kNone = ~uint32_t{0};

}  // namespace

// Along the axis in which the polygon is seen largest, so that coordinates stay what they are and lines straight. False
// for one without an area.
bool KivPolygonCutter::Flatten(const std::vector<Point>& vzPoint) {
  const size_t n = vzPoint.size();
  Point zNormal{0, 0, 0};
  for (size_t i = 1; i + 1 < n; ++i)
    for (size_t iAxis = 0; iAxis < 3; ++iAxis) {
      const size_t iU = (iAxis + 1) % 3, iV = (iAxis + 2) % 3;
      zNormal[iAxis] += (vzPoint[i][iU] - vzPoint[0][iU]) * (vzPoint[i + 1][iV] - vzPoint[0][iV]) -
                        (vzPoint[i][iV] - vzPoint[0][iV]) * (vzPoint[i + 1][iU] - vzPoint[0][iU]);
    }
  size_t iAxis = 0;
  for (size_t i = 1; i < 3; ++i)
    if (std::abs(zNormal[i]) > std::abs(zNormal[iAxis])) iAxis = i;
  size_t iU = (iAxis + 1) % 3, iV = (iAxis + 2) % 3;
  if (zNormal[iAxis] < 0) std::swap(iU, iV);
  m_vzCorner.clear();
  for (size_t i = 0; i < n; ++i)
    m_vzCorner.push_back({vzPoint[i][iU], vzPoint[i][iV], vzPoint[i][iAxis], static_cast<uint32_t>((i + n - 1) % n),
                          static_cast<uint32_t>((i + 1) % n), kNone, true});
  m_nLeft = static_cast<uint32_t>(n);
  return zNormal[iAxis] != 0;
}

// Twice the area of a triangle, above 0 where it turns as the polygon does.
double KivPolygonCutter::Turn(uint32_t iA, uint32_t iB, uint32_t iC) const {
  const Corner &zA = m_vzCorner[iA], &zB = m_vzCorner[iB], &zC = m_vzCorner[iC];
  return (zB.m_dU - zA.m_dU) * (zC.m_dV - zA.m_dV) - (zB.m_dV - zA.m_dV) * (zC.m_dU - zA.m_dU);
}

bool KivPolygonCutter::Coincide(uint32_t iA, uint32_t iB) const {
  return m_vzCorner[iA].m_dU == m_vzCorner[iB].m_dU && m_vzCorner[iA].m_dV == m_vzCorner[iB].m_dV;
}

// Of a corner that stands on the tip of a triangle: whether the polygon goes on from there between its two sides.
bool KivPolygonCutter::LeadsInto(uint32_t iCorner, uint32_t iFrom, uint32_t iTip, uint32_t iTo) const {
  const Corner& z = m_vzCorner[iCorner];
  for (const uint32_t i : {z.m_iBefore, z.m_iNext})
    if (Turn(iTip, iFrom, i) > 0 && Turn(iTip, i, iTo) > 0) return true;
  return false;
}

bool KivPolygonCutter::Blocks(uint32_t iCorner, uint32_t iA, uint32_t iB, uint32_t iC, Strictness eStrictness) const {
  const double dAB = Turn(iA, iB, iCorner), dBC = Turn(iB, iC, iCorner), dCA = Turn(iC, iA, iCorner);
  if (dAB < 0 || dBC < 0 || dCA < 0) return false;
  if (eStrictness == Strictness::Inside) return dAB > 0 && dBC > 0 && dCA > 0;
  if (Coincide(iCorner, iA)) return LeadsInto(iCorner, iB, iA, iC);
  if (Coincide(iCorner, iB)) return LeadsInto(iCorner, iC, iB, iA);
  if (Coincide(iCorner, iC)) return LeadsInto(iCorner, iA, iC, iB);
  if (eStrictness == Strictness::Sides || (dAB > 0 && dBC > 0)) return true;
  // On a side that is the polygon's own.
  const Corner& z = m_vzCorner[iCorner];
  for (const uint32_t i : {z.m_iBefore, z.m_iNext})
    if (dAB > 0 ? Turn(iB, iC, i) > 0 : Turn(iA, iB, i) > 0) return true;
  return false;
}

// The tip of a way there and back, or a corner that stands where the one before stands.
bool KivPolygonCutter::IsSpike(uint32_t i) const {
  const uint32_t iBefore = m_vzCorner[i].m_iBefore;
  const auto AreOne = [this, iBefore](uint32_t iOther) {
    return Coincide(iBefore, iOther) && m_vzCorner[iBefore].m_dHeight == m_vzCorner[iOther].m_dHeight;
  };
  return AreOne(i) || AreOne(m_vzCorner[i].m_iNext);
}

bool KivPolygonCutter::IsEar(uint32_t i, Strictness eStrictness) {
  Corner& z = m_vzCorner[i];
  const uint32_t iA = z.m_iBefore, iC = z.m_iNext;
  if (z.m_iBlocker != kNone && m_vzCorner[z.m_iBlocker].m_bThere) return false;
  if (!(Turn(iA, i, iC) > 0)) return false;
  const Corner &zA = m_vzCorner[iA], &zC = m_vzCorner[iC];
  const double dLowU = std::min({zA.m_dU, z.m_dU, zC.m_dU}), dHighU = std::max({zA.m_dU, z.m_dU, zC.m_dU}),
               dLowV = std::min({zA.m_dV, z.m_dV, zC.m_dV}), dHighV = std::max({zA.m_dV, z.m_dV, zC.m_dV});
  m_nWork += m_nLeft;
  for (uint32_t iOther = zC.m_iNext; iOther != iA; iOther = m_vzCorner[iOther].m_iNext) {
    const Corner& zOther = m_vzCorner[iOther];
    if (zOther.m_dU < dLowU || zOther.m_dU > dHighU || zOther.m_dV < dLowV || zOther.m_dV > dHighV) continue;
    if (!Blocks(iOther, iA, i, iC, eStrictness)) continue;
    z.m_iBlocker = iOther;
    return false;
  }
  return true;
}

void KivPolygonCutter::CheckWork() const {
  if (m_nWork > m_nMostWork) throw KivSceneError("its polygons have too many corners");
}

// From there on around; kNone if there is none.
uint32_t KivPolygonCutter::FindEar(uint32_t iFrom, Strictness eStrictness) {
  uint32_t i = iFrom;
  m_nWork += m_nLeft;
  do {
    if (IsSpike(i) || IsEar(i, eStrictness)) return i;
    CheckWork();
    i = m_vzCorner[i].m_iNext;
  } while (i != iFrom);
  return kNone;
}

// Of a polygon that crosses itself: a corner that turns as the polygon does, or else any that turns.
uint32_t KivPolygonCutter::FindAny(uint32_t iFrom) const {
  uint32_t iAny = kNone, i = iFrom;
  do {
    const double dTurn = Turn(m_vzCorner[i].m_iBefore, i, m_vzCorner[i].m_iNext);
    if (dTurn > 0) return i;
    if (dTurn < 0) iAny = i;
    i = m_vzCorner[i].m_iNext;
  } while (i != iFrom);
  return iAny;
}

void KivPolygonCutter::Remove(uint32_t i) {
  Corner& z = m_vzCorner[i];
  z.m_bThere = false;
  m_vzCorner[z.m_iBefore].m_iNext = z.m_iNext;
  m_vzCorner[z.m_iNext].m_iBefore = z.m_iBefore;
  m_vzCorner[z.m_iBefore].m_iBlocker = m_vzCorner[z.m_iNext].m_iBlocker = kNone;
  --m_nLeft;
}

bool KivPolygonCutter::HasArea(uint32_t i) const {
  const Corner &zA = m_vzCorner[m_vzCorner[i].m_iBefore], &zB = m_vzCorner[i], &zC = m_vzCorner[zB.m_iNext];
  const double dBU = zB.m_dU - zA.m_dU, dBV = zB.m_dV - zA.m_dV, dBH = zB.m_dHeight - zA.m_dHeight,
               dCU = zC.m_dU - zA.m_dU, dCV = zC.m_dV - zA.m_dV, dCH = zC.m_dHeight - zA.m_dHeight;
  return dBU * dCV != dBV * dCU || dBV * dCH != dBH * dCV || dBH * dCU != dBU * dCH;
}

// With its lowest corner first; none without an area.
void KivPolygonCutter::AddTriangle(uint32_t i, std::vector<uint32_t>& viCorner) const {
  if (!HasArea(i)) return;
  std::array<uint32_t, 3> vi{m_vzCorner[i].m_iBefore, i, m_vzCorner[i].m_iNext};
  std::rotate(vi.begin(), std::min_element(vi.begin(), vi.end()), vi.end());
  viCorner.insert(viCorner.end(), vi.begin(), vi.end());
}

bool KivPolygonCutter::Cut(const std::vector<Point>& vzPoint, std::vector<uint32_t>& viCorner) {
  viCorner.clear();
  if (vzPoint.size() < 3) return true;
  bool bSimple = Flatten(vzPoint);
  uint32_t iFrom = 1;
  while (m_nLeft > 3) {
    uint32_t iEar = kNone;
    CheckWork();
    for (const Strictness e : {Strictness::Sides, Strictness::Cut, Strictness::Inside}) {
      iEar = FindEar(iFrom, e);
      if (iEar != kNone) break;
      for (Corner& z : m_vzCorner) z.m_iBlocker = kNone;
    }
    if (iEar == kNone) {
      iEar = FindAny(iFrom);
      if (iEar != kNone) bSimple = false;
      if (iEar == kNone) iEar = iFrom;  // what is left lies on a line, or stands upright on one
    }
    AddTriangle(iEar, viCorner);
    // Not the next one, so that not all triangles meet in one corner.
    iFrom = m_vzCorner[m_vzCorner[iEar].m_iNext].m_iNext;
    Remove(iEar);
  }
  const double dLast = Turn(m_vzCorner[iFrom].m_iBefore, iFrom, m_vzCorner[iFrom].m_iNext);
  AddTriangle(iFrom, viCorner);
  return bSimple && dLast >= 0;
}

}  // namespace kiv
