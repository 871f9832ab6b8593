// Random programs of create, change, delete, snapshot, undo, redo and discard over several models, against a naive
// model that keeps a full copy of every state. Some snapshots fail; now and then all models are saved, changed in place
// and opened again.
#include <gtest/gtest.h>

#include <array>
#include <iostream>
#include <map>
#include <optional>
#include <random>

#include "KivDataSpaceBase.h"
#include "KivPositionTableManager.h"
#include "KivSysFault.h"
#include "KivTestScale.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr int kModels = 3;
constexpr int kSteps = 5000;
constexpr int kKeptSnapShots = 10;
constexpr int kReopenSteps = 1000;
constexpr int kStepsInPlace = 100;

struct NaiveElement {
  KivOutOfCoreHandle m_zHandle;
  std::string m_strText;
  uint64_t m_iLink = 0;
};
using NaiveModel = std::map<int, NaiveElement>;
using NaiveState = std::array<NaiveModel, kModels>;

struct Parameters {
  bool m_bTables;
  int32_t m_iLimit;
  uint32_t m_iSeed;
  uint32_t m_nKeysBefore = 0;  // keys that the files hold from the start

  friend std::ostream& operator<<(std::ostream& zStream, const Parameters& z) {
    return zStream << (z.m_bTables ? "keyed" : "plain") << " limit " << z.m_iLimit << " seed " << z.m_iSeed << " keys "
                   << z.m_nKeysBefore;
  }
};

class StoreRandom : public StoreTest, public testing::WithParamInterface<Parameters> {
 protected:
  int Random(int n) { return static_cast<int>(m_zRandom() % static_cast<uint32_t>(n)); }
  std::string RandomText() {
    int iSize = Random(600);
    if (Random(20) == 0) iSize = Random(90000);
    return std::string(static_cast<size_t>(iSize), static_cast<char>('a' + Random(26)));
  }
  TestBlock* BlockOf(const KivOutOfCoreHandle& zHandle, bool bForWrite) {
    auto* pzNode = zHandle.Fetch<KivOutOfCoreTreeNode>();
    if (pzNode == nullptr) return nullptr;
    return dynamic_cast<TestBlock*>(bForWrite ? pzNode->GetMemoryBlockForWrite() : pzNode->GetMemoryBlock());
  }
  // A random element of a random model; false if that model is empty.
  bool Pick(int& iModel, NaiveModel::iterator& itElement) {
    iModel = Random(kModels);
    NaiveModel& mapElement = m_zNow[static_cast<size_t>(iModel)];
    if (mapElement.empty()) return false;
    itElement = mapElement.lower_bound(Random(m_iNextId));
    if (itElement == mapElement.end()) itElement = mapElement.begin();
    return true;
  }

