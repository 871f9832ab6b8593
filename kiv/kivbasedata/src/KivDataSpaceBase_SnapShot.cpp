// The undo history.
//
//   index          0        1        2 = m_iCurBaseSnapShot    3
//   entry          (null)   state    state                     state
//                  discarded         the models equal it, or   what a redo brings back;
//                                    were changed after it     cut off by the next snapshot
//
// Files number their snapshots by the same index, so entries leave from the back (the redo tail, with
// m_bDiscardingSnapShot set) or from the front (discarding), and places of discarded entries stay as null.
#include <algorithm>
#include <exception>

#include "KivDataSpaceBase.h"
#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataSpaceBase";

// Sets the flag, and brings its former value back on every way out: a listener may work on the history while an undo
// is under way.
class DiscardingScope {
 public:
  explicit DiscardingScope(bool& bDiscarding, bool bValue = true) : m_bDiscarding(bDiscarding), m_bBefore(bDiscarding) {
    m_bDiscarding = bValue;
  }
  ~DiscardingScope() { m_bDiscarding = m_bBefore; }
  DiscardingScope(const DiscardingScope&) = delete;
  DiscardingScope& operator=(const DiscardingScope&) = delete;

 private:
  bool& m_bDiscarding;
  const bool m_bBefore;
};

}  // namespace

bool KivDataSpaceBase::IsCurBaseSnapShotValid() const {
  return KIV_CHECK_AS(m_iCurBaseSnapShot < static_cast<int64_t>(m_vpSnapShotData.size()),
                      "m_iCurBaseSnapShot < static_cast<long>(m_vpSnapShotData.size())");
}

// An entry leaves the history, the optimiser having finished with it.
void KivDataSpaceBase::DestroyEntry(KivDataSpaceBase* pzEntry) {
  if (pzEntry == nullptr) return;
  FinishOptimiserJob(pzEntry);
  delete pzEntry;
}

// Runs the optimiser until its queue is empty, if an entry is queued that is about to go. Nothing is queued yet.
void KivDataSpaceBase::FinishOptimiserJob(KivDataSpaceBase* pzEntry) {
  if (m_mapOptimiserJob.count(pzEntry) != 0) KIV_FAIL();
}

// Destroys the entries behind the present one, last first.
void KivDataSpaceBase::DiscardRedoTail() {
  const DiscardingScope zScope(m_bDiscardingSnapShot);
  while (static_cast<int64_t>(m_vpSnapShotData.size()) > static_cast<int64_t>(m_iCurBaseSnapShot) + 1) {
    KivDataSpaceBase* const pzEntry = m_vpSnapShotData.back();
    DestroyEntry(pzEntry);
    m_vpSnapShotData.pop_back();
  }
}

KivCreateSnapShotResult KivDataSpaceBase::CreateSnapShot() {
  KIV_CHECK(!KivIsDataSpaceWithView());
  IsCurBaseSnapShotValid();
  DiscardRedoTail();

  m_vpSnapShotData.reserve(m_vpSnapShotData.size() + 1);
  ++m_iCurBaseSnapShot;
  std::unique_ptr<KivDataSpaceBase> pzEntry;
  bool bWhole = true;
  try {
    pzEntry.reset(new KivDataSpaceBase(AsSnapShot()));
    bWhole = CopyInto(*pzEntry);
  } catch (...) {
    AbandonEntry(std::move(pzEntry));
    throw;
  }
  if (!bWhole) {
    // The files of the models number their snapshots like the history, so there is no entry without all of them.
    AbandonEntry(std::move(pzEntry));
    return KivCreateSnapShotResult::Failed;
  }
  m_vpSnapShotData.push_back(pzEntry.release());
  const auto Call = [](KivDataSpaceListener& zListener) { return zListener.SnapShotCreated(); };
  return CallListeners(false, Call) ? KivCreateSnapShotResult::Done : KivCreateSnapShotResult::Failed;
}

