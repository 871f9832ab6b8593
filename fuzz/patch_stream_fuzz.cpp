// Input: a patch stream. It is replayed on a small memory file and must never do more than its whole, sound records
// say; what it left is saved and replayed again on a fresh file, which must give the same bytes.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivMemFile.h"

namespace {

using kiv::KivLoad;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "patch_stream_fuzz: %s\n", szWhat);
  std::abort();
}

const std::filesystem::path& Folder() {
  static const std::filesystem::path zFolder = [] {
    const std::filesystem::path zMade =
        std::filesystem::temp_directory_path() /
        ("kivfuzz-" + std::to_string(reinterpret_cast<uintptr_t>(&Demand)) + "-" + std::to_string(kiv::KivGetTimeMs()));
    std::filesystem::create_directories(zMade);
    kiv::KivSetReportNoThrow(true);
    kiv::KivSetReported(true);
    kiv::KivSetWorkFolder((zMade / "work").u16string());
    std::atexit([] {
      std::error_code zError;
      std::filesystem::remove_all(Folder(), zError);
    });
    return zMade;
  }();
  return zFolder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const std::filesystem::path& zFolder = Folder();
  const uint64_t nBlock = kiv::KivGetAllocationGranularity();
  const std::vector<uint8_t> vcBase(2 * nBlock + 77, 0x5A);
  const std::filesystem::path zIn = zFolder / "in";
  {
    std::ofstream zFile(zIn, std::ios::binary | std::ios::trunc);
    zFile.write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
  }

  // What the stream may do, by a reader of its own. Blocks that lie too far behind the end stop it.
  std::vector<uint8_t> vcExpected = vcBase;
  uint64_t nLength = vcBase.size();
  for (size_t iCursor = 0; nSize - iCursor >= 16;) {
    const auto iNumber = KivLoad<uint64_t>(pData + iCursor);
    const auto nData = KivLoad<uint64_t>(pData + iCursor + 8);
    if (nData == 0 || nData > nBlock || nData > nSize - iCursor - 16) break;
    if (iNumber > UINT64_MAX / 4 / nBlock) break;
    const uint64_t iStart = iNumber * nBlock;
    if (iStart > vcBase.size() && iStart - vcBase.size() > nSize) break;
    if (vcExpected.size() < iStart + nBlock) vcExpected.resize(iStart + nBlock);
    std::copy_n(pData + iCursor + 16, nData, vcExpected.begin() + static_cast<std::ptrdiff_t>(iStart));
    nLength = std::max(nLength, iStart + nBlock);
    iCursor += 16 + nData;
  }

  kiv::KivMemFile zFile(vcBase.data(), vcBase.size());
  Demand(zFile.LoadCache(zIn.u16string()), "a stream that could be opened gives true");
  Demand(zFile.GetLength() == nLength, "the length is that of the last block written");
  std::vector<uint8_t> vcRead(nLength);
  vcExpected.resize(nLength);
  Demand(zFile.Read(0, vcRead.data(), nLength) == nLength, "the file reads whole");
  Demand(vcRead == vcExpected, "the file holds what the sound records say");

  const std::filesystem::path zOut = zFolder / "out";
  Demand(zFile.SaveCache(zOut.u16string(), nLength), "a patch can be saved");
  kiv::KivMemFile zAgain(vcBase.data(), vcBase.size());
  Demand(zAgain.LoadCache(zOut.u16string()), "a saved patch loads");
  Demand(zAgain.Read(0, vcRead.data(), nLength) == nLength, "the second file reads whole");
  Demand(vcRead == vcExpected, "a saved patch gives the same file");
  return 0;
}
