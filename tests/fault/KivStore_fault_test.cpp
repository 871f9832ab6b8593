// A store whose files fail at every single call: snapshots are whole or were never made, and no file is left behind by
// a store that did not come up.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "KivDataSpaceBase.h"
#include "KivSysFault.h"
#include "KivTestStore.h"

using namespace kiv;
using namespace kivtest;

namespace {

class StoreFault : public StoreTest {
 protected:
  std::set<std::string> Files() {
    std::set<std::string> strNames;
    for (const auto& zEntry : std::filesystem::directory_iterator(m_zFolder.Path()))
      strNames.insert(zEntry.path().filename().string());
    return strNames;
  }
  // Two models with a note each; both take part in every snapshot.
  void OpenModels() {
    for (size_t i = 0; i < 2; ++i) {
      m_apzModel[i] = Open(m_acsPath[i], false);
      m_azNote[i] = KivOutOfCoreHandle(m_apzModel[i]->GetKey(), m_aiNote[i]);
    }
  }
  void Write(const char* szText) {
    for (KivOutOfCoreHandle& zNote : m_azNote) ASSERT_TRUE(SetText(zNote, szText));
  }
  void ExpectTexts(const char* szText) {
    for (const KivOutOfCoreHandle& zNote : m_azNote) EXPECT_EQ(TextOf(zNote), szText);
  }
  // One history with the N-th call of a snapshot failing. False when no call failed any more.
  bool SnapShotWithFault(KivSysCall iCall, uint64_t iNth, bool bThrow) {
    OpenModels();
    Write("st-0");
    EXPECT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    Write("st-1");
    bool bDone = false;
    bool bFired = false;
    {
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = iCall;
      zPlan.m_iNth = iNth;
      const KivSysFaultScope zScope(zPlan);
      try {
        if (bThrow) {
          bDone = Space().CreateSnapShot() == KivCreateSnapShotResult::Done;
        } else {
          const NoThrowScope zNoThrow;
          bDone = Space().CreateSnapShot() == KivCreateSnapShotResult::Done;
        }
      } catch (const KivException&) {
      }
      bFired = zScope.HasFired();
    }
    EXPECT_TRUE(bDone || bFired);
    const int32_t nEntries = bDone ? 2 : 1;
    EXPECT_EQ(Space().GetUndoNum(), nEntries);
    EXPECT_EQ(static_cast<int32_t>(Space().GetHistory().size()), nEntries);
    ExpectTexts("st-1");

    // The history goes on as if nothing had been tried.
    Write("st-2");
    EXPECT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    ExpectTexts("st-2");
    Write("last");
    ExpectTexts("last");
    for (size_t i = 0; i < Space().GetHistory().size(); ++i) {
      KivWString csSaved = m_zFolder / u"saved";
      csSaved += static_cast<char16_t>(u'0' + i);
      EXPECT_EQ(Space().GetHistory()[i]->SaveSnapShot(m_apzModel[0], csSaved, 0), KivSaveSnapShotResult::Done);
    }
    EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
    ExpectTexts("st-2");
    EXPECT_EQ(Space().UndoSnapShot(2), KivUndoResult::Done);
    ExpectTexts(bDone ? "st-1" : "st-0");
    EXPECT_EQ(Space().RedoSnapShot(1), KivRedoResult::Done);
    ExpectTexts("st-2");
    const size_t nSaved = Space().GetHistory().size();
    EXPECT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
    for (size_t i = 0; i < nSaved; ++i) {
      KivWString csSaved = m_zFolder / u"saved";
      csSaved += static_cast<char16_t>(u'0' + i);
      KivModelStatusBase* pzSaved = Open(csSaved, false);
      const char* const szExpected = i == 0 ? "st-0" : (i == 1 && bDone ? "st-1" : "st-2");
      EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), m_aiNote[0])), szExpected);
      Close(pzSaved);
      std::filesystem::remove(std::filesystem::path(csSaved));
    }
    return bFired;
  }

  std::array<KivWString, 2> m_acsPath;
  std::array<uint64_t, 2> m_aiNote{};
  std::array<KivModelStatusBase*, 2> m_apzModel{};
  std::array<KivOutOfCoreHandle, 2> m_azNote;
};

}  // namespace

TEST_F(StoreFault, ASnapshotThatFailsAtAnyCallIsAsIfItHadNeverBeenBegun) {
  for (size_t i = 0; i < 2; ++i) {
    m_acsPath[i] = MakeFile(KivWString(1, static_cast<char16_t>(u'a' + i)));
    KivModelStatusBase* pzModel = Open(m_acsPath[i], true);
    AddNote(pzModel, std::string(100000, 'x'));
    m_aiNote[i] = AddNote(pzModel, "file").GetPosition();
    Close(pzModel);
  }
  uint64_t nOtherCalls = 0;  // which of them a platform makes is its own affair
  for (const KivSysCall iCall :
       {KivSysCall::FileOpen, KivSysCall::MappingCreate, KivSysCall::MappingView, KivSysCall::FileSetLength})
    for (const bool bThrow : {true, false}) {
      uint64_t iNth = 1;
      bool bFired = true;
      for (; bFired && iNth < 100; ++iNth) {
        SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(iCall) << " number " << iNth
                                        << (bThrow ? " throwing" : " returning"));
        bFired = SnapShotWithFault(iCall, iNth, bThrow);
        if (HasFailure()) return;
      }
      EXPECT_LT(iNth, 100U);
      if (iCall == KivSysCall::FileOpen) {
        EXPECT_GT(iNth, 2U);  // a work file for each model at least
      } else {
        nOtherCalls += iNth - 2;
      }
    }
  EXPECT_GT(nOtherCalls, 0U);
}

