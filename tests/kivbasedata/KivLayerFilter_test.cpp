#include "KivLayerFilter.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "KivElementClasses.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockLayerFilter;
using Form = KivLayerFilterLookup::Form;

// The box's low corner lies above its high one; nothing tests it here.
const std::string kHeader =
    "0B000000 02000000 01000000 44000000"
    "0A00000000000000 0000000000000000 0000000000000000"
    "0000803F 0000803F 0000803F  00000000 00000000 00000000  01000000";

Bytes Golden() {
  return FromHex(kHeader + HexFrame(68, 10013, 36) + "02000000 05000000 01 07000000 00  2A000000  02000000 4100" +
                 HexFrame(104, 10000, 12) + HexFrame(116, 10013, 25) + "00000000 00000000 01000000 00");
}

KivLayerFilterEntry Filter(const std::vector<uint32_t>& viOn, const std::vector<uint32_t>& viOff) {
  KivLayerFilterEntry z;
  for (const uint32_t i : viOn) z.m_vzLayer.push_back({i, true});
  for (const uint32_t i : viOff) z.m_vzLayer.push_back({i, false});
  return z;
}

}  // namespace

TEST(LayerFilter, ARecordReadsAsItIs) {
  auto pz = NewBlock<Block>();
  for (const bool bVer19 : {false, true}) {  // the header of this type always has m_iFormat
    ASSERT_TRUE(ReadRecord(Golden(), *pz, bVer19));
    ASSERT_EQ(pz->m_vzFilter.size(), 3u);
    const KivLayerFilterEntry& z = pz->m_vzFilter[0];
    ASSERT_EQ(z.m_vzLayer.size(), 2u);
    EXPECT_EQ(z.m_vzLayer[0].m_iLayer, 5u);
    EXPECT_TRUE(z.m_vzLayer[0].m_bOn);
    EXPECT_EQ(z.m_vzLayer[1].m_iLayer, 7u);
    EXPECT_FALSE(z.m_vzLayer[1].m_bOn);
    EXPECT_EQ(z.m_iFilterValue, 42u);
    EXPECT_EQ(z.m_strFilterName, u"A");
    EXPECT_TRUE(pz->m_vzFilter[1].m_zFrame.IsGap());
    EXPECT_TRUE(pz->m_vzFilter[2].m_vzLayer.empty());
    EXPECT_EQ(BuildRecord(*pz), Golden());
  }
}

TEST(LayerFilter, OnIsReadFromAnyByteBut0AndWrittenAs1) {
  Bytes vc = Golden();
  vc[68 + 20] = 0x80;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzFilter[0].m_vzLayer[0].m_bOn);
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(LayerFilter, AnEntryMeasures24And5ForEachLayerAndItsName) {
  auto pz = NewBlock<Block>();
  KivLayerFilterEntry& z = pz->AddFilter();
  EXPECT_EQ(SizeOf(*pz), 68 + 24 + 1);
  z.m_vzLayer.resize(7);
  z.m_strFilterName = u"abc";
  EXPECT_EQ(SizeOf(*pz), 68 + 24 + 35 + 4);
}

TEST(LayerFilter, ARecordBelow68BytesIsRefusedInAnyStore) {
  auto pz = NewBlock<Block>();
  Bytes vc = FromHex(kHeader);
  vc[4] = 0;
  EXPECT_TRUE(ReadRecord(vc, *pz, true));
  vc.resize(67);
  EXPECT_FALSE(ReadRecord(vc, *pz, true));
  EXPECT_FALSE(ReadRecord(vc, *pz, false));
}

TEST(LayerFilter, TheSizingAnswersItsCodesAndTestsNoBox) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 141);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 12; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 3; }), -80);
  EXPECT_EQ(With([](Block& z) { z.m_vzFilter[0].m_zFrame.m_iKind = 10014; }), 0);
}

TEST(LayerFilter, ABadHeaderOrFrameRefusesTheRecord) {
  auto pz = NewBlock<Block>();
  for (const size_t iAt : {0u, 64u, 68u, 72u, 80u}) {
    Bytes vc = Golden();
    vc[iAt] = 0x70;
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
  }
}

TEST(LayerFilter, EveryCutAndEveryDamagedByteIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), true, Golden().size());
  ExpectRandomBytesAreHarmless<Block>(Golden(), 68, 81);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
}

