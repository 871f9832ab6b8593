// make_bracket OUT.step: writes the sample assembly (Bracket.h). Exit codes: 0 good, 2 not written or wrong use.
#include <cstdio>

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
  return 0;
}
