#include "KivDataSpaceBase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <sstream>

#include "KivContainerHeader.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivSysClock.h"
#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivTestChild.h"
#include "KivTestScale.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

class DataSpace : public StoreTest {
 protected:
  // True if nobody holds the file: it can be opened without sharing.
  static bool IsClosed(const KivWString& csPath) {
    return KivSysFile::Open(csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting})
        .IsOpen();
  }
  // Paths of all files in the test's folder and in the work folder, logs aside.
  std::set<std::string> Files() {
    std::set<std::string> strPaths;
    for (const KivWString& csFolder : {m_zFolder.Path(), KivGetWorkFolder()})
      for (const auto& zEntry : std::filesystem::recursive_directory_iterator(std::filesystem::path(csFolder)))
        if (zEntry.is_regular_file() && zEntry.path().filename().string().find("Log") == std::string::npos)
          strPaths.insert(zEntry.path().string());
    return strPaths;
  }
  // The key that the next manager will get.
  uint32_t NextKey() {
    KivStoreSource zSource;
    zSource.m_csPath = m_zFolder / u"nextkey";
    return KivOutOfCoreManagerKeyOwner(zSource).GetKey();
  }
};

// --- Settings -------------------------------------------------------------------------------------------------------

TEST_F(DataSpace, ValuesHaveTheirDefaults) {
  const KivDataSpaceBase zSpace;
  EXPECT_EQ(zSpace.m_bSetting0, 0);
  EXPECT_EQ(zSpace.m_iSetting1, 0U);
  EXPECT_EQ(zSpace.m_bSetting2, 0);
  EXPECT_EQ(zSpace.m_iSetting7, 0U);
  EXPECT_EQ(zSpace.m_iSetting3, 0U);
  EXPECT_EQ(zSpace.m_iKeepRawData, 1U);
  EXPECT_FALSE(zSpace.m_bBlockPerElement);
  EXPECT_FALSE(zSpace.m_bNoDirectBuffer);
  EXPECT_EQ(zSpace.m_iStackBufferLimit, 200000U);
  EXPECT_EQ(zSpace.m_iSetting4, 0U);
  EXPECT_EQ(zSpace.m_fSetting5, 0.0F);
  EXPECT_EQ(zSpace.m_iSetting6, 20U);
  EXPECT_EQ(zSpace.m_iSpeedClass, 0x3F800000);
  EXPECT_EQ(zSpace.m_iLanguageId, 0);
  EXPECT_FALSE(zSpace.m_bBackGroundRead);
  EXPECT_TRUE(zSpace.GetModels().empty());
  EXPECT_EQ(zSpace.GetCurBaseSnapShot(), -1);
  EXPECT_FALSE(zSpace.IsSnapShot());
}

TEST_F(DataSpace, SettersKeepTheirLimits) {
  KivDataSpaceBase zSpace;
  zSpace.SetSetting3(3);
  zSpace.SetSetting3(4);
  EXPECT_EQ(zSpace.m_iSetting3, 3U);
  zSpace.SetSetting4(60);
  EXPECT_EQ(zSpace.m_iSetting4, 60U);
  zSpace.SetSetting4(61);
  EXPECT_EQ(zSpace.m_iSetting4, 60U);
  zSpace.SetSetting5(1e-6F);
  EXPECT_EQ(zSpace.m_fSetting5, 1e-6F);
  zSpace.SetSetting5(1e6F);
  for (const float fRefused : {9e-7F, 1.1e6F, 0.0F, -1.0F, std::nanf("")}) zSpace.SetSetting5(fRefused);
  EXPECT_EQ(zSpace.m_fSetting5, 1e6F);
  zSpace.SetSetting7(2);
  EXPECT_REPORT(zSpace.SetSetting7(3), "0");
  {
    const NoThrowScope zNoThrow;
    zSpace.SetSetting7(3);
  }
  EXPECT_EQ(zSpace.m_iSetting7, 2U);
}

TEST_F(DataSpace, SettingSevenChangesOnlyWhileNoModelIsOpen) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), false);
  EXPECT_REPORT(Space().SetSetting7(1), "m_spModel.empty()");
  {
    const NoThrowScope zNoThrow;
    Space().SetSetting7(1);
  }
  EXPECT_EQ(Space().m_iSetting7, 0U);
  Close(pzModel);
  Space().SetSetting7(1);
  EXPECT_EQ(Space().m_iSetting7, 1U);
}

TEST_F(DataSpace, TheSpeedClassIsSetOrMeasured) {
  KivDataSpaceBase zSpace;
  zSpace.MeasureSpeed(-2);
  zSpace.MeasureSpeed(11);
  EXPECT_EQ(zSpace.m_iSpeedClass, 0x3F800000);
  zSpace.MeasureSpeed(10);
  EXPECT_EQ(zSpace.m_iSpeedClass, 10);
  zSpace.MeasureSpeed(0);
  EXPECT_EQ(zSpace.m_iSpeedClass, 0);
  KivDataSpaceBase zMeasured;  // its class lies outside of what is measured
  zMeasured.MeasureSpeed(-1);
  EXPECT_GE(zMeasured.m_iSpeedClass, 0);
  EXPECT_LE(zMeasured.m_iSpeedClass, 10);
}

// --- Instance -------------------------------------------------------------------------------------------------------

