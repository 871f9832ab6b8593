// The established check, the dump, the full check, and files of any bytes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "KivDataUtil.h"
#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivSysFolder.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

using Kind = KivContainerFindingKind;

class ContainerCheck : public testing::Test {
 protected:
  ContainerCheck() { KivRegisterOwnFormat(); }
  TestFolder m_zFolder;
};

// Records of 100, 101, ... payload bytes, every second one free.
struct Sample {
  explicit Sample(int iNum = 6) : pzMain(MakeUnmanagedMemory()), zContainer(pzMain, MakeUnmanagedMemory(), nullptr) {
    std::vector<Position> viFile;
    for (int i = 0; i < iNum; ++i) {
      const Bytes vcPayload(static_cast<size_t>(100 + i), static_cast<uint8_t>(i + 1));
      viFile.push_back(
          zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(vcPayload.size()))));
    }
    for (size_t i = 0; i < viFile.size(); i += 2) zContainer.DeleteRecord(viFile[i]);
    zContainer.Flush();
  }
  KivSharedPtr<ISnapShotFile> pzMain;
  KivFastFileContainer zContainer;
};

bool Has(const kiv::KivContainerCheck& zCheck, Kind iKind) {
  for (const KivContainerFinding& zFinding : zCheck.m_vzFinding)
    if (zFinding.m_iKind == iKind) return true;
  return false;
}

std::string DumpText(const TestFolder& zFolder, const KivWString& csName) {
  std::string strText = zFolder.ReadBytes(csName);
  std::erase(strText, '\r');  // text has the platform's line ends
  return strText;
}

}  // namespace

// --- CheckConsistency ----------------------------------------------------------------------------

TEST_F(ContainerCheck, TheEstablishedCheckAlwaysReportsThatItsWalkRanPastTheEnd) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  zContainer.AddRecord(KivContainerData("abc", 3));
  EXPECT_REPORT(zContainer.CheckConsistency(), "iCurrentPos <= m_iEndPosition");
  NoThrowScope zNoThrow;
  EXPECT_TRUE(zContainer.CheckConsistency());
}

TEST_F(ContainerCheck, TheEstablishedCheckEndsOnAnyHeader) {
  Sample z;
  for (const uint64_t iFirst : {uint64_t{0}, uint64_t{1}, uint64_t{256}, UINT64_MAX, UINT64_MAX - 7}) {
    z.pzMain->Write(8, &iFirst, 8);
    NoThrowScope zNoThrow;
    EXPECT_TRUE(z.zContainer.CheckConsistency());
  }
  // A walk that happens to fit: from 8 by 256 to the first record.
  Sample y;
  const uint64_t iStep = 256;
  y.pzMain->Write(8, &iStep, 8);
  EXPECT_NO_REPORT(y.zContainer.CheckConsistency());
}

TEST_F(ContainerCheck, TheEstablishedCheckComparesTheTreeWithTheRecords) {
  const uint64_t iStep = 256;
  {
    Sample z;
    z.pzMain->Write(8, &iStep, 8);
    const uint64_t iOther = 777;
    z.zContainer.GetUnusedRecordFile()->Write(8 + 40, &iOther, 8);
    EXPECT_REPORT(z.zContainer.CheckConsistency(), "iFileSize == iRecordSizeInBaseFile");
  }
  {
    Sample z;
    z.pzMain->Write(8, &iStep, 8);
    const uint64_t iUsed = 264 + 124;  // a record in use of 125 bytes
    const uint64_t iSize = 125;
    z.zContainer.GetUnusedRecordFile()->Write(8 + 40, &iSize, 8);
    z.zContainer.GetUnusedRecordFile()->Write(8 + 48, &iUsed, 8);
    EXPECT_REPORT(z.zContainer.CheckConsistency(), "iFileSizeInBaseFile == iRecordSizeInBaseFile");
  }
  {
    Sample z;
    z.pzMain->Write(8, &iStep, 8);
    const uint8_t iNone = 0;
    z.zContainer.GetUnusedRecordFile()->Write(8 + 2, &iNone, 1);
    EXPECT_REPORT(z.zContainer.CheckConsistency(), "iDeletedFileNum == 0");
  }
  {
    Sample z;
    z.pzMain->Write(8, &iStep, 8);
    const uint8_t iTwo = 2;
    z.zContainer.GetUnusedRecordFile()->Write(8 + 2, &iTwo, 1);
    EXPECT_REPORT(z.zContainer.CheckConsistency(), "iFileInUnusedRecordFile == iDeletedFileNum");
  }
  {
    Sample z;
    Bytes vcMain = Content(*z.pzMain);
    PutU64(vcMain, 8, iStep);
    PutU64(vcMain, 8 + 88, 2);
    vcMain[8] = 0x14;
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    zContainer.GetBaseFile()->Write(8, &iStep, 8);
    EXPECT_REPORT(zContainer.CheckConsistency(), "iCheckedNode == GetValidNodeNum()");
  }
}

