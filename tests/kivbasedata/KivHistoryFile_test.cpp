#include "KivHistoryFile.h"

#include "KivMemFile.h"
#include "KivTestFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

using History = FileTest;

// A class of the root itself: no cache, no device.
class PlainHistoryFile : public KivHistoryFile {
 public:
  explicit PlainHistoryFile(bool bReadOnly = false) : KivHistoryFile(bReadOnly) {}
  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override {
    std::unique_ptr<KivFile> pzNew;
    if (pSnapShot_arg == nullptr) {
      pzNew.reset(CreateInstance());
      pSnapShot_arg = pzNew.get();
    }
    KivFile* pSnapShot = KivHistoryFile::CopyToSnapShot(pSnapShot_arg);
    if (pSnapShot != nullptr) pzNew.release();
    return pSnapShot;
  }
  KivFile* CreateInstance() override { return new PlainHistoryFile; }
  uint64_t DoRead(uint64_t, void*, uint64_t nCount) override { return nCount; }
  void DoWrite(uint64_t, const void*, uint64_t) override { ++m_nWrites; }
  void DoWriteZero(uint64_t, uint64_t) override { ++m_nWrites; }
  bool DoSetLength(uint64_t) override { return true; }
  void DoFlush() override {}
  uint64_t DoGetLength() override { return 7; }
  int m_nWrites = 0;
};

TEST_F(History, AWriteOnASnapshotFailsTheCheck) {
  PlainHistoryFile zFile;
  auto pzSnapShot = m_zSpace.Take(zFile);
  EXPECT_REPORT(pzSnapShot->Write(0, "x", 1), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->WriteZero(0, 1), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(pzSnapShot->Write(0, "x", 1));
  EXPECT_RETURNING_REPORT(pzSnapShot->WriteZero(0, 1));
  EXPECT_EQ(dynamic_cast<PlainHistoryFile*>(pzSnapShot.Get())->m_nWrites, 0);
}

TEST_F(History, ADirectWritableBufferOnASnapshotFailsTheCheck) {
  KivWritableMemFile zFile;
  WriteBytes(zFile, 0, Pattern(10));
  auto pzSnapShot = m_zSpace.Take(zFile);
  EXPECT_REPORT(pzSnapShot->GetDirectBuffer(false, 0, 10), "bReadOnly || !IsSnapShotFile()");
  EXPECT_NO_REPORT(EXPECT_NE(pzSnapShot->GetDirectBuffer(true, 0, 10), nullptr));
  EXPECT_REPORT(pzSnapShot->ReleaseDirectBuffer(), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzSnapShot->GetDirectBuffer(false, 0, 10), nullptr));
}

TEST_F(History, OnlyAWritableDirectBufferSetsModified) {
  KivWritableMemFile zFile;
  ASSERT_TRUE(zFile.PrepareDirectBuffer(10));
  zFile.GetDirectBuffer(true, 0, 10);
  EXPECT_FALSE(zFile.IsModified());
  zFile.GetDirectBuffer(false, 0, 10);
  EXPECT_TRUE(zFile.IsModified());
}

TEST_F(History, RestoringTheSameSnapshotTwiceGivesTheSameContents) {
  KivWritableMemFile zFile;
  const Bytes vcFirst = Pattern(100);
  WriteBytes(zFile, 0, vcFirst);
  auto pzSnapShot = m_zSpace.Take(zFile);
  for (int i = 0; i < 2; ++i) {
    WriteBytes(zFile, 50, Pattern(100, 2));
    EXPECT_EQ(zFile.RestoreSnapShot(pzSnapShot), 0);
    EXPECT_EQ(ReadBytes(zFile, 0, 100), vcFirst);
    EXPECT_EQ(zFile.GetLength(), 100u);
  }
}

TEST_F(History, RestoringAFileThatWasNeverSnapshottedGives50) {
  PlainHistoryFile zTaken;
  PlainHistoryFile zNever;
  auto pzSnapShot = m_zSpace.Take(zTaken);
  EXPECT_REPORT(zNever.RestoreSnapShot(pzSnapShot), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zNever.RestoreSnapShot(pzSnapShot), 50));
}

TEST_F(History, RestoringFromAnotherFilesSnapshotGives50AndChangesNothing) {
  PlainHistoryFile zTaken;
  PlainHistoryFile zOther;
  auto pzSnapShot = m_zSpace.Take(zTaken);
  auto pzOther = m_zSpace.Take(zOther);
  EXPECT_REPORT(zOther.RestoreSnapShot(pzSnapShot), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zOther.RestoreSnapShot(pzSnapShot), 50));
  EXPECT_EQ(zOther.RestoreSnapShot(pzOther), 0);
}

TEST_F(History, ADerivedClassPassesOnThatItsBaseFailed) {
  KivWritableMemFile zTaken;
  KivWritableMemFile zNever;
  auto pzSnapShot = m_zSpace.Take(zTaken);
  EXPECT_REPORT(zNever.RestoreSnapShot(pzSnapShot), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zNever.RestoreSnapShot(pzSnapShot), 20));
}

