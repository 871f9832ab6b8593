// What processes and jobs of the Linux backend share.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "KivSysPosix.h"

namespace kiv::sys::posix {

// A descriptor of the process; -1 with errno set on failure, and where older kernels are to be taken.
int OpenPidFd(pid_t iId);

// What a KivSysProcess holds.
struct ChildObject {
  pid_t m_iId = 0;
  Descriptor m_zPidFd;
  uint64_t m_iStartTicks = 0;
  bool m_bEnded = false;
  bool m_bCodeKnown = false;
  bool m_bAssignPending = false;  // in the group of a job since its start, but not assigned yet
  int32_t m_iCode = 0;

  bool HasEnded() noexcept;
};

inline ChildObject* ChildOf(intptr_t iHandle) {
  return reinterpret_cast<ChildObject*>(iHandle);
}

// The process group that a start with this job's name joins; 0 if there is none.
pid_t GroupOfJob(const KivWString& csName);

}  // namespace kiv::sys::posix
