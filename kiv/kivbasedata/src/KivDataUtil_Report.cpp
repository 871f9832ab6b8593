#include <climits>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <utility>

#include "KivDataUtil.h"
#include "KivDataUtil_Format.h"
#include "KivException.h"
#include "KivFormatRegistry.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataUtil";
constexpr size_t kSystemLogLimit = 16000;  // UTF-16 units
constexpr uint64_t kFilterFileLimit = 16u << 20;

// The frames that a report leaves out: CaptureStack and the function that calls it.
constexpr uint32_t kOwnFrames = 2;

KivReportSwitches g_zSwitches;
const KivWString& g_csNoText = *new KivWString;  // never destroyed, as all that reports use
uint64_t g_nReports = 0;

struct AppName {
  bool m_bSet = false;
  KivWString m_csName;
};

AppName& TheAppName() {
  static AppName& zName = *new AppName;
  return zName;
}

const char* OrEmpty(const char* szText) {
  return szText != nullptr ? szText : "";
}

// "<source>(<line>) <condition>"
std::string ShortText(const char* szCondition, const char* szSource, int32_t iLine) {
  return OrEmpty(szSource) + KivFormatText("(%d) ", iLine) + OrEmpty(szCondition);
}

KivWString FullText(const KivWString& csMessage, const KivWString& csFile, int32_t iLine, const KivWString& csStack) {
  // "Exception occured.\n  File name:%s\n  Line number:%d\n  Message:%s\n  Call stack:\n%s\n"
  KivWString csText = u"Exception occured.\n  File name:";
  csText += csFile;
  csText += u"\n  Line number:";
  csText += KivWidenAscii(std::to_string(iLine));
  csText += u"\n  Message:";
  csText += csMessage;
  csText += u"\n  Call stack:\n";
  csText += csStack;
  csText += u"\n";
  return csText;
}

// Does the step, and gives false where it fails: nothing on the way of a report may hide the failure that is reported.
template <typename Step>
bool Attempt(Step&& pfnStep) noexcept {
  try {
    pfnStep();
    return true;
  } catch (...) {
    return false;
  }
}

// Writes the one full account of a process; without the stack, if its text cannot be had.
template <typename StackText>
void Record(const KivWString& csMessage, const KivWString& csFile, int32_t iLine, StackText&& pfnStackText) noexcept {
  KivWString csStack;
  Attempt([&] { csStack = pfnStackText(); });
  KivWString csText;
  if (!Attempt([&] { csText = FullText(csMessage, csFile, iLine, csStack); })) return;
  Attempt([&] { KivLogNumber(0, csText); });
  Attempt([&] {
    const KivWString& csName = KivGetAppName();
    sys::WriteSystemLog(csName.empty() ? KivWString(u"KivBase") : csName, csText.substr(0, kSystemLogLimit));
  });
}

// --- Filter ---------------------------------------------------------------------------------------------------------

using FilterList = std::map<KivWString, std::set<int32_t>>;

// True while the filter's own report is being made, which is not filtered.
bool g_bReportingFilter = false;

void CheckFormatRegistered() {
  struct Scope {
    bool m_bBefore = std::exchange(g_bReportingFilter, true);
    ~Scope() { g_bReportingFilter = m_bBefore; }
  } zScope;
  KIV_CHECK(IsInitialized());
}

// Blanks, a sign, digits; clamped to 32 bits; 0 for anything else.
int32_t ParseNumber(KivWStringView csText) {
  size_t i = 0;
  while (i < csText.size() && (csText[i] == u' ' || (csText[i] >= u'\t' && csText[i] <= u'\r'))) ++i;
  const bool bNegative = i < csText.size() && csText[i] == u'-';
  if (i < csText.size() && (csText[i] == u'-' || csText[i] == u'+')) ++i;
  int64_t iValue = 0;
  for (; i < csText.size() && csText[i] >= u'0' && csText[i] <= u'9'; ++i)
    if (iValue <= INT_MAX) iValue = iValue * 10 + (csText[i] - u'0');
  if (bNegative) iValue = -iValue;
  return static_cast<int32_t>(iValue > INT_MAX ? INT_MAX : iValue < INT_MIN ? INT_MIN : iValue);
}