TEST_F(DataSpace, ThereIsOneInstance) {
  EXPECT_EQ(KivDataSpaceBase::GetInstance(), KivDataSpaceBase::GetInstance());
  EXPECT_EQ(static_cast<KivDataSpaceFields*>(KivDataSpaceBase::GetInstance()), KivDataSpaceFields::GetInstance());
}

class DerivedSpace : public KivDataSpaceBase {
 public:
  DerivedSpace() { InstallInstance(this); }
};

KIV_TEST_CHILD(InstallsItsOwnDataSpace) {
  KivSetNoDirectBuffer(true);  // before any data space
  DerivedSpace zSpace;
  if (KivDataSpaceBase::GetInstance() != &zSpace) return 2;
  if (static_cast<KivDataSpaceFields*>(&zSpace) != KivDataSpaceFields::GetInstance()) return 3;
  return 0;
}

TEST_F(DataSpace, ADerivedInstanceTakesThePlaceOfTheBuiltInOne) {
  KivSysProcess zChild = StartTestChild("InstallsItsOwnDataSpace", {});
  ASSERT_TRUE(zChild.IsOpen());
  zChild.Wait(60000);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

KIV_TEST_CHILD(SetsAFieldBeforeTheDataSpaceIsBuilt) {
  KivSetNoDirectBuffer(true);
  KivDataSpaceFields::GetInstance()->m_iLanguageId = 1031;
  const KivDataSpaceBase* pzSpace = KivDataSpaceBase::GetInstance();
  return pzSpace->m_bNoDirectBuffer && pzSpace->m_iLanguageId == 1031 && KivGetNoDirectBuffer() ? 0 : 1;
}

TEST_F(DataSpace, FieldsThatWereSetBeforeItIsBuiltAreTakenOver) {
  KivSysProcess zChild = StartTestChild("SetsAFieldBeforeTheDataSpaceIsBuilt", {});
  ASSERT_TRUE(zChild.IsOpen());
  zChild.Wait(60000);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

KIV_TEST_CHILD(EndsWithAModelOpen) {
  PrepareStoreProcess();
  RegisterTestTypes();
  KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = true;
  KivModelStatusBase* pzModel = nullptr;
  if (KivDataSpaceBase::GetInstance()->AddModel(vcsArgs[0], zInfo, &pzModel) != KivAddModelResult::Done) return 2;
  auto pzNote = std::make_unique<TestNote>(pzModel->GetKey());
  pzNote->GetMemoryBlockForWrite()->m_strText = "before";
  const KivOutOfCoreHandle zNote = KivStoreNewElement(std::move(pzNote));
  zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "at end";
  return zNote.GetPosition() == 264 ? 0 : 3;
}

TEST_F(DataSpace, ModelsThatAreOpenWhenTheProcessEndsAreStoredAndClosed) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivSysProcess zChild = StartTestChild("EndsWithAModelOpen", {csPath});
  ASSERT_TRUE(zChild.IsOpen());
  zChild.Wait(60000);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
  KivModelStatusBase* pzModel = Open(csPath, false);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), 264)), "at end");
}

// The files of this process's temporary stores in a folder, which go.
int TakeTemporaryStores(const KivWString& csFolder) {
  const std::string strOwn = "_" + std::to_string(sys::CurrentProcessNumber()) + "_";
  std::vector<std::filesystem::path> vzFound;
  std::error_code zError;
  for (const auto& zEntry : std::filesystem::directory_iterator(std::filesystem::path(csFolder), zError)) {
    const std::string strName = zEntry.path().filename().string();
    if (strName.compare(0, 3, "Kiv") == 0 && strName.find(strOwn) != std::string::npos)
      vzFound.push_back(zEntry.path());
  }
  for (const auto& zPath : vzFound) std::filesystem::remove(zPath, zError);
  return static_cast<int>(vzFound.size());
}

// Arguments: a model and a folder.
KIV_TEST_CHILD(SetsTheFolderOfTemporaryStores) {
  PrepareStoreProcess();
  KivWString csSystem = u"C:\\tmp";
  if (!IsWindows() && (!sys::EnvironmentText(u"TMPDIR", csSystem) || csSystem.empty())) csSystem = u"/tmp";
  const auto MakeTemporaryStore = [] {
    const NoThrowScope zNoThrow;  // the system's folder may be missing
    return KivOutOfCoreManagerKeyOwner{KivStoreSource()}.GetManager() != nullptr;
  };
  KivOutOfCoreManager::SetOutOfCoreFileBase(vcsArgs[1]);
  KivDataSpaceBase& zSpace = *KivDataSpaceBase::GetInstance();
  for (int i = 0; i < 2; ++i) {
    KivModelStatusBase* pzModel = nullptr;
    if (zSpace.AddModel(vcsArgs[0], KivModelOpenInfo(), &pzModel) != KivAddModelResult::Done) return 2;
    if (i == 0) {  // the first model of a process settles the folder
      const bool bMade = MakeTemporaryStore();
      if (TakeTemporaryStores(vcsArgs[1]) != 0) return 3;
      if (TakeTemporaryStores(csSystem) != (bMade ? 1 : 0)) return 4;
      if (!bMade && sys::PathExists(csSystem)) return 5;
      KivOutOfCoreManager::SetOutOfCoreFileBase(vcsArgs[1]);
    } else if (!MakeTemporaryStore() || TakeTemporaryStores(vcsArgs[1]) != 1) {  // once
      return 6;
    }
    if (zSpace.RemoveModel(pzModel) != KivRemoveModelResult::Done) return 7;
  }
  return 0;
}

