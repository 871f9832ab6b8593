// Position tables straight from a container, without elements: records, read and written as they are.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "KivException.h"
#include "KivFastFileContainerBase.h"
#include "KivPositionTableManager.h"

namespace kivtest {

class KivContainerPositionTables : public kiv::IKivPositionTableStore {
 public:
  using Block = kiv::KivMemoryBlockPositionTable;
  using Position = kiv::Position;

  explicit KivContainerPositionTables(kiv::KivFastFileContainerBase& zContainer) : m_zContainer(zContainer) {}

  Position GetFirstPositionTable() override { return m_zContainer.GetFirstPositionTable(); }
  void SetFirstPositionTable(Position iFile) override {
    m_zContainer.SetFirstPositionTable(iFile);
    m_zContainer.SetHeaderDirty();
  }
  Block* ReadTable(Position iFile) override {
    const kiv::KivContainerRecord zRecord = m_zContainer.GetRecord(iFile);
    if (!zRecord.m_pzFile) return Fail<Block*>(nullptr);
    std::vector<uint8_t> vcBytes(std::min<size_t>(zRecord.m_iFileSize, Block::kRecordSize));
    if (zRecord.m_pzFile->Read(zRecord.m_iOffset, vcBytes.data(), vcBytes.size()) != vcBytes.size())
      return Fail<Block*>(nullptr);
    if (m_pzBlock == nullptr) m_pzBlock = std::make_unique<Block>();
    const bool bVer19Data = m_zContainer.GetGeneration() == kiv::KivContainerHeader::kPreviousGeneration;
    return m_pzBlock->Parse(vcBytes.data(), vcBytes.size(), bVer19Data) ? m_pzBlock.get() : nullptr;
  }
  Position NewTable() override {
    std::vector<uint8_t> vcBytes(Block::kRecordSize);
    std::make_unique<Block>()->Build(vcBytes.data());
    return m_zContainer.AddRecord(kiv::KivContainerData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size())));
  }
  bool FreeTable(Position iFile) override {
    if (!m_zContainer.GetRecord(iFile).m_pzFile) return false;
    m_zContainer.DeleteRecordChecked(iFile);
    return true;
  }

 protected:
  Block* BeginChange(Position iFile) override { return ReadTable(iFile); }
  bool EndChange(Position iFile) override {
    const kiv::KivContainerRecord zRecord = m_zContainer.GetRecord(iFile);
    std::vector<uint8_t> vcBytes(Block::kRecordSize);
    if (!zRecord.m_pzFile || zRecord.m_iFileSize < vcBytes.size() || !m_pzBlock->Build(vcBytes.data()))
      return Fail(false);
    zRecord.m_pzFile->Write(zRecord.m_iOffset, vcBytes.data(), vcBytes.size());
    return true;
  }

 private:
  template <typename Result>
  static Result Fail(Result result) {
    kiv::KivReportFailure("0", "ContainerPositionTables", __LINE__);
    return result;
  }

  kiv::KivFastFileContainerBase& m_zContainer;
  std::unique_ptr<Block> m_pzBlock;
};

}  // namespace kivtest
