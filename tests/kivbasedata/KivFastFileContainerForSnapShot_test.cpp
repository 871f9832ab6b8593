#include "KivFastFileContainerForSnapShot.h"

#include <gtest/gtest.h>

#include <limits>

#include "KivFastFileContainer.h"
#include "KivFileFactory.h"
#include "KivSysFault.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

struct Package : IKivPatchPackage {
  bool AddPatch(const KivWString& csPath, const KivWString& csSidePath) override {
    m_csAdded = csPath + u"|" + csSidePath;
    return true;
  }
  static KivWString m_csAdded;
};
KivWString Package::m_csAdded;

class SnapShotContainer : public testing::Test {
 protected:
  SnapShotContainer() {
    PrepareStoreProcess();
    m_csPath = m_zFolder / u"a.kiv";
    KivFastFileContainer zNew(KivCreateMappedFile(Create(m_csPath)), KivCreateMappedFile(Create(m_csPath + u".urf")),
                              nullptr);
    m_iFirst = Add(zNew, "first");
    m_iSecond = Add(zNew, "second");
    Add(zNew, "third");
  }
  ~SnapShotContainer() override { Base(-1); }

  static KivSysFile Create(const KivWString& csPath) {
    return KivSysFile::Open(csPath, {KivSysAccess::ReadWrite, KivSysShare::ReadWrite, KivSysDisposition::CreateAlways});
  }
  KivSharedPtr<ISnapShotFile> OpenBase() {
    return KivCreateReadOnlyMappedFile(
        KivSysFile::Open(m_csPath, {KivSysAccess::Read, KivSysShare::ReadWrite, KivSysDisposition::OpenExisting}),
        KivSysFile());
  }
  std::unique_ptr<KivFastFileContainerForSnapShot> Open(const KivWString& csSidePath = KivWString()) {
    return std::make_unique<KivFastFileContainerForSnapShot>(OpenBase(), nullptr, csSidePath, nullptr);
  }
  static Position Add(KivFastFileContainerBase& zContainer, const std::string& strText) {
    return zContainer.AddRecord(KivContainerData(strText.data(), static_cast<uint32_t>(strText.size())));
  }
  static std::string Text(KivFastFileContainerBase& zContainer, Position iFile) {
    const KivContainerRecord zRecord = zContainer.GetRecord(iFile);
    if (zRecord.m_pzFile.Get() == nullptr) return "free";
    std::string strText(zRecord.m_iFileSize, '\0');
    zRecord.m_pzFile->Read(zRecord.m_iOffset, strText.data(), strText.size());
    return strText;
  }
  static void Base(int32_t i) { KivDataSpaceFields::GetInstance()->m_iCurBaseSnapShot = i; }
  static void Discard(std::unique_ptr<KivFastFileContainerForSnapShot>& pzClone) {
    KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot = true;
    pzClone.reset();
    KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot = false;
  }

  TestFolder m_zFolder;
  KivWString m_csPath;
  Position m_iFirst = 0;
  Position m_iSecond = 0;
};

TEST_F(SnapShotContainer, ARestoredCloneBringsRecordsAndTreeBack) {
  auto pzContainer = Open();
  ASSERT_EQ(pzContainer->GetStatus(), KivContainerStatus::Usable);
  Base(0);
  auto pzClone = pzContainer->CreateSnapShot();
  ASSERT_NE(pzClone, nullptr);
  const uint64_t iEnd = pzContainer->GetEndPosition();
  const Position iNew = Add(*pzContainer, std::string(300000, 'n'));
  pzContainer->DeleteRecord(m_iFirst);
  EXPECT_EQ(Text(*pzContainer, m_iFirst), "free");
  EXPECT_EQ(pzContainer->FullCheck().m_iFreeRecordNum, 1U);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(pzContainer->RestoreFromUndo(*pzClone), KivContainerRestoreResult::Done);
    EXPECT_EQ(pzContainer->GetEndPosition(), iEnd);
    EXPECT_EQ(Text(*pzContainer, m_iFirst), "first");
    EXPECT_EQ(Text(*pzContainer, m_iSecond), "second");
    const KivContainerCheck zCheck = pzContainer->FullCheck();
    EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
    EXPECT_EQ(zCheck.m_iFreeRecordNum, 0U);
    EXPECT_EQ(Add(*pzContainer, "again"), iNew);
  }
  Discard(pzClone);
}

