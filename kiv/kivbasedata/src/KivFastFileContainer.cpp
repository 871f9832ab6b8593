#include "KivFastFileContainer.h"

#include "KivException.h"
#include "KivWritableMemFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "KivFastFileContainer";

}  // namespace

KivContainerData::KivContainerData(const void* pzData, uint32_t iSize, uint32_t iPaddingSize)
    : m_pzData(static_cast<const uint8_t*>(pzData)), m_iSize(iSize), m_iPaddingSize(iPaddingSize) {
  if (m_iPaddingSize <= m_iSize) return;
  KIV_FAIL();
  m_iPaddingSize = m_iSize;
}

KivFastFileContainer::KivFastFileContainer(KivSharedPtr<ISnapShotFile> pzBaseFile,
                                           KivSharedPtr<ISnapShotFile> pzUnusedRecordFile,
                                           KivPositionTableManager* pzPositionTableManager)
    : KivFastFileContainerBase(pzPositionTableManager),
      m_pzBaseFile(std::move(pzBaseFile)),
      m_pzUnusedRecordFile(std::move(pzUnusedRecordFile)) {
  SetCapacityForNew();
  CreateNew();
}

KivFastFileContainer::KivFastFileContainer(KivSharedPtr<ISnapShotFile> pzBaseFile,
                                           KivPositionTableManager* pzPositionTableManager)
    : KivFastFileContainerBase(pzPositionTableManager),
      m_pzBaseFile(std::move(pzBaseFile)),
      m_pzUnusedRecordFile(KivSharedPtr<ISnapShotFile>(new KivWritableMemFile)) {
  SetCapacityForExisting();
  Initialize();
}

KivFastFileContainer::~KivFastFileContainer() {
  if (GetStatus() != KivContainerStatus::Usable) return;  // a file that was refused stays as it is
  try {
    Flush();
  } catch (...) {
    // A destructor lets no exception out; the report has been made.
  }
}

}  // namespace kiv
