// Analytic form (10005), 50 bytes or, for the types 2 and 3, 58:
//   OFFSET   SIZE    FIELD
//   0        1       64
//   1        1       m_iAnalyticType, 1 to 5
//   2        3 x 8   point, f64
//   26       3 x 8   axis, of a squared length of 1e-24 at the least
//   50       8       radius, above 0
// NURBS form (10004): flags, counts, axis mask, knots, poles; see the constants.
#include "KivBrepGeometry.h"

#include <bit>

#include "KivRecordBytes.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivBrepData";

constexpr uint8_t kAnalyticMagic = 64;
constexpr double kAxisMin = 1e-24;  // squared length

// Flags of the NURBS form; bits 0 to 1 are the form of the counts.
constexpr uint8_t kCountForm = 3;
constexpr uint8_t kRational = 1 << 2;
constexpr uint8_t kClamped = 1 << 3;
constexpr uint8_t kUniform = 1 << 4;    // only with kClamped
constexpr uint8_t kQuantised = 1 << 5;  // only without kRational
constexpr uint8_t kNoFlags = 0xC0;

class GeometryReader {
 public:
  explicit GeometryReader(std::span<const uint8_t> vc) : m_zReader(vc.data(), vc.size()), m_nBytes(vc.size()) {}

  size_t Size() const { return m_nBytes; }
  bool IsAtEnd() const { return m_zReader.Remaining() == 0; }
  bool Holds(uint64_t nItems, uint64_t nItemBytes) const {
    return nItemBytes == 0 || nItems <= m_zReader.Remaining() / nItemBytes;
  }

  bool Get(uint8_t& value) { return KIV_ASSERT_AS(m_zReader.Get(value), "iDataByte >= iDataByteCount + 1"); }
  bool Get(uint16_t& value) { return KIV_ASSERT_AS(m_zReader.Get(value), "iDataByte >= iDataByteCount + 2"); }
  bool Get(uint32_t& value) { return KIV_ASSERT_AS(m_zReader.Get(value), "iDataByte >= iDataByteCount + 4"); }
  bool Get(double& value) { return KIV_ASSERT_AS(m_zReader.Get(value), "iDataByte >= iDataByteCount + 8"); }
  bool Get(KivECoord3& z) { return Get(z.m_dX) && Get(z.m_dY) && Get(z.m_dZ); }
  // Two counts of one size.
  template <typename T>
  bool GetCounts(uint32_t& iOrder, uint32_t& nPoles) {
    T order = 0, poles = 0;
    if (!Get(order) || !Get(poles)) return false;
    iOrder = order;
    nPoles = poles;
    return true;
  }
  // An unsigned number of any length; above eight bytes its lowest 64 bits.
  bool GetInteger(uint32_t nBytes, uint64_t& iValue) {
    iValue = 0;
    for (uint32_t i = 0; i < nBytes; ++i) {
      uint8_t c = 0;
      if (!Get(c)) return false;
      if (i < 8) iValue |= uint64_t{c} << (8 * i);
    }
    return true;
  }

 private:
  KivRecordReader m_zReader;
  size_t m_nBytes;
};

bool DecodeAnalytic(GeometryReader& zReader, KivBrepGeometry& z) {
  uint8_t iMagic = 0, iType = 0;
  if (!zReader.Get(iMagic) || !KIV_ASSERT(iMagic == kAnalyticMagic)) return false;
  if (!zReader.Get(iType) || !KIV_ASSERT(iType >= 1 && iType <= 5)) return false;
  z.m_iAnalyticType = iType;
  if (!zReader.Get(z.m_zPoint) || !zReader.Get(z.m_zAxis)) return false;
  if (!KIV_ASSERT(z.m_zAxis.Dot(z.m_zAxis) >= kAxisMin)) return false;
  if (iType != 2 && iType != 3) return true;
  return zReader.Get(z.m_dRadius) && KIV_ASSERT(z.m_dRadius > 0);
}

bool ReadCounts(GeometryReader& zReader, uint8_t iFlags, uint32_t& iOrder, uint32_t& nPoles) {
  switch (iFlags & kCountForm) {
    case 0:
      return zReader.GetCounts<uint8_t>(iOrder, nPoles);
    case 1:
      return zReader.GetCounts<uint16_t>(iOrder, nPoles);
    case 2:
      return zReader.GetCounts<uint32_t>(iOrder, nPoles);
    default: {
      uint8_t iBoth = 0;
      if (!zReader.Get(iBoth)) return false;
      nPoles = iBoth & 31;
      iOrder = iBoth >> 5;
      return true;
    }
  }
}

bool ReadKnots(GeometryReader& zReader, uint8_t iFlags, uint32_t iOrder, uint32_t nPoles, std::vector<double>& vdKnot) {
  const size_t nKnots = size_t{iOrder} + nPoles;
  const bool bClamped = (iFlags & kClamped) != 0, bUniform = (iFlags & kUniform) != 0;
  const size_t nStored = !bClamped ? nKnots : bUniform ? 0 : nPoles - iOrder;
  if (zReader.Holds(nStored, sizeof(double))) vdKnot.reserve(nKnots);
  if (!bClamped) {
    for (size_t i = 0; i < nKnots; ++i)
      if (!zReader.Get(vdKnot.emplace_back())) return false;
    return true;
  }
  vdKnot.assign(iOrder, 0.0);
  const double dStep = 1.0 / (static_cast<double>(nPoles - iOrder) + 1);
  for (uint32_t i = iOrder; i < nPoles; ++i) {
    double dDelta = dStep;
    if (!bUniform && !zReader.Get(dDelta)) return false;
    vdKnot.push_back(vdKnot.back() + dDelta);
  }
  vdKnot.insert(vdKnot.end(), iOrder, 1.0);
  return true;
}

