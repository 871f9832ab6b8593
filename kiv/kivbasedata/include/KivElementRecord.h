// What the records of all elements share: the header, the frames of entries, gaps, attributes and strings.
// docs/element_records.md has the formats.
//
// Everything here reports quietly (source "src\KivElementRecord") and answers with false or a code.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <tuple>
#include <vector>

#include "KivMemoryBlock.h"
#include "KivRecordBytes.h"
#include "KivReportQuiet.h"
#include "KivSysText.h"

namespace kiv {

// --- Header ---------------------------------------------------------------------------------------------------------

constexpr uint32_t kElementHeaderSize = 68;       // the least that a record has
constexpr uint32_t kElementHeaderSizeVer19 = 64;  // generation 19 has no m_iFormat

// How an element type treats its header.
struct KivElementRules {
  uint32_t m_iTag = 0;
  uint32_t m_iFormat = 1;                       // the newest revision
  uint32_t m_iDataOffset = kElementHeaderSize;  // the least, and the one of a new block
  bool m_bTestsBox = false;                     // a low corner above the high one refuses
  bool m_bFollowsVer19 = true;                  // records of a generation 19 store have no m_iFormat
  bool m_bTestsSizeInVer19 = false;             // 68 bytes at the least there, too
  bool m_bRaisedOnRead = false;                 // what has been read counts as the newest revision
  int32_t m_iCountCode = 0;  // of a sizing whose live entries are not m_iEntryCount; 0: that is not tested
};
// Of a tag from 1 to 13, but for 10, whose record is read elsewhere; null for any other.
const KivElementRules* KivFindElementRules(uint32_t iTag);

// A record of so many bytes can hold what the type has at the least.
bool KivIsRecordLongEnough(const KivElementRules& zRules, bool bVer19Data, uint64_t nBytes);

// A new block's header.
KivMemoryBlockHeader KivNewElementHeader(const KivElementRules& zRules);
// Reads the header and tests what the type tests. zReader stands at the record's start and holds all of it; it is left
// behind the header. bVer19Data is the flag of the store. What was read before a failure stays in the header.
bool KivReadElementHeader(KivRecordReader& zReader, const KivElementRules& zRules, bool bVer19Data,
                          KivMemoryBlockHeader& zHeader);
// The revision by which conditional fields are read: 0 is the oldest, what lies above the newest is the newest.
uint32_t KivReadAsFormat(const KivElementRules& zRules, uint32_t iFormat);

// The first step of a write: refuses a revision outside 1 to the newest, and raises it unless only positions change.
bool KivRaiseElementFormat(const KivElementRules& zRules, bool bModifyOnlyForPosition, KivMemoryBlockHeader& zHeader);

enum class KivElementSizing : int64_t { Good = 0, WrongTag = -10, BadBox = -40, BadNodeState = -50, EntryCount = -80 };
// The header's part of a sizing pass.
KivElementSizing KivCheckElementHeader(const KivElementRules& zRules, const KivMemoryBlockHeader& zHeader);
// Always with m_iFormat.
bool KivWriteElementHeader(KivRecordWriter& zWriter, const KivMemoryBlockHeader& zHeader);

// --- Entries --------------------------------------------------------------------------------------------------------

constexpr uint32_t kGapKind = 10000;
constexpr uint32_t kEntryFrameSize = 12;

struct KivEntryFrame {
  uint32_t m_iOffset = 0;  // of the entry in the record
  uint32_t m_iKind = 0;
  uint32_t m_iSize = kEntryFrameSize;  // of the whole entry

  bool IsGap() const { return m_iKind == kGapKind; }
};

// False, after a report, for a frame that does not say where it stands, has a kind outside the list, or is too small.
bool KivReadEntryFrame(KivRecordReader& zReader, std::span<const uint32_t> viKind, KivEntryFrame& zFrame);
// The entries that follow, as far as their frames say where they stand and lead to one another. Never reports.
size_t KivCountEntries(KivRecordReader zReader, std::span<const uint32_t> viKind);
// True if a whole gap comes next, which is then passed. Never reports.
bool KivReadTrailingGap(KivRecordReader& zReader, KivEntryFrame& zFrame);

enum class KivEntryCounting {
  Live,  // nCount leaves gaps out; gaps behind the last live entry are read, too
  All    // nCount counts gaps
};
// Calls pfnEntry(frame) for each entry; the reader then stands behind the frame, and pfnEntry reads the rest of a live
// entry and gives false to stop. Gaps are passed by their size. viKind lists the kinds that are read; without kGapKind
// in it a gap refuses the record, a trailing one as well.
template <typename Entry>
bool KivReadEntries(KivRecordReader& zReader, KivEntryCounting eCounting, uint32_t nCount,
                    std::span<const uint32_t> viKind, Entry&& pfnEntry);

// Gives entries their offsets and sizes, one behind the other.
class KivEntryPlacer {
 public:
  explicit KivEntryPlacer(uint64_t iOffset) : m_iOffset(iOffset) {}
  // A gap keeps its size.
  bool PlaceGap(KivEntryFrame& zFrame);
  // nBody: bytes behind the frame.
  bool PlaceLive(KivEntryFrame& zFrame, uint64_t nBody);
  uint64_t Offset() const { return m_iOffset; }  // behind the last entry
  uint32_t LiveNum() const { return m_nLive; }

