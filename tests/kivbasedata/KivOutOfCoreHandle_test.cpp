#include "KivOutOfCoreHandle.h"

#include <gtest/gtest.h>

#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

class OutOfCoreHandle : public StoreTest {};

TEST_F(OutOfCoreHandle, AnEmptyHandleFetchesNothing) {
  const KivOutOfCoreHandle zHandle;
  EXPECT_FALSE(zHandle);
  EXPECT_EQ(zHandle.Fetch(), nullptr);
}

TEST_F(OutOfCoreHandle, HoldsAnElementOverEvictions) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true, 2);
  std::vector<KivOutOfCoreHandle> vzNote;
  for (int i = 0; i < 20; ++i) vzNote.push_back(AddNote(pzModel, std::string(static_cast<size_t>(i + 1), 'n')));
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(TextOf(vzNote[static_cast<size_t>(i)]), std::string(static_cast<size_t>(i + 1), 'n'));
}

TEST_F(OutOfCoreHandle, FollowsAnUnkeyedElementThatMoves) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true, 2);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "small");
  AddNote(pzModel, "behind");
  const KivOutOfCoreHandle zBefore = zNote;
  ASSERT_TRUE(SetText(zNote, std::string(3000, 'b')));
  EXPECT_FALSE(zNote == zBefore);
  EXPECT_EQ(TextOf(zNote), std::string(3000, 'b'));
}

TEST_F(OutOfCoreHandle, FetchOfAnotherClassIsNull) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  EXPECT_EQ(zNote.Fetch<TestBag>(), nullptr);
  EXPECT_NE(zNote.Fetch<TestNote>(), nullptr);
}

TEST_F(OutOfCoreHandle, DeleteFreesTheRecordAndEmptiesTheHandle) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const KivOutOfCoreHandle zStale = zNote;
  EXPECT_TRUE(zNote.Delete());
  EXPECT_FALSE(zNote);
  EXPECT_REPORT(zStale.Fetch(), "0");
}

TEST_F(OutOfCoreHandle, CommitOfAnElementThatIsGoneIsReported) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  KivOutOfCoreHandle zStale = zNote;
  ASSERT_TRUE(zNote.Delete());
  EXPECT_REPORT(zStale.Commit(), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(zStale.Commit());
}

TEST_F(OutOfCoreHandle, AnElementThatCannotBeStoredGivesAnEmptyHandle) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  auto pzNote = std::make_unique<TestNote>(pzModel->GetKey());
  ASSERT_NE(pzNote->GetMemoryBlockForWrite(), nullptr);
  TestFaults().m_bSaveFails = true;
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(KivStoreNewElement(std::move(pzNote)));
  EXPECT_FALSE(KivStoreNewElement(nullptr));
}

}  // namespace
