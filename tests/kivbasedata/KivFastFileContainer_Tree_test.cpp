// The size tree: splits, removals, slots, and the bytes that follow from them.
#include <gtest/gtest.h>

#include <random>

#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

class ContainerTree : public testing::Test {
 protected:
  ContainerTree() { KivRegisterOwnFormat(); }
  TestFolder m_zFolder;
};

// A container with records of the given sizes, each followed by a record of its own, so that none merges.
struct Isolated {
  Isolated() : pzMain(MakeUnmanagedMemory()), pzUnused(MakeUnmanagedMemory()), zContainer(pzMain, pzUnused, nullptr) {}
  Position Add(uint64_t iRecordSize) {
    const Bytes vcPayload(iRecordSize, 1);
    const Position iFile =
        zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(iRecordSize - 24)));
    zContainer.AddRecord(KivContainerData("", 0));
    return iFile;
  }
  // All positions first, so that no free record is taken for another one.
  std::vector<Position> AddAll(const std::vector<uint64_t>& viSize) {
    std::vector<Position> viFile;
    for (const uint64_t iSize : viSize) viFile.push_back(Add(iSize));
    return viFile;
  }
  void FreeAll(const std::vector<Position>& viFile) {
    for (const Position iFile : viFile) zContainer.DeleteRecord(iFile);
  }
  ReadContainer Read() {
    return ReadContainerBytes(Content(*pzMain), zContainer.GetEndPosition(), Content(*pzUnused),
                              zContainer.GetRootNode());
  }
  KivSharedPtr<ISnapShotFile> pzMain;
  KivSharedPtr<ISnapShotFile> pzUnused;
  KivFastFileContainer zContainer;
};

std::vector<uint64_t> Ascending(uint64_t iFirst, size_t iNum, uint64_t iStep = 1) {
  std::vector<uint64_t> viSize;
  for (size_t i = 0; i < iNum; ++i) viSize.push_back(iFirst + i * iStep);
  return viSize;
}

}  // namespace

TEST_F(ContainerTree, TwentyPairsFillTheRootLeafInOrderOfSize) {
  Isolated z;
  z.FreeAll(
      z.AddAll({300, 100, 200, 150, 101, 299, 250, 120, 130, 140, 110, 160, 170, 180, 190, 210, 220, 230, 240, 260}));
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.strError, "");
  ASSERT_EQ(zRead.mapNode.size(), 1u);
  const ReadNodeInfo& zRoot = zRead.mapNode.at(8);
  EXPECT_FALSE(zRoot.bBranch);
  ASSERT_EQ(zRoot.vPairs.size(), 20u);
  EXPECT_EQ(zRoot.vPairs.front().first, 100u);
  EXPECT_EQ(zRoot.vPairs.back().first, 300u);
}

TEST_F(ContainerTree, The21stPairSplitsTheRootIntoTwoLeavesOfTenAndGoesToOneOfThem) {
  for (const bool bLow : {true, false}) {
    Isolated z;
    std::vector<uint64_t> viSize = Ascending(1000, 20, 10);
    viSize.push_back(bLow ? 1005 : 1195);
    z.FreeAll(z.AddAll(viSize));
    const ReadContainer zRead = z.Read();
    EXPECT_EQ(zRead.strError, "");
    ASSERT_EQ(zRead.mapNode.size(), 3u);
    const ReadNodeInfo& zRoot = zRead.mapNode.at(8);
    EXPECT_TRUE(zRoot.bBranch);
    EXPECT_EQ(zRoot.viChildren, (std::vector<uint64_t>{368, 728}));
    EXPECT_EQ(zRoot.iMin, 0u);
    EXPECT_EQ(zRoot.iMax, UINT64_MAX);
    const ReadNodeInfo& zLeft = zRead.mapNode.at(368);
    const ReadNodeInfo& zRight = zRead.mapNode.at(728);
    EXPECT_EQ(zLeft.vPairs.size(), bLow ? 11u : 10u);
    EXPECT_EQ(zRight.vPairs.size(), bLow ? 10u : 11u);
    EXPECT_EQ(zLeft.iMin, 0u);
    EXPECT_EQ(zLeft.iMax, 1090u);  // the tenth pair's size, which both cover
    EXPECT_EQ(zRight.iMin, 1090u);
    EXPECT_EQ(zRight.iMax, UINT64_MAX);
    // A leaf that becomes a branch keeps no pairs.
    const Bytes vcUnused = Content(*z.pzUnused);
    EXPECT_TRUE(std::all_of(vcUnused.begin() + 8 + 40 + 16, vcUnused.begin() + 368, [](uint8_t c) { return c == 0; }));
  }
}

