#include "KivEMatrix4.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivEMatrix4";
constexpr double kSingular = 1e-20;  // a row, a pivot or a determinant below this

// x * row 0 + y * row 1 + z * row 2 + row 3, in this order, for the columns of one half.
inline __m128d TransformHalf(const double* pdColumns, __m128d vX, __m128d vY, __m128d vZ) {
  __m128d v = _mm_mul_pd(vX, _mm_loadu_pd(pdColumns));
  v = _mm_add_pd(v, _mm_mul_pd(vY, _mm_loadu_pd(pdColumns + 4)));
  v = _mm_add_pd(v, _mm_mul_pd(vZ, _mm_loadu_pd(pdColumns + 8)));
  return _mm_add_pd(v, _mm_loadu_pd(pdColumns + 12));
}

double DivisorOf(double dW) {
  return KIV_ASSERT(!(std::fabs(dW) < KivEMatrix4::kTolerance)) ? dW : 1.0;
}

}  // namespace

KivEMatrix4::KivEMatrix4(const double (&adElement)[16]) {
  std::copy(adElement, adElement + 16, m_adElement);
}

bool KivEMatrix4::IsAffine() const {
  return m_adElement[3] == 0 && m_adElement[7] == 0 && m_adElement[11] == 0 && m_adElement[15] == 1;
}

KivEMatrix4& KivEMatrix4::operator*=(const KivEMatrix4& zRight) {
  __m128d avRight[8];
  for (int i = 0; i < 8; ++i) avRight[i] = _mm_loadu_pd(zRight.m_adElement + 2 * i);
  for (double* pdRow = m_adElement; pdRow < m_adElement + 16; pdRow += 4) {
    __m128d v = _mm_set1_pd(pdRow[0]);
    __m128d vLow = _mm_mul_pd(v, avRight[0]);
    __m128d vHigh = _mm_mul_pd(v, avRight[1]);
    for (int k = 1; k < 4; ++k) {
      v = _mm_set1_pd(pdRow[k]);
      vLow = _mm_add_pd(vLow, _mm_mul_pd(v, avRight[2 * k]));
      vHigh = _mm_add_pd(vHigh, _mm_mul_pd(v, avRight[2 * k + 1]));
    }
    _mm_storeu_pd(pdRow, vLow);
    _mm_storeu_pd(pdRow + 2, vHigh);
  }
  return *this;
}

KivEMatrix4& KivEMatrix4::operator*=(double dFactor) {
  for (double& d : m_adElement) d *= dFactor;
  return *this;
}

KivEMatrix4& KivEMatrix4::operator/=(double dDivisor) {
  if (!KIV_ASSERT(std::fabs(dDivisor) >= kTolerance)) return *this;
  return *this *= 1 / dDivisor;
}

KivEMatrix4& KivEMatrix4::operator/=(const KivEMatrix4& zDivisor) {
  KivEMatrix4 zInverse = zDivisor;
  KIV_ASSERT(zInverse.Invert());
  return *this *= zInverse;
}