TEST_F(DataSpace, TheFirstModelOfAProcessSettlesTheFolderOfTemporaryStoresAndALaterChoiceStays) {
  const KivWString csOwn = m_zFolder / u"own";
  const KivWString csPath = MakeFile(u"a.kiv");
  std::filesystem::create_directory(std::filesystem::path(csOwn));
  KivSysProcess zChild = StartTestChild("SetsTheFolderOfTemporaryStores", {csPath, csOwn});
  ASSERT_TRUE(zChild.IsOpen());
  zChild.Wait(60000);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

// --- Models ---------------------------------------------------------------------------------------------------------

TEST_F(DataSpace, AddModelOnAFileThatCannotBeOpenedGivesThirtyAndLeavesNothing) {
  const uint32_t iKey = NextKey();
  const std::set<std::string> strBefore = Files();
  KivModelStatusBase* pzModel = nullptr;
  EXPECT_REPORT(Space().AddModel(m_zFolder / u"none.kiv", KivModelOpenInfo(), &pzModel), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Space().AddModel(m_zFolder / u"none.kiv", KivModelOpenInfo(), &pzModel), KivAddModelResult::NotOpened);
  }
  EXPECT_EQ(pzModel, nullptr);
  EXPECT_TRUE(Space().GetModels().empty());
  EXPECT_EQ(Files(), strBefore);
  EXPECT_EQ(NextKey(), iKey);
}

TEST_F(DataSpace, EveryCutOfAFileIsRefusedOrOpensAndLeavesNothing) {
  const KivWString csWhole = MakeFile(u"whole.kiv");
  KivModelStatusBase* pzModel = Open(csWhole, true);
  for (int i = 0; i < 5; ++i) AddNote(pzModel, std::string(50, 'n'));
  Close(pzModel);
  const std::string strWhole = FileBytes(csWhole);
  const uint32_t iKey = NextKey();
  const KivWString csCut = m_zFolder / u"cut.kiv";
  const auto OpenCut = [&](size_t nCut, bool bForWrite) {
    PutFileBytes(csCut, strWhole.substr(0, nCut));
    KivModelOpenInfo zInfo;
    zInfo.m_bOpenForWrite = bForWrite;
    KivModelStatusBase* pzCut = nullptr;
    KivAddModelResult iResult = KivAddModelResult::NotOpened;
    try {
      iResult = Space().AddModel(csCut, zInfo, &pzCut);
    } catch (const KivException&) {
    }
    if (iResult == KivAddModelResult::Done) {
      const NoThrowScope zNoThrow;
      for (uint64_t iPosition = 264; iPosition < 1200; iPosition += 8) {
        auto* pzNote = dynamic_cast<TestNote*>(KivOutOfCoreManager::GetElement(pzCut->GetKey(), iPosition));
        if (pzNote != nullptr) pzNote->GetMemoryBlock();
      }
      EXPECT_EQ(Space().RemoveModel(pzCut), KivRemoveModelResult::Done);
    }
    EXPECT_TRUE(Space().GetModels().empty());
    EXPECT_TRUE(IsClosed(csCut));
    return iResult;
  };
  for (const bool bForWrite : {false, true})
    for (size_t nCut = 0; nCut < strWhole.size(); nCut += nCut < 300 ? 7 : 173) {
      SCOPED_TRACE(nCut);
      const KivAddModelResult iResult = OpenCut(nCut, bForWrite);
      if (nCut < 264) {
        EXPECT_EQ(iResult, KivAddModelResult::NotOpened);
      }
      const NoThrowScope zNoThrow;
      OpenCut(nCut, bForWrite);
    }
  EXPECT_EQ(NextKey(), iKey);
}

TEST_F(DataSpace, FilesThatTheCompatibilityTestRefusesGiveThirty) {
  const uint32_t iKey = NextKey();
  const std::pair<uint32_t, std::string> azPatch[] = {
      {KivContainerHeader::FormatVersion, std::string(8, '\x15')},
      {KivContainerHeader::FormatVersion, std::string(8, '\x12')},
      {KivContainerHeader::FormatMark, std::string(8, '\xB1')},
      {KivContainerHeader::FormatMinorVersion, std::string("\x0B\0\0\0", 4)},
      {KivContainerHeader::ByteOrderMark32, std::string(4, '\x01')},
      {KivContainerHeader::WriterApplication, std::string("\x07\0\0\0", 4)},
  };
  for (const auto& [iOffset, strBytes] : azPatch)
    for (const bool bForWrite : {false, true}) {
      SCOPED_TRACE(iOffset);
      const KivWString csPath = MakeFile(u"refused.kiv");
      PatchHeader(csPath, iOffset, strBytes);
      const std::string strBefore = FileBytes(csPath);
      KivModelOpenInfo zInfo;
      zInfo.m_bOpenForWrite = bForWrite;
      KivModelStatusBase* pzModel = nullptr;
      EXPECT_EQ(Space().AddModel(csPath, zInfo, &pzModel), KivAddModelResult::NotOpened);
      EXPECT_EQ(pzModel, nullptr);
      EXPECT_TRUE(IsClosed(csPath));
      EXPECT_TRUE(FileBytes(csPath) == strBefore);
    }
  EXPECT_EQ(NextKey(), iKey);
}

