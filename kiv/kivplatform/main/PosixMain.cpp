#include "../posix/KivSysPosix.h"
#include "KivSysMain.h"

int main(int argc, char** argv) {
  std::vector<kiv::KivWString> vcsArguments;
  for (int i = 0; i < argc; ++i) vcsArguments.push_back(kiv::sys::posix::WideName(argv[i]));
  return kiv::KivMain(vcsArguments);
}
