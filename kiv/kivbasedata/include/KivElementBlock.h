// What the blocks of model elements have in common: the header, and lists that keep their memory.
#pragma once

#include <cstddef>
#include <vector>

#include "KivElementRecord.h"

namespace kiv {

// A list that grows in place. Its number of items, not the size of what lies beneath, tells how many are valid, so that
// the next record that is read into it finds the memory of the items of the one before. T has Clear().
template <typename T>
class KivReusedList {
 public:
  size_t size() const { return m_nCount; }
  bool empty() const { return m_nCount == 0; }
  T& operator[](size_t i) { return m_vzItem[i]; }
  const T& operator[](size_t i) const { return m_vzItem[i]; }
  T* begin() { return m_vzItem.data(); }
  T* end() { return m_vzItem.data() + m_nCount; }
  const T* begin() const { return m_vzItem.data(); }
  const T* end() const { return m_vzItem.data() + m_nCount; }

  // A cleared item at the end.
  T& Add() {
    T& zItem = Reuse();
    zItem.Clear();
    return zItem;
  }
  // The same with whatever the item held before, for those who overwrite it all.
  T& Reuse() {
    if (m_nCount == m_vzItem.size()) m_vzItem.emplace_back();
    return m_vzItem[m_nCount++];
  }
  // Room for so many items in all, so that growing takes nothing more.
  void Reserve(size_t nCount) { m_vzItem.reserve(nCount); }
  // Keeps the first nCount items.
  void Cut(size_t nCount) { m_nCount = nCount < m_nCount ? nCount : m_nCount; }
  void Clear() { m_nCount = 0; }

 private:
  std::vector<T> m_vzItem;
  size_t m_nCount = 0;
};

// Base of the blocks of model elements. A block derived from it has, beside its fields,
//
//   static constexpr uint32_t kTag;                         // finds the type's rules
//   static constexpr char kSource[];                        // of the reports
//   void Clear();                                           // the defaults of all that stands behind the header
//   template <typename Fields> bool VisitBody(Fields&, Memory&);   // the record behind the header
//
// and says with the members below only where it differs from them.
class KivElementBlock : public KivMemoryBlock {
 public:
  // What the element keeps beside the block, from a load to the next one.
  struct Memory {
    void Clear() {}
  };

  // A write for changed keys goes over the old record, whose layout stays; it takes no sizing.
  static constexpr bool kKeepsLayout = false;
  // Records are read on the stack or in one process-wide buffer, and the element is loaded anew for its keys.
  static constexpr bool kIsBulk = false;

  // The keys behind the links, for a KivKeyCollector or a KivKeyReplacer.
  template <typename Keys>
  bool VisitKeys(Keys&) {
    return true;
  }
  // Around each write, whatever becomes of it.
  void BeforeSave(bool bModifyOnlyForPosition) { (void)bModifyOnlyForPosition; }
  void AfterSave() {}

  // Links that are set.
  size_t GetLinkNum() const {
    size_t nLinks = 0;
    for (const uint64_t iLink : m_zHeader.m_aiLink) nLinks += iLink != 0;
    return nLinks;
  }

  KivMemoryBlockHeader GetHeader() const override { return m_zHeader; }
  KivMemoryBlockLinks GetLinks() override {
    return {&m_zHeader.m_aiLink[0], &m_zHeader.m_aiLink[1], &m_zHeader.m_aiLink[2]};
  }

  KivMemoryBlockHeader m_zHeader;
};

}  // namespace kiv
