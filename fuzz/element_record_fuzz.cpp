// Input: an element's tag, a byte whose lowest bit says that the store is of generation 19, and a record. It is read
// twice: with entries that have a body of one field of each kind, and as the element that it is. What can be read must
// be the same after it is written and read once more, in as many bytes as the sizing said. The reading of entries must
// not take memory far beyond the size of the input; that of the elements does not in the tests, which count it.
// Geometry strings are decoded, lookups are made of layers and views, and keys are listed and replaced.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivElementFields.h"
#include "KivElementRecord.h"
#include "KivException.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivModel.h"
#include "KivModelNote.h"
#include "KivPMI.h"
#include "KivPermanentIdTable.h"
#include "KivVertexData.h"

namespace {

using namespace kiv;

constexpr uint32_t kLiveKind = 10006;
constexpr uint32_t kKinds[] = {kGapKind, kLiveKind};

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "element_record_fuzz: %s\n", szWhat);
  std::abort();
}

struct Entry {
  KivEntryFrame m_zFrame;
  uint8_t m_iByte = 0;
  std::array<uint16_t, 2> m_aiPair{};
  uint64_t m_iKey = 0;  // from revision 2
  std::vector<uint32_t> m_viList;
  KivWString m_csText;
  std::vector<KivAttribute> m_vzAttribute;
};

struct Record {
  KivMemoryBlockHeader m_zHeader;
  std::vector<Entry> m_vzEntry;
};

template <typename Fields>
bool VisitEntry(Fields& zFields, Entry& z) {
  return zFields.Numbers(z.m_iByte, z.m_aiPair) && (zFields.Format() < 2 || zFields.Numbers(z.m_iKey)) &&
         zFields.List(z.m_viList) && zFields.Text(z.m_csText) && zFields.Attributes(z.m_vzAttribute);
}

bool Read(const KivElementRules& zRules, bool bVer19, const std::vector<uint8_t>& vcBytes, Record& zRecord) {
  KivRecordReader zReader(vcBytes.data(), vcBytes.size());
  if (!KivReadElementHeader(zReader, zRules, bVer19, zRecord.m_zHeader)) return false;
  if (!zReader.MoveTo(zRecord.m_zHeader.m_iDataOffset)) return false;
  KivFieldReader zFields(zReader, KivReadAsFormat(zRules, zRecord.m_zHeader.m_iFormat));
  return KivReadEntries(zReader, KivEntryCounting::Live, zRecord.m_zHeader.m_iEntryCount, kKinds,
                        [&](const KivEntryFrame& zFrame) {
                          zRecord.m_vzEntry.emplace_back().m_zFrame = zFrame;
                          return zFrame.IsGap() || VisitEntry(zFields, zRecord.m_vzEntry.back());
                        });
}

bool Write(const KivElementRules& zRules, Record& zRecord, std::vector<uint8_t>& vcBytes) {
  KivEntryPlacer zPlacer(zRecord.m_zHeader.m_iDataOffset);
  for (Entry& zEntry : zRecord.m_vzEntry) {
    KivFieldSizer zSizer(zRules.m_iFormat);
    VisitEntry(zSizer, zEntry);
    if (!(zEntry.m_zFrame.IsGap() ? zPlacer.PlaceGap(zEntry.m_zFrame)
                                  : zPlacer.PlaceLive(zEntry.m_zFrame, zSizer.Offset())))
      return false;
  }
  Demand(zPlacer.LiveNum() == zRecord.m_zHeader.m_iEntryCount, "another number of live entries");
  vcBytes.assign(zPlacer.Offset(), 0);
  KivRecordWriter zWriter(vcBytes.data(), vcBytes.size());
  KivFieldWriter zFields(zWriter, zRules.m_iFormat);
  Demand(KivWriteElementHeader(zWriter, zRecord.m_zHeader), "no room for the header");
  Demand(zFields.FillTo(zRecord.m_zHeader.m_iDataOffset), "no room before the data");
  for (Entry& zEntry : zRecord.m_vzEntry) {
    Demand(KivWriteEntryFrame(zWriter, zEntry.m_zFrame), "a frame does not stand where it says");
    if (!zEntry.m_zFrame.IsGap()) Demand(VisitEntry(zFields, zEntry), "no room for an entry");
  }
  Demand(zWriter.Remaining() == 0, "the sizing and the writer disagree");
  return true;
}

