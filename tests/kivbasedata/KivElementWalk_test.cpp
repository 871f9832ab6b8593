// Whole models of each revision, made by hand, from the root on. What the builder makes is walked in its own tests.
#include "KivElementWalk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "KivContainerHeader.h"
#include "KivElementClasses.h"
#include "KivPermanentIdTable.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

enum At : size_t {
  Model,
  Note,
  Tree,
  Ids,
  Pmi,
  Filter,
  Camera,
  Root,
  Child,
  Faces,
  Polys,
  Common,
  Brep,
  Points,
  AtNum
};

std::string HexU64(uint64_t i) {
  return HexU32(static_cast<uint32_t>(i)) + HexU32(static_cast<uint32_t>(i >> 32));
}

// A model in records of one revision, or of the newest one that their type has; 0 is generation 19. The records refer
// to each other by their positions.
struct OldModel {
  std::string Header(uint32_t iTag, uint32_t nEntries, uint32_t iNewest, uint32_t iDataOffset, uint64_t iParent,
                     uint64_t iLeft = 0, uint64_t iRight = 0) const {
    const std::string strFormat =
        m_iRevision == 0 ? HexU32(iDataOffset - 4) : HexU32(std::min(m_iRevision, iNewest)) + HexU32(iDataOffset);
    return HexU32(iTag) + HexU32(nEntries) + strFormat + HexU64(iParent) + HexU64(iLeft) + HexU64(iRight) +
           "00000000 00000000 00000000  0000803F 0000803F 0000803F  00000000";
  }
  // Of what stands behind the header in all revisions.
  uint32_t Behind(uint32_t iOffset) const { return m_iRevision == 0 ? iOffset - 4 : iOffset; }
  std::string From(uint32_t iRevision, const std::string& str) const { return m_iRevision >= iRevision ? str : ""; }
  std::string KeyFrom(uint32_t iRevision, At iAt) const { return From(iRevision, HexU64(m_viAt[iAt])); }

  std::string NoteRecord() const {
    const std::string strIntegers = "01000000 01000000 01000000 01000000 01000000 01000000 0A000000 00000000";
    const std::string strDoubles =
        "000000000000F0BF 0000000000001040 0000000000002440 0000000000002440 8DEDB5A0F7C6B03E 000000000000F03F"
        "0000000000000000";
    return Header(4, 0, 1, 68, m_viAt[Model]) + HexZeros(14) + "68000000" + strIntegers + strDoubles +
           HexU64(m_viAt[Tree]) + HexU64(m_viAt[Ids]);
  }
  std::string TreeRecord() const {
    const std::string strBody = HexZeros(16) + HexU64(m_viAt[Pmi]) + KeyFrom(4, Filter) + KeyFrom(4, Camera) +
                                HexZeros(16) + "01" + HexZeros(24) + HexZeros(4) + From(2, HexU32(0)) + HexZeros(24) +
                                From(5, HexZeros(8)) + "00000000  03000000 616200 0100000000 0100000000" + HexZeros(14);
    const uint32_t nSize = 140 + (m_iRevision >= 2 ? 4 : 0) + (m_iRevision >= 4 ? 16 : 0) + (m_iRevision >= 5 ? 8 : 0);
    return Header(6, 1, 5, 68, m_viAt[Note]) + From(3, HexU32(1)) +
           HexFrame(Behind(68) + (m_iRevision >= 3 ? 4 : 0), 10006, nSize) + strBody;
  }
  std::string InstanceRecord() const {
    const std::string strLevel =
        HexU64(m_viAt[Faces]) + KeyFrom(3, Common) + HexU64(m_viAt[Polys]) + "00000000 11270000" + HexZeros(14);
    const std::string strBody = HexZeros(16) + "01000000" + strLevel + HexU64(m_viAt[Brep]) + KeyFrom(4, Points) +
                                From(4, HexZeros(8)) + From(5, HexZeros(8)) + HexZeros(4) + HexZeros(128) +
                                From(3, HexZeros(24)) + HexZeros(14);
    const uint32_t nSize = 224 + (m_iRevision >= 3 ? 32 : 0) + (m_iRevision >= 4 ? 16 : 0) + (m_iRevision >= 5 ? 8 : 0);
    return Header(2, 1, 5, 80, m_viAt[Model], m_viAt[Child]) + "00000000  01000000 0AD7233C" + From(2, HexU32(1)) +
           HexFrame(Behind(80) + (m_iRevision >= 2 ? 4 : 0), 10003, nSize) + strBody;
  }
  std::string MeshRecord(uint32_t iTag) const {
    return Header(iTag, 0, 2, 100, 0) + "04000000" + HexZeros(12) + "0000803F" + HexZeros(12);
  }
  std::vector<Bytes> Records() const {
    std::vector<std::string> vstr(AtNum);
    vstr[Model] = Header(3, 0, 1, 72, 0, m_viAt[Root], m_viAt[Note]) + HexU32(42);
    vstr[Note] = NoteRecord();
    vstr[Tree] = TreeRecord();
    vstr[Ids] = Header(9, 0, 1, 68, m_viAt[Note]) + "01000000  04000000 4E423100";
    vstr[Pmi] = Header(7, 0, 4, 68, m_viAt[Tree]) + HexZeros(4);  // 68 bytes at the least
    vstr[Root] = InstanceRecord();
    vstr[Child] = Header(2, 0, 5, 76, m_viAt[Root]) + HexZeros(8) + From(2, HexZeros(4));
    vstr[Faces] = MeshRecord(1);
    vstr[Polys] = MeshRecord(8);
    vstr[Common] = MeshRecord(8);
    vstr[Brep] = Header(5, 0, 1, 72, 0) + HexZeros(4);
    vstr[Points] = Header(13, 0, 1, 72, 0) + HexZeros(4);
    // The headers of these two always have a revision; generation 19 has no such elements.
    vstr[Filter] = m_iRevision == 0 ? HexZeros(68) : Header(11, 0, 1, 68, m_viAt[Tree]);
    vstr[Camera] = m_iRevision == 0 ? HexZeros(68) : Header(12, 0, 4, 68, m_viAt[Tree]) + HexZeros(8);
    std::vector<Bytes> vvc;
    for (const std::string& str : vstr) vvc.push_back(FromHex(str));
    return vvc;
  }

