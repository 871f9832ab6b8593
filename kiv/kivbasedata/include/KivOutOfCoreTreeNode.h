// An element with links to other elements.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "KivOutOfCoreData.h"
#include "KivTreeNodeInterface.h"

namespace kiv {

class KivOutOfCoreTreeNode : public KivOutOfCoreData, public KivTreeNodeInterface {
 public:
  explicit KivOutOfCoreTreeNode(uint32_t iManagerKey) : KivOutOfCoreData(iManagerKey) {}

  virtual uint32_t GetOutOfCoreTreeLevel() { return 0; }
  // The references that the element holds, 0 left out. False after a report.
  virtual bool GetAllPosition(std::vector<uint64_t>& viPosition);
  // Replaces each reference by its value in the map. False, after a report, at the first one that the map lacks; those
  // before it stay replaced.
  virtual bool ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition);

  void SetBoxFromFrame(const uint32_t* pzFrameBox) override;
  const uint32_t* GetBoxCorners() override { return m_aiBoxCorner; }

 private:
  uint32_t m_aiBoxCorner[24] = {};
};

}  // namespace kiv
