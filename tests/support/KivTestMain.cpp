#include <gtest/gtest.h>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestChild.h"

namespace {

// The first report of a process writes a log, and with it a generated work folder beside the program. Programs leave
// it for a later clean-up; tests take it away themselves.
void RemoveOwnWorkFolder() {
  kiv::KivCloseLog();
  kiv::KivWString csProgram;
  kiv::KivWString csFolder;
  kiv::KivWString csName;
  if (!kiv::sys::ProgramPath(csProgram)) return;
  kiv::KivSplitPath(csProgram, csFolder, csName);
  const std::string strNumber = std::to_string(kiv::sys::CurrentProcessNumber());
  const kiv::KivWString csEnd = u"-" + kiv::KivWString(strNumber.begin(), strNumber.end());
  std::vector<kiv::KivSysFolderEntry> vzEntries;
  kiv::sys::ListFolder(csFolder, vzEntries);
  for (const kiv::KivSysFolderEntry& zEntry : vzEntries)
    if (zEntry.m_csName.starts_with(u"ZUR_TMP_FOLDER-") && zEntry.m_csName.ends_with(csEnd))
      kiv::KivRemoveTree(csFolder + kiv::sys::kSeparator + zEntry.m_csName);
}

}  // namespace

int main(int argc, char** argv) {
  int iCode = 0;
  if (!kivtest::RunTestChild(argc, argv, iCode)) {
    testing::InitGoogleTest(&argc, argv);
    kiv::KivSetReported(true);  // see RecordsReports
    iCode = RUN_ALL_TESTS();
  }
  RemoveOwnWorkFolder();
  return iCode;
}
