#include "KivCamera.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockCamera;

// --- Records by hand ------------------------------------------------------------------------------------------------

const std::string kLinksBoxState =
    "0A00000000000000 0000000000000000 0000000000000000"
    "0000803F 0000803F 0000803F  00000000 00000000 00000000  01000000";
const std::string kOne = "000000000000F03F";
const std::string kSectionList = "01000000  10000000 02000000 01000000 02000000";

// A view with one of everything; the section as given.
std::string View(uint32_t iFormat, const std::string& strSection = kSectionList) {
  std::string str = "01000000 02000000" + kOne + HexZeros(64) + HexZeros(64) + "0000000000000040" + "01";
  if (iFormat >= 2) str += "00";
  str += "01000000 01000000  03000000 17270000 09000000 02000000";
  str += "02000000 01000000  04000000 1D270000 0A000000 01000000";
  str += "0B000000 0C000000  01000000 01000000 02000000 03000000 04000000 05000000";
  if (iFormat >= 4) str += "01000000";
  str += kOne + HexZeros(64);
  if (iFormat >= 4) str += "01 00 0D000000 0E000000  02000000 AABB  0F000000";
  str += "01";
  if (iFormat >= 3) str += "01" + strSection;
  return str + "11000000 1D270000 12000000 13000000 1F270000 14000000 15000000  02000000 7600";
}
const std::string kGroup =
    "01 16000000 10270000 00000000  02000000  01000000 1E270000 02000000  03000000 1F270000 04000000  17000000"
    "02000000 6700";

Bytes Golden(uint32_t iFormat = 4) {
  static constexpr uint32_t kViewSize[] = {0, 352, 353, 374, 398};
  const uint32_t nView = kViewSize[iFormat];
  return FromHex("0C000000 02000000" + HexU32(iFormat) + "44000000" + kLinksBoxState + "01000000" +
                 HexFrame(72, 10014, nView) + View(iFormat) + "01000000" + HexFrame(76 + nView, 10015, 63) + kGroup);
}
// With the section's detail instead of its list: a part with two sub-parts, one of them with a pair.
Bytes GoldenDetail() {
  const std::string strDetail = "00000000" + kOne + HexZeros(72) + "0000000000000040" + "20000000  01000000" +
                                "2100000000000000 2200000000000000 2300000000000000 24000000  02000000" +
                                "2500000000000000 2600000000000000 01000000 2700000000000000 2800000000000000" +
                                "2900000000000000 2A00000000000000 00000000";
  // 240 bytes of an empty view, 20 of lists, then: shows, record, clip, clip bytes, section, name
  constexpr uint32_t nView = 240 + 16 + 16 + 20 + 82 + 2 + (4 + 88 + 8 + 32 + 36 + 20) + 2;
  return FromHex("0C000000 02000000 04000000 44000000" + kLinksBoxState + "01000000" + HexFrame(72, 10014, nView) +
                 View(4, strDetail) + "01000000" + HexFrame(76 + nView, 10015, 63) + kGroup);
}
// Gaps in both lists.
Bytes GoldenGaps() {
  return FromHex("0C000000 02000000 04000000 44000000" + kLinksBoxState + "03000000" + HexFrame(72, 10000, 14) +
                 "0000" + HexFrame(86, 10014, 398) + View(4) + HexFrame(484, 10000, 12) + "02000000" +
                 HexFrame(500, 10015, 63) + kGroup + HexFrame(563, 10000, 12));
}

constexpr size_t kBody = 84;  // of the view, behind its frame
constexpr size_t kClipOnAt = kBody + 8 + 72 + 72 + 2 + 24 + 24 + 8 + 24 + 86 + 6 + 4;

}  // namespace