// Of one coordinate that the string holds.
struct CoordinateForm {
  bool m_bQuantised = false;
  uint8_t m_iPoleBytes = 0;
  double m_dPoleOrigin[3] = {};
  double m_dPoleRange = 0;

  bool Read(GeometryReader& zReader) {
    m_bQuantised = true;
    if (!zReader.Get(m_iPoleBytes)) return false;
    for (double& d : m_dPoleOrigin)
      if (!zReader.Get(d)) return false;
    return zReader.Get(m_dPoleRange);
  }
  uint64_t Size() const { return m_bQuantised ? m_iPoleBytes : sizeof(double); }
  bool ReadCoordinate(GeometryReader& zReader, size_t iAxis, double& d) const {
    if (!m_bQuantised) return zReader.Get(d);
    uint64_t iValue = 0;
    if (!zReader.GetInteger(m_iPoleBytes, iValue)) return false;
    const bool bKnown = m_iPoleBytes >= 1 && m_iPoleBytes <= 7;
    const double dSteps = bKnown ? static_cast<double>((uint64_t{1} << (8 * m_iPoleBytes)) - 1) : 255.0;
    d = static_cast<double>(iValue) / dSteps * m_dPoleRange + m_dPoleOrigin[iAxis];
    return true;
  }
};

bool ReadPoles(GeometryReader& zReader, uint8_t iFlags, uint8_t iAxisMask, uint32_t nPoles, KivBrepGeometry& z) {
  const bool bRational = (iFlags & kRational) != 0;
  CoordinateForm zForm;
  if (!bRational && (iFlags & kQuantised) != 0 && !zForm.Read(zReader)) return false;
  const uint64_t nStoredAxes = static_cast<uint64_t>(std::popcount(iAxisMask));
  if (zReader.Holds(nPoles, nStoredAxes * zForm.Size() + (bRational ? sizeof(double) : 0))) {
    z.m_vzPole.reserve(nPoles);
    if (bRational) z.m_vdWeight.reserve(nPoles);
  }
  for (uint32_t i = 0; i < nPoles; ++i) {
    // An axis outside the mask keeps what the first pole has.
    KivECoord3 zPole = i == 0 ? KivECoord3() : z.m_vzPole[0];
    double* const apdAxis[3] = {&zPole.m_dX, &zPole.m_dY, &zPole.m_dZ};
    for (size_t k = 0; k < 3; ++k)
      if ((i == 0 || (iAxisMask >> k & 1) != 0) && !zForm.ReadCoordinate(zReader, k, *apdAxis[k])) return false;
    if (bRational && !zReader.Get(z.m_vdWeight.emplace_back())) return false;
    z.m_vzPole.push_back(zPole);
  }
  return true;
}

bool DecodeNurbs(GeometryReader& zReader, KivBrepGeometry& z) {
  uint8_t iFlags = 0, iAxisMask = 0;
  uint32_t iOrder = 0, nPoles = 0;
  if (!zReader.Get(iFlags) || !KIV_ASSERT((iFlags & kNoFlags) == 0)) return false;
  if (!ReadCounts(zReader, iFlags, iOrder, nPoles)) return false;
  if (!KIV_ASSERT(nPoles >= 1 && iOrder >= 1 && nPoles >= iOrder)) return false;
  const uint64_t nKnots = uint64_t{iOrder} + nPoles;
  if (!KIV_ASSERT(nKnots <= kBrepRepeatMax || nKnots <= zReader.Size())) return false;
  if (!zReader.Get(iAxisMask) || !KIV_ASSERT(iAxisMask <= 7)) return false;
  z.m_iOrder = iOrder;
  return ReadKnots(zReader, iFlags, iOrder, nPoles, z.m_vdKnot) && ReadPoles(zReader, iFlags, iAxisMask, nPoles, z);
}

}  // namespace

bool KivDecodeBrepGeometry(uint32_t iKind, std::span<const uint8_t> vcGeometry, KivBrepGeometry& zGeometry) {
  try {
    zGeometry = KivBrepGeometry();
    zGeometry.m_iKind = iKind;
    if (vcGeometry.empty()) return false;
    if (!KIV_ASSERT(iKind == kBrepNurbsKind || iKind == kBrepAnalyticKind)) return false;
    GeometryReader zReader(vcGeometry);
    const bool bGood =
        iKind == kBrepAnalyticKind ? DecodeAnalytic(zReader, zGeometry) : DecodeNurbs(zReader, zGeometry);
    return bGood && KIV_ASSERT(zReader.IsAtEnd());
  } catch (...) {  // no memory
    KivReportThrownHere(kSource, __LINE__);
    return false;
  }
}

}  // namespace kiv