TEST_F(DataSpace, AFileThatIsOpenForWritingElsewhereGivesThirtyAfterTheRetries) {
  const KivWString csPath = MakeFile(u"a.kiv");
  const KivSysFile zElsewhere =
      KivSysFile::Open(csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting});
  ASSERT_TRUE(zElsewhere.IsOpen());
  KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = true;
  const uint32_t iKey = NextKey();
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().AddModel(csPath, zInfo, nullptr), KivAddModelResult::NotOpened);
  EXPECT_TRUE(Space().GetModels().empty());
  EXPECT_EQ(NextKey(), iKey);
}

TEST_F(DataSpace, RecordsWhoseFrameLiesAreReportedAndNothingElseHappens) {
  const KivWString csPath = MakeFile(u"lies.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  const uint64_t iFirst = AddNote(pzModel, std::string(100, 'a')).GetPosition();
  const uint64_t iSecond = AddNote(pzModel, std::string(100, 'b')).GetPosition();
  Close(pzModel);
  const std::string strWhole = FileBytes(csPath);
  const NoThrowScope zNoThrow;
  for (const bool bForWrite : {false, true})
    for (const uint64_t iOffset : {uint64_t{0}, uint64_t{8}})
      for (const uint64_t iLie : {uint64_t{0}, uint64_t{1}, uint64_t{23}, uint64_t{24}, uint64_t{68}, uint64_t{100000},
                                  uint64_t{1} << 32, uint64_t{1} << 63, ~uint64_t{0} - 300, ~uint64_t{0}}) {
        SCOPED_TRACE(iLie);
        std::string strBytes = strWhole;
        KivStore<uint64_t>(&strBytes[iFirst + iOffset], iLie);
        PutFileBytes(csPath, strBytes);
        pzModel = Open(csPath, bForWrite);
        ASSERT_NE(pzModel, nullptr);
        const uint64_t nReports = KivGetReportCount();
        auto* pzNote = dynamic_cast<TestNote*>(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iFirst));
        if (pzNote != nullptr) {
          EXPECT_EQ(pzNote->GetMemoryBlock(), nullptr);
          KivOutOfCoreManager::DeleteElement(pzModel->GetKey(), iFirst);
        }
        EXPECT_GT(KivGetReportCount(), nReports);
        EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iSecond)), std::string(100, 'b'));
        Close(pzModel);
      }
}

TEST_F(DataSpace, LinksThatPointNowhereOrInCirclesOrIntoFreeRecordsAreJustKeys) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"links.kiv"), true, 3);
  KivOutOfCoreHandle zFree = AddNote(pzModel, "free");
  const uint64_t iFree = zFree.GetPosition();
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const KivOutOfCoreHandle zOther = AddNote(pzModel, "other");
  zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_zHeader.m_aiLink = {zOther.GetPosition(), iFree, ~uint64_t{0}};
  zOther.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_zHeader.m_aiLink = {zNote.GetPosition(), 263, 1};
  ASSERT_TRUE(zFree.Delete());
  // A walk that remembers where it was ends, and reports each link that leads nowhere.
  const NoThrowScope zNoThrow;
  std::set<uint64_t> iSeen;
  std::vector<uint64_t> viToDo = {zNote.GetPosition()};
  int iDead = 0;
  while (!viToDo.empty()) {
    const uint64_t iPosition = viToDo.back();
    viToDo.pop_back();
    if (!iSeen.insert(iPosition).second) continue;
    auto* pzNode = dynamic_cast<TestNote*>(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition));
    std::vector<uint64_t> viLink;
    if (pzNode == nullptr || !pzNode->GetAllPosition(viLink)) {
      ++iDead;
      continue;
    }
    viToDo.insert(viToDo.end(), viLink.begin(), viLink.end());
  }
  EXPECT_EQ(iSeen.size(), 6U);
  EXPECT_EQ(iDead, 4);
}

TEST_F(DataSpace, RemoveModelOfAnUnknownModelGivesTwentyAndLeavesIt) {
  KivModelStatusBase zStranger;
  EXPECT_REPORT(Space().RemoveModel(&zStranger), "0");
  EXPECT_REPORT(Space().RemoveModel(nullptr), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().RemoveModel(&zStranger), KivRemoveModelResult::UnknownModel);
  EXPECT_EQ(Space().RemoveModel(nullptr), KivRemoveModelResult::NoModel);
}

TEST_F(DataSpace, AModelThatDeletesItsFileDoesSoOnAReadOnlyFileToo) {
  const KivWString csPath = MakeFile(u"gone.kiv");
  std::filesystem::permissions(std::filesystem::path(csPath), std::filesystem::perms::owner_read);
  KivModelOpenInfo zInfo;
  zInfo.m_bDeleteFileOnClose = true;
  KivModelStatusBase* pzModel = nullptr;
  ASSERT_EQ(Space().AddModel(csPath, zInfo, &pzModel), KivAddModelResult::Done);
  Close(pzModel);
  EXPECT_FALSE(sys::PathExists(csPath));
}

TEST_F(DataSpace, AModelThatIsReadLeavesItsFileAlone) {
  const KivWString csPath = MakeFile(u"a.kiv");
  const std::string strBefore = FileBytes(csPath);
  KivModelStatusBase* pzModel = Open(csPath, false);
  for (int i = 0; i < 10; ++i) AddNote(pzModel, std::string(1000, 'n'));
  Close(pzModel);
  EXPECT_EQ(FileBytes(csPath), strBefore);
}

