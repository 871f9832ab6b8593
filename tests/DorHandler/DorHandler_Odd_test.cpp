// Models that are not as an import makes them: damaged, without areas, with records that several parts share.
#include <map>
#include <random>

#include "DorHandlerTest.h"
#include "KivBrepData.h"
#include "KivSysFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

using HandlerOdd = HandlerTest;
using Doubles = std::vector<double>;
using Code_ = DorAnswerCode;

// Ends a tree of meshes at an element that does not exist.
void Break(KivMemoryBlockFaceEdge& zMesh, uint64_t iKey) {
  zMesh.m_zHeader.m_aiLink[1] = iKey + 100'000;
}

}  // namespace

// --- Damage ---------------------------------------------------------------------------------------------------------

TEST_F(HandlerOdd, RecordsThatCannotBeReadAreDamageWhereTheyAreNeededAndNowhereElse) {
  const uint64_t iMesh = MeshKey(1, 1);
  Edit<KivFaceEdgeData>(iMesh, [&](auto& zMesh) { Break(zMesh, iMesh); });
  for (const char* szRequest : {"GetFaceInfo", "IsPlanarFace", "DelFaceInfo"})
    EXPECT_EQ(Code(szRequest, {"1", "1"}), Code_::Damaged) << szRequest;
  EXPECT_EQ(Code("CalcDistFaceFace", {"0", "1", "2", "1", "0", "0,0,0"}), Code_::Damaged);
  EXPECT_EQ(Code("GetAsmInfo", {"3"}), Code_::Damaged);
  EXPECT_EQ(Code("GetFaceInfo", {"0", "1"}), Code_::Done);
  EXPECT_EQ(Code("SetAsmInfo", {"3", "still there"}), Code_::Done);
}

// The store reports such a record; who asked is told what it means.
TEST_F(HandlerOdd, ARecordOfTheFileThatIsDamagedHasItsCodeAndASentence) {
  const uint64_t iRecord = KivGetAssemblyTree(Key())->GetPosition();
  std::string strModel = m_zFolder.ReadBytes(u"machine.kiv");
  ASSERT_GT(iRecord, 264u);
  ASSERT_LT(iRecord + 100, strModel.size());
  for (size_t i = 40; i < 100; ++i) strModel[iRecord + i] = '\xEE';
  m_zFolder.WriteBytes(u"damaged.kiv", strModel);
  ASSERT_EQ(Read(m_zFolder / u"damaged.kiv"), 0) << "the tree is not needed for it";
  for (const auto& [szRequest, vstrWords] :
       std::map<const char*, std::vector<std::string>>{{"GetAsmTreeInfo", {}},
                                                       {"GetAsmInfo", {"1"}},
                                                       {"SetAsmInfo", {"1", "x"}},
                                                       {"DelFaceInfo", {"0", "1"}},
                                                       {"SetInstPathPartMatrix", MatrixWords("1", Shift(1, 2, 3))}}) {
    EXPECT_EQ(Code(szRequest, vstrWords), Code_::Damaged) << szRequest;
    EXPECT_EQ(Reason(szRequest, vstrWords), "a record of the model cannot be read") << szRequest;
  }
  EXPECT_EQ(Code("GetFaceInfo", {"0", "1"}), Code_::Done);
}

