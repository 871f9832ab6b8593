// The templates of reading and writing, by probe elements: blocks of a few fields under the rules of real types.
#include "KivElement.h"

#include <gtest/gtest.h>

#include <new>
#include <utility>

#include "KivLittleEndian.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr uint32_t kLiveKind = 10006;
constexpr uint32_t kKinds[] = {kGapKind, kLiveKind};

struct ProbeEntry {
  KivEntryFrame m_zFrame;
  uint32_t m_iValue = 0;
  std::vector<KivAttribute> m_vzAttribute;

  void Clear() {
    m_zFrame = KivEntryFrame();
    m_iValue = 0;
    m_vzAttribute.clear();
  }
};

// What a text block or a child record is elsewhere.
struct ProbeItem {
  uint16_t m_iNumber = 0;
  bool m_bOn = false;
};

// A field of revision 1, one of revision 2, a list of items, a key, and entries. bBulk: the treatment of meshes.
template <uint32_t iTag, bool bBulk = false>
class ProbeBlock : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = iTag;
  static constexpr char kSource[] = "src\\Probe";
  static constexpr bool kKeepsLayout = bBulk;
  static constexpr bool kIsBulk = bBulk;

  void Clear() {
    m_iFirst = 7;
    m_iSecond = 70;
    m_iKey = 0;
    m_vzItem.clear();
    m_vzEntry.Clear();
  }
  template <typename Fields>
  bool VisitBody(Fields& z, Memory&) {
    return z.Numbers(m_iFirst) && z.Check(m_iFirst < 1000, -999) && (z.Format() < 2 || z.Numbers(m_iSecond)) &&
           z.FillTo(m_zHeader.m_iDataOffset) && z.Numbers(m_iKey) &&
           z.Items(m_vzItem, 3,
                   [](auto& zItems, ProbeItem& i) { return zItems.Numbers(i.m_iNumber) && zItems.Flag(i.m_bOn); }) &&
           z.Entries(m_vzEntry, KivEntryCounting::Live, m_zHeader.m_iEntryCount, kKinds,
                     [](auto& zEntries, ProbeEntry& e) {
                       return zEntries.Numbers(e.m_iValue) && zEntries.Attributes(e.m_vzAttribute);
                     });
  }
  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    if (!zKeys.Keys(m_iKey)) return false;
    for (ProbeEntry& zEntry : m_vzEntry)
      if (!zKeys.Attributes(KivAttributeRow::Brep, zEntry.m_vzAttribute)) return false;
    return true;
  }
  void BeforeSave(bool) { ++m_nBefore; }
  void AfterSave() { ++m_nAfter; }

  // With room for both fields before the data.
  static std::unique_ptr<ProbeBlock> New() {
    auto pzBlock = NewBlock<ProbeBlock>();
    pzBlock->m_zHeader.m_iDataOffset = std::max(pzBlock->m_zHeader.m_iDataOffset, 80u);
    return pzBlock;
  }
  ProbeEntry& AddEntry(uint32_t iValue) {
    ProbeEntry& zEntry = m_vzEntry.Add();
    zEntry.m_zFrame.m_iKind = kLiveKind;
    zEntry.m_iValue = iValue;
    ++m_zHeader.m_iEntryCount;
    return zEntry;
  }
  ProbeEntry& AddGap(uint32_t nSize) {
    ProbeEntry& zEntry = m_vzEntry.Add();
    zEntry.m_zFrame.m_iKind = kGapKind;
    zEntry.m_zFrame.m_iSize = nSize;
    return zEntry;
  }

  uint32_t m_iFirst = 7;
  uint32_t m_iSecond = 70;  // from revision 2
  uint64_t m_iKey = 0;
  std::vector<ProbeItem> m_vzItem;
  KivReusedList<ProbeEntry> m_vzEntry;
  int m_nBefore = 0, m_nAfter = 0;
};

template <typename Block>
class Probe : public KivElement<Block> {
 public:
  using KivElement<Block>::KivElement;
  using KivElement<Block>::m_vcRawData;
  using KivElement<Block>::m_iPosition;
  using KivElement<Block>::m_zRecordRef;
  Block* Held() { return this->m_pzMemoryBlock; }

  void AfterTransfer() override {
    if (m_bNoMemory) throw std::bad_alloc();
  }
  bool m_bNoMemory = false;
};

using MeshLike = ProbeBlock<1, true>;  // newest revision 2, least offset 100
using ModelLike = ProbeBlock<3>;       // newest revision 2, least offset 72, box not tested
using BrepLike = ProbeBlock<5>;        // newest revision 1, box tested
using TreeLike = ProbeBlock<6>;        // newest revision 5, raised on read
using IdLike = ProbeBlock<9>;          // number of entries not tested

