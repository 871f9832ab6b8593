// What the blocks of model elements have in common: the header, and lists that keep their memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

#include "KivElementRecord.h"

namespace kiv {

// Memory of lists, those in their items included.
struct KivListBytes {
  uint64_t m_nUsed = 0;  // by what is valid
  uint64_t m_nKept = 0;  // all in all

  // Of a vector or a text. An item with lists of its own names them: auto Lists() const { return std::tie(m_vi, ...); }
  template <typename List>
  void Add(const List& vz) {
    using Item = typename List::value_type;
    m_nUsed += vz.size() * sizeof(Item);
    m_nKept += vz.capacity() * sizeof(Item);
    if constexpr (requires(const Item& z) { z.Lists(); })
      for (const Item& zItem : vz) AddListsOf(zItem);
  }
  template <typename Item>
  void AddListsOf(const Item& zItem) {
    std::apply([this](const auto&... vz) { (Add(vz), ...); }, zItem.Lists());
  }
};

// A list that grows in place. Its number of items, not the size of what lies beneath, tells how many are valid, so that
// the next record that is read into it finds the memory of the items of the one before. T has Clear(), and names its
// lists as KivListBytes wants it if Clear keeps their memory.
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
  void Clear() {
    m_nCount = 0;
    if constexpr (!kKeepsLists) m_vzItem.clear();
  }

  // Gives all memory back.
  void Free() {
    m_nCount = 0;
    std::vector<T>().swap(m_vzItem);
  }
  // What it takes. Items behind the valid ones count as kept.
  void AddBytes(KivListBytes& zBytes) const {
    zBytes.m_nUsed += m_nCount * sizeof(T);
    zBytes.m_nKept += m_vzItem.capacity() * sizeof(T);
    if constexpr (kKeepsLists) {
      for (size_t i = 0; i < m_vzItem.size(); ++i) {
        const uint64_t nUsed = zBytes.m_nUsed;
        zBytes.AddListsOf(m_vzItem[i]);
        if (i >= m_nCount) zBytes.m_nUsed = nUsed;
      }
    }
  }

 private:
  static constexpr bool kKeepsLists = requires(const T& z) { z.Lists(); };

  std::vector<T> m_vzItem;
  size_t m_nCount = 0;
};

// The records that a block was read from or written to: what KivTrimElement goes by. It belongs to the place where the
// block stands, so that another block's content can be assigned without it.
struct KivBlockTraffic {
  KivBlockTraffic() = default;
  KivBlockTraffic(const KivBlockTraffic&) {}
  KivBlockTraffic& operator=(const KivBlockTraffic&) { return *this; }

  // A record goes through the block; one that is refused may leave memory behind, but sets no measure.
  void Count(uint64_t nRecordBytes) { m_nSince += nRecordBytes; }
  void WasGood(uint64_t nRecordBytes) { m_nLargest = std::max(m_nLargest, nRecordBytes); }

  uint64_t m_nLargest = 0;  // bytes of the largest record that was good, since the last look at the lists
  uint64_t m_nSince = 0;    // bytes of all records since then
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

  // Whether the keys, links included, may be listed or, with bReplacing, replaced; asked before anything is. False
  // after a quiet report.
  bool MayVisitKeys(bool bReplacing) const {
    (void)bReplacing;
    return true;
  }
  // The keys behind the links, for a KivKeyCollector or a KivKeyReplacer.
  template <typename Keys>
  bool VisitKeys(Keys&) {
    return true;
  }
  // The KivReusedLists, each to pfnList(list).
  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    (void)pfnList;
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

  KivBlockTraffic m_zTraffic;
};

}  // namespace kiv
