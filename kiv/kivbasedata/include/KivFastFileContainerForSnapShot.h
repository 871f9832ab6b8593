// The container of a model that is opened for reading. Its file is never changed on disk: writes stay in the cache of
// the file layer, so that the container can be cloned at any moment and brought back to a clone.
//
// A clone is a frozen state. Nothing writes to it; it is there to be restored from, and to be saved. Clones leave their
// container either from the newest (while the data space discards) or from the oldest.
#pragma once

#include <memory>

#include "KivFastFileContainerBase.h"

namespace kiv {

enum class KivContainerRestoreResult : int32_t { Done = 0, BaseFile = 10, UnusedRecordFile = 20 };

// A package file that takes saved patches; what the container needs of it.
class IKivPatchPackage {
 public:
  virtual ~IKivPatchPackage() = default;
  virtual bool AddPatch(const KivWString& csPath, const KivWString& csSidePath) = 0;
};

class KivFastFileContainerForSnapShot : public KivFastFileContainerBase {
 public:
  // Opens the container in pzBaseFile. If csSidePath names an existing file, its content is the free-space tree and the
  // image in the main file is not looked at; a side file that cannot be read whole is reported and leaves the status
  // NotInitialized. pzPackage may be null.
  KivFastFileContainerForSnapShot(KivSharedPtr<ISnapShotFile> pzBaseFile,
                                  KivPositionTableManager* pzPositionTableManager, const KivWString& csSidePath,
                                  std::unique_ptr<IKivPatchPackage> pzPackage);
  // Flushes a living container that is usable; a clone gives its snapshot files back.
  ~KivFastFileContainerForSnapShot() override;

  bool IsMultiFileContainer() override { return m_pzMultiFile != nullptr; }
  KivSharedPtr<ISnapShotFile> GetBaseFile() override { return m_pzBaseFile; }
  KivSharedPtr<ISnapShotFile> GetUnusedRecordFile() override { return m_pzUnusedRecordFile; }

  // A new clone, never null.
  std::unique_ptr<KivFastFileContainerForSnapShot> CreateSnapShot();
  KivContainerRestoreResult RestoreFromUndo(KivFastFileContainerForSnapShot& zUndo);
  // Called on the newest clone, while nothing has been written since: takes it back as if it had never been made.
  void Abandon();
  // Adds a patch and its side file to the package. False without a package.
  bool AddToMultiFile(const KivWString& csPath, const KivWString& csSidePath);

 protected:
  bool AddSavedPatch(const KivWString& csPath, const KivWString& csSidePath) override;

 private:
  KivFastFileContainerForSnapShot();
  bool ReadSideFile(const KivWString& csSidePath);

  KivSharedPtr<ISnapShotFile> m_pzBaseFile;
  KivSharedPtr<ISnapShotFile> m_pzUnusedRecordFile;  // in memory; in a clone a snapshot of it
  std::unique_ptr<IKivPatchPackage> m_pzMultiFile;
  bool m_bSnapShot = false;
};

}  // namespace kiv
