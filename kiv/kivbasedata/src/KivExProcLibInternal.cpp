#include "KivExProcLibInternal.h"

#include <limits>

#include "KivSysFolder.h"

namespace kiv {

KivExProcState& KivExProcState::GetInstance() {
  static KivExProcState zState;
  return zState;
}

KivWString KivExProcDecimal(int64_t iValue) {
  return sys::Utf8ToWide(std::to_string(iValue));
}

int32_t KivExProcNumber(const KivWString& csText) {
  size_t i = 0;
  while (i < csText.size() && (csText[i] == u' ' || (csText[i] >= u'\t' && csText[i] <= u'\r'))) ++i;
  bool bNegative = false;
  if (i < csText.size() && (csText[i] == u'-' || csText[i] == u'+')) bNegative = csText[i++] == u'-';
  constexpr int64_t iLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  int64_t iValue = 0;
  for (; i < csText.size() && csText[i] >= u'0' && csText[i] <= u'9'; ++i) {
    iValue = iValue * 10 + (csText[i] - u'0');
    if (iValue > iLimit) iValue = iLimit;
  }
  if (bNegative) return static_cast<int32_t>(-iValue);
  return static_cast<int32_t>(iValue < iLimit ? iValue : iLimit - 1);
}

bool KivExProcParse(const std::vector<KivWString>& vcsArguments, KivExProcArguments& zArguments) {
  zArguments = KivExProcArguments();
  for (size_t i = 1; i < vcsArguments.size(); ++i) {
    const KivWString& csArgument = vcsArguments[i];
    if (csArgument.empty() || csArgument[0] != u'-') return false;
    if (csArgument.size() < 2) continue;
    const KivWString csValue = csArgument.substr(2);
    switch (csArgument[1]) {
      case u'j':
        zArguments.m_csJobName = csValue;
        break;
      case u'p':
        zArguments.m_iParentPid = KivExProcNumber(csValue);
        break;
      case u'r':
        zArguments.m_csRootFolder = csValue;
        break;
      default:
        break;
    }
  }
  return true;
}

KivWString KivExProcPath(const KivWString& csFolder, const KivWString& csName) {
  return csFolder + sys::kSeparator + csName;
}

KivWString KivExProcProcessFolder(const KivWString& csRoot) {
  return KivExProcPath(csRoot, u"Process");
}

KivWString KivExProcMarkerPath(const KivWString& csRoot, const KivWString& csPid) {
  return KivExProcPath(KivExProcProcessFolder(csRoot), u"KivProc" + csPid);
}

KivWString KivExProcPairFolder(const KivWString& csRoot, const KivWString& csWriter, const KivWString& csReader) {
  return KivExProcPath(csRoot, u"KivExProc_" + csWriter + u"-" + csReader);
}

KivWString KivExProcEventName(const KivWString& csFirst, const KivWString& csSecond) {
  return u"KivExProcEvent_" + csFirst + u"-" + csSecond;
}

KivWString KivExProcCommandLine(const KivWString& csExecutable, const KivWString& csRoot, const KivWString& csPid,
                                const KivWString& csJobName, const KivWString& csExtraArguments) {
  return u"\"" + csExecutable + u"\" -r\"" + csRoot + u"\" -p\"" + csPid + u"\" -j\"" + csJobName + u"\" " +
         csExtraArguments + u" ";
}

KivSysFile KivExProcMakeMarker(const KivWString& csPath) {
  return KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
               KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose});
}

int32_t KivExProcJoinParent(KivExProcState& zState) {
  const auto Result = [](KivExProcRunResult iResult) { return static_cast<int32_t>(iResult); };
  const KivWString csReady = KivExProcPath(zState.m_csOutputFolder, u"EventReady");
  // Neither side of the handshake sleeps: a start is short.
  while (!sys::PathExists(csReady))
    if (!sys::PathExists(zState.m_csParentProcessFile)) return Result(KivExProcRunResult::ParentGone);

  if (!zState.m_zOutputFile.Owner().Create(KivExProcPath(zState.m_csOutputFolder, u"output")))
    return Result(KivExProcRunResult::OutputNotMade);
  zState.m_hRequestEvent = KivSysEvent::Open(KivExProcEventName(zState.m_csParentPid, zState.m_csPid));
  if (!zState.m_hRequestEvent.IsOpen()) return Result(KivExProcRunResult::RequestEventNotOpen);
  zState.m_hAnswerEvent = KivSysEvent::Open(KivExProcEventName(zState.m_csPid, zState.m_csParentPid));
  if (!zState.m_hAnswerEvent.IsOpen()) return Result(KivExProcRunResult::AnswerEventNotOpen);
  do {
    sys::RemoveFileAt(csReady);
  } while (sys::PathExists(csReady));
  return Result(KivExProcRunResult::Done);
}

}  // namespace kiv