TEST(Camera, ARecordOfRevision4ReadsAsItIs) {
  auto pz = NewBlock<Block>();
  for (const bool bVer19 : {false, true}) {  // the header of this type always has m_iFormat
    ASSERT_TRUE(ReadRecord(Golden(), *pz, bVer19));
    ASSERT_EQ(pz->m_vzView.size(), 1u);
    const KivView& z = pz->m_vzView[0];
    EXPECT_EQ(z.m_iViewMode, 1u);
    EXPECT_EQ(z.m_iViewType, 2u);
    EXPECT_EQ(z.m_dViewPoint[0][0], 1.0);
    EXPECT_EQ(z.m_dViewValue[8], 2.0);
    EXPECT_TRUE(z.m_bViewFlag0);
    EXPECT_FALSE(z.m_bViewFlag1);
    EXPECT_EQ(z.m_iPMIShowMode, 1u);
    ASSERT_EQ(z.m_vPMIShow.size(), 1u);
    EXPECT_EQ(z.m_vPMIShow[0].m_iRef0, 3u);
    EXPECT_EQ(z.m_vPMIShow[0].m_iRef1, 9u);
    EXPECT_EQ(z.m_vPMIShow[0].m_iState, 2u);
    EXPECT_EQ(z.m_iLayerShowMode, 2u);
    EXPECT_EQ(z.m_vLayerShow.at(0).m_iRef1, 10u);
    EXPECT_EQ(z.m_iViewData, (std::array<uint32_t, 2>{11, 12}));
    EXPECT_EQ(z.m_vViewRecord.at(0), (std::array<uint32_t, 5>{1, 2, 3, 4, 5}));
    ASSERT_EQ(z.m_vClip.size(), 1u);
    EXPECT_EQ(z.m_vClip[0].m_dClip[0][0], 1.0);
    EXPECT_EQ(z.m_vClip[0].m_bClipFlag, (std::array<bool, 2>{true, false}));
    EXPECT_EQ(z.m_vClip[0].m_iClipData, (std::array<uint32_t, 2>{13, 14}));
    EXPECT_EQ(z.m_vcClipByte, (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(z.m_iClipValue, 15u);
    EXPECT_TRUE(z.m_bClipOn);
    EXPECT_TRUE(z.m_bSectionOn);
    ASSERT_EQ(z.m_vSectionList.size(), 1u);
    EXPECT_EQ(z.m_vSectionList[0].m_iSectionItem, 16u);
    EXPECT_EQ(z.m_vSectionList[0].m_viSectionItem, (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(z.m_iFilterRef0, 17u);
    EXPECT_EQ(z.m_iFilterKind, 10013u);
    EXPECT_EQ(z.m_iFilterRef1, 18u);
    EXPECT_EQ(z.m_iGroupRef0, 19u);
    EXPECT_EQ(z.m_iGroupKind, 10015u);
    EXPECT_EQ(z.m_iGroupRef1, (std::array<uint32_t, 2>{20, 21}));
    EXPECT_EQ(z.m_strViewName, u"v");
    ASSERT_EQ(pz->m_vzGroup.size(), 1u);
    const KivViewGroup& zGroup = pz->m_vzGroup[0];
    EXPECT_TRUE(zGroup.m_bGroupFlag);
    EXPECT_EQ(zGroup.m_iGroupValue, 22u);
    ASSERT_EQ(zGroup.m_vMember.size(), 2u);
    EXPECT_EQ(zGroup.m_vMember[1].m_iMemberKind, 10015u);
    EXPECT_EQ(zGroup.m_vMember[1].m_iMember1, 4u);
    EXPECT_EQ(zGroup.m_iGroupValue2, 23u);
    EXPECT_EQ(zGroup.m_strGroupName, u"g");
    EXPECT_EQ(BuildRecord(*pz), Golden());
  }
}

TEST(Camera, OldRevisionsReadWithTheirDefaultsAndAreWrittenAsRevision4) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {3u, 2u, 1u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz)) << iFormat;
    const KivView& z = pz->m_vzView[0];
    EXPECT_EQ(z.m_bViewFlag1, iFormat < 2);
    ASSERT_EQ(z.m_vClip.size(), 1u);
    EXPECT_EQ(z.m_vClip[0].m_dClip[0][0], 1.0);
    EXPECT_EQ(z.m_vClip[0].m_bClipFlag, (std::array<bool, 2>{}));
    EXPECT_EQ(z.m_vClip[0].m_iClipData, (std::array<uint32_t, 2>{}));
    EXPECT_TRUE(z.m_vcClipByte.empty());
    EXPECT_EQ(z.m_iClipValue, 0u);
    EXPECT_EQ(z.m_bSectionOn, iFormat >= 3);
    EXPECT_EQ(z.m_strViewName, u"v");
    const Bytes vc = BuildRecord(*pz);
    EXPECT_EQ(vc.size(), 139u + 398 - 2 - (iFormat < 3 ? 20 : 0)) << iFormat;
    EXPECT_EQ(vc[8], 4);
    auto pzAgain = NewBlock<Block>();
    ASSERT_TRUE(ReadRecord(vc, *pzAgain));
    EXPECT_EQ(pzAgain->m_vzView[0].m_bViewFlag1, iFormat < 2);
    EXPECT_EQ(BuildRecord(*pzAgain), vc);
  }
}

TEST(Camera, AViewOfFormat1HasViewFlag1OneClipRecordAndNoSection) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(1), *pz));
  EXPECT_TRUE(pz->m_vzView[0].m_bViewFlag1);
  EXPECT_EQ(pz->m_vzView[0].m_vClip.size(), 1u);
  EXPECT_FALSE(pz->m_vzView[0].m_bSectionOn);
}