TEST_F(HandlerOdd, AModelWithFlippedBitsHasAStatusAndACodeForEachRequest) {
  const std::string strModel = m_zFolder.ReadBytes(u"machine.kiv");
  const std::string strOut = Utf8(m_zFolder / u"out.kiv");
  const std::vector<std::pair<const char*, std::vector<std::string>>> vRequest{
      {"GetAsmTreeInfo", {}},
      {"GetAsmInfo", {"1"}},
      {"GetFaceInfo", {"0", "2"}},
      {"GetEdgeInfo", {"0", "1"}},
      {"IsPlanarFace", {"1", "2"}},
      {"CalcDistFaceFace", {"0", "1", "2", "1", "0", "0,0,0"}},
      {"SnapShot", {}},
      {"SetInstPathPartMatrix", MatrixWords("3", Shift(1, 2, 3))},
      {"SetAsmInfo", {"2", "x"}},
      {"SetFaceInfo", {"0", "1", "0", "1", "0", "1"}},
      {"DelFaceInfo", {"1", "1"}},
      {"Undo", {"2"}},
      {"Redo", {"1"}},
      {"WriteDor", {strOut, "1", "1", "0", "0"}}};
  std::vector<size_t> viByte;  // most of the file is zeros behind its tables
  for (size_t i = 0; i < strModel.size(); ++i)
    if (strModel[i] != 0) viByte.push_back(i);
  size_t nOpened = 0, nRefused = 0;  // by a model that opened
  for (uint32_t iSeed = 1; iSeed <= 30; ++iSeed) {
    SCOPED_TRACE(iSeed);
    std::mt19937 zRandom(iSeed);
    std::string strFlipped = strModel;
    for (uint32_t i = 0; i < 1u << iSeed % 6; ++i) {
      const size_t iByte = viByte[zRandom() % viByte.size()];
      strFlipped[iByte] = static_cast<char>(strFlipped[iByte] ^ (1 << zRandom() % 8));
    }
    const KivWString csPath = m_zFolder / (u"flipped" + sys::Utf8ToWide(std::to_string(iSeed)));
    m_zFolder.WriteBytes(u"flipped" + sys::Utf8ToWide(std::to_string(iSeed)), strFlipped);
    const int32_t iStatus = Read(csPath);
    EXPECT_TRUE(iStatus == 0 || iStatus == 20 || iStatus == 30) << iStatus;
    nOpened += iStatus == 0;
    for (const auto& [szRequest, vstrWords] : vRequest) {
      const int64_t iCode = Ask(szRequest, vstrWords).m_iCode;
      EXPECT_STRNE(DorAnswerCodeText(iCode), "unknown code") << szRequest;
      EXPECT_EQ(iCode == static_cast<int64_t>(Code_::NoModel), iStatus != 0) << szRequest;
      nRefused += iStatus == 0 && iCode != 0;
    }
  }
  EXPECT_GT(nOpened, 0u);
  EXPECT_GT(nRefused, 0u);
  EXPECT_EQ(Read(Model()), 0);
  EXPECT_EQ(Code("GetAsmTreeInfo"), Code_::Done);
}

TEST_F(HandlerOdd, AFileThatCannotBeReadBackIsNotPutInItsPlace) {
  const uint64_t iMesh = MeshKey(1, 1);
  Edit<KivFaceEdgeData>(iMesh, [&](auto& zMesh) { Break(zMesh, iMesh); });
  m_zFolder.WriteBytes(u"there.kiv", "something else");
  const std::string strThere = Utf8(m_zFolder / u"there.kiv");
  const DorDecodedAnswer z = Ask("WriteDor", {strThere, "1", "1", "0", "0"});
  EXPECT_EQ(static_cast<Code_>(z.m_iCode), Code_::CannotWrite);
  EXPECT_EQ(Utf8(z.m_csReason), "the file that was written could not be read back");
  EXPECT_EQ(m_zFolder.ReadBytes(u"there.kiv"), "something else");
  EXPECT_EQ(Code("WriteDor", {strThere, "1", "0", "0", "0"}), Code_::Done) << "nobody asked for a look";
}

// --- Meshes without areas -------------------------------------------------------------------------------------------

TEST_F(HandlerOdd, AFaceWithoutAnAreaHasADistanceButNoPlane) {
  for (size_t iLevel = 0; iLevel < 2; ++iLevel)
    Edit<KivFaceEdgeData>(MeshKey(1, iLevel), [](auto& zMesh) {
      for (float& f : zMesh.m_vzFace[1].m_vfVertex) f = 0;
    });
  EXPECT_EQ(Code("IsPlanarFace", {"1", "2"}), Code_::NoMesh);
  EXPECT_NEAR(Floats(Ask("CalcDistFaceFace", {"0", "1", "1", "2", "0", "0,0,0"}).m_vzValue, "distance").at(0), 5, 0.05);
}

