// The element that stores one block of a position table. KivMemoryBlockPositionTable.h has the record.
#pragma once

#include "KivMemoryBlockPositionTable.h"
#include "KivOutOfCoreBlock.h"

namespace kiv {

class KivPositionTable : public KivOutOfCoreBlockNode<KivMemoryBlockPositionTable> {
 public:
  using KivOutOfCoreBlockNode::KivOutOfCoreBlockNode;

  bool Load(bool bModifyOnlyForPosition) override;
  bool Save(bool bModifyOnlyForPosition) override;
  uint32_t GetElementType() override { return KivMemoryBlockPositionTable::kElementType; }
};

}  // namespace kiv
