#include <atomic>

#include "KivDataUtil.h"
#include "KivSysClock.h"
#include "KivSysDiag.h"
#include "KivSysFolder.h"
#include "KivSysLocale.h"
#include "KivSysResource.h"

namespace kiv {
namespace {

constexpr uint32_t kLastPeriod = 99;
constexpr uint32_t kDefaultGranularity = 0x10000;

std::atomic<uint32_t> g_nReadQueueUrgent{0};
std::atomic<uint32_t> g_nReadQueueIdle{0};

uint32_t FindTimerPeriod() {
  for (uint32_t iPeriod = 1; iPeriod <= kLastPeriod; ++iPeriod)
    if (sys::AcceptsTimerPeriod(iPeriod)) return iPeriod;
  return 0;
}

// An empty configured domain differs from every one.
bool DiffersFromConfigured(const KivWString& csDomain) {
  const KivWString csConfigured = sys::Utf8ToWide(KIV_DNS_DOMAIN);
  return csConfigured.empty() || csDomain != csConfigured;
}

}  // namespace

uint32_t KivGetTimeMs() {
  static const uint32_t iPeriod = FindTimerPeriod();
  return iPeriod != 0 ? sys::TimeMsWithPeriod(iPeriod) : sys::TimeMs();
}

bool KivIsTimeOver(uint32_t iDeadline) {
  return iDeadline != 0 && KivGetTimeMs() > iDeadline;
}

void KivGetWindowsVersion(uint32_t& iMajor, uint32_t& iMinor) {
  struct Version {
    uint32_t m_iMajor = 0;
    uint32_t m_iMinor = 0;
    Version() { sys::SystemVersion(m_iMajor, m_iMinor); }
  };
  static const Version zVersion;
  iMajor = zVersion.m_iMajor;
  iMinor = zVersion.m_iMinor;
}

uint32_t KivGetAllocationGranularity() {
  static const uint32_t iSystem = sys::AllocationGranularity();
  return iSystem != 0 ? iSystem : kDefaultGranularity;
}

bool KivHasDataResource() {
  static const bool bHas = sys::HasKivDataResource();
  return bHas;
}

bool KivIsDeveloperMode() {
  KivWString csProgram;
  if (sys::ProgramPath(csProgram)) {
    KivWString csFolder;
    KivWString csName;
    KivSplitPath(csProgram, csFolder, csName);
    if (!KivFileExists(csFolder + sys::kSeparator + u"_DeveloperMode")) return false;
  }
  for (const sys::KivSysDomain iDomain : {sys::KivSysDomain::Logical, sys::KivSysDomain::Physical}) {
    KivWString csDomain;
    if (sys::DnsDomain(iDomain, csDomain) && DiffersFromConfigured(csDomain)) return false;
  }
  return true;
}

void KivCheckHeaps(bool bOn) {
  static bool bCheck = false;
  bCheck = bCheck || bOn;
  if (bCheck) sys::ValidateHeaps();
}

void KivSetReadQueueSizes(uint32_t nUrgent, uint32_t nIdle) {
  g_nReadQueueUrgent = nUrgent;
  g_nReadQueueIdle = nIdle;
}

void KivGetReadQueueSizes(uint32_t& nUrgent, uint32_t& nIdle) {
  nUrgent = g_nReadQueueUrgent;
  nIdle = g_nReadQueueIdle;
}

}  // namespace kiv