// False if a model that can be in a snapshot was not copied whole; reported.
bool KivDataSpaceBase::CopyInto(KivDataSpaceBase& zEntry) {
  static_cast<KivDataSpaceValues&>(zEntry) = *this;
  bool bWhole = true;
  for (KivModelStatusBase* pzModel : m_spModel) {
    std::unique_ptr<KivModelStatusBase> pModel = pzModel->CreateSnapShot();
    if (!KIV_CHECK(pModel != NULL)) continue;
    if (pzModel->CanBeUndone() && !pModel->IsWholeCopy()) bWhole = false;
    zEntry.m_spModel.insert(pModel.get());
    pModel.release();
  }
  return bWhole;
}

// Of a snapshot that is not finished: history and files are as if it had never been begun.
void KivDataSpaceBase::AbandonEntry(std::unique_ptr<KivDataSpaceBase> pzEntry) {
  if (pzEntry != nullptr)
    for (KivModelStatusBase* pzCopy : pzEntry->m_spModel) pzCopy->Abandon();
  pzEntry.reset();
  --m_iCurBaseSnapShot;
}

KivUndoResult KivDataSpaceBase::UndoSnapShot(int32_t iSteps) {
  const DiscardingScope zScope(m_bDiscardingSnapShot);
  KIV_CHECK(!KivIsDataSpaceWithView());
  return UndoToSnapShot(iSteps);
}

KivUndoResult KivDataSpaceBase::UndoToSnapShot(int32_t iSteps) {
  if (m_iCurBaseSnapShot < 0 || iSteps <= 0) return KivUndoResult::Done;
  if (!IsCurBaseSnapShotValid()) return KivUndoResult::OutsideHistory;
  if (m_vpSnapShotData[static_cast<size_t>(m_iCurBaseSnapShot)] == nullptr) {
    KIV_FAIL();
    return KivUndoResult::EntryDiscarded;
  }
  int32_t nCount = 0;
  for (int32_t i = m_iCurBaseSnapShot; i >= 0 && nCount < iSteps; --i) {
    if (m_vpSnapShotData[static_cast<size_t>(i)] == nullptr) continue;
    m_iCurBaseSnapShot = i;
    ++nCount;
  }
  if (RestoreFromSnapShot(m_vpSnapShotData[static_cast<size_t>(m_iCurBaseSnapShot)]) !=
      KivRestoreSnapShotResult::Done) {
    KIV_FAIL();
    return KivUndoResult::NotRestored;
  }
  const auto Call = [nCount](KivDataSpaceListener& zListener) { return zListener.Undone(nCount); };
  return CallListeners(false, Call) ? KivUndoResult::Done : KivUndoResult::ListenerFailed;
}

KivRedoResult KivDataSpaceBase::RedoSnapShot(int32_t iSteps) {
  KIV_CHECK(!KivIsDataSpaceWithView());
  const int32_t iRedoNum = GetRedoNum();
  if (iSteps <= 0 || iRedoNum <= 0) return KivRedoResult::Done;
  const int32_t n = std::min(iSteps, iRedoNum);
  // To a known state first; what was changed since is not kept.
  if (UndoSnapShot(1) != KivUndoResult::Done) {
    KIV_FAIL();
    return KivRedoResult::NoEntry;
  }
  const DiscardingScope zScope(m_bDiscardingSnapShot);
  const int32_t iTarget = m_iCurBaseSnapShot + n;
  const auto HasEntry = [this](int32_t i) {
    return i >= 0 && i < static_cast<int64_t>(m_vpSnapShotData.size()) &&
           m_vpSnapShotData[static_cast<size_t>(i)] != nullptr;
  };
  if (!HasEntry(m_iCurBaseSnapShot) || !HasEntry(iTarget)) {
    KIV_FAIL();
    return KivRedoResult::NoEntry;
  }
  m_iCurBaseSnapShot = iTarget;
  if (RestoreFromSnapShot(m_vpSnapShotData[static_cast<size_t>(iTarget)]) != KivRestoreSnapShotResult::Done) {
    KIV_FAIL();
    return KivRedoResult::NotRestored;
  }
  const auto Call = [n](KivDataSpaceListener& zListener) { return zListener.Redone(n); };
  return CallListeners(false, Call) ? KivRedoResult::Done : KivRedoResult::ListenerFailed;
}