TEST_F(History, RestoringFromNothingOrAnotherClassGives10) {
  KivWritableMemFile zFile;
  auto pzSnapShot = m_zSpace.Take(zFile);
  KivSharedPtr<ISnapShotFile> pzOther(new KivMemFile("x", 1));
  EXPECT_REPORT(zFile.RestoreSnapShot(nullptr), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.RestoreSnapShot(nullptr), 10));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.RestoreSnapShot(pzOther), 10));
  PlainHistoryFile zPlain;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zPlain.RestoreSnapShot(nullptr), 10));
}

TEST_F(History, RestoringChecksThatBothAreReadOnlyOrNeither) {
  PlainHistoryFile zFile;
  auto pzSnapShot = m_zSpace.Take(zFile);
  dynamic_cast<KivFile*>(pzSnapShot.Get())->m_bReadOnly = true;
  EXPECT_REPORT(zFile.RestoreSnapShot(pzSnapShot), "m_bReadOnly == pUndo->m_bReadOnly");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.RestoreSnapShot(pzSnapShot), 0));
}

TEST_F(History, TheModifiedFlagGoesIntoASnapshotAndComesBack) {
  PlainHistoryFile zFile;
  auto pzSnapShot = m_zSpace.Take(zFile);
  zFile.Write(0, "x", 1);
  EXPECT_TRUE(zFile.IsModified());
  auto pzChanged = m_zSpace.Take(zFile);
  EXPECT_TRUE(pzChanged->IsModified());
  EXPECT_EQ(zFile.RestoreSnapShot(pzSnapShot), 0);
  EXPECT_FALSE(zFile.IsModified());
}

TEST_F(History, AReadOnlyFileReportsWritesAndDoesNothing) {
  PlainHistoryFile zFile(true);
  EXPECT_REPORT(zFile.Write(0, "x", 1), "0");
  EXPECT_REPORT(zFile.WriteZero(0, 1), "0");
  EXPECT_RETURNING_REPORT(zFile.Write(0, "x", 1));
  EXPECT_RETURNING_REPORT(zFile.WriteZero(0, 1));
  EXPECT_EQ(zFile.m_nWrites, 0);
  EXPECT_FALSE(zFile.IsModified());
}

TEST_F(History, TheRootReportsTheOperationsOfACache) {
  PlainHistoryFile zFile;
  double adRate[100];
  EXPECT_REPORT(zFile.AdvanceCaching(1), "0");
  EXPECT_REPORT(zFile.GetCacheStatusMap(adRate), "0");
  EXPECT_REPORT(zFile.SaveCache(u"x", 1), "0");
  EXPECT_REPORT(zFile.LoadCache(u"x"), "0");
  EXPECT_REPORT(zFile.IsCacheEnabled(), "0");
  EXPECT_REPORT(zFile.DisableCache(), "0");
  EXPECT_REPORT(zFile.PrepareDirectBuffer(1), "0");
  EXPECT_REPORT(zFile.GetDirectBufferSize(), "0");
  EXPECT_NO_REPORT(zFile.CheckFileStatus());
  EXPECT_TRUE(zFile.IsRangeCached(0, 1, 3));
  EXPECT_FALSE(zFile.IsBackGroundReadDone(0));
  EXPECT_FALSE(zFile.CanUseDirectBuffer());
  EXPECT_EQ(zFile.GetDirectBuffer(true, 0, 1), nullptr);
  EXPECT_EQ(zFile.GetLength(), 7u);
}

TEST_F(History, ASnapshotOfASnapshotFailsTheCheck) {
  PlainHistoryFile zFile;
  auto pzSnapShot = m_zSpace.Take(zFile);
  EXPECT_REPORT(pzSnapShot->CreateSnapShot(), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzSnapShot->CreateSnapShot()));
}

TEST_F(History, ReleasesFromTheFrontLeaveNullsUntilTheLastDueHasGone) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  auto pzC = m_zSpace.Take(zFile);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  ASSERT_EQ(zFile.m_vpSnapShotData.size(), 3u);
  EXPECT_EQ(zFile.m_vpSnapShotData[0], nullptr);
  EXPECT_EQ(zFile.m_vpSnapShotData[1], nullptr);
  EXPECT_NE(zFile.m_vpSnapShotData[2], nullptr);
  EXPECT_EQ(zFile.m_iFirstSnapShot, 2u);
  EXPECT_EQ(pzC->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
  EXPECT_EQ(zFile.m_iFirstSnapShot, 0u);
}

TEST_F(History, DiscardingASnapshotThatIsNotTheLastFailsTheCheck) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  m_zSpace.Discarding(true);
  EXPECT_REPORT(pzA->ReleaseSnapShot(), "m_pOriginal->m_vpSnapShotData.back() == this");
  EXPECT_EQ(zFile.m_vpSnapShotData.size(), 2u);
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
}