TEST_F(ContainerTree, ASizeOnTheBoundaryGoesToTheLeftLeaf) {
  Isolated z;
  std::vector<uint64_t> viSize = Ascending(1000, 20, 10);
  viSize.push_back(1200);
  viSize.push_back(1090);
  z.FreeAll(z.AddAll(viSize));
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.mapNode.at(368).vPairs.size(), 11u);
  EXPECT_EQ(zRead.strError, "");
}

TEST_F(ContainerTree, AFullLeafUnderAParentWithRoomIsReplacedByTwoAndItsSlotIsFree) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 31)));
  // 21: root, left, right. The right leaf is full at 30 and replaced at 31.
  EXPECT_EQ(z.zContainer.GetNodeNum(), 5u);
  EXPECT_EQ(z.zContainer.GetValidNodeNum(), 4u);
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.strError, "");
  EXPECT_EQ(zRead.mapNode.at(8).viChildren, (std::vector<uint64_t>{368, 1088, 1448}));
  const Bytes vcUnused = Content(*z.pzUnused);
  EXPECT_EQ(vcUnused[728], 0);
  EXPECT_EQ(vcUnused[728 + 2], 20);  // a replaced leaf keeps its count
}

TEST_F(ContainerTree, AFullLeafUnderAFullParentBecomesABranchInPlace) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 211)));
  const ReadContainer zFull = z.Read();
  EXPECT_EQ(zFull.mapNode.at(8).viChildren.size(), 20u);
  Isolated y;
  y.FreeAll(y.AddAll(Ascending(1000, 230)));
  const ReadContainer zRead = y.Read();
  EXPECT_EQ(zRead.strError, "");
  EXPECT_EQ(zRead.mapNode.at(8).viChildren.size(), 20u);
  EXPECT_TRUE(zRead.mapNode.at(zRead.mapNode.at(8).viChildren.back()).bBranch);
  EXPECT_EQ(y.zContainer.FullCheck().m_iDepth, 3u);
}

TEST_F(ContainerTree, TakingTheLastPairOutLeavesTheRootAsAnEmptyLeaf) {
  for (const size_t iNum : {1u, 21u, 31u, 250u}) {
    Isolated z;
    const std::vector<Position> viFile = z.AddAll(Ascending(1000, iNum));
    z.FreeAll(viFile);
    const Bytes vcPayload(2000, 2);
    for (size_t i = 0; i < iNum; ++i) {
      z.zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(1000 - 24 + i)));
      const ReadContainer zRead = z.Read();
      ASSERT_EQ(zRead.strError, "");
      ASSERT_EQ(zRead.mapNode.at(8).iMin, 0u);
      ASSERT_EQ(zRead.mapNode.at(8).iMax, UINT64_MAX);
    }
    EXPECT_EQ(z.zContainer.GetRootNode(), 8u);
    EXPECT_EQ(z.zContainer.GetValidNodeNum(), 1u);
    const ReadContainer zRead = z.Read();
    EXPECT_FALSE(zRead.mapNode.at(8).bBranch);
    EXPECT_TRUE(zRead.mapNode.at(8).vPairs.empty());
  }
}

TEST_F(ContainerTree, ARemovedLeafIsWrittenWithACountOfZero) {
  Isolated z;
  const std::vector<Position> viFile = z.AddAll(Ascending(1000, 21));
  z.FreeAll(viFile);
  const Bytes vcPayload(2000, 2);
  for (size_t i = 0; i < 10; ++i)
    z.zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(976 + i)));
  const Bytes vcUnused = Content(*z.pzUnused);
  EXPECT_EQ(vcUnused[368], 0);
  EXPECT_EQ(vcUnused[368 + 2], 0);
  EXPECT_EQ(U64At(vcUnused, 368 + 40), 1009u);  // the last pair stays behind the count
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.strError, "");
  EXPECT_EQ(zRead.mapNode.at(8).viChildren, (std::vector<uint64_t>{728}));
  EXPECT_EQ(zRead.mapNode.at(728).iMin, 0u);  // the neighbour inherits the range
}

