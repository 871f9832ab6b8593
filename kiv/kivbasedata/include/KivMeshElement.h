// What the two classes of mesh elements share: tree level, flat form and lookups.
#pragma once

#include <cstdint>
#include <vector>

#include "KivElement.h"
#include "KivMeshEntries.h"
#include "KivOutOfCoreManager.h"

namespace kiv {

// The flat form of a mesh block, for direct access without parsing; docs/mesh_elements.md has its layout. Empty, after
// a report, if its offsets would not fit 32 bits.
class KivMeshFlatForm {
 public:
  KivMeshFlatForm(const KivMemoryBlockFaceEdgeInterface& zMesh, uint64_t nEntries);
  void Add(const KivMeshFace& zFace);
  void Add(const KivMeshEdge& zEdge);
  std::vector<uint8_t> Take();

 private:
  void Put(const void* pBytes, size_t nBytes);
  template <typename T>
  void Number(T value);
  template <typename T>
  void Array(const std::vector<T>& v);
  void Frame(const KivEntryFrame& zFrame);
  void Attributes(const std::vector<KivAttribute>& vzAttribute);
  void BeginEntry();

  std::vector<uint8_t> m_vcBytes;
  size_t m_iNextOffset;  // where the place of the next entry is noted
};

template <typename Block>
class KivMeshElement : public KivElement<Block> {
  using Base = KivElement<Block>;
  using Face = typename Block::FaceType;

 public:
  using Base::Base;

  uint32_t GetOutOfCoreTreeLevel() override {
    NoteLevel();
    return m_iTreeLevel;
  }
  bool Release() override {
    NoteLevel();
    return Base::Release();
  }

  // The decoded copy that the settings m_bBlockPerElement off and m_iKeepRawData of 2 or more ask for; empty without
  // them. Null after a report. Good until the element is marked as modified or goes.
  const std::vector<uint8_t>* GetFlatForm() {
    const bool bThere = this->WithoutThrow([&] {
      std::vector<uint8_t>& vcFlat = this->m_vcUnpackedData;
      if (vcFlat.empty() && !this->Activate(false)) return false;
      return !vcFlat.empty() || (this->Unload() && this->Activate(false));
    });
    return bThere ? &this->m_vcUnpackedData : nullptr;
  }

  // The first entry with this id in an element; null if there is none, and after a report. As short-lived as a block.
  static const Face* FindFace(uint32_t iManagerKey, uint64_t iPosition, uint32_t iId) {
    Block* pzBlock = FindBlock(iManagerKey, iPosition);
    return pzBlock != nullptr ? First(pzBlock->m_vzFace, iId) : nullptr;
  }
  static const KivMeshEdge* FindEdge(uint32_t iManagerKey, uint64_t iPosition, uint32_t iId) {
    Block* pzBlock = FindBlock(iManagerKey, iPosition);
    return pzBlock != nullptr ? First(pzBlock->m_vzEdge, iId) : nullptr;
  }

 protected:
  void AfterTransfer() override {
    const KivDataSpaceFields& zSpace = *KivDataSpaceFields::GetInstance();
    if (zSpace.m_bBlockPerElement || zSpace.m_iKeepRawData < 2 || !this->m_vcUnpackedData.empty()) return;
    const Block& zBlock = *this->m_pzMemoryBlock;
    KivMeshFlatForm zFlat(zBlock, zBlock.m_vzFace.size() + zBlock.m_vzEdge.size());
    for (const Face& zFace : zBlock.m_vzFace) zFlat.Add(zFace);
    for (const KivMeshEdge& zEdge : zBlock.m_vzEdge) zFlat.Add(zEdge);
    this->m_vcUnpackedData = zFlat.Take();
  }

 private:
  void NoteLevel() {
    if (this->m_pzMemoryBlock != nullptr) m_iTreeLevel = this->m_pzMemoryBlock->m_iDisplayValue > 0 ? 1 : 2;
  }

  static Block* FindBlock(uint32_t iManagerKey, uint64_t iPosition) {
    Block* pzBlock = nullptr;
    Base::WithoutThrow([&] {
      auto* pzElement = dynamic_cast<KivMeshElement*>(KivOutOfCoreManager::GetElement(iManagerKey, iPosition));
      if (pzElement != nullptr) pzBlock = pzElement->GetMemoryBlock();
      return true;
    });
    return pzBlock;
  }
  template <typename Entry>
  static const Entry* First(const KivReusedList<Entry>& vzEntry, uint32_t iId) {
    for (const Entry& zEntry : vzEntry)
      if (!zEntry.m_zFrame.IsGap() && zEntry.m_iId == iId) return &zEntry;
    return nullptr;
  }

  uint32_t m_iTreeLevel = 2;  // of the block that was loaded last
};

}  // namespace kiv
