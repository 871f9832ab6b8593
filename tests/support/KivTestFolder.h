// A folder of its own for one test, removed with everything in it at the end.
#pragma once

#include <filesystem>

#include "KivSysText.h"

namespace kivtest {

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const kiv::KivWString& Path() const { return m_csPath; }
  kiv::KivWString operator/(const kiv::KivWString& csName) const;
  // Whole files, for looking at bytes from outside of the library.
  void WriteBytes(const kiv::KivWString& csName, const std::string& strBytes) const;
  std::string ReadBytes(const kiv::KivWString& csName) const;
  // Makes a link of this name to a folder; on Windows a junction where there is no right to make a symbolic link. Wine
  // makes neither and shows a link of the system below it as one, but its calls cannot remove it: Stuck.
  enum class Link { None, Whole, Stuck };
  Link LinkToFolder(const kiv::KivWString& csName, const TestFolder& zTarget);

 private:
  std::filesystem::path m_zPath;
  kiv::KivWString m_csPath;
  kiv::KivWString m_csStuckLink;
};

}  // namespace kivtest