// --- Models that cannot be changed ----------------------------------------------------------------------------------

TEST_F(HandlerOdd, ElementsThatReferToEachOtherByPositionAreLookedAtOnly) {
  KivModelNote* pzNote = KivGetModelNote(Key());
  const uint64_t iNote = KivGetModel(Key())->GetMemoryBlock()->m_zHeader.m_aiLink[2];
  ASSERT_NE(pzNote, nullptr);
  const uint64_t iPosition = KivGetAssemblyTree(Key())->GetPosition();
  Edit<KivModelNote>(iNote, [&](auto& zNote) { zNote.m_iAssemblyKey = iPosition; });
  const KivByteBuffer vcBefore = State();
  EXPECT_EQ(Code("SetAsmInfo", {"3", "x"}), Code_::NotEditable);
  EXPECT_EQ(Code("SetInstPathPartMatrix", MatrixWords("3", Shift(1, 2, 3))), Code_::NotEditable);
  EXPECT_EQ(State(), vcBefore);
  EXPECT_EQ(Code("GetAsmInfo", {"3"}), Code_::Done);
}

// --- Records that are shared ----------------------------------------------------------------------------------------

// Bolt B gets no exact geometry: another part then, of the same meshes.
TEST_F(HandlerOdd, PartsThatShareMeshesChangeTogether) {
  Edit<KivInstance>(InstanceKey(), [](auto& zInstances) { zInstances.m_vzInstance[2].m_iBrepKey = 0; });
  ReadAgain();
  ASSERT_EQ(Int(Ask("GetAsmTreeInfo").m_vzValue, "parts"), 3);
  EXPECT_EQ(Int(Ask("SetFaceInfo", {"1", "1", "0", "1", "0", "1"}).m_vzValue, "instances"), 2);
  EXPECT_EQ(List(Ask("GetFaceInfo", {"2", "1"}).m_vzValue, "colour").size(), 1u);
  EXPECT_EQ(Int(Ask("DelFaceInfo", {"2", "1"}).m_vzValue, "instances"), 2);
  EXPECT_EQ(Code("GetFaceInfo", {"1", "1"}), Code_::UnknownFace);
  EXPECT_EQ(Box(Ask("GetAsmInfo", {"3"}).m_vzValue), (Doubles{1, 1, 5, 3, 3, 5}));
  EXPECT_EQ(Box(Ask("GetAsmInfo", {"4"}).m_vzValue), (Doubles{7, 7, 5, 9, 9, 5}));
  EXPECT_EQ(Box(Ask("GetAsmTreeInfo").m_vzValue), (Doubles{0, 0, -1, 10, 10, 5}));
}

// The bolts show the plate's coarse mesh beside their own.
TEST_F(HandlerOdd, AnIdThatStandsInTwoElementsOfALevelGoesFromBoth) {
  const uint64_t iPlate = MeshKey(0, 0);
  Edit<KivInstance>(InstanceKey(), [&](auto& zInstances) {
    for (const size_t i : {1u, 2u}) zInstances.m_vzInstance[i].m_vzLevel[0].m_iCommonKey = iPlate;
  });
  ReadAgain();
  EXPECT_EQ(Int(Ask("DelFaceInfo", {"1", "1"}).m_vzValue, "instances"), 3);
  EXPECT_EQ(Code("GetFaceInfo", {"1", "1"}), Code_::UnknownFace);
  const DorDecodedAnswer z = Ask("GetFaceInfo", {"0", "1"});
  ASSERT_EQ(z.m_iCode, 0) << "the plate has it in the level that is its own";
  EXPECT_EQ(List(z.m_vzValue, "levels").size(), 1u);
  EXPECT_EQ(List(z.m_vzValue, "analytic").size(), 1u);
}

