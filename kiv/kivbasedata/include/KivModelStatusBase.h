// One open model, or its copy in the undo history.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "KivOutOfCoreManager.h"
#include "KivSysText.h"

namespace kiv {

class KivPositionTableManager;

// Per attribute type: lists the element keys in an attribute's bytes, or replaces them by their values in a map. False
// for bytes that are none of that type, and for a key that the map lacks.
using KivGetAllPositionHandler = bool (*)(const std::vector<uint8_t>& vcAttribute, std::vector<uint64_t>& viPosition);
using KivReplaceAllPositionHandler = bool (*)(std::vector<uint8_t>& vcAttribute,
                                              const std::map<uint64_t, uint64_t>& mapPosition);

constexpr uint32_t kKivHandlerRowNum = 8;
constexpr uint32_t kKivTypeIndexNum = 256;

using KivGetAllPositionTable = std::array<std::array<KivGetAllPositionHandler, kKivTypeIndexNum>, kKivHandlerRowNum>;
using KivReplaceAllPositionTable =
    std::array<std::array<KivReplaceAllPositionHandler, kKivTypeIndexNum>, kKivHandlerRowNum>;
using KivElementFactoryTable = std::array<KivElementFactory, kKivTypeIndexNum>;

enum class KivModelRestoreResult : int32_t {
  Done = 0,
  NoManager = 10,
  NoTableCopy = 20,
  TableNotRestored = 30,
  NoKeyOwner = 40,
  ManagerNotRestored = 50
};

class KivModelStatusBase {
 public:
  // A copy for the history. Changes are stored in the model's files first. Parts that cannot be copied are reported
  // and stay null.
  virtual std::unique_ptr<KivModelStatusBase> CreateSnapShot();
  virtual KivModelRestoreResult RestoreFromUndo(KivModelStatusBase* pUndo);

  KivModelStatusBase();
  virtual ~KivModelStatusBase();
  KivModelStatusBase(const KivModelStatusBase&) = delete;
  KivModelStatusBase& operator=(const KivModelStatusBase&) = delete;

  bool IsHistoryCopy() const { return m_pOriginal != nullptr; }
  // The key of the model's elements; 0xFFFFFFFF without one.
  uint32_t GetKey() const;
  // The manager of a living model, or a copy's own.
  KivOutOfCoreManager* GetManager() const;
  // Stores what was changed, position tables included. False after a report.
  bool SaveChanges();
  // True for a model that was opened for reading: its copies hold its files' state.
  bool CanBeUndone() const;
  // Of a copy: everything that a restore needs is there.
  bool IsWholeCopy() const;
  // Of a copy that was made last, while nothing has been written since: its files are as if it had never been made.
  void Abandon();

  KivWString m_csRootKivFile;
  KivOutOfCoreManagerKeyOwner* m_pzRootKey = nullptr;  // owned by the living model
  bool m_bChanged = false;
  bool m_bDeleteFileOnClose = false;
  uint32_t m_iDorRelayID = 0xFFFFFFFF;  // owner id that the request layer gave
  KivGetAllPositionTable m_vvpfnGetAllPosition{};
  KivReplaceAllPositionTable m_vvpfnReplaceAllPosition{};
  KivElementFactoryTable m_vpfnGetOutOfCoreData{};
  std::array<uint8_t, kKivTypeIndexNum> m_vcFlags{};
  KivModelStatusBase* m_pOriginal = nullptr;                         // in a copy: the living model
  std::unique_ptr<KivPositionTableManager> m_pPositionTableManager;  // in a copy
  std::unique_ptr<KivOutOfCoreManager> m_pOutOfCoreManager;          // in a copy
  std::map<KivWString, int32_t> m_mapSnapShotFile;                   // targets of saves; above 0: complete
};

}  // namespace kiv
