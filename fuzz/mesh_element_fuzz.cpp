// Input: a byte (bit 0: polygons, bit 1: a store of generation 19, bit 2: read for changed keys) and a record of a mesh
// element. What can be read must not take memory far beyond its size, and must be the same after it is written and read
// once more, in as many bytes as the sizing said. A write over the old record must stay within it.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "KivException.h"
#include "KivFaceEdgeData.h"
#include "KivPolyElemData.h"

namespace {

using namespace kiv;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "mesh_element_fuzz: %s\n", szWhat);
  std::abort();
}

size_t Taken(const KivMeshFace& z) {
  return 4 * (z.m_vfVertex.size() + z.m_vfNormal.size() + z.m_viIndex.size());
}
size_t Taken(const KivPolyFace& z) {
  return Taken(static_cast<const KivMeshFace&>(z)) +
         4 * (z.m_vfCompactVertex.size() + z.m_vfCompactNormal.size() + z.m_viCompactIndex.size());
}

template <typename Block>
size_t Taken(const Block& zBlock) {
  size_t n = 0;
  for (const auto& zFace : zBlock.m_vzFace) n += Taken(zFace) + 12 * zFace.m_vzAttribute.size();
  for (const KivMeshEdge& zEdge : zBlock.m_vzEdge) n += 4 * zEdge.m_vfVertex.size() + 12 * zEdge.m_vzAttribute.size();
  return n;
}

template <typename Block>
void WriteAndReadAgain(Block& zBlock) {
  zBlock.m_zHeader.m_iFormat = 2;
  zBlock.m_zHeader.m_iDataOffset = std::max(zBlock.m_zHeader.m_iDataOffset, 100u);
  KivMeshFlags zFlags;
  zBlock.BeforeSave(false);
  const int64_t nBytes = KivSizeElement(zBlock, zFlags);
  std::vector<uint8_t> vcOut(nBytes > 0 ? static_cast<size_t>(nBytes) : 0);
  if (nBytes > 0)
    Demand(KivWriteElement(std::span<uint8_t>(vcOut), 2, zBlock, zFlags), "the sizing and the writer disagree");
  zBlock.AfterSave();
  if (nBytes <= 0) return;
  static Block zAgain;
  Demand(KivReadElement(std::span<const uint8_t>(vcOut), false, false, zAgain, zFlags), "what was written is not read");
  Demand(zAgain.m_vzFace.size() == zBlock.m_vzFace.size() ||
             zAgain.m_vzFace.size() + zAgain.m_vzEdge.size() == zBlock.m_vzFace.size() + zBlock.m_vzEdge.size(),
         "another number of entries");
  for (size_t i = 0; i < std::min(zAgain.m_vzFace.size(), zBlock.m_vzFace.size()); ++i) {
    const auto& zA = zBlock.m_vzFace[i];
    const auto& zB = zAgain.m_vzFace[i];
    Demand(zA.m_viIndex == zB.m_viIndex && zA.m_vfVertex.size() == zB.m_vfVertex.size() &&
               zA.m_vzAttribute == zB.m_vzAttribute && zA.m_iDegenerate == zB.m_iDegenerate,
           "another face");
  }
}

template <typename Block>
void Run(uint8_t iMode, const std::vector<uint8_t>& vcRecord) {
  static Block zBlock;
  KivMeshFlags zFlags;
  const bool bKeysOnly = (iMode & 4) != 0;
  const bool bGood = KivReadElement(std::span<const uint8_t>(vcRecord), (iMode & 2) != 0, bKeysOnly, zBlock, zFlags);
  Demand(Taken(zBlock) <= 64 * vcRecord.size() + 4096, "more memory than the input is worth");
  if (!bGood) return;
  if (bKeysOnly && !vcRecord.empty() && zBlock.m_zHeader.m_iFormat >= 1) {
    Demand(zFlags.m_vcFace.size() == zBlock.m_vzFace.size() && zFlags.m_vcEdge.size() == zBlock.m_vzEdge.size(),
           "another number of flags");
    std::vector<uint8_t> vcOver = vcRecord;
    zBlock.BeforeSave(true);
    KivWriteElement(std::span<uint8_t>(vcOver), KivReadAsFormat(KivRulesOf<Block>(), zBlock.m_zHeader.m_iFormat),
                    zBlock, zFlags);
    zBlock.AfterSave();
  }
  WriteAndReadAgain(zBlock);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  KivSetReportNoThrow(true);
  KivSetReported(true);
  if (nSize < 1) return 0;
  const std::vector<uint8_t> vcRecord(pData + 1, pData + nSize);
  if ((pData[0] & 1) != 0)
    Run<KivMemoryBlockPolyElem>(pData[0], vcRecord);
  else
    Run<KivMemoryBlockFaceEdge>(pData[0], vcRecord);
  return 0;
}
