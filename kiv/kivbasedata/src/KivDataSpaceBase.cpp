// Settings, element types and models.
#include "KivDataSpaceBase.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataSpaceBase";

KivDataSpaceBase* g_pzInstalled = nullptr;
bool g_bBuiltInGone = false;
bool g_bWithView = false;

// The folder of temporary stores that the first model of a process settles.
KivWString DefaultOutOfCoreFileBase() {
  if (sys::kSeparator == u'\\') return u"C:\\tmp";
  KivWString csFolder;
  if (!sys::EnvironmentText(u"TMPDIR", csFolder) || csFolder.empty()) csFolder = u"/tmp";
  return csFolder;
}

void SetDefaultOutOfCoreFileBaseOnce() {
  static bool bDone = false;
  if (bDone) return;
  bDone = true;
  KivOutOfCoreManager::SetOutOfCoreFileBase(DefaultOutOfCoreFileBase());
}

}  // namespace

bool KivIsDataSpaceWithView() {
  return g_bWithView;
}

void KivSetDataSpaceWithView() {
  g_bWithView = true;
}

// --- Instance -------------------------------------------------------------------------------------------------------

namespace {

// The built-in instance. It takes the values that were set before it was built, and hands them back at its end.
class BuiltInInstance : public KivDataSpaceBase {
 public:
  BuiltInInstance() {
    static_cast<KivDataSpaceValues&>(*this) = *KivDataSpaceFields::GetInstance();
    if (g_pzInstalled == nullptr) SetInstance(this);
  }
  ~BuiltInInstance() override {
    CloseAll();
    if (KivDataSpaceFields::GetInstance() == this) SetInstance(nullptr);
    g_bBuiltInGone = true;
  }
};

}  // namespace

KivDataSpaceBase* KivDataSpaceBase::GetInstance() {
  if (g_pzInstalled != nullptr) return g_pzInstalled;
  if (g_bBuiltInGone) {
    static KivDataSpaceBase& zEmpty = *new KivDataSpaceBase;  // for those who ask after the end
    return &zEmpty;
  }
  // What the destruction at the end of the process needs is built first and so goes later.
  KivGetScratchBytes();
  static BuiltInInstance zInstance;
  return &zInstance;
}

void KivDataSpaceBase::InstallInstance(KivDataSpaceBase* pzInstance) {
  g_pzInstalled = pzInstance;
  SetInstance(pzInstance);
}

KivDataSpaceBase::KivDataSpaceBase() = default;

KivDataSpaceBase::~KivDataSpaceBase() {
  if (m_bSnapShot) {
    for (KivModelStatusBase* pzModel : m_spModel) delete pzModel;
    return;
  }
  CloseAll();
  if (g_pzInstalled == this) InstallInstance(nullptr);
}

// Lets no exception out: the reports have been made.
void KivDataSpaceBase::CloseAll() noexcept {
  const auto Quietly = [](auto&& body) {
    try {
      body();
    } catch (...) {
    }
  };
  Quietly([&] { DiscardAllSnapShots(); });
  while (!m_spModel.empty()) {
    KivModelStatusBase* const pzModel = *m_spModel.begin();
    Quietly([&] { KivDataSpaceBase::RemoveModel(pzModel); });
    if (m_spModel.count(pzModel) != 0) Quietly([&] { EndModel(pzModel); });
  }
}

// --- Settings -------------------------------------------------------------------------------------------------------

void KivDataSpaceBase::SetSetting3(uint32_t iValue) {
  if (iValue <= 3) m_iSetting3 = iValue;
}

void KivDataSpaceBase::SetSetting4(uint32_t iValue) {
  m_iSetting4 = std::min<uint32_t>(iValue, 60);
}

void KivDataSpaceBase::SetSetting5(float fValue) {
  if (fValue >= 1e-6F && fValue <= 1e6F) m_fSetting5 = fValue;
}

void KivDataSpaceBase::SetSetting7(uint32_t iValue) {
  if (iValue > 2) {
    KIV_FAIL();
    return;
  }
  if (!KIV_CHECK(m_spModel.empty())) return;
  m_iSetting7 = iValue;
}

