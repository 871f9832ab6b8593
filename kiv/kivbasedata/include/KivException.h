// The one way of saying that something is wrong: KivReportFailure.
//
// A report names the failed condition as text, the source and the line. The first report of a process is recorded in
// full, with its call stack, in the timing log and the system log; every report throws KivException unless the host
// turned the no-throw switch on. Code behind a report is what such a host sees.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "KivSysDiag.h"
#include "KivSysText.h"

namespace kiv {

// Thrown by value. Copies share the call stack, which is turned into text when it is first asked for. Where memory is
// short an exception is made all the same, with those of its texts that could be had.
class KivException : public std::exception {
 public:
  // bRecord writes the report to the timing log and the system log. No failure of theirs leaves the constructor.
  KivException(const char* szCondition, const char* szSource, int32_t iLine, bool bRecord);

  const KivWString& GetMessageText() const noexcept { return m_csMessage; }  // the condition; "0" where none is tested
  const KivWString& GetFile() const noexcept { return m_csFile; }            // such as "src\KivDataUtil"
  int32_t GetLine() const noexcept { return m_iLine; }
  const KivWString& GetCallStack() const noexcept;  // empty if there is no memory for it
  // "<source>(<line>) <condition>" in UTF-8.
  const char* what() const noexcept override;

 private:
  friend void KivReportFailure(const char* szCondition, const char* szSource, int32_t iLine);
  struct Stack;
  KivException(const char* szCondition, const char* szSource, int32_t iLine, bool bRecord, KivSysStack zStack);

  KivWString m_csMessage;
  KivWString m_csFile;
  int32_t m_iLine = 0;
  std::shared_ptr<Stack> m_pzStack;
  std::shared_ptr<const std::string> m_pzWhat;
};

// What a report throws in dispatch mode, for hosts behind an automation interface.
class KivDispatchException : public std::exception {
 public:
  KivDispatchException(uint16_t iCode, KivWString csSource, KivWString csText);

  uint16_t GetCode() const noexcept { return m_iCode; }
  const KivWString& GetSource() const noexcept { return m_csSource; }  // name from KivGetAppName
  const KivWString& GetText() const noexcept { return m_csText; }      // "<source>(<line>) <condition>"
  const char* what() const noexcept override;

 private:
  uint16_t m_iCode;
  KivWString m_csSource;
  KivWString m_csText;
  std::shared_ptr<const std::string> m_pzWhat;
};

// Reports that szCondition failed at a line of a source. Throws KivException (or KivDispatchException in dispatch
// mode); returns only with the no-throw switch on or when the filter suppresses this report.
void KivReportFailure(const char* szCondition, const char* szSource, int32_t iLine);

// The four process-wide switches, all off at the start. They have no lock.
struct KivReportSwitches {
  bool m_bReported = false;      // a report has been made in this process
  bool m_bDispatchMode = false;  // throw KivDispatchException
  bool m_bFilter = false;        // consult error_config.txt in the executable's folder
  bool m_bNoThrow = false;       // make the report and return to the caller
};
const KivReportSwitches& KivGetReportSwitches();
void KivSetReported(bool bOn);
void KivSetReportDispatchMode(bool bOn);
void KivSetReportFilter(bool bOn);
void KivSetReportNoThrow(bool bOn);
// Reports that this process has made, those aside that the filter suppressed.
uint64_t KivGetReportCount();

// Rewrites a source name and a line into the public form that error_config.txt lists: lowercase letters are replaced
// by shifted uppercase ones, the line by a code that depends on the registered format version.
void KivRewriteReport(const char* szSource, int32_t iLine, KivWString& csName, int32_t& iCode);

// Appends the calling thread's stack, a line for each frame.
void KivGetCallStack(KivWString& csText);

// The event source's name, "KivBase 20.10" unless set.
const KivWString& KivGetAppName();
void KivSetAppName(const KivWString& csName);

}  // namespace kiv

// Checks of conditions. A source file that uses them defines its name once, in its own namespace scope:
//   namespace { constexpr char kSource[] = "src\\KivDataUtil"; }
// KIV_CHECK reports a false condition with the text of the condition as it stands in the code, and gives its value:
//   if (!KIV_CHECK(pSnapShot != NULL)) return 10;
// KIV_CHECK_AS gives the text apart, where the code says it in other words. KIV_FAIL reports "0".
#define KIV_CHECK_AS(condition, text) \
  (static_cast<bool>(condition) ? true : (::kiv::KivReportFailure(text, kSource, __LINE__), false))
#define KIV_CHECK(condition) KIV_CHECK_AS(condition, #condition)
#define KIV_FAIL() ::kiv::KivReportFailure("0", kSource, __LINE__)
