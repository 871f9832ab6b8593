#include "KivOutOfCoreManager.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "KivContainerHeader.h"
#include "KivLittleEndian.h"
#include "KivPositionTable.h"
#include "KivPositionTableManager.h"
#include "KivSysFault.h"
#include "KivSysProcess.h"
#include "KivTestScale.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

class OutOfCoreManager : public StoreTest {
 protected:
  KivStoreSource SourceOf(const KivWString& csPath, KivStoreMode eMode) {
    KivStoreSource zSource;
    zSource.m_csPath = csPath;
    zSource.m_eMode = eMode;
    return zSource;
  }
  // Names of the files in the test's folder.
  std::set<std::string> Files() {
    std::set<std::string> strNames;
    for (const auto& zEntry : std::filesystem::directory_iterator(m_zFolder.Path()))
      strNames.insert(zEntry.path().filename().string());
    return strNames;
  }
};

// --- Keys -----------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreManager, TwoCallsWithTheSameKeyGiveTheSameManager) {
  const KivOutOfCoreManagerKeyOwner zOwner(SourceOf(m_zFolder / u"a.kiv", KivStoreMode::NewTemporary));
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::GetManager(zOwner.GetKey());
  ASSERT_NE(pzManager, nullptr);
  EXPECT_EQ(KivOutOfCoreManager::GetManager(zOwner.GetKey()), pzManager);
  EXPECT_EQ(zOwner.GetManager(), pzManager);
}

TEST_F(OutOfCoreManager, KeyZeroIsASlotWithoutAStoreUntilAKeyOwnerTakesIt) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::GetManager(0);
  ASSERT_NE(pzManager, nullptr);
  EXPECT_EQ(pzManager->GetMaxActiveOutOfCoreElement(), -1);
  EXPECT_EQ(pzManager->GetStorage(), nullptr);
  pzManager->AddRef();
  pzManager->Release();
  EXPECT_EQ(KivOutOfCoreManager::Find(0), nullptr);
  {
    const KivOutOfCoreManagerKeyOwner zOwner(0, SourceOf(m_zFolder / u"a.kiv", KivStoreMode::NewTemporary));
    EXPECT_EQ(zOwner.GetKey(), 0U);
    ASSERT_NE(zOwner.GetManager(), nullptr);
    EXPECT_EQ(zOwner.GetManager()->GetMaxActiveOutOfCoreElement(), 1);
  }
  EXPECT_EQ(KivOutOfCoreManager::Find(0), nullptr);
}

TEST_F(OutOfCoreManager, TheFirstKeyOwnerGetsKeyOneAndTheSmallestFreeKeyComesFirst) {
  const auto Make = [&](const char16_t* szName) {
    return std::make_unique<KivOutOfCoreManagerKeyOwner>(SourceOf(m_zFolder / szName, KivStoreMode::NewTemporary));
  };
  auto pzFirst = Make(u"a");
  auto pzSecond = Make(u"b");
  auto pzThird = Make(u"c");
  EXPECT_EQ(pzFirst->GetKey(), 1U);
  EXPECT_EQ(pzSecond->GetKey(), 2U);
  EXPECT_EQ(pzThird->GetKey(), 3U);
  pzSecond.reset();
  pzFirst.reset();
  EXPECT_EQ(Make(u"d")->GetKey(), 1U);
  pzFirst = Make(u"e");
  EXPECT_EQ(pzFirst->GetKey(), 1U);
  EXPECT_EQ(Make(u"f")->GetKey(), 2U);
}

TEST_F(OutOfCoreManager, AKeyOutsideTheRegistryIsReported) {
  EXPECT_REPORT(KivOutOfCoreManager::GetManager(77), "0");
  EXPECT_REPORT(KivOutOfCoreManager::GetElement(77, 264), "0");
  EXPECT_REPORT(KivOutOfCoreManager::DeactivateAll(77), "0");
  const NoThrowScope zNoThrow;
  KivContainerRecord zRecord;
  KivElementFrame acFrame;
  KivOutOfCoreData* pzNone = nullptr;
  EXPECT_EQ(KivOutOfCoreManager::GetManager(77), nullptr);
  EXPECT_EQ(KivOutOfCoreManager::GetElement(77, 264), nullptr);
  EXPECT_EQ(KivOutOfCoreManager::GetTemporaryElement(77, 264, zRecord, acFrame), nullptr);
  EXPECT_FALSE(KivOutOfCoreManager::DeleteElement(77, 264));
  EXPECT_FALSE(KivOutOfCoreManager::DeleteElementObject(77, pzNone));
  EXPECT_FALSE(KivOutOfCoreManager::ReadElementHeader(77, 264, acFrame));
  EXPECT_FALSE(KivOutOfCoreManager::PrefetchElement(77, 264, 1));
  EXPECT_FALSE(KivOutOfCoreManager::DeactivateAll(77));
  EXPECT_FALSE(KivOutOfCoreManager::FlushMainFile(77));
  EXPECT_EQ(KivOutOfCoreManager::GetFirstPositionTable(77), 0U);
  EXPECT_FALSE(KivOutOfCoreManager::SetKeepRecords(77));
  EXPECT_FALSE(KivOutOfCoreManager::SaveAs(77, u"x", false));
  EXPECT_NE(KivOutOfCoreManager::SaveInSlices(77, u"x", 0), KivSaveInSlicesResult::Done);
  EXPECT_FALSE(KivOutOfCoreManager::IsSaveInSlicesComplete(77, u"x"));
  EXPECT_FALSE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(77, 2));
  KivOutOfCoreManager::CancelSaveInSlices(77, u"x");
}

