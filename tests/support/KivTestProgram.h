// A copy of this test program in a folder of its own, for rules about what stands beside the program.
#pragma once

#include <filesystem>

#include "KivTestChild.h"
#include "KivTestFolder.h"

namespace kivtest {

class TestProgram {
 public:
  // A name without the suffix of programs.
  explicit TestProgram(const kiv::KivWString& csName = u"program");

  // The folder that the copy stands in.
  const TestFolder& Folder() const { return m_zFolder; }
  const kiv::KivWString& Path() const { return m_csProgram; }
  // Runs a child body in the copy to its end and gives its exit code; -1 if it could not be started.
  int32_t Run(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs = {}) const;
  // Starts it without waiting.
  kiv::KivSysProcess Start(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs = {}) const;

 private:
  TestFolder m_zFolder;
  kiv::KivWString m_csProgram;
};

}  // namespace kivtest

// For child bodies: says on standard error what does not hold, and ends the body with 1.
#define CHILD_CHECK(condition)                                                     \
  do {                                                                             \
    if (!(condition)) return kivtest::ChildFailed(#condition, __FILE__, __LINE__); \
  } while (false)

namespace kivtest {
int ChildFailed(const char* szCondition, const char* szFile, int iLine);
}
