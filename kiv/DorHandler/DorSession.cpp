#include "DorSession.h"

#include <algorithm>
#include <exception>

#include "KivContainerHeader.h"
#include "KivDataSpaceBase.h"
#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivException.h"
#include "KivOutOfCoreManager.h"
#include "KivSysFile.h"

namespace kiv {
namespace {

// Decoded elements in memory at a time. A request needs a handful: root, note, tree, an instance element, a mesh of
// each level, exact geometry.
constexpr int32_t kActiveElements = 16;

KivSysFile OpenForLooking(const KivWString& csPath) {
  return KivSysFile::Open(
      csPath, {KivSysAccess::Read, KivSysShare::Read, KivSysDisposition::OpenExisting, KivSysFileFlags::RandomAccess});
}

}  // namespace

// --- Reading and closing --------------------------------------------------------------------------------------------

DorReadResult DorSession::Read(const KivWString& csPath) noexcept {
  Close();
  DorReadResult iResult = DorReadResult::Failed;
  try {
    iResult = OpenModel(csPath);
  } catch (const DorRefusal&) {
    iResult = DorReadResult::NotAModel;
  } catch (const std::exception&) {
    iResult = DorReadResult::Failed;  // told by the status; the first report of the process stands in the log
  }
  if (iResult != DorReadResult::Done) Close();
  return iResult;
}

DorReadResult DorSession::OpenModel(const KivWString& csPath) {
  if (!OpenForLooking(csPath).IsOpen()) return DorReadResult::NotOpened;
  m_zIdentity = sys::FindFileIdentity(csPath);
  m_csPath = csPath;
  KivRegisterOwnFormat();
  KivRegisterElementClasses();
  KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
  pzSpace->SetBlockPerElement(true);  // else a request that looks at several levels decodes them each time
  KivModelStatusBase* pzModel = nullptr;
  const KivAddModelResult iAdded = pzSpace->AddModel(csPath, KivModelOpenInfo(), &pzModel);
  if (iAdded == KivAddModelResult::NotOpened) return DorReadResult::NotAModel;
  if (iAdded != KivAddModelResult::Done || pzModel == nullptr) return DorReadResult::Failed;
  m_pzModel = pzModel;
  m_iKey = pzModel->GetKey();
  if (!KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(m_iKey, kActiveElements)) return DorReadResult::Failed;
  KivModel* pzRoot = KivGetModel(m_iKey);
  if (pzRoot == nullptr || pzRoot->GetMemoryBlock() == nullptr) return DorReadResult::NotAModel;
  m_pzIndex = std::make_unique<DorModelIndex>(m_iKey);
  m_pzTrees = std::make_unique<DorFaceTrees>();
  m_pzIndex->Places();
  return DorReadResult::Done;
}

bool DorSession::IsOwnFile(const KivWString& csPath) const {
  return csPath == m_csPath || (m_zIdentity && m_zIdentity == sys::FindFileIdentity(csPath));
}

void DorSession::Close() noexcept {
  m_pzUnfinished.reset();
  m_pzIndex.reset();
  m_pzTrees.reset();
  KivModelStatusBase* const pzModel = m_pzModel;
  m_pzModel = nullptr;
  m_iKey = 0;
  m_bChanged = false;
  m_iReturnTo = -1;
  m_csPath.clear();
  m_zIdentity.reset();
  if (pzModel == nullptr) return;
  try {
    KivDataSpaceBase::GetInstance()->RemoveModel(pzModel);
  } catch (const std::exception&) {
    // Reported. What is left of the model goes with the process, or with the next model.
  }
}

// --- Changes --------------------------------------------------------------------------------------------------------

void DorSession::Settle() {
  if (m_iReturnTo >= 0) {
    KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
    pzSpace->m_iCurBaseSnapShot = m_iReturnTo;
    if (pzSpace->UndoSnapShot(1) != KivUndoResult::Done)
      throw DorRefusal(DorAnswerCode::Failed, "the state before an undo or redo cannot be restored yet");
    m_iReturnTo = -1;
    Forget();
  }
  if (m_pzUnfinished == nullptr) return;
  if (!m_pzUnfinished->TakeBack())
    throw DorRefusal(DorAnswerCode::Failed, "a change that failed cannot be taken back yet");
  m_pzUnfinished.reset();
  Forget();
}

void DorSession::RequireEditable() const {
  const KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(m_iKey);
  if (pzManager == nullptr || !m_pzModel->CanBeUndone())
    throw DorRefusal(DorAnswerCode::NotEditable, "the model has no store that can be undone");
  if (pzManager->IsVer19Data()) throw DorRefusal(DorAnswerCode::NotEditable, "the model is of generation 19");
}

void DorSession::Commit(std::unique_ptr<DorChange> pzChange, bool bMeshes) {
  if (pzChange->IsEmpty()) return;
  if (!pzChange->Commit()) {
    if (pzChange->IsPending() && !ReturnToSnapShot()) m_pzUnfinished = std::move(pzChange);
    throw DorRefusal(DorAnswerCode::Failed, "the change could not be stored");
  }
  m_bChanged = true;
  m_pzTrees->Clear();
  if (bMeshes) m_pzIndex->ForgetParts();
}

// The other way back, where a snapshot holds the state before the change.
bool DorSession::ReturnToSnapShot() {
  KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
  if (m_bChanged || pzSpace->GetUndoNum() == 0) return false;
  m_iReturnTo = pzSpace->GetCurBaseSnapShot();
  return true;
}

void DorSession::Forget() {
  m_pzTrees->Clear();
  m_pzIndex = std::make_unique<DorModelIndex>(m_iKey);
}

// --- History --------------------------------------------------------------------------------------------------------

int32_t DorSession::UndoStepNum() const {
  const int32_t nHeld = KivDataSpaceBase::GetInstance()->GetUndoNum();
  return m_bChanged ? nHeld : std::max(0, nHeld - 1);
}

int32_t DorSession::RedoStepNum() const {
  return m_bChanged ? 0 : KivDataSpaceBase::GetInstance()->GetRedoEntryNum();
}

void DorSession::SnapShot() {
  KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
  if (!m_bChanged && pzSpace->GetUndoNum() > 0) return;
  if (pzSpace->CreateSnapShot() != KivCreateSnapShotResult::Done)
    throw DorRefusal(DorAnswerCode::Failed, "the snapshot could not be taken");
  m_bChanged = false;
  if (pzSpace->GetUndoNum() > kMostSnapShots) pzSpace->DiscardSnapShots(1);
}

int32_t DorSession::Undo(int64_t iSteps) {
  if (UndoStepNum() == 0) throw DorRefusal(DorAnswerCode::NothingToUndo, "no snapshot holds an earlier state");
  if (m_bChanged) SnapShot();
  return Go(iSteps, true);
}

int32_t DorSession::Redo(int64_t iSteps) {
  if (RedoStepNum() == 0) throw DorRefusal(DorAnswerCode::NothingToRedo, "there is no later state");
  return Go(iSteps, false);
}

int32_t DorSession::Go(int64_t iSteps, bool bBack) {
  KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
  const int32_t nSteps = static_cast<int32_t>(std::min<int64_t>(iSteps, bBack ? UndoStepNum() : RedoStepNum()));
  const auto pzNewIndex = std::make_unique<DorModelIndex>(m_iKey);  // nothing that can fail stands behind the move
  const int32_t iWas = pzSpace->GetCurBaseSnapShot();
  bool bDone = false;
  try {
    bDone = bBack ? pzSpace->UndoSnapShot(nSteps + 1) == KivUndoResult::Done
                  : pzSpace->RedoSnapShot(nSteps) == KivRedoResult::Done;
  } catch (const std::exception&) {
    bDone = false;
  }
  m_pzTrees->Clear();
  *m_pzIndex = std::move(*pzNewIndex);
  if (bDone) return nSteps;
  m_iReturnTo = iWas;
  Settle();
  throw DorRefusal(DorAnswerCode::Failed, "the state could not be restored");
}

}  // namespace kiv