bool Same(const Entry& zA, const Entry& zB) {
  return zA.m_zFrame.m_iKind == zB.m_zFrame.m_iKind && zA.m_iByte == zB.m_iByte && zA.m_aiPair == zB.m_aiPair &&
         zA.m_iKey == zB.m_iKey && zA.m_viList == zB.m_viList && zA.m_csText == zB.m_csText &&
         zA.m_vzAttribute == zB.m_vzAttribute;
}

// --- As the element that it is --------------------------------------------------------------------------------------

template <typename Block>
void Use(Block&) {}
void Use(KivMemoryBlockBrep& zBlock) {
  for (const KivBrepEntry& zEntry : zBlock.m_vzGeometry) {
    KivBrepGeometry z;
    if (!KivDecodeBrepGeometry(zEntry.m_zFrame.m_iKind, zEntry.m_vcGeometry, z) || z.m_iKind != kBrepNurbsKind)
      continue;
    Demand(z.m_vdKnot.size() == z.m_iOrder + z.m_vzPole.size(), "another number of knots");
    Demand(z.m_vdWeight.empty() || z.m_vdWeight.size() == z.m_vzPole.size(), "another number of weights");
    Demand(z.m_vdKnot.size() <= std::max<uint64_t>(kBrepRepeatMax, zEntry.m_vcGeometry.size()), "too many repeats");
  }
}
void Use(KivMemoryBlockLayerFilter& zBlock) {
  for (const KivLayerFilterEntry& zEntry : zBlock.m_vzFilter) {
    KivLayerFilterLookup zLookup;
    zLookup.Build(&zEntry);
    for (const KivLayer& zLayer : zEntry.m_vzLayer)
      Demand(zLookup.Query(!zLayer.m_bOn, zLayer.m_iLayer) == zLayer.m_bOn, "a listed layer is not found");
  }
}
void UseShown(KivViewLookup& zLookup, const std::vector<KivViewShow>& vShow) {
  for (const KivViewShow& zShow : vShow)
    if (zShow.m_iState != 0)
      Demand(zLookup.Query(zShow.m_iState == 2, zShow.m_iRef0, zShow.m_iRef1) == (zShow.m_iState == 1),
             "what a view lists is not found");
}
void Use(KivMemoryBlockCamera& zBlock) {
  for (const KivView& zView : zBlock.m_vzView) {
    KivViewDisplay zDisplay(zView);
    Demand(zDisplay.m_bWhole, "the lookups of a view are not made");
    UseShown(zDisplay.m_zPMI, zView.m_vPMIShow);
    UseShown(zDisplay.m_zLayer, zView.m_vLayerShow);
  }
}

// Each key but 0 moves up by one where one is listed, and in no other place.
template <typename Block>
void UseKeys(Block& zBlock) {
  std::vector<uint64_t> viKey, viMoved;
  KivKeyCollector zListed(nullptr, viKey);
  if (!zBlock.VisitKeys(zListed)) return;
  std::map<uint64_t, uint64_t> mapUp, mapDown;
  for (uint64_t& iKey : viKey) {
    if (iKey == UINT64_MAX) return;
    mapUp[iKey] = iKey + 1;
    mapDown[iKey + 1] = iKey;
    ++iKey;
  }
  KivKeyReplacer zUp(nullptr, mapUp), zDown(nullptr, mapDown);
  Demand(zBlock.VisitKeys(zUp), "a listed key is not replaced");
  KivKeyCollector zMoved(nullptr, viMoved);
  Demand(zBlock.VisitKeys(zMoved) && viMoved == viKey, "the keys are not those that were put in");
  Demand(zBlock.VisitKeys(zDown), "a key does not go back");
}

// False where the sizing refuses.
template <typename Block>
bool WriteBlock(Block& zBlock, std::vector<uint8_t>& vcOut) {
  const KivElementRules& zRules = KivRulesOf<Block>();
  zBlock.m_zHeader.m_iFormat = zRules.m_iFormat;
  zBlock.m_zHeader.m_iDataOffset = std::max(zBlock.m_zHeader.m_iDataOffset, zRules.m_iDataOffset);
  zBlock.BeforeSave(false);
  typename Block::Memory zMemory;
  const int64_t nBytes = KivSizeElement(zBlock, zMemory);
  if (nBytes <= 0) return false;
  vcOut.assign(static_cast<size_t>(nBytes), 0);
  Demand(KivWriteElement(std::span<uint8_t>(vcOut), zRules.m_iFormat, zBlock, zMemory),
         "the sizing and the writer of an element disagree");
  zBlock.AfterSave();
  return true;
}