TEST_F(ContainerTree, AllocationWithAllSlotsInUseAppendsWithoutReading) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 21)));
  EXPECT_EQ(z.zContainer.GetNodeCursor(), 0u);
  EXPECT_EQ(z.zContainer.GetNodeNum(), 3u);
}

TEST_F(ContainerTree, TheCursorFollowsTheProbingRule) {
  // 31 frees leave slot 2 free; the next split probes: 0 -> 1 -> 2 (free) with 5 slots.
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 41)));
  // Before the split there are 5 slots, slot 2 free: the left node takes slot 2 after the cursors 1 and 2.
  EXPECT_EQ(z.zContainer.GetNodeCursor(), 2u);
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.strError, "");
  EXPECT_EQ(zRead.mapNode.at(8).viChildren, (std::vector<uint64_t>{368, 1088, 728, 1808}));
}

TEST_F(ContainerTree, WithOneFreeSlotAmongThousandsAllocationMayAppend) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 21)));
  z.zContainer.Flush();
  // 3000 slots, all in use but one that ten probes from cursor 0 do not reach.
  const uint64_t iNum = 3000;
  Bytes vcUnused = Content(*z.pzUnused);
  vcUnused.resize(8 + 360 * iNum);
  for (uint64_t i = 3; i < iNum; ++i) vcUnused[static_cast<size_t>(8 + 360 * i)] = 1;
  std::vector<uint64_t> viProbe;
  uint64_t iCursor = 0;
  for (int i = 0; i < 10; ++i) {
    iCursor = (static_cast<uint64_t>(static_cast<double>(iCursor) * 0.31415926) + iCursor + 1) % iNum;
    viProbe.push_back(iCursor);
  }
  EXPECT_EQ(viProbe, (std::vector<uint64_t>{1, 2, 3, 4, 6, 8, 11, 15, 20, 27}));
  for (const bool bReachable : {true, false}) {
    Bytes vcImage = vcUnused;
    vcImage[8 + 360 * (bReachable ? 27 : 28)] = 0;
    Bytes vcMain = Content(*z.pzMain);
    vcMain.resize(static_cast<size_t>(z.zContainer.GetEndPosition()));
    vcMain.insert(vcMain.end(), vcImage.begin(), vcImage.end());
    PutU64(vcMain, 8 + 80, vcImage.size());
    PutU64(vcMain, 8 + 88, iNum - 1);
    PutU64(vcMain, 8 + 96, iNum);
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    const Bytes vcPayload(3000, 3);
    std::vector<Position> viFile;
    for (uint64_t i = 0; i < 10; ++i) {
      viFile.push_back(zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(2000 + i))));
      zContainer.AddRecord(KivContainerData(vcPayload.data(), 2500));  // larger than every free record
    }
    for (const Position iFile : viFile) zContainer.DeleteRecord(iFile);
    // One split: two slots, of which the first probes.
    EXPECT_EQ(zContainer.GetNodeNum(), bReachable ? iNum + 1 : iNum + 2);
    EXPECT_EQ(
        zContainer.GetNodeCursor(), bReachable ? 27u : [&] {
          uint64_t c = 0;
          for (int i = 0; i < 10; ++i) c = (static_cast<uint64_t>(static_cast<double>(c) * 0.31415926) + c + 1) % iNum;
          for (int i = 0; i < 10; ++i)
            c = (static_cast<uint64_t>(static_cast<double>(c) * 0.31415926) + c + 1) % (iNum + 1);
          return c;
        }());
  }
}