TEST(Camera, ClipOnFalseEmptiesTheClipListOnALoadAndOnlyThere) {
  auto pz = NewBlock<Block>();
  Bytes vc = Golden();
  ASSERT_EQ(vc[kClipOnAt], 1);
  vc[kClipOnAt] = 0;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzView[0].m_vClip.empty());
  EXPECT_TRUE(pz->m_vzView[0].m_vcClipByte.empty());
  EXPECT_EQ(pz->m_vzView[0].m_iClipValue, 15u);
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_vzView[0].m_bClipOn = false;
  EXPECT_EQ(BuildRecord(*pz), vc);
  EXPECT_EQ(pz->m_vzView[0].m_vClip.size(), 1u);
  // The one of an old record, too.
  vc = Golden(1);
  vc[kClipOnAt - 1 - 24] = 0;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_FALSE(pz->m_vzView[0].m_bClipOn);
  EXPECT_TRUE(pz->m_vzView[0].m_vClip.empty());
}

TEST(Camera, ASectionThatIsOnWithCount0IsTheSectionDetail) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(GoldenDetail(), *pz));
  const KivView& z = pz->m_vzView[0];
  EXPECT_TRUE(z.m_vSectionList.empty());
  EXPECT_EQ(z.m_dSection[0], 1.0);
  EXPECT_EQ(z.m_dSection[10], 2.0);
  EXPECT_EQ(z.m_iSectionValue, 32u);
  ASSERT_EQ(z.m_vSectionPart.size(), 1u);
  EXPECT_EQ(z.m_vSectionPart[0].m_iPartData, (std::array<uint64_t, 3>{33, 34, 35}));
  EXPECT_EQ(z.m_vSectionPart[0].m_iPartValue, 36u);
  ASSERT_EQ(z.m_vSectionPart[0].m_vSubPart.size(), 2u);
  EXPECT_EQ(z.m_vSectionPart[0].m_vSubPart[0].m_vSubPartPair.at(0), (std::array<uint64_t, 2>{39, 40}));
  EXPECT_EQ(z.m_vSectionPart[0].m_vSubPart[1].m_iSubPartData, (std::array<uint64_t, 2>{41, 42}));
  EXPECT_EQ(BuildRecord(*pz), GoldenDetail());
}

TEST(Camera, WithASectionListAndADetailInMemoryTheListIsWritten) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(GoldenDetail(), *pz));
  pz->m_vzView[0].m_vSectionList = {{16, {1, 2}}};
  EXPECT_EQ(BuildRecord(*pz), Golden());
  pz->m_vzView[0].m_bSectionOn = false;
  EXPECT_EQ(BuildRecord(*pz).size(), Golden().size() - 20);
}