TEST_F(SnapShotContainer, ACloneWhoseReleaseFailsInItsDestructorLosesNothing) {
  auto pzContainer = Open();
  const Position iEdited = Add(*pzContainer, std::string(300000, 'e'));
  Base(0);
  auto pzFirst = pzContainer->CreateSnapShot();
  const Position iLater = Add(*pzContainer, std::string(100000, 'l'));
  Base(1);
  auto pzSecond = pzContainer->CreateSnapShot();
  {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = KivSysCall::FileRead;
    zPlan.m_iNth = 1;
    zPlan.m_bFromThenOn = true;
    const KivSysFaultScope zFault(zPlan);
    const uint64_t nBefore = KivGetReportCount();
    pzFirst.reset();
    EXPECT_GT(KivGetReportCount(), nBefore);
    EXPECT_TRUE(zFault.HasFired());
  }
  for (KivFastFileContainerBase* pzBase : {static_cast<KivFastFileContainerBase*>(pzContainer.get()),
                                           static_cast<KivFastFileContainerBase*>(pzSecond.get())}) {
    EXPECT_EQ(Text(*pzBase, m_iFirst), "first");
    EXPECT_EQ(Text(*pzBase, iEdited), std::string(300000, 'e'));
    EXPECT_EQ(Text(*pzBase, iLater), std::string(100000, 'l'));
  }
  EXPECT_EQ(pzContainer->RestoreFromUndo(*pzSecond), KivContainerRestoreResult::Done);
  EXPECT_EQ(Text(*pzContainer, iEdited), std::string(300000, 'e'));
}

TEST_F(SnapShotContainer, ACloneKeepsItsStateWhileTheContainerChanges) {
  auto pzContainer = Open();
  Base(0);
  auto pzClone = pzContainer->CreateSnapShot();
  pzContainer->DeleteRecord(m_iFirst);
  Add(*pzContainer, "one");
  EXPECT_EQ(Text(*pzClone, m_iFirst), "first");
  EXPECT_TRUE(pzClone->FullCheck().IsSound());
  Discard(pzClone);
}

TEST_F(SnapShotContainer, TheFileOnDiskIsNeverChanged) {
  const std::string strBefore = FileBytes(m_csPath);
  {
    auto pzContainer = Open();
    Base(0);
    auto pzClone = pzContainer->CreateSnapShot();
    Add(*pzContainer, "more");
    pzContainer->DeleteRecord(m_iSecond);
    Discard(pzClone);
  }
  EXPECT_EQ(FileBytes(m_csPath), strBefore);
}

TEST_F(SnapShotContainer, OnlyTheLivingContainerFlushesAtItsEnd) {
  auto pzContainer = Open();
  Add(*pzContainer, "more");
  Base(0);
  auto pzClone = pzContainer->CreateSnapShot();
  KivSetReported(false);
  Discard(pzClone);  // a flush of a clone would write to a snapshot, which is reported
  EXPECT_FALSE(KivGetReportSwitches().m_bReported);
}

TEST_F(SnapShotContainer, ClonesLeaveFromTheFrontToo) {
  auto pzContainer = Open();
  Base(0);
  auto pzFirst = pzContainer->CreateSnapShot();
  KivSetReported(false);
  const Position iOne = Add(*pzContainer, "one");
  Base(1);
  auto pzSecond = pzContainer->CreateSnapShot();
  pzContainer->DeleteRecord(iOne);
  pzFirst.reset();
  EXPECT_FALSE(KivGetReportSwitches().m_bReported);
  EXPECT_EQ(pzContainer->RestoreFromUndo(*pzSecond), KivContainerRestoreResult::Done);
  EXPECT_EQ(Text(*pzContainer, iOne), "one");
  EXPECT_EQ(Text(*pzContainer, m_iFirst), "first");
  pzSecond.reset();
  EXPECT_FALSE(KivGetReportSwitches().m_bReported);
  EXPECT_EQ(Text(*pzContainer, iOne), "one");
}

TEST_F(SnapShotContainer, ARestoreFromAStrangeCloneGivesTen) {
  auto pzContainer = Open();
  auto pzOther = Open();
  Base(0);
  auto pzClone = pzOther->CreateSnapShot();
  EXPECT_REPORT(pzContainer->RestoreFromUndo(*pzClone), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(pzContainer->RestoreFromUndo(*pzClone), KivContainerRestoreResult::BaseFile);
  }
  Discard(pzClone);
}

TEST_F(SnapShotContainer, IsNoMultiFileContainerOnAPlainFile) {
  auto pzContainer = Open();
  EXPECT_FALSE(pzContainer->IsMultiFileContainer());
  EXPECT_FALSE(pzContainer->AddToMultiFile(u"a", u"b"));
}

TEST_F(SnapShotContainer, HandsPatchesToItsPackageAndAClonesHasNone) {
  KivFastFileContainerForSnapShot zContainer(OpenBase(), nullptr, KivWString(), std::make_unique<Package>());
  EXPECT_TRUE(zContainer.IsMultiFileContainer());
  EXPECT_TRUE(zContainer.AddToMultiFile(u"patch", u"side"));
  EXPECT_EQ(Package::m_csAdded, u"patch|side");
  Base(0);
  auto pzClone = zContainer.CreateSnapShot();
  EXPECT_FALSE(pzClone->IsMultiFileContainer());
  Discard(pzClone);
}