namespace {

class LayerFilterStore : public ElementStoreTest {
 protected:
  LayerFilterStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(LayerFilterStore, ItIsSavedAndListsItsLinks) {
  OpenEmpty();
  auto* pz = Put<KivLayerFilter>(Golden());
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 11u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, std::vector<uint64_t>{10});
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(Stored(*pz), Golden());
}

// --- Lookup ---------------------------------------------------------------------------------------------------------

TEST(LayerFilterLookup, AFilterWithOneLayerOff) {
  const KivLayerFilterEntry zFilter = Filter({}, {12});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  EXPECT_FALSE(z.Query(true, 12));
  EXPECT_TRUE(z.Query(true, 13));
  EXPECT_FALSE(z.Query(false, 12));  // the list of layers on is empty
  EXPECT_EQ(z.GetForm(false), Form::List);
  EXPECT_EQ(z.GetForm(true), Form::Empty);
}

TEST(LayerFilterLookup, Layers1To4OnUseABitSetOf5Bits) {
  const KivLayerFilterEntry zFilter = Filter({1, 2, 3, 4}, {});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  EXPECT_EQ(z.GetForm(true), Form::Bits);
  EXPECT_EQ(z.GetBitNum(true), 5u);
  EXPECT_FALSE(z.Query(false, 100));
  EXPECT_FALSE(z.Query(false, 0));
  EXPECT_TRUE(z.Query(false, 4));
  EXPECT_FALSE(z.Query(false, 5));
  EXPECT_TRUE(z.Query(true, 4));
}

TEST(LayerFilterLookup, ThreeMembersAreAListFourABitSetUpTo256AndASetAboveIt) {
  const auto FormOf = [](const std::vector<uint32_t>& viLayer) {
    const KivLayerFilterEntry zFilter = Filter({}, viLayer);
    KivLayerFilterLookup z;
    z.Build(&zFilter);
    return z.GetForm(false);
  };
  EXPECT_EQ(FormOf({1, 2, 0xFFFFFFFF}), Form::List);
  EXPECT_EQ(FormOf({1, 2, 3, 256}), Form::Bits);
  EXPECT_EQ(FormOf({1, 2, 3, 257}), Form::Set);
  EXPECT_EQ(FormOf({1, 2, 3, 1000}), Form::Set);
  EXPECT_EQ(FormOf({5, 5, 5, 5}), Form::Bits);  // records are counted, not layers
}

TEST(LayerFilterLookup, ANullEntryGivesTwoEmptyLists) {
  const KivLayerFilterEntry zFilter = Filter({1, 2, 3, 4}, {0, 9});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  EXPECT_FALSE(z.Query(true, 0));
  z.Build(nullptr);
  EXPECT_EQ(z.GetForm(true), Form::Empty);
  EXPECT_EQ(z.GetForm(false), Form::Empty);
  EXPECT_TRUE(z.Query(true, 0));
  EXPECT_TRUE(z.Query(true, 9));
  EXPECT_FALSE(z.Query(false, 1));
}

TEST(LayerFilterLookup, TheMemoOfANewLookupKnowsLayer0) {
  const KivLayerFilterEntry zFilter = Filter({}, {0});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  EXPECT_FALSE(z.Query(true, 0));  // the memo's own question
}

TEST(LayerFilterLookup, TheSecondOfTwoEqualQueriesIsNotLookedUpAndTheDefaultIsPartOfTheMemo) {
  const KivLayerFilterEntry zFilter = Filter({7}, {7, 8});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  const struct {
    bool m_bDefaultOn;
    uint32_t m_iLayer;
    bool m_bAnswer;
  } azQuery[] = {{true, 7, false}, {false, 7, true}, {true, 8, false}, {false, 8, false}, {true, 7, false}};
  uint64_t nFinds = 0;
  for (const auto& zQuery : azQuery) {
    ++nFinds;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(z.Query(zQuery.m_bDefaultOn, zQuery.m_iLayer), zQuery.m_bAnswer);
      EXPECT_EQ(z.GetFindNum(), nFinds);
    }
  }
}

TEST(LayerFilterLookup, BuildMakesTheMemoOfLayer0WithTheDefaultOn) {
  const KivLayerFilterEntry zFilter = Filter({}, {0});
  KivLayerFilterLookup z;
  z.Build(&zFilter);
  EXPECT_FALSE(z.Query(true, 0));
  EXPECT_EQ(z.GetFindNum(), 0u);
  EXPECT_FALSE(z.Query(false, 0));
  EXPECT_EQ(z.GetFindNum(), 1u);
  z.Build(nullptr);
  EXPECT_TRUE(z.Query(true, 0));
  EXPECT_EQ(z.GetFindNum(), 0u);
}

TEST(LayerFilterLookup, AllFormsAnswerLikeAMap) {
  TestRandom zRandom(99);
  for (int n = 0; n < 400; ++n) {
    std::vector<uint32_t> aviLayer[2];
    std::map<uint32_t, bool> amapHas[2];
    const uint32_t nRange = n % 2 == 0 ? 300 : 2000;
    for (int k = 0; k < 2; ++k) {
      const uint32_t nLayers = zRandom.Below(n % 3 == 0 ? 4 : 40);
      for (uint32_t i = 0; i < nLayers; ++i) {
        aviLayer[k].push_back(zRandom.Below(nRange));
        amapHas[k][aviLayer[k].back()] = true;
      }
    }
    const KivLayerFilterEntry zFilter = Filter(aviLayer[0], aviLayer[1]);
    KivLayerFilterLookup z;
    z.Build(&zFilter);
    for (int i = 0; i < 200; ++i) {
      const uint32_t iLayer = zRandom.Below(nRange + 10);
      const bool bDefault = zRandom.Below(2) == 0;
      ASSERT_EQ(z.Query(bDefault, iLayer), bDefault ? amapHas[1].count(iLayer) == 0 : amapHas[0].count(iLayer) > 0)
          << "round " << n << ", layer " << iLayer;
    }
  }
}
