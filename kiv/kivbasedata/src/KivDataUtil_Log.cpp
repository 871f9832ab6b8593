// The timing log. A line is
//   "%7.3lf,%s,%s\n"   seconds since the first line, memory text, message
// in the ANSI code page, and goes to the system at once. The memory text is four decimal numbers of width 10
// ("%10I64d,%10I64d,%10I64d,%10I64d"): working set, its peak, page file usage, its peak.
#include <algorithm>
#include <cinttypes>
#include <limits>

#include "KivDataUtil.h"
#include "KivDataUtil_Format.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

struct TimingLog {
  bool m_bTimeBase = false;
  uint32_t m_iTimeBase = 0;
  KivSysFile m_zFile;
  KivWString m_csPath;
  uint64_t m_iEnd = 0;  // behind the last whole line
};

// Never destroyed: a report may come from the destructor of another process-wide object.
TimingLog& State() {
  static TimingLog& zLog = *new TimingLog;
  return zLog;
}

// Others may read the log, and not write it.
KivSysFile OpenLog(const KivWString& csPath, KivSysDisposition iDisposition) {
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::Write;
  zMode.m_iShare = KivSysShare::Read;
  zMode.m_iDisposition = iDisposition;
  return KivSysFile::Open(csPath, zMode);
}

bool StartLog(TimingLog& zLog) {
  zLog.m_csPath = KivGetWorkFolder() + sys::kSeparator + u"KivLog" +
                  KivWidenAscii(std::to_string(sys::CurrentProcessNumber())) + u".txt";
  sys::RemoveFileAt(zLog.m_csPath);
  zLog.m_zFile = OpenLog(zLog.m_csPath, KivSysDisposition::CreateAlways);
  zLog.m_iEnd = 0;
  return zLog.m_zFile.IsOpen();
}

// All or nothing: a line that does not fit on the disk leaves no part of itself.
void AppendLine(TimingLog& zLog, const std::string& strLine) {
  size_t nWritten = 0;
  while (nWritten < strLine.size()) {
    const size_t nRest = strLine.size() - nWritten;
    const uint32_t nPart = static_cast<uint32_t>(std::min<size_t>(nRest, std::numeric_limits<int32_t>::max()));
    uint32_t nDone = 0;
    if (!zLog.m_zFile.WriteAt(zLog.m_iEnd + nWritten, strLine.data() + nWritten, nPart, nDone) || nDone == 0) {
      zLog.m_zFile.SetLength(zLog.m_iEnd);
      return;
    }
    nWritten += nDone;
  }
  zLog.m_iEnd += strLine.size();
}

std::string ToAnsiText(const KivWString& csText) {
  return sys::WideToAnsi(KivWStringView(csText).substr(0, csText.find(u'\0')));
}

}  // namespace

void KivWriteLog(const KivWString& csMessage) {
  TimingLog& zLog = State();
  const uint32_t iNow = KivGetTimeMs();
  if (!zLog.m_bTimeBase) {
    zLog.m_iTimeBase = iNow;
    zLog.m_bTimeBase = true;
  }
  if (!zLog.m_zFile.IsOpen() && !StartLog(zLog)) return;
  const double dSeconds = (iNow - zLog.m_iTimeBase) / 1000.0;
  AppendLine(zLog, KivFormatText("%7.3lf,%s,%s\n", dSeconds, ToAnsiText(KivGetMemoryText()).c_str(),
                                 ToAnsiText(csMessage).c_str()));
}

void KivLogNumber(int32_t iNumber, const KivWString& csMessage) {
  // "%ld,%s"
  KivWriteLog(KivWidenAscii(std::to_string(iNumber)) + u"," + csMessage);
}

void KivLogDouble(double dNumber, const KivWString& csMessage) {
  // "%.4lf,%s"
  KivWriteLog(KivWidenAscii(KivFormatText("%.4lf,", dNumber)) + csMessage);
}

KivCopyLogResult KivCopyLog(const KivWString& csTarget) {
  TimingLog& zLog = State();
  if (!zLog.m_zFile.IsOpen()) return KivCopyLogResult::NoLogOpen;
  zLog.m_zFile.Close();
  if (KivFileExists(csTarget)) return KivCopyLogResult::TargetExists;
  if (!sys::CopyFileTo(zLog.m_csPath, csTarget)) return KivCopyLogResult::NotCopied;
  zLog.m_zFile = OpenLog(zLog.m_csPath, KivSysDisposition::OpenAlways);
  if (zLog.m_zFile.IsOpen() && !zLog.m_zFile.GetLength(zLog.m_iEnd)) zLog.m_zFile.Close();
  return KivCopyLogResult::Done;
}

void KivCloseLog() {
  TimingLog& zLog = State();
  if (!zLog.m_zFile.IsOpen()) return;
  zLog.m_zFile.Close();
  sys::RemoveFileAt(zLog.m_csPath);
}

KivWString KivGetMemoryText() {
  KivSysMemoryCounters zCounters;
  if (!sys::MemoryCounters(zCounters)) zCounters = KivSysMemoryCounters();
  return KivWidenAscii(
      KivFormatText("%10" PRId64 ",%10" PRId64 ",%10" PRId64 ",%10" PRId64,
                    static_cast<int64_t>(zCounters.m_iWorkingSet), static_cast<int64_t>(zCounters.m_iPeakWorkingSet),
                    static_cast<int64_t>(zCounters.m_iPageFile), static_cast<int64_t>(zCounters.m_iPeakPageFile)));
}

}  // namespace kiv
