#include "KivElementRecord.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "KivElementFields.h"
#include "KivTestMesh.h"

using namespace kiv;
using kivtest::Bytes;
using kivtest::FromHex;

namespace {

uint64_t Reports() {
  return KivLastQuietReport().m_iNumber;
}

constexpr uint32_t kKinds[] = {10000, 10006};
constexpr uint32_t kKindsWithoutGap[] = {10006};

// The header of an assembly tree, by hand.
const char* const kHeader =
    "06000000 02000000 05000000 44000000"
    "0100000000000000 0200000000000000 0300000000000080"
    "0000803F 00000040 00004040  00008040 0000A040 0000C040  01000000";

bool ReadHeader(const Bytes& vc, uint32_t iTag, bool bVer19, KivMemoryBlockHeader& zHeader) {
  const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[vc.size()]);
  std::copy(vc.begin(), vc.end(), pOwn.get());
  KivRecordReader zReader(pOwn.get(), vc.size());
  return KivReadElementHeader(zReader, *KivFindElementRules(iTag), bVer19, zHeader);
}

// Offsets and kinds of the entries; each live one has a body of four bytes.
struct Entries {
  bool m_bGood = false;
  std::vector<KivEntryFrame> m_vz;
};
Entries ReadEntries(const Bytes& vc, KivEntryCounting eCounting, uint32_t nCount, std::span<const uint32_t> viKind) {
  Entries z;
  KivRecordReader zReader(vc.data(), vc.size());
  z.m_bGood = KivReadEntries(zReader, eCounting, nCount, viKind, [&](const KivEntryFrame& zFrame) {
    z.m_vz.push_back(zFrame);
    return zFrame.IsGap() || zReader.Skip(4);
  });
  return z;
}

}  // namespace

// --- Header ---------------------------------------------------------------------------------------------------------

