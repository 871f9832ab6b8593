// Any bytes as a main file: opened, walked, checked, dumped into a map, changed and salvaged. What may come is a
// report or a finding; the sizes of what is made stay within a bound that the input sets.
//
// Input: the first byte picks the report mode, whether the header is repaired, and the operations; the rest is the
// file.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "KivContainerHeader.h"
#include "KivException.h"
#include "KivFastFileContainer.h"
#include "KivWritableMemFile.h"

namespace {

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
std::vector<kiv::Position> FirstUsed(kiv::KivFastFileContainer& zContainer) {
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
  if ((iChoice & 1) != 0 && vcMain.size() >= 264) {  // the fixed marks, so that most inputs come past the first test
    kiv::KivContainerHeader zHeader = kiv::KivContainerHeader::MakeDefault();
    std::memcpy(vcMain.data() + 8, zHeader.Data(), 72);
  }
  kiv::KivSetReportNoThrow((iChoice & 2) != 0);
  Try([&] {
    kiv::KivFastFileContainer zContainer(Memory(vcMain), nullptr);
    if (zContainer.GetStatus() != kiv::KivContainerStatus::Usable) return;
    const kiv::KivContainerCheck zBefore = zContainer.FullCheck();
    const bool bSound = zBefore.IsSound();
    Try([&] { zContainer.CheckConsistency(); });
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
    if (zContainer.GetBaseFile()->GetLength() > 4 * nSize + 100000) std::abort();
    if (zContainer.GetUnusedRecordFile()->GetLength() > 4 * nSize + 100000) std::abort();
    Try([&] { zContainer.Flush(); });
  });
  kiv::KivSetReportNoThrow(false);
  const auto pzDamaged = Memory(vcMain);
  const auto pzNew = Memory({});
  const kiv::KivSalvageReport zReport = kiv::KivSalvageContainer(*pzDamaged, pzNew);
  kiv::KivFastFileContainer zSalvaged(pzNew, nullptr);
  if (!zReport.m_bDone) std::abort();
  if (zSalvaged.GetStatus() == kiv::KivContainerStatus::Usable) {
    const kiv::KivContainerCheck zCheck = zSalvaged.FullCheck();
    if (!zCheck.IsSound() || zCheck.m_iUsedRecordNum != zReport.m_iUsedRecordNum) std::abort();
  }
  return 0;
}
