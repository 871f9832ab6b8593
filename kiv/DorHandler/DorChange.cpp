#include "DorChange.h"

#include "KivModel.h"

namespace kiv {

// What is referred to by its position must not move: only the root, whose record keeps its size, is changed there.
void DorChange::RequireKey(uint64_t iKey, bool bFixedPlace) {
  if (KivPositionTableManager::IsTableKey(iKey) || (iKey == kModelPosition && bFixedPlace)) return;
  throw DorRefusal(DorAnswerCode::NotEditable, "the model's elements refer to each other by position");
}

bool DorChange::PutQuietly(Step& zStep, bool bNew) {
  try {
    return zStep.Put(bNew);
  } catch (const std::exception&) {
    return false;
  }
}

bool DorChange::Commit() {
  for (auto& [iKey, pzStep] : m_mapEdit) {
    pzStep->m_bTouched = true;
    if (PutQuietly(*pzStep, true)) continue;
    TakeBack();
    return false;
  }
  return true;
}

bool DorChange::TakeBack() {
  m_bPending = false;
  for (auto& [iKey, pzStep] : m_mapEdit) {
    if (!pzStep->m_bTouched) continue;
    if (PutQuietly(*pzStep, false)) {
      pzStep->m_bTouched = false;
    } else {
      m_bPending = true;
    }
  }
  return !m_bPending;
}

}  // namespace kiv
