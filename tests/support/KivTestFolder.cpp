#include "KivTestFolder.h"

#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "KivSysEvent.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kivtest {

TestFolder::TestFolder() {
  std::random_device zRandom;
  m_zPath =
      std::filesystem::temp_directory_path() / ("kivtest-" + std::to_string(zRandom()) + std::to_string(zRandom()));
  std::filesystem::create_directory(m_zPath);
  m_csPath = m_zPath.u16string();
}

namespace {

// One pass and no second tries: what a test still holds open stays. (remove_all of the standard library goes on for
// ever on Windows when an open file keeps its name.)
void RemoveOnce(const std::filesystem::path& zPath) {
  std::error_code zError;
  std::vector<std::filesystem::path> vzEntries;
  if (std::filesystem::is_directory(std::filesystem::symlink_status(zPath, zError)))
    for (std::filesystem::directory_iterator it(zPath, zError), itEnd; !zError && it != itEnd; it.increment(zError))
      vzEntries.push_back(it->path());
  for (const std::filesystem::path& zEntry : vzEntries) RemoveOnce(zEntry);
  std::filesystem::remove(zPath, zError);
}

}  // namespace

TestFolder::~TestFolder() {
  RemoveOnce(m_zPath);
}

kiv::KivWString TestFolder::operator/(const kiv::KivWString& csName) const {
  return m_csPath + kiv::sys::kSeparator + csName;
}

void TestFolder::WriteBytes(const kiv::KivWString& csName, const std::string& strBytes) const {
  std::ofstream zFile(m_zPath / csName, std::ios::binary);
  zFile.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
}

std::string TestFolder::ReadBytes(const kiv::KivWString& csName) const {
  std::ifstream zFile(m_zPath / csName, std::ios::binary);
  std::stringstream zText;
  zText << zFile.rdbuf();
  return zText.str();
}

bool TestFolder::LinkToFolder(const kiv::KivWString& csName, const TestFolder& zTarget) const {
  const kiv::KivWString csLink = *this / csName;
  std::error_code zError;
  std::filesystem::create_directory_symlink(zTarget.m_zPath, m_zPath / csName, zError);
  if (kiv::sys::IsLink(csLink)) return true;
  if (kiv::sys::kSeparator == u'/') return false;
  // The shell's way, and that of the system below Wine, which has neither.
  const auto Slashed = [](kiv::KivWString csPath) {
    for (char16_t& c : csPath)
      if (c == u'\\') c = u'/';
    return csPath;
  };
  kiv::KivWString csVariable;
  std::vector<kiv::KivWString> vcsLines = {u"cmd.exe /c mklink /J \"" + csLink + u"\" \"" + zTarget.Path() + u"\""};
  // The folder for temporary files stands on a drive that leads to the prefix; relative names need no translation.
  vcsLines.push_back(u"\"Z:\\bin\\ln\" -s \"../" + Slashed(zTarget.m_zPath.filename().u16string()) + u"\" \"" + csName +
                     u"\"");
  for (const kiv::KivWString& csLine : vcsLines) {
    kiv::KivSysProcessStart zStart;
    zStart.m_csCommandLine = csLine;
    zStart.m_csFolder = m_csPath;
    kiv::KivSysProcess zProcess = kiv::KivSysProcess::Start(zStart);
    if (zProcess.IsOpen()) zProcess.Wait(kiv::KivSysEvent::kInfinite);
    if (kiv::sys::IsLink(csLink)) return true;
  }
  return false;
}

}  // namespace kivtest