TEST_F(OutOfCoreManager, ACopyOfAKeyOwnerKeepsTheManager) {
  auto pzFirst = std::make_unique<KivOutOfCoreManagerKeyOwner>(SourceOf(m_zFolder / u"a", KivStoreMode::NewTemporary));
  const uint32_t iKey = pzFirst->GetKey();
  {
    const KivOutOfCoreManagerKeyOwner zCopy(*pzFirst);
    pzFirst.reset();
    EXPECT_NE(KivOutOfCoreManager::Find(iKey), nullptr);
  }
  EXPECT_EQ(KivOutOfCoreManager::Find(iKey), nullptr);
}

TEST_F(OutOfCoreManager, AReleaseTooManyIsReported) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::GetManager(0);
  EXPECT_REPORT(pzManager->Release(), "0");
  const NoThrowScope zNoThrow;
  pzManager->Release();
  EXPECT_EQ(KivOutOfCoreManager::Find(0), nullptr);
}

// --- Stores ---------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreManager, ATemporaryStoreStandsInTheBaseFolderAndItsSideFileGoesWithIt) {
  KivOutOfCoreManager::SetOutOfCoreFileBase(m_zFolder.Path());
  {
    const KivOutOfCoreManagerKeyOwner zOwner{KivStoreSource()};
    ASSERT_NE(zOwner.GetManager(), nullptr);
    const std::set<std::string> strNames = Files();
    ASSERT_EQ(strNames.size(), 2U);
    const std::string strMain = *strNames.begin();
    EXPECT_EQ(strMain.substr(0, 3), "Kiv");
    EXPECT_EQ(strMain.substr(strMain.size() - 2), "_0");
    EXPECT_EQ(*strNames.rbegin(), strMain + ".urf");
  }
  EXPECT_EQ(Files().size(), 1U);
}

TEST_F(OutOfCoreManager, WithoutABaseFolderThereIsNoTemporaryStore) {
  KivOutOfCoreManager::SetOutOfCoreFileBase(KivWString());
  const KivOutOfCoreManagerKeyOwner zOwner{KivStoreSource()};
  EXPECT_EQ(zOwner.GetManager(), nullptr);
}

TEST_F(OutOfCoreManager, ABaseFolderThatCannotBeWrittenIsTriedTenTimesAndThenTheProcessFlagIsSet) {
  KivOutOfCoreManager::SetOutOfCoreFileBase(m_zFolder / u"missing");
  const KivOutOfCoreManagerKeyOwner zGood(SourceOf(m_zFolder / u"a", KivStoreMode::NewTemporary));
  {
    const NoThrowScope zNoThrow;
    const KivSysFaultScope zCount({KivSysCall::FileOpen, 0});
    const KivOutOfCoreManagerKeyOwner zOwner{KivStoreSource()};
    EXPECT_EQ(zOwner.GetManager(), nullptr);
    EXPECT_EQ(zCount.GetCount(KivSysCall::FileOpen), 10U);
  }
  // No key has a manager for whoever asks, until the next key owner.
  EXPECT_EQ(KivOutOfCoreManager::GetManager(zGood.GetKey()), nullptr);
  EXPECT_NE(KivOutOfCoreManager::Find(zGood.GetKey()), nullptr);
  const KivOutOfCoreManagerKeyOwner zNext(SourceOf(m_zFolder / u"b", KivStoreMode::NewTemporary));
  EXPECT_NE(zNext.GetManager(), nullptr);
  EXPECT_NE(KivOutOfCoreManager::GetManager(zGood.GetKey()), nullptr);
}

TEST_F(OutOfCoreManager, AStoreThatCannotBeMadeLeavesNoKeyBehind) {
  const auto Open = [&] {
    const KivOutOfCoreManagerKeyOwner zOwner(SourceOf(m_zFolder / u"none", KivStoreMode::Read));
    EXPECT_EQ(zOwner.GetManager(), nullptr);
  };
  EXPECT_REPORT(Open(), "0");
  {
    const NoThrowScope zNoThrow;
    Open();
  }
  const KivOutOfCoreManagerKeyOwner zOwner(SourceOf(m_zFolder / u"a", KivStoreMode::NewTemporary));
  EXPECT_EQ(zOwner.GetKey(), 1U);
}