TEST_F(DataSpace, AllModelsAreRemovedAtOnce) {
  Open(MakeFile(u"a.kiv"), false);
  Open(MakeFile(u"b.kiv"), true);
  EXPECT_EQ(Space().GetModels().size(), 2U);
  EXPECT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
  EXPECT_TRUE(Space().GetModels().empty());
}

TEST_F(DataSpace, APatchAndItsSideFileBringTheChangesBack) {
  const KivWString csPath = MakeFile(u"base.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "base");
  KivOutOfCoreHandle zGone = AddNote(pzModel, std::string(5000, 'g'));
  const uint64_t iPosition = zNote.GetPosition();
  const uint64_t iGone = zGone.GetPosition();
  Close(pzModel);
  const std::string strBase = FileBytes(csPath);

  pzModel = Open(csPath, false);
  zNote = KivOutOfCoreHandle(pzModel->GetKey(), iPosition);
  zGone = KivOutOfCoreHandle(pzModel->GetKey(), iGone);
  ASSERT_TRUE(SetText(zNote, std::string(100000, 'p')));
  ASSERT_TRUE(zGone.Delete());
  const uint64_t iMoved = zNote.GetPosition();
  ASSERT_TRUE(pzModel->SaveChanges());
  const KivWString csPatch = m_zFolder / u"change.patch";
  ASSERT_TRUE(KivOutOfCoreManager::SaveAs(pzModel->GetKey(), csPatch, false));
  const uint64_t nFree = ManagerOf(pzModel)->GetContainer()->FullCheck().m_iFreeRecordNum;
  EXPECT_EQ(TextOf(zNote), std::string(100000, 'p'));
  Close(pzModel);
  EXPECT_EQ(FileBytes(csPath), strBase);
  EXPECT_TRUE(sys::PathExists(csPatch + u".urf"));

  KivModelOpenInfo zInfo;
  zInfo.m_csPatchPath = csPatch;
  ASSERT_EQ(Space().AddModel(csPath, zInfo, &pzModel), KivAddModelResult::Done);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iMoved)), std::string(100000, 'p'));
  const KivContainerCheck zCheck = ManagerOf(pzModel)->GetContainer()->FullCheck();
  EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
  EXPECT_EQ(zCheck.m_iFreeRecordNum, nFree);
  Close(pzModel);
}