template <typename Block>
KivOutOfCoreData* Make(uint32_t, uint32_t iManagerKey) {
  return new Probe<Block>(iManagerKey);
}

}  // namespace

// --- Records --------------------------------------------------------------------------------------------------------

TEST(Element, ARecordIsWrittenAndReadByOneDescription) {
  auto pzBlock = ModelLike::New();
  pzBlock->m_iFirst = 0x11;
  pzBlock->m_iSecond = 0x22;
  pzBlock->m_iKey = 0x33;
  pzBlock->m_vzItem = {{0x4444, true}};
  pzBlock->AddEntry(0x55).m_vzAttribute = {{6, {1, 2, 3}}};
  pzBlock->AddGap(15);
  pzBlock->AddEntry(0x66);
  const Bytes vc = BuildRecord(*pzBlock);
  const Bytes vcExpected = FromHex(
      "03000000 02000000 02000000 50000000"
      "0000000000000000 0000000000000000 0000000000000000"
      "00000000 00000000 00000000  00000000 00000000 00000000  00000000"
      "11000000 22000000 00000000"  // to 80, with zeros up to the data offset
      "3300000000000000"
      "01000000 4444 01"
      "5F000000 16270000 1E000000 55000000  01 06 03000000 010203 0000000000"
      "7D000000 10270000 0F000000 000000"
      "8C000000 16270000 1E000000 66000000  00 00000000000000000000000000");
  EXPECT_EQ(vc, vcExpected);

  auto pzRead = ModelLike::New();
  ASSERT_TRUE(ReadRecord(vc, *pzRead));
  EXPECT_EQ(pzRead->m_iSecond, 0x22u);
  EXPECT_EQ(pzRead->m_zHeader.m_iDataOffset, 80u);
  EXPECT_EQ(pzRead->m_iKey, 0x33u);
  ASSERT_EQ(pzRead->m_vzItem.size(), 1u);
  EXPECT_TRUE(pzRead->m_vzItem[0].m_bOn);
  ASSERT_EQ(pzRead->m_vzEntry.size(), 3u);
  EXPECT_EQ(pzRead->m_vzEntry[0].m_vzAttribute[0].m_vcBytes, (Bytes{1, 2, 3}));
  EXPECT_TRUE(pzRead->m_vzEntry[1].m_zFrame.IsGap());
  EXPECT_EQ(pzRead->m_vzEntry[1].m_zFrame.m_iSize, 15u);
  EXPECT_EQ(pzRead->m_vzEntry[2].m_iValue, 0x66u);
  EXPECT_EQ(BuildRecord(*pzRead), vc);
}

TEST(Element, ARecordWithAGapHoldsOneMoreItemThanItsEntryCount) {
  auto pzBlock = TreeLike::New();
  pzBlock->AddGap(40);
  pzBlock->AddEntry(5);
  auto pzRead = TreeLike::New();
  ASSERT_TRUE(ReadRecord(BuildRecord(*pzBlock), *pzRead));
  EXPECT_EQ(pzRead->m_zHeader.m_iEntryCount, 1u);
  ASSERT_EQ(pzRead->m_vzEntry.size(), 2u);
  EXPECT_EQ(pzRead->m_vzEntry[1].m_iValue, 5u);
}

TEST(Element, AnAttributeListOfThreeBytesTakesFourteenAndTheNextEntryStartsBehindThem) {
  auto pzBlock = TreeLike::New();
  pzBlock->AddEntry(1);
  pzBlock->AddEntry(2);
  BuildRecord(*pzBlock);
  EXPECT_EQ(pzBlock->m_vzEntry[1].m_zFrame.m_iOffset - pzBlock->m_vzEntry[0].m_zFrame.m_iOffset, 12u + 4u + 14u);
}

TEST(Element, NoBytesGiveTheDefaults) {
  auto pzBlock = ModelLike::New();
  pzBlock->m_iFirst = 1;
  pzBlock->AddEntry(3);
  ASSERT_TRUE(ReadRecord(Bytes(), *pzBlock));
  EXPECT_EQ(pzBlock->m_iFirst, 7u);
  EXPECT_TRUE(pzBlock->m_vzEntry.empty());
  EXPECT_EQ(pzBlock->GetHeader().m_iTag, 3u);
  EXPECT_EQ(pzBlock->GetHeader().m_iEntryCount, 0u);
  EXPECT_EQ(pzBlock->GetHeader().m_iFormat, 2u);
  EXPECT_EQ(pzBlock->GetHeader().m_iDataOffset, 72u);
}

