// Mesh elements for tests: hand-made records in their older forms, what an entry takes in memory, and entries that are
// the same.
#pragma once

#include <algorithm>
#include <cstdint>

#include "KivLittleEndian.h"
#include "KivMeshEntries.h"
#include "KivTestMesh.h"

namespace kivtest {

inline void AddAt(Bytes& vc, size_t iAt, int iChange) {
  kiv::KivStore<uint32_t>(&vc[iAt], kiv::KivLoad<uint32_t>(&vc[iAt]) + static_cast<uint32_t>(iChange));
}

inline void EraseFour(Bytes& vc, size_t iAt) {
  const auto it = vc.begin() + static_cast<ptrdiff_t>(iAt);
  vc.erase(it, it + 4);
}

// A record of revision 2 with a face at 100 and an edge behind it, in revision 1: both entries lack m_iDegenerate.
inline Bytes AsRevision1(Bytes vc) {
  const size_t iFace = 100, iEdge = iFace + kiv::KivLoad<uint32_t>(&vc[iFace + 8]);
  vc[8] = 1;
  EraseFour(vc, iEdge + 28);
  EraseFour(vc, iFace + 28);
  AddAt(vc, iFace + 8, -4);
  AddAt(vc, iEdge - 4, -4);
  AddAt(vc, iEdge - 4 + 8, -4);
  return vc;
}

// The same in a store of generation 19: revision 1 without its number.
inline Bytes AsGeneration19(const Bytes& vcRevision2) {
  Bytes vc = AsRevision1(vcRevision2);
  const size_t iFace = 96, iEdge = iFace + kiv::KivLoad<uint32_t>(&vc[100 + 8]);
  EraseFour(vc, 8);
  for (const size_t iAt : {size_t{8}, iFace, iEdge}) AddAt(vc, iAt, -4);
  return vc;
}

}  // namespace kivtest