// --- Dump ----------------------------------------------------------------------------------------

TEST_F(ContainerCheck, ADumpOfAnEmptyPathIsFalseAndCreatesNothing) {
  Sample z;
  std::map<Position, bool> mapUsed{{1, true}};
  EXPECT_FALSE(z.zContainer.Dump(u"", mapUsed));
  EXPECT_EQ(mapUsed.size(), 1u);
}

TEST_F(ContainerCheck, ADumpHasTheDocumentedText) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  zContainer.AddRecord(KivContainerData("abc", 3));
  zContainer.AddRecord(KivContainerData("hello", 5));
  zContainer.DeleteRecord(264);
  m_zFolder.WriteBytes(u"dump.txt", "old");
  std::map<Position, bool> mapUsed{{1, true}};
  EXPECT_TRUE(zContainer.Dump(m_zFolder / u"dump.txt", mapUsed));
  EXPECT_EQ(mapUsed, (std::map<Position, bool>{{264, false}, {291, true}}));
  std::string strText = DumpText(m_zFolder, u"dump.txt");
  const size_t iTime = strText.find("header( 72-103) : ");
  ASSERT_NE(iTime, std::string::npos);
  const std::string strExpected =
      "MainFileBlockInfo\n"
      "dummy(0-7) : 0000000000000000\n"
      "header(  8- 39) : 1414141414141414 b0b0b0b0b0b0b0b0 0a00000001000000 0000000008040201 \n"
      "header( 40- 71) : 1412111008040201 f304b53f00000000 a6498eca06bd3075 05000000tttttttt \n"
      "header( 72-103) : tttttttt00000000 0801000000000000 0000000000000000 0000000000000000 \n"
      "header(104-135) : 0000000000000000 0000000000000000 0000000000000000 0000000000000000 \n"
      "header(136-167) : 1400000000000000 0000000000000000 0000000000000000 0000000000000000 \n"
      "header(168-199) : 0000000000000000 0000000000000000 0000000000000000 0000000000000000 \n"
      "header(200-231) : 0000000000000000 0000000000000000 0000000000000000 0000000000000000 \n"
      "header(232-263) : 0000000000000000 0000000000000000 0000000000000000 0000000000000000 \n"
      "Position\tRecordSize\tFileSize\tUsedOrNot\n"
      "264\t27\t27\tNOT used\n"
      "291\t29\t5\tused\n"
      "ValidBlockNum = 1\n"
      "DeletedBlockNum = 1\n"
      "UnusedRecordFileInfo\n"
      "iCheckedNode = 1\n"
      "ValidNodeNum = 1\n"
      "iFileInUnusedRecordFile = 1\n";
  const size_t iHigh = strExpected.find("tttttttt");
  const size_t iLow = strExpected.find("tttttttt", iHigh + 8);
  strText.replace(iHigh, 8, "tttttttt");
  strText.replace(iLow, 8, "tttttttt");
  EXPECT_EQ(strText, strExpected);
}