  void Create() {
    const auto iModel = static_cast<size_t>(Random(kModels));
    NaiveElement zNew;
    zNew.m_strText = RandomText();
    zNew.m_zHandle =
        Random(2) == 0 ? AddNote(m_apzModel[iModel], zNew.m_strText) : AddBag(m_apzModel[iModel], zNew.m_strText);
    ASSERT_TRUE(zNew.m_zHandle);
    m_zNow[iModel][m_iNextId++] = zNew;
  }
  void Change(NaiveElement& zElement) {
    const std::string strText = RandomText();
    TestBlock* pzBlock = BlockOf(zElement.m_zHandle, true);
    ASSERT_NE(pzBlock, nullptr);
    pzBlock->m_strText = strText;
    pzBlock->m_zHeader.m_aiLink[1] = zElement.m_iLink + 1;
    ASSERT_TRUE(zElement.m_zHandle.Commit());
    zElement.m_strText = strText;
    ++zElement.m_iLink;
  }
  // Stays in place, and is stored whenever the store finds it needful.
  void ChangeAndLeave(NaiveElement& zElement) {
    const std::string strText(zElement.m_strText.size(), static_cast<char>('A' + Random(26)));
    TestBlock* pzBlock = BlockOf(zElement.m_zHandle, true);
    ASSERT_NE(pzBlock, nullptr);
    pzBlock->m_strText = strText;
    zElement.m_strText = strText;
  }
  void Check(const NaiveElement& zElement) {
    const TestBlock* pzBlock = BlockOf(zElement.m_zHandle, false);
    ASSERT_NE(pzBlock, nullptr);
    ASSERT_EQ(pzBlock->m_strText, zElement.m_strText);
    ASSERT_EQ(pzBlock->m_zHeader.m_aiLink[1], zElement.m_iLink);
  }
  void CheckAll() {
    for (size_t iModel = 0; iModel < kModels; ++iModel) {
      for (const auto& [iId, zElement] : m_zNow[iModel]) ASSERT_NO_FATAL_FAILURE(Check(zElement));
      // After an undo the file is as long as its base until something behind that is read.
      KivFastFileContainerBase* pzContainer = ManagerOf(m_apzModel[iModel])->GetContainer();
      uint8_t iByte = 0;
      pzContainer->GetBaseFile()->Read(pzContainer->GetEndPosition(), &iByte, sizeof iByte);
      const KivContainerCheck zCheck = pzContainer->FullCheck();
      ASSERT_TRUE(zCheck.IsSound()) << zCheck.GetText();
    }
  }

  // A file with the keys that it is to hold before the first element.
  KivWString NewFile(size_t i) {
    const KivWString csPath = MakeFile(KivWString(1, static_cast<char16_t>(u'a' + i)), GetParam().m_bTables);
    if (GetParam().m_nKeysBefore == 0) return csPath;
    KivModelStatusBase* pzModel = Open(csPath, true);
    uint64_t iKey = 0;
    for (uint32_t k = 0; k < GetParam().m_nKeysBefore; ++k)
      EXPECT_TRUE(ManagerOf(pzModel)->GetPositionTableManager()->AddKey(264, &iKey));
    EXPECT_TRUE(pzModel->SaveChanges());
    Close(pzModel);
    return csPath;
  }
  void OpenAll(const std::array<KivWString, kModels>& acsPath, bool bForWrite) {
    for (size_t i = 0; i < kModels; ++i) {
      m_apzModel[i] = Open(acsPath[i], bForWrite, GetParam().m_iLimit);
      ASSERT_NE(m_apzModel[i], nullptr);
      for (auto& [iId, zElement] : m_zNow[i])
        zElement.m_zHandle = KivOutOfCoreHandle(m_apzModel[i]->GetKey(), zElement.m_zHandle.GetPosition());
    }
    m_vzHistory.clear();
    m_iCurrent = -1;
  }
  void SaveAndReopen() {
    std::array<KivWString, kModels> acsPath;
    for (size_t i = 0; i < kModels; ++i) {
      acsPath[i] = m_zFolder / u"saved";
      for (const char c : std::to_string(m_iSaves++)) acsPath[i] += static_cast<char16_t>(c);
      ASSERT_EQ(Space().SaveSnapShot(m_apzModel[i], acsPath[i], 0), KivSaveSnapShotResult::Done);
    }
    ASSERT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
    ASSERT_NO_FATAL_FAILURE(OpenAll(acsPath, true));
    ASSERT_NO_FATAL_FAILURE(CheckAll());
    for (int i = 0; i < kStepsInPlace; ++i) ASSERT_NO_FATAL_FAILURE(Edit(Random(900)));
    ASSERT_EQ(Space().RemoveAllModels(), KivRemoveAllModelsResult::Done);
    ASSERT_NO_FATAL_FAILURE(OpenAll(acsPath, false));
    ASSERT_NO_FATAL_FAILURE(CheckAll());
  }

