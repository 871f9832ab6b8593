// One description of the keys that an element holds, for listing and for replacing them. A block has, as a template
// over the two classes here,
//
//   template <typename Keys>
//   bool VisitKeys(Keys& zKeys) {
//     return zKeys.Keys(m_iAssemblyKey, m_iSecondKey) && zKeys.Attributes(KivAttributeRow::ModelNote, m_vzAttribute);
//   }
//
// Operations give false after a quiet report, and the visit then stops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "KivElementRecord.h"
#include "KivModelStatusBase.h"

namespace kiv {

class KivKeyCollector {
 public:
  // Without a model no attribute holds a key.
  KivKeyCollector(const KivModelStatusBase* pzModel, std::vector<uint64_t>& viPosition)
      : m_pzModel(pzModel), m_viPosition(viPosition) {}

  // 0 is no key.
  template <typename... Key>
  bool Keys(const Key&... iKey) {
    (Add(iKey), ...);
    return true;
  }
  bool Attributes(KivAttributeRow eRow, const std::vector<KivAttribute>& vzAttribute) {
    if (m_pzModel == nullptr || vzAttribute.empty()) return true;
    return KivCollectAttributeKeys(m_pzModel->m_vvpfnGetAllPosition[static_cast<size_t>(eRow)], vzAttribute,
                                   m_viPosition);
  }

 private:
  void Add(uint64_t iKey) {
    if (iKey != 0) m_viPosition.push_back(iKey);
  }

  const KivModelStatusBase* m_pzModel;
  std::vector<uint64_t>& m_viPosition;
};

class KivKeyReplacer {
 public:
  KivKeyReplacer(const KivModelStatusBase* pzModel, const std::map<uint64_t, uint64_t>& mapPosition)
      : m_pzModel(pzModel), m_mapPosition(mapPosition) {}

  template <typename... Key>
  bool Keys(Key&... iKey) {
    return (KivReplaceKey(m_mapPosition, iKey) && ...);
  }
  bool Attributes(KivAttributeRow eRow, std::vector<KivAttribute>& vzAttribute) {
    if (m_pzModel == nullptr || vzAttribute.empty()) return true;
    return KivReplaceAttributeKeys(m_pzModel->m_vvpfnReplaceAllPosition[static_cast<size_t>(eRow)], vzAttribute,
                                   m_mapPosition);
  }

 private:
  const KivModelStatusBase* m_pzModel;
  const std::map<uint64_t, uint64_t>& m_mapPosition;
};

}  // namespace kiv