TEST_F(OutOfCoreManager, AnUnknownModeIsReported) {
  const KivStoreSource zSource = SourceOf(m_zFolder / u"a", static_cast<KivStoreMode>(3));
  EXPECT_REPORT(KivOutOfCoreManagerKeyOwner zOwner(zSource), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(KivOutOfCoreManagerKeyOwner(zSource).GetManager(), nullptr);
}

TEST_F(OutOfCoreManager, OnlyAReadStoreTakesMemory) {
  const uint8_t acData[4] = {};
  for (const KivStoreMode eMode : {KivStoreMode::NewTemporary, KivStoreMode::ReadWrite}) {
    KivStoreSource zSource = SourceOf(MakeFile(u"a.kiv"), eMode);
    zSource.m_pvData = acData;
    zSource.m_iDataSize = sizeof acData;
    EXPECT_REPORT(KivOutOfCoreManagerKeyOwner zOwner(zSource), "pvData == NULL");
    const NoThrowScope zNoThrow;
    KivSetReported(false);
    EXPECT_NE(KivOutOfCoreManagerKeyOwner(zSource).GetManager(), nullptr);  // the data is not looked at
    EXPECT_TRUE(KivGetReportSwitches().m_bReported);
  }
}

TEST_F(OutOfCoreManager, ASourceOfFifteenBytesInMemoryIsNoStore) {
  const std::string strData(15, 'K');
  KivStoreSource zSource = SourceOf(u"memory", KivStoreMode::Read);
  zSource.m_pvData = strData.data();
  zSource.m_iDataSize = strData.size();
  EXPECT_EQ(KivOutOfCoreManagerKeyOwner(zSource).GetManager(), nullptr);
}

TEST_F(OutOfCoreManager, AModelInMemoryIsReadLikeAFile) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  const uint64_t iPosition = AddNote(pzModel, "in memory").GetPosition();
  Close(pzModel);
  const std::string strBytes = FileBytes(csPath);
  KivModelOpenInfo zInfo;
  zInfo.m_pvData = strBytes.data();
  zInfo.m_iDataSize = strBytes.size();
  ASSERT_EQ(Space().AddModel(u"memory", zInfo, &pzModel), KivAddModelResult::Done);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iPosition)), "in memory");
  Close(pzModel);
}

TEST_F(OutOfCoreManager, AUrlDoesNotComeUp) {
  EXPECT_EQ(KivOutOfCoreManagerKeyOwner(SourceOf(u"HtTp://127.0.0.1:9/a.kiv", KivStoreMode::Read)).GetManager(),
            nullptr);
}

TEST_F(OutOfCoreManager, AFileThatIsNoContainerGivesNoStoreInAnyMode) {
  PutFileBytes(m_zFolder / u"text.kiv", std::string(100000, 't'));
  PutFileBytes(m_zFolder / u"short.kiv", std::string(100, 't'));
  PutFileBytes(m_zFolder / u"empty.kiv", std::string());
  for (const char16_t* szName : {u"text.kiv", u"short.kiv", u"empty.kiv"})
    for (const KivStoreMode eMode : {KivStoreMode::Read, KivStoreMode::ReadWrite}) {
      EXPECT_EQ(KivOutOfCoreManagerKeyOwner(SourceOf(m_zFolder / szName, eMode)).GetManager(), nullptr);
      const NoThrowScope zNoThrow;
      EXPECT_EQ(KivOutOfCoreManagerKeyOwner(SourceOf(m_zFolder / szName, eMode)).GetManager(), nullptr);
    }
}

TEST_F(OutOfCoreManager, AFileThatIsOpenForWritingElsewhereIsTriedFourTimes) {
  const KivWString csPath = MakeFile(u"a.kiv");
  const KivOutOfCoreManagerKeyOwner zWriter(SourceOf(csPath, KivStoreMode::ReadWrite));
  ASSERT_NE(zWriter.GetManager(), nullptr);
  const KivSysFaultScope zCount({KivSysCall::FileOpen, 0});
  const NoThrowScope zNoThrow;
  EXPECT_EQ(KivOutOfCoreManagerKeyOwner(SourceOf(csPath, KivStoreMode::ReadWrite)).GetManager(), nullptr);
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileOpen), 4U);
}