TEST_F(StoreFault, ATemporaryStoreWhoseSideFileFailsIsTriedAgainAndLeavesNoMainFile) {
  KivOutOfCoreManager::SetOutOfCoreFileBase(m_zFolder.Path());
  for (const bool bThrow : {true, false})
    for (const uint64_t iNth : {uint64_t{1}, uint64_t{2}}) {
      SCOPED_TRACE(testing::Message() << iNth << (bThrow ? " throwing" : " returning"));
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = KivSysCall::FileOpen;
      zPlan.m_iNth = iNth;
      std::unique_ptr<KivOutOfCoreManagerKeyOwner> pzOwner;
      {
        const KivSysFaultScope zScope(zPlan);
        if (bThrow) {
          pzOwner = std::make_unique<KivOutOfCoreManagerKeyOwner>(KivStoreSource());
        } else {
          const NoThrowScope zNoThrow;
          pzOwner = std::make_unique<KivOutOfCoreManagerKeyOwner>(KivStoreSource());
        }
        EXPECT_TRUE(zScope.HasFired());
      }
      ASSERT_NE(pzOwner->GetManager(), nullptr);
      const std::set<std::string> strNames = Files();
      ASSERT_EQ(strNames.size(), 2U);
      EXPECT_EQ(strNames.begin()->substr(strNames.begin()->size() - 2), "_1");
      pzOwner.reset();
      ASSERT_EQ(Files().size(), 1U);
      std::filesystem::remove(std::filesystem::path(m_zFolder.Path()) / *Files().begin());
    }
}

TEST_F(StoreFault, ATemporaryStoreIsTriedTenTimesWhetherReportsThrowOrNotAndLeavesNothing) {
  KivOutOfCoreManager::SetOutOfCoreFileBase(m_zFolder.Path());
  for (const bool bThrow : {true, false})
    for (const uint64_t iNth : {uint64_t{1}, uint64_t{2}}) {
      SCOPED_TRACE(testing::Message() << iNth << (bThrow ? " throwing" : " returning"));
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = KivSysCall::FileOpen;
      zPlan.m_iNth = iNth;
      zPlan.m_bFromThenOn = true;
      const KivSysFaultScope zScope(zPlan);
      if (bThrow) {
        EXPECT_REPORT(KivOutOfCoreManagerKeyOwner zOwner{KivStoreSource()}, "0");
      } else {
        const NoThrowScope zNoThrow;
        EXPECT_EQ(KivOutOfCoreManagerKeyOwner{KivStoreSource()}.GetManager(), nullptr);
      }
      EXPECT_GE(zScope.GetCount(KivSysCall::FileOpen), 10U);
      EXPECT_TRUE(Files().empty());
    }
}

TEST_F(StoreFault, AnElementIsStoredBySomeLaterTryWhateverFailedBefore) {
  uint64_t nCalls = 0;
  for (const bool bTables : {false, true})
    for (const KivSysCall iCall : {KivSysCall::MappingView, KivSysCall::MappingCreate, KivSysCall::FileSetLength}) {
      bool bFired = true;
      uint64_t iNth = 1;
      for (; bFired && iNth < 60; ++iNth) {
        SCOPED_TRACE(testing::Message() << (bTables ? "keyed" : "plain") << " call " << static_cast<int>(iCall)
                                        << " number " << iNth);
        const KivWString csPath = MakeFile(u"grow.kiv", bTables);
        KivModelStatusBase* pzModel = Open(csPath, true);
        KivOutOfCoreHandle zNote = AddNote(pzModel, "small");
        const KivOutOfCoreHandle zBehind = AddBag(pzModel, "behind");
        auto* pzNote = zNote.Fetch<TestNote>();
        pzNote->GetMemoryBlockForWrite()->m_strText = std::string(3000000, 'g');
        {
          KivSysFaultPlan zPlan;
          zPlan.m_iCall = iCall;
          zPlan.m_iNth = iNth;
          const KivSysFaultScope zScope(zPlan);
          const KivOutOfCoreHandle zTried = zNote;
          try {
            zNote.Commit();
          } catch (const KivException&) {
            zNote = zTried;
          }
          bFired = zScope.HasFired();
        }
        if (pzNote->IsActive()) {
          EXPECT_TRUE(zNote.Commit());
        }
        EXPECT_EQ(TextOf(zNote), std::string(3000000, 'g'));
        EXPECT_EQ(TextOf(zBehind), "behind");
        const uint64_t iPosition = zNote.GetPosition();
        Close(pzModel);
        pzModel = Open(csPath, false);
        EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iPosition)), std::string(3000000, 'g'));
        Close(pzModel);
        std::filesystem::remove(std::filesystem::path(csPath));
        if (HasFailure()) return;
      }
      EXPECT_LT(iNth, 60U);
      nCalls += iNth - 2;
    }
  EXPECT_GT(nCalls, 0U);
}