template <typename Block>
void RunElement(bool bVer19, const std::vector<uint8_t>& vcBytes) {
  static Block zBlock, zAgain;
  typename Block::Memory zMemory;
  if (!KivReadElement(std::span<const uint8_t>(vcBytes), bVer19, false, zBlock, zMemory)) return;
  Use(zBlock);
  UseKeys(zBlock);
  std::vector<uint8_t> vcOut, vcTwice;
  if (!WriteBlock(zBlock, vcOut)) return;
  if (!KivReadElement(std::span<const uint8_t>(vcOut), false, false, zAgain, zMemory)) {
    // The gaps of a B-rep are the one thing that is written and not read.
    Demand(Block::kTag == KivMemoryBlockBrep::kTag, "what was written of an element cannot be read");
    return;
  }
  Demand(WriteBlock(zAgain, vcTwice) && vcTwice == vcOut, "an element that was read again is another one");
}

void RunElement(uint32_t iTag, bool bVer19, const std::vector<uint8_t>& vcBytes) {
  switch (iTag) {
    case 2:
      return RunElement<KivMemoryBlockInstance>(bVer19, vcBytes);
    case 3:
      return RunElement<KivMemoryBlockModel>(bVer19, vcBytes);
    case 4:
      return RunElement<KivMemoryBlockModelNote>(bVer19, vcBytes);
    case 5:
      return RunElement<KivMemoryBlockBrep>(bVer19, vcBytes);
    case 6:
      return RunElement<KivMemoryBlockAssemblyTree>(bVer19, vcBytes);
    case 7:
      return RunElement<KivMemoryBlockPMI>(bVer19, vcBytes);
    case 9:
      return RunElement<KivMemoryBlockPermanentIdTable>(bVer19, vcBytes);
    case 11:
      return RunElement<KivMemoryBlockLayerFilter>(bVer19, vcBytes);
    case 12:
      return RunElement<KivMemoryBlockCamera>(bVer19, vcBytes);
    case 13:
      return RunElement<KivMemoryBlockVertex>(bVer19, vcBytes);
    default:
      return;  // meshes have a fuzzer of their own
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  KivSetReportNoThrow(true);
  KivSetReported(true);
  if (nSize < 2) return 0;
  const KivElementRules* pzRules = KivFindElementRules(pData[0] % 16);
  if (pzRules == nullptr) return 0;
  const std::vector<uint8_t> vcBytes(pData + 2, pData + nSize);
  RunElement(pzRules->m_iTag, (pData[1] & 1) != 0, vcBytes);
  Record zRecord;
  const bool bGood = Read(*pzRules, (pData[1] & 1) != 0, vcBytes, zRecord);
  size_t nTaken = 0;
  for (const Entry& zEntry : zRecord.m_vzEntry) {
    nTaken += zEntry.m_viList.size() * 4 + zEntry.m_csText.size() * 2;
    for (const KivAttribute& zAttribute : zEntry.m_vzAttribute) nTaken += 1 + zAttribute.m_vcBytes.size();
  }
  Demand(zRecord.m_vzEntry.size() <= nSize / 12 + 1 && nTaken <= 2 * nSize, "more memory than the input is worth");
  if (!bGood) return 0;

  zRecord.m_zHeader.m_iDataOffset = std::max(zRecord.m_zHeader.m_iDataOffset, pzRules->m_iDataOffset);
  zRecord.m_zHeader.m_iFormat = pzRules->m_iFormat;
  std::vector<uint8_t> vcOut;
  if (!Write(*pzRules, zRecord, vcOut)) return 0;
  Record zAgain;
  Demand(Read(*pzRules, false, vcOut, zAgain), "what was written cannot be read");
  Demand(zAgain.m_vzEntry.size() == zRecord.m_vzEntry.size(), "another number of entries");
  for (size_t i = 0; i < zAgain.m_vzEntry.size(); ++i) {
    // What a revision below 2 does not have is written as 0 and read as 0.
    if (pzRules->m_iFormat < 2) Demand(zAgain.m_vzEntry[i].m_iKey == 0, "a key from nowhere");
    Demand(Same(zAgain.m_vzEntry[i], zRecord.m_vzEntry[i]), "another entry");
  }
  return 0;
}