TEST(Element, AnOldRevisionLacksItsFieldsAndZeroReadsAsTheOldestAndALargeOneAsTheNewest) {
  auto pzBlock = ModelLike::New();
  pzBlock->m_iSecond = 0x22;
  const Bytes vc = BuildRecord(*pzBlock);
  auto pzRead = ModelLike::New();
  for (const auto& [iFormat, iSecond] :
       {std::pair<uint8_t, uint32_t>{0, 70}, {1, 70}, {2, 0x22}, {3, 0x22}, {255, 0x22}}) {
    Bytes vcOther = vc;
    vcOther[8] = iFormat;
    ASSERT_TRUE(ReadRecord(vcOther, *pzRead));
    EXPECT_EQ(pzRead->m_iSecond, iSecond) << int{iFormat};
    EXPECT_EQ(pzRead->m_zHeader.m_iFormat, iFormat);
  }
}

TEST(Element, InGeneration19AModelRecordBelow72BytesIsAcceptedAndRefusedWithAFormat) {
  auto pzBlock = ModelLike::New();
  Bytes vc = BuildRecord(*pzBlock);
  vc.resize(71);
  auto pzRead = ModelLike::New();
  EXPECT_FALSE(ReadRecord(vc, *pzRead));
  // 64 bytes of header and the first field; the rest of the body is said to begin inside it.
  Bytes vc19 = FromHex(
      "03000000 00000000 38000000"
      "0000000000000000 0000000000000000 0000000000000000"
      "00000000 00000000 00000000  00000000 00000000 00000000  00000000 00000000 00");
  ASSERT_EQ(vc19.size(), 69u);
  EXPECT_TRUE(ReadRecord(vc19, *pzRead, true));
  EXPECT_EQ(pzRead->m_iFirst, 0u);
  EXPECT_EQ(pzRead->m_zHeader.m_iFormat, 0u);
}

TEST(Element, TypesThatAreRaisedOnReadComeWithTheNewestRevisionAndALeastDataOffset) {
  auto pzBlock = TreeLike::New();
  pzBlock->AddEntry(9);
  Bytes vc = BuildRecord(*pzBlock);
  vc[8] = 2;
  auto pzRead = TreeLike::New();
  ASSERT_TRUE(ReadRecord(vc, *pzRead));
  EXPECT_EQ(pzRead->m_zHeader.m_iFormat, 5u);
  EXPECT_EQ(pzRead->m_zHeader.m_iDataOffset, 80u);
  // In generation 19 the data may begin at 64. Such a block can be written all the same.
  Bytes vc19(64 + 8 + 4);
  vc19[0] = 6;
  vc19[8] = 64;
  ASSERT_TRUE(ReadRecord(vc19, *pzRead, true));
  EXPECT_EQ(pzRead->m_zHeader.m_iFormat, 5u);
  EXPECT_EQ(pzRead->m_zHeader.m_iDataOffset, 68u);
}

TEST(Element, TheSizingAnswersTheCodesOfHeaderCountAndFields) {
  auto pzBlock = BrepLike::New();
  EXPECT_GT(SizeOf(*pzBlock), 0);
  const auto With = [&](auto&& pfnChange) {
    auto pzBad = BrepLike::New();
    pfnChange(*pzBad);
    return SizeOf(*pzBad);
  };
  EXPECT_EQ(With([](BrepLike& z) { z.m_zHeader.m_iTag = 6; }), -10);
  EXPECT_EQ(With([](BrepLike& z) { z.m_zHeader.m_afBoxMin[2] = 1; }), -40);
  EXPECT_EQ(With([](BrepLike& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](BrepLike& z) { z.m_zHeader.m_iEntryCount = 1; }), -580);
  EXPECT_EQ(With([](BrepLike& z) { z.m_iFirst = 1000; }), -999);
  EXPECT_EQ(With([](BrepLike& z) { z.AddEntry(1).m_zFrame.m_iKind = 10001; }), 0);
  EXPECT_EQ(With([](BrepLike& z) { z.AddGap(11); }), 0);
  auto pzTree = TreeLike::New();
  pzTree->m_zHeader.m_iEntryCount = 2;
  EXPECT_EQ(SizeOf(*pzTree), -80);
  auto pzIds = IdLike::New();
  pzIds->m_zHeader.m_iEntryCount = 2;
  EXPECT_EQ(SizeOf(*pzIds), 80 + 8 + 4);
}