  // One whose file calls fail is made whole or not at all; the future is cut off in either case.
  bool TrySnap() {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = Random(2) == 0 ? KivSysCall::FileOpen : KivSysCall::MappingCreate;
    zPlan.m_iNth = static_cast<uint64_t>(1 + Random(7));
    const KivSysFaultScope zScope(zPlan);
    try {
      return Space().CreateSnapShot() == KivCreateSnapShotResult::Done;
    } catch (const KivException&) {
      EXPECT_TRUE(zScope.HasFired());
      ++m_nFailedSnapShots;
      return false;
    }
  }
  void Snap() {
    if (Random(5) == 0) {
      if (!TrySnap()) {
        m_vzHistory.resize(static_cast<size_t>(m_iCurrent + 1));
        return;
      }
    } else {
      ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    }
    m_vzHistory.resize(static_cast<size_t>(m_iCurrent + 1));
    m_vzHistory.push_back(m_zNow);
    ++m_iCurrent;
    if (Space().GetUndoNum() > kKeptSnapShots) Discard(1);
  }
  void Undo(int n) {
    const NoThrowScope zNoThrow;
    KivSetReported(false);
    ASSERT_EQ(Space().UndoSnapShot(n), KivUndoResult::Done);
    if (m_iCurrent >= 0)
      for (int i = m_iCurrent, nCount = 0; i >= 0 && nCount < n; --i)
        if (m_vzHistory[static_cast<size_t>(i)].has_value()) {
          m_iCurrent = i;
          m_zNow = *m_vzHistory[static_cast<size_t>(i)];
          ++nCount;
        }
    ASSERT_FALSE(KivGetReportSwitches().m_bReported);
  }
  void Redo(int n) {
    const int iRedoNum = static_cast<int>(m_vzHistory.size()) - m_iCurrent - 1;
    ASSERT_EQ(Space().GetRedoNum(), iRedoNum);
    if (iRedoNum > 0 && m_iCurrent < 0) {
      const NoThrowScope zNoThrow;
      ASSERT_EQ(Space().RedoSnapShot(n), KivRedoResult::NoEntry);
      return;
    }
    ASSERT_EQ(Space().RedoSnapShot(n), KivRedoResult::Done);
    if (iRedoNum == 0) return;
    m_iCurrent += std::min(n, iRedoNum);
    m_zNow = *m_vzHistory[static_cast<size_t>(m_iCurrent)];
  }
  void Discard(int n) {
    int nDiscarded = 0;
    for (int i = 0; i < m_iCurrent && nDiscarded < n; ++i)
      if (m_vzHistory[static_cast<size_t>(i)].has_value()) {
        m_vzHistory[static_cast<size_t>(i)].reset();
        ++nDiscarded;
      }
    ASSERT_EQ(Space().DiscardSnapShots(n), nDiscarded);
  }
  void DiscardAll() {
    ASSERT_TRUE(Space().DiscardAllSnapShots());
    m_vzHistory.resize(static_cast<size_t>(m_iCurrent + 1));
    for (auto& zEntry : m_vzHistory) zEntry.reset();
    m_iCurrent = -1;
  }

  void Edit(int iChoice) {
    int iModel = 0;
    NaiveModel::iterator itElement;
    if (iChoice < 200) return Create();
    if (!Pick(iModel, itElement)) return;
    if (iChoice < 450) return Change(itElement->second);
    if (iChoice < 600) return ChangeAndLeave(itElement->second);
    if (iChoice < 720) {
      ASSERT_TRUE(itElement->second.m_zHandle.Delete());
      m_zNow[static_cast<size_t>(iModel)].erase(itElement);
      return;
    }
    Check(itElement->second);
  }
  void Step() {
    const int iChoice = Random(1000);
    if (iChoice < 900) return Edit(iChoice);
    if (iChoice < 935) return Snap();
    if (iChoice < 965) return Undo(1 + Random(3));
    if (iChoice < 985) return Redo(1 + Random(3));
    if (iChoice < 992) return Discard(1 + Random(2));
    if (iChoice < 994) return DiscardAll();
    ASSERT_TRUE(KivOutOfCoreManager::DeactivateAll(m_apzModel[static_cast<size_t>(Random(kModels))]->GetKey()));
  }

