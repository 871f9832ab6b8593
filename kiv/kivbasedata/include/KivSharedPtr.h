// Shared ownership with a plain count: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "KivException.h"

namespace kiv {

// An object pointer and a separately allocated 32-bit count. A converted pointer (derived to base) shares the count.
// The last pointer deletes the object through its own type T; where pointers are converted, the destructor of the base
// must therefore be virtual, as those of all files are.
template <typename T>
class KivSharedPtr {
 public:
  KivSharedPtr() noexcept = default;
  KivSharedPtr(std::nullptr_t) noexcept {}
  // Takes the object over with a count of 1; destroys it if the count cannot be allocated.
  explicit KivSharedPtr(T* pzObject) : m_pzObject(pzObject) {
    if (pzObject == nullptr) return;
    try {
      m_piRef = new int32_t(1);
    } catch (...) {
      delete pzObject;
      throw;
    }
  }
  KivSharedPtr(const KivSharedPtr& zOther) noexcept : m_pzObject(zOther.m_pzObject), m_piRef(zOther.m_piRef) {
    AddRef();
  }
  KivSharedPtr(KivSharedPtr&& zOther) noexcept
      : m_pzObject(std::exchange(zOther.m_pzObject, nullptr)), m_piRef(std::exchange(zOther.m_piRef, nullptr)) {}
  template <typename U>
  KivSharedPtr(const KivSharedPtr<U>& zOther) noexcept : m_pzObject(zOther.m_pzObject), m_piRef(zOther.m_piRef) {
    AddRef();
  }
  template <typename U>
  KivSharedPtr(KivSharedPtr<U>&& zOther) noexcept
      : m_pzObject(std::exchange(zOther.m_pzObject, nullptr)), m_piRef(std::exchange(zOther.m_piRef, nullptr)) {}
  KivSharedPtr& operator=(KivSharedPtr zOther) noexcept {
    std::swap(m_pzObject, zOther.m_pzObject);
    std::swap(m_piRef, zOther.m_piRef);
    return *this;
  }
  ~KivSharedPtr() {
    try {
      Release();
    } catch (...) {
      // A destructor lets no exception out; the report has been made.
    }
  }

  // Lets go of the object. A count that is already dead is reported with "(*m_piRef) > 0" and left alone.
  void Release() {
    T* pzObject = std::exchange(m_pzObject, nullptr);
    int32_t* piRef = std::exchange(m_piRef, nullptr);
    if (piRef == nullptr) return;
    if (!((*piRef) > 0)) {
      KivReportFailure("(*m_piRef) > 0", "include\\KivSharedPtr", __LINE__);
      return;
    }
    if (--(*piRef) > 0) return;
    delete piRef;
    delete pzObject;
  }

  T* Get() const noexcept { return m_pzObject; }
  T* operator->() const noexcept { return m_pzObject; }
  T& operator*() const noexcept { return *m_pzObject; }
  explicit operator bool() const noexcept { return m_pzObject != nullptr; }
  friend bool operator==(const KivSharedPtr& a, const KivSharedPtr& b) noexcept { return a.m_pzObject == b.m_pzObject; }
  friend bool operator==(const KivSharedPtr& a, std::nullptr_t) noexcept { return a.m_pzObject == nullptr; }

 private:
  template <typename U>
  friend class KivSharedPtr;
  friend struct KivSharedPtrTestAccess;
  void AddRef() noexcept {
    if (m_piRef != nullptr) ++(*m_piRef);
  }

  T* m_pzObject = nullptr;
  int32_t* m_piRef = nullptr;
};

}  // namespace kiv
