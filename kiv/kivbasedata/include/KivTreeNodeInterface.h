// What every element offers to those who walk from element to element.
#pragma once

#include <cstdint>

namespace kiv {

class KivMemoryBlock;

// Codes of the built-in element classes: the low 16 bits of the word at the start of a record. Bits 16 to 23 hold the
// index of a registered type, or 0.
enum class KivElementType : uint32_t {
  FaceEdgeData = 1,
  Instance = 2,
  Model = 3,
  ModelNote = 4,
  BrepData = 5,
  AssemblyTree = 6,
  Pmi = 7,
  PolyElemData = 8,
  PermanentIdTable = 9,
  PositionTable = 10,
  LayerFilter = 11,
  Camera = 12,
  VertexData = 13
};

class KivTreeNodeInterface {
 public:
  // Activates the element and gives its block for reading; null after a report. The block is good until the next
  // operation on the store.
  virtual KivMemoryBlock* GetMemoryBlock() = 0;
  // The same for changing: the element is marked as modified.
  virtual KivMemoryBlock* GetMemoryBlockForWrite() = 0;
  // Eight corners of x, y, z, as bit patterns of f32: the box of the record when the element was fetched.
  virtual const uint32_t* GetBoxCorners() = 0;
  virtual uint32_t GetElementType() = 0;

 protected:
  ~KivTreeNodeInterface() = default;
};

}  // namespace kiv
