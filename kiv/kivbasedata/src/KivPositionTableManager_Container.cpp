// Position tables without elements: records of a container, read and written as they are.
#include "KivException.h"
#include "KivFastFileContainerBase.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivPositionTableManager";

}  // namespace

Position KivContainerPositionTables::GetFirstPositionTable() {
  return m_zContainer.GetFirstPositionTable();
}

void KivContainerPositionTables::SetFirstPositionTable(Position iFile) {
  m_zContainer.SetFirstPositionTable(iFile);
  m_zContainer.SetHeaderDirty();
}

KivMemoryBlockPositionTable* KivContainerPositionTables::ReadTable(Position iFile) {
  const KivContainerRecord zRecord = m_zContainer.GetRecord(iFile);
  if (!zRecord.m_pzFile || zRecord.m_iFileSize > KivMemoryBlockPositionTable::kRecordSize) {
    KIV_FAIL();
    return nullptr;
  }
  std::vector<uint8_t> vcBytes(zRecord.m_iFileSize);
  if (zRecord.m_pzFile->Read(zRecord.m_iOffset, vcBytes.data(), vcBytes.size()) != vcBytes.size()) {
    KIV_FAIL();
    return nullptr;
  }
  if (m_pzBlock == nullptr) m_pzBlock = std::make_unique<KivMemoryBlockPositionTable>();
  const bool bVer19Data = m_zContainer.GetGeneration() == KivContainerHeader::kPreviousGeneration;
  return m_pzBlock->Parse(vcBytes.data(), vcBytes.size(), bVer19Data) ? m_pzBlock.get() : nullptr;
}

Position KivContainerPositionTables::NewTable() {
  const auto pzNew = std::make_unique<KivMemoryBlockPositionTable>();
  std::vector<uint8_t> vcBytes(KivMemoryBlockPositionTable::kRecordSize);
  pzNew->Build(vcBytes.data());
  return m_zContainer.AddRecord(KivContainerData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size())));
}

bool KivContainerPositionTables::EndChange(Position iFile) {
  const KivContainerRecord zRecord = m_zContainer.GetRecord(iFile);
  std::vector<uint8_t> vcBytes(KivMemoryBlockPositionTable::kRecordSize);
  if (!zRecord.m_pzFile || zRecord.m_iFileSize < vcBytes.size() || !m_pzBlock->Build(vcBytes.data())) {
    KIV_FAIL();
    return false;
  }
  zRecord.m_pzFile->Write(zRecord.m_iOffset, vcBytes.data(), vcBytes.size());
  return true;
}

bool KivContainerPositionTables::FreeTable(Position iFile) {
  if (!m_zContainer.GetRecord(iFile).m_pzFile) return false;
  m_zContainer.DeleteRecordChecked(iFile);
  return true;
}

}  // namespace kiv
