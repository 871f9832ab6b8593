// Models of the generation before: they are looked at and never changed.
#include "DorHandlerTest.h"
#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivContainerHeader.h"
#include "KivMemoryBlockPositionTable.h"
#include "KivModel.h"
#include "KivModelNote.h"
#include "KivSysFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

using Code_ = DorAnswerCode;

// A record in the form of a store of generation 19: no revision in the header, the fields of the oldest one behind it.
template <typename Block>
KivByteBuffer AsPrevious(const KivByteBuffer& vcRecord) {
  constexpr uint32_t kOldest = 1;
  const auto pzBlock = std::make_unique<Block>();
  typename Block::Memory zMemory;
  EXPECT_TRUE(KivReadElement(std::span(vcRecord), false, false, *pzBlock, zMemory)) << Block::kTag;
  KivFieldSizer zSizer(kOldest, kElementHeaderSizeVer19);
  EXPECT_TRUE(pzBlock->VisitBody(zSizer, zMemory)) << Block::kTag;
  KivByteBuffer vc(zSizer.Offset());
  KivRecordWriter zWriter(vc.data(), vc.size());
  const KivMemoryBlockHeader& zHeader = pzBlock->m_zHeader;
  zWriter.Put<uint32_t>(zHeader.m_iTag);
  zWriter.Put<uint32_t>(zHeader.m_iEntryCount);
  zWriter.Put<uint32_t>(zHeader.m_iDataOffset);
  for (const uint64_t iLink : zHeader.m_aiLink) zWriter.Put<uint64_t>(iLink);
  for (const float f : zHeader.m_afBoxMin) zWriter.Put<float>(f);
  for (const float f : zHeader.m_afBoxMax) zWriter.Put<float>(f);
  zWriter.Put<uint32_t>(zHeader.m_iNodeState);
  EXPECT_EQ(zWriter.Offset(), kElementHeaderSizeVer19);
  KivFieldWriter zFields(zWriter, kOldest);
  EXPECT_TRUE(pzBlock->VisitBody(zFields, zMemory)) << Block::kTag;
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

KivByteBuffer AsPrevious(const KivByteBuffer& vcRecord) {
  switch (KivLoad<uint32_t>(vcRecord.data()) & 0xFFFF) {
    case 1:
      return AsPrevious<KivMemoryBlockFaceEdge>(vcRecord);
    case 2:
      return AsPrevious<KivMemoryBlockInstance>(vcRecord);
    case 3:
      return AsPrevious<KivMemoryBlockModel>(vcRecord);
    case 4:
      return AsPrevious<KivMemoryBlockModelNote>(vcRecord);
    case 5:
      return AsPrevious<KivMemoryBlockBrep>(vcRecord);
    case 6:
      return AsPrevious<KivMemoryBlockAssemblyTree>(vcRecord);
    case KivMemoryBlockPositionTable::kElementType: {  // has no element state
      KivByteBuffer vc = vcRecord;
      vc.erase(vc.begin() + 8, vc.begin() + 12);
      return vc;
    }
    case 11:  // a layer filter: the same in both
      return vcRecord;
    default:
      ADD_FAILURE() << "a record of tag " << KivLoad<uint32_t>(vcRecord.data()) << " and " << vcRecord.size()
                    << " bytes";
      return vcRecord;
  }
}

// The bytes of a container, with all its records where they were.
std::string AsPreviousGeneration(std::string strFile) {
  using H = KivContainerHeader;
  constexpr uint64_t kFirst = 264, kFrame = 16;
  const auto At = [&](uint64_t i) { return reinterpret_cast<uint8_t*>(strFile.data()) + i; };
  const uint64_t iEnd = KivLoad<uint64_t>(At(H::kFilePosition + H::EndPosition));
  size_t nRecords = 0;
  for (uint64_t i = kFirst; i < iEnd; ++nRecords) {
    const uint64_t nRecord = KivLoad<uint64_t>(At(i)), nPayload = KivLoad<uint64_t>(At(i + 8));
    if (nPayload != nRecord) {  // in use
      const KivByteBuffer vc = AsPrevious(KivByteBuffer(At(i + kFrame), At(i + kFrame + nPayload)));
      EXPECT_LE(vc.size(), nPayload);
      KivStore<uint64_t>(At(i + 8), vc.size());
      std::copy(vc.begin(), vc.end(), At(i + kFrame));
    }
    i += nRecord;
  }
  EXPECT_GT(nRecords, 10u);
  std::fill_n(strFile.begin() + H::kFilePosition + H::FormatVersion, 8, static_cast<char>(H::kPreviousGeneration));
  return strFile;
}

class HandlerPrevious : public HandlerTest {
 protected:
  HandlerPrevious() {
    const KivWString csPath = m_zFolder / u"previous.kiv";
    m_zFolder.WriteBytes(u"previous.kiv", AsPreviousGeneration(m_zFolder.ReadBytes(u"machine.kiv")));
    EXPECT_EQ(Read(csPath), 0);
  }
};

}  // namespace