// Empty if the file is missing, cannot be read, or is too large to be such a list.
std::string ReadFilterFile() {
  KivWString csProgram;
  if (!sys::ProgramPath(csProgram)) return std::string();
  KivWString csFolder;
  KivWString csName;
  KivSplitPath(csProgram, csFolder, csName);
  KivSysFile zFile = KivSysFile::Open(csFolder + sys::kSeparator + u"error_config.txt", KivSysOpenMode());
  uint64_t nLength = 0;
  if (!zFile.IsOpen() || !zFile.GetLength(nLength) || nLength > kFilterFileLimit) return std::string();
  std::string strText(nLength, '\0');
  size_t nRead = 0;
  while (nRead < strText.size()) {
    uint32_t nDone = 0;
    if (!zFile.ReadAt(nRead, strText.data() + nRead, static_cast<uint32_t>(strText.size() - nRead), nDone)) {
      return std::string();
    }
    if (nDone == 0) break;
    nRead += nDone;
  }
  strText.resize(nRead);
  return strText;
}

// Each line is "<code>:<name>".
FilterList LoadFilterList() {
  FilterList mapList;
  const KivWString csText = sys::AnsiToWide(ReadFilterFile());
  for (size_t iStart = 0; iStart < csText.size();) {
    size_t iEnd = csText.find(u'\n', iStart);
    if (iEnd == KivWString::npos) iEnd = csText.size();
    KivWStringView csLine = KivWStringView(csText).substr(iStart, iEnd - iStart);
    iStart = iEnd + 1;
    if (csLine.ends_with(u'\r')) csLine.remove_suffix(1);
    const size_t iColon = csLine.find(u':');
    if (iColon == KivWStringView::npos || iColon + 1 == csLine.size()) continue;
    mapList[KivWString(csLine.substr(iColon + 1))].insert(ParseNumber(csLine.substr(0, iColon)));
  }
  return mapList;
}

const FilterList& TheFilterList() {
  static FilterList& mapList = *new FilterList;
  static bool bLoaded = false;
  if (!bLoaded) {
    bLoaded = true;  // a list that cannot be read is not looked for again
    try {
      mapList = LoadFilterList();
    } catch (const std::exception&) {
      mapList.clear();
    }
  }
  return mapList;
}

bool IsSuppressed(const char* szSource, int32_t iLine) {
  if (g_bReportingFilter) return false;
  KivWString csName;
  int32_t iCode = 0;
  KivRewriteReport(szSource, iLine, csName, iCode);
  const FilterList& mapList = TheFilterList();
  const auto itName = mapList.find(csName);
  return itName != mapList.end() && itName->second.contains(iCode);
}

}  // namespace

// --- KivException ---------------------------------------------------------------------------------------------------

struct KivException::Stack {
  KivSysStack m_zFrames;
  // No once-flag: one that is left by an exception blocks for ever on one of the targets.
  std::mutex m_zLock;
  bool m_bTextMade = false;
  KivWString m_csText;
};

[[gnu::noinline]] KivException::KivException(const char* szCondition, const char* szSource, int32_t iLine, bool bRecord)
    : KivException(szCondition, szSource, iLine, bRecord, sys::CaptureStack(kOwnFrames)) {}

KivException::KivException(const char* szCondition, const char* szSource, int32_t iLine, bool bRecord,
                           KivSysStack zStack)
    : m_iLine(iLine) {
  // Without memory the exception holds less, but it is this one.
  Attempt([&] { m_csMessage = sys::Utf8ToWide(OrEmpty(szCondition)); });
  Attempt([&] { m_csFile = sys::Utf8ToWide(OrEmpty(szSource)); });
  Attempt([&] {
    m_pzStack = std::make_shared<Stack>();
    m_pzStack->m_zFrames = std::move(zStack);
  });
  Attempt([&] { m_pzWhat = std::make_shared<const std::string>(ShortText(szCondition, szSource, iLine)); });
  if (bRecord) Record(m_csMessage, m_csFile, m_iLine, [this] { return GetCallStack(); });
}

const KivWString& KivException::GetCallStack() const noexcept {
  if (m_pzStack == nullptr) return g_csNoText;
  Attempt([this] {
    const std::lock_guard zGuard(m_pzStack->m_zLock);
    if (!m_pzStack->m_bTextMade) m_pzStack->m_csText = sys::StackText(m_pzStack->m_zFrames);
    m_pzStack->m_bTextMade = true;
  });
  return m_pzStack->m_csText;
}