TEST(Camera, AViewMeasures240AndItsNameAGroup37And12ForEachMemberAndItsName) {
  auto pz = NewBlock<Block>();
  pz->AddView();
  EXPECT_EQ(SizeOf(*pz), 68 + 4 + 240 + 1 + 4);
  pz->m_vzView[0].m_vClip.resize(2);
  EXPECT_EQ(SizeOf(*pz), 68 + 4 + 240 + 2 * 82 + 1 + 4);
  KivViewGroup& zGroup = pz->AddGroup();
  EXPECT_EQ(SizeOf(*pz), 68 + 4 + 240 + 2 * 82 + 1 + 4 + 37 + 1);
  zGroup.m_vMember.resize(3);
  zGroup.m_strGroupName = u"xy";
  EXPECT_EQ(SizeOf(*pz), 68 + 4 + 240 + 2 * 82 + 1 + 4 + 37 + 36 + 3);
}

TEST(Camera, AGroupWithParentKind10000HasNoParent) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_FALSE(pz->m_vzGroup[0].HasParent());
  Bytes vc = Golden();
  vc[72 + 398 + 4 + 12 + 5] = 0x1F;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzGroup[0].HasParent());
}

TEST(Camera, GapsInBothListsAreCountedThereAndNotInTheHeader) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(GoldenGaps(), *pz));
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 2u);
  ASSERT_EQ(pz->m_vzView.size(), 3u);
  EXPECT_TRUE(pz->m_vzView[0].m_zFrame.IsGap());
  EXPECT_EQ(pz->m_vzView[1].m_strViewName, u"v");
  ASSERT_EQ(pz->m_vzGroup.size(), 2u);
  EXPECT_EQ(BuildRecord(*pz), GoldenGaps());
}

TEST(Camera, AModeKindOrStateOutOfRangeFailsOnBothSides) {
  const auto Refused = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz) == 0;
  };
  EXPECT_FALSE(Refused([](Block&) {}));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iViewMode = 3; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iViewType = 3; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iPMIShowMode = 3; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iLayerShowMode = 3; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_vPMIShow[0].m_iKind = 10000; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_vPMIShow[0].m_iState = 3; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_vLayerShow[0].m_iState = 3; }));
  EXPECT_FALSE(Refused([](Block& z) { z.m_vzView[0].m_vLayerShow[0].m_iKind = 1; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iFilterKind = 10014; }));
  EXPECT_FALSE(Refused([](Block& z) { z.m_vzView[0].m_iFilterKind = 10000; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzView[0].m_iGroupKind = 10014; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzGroup[0].m_iParentKind = 10014; }));
  EXPECT_TRUE(Refused([](Block& z) { z.m_vzGroup[0].m_vMember[0].m_iMemberKind = 10013; }));
  // The same bytes in a record: modes, kinds and states of the view by their offsets, the parent of the group and its
  // members.
  for (const size_t iAt : {0u, 4u, 154u, 166u, 174u, 178u, 198u, 356u, 368u, 407u, 423u, 435u}) {
    Bytes vc = Golden();
    vc[kBody + iAt] = 0x30;
    auto pz = NewBlock<Block>();
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
  }
}

TEST(Camera, TheSizingAnswersItsCodesAndTestsNoBox) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 537);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 11; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 1; }), -80);
  EXPECT_EQ(With([](Block& z) { z.m_vzView[0].m_zFrame.m_iKind = 10015; }), 0);
  EXPECT_EQ(With([](Block& z) { z.m_vzGroup[0].m_zFrame.m_iKind = 10014; }), 0);
}

TEST(Camera, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  for (const uint32_t iFormat : {4u, 3u, 2u, 1u})
    ExpectDamageIsRefusedOrHarmless<Block>(Golden(iFormat), false, Golden(iFormat).size());
  ExpectDamageIsRefusedOrHarmless<Block>(GoldenDetail(), true, GoldenDetail().size());
  ExpectDamageIsRefusedOrHarmless<Block>(GoldenGaps(), false, GoldenGaps().size());
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
}

