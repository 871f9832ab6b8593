#include "KivSysMain.h"

int wmain(int argc, wchar_t** argv) {
  std::vector<kiv::KivWString> vcsArguments;
  for (int i = 0; i < argc; ++i) {
    kiv::KivWString csArgument;
    for (const wchar_t* p = argv[i]; *p != L'\0'; ++p) csArgument += static_cast<char16_t>(*p);
    vcsArguments.push_back(csArgument);
  }
  return kiv::KivMain(vcsArguments);
}