TEST_F(History, DiscardingTheWrongSnapshotPopsTheLastWhereReportsReturn) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  m_zSpace.Discarding(true);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 0));
  ASSERT_EQ(zFile.m_vpSnapShotData.size(), 1u);
  EXPECT_EQ(zFile.m_vpSnapShotData[0], dynamic_cast<KivHistoryFile*>(pzA.Get()));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->ReleaseSnapShot(), 10));
}

TEST_F(History, ReleasingHasACodeForEachStepThatFails) {
  PlainHistoryFile zFile;
  EXPECT_REPORT(zFile.ReleaseSnapShot(), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.ReleaseSnapShot(), 10));
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->ReleaseSnapShot(), 50));
  m_zSpace.Base(-1);
  EXPECT_REPORT(pzA->ReleaseSnapShot(), "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0");
  m_zSpace.Base(1);
  zFile.m_iFirstSnapShot = 2;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 30));
  zFile.m_iFirstSnapShot = 0;
  zFile.m_vpSnapShotData[0] = nullptr;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 40));
  zFile.m_vpSnapShotData.clear();
  m_zSpace.Discarding(true);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 20));
}

TEST_F(History, ASnapshotThatDiesEmptiesItsPlace) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  pzA.Release();
  ASSERT_EQ(zFile.m_vpSnapShotData.size(), 2u);
  EXPECT_EQ(zFile.m_vpSnapShotData[0], nullptr);
  EXPECT_NE(zFile.m_vpSnapShotData[1], nullptr);
}

TEST_F(History, AFileThatDiesFirstLeavesItsSnapshotsWithoutAFile) {
  KivSharedPtr<ISnapShotFile> pzFile(new KivWritableMemFile);
  WriteBytes(*pzFile, 0, Pattern(10));
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  pzFile.Release();
  uint8_t c = 0;
  EXPECT_REPORT(pzSnapShot->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzSnapShot->Read(0, &c, 1), 0u));
  EXPECT_REPORT(pzSnapShot->Write(0, &c, 1), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzSnapShot->ReleaseSnapShot(), 10));
}

TEST_F(History, ASnapshotThatWasReleasedCannotBeReadOrReleasedAgain) {
  KivWritableMemFile zFile;
  WriteBytes(zFile, 0, Pattern(10));
  auto pzSnapShot = m_zSpace.Take(zFile);
  EXPECT_EQ(pzSnapShot->ReleaseSnapShot(), 0);
  uint8_t c = 0;
  EXPECT_REPORT(pzSnapShot->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzSnapShot->ReleaseSnapShot(), 10));
}

TEST_F(History, ADeadOldestSnapshotDoesNotKeepTheYoungerOnesFromLeaving) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  auto pzC = m_zSpace.Take(zFile);
  pzA.Release();
  EXPECT_EQ(zFile.m_iFirstSnapShot, 1u);
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  EXPECT_EQ(pzC->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
  EXPECT_EQ(zFile.m_iFirstSnapShot, 0u);
}

TEST_F(History, ADeadSnapshotBetweenOthersIsPassed) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  auto pzC = m_zSpace.Take(zFile);
  pzB.Release();
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_EQ(zFile.m_iFirstSnapShot, 2u);
  EXPECT_EQ(pzC->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
}

TEST_F(History, ADeadOnlySnapshotIsPassedWhenTheNextIsTaken) {
  PlainHistoryFile zFile;
  m_zSpace.Take(zFile).Release();
  ASSERT_EQ(zFile.m_vpSnapShotData.size(), 1u) << "its place stays, so that the data space's numbers hold";
  auto pzB = m_zSpace.Take(zFile);
  EXPECT_EQ(zFile.m_vpSnapShotData.size(), 2u);
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
}

TEST_F(History, ADeadLastSnapshotDoesNotKeepTheOneBeforeItFromBeingDiscarded) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  pzB.Release();
  m_zSpace.Discarding(true);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
}

TEST_F(History, TheNextSnapshotTakesThePlaceOfADeadLastOne) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  pzB.Release();
  m_zSpace.Base(0);
  auto pzC = m_zSpace.Take(zFile);
  ASSERT_EQ(zFile.m_vpSnapShotData.size(), 2u);
  EXPECT_EQ(zFile.m_vpSnapShotData[1], dynamic_cast<KivHistoryFile*>(pzC.Get()));
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_EQ(pzC->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
}

TEST_F(History, AReleaseOfTheBaseLeavesLaterEntriesWithoutAFile) {
  PlainHistoryFile zFile;
  auto pzA = m_zSpace.Take(zFile);
  auto pzB = m_zSpace.Take(zFile);
  m_zSpace.Base(0);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_TRUE(zFile.m_vpSnapShotData.empty());
  EXPECT_EQ(zFile.m_iFirstSnapShot, 0u);
  uint8_t c = 0;
  EXPECT_REPORT(pzB->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->ReleaseSnapShot(), 10));
}

}  // namespace