TEST_F(OutOfCoreManager, AStoreThatIsChangedInPlaceIsNotSavedElsewhere) {
  const KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const uint32_t iKey = pzModel->GetKey();
  const KivWString csCopy = m_zFolder / u"copy.kiv";
  EXPECT_REPORT(KivOutOfCoreManager::SaveAs(iKey, csCopy, false), "0");
  EXPECT_REPORT(KivOutOfCoreManager::SaveInSlices(iKey, csCopy, 0), "0");
  EXPECT_REPORT(KivOutOfCoreManager::IsSaveInSlicesComplete(iKey, csCopy), "0");
  EXPECT_REPORT(KivOutOfCoreManager::CancelSaveInSlices(iKey, csCopy), "0");
  const NoThrowScope zNoThrow;
  const uint64_t nReports = KivGetReportCount();
  EXPECT_FALSE(KivOutOfCoreManager::SaveAs(iKey, csCopy, false));
  EXPECT_EQ(KivOutOfCoreManager::SaveInSlices(iKey, csCopy, 0), KivSaveInSlicesResult::TargetNotCreated);
  EXPECT_FALSE(KivOutOfCoreManager::IsSaveInSlicesComplete(iKey, csCopy));
  KivOutOfCoreManager::CancelSaveInSlices(iKey, csCopy);
  EXPECT_EQ(KivGetReportCount(), nReports + 4);
  EXPECT_EQ(Files(), std::set<std::string>{"a.kiv"});
}

TEST_F(OutOfCoreManager, APreviousGenerationIsTold) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, false);
  EXPECT_FALSE(ManagerOf(pzModel)->IsVer19Data());
  Close(pzModel);
  PatchHeader(csPath, KivContainerHeader::FormatVersion, std::string(8, '\x13'));
  pzModel = Open(csPath, false);
  EXPECT_TRUE(ManagerOf(pzModel)->IsVer19Data());
}

TEST_F(OutOfCoreManager, InAPreviousGenerationTheBoxStandsFourBytesEarlier) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const uint64_t iPosition = zNote.GetPosition();
  Close(pzModel);
  PatchHeader(csPath, KivContainerHeader::FormatVersion, std::string(8, '\x13'));
  std::string strBytes = FileBytes(csPath);
  for (uint32_t i = 0; i < 6; ++i) KivStore<uint32_t>(&strBytes[iPosition + 16 + 36 + 4 * i], i + 1);
  PutFileBytes(csPath, strBytes);
  pzModel = Open(csPath, false);
  auto* pzNote = dynamic_cast<TestNote*>(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition));
  ASSERT_NE(pzNote, nullptr);
  EXPECT_EQ(pzNote->GetBoxCorners()[0], 1U);
  EXPECT_EQ(pzNote->GetBoxCorners()[23], 6U);
}

// --- Elements -------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreManager, GetElementOnAFreeRecordIsReportedAndNull) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const uint64_t iPosition = zNote.GetPosition();
  ASSERT_TRUE(zNote.Delete());
  EXPECT_REPORT(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition), nullptr);
}

TEST_F(OutOfCoreManager, PositionsThatHoldNoRecordAreReportedAndNull) {
  for (const bool bTables : {false, true}) {
    KivModelStatusBase* pzModel = Open(MakeFile(bTables ? u"t.kiv" : u"p.kiv", bTables), true);
    AddNote(pzModel, "note");
    const uint64_t iEnd = ManagerOf(pzModel)->GetContainer()->GetEndPosition();
    const NoThrowScope zNoThrow;
    for (const uint64_t iPosition :
         {uint64_t{0}, uint64_t{1}, uint64_t{8}, uint64_t{263}, uint64_t{265}, iEnd - 24, iEnd - 1, iEnd, iEnd + 1,
          uint64_t{0x7FFFFFFFFFFFFFFF}, uint64_t{0x8000000000000000} + 500, ~uint64_t{0} - 7, ~uint64_t{0}}) {
      SCOPED_TRACE(iPosition);
      KivSetReported(false);
      EXPECT_EQ(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition), nullptr);
      EXPECT_TRUE(KivGetReportSwitches().m_bReported);
      KivElementFrame acFrame;
      EXPECT_FALSE(KivOutOfCoreManager::ReadElementHeader(pzModel->GetKey(), iPosition, acFrame));
      EXPECT_FALSE(KivOutOfCoreManager::DeleteElement(pzModel->GetKey(), iPosition));
    }
  }
}