void KivDataSpaceBase::MeasureSpeed(int32_t iValue) {
  if (iValue < -1 || iValue > 10) return;
  if (iValue >= 0) {
    m_iSpeedClass = iValue;
    return;
  }
  constexpr int kRounds = 40000;
  uint32_t iElapsed = 0;
  for (bool bMeasured = false; !bMeasured;) {
    const uint32_t iStart = KivGetTimeMs();
    volatile double dResult = 1.0;
    for (int i = 0; i < kRounds; ++i) {
      const auto pdValue = std::make_unique<std::array<double, 16>>();
      for (size_t k = 0; k < pdValue->size(); ++k)
        (*pdValue)[k] = std::sqrt(dResult + static_cast<double>(i) * static_cast<double>(k));
      dResult = pdValue->back();
    }
    const uint32_t iEnd = KivGetTimeMs();
    bMeasured = iEnd >= iStart;  // else the clock went backward, or around
    iElapsed = iEnd - iStart;
  }
  if (iElapsed < 80)
    m_iSpeedClass = 0;
  else if (iElapsed < 200)
    m_iSpeedClass = 1;
  else
    m_iSpeedClass = static_cast<int32_t>(std::min<uint32_t>(iElapsed / 100, 10));
}

// --- Element types --------------------------------------------------------------------------------------------------

void KivDataSpaceBase::SetGetAllPosition(uint32_t iRow, uint32_t iIndex, KivGetAllPositionHandler pfnHandler) {
  if (!KIV_CHECK(m_spModel.empty())) return;
  if (iRow >= kKivHandlerRowNum || iIndex >= kKivTypeIndexNum) {
    KIV_FAIL();
    return;
  }
  m_vvpfnGetAllPosition[iRow][iIndex] = pfnHandler;
}

void KivDataSpaceBase::SetReplaceAllPosition(uint32_t iRow, uint32_t iIndex, KivReplaceAllPositionHandler pfnHandler) {
  if (!KIV_CHECK(m_spModel.empty())) return;
  if (iRow >= kKivHandlerRowNum || iIndex >= kKivTypeIndexNum) {
    KIV_FAIL();
    return;
  }
  m_vvpfnReplaceAllPosition[iRow][iIndex] = pfnHandler;
}

void KivDataSpaceBase::SetGetOutOfCoreData(uint32_t iIndex, KivElementFactory pfnFactory) {
  if (!KIV_CHECK(m_spModel.empty())) return;
  if (iIndex >= kKivTypeIndexNum) {
    KIV_FAIL();
    return;
  }
  m_vpfnGetOutOfCoreData[iIndex] = pfnFactory;
}

// An index with a gap loses its factory here and its handlers in the model.
void KivDataSpaceBase::CopyCleanedTables(KivModelStatusBase& zModel) {
  zModel.m_vvpfnGetAllPosition = m_vvpfnGetAllPosition;
  zModel.m_vvpfnReplaceAllPosition = m_vvpfnReplaceAllPosition;
  for (uint32_t iIndex = 0; iIndex < kKivTypeIndexNum; ++iIndex) {
    bool bWhole = m_vpfnGetOutOfCoreData[iIndex] != nullptr;
    for (uint32_t iRow = 0; iRow < kKivHandlerRowNum; ++iRow)
      bWhole = bWhole && m_vvpfnGetAllPosition[iRow][iIndex] != nullptr &&
               m_vvpfnReplaceAllPosition[iRow][iIndex] != nullptr;
    if (bWhole) continue;
    m_vpfnGetOutOfCoreData[iIndex] = nullptr;
    for (uint32_t iRow = 0; iRow < kKivHandlerRowNum; ++iRow) {
      zModel.m_vvpfnGetAllPosition[iRow][iIndex] = nullptr;
      zModel.m_vvpfnReplaceAllPosition[iRow][iIndex] = nullptr;
    }
  }
  zModel.m_vpfnGetOutOfCoreData = m_vpfnGetOutOfCoreData;
}

// --- Models and listeners -------------------------------------------------------------------------------------------

void KivDataSpaceBase::AddListener(KivDataSpaceListener* pzListener) {
  if (pzListener == nullptr) return;
  if (std::find(m_vpzListener.begin(), m_vpzListener.end(), pzListener) == m_vpzListener.end())
    m_vpzListener.push_back(pzListener);
}

void KivDataSpaceBase::RemoveListener(KivDataSpaceListener* pzListener) {
  std::erase(m_vpzListener, pzListener);
}

bool KivDataSpaceBase::CallListeners(bool bGoOn, const std::function<bool(KivDataSpaceListener&)>& call) {
  bool bAll = true;
  // A listener may add and remove listeners; one that was removed may be gone.
  for (KivDataSpaceListener* pzListener : std::vector<KivDataSpaceListener*>(m_vpzListener)) {
    if (std::find(m_vpzListener.begin(), m_vpzListener.end(), pzListener) == m_vpzListener.end()) continue;
    if (call(*pzListener)) continue;
    KIV_FAIL();
    bAll = false;
    if (!bGoOn) break;
  }
  return bAll;
}

