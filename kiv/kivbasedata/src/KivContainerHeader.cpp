#include "KivContainerHeader.h"

#include <cstring>

#include "KivException.h"
#include "KivFormatRegistry.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint32_t kByteOrderMark32 = 0x01020408;
constexpr uint64_t kByteOrderMark64 = 0x0102040810111214;
constexpr uint32_t kFloatMarkBits = 0x3FB504F3;
constexpr uint64_t kDoubleMarkBits = 0x7530BD06CA8E49A6;
constexpr uint8_t kFormatMark = 0xB0;
constexpr uint32_t kAnyApplication = 0xFFFFFFFF;

constexpr uint32_t kOwnVersion = 1;
constexpr uint32_t kOwnApplication = 5;

// Neither below nor above; so a value that is no number differs from nothing.
template <typename T>
bool ComparesEqual(T a, T b) {
  return !(a < b) && !(a > b);
}

}  // namespace

uint64_t KivGetExecutableFileTime() {
  KivWString csProgram;
  sys::ProgramPath(csProgram);
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::Read;
  zMode.m_iShare = KivSysShare::Read;
  KivSysFile zFile = KivSysFile::Open(csProgram, zMode);
  uint64_t iTime = 0;
  if (!zFile.IsOpen() || !zFile.GetWriteTime(iTime)) {
    KIV_FAIL();
    return 0;
  }
  return iTime;
}

KivContainerHeader KivContainerHeader::MakeDefault() {
  if (!IsInitialized()) KivReportFailure("IsInitialized()", "KivFastFileContainer", __LINE__);
  KivContainerHeader zHeader;
  zHeader.Fill8(FormatVersion, kCurrentGeneration);
  zHeader.Fill8(FormatMark, kFormatMark);
  zHeader.SetU32(FormatMinorVersion, kMinorVersion);
  zHeader.SetU32(WriterVersion, KivFormatVersion());
  zHeader.SetU32(ByteOrderMark32, kByteOrderMark32);
  zHeader.SetU64(ByteOrderMark64, kByteOrderMark64);
  zHeader.SetU32(FloatMark, kFloatMarkBits);
  zHeader.SetU64(DoubleMark, kDoubleMarkBits);
  zHeader.SetU32(WriterApplication, KivFormatApplication());
  zHeader.SetU64(WriterFileTime, KivGetExecutableFileTime());
  zHeader.SetU64(EndPosition, 264);
  zHeader.SetU32(NodeOrder, kNodeOrder);
  return zHeader;
}

void KivContainerHeader::Fill8(Offset iOffset, uint8_t iValue) noexcept {
  std::memset(&m_acBytes[iOffset], iValue, 8);
}

void KivContainerHeader::GetInfo(KivContainerHeaderInfo& zHeaderInfo) const noexcept {
  std::memcpy(zHeaderInfo.data(), m_acBytes.data(), zHeaderInfo.size());
}

void KivContainerHeader::SetInfo(const KivContainerHeaderInfo& zHeaderInfo) noexcept {
  std::memcpy(m_acBytes.data(), zHeaderInfo.data(), zHeaderInfo.size());
}

bool IsCompatibleHeader(const KivContainerHeader& zHeader) {
  return IsCompatibleHeader(zHeader, KivContainerHeader::MakeDefault());
}

