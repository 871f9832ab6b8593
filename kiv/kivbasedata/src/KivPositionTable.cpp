#include "KivPositionTable.h"

#include <algorithm>
#include <vector>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivPositionTable";

}  // namespace

bool KivPositionTable::Load(bool) {
  return WithoutThrow([this] {
    const bool bVer19Data = IsVer19Data();
    KivMemoryBlockPositionTable* pzBlock = TakeBlock();
    if (pzBlock == nullptr) return false;
    pzBlock->Clear();
    if (m_iDataSize == 0) return true;
    if (!bVer19Data && m_iDataSize < KivMemoryBlockPositionTable::kHeaderSize) {
      KIV_FAIL();
      return false;
    }
    std::vector<uint8_t> vcBytes(static_cast<size_t>(std::min(m_iDataSize, KivMemoryBlockPositionTable::kRecordSize)));
    if (!ReadData(vcBytes.data(), vcBytes.size())) {
      KIV_FAIL();
      return false;
    }
    return pzBlock->Parse(vcBytes.data(), vcBytes.size(), bVer19Data);
  });
}

bool KivPositionTable::Save(bool) {
  return WithoutThrow([this] {
    if (m_pzMemoryBlock == nullptr) {
      KIV_FAIL();
      return false;
    }
    std::vector<uint8_t> vcBytes(KivMemoryBlockPositionTable::kRecordSize);
    return m_pzMemoryBlock->Build(vcBytes.data()) && WriteData(vcBytes.data(), vcBytes.size());
  });
}

}  // namespace kiv