TEST_F(ContainerTree, ACursorOf2To63OrMoreIsTakenModulo2To64) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 31)));
  z.zContainer.Flush();
  for (const uint64_t iCursor : {uint64_t{1} << 63, UINT64_MAX, UINT64_MAX - 12345, (uint64_t{1} << 63) - 1}) {
    Bytes vcMain = Content(*z.pzMain);
    PutU64(vcMain, 8 + 112, iCursor);
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    const Bytes vcPayload(3000, 3);
    std::vector<Position> viFile;
    for (uint64_t i = 0; i < 12; ++i) {
      viFile.push_back(zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(2000 + i))));
      zContainer.AddRecord(KivContainerData(vcPayload.data(), 2500));  // larger than every free record
    }
    for (const Position iFile : viFile) zContainer.DeleteRecord(iFile);
    uint64_t c = iCursor;
    for (int i = 0; i < 10; ++i) {
      const double d = static_cast<double>(static_cast<int64_t>(c)) * 0.31415926;
      c = (static_cast<uint64_t>(static_cast<int64_t>(d)) + c + 1) % 5;
      if (c == 2) break;  // the free slot
    }
    ASSERT_EQ(c, 2u) << iCursor;  // the free slot is hit: the split appends one slot, not two
    EXPECT_EQ(zContainer.GetNodeNum(), 6u) << iCursor;
    EXPECT_EQ(zContainer.GetNodeCursor(), 2u) << iCursor;
    EXPECT_TRUE(zContainer.FullCheck().IsSound()) << iCursor << "\n" << zContainer.FullCheck().GetText();
  }
}

TEST_F(ContainerTree, AnEmptiedLeafGivesItsRangeToTheNextChildIfItIsTheFirstElseToThePrevious) {
  // Leaves of 10: [..1009], [1009..1019], [1019..]
  const Bytes vcPayload(3000, 2);
  for (const int iLeaf : {0, 1, 2}) {
    Isolated z;
    z.FreeAll(z.AddAll(Ascending(1000, 31)));
    const uint64_t iFrom = iLeaf == 0 ? 1000 : iLeaf == 1 ? 1010 : 1020;
    const uint64_t iTo = iLeaf == 0 ? 1010 : iLeaf == 1 ? 1020 : 1031;
    for (uint64_t i = iFrom; i < iTo; ++i)
      z.zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(i - 24)));
    const ReadContainer zRead = z.Read();
    ASSERT_EQ(zRead.strError, "");
    const std::vector<uint64_t> viChildren = zRead.mapNode.at(8).viChildren;
    ASSERT_EQ(viChildren.size(), 2u);
    const ReadNodeInfo& zFirst = zRead.mapNode.at(viChildren[0]);
    const ReadNodeInfo& zSecond = zRead.mapNode.at(viChildren[1]);
    EXPECT_EQ(zFirst.iMax, iLeaf == 2 ? 1009u : 1019u) << iLeaf;
    EXPECT_EQ(zSecond.iMin, iLeaf == 2 ? 1009u : 1019u) << iLeaf;
  }
}

TEST_F(ContainerTree, AWidenedBranchPushesItsRangeDown) {
  // Enough equal steps that the last child of the root is a branch; then its left neighbours go.
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 260)));
  const Bytes vcPayload(3000, 2);
  for (uint64_t i = 1000; i < 1259; ++i) {
    z.zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(i - 24)));
    const ReadContainer zRead = z.Read();
    ASSERT_EQ(zRead.strError, "") << i;
  }
}

TEST_F(ContainerTree, ThousandsOfEqualSizesKeepTheTreeSound) {
  Isolated z;
  std::vector<Position> viFile = z.AddAll(std::vector<uint64_t>(3000, 100));
  z.FreeAll(viFile);
  EXPECT_EQ(z.Read().strError, "");
  EXPECT_GT(z.zContainer.FullCheck().m_iDepth, 10u);
  const Bytes vcPayload(76, 2);
  for (int i = 0; i < 3000; ++i) z.zContainer.AddRecord(KivContainerData(vcPayload.data(), 76));
  EXPECT_EQ(z.zContainer.GetValidNodeNum(), 1u);
  EXPECT_EQ(z.Read().strError, "");
}

// --- Damaged trees -------------------------------------------------------------------------------