bool IsCompatibleHeader(const KivContainerHeader& zHeader, const KivContainerHeader& zDefault) {
  using H = KivContainerHeader;
  const uint8_t iGeneration = zHeader.Byte(H::FormatVersion);
  const uint8_t iOwnGeneration = zDefault.Byte(H::FormatVersion);
  const bool bPrevious = iGeneration == H::kPreviousGeneration && iOwnGeneration == H::kCurrentGeneration;
  const uint32_t iMinorVersion = zHeader.U32(H::FormatMinorVersion);
  const uint32_t iFileApplication = zHeader.U32(H::WriterApplication);

  if (iGeneration != iOwnGeneration && !bPrevious) return false;
  if (zHeader.Byte(H::FormatMark) != zDefault.Byte(H::FormatMark) && !bPrevious) return false;
  if (iMinorVersion > zDefault.U32(H::FormatMinorVersion) && !bPrevious) return false;
  if (!IsInitialized()) return false;
  const uint32_t iApplication = KivFormatApplication();
  if (const KivFormatVeto pfnVeto = KivFormatCompatibilityCallback())
    if (!pfnVeto(iFileApplication == iApplication ? zHeader.U32(H::WriterVersion) : 0)) return false;
  if (zHeader.U32(H::ByteOrderMark32) != zDefault.U32(H::ByteOrderMark32)) return false;
  if (zHeader.U64(H::ByteOrderMark64) != zDefault.U64(H::ByteOrderMark64)) return false;
  if (!ComparesEqual(zHeader.F32(H::FloatMark), zDefault.F32(H::FloatMark))) return false;
  if (!ComparesEqual(zHeader.F64(H::DoubleMark), zDefault.F64(H::DoubleMark))) return false;
  if (iApplication == kAnyApplication) return true;
  // Applications 0 and 3 do not even open their own files; this is meant.
  if (iApplication != 0 && iApplication != 3 && iApplication == iFileApplication) return true;
  // What another application wrote opens in 2 and 5 alone, and only while its format is an old one.
  if (iGeneration != H::kPreviousGeneration && !(iGeneration == H::kCurrentGeneration && iMinorVersion <= 1))
    return false;
  return iOwnGeneration == H::kCurrentGeneration && (iApplication == 2 || iApplication == 5);
}

void UpgradeHeader(KivContainerHeaderInfo& zHeaderInfo) {
  using H = KivContainerHeader;
  H zHeader;
  zHeader.SetInfo(zHeaderInfo);
  if (zHeader.Byte(H::FormatVersion) == H::kPreviousGeneration) return;

  if (zHeader.Byte(H::FirstFormatVersion) == 0) zHeader.Fill8(H::FirstFormatVersion, zHeader.Byte(H::FormatVersion));
  if (zHeader.U32(H::FirstFormatMinorVersion) == 0)
    zHeader.SetU32(H::FirstFormatMinorVersion, zHeader.U32(H::FormatMinorVersion));
  if (zHeader.U32(H::FormatMinorVersion) < H::kMinorVersion) zHeader.SetU32(H::FormatMinorVersion, H::kMinorVersion);
  if (zHeader.U32(H::FirstWriterVersion) == 0) zHeader.SetU32(H::FirstWriterVersion, zHeader.U32(H::WriterVersion));
  if (zHeader.U32(H::WriterVersion) < KivFormatVersion()) zHeader.SetU32(H::WriterVersion, KivFormatVersion());
  if (zHeader.U32(H::FirstWriterApplication) == 0)
    zHeader.SetU32(H::FirstWriterApplication, zHeader.U32(H::WriterApplication));
  if (zHeader.U32(H::WriterApplication) != KivFormatApplication()) {
    if (KivFormatApplication() == kAnyApplication) {
      zHeader.SetU32(H::WriterVersion, 0);
      zHeader.SetU32(H::WriterApplication, 0);
    } else {
      zHeader.SetU32(H::WriterApplication, KivFormatApplication());
    }
    zHeader.SetU64(H::UpgradeFileTime, KivGetExecutableFileTime());
  }
  zHeader.GetInfo(zHeaderInfo);
}

bool KivRegisterOwnFormat() {
  const bool bVeto = KivSetFormatCompatibilityCallback(nullptr);
  const bool bVersion = KivSetFormatVersion(kOwnVersion);
  const bool bApplication = KivSetFormatApplication(kOwnApplication);
  return bVeto && bVersion && bApplication;
}

}  // namespace kiv
