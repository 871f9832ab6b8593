#include <string>
#include <vector>

#include "KivSysPosix.h"

namespace kiv::sys::posix {

// The rules of CommandLineToArgvW: the program ends at a blank or its closing quote, without escapes; after it 2n
// backslashes before a quote are n, 2n + 1 are n and a plain quote, and two quotes inside quotes are one.
std::vector<std::string> SplitCommandLine(KivWStringView csLine) {
  std::vector<std::string> vstrArgs;
  const auto IsBlank = [](char16_t c) { return c == u' ' || c == u'\t'; };
  size_t i = 0;
  KivWString csPart;
  if (!csLine.empty() && csLine[0] == u'"') {
    for (i = 1; i < csLine.size() && csLine[i] != u'"'; ++i) csPart += csLine[i];
    if (i < csLine.size()) ++i;
  } else {
    for (; i < csLine.size() && !IsBlank(csLine[i]); ++i) csPart += csLine[i];
  }
  vstrArgs.push_back(NativeName(csPart));
  for (;;) {
    while (i < csLine.size() && IsBlank(csLine[i])) ++i;
    if (i == csLine.size()) return vstrArgs;
    csPart.clear();
    bool bQuoted = false;
    while (i < csLine.size() && (bQuoted || !IsBlank(csLine[i]))) {
      size_t nSlashes = 0;
      while (i < csLine.size() && csLine[i] == u'\\') ++nSlashes, ++i;
      if (i == csLine.size() || csLine[i] != u'"') {
        csPart.append(nSlashes, u'\\');
        if (i < csLine.size() && (bQuoted || !IsBlank(csLine[i]))) csPart += csLine[i++];
        continue;
      }
      csPart.append(nSlashes / 2, u'\\');
      ++i;
      if (nSlashes % 2 != 0) {
        csPart += u'"';
      } else if (bQuoted && i < csLine.size() && csLine[i] == u'"') {
        csPart += u'"';
        ++i;
      } else {
        bQuoted = !bQuoted;
      }
    }
    vstrArgs.push_back(NativeName(csPart));
  }
}

}  // namespace kiv::sys::posix
