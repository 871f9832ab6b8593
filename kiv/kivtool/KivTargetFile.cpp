#include "KivTargetFile.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "KivSceneReader.h"
#include "KivSysFile.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivSysTerminal.h"
#include "KivToolError.h"
#include "KivToolOutput.h"

namespace kiv {
namespace {

constexpr int kTemporaryNames = 100;
constexpr size_t kLongName = 200;  // bytes; a name may have 255
// What the store makes beside a file while it is built, what a reader leaves, and what an export gathers.
constexpr const char16_t* kSideSuffixes[] = {u".urf", u".scene", u".bin"};

bool IsSameFile(const KivWString& csA, const KivWString& csB) {
  const auto zA = sys::FindFileIdentity(csA);
  return csA == csB || (zA && zA == sys::FindFileIdentity(csB));
}

bool IsTaken(const KivWString& csPath) {
  return sys::PathExists(csPath) || sys::IsLink(csPath);
}

// Neither the name nor those of what comes up beside it are another's.
bool IsFree(const KivWString& csStem) {
  return !IsTaken(csStem) && std::none_of(std::begin(kSideSuffixes), std::end(kSideSuffixes),
                                          [&](const char16_t* sz) { return IsTaken(csStem + sz); });
}

// The target's own name, or a short one where that leaves no room for what comes behind it.
KivWString StemOf(const KivWString& csTarget) {
  const size_t iSeparator = csTarget.find_last_of(KivWString(u"/") + sys::kSeparator);
  const size_t iName = iSeparator == KivWString::npos ? 0 : iSeparator + 1;
  const bool bLong = sys::WideToUtf8(csTarget.substr(iName)).size() > kLongName;
  return (bLong ? csTarget.substr(0, iName) + u"kiv" : csTarget) + u".part" +
         sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber()));
}

bool CanMake(const KivWString& csPath) {
  const KivSysFile zFile = KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew, KivSysFileFlags::None});
  return zFile.IsOpen();
}

}  // namespace

void KivCheckTargetName(const KivWString& csTarget, const KivWString& csSuffix) {
  if (csTarget.empty()) throw KivToolError("the target has no name");
  if (KivLowerSuffix(csTarget) != csSuffix)
    throw KivToolError(KivShown(csTarget) + ": the target must end in ." + sys::WideToUtf8(csSuffix));
}

KivTargetFile::KivTargetFile(const KivWString& csTarget, bool bForce, const std::vector<KivWString>& vcsSource)
    : m_csTarget(csTarget), m_bForce(bForce), m_vcsSource(vcsSource) {
  CheckTarget();
  const KivWString csStem = StemOf(m_csTarget);
  for (int i = 0; i < kTemporaryNames; ++i) {
    const KivWString csName = csStem + (i == 0 ? KivWString() : u"-" + sys::Utf8ToWide(std::to_string(i)));
    if (!IsFree(csName)) continue;
    if (!CanMake(csName)) break;
    sys::RemoveFileAt(csName);
    m_csTemporary = csName;
    return;
  }
  throw KivToolError(KivShown(m_csTarget) + ": cannot be written");
}

KivTargetFile::~KivTargetFile() {
  if (m_csTemporary.empty()) return;
  RemoveTemporary();
}

bool KivTargetFile::RemoveTemporary() const {
  sys::RemoveFileAt(m_csTemporary);
  bool bGone = !sys::PathExists(m_csTemporary);
  for (const char16_t* szSuffix : kSideSuffixes) {
    sys::RemoveFileAt(m_csTemporary + szSuffix);
    bGone = bGone && !sys::PathExists(m_csTemporary + szSuffix);
  }
  return bGone;
}

bool KivTargetFile::Abandon() {
  const std::lock_guard zGuard(m_zLock);
  return !m_bCommitted && RemoveTemporary();
}

void KivTargetFile::CheckTarget() const {
  if (m_csTarget.empty()) throw KivToolError("the target has no name");
  const std::string strTarget = KivShown(m_csTarget);
  if (sys::FolderExists(m_csTarget)) throw KivToolError(strTarget + ": is a folder");
  // Another's device or pipe is never replaced, and a look into it might wait for ever.
  if (sys::IsNoRegularFile(m_csTarget)) throw KivToolError(strTarget + ": is no regular file");
  for (const KivWString& csSource : m_vcsSource)
    if (IsSameFile(csSource, m_csTarget)) throw KivToolError(strTarget + ": is the source itself");
  if (!m_bForce && IsTaken(m_csTarget)) throw KivToolError(strTarget + ": exists (--force replaces it)");
}

void KivTargetFile::Commit() {
  {
    const std::lock_guard zGuard(m_zLock);
    if (sys::IsStopRequested()) throw KivToolError("stopped");
    m_bCommitted = true;
  }
  CheckTarget();
  sys::TakePermissionsFor(m_csTemporary, m_csTarget);  // else it stays the user's own
  const int32_t iResult =
      m_bForce ? sys::ReplacePath(m_csTemporary, m_csTarget) : sys::RenamePath(m_csTemporary, m_csTarget);
  if (iResult == 0) {
    RemoveTemporary();
    m_csTemporary.clear();
    return;
  }
  CheckTarget();
  throw KivToolError(KivShown(m_csTarget) + ": cannot be put in its place");
}

}  // namespace kiv