TEST_F(HandlerPrevious, WhatLooksIsAnsweredByTheRecordsInTheirOldForm) {
  const DorDecodedAnswer zTree = Ask("GetAsmTreeInfo");
  ASSERT_EQ(zTree.m_iCode, 0) << Utf8(zTree.m_csReason);
  EXPECT_EQ(Int(zTree.m_vzValue, "instances"), 3);
  EXPECT_EQ(Int(zTree.m_vzValue, "parts"), 2);
  const DorDecodedAnswer zNode = Ask("GetAsmInfo", {"3"});
  ASSERT_EQ(zNode.m_iCode, 0) << Utf8(zNode.m_csReason);
  EXPECT_EQ(Text(zNode.m_vzValue, "name"), "bolt A");
  EXPECT_EQ(Floats(zNode.m_vzValue, "absolute"), Shift(2, 2, 5));
  const DorDecodedAnswer zFace = Ask("GetFaceInfo", {"0", "1"});
  ASSERT_EQ(zFace.m_iCode, 0) << Utf8(zFace.m_csReason);
  EXPECT_EQ(Floats(zFace.m_vzValue, "area"), std::vector<double>{100});
  EXPECT_EQ(List(zFace.m_vzValue, "levels").size(), 2u);
  EXPECT_EQ(List(zFace.m_vzValue, "analytic").size(), 1u);
  EXPECT_EQ(Floats(Ask("GetEdgeInfo", {"0", "1"}).m_vzValue, "length"), std::vector<double>{10});
  EXPECT_EQ(Int(Ask("IsPlanarFace", {"0", "1"}).m_vzValue, "planar"), 1);
  EXPECT_EQ(Floats(Ask("CalcDistFaceFace", {"0", "1", "1", "2", "0", "0,0,0"}).m_vzValue, "distance"),
            std::vector<double>{5});
  EXPECT_EQ(Code("DoNothing"), Code_::Done);
}

TEST_F(HandlerPrevious, EveryChangeAndItsHistoryAreRefusedAndNothingChanges) {
  const KivByteBuffer vcBefore = State();
  const std::vector<std::pair<const char*, std::vector<std::string>>> vRequest{
      {"SetAsmInfo", {"3", "x"}},
      {"SetInstPathPartMatrix", MatrixWords("3", Shift(1, 2, 3))},
      {"SetFaceInfo", {"0", "1", "0", "1", "0", "1"}},
      {"DelFaceInfo", {"0", "1"}},
      {"SnapShot", {}},
      {"Undo", {"1"}},
      {"Redo", {"1"}},
      {"WriteDor", {Utf8(m_zFolder / u"copy.kiv"), "0", "1", "0", "0"}}};
  for (const auto& [szRequest, vstrWords] : vRequest) {
    EXPECT_EQ(Code(szRequest, vstrWords), Code_::NotEditable) << szRequest;
    EXPECT_EQ(Reason(szRequest, vstrWords), "the model is of generation 19") << szRequest;
  }
  EXPECT_EQ(Code("SetAsmInfo", {"99", "x"}), Code_::UnknownNode) << "what is wrong with the fields is said first";
  EXPECT_EQ(State(), vcBefore);
  EXPECT_FALSE(sys::PathExists(m_zFolder / u"copy.kiv"));
}