bool KivEMatrix4::Invert() {
  // LU decomposition of a copy, row by row exchanged; L has ones on its diagonal.
  double adLU[4][4];
  double adScale[4];
  int aiRow[4];  // the row of the original that stands in each row
  for (int i = 0; i < 4; ++i) {
    double dLargest = 0;
    for (int k = 0; k < 4; ++k) {
      adLU[i][k] = m_adElement[4 * i + k];
      dLargest = std::max(dLargest, std::fabs(adLU[i][k]));
    }
    if (!(dLargest >= kSingular)) return false;
    adScale[i] = 1 / dLargest;
    aiRow[i] = i;
  }
  double dDeterminant = 1;
  for (int k = 0; k < 4; ++k) {
    for (int i = 0; i < k; ++i)
      for (int n = 0; n < i; ++n) adLU[i][k] -= adLU[i][n] * adLU[n][k];
    int iPivot = k;
    double dLargest = 0;
    for (int i = k; i < 4; ++i) {
      for (int n = 0; n < k; ++n) adLU[i][k] -= adLU[i][n] * adLU[n][k];
      const double dScaled = adScale[i] * std::fabs(adLU[i][k]);
      if (dScaled > dLargest) {
        dLargest = dScaled;
        iPivot = i;
      }
    }
    if (iPivot != k) {
      std::swap(adLU[iPivot], adLU[k]);
      std::swap(aiRow[iPivot], aiRow[k]);
      adScale[iPivot] = adScale[k];
      dDeterminant = -dDeterminant;
    }
    if (!(std::fabs(adLU[k][k]) >= kSingular)) return false;
    dDeterminant *= adLU[k][k];
    const double dInverse = 1 / adLU[k][k];
    for (int i = k + 1; i < 4; ++i) adLU[i][k] *= dInverse;
  }
  if (!(std::fabs(dDeterminant) >= kSingular)) return false;

  for (int iColumn = 0; iColumn < 4; ++iColumn) {
    double adSolution[4];
    for (int i = 0; i < 4; ++i) {
      adSolution[i] = aiRow[i] == iColumn ? 1 : 0;
      for (int k = 0; k < i; ++k) adSolution[i] -= adLU[i][k] * adSolution[k];
    }
    for (int i = 3; i >= 0; --i) {
      for (int k = i + 1; k < 4; ++k) adSolution[i] -= adLU[i][k] * adSolution[k];
      adSolution[i] /= adLU[i][i];
    }
    for (int i = 0; i < 4; ++i) m_adElement[4 * i + iColumn] = adSolution[i];
  }
  return true;
}

void KivEMatrix4::Transpose() {
  for (size_t i = 0; i < 4; ++i)
    for (size_t k = i + 1; k < 4; ++k) std::swap(m_adElement[4 * i + k], m_adElement[4 * k + i]);
}

void KivEMatrix4::RotateX(double dAngle) {
  RotateX(std::cos(dAngle), std::sin(dAngle));
}

void KivEMatrix4::RotateX(double dCosine, double dSine) {
  for (double* pdRow = m_adElement; pdRow < m_adElement + 16; pdRow += 4) {
    const double dY = pdRow[1];
    const double dZ = pdRow[2];
    pdRow[1] = dY * dCosine - dZ * dSine;
    pdRow[2] = dY * dSine + dZ * dCosine;
  }
}

void KivEMatrix4::RotateY(double dAngle) {
  RotateY(std::cos(dAngle), std::sin(dAngle));
}

void KivEMatrix4::RotateY(double dCosine, double dSine) {
  for (double* pdRow = m_adElement; pdRow < m_adElement + 16; pdRow += 4) {
    const double dX = pdRow[0];
    const double dZ = pdRow[2];
    pdRow[0] = dX * dCosine + dZ * dSine;
    pdRow[2] = dZ * dCosine - dX * dSine;
  }
}

void KivEMatrix4::RotateZ(double dAngle) {
  RotateZ(std::cos(dAngle), std::sin(dAngle));
}

void KivEMatrix4::RotateZ(double dCosine, double dSine) {
  for (double* pdRow = m_adElement; pdRow < m_adElement + 16; pdRow += 4) {
    const double dX = pdRow[0];
    const double dY = pdRow[1];
    pdRow[0] = dX * dCosine - dY * dSine;
    pdRow[1] = dX * dSine + dY * dCosine;
  }
}

void KivEMatrix4::RotateAxis(double dAngle, const KivECoord3& zAxis) {
  RotateAxis(std::cos(dAngle), std::sin(dAngle), zAxis);
}

void KivEMatrix4::RotateAxis(double dCosine, double dSine, const KivECoord3& zAxis) {
  KivEMatrix4 zToZ;  // carries the axis to the Z axis
  const double dPlane = zAxis.m_dX * zAxis.m_dX + zAxis.m_dY * zAxis.m_dY;
  if (zAxis.m_dX != 0 || zAxis.m_dY != 0) {
    const double dR = std::sqrt(dPlane);
    zToZ.RotateZ(zAxis.m_dX / dR, -zAxis.m_dY / dR);
  }
  const double dLength = zAxis.Length();
  zToZ.RotateY(zAxis.m_dZ / dLength, -std::sqrt(dPlane / (dLength * dLength)));
  KivEMatrix4 zTurn = zToZ;
  zTurn.RotateZ(dCosine, dSine);
  KIV_ASSERT(zToZ.Invert());
  *this *= zTurn * zToZ;
}