TEST_F(ContainerCheck, ADumpStopsAtARecordOfSizeZeroAndSaysSo) {
  Sample z;
  const uint64_t aiZero[2] = {0, 0};
  z.pzMain->Write(264 + 124, aiZero, 16);
  std::map<Position, bool> mapUsed;
  EXPECT_REPORT_FROM(z.zContainer.Dump(m_zFolder / u"dump.txt", mapUsed), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_TRUE(z.zContainer.Dump(m_zFolder / u"dump.txt", mapUsed));
  const std::string strText = DumpText(m_zFolder, u"dump.txt");
  EXPECT_NE(strText.find("388\t0\t0\tNOT used\nbreak by size 0 record\nValidBlockNum = 0\n"), std::string::npos)
      << strText;
}

TEST_F(ContainerCheck, ADumpWhoseWalkRunsPastTheEndSaysSo) {
  Sample z;
  const uint64_t iHuge = 1 << 20;
  z.pzMain->Write(264 + 124, &iHuge, 8);
  std::map<Position, bool> mapUsed;
  NoThrowScope zNoThrow;
  EXPECT_TRUE(z.zContainer.Dump(m_zFolder / u"dump.txt", mapUsed));
  const std::string strText = DumpText(m_zFolder, u"dump.txt");
  EXPECT_NE(strText.find("388\t1048576\t101\tused\niCurrentPos > m_iEndPosition\nValidBlockNum"), std::string::npos);
}

TEST_F(ContainerCheck, ADumpThatCannotBeWrittenIsReported) {
  Sample z;
  std::map<Position, bool> mapUsed;
  const KivWString csPath = m_zFolder / u"missing" + sys::kSeparator + u"dump.txt";
  EXPECT_REPORT(z.zContainer.Dump(csPath, mapUsed), "pDumpFile != NULL");
  NoThrowScope zNoThrow;
  EXPECT_FALSE(z.zContainer.Dump(csPath, mapUsed));
}

// --- Full check ----------------------------------------------------------------------------------

TEST_F(ContainerCheck, TheFullCheckCountsWhatIsThere) {
  Sample z;
  const kiv::KivContainerCheck zCheck = z.zContainer.FullCheck();
  EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
  EXPECT_EQ(zCheck.m_iUsedRecordNum, 3u);
  EXPECT_EQ(zCheck.m_iFreeRecordNum, 3u);
  EXPECT_EQ(zCheck.m_iPayloadBytes, 101u + 103u + 105u);
  EXPECT_EQ(zCheck.m_iUsedBytes, 101u + 103u + 105u + 72u);
  EXPECT_EQ(zCheck.m_iFreeBytes, 100u + 102u + 104u + 72u);
  EXPECT_EQ(zCheck.m_iNodeNum, 1u);
  EXPECT_EQ(zCheck.m_iPairNum, 3u);
  EXPECT_EQ(zCheck.m_iDepth, 1u);
  EXPECT_EQ(zCheck.GetText(), "");
}

TEST_F(ContainerCheck, TheFullCheckNamesEachKindOfDamage) {
  const uint64_t iFree = 264;
  const uint64_t iUsed = 264 + 124;
  const auto Main = [](uint64_t iOffset, uint64_t iValue) {
    Sample z;
    z.pzMain->Write(iOffset, &iValue, 8);
    return z.zContainer.FullCheck();
  };
  const auto Node = [](uint64_t iOffset, uint64_t iValue, size_t nBytes = 8, int iRecords = 6) {
    Sample z(iRecords);
    z.zContainer.GetUnusedRecordFile()->Write(iOffset, &iValue, nBytes);
    return z.zContainer.FullCheck();
  };
  const auto HeaderField = [](uint64_t iOffset, uint64_t iValue) {
    Sample z;
    Bytes vcMain = Content(*z.pzMain);
    PutU64(vcMain, 8 + iOffset, iValue);
    NoThrowScope zNoThrow;
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    return zContainer.FullCheck();
  };
  EXPECT_TRUE(Has(HeaderField(72, 1 << 20), Kind::EndOutsideFile));
  EXPECT_TRUE(Has(HeaderField(72, 100), Kind::EndOutsideFile));
  EXPECT_TRUE(Has(Main(iUsed, 23), Kind::RecordTooSmall));
  EXPECT_TRUE(Has(Main(iUsed, 0), Kind::RecordTooSmall));
  EXPECT_TRUE(Has(Main(iUsed, UINT64_MAX), Kind::RecordOverrunsEnd));
  EXPECT_TRUE(Has(Main(iUsed + 8, 102), Kind::PayloadTooLarge));
  EXPECT_TRUE(Has(Main(iUsed + 125 - 8, 1), Kind::BackPointer));
  EXPECT_TRUE(Has(Main(iFree + 40, 1), Kind::FreeNotZeroed));
  EXPECT_TRUE(Has(Main(iUsed + 8, 125), Kind::FreeNeighbours));
  EXPECT_TRUE(Has(Main(iUsed + 8, 125), Kind::RecordWithoutPair));
  EXPECT_TRUE(Has(Main(iFree + 8, 100), Kind::PairWithoutRecord));
  EXPECT_TRUE(Has(HeaderField(128, 21), Kind::NodeOrder));
  EXPECT_TRUE(Has(HeaderField(96, 2), Kind::NodeCount));
  EXPECT_TRUE(Has(HeaderField(88, 2), Kind::NodeCount));
  EXPECT_TRUE(Has(HeaderField(104, 9), Kind::NodePosition));
  EXPECT_TRUE(Has(HeaderField(104, 0), Kind::NodePosition));
  EXPECT_TRUE(Has(Node(8, 0, 1), Kind::NodeUnused));
  EXPECT_TRUE(Has(Node(8 + 32, 9), Kind::NodeOwnPosition));
  EXPECT_TRUE(Has(Node(8 + 24, 9), Kind::NodeParent));
  EXPECT_TRUE(Has(Node(8 + 2, 21, 1), Kind::NodeChildCount));
  EXPECT_TRUE(Has(Node(8 + 2, 255, 1), Kind::NodeChildCount));
  EXPECT_TRUE(Has(Node(8 + 8, 5), Kind::NodeRange));
  EXPECT_TRUE(Has(Node(8 + 40, 10000), Kind::PairOrder));
  EXPECT_TRUE(Has(Node(8 + 48, 266), Kind::PairWithoutRecord));
  EXPECT_TRUE(Has(Node(8 + 64, 264), Kind::PairTwice));
  // Trees of several nodes.
  EXPECT_TRUE(Node(8 + 30, 0, 0, 100).IsSound());
  EXPECT_TRUE(Has(Node(8 + 40, 8, 8, 100), Kind::NodeSharedOrCyclic));
  EXPECT_TRUE(Has(Node(8 + 40, 1 << 30, 8, 100), Kind::NodePosition));
  EXPECT_TRUE(Has(Node(8 + 2, 1, 1, 100), Kind::NodeUnreachable));
  EXPECT_TRUE(Has(Node(8 + 2, 1, 1, 100), Kind::NodeRange));
  EXPECT_TRUE(Has(Node(8 + 2, 0, 1, 100), Kind::NodeChildCount));
  EXPECT_NE(Node(8 + 2, 0, 1, 100).GetText().find("NodeChildCount at 8, found 0\n"), std::string::npos);
}

TEST_F(ContainerCheck, TheFullCheckListsAThousandFindingsAndCountsTheRest) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  for (int i = 0; i < 1500; ++i) zContainer.AddRecord(KivContainerData("abc", 3));
  for (uint64_t i = 0; i < 1500; ++i) {
    const uint64_t iWrong = 1;
    zContainer.GetBaseFile()->Write(264 + 27 * i + 19, &iWrong, 8);
  }
  const kiv::KivContainerCheck zCheck = zContainer.FullCheck();
  EXPECT_EQ(zCheck.m_iFindingNum, 1500u);
  EXPECT_EQ(zCheck.m_vzFinding.size(), 1000u);
  EXPECT_NE(zCheck.GetText().find("and 500 more\n"), std::string::npos);
}

