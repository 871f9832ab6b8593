// What the blocks of both kinds of mesh elements offer: the common header, the mesh header and the numbers of entries.
#pragma once

#include <cstdint>

#include "KivElementBlock.h"
#include "KivMemoryBlockFaceEdgeInterfaceData.h"

namespace kiv {

class KivMemoryBlockFaceEdgeInterface : public KivElementBlock, public KivMemoryBlockFaceEdgeInterfaceData {
 public:
  virtual uint32_t GetFaceNum() const = 0;  // entries of the list, gaps among them
  virtual uint32_t GetEdgeNum() const = 0;
  virtual bool IsFaceEdge() const = 0;  // true for faces and edges, false for polygons
};

}  // namespace kiv