 private:
  bool Place(KivEntryFrame& zFrame, uint64_t nSize);

  uint64_t m_iOffset;
  uint32_t m_nLive = 0;
};

// Writes a frame, which must say where it stands. A gap is written whole: its bytes behind the frame stay as they are.
bool KivWriteEntryFrame(KivRecordWriter& zWriter, const KivEntryFrame& zFrame);

// --- Attributes -----------------------------------------------------------------------------------------------------

constexpr uint32_t kAttributeListMin = 14;  // bytes that a list occupies at the least

// Opaque here; some hold element keys, which the registered handlers know.
struct KivAttribute {
  uint8_t m_iAttrib = 0;
  std::vector<uint8_t> m_vcBytes;

  auto Lists() const { return std::tie(m_vcBytes); }
  friend bool operator==(const KivAttribute&, const KivAttribute&) = default;
};

// Rows of the handler tables.
enum class KivAttributeRow : uint32_t {
  Mesh = 0,  // mesh entries and vertices
  Instance = 1,
  InstanceLevel = 2,
  ModelNote = 3,
  Brep = 4,
  AssemblyNode = 5,
  Pmi = 6,
};

bool KivReadAttributes(KivRecordReader& zReader, std::vector<KivAttribute>& vzAttribute);
uint64_t KivSizeOfAttributes(const std::vector<KivAttribute>& vzAttribute);
// Fills the list up with zeros. More than 255 attributes, or more than 4 GiB in one, are refused.
bool KivWriteAttributes(KivRecordWriter& zWriter, const std::vector<KivAttribute>& vzAttribute);

// Calls the handler in apfnHandler[m_iAttrib] of each attribute that has one, as (bytes, keys).
template <typename HandlerRow>
bool KivCollectAttributeKeys(const HandlerRow& apfnHandler, const std::vector<KivAttribute>& vzAttribute,
                             std::vector<uint64_t>& viPosition);
template <typename HandlerRow>
bool KivReplaceAttributeKeys(const HandlerRow& apfnHandler, std::vector<KivAttribute>& vzAttribute,
                             const std::map<uint64_t, uint64_t>& mapPosition);
// Replaces a key that is not 0. False, after a report, if the map lacks it.
bool KivReplaceKey(const std::map<uint64_t, uint64_t>& mapPosition, uint64_t& iKey);

// --- Strings --------------------------------------------------------------------------------------------------------

// A text of length 0, which no writer makes, is reported and read as empty; that is no failure. A text ends at its
// first 0 or at its length.
bool KivReadText(KivRecordReader& zReader, KivWString& csText);
uint64_t KivSizeOfText(const KivWString& csText);
bool KivWriteText(KivRecordWriter& zWriter, const KivWString& csText);

// --- Implementation of the templates --------------------------------------------------------------------------------

template <typename Entry>
bool KivReadEntries(KivRecordReader& zReader, KivEntryCounting eCounting, uint32_t nCount,
                    std::span<const uint32_t> viKind, Entry&& pfnEntry) {
  static constexpr char kSource[] = "src\\KivElementRecord";
  KivEntryFrame zFrame;
  for (uint32_t nSeen = 0; nSeen < nCount;) {
    if (!KivReadEntryFrame(zReader, viKind, zFrame)) return false;
    if (zFrame.IsGap() && !KIV_ASSERT(zReader.Skip(zFrame.m_iSize - kEntryFrameSize))) return false;
    if (!pfnEntry(zFrame)) return false;
    if (!zFrame.IsGap() || eCounting == KivEntryCounting::All) ++nSeen;
  }
  if (eCounting == KivEntryCounting::All) return true;
  bool bGapsAllowed = false;
  for (const uint32_t iKind : viKind) bGapsAllowed |= iKind == kGapKind;
  while (KivReadTrailingGap(zReader, zFrame)) {
    if (!KIV_ASSERT(bGapsAllowed)) return false;
    if (!pfnEntry(zFrame)) return false;
  }
  return true;
}

template <typename HandlerRow>
bool KivCollectAttributeKeys(const HandlerRow& apfnHandler, const std::vector<KivAttribute>& vzAttribute,
                             std::vector<uint64_t>& viPosition) {
  static constexpr char kSource[] = "src\\KivElementRecord";
  for (const KivAttribute& zAttribute : vzAttribute) {
    const auto pfnHandler = apfnHandler[zAttribute.m_iAttrib];
    if (pfnHandler != nullptr && !KIV_ASSERT(pfnHandler(zAttribute.m_vcBytes, viPosition))) return false;
  }
  return true;
}

template <typename HandlerRow>
bool KivReplaceAttributeKeys(const HandlerRow& apfnHandler, std::vector<KivAttribute>& vzAttribute,
                             const std::map<uint64_t, uint64_t>& mapPosition) {
  static constexpr char kSource[] = "src\\KivElementRecord";
  for (KivAttribute& zAttribute : vzAttribute) {
    const auto pfnHandler = apfnHandler[zAttribute.m_iAttrib];
    if (pfnHandler != nullptr && !KIV_ASSERT(pfnHandler(zAttribute.m_vcBytes, mapPosition))) return false;
  }
  return true;
}

}  // namespace kiv
