#include "KivBrepEncode.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <span>

#include "KivLittleEndian.h"

namespace kiv {
namespace {

// The forms are those of docs/element_records.md, "B-rep".
constexpr uint8_t kAnalyticMagic = 64;
constexpr double kAxisMin = 1e-24;
constexpr uint8_t kRational = 1 << 2;
constexpr uint8_t kClamped = 1 << 3;
constexpr uint8_t kUniform = 1 << 4;
constexpr uint8_t kQuantised = 1 << 5;
constexpr uint32_t kPoleBytesMax = 7;

// 0 and -0 differ, as they do in a string.
bool SameBits(double dA, double dB) {
  return std::bit_cast<uint64_t>(dA) == std::bit_cast<uint64_t>(dB);
}

double Axis(const KivECoord3& z, size_t iAxis) {
  return iAxis == 0 ? z.m_dX : iAxis == 1 ? z.m_dY : z.m_dZ;
}

bool IsFinite(const KivECoord3& z) {
  return std::isfinite(z.m_dX) && std::isfinite(z.m_dY) && std::isfinite(z.m_dZ);
}

class GeometryWriter {
 public:
  template <typename T>
  void Put(T value) {
    m_vcBytes.resize(m_vcBytes.size() + sizeof value);
    KivStore<T>(m_vcBytes.data() + m_vcBytes.size() - sizeof value, value);
  }
  void Put(const KivECoord3& z) {
    for (size_t k = 0; k < 3; ++k) Put(Axis(z, k));
  }
  void PutInteger(uint64_t iValue, uint32_t nBytes) {
    for (uint32_t i = 0; i < nBytes; ++i) Put(static_cast<uint8_t>(iValue >> (8 * i)));
  }
  void Append(const GeometryWriter& zOther) {
    m_vcBytes.insert(m_vcBytes.end(), zOther.m_vcBytes.begin(), zOther.m_vcBytes.end());
  }
  size_t Size() const { return m_vcBytes.size(); }
  std::vector<uint8_t> Take() { return std::move(m_vcBytes); }