TEST(Element, ABoxWithALowCornerAboveItsHighOneFailsOnReadAndOnWriteOfABrep) {
  auto pzBlock = BrepLike::New();
  Bytes vc = BuildRecord(*pzBlock);
  vc[42] = 0x80;  // the low corner's x is 1
  vc[43] = 0x3F;
  auto pzRead = BrepLike::New();
  EXPECT_FALSE(ReadRecord(vc, *pzRead));
  EXPECT_EQ(SizeOf(*pzRead), -40);
  auto pzModel = ModelLike::New();
  EXPECT_TRUE(ReadRecord(
      [&] {
        Bytes vcModel = BuildRecord(*pzModel);
        vcModel[42] = 0x80;
        vcModel[43] = 0x3F;
        return vcModel;
      }(),
      *pzModel));
}

TEST(Element, EveryTruncationOfARecordIsRefusedAndKeepsToItsBytes) {
  auto pzBlock = ModelLike::New();
  pzBlock->m_vzItem = {{1, true}, {2, false}};
  pzBlock->AddEntry(1).m_vzAttribute = {{6, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}}};
  pzBlock->AddEntry(2);
  const Bytes vc = BuildRecord(*pzBlock);
  auto pzRead = ModelLike::New();
  for (size_t n = 1; n < vc.size(); ++n) {
    const uint64_t nBefore = QuietReports();
    EXPECT_FALSE(ReadRecord(Bytes(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n)), *pzRead)) << n;
    EXPECT_GT(QuietReports(), nBefore) << n;
  }
}

