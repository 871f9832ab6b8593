// Flat form, offsets from its start:
//   0     16       m_iTag, m_iEntryCount, m_iFormat, m_iDataOffset
//   16    3 x 8    links
//   40    6 x 4    box, low and high corner
//   64    4        m_iNodeState
//   68    4        0
//   72    4        m_iCoordWidth
//   76    3 x 4    m_fOrigin
//   88    4        m_fStep
//   92    3 x 4    m_iMeshFlags, m_iMeshValue, m_iDisplayValue
//   104   2 x 4    number of faces, number of edges
//   112   n x 4    place of each entry, faces then edges
//   then           the entries, back to back
// Face: frame, m_iValue0, m_iValue1, m_iId, m_iValue3, m_iVertexCount, m_iTriangleCount, m_iIndexSize, m_iDegenerate;
//   numbers of floats of vertices, of floats of normals, of indices; the three arrays; attributes.
// Edge: frame, the four values, m_iVertexCount, m_iDegenerate; number of floats; the floats; attributes.
// Attributes: u32 count, then u8 type, u32 length and the bytes of each.
#include "KivMeshElement.h"

#include <limits>

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFaceEdgeData";
constexpr size_t kPlaces = 112;

}  // namespace

KivMeshFlatForm::KivMeshFlatForm(const KivMemoryBlockFaceEdgeInterface& zMesh, uint64_t nEntries)
    : m_iNextOffset(kPlaces) {
  const KivMemoryBlockHeader& zHeader = zMesh.m_zHeader;
  for (const uint32_t i : {zHeader.m_iTag, zHeader.m_iEntryCount, zHeader.m_iFormat, zHeader.m_iDataOffset}) Number(i);
  for (const uint64_t iLink : zHeader.m_aiLink) Number(iLink);
  for (const float f : zHeader.m_afBoxMin) Number(f);
  for (const float f : zHeader.m_afBoxMax) Number(f);
  Number(zHeader.m_iNodeState);
  Number(uint32_t{0});
  Number(zMesh.m_iCoordWidth);
  for (const float f : zMesh.m_fOrigin) Number(f);
  Number(zMesh.m_fStep);
  for (const uint32_t i : {zMesh.m_iMeshFlags, zMesh.m_iMeshValue, zMesh.m_iDisplayValue}) Number(i);
  Number(zMesh.GetFaceNum());
  Number(zMesh.GetEdgeNum());
  m_vcBytes.resize(kPlaces + 4 * static_cast<size_t>(nEntries));
}

void KivMeshFlatForm::Put(const void* pBytes, size_t nBytes) {
  const uint8_t* p = static_cast<const uint8_t*>(pBytes);
  m_vcBytes.insert(m_vcBytes.end(), p, p + nBytes);
}

template <typename T>
void KivMeshFlatForm::Number(T value) {
  uint8_t acBytes[sizeof(T)];
  KivStore<T>(acBytes, value);
  Put(acBytes, sizeof(T));
}

template <typename T>
void KivMeshFlatForm::Array(const std::vector<T>& v) {
  Put(v.data(), v.size() * sizeof(T));
}

void KivMeshFlatForm::Frame(const KivEntryFrame& zFrame) {
  for (const uint32_t i : {zFrame.m_iOffset, zFrame.m_iKind, zFrame.m_iSize}) Number(i);
}

void KivMeshFlatForm::Attributes(const std::vector<KivAttribute>& vzAttribute) {
  Number(static_cast<uint32_t>(vzAttribute.size()));
  for (const KivAttribute& zAttribute : vzAttribute) {
    Number(zAttribute.m_iAttrib);
    Number(static_cast<uint32_t>(zAttribute.m_vcBytes.size()));
    Array(zAttribute.m_vcBytes);
  }
}

void KivMeshFlatForm::BeginEntry() {
  KivStore<uint32_t>(m_vcBytes.data() + m_iNextOffset, static_cast<uint32_t>(m_vcBytes.size()));
  m_iNextOffset += 4;
}

void KivMeshFlatForm::Add(const KivMeshFace& z) {
  BeginEntry();
  Frame(z.m_zFrame);
  for (const uint32_t i : {z.m_iValue0, z.m_iValue1, z.m_iId, z.m_iValue3, z.m_iVertexCount, z.m_iTriangleCount,
                           z.m_iIndexSize, z.m_iDegenerate})
    Number(i);
  for (const size_t n : {z.m_vfVertex.size(), z.m_vfNormal.size(), z.m_viIndex.size()})
    Number(static_cast<uint32_t>(n));
  Array(z.m_vfVertex);
  Array(z.m_vfNormal);
  Array(z.m_viIndex);
  Attributes(z.m_vzAttribute);
}

void KivMeshFlatForm::Add(const KivMeshEdge& z) {
  BeginEntry();
  Frame(z.m_zFrame);
  for (const uint32_t i : {z.m_iValue0, z.m_iValue1, z.m_iId, z.m_iValue3, z.m_iVertexCount, z.m_iDegenerate})
    Number(i);
  Number(static_cast<uint32_t>(z.m_vfVertex.size()));
  Array(z.m_vfVertex);
  Attributes(z.m_vzAttribute);
}

std::vector<uint8_t> KivMeshFlatForm::Take() {
  if (!KIV_ASSERT(m_vcBytes.size() <= std::numeric_limits<uint32_t>::max())) m_vcBytes.clear();
  return std::move(m_vcBytes);
}

}  // namespace kiv