  std::mt19937 m_zRandom{GetParam().m_iSeed};
  std::array<KivModelStatusBase*, kModels> m_apzModel{};
  NaiveState m_zNow;
  std::vector<std::optional<NaiveState>> m_vzHistory;
  int m_iCurrent = -1;
  int m_iNextId = 1;
  int m_iSaves = 0;
  int m_nFailedSnapShots = 0;
};

TEST_P(StoreRandom, EveryStateIsThatOfItsFullCopy) {
  RecordProperty("seed", static_cast<int>(GetParam().m_iSeed));
  std::cout << "seed " << GetParam().m_iSeed << '\n';
  std::array<KivWString, kModels> acsPath;
  for (size_t i = 0; i < kModels; ++i) acsPath[i] = NewFile(i);
  ASSERT_NO_FATAL_FAILURE(OpenAll(acsPath, false));
  const int iSteps = static_cast<int>(ScaledSteps(kSteps));
  for (int iStep = 0; iStep < iSteps; ++iStep) {
    ASSERT_NO_FATAL_FAILURE(Step()) << "step " << iStep;
    ASSERT_EQ(Space().GetCurBaseSnapShot(), m_iCurrent);
    if (iStep % kReopenSteps == kReopenSteps / 5) {
      ASSERT_NO_FATAL_FAILURE(SaveAndReopen()) << "step " << iStep;
    }
    if (iStep % 250 == 0) {
      ASSERT_NO_FATAL_FAILURE(CheckAll()) << "step " << iStep;
    }
  }
  ASSERT_NO_FATAL_FAILURE(CheckAll());
  // Every state that is still there comes back, from the last to the first and forward again.
  while (m_iCurrent >= 0 && Space().GetUndoNum() > 1) {
    ASSERT_NO_FATAL_FAILURE(Undo(2));
    ASSERT_NO_FATAL_FAILURE(CheckAll());
  }
  while (m_iCurrent >= 0 && Space().GetRedoNum() > 0) {
    ASSERT_NO_FATAL_FAILURE(Redo(1));
    ASSERT_NO_FATAL_FAILURE(CheckAll());
  }
  if (iSteps >= kSteps) {
    EXPECT_GT(m_nFailedSnapShots, 0);
  }
  if (GetParam().m_nKeysBefore != 0) {
    for (KivModelStatusBase* pzModel : m_apzModel)
      EXPECT_GE(ManagerOf(pzModel)->GetPositionTableManager()->GetLoadedBlockNum(), 2U);
  }
  // A save is a container of its own.
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  ASSERT_EQ(Space().SaveSnapShot(m_apzModel[0], csSaved, 0), KivSaveSnapShotResult::Done);
  KivModelStatusBase* pzSaved = Open(csSaved, false, GetParam().m_iLimit);
  for (const auto& [iId, zElement] : m_zNow[0])
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), zElement.m_zHandle.GetPosition())), zElement.m_strText);
}

INSTANTIATE_TEST_SUITE_P(All, StoreRandom,
                         testing::Values(Parameters{false, 1, 1}, Parameters{false, 2, 2}, Parameters{false, 9, 3},
                                         Parameters{true, 1, 4}, Parameters{true, 2, 5}, Parameters{true, 9, 6},
                                         Parameters{false, 1, 7}, Parameters{false, 3, 8}, Parameters{false, 50, 9},
                                         Parameters{true, 1, 10}, Parameters{true, 3, 11}, Parameters{true, 50, 12},
                                         Parameters{true, 1, 13, 32760}, Parameters{true, 2, 14, 65530},
                                         Parameters{true, 9, 15, 32760}));

}  // namespace
