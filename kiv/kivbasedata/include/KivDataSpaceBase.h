// The process-wide root of the library: settings, open models, registered element types, and the undo history.
// docs/store.md and docs/snapshots.md explain models and history.
//
// Undo is for processes without a view. All pointers to elements die with an undo or a redo. The source of reports is
// "src\KivDataSpaceBase". One thread at a time, but for the first GetInstance.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "KivDataSpaceFields.h"
#include "KivDataSpaceListener.h"
#include "KivModelStatusBase.h"
#include "KivSysText.h"

namespace kiv {

// A process flag: the data space has a view, and undo is not for it. Set by one call, never cleared.
bool KivIsDataSpaceWithView();
void KivSetDataSpaceWithView();

// How a model is opened.
struct KivModelOpenInfo {
  bool m_bDeleteFileOnClose = false;
  const void* m_pvData = nullptr;  // the model in memory instead of the file; outlives the model
  uint64_t m_iDataSize = 0;
  bool m_bOpenForWrite = false;  // change the file in place; no undo
  KivListenerData m_aiListenerData{};
  KivWString m_csPatchPath;  // a patch to replay; not with m_bOpenForWrite
};

enum class KivAddModelResult : int32_t { Done = 0, HistoryNotDiscarded = 2, NotOpened = 30 };
enum class KivRemoveModelResult : int32_t { Done = 0, HistoryNotDiscarded = 5, NoModel = 10, UnknownModel = 20 };
enum class KivRemoveAllModelsResult : int32_t { Done = 0, NotAllRemoved = 10 };
// Failed: a listener said so, or a model could not be copied, and then there is no new entry.
enum class KivCreateSnapShotResult : int32_t { Done = 0, Failed = 10 };
enum class KivUndoResult : int32_t {
  Done = 0,
  OutsideHistory = 10,
  EntryDiscarded = 20,
  NotRestored = 30,
  ListenerFailed = 40
};
enum class KivRedoResult : int32_t { Done = 0, NoEntry = 10, NotRestored = 20, ListenerFailed = 30 };
enum class KivRestoreSnapShotResult : int32_t { Done = 0, NoEntry = 10, ModelGone = 20, ModelNotRestored = 30 };
enum class KivSaveSnapShotResult : int32_t { Done = 0, NotAllowed = 10, NotSaved = 20, NotCopied = 30 };

// The optimiser's work on one history entry. Nothing queues any yet.
struct KivOptimiserJob {
  std::map<KivModelStatusBase*, KivWString> m_mapOutput;
  std::map<KivModelStatusBase*, KivWString> m_mapFile;
  std::array<bool, 4> m_abFlag{};
};

class KivDataSpaceBase : public KivDataSpaceFields {
 public:
  KivDataSpaceBase();
  // Of the data space in use: discards the history and removes all models.
  virtual ~KivDataSpaceBase();

  // Opens the root file as a model. All snapshots are discarded. Nothing is left behind unless the result is Done.
  virtual KivAddModelResult AddModel(const KivWString& csRootKivFile, const KivModelOpenInfo& zInfo,
                                     KivModelStatusBase** ppzModel);
  virtual KivRemoveModelResult RemoveModel(KivModelStatusBase* pzModel);
  // Remembers the state of all models behind the present one; states behind it are given up.
  virtual KivCreateSnapShotResult CreateSnapShot();
  // Goes back to the iSteps-th snapshot from the present one, which counts as the first; stops at the oldest.
  virtual KivUndoResult UndoSnapShot(int32_t iSteps);
  // Goes forward. Changes since the last snapshot, undo or redo are given up.
  virtual KivRedoResult RedoSnapShot(int32_t iSteps);
  virtual KivRestoreSnapShotResult RestoreFromSnapShot(KivDataSpaceBase* pzEntry);

  KivDataSpaceBase(const KivDataSpaceBase&) = delete;
  KivDataSpaceBase& operator=(const KivDataSpaceBase&) = delete;

  // The installed instance, else one that is built on first use and destroyed at the end of the process. Never null.
  static KivDataSpaceBase* GetInstance();
  // Puts an instance of a derived class in the place of the built-in one, before its first use; it stays the caller's.
  // Null takes it off.
  static void InstallInstance(KivDataSpaceBase* pzInstance);

  // --- Settings -----------------------------------------------------------------------------------------------------

  void SetSetting0(uint8_t bValue) { m_bSetting0 = bValue; }
  void SetSetting1(uint32_t iValue) { m_iSetting1 = iValue; }
  void SetSetting2(uint8_t bValue) { m_bSetting2 = bValue; }
  void SetSetting3(uint32_t iValue);  // a value above 3 is ignored
  void SetSetting4(uint32_t iValue);  // at most 60
  void SetSetting5(float fValue);     // ignored outside 1e-6 to 1e6
  void SetSetting6(uint32_t iValue) { m_iSetting6 = iValue; }
  void SetSetting7(uint32_t iValue);  // a value above 2 and any value while a model is open are reported
  void SetKeepRawData(uint32_t iValue) { m_iKeepRawData = iValue; }
  void SetBlockPerElement(bool bValue) { m_bBlockPerElement = bValue; }
  void SetNoDirectBuffer(bool bValue) { m_bNoDirectBuffer = bValue; }
  void SetStackBufferLimit(uint32_t iValue) { m_iStackBufferLimit = iValue; }
  void SetLanguageId(uint16_t iValue) { m_iLanguageId = iValue; }
  void SetBackGroundRead(bool bValue) { m_bBackGroundRead = bValue; }
  void SetSettings(const KivDataSpaceSettings& zSettings) { m_zSettings = zSettings; }
  // 0 to 10 is taken as the speed class; -1 measures the machine; other values change nothing.
  void MeasureSpeed(int32_t iValue);