TEST_F(DataSpace, APatchThatIsDamagedOrCutOrHasNoSideFileOpensOrGivesThirtyAndLeavesNothing) {
  const KivWString csPath = MakeFile(u"base.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  const uint64_t iPosition = AddNote(pzModel, "base").GetPosition();
  KivOutOfCoreHandle zGone = AddNote(pzModel, std::string(5000, 'g'));
  Close(pzModel);
  pzModel = Open(csPath, false);
  KivOutOfCoreHandle zNote(pzModel->GetKey(), iPosition);
  ASSERT_TRUE(SetText(zNote, "part"));
  zGone = KivOutOfCoreHandle(pzModel->GetKey(), zGone.GetPosition());
  ASSERT_TRUE(zGone.Delete());
  const KivWString csWhole = m_zFolder / u"whole.patch";
  ASSERT_TRUE(KivOutOfCoreManager::SaveAs(pzModel->GetKey(), csWhole, false));
  Close(pzModel);
  const std::string strPatch = FileBytes(csWhole);
  const std::string strSide = FileBytes(csWhole + u".urf");
  ASSERT_GT(strPatch.size(), 100U);
  ASSERT_GT(strSide.size(), 100U);

  const KivWString csPatch = m_zFolder / u"try.patch";
  KivModelOpenInfo zInfo;
  zInfo.m_csPatchPath = csPatch;
  const uint32_t iKey = NextKey();
  const auto Try = [&](const std::string& strTried, const std::string* pstrSide) {
    PutFileBytes(csPatch, strTried);
    if (pstrSide != nullptr)
      PutFileBytes(csPatch + u".urf", *pstrSide);
    else
      std::filesystem::remove(std::filesystem::path(csPatch + u".urf"));
    const std::set<std::string> strBefore = Files();
    bool bReported = false;
    for (const bool bThrow : {true, false}) {
      std::unique_ptr<NoThrowScope> pzNoThrow;
      if (!bThrow) pzNoThrow = std::make_unique<NoThrowScope>();
      KivModelStatusBase* pzTried = nullptr;
      KivAddModelResult iResult = KivAddModelResult::NotOpened;
      const uint64_t nReports = KivGetReportCount();
      try {
        iResult = Space().AddModel(csPath, zInfo, &pzTried);
      } catch (const KivException&) {
        bReported = true;
      }
      if (!bThrow) {
        EXPECT_EQ(KivGetReportCount() > nReports, bReported);
      }
      if (iResult == KivAddModelResult::Done) {
        const NoThrowScope zNoThrow;
        TextOf(KivOutOfCoreHandle(pzTried->GetKey(), iPosition));
        AddNote(pzTried, "more");
        EXPECT_EQ(Space().RemoveModel(pzTried), KivRemoveModelResult::Done);
      }
      EXPECT_TRUE(Space().GetModels().empty());
    }
    EXPECT_EQ(Files(), strBefore);
    EXPECT_TRUE(IsClosed(csPath));
    EXPECT_TRUE(IsClosed(csPatch));
    return bReported;
  };
  EXPECT_FALSE(Try(strPatch, &strSide));
  EXPECT_FALSE(Try(strPatch, nullptr));  // the tree is the one that the main file has
  for (size_t nCut = 0; nCut < strPatch.size(); nCut += strPatch.size() / 9) {
    SCOPED_TRACE(nCut);
    EXPECT_EQ(Try(strPatch.substr(0, nCut), &strSide), nCut != 0);
  }
  for (size_t nCut = 0; nCut < strSide.size(); nCut += strSide.size() / 5) {
    const std::string strCut = strSide.substr(0, nCut);
    Try(strPatch, &strCut);
  }
  for (size_t i = 0; i < strPatch.size(); i += strPatch.size() / 23) {
    std::string strDamaged = strPatch;
    strDamaged[i] = static_cast<char>(~strDamaged[i]);
    Try(strDamaged, &strSide);
  }
  {
    // Reads that come back short, those of the side file among them.
    PutFileBytes(csPatch, strPatch);
    PutFileBytes(csPatch + u".urf", strSide);
    const std::set<std::string> strBefore = Files();
    bool bFired = true;
    int nReported = 0;
    for (uint64_t iNth = 1; bFired && iNth < 100; ++iNth) {
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = KivSysCall::FileRead;
      zPlan.m_iNth = iNth;
      zPlan.m_iKind = KivSysFaultKind::ShortCount;
      KivModelStatusBase* pzTried = nullptr;
      {
        const KivSysFaultScope zScope(zPlan);
        try {
          Space().AddModel(csPath, zInfo, &pzTried);
        } catch (const KivException&) {
          ++nReported;
          EXPECT_TRUE(Space().GetModels().empty());
        }
        bFired = zScope.HasFired();
      }
      EXPECT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
      EXPECT_EQ(Files(), strBefore);
    }
    EXPECT_FALSE(bFired);
    EXPECT_GT(nReported, 1);
  }
  EXPECT_EQ(NextKey(), iKey);
}

TEST_F(DataSpace, APatchThatCannotBeReadIsReportedAndGivesThirty) {
  KivModelOpenInfo zInfo;
  zInfo.m_csPatchPath = m_zFolder / u"none.patch";
  const KivWString csPath = MakeFile(u"a.kiv");
  EXPECT_REPORT(Space().AddModel(csPath, zInfo, nullptr), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().AddModel(csPath, zInfo, nullptr), KivAddModelResult::NotOpened);
}

// Prefetches the payload of a record that nobody read yet, until it is there or kTries are over.
bool IsPrefetched(KivModelStatusBase* pzModel, uint64_t iPosition) {
  KivFastFileContainerBase& zContainer = *pzModel->GetManager()->GetContainer();
  for (int i = 0; i < 3000; ++i) {
    if (zContainer.PrefetchRecord(iPosition, 3)) return true;
    if (!KivDataSpaceFields::GetInstance()->m_bBackGroundRead && i == 50) break;
    sys::SleepMs(i < 100 ? 0 : 10);
  }
  return false;
}

TEST_F(DataSpace, WithBackGroundReadAModelThatIsReadGetsASecondHandleWhoseReaderFetchesAhead) {
  const KivWString csPath = MakeFile(u"a.kiv");
  const std::string strText(500000, 't');
  KivModelStatusBase* pzModel = Open(csPath, true);
  const uint64_t iPosition = AddNote(pzModel, strText).GetPosition();
  Close(pzModel);
  const auto OpensOf = [&](bool bForWrite) {
    const KivSysFaultScope zCount({KivSysCall::FileOpen, 0});
    pzModel = Open(csPath, bForWrite);
    return zCount.GetCount(KivSysCall::FileOpen);
  };
  const uint64_t nWithout = OpensOf(false);
  EXPECT_FALSE(IsPrefetched(pzModel, iPosition));
  Close(pzModel);
  const uint64_t nForWrite = OpensOf(true);
  Close(pzModel);

  Space().SetBackGroundRead(true);
  EXPECT_EQ(OpensOf(true), nForWrite);
  Close(pzModel);
  EXPECT_EQ(OpensOf(false), nWithout + 1);
  EXPECT_TRUE(IsPrefetched(pzModel, iPosition));
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iPosition)), strText);
  Close(pzModel);
  EXPECT_TRUE(IsClosed(csPath));
  // A second handle that the system does not give is no reason to do without the first.
  {
    const KivSysFaultScope zFail({KivSysCall::FileOpen, 2});
    pzModel = Open(csPath, false);
    EXPECT_TRUE(zFail.HasFired());
  }
  ASSERT_NE(pzModel, nullptr);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iPosition)), strText);
  Space().SetBackGroundRead(false);
  Close(pzModel);
}

// --- Element types --------------------------------------------------------------------------------------------------