TEST_F(OutOfCoreManager, TheTypeWordChoosesTheClass) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  KivOutOfCoreManager* pzManager = ManagerOf(pzModel);
  const auto ElementOf = [&](uint32_t iTypeWord) {
    std::vector<uint8_t> vcBytes(KivMemoryBlockPositionTable::kRecordSize);
    KivMemoryBlockPositionTable zTable;
    EXPECT_TRUE(zTable.Build(vcBytes.data()));
    KivStore<uint32_t>(vcBytes.data(), iTypeWord);
    const uint64_t iPosition =
        pzManager->GetContainer()->AddRecord(KivContainerData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size())));
    return KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition);
  };
  EXPECT_NE(dynamic_cast<KivPositionTable*>(ElementOf(10)), nullptr);
  EXPECT_NE(dynamic_cast<KivPositionTable*>(ElementOf(0xFF00000A)), nullptr);
  EXPECT_NE(dynamic_cast<TestNote*>(ElementOf(kTestNoteIndex << 16)), nullptr);
  EXPECT_NE(dynamic_cast<TestBag*>(ElementOf((kTestBagIndex << 16) | 10)), nullptr);
  // A registered type without a factory is null without a report; an unknown code is reported.
  EXPECT_NO_REPORT(EXPECT_EQ(ElementOf(200U << 16), nullptr));
  EXPECT_REPORT(ElementOf(14), "0");
  EXPECT_REPORT(ElementOf(0), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(ElementOf(14), nullptr);
}

TEST_F(OutOfCoreManager, ARecordTooSmallForAFrameIsReported) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const std::vector<uint8_t> vcBytes(67);
  const uint64_t iPosition = ManagerOf(pzModel)->GetContainer()->AddRecord(KivContainerData(vcBytes.data(), 67));
  EXPECT_REPORT(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition), nullptr);
}

TEST_F(OutOfCoreManager, TheElementsRecordSizeIsThatOfItsRecord) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const KivOutOfCoreData* pzNote = zNote.Fetch();
  EXPECT_EQ(pzNote->GetDataSize(), TestRecordSize(4));
  EXPECT_EQ(pzNote->GetRecordSize(), TestRecordSize(4));
  EXPECT_EQ(pzNote->GetPosition(), zNote.GetPosition());
  EXPECT_EQ(pzNote->GetPositionKey(), 0U);
  EXPECT_FALSE(pzNote->IsActive());
}

TEST_F(OutOfCoreManager, ATemporaryElementIsTheCallersOwn) {
  for (const int32_t iLimit : {1, 2}) {
    KivModelStatusBase* pzModel = Open(MakeFile(iLimit == 1 ? u"one.kiv" : u"two.kiv"), true, iLimit);
    const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
    KivContainerRecord zRecord;
    KivElementFrame acFrame;
    const auto pzOwn =
        KivOutOfCoreManager::GetTemporaryElement(pzModel->GetKey(), zNote.GetPosition(), zRecord, acFrame);
    ASSERT_NE(pzOwn, nullptr);
    EXPECT_EQ(ManagerOf(pzModel)->GetKnownElementNum(), 0U);
    EXPECT_EQ(zRecord.m_iOffset, zNote.GetPosition() + 16);
    EXPECT_EQ(KivLoad<uint32_t>(acFrame.data()) >> 16, kTestNoteIndex);
    auto* pzNote = dynamic_cast<TestNote*>(pzOwn.get());
    ASSERT_NE(pzNote, nullptr);
    EXPECT_EQ(pzNote->GetMemoryBlock()->m_strText, "note");
    EXPECT_TRUE(pzNote->Deactivate());
    EXPECT_NE(zNote.Fetch(), pzNote);
  }
}

TEST_F(OutOfCoreManager, DeleteElementObjectTakesTheMapsObjectsAlone) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  TestNote zMine(pzModel->GetKey());
  KivOutOfCoreData* pzElement = &zMine;
  EXPECT_REPORT(KivOutOfCoreManager::DeleteElementObject(pzModel->GetKey(), pzElement), "0");
  EXPECT_EQ(pzElement, nullptr);
  EXPECT_REPORT(KivOutOfCoreManager::DeleteElementObject(pzModel->GetKey(), pzElement), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(KivOutOfCoreManager::DeleteElementObject(pzModel->GetKey(), pzElement));
    pzElement = &zMine;
    EXPECT_FALSE(KivOutOfCoreManager::DeleteElementObject(pzModel->GetKey(), pzElement));
    EXPECT_EQ(pzElement, nullptr);
  }
  pzElement = zNote.Fetch();
  const int iObjects = TestCounts().m_iObjects;
  EXPECT_TRUE(KivOutOfCoreManager::DeleteElementObject(pzModel->GetKey(), pzElement));
  EXPECT_EQ(pzElement, nullptr);
  EXPECT_EQ(TestCounts().m_iObjects, iObjects - 1);
  EXPECT_REPORT(zNote.Fetch(), "0");
}

TEST_F(OutOfCoreManager, DeleteElementDestroysAnActiveObjectWithoutStoringIt) {
  for (const int32_t iLimit : {1, 2}) {
    KivModelStatusBase* pzModel = Open(MakeFile(iLimit == 1 ? u"one.kiv" : u"two.kiv"), true, iLimit);
    const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
    zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "changed";
    const int iSaves = TestCounts().m_iSaves;
    EXPECT_TRUE(KivOutOfCoreManager::DeleteElement(pzModel->GetKey(), zNote.GetPosition()));
    EXPECT_EQ(TestCounts().m_iSaves, iSaves);
    EXPECT_EQ(ManagerOf(pzModel)->GetActiveElementNum(), 0U);
    EXPECT_EQ(ManagerOf(pzModel)->GetKnownElementNum(), 0U);
  }
}

