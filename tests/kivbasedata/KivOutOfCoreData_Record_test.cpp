// Elements whose record is lost on the way to a new place, and objects that outlive what they refer to.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "KivOutOfCoreData.h"
#include "KivPositionTableManager.h"
#include "KivSysFile.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

// Limit, keyed, reports throw.
using RecordParameters = std::tuple<int, bool, bool>;

class LostRecord : public StoreTest, public testing::WithParamInterface<RecordParameters> {
 protected:
  int32_t Limit() const { return std::get<0>(GetParam()); }
  bool Tables() const { return std::get<1>(GetParam()); }
  bool Throws() const { return std::get<2>(GetParam()); }

  // A note that was stored, is active with a change, and whose record was freed without a new one.
  void LoseRecord() {
    m_csPath = MakeFile(u"a.kiv", Tables());
    m_pzModel = Open(m_csPath, true, Limit());
    m_zNote = AddNote(m_pzModel, std::string(200, 'o'));
    AddBag(m_pzModel, "behind");
    m_pzNote = m_zNote.Fetch<TestNote>();
    m_iOld = m_pzNote->GetPosition();
    m_pzNote->GetMemoryBlockForWrite()->m_strText = "changed";
    // No container takes a record without data.
    if (Throws()) {
      EXPECT_REPORT(m_pzNote->WriteData(nullptr, 1000), "zData.m_pzData != NULL");
    } else {
      const NoThrowScope zNoThrow;
      EXPECT_FALSE(m_pzNote->WriteData(nullptr, 1000));
    }
  }
  KivOutOfCoreHandle Reopened() {
    const KivOutOfCoreHandle zBefore = m_zNote;
    Close(m_pzModel);
    m_pzModel = Open(m_csPath, false, Limit());
    return KivOutOfCoreHandle(m_pzModel->GetKey(), zBefore.GetPosition());
  }

  KivWString m_csPath;
  KivModelStatusBase* m_pzModel = nullptr;
  KivOutOfCoreHandle m_zNote;
  TestNote* m_pzNote = nullptr;
  uint64_t m_iOld = 0;
};

TEST_P(LostRecord, TheElementStaysActiveWithItsChangeAndIsFoundByWhatItWasKnownBy) {
  LoseRecord();
  EXPECT_EQ(m_pzNote->GetPosition(), 0U);
  EXPECT_TRUE(m_pzNote->IsActive());
  EXPECT_TRUE(m_pzNote->IsModified());
  EXPECT_EQ(m_zNote.Fetch(), m_pzNote);
  EXPECT_EQ(TextOf(m_zNote), "changed");
}

TEST_P(LostRecord, TheNextSaveGivesItARecordAndTheHandleFollows) {
  LoseRecord();
  ASSERT_TRUE(m_zNote.Commit());
  EXPECT_EQ(KivPositionTableManager::IsTableKey(m_zNote.GetPosition()), Tables());
  EXPECT_EQ(TextOf(m_zNote), "changed");
  EXPECT_EQ(TextOf(Reopened()), "changed");
}

TEST_P(LostRecord, TheFormerPlaceBelongsToWhateverIsStoredThereNext) {
  LoseRecord();
  TestBlock zBlock;
  zBlock.m_strText = std::string(200, 'n');
  const std::vector<uint8_t> vcBytes = BuildTestRecord((kTestNoteIndex << 16) | 0x0101, zBlock);
  ASSERT_EQ(ManagerOf(m_pzModel)->GetContainer()->AddRecord(
                KivContainerData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size()))),
            m_iOld);
  const KivOutOfCoreHandle zOther(m_pzModel->GetKey(), m_iOld);
  const KivOutOfCoreData* pzOther = zOther.Fetch();
  ASSERT_NE(pzOther, nullptr);
  EXPECT_NE(pzOther, m_pzNote);
  EXPECT_EQ(TextOf(zOther), std::string(200, 'n'));
  if (Tables()) {
    EXPECT_EQ(TextOf(m_zNote), "changed");
    ASSERT_TRUE(m_zNote.Commit());
    EXPECT_EQ(TextOf(m_zNote), "changed");
  } else {
    EXPECT_EQ(TextOf(m_zNote), std::string(200, 'n'));  // the same position
    EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
  }
  EXPECT_EQ(TextOf(zOther), std::string(200, 'n'));
  const KivContainerCheck zCheck = ManagerOf(m_pzModel)->GetContainer()->FullCheck();
  EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
  EXPECT_EQ(zCheck.m_iUsedRecordNum, Tables() ? 4U : 3U);
  if (Tables()) {
    EXPECT_EQ(TextOf(Reopened()), "changed");
  }
}