void KivEMatrix4::RotateTo(const KivECoord3& zFrom, const KivECoord3& zTo) {
  KivECoord3 zA = zFrom;
  KivECoord3 zB = zTo;
  zA.Normalise();
  zB.Normalise();
  const KivECoord3 zAxis = zA.Cross(zB);
  const double dSine = zAxis.Length();
  if (dSine < kTolerance) return;
  RotateAxis(zA.Dot(zB), dSine, zAxis);
}

void KivEMatrix4::Scale(double dX, double dY, double dZ) {
  for (double* pdRow = m_adElement; pdRow < m_adElement + 16; pdRow += 4) {
    pdRow[0] *= dX;
    pdRow[1] *= dY;
    pdRow[2] *= dZ;
  }
}

void KivEMatrix4::Translate(const KivECoord3& zVector) {
  m_adElement[12] += m_adElement[15] * zVector.m_dX;
  m_adElement[13] += m_adElement[15] * zVector.m_dY;
  m_adElement[14] += m_adElement[15] * zVector.m_dZ;
}

bool KivEMatrix4::IsIdentityLike(const KivEMatrix4& zOther) const {
  for (size_t i = 0; i < 16; ++i)
    if (!(std::fabs(m_adElement[i] - zOther.m_adElement[i]) <= kTolerance)) return false;
  return true;
}

bool KivEMatrix4::IsMirror() const {
  const KivECoord3 zOrigin = TransformPoint(KivECoord3());
  const KivECoord3 zX = TransformPoint(KivECoord3{1, 0, 0}) - zOrigin;
  const KivECoord3 zY = TransformPoint(KivECoord3{0, 1, 0}) - zOrigin;
  const KivECoord3 zZ = TransformPoint(KivECoord3{0, 0, 1}) - zOrigin;
  return zX.Cross(zY).Dot(zZ) < 0;
}

KivECoord3 KivEMatrix4::TransformPoint(const KivECoord3& zPoint) const {
  const double* m = m_adElement;
  const double dX = zPoint.m_dX, dY = zPoint.m_dY, dZ = zPoint.m_dZ;
  KivECoord3 zResult = {dX * m[0] + dY * m[4] + dZ * m[8] + m[12], dX * m[1] + dY * m[5] + dZ * m[9] + m[13],
                        dX * m[2] + dY * m[6] + dZ * m[10] + m[14]};
  if (IsAffine()) return zResult;
  const double dW = DivisorOf(dX * m[3] + dY * m[7] + dZ * m[11] + m[15]);
  zResult.m_dX /= dW;
  zResult.m_dY /= dW;
  zResult.m_dZ /= dW;
  return zResult;
}

void KivEMatrix4::TransformPoint(const float afIn[3], float afOut[3]) const {
  const KivECoord3 z = TransformPoint(KivECoord3{afIn[0], afIn[1], afIn[2]});
  afOut[0] = static_cast<float>(z.m_dX);
  afOut[1] = static_cast<float>(z.m_dY);
  afOut[2] = static_cast<float>(z.m_dZ);
}

void KivEMatrix4::TransformBoxCorners(const float afIn[24], float afOut[24]) const {
  const bool bAffine = IsAffine();
  for (const float* pfEnd = afIn + 24; afIn < pfEnd; afIn += 3, afOut += 3) {
    const __m128d vX = _mm_set1_pd(static_cast<double>(afIn[0]));
    const __m128d vY = _mm_set1_pd(static_cast<double>(afIn[1]));
    const __m128d vZ = _mm_set1_pd(static_cast<double>(afIn[2]));
    __m128d vLow = TransformHalf(m_adElement, vX, vY, vZ);
    __m128d vHigh = TransformHalf(m_adElement + 2, vX, vY, vZ);  // z and w
    if (!bAffine) {
      const __m128d vW = _mm_set1_pd(DivisorOf(_mm_cvtsd_f64(_mm_unpackhi_pd(vHigh, vHigh))));
      vLow = _mm_div_pd(vLow, vW);
      vHigh = _mm_div_pd(vHigh, vW);
    }
    _mm_storel_pi(reinterpret_cast<__m64*>(afOut), _mm_cvtpd_ps(vLow));
    _mm_store_ss(afOut + 2, _mm_cvtpd_ps(vHigh));
  }
}

}  // namespace kiv
