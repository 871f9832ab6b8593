// Any bytes as a main file and as an unused record file: opened, walked, checked, dumped, changed, flushed and
// salvaged. What may come is a report or a finding; the sizes of what is made stay within a bound.
//
// Input: the first byte picks the report mode (2), whether the header is repaired (1), the operations (4), whether the
// unused record file is of the input too (8: the next two bytes are its length, it stands at the end), whether the main
// file lies below a cache (16) and whether it is dumped (32). The rest is the main file.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "KivContainerHeader.h"
#include "KivException.h"
#include "KivFastFileContainer.h"
#include "KivFileFactory.h"
#include "KivSysFile.h"
#include "KivSysProcess.h"
#include "KivWritableMemFile.h"

namespace {

constexpr uint64_t kCredibleImage = 0x4000000;  // an image is given this length at most if the file does not have it
constexpr uint64_t kSlack = 0x100000;

// Opened with an unused record file that is there already.
class ContainerOfTwo : public kiv::KivFastFileContainerBase {
 public:
  ContainerOfTwo(kiv::KivSharedPtr<kiv::ISnapShotFile> pzMain, kiv::KivSharedPtr<kiv::ISnapShotFile> pzUnused)
      : KivFastFileContainerBase(nullptr), m_pzMain(std::move(pzMain)), m_pzUnused(std::move(pzUnused)) {
    SetCapacityForExisting();
    Initialize();
  }
  kiv::KivSharedPtr<kiv::ISnapShotFile> GetBaseFile() override { return m_pzMain; }
  kiv::KivSharedPtr<kiv::ISnapShotFile> GetUnusedRecordFile() override { return m_pzUnused; }

