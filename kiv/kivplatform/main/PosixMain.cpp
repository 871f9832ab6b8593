#include <csignal>

#include "../posix/KivSysPosix.h"
#include "KivSysMain.h"

int main(int argc, char** argv) {
  // Above the user's limit on the size of files a write fails, as on a full disk; it does not end the process.
  std::signal(SIGXFSZ, SIG_IGN);
  std::vector<kiv::KivWString> vcsArguments;
  for (int i = 0; i < argc; ++i) vcsArguments.push_back(kiv::sys::posix::WideName(argv[i]));
  return kiv::KivMain(vcsArguments);
}