TEST(Element, ACountOfItemsIsComparedWithTheBytesThatRemain) {
  auto pzBlock = ModelLike::New();
  Bytes vc = BuildRecord(*pzBlock);
  auto pzRead = ModelLike::New();
  for (const uint32_t n : {1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    KivStore<uint32_t>(&vc[88], n);
    EXPECT_FALSE(ReadRecord(vc, *pzRead)) << n;
    EXPECT_TRUE(pzRead->m_vzItem.empty());
  }
}

TEST(Element, AListKeepsTheMemoryOfItsItemsBetweenReads) {
  auto pzBlock = ModelLike::New();
  for (int i = 0; i < 10; ++i) pzBlock->AddEntry(1);
  const Bytes vc = BuildRecord(*pzBlock);
  auto pzRead = ModelLike::New();
  ASSERT_TRUE(ReadRecord(vc, *pzRead));
  const ProbeEntry* const pzFirst = pzRead->m_vzEntry.begin();
  ASSERT_TRUE(ReadRecord(vc, *pzRead));
  EXPECT_EQ(pzRead->m_vzEntry.begin(), pzFirst);
  EXPECT_EQ(pzRead->m_vzEntry.size(), 10u);
}

// --- Elements in a store --------------------------------------------------------------------------------------------

namespace {

class ElementStore : public ElementStoreTest {
 protected:
  ElementStore() {
    KivOutOfCoreManager::SetElementClass(1, Make<MeshLike>);
    KivOutOfCoreManager::SetElementClass(3, Make<ModelLike>);
    KivOutOfCoreManager::SetElementClass(5, Make<BrepLike>);
    KivOutOfCoreManager::SetElementClass(6, Make<TreeLike>);
  }
  ~ElementStore() override {
    const NoThrowScope zNoThrow;
    Space().RemoveAllModels();
    for (const uint32_t i : {1u, 3u, 5u, 6u}) KivOutOfCoreManager::SetElementClass(i, nullptr);
  }
  template <typename Block>
  Probe<Block>* Put(const Bytes& vc) {
    return ElementStoreTest::Put<Probe<Block>>(vc);
  }
  template <typename Block>
  Probe<Block>* Fetch() {
    return ElementStoreTest::Fetch<Probe<Block>>();
  }
  template <typename Block>
  static Bytes Sample(uint32_t iFirst, uint32_t nEntries = 2) {
    auto pzBlock = Block::New();
    pzBlock->m_iFirst = iFirst;
    for (uint32_t i = 0; i < nEntries; ++i) pzBlock->AddEntry(i);
    return BuildRecord(*pzBlock);
  }
};

}  // namespace

TEST_F(ElementStore, ARecordOfSizeZeroGivesABlockOfDefaultsAndLoadIsTrue) {
  OpenEmpty();
  Probe<ModelLike> zNew(m_pzModel->GetKey());
  ASSERT_TRUE(zNew.Load(false));
  EXPECT_EQ(zNew.Held()->m_iFirst, 7u);
  EXPECT_EQ(zNew.GetElementType(), 3u);
  zNew.Release();
}

TEST_F(ElementStore, ANewElementIsStoredAndComesBack) {
  OpenEmpty();
  auto pzNew = std::make_unique<Probe<ModelLike>>(m_pzModel->GetKey());
  ModelLike* pzBlock = pzNew->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_iFirst = 99;
  pzBlock->m_zHeader.m_iDataOffset = 80;
  pzBlock->m_zHeader.m_afBoxMax = {1, 2, 3};
  KivOutOfCoreHandle zHandle = KivStoreNewElement(std::move(pzNew));
  ASSERT_TRUE(zHandle);
  auto* pzBack = zHandle.Fetch<Probe<ModelLike>>();
  ASSERT_NE(pzBack, nullptr);
  EXPECT_EQ(pzBack->GetMemoryBlock()->m_iFirst, 99u);
  float fX = 0;
  std::memcpy(&fX, pzBack->GetBoxCorners() + 12, 4);
  EXPECT_EQ(fX, 1.0f);  // the fifth corner is the first with the high x
}

TEST_F(ElementStore, WritingRaisesTheFormatUnlessOnlyKeysChange) {
  OpenEmpty();
  Bytes vc = Sample<ModelLike>(5);
  vc[8] = 1;
  auto* pz = Put<ModelLike>(vc);
  ASSERT_NE(pz, nullptr);
  ASSERT_NE(pz->GetMemoryBlock(), nullptr);
  EXPECT_EQ(pz->Held()->m_iSecond, 70u);
  ASSERT_TRUE(pz->Save(true));
  EXPECT_EQ(pz->Held()->m_zHeader.m_iFormat, 1u);
  // The newest layout under the old number.
  Bytes vcStored = Stored(*pz);
  EXPECT_EQ(vcStored[8], 1);
  EXPECT_EQ(KivLoad<uint32_t>(&vcStored[72]), 70u);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(pz->Held()->m_zHeader.m_iFormat, 2u);
  EXPECT_EQ(Stored(*pz)[8], 2);
}

TEST_F(ElementStore, AFormatOutsideTheKnownOnesIsReadAndNotWritten) {
  OpenEmpty();
  for (const uint8_t iFormat : {0, 3}) {
    Bytes vc = Sample<ModelLike>(5);
    vc[8] = iFormat;
    auto* pz = Put<ModelLike>(vc);
    ASSERT_NE(pz->GetMemoryBlock(), nullptr);
    EXPECT_FALSE(pz->Save(false));
    EXPECT_FALSE(pz->Save(true));
    EXPECT_EQ(Stored(*pz), vc);
    pz->Held()->m_zHeader.m_iFormat = 2;
    EXPECT_TRUE(pz->Save(false));
  }
}

TEST_F(ElementStore, AFailedWriteKeepsThePreviousRecordAndTheRaisedFormat) {
  OpenEmpty();
  Bytes vc = Sample<ModelLike>(5);
  vc[8] = 1;
  auto* pz = Put<ModelLike>(vc);
  ModelLike* pzBlock = pz->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_iFirst = 1000;
  const int nBefore = pzBlock->m_nBefore, nAfter = pzBlock->m_nAfter;
  EXPECT_FALSE(pz->Save(false));
  EXPECT_EQ(pzBlock->m_nBefore - nBefore, 1);
  EXPECT_EQ(pzBlock->m_nAfter - nAfter, 1);
  EXPECT_EQ(pzBlock->m_zHeader.m_iFormat, 2u);
  EXPECT_EQ(Stored(*pz), vc);
  EXPECT_TRUE(pz->IsModified());
  pzBlock->m_iFirst = 6;
  EXPECT_TRUE(pz->Save(false));
  EXPECT_TRUE(pz->IsActive());  // the block stays
}

TEST_F(ElementStore, AReadThatFailsNeverThrowsOutOfLoadAndTheElementCanBeLoadedAgain) {
  OpenEmpty();
  const Bytes vc = Sample<ModelLike>(5);
  Bytes vcBad = vc;
  vcBad[64] = 3;
  auto* pz = Put<ModelLike>(vcBad);
  ASSERT_NE(pz, nullptr);
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->Load(false)));
  {
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(pz->Load(false));
    EXPECT_FALSE(pz->Activate(false));
    EXPECT_FALSE(pz->IsActive());
  }
  pz->m_vcRawData = vc;  // as if the bytes had been repaired
  EXPECT_TRUE(pz->Activate(false));
  EXPECT_EQ(pz->Held()->m_iFirst, 5u);
}