TEST(ElementHeader, ReadsAndWritesTheSameBytes) {
  const Bytes vc = FromHex(kHeader);
  KivMemoryBlockHeader z;
  ASSERT_TRUE(ReadHeader(vc, 6, false, z));
  EXPECT_EQ(z.m_iTag, 6u);
  EXPECT_EQ(z.m_iEntryCount, 2u);
  EXPECT_EQ(z.m_iFormat, 5u);
  EXPECT_EQ(z.m_iDataOffset, 68u);
  EXPECT_EQ(z.m_aiLink, (std::array<uint64_t, 3>{1, 2, 0x8000000000000003u}));
  EXPECT_EQ(z.m_afBoxMin, (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(z.m_afBoxMax, (std::array<float, 3>{4, 5, 6}));
  EXPECT_EQ(z.m_iNodeState, 1u);
  Bytes vcOut(68, 0xEE);
  KivRecordWriter zWriter(vcOut.data(), vcOut.size());
  ASSERT_TRUE(KivWriteElementHeader(zWriter, z));
  EXPECT_EQ(vcOut, vc);
}

TEST(ElementHeader, Generation19HasNoFormatAndEverythingFourBytesEarlier) {
  Bytes vc = FromHex(kHeader);
  vc.erase(vc.begin() + 8, vc.begin() + 12);
  KivMemoryBlockHeader z;
  ASSERT_TRUE(ReadHeader(vc, 6, true, z));
  EXPECT_EQ(z.m_iFormat, 0u);
  EXPECT_EQ(z.m_iDataOffset, 68u);
  EXPECT_EQ(z.m_iNodeState, 1u);
  EXPECT_EQ(KivReadAsFormat(*KivFindElementRules(6), z.m_iFormat), 1u);
}

TEST(ElementHeader, AModelRecordBelow72BytesIsAcceptedInGeneration19Alone) {
  Bytes vc = FromHex(kHeader);
  vc[0] = 3;
  vc[12] = 72;
  vc.resize(71);
  KivMemoryBlockHeader z;
  EXPECT_FALSE(ReadHeader(vc, 3, false, z));
  vc.erase(vc.begin() + 8, vc.begin() + 12);
  EXPECT_TRUE(ReadHeader(vc, 3, true, z));
}

TEST(ElementHeader, LayerFiltersAndCamerasHaveAFormatInGeneration19AndPmiTestsItsSize) {
  Bytes vc = FromHex(kHeader);
  vc[0] = 12;
  KivMemoryBlockHeader z;
  ASSERT_TRUE(ReadHeader(vc, 12, true, z));
  EXPECT_EQ(z.m_iFormat, 5u);
  vc[0] = 7;
  vc.erase(vc.begin() + 8, vc.begin() + 12);
  EXPECT_FALSE(ReadHeader(vc, 7, true, z));
  vc.resize(68);
  EXPECT_TRUE(ReadHeader(vc, 7, true, z));
}

TEST(ElementHeader, WrongTagStateAboveTwoAndSmallDataOffsetAreRefused) {
  const Bytes vc = FromHex(kHeader);
  KivMemoryBlockHeader z;
  for (const auto& [iAt, iValue] : {std::pair<size_t, uint8_t>{0, 7}, {64, 3}, {12, 67}, {67, 1}}) {
    Bytes vcBad = vc;
    vcBad[iAt] = iValue;
    const uint64_t nBefore = Reports();
    EXPECT_FALSE(ReadHeader(vcBad, 6, false, z)) << iAt;
    EXPECT_EQ(Reports(), nBefore + 1);
  }
}

TEST(ElementHeader, ABoxIsTestedInTheTypesThatTestItOnReadAndOnWrite) {
  Bytes vc = FromHex(kHeader);
  std::copy(vc.begin() + 52, vc.begin() + 56, vc.begin() + 40);  // min x is max x
  KivMemoryBlockHeader z;
  EXPECT_TRUE(ReadHeader(vc, 6, false, z));
  vc[40] = 1;  // a little above it
  EXPECT_FALSE(ReadHeader(vc, 6, false, z));
  EXPECT_EQ(KivCheckElementHeader(*KivFindElementRules(6), z), KivElementSizing::BadBox);
  vc[0] = 9;
  EXPECT_TRUE(ReadHeader(vc, 9, false, z));
  EXPECT_EQ(KivCheckElementHeader(*KivFindElementRules(9), z), KivElementSizing::Good);
  vc[0] = 6;
  for (const size_t i : {40u, 41u, 42u, 43u}) vc[i] = 0xFF;  // no number
  EXPECT_TRUE(ReadHeader(vc, 6, false, z));
}

TEST(ElementHeader, EveryTruncationIsRefused) {
  const Bytes vc = FromHex(kHeader);
  KivMemoryBlockHeader z;
  for (size_t n = 0; n < vc.size(); ++n) {
    const Bytes vcShort(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n));
    EXPECT_FALSE(ReadHeader(vcShort, 6, false, z));
    if (n >= 64) continue;
    EXPECT_FALSE(ReadHeader(vcShort, 6, true, z));
  }
}

TEST(ElementHeader, ANewHeaderHasTheTypesDefaults) {
  const KivMemoryBlockHeader z = KivNewElementHeader(*KivFindElementRules(2));
  EXPECT_EQ(z.m_iTag, 2u);
  EXPECT_EQ(z.m_iFormat, 5u);
  EXPECT_EQ(z.m_iDataOffset, 72u);
  EXPECT_EQ(z.m_iEntryCount, 0u);
  EXPECT_EQ(KivFindElementRules(0), nullptr);
  EXPECT_EQ(KivFindElementRules(10), nullptr);
  EXPECT_EQ(KivFindElementRules(14), nullptr);
}

TEST(ElementHeader, AWriteRaisesTheFormatUnlessOnlyPositionsChange) {
  const KivElementRules& zRules = *KivFindElementRules(7);
  KivMemoryBlockHeader z = KivNewElementHeader(zRules);
  z.m_iFormat = 2;
  EXPECT_TRUE(KivRaiseElementFormat(zRules, true, z));
  EXPECT_EQ(z.m_iFormat, 2u);
  EXPECT_TRUE(KivRaiseElementFormat(zRules, false, z));
  EXPECT_EQ(z.m_iFormat, 4u);
  for (const uint32_t iFormat : {0u, 5u}) {
    z.m_iFormat = iFormat;
    EXPECT_FALSE(KivRaiseElementFormat(zRules, false, z));
    EXPECT_FALSE(KivRaiseElementFormat(zRules, true, z));
  }
  EXPECT_EQ(KivReadAsFormat(zRules, 0), 1u);
  EXPECT_EQ(KivReadAsFormat(zRules, 9), 4u);
}

// --- Entries --------------------------------------------------------------------------------------------------------

TEST(ElementEntries, AGapRaisesTheBoundOfALoopOverLiveEntries) {
  const Bytes vc = FromHex(
      "00000000 16270000 10000000 AAAAAAAA"
      "10000000 10270000 0E000000 BBBB"
      "1E000000 16270000 10000000 CCCCCCCC");
  const Entries z = ReadEntries(vc, KivEntryCounting::Live, 2, kKinds);
  EXPECT_TRUE(z.m_bGood);
  ASSERT_EQ(z.m_vz.size(), 3u);
  EXPECT_TRUE(z.m_vz[1].IsGap());
  EXPECT_EQ(z.m_vz[1].m_iSize, 14u);
  EXPECT_EQ(ReadEntries(vc, KivEntryCounting::All, 2, kKinds).m_vz.size(), 2u);
  EXPECT_FALSE(ReadEntries(vc, KivEntryCounting::Live, 2, kKindsWithoutGap).m_bGood);
  EXPECT_FALSE(ReadEntries(vc, KivEntryCounting::Live, 3, kKinds).m_bGood);
}

TEST(ElementEntries, GapsBehindTheLastLiveEntryAreReadAndOtherBytesAreNot) {
  const Bytes vcEntry = FromHex("00000000 16270000 10000000 AAAAAAAA");
  Bytes vc = vcEntry;
  const Bytes vcGap = FromHex("10000000 10270000 0C000000");
  vc.insert(vc.end(), vcGap.begin(), vcGap.end());
  EXPECT_EQ(ReadEntries(vc, KivEntryCounting::Live, 1, kKinds).m_vz.size(), 2u);
  EXPECT_EQ(ReadEntries(vc, KivEntryCounting::All, 1, kKinds).m_vz.size(), 1u);
  EXPECT_FALSE(ReadEntries(vc, KivEntryCounting::Live, 1, kKindsWithoutGap).m_bGood);
  for (const auto& [iAt, iValue] : {std::pair<size_t, uint8_t>{16, 0x11}, {20, 0x16}, {24, 0x0B}, {24, 0x0D}}) {
    Bytes vcOther = vc;  // elsewhere, another kind, too small, too large
    vcOther[iAt] = iValue;
    const Entries z = ReadEntries(vcOther, KivEntryCounting::Live, 1, kKinds);
    EXPECT_TRUE(z.m_bGood);
    EXPECT_EQ(z.m_vz.size(), 1u);
  }
}

TEST(ElementEntries, AFrameMustSayWhereItStandsWhatItIsAndAtLeastItsOwnSize) {
  const Bytes vc = FromHex("00000000 16270000 10000000 AAAAAAAA");
  EXPECT_TRUE(ReadEntries(vc, KivEntryCounting::Live, 1, kKinds).m_bGood);
  for (const auto& [iAt, iValue] : {std::pair<size_t, uint8_t>{0, 1}, {4, 0x11}, {8, 11}}) {
    Bytes vcBad = vc;
    vcBad[iAt] = iValue;
    EXPECT_FALSE(ReadEntries(vcBad, KivEntryCounting::Live, 1, kKinds).m_bGood);
  }
  // The size of a live entry is not looked at beyond that.
  Bytes vcOdd = vc;
  vcOdd[8] = 200;
  EXPECT_TRUE(ReadEntries(vcOdd, KivEntryCounting::Live, 1, kKinds).m_bGood);
}

TEST(ElementEntries, AGapThatIsLongerThanTheRecordIsRefused) {
  EXPECT_FALSE(ReadEntries(FromHex("00000000 10270000 0D000000"), KivEntryCounting::All, 1, kKinds).m_bGood);
  EXPECT_FALSE(ReadEntries(FromHex("00000000 10270000 FFFFFFFF 00"), KivEntryCounting::Live, 1, kKinds).m_bGood);
}

TEST(ElementEntries, TheCountIsBoundedByTheBytes) {
  EXPECT_FALSE(ReadEntries(FromHex("00000000 10270000 0C000000"), KivEntryCounting::Live, 0xFFFFFFFF, kKinds).m_bGood);
}

TEST(ElementEntries, PlacedFramesAreWrittenWhereTheySayAndGapsKeepTheirBytes) {
  KivEntryFrame zLive, zGap;
  zLive.m_iKind = 10006;
  zGap.m_iKind = kGapKind;
  zGap.m_iSize = 15;
  KivEntryPlacer zPlacer(2);
  ASSERT_TRUE(zPlacer.PlaceGap(zGap));
  ASSERT_TRUE(zPlacer.PlaceLive(zLive, 4));
  EXPECT_EQ(zPlacer.Offset(), 33u);
  EXPECT_EQ(zPlacer.LiveNum(), 1u);
  Bytes vc(33, 0xEE);
  KivRecordWriter zWriter(vc.data(), vc.size());
  ASSERT_FALSE(KivWriteEntryFrame(zWriter, zGap));  // stands at 0, says 2
  ASSERT_TRUE(zWriter.Skip(2));
  ASSERT_TRUE(KivWriteEntryFrame(zWriter, zGap));
  ASSERT_TRUE(KivWriteEntryFrame(zWriter, zLive));
  EXPECT_EQ(vc, FromHex("EEEE 02000000 10270000 0F000000 EEEEEE  11000000 16270000 10000000 EEEEEEEE"));
  EXPECT_FALSE(KivWriteEntryFrame(zWriter, zLive));
}

TEST(ElementEntries, AnEntryBeyond4GiBIsRefused) {
  KivEntryFrame z;
  KivEntryPlacer zPlacer(0xFFFFFFF0u);
  EXPECT_FALSE(zPlacer.PlaceLive(z, 4));
  EXPECT_FALSE(zPlacer.PlaceLive(z, 0x100000000u));
  z.m_iKind = kGapKind;
  z.m_iSize = 11;
  EXPECT_FALSE(KivEntryPlacer(0).PlaceGap(z));
}

// --- Attributes -----------------------------------------------------------------------------------------------------

namespace {

bool ReadAttributes(const Bytes& vc, std::vector<KivAttribute>& vz, size_t& iEnd) {
  const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[vc.size()]);
  std::copy(vc.begin(), vc.end(), pOwn.get());
  KivRecordReader zReader(pOwn.get(), vc.size());
  const bool bGood = KivReadAttributes(zReader, vz);
  iEnd = zReader.Offset();
  return bGood;
}

Bytes WriteAttributes(const std::vector<KivAttribute>& vz) {
  Bytes vc(KivSizeOfAttributes(vz), 0xEE);
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivWriteAttributes(zWriter, vz));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

}  // namespace

