#include "KivTestFolder.h"

#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "KivSysFolder.h"

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

}  // namespace kivtest
