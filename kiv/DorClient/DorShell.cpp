#include "DorShell.h"

#include <algorithm>
#include <cstdio>

#include "KivSysTerminal.h"

namespace kiv {
namespace {

enum class Line { Good, Bad, Quit };

constexpr const char* kHelp =
    "REQUEST [WORDS...]   sends a request; DorHandler_ may be left out\n"
    "help                 this text and all requests\n"
    "quit                 ends (as the end of the input does)\n"
    "# text               a comment\n"
    "Words are separated by blanks; quotes hold a text together: SetAsmInfo 3 'front plate'\n\n";

Line Run(DorClient& zClient, int64_t iModel, const std::string& strLine, const DorShellOptions& zOptions) {
  if (sys::WideToUtf8(sys::Utf8ToWide(strLine)) != strLine) {
    zOptions.m_pfnError("a line is no UTF-8");
    return Line::Bad;
  }
  std::vector<std::string> vstrWords;
  std::string strError;
  if (!DorSplitWords(strLine, vstrWords, strError)) {
    zOptions.m_pfnError(strError);
    return Line::Bad;
  }
  if (vstrWords.empty()) return Line::Good;
  const std::string strName = vstrWords[0];
  vstrWords.erase(vstrWords.begin());
  if (strName == "quit" || strName == "exit") return Line::Quit;
  if (strName == "help") {
    std::fprintf(stderr, "%s%s", kHelp, DorRequestsText().c_str());
    return Line::Good;
  }
  try {
    const DorSpoken zSpoken = DorCallByName(zClient, iModel, strName, vstrWords);
    zOptions.m_pfnAnswer(zSpoken);
    return zSpoken.IsGood() ? Line::Good : Line::Bad;
  } catch (const DorWordError& e) {
    zOptions.m_pfnError(e.GetText());
    return Line::Bad;
  }
}

Line TooLong(const DorShellOptions& zOptions) {
  zOptions.m_pfnError("a line has more than 1 MiB");
  return Line::Bad;
}

}  // namespace

bool DorRunShell(DorClient& zClient, int64_t iModel, const DorShellOptions& zOptions) {
  const bool bPerson = sys::IsInputTerminal();
  bool bGood = true;
  for (std::string strLine;;) {
    if (bPerson) {
      std::fprintf(stderr, "dor> ");
      std::fflush(stderr);
    }
    const KivSysInput iInput = sys::ReadInputLine(strLine);
    if (iInput == KivSysInput::Stopped && !bPerson) {  // a script must not take it for done
      zOptions.m_pfnError("stopped");
      return false;
    }
    if (iInput == KivSysInput::End || iInput == KivSysInput::Stopped) break;
    if (iInput == KivSysInput::Failed) {
      zOptions.m_pfnError("standard input cannot be read");
      return false;
    }
    if (!bPerson && zOptions.m_pfnLine && iInput == KivSysInput::Line && !strLine.empty()) zOptions.m_pfnLine(strLine);
    const Line iLine = iInput == KivSysInput::Line ? Run(zClient, iModel, strLine, zOptions) : TooLong(zOptions);
    std::fflush(stdout);
    if (iLine == Line::Quit) return bGood;
    if (iLine == Line::Good) continue;
    bGood = false;
    if (!bPerson && !zOptions.m_bKeepGoing) break;
  }
  if (bPerson) std::fprintf(stderr, "\n");
  return bGood;
}

std::string DorRequestsText() {
  std::string strText;
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily != DorRequestFamily::Forward) continue;
    std::string strName = sys::WideToUtf8(zRow.m_csName);
    strName.resize(std::max<size_t>(strName.size(), 44), ' ');
    strText += strName + " " + DorDescribeForm(zRow) + (zRow.m_szAnswer == nullptr ? "  (not offered yet)" : "") + "\n";
  }
  return strText;
}

}  // namespace kiv