TEST_F(OutOfCoreManager, KeptRecordsAreNotFreed) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const KivOutOfCoreHandle zOld = zNote;
  EXPECT_TRUE(KivOutOfCoreManager::SetKeepRecords(pzModel->GetKey()));
  ASSERT_TRUE(SetText(zNote, std::string(500, 'b')));
  EXPECT_EQ(TextOf(zOld), "note");
  EXPECT_TRUE(zNote.Delete());
  EXPECT_TRUE(ManagerOf(pzModel)->GetContainer()->FullCheck().m_iFreeRecordNum == 0);
}

TEST_F(OutOfCoreManager, APrefetchIsIssuedOnce) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  EXPECT_TRUE(KivOutOfCoreManager::PrefetchElement(pzModel->GetKey(), zNote.GetPosition(), 1));
  // A place that cannot be fetched: the second call does not ask the container again.
  constexpr uint64_t kFar = uint64_t{0x7FFFFFFFFFFFFFFF};
  EXPECT_FALSE(KivOutOfCoreManager::PrefetchElement(pzModel->GetKey(), kFar, 1));
  EXPECT_TRUE(KivOutOfCoreManager::PrefetchElement(pzModel->GetKey(), kFar, 1));
  EXPECT_REPORT(KivOutOfCoreManager::PrefetchElement(pzModel->GetKey(), 0, 1), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(KivOutOfCoreManager::PrefetchElement(pzModel->GetKey(), 0, 1));
}

// --- The list of active elements ------------------------------------------------------------------------------------

class ActiveList : public OutOfCoreManager {
 protected:
  static std::string BagText(size_t i) {
    std::string strText = "bag ";
    strText += std::to_string(i);
    return strText;
  }
  void OpenWithBags(int nBags, int32_t iLimit) {
    m_pzModel = Open(MakeFile(u"bags.kiv"), true, iLimit);
    for (int i = 0; i < nBags; ++i) m_vzBag.push_back(AddBag(m_pzModel, BagText(static_cast<size_t>(i))));
  }
  void Use(size_t i) { EXPECT_EQ(TextOf(m_vzBag[i]), BagText(i)); }
  // Without touching it.
  bool IsKnown(size_t i) {
    const int iObjects = TestCounts().m_iObjects;
    m_vzBag[i].Fetch();
    return TestCounts().m_iObjects == iObjects;
  }
  KivModelStatusBase* m_pzModel = nullptr;
  std::vector<KivOutOfCoreHandle> m_vzBag;
};

TEST_F(ActiveList, WithALimitOfTwoTheLeastRecentlyTouchedIsEvicted) {
  OpenWithBags(3, 2);
  Use(0);
  Use(1);
  Use(0);
  Use(2);  // evicts 1
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 2U);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 2U);
  const int iObjects = TestCounts().m_iObjects;
  m_vzBag[0].Fetch();
  m_vzBag[2].Fetch();
  EXPECT_EQ(TestCounts().m_iObjects, iObjects);
  m_vzBag[1].Fetch();
  EXPECT_EQ(TestCounts().m_iObjects, iObjects + 1);
}

TEST_F(ActiveList, AFetchOfAnActiveElementTouchesItFromALimitOfTwoOn) {
  OpenWithBags(3, 2);
  Use(0);
  Use(1);
  m_vzBag[0].Fetch();
  Use(2);  // evicts 1
  EXPECT_TRUE(IsKnown(0));
  EXPECT_FALSE(IsKnown(1));
}

TEST_F(ActiveList, AtALimitOfOneTheActiveElementIsReplaced) {
  OpenWithBags(2, 1);
  Use(0);
  auto* pzFirst = m_vzBag[0].Fetch();
  EXPECT_TRUE(pzFirst->IsActive());
  Use(1);
  EXPECT_FALSE(pzFirst->IsActive());
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 2U);
}

TEST_F(ActiveList, EvictionStoresWhatWasChanged) {
  OpenWithBags(5, 3);
  for (size_t i = 0; i < 5; ++i)
    m_vzBag[i].Fetch<TestBag>()->GetMemoryBlockForWrite()->m_strText = std::string(3, static_cast<char>('a' + i));
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(TextOf(m_vzBag[i]), std::string(3, static_cast<char>('a' + i)));
}

