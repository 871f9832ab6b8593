#include "KivTestChild.h"

#include <cstring>
#include <map>

#include "KivSysFolder.h"

namespace kivtest {
namespace {

constexpr char kPrefix[] = "--kiv-child=";

std::map<std::string, ChildBody>& Bodies() {
  static std::map<std::string, ChildBody> mapBodies;
  return mapBodies;
}

std::vector<kiv::KivWString>& Arguments() {
  static std::vector<kiv::KivWString> vcsArguments;
  return vcsArguments;
}

// Arguments travel as hex of their UTF-16 units, so that no quoting rule is in the way.
std::string ToHex(const kiv::KivWString& csText) {
  static const char* const szDigits = "0123456789abcdef";
  std::string strHex = "x";
  for (char16_t c : csText)
    for (int iShift = 12; iShift >= 0; iShift -= 4) strHex += szDigits[(c >> iShift) & 15];
  return strHex;
}

// Empty for an argument that was not made by ToHex.
kiv::KivWString FromHex(const char* szHex) {
  kiv::KivWString csText;
  if (szHex[0] != 'x') return csText;
  for (const char* p = szHex + 1; std::strlen(p) >= 4; p += 4)
    csText += static_cast<char16_t>(std::stoul(std::string(p, 4), nullptr, 16));
  return csText;
}

}  // namespace

ChildRegistration::ChildRegistration(const char* szName, ChildBody pfnBody) {
  Bodies()[szName] = std::move(pfnBody);
}

kiv::KivWString TestChildCommandLine(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs) {
  kiv::KivWString csProgram;
  kiv::sys::ProgramPath(csProgram);
  kiv::KivWString csLine = u"\"" + csProgram + u"\" " + TestChildArgument(strName);
  for (const kiv::KivWString& csArg : vcsArgs) csLine += u" " + kiv::sys::Utf8ToWide(ToHex(csArg));
  return csLine;
}

kiv::KivSysProcess StartTestChild(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs) {
  kiv::KivSysProcessStart zStart;
  zStart.m_csCommandLine = TestChildCommandLine(strName, vcsArgs);
  return kiv::KivSysProcess::Start(zStart);
}

const std::vector<kiv::KivWString>& ProcessArguments() {
  return Arguments();
}

kiv::KivWString TestChildArgument(const std::string& strName) {
  return kiv::sys::Utf8ToWide(kPrefix + strName);
}

bool RunTestChild(int argc, char** argv, int& iCode) {
  for (int i = 0; i < argc; ++i) Arguments().push_back(kiv::sys::Utf8ToWide(argv[i]));
  int iFound = 1;
  while (iFound < argc && std::strncmp(argv[iFound], kPrefix, sizeof kPrefix - 1) != 0) ++iFound;
  if (iFound >= argc) return false;
  const auto itBody = Bodies().find(argv[iFound] + sizeof kPrefix - 1);
  if (itBody == Bodies().end()) {
    iCode = 125;
    return true;
  }
  std::vector<kiv::KivWString> vcsArgs;
  for (int i = iFound + 1; i < argc; ++i) vcsArgs.push_back(FromHex(argv[i]));
  iCode = itBody->second(vcsArgs);
  return true;
}

}  // namespace kivtest
