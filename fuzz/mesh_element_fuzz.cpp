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

// As a record of revision 2; empty if the sizing refuses it.
template <typename Block>
std::vector<uint8_t> Write(Block& zBlock) {
  zBlock.m_zHeader.m_iFormat = 2;
  zBlock.m_zHeader.m_iDataOffset = std::max(zBlock.m_zHeader.m_iDataOffset, 100u);
  KivMeshFlags zFlags;
  zBlock.BeforeSave(false);
  const int64_t nBytes = KivSizeElement(zBlock, zFlags);
  std::vector<uint8_t> vcOut(nBytes > 0 ? static_cast<size_t>(nBytes) : 0);
  if (nBytes > 0)
    Demand(KivWriteElement(std::span<uint8_t>(vcOut), 2, zBlock, zFlags), "the sizing and the writer disagree");
  zBlock.AfterSave();
  return vcOut;
}

bool Same(const KivMeshFace& zA, const KivMeshFace& zB) {
  return zA.m_viIndex == zB.m_viIndex && zA.m_vfVertex.size() == zB.m_vfVertex.size() &&
         zA.m_vfNormal.size() == zB.m_vfNormal.size() && zA.m_vzAttribute == zB.m_vzAttribute &&
         zA.m_iDegenerate == zB.m_iDegenerate && zA.m_iId == zB.m_iId;
}
bool Same(const KivMeshEdge& zA, const KivMeshEdge& zB) {
  return zA.m_vfVertex.size() == zB.m_vfVertex.size() && zA.m_vzAttribute == zB.m_vzAttribute &&
         zA.m_iDegenerate == zB.m_iDegenerate && zA.m_iId == zB.m_iId;
}
template <typename Entry>
bool SameLive(const KivReusedList<Entry>& vzA, const KivReusedList<Entry>& vzB) {
  const auto NextLive = [](const Entry* p, const Entry* pEnd) {
    return std::find_if(p, pEnd, [](const Entry& z) { return !z.m_zFrame.IsGap(); });
  };
  const Entry* pA = NextLive(vzA.begin(), vzA.end());
  const Entry* pB = NextLive(vzB.begin(), vzB.end());
  while (pA != vzA.end() && pB != vzB.end()) {
    if (!Same(*pA, *pB)) return false;
    pA = NextLive(pA + 1, vzA.end());
    pB = NextLive(pB + 1, vzB.end());
  }
  return pA == vzA.end() && pB == vzB.end();
}

template <typename Block>
void WriteAndReadAgain(Block& zBlock) {
  const std::vector<uint8_t> vcOut = Write(zBlock);
  if (vcOut.empty()) return;
  static Block zAgain;
  KivMeshFlags zFlags;
  Demand(KivReadElement(std::span<const uint8_t>(vcOut), false, false, zAgain, zFlags), "what was written is not read");
  // Gaps may go over to the other list.
  Demand(zAgain.m_vzFace.size() + zAgain.m_vzEdge.size() == zBlock.m_vzFace.size() + zBlock.m_vzEdge.size(),
         "another number of entries");
  Demand(SameLive(zBlock.m_vzFace, zAgain.m_vzFace), "another face");
  Demand(SameLive(zBlock.m_vzEdge, zAgain.m_vzEdge), "another edge");
  for (size_t i = 0; i < std::min(zAgain.m_vzFace.size(), zBlock.m_vzFace.size()); ++i)
    for (const float f : zAgain.m_vzFace[i].m_vfNormal) Demand(f >= -1 && f <= 1, "a normal beyond 1");
}

// A write over the record that the block was read from keeps to it, and what it wrote can be read.
template <typename Block>
void WriteOver(const std::vector<uint8_t>& vcRecord, size_t nUsed, bool bVer19, Block& zBlock, KivMeshFlags& zFlags) {
  Demand(zFlags.m_vcFace.size() == zBlock.m_vzFace.size() && zFlags.m_vcEdge.size() == zBlock.m_vzEdge.size(),
         "another number of flags");
  std::vector<uint8_t> vcOver = vcRecord;
  zBlock.BeforeSave(true);
  const bool bWritten =
      KivWriteElement(std::span<uint8_t>(vcOver).first(nUsed),
                      KivReadAsFormat(KivRulesOf<Block>(), zBlock.m_zHeader.m_iFormat), zBlock, zFlags);
  zBlock.AfterSave();
  Demand(std::equal(vcOver.begin() + static_cast<ptrdiff_t>(nUsed), vcOver.end(),
                    vcRecord.begin() + static_cast<ptrdiff_t>(nUsed)),
         "a write over the record went beyond its entries");
  if (!bWritten) return;
  static Block zOver;
  KivMeshFlags zOverFlags;
  Demand(KivReadElement(std::span<const uint8_t>(vcOver), bVer19, true, zOver, zOverFlags),
         "what was written over the record is not read");
  Demand(zFlags.m_vcFace == zOverFlags.m_vcFace && zFlags.m_vcEdge == zOverFlags.m_vcEdge, "other flags");
}

template <typename Block>
void Run(uint8_t iMode, const std::vector<uint8_t>& vcRecord) {
  static Block zBlock;
  KivMeshFlags zFlags;
  const bool bVer19 = (iMode & 2) != 0;
  const bool bKeysOnly = (iMode & 4) != 0;
  KivResetElement(zBlock, zFlags);
  KivRecordReader zReader(vcRecord.data(), vcRecord.size());
  const bool bGood = vcRecord.empty() || KivParseElement(zReader, bVer19, bKeysOnly, zBlock, zFlags);
  Demand(Taken(zBlock) <= 64 * vcRecord.size() + 4096, "more memory than the input is worth");
  if (!bGood) return;
  if (bKeysOnly && !bVer19 && !vcRecord.empty() && zBlock.m_zHeader.m_iFormat >= 1)
    WriteOver(vcRecord, zReader.Offset(), bVer19, zBlock, zFlags);
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