TEST_F(DataSpace, ATypeIndexWithAGapIsClearedWhenAModelIsAdded) {
  const auto MakeNone = [](uint32_t, uint32_t) -> KivOutOfCoreData* { return nullptr; };
  const auto Get = [](const std::vector<uint8_t>&, std::vector<uint64_t>&) { return true; };
  const auto Replace = [](std::vector<uint8_t>&, const std::map<uint64_t, uint64_t>&) { return true; };
  Space().SetGetOutOfCoreData(7, MakeNone);
  for (uint32_t iRow = 0; iRow < 8; ++iRow) {
    Space().SetGetAllPosition(iRow, 7, Get);
    if (iRow != 5) Space().SetReplaceAllPosition(iRow, 7, Replace);
  }
  const KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), false);
  EXPECT_EQ(pzModel->m_vpfnGetOutOfCoreData[7], nullptr);
  for (uint32_t iRow = 0; iRow < 8; ++iRow) {
    EXPECT_EQ(pzModel->m_vvpfnGetAllPosition[iRow][7], nullptr);
    EXPECT_EQ(pzModel->m_vvpfnReplaceAllPosition[iRow][7], nullptr);
    EXPECT_NE(pzModel->m_vvpfnGetAllPosition[iRow][kTestNoteIndex], nullptr);
  }
  EXPECT_NE(pzModel->m_vpfnGetOutOfCoreData[kTestNoteIndex], nullptr);
}

TEST_F(DataSpace, ATableSetAfterTheFirstModelIsReported) {
  Open(MakeFile(u"a.kiv"), false);
  EXPECT_REPORT(Space().SetGetOutOfCoreData(9, nullptr), "m_spModel.empty()");
  EXPECT_REPORT(Space().SetGetAllPosition(0, 9, nullptr), "m_spModel.empty()");
  EXPECT_REPORT(Space().SetReplaceAllPosition(0, 9, nullptr), "m_spModel.empty()");
  {
    const NoThrowScope zNoThrow;
    Space().SetGetOutOfCoreData(kTestNoteIndex, nullptr);
    Space().SetGetAllPosition(0, kTestNoteIndex, nullptr);
    Space().SetReplaceAllPosition(0, kTestNoteIndex, nullptr);
  }
  // Nothing was changed: the type counts for the next model.
  const KivModelStatusBase* pzModel = Open(MakeFile(u"b.kiv"), false);
  EXPECT_NE(pzModel->m_vpfnGetOutOfCoreData[kTestNoteIndex], nullptr);
  EXPECT_NE(pzModel->m_vvpfnGetAllPosition[0][kTestNoteIndex], nullptr);
}

TEST_F(DataSpace, AnIndexOutsideTheTablesIsReported) {
  EXPECT_REPORT(Space().SetGetOutOfCoreData(256, nullptr), "0");
  EXPECT_REPORT(Space().SetGetAllPosition(8, 0, nullptr), "0");
  EXPECT_REPORT(Space().SetReplaceAllPosition(0, 256, nullptr), "0");
  const NoThrowScope zNoThrow;
  const uint64_t nReports = KivGetReportCount();
  for (const uint32_t iOutside : {uint32_t{256}, ~uint32_t{0}}) {
    Space().SetGetOutOfCoreData(iOutside, nullptr);
    Space().SetGetAllPosition(0, iOutside, nullptr);
    Space().SetGetAllPosition(iOutside, 0, nullptr);
    Space().SetReplaceAllPosition(0, iOutside, nullptr);
    Space().SetReplaceAllPosition(iOutside, 0, nullptr);
  }
  EXPECT_EQ(KivGetReportCount(), nReports + 10);
}

bool CanSavePatch() {
  return true;
}

TEST_F(DataSpace, AFunctionThatIsAskedBeforePatchesIsKeptOnceAndNullIsNone) {
  struct Space : KivDataSpaceBase {
    size_t Functions() const { return m_vpfnCanSavePatch.size(); }
  } zSpace;
  zSpace.AddCanSavePatchFunction(nullptr);
  EXPECT_EQ(zSpace.Functions(), 0U);
  for (int i = 0; i < 2; ++i) zSpace.AddCanSavePatchFunction(CanSavePatch);
  zSpace.AddCanSavePatchFunction([] { return false; });
  EXPECT_EQ(zSpace.Functions(), 2U);
}

// --- Listeners ------------------------------------------------------------------------------------------------------

struct Listener : KivDataSpaceListener {
  bool ModelAdded(KivModelStatusBase* pzModel, const KivListenerData& aiData) override {
    std::ostringstream zCall;
    zCall << "added " << aiData[0] << " " << aiData[1];
    m_vstrCall.push_back(zCall.str());
    m_pzModel = pzModel;
    return m_bAnswer;
  }
  bool ModelRemoved(KivModelStatusBase* pzModel) override {
    m_vstrCall.push_back(pzModel == m_pzModel ? "removed" : "removed another");
    return m_bAnswer;
  }
  bool m_bAnswer = true;
  std::vector<std::string> m_vstrCall;
  KivModelStatusBase* m_pzModel = nullptr;
};

TEST_F(DataSpace, ListenersHearOfModelsOnceEach) {
  Listener zListener;
  Space().AddListener(&zListener);
  Space().AddListener(&zListener);
  KivModelOpenInfo zInfo;
  zInfo.m_aiListenerData = {4, 5};
  KivModelStatusBase* pzModel = nullptr;
  ASSERT_EQ(Space().AddModel(MakeFile(u"a.kiv"), zInfo, &pzModel), KivAddModelResult::Done);
  EXPECT_EQ(zListener.m_pzModel, pzModel);
  Close(pzModel);
  Space().RemoveListener(&zListener);
  Close(Open(MakeFile(u"b.kiv"), false));
  EXPECT_EQ(zListener.m_vstrCall, (std::vector<std::string>{"added 4 5", "removed"}));
}

