// The model that a handler has open: reading and closing it, changes, and its history.
//
// Every change goes through Commit, which makes it whole or not at all. What is thrown or refused on the way to it has
// changed nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "DorChange.h"
#include "DorFaceTree.h"
#include "DorModelIndex.h"
#include "KivModelStatusBase.h"
#include "KivSysFileKind.h"
#include "KivSysText.h"

namespace kiv {

// Status of the answer to DorHandler_ReadDor.
enum class DorReadResult : int32_t { Done = 0, NotOpened = 10, NotAModel = 20, Failed = 30 };

class DorSession {
 public:
  DorSession() = default;
  ~DorSession() { Close(); }
  DorSession(const DorSession&) = delete;
  DorSession& operator=(const DorSession&) = delete;

  // Closes the model before it, whatever becomes of it. Does not throw.
  DorReadResult Read(const KivWString& csPath) noexcept;
  void Close() noexcept;
  bool IsOpen() const { return m_pzModel != nullptr; }

  KivModelStatusBase& Model() { return *m_pzModel; }
  uint32_t Key() const { return m_iKey; }
  const KivWString& Path() const { return m_csPath; }
  // Whether the path leads to the file that is open as the model.
  bool IsOwnFile(const KivWString& csPath) const;
  DorModelIndex& Index() { return *m_pzIndex; }
  DorFaceTrees& Trees() { return *m_pzTrees; }

  // Before each request: finishes what a change, an undo or a redo that failed has left. Refuses with Failed while that
  // is not possible.
  void Settle();

  // Refuses with NotEditable a model that cannot be changed.
  void RequireEditable() const;
  // Stores a change, or leaves everything as it is and refuses with Failed. bMeshes: faces or edges have changed.
  void Commit(std::unique_ptr<DorChange> pzChange, bool bMeshes);

  // --- History: states that snapshots hold, and the present one, which may be none of them ---

  // Nothing happens if a snapshot holds the present state.
  void SnapShot();
  // So many states back or forward, or as many as there are; gives their number. A present state that no snapshot
  // holds is held by one first. Refuses with NothingToUndo, NothingToRedo.
  int32_t Undo(int64_t iSteps);
  int32_t Redo(int64_t iSteps);
  int32_t UndoStepNum() const;
  int32_t RedoStepNum() const;

 private:
  static constexpr int32_t kMostSnapShots = 256;

  DorReadResult OpenModel(const KivWString& csPath);
  bool ReturnToSnapShot();
  void Forget();
  int32_t Go(int64_t iSteps, bool bBack);

  KivModelStatusBase* m_pzModel = nullptr;  // of the data space
  uint32_t m_iKey = 0;
  KivWString m_csPath;
  std::optional<KivSysFileIdentity> m_zIdentity;
  bool m_bChanged = false;  // since the present snapshot
  std::unique_ptr<DorModelIndex> m_pzIndex;
  std::unique_ptr<DorFaceTrees> m_pzTrees;
  std::unique_ptr<DorChange> m_pzUnfinished;
  int32_t m_iReturnTo = -1;  // index of the entry of the history that an undo or redo that failed must go back to
};

}  // namespace kiv