void KivDataSpaceBase::AddCanSavePatchFunction(bool (*pfnCanSavePatch)()) {
  if (pfnCanSavePatch == nullptr) return;
  if (std::find(m_vpfnCanSavePatch.begin(), m_vpfnCanSavePatch.end(), pfnCanSavePatch) == m_vpfnCanSavePatch.end())
    m_vpfnCanSavePatch.push_back(pfnCanSavePatch);
}

KivModelStatusBase* KivDataSpaceBase::FindModel(uint32_t iKey) const {
  for (KivModelStatusBase* pzModel : m_spModel)
    if (pzModel->GetKey() == iKey) return pzModel;
  return nullptr;
}

KivAddModelResult KivDataSpaceBase::AddModel(const KivWString& csRootKivFile, const KivModelOpenInfo& zInfo,
                                             KivModelStatusBase** ppzModel) {
  KIV_CHECK(!KivIsDataSpaceWithView());
  if (!DiscardAllSnapShots()) {
    KIV_FAIL();
    return KivAddModelResult::HistoryNotDiscarded;
  }
  SetDefaultOutOfCoreFileBaseOnce();
  KivStoreSource zSource;
  zSource.m_csPath = csRootKivFile;
  zSource.m_eMode = zInfo.m_bOpenForWrite ? KivStoreMode::ReadWrite : KivStoreMode::Read;
  zSource.m_pvData = zInfo.m_pvData;
  zSource.m_iDataSize = zInfo.m_iDataSize;
  if (!zInfo.m_bOpenForWrite) zSource.m_csPatchPath = zInfo.m_csPatchPath;
  auto pzRootKey = std::make_unique<KivOutOfCoreManagerKeyOwner>(zSource);
  if (pzRootKey->GetManager() == nullptr) return KivAddModelResult::NotOpened;

  auto pzModel = std::make_unique<KivModelStatusBase>();
  pzModel->m_csRootKivFile = csRootKivFile;
  pzModel->m_pzRootKey = pzRootKey.release();
  pzModel->m_bDeleteFileOnClose = zInfo.m_bDeleteFileOnClose;
  CopyCleanedTables(*pzModel);
  m_spModel.insert(pzModel.get());
  KivModelStatusBase* const pzAdded = pzModel.release();
  if (ppzModel != nullptr) *ppzModel = pzAdded;
  // Those behind one that removes the model again hear nothing of it.
  CallListeners(true, [&](KivDataSpaceListener& z) {
    return m_spModel.count(pzAdded) == 0 || z.ModelAdded(pzAdded, zInfo.m_aiListenerData);
  });
  if (ppzModel != nullptr && m_spModel.count(pzAdded) == 0) *ppzModel = nullptr;
  return KivAddModelResult::Done;
}

KivRemoveModelResult KivDataSpaceBase::RemoveModel(KivModelStatusBase* pzModel) {
  KIV_CHECK(!KivIsDataSpaceWithView());
  if (!DiscardAllSnapShots()) {
    KIV_FAIL();
    return KivRemoveModelResult::HistoryNotDiscarded;
  }
  if (pzModel == nullptr) {
    KIV_FAIL();
    return KivRemoveModelResult::NoModel;
  }
  if (m_spModel.count(pzModel) == 0) {
    KIV_FAIL();
    return KivRemoveModelResult::UnknownModel;
  }
  CallListeners(true, [&](KivDataSpaceListener& z) { return z.ModelRemoved(pzModel); });
  if (m_spModel.count(pzModel) != 0) EndModel(pzModel);  // else a listener has removed it
  return KivRemoveModelResult::Done;
}

void KivDataSpaceBase::EndModel(KivModelStatusBase* pzModel) {
  const std::unique_ptr<KivModelStatusBase> pzGone(pzModel);
  const uint32_t iKey = pzModel->GetKey();
  // Elements that are stored at the end still find their model.
  delete pzModel->m_pzRootKey;
  pzModel->m_pzRootKey = nullptr;
  m_spModel.erase(pzModel);
  // Another holder of the key may keep the manager.
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(iKey);
  if (pzManager != nullptr) pzManager->ForgetModelStatus();
  if (pzModel->m_bDeleteFileOnClose) {
    sys::ClearReadOnly(pzModel->m_csRootKivFile);
    sys::RemoveFileAt(pzModel->m_csRootKivFile);
  }
}

KivRemoveAllModelsResult KivDataSpaceBase::RemoveAllModels() {
  KivRemoveAllModelsResult iResult = KivRemoveAllModelsResult::Done;
  for (KivModelStatusBase* pzModel : std::set<KivModelStatusBase*>(m_spModel))
    if (RemoveModel(pzModel) != KivRemoveModelResult::Done) iResult = KivRemoveAllModelsResult::NotAllRemoved;
  return iResult;
}

}  // namespace kiv