TEST_F(DataSpace, AListenerThatAnswersFalseIsReportedAndTheWorkGoesOn) {
  Listener zListener;
  Listener zSecond;
  zListener.m_bAnswer = false;
  Space().AddListener(&zListener);
  Space().AddListener(&zSecond);
  {
    const NoThrowScope zNoThrow;
    KivModelStatusBase* pzModel = nullptr;
    EXPECT_EQ(Space().AddModel(MakeFile(u"a.kiv"), KivModelOpenInfo(), &pzModel), KivAddModelResult::Done);
    EXPECT_EQ(Space().RemoveModel(pzModel), KivRemoveModelResult::Done);
    EXPECT_EQ(zSecond.m_vstrCall.size(), 2U);
  }
  EXPECT_REPORT(Space().AddModel(MakeFile(u"b.kiv"), KivModelOpenInfo(), nullptr), "0");
  zListener.m_bAnswer = true;
  EXPECT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
  Space().RemoveListener(&zListener);
  Space().RemoveListener(&zSecond);
}

// The flag stays for the rest of a process.
KIV_TEST_CHILD(WorksWithAView) {
  const TestFolder zFolder;
  PrepareStoreProcess();
  const KivWString csPath = zFolder / u"a.kiv";
  MakeContainerFile(csPath, false);
  KivDataSpaceBase& zSpace = *KivDataSpaceBase::GetInstance();
  KivModelStatusBase* pzModel = nullptr;
  EXPECT_EQ(zSpace.AddModel(csPath, KivModelOpenInfo(), &pzModel), KivAddModelResult::Done);
  KivSetDataSpaceWithView();
  EXPECT_TRUE(KivIsDataSpaceWithView());
  EXPECT_REPORT(zSpace.CreateSnapShot(), "!KivIsDataSpaceWithView()");
  EXPECT_REPORT(zSpace.UndoSnapShot(1), "!KivIsDataSpaceWithView()");
  EXPECT_REPORT(zSpace.RedoSnapShot(1), "!KivIsDataSpaceWithView()");
  EXPECT_REPORT(zSpace.RestoreFromSnapShot(nullptr), "!KivIsDataSpaceWithView()");
  EXPECT_REPORT(zSpace.AddModel(u"x", KivModelOpenInfo(), nullptr), "!KivIsDataSpaceWithView()");
  EXPECT_REPORT(zSpace.RemoveModel(pzModel), "!KivIsDataSpaceWithView()");
  EXPECT_FALSE(zSpace.m_bDiscardingSnapShot);
  // The form without the check goes on.
  EXPECT_NO_REPORT(EXPECT_EQ(zSpace.UndoToSnapShot(1), KivUndoResult::Done));
  const NoThrowScope zNoThrow;
  EXPECT_EQ(zSpace.RemoveModel(pzModel), KivRemoveModelResult::Done);
  return testing::Test::HasFailure() ? 1 : 0;
}

// Arguments: a file that is changed, one that goes with its model, and the way of reporting.
KIV_TEST_CHILD(EndsADataSpaceWithAView) {
  PrepareStoreProcess();
  auto pzSpace = std::make_unique<KivDataSpaceBase>();
  KivDataSpaceBase::InstallInstance(pzSpace.get());
  RegisterTestTypes();
  KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = true;
  KivModelStatusBase* pzModel = nullptr;
  if (pzSpace->AddModel(vcsArgs[0], zInfo, &pzModel) != KivAddModelResult::Done) return 2;
  auto pzNote = std::make_unique<TestNote>(pzModel->GetKey());
  pzNote->GetMemoryBlockForWrite()->m_strText = "before";
  const KivOutOfCoreHandle zNote = KivStoreNewElement(std::move(pzNote));
  zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "at end";
  zInfo.m_bOpenForWrite = false;
  zInfo.m_bDeleteFileOnClose = true;
  if (pzSpace->AddModel(vcsArgs[1], zInfo, nullptr) != KivAddModelResult::Done) return 3;
  KivSetDataSpaceWithView();
  KivSetReportNoThrow(vcsArgs[2] == u"returning");
  const uint64_t nReports = KivGetReportCount();
  pzSpace.reset();
  if (KivGetReportCount() == nReports) return 4;
  if (sys::PathExists(vcsArgs[1]) || !sys::PathExists(vcsArgs[0])) return 5;
  return KivOutOfCoreManager::Find(zNote.GetManagerKey()) == nullptr ? 0 : 6;
}

TEST_F(DataSpace, TheEndOfADataSpaceWithAViewStoresItsModelsAndDeletesTheFilesThatGoWithThem) {
  for (const char16_t* szReports : {u"throwing", u"returning"}) {
    SCOPED_TRACE(testing::PrintToString(szReports));
    const KivWString csKept = MakeFile(u"kept.kiv");
    const KivWString csGone = MakeFile(u"gone.kiv");
    std::filesystem::permissions(std::filesystem::path(csGone), std::filesystem::perms::owner_read);
    KivSysProcess zChild = StartTestChild("EndsADataSpaceWithAView", {csKept, csGone, szReports});
    ASSERT_TRUE(zChild.IsOpen());
    zChild.Wait(60000);
    int32_t iCode = -1;
    ASSERT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0);
    KivModelStatusBase* pzModel = Open(csKept, false);
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), 264)), "at end");
    Close(pzModel);
  }
}

TEST_F(DataSpace, WithAViewUndoOperationsAreReported) {
  KivSysProcess zChild = StartTestChild("WorksWithAView", {});
  ASSERT_TRUE(zChild.IsOpen());
  zChild.Wait(60000);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

}  // namespace