// The plate gets the bolts' exact geometry, a single string for face 1.
TEST_F(HandlerOdd, GeometryStaysUntilTheLastMeshThatNamesItLosesItsFace) {
  const auto BrepKey = [](size_t iInstance) {
    auto* pz = KivOutOfCoreHandle(Key(), InstanceKey()).Fetch<KivInstance>();
    return pz->GetMemoryBlock()->m_vzInstance[iInstance].m_iBrepKey;
  };
  const auto CountStrings = [&] {
    return KivOutOfCoreHandle(Key(), BrepKey(1)).Fetch<KivBrepData>()->GetMemoryBlock()->m_vzGeometry.size();
  };
  const uint64_t iBolt = BrepKey(1);
  Edit<KivInstance>(InstanceKey(), [&](auto& zInstances) { zInstances.m_vzInstance[0].m_iBrepKey = iBolt; });
  ReadAgain();
  ASSERT_EQ(CountStrings(), 1u);
  EXPECT_EQ(Int(Ask("DelFaceInfo", {"1", "1"}).m_vzValue, "instances"), 2);
  EXPECT_EQ(Code("GetFaceInfo", {"1", "1"}), Code_::UnknownFace);
  EXPECT_EQ(CountStrings(), 1u);
  EXPECT_EQ(List(Ask("GetFaceInfo", {"0", "1"}).m_vzValue, "analytic").size(), 1u);
  EXPECT_EQ(Int(Ask("DelFaceInfo", {"0", "1"}).m_vzValue, "instances"), 1);
  EXPECT_EQ(CountStrings(), 0u);
}

TEST_F(HandlerOdd, TwoEntriesOfOneIdInAnElementGoTogether) {
  for (size_t iLevel = 0; iLevel < 2; ++iLevel)
    Edit<KivFaceEdgeData>(MeshKey(1, iLevel), [](auto& zMesh) { zMesh.m_vzFace[1].m_iId = 1; });
  EXPECT_EQ(Code("SetFaceInfo", {"1", "1", "0", "1", "0", "1"}), Code_::Done);
  EXPECT_EQ(Code("DelFaceInfo", {"1", "1"}), Code_::Done);
  EXPECT_EQ(Code("GetFaceInfo", {"1", "1"}), Code_::UnknownFace);
  EXPECT_TRUE(Box(Ask("GetAsmInfo", {"3"}).m_vzValue).empty());
}

TEST_F(HandlerOdd, WhatStaysOfAnElementKeepsItsOrder) {
  constexpr uint32_t kEntries = 1000;
  for (size_t iLevel = 0; iLevel < 2; ++iLevel)
    Edit<KivFaceEdgeData>(MeshKey(1, iLevel), [](auto& zMesh) {
      const KivMeshFace zFace = zMesh.m_vzFace[0];
      while (zMesh.m_vzFace.size() < kEntries) zMesh.AddFace() = zFace;
      zMesh.m_zHeader.m_iEntryCount = kEntries;
      for (uint32_t i = 0; i < kEntries; ++i) zMesh.m_vzFace[i].m_iId = i % 3 == 1 ? 10 + i : 1;
    });
  ReadAgain();
  EXPECT_EQ(Code("DelFaceInfo", {"1", "1"}), Code_::Done);
  const auto& zBlock = *KivOutOfCoreHandle(Key(), MeshKey(1, 1)).Fetch<KivFaceEdgeData>()->GetMemoryBlock();
  ASSERT_EQ(zBlock.m_vzFace.size(), kEntries / 3);
  EXPECT_EQ(zBlock.m_zHeader.m_iEntryCount, kEntries / 3);
  for (uint32_t i = 0; i < kEntries / 3; ++i) ASSERT_EQ(zBlock.m_vzFace[i].m_iId, 11 + 3 * i);
}

// --- Structures -----------------------------------------------------------------------------------------------------

