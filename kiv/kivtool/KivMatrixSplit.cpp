#include "KivMatrixSplit.h"

#include <algorithm>
#include <cmath>

namespace kiv {
namespace {

using Row = std::array<double, 3>;
using Square = std::array<Row, 3>;

double Dot(const Row& a, const Row& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
Row Cross(const Row& a, const Row& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double Length(const Row& a) {
  return std::sqrt(Dot(a, a));
}
Row Times(const Row& a, double d) {
  return {a[0] * d, a[1] * d, a[2] * d};
}

// Of a rotation, given by the images of the axes as rows.
std::array<double, 4> QuaternionOf(const Square& r) {
  std::array<double, 4> q;
  const double dTrace = r[0][0] + r[1][1] + r[2][2];
  if (dTrace > 0) {
    const double s = std::sqrt(dTrace + 1) * 2;
    q = {(r[1][2] - r[2][1]) / s, (r[2][0] - r[0][2]) / s, (r[0][1] - r[1][0]) / s, s / 4};
  } else {
    const int i = r[0][0] > r[1][1] ? (r[0][0] > r[2][2] ? 0 : 2) : (r[1][1] > r[2][2] ? 1 : 2);
    const int j = (i + 1) % 3, k = (i + 2) % 3;
    const double s = std::sqrt(std::max(0.0, 1 + r[i][i] - r[j][j] - r[k][k])) * 2;
    q[i] = s / 4;
    q[j] = (r[i][j] + r[j][i]) / s;
    q[k] = (r[i][k] + r[k][i]) / s;
    q[3] = (r[j][k] - r[k][j]) / s;
  }
  const double dLength = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (double& d : q) d /= dLength;
  return q;
}

// One turn in the plane of the rows i and j that makes them orthogonal; the same turn is made with the rows of v.
bool Turn(Square& a, Square& v, int i, int j) {
  const double dAlpha = Dot(a[i], a[i]), dBeta = Dot(a[j], a[j]), dGamma = Dot(a[i], a[j]);
  if (std::abs(dGamma) <= 1e-16 * std::sqrt(dAlpha * dBeta)) return false;
  const double dZeta = (dBeta - dAlpha) / (2 * dGamma);
  const double t = (dZeta < 0 ? -1 : 1) / (std::abs(dZeta) + std::sqrt(1 + dZeta * dZeta));
  const double c = 1 / std::sqrt(1 + t * t), s = c * t;
  for (Square* p : {&a, &v})
    for (int k = 0; k < 3; ++k) {
      const double x = (*p)[i][k], y = (*p)[j][k];
      (*p)[i][k] = c * x - s * y;
      (*p)[j][k] = s * x + c * y;
    }
  return true;
}

// Unit rows in place of those of a, also for rows that are 0; right-handed, whatever a is.
Square Directions(const Square& a, const Row& adLength) {
  Square u{};
  std::array<bool, 3> abDone{};
  const double dLargest = std::max({adLength[0], adLength[1], adLength[2]});
  for (int i = 0; i < 3; ++i)
    if (adLength[i] > 1e-12 * dLargest && adLength[i] > 0) {
      u[i] = Times(a[i], 1 / adLength[i]);
      abDone[i] = true;
    }
  for (int i = 0; i < 3; ++i) {
    if (abDone[i]) continue;
    // Orthogonal to those that are there: the longest of what remains of the axes.
    Row best{};
    for (int k = 0; k < 3; ++k) {
      Row e{};
      e[k] = 1;
      for (int j = 0; j < 3; ++j)
        if (abDone[j]) {
          const double d = Dot(e, u[j]);
          for (int n = 0; n < 3; ++n) e[n] -= d * u[j][n];
        }
      if (Length(e) > Length(best)) best = e;
    }
    u[i] = Times(best, 1 / Length(best));
    abDone[i] = true;
  }
  return u;
}

}  // namespace

bool KivIsPlainPlacement(const KivEMatrix4& z) {
  const Square a = {Row{z[0], z[1], z[2]}, Row{z[4], z[5], z[6]}, Row{z[8], z[9], z[10]}};
  const double dScale = Length(a[0]);
  if (!z.IsAffine() || !(dScale >= 1e-3 && dScale <= 1e6)) return false;
  for (int i = 0; i < 3; ++i)
    if (std::abs(Length(a[i]) - dScale) > 1e-9 * dScale || std::abs(Dot(a[i], a[(i + 1) % 3])) > 1e-9 * dScale * dScale)
      return false;
  return true;
}

// For row vectors the linear part is A, of which V turns the rows into orthogonal ones: V A = S U, so A = V^-1 S U.
void KivSplitPlacement(const KivEMatrix4& z, KivGltfTrs& zInner, KivGltfTrs& zOuter) {
  Square a = {Row{z[0], z[1], z[2]}, Row{z[4], z[5], z[6]}, Row{z[8], z[9], z[10]}};
  Square v = {Row{1, 0, 0}, Row{0, 1, 0}, Row{0, 0, 1}};
  for (int iSweep = 0; iSweep < 30; ++iSweep) {
    bool bTurned = false;
    for (int i = 0; i < 3; ++i) bTurned |= Turn(a, v, i, (i + 1) % 3);
    if (!bTurned) break;
  }
  Row adLength = {Length(a[0]), Length(a[1]), Length(a[2])};
  Square u = Directions(a, adLength);
  if (Dot(Cross(u[0], u[1]), u[2]) < 0) {
    u[2] = Times(u[2], -1);
    adLength[2] = -adLength[2];
  }
  Square vBack;
  for (int i = 0; i < 3; ++i)
    for (int k = 0; k < 3; ++k) vBack[i][k] = v[k][i];
  zInner = KivGltfTrs();
  zInner.m_dRotation = QuaternionOf(vBack);
  zOuter.m_dTranslation = {z[12], z[13], z[14]};
  zOuter.m_dScale = adLength;
  zOuter.m_dRotation = QuaternionOf(u);
}

}  // namespace kiv
