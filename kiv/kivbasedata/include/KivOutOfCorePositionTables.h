// How a position table manager reaches its tables: as elements of the store.
#pragma once

#include "KivPositionTableManager.h"

namespace kiv {

class KivPositionTable;

class KivOutOfCorePositionTables : public IKivPositionTableStore {
 public:
  explicit KivOutOfCorePositionTables(uint32_t iManagerKey) : m_iManagerKey(iManagerKey) {}

  Position GetFirstPositionTable() override;
  void SetFirstPositionTable(Position iFile) override;
  KivMemoryBlockPositionTable* ReadTable(Position iFile) override;
  Position NewTable() override;
  bool FreeTable(Position iFile) override;

 protected:
  KivMemoryBlockPositionTable* BeginChange(Position iFile) override;
  bool EndChange(Position iFile) override;

 private:
  KivPositionTable* FindTable(Position iFile);

  uint32_t m_iManagerKey;
};

}  // namespace kiv