  uint32_t m_iRevision;
  std::vector<uint64_t> m_viAt = std::vector<uint64_t>(AtNum, 0);
};

using Counts = std::map<uint32_t, int>;

class OldModels : public ElementStoreTest {
 protected:
  OldModels() { KivRegisterElementClasses(); }

  std::vector<uint64_t> Add(const KivWString& csPath, const std::vector<Bytes>& vvc) {
    std::vector<uint64_t> viAt;
    m_pzModel = Open(csPath, true);
    for (const Bytes& vc : vvc) {
      const KivContainerData zData(vc.data(), static_cast<uint32_t>(vc.size()), 0);
      uint64_t iPosition = 0;
      EXPECT_EQ(ManagerOf(m_pzModel)->GetStorage()->AddRecord(zData, iPosition), KivStorageResult::Done);
      viAt.push_back(iPosition);
    }
    Close(m_pzModel);
    return viAt;
  }
  // The records take the same places whatever they refer to.
  KivWString Write(OldModel& zModel) {
    zModel.m_viAt = Add(MakeFile(u"places.kiv"), zModel.Records());
    const KivWString csPath = MakeFile(u"old.kiv");
    EXPECT_EQ(Add(csPath, zModel.Records()), zModel.m_viAt);
    if (zModel.m_iRevision == 0) PatchHeader(csPath, KivContainerHeader::FormatVersion, std::string(8, '\x13'));
    return csPath;
  }
};

}  // namespace