TEST_F(ActiveList, DeactivateAllIncludesTheOneElementAtALimitOfOne) {
  OpenWithBags(1, 1);
  auto* pzBag = m_vzBag[0].Fetch<TestBag>();
  pzBag->GetMemoryBlockForWrite()->m_strText = "changed";
  EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
  EXPECT_FALSE(pzBag->IsActive());
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
  EXPECT_EQ(TextOf(m_vzBag[0]), "changed");
}

TEST_F(ActiveList, DeactivateAllEmptiesTheListAtHigherLimits) {
  OpenWithBags(10, 6);
  for (size_t i = 0; i < 10; ++i) Use(i);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 6U);
  EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 0U);
}

TEST_F(ActiveList, AFailedSaveDuringEvictionIsReportedAndTheElementStaysActive) {
  OpenWithBags(3, 2);
  m_vzBag[0].Fetch<TestBag>()->GetMemoryBlockForWrite()->m_strText = "changed";
  Use(1);
  TestFaults().m_bSaveFails = true;
  EXPECT_REPORT(TextOf(m_vzBag[2]), "0");
  TestFaults().m_bSaveFails = false;
  EXPECT_TRUE(m_vzBag[0].Fetch()->IsActive());
  EXPECT_LE(ManagerOf(m_pzModel)->GetActiveElementNum(), 2U);
  Use(2);
  Use(1);
  EXPECT_EQ(TextOf(m_vzBag[0]), "changed");
}

TEST_F(ActiveList, AFailedSaveDuringEvictionLeavesOneTooManyInAHostWhoseReportsReturn) {
  OpenWithBags(3, 2);
  m_vzBag[0].Fetch<TestBag>()->GetMemoryBlockForWrite()->m_strText = "changed";
  Use(1);
  {
    const NoThrowScope zNoThrow;
    TestFaults().m_bSaveFails = true;
    Use(2);
    EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 3U);
    TestFaults().m_bSaveFails = false;
    EXPECT_EQ(TextOf(m_vzBag[1]), "bag 1");  // the list is set right with the next touch
    EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 2U);
  }
  EXPECT_EQ(TextOf(m_vzBag[0]), "changed");
}

TEST_F(ActiveList, AtALimitOfOneWhatCouldNotBeStoredWhenItWasReplacedIsTriedAgain) {
  enum class End { DeactivateAll, Close, TouchedAgain, Destroyed };
  for (const End eEnd : {End::DeactivateAll, End::Close, End::TouchedAgain, End::Destroyed}) {
    SCOPED_TRACE(static_cast<int>(eEnd));
    m_vzBag.clear();
    OpenWithBags(3, 1);
    const KivWString csPath = m_pzModel->m_csRootKivFile;
    auto* pzFirst = m_vzBag[0].Fetch<TestBag>();
    pzFirst->GetMemoryBlockForWrite()->m_strText = "new 0";
    {
      const NoThrowScope zNoThrow;
      TestFaults().m_bSaveFails = true;
      Use(1);
      TestFaults().m_bSaveFails = false;
    }
    EXPECT_TRUE(pzFirst->IsActive());
    EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 2U);
    if (eEnd == End::DeactivateAll) {
      EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
      EXPECT_FALSE(pzFirst->IsActive());
      EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
    } else if (eEnd == End::TouchedAgain) {
      EXPECT_EQ(pzFirst->GetMemoryBlock()->m_strText, "new 0");
      EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
      Use(2);
      EXPECT_FALSE(pzFirst->IsActive());
    } else if (eEnd == End::Destroyed) {
      EXPECT_TRUE(m_vzBag[0].Delete());
      EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
      EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
    }
    const uint64_t iPosition = m_vzBag[0].GetPosition();
    Close(m_pzModel);
    if (eEnd == End::Destroyed) continue;
    m_pzModel = Open(csPath, false);
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(m_pzModel->GetKey(), iPosition)), "new 0");
    Close(m_pzModel);
  }
}

TEST_F(ActiveList, AtALimitOfOneASnapshotHoldsWhatCouldNotBeStoredWhenItWasReplaced) {
  OpenWithBags(2, 1);
  const KivWString csPath = m_pzModel->m_csRootKivFile;
  const uint64_t iPosition = m_vzBag[0].GetPosition();
  const uint64_t iOther = m_vzBag[1].GetPosition();
  Close(m_pzModel);
  m_pzModel = Open(csPath, false);
  const KivOutOfCoreHandle zBag(m_pzModel->GetKey(), iPosition);
  zBag.Fetch<TestBag>()->GetMemoryBlockForWrite()->m_strText = "new 0";
  {
    const NoThrowScope zNoThrow;
    TestFaults().m_bSaveFails = true;
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(m_pzModel->GetKey(), iOther)), "bag 1");
    TestFaults().m_bSaveFails = false;
  }
  ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(zBag), "new 0");
}