 private:
  kiv::KivSharedPtr<kiv::ISnapShotFile> m_pzMain;
  kiv::KivSharedPtr<kiv::ISnapShotFile> m_pzUnused;
};

kiv::KivWString TempName(const char* szKind) {
  const std::string strName =
      std::string("container_fuzz_") + std::to_string(kiv::sys::CurrentProcessNumber()) + "_" + szKind;
  return (std::filesystem::temp_directory_path() / strName).u16string();
}

// The bytes as a file below a cache.
kiv::KivSharedPtr<kiv::ISnapShotFile> Cached(const std::vector<uint8_t>& vcBytes) {
  const kiv::KivWString csPath = TempName("main");
  std::ofstream(std::filesystem::path(csPath), std::ios::binary)
      .write(reinterpret_cast<const char*>(vcBytes.data()), static_cast<std::streamsize>(vcBytes.size()));
  kiv::KivSysOpenMode zMode;
  zMode.m_iFlags = kiv::KivSysFileFlags::Temporary;
  return kiv::KivCreateReadOnlyMappedFile(kiv::KivSysFile::Open(csPath, zMode), kiv::KivSysFile());
}

kiv::KivSharedPtr<kiv::ISnapShotFile> Memory(const std::vector<uint8_t>& vcBytes) {
  auto* pzFile = new kiv::KivWritableMemFile;
  pzFile->m_vcData = vcBytes;
  return kiv::KivSharedPtr<kiv::ISnapShotFile>(pzFile);
}

template <typename Body>
void Try(const Body& body) {
  try {
    body();
  } catch (const kiv::KivException&) {
  }
}

// Positions of the first records in use, by a walk that ends where it cannot go on.
std::vector<kiv::Position> FirstUsed(kiv::KivFastFileContainerBase& zContainer) {
  std::vector<kiv::Position> viUsed;
  kiv::Position iFile = 264;
  for (int i = 0; i < 50 && iFile < zContainer.GetEndPosition(); ++i) {
    kiv::KivContainerRecordWithSizes zRecord;
    Try([&] { zRecord = zContainer.GetRecordWithSizes(iFile); });
    if (zRecord.m_pzFile) viUsed.push_back(iFile);
    if (zRecord.m_iRecordSize < 24 || zRecord.m_iRecordSize > UINT64_MAX - iFile) break;
    iFile += zRecord.m_iRecordSize;
  }
  return viUsed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  if (nSize < 1 || nSize > 1 << 20) return 0;
  kiv::KivRegisterOwnFormat();
  kiv::KivSetReported(true);  // no log entries
  const uint8_t iChoice = pData[0];
  std::vector<uint8_t> vcMain(pData + 1, pData + nSize);
  std::vector<uint8_t> vcUnused;
  const bool bOwnUnused = (iChoice & 8) != 0 && vcMain.size() >= 2;
  if (bOwnUnused) {
    const size_t nUnused = std::min<size_t>(vcMain[0] + 256u * vcMain[1], vcMain.size() - 2);
    vcUnused.assign(vcMain.end() - static_cast<ptrdiff_t>(nUnused), vcMain.end());
    vcMain = std::vector<uint8_t>(vcMain.begin() + 2, vcMain.end() - static_cast<ptrdiff_t>(nUnused));
  }
  if ((iChoice & 1) != 0 && vcMain.size() >= 264) {  // the fixed marks, so that most inputs come past the first test
    kiv::KivContainerHeader zHeader = kiv::KivContainerHeader::MakeDefault();
    std::memcpy(vcMain.data() + 8, zHeader.Data(), 72);
  }
  kiv::KivSetReportNoThrow((iChoice & 2) != 0);
  Try([&] {
    const bool bCached = (iChoice & 16) != 0 && !vcMain.empty();
    const auto pzMain = bCached ? Cached(vcMain) : Memory(vcMain);
    std::unique_ptr<kiv::KivFastFileContainerBase> pzContainer;
    if (bOwnUnused)
      pzContainer = std::make_unique<ContainerOfTwo>(pzMain, Memory(vcUnused));
    else
      pzContainer = std::make_unique<kiv::KivFastFileContainer>(pzMain, nullptr);
    kiv::KivFastFileContainerBase& zContainer = *pzContainer;
    if (zContainer.GetStatus() != kiv::KivContainerStatus::Usable) return;
    const kiv::KivContainerCheck zBefore = zContainer.FullCheck();
    const bool bSound = zBefore.IsSound();
    Try([&] { zContainer.CheckConsistency(); });
    if ((iChoice & 32) != 0)
      Try([&] {
        std::map<kiv::Position, bool> mapUsed;
        zContainer.Dump(TempName("dump"), mapUsed);
        if (mapUsed.size() > nSize / 8 + 1) std::abort();
      });
    const std::vector<uint8_t> vcPayload(300, iChoice);
    bool bReported = false;
    for (size_t i = 0; i < 40; ++i) {
      const std::vector<kiv::Position> viUsed = FirstUsed(zContainer);
      try {
        if (!viUsed.empty()) {
          const kiv::Position iFile = viUsed[(i * 7 + iChoice) % viUsed.size()];
          kiv::Position iStart = 0;
          if ((iChoice & 4) != 0 && i % 3 == 0)
            zContainer.MoveRecord(iFile, iStart);
          else
            zContainer.DeleteRecord(iFile);
        }
        if (i % 3 != 0)
          zContainer.AddRecord(kiv::KivContainerData(vcPayload.data(), static_cast<uint32_t>(i * 13 % 300)));
      } catch (const kiv::KivException&) {
        bReported = true;
      }
    }
    // A sound container stays sound, whatever the order of operations.
    if (bSound && (bReported || !zContainer.FullCheck().IsSound())) std::abort();
    if (zContainer.GetBaseFile()->GetLength() > 4 * nSize + kSlack) std::abort();
    if (zContainer.GetUnusedRecordFile()->GetLength() > 4 * nSize + kCredibleImage + kSlack) std::abort();
    Try([&] { zContainer.Flush(); });
  });
  std::error_code zError;
  if ((iChoice & 16) != 0) std::filesystem::remove(std::filesystem::path(TempName("main")), zError);
  if ((iChoice & 32) != 0) std::filesystem::remove(std::filesystem::path(TempName("dump")), zError);
  kiv::KivSetReportNoThrow(false);
  const auto pzDamaged = Memory(vcMain);
  const auto pzNew = Memory({});
  const kiv::KivSalvageReport zReport = kiv::KivSalvageContainer(*pzDamaged, pzNew);
  kiv::KivFastFileContainer zSalvaged(pzNew, nullptr);
  if (!zReport.m_bDone || zSalvaged.GetStatus() != kiv::KivContainerStatus::Usable) std::abort();
  const kiv::KivContainerCheck zCheck = zSalvaged.FullCheck();
  if (!zCheck.IsSound() || zCheck.m_iUsedRecordNum != zReport.m_iUsedRecordNum) std::abort();
  return 0;
}
