// The arguments and options of one command. Values are in their places when the command runs.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KivSysText.h"

namespace CLI {
class App;
}

namespace kiv {

class KivOptions {
 public:
  explicit KivOptions(CLI::App& zApp);
  ~KivOptions();
  KivOptions(const KivOptions&) = delete;
  KivOptions& operator=(const KivOptions&) = delete;

  // An argument that must be there, such as "FILE".
  void Argument(const char* szName, KivWString& csValue, const char* szHelp);
  // Options begin with two dashes.
  void Flag(const char* szName, bool& bValue, const char* szHelp);
  void Text(const char* szName, KivWString& csValue, const char* szHelp);  // an empty text is refused
  void Whole(const char* szName, int64_t& iValue, int64_t iLeast, int64_t iMost, const char* szHelp);
  // One number or more: --tolerance 1 0.1 0.01, or with commas between. Each must be finite. Where the option stands
  // again, its numbers stand behind the others.
  void Numbers(const char* szName, std::vector<double>& vdValue, const char* szHelp);

  // After the parse: puts the values in their places. Throws KivToolError for what is no number or out of its range.
  void Store();

  // A word of the command line as the parser takes it, and back without loss: what is no valid text passes, and a word
  // that begins like a negative number is no option.
  static std::string Pack(KivWStringView csWord);
  static KivWString Unpack(std::string_view strWord);

 private:
  std::vector<std::string>& Words();

  CLI::App& m_zApp;
  std::vector<std::unique_ptr<std::vector<std::string>>> m_vpvstrWord;
  std::vector<std::function<void()>> m_vpfnStore;
};

}  // namespace kiv
