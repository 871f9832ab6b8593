#include "KivTestFolder.h"

#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "KivSysClock.h"
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

void RunIn(const kiv::KivWString& csFolder, const kiv::KivWString& csLine) {
  kiv::KivSysProcessStart zStart;
  zStart.m_csCommandLine = csLine;
  zStart.m_csFolder = csFolder;
  kiv::KivSysProcess zProcess = kiv::KivSysProcess::Start(zStart);
  if (zProcess.IsOpen()) zProcess.Wait(kiv::KivSysEvent::kInfinite);
}

// Wine does not wait for programs of the system below it.
bool SoonIsLink(const kiv::KivWString& csPath, bool bLink) {
  for (int i = 0; i < 2000 && kiv::sys::IsLink(csPath) != bLink; ++i) kiv::sys::SleepMs(5);
  return kiv::sys::IsLink(csPath) == bLink;
}

// One pass and no second tries: what a test still holds open stays. (remove_all of the standard library goes on for
// ever on Windows when an open file keeps its name.)
void RemoveOnce(const std::filesystem::path& zPath) {
  std::error_code zError;
  std::vector<std::filesystem::path> vzEntries;
  if (!kiv::sys::IsLink(zPath.u16string()) &&
      std::filesystem::is_directory(std::filesystem::symlink_status(zPath, zError)))
    for (std::filesystem::directory_iterator it(zPath, zError), itEnd; !zError && it != itEnd; it.increment(zError))
      vzEntries.push_back(it->path());
  for (const std::filesystem::path& zEntry : vzEntries) RemoveOnce(zEntry);
  std::filesystem::remove(zPath, zError);
}

}  // namespace

TestFolder::~TestFolder() {
  if (!m_csStuckLink.empty()) {
    RunIn(m_csPath, u"\"Z:\\bin\\rm\" -f \"" + m_csStuckLink + u"\"");
    SoonIsLink(*this / m_csStuckLink, false);
  }
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

TestFolder::Link TestFolder::LinkToFolder(const kiv::KivWString& csName, const TestFolder& zTarget) {
  const kiv::KivWString csLink = *this / csName;
  std::error_code zError;
  std::filesystem::create_directory_symlink(zTarget.m_zPath, m_zPath / csName, zError);
  if (kiv::sys::IsLink(csLink)) return Link::Whole;
  if (kiv::sys::kSeparator == u'/') return Link::None;
  RunIn(m_csPath, u"cmd.exe /c mklink /J \"" + csLink + u"\" \"" + zTarget.Path() + u"\"");
  if (kiv::sys::IsLink(csLink)) return Link::Whole;
  // The folders stand side by side, so that their names need no translation.
  m_csStuckLink = csName;
  RunIn(m_csPath, u"\"Z:\\bin\\ln\" -s \"../" + zTarget.m_zPath.filename().u16string() + u"\" \"" + csName + u"\"");
  return SoonIsLink(csLink, true) ? Link::Stuck : Link::None;
}

}  // namespace kivtest