// The root keeps the plate; below it an element without instances leads to the one of the bolts.
TEST_F(HandlerOdd, BoxesCoverWhatStandsBelowAnElementWithoutInstances) {
  const uint64_t iRoot = InstanceKey();
  const KivMemoryBlockInstance zAll = *KivOutOfCoreHandle(Key(), iRoot).Fetch<KivInstance>()->GetMemoryBlock();
  const auto Store = [&](uint64_t iChild, size_t nDropped, size_t nLeft) {
    auto pz = std::make_unique<KivInstance>(Key());
    KivMemoryBlockInstance* pzBlock = pz->GetMemoryBlockForWrite();
    *pzBlock = zAll;
    for (size_t i = 0; i < nLeft; ++i) std::swap(pzBlock->m_vzInstance[i], pzBlock->m_vzInstance[i + nDropped]);
    pzBlock->m_vzInstance.Cut(nLeft);
    pzBlock->m_zHeader.m_iEntryCount = static_cast<uint32_t>(nLeft);
    pzBlock->m_zHeader.m_aiLink = {iRoot, iChild, 0};
    pzBlock->m_zHeader.m_afBoxMin = nLeft == 0 ? std::array<float, 3>{} : std::array<float, 3>{1, 1, 5};
    pzBlock->m_zHeader.m_afBoxMax = nLeft == 0 ? std::array<float, 3>{} : std::array<float, 3>{9, 9, 9};
    return KivStoreNewElement(std::move(pz)).GetPosition();
  };
  const uint64_t iEmpty = Store(Store(0, 1, 2), 0, 0);
  Edit<KivInstance>(iRoot, [&](auto& zBlock) {
    zBlock.m_vzInstance.Cut(1);
    zBlock.m_zHeader.m_iEntryCount = 1;
    zBlock.m_zHeader.m_aiLink[1] = iEmpty;
  });
  ReadAgain();
  ASSERT_EQ(Int(Ask("GetAsmTreeInfo").m_vzValue, "instances"), 3);
  EXPECT_EQ(Code("SetInstPathPartMatrix", MatrixWords("1", Shift(-5, 0, 0))), Code_::Done);
  const auto& zHeader = KivGetModel(Key())->GetMemoryBlock()->m_zHeader;
  EXPECT_EQ(zHeader.m_afBoxMin, (std::array<float, 3>{-5, 0, -1}));
  EXPECT_EQ(zHeader.m_afBoxMax, (std::array<float, 3>{9, 10, 9})) << "the bolts stand where they stood";
}

TEST_F(HandlerOdd, ALongChainOfNodesMovesAsAWhole) {
  constexpr size_t kNodes = 3000;
  KivModelBuilder zBuilder;
  const size_t iPart = zBuilder.AddPart();
  zBuilder.FaceEdge(iPart, 0).m_fStep = 1.0f / 64;
  AddMachineFace(zBuilder.FaceEdge(iPart, 0), 1, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2});
  KivEMatrix4 zStep;
  zStep.Translate({1, 0, 0});
  for (size_t i = 0; i < kNodes; ++i) {
    const size_t iNode = zBuilder.AddNode(u"link", i == 0 ? KivModelBuilder::kNoNode : i - 1);
    if (i != 0) zBuilder.Node(iNode).m_zMatrix = zStep;
    KivEMatrix4 zAbsolute;
    zAbsolute.Translate({static_cast<double>(i), 0, 0});
    zBuilder.PlaceInstance(iPart, zAbsolute, iNode);
  }
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"chain.kiv"));
  ASSERT_EQ(Read(m_zFolder / u"chain.kiv"), 0);
  const DorDecodedAnswer z = Ask("SetInstPathPartMatrix", MatrixWords("1000", Shift(1, 7, 0)));
  EXPECT_EQ(Int(z.m_vzValue, "instances"), 2000);
  EXPECT_EQ(Floats(Ask("GetAsmInfo", {"2999"}).m_vzValue, "absolute"), Shift(2999, 7, 0));
  EXPECT_EQ(Box(Ask("GetAsmInfo", {"999"}).m_vzValue), (Doubles{999, 0, 0, 3000, 8, 0}));
  EXPECT_EQ(Box(Ask("GetAsmInfo", {"0"}).m_vzValue), (Doubles{0, 0, 0, 3000, 8, 0}));
  const DorDecodedAnswer zMoved = Ask("GetAsmInfo", {"1000"});
  ASSERT_EQ(List(zMoved.m_vzValue, "places").size(), 1u);
  EXPECT_EQ(Box(List(zMoved.m_vzValue, "places")[0]), (Doubles{1000, 7, 0, 1001, 8, 0}));
}
