// A model that a command reads, opened through the data space.
#pragma once

#include <cstdint>

#include "KivFastFileContainerBase.h"
#include "KivModelProbe.h"
#include "KivModelStatusBase.h"
#include "KivOutOfCoreTreeNode.h"
#include "KivSysText.h"

namespace kiv {

// What the program's process needs before it opens or builds models; more than one call is one.
void KivPrepareToolProcess();
// Takes away what the library has written for its own use. Throws nothing: a folder that stays does no harm.
void KivRemoveToolWorkFolder() noexcept;

// The file's head. Throws KivToolError for a file that is missing, cannot be read, or is neither model nor package.
KivModelProbe KivProbeForTool(const KivWString& csPath);

class KivToolModel {
 public:
  // Throws KivToolError with the path and the reason, also for a package.
  explicit KivToolModel(const KivWString& csPath);
  // bDamaged: opens as much of a damaged container as can be had; WasSound tells whether that was all.
  KivToolModel(const KivWString& csPath, bool bDamaged);
  ~KivToolModel();
  KivToolModel(const KivToolModel&) = delete;
  KivToolModel& operator=(const KivToolModel&) = delete;

  const KivWString& Path() const { return m_csPath; }
  const KivModelProbe& Probe() const { return m_zProbe; }
  uint32_t Key() const { return m_pzModel->GetKey(); }
  KivOutOfCoreManager& Manager() { return *m_pzModel->GetManager(); }
  KivFastFileContainerBase& Container() { return *Manager().GetContainer(); }
  bool IsVer19Data() { return Manager().IsVer19Data(); }
  bool WasSound() const { return m_bSound; }  // nothing was reported while the container was opened

  // The place of a record, from a key or a position; 0 for what leads nowhere. Never reports.
  uint64_t Resolve(uint64_t iKey) noexcept;
  // The element behind a key, active, with its block; null, after quiet reports, if there is none. Good until the next
  // operation on the model.
  KivOutOfCoreTreeNode* Load(uint64_t iKey) noexcept;
  template <typename Element>
  auto LoadBlock(uint64_t iKey) noexcept -> decltype(static_cast<Element*>(nullptr)->GetMemoryBlock()) {
    auto* pzElement = dynamic_cast<Element*>(Load(iKey));
    return pzElement != nullptr ? pzElement->GetMemoryBlock() : nullptr;  // active, so that nothing can fail
  }

 private:
  void Open(bool bDamaged);

  KivWString m_csPath;
  KivModelProbe m_zProbe;
  KivModelStatusBase* m_pzModel = nullptr;
  bool m_bSound = true;
};

// A record as the walk over all records finds it.
struct KivToolRecord {
  uint64_t m_iPosition = 0;
  uint64_t m_iRecordSize = 0;  // its frame of 24 bytes included
  uint64_t m_iPayloadSize = 0;
  bool m_bFree = false;
  bool m_bHasTag = false;  // a record in use, long enough for an element's header
  uint32_t m_iTag = 0;     // the low 16 bits of the first word
  uint32_t m_iTypeIndex = 0;
  uint32_t m_iFormat = 0;  // revision; 0 in generation 19
};

// Walks all records from the first on, in constant memory. False where the chain is broken before its end; the place is
// then m_iPosition of the last call's record.
class KivRecordWalk {
 public:
  explicit KivRecordWalk(KivToolModel& zModel);
  // False at the end and where the chain breaks or cannot be read.
  bool Next(KivToolRecord& zRecord);
  bool IsBroken() const { return m_bBroken; }
  uint64_t GetPosition() const { return m_iNext; }  // where the next record stands, or the chain broke
  uint64_t GetEnd() const { return m_iEnd; }

 private:
  bool Read(KivToolRecord& zRecord);
  bool Break();

  KivSharedPtr<ISnapShotFile> m_pzFile;
  uint64_t m_iNext = KivFastFileContainerBase::kFirstRecord;
  uint64_t m_iEnd = 0;
  bool m_bVer19Data = false;
  bool m_bBroken = false;
};

// "KivInstance" for 2; "registered type" with an index; "unknown".
const char* KivElementName(uint32_t iTag, uint32_t iTypeIndex);
constexpr uint32_t kElementTagNum = 14;  // tags are below

}  // namespace kiv