TEST_F(ElementStore, AFetchThatFailsLeavesTheDefaultsAndNothingOfTheBlocksOwnerBefore) {
  OpenEmpty();
  auto* pzFirst = Put<ModelLike>(Sample<ModelLike>(5));
  ModelLike* pzBlock = pzFirst->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  ASSERT_EQ(pzBlock->m_vzEntry.size(), 2u);
  auto* pzSecond = Put<ModelLike>(Sample<ModelLike>(6, 3));
  const uint64_t iPosition = std::exchange(pzSecond->m_iPosition, 9);  // no record stands there
  pzSecond->m_zRecordRef = KivContainerRecord();
  EXPECT_NO_REPORT(EXPECT_FALSE(pzSecond->Load(false)));
  ASSERT_EQ(pzSecond->Held(), pzBlock);
  EXPECT_EQ(pzBlock->m_iFirst, 7u);
  EXPECT_TRUE(pzBlock->m_vzEntry.empty());
  EXPECT_EQ(pzBlock->m_zHeader.m_iEntryCount, 0u);
  pzSecond->m_iPosition = iPosition;
  ASSERT_TRUE(pzSecond->Load(false));
  EXPECT_EQ(pzBlock->m_vzEntry.size(), 3u);
}

TEST_F(ElementStore, ARecordBelowTheLeastSizeIsNotFetched) {
  OpenEmpty();
  Bytes vc = Sample<ModelLike>(5, 0);
  vc.resize(71);
  auto* pz = Put<ModelLike>(vc);
  EXPECT_FALSE(pz->Load(false));
  EXPECT_TRUE(pz->m_vcRawData.empty());
  vc.resize(72);
  pz = Put<ModelLike>(vc);
  EXPECT_FALSE(pz->Load(false));  // its data offset lies behind it
  EXPECT_EQ(pz->m_vcRawData, vc);
}

TEST_F(ElementStore, ALackOfMemoryIsReportedAndStaysInLoadAndSave) {
  OpenEmpty();
  auto* pz = Put<ModelLike>(Sample<ModelLike>(5));
  ASSERT_NE(pz->GetMemoryBlock(), nullptr);
  pz->m_bNoMemory = true;
  const uint64_t nBefore = QuietReports();
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->Load(false)));
  EXPECT_EQ(QuietReports(), nBefore + 1);
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->Save(false)));
  EXPECT_EQ(QuietReports(), nBefore + 2);
  EXPECT_STREQ(KivLastQuietReport().m_szSource, "src\\KivOutOfCoreData");
  pz->m_bNoMemory = false;
  EXPECT_TRUE(pz->Load(false));
}

TEST_F(ElementStore, TheRawBytesServeTheNextLoadWhileTheyHaveTheRecordsSize) {
  OpenEmpty();
  auto* pz = Put<ModelLike>(Sample<ModelLike>(5));
  ASSERT_NE(pz->GetMemoryBlock(), nullptr);
  ASSERT_EQ(pz->m_vcRawData, Stored(*pz));
  KivStore<uint32_t>(&pz->m_vcRawData[68], 6);
  ASSERT_TRUE(pz->Load(false));
  EXPECT_EQ(pz->Held()->m_iFirst, 6u);
  pz->m_vcRawData.pop_back();
  ASSERT_TRUE(pz->Load(false));
  EXPECT_EQ(pz->Held()->m_iFirst, 5u);
  pz->MarkModified();
  EXPECT_TRUE(pz->m_vcRawData.empty());
}

TEST_F(ElementStore, NoRawBytesAreKeptWithoutTheSettingOrWithABlockOfItsOwn) {
  OpenEmpty();
  Space().SetKeepRawData(0);
  auto* pz = Put<ModelLike>(Sample<ModelLike>(5));
  ASSERT_NE(pz->GetMemoryBlock(), nullptr);
  EXPECT_TRUE(pz->m_vcRawData.empty());
  Space().SetKeepRawData(1);
  Space().SetBlockPerElement(true);
  auto* pzOther = Put<BrepLike>(Sample<BrepLike>(5));
  ASSERT_NE(pzOther->GetMemoryBlock(), nullptr);
  EXPECT_TRUE(pzOther->m_vcRawData.empty());
}

TEST_F(ElementStore, BulkyRecordsAreReadOnTheStackAndInTheLargeBufferAlike) {
  OpenEmpty();
  Space().SetKeepRawData(0);
  const Bytes vc = Sample<MeshLike>(5, 100);
  for (const uint32_t iLimit : {0u, static_cast<uint32_t>(vc.size()), 200000u, 0xFFFFFFFFu}) {
    Space().SetStackBufferLimit(iLimit);
    auto* pz = Put<MeshLike>(vc);
    ASSERT_NE(pz->GetMemoryBlock(), nullptr) << iLimit;
    EXPECT_EQ(pz->Held()->m_vzEntry.size(), 100u);
    EXPECT_EQ(pz->Held()->m_vzEntry[99].m_iValue, 99u);
  }
  Space().SetStackBufferLimit(1000);
  EXPECT_TRUE(KivIsReadOnStack(899));
  EXPECT_FALSE(KivIsReadOnStack(900));  // nine tenths
  Space().SetStackBufferLimit(0xFFFFFFFF);
  EXPECT_FALSE(KivIsReadOnStack(kElementStackBytes + 1));
}

