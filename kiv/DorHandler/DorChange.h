// A change of several elements of a model that happens whole or not at all.
//
// Everything is prepared in copies first; Commit stores them one after the other, and what cannot be stored brings
// those before it back.
#pragma once

#include <map>
#include <memory>

#include "DorRefusal.h"
#include "KivElement.h"
#include "KivOutOfCoreHandle.h"
#include "KivPositionTableManager.h"

namespace kiv {

class DorChange {
 public:
  explicit DorChange(uint32_t iManagerKey) : m_iManagerKey(iManagerKey) {}

  // The new state of an element's block, at first the present one; the same one for the same key. Refused if the
  // element cannot be read, or could not be found any more after it has grown.
  template <typename Element>
  auto& Edit(uint64_t iKey);

  bool IsEmpty() const { return m_mapEdit.empty(); }
  // True if all of it is stored. False if all of it is as before, or if IsPending then says so.
  bool Commit();
  // What Commit could not bring back is tried again; true once nothing is left of the change.
  bool TakeBack();
  bool IsPending() const { return m_bPending; }

 private:
  struct Step {
    virtual ~Step() = default;
    virtual bool Put(bool bNew) = 0;
    bool m_bTouched = false;
  };
  template <typename Element, typename Block>
  struct StepOf;
  static void RequireKey(uint64_t iKey, bool bFixedPlace);
  static bool PutQuietly(Step& zStep, bool bNew);

  uint32_t m_iManagerKey;
  std::map<uint64_t, std::unique_ptr<Step>> m_mapEdit;
  bool m_bPending = false;
};

// --- Implementation of the templates --------------------------------------------------------------------------------

template <typename Element, typename Block>
struct DorChange::StepOf : Step {
  StepOf(uint32_t iManagerKey, uint64_t iKey) : m_zHandle(iManagerKey, iKey) {}

  bool Put(bool bNew) override {
    auto* pzElement = m_zHandle.template Fetch<Element>();
    Block* pzBlock = pzElement != nullptr ? pzElement->GetMemoryBlockForWrite() : nullptr;
    if (pzBlock == nullptr) return false;
    *pzBlock = bNew ? m_zNew : m_zOld;
    return m_zHandle.Commit();
  }

  KivOutOfCoreHandle m_zHandle;
  Block m_zOld, m_zNew;
};

template <typename Element>
auto& DorChange::Edit(uint64_t iKey) {
  using Block = std::remove_pointer_t<decltype(std::declval<Element>().GetMemoryBlock())>;
  using ThisStep = StepOf<Element, Block>;
  const auto it = m_mapEdit.find(iKey);
  if (it != m_mapEdit.end()) {
    auto* pzStep = DorNeed(dynamic_cast<ThisStep*>(it->second.get()), "an element that stands twice in the model");
    return pzStep->m_zNew;
  }
  auto pzStep = std::make_unique<ThisStep>(m_iManagerKey, iKey);
  auto* pzElement = DorNeed(pzStep->m_zHandle.template Fetch<Element>(), "an element to change");
  const Block* pzBlock = DorNeed(pzElement->GetMemoryBlock(), "an element to change");
  RequireKey(iKey, pzBlock->m_zHeader.m_iFormat == KivRulesOf<Block>().m_iFormat);
  pzStep->m_zOld = *pzBlock;
  pzStep->m_zNew = *pzBlock;
  Block& zNew = pzStep->m_zNew;
  m_mapEdit.emplace(iKey, std::move(pzStep));
  return zNew;
}

}  // namespace kiv
