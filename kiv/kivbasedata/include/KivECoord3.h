// A point or a vector in space.
#pragma once

#include <cmath>

namespace kiv {

struct KivECoord3 {
  double m_dX = 0;
  double m_dY = 0;
  double m_dZ = 0;

  friend bool operator==(const KivECoord3&, const KivECoord3&) = default;

  KivECoord3& operator+=(const KivECoord3& zOther) {
    m_dX += zOther.m_dX;
    m_dY += zOther.m_dY;
    m_dZ += zOther.m_dZ;
    return *this;
  }
  KivECoord3& operator-=(const KivECoord3& zOther) {
    m_dX -= zOther.m_dX;
    m_dY -= zOther.m_dY;
    m_dZ -= zOther.m_dZ;
    return *this;
  }
  KivECoord3& operator*=(double dFactor) {
    m_dX *= dFactor;
    m_dY *= dFactor;
    m_dZ *= dFactor;
    return *this;
  }
  friend KivECoord3 operator+(KivECoord3 zA, const KivECoord3& zB) { return zA += zB; }
  friend KivECoord3 operator-(KivECoord3 zA, const KivECoord3& zB) { return zA -= zB; }
  friend KivECoord3 operator-(const KivECoord3& z) { return {-z.m_dX, -z.m_dY, -z.m_dZ}; }
  friend KivECoord3 operator*(KivECoord3 z, double dFactor) { return z *= dFactor; }
  friend KivECoord3 operator*(double dFactor, KivECoord3 z) { return z *= dFactor; }

  double Dot(const KivECoord3& z) const { return m_dX * z.m_dX + m_dY * z.m_dY + m_dZ * z.m_dZ; }
  KivECoord3 Cross(const KivECoord3& z) const {
    return {m_dY * z.m_dZ - m_dZ * z.m_dY, m_dZ * z.m_dX - m_dX * z.m_dZ, m_dX * z.m_dY - m_dY * z.m_dX};
  }
  double Length() const { return std::sqrt(Dot(*this)); }
  // To length 1; a vector shorter than 1e-30 stays as it is.
  void Normalise() {
    const double dLength = Length();
    if (dLength < 1e-30) return;
    m_dX /= dLength;
    m_dY /= dLength;
    m_dZ /= dLength;
  }
};

}  // namespace kiv