TEST_P(LostRecord, ClosingTheModelStoresTheElement) {
  LoseRecord();
  if (Tables()) {
    EXPECT_EQ(TextOf(Reopened()), "changed");
    return;
  }
  Close(m_pzModel);
  std::ifstream zFile(std::filesystem::path(m_csPath), std::ios::binary);
  const std::string strBytes((std::istreambuf_iterator<char>(zFile)), std::istreambuf_iterator<char>());
  EXPECT_NE(strBytes.find("changed"), std::string::npos) << "stored, though nothing leads to its record any more";
}

TEST_P(LostRecord, DeletingTheElementEndsTheObject) {
  LoseRecord();
  const int iObjects = TestCounts().m_iObjects;
  EXPECT_TRUE(m_zNote.Delete());
  EXPECT_EQ(TestCounts().m_iObjects, iObjects - 1);
  EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
}

TEST_P(LostRecord, DeletingTheObjectEndsIt) {
  LoseRecord();
  const int iObjects = TestCounts().m_iObjects;
  KivOutOfCoreData* pzElement = m_pzNote;
  EXPECT_TRUE(KivOutOfCoreManager::DeleteElementObject(m_pzModel->GetKey(), pzElement));
  EXPECT_EQ(TestCounts().m_iObjects, iObjects - 1);
  EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
}

TEST_P(LostRecord, WhileRecordsAreKeptNothingIsLost) {
  m_pzModel = Open(MakeFile(u"a.kiv", Tables()), true, Limit());
  m_zNote = AddNote(m_pzModel, "old");
  ASSERT_TRUE(KivOutOfCoreManager::SetKeepRecords(m_pzModel->GetKey()));
  auto* pzNote = m_zNote.Fetch<TestNote>();
  const uint64_t iPosition = pzNote->GetPosition();
  pzNote->GetMemoryBlockForWrite()->m_strText = "changed";
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(pzNote->WriteData(nullptr, 1000));
  EXPECT_EQ(pzNote->GetPosition(), iPosition);
  EXPECT_EQ(TextOf(m_zNote), "changed");
}

INSTANTIATE_TEST_SUITE_P(All, LostRecord, testing::Combine(testing::Values(1, 2, 9), testing::Bool(), testing::Bool()),
                         [](const auto& zInfo) {
                           return "Limit" + std::to_string(std::get<0>(zInfo.param)) +
                                  (std::get<1>(zInfo.param) ? "Keyed" : "Plain") +
                                  (std::get<2>(zInfo.param) ? "Throwing" : "Returning");
                         });

// --- Objects that outlive things ------------------------------------------------------------------------------------

class ObjectLife : public StoreTest {
 protected:
  static bool IsClosed(const KivWString& csPath) {
    return KivSysFile::Open(csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting})
        .IsOpen();
  }
};

TEST_F(ObjectLife, TheModelOfAnElementIsTheOneThatIsOpenNow) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, false);
  TestNote zNote(pzModel->GetKey());
  EXPECT_EQ(zNote.GetModelStatus(), pzModel);
  {
    const KivOutOfCoreManagerKeyOwner zHolder(*pzModel->m_pzRootKey);  // keeps the manager
    Close(pzModel);
    EXPECT_EQ(zNote.GetModelStatus(), nullptr);
  }
  EXPECT_EQ(zNote.GetModelStatus(), nullptr);
  pzModel = Open(csPath, false);
  ASSERT_EQ(pzModel->GetKey(), zNote.GetManagerKey());
  EXPECT_EQ(zNote.GetModelStatus(), pzModel);
}