TEST(ElementAttributes, AShortListOccupies14Bytes) {
  EXPECT_EQ(WriteAttributes({}), Bytes(14, 0));
  EXPECT_EQ(WriteAttributes({{7, {1, 2, 3}}}), FromHex("01 07 03000000 010203 0000000000"));
  std::vector<KivAttribute> vz;
  size_t iEnd = 0;
  ASSERT_TRUE(ReadAttributes(FromHex("01 07 03000000 010203 AABBCCDDEE FF"), vz, iEnd));
  EXPECT_EQ(iEnd, 14u);
  EXPECT_EQ(vz, (std::vector<KivAttribute>{{7, {1, 2, 3}}}));
}

TEST(ElementAttributes, ALongListEndsWhereItEnds) {
  const std::vector<KivAttribute> vzIn = {{1, {}}, {255, Bytes(9, 5)}};
  const Bytes vc = WriteAttributes(vzIn);
  EXPECT_EQ(vc.size(), 20u);
  std::vector<KivAttribute> vz;
  size_t iEnd = 0;
  ASSERT_TRUE(ReadAttributes(vc, vz, iEnd));
  EXPECT_EQ(iEnd, 20u);
  EXPECT_EQ(vz, vzIn);
}

TEST(ElementAttributes, EveryTruncationIsRefused) {
  const Bytes vc = WriteAttributes({{7, {1, 2, 3}}, {8, {4, 5, 6, 7}}});
  std::vector<KivAttribute> vz;
  size_t iEnd = 0;
  for (size_t n = 0; n < vc.size(); ++n)
    EXPECT_FALSE(ReadAttributes(Bytes(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n)), vz, iEnd));
  EXPECT_FALSE(ReadAttributes(FromHex("01 07 FFFFFFFF 010203040506070809"), vz, iEnd));
}

