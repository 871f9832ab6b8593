// Input: an element's tag, a byte whose lowest bit says that the store is of generation 19, and a record. The record's
// entries have a body of one field of each kind. What can be read must be the same after it is written and read once
// more, in as many bytes as the sizing said, and must not take memory far beyond the size of the input.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "KivElementFields.h"
#include "KivElementRecord.h"
#include "KivException.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  KivSetReportNoThrow(true);
  KivSetReported(true);
  if (nSize < 2) return 0;
  const KivElementRules* pzRules = KivFindElementRules(pData[0] % 16);
  if (pzRules == nullptr) return 0;
  const std::vector<uint8_t> vcBytes(pData + 2, pData + nSize);
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
