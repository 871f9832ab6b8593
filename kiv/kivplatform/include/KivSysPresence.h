// The existence test for a delete-on-close file that is asked for again and again, such as the marker of a process.
#pragma once

#include <cstdint>

#include "KivSysText.h"

namespace kiv {

// Answers as sys::PathExists does. Linux keeps the file open between the questions, which nobody can see and which
// saves most of their cost. Not copyable.
class KivSysPresence {
 public:
  KivSysPresence() noexcept = default;
  KivSysPresence(const KivSysPresence&) = delete;
  KivSysPresence& operator=(const KivSysPresence&) = delete;
  ~KivSysPresence();

  // Always asked with the same path.
  bool Exists(const KivWString& csPath);

 private:
  void Forget() noexcept;

  static constexpr intptr_t kNoHandle = -1;
  intptr_t m_iHandle = kNoHandle;
};

}  // namespace kiv
