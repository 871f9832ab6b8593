// A program with the entry of KivSysMain.h: writes its arguments behind the first two, as units, to the file that the
// first one names; its exit code is the number that the second one holds.
#include <string>

#include "KivSysFile.h"
#include "KivSysMain.h"

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  if (vcsArguments.size() < 3 || vcsArguments[0].empty()) return 100;
  KivSysFile zFile = KivSysFile::Open(vcsArguments[1], {KivSysAccess::Write, KivSysShare::None,
                                                        KivSysDisposition::CreateAlways, KivSysFileFlags::None});
  KivWString csAll;
  for (size_t i = 3; i < vcsArguments.size(); ++i) csAll += vcsArguments[i] + u'\n';
  uint32_t nDone = 0;
  const auto nBytes = static_cast<uint32_t>(csAll.size() * sizeof(char16_t));
  if (!zFile.WriteAt(0, csAll.data(), nBytes, nDone) || nDone != nBytes) return 101;
  return std::stoi(sys::WideToUtf8(vcsArguments[2]));
}