TEST_F(ElementStore, OneStaticBlockIsTakenFromItsOwnerWhoStoresItselfAndTakingsAreCounted) {
  OpenEmpty();
  auto* pzFirst = Put<ModelLike>(Sample<ModelLike>(5));
  const uint64_t iFirst = m_iPosition;
  const uint64_t nTaken = Probe<ModelLike>::GetBlockAcquireNum();
  ModelLike* pzBlock = pzFirst->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_iFirst = 55;
  auto* pzSecond = Put<ModelLike>(Sample<ModelLike>(6));
  EXPECT_EQ(pzSecond->GetMemoryBlock(), pzBlock);
  EXPECT_EQ(pzBlock->m_iFirst, 6u);
  EXPECT_EQ(Probe<ModelLike>::GetBlockAcquireNum(), nTaken + 2);
  m_iPosition = iFirst;
  auto* pzAgain = Fetch<ModelLike>();
  ASSERT_NE(pzAgain, nullptr);
  EXPECT_EQ(pzAgain->GetMemoryBlock()->m_iFirst, 55u);
}

TEST_F(ElementStore, WithABlockPerElementTwoAreLoadedAtOnce) {
  OpenEmpty();
  Space().SetBlockPerElement(true);
  auto* pzFirst = Put<ModelLike>(Sample<ModelLike>(5));
  auto* pzSecond = Put<ModelLike>(Sample<ModelLike>(6));
  ModelLike* pzA = pzFirst->GetMemoryBlock();
  ModelLike* pzB = pzSecond->GetMemoryBlock();
  EXPECT_NE(pzA, pzB);
  EXPECT_EQ(pzA->m_iFirst, 5u);
  EXPECT_EQ(pzB->m_iFirst, 6u);
  EXPECT_TRUE(pzFirst->IsActive());
}

// --- Keys -----------------------------------------------------------------------------------------------------------

namespace {

// Two links, a key of the body, an attribute of a type with keys (the index of the test notes) and one without.
Bytes RecordWithKeys() {
  auto pzBlock = BrepLike::New();
  pzBlock->m_zHeader.m_aiLink = {11, 0, 22};
  pzBlock->m_iKey = 33;
  pzBlock->AddEntry(1).m_vzAttribute = {{kTestNoteIndex, {44, 0, 0, 0, 0, 0, 0, 0}}, {200, {55, 0, 0, 0, 0, 0, 0, 0}}};
  return BuildRecord(*pzBlock);
}

}  // namespace

TEST_F(ElementStore, KeysAreTheLinksThenThoseOfTheBodyAndOfAttributesWithAHandler) {
  OpenEmpty();
  auto* pz = Put<BrepLike>(RecordWithKeys());
  std::vector<uint64_t> viKey = {1, 2, 3};
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{11, 22, 33, 44}));
  ASSERT_TRUE(pz->ReplaceAllPosition({{11, 111}, {22, 222}, {33, 333}, {44, 444}}));
  EXPECT_TRUE(pz->IsModified());
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{111, 222, 333, 444}));
  EXPECT_EQ(pz->Held()->m_vzEntry[0].m_vzAttribute[1].m_vcBytes[0], 55);
}

TEST_F(ElementStore, AKeyThatTheMapLacksFailsWithoutAnExceptionAndThoseBeforeItStayReplaced) {
  OpenEmpty();
  auto* pz = Put<BrepLike>(RecordWithKeys());
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{11, 111}, {22, 222}, {44, 444}})));
  EXPECT_EQ(pz->Held()->m_zHeader.m_aiLink[2], 222u);
  EXPECT_EQ(pz->Held()->m_iKey, 33u);
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{111, 1}, {222, 2}, {33, 3}})));  // the attribute's key
}

TEST_F(ElementStore, AHandlerThatRefusesAnAttributeFailsTheListing) {
  OpenEmpty();
  auto pzBlock = BrepLike::New();
  pzBlock->AddEntry(1).m_vzAttribute = {{kTestNoteIndex, {44}}};
  auto* pz = Put<BrepLike>(BuildRecord(*pzBlock));
  std::vector<uint64_t> viKey;
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->GetAllPosition(viKey)));
}

