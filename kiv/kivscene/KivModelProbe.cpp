#include "KivModelProbe.h"

#include "KivLittleEndian.h"
#include "KivSysFile.h"

namespace kiv {
namespace {

// The last bytes of a package: offset of the table, then the four letters of its mark at every second byte.
constexpr uint64_t kTrailer = 16;
constexpr uint64_t kLeastTable = 4;
constexpr uint8_t kTrailerMark[4] = {'M', 'K', 'I', 'V'};
constexpr uint8_t kMark = 0xB0;
constexpr uint64_t kModelHead = KivContainerHeader::kFilePosition + KivContainerHeader::kSize;

bool ReadWhole(KivSysFile& zFile, uint64_t iOffset, void* pBuffer, uint32_t nCount) {
  uint32_t nDone = 0;
  return zFile.ReadAt(iOffset, pBuffer, nCount, nDone) && nDone == nCount;
}

bool IsModel(KivSysFile& zFile, uint64_t iLength, KivContainerHeader& zHeader) {
  if (iLength < kModelHead || !ReadWhole(zFile, KivContainerHeader::kFilePosition, zHeader.Data(),
                                         static_cast<uint32_t>(KivContainerHeader::kSize)))
    return false;
  const uint8_t iGeneration = zHeader.Byte(KivContainerHeader::FormatVersion);
  return (iGeneration == KivContainerHeader::kCurrentGeneration ||
          iGeneration == KivContainerHeader::kPreviousGeneration) &&
         zHeader.Byte(KivContainerHeader::FormatMark) == kMark;
}

bool IsPackage(KivSysFile& zFile, uint64_t iLength) {
  uint8_t acTrailer[kTrailer];
  if (iLength < kTrailer + kLeastTable || !ReadWhole(zFile, iLength - kTrailer, acTrailer, kTrailer)) return false;
  for (int i = 0; i < 4; ++i)
    if (acTrailer[8 + 2 * i] != kTrailerMark[i]) return false;
  return KivLoad<uint64_t>(acTrailer) <= iLength - kTrailer - kLeastTable;
}

}  // namespace

KivModelProbe KivProbeModelFile(const KivWString& csPath) {
  KivModelProbe zProbe;
  KivSysFile zFile = KivSysFile::Open(csPath, {KivSysAccess::Read, KivSysShare::ReadWrite,
                                               KivSysDisposition::OpenExisting, KivSysFileFlags::RandomAccess});
  if (!zFile.IsOpen() || !zFile.GetLength(zProbe.m_iLength)) return zProbe;
  uint8_t iFirst = 0;
  uint32_t nDone = 0;
  if (!zFile.ReadAt(0, &iFirst, 1, nDone)) return zProbe;  // a folder, a bad disk
  zProbe.m_bOpened = true;
  if (IsModel(zFile, zProbe.m_iLength, zProbe.m_zHeader))
    zProbe.m_eKind = KivModelFileKind::Model;
  else if (IsPackage(zFile, zProbe.m_iLength))
    zProbe.m_eKind = KivModelFileKind::Package;
  return zProbe;
}

}  // namespace kiv