TEST(ElementAttributes, MoreThan255AreRefusedOnAWrite) {
  const std::vector<KivAttribute> vz(256);
  Bytes vc(KivSizeOfAttributes(vz));
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_FALSE(KivWriteAttributes(zWriter, vz));
}

namespace {

bool CollectTwo(const Bytes& vcBytes, std::vector<uint64_t>& viPosition) {
  if (vcBytes.size() != 2) return false;
  viPosition.insert(viPosition.end(), vcBytes.begin(), vcBytes.end());
  return true;
}
bool ReplaceTwo(Bytes& vcBytes, const std::map<uint64_t, uint64_t>& mapPosition) {
  for (uint8_t& i : vcBytes) {
    const auto it = mapPosition.find(i);
    if (it == mapPosition.end()) return false;
    i = static_cast<uint8_t>(it->second);
  }
  return true;
}

}  // namespace

TEST(ElementAttributes, KeysAreKnownToTheHandlerOfTheColumnAlone) {
  std::array<bool (*)(const Bytes&, std::vector<uint64_t>&), 256> apfnGet{};
  std::array<bool (*)(Bytes&, const std::map<uint64_t, uint64_t>&), 256> apfnReplace{};
  apfnGet[9] = CollectTwo;
  apfnReplace[9] = ReplaceTwo;
  std::vector<KivAttribute> vz = {{8, {1, 2}}, {9, {3, 4}}};
  std::vector<uint64_t> vi;
  EXPECT_TRUE(KivCollectAttributeKeys(apfnGet, vz, vi));
  EXPECT_EQ(vi, (std::vector<uint64_t>{3, 4}));
  EXPECT_TRUE(KivReplaceAttributeKeys(apfnReplace, vz, {{3, 30}, {4, 40}}));
  EXPECT_EQ(vz[0].m_vcBytes, (Bytes{1, 2}));
  EXPECT_EQ(vz[1].m_vcBytes, (Bytes{30, 40}));
  EXPECT_FALSE(KivReplaceAttributeKeys(apfnReplace, vz, {{30, 1}}));
  vz[1].m_vcBytes.clear();
  EXPECT_FALSE(KivCollectAttributeKeys(apfnGet, vz, vi));
}