// --- Any bytes -----------------------------------------------------------------------------------

namespace {

enum class Below { Memory, Cached, Mapped };

// Everything that only looks, and then some changes. Reports are fine, anything else is not. csPath names a file that
// the bytes go to where they do not stay in memory.
void WorkThrough(const Bytes& vcMain, const KivWString& csDump, Below iBelow = Below::Memory,
                 const KivWString& csPath = {}) {
  const auto Make = [&] {
    if (iBelow == Below::Memory) return MakeMemory(vcMain);
    std::ofstream(std::filesystem::path(csPath), std::ios::binary)
        .write(reinterpret_cast<const char*>(vcMain.data()), static_cast<std::streamsize>(vcMain.size()));
    return iBelow == Below::Cached ? OpenCached(csPath) : OpenFile(FileKind::Mapped, csPath);
  };
  for (const bool bThrow : {true, false}) {
    KivSetReportNoThrow(!bThrow);
    const auto Try = [](auto&& body) {
      try {
        body();
      } catch (const KivException&) {
      }
    };
    Try([&] {
      KivFastFileContainer zContainer(Make(), nullptr);
      if (zContainer.GetStatus() != KivContainerStatus::Usable) return;
      zContainer.FullCheck();
      Try([&] { zContainer.CheckConsistency(); });
      if (!csDump.empty())
        Try([&] {
          std::map<Position, bool> mapUsed;
          zContainer.Dump(csDump, mapUsed);
        });
      Try([&] { zContainer.GetRecord(264); });
      Position iStart = 0;
      Try([&] { zContainer.MoveRecord(264 + 124, iStart); });
      Try([&] { zContainer.DeleteRecord(264 + 124); });
      Try([&] { zContainer.AddRecord(KivContainerData("0123456789", 10)); });
      EXPECT_LT(zContainer.GetBaseFile()->GetLength(), 300000u);
      // An image that is said to be longer than it is has that length up to a limit.
      EXPECT_LT(zContainer.GetUnusedRecordFile()->GetLength(), 0x4000000u + 0x100000u);
    });
    if (iBelow != Below::Memory) {
      KivSetReportNoThrow(false);
      continue;
    }
    Try([&] {
      const auto pzDamaged = MakeMemory(vcMain);
      const KivSalvageReport zReport = KivSalvageContainer(*pzDamaged, MakeMemory());
      EXPECT_TRUE(zReport.m_bDone);
    });
    KivSetReportNoThrow(false);
  }
}

}  // namespace