TEST_F(ActiveList, TheLimitChangesWithAllElementsDeactivated) {
  OpenWithBags(4, 4);
  for (size_t i = 0; i < 4; ++i) Use(i);
  EXPECT_TRUE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(m_pzModel->GetKey(), 1));
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
  for (size_t i = 0; i < 4; ++i) Use(i);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
  EXPECT_TRUE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(m_pzModel->GetKey(), 2));
  for (size_t i = 0; i < 4; ++i) Use(i);
  EXPECT_REPORT(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(m_pzModel->GetKey(), 0), "0");
}

TEST_F(ActiveList, ClosingStoresEveryActiveElement) {
  for (const int32_t iLimit : {1, 2, 100}) {
    const KivWString csPath = MakeFile(KivWString(u"close") + static_cast<char16_t>(u'0' + iLimit % 10));
    KivModelStatusBase* pzModel = Open(csPath, true, iLimit);
    std::vector<KivOutOfCoreHandle> vzBag;
    for (int i = 0; i < 8; ++i) vzBag.push_back(AddBag(pzModel, "old"));
    for (const KivOutOfCoreHandle& zBag : vzBag) zBag.Fetch<TestBag>()->GetMemoryBlockForWrite()->m_strText = "new";
    Close(pzModel);
    EXPECT_EQ(TestCounts().m_iObjects, 0);
    pzModel = Open(csPath, false, iLimit);
    for (const KivOutOfCoreHandle& zBag : vzBag)
      EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), zBag.GetPosition())), "new");
    Close(pzModel);
  }
}

TEST_F(ActiveList, AStackObjectThatOutlivesItsModelBecomesInactive) {
  for (const int32_t iLimit : {1, 2}) {
    KivModelStatusBase* pzModel = Open(MakeFile(iLimit == 1 ? u"one.kiv" : u"two.kiv"), true, iLimit);
    TestNote zNote(pzModel->GetKey());
    zNote.GetMemoryBlockForWrite()->m_strText = "kept";
    Close(pzModel);
    EXPECT_FALSE(zNote.IsActive());
    EXPECT_NE(zNote.GetPosition(), 0U);
  }
}

// --- Memory ---------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreManager, AtALimitOfOneTheMapGrowsByAnObjectForEachFetchAndAboveItMemoryStaysFlat) {
  const uint64_t nElements = Scaled(200000, 3000);
  // One record as the store writes it, then as many of it as are wanted, straight into the container.
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivWString csPath = pzModel->m_csRootKivFile;
  TestBlock zBlock;
  zBlock.m_strText = std::string(40, 'e');
  const std::vector<uint8_t> vcBytes = BuildTestRecord((kTestBagIndex << 16) | 0x0202, zBlock);
  const KivContainerData zData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size()));
  std::vector<uint64_t> viPosition;
  for (uint64_t i = 0; i < nElements; ++i) viPosition.push_back(ManagerOf(pzModel)->GetContainer()->AddRecord(zData));
  Close(pzModel);

  const auto MemoryNow = [] {
    KivSysMemoryCounters zCounters;
    return sys::MemoryCounters(zCounters) ? zCounters.m_iWorkingSet : uint64_t{0};
  };
  for (const int32_t iLimit : {2, 1000, 1}) {
    SCOPED_TRACE(iLimit);
    pzModel = Open(csPath, false, iLimit);
    const KivOutOfCoreManager* pzManager = ManagerOf(pzModel);
    size_t nMost = 0;
    uint64_t nRead = 0;
    uint64_t iAfterATenth = 0;
    for (uint64_t i = 0; i < nElements; ++i) {
      auto* pzBag = dynamic_cast<TestBag*>(KivOutOfCoreManager::GetElement(pzModel->GetKey(), viPosition[i]));
      ASSERT_TRUE(pzBag != nullptr);
      const TestBlock* pzBlock = pzBag->GetMemoryBlock();
      ASSERT_TRUE(pzBlock != nullptr);
      nRead += pzBlock->m_strText.size();
      nMost = std::max(nMost, pzManager->GetKnownElementNum());
      if (i == nElements / 10) iAfterATenth = MemoryNow();
    }
    const uint64_t iAtTheEnd = MemoryNow();
    EXPECT_EQ(nRead, 40 * nElements);
    if (iLimit == 1) {
      EXPECT_EQ(nMost, nElements);
    } else {
      EXPECT_LE(nMost, static_cast<size_t>(iLimit) + 1);
      EXPECT_EQ(TestCounts().m_iObjects, std::min<int>(iLimit, static_cast<int>(nElements)));
      // The file's own pages count too; objects of all elements would be ten times this.
      if (!kSanitized && iAfterATenth != 0) {
        EXPECT_LT(iAtTheEnd, iAfterATenth + 2 * FileBytes(csPath).size() + (16U << 20));
      }
    }
    Close(pzModel);
    EXPECT_EQ(TestCounts().m_iObjects, 0);
  }
}

}  // namespace