KivRestoreSnapShotResult KivDataSpaceBase::RestoreFromSnapShot(KivDataSpaceBase* pzEntry) {
  KIV_CHECK(!KivIsDataSpaceWithView());
  if (pzEntry == nullptr) {
    KIV_FAIL();
    return KivRestoreSnapShotResult::NoEntry;
  }
  static_cast<KivDataSpaceValues&>(*this) = *pzEntry;
  for (KivModelStatusBase* pzCopy : pzEntry->m_spModel) {
    const auto itModel = m_spModel.find(pzCopy->m_pOriginal);
    if (itModel == m_spModel.end()) {
      KIV_FAIL();
      return KivRestoreSnapShotResult::ModelGone;
    }
    if ((*itModel)->RestoreFromUndo(pzCopy) != KivModelRestoreResult::Done) {
      KIV_FAIL();
      return KivRestoreSnapShotResult::ModelNotRestored;
    }
  }
  return KivRestoreSnapShotResult::Done;
}

int32_t KivDataSpaceBase::GetUndoNum() const {
  int32_t nCount = 0;
  for (int32_t i = m_iCurBaseSnapShot; i >= 0 && i < static_cast<int64_t>(m_vpSnapShotData.size()); --i) {
    if (m_vpSnapShotData[static_cast<size_t>(i)] == nullptr) break;
    ++nCount;
  }
  return nCount;
}

int32_t KivDataSpaceBase::GetRedoNum() const {
  return static_cast<int32_t>(m_vpSnapShotData.size()) - m_iCurBaseSnapShot - 1;
}

int32_t KivDataSpaceBase::GetRedoEntryNum() const {
  int32_t nCount = 0;
  for (int64_t i = int64_t{m_iCurBaseSnapShot} + 1; i < static_cast<int64_t>(m_vpSnapShotData.size()); ++i)
    if (i >= 0 && m_vpSnapShotData[static_cast<size_t>(i)] != nullptr) ++nCount;
  return nCount;
}

int32_t KivDataSpaceBase::DiscardSnapShots(int32_t n) {
  // From the front, also when a listener of an undo asks: there the flag, which means the back, is set.
  const DiscardingScope zFromTheFront(m_bDiscardingSnapShot, false);
  int32_t nDiscarded = 0;
  const int64_t iEnd = std::min<int64_t>(m_iCurBaseSnapShot, static_cast<int64_t>(m_vpSnapShotData.size()));
  for (int64_t i = 0; i < iEnd && nDiscarded < n; ++i) {
    KivDataSpaceBase*& pzEntry = m_vpSnapShotData[static_cast<size_t>(i)];
    if (pzEntry == nullptr) continue;
    DestroyEntry(pzEntry);
    pzEntry = nullptr;
    ++nDiscarded;
  }
  return nDiscarded;
}

bool KivDataSpaceBase::DiscardAllSnapShots() {
  DiscardRedoTail();
  const DiscardingScope zFromTheFront(m_bDiscardingSnapShot, false);
  for (KivDataSpaceBase*& pzEntry : m_vpSnapShotData) {
    DestroyEntry(pzEntry);
    pzEntry = nullptr;
  }
  m_iCurBaseSnapShot = -1;
  return true;
}

