// A container over two files that it writes in place.
#pragma once

#include "KivFastFileContainerBase.h"

namespace kiv {

class KivFastFileContainer : public KivFastFileContainerBase {
 public:
  // A new container over two empty writable files.
  KivFastFileContainer(KivSharedPtr<ISnapShotFile> pzBaseFile, KivSharedPtr<ISnapShotFile> pzUnusedRecordFile,
                       KivPositionTableManager* pzPositionTableManager);
  // Opens an existing file for reading and writing; the unused record file is kept in memory. GetStatus says whether
  // it worked.
  KivFastFileContainer(KivSharedPtr<ISnapShotFile> pzBaseFile, KivPositionTableManager* pzPositionTableManager);
  // Flushes a usable container.
  ~KivFastFileContainer() override;

  KivSharedPtr<ISnapShotFile> GetBaseFile() override { return m_pzBaseFile; }
  KivSharedPtr<ISnapShotFile> GetUnusedRecordFile() override {
    if (HasImageToRestore()) RestoreImage();
    return m_pzUnusedRecordFile;
  }

 protected:
  bool MayRestoreLater() override { return true; }

 private:
  KivSharedPtr<ISnapShotFile> m_pzBaseFile;
  KivSharedPtr<ISnapShotFile> m_pzUnusedRecordFile;
};

}  // namespace kiv
