#include "KivMatrixCode.h"

#include <array>
#include <cmath>

#include "KivLittleEndian.h"

namespace kiv {
namespace {

enum MatrixForm : uint8_t { kAny = 0, kIdentity = 1, kTurnsAndTranslation = 2, kTurns = 3 };

constexpr double kCosine[4] = {1, 0, -1, 0};
constexpr double kSine[4] = {0, 1, 0, -1};
constexpr double kScalingTolerance = 1e-6;

KivEMatrix4 QuarterTurns(unsigned iX, unsigned iY, unsigned iZ) {
  KivEMatrix4 z;
  z.RotateX(kCosine[iX], kSine[iX]);
  z.RotateY(kCosine[iY], kSine[iY]);
  z.RotateZ(kCosine[iZ], kSine[iZ]);
  return z;
}

// All combinations in the order in which they are tried, X outermost.
const std::array<KivEMatrix4, 64>& AllTurns() {
  static const std::array<KivEMatrix4, 64> azTurns = [] {
    std::array<KivEMatrix4, 64> az;
    for (unsigned i = 0; i < 64; ++i) az[i] = QuarterTurns(i >> 4, i >> 2 & 3, i & 3);
    return az;
  }();
  return azTurns;
}

bool IsAboutZero(double d) {
  return std::fabs(d) <= KivEMatrix4::kTolerance;
}

bool IsScaling(const KivEMatrix4& m) {
  const double dSum = m[15] + m[3];
  const double dInverse = 1 / dSum;
  const double dFactor = std::fabs(dSum) <= KivEMatrix4::kTolerance ? 1.0 : dInverse * dInverse;
  const double dRow = (m[0] * m[0] + m[1] * m[1] + m[2] * m[2]) * dFactor;
  return std::fabs(1 - dRow) > kScalingTolerance;
}

}  // namespace

size_t KivMatrixPayloadSize(uint8_t iCode) {
  switch (iCode & 3) {
    case kAny:
      return 16 * sizeof(double);
    case kTurnsAndTranslation:
      return 3 * sizeof(double);
    default:
      return 0;
  }
}

uint8_t KivEncodeMatrix(const KivEMatrix4& zMatrix, uint8_t acPayload[kMatrixPayloadMax]) {
  if (zMatrix.IsIdentityLike(KivEMatrix4())) return kIdentity;
  const KivECoord3 zTranslation = zMatrix.GetTranslation();
  KivEMatrix4 zStripped = zMatrix;
  zStripped.Translate(-zTranslation);
  const auto& azTurns = AllTurns();
  for (unsigned i = 0; i < azTurns.size(); ++i) {
    if (!zStripped.IsIdentityLike(azTurns[i])) continue;
    const unsigned iTurns = (i >> 4) << 2 | (i >> 2 & 3) << 4 | (i & 3) << 6;
    if (IsAboutZero(zTranslation.m_dX) && IsAboutZero(zTranslation.m_dY) && IsAboutZero(zTranslation.m_dZ))
      return static_cast<uint8_t>(iTurns | kTurns);
    KivStore<double>(acPayload, zTranslation.m_dX);
    KivStore<double>(acPayload + 8, zTranslation.m_dY);
    KivStore<double>(acPayload + 16, zTranslation.m_dZ);
    return static_cast<uint8_t>(iTurns | kTurnsAndTranslation);
  }
  for (size_t i = 0; i < 16; ++i) KivStore<double>(acPayload + 8 * i, zMatrix[i]);
  return kAny;
}

KivEMatrix4 KivDecodeMatrix(uint8_t iCode, const uint8_t* pPayload) {
  KivEMatrix4 zMatrix;
  const unsigned iForm = iCode & 3;
  if (iForm == kAny) {
    for (size_t i = 0; i < 16; ++i) zMatrix[i] = KivLoad<double>(pPayload + 8 * i);
  } else if (iForm != kIdentity) {
    zMatrix = QuarterTurns(iCode >> 2 & 3, iCode >> 4 & 3, iCode >> 6 & 3);
    if (iForm == kTurnsAndTranslation)
      zMatrix.Translate({KivLoad<double>(pPayload), KivLoad<double>(pPayload + 8), KivLoad<double>(pPayload + 16)});
  }
  return zMatrix;
}

uint32_t KivFillMatrixClass(const KivEMatrix4& zMatrix, uint32_t iClass) {
  if ((iClass & 3) == 0) iClass |= IsScaling(zMatrix) ? 1 : 2;
  if ((iClass & 0x30) == 0) iClass |= zMatrix.IsMirror() ? 0x10 : 0x20;
  return iClass;
}

}  // namespace kiv