TEST(Camera, RandomBytesAreRefusedOrHarmless) {
  ExpectRandomBytesAreHarmless<Block>(Golden(), 72, 82);
  ExpectRandomBytesAreHarmless<Block>(GoldenDetail(), 72, 83);
}

namespace {

class CameraStore : public ElementStoreTest {
 protected:
  CameraStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(CameraStore, ItIsSavedAndHoldsNoKeysButItsLinks) {
  OpenEmpty();
  auto* pz = Put<KivCamera>(Golden(1));
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 12u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, std::vector<uint64_t>{10});
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(Stored(*pz)[8], 4);
  EXPECT_EQ(pz->GetDataSize(), 139u + 376);
}

TEST_F(CameraStore, AnOldRevisionSavedForItsKeysAloneIsHarmlessAndAWholeSaveMendsIt) {
  OpenEmpty();
  for (const uint32_t iFormat : {1u, 2u, 3u}) {
    const std::unique_ptr<Block> pz = SavedForKeysAloneThenWhole<KivCamera, Block>(Golden(iFormat), 4);
    ASSERT_NE(pz, nullptr);
    EXPECT_EQ(pz->m_vzView[0].m_strViewName, u"v");
    EXPECT_EQ(pz->m_vzGroup[0].m_strGroupName, u"g");
  }
}

// --- Lookups --------------------------------------------------------------------------------------------------------

TEST(ViewLookup, AnIndexOutsideTheTableIsOnInMode1OffInMode2AndTheDefaultOtherwise) {
  KivViewLookup z;
  for (const uint32_t iMode : {0u, 1u, 2u}) {
    z.Build(iMode, {{3, 10007, 9, 2}});
    for (const bool bDefault : {false, true}) {
      EXPECT_EQ(z.Query(bDefault, 2, 9), iMode == 1 || (iMode == 0 && bDefault));
      EXPECT_EQ(z.Query(bDefault, 0xFFFFFFFF, 9), iMode == 1 || (iMode == 0 && bDefault));
      // An entry of the table does not know the mode.
      EXPECT_FALSE(z.Query(bDefault, 3, 9));
      EXPECT_EQ(z.Query(bDefault, 3, 8), bDefault && true);
    }
  }
}

TEST(ViewLookup, EachEntryOfTheTableHasAMemoOfItsOwn) {
  KivViewLookup z;
  z.Build(0, {{0, 10007, 5, 2}, {1, 10007, 5, 1}, {1, 10007, 6, 0}});
  ASSERT_TRUE(z.GetEntry(0) != nullptr && z.GetEntry(1) != nullptr);
  EXPECT_EQ(z.GetEntry(2), nullptr);
  for (int i = 0; i < 2; ++i) {  // one by the other: each is looked up once
    EXPECT_FALSE(z.Query(true, 0, 5));
    EXPECT_TRUE(z.Query(true, 1, 5));
    EXPECT_EQ(z.GetEntry(0)->GetFindNum(), 1u);
    EXPECT_EQ(z.GetEntry(1)->GetFindNum(), 1u);
  }
  EXPECT_TRUE(z.Query(false, 1, 5));
  EXPECT_FALSE(z.Query(false, 0, 5));
  EXPECT_FALSE(z.Query(false, 1, 6));  // state 0 lists nothing
  EXPECT_TRUE(z.Query(true, 1, 6));
}

TEST(ViewLookup, AViewGivesOneForItsPmiAndOneForItsLayers) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  KivViewDisplay z(pz->m_vzView[0]);
  EXPECT_FALSE(z.m_zPMI.Query(true, 3, 9));
  EXPECT_TRUE(z.m_zPMI.Query(false, 4, 9));  // mode 1
  EXPECT_TRUE(z.m_zLayer.Query(false, 4, 10));
  EXPECT_FALSE(z.m_zLayer.Query(true, 3, 10));  // mode 2
}
