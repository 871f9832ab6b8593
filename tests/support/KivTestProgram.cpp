#include "KivTestProgram.h"

#include <cstdio>

#include "KivSysFolder.h"

namespace kivtest {

TestProgram::TestProgram(const kiv::KivWString& csName) {
  kiv::KivWString csSelf;
  kiv::sys::ProgramPath(csSelf);
  m_csProgram = m_zFolder / (csName + kiv::KivWString(kiv::sys::kExecutableSuffix));
  std::error_code zError;
  std::filesystem::create_hard_link(std::filesystem::path(csSelf), std::filesystem::path(m_csProgram), zError);
  if (zError) std::filesystem::copy_file(std::filesystem::path(csSelf), std::filesystem::path(m_csProgram));
}

kiv::KivSysProcess TestProgram::Start(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs) const {
  // The same command line with the other program in its first, quoted part.
  const kiv::KivWString csLine = TestChildCommandLine(strName, vcsArgs);
  kiv::KivSysProcessStart zStart;
  zStart.m_csCommandLine = u"\"" + m_csProgram + csLine.substr(csLine.find(u'"', 1));
  return kiv::KivSysProcess::Start(zStart);
}

int32_t TestProgram::Run(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs) const {
  kiv::KivSysProcess zProcess = Start(strName, vcsArgs);
  int32_t iCode = -1;
  if (!zProcess.IsOpen() || zProcess.Wait(kiv::KivSysEvent::kInfinite) != kiv::KivSysWait::Signalled) return -1;
  return zProcess.GetExitCode(iCode) ? iCode : -1;
}

int ChildFailed(const char* szCondition, const char* szFile, int iLine) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", szFile, iLine, szCondition);
  return 1;
}

}  // namespace kivtest
