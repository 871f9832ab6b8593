#include "KivPolyElemData.h"

#include <algorithm>

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivPolyElemData";

}  // namespace

void KivPolyFace::Clear() {
  KivMeshFace::Clear();
  m_bFlatNormals = 0;
  m_bSwapped = false;
  ClearCompact();
}

void KivPolyFace::ClearCompact() {
  m_vfCompactVertex.clear();
  m_vfCompactNormal.clear();
  m_viCompactIndex.clear();
}

KivMeshFaceView KivPolyFace::View() const {
  KivMeshFaceView zView = KivMeshFace::View();
  if (IsFlat()) zView.m_iNormalCount = m_iTriangleCount;
  return zView;
}

bool KivPolyFace::BeginExpand(uint64_t nBytes) {
  if (!KIV_ASSERT(3 * static_cast<uint64_t>(m_iTriangleCount) <= nBytes)) return false;
  SwapLists();
  return true;
}

bool KivPolyFace::Expand() {
  const size_t nCorners = m_viIndex.size();
  if (!KIV_ASSERT(HasThreeIndicesPerTriangle())) return false;
  if (nCorners == 0) {
    ClearCompact();
    return true;
  }
  const size_t nVertices = m_vfVertex.size() / 3;
  if (!KIV_ASSERT(*std::max_element(m_viIndex.begin(), m_viIndex.end()) < nVertices)) return false;
  SwapLists();
  m_vfVertex.resize(3 * nCorners);
  m_vfNormal.resize(3 * nCorners);
  m_viIndex.resize(nCorners);
  for (size_t j = 0; j < nCorners; ++j) {
    std::copy_n(&m_vfCompactVertex[3 * static_cast<size_t>(m_viCompactIndex[j])], 3, &m_vfVertex[3 * j]);
    std::copy_n(&m_vfCompactNormal[3 * (j / 3)], 3, &m_vfNormal[3 * j]);
    m_viIndex[j] = static_cast<uint32_t>(j);
  }
  m_iVertexCount = static_cast<uint32_t>(nCorners);
  return true;
}

void KivPolyFace::SwapLists() {
  m_vfVertex.swap(m_vfCompactVertex);
  m_vfNormal.swap(m_vfCompactNormal);
  m_viIndex.swap(m_viCompactIndex);
}

void KivPolyFace::Swap() {
  SwapLists();
  m_iVertexCount = static_cast<uint32_t>(m_vfVertex.size() / 3);
  m_iTriangleCount = static_cast<uint32_t>(m_viIndex.size() / 3);
  m_bSwapped = !m_bSwapped;
}

void KivPolyFace::SwapForSave() {
  if (m_bSwapped || m_viCompactIndex.empty()) return;
  Swap();
  m_bFlatNormals = 1;
}

void KivPolyFace::SwapAfterSave() {
  if (m_bSwapped) Swap();
}

void KivMemoryBlockPolyElem::BeforeSave(bool) {
  for (KivPolyFace& zFace : m_vzFace) zFace.SwapForSave();
}

void KivMemoryBlockPolyElem::AfterSave() {
  for (KivPolyFace& zFace : m_vzFace) zFace.SwapAfterSave();
}

}  // namespace kiv