 private:
  std::vector<uint8_t> m_vcBytes;
};

std::vector<uint8_t> EncodeAnalytic(const KivBrepGeometry& z) {
  const bool bRadius = z.m_iAnalyticType == 2 || z.m_iAnalyticType == 3;
  if (z.m_iAnalyticType < 1 || z.m_iAnalyticType > 5 || !IsFinite(z.m_zPoint) || !IsFinite(z.m_zAxis)) return {};
  if (!(z.m_zAxis.Dot(z.m_zAxis) >= kAxisMin)) return {};
  if (bRadius && !(std::isfinite(z.m_dRadius) && z.m_dRadius > 0)) return {};
  GeometryWriter zWriter;
  zWriter.Put(kAnalyticMagic);
  zWriter.Put(static_cast<uint8_t>(z.m_iAnalyticType));
  zWriter.Put(z.m_zPoint);
  zWriter.Put(z.m_zAxis);
  if (bRadius) zWriter.Put(z.m_dRadius);
  return zWriter.Take();
}

// --- Knots ----------------------------------------------------------------------------------------------------------

// The number that the decoder must add to dFrom to come to dTo; it may lie beside their rounded difference.
bool FindStep(double dFrom, double dTo, double& dStep) {
  const double dNear = dTo - dFrom;
  const double dInfinity = std::numeric_limits<double>::infinity();
  for (const double d : {dNear, std::nextafter(dNear, -dInfinity), std::nextafter(dNear, dInfinity)}) {
    dStep = d;
    if (SameBits(dFrom + d, dTo)) return true;
  }
  return false;
}

// The shortest form that holds these knots: its flags, and what stands in the string for them.
uint8_t EncodeKnots(const KivBrepGeometry& z, GeometryWriter& zWriter) {
  const std::span<const double> vdKnot(z.m_vdKnot);
  const size_t nPoles = z.m_vzPole.size();
  const auto AllAre = [](std::span<const double> vd, double dValue) {
    return std::all_of(vd.begin(), vd.end(), [dValue](double d) { return SameBits(d, dValue); });
  };
  GeometryWriter zSteps;
  bool bClamped = AllAre(vdKnot.first(z.m_iOrder), 0.0) && AllAre(vdKnot.last(z.m_iOrder), 1.0);
  bool bUniform = bClamped;
  const double dUniformStep = 1.0 / (static_cast<double>(nPoles - z.m_iOrder) + 1);
  for (size_t i = z.m_iOrder; i < nPoles && bClamped; ++i) {
    double dStep = 0;
    bClamped = FindStep(vdKnot[i - 1], vdKnot[i], dStep);
    bUniform = bUniform && bClamped && SameBits(vdKnot[i - 1] + dUniformStep, vdKnot[i]);
    zSteps.Put(dStep);
  }
  if (bClamped) {
    if (bUniform) return kClamped | kUniform;
    zWriter.Append(zSteps);
    return kClamped;
  }
  for (const double d : vdKnot) zWriter.Put(d);
  return 0;
}

// --- Poles ----------------------------------------------------------------------------------------------------------

uint8_t AxisMask(const std::vector<KivECoord3>& vzPole) {
  uint8_t iMask = 0;
  for (const KivECoord3& z : vzPole)
    for (size_t k = 0; k < 3; ++k)
      if (!SameBits(Axis(z, k), Axis(vzPole[0], k))) iMask |= static_cast<uint8_t>(1 << k);
  return iMask;
}

// Calls pfnPut(coordinate, axis) for each coordinate that the string holds, until it gives false.
template <typename Put>
bool ForEachCoordinate(const std::vector<KivECoord3>& vzPole, uint8_t iMask, Put pfnPut) {
  for (size_t i = 0; i < vzPole.size(); ++i)
    for (size_t k = 0; k < 3; ++k)
      if ((i == 0 || (iMask >> k & 1) != 0) && !pfnPut(Axis(vzPole[i], k), k)) return false;
  return true;
}

bool QuantisePoles(const std::vector<KivECoord3>& vzPole, uint8_t iMask, uint32_t nBytes, GeometryWriter& zWriter) {
  double adOrigin[3], dRange = 0;
  for (size_t k = 0; k < 3; ++k) {
    adOrigin[k] = Axis(vzPole[0], k);
    double dHigh = adOrigin[k];
    for (const KivECoord3& z : vzPole) {
      adOrigin[k] = std::min(adOrigin[k], Axis(z, k));
      dHigh = std::max(dHigh, Axis(z, k));
    }
    dRange = std::max(dRange, dHigh - adOrigin[k]);
  }
  if (!std::isfinite(dRange)) return false;
  const uint64_t iLargest = (uint64_t{1} << (8 * nBytes)) - 1;
  const double dSteps = static_cast<double>(iLargest);  // of 7 bytes one more, by rounding
  zWriter.Put(static_cast<uint8_t>(nBytes));
  for (const double d : adOrigin) zWriter.Put(d);
  zWriter.Put(dRange);
  return ForEachCoordinate(vzPole, iMask, [&](double d, size_t k) {
    const double dInteger = dRange > 0 ? std::nearbyint((d - adOrigin[k]) / dRange * dSteps) : 0;
    if (!(dInteger >= 0 && dInteger <= dSteps)) return false;
    const uint64_t iInteger = std::min(static_cast<uint64_t>(dInteger), iLargest);
    zWriter.PutInteger(iInteger, nBytes);
    return SameBits(static_cast<double>(iInteger) / dSteps * dRange + adOrigin[k], d);
  });
}

uint8_t EncodePoles(const KivBrepGeometry& z, uint8_t iMask, GeometryWriter& zWriter) {
  if (!z.m_vdWeight.empty()) {
    for (size_t i = 0; i < z.m_vzPole.size(); ++i) {
      for (size_t k = 0; k < 3; ++k)
        if (i == 0 || (iMask >> k & 1) != 0) zWriter.Put(Axis(z.m_vzPole[i], k));
      zWriter.Put(z.m_vdWeight[i]);
    }
    return kRational;
  }
  GeometryWriter zRaw;
  ForEachCoordinate(z.m_vzPole, iMask, [&](double d, size_t) {
    zRaw.Put(d);
    return true;
  });
  for (uint32_t nBytes = 1; nBytes <= kPoleBytesMax; ++nBytes) {
    GeometryWriter zQuantised;
    if (!QuantisePoles(z.m_vzPole, iMask, nBytes, zQuantised)) continue;
    if (zQuantised.Size() >= zRaw.Size()) break;
    zWriter.Append(zQuantised);
    return kQuantised;
  }
  zWriter.Append(zRaw);
  return 0;
}

// --- The NURBS form -------------------------------------------------------------------------------------------------

// The form of the two counts, 0 to 3.
uint8_t PutCounts(uint32_t iOrder, uint32_t nPoles, GeometryWriter& zWriter) {
  const uint32_t iLargest = std::max(iOrder, nPoles);
  if (nPoles <= 31 && iOrder <= 7) {
    zWriter.Put(static_cast<uint8_t>(iOrder << 5 | nPoles));
    return 3;
  }
  if (iLargest <= 0xFF) {
    zWriter.Put(static_cast<uint8_t>(iOrder));
    zWriter.Put(static_cast<uint8_t>(nPoles));
    return 0;
  }
  if (iLargest <= 0xFFFF) {
    zWriter.Put(static_cast<uint16_t>(iOrder));
    zWriter.Put(static_cast<uint16_t>(nPoles));
    return 1;
  }
  zWriter.Put(iOrder);
  zWriter.Put(nPoles);
  return 2;
}

bool IsWhole(const KivBrepGeometry& z) {
  const size_t nPoles = z.m_vzPole.size();
  const auto IsNumber = [](double d) { return std::isfinite(d); };
  return z.m_iOrder >= 1 && nPoles >= z.m_iOrder && nPoles <= 0xFFFFFFFFu && z.m_vdKnot.size() == nPoles + z.m_iOrder &&
         (z.m_vdWeight.empty() || z.m_vdWeight.size() == nPoles) &&
         std::all_of(z.m_vdKnot.begin(), z.m_vdKnot.end(), IsNumber) &&
         std::all_of(z.m_vdWeight.begin(), z.m_vdWeight.end(), IsNumber) &&
         std::all_of(z.m_vzPole.begin(), z.m_vzPole.end(), IsFinite);
}

std::vector<uint8_t> EncodeNurbs(const KivBrepGeometry& z) {
  if (!IsWhole(z)) return {};
  const uint8_t iMask = AxisMask(z.m_vzPole);
  GeometryWriter zCounts, zKnots, zPoles;
  uint8_t iFlags = PutCounts(z.m_iOrder, static_cast<uint32_t>(z.m_vzPole.size()), zCounts);
  iFlags |= EncodeKnots(z, zKnots);
  iFlags |= EncodePoles(z, iMask, zPoles);
  GeometryWriter zWriter;
  zWriter.Put(iFlags);
  zWriter.Append(zCounts);
  zWriter.Put(iMask);
  zWriter.Append(zKnots);
  zWriter.Append(zPoles);
  return zWriter.Take();
}

bool SameBits(std::span<const double> vdA, std::span<const double> vdB) {
  return std::equal(vdA.begin(), vdA.end(), vdB.begin(), vdB.end(), [](double a, double b) { return SameBits(a, b); });
}

bool SameBits(const KivECoord3& zA, const KivECoord3& zB) {
  return SameBits(zA.m_dX, zB.m_dX) && SameBits(zA.m_dY, zB.m_dY) && SameBits(zA.m_dZ, zB.m_dZ);
}

bool IsSame(const KivBrepGeometry& zA, const KivBrepGeometry& zB) {
  return zA.m_iAnalyticType == zB.m_iAnalyticType && SameBits(zA.m_zPoint, zB.m_zPoint) &&
         SameBits(zA.m_zAxis, zB.m_zAxis) && SameBits(zA.m_dRadius, zB.m_dRadius) && zA.m_iOrder == zB.m_iOrder &&
         SameBits(zA.m_vdKnot, zB.m_vdKnot) && SameBits(zA.m_vdWeight, zB.m_vdWeight) &&
         std::equal(zA.m_vzPole.begin(), zA.m_vzPole.end(), zB.m_vzPole.begin(), zB.m_vzPole.end(),
                    [](const KivECoord3& a, const KivECoord3& b) { return SameBits(a, b); });
}

}  // namespace

std::vector<uint8_t> KivEncodeBrepGeometry(const KivBrepGeometry& zGeometry) {
  std::vector<uint8_t> vcGeometry;
  if (zGeometry.m_iKind == kBrepAnalyticKind) vcGeometry = EncodeAnalytic(zGeometry);
  if (zGeometry.m_iKind == kBrepNurbsKind) vcGeometry = EncodeNurbs(zGeometry);
  if (vcGeometry.empty()) return {};
  // What comes out must be what went in; a geometry with fields that its kind does not have cannot be kept either.
  KivBrepGeometry zDecoded;
  if (!KivDecodeBrepGeometry(zGeometry.m_iKind, vcGeometry, zDecoded) || !IsSame(zGeometry, zDecoded)) return {};
  return vcGeometry;
}

}  // namespace kiv