TEST(ElementAttributes, AKeyOfZeroIsLeftAndAMissingOneRefused) {
  uint64_t iKey = 0;
  EXPECT_TRUE(KivReplaceKey({}, iKey));
  iKey = 5;
  EXPECT_TRUE(KivReplaceKey({{5, 6}}, iKey));
  EXPECT_EQ(iKey, 6u);
  EXPECT_FALSE(KivReplaceKey({{5, 6}}, iKey));
  EXPECT_EQ(iKey, 6u);
}

// --- Strings --------------------------------------------------------------------------------------------------------

namespace {

Bytes WriteText(const KivWString& cs) {
  Bytes vc(KivSizeOfText(cs), 0xEE);
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivWriteText(zWriter, cs));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

bool ReadText(const Bytes& vc, KivWString& cs) {
  KivRecordReader zReader(vc.data(), vc.size());
  return KivReadText(zReader, cs) && zReader.Remaining() == 0;
}

}  // namespace

TEST(ElementText, IsUtf8WithItsClosingZero) {
  EXPECT_EQ(WriteText(u"A\u00E4\u20AC"), FromHex("07000000 41 C3A4 E282AC 00"));
  EXPECT_EQ(WriteText(u""), FromHex("01000000 00"));
  KivWString cs;
  EXPECT_TRUE(ReadText(FromHex("07000000 41 C3A4 E282AC 00"), cs));
  EXPECT_EQ(cs, u"A\u00E4\u20AC");
}

TEST(ElementText, EndsAtItsFirstZeroOrAtItsLength) {
  KivWString cs;
  EXPECT_TRUE(ReadText(FromHex("05000000 41 42 00 43 00"), cs));
  EXPECT_EQ(cs, u"AB");
  EXPECT_TRUE(ReadText(FromHex("02000000 41 42"), cs));
  EXPECT_EQ(cs, u"AB");
  EXPECT_EQ(WriteText(KivWString(u"AB\0C", 4)), FromHex("03000000 41 42 00"));
}