const char* KivException::what() const noexcept {
  return m_pzWhat != nullptr ? m_pzWhat->c_str() : "KivException";
}

KivDispatchException::KivDispatchException(uint16_t iCode, KivWString csSource, KivWString csText)
    : m_iCode(iCode), m_csSource(std::move(csSource)), m_csText(std::move(csText)) {
  Attempt([this] { m_pzWhat = std::make_shared<const std::string>(sys::WideToUtf8(m_csText)); });
}

const char* KivDispatchException::what() const noexcept {
  return m_pzWhat != nullptr ? m_pzWhat->c_str() : "KivDispatchException";
}

// --- KivReportFailure -----------------------------------------------------------------------------------------------

uint64_t KivGetReportCount() {
  return g_nReports;
}

[[gnu::noinline]] void KivReportFailure(const char* szCondition, const char* szSource, int32_t iLine) {
  try {
    if (g_zSwitches.m_bFilter && IsSuppressed(szSource, iLine)) return;
  } catch (const std::bad_alloc&) {
    // Not found in the list for want of memory: the report is made.
  }
  const bool bFirst = !std::exchange(g_zSwitches.m_bReported, true);
  ++g_nReports;
  if (!g_zSwitches.m_bDispatchMode) {
    KivException zException(szCondition, szSource, iLine, bFirst, sys::CaptureStack(kOwnFrames));
    if (!g_zSwitches.m_bNoThrow) throw zException;
    return;
  }
  if (bFirst) {
    const KivSysStack zStack = sys::CaptureStack(kOwnFrames);
    KivWString csCondition, csSource;
    Attempt([&] { csCondition = sys::Utf8ToWide(OrEmpty(szCondition)); });
    Attempt([&] { csSource = sys::Utf8ToWide(OrEmpty(szSource)); });
    Record(csCondition, csSource, iLine, [&zStack] { return sys::StackText(zStack); });
  }
  if (g_zSwitches.m_bNoThrow) return;
  KivWString csName, csText;
  Attempt([&] { csName = KivGetAppName(); });
  Attempt([&] { csText = sys::Utf8ToWide(ShortText(szCondition, szSource, iLine)); });
  throw KivDispatchException(1, std::move(csName), std::move(csText));
}

const KivReportSwitches& KivGetReportSwitches() {
  return g_zSwitches;
}
void KivSetReported(bool bOn) {
  g_zSwitches.m_bReported = bOn;
}
void KivSetReportDispatchMode(bool bOn) {
  g_zSwitches.m_bDispatchMode = bOn;
}
void KivSetReportFilter(bool bOn) {
  g_zSwitches.m_bFilter = bOn;
}
void KivSetReportNoThrow(bool bOn) {
  g_zSwitches.m_bNoThrow = bOn;
}

void KivRewriteReport(const char* szSource, int32_t iLine, KivWString& csName, int32_t& iCode) {
  CheckFormatRegistered();
  const uint32_t iCounted = iLine < 0 ? 0 : static_cast<uint32_t>(iLine);
  const uint32_t iUnsigned = KivFormatVersion() % 99 * iCounted + 1024;
  csName = sys::Utf8ToWide(OrEmpty(szSource));
  for (char16_t& cLetter : csName)
    if (cLetter >= u'a' && cLetter <= u'z')
      cLetter = static_cast<char16_t>(u'A' + (static_cast<uint32_t>(cLetter - u'a') + 10 + iUnsigned % 10) % 26);
  iCode = static_cast<int32_t>(iUnsigned);
}

[[gnu::noinline]] void KivGetCallStack(KivWString& csText) {
  csText += sys::StackText(sys::CaptureStack(kOwnFrames));
}

const KivWString& KivGetAppName() {
  AppName& zName = TheAppName();
  if (!zName.m_bSet && zName.m_csName.empty()) zName.m_csName = KivWidenAscii(KivFormatText("KivBase %d.%d", 20, 10));
  return zName.m_csName;
}

void KivSetAppName(const KivWString& csName) {
  AppName& zName = TheAppName();
  zName.m_csName = csName;
  zName.m_bSet = true;
}

}  // namespace kiv
