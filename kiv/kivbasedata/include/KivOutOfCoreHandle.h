// A safe way to hold an element across operations: its manager's key and its position, fetched again at each use.
//
//   KivOutOfCoreHandle zNote = KivStoreNewElement(std::move(pzNewNote));
//   ...                                                  // anything, an undo included
//   if (auto* pzNote = zNote.Fetch<MyNote>()) ...        // good until the next operation on the store
//
// In a container with position tables the handle holds the stable key and stays valid while the element lives. Without
// tables the position changes when the element outgrows its record: store changes with Commit, which follows it, and
// keep one handle for each element.
#pragma once

#include <cstdint>
#include <memory>

#include "KivOutOfCoreManager.h"

namespace kiv {

class KivOutOfCoreHandle {
 public:
  KivOutOfCoreHandle() = default;
  KivOutOfCoreHandle(uint32_t iManagerKey, uint64_t iPosition) : m_iManagerKey(iManagerKey), m_iPosition(iPosition) {}

  uint32_t GetManagerKey() const { return m_iManagerKey; }
  uint64_t GetPosition() const { return m_iPosition; }
  explicit operator bool() const { return m_iPosition != 0; }
  friend bool operator==(const KivOutOfCoreHandle&, const KivOutOfCoreHandle&) = default;

  // The element, not necessarily active. Null for an empty handle, an element of another class, and after a report.
  KivOutOfCoreData* Fetch() const;
  template <typename Element>
  Element* Fetch() const {
    return dynamic_cast<Element*>(Fetch());
  }
  // Stores what was changed in the element, frees its block and follows its record. False after a report.
  bool Commit();
  // Destroys the element and its record, and empties the handle. False after a report.
  bool Delete();

 private:
  uint32_t m_iManagerKey = 0;
  uint64_t m_iPosition = 0;  // or key
};

// Stores an element that was made with new and filled, and destroys the object. An empty handle after a report.
KivOutOfCoreHandle KivStoreNewElement(std::unique_ptr<KivOutOfCoreData> pzElement);

}  // namespace kiv