  // --- Element types, only while no model is open
  // ---------------------------------------------------------------------

  // An index counts for a model only if its factory and the handlers of all 8 rows are set.
  void SetGetAllPosition(uint32_t iRow, uint32_t iIndex, KivGetAllPositionHandler pfnHandler);
  void SetReplaceAllPosition(uint32_t iRow, uint32_t iIndex, KivReplaceAllPositionHandler pfnHandler);
  void SetGetOutOfCoreData(uint32_t iIndex, KivElementFactory pfnFactory);

  // --- Models and listeners
  // -------------------------------------------------------------------------------------------

  const std::set<KivModelStatusBase*>& GetModels() const { return m_spModel; }
  // The model whose elements have this manager key, or null.
  KivModelStatusBase* FindModel(uint32_t iKey) const;
  KivRemoveAllModelsResult RemoveAllModels();
  // Called in the order of registration, each one once.
  void AddListener(KivDataSpaceListener* pzListener);
  void RemoveListener(KivDataSpaceListener* pzListener);
  // Asked before patches are saved; each one once, null is ignored.
  void AddCanSavePatchFunction(bool (*pfnCanSavePatch)());

  // --- History (KivDataSpaceBase_SnapShot.cpp)
  // --------------------------------------------------------------------------

  // Undo without the view check, and without m_bDiscardingSnapShot for its duration.
  KivUndoResult UndoToSnapShot(int32_t iSteps);
  // Steps available: entries up to the first discarded one.
  int32_t GetUndoNum() const;
  // Places behind the present one. Those of discarded entries count.
  int32_t GetRedoNum() const;
  // Entries behind the present one: what a user can be offered.
  int32_t GetRedoEntryNum() const;
  // Discards up to n of the oldest entries before the present one and gives their number.
  int32_t DiscardSnapShots(int32_t n);
  bool DiscardAllSnapShots();
  // One path for each place of the history, empty where none was set, and the index of the present one.
  void GetSnapShotFiles(std::vector<KivWString>& vcsPath, int32_t& iCurrent) const;
  // The file that the present entry was saved to. Reported without one.
  void SetSnapShotFile(const KivWString& csPath);
  const std::vector<KivDataSpaceBase*>& GetHistory() const { return m_vpSnapShotData; }
  bool IsSnapShot() const { return m_bSnapShot; }

  // Saves a model of this data space, or of this history entry, as a container. Of an entry, some chunks in each call
  // until iDeadline (0 for none; otherwise reported in the data space itself). pzModel is the living model in either.
  KivSaveSnapShotResult SaveSnapShot(KivModelStatusBase* pzModel, const KivWString& csPath, uint32_t iDeadline);
  bool SaveSnapShotComplete(KivModelStatusBase* pzModel, const KivWString& csPath);
  void CancelSaveSnapShot(KivModelStatusBase* pzModel, const KivWString& csPath);

 protected:
  // Discards the history and removes all models, whatever is reported.
  void CloseAll() noexcept;

  std::set<KivModelStatusBase*> m_spModel;
  std::vector<KivDataSpaceListener*> m_vpzListener;
  KivGetAllPositionTable m_vvpfnGetAllPosition{};
  KivReplaceAllPositionTable m_vvpfnReplaceAllPosition{};
  KivElementFactoryTable m_vpfnGetOutOfCoreData{};
  std::vector<bool (*)()> m_vpfnCanSavePatch;
  std::vector<KivDataSpaceBase*> m_vpSnapShotData;  // owned; null where an entry was discarded
  bool m_bSnapShot = false;                         // this object is an entry of the history
  KivWString m_strSnapShotFile;
  std::map<KivDataSpaceBase*, KivOptimiserJob> m_mapOptimiserJob;
  uint32_t m_iOptimiserTurn = 0;

 private:
  struct AsSnapShot {};
  explicit KivDataSpaceBase(AsSnapShot) : m_bSnapShot(true) {}

  // Calls each listener that is registered when its turn comes, in the order of registration. A false answer is
  // reported and is the result; bGoOn calls the others all the same.
  bool CallListeners(bool bGoOn, const std::function<bool(KivDataSpaceListener&)>& call);
  void CopyCleanedTables(KivModelStatusBase& zModel);
  // Closes a model of m_spModel and deletes it, and its file if it asks for that.
  void EndModel(KivModelStatusBase* pzModel);
  bool IsCurBaseSnapShotValid() const;
  bool CopyInto(KivDataSpaceBase& zEntry);
  void AbandonEntry(std::unique_ptr<KivDataSpaceBase> pzEntry);
  void DiscardRedoTail();
  void DestroyEntry(KivDataSpaceBase* pzEntry);
  void FinishOptimiserJob(KivDataSpaceBase* pzEntry);
  KivModelStatusBase* FindOwnModel(KivModelStatusBase* pzModel) const;
};

}  // namespace kiv
