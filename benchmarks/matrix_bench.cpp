// Matrix product, inverse and box transformation beside Eigen.
//
//   usage: matrix_bench
// Nanoseconds of CPU time for each operation, best of several runs; the ratio is ours over Eigen's (below 1: faster).
#include <Eigen/Dense>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

#include "KivEMatrix4.h"
#include "KivMatrixCode.h"

namespace {

constexpr size_t kMatrices = 1024;  // 128 KiB, so that memory plays no part
using EigenMatrix = Eigen::Matrix<double, 4, 4, Eigen::RowMajor>;

template <typename T>
void Use(T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

template <typename Body>
double FastestNs(Body&& body) {
  double dBest = 1e9;
  for (int i = 0; i < 300; ++i) {
    const std::clock_t tStart = std::clock();
    for (int k = 0; k < 8; ++k) body();
    dBest = std::min(dBest, static_cast<double>(std::clock() - tStart) / CLOCKS_PER_SEC / (8.0 * kMatrices) * 1e9);
  }
  return dBest;
}

void Print(const char* szName, double dOurs, double dPeer) {
  std::printf("%-24s %8.1f ns   Eigen %8.1f ns   ratio %5.2f\n", szName, dOurs, dPeer, dOurs / dPeer);
}

}  // namespace

int main() {
  std::vector<kiv::KivEMatrix4> vzA(kMatrices), vzB(kMatrices), vzOut(kMatrices);
  std::vector<EigenMatrix> vzEigenA(kMatrices), vzEigenB(kMatrices), vzEigenOut(kMatrices);
  uint32_t iRandom = 1;
  const auto Random = [&] {
    iRandom = iRandom * 1664525u + 1013904223u;
    return static_cast<double>(iRandom >> 8) / 8388608.0 - 1;
  };
  for (size_t i = 0; i < kMatrices; ++i) {
    vzA[i].RotateAxis(Random() * 3, {Random(), Random(), 1});
    vzA[i].Translate({Random(), Random(), Random()});
    for (size_t k = 0; k < 16; ++k) {
      vzB[i][k] = Random();
      vzEigenA[i](static_cast<Eigen::Index>(k / 4), static_cast<Eigen::Index>(k % 4)) = vzA[i][k];
      vzEigenB[i](static_cast<Eigen::Index>(k / 4), static_cast<Eigen::Index>(k % 4)) = vzB[i][k];
    }
  }

  const double dMultiply = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) vzOut[i] = vzA[i] * vzB[i];
    Use(vzOut);
  });
  const double dEigenMultiply = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) vzEigenOut[i].noalias() = vzEigenA[i] * vzEigenB[i];
    Use(vzEigenOut);
  });
  Print("multiply", dMultiply, dEigenMultiply);

  const double dInvert = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) {
      vzOut[i] = vzB[i];
      vzOut[i].Invert();
    }
    Use(vzOut);
  });
  const double dEigenInverse = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) vzEigenOut[i] = vzEigenB[i].inverse();
    Use(vzEigenOut);
  });
  Print("invert (cofactors)", dInvert, dEigenInverse);
  const double dEigenLU = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) vzEigenOut[i] = vzEigenB[i].partialPivLu().inverse();
    Use(vzEigenOut);
  });
  Print("invert (pivoted LU)", dInvert, dEigenLU);

  std::vector<float> vfBox(24 * kMatrices), vfOut(24 * kMatrices);
  for (float& f : vfBox) f = static_cast<float>(Random());
  const double dBox = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) vzA[i].TransformBoxCorners(&vfBox[24 * i], &vfOut[24 * i]);
    Use(vfOut);
  });
  using Corners = Eigen::Matrix<float, 8, 3, Eigen::RowMajor>;
  const double dEigenBox = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) {
      const Eigen::Map<const Corners> zIn(&vfBox[24 * i]);
      Eigen::Map<Corners> zOut(&vfOut[24 * i]);
      Eigen::Matrix<double, 8, 4, Eigen::RowMajor> zWide;
      zWide.leftCols<3>() = zIn.cast<double>();
      zWide.col(3).setOnes();
      zOut = (zWide * vzEigenA[i]).leftCols<3>().cast<float>();
    }
    Use(vfOut);
  });
  Print("box corners", dBox, dEigenBox);

  std::vector<uint8_t> vcPayload(kiv::kMatrixPayloadMax);
  int nShort = 0;
  const double dCode = FastestNs([&] {
    for (size_t i = 0; i < kMatrices; ++i) nShort += kiv::KivEncodeMatrix(vzA[i], vcPayload.data()) != 0;
    Use(nShort);
  });
  std::printf("%-24s %8.1f ns   for a matrix that no quarter turn matches\n", "code", dCode);
  return 0;
}
