// A 4 x 4 matrix of doubles, m0 to m15 row by row, for points as row vectors: p' = p x M. The translation stands in
// m12, m13, m14, the homogeneous column in m3, m7, m11, m15. M followed by N is M x N, and every operation that
// rotates, scales or translates multiplies onto the right.
//
// What cannot be done is reported, quietly, and leaves the fallback that each operation names.
#pragma once

#include <cstddef>

#include "KivECoord3.h"

namespace kiv {

class KivEMatrix4 {
 public:
  // Within this two elements are equal; a divisor, a homogeneous w or a cross product below it counts as 0.
  static constexpr double kTolerance = 1e-12;

  KivEMatrix4() = default;  // the identity
  explicit KivEMatrix4(const double (&adElement)[16]);

  double& operator[](size_t i) { return m_adElement[i]; }
  double operator[](size_t i) const { return m_adElement[i]; }
  KivECoord3 GetTranslation() const { return {m_adElement[12], m_adElement[13], m_adElement[14]}; }
  // Exactly 0, 0, 0, 1 in m3, m7, m11, m15.
  bool IsAffine() const;

  KivEMatrix4& operator*=(const KivEMatrix4& zRight);
  KivEMatrix4& operator*=(double dFactor);               // all 16 elements
  KivEMatrix4& operator/=(double dDivisor);              // a divisor of about 0 changes nothing
  KivEMatrix4& operator/=(const KivEMatrix4& zDivisor);  // by the inverse; by a singular matrix as it stands
  friend KivEMatrix4 operator*(KivEMatrix4 zLeft, const KivEMatrix4& zRight) { return zLeft *= zRight; }
  friend KivEMatrix4 operator*(KivEMatrix4 z, double dFactor) { return z *= dFactor; }
  friend KivEMatrix4 operator/(KivEMatrix4 z, double dDivisor) { return z /= dDivisor; }
  friend KivEMatrix4 operator/(KivEMatrix4 z, const KivEMatrix4& zDivisor) { return z /= zDivisor; }

  // False, without a report, for a singular matrix, which stays as it is.
  bool Invert();
  void Transpose();

  // Angles in radians; the other forms take cosine and sine. A turn about Z carries x to y, one about X carries y to z,
  // one about Y carries z to x.
  void RotateX(double dAngle);
  void RotateX(double dCosine, double dSine);
  void RotateY(double dAngle);
  void RotateY(double dCosine, double dSine);
  void RotateZ(double dAngle);
  void RotateZ(double dCosine, double dSine);
  // The axis need not have length 1, but must have one.
  void RotateAxis(double dAngle, const KivECoord3& zAxis);
  void RotateAxis(double dCosine, double dSine, const KivECoord3& zAxis);
  // Carries one direction to another. Nothing happens if they are parallel or opposite.
  void RotateTo(const KivECoord3& zFrom, const KivECoord3& zTo);
  void Scale(double dX, double dY, double dZ);  // columns 0, 1, 2; the homogeneous column stays
  void Translate(const KivECoord3& zVector);    // by m15 times the vector

  // Equal to another matrix within 1e-12 on each element. A value that is no number equals nothing.
  bool IsIdentityLike(const KivEMatrix4& zOther) const;
  bool IsMirror() const;

  // A homogeneous w of about 0 is taken as 1.
  KivECoord3 TransformPoint(const KivECoord3& zPoint) const;
  void TransformPoint(const float afIn[3], float afOut[3]) const;
  // Eight corners of x, y, z. The two may be the same array.
  void TransformBoxCorners(const float afIn[24], float afOut[24]) const;

 private:
  double m_adElement[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
};

}  // namespace kiv