TEST_F(ObjectLife, NoObjectKeepsTheFileOfAModelThatIsClosed) {
  const KivWString csPath = MakeFile(u"a.kiv");
  for (const int32_t iLimit : {1, 2}) {
    SCOPED_TRACE(iLimit);
    KivModelStatusBase* pzModel = Open(csPath, true, iLimit);
    const uint32_t iKey = pzModel->GetKey();
    const KivOutOfCoreHandle zNote = AddNote(pzModel, "text");
    TestNote zStack(iKey);
    zStack.GetMemoryBlockForWrite()->m_strText = "stack";
    ASSERT_NE(zStack.AssignPositionKey(), 0U);
    EXPECT_EQ(zStack.GetMemoryBlock()->m_strText, "stack");
    EXPECT_TRUE(zStack.Deactivate());
    KivElementFrame acFrame;
    const auto Temporary = [&] {
      KivContainerRecord zRecord;
      return KivOutOfCoreManager::GetTemporaryElement(iKey, zNote.GetPosition(), zRecord, acFrame);
    };
    const auto pzUnread = Temporary();
    const auto pzRead = Temporary();
    ASSERT_TRUE(pzRead->ReadData(acFrame.data(), acFrame.size()));
    const auto pzActive = Temporary();
    ASSERT_TRUE(pzActive->Activate(false));
    Close(pzModel);
    EXPECT_FALSE(pzActive->IsActive());
    EXPECT_TRUE(IsClosed(csPath));
  }
}

TEST_F(ObjectLife, ANewElementThatIsMarkedBeforeItIsActivatedIsStored) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  TestNote zNote(pzModel->GetKey());
  zNote.MarkModified();
  ASSERT_TRUE(zNote.Activate(false));
  EXPECT_TRUE(zNote.IsModified());
  EXPECT_TRUE(zNote.Deactivate());
  EXPECT_NE(zNote.GetPosition(), 0U);
}

// A class that breaks the rule for Load.
class ThrowingNote : public TestNote {
 public:
  using TestNote::TestNote;
  bool Load(bool) override {
    TakeBlock();
    throw std::runtime_error("load");
  }
};

TEST_F(ObjectLife, ALoadThatThrowsAllTheSameGivesTheClassBlockBack) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "text");
  ThrowingNote zThrowing(pzModel->GetKey());
  EXPECT_THROW(zThrowing.Activate(false), std::runtime_error);
  EXPECT_FALSE(zThrowing.IsActive());
  EXPECT_FALSE(zThrowing.HasBlock());
  EXPECT_EQ(TextOf(zNote), "text");
}

TEST_F(ObjectLife, AnInactiveElementThatWasLoadedGivesTheClassBlockUp) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zFirst = AddNote(pzModel, "first");
  const KivOutOfCoreHandle zSecond = AddNote(pzModel, "second");
  auto* pzFirst = zFirst.Fetch<TestNote>();
  ASSERT_TRUE(pzFirst->Load(false));
  ASSERT_TRUE(pzFirst->HasBlock());
  EXPECT_EQ(TextOf(zSecond), "second");
  EXPECT_FALSE(pzFirst->HasBlock());
  EXPECT_EQ(TextOf(zFirst), "first");
}

TEST_F(ObjectLife, MarkModifiedDropsTheRawBytesAndTheyComeBackWithTheNextLoad) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zBag = AddBag(pzModel, "raw");
  auto* pzBag = zBag.Fetch<TestBag>();
  ASSERT_NE(pzBag->GetMemoryBlock(), nullptr);
  EXPECT_FALSE(pzBag->RawData().empty());
  pzBag->MarkModified();
  EXPECT_TRUE(pzBag->RawData().empty());
  EXPECT_TRUE(pzBag->Deactivate());
  EXPECT_EQ(TextOf(zBag), "raw");
  EXPECT_FALSE(pzBag->RawData().empty());
}

}  // namespace
