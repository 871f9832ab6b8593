#include "KivTestFolder.h"

#include <fstream>
#include <random>
#include <sstream>

#include "KivSysFolder.h"

namespace kivtest {

TestFolder::TestFolder() {
  std::random_device zRandom;
  m_zPath =
      std::filesystem::temp_directory_path() / ("kivtest-" + std::to_string(zRandom()) + std::to_string(zRandom()));
  std::filesystem::create_directory(m_zPath);
  m_csPath = m_zPath.u16string();
}

TestFolder::~TestFolder() {
  std::error_code zError;
  std::filesystem::remove_all(m_zPath, zError);
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