TEST(ElementText, LengthZeroIsReportedAndReadsAsEmpty) {
  KivWString cs = u"before";
  const uint64_t nBefore = Reports();
  EXPECT_TRUE(ReadText(FromHex("00000000"), cs));
  EXPECT_EQ(cs, u"");
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_FALSE(ReadText(FromHex("03000000 41 42"), cs));
  EXPECT_FALSE(ReadText(FromHex("030000"), cs));
}

// --- One body for three purposes ------------------------------------------------------------------------------------

namespace {

struct Sample {
  uint32_t m_iValue = 0;
  std::array<float, 2> m_afPair{};
  uint64_t m_iNewKey = 77;  // only from revision 2
  std::vector<uint64_t> m_viChildren;
  KivWString m_csName;
  std::vector<KivAttribute> m_vzAttribute;

  friend bool operator==(const Sample&, const Sample&) = default;
};

template <typename Fields>
bool VisitSample(Fields& zFields, Sample& z) {
  return zFields.Numbers(z.m_iValue, z.m_afPair) && (zFields.Format() < 2 || zFields.Numbers(z.m_iNewKey)) &&
         zFields.List(z.m_viChildren) && zFields.Text(z.m_csName) && zFields.FillTo(60) &&
         zFields.Attributes(z.m_vzAttribute);
}

}  // namespace

TEST(ElementFields, OneBodySizesWritesAndReads) {
  Sample zIn{5, {1, 2}, 9, {10, 11}, u"ab", {{3, {1}}}};
  KivFieldSizer zSizer(2);
  ASSERT_TRUE(VisitSample(zSizer, zIn));
  EXPECT_EQ(zSizer.Offset(), 74u);
  Bytes vc(zSizer.Offset(), 0xEE);
  KivRecordWriter zWriter(vc.data(), vc.size());
  KivFieldWriter zFieldWriter(zWriter, 2);
  ASSERT_TRUE(VisitSample(zFieldWriter, zIn));
  EXPECT_EQ(vc, FromHex("05000000 0000803F 00000040 0900000000000000"
                        "02000000 0A00000000000000 0B00000000000000 03000000 616200 00000000000000000000000000"
                        "01 03 01000000 01 00000000000000"));
  Sample zOut;
  KivRecordReader zReader(vc.data(), vc.size());
  KivFieldReader zFieldReader(zReader, 2);
  ASSERT_TRUE(VisitSample(zFieldReader, zOut));
  EXPECT_EQ(zOut, zIn);

  for (size_t n = 0; n < vc.size(); ++n) {
    const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[n]);
    std::copy(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n), pOwn.get());
    KivRecordReader zShort(pOwn.get(), n);
    KivFieldReader zShortFields(zShort, 2);
    EXPECT_FALSE(VisitSample(zShortFields, zOut));
    KivRecordWriter zShortWriter(pOwn.get(), n);
    KivFieldWriter zShortOut(zShortWriter, 2);
    EXPECT_FALSE(VisitSample(zShortOut, zIn));
  }
}

TEST(ElementFields, AnOldRevisionLeavesTheDefaultOfAFieldThatItLacks) {
  Sample zIn{5, {1, 2}, 9, {}, u"", {}};
  Bytes vc(80);
  KivRecordWriter zWriter(vc.data(), vc.size());
  KivFieldWriter zFieldWriter(zWriter, 1);
  ASSERT_TRUE(VisitSample(zFieldWriter, zIn));
  Sample zOut;
  KivRecordReader zReader(vc.data(), vc.size());
  KivFieldReader zFieldReader(zReader, 1);
  ASSERT_TRUE(VisitSample(zFieldReader, zOut));
  EXPECT_EQ(zOut.m_iNewKey, 77u);
  EXPECT_EQ(zOut.m_afPair[1], 2);
}

TEST(ElementFields, ACountBeyondTheRecordTakesNoMemory) {
  const Bytes vc = FromHex("FFFFFFFF 00000000");
  KivRecordReader zReader(vc.data(), vc.size());
  KivFieldReader zFields(zReader, 1);
  std::vector<uint64_t> vi;
  EXPECT_FALSE(zFields.List(vi));
  EXPECT_EQ(vi.capacity(), 0u);
}