TEST_F(ContainerTree, DamagedNodesAreReportedAndOperationsEnd) {
  Isolated z;
  z.FreeAll(z.AddAll(Ascending(1000, 60)));
  z.zContainer.Flush();
  const Bytes vcGood = Content(*z.pzMain);
  const uint64_t iImage = z.zContainer.GetEndPosition();
  std::mt19937_64 zRandom(7);
  const int iRounds = ScaledSteps(600);
  for (int iRound = 0; iRound < iRounds; ++iRound) {
    Bytes vcMain = vcGood;
    const int iWrites = 1 + static_cast<int>(zRandom() % 4);
    for (int i = 0; i < iWrites; ++i) {
      const uint64_t iNode = iImage + 8 + 360 * (zRandom() % z.zContainer.GetNodeNum());
      switch (zRandom() % 6) {
        case 0:
          vcMain[static_cast<size_t>(iNode + zRandom() % 3)] = static_cast<uint8_t>(zRandom());
          break;
        case 1:
          PutU64(vcMain, iNode + 24, 8 + 360 * (zRandom() % 12));  // parent: any node
          break;
        case 2:
          PutU64(vcMain, iNode + 40 + 8 * (zRandom() % 20), 8 + 360 * (zRandom() % 12));  // child: rings
          break;
        case 3:
          PutU64(vcMain, iNode + 8 * (zRandom() % 45), zRandom());
          break;
        case 4:
          PutU64(vcMain, iNode + 8 * (1 + zRandom() % 44), zRandom() % 100000);
          break;
        default:
          PutU64(vcMain, iNode + 8 + 8 * (zRandom() % 2), zRandom() % 2 == 0 ? 0 : UINT64_MAX);
      }
    }
    for (const bool bThrow : {true, false}) {
      KivSetReportNoThrow(!bThrow);
      try {
        KivFastFileContainer zContainer(iRound % 2 == 0 ? MakeMemory(vcMain) : MakeUnmanagedMemory(vcMain), nullptr);
        zContainer.FullCheck();
        const Bytes vcPayload(2000, 4);
        for (int i = 0; i < 6; ++i) try {
            zContainer.AddRecord(KivContainerData(vcPayload.data(), 950 + 20 * static_cast<uint32_t>(i)));
            zContainer.DeleteRecord(264 + 1000);
            zContainer.DeleteRecord(iImage - 24);
          } catch (const KivException&) {
          }
        zContainer.FullCheck();
        EXPECT_LT(zContainer.GetBaseFile()->GetLength(), 400000u);
        EXPECT_LT(zContainer.GetUnusedRecordFile()->GetLength(), 100000u);
      } catch (const KivException&) {
      }
      KivSetReportNoThrow(false);
    }
  }
}

