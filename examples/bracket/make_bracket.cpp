// make_bracket OUT.step: writes the sample assembly (Bracket.h). Exit codes: 0 good, 2 not written or wrong use.
#include <cstdio>
#include <filesystem>

#include "Bracket.h"

int main(int nArguments, char** aszArgument) {
  if (nArguments != 2) {
    std::fprintf(stderr, "usage: make_bracket OUT.step\n");
    return 2;
  }
  if (!WriteBracket(aszArgument[1])) {
    std::fprintf(stderr, "make_bracket: %s could not be written\n", aszArgument[1]);
    return 2;
  }
  std::error_code zError;
  const auto nBytes = std::filesystem::file_size(aszArgument[1], zError);
  if (zError) return 2;
  std::printf("%s: %llu bytes\n", aszArgument[1], static_cast<unsigned long long>(nBytes));
  return 0;
}