void KivDataSpaceBase::GetSnapShotFiles(std::vector<KivWString>& vcsPath, int32_t& iCurrent) const {
  vcsPath.clear();
  for (const KivDataSpaceBase* pzEntry : m_vpSnapShotData)
    vcsPath.push_back(pzEntry != nullptr ? pzEntry->m_strSnapShotFile : KivWString());
  iCurrent = m_iCurBaseSnapShot;
}

void KivDataSpaceBase::SetSnapShotFile(const KivWString& csPath) {
  if (m_iCurBaseSnapShot < 0 || !IsCurBaseSnapShotValid() ||
      m_vpSnapShotData[static_cast<size_t>(m_iCurBaseSnapShot)] == nullptr) {
    KIV_FAIL();
    return;
  }
  m_vpSnapShotData[static_cast<size_t>(m_iCurBaseSnapShot)]->m_strSnapShotFile = csPath;
}

// --- Saving ---------------------------------------------------------------------------------------------------------

// The model itself, or this entry's copy of it.
KivModelStatusBase* KivDataSpaceBase::FindOwnModel(KivModelStatusBase* pzModel) const {
  for (KivModelStatusBase* pzOwn : m_spModel)
    if (pzOwn == pzModel || (m_bSnapShot && pzOwn->m_pOriginal == pzModel)) return pzOwn;
  return nullptr;
}

KivSaveSnapShotResult KivDataSpaceBase::SaveSnapShot(KivModelStatusBase* pzModel, const KivWString& csPath,
                                                     uint32_t iDeadline) {
  KivModelStatusBase* pzOwn = FindOwnModel(pzModel);
  KivOutOfCoreManager* pzManager = pzOwn != nullptr ? pzOwn->GetManager() : nullptr;
  if (pzManager == nullptr || (!m_bSnapShot && iDeadline != 0)) {
    KIV_FAIL();
    return KivSaveSnapShotResult::NotAllowed;
  }
  if (!m_bSnapShot && !pzOwn->SaveChanges()) return KivSaveSnapShotResult::NotSaved;
  // After an undo the main file is as long as its base until something behind that is read; the copy in slices wants
  // a file that goes on behind its records.
  KivFastFileContainerBase* pzContainer = pzManager->GetContainer();
  const KivSharedPtr<ISnapShotFile> pzFile = pzContainer != nullptr ? pzContainer->GetBaseFile() : nullptr;
  if (!pzFile) {
    KIV_FAIL();
    return KivSaveSnapShotResult::NotCopied;
  }
  uint8_t iByte = 0;
  pzFile->Read(pzContainer->GetEndPosition(), &iByte, sizeof iByte);
  pzOwn->m_mapSnapShotFile[csPath] = 0;
  if (pzManager->SaveInSlices(csPath, iDeadline) != KivSaveInSlicesResult::Done)
    return KivSaveSnapShotResult::NotCopied;
  if (pzManager->IsSaveInSlicesComplete(csPath)) pzOwn->m_mapSnapShotFile[csPath] = 1;
  return KivSaveSnapShotResult::Done;
}

bool KivDataSpaceBase::SaveSnapShotComplete(KivModelStatusBase* pzModel, const KivWString& csPath) {
  const KivModelStatusBase* pzOwn = FindOwnModel(pzModel);
  if (pzOwn == nullptr) return false;
  const auto itFile = pzOwn->m_mapSnapShotFile.find(csPath);
  return itFile != pzOwn->m_mapSnapShotFile.end() && itFile->second > 0;
}

void KivDataSpaceBase::CancelSaveSnapShot(KivModelStatusBase* pzModel, const KivWString& csPath) {
  KivModelStatusBase* pzOwn = FindOwnModel(pzModel);
  KivOutOfCoreManager* pzManager = pzOwn != nullptr ? pzOwn->GetManager() : nullptr;
  if (pzManager == nullptr) {
    KIV_FAIL();
    return;
  }
  pzManager->CancelSaveInSlices(csPath);
  pzOwn->m_mapSnapShotFile.erase(csPath);
}

}  // namespace kiv