TEST_F(ContainerTree, AnUnusedRootIsReportedAndAnAddThenAppends) {
  Isolated z;
  z.FreeAll(z.AddAll({100}));
  const uint8_t iUnused = 0;
  z.pzUnused->Write(8, &iUnused, 1);
  EXPECT_REPORT_FROM(z.zContainer.AddRecord(KivContainerData("abc", 3)), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  const Position iEnd = z.zContainer.GetEndPosition();
  EXPECT_EQ(z.zContainer.AddRecord(KivContainerData("abc", 3)), iEnd);
}

TEST_F(ContainerTree, AMissingRootIsReportedByAddingAndByFreeing) {
  Isolated z;
  z.Add(100);
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  PutU64(vcMain, 8 + 104, 0);
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_REPORT_FROM(zContainer.AddRecord(KivContainerData("abc", 3)), "0", "src\\KivFastFileContainerBase");
  EXPECT_REPORT_FROM(zContainer.DeleteRecord(264), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_EQ(zContainer.AddRecord(KivContainerData("abc", 3)), z.zContainer.GetEndPosition());
}

TEST_F(ContainerTree, ASlotBehindTheEndOfTheUnusedRecordFileIsReportedAsAShortRead) {
  Isolated z;
  const std::vector<Position> viFile = z.AddAll(Ascending(1000, 21));
  z.FreeAll(std::vector<Position>(viFile.begin(), viFile.end() - 1));
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  PutU64(vcMain, 8 + 96, 3);  // two more slots than the file has, said to be free
  const auto pzUnused = MakeFile(FileKind::Plain, m_zFolder, u"a.urf");  // which reads short without a report
  const Bytes vcUnused = Content(*z.pzUnused);
  pzUnused->Write(0, vcUnused.data(), vcUnused.size());
  ContainerOfTwoFiles zContainer(MakeUnmanagedMemory(vcMain), pzUnused);
  EXPECT_REPORT_FROM(zContainer.DeleteRecord(viFile.back()), "nRead == sizeof(Position)",
                     "src\\KivFastFileContainerBase");
  EXPECT_EQ(zContainer.GetNodeCursor(), 1u);
  EXPECT_EQ(pzUnused->GetLength(), 368u);
}

TEST_F(ContainerTree, APairOfAnotherSizeIsReportedWhenItIsTakenOut) {
  Isolated z;
  const std::vector<Position> viFile = z.AddAll({100, 200});
  const Position iBehind = viFile[1] + 200;  // the empty record behind the second one
  z.FreeAll(viFile);
  const uint64_t iWrong = 201;
  z.pzUnused->Write(8 + 40 + 16, &iWrong, 8);
  EXPECT_REPORT(z.zContainer.DeleteRecord(iBehind), "iFileSize == zNode.apChildPointer[2 * i]");
}

// --- Byte for byte -------------------------------------------------------------------------------

namespace {

// The same operations on a container and on the plain re-telling.
class Pair {
 public:
  Pair(KivSharedPtr<ISnapShotFile> pzMain, KivSharedPtr<ISnapShotFile> pzUnused, bool bManaged, uint64_t iSeed)
      : m_pzMain(pzMain),
        m_pzUnused(pzUnused),
        m_pzContainer(std::make_unique<KivFastFileContainer>(pzMain, pzUnused, nullptr)),
        m_zOracle(bManaged, 1, 5, KivGetExecutableFileTime()),
        m_zRandom(iSeed) {}

  void Step() {
    const uint64_t iKind = m_zRandom() % 100;
    if (m_viFile.empty() || iKind < 45) {
      Bytes vcPayload(RandomSize());
      for (uint8_t& c : vcPayload) c = static_cast<uint8_t>(m_zRandom());
      const uint32_t iPadding = m_zRandom() % 8 == 0 ? static_cast<uint32_t>(m_zRandom() % (vcPayload.size() + 1)) : 0;
      const uint8_t cNone = 0;
      const Position iFile = m_pzContainer->AddRecord(KivContainerData(
          vcPayload.empty() ? &cNone : vcPayload.data(), static_cast<uint32_t>(vcPayload.size()), iPadding));
      ASSERT_EQ(iFile, m_zOracle.Add(vcPayload, iPadding));
      m_viFile.push_back(iFile);
      return;
    }
    const size_t i = static_cast<size_t>(m_zRandom() % m_viFile.size());
    const Position iFile = m_viFile[i];
    m_viFile[i] = m_viFile.back();
    m_viFile.pop_back();
    if (iKind < 88) {
      m_pzContainer->DeleteRecord(iFile);
      m_zOracle.Delete(iFile);
      return;
    }
    if (iKind < 97) {
      Position iStart = 0;  // of the front of the file: always a record
      uint64_t iOracleStart = 0;
      Position iStoredAt = 0;
      uint64_t iOracleStoredAt = 0;
      ASSERT_EQ(m_pzContainer->MoveRecord(iFile, iStart, &iStoredAt),
                m_zOracle.Move(iFile, iOracleStart, iOracleStoredAt));
      ASSERT_EQ(iStart, iOracleStart);
      ASSERT_EQ(iStoredAt, iOracleStoredAt);
      m_viFile.push_back(iStoredAt);
      return;
    }
    m_viFile.push_back(iFile);
    m_pzContainer->Flush();
    m_zOracle.Flush();
  }

  void Compare(bool bWhole) {
    ASSERT_EQ(m_pzContainer->GetEndPosition(), m_zOracle.iEnd);
    ASSERT_EQ(m_pzContainer->GetNodeNum(), m_zOracle.iNum);
    ASSERT_EQ(m_pzContainer->GetValidNodeNum(), m_zOracle.iValid);
    ASSERT_EQ(m_pzContainer->GetNodeCursor(), m_zOracle.iCursor);
    Bytes vcMain = Content(*m_pzMain);
    Bytes vcUnused = Content(*m_pzUnused);
    Bytes vcOracleMain = m_zOracle.vcMain;
    Bytes vcOracleUnused = m_zOracle.vcUnused;
    if (!bWhole) {  // the capacity of a mapped file is a matter of its pages
      for (Bytes* p : {&vcMain, &vcOracleMain}) p->resize(static_cast<size_t>(m_zOracle.iEnd));
      for (Bytes* p : {&vcUnused, &vcOracleUnused}) p->resize(static_cast<size_t>(8 + 360 * m_zOracle.iNum));
      for (Bytes* p : {&vcMain, &vcOracleMain}) PutU64(*p, 8 + 80, 0);
    }
    ASSERT_TRUE(vcMain == vcOracleMain);
    ASSERT_TRUE(vcUnused == vcOracleUnused);
    const KivContainerCheck zCheck = m_pzContainer->FullCheck();
    ASSERT_TRUE(zCheck.IsSound()) << zCheck.GetText();
    const ReadContainer zRead = ReadContainerBytes(vcMain, m_zOracle.iEnd, vcUnused, m_zOracle.iRoot);
    ASSERT_EQ(zRead.strError, "");
    ASSERT_EQ(zRead.mapNode.size(), zCheck.m_iNodeNum);
  }

 private:
  size_t RandomSize() {
    const uint64_t iKind = m_zRandom() % 10;
    if (iKind < 3) return static_cast<size_t>(m_zRandom() % 40);
    if (iKind < 5) return 100;  // many equal ones
    if (iKind < 9) return static_cast<size_t>(m_zRandom() % 600);
    return static_cast<size_t>(m_zRandom() % 9000);
  }

  KivSharedPtr<ISnapShotFile> m_pzMain;
  KivSharedPtr<ISnapShotFile> m_pzUnused;
  std::unique_ptr<KivFastFileContainer> m_pzContainer;
  ContainerOracle m_zOracle;
  std::mt19937_64 m_zRandom;
  std::vector<Position> m_viFile;
};

void RunAgainstOracle(Pair& zPair, bool bWhole, int iSteps) {
  for (int i = 1; i <= iSteps; ++i) {
    zPair.Step();
    if (testing::Test::HasFatalFailure()) FAIL() << "step " << i;
    if (i % 1000 == 0 || i == iSteps) zPair.Compare(bWhole);
    if (testing::Test::HasFatalFailure()) FAIL() << "step " << i;
  }
}

}  // namespace

TEST_F(ContainerTree, MemoryFilesHaveTheDocumentedBytesAfterLongRandomRuns) {
  for (const uint64_t iSeed : {1, 2, 3}) {
    SCOPED_TRACE("seed " + std::to_string(iSeed));
    Pair zPair(MakeMemory(), MakeMemory(), true, iSeed);
    RunAgainstOracle(zPair, true, ScaledSteps(12000));
  }
}

TEST_F(ContainerTree, FilesWithoutCapacityHaveTheDocumentedBytesAfterLongRandomRuns) {
  for (const uint64_t iSeed : {4, 5, 6}) {
    SCOPED_TRACE("seed " + std::to_string(iSeed));
    Pair zPair(MakeUnmanagedMemory(), MakeUnmanagedMemory(), false, iSeed);
    RunAgainstOracle(zPair, true, ScaledSteps(12000));
  }
}

TEST_F(ContainerTree, PlainFilesHaveTheDocumentedBytesAfterLongRandomRuns) {
  Pair zPair(MakeFile(FileKind::Plain, m_zFolder, u"a"), MakeFile(FileKind::Plain, m_zFolder, u"b"), false, 7);
  RunAgainstOracle(zPair, true, ScaledSteps(6000));
}

TEST_F(ContainerTree, MappedFilesHaveTheDocumentedBytesAfterLongRandomRuns) {
  for (const uint64_t iSeed : {8, 9, 10}) {
    SCOPED_TRACE("seed " + std::to_string(iSeed));
    Pair zPair(MakeFile(FileKind::Mapped, m_zFolder, u"a"), MakeFile(FileKind::Mapped, m_zFolder, u"b"), true, iSeed);
    RunAgainstOracle(zPair, false, ScaledSteps(12000));
  }
}
