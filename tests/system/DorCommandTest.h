// The dor command, run in a folder with a model.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "DorTreeTest.h"
#include "KivSysFolder.h"

namespace kivtest {

class DorCommand : public testing::Test {
 protected:
  void SetUp() override {
    WriteModelFile(m_zFolder / u"model.kiv");
    WriteModelFile(m_zFolder / u"-1.kiv");
    WriteFile(m_zFolder / u"no model", "text");
  }

  // The exit code of the command with these arguments, run in the test's folder.
  int32_t Run(const kiv::KivWString& csArguments) {
    kiv::KivSysProcessStart zStart;
    zStart.m_csCommandLine = Program() + u" " + csArguments;
    zStart.m_csFolder = m_zFolder.Path();
    kiv::KivSysProcess zProcess = kiv::KivSysProcess::Start(zStart);
    return EndOf(zProcess);
  }

  // Its standard output.
  std::string Output(const kiv::KivWString& csArguments, int* piResult = nullptr) {
    const kiv::KivWString csFile = m_zFolder / u"output.txt";
    std::string strLine = kiv::sys::WideToUtf8(Program() + u" " + csArguments + u" >\"" + csFile + u"\" 2>&1");
    if (kiv::sys::kSeparator == u'\\') strLine = "\"" + strLine + "\"";  // the shell there takes off one pair of quotes
    const int iResult = std::system(strLine.c_str());
    if (piResult != nullptr) *piResult = iResult;
    std::ifstream zFile(kiv::sys::WideToUtf8(csFile));
    std::stringstream zText;
    zText << zFile.rdbuf();
    return zText.str();
  }

  // Why a file of the folder is not opened, in the command's words.
  std::string Why(const kiv::KivWString& csName, const kiv::KivWString& csCommand = u"open") {
    const std::string strHead = "dor: " + kiv::sys::WideToUtf8(m_zFolder / csName) + ": ";
    const std::string strText = Output(csCommand + u" \"" + (m_zFolder / csName) + u"\"");
    EXPECT_TRUE(strText.starts_with(strHead) && strText.ends_with("\n")) << strText;
    return strText.size() > strHead.size() ? strText.substr(strHead.size(), strText.size() - strHead.size() - 1) : "";
  }

  static kiv::KivWString Program() {
    kiv::KivWString csFolder, csName;
    kiv::KivSplitPath(RealPrograms(TestFolder()).m_csRelay, csFolder, csName);
    return u"\"" + Join(csFolder, u"dor" + kiv::KivWString(kiv::sys::kExecutableSuffix)) + u"\"";
  }
  kiv::KivWString Model() { return u"\"" + (m_zFolder / u"model.kiv") + u"\""; }

  TestFolder m_zFolder;
};

inline bool Holds(const std::string& strText, const std::string& strPart) {
  return strText.find(strPart) != std::string::npos;
}

}  // namespace kivtest