TEST_F(ContainerCheck, AFileCutAtAnyByteDoesNoHarm) {
  Sample z;
  const Bytes vcMain = Content(*z.pzMain);
  for (size_t iLength = 0; iLength <= vcMain.size(); ++iLength)
    WorkThrough(Bytes(vcMain.begin(), vcMain.begin() + static_cast<ptrdiff_t>(iLength)), KivWString());
}

TEST_F(ContainerCheck, EachByteChangedDoesNoHarm) {
  Sample z;
  const Bytes vcMain = Content(*z.pzMain);
  const size_t iStep = ScaledSteps(4) == 4 ? 1 : 3;
  for (size_t i = 0; i < vcMain.size(); i += iStep) {
    for (const uint8_t iValue :
         {uint8_t{0}, uint8_t{0xFF}, static_cast<uint8_t>(vcMain[i] ^ 1), static_cast<uint8_t>(vcMain[i] ^ 0x80)}) {
      if (iValue == vcMain[i]) continue;
      Bytes vcChanged = vcMain;
      vcChanged[i] = iValue;
      WorkThrough(vcChanged, i % 97 == 0 ? m_zFolder / u"dump.txt" : KivWString());
    }
  }
}

TEST_F(ContainerCheck, BytesChangedAndFilesCutBelowACacheAndInAMappingDoNoHarm) {
  Sample z;
  const Bytes vcMain = Content(*z.pzMain);
  const size_t iStep = ScaledSteps(4) == 4 ? 31 : 127;
  const KivWString csPath = m_zFolder / u"damaged.kiv";
  for (const Below iBelow : {Below::Cached, Below::Mapped})
    for (size_t i = 0; i < vcMain.size(); i += iStep) {
      Bytes vcChanged = vcMain;
      vcChanged[i] = static_cast<uint8_t>(vcMain[i] == 0 ? 0xFF : ~vcMain[i]);
      WorkThrough(vcChanged, KivWString(), iBelow, csPath);
      if (i != 0) WorkThrough(Bytes(vcMain.begin(), vcMain.begin() + static_cast<ptrdiff_t>(i)), {}, iBelow, csPath);
    }
}

TEST_F(ContainerCheck, RecordSizesThatOverflowPointBackwardOrOverlapDoNoHarm) {
  Sample z;
  const Bytes vcGood = Content(*z.pzMain);
  for (const uint64_t iFile : {264u, 388u, 513u, 639u})
    for (const uint64_t iSize :
         {uint64_t{0}, uint64_t{1}, uint64_t{8}, uint64_t{23}, uint64_t{24}, uint64_t{100}, uint64_t{1} << 32,
          uint64_t{1} << 63, UINT64_MAX, UINT64_MAX - iFile + 1, UINT64_MAX - iFile + 265})
      for (const bool bFree : {false, true}) {
        Bytes vcMain = vcGood;
        PutU64(vcMain, iFile, iSize);
        if (bFree) PutU64(vcMain, iFile + 8, iSize);
        WorkThrough(vcMain, m_zFolder / u"dump.txt");
      }
}