TEST_F(OldModels, OfEachRevisionAreFoundFromTheRootAndWalkedWhole) {
  for (const uint32_t iRevision : {0u, 1u, 2u, 3u, 4u, 5u}) {
    SCOPED_TRACE(testing::Message() << "revision " << iRevision);
    OldModel zModel{iRevision};
    const KivWString csPath = Write(zModel);
    Counts mapExpected = {{1, 1}, {2, 2}, {5, 1}, {7, 1}, {8, iRevision >= 3 ? 2 : 1}};
    if (iRevision >= 4) mapExpected.insert({{11, 1}, {12, 1}, {13, 1}});
    for (const int32_t iLimit : {1, 1000}) {
      m_pzModel = Open(csPath, false, iLimit);
      ASSERT_NE(m_pzModel, nullptr);
      const uint32_t iKey = m_pzModel->GetKey();
      EXPECT_EQ(ManagerOf(m_pzModel)->IsVer19Data(), iRevision == 0);
      KivModel* pzModel = KivGetModel(iKey);
      ASSERT_NE(pzModel, nullptr);
      EXPECT_EQ(pzModel->GetMemoryBlock()->m_iModelValue, 42u);
      KivModelNote* pzNote = KivGetModelNote(iKey);
      ASSERT_NE(pzNote, nullptr);
      EXPECT_EQ(pzNote->GetMemoryBlock()->m_iSecondKey, zModel.m_viAt[Ids]);
      EXPECT_EQ(pzNote->GetMemoryBlock()->m_dParam15, 100000.0);  // not stored
      KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
      ASSERT_NE(pzTree, nullptr);
      ASSERT_EQ(pzTree->GetMemoryBlock()->m_vzNode.size(), 1u);
      EXPECT_EQ(pzTree->GetMemoryBlock()->m_vzNode[0].m_strNodeName[0], u"ab");
      EXPECT_EQ(pzTree->GetMemoryBlock()->m_vzNode[0].m_iNodeType, iRevision < 5 ? 3u : 0u);
      auto* pzIds = dynamic_cast<KivPermanentIdTable*>(KivGetSecondElement(iKey));
      ASSERT_NE(pzIds, nullptr);
      EXPECT_EQ(pzIds->GetMemoryBlock()->m_vstrPermanentId, (std::vector<KivWString>{u"NB1"}));
      KivInstance* pzInstances = KivGetInstanceRoot(iKey);
      ASSERT_NE(pzInstances, nullptr);
      ASSERT_EQ(pzInstances->GetMemoryBlock()->m_vzInstance.size(), 1u);
      EXPECT_EQ(pzInstances->GetMemoryBlock()->m_vzInstance[0].m_iBrepKey, zModel.m_viAt[Brep]);
      Counts mapNum;
      EXPECT_TRUE(KivWalkElements(iKey, {0, 1, 2, 5, 7, 8, 11, 12, 13}, kAllLevels,
                                  [&](KivOutOfCoreTreeNode& zElement) { ++mapNum[zElement.GetElementType()]; }));
      EXPECT_EQ(mapNum, mapExpected);
      Close(m_pzModel);
    }
  }
}

TEST_F(OldModels, AFileIsReadWholeWithItsRootNoteTreeAndSecondElement) {
  for (const uint32_t iRevision : {0u, 5u}) {
    OldModel zModel{iRevision};
    const KivWString csPath = Write(zModel);
    Counts mapNum;
    EXPECT_TRUE(
        KivReadWholeModel(csPath, [&](KivOutOfCoreTreeNode& zElement) { ++mapNum[zElement.GetElementType()]; }));
    Counts mapExpected = {{1, 1}, {2, 2}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}, {8, 1}, {9, 1}};
    if (iRevision == 5) {
      mapExpected.insert({{11, 1}, {12, 1}, {13, 1}});
      mapExpected[8] = 2;
    }
    EXPECT_EQ(mapNum, mapExpected);
  }
  EXPECT_FALSE(KivReadWholeModel(m_zFolder / u"none.kiv", [](KivOutOfCoreTreeNode&) {}));
}

// Which of them nothing but its own load can tell: the second element.
TEST_F(OldModels, AFileInWhichAnyElementIsDamagedIsNotReadWhole) {
  OldModel zModel{5};
  const std::string strGood = FileBytes(Write(zModel));
  const std::vector<Bytes> vvc = zModel.Records();
  const KivWString csPath = m_zFolder / u"damaged.kiv";
  for (size_t i = 0; i < AtNum; ++i) {
    SCOPED_TRACE(testing::Message() << "record " << i);
    std::string strBad = strGood;
    const size_t iRecord = strBad.find(std::string(vvc[i].begin(), vvc[i].end()), zModel.m_viAt[i]);
    ASSERT_NE(iRecord, std::string::npos);
    strBad[iRecord + 64] = 3;  // the node state
    PutFileBytes(csPath, strBad);
    bool bWhole = true;
    EXPECT_NO_REPORT(bWhole = KivReadWholeModel(csPath, [](KivOutOfCoreTreeNode&) {}));
    EXPECT_FALSE(bWhole);
  }
}
