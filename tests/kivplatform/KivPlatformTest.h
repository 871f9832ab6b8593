// Helpers of the contract tests of the seam.
#pragma once

#include <atomic>
#include <string>

#include "KivSysClock.h"
#include "KivSysEvent.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestChild.h"

namespace kivtest {

constexpr uint32_t kLong = 120'000;  // ms; far longer than anything takes

// A name that no other test process uses at the same time.
inline kiv::KivWString UniqueName(const char* szWhat) {
  static std::atomic<uint32_t> s_iCount{0};
  return kiv::sys::Utf8ToWide("KivTest_" + std::string(szWhat) + "_" +
                              std::to_string(kiv::sys::CurrentProcessNumber()) + "_" +
                              std::to_string(s_iCount.fetch_add(1)));
}

// Looks again and again until the condition holds; false if it does not within kLong.
template <typename Condition>
bool Eventually(Condition&& pfnCondition) {
  for (uint64_t iEnd = kiv::sys::SteadyNs() + uint64_t{kLong} * 1'000'000; kiv::sys::SteadyNs() < iEnd;) {
    if (pfnCondition()) return true;
    kiv::sys::SleepMs(1);
  }
  return false;
}

inline kiv::KivSysFile OpenFile(const kiv::KivWString& csPath, kiv::KivSysAccess iAccess, kiv::KivSysShare iShare,
                                kiv::KivSysDisposition iDisposition,
                                kiv::KivSysFileFlags iFlags = kiv::KivSysFileFlags::None) {
  return kiv::KivSysFile::Open(csPath, {iAccess, iShare, iDisposition, iFlags});
}

// As the processes of a tree make their markers.
inline kiv::KivSysFile MakeMarker(const kiv::KivWString& csPath) {
  return OpenFile(
      csPath, kiv::KivSysAccess::ReadWrite, kiv::KivSysShare::None, kiv::KivSysDisposition::CreateAlways,
      kiv::KivSysFileFlags::Temporary | kiv::KivSysFileFlags::RandomAccess | kiv::KivSysFileFlags::DeleteOnClose);
}

inline kiv::KivSysShare operator|(kiv::KivSysShare a, kiv::KivSysShare b) {
  return static_cast<kiv::KivSysShare>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

// A child that tells by an event that it is ready, and whose end can be had at any time.
class ReadyChild {
 public:
  ReadyChild(const std::string& strBody, std::vector<kiv::KivWString> vcsArgs) {
    const kiv::KivWString csReady = UniqueName("Ready");
    bool bExisted = false;
    const kiv::KivSysEvent zReady = kiv::KivSysEvent::Create(csReady, bExisted);
    vcsArgs.insert(vcsArgs.begin(), csReady);
    m_zProcess = StartTestChild(strBody, vcsArgs);
    m_bReady = m_zProcess.IsOpen() && zReady.Wait(kLong) == kiv::KivSysWait::Signalled;
  }
  bool IsReady() const { return m_bReady; }
  kiv::KivSysProcess& Process() { return m_zProcess; }
  bool Kill() { return m_zProcess.Terminate(1) && m_zProcess.Wait(kLong) == kiv::KivSysWait::Signalled; }

 private:
  kiv::KivSysProcess m_zProcess;
  bool m_bReady = false;
};

// In the child: says so, then waits to be killed.
inline int ReadyUntilKilled(const kiv::KivWString& csReady) {
  kiv::KivSysEvent zReady = kiv::KivSysEvent::Open(csReady);
  if (!zReady.Set()) return 90;
  kiv::sys::SleepMs(10 * kLong);
  return 91;
}

}  // namespace kivtest
