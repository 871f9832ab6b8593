// Where the blocks of an element class live: one static block for the whole class, or one for each element; and what
// element classes with one such block have in common.
#pragma once

#include "KivDataSpaceFields.h"
#include "KivException.h"
#include "KivMemoryBlock.h"
#include "KivOutOfCoreTreeNode.h"
#include "KivReportQuiet.h"

namespace kiv {

// An element has a block of its own while m_bBlockPerElement is set, and always when it has no store. Block is
// default-constructed; the caller fills it anew each time.
template <typename Block>
class KivOutOfCoreBlock {
 public:
  // A block for this element, which has none. The static block is taken from its present owner, who is deactivated
  // first, or gives up what it loaded without being active. Null, after a report, if that fails.
  static Block* Acquire(KivOutOfCoreData* pzElement) {
    if (HasOwnBlock(*pzElement)) return new Block;
    State& zState = GetState();
    KivOutOfCoreData* const pzOwner = zState.m_pzOwner;
    if (pzOwner != nullptr && pzOwner != pzElement) {
      const bool bLet = pzOwner->IsActive() ? pzOwner->Deactivate() : pzOwner->Release();
      if (!bLet || zState.m_pzOwner != nullptr) {
        KivReportFailure("0", Source(), __LINE__);
        return nullptr;
      }
    }
    zState.m_pzOwner = pzElement;
    ++zState.m_nAcquired;
    return &zState.m_zBlock;
  }
  // How often the static block has been taken so far.
  static uint64_t GetAcquireNum() { return GetState().m_nAcquired; }

  // Gives the element's block back and sets the pointer to null. A block that is neither the static one nor the
  // element's own by the rule above is reported, and freed; the report stays here.
  static void Release(KivOutOfCoreData* pzElement, Block*& pzBlock) noexcept {
    Block* const pzGone = pzBlock;
    pzBlock = nullptr;
    if (pzGone == nullptr) return;
    State& zState = GetState();
    if (pzGone == &zState.m_zBlock) {
      zState.m_pzOwner = nullptr;
      return;
    }
    delete pzGone;
    if (!HasOwnBlock(*pzElement)) KivReportHere("0", Source(), __LINE__);
  }

 private:
  // Of reports: the source that the block's class names for itself, if it does.
  static constexpr const char* Source() {
    if constexpr (requires { Block::kSource; })
      return Block::kSource;
    else
      return "src\\KivOutOfCoreData";
  }

  struct State {
    Block m_zBlock;
    KivOutOfCoreData* m_pzOwner = nullptr;
    uint64_t m_nAcquired = 0;
  };
  static bool HasOwnBlock(const KivOutOfCoreData& zElement) {
    return KivDataSpaceFields::GetInstance()->m_bBlockPerElement || !zElement.HasStore();
  }
  // Never destroyed: elements may be the last to go.
  static State& GetState() {
    static State& zState = *new State;
    return zState;
  }
};

// An element with one block. A class derived from it says by Load and Save what the block holds.
template <typename Block>
class KivOutOfCoreBlockNode : public KivOutOfCoreTreeNode {
 public:
  explicit KivOutOfCoreBlockNode(uint32_t iManagerKey) : KivOutOfCoreTreeNode(iManagerKey) {}
  ~KivOutOfCoreBlockNode() override { KivOutOfCoreBlock<Block>::Release(this, m_pzMemoryBlock); }

  Block* GetMemoryBlock() override {
    if (!Activate(false)) return nullptr;
    // Without a store the first call makes the block.
    if (m_pzMemoryBlock == nullptr && !Load(false)) return nullptr;
    return m_pzMemoryBlock;
  }
  Block* GetMemoryBlockForWrite() override {
    Block* pzBlock = GetMemoryBlock();
    if (pzBlock != nullptr) MarkModified();
    return pzBlock;
  }
  bool Release() override {
    KivOutOfCoreBlock<Block>::Release(this, m_pzMemoryBlock);
    return true;
  }

 protected:
  // Gives the present block back and takes one that the caller fills anew. Null after a report.
  Block* TakeBlock() {
    KivOutOfCoreBlock<Block>::Release(this, m_pzMemoryBlock);
    m_pzMemoryBlock = KivOutOfCoreBlock<Block>::Acquire(this);
    return m_pzMemoryBlock;
  }

  Block* m_pzMemoryBlock = nullptr;  // null while the element is not loaded
};

}  // namespace kiv