TEST_F(ElementStore, AnElementThatCannotBeLoadedListsNoKeysWithoutAnException) {
  OpenEmpty();
  Bytes vc = RecordWithKeys();
  vc[64] = 9;
  auto* pz = Put<BrepLike>(vc);
  std::vector<uint64_t> viKey;
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->GetAllPosition(viKey)));
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({})));
}

TEST_F(ElementStore, ABulkyElementIsStoredAndLoadedAnewForItsKeysAndItsObjectStays) {
  for (const int32_t iLimit : {1, 4}) {
    OpenEmpty(iLimit);
    auto* pz = Put<MeshLike>(Sample<MeshLike>(5));
    MeshLike* pzBlock = pz->GetMemoryBlockForWrite();
    ASSERT_NE(pzBlock, nullptr);
    pzBlock->m_iKey = 77;
    std::vector<uint64_t> viKey;
    ASSERT_TRUE(pz->GetAllPosition(viKey));
    EXPECT_EQ(viKey, std::vector<uint64_t>{77});
    EXPECT_TRUE(pz->IsActive());
    EXPECT_FALSE(pz->IsModified());
    EXPECT_EQ(KivLoad<uint64_t>(&Stored(*pz)[100]), 77u);
    Close(m_pzModel);
  }
}

TEST_F(ElementStore, AKeyOnlyWriteOfABulkyElementGoesOverTheOldRecordAndLeavesGapsAndLayout) {
  OpenEmpty();
  auto pzBlock = MeshLike::New();
  pzBlock->m_iKey = 1;
  pzBlock->AddEntry(1);
  pzBlock->AddGap(16);
  Bytes vc = BuildRecord(*pzBlock);
  for (size_t i = vc.size() - 4; i < vc.size(); ++i) vc[i] = 0xAB;
  // The same in revision 1, which lacks the second field: it is written in that layout.
  for (const uint8_t iFormat : {2, 1}) {
    vc[8] = iFormat;
    auto* pz = Put<MeshLike>(vc);
    ASSERT_TRUE(pz->Activate(true));
    ASSERT_TRUE(pz->ReplaceAllPosition({{1, 9}}));
    ASSERT_TRUE(pz->Save(true));
    Bytes vcExpected = vc;
    vcExpected[100] = 9;
    if (iFormat == 1) KivStore<uint32_t>(&vcExpected[72], 0);
    EXPECT_EQ(Stored(*pz), vcExpected) << int{iFormat};
  }
}

TEST_F(ElementStore, AKeyOnlyWriteLeavesBytesBehindTheLastEntryAsTheyWere) {
  OpenEmpty();
  auto pzBlock = MeshLike::New();
  pzBlock->m_iKey = 1;
  pzBlock->AddEntry(1);
  Bytes vc = BuildRecord(*pzBlock);
  const size_t iEnd = vc.size();
  vc.insert(vc.end(), 30, 0xAB);
  auto* pz = Put<MeshLike>(vc);
  ASSERT_TRUE(pz->Activate(true));
  ASSERT_TRUE(pz->ReplaceAllPosition({{1, 9}}));
  ASSERT_TRUE(pz->Save(true));
  vc[100] = 9;
  EXPECT_EQ(Stored(*pz), vc);
  // But the entries must take the bytes that they took.
  ASSERT_TRUE(pz->Load(true));
  pz->GetMemoryBlockForWrite()->m_vzEntry[0].m_vzAttribute = {{1, Bytes(30)}};
  EXPECT_FALSE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
  // A whole write ends the record with the entries; one for keys then goes over that one.
  ASSERT_TRUE(pz->Save(false));
  ASSERT_TRUE(pz->Save(true));
  EXPECT_EQ(pz->GetDataSize(), iEnd + 35 + 1 - 14);
}

TEST_F(ElementStore, AKeyOnlyWriteThatNoLongerFitsTheOldRecordIsRefused) {
  OpenEmpty();
  const Bytes vc = Sample<MeshLike>(5);
  auto* pz = Put<MeshLike>(vc);
  MeshLike* pzBlock = pz->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_vzEntry[0].m_vzAttribute = {{1, Bytes(30)}};
  EXPECT_FALSE(pz->Save(true));
  EXPECT_TRUE(pz->IsModified());
  pzBlock->m_vzEntry[0].m_vzAttribute.clear();
  pzBlock->m_vzEntry[1].m_vzAttribute = {{1, Bytes(30)}};
  EXPECT_FALSE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
}