TEST_F(SnapShotContainer, ASideFileTakesThePlaceOfTheImage) {
  std::string strSide(8 + 360, '\0');
  strSide[8] = 1;                                        // used
  for (size_t i = 24; i < 32; ++i) strSide[i] = '\xFF';  // range to the end
  strSide[8 + 32] = 8;                                   // own position
  PutFileBytes(m_zFolder / u"side", strSide);
  auto pzContainer = Open(m_zFolder / u"side");
  ASSERT_EQ(pzContainer->GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(pzContainer->GetUnusedRecordFile()->GetLength(), strSide.size());
  EXPECT_EQ(Text(*pzContainer, m_iFirst), "first");
  // A path without a file is no side file.
  auto pzPlain = Open(m_zFolder / u"none");
  EXPECT_EQ(pzPlain->GetStatus(), KivContainerStatus::Usable);
}

TEST_F(SnapShotContainer, AnEmptySideFileLeavesTheImageItsPlaceAndOneCutInsideANodeMakesTreeOperationsReport) {
  PutFileBytes(m_zFolder / u"empty", "");
  const auto pzImage = Open(m_zFolder / u"empty");
  ASSERT_EQ(pzImage->GetStatus(), KivContainerStatus::Usable);
  EXPECT_TRUE(pzImage->FullCheck().IsSound());
  for (const size_t nBytes : {size_t{1}, size_t{8}, size_t{200}}) {
    SCOPED_TRACE(nBytes);
    PutFileBytes(m_zFolder / u"cut", std::string(nBytes, '\1'));
    const auto pzCut = Open(m_zFolder / u"cut");
    ASSERT_EQ(pzCut->GetStatus(), KivContainerStatus::Usable);
    EXPECT_EQ(pzCut->GetUnusedRecordFile()->GetLength(), nBytes);
    EXPECT_EQ(Text(*pzCut, m_iFirst), "first");
    EXPECT_FALSE(pzCut->FullCheck().IsSound());
    EXPECT_REPORT(Add(*pzCut, "more"), "0");
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Text(*pzCut, Add(*pzCut, "more")), "more");
  }
}

KivSysFaultPlan ShortRead(uint64_t iNth) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileRead;
  zPlan.m_iNth = iNth;
  zPlan.m_iKind = KivSysFaultKind::ShortCount;
  return zPlan;
}

TEST_F(SnapShotContainer, ASideFileThatReadsShortIsReportedAndLeavesTheContainerUninitialized) {
  const KivWString csSide = m_zFolder / u"side";
  PutFileBytes(csSide, std::string(3 << 20, '\0'));
  for (const uint64_t iNth : {uint64_t{1}, uint64_t{2}, uint64_t{3}}) {
    SCOPED_TRACE(iNth);
    const auto Make = [&, pzBase = OpenBase()] {
      const KivSysFaultScope zScope(ShortRead(iNth));
      const KivFastFileContainerForSnapShot zContainer(pzBase, nullptr, csSide, nullptr);
      EXPECT_TRUE(zScope.HasFired());
      EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::NotInitialized);
    };
    EXPECT_REPORT(Make(), "0");
    const NoThrowScope zNoThrow;
    const uint64_t nReports = KivGetReportCount();
    Make();
    EXPECT_EQ(KivGetReportCount(), nReports + 1);
  }
}

TEST_F(SnapShotContainer, TheLongestSideFileIsReadAndOneOfAByteMoreIsNot) {
  const KivWString csSide = m_zFolder / u"side";
  const NoThrowScope zNoThrow;
  for (const uint64_t iMore : {uint64_t{0}, uint64_t{1}}) {
    {
      KivSysFile zFile = Create(csSide);
      zFile.SetSparse();
      ASSERT_TRUE(zFile.SetLength(std::numeric_limits<uint32_t>::max() + iMore));
    }
    const auto pzBase = OpenBase();
    const KivSysFaultScope zScope(ShortRead(1));  // nobody waits for 4 GiB
    const KivFastFileContainerForSnapShot zContainer(pzBase, nullptr, csSide, nullptr);
    EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::NotInitialized);
    EXPECT_EQ(zScope.HasFired(), iMore == 0);
  }
}

TEST_F(SnapShotContainer, ASideFileAboveFourGibibytesIsRefused) {
  const KivWString csSide = m_zFolder / u"side";
  {
    KivSysFile zFile = Create(csSide);
    zFile.SetSparse();
    ASSERT_TRUE(zFile.SetLength(uint64_t{1} << 32));
  }
  EXPECT_REPORT(Open(csSide), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Open(csSide)->GetStatus(), KivContainerStatus::NotInitialized);
}

TEST_F(SnapShotContainer, ASideFileThatCannotBeOpenedIsReported) {
  const KivWString csSide = m_zFolder / u"side";
  PutFileBytes(csSide, "x");
  const KivSysFile zHeld =
      KivSysFile::Open(csSide, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting});
  EXPECT_REPORT(Open(csSide), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Open(csSide)->GetStatus(), KivContainerStatus::NotInitialized);
}

}  // namespace
