// The 256 header bytes of a container's main file. docs/container_format.md describes them with an example.
//
// Header, at offset 8 of the main file; offsets count from the header's own start:
//   OFFSET  TYPE     FIELD                                    DEFAULT
//   0       8 x u8   m_acFormatVersion                        0x14, only the first byte counts
//   8       8 x u8   m_acFormatMark                           0xB0, only the first byte counts
//   16      u32      m_iFormatMinorVersion                    10
//   20      u32      m_iWriterVersion                         registered KivFormatVersion
//   24      u32      reserved                                 0
//   28      u32      m_iByteOrderMark32                       0x01020408
//   32      u64      m_iByteOrderMark64                       0x0102040810111214
//   40      f32      m_fFloatMark                             bits 0x3FB504F3
//   44      4 x u8   reserved                                 0
//   48      f64      m_dDoubleMark                            bits 0x7530BD06CA8E49A6
//   56      u32      m_iWriterApplication                     registered KivFormatApplication
//   60      2 x u32  m_zWriterFileTime                        write time of the running executable, low word first
//   68      4 x u8   reserved                                 0
//   72      u64      m_iEndPosition                           264
//   80      u64      m_iUnusedRecordFileLength                0
//   88      u64      m_iValidNodeNum                          0 until the first flush or save; so the next four
//   96      u64      m_iNodeNum                               0
//   104     u64      m_iRootNode                              0
//   112     u64      m_iNodeCursor                            0
//   120     u64      m_iFirstPositionTable                    0
//   128     u32      m_iNodeOrder                             20
//   132     u32      m_iMultiFilePositionExtension            0
//   136     u32      m_iIndexForMultiFilePositionExtension    0
//   140     u32      m_iFilePositionTableMode                 0
//   144     8 x u8   m_acFirstFormatVersion                   0
//   152     u32      m_iFirstFormatMinorVersion               0
//   156     u32      m_iFirstWriterVersion                    0
//   160     u32      reserved                                 0
//   164     u32      m_iFirstWriterApplication                0
//   168     2 x u32  m_zUpgradeFileTime                       0
//   176     80 x u8  reserved                                 0; on disk only
#pragma once

#include <array>
#include <cstdint>

#include "KivLittleEndian.h"

namespace kiv {

// The part that a container keeps in memory.
using KivContainerHeaderInfo = std::array<uint8_t, 176>;

class KivContainerHeader {
 public:
  static constexpr uint64_t kSize = 256;
  static constexpr uint64_t kFilePosition = 8;

  static constexpr uint8_t kCurrentGeneration = 0x14;
  static constexpr uint8_t kPreviousGeneration = 0x13;
  static constexpr uint32_t kMinorVersion = 10;
  static constexpr uint32_t kNodeOrder = 20;

  enum Offset : uint32_t {
    FormatVersion = 0,
    FormatMark = 8,
    FormatMinorVersion = 16,
    WriterVersion = 20,
    ByteOrderMark32 = 28,
    ByteOrderMark64 = 32,
    FloatMark = 40,
    DoubleMark = 48,
    WriterApplication = 56,
    WriterFileTime = 60,
    EndPosition = 72,
    UnusedRecordFileLength = 80,
    ValidNodeNum = 88,
    NodeNum = 96,
    RootNode = 104,
    NodeCursor = 112,
    FirstPositionTable = 120,
    NodeOrder = 128,
    MultiFilePositionExtension = 132,
    IndexForMultiFilePositionExtension = 136,
    FilePositionTableMode = 140,
    FirstFormatVersion = 144,
    FirstFormatMinorVersion = 152,
    FirstWriterVersion = 156,
    FirstWriterApplication = 164,
    UpgradeFileTime = 168
  };

  KivContainerHeader() noexcept { m_acBytes.fill(0); }
  // The default header of this process. Reports "IsInitialized()" while the format is not registered, and goes on.
  static KivContainerHeader MakeDefault();

  uint8_t Byte(Offset iOffset) const noexcept { return m_acBytes[iOffset]; }
  uint32_t U32(Offset iOffset) const noexcept { return KivLoad<uint32_t>(&m_acBytes[iOffset]); }
  uint64_t U64(Offset iOffset) const noexcept { return KivLoad<uint64_t>(&m_acBytes[iOffset]); }
  float F32(Offset iOffset) const noexcept { return KivLoad<float>(&m_acBytes[iOffset]); }
  double F64(Offset iOffset) const noexcept { return KivLoad<double>(&m_acBytes[iOffset]); }
  void SetU32(Offset iOffset, uint32_t iValue) noexcept { KivStore<uint32_t>(&m_acBytes[iOffset], iValue); }
  void SetU64(Offset iOffset, uint64_t iValue) noexcept { KivStore<uint64_t>(&m_acBytes[iOffset], iValue); }
  void Fill8(Offset iOffset, uint8_t iValue) noexcept;

  uint8_t* Data() noexcept { return m_acBytes.data(); }
  const uint8_t* Data() const noexcept { return m_acBytes.data(); }

  void GetInfo(KivContainerHeaderInfo& zHeaderInfo) const noexcept;
  void SetInfo(const KivContainerHeaderInfo& zHeaderInfo) noexcept;

 private:
  std::array<uint8_t, kSize> m_acBytes;
};

// Last-write time of the running executable in units of 100 ns since 1601; 0, and a report, if it cannot be read.
uint64_t KivGetExecutableFileTime();

// True if this process may open a file with this header. The checks run in a fixed order, since the registered veto
// may have effects.
bool IsCompatibleHeader(const KivContainerHeader& zHeader);
bool IsCompatibleHeader(const KivContainerHeader& zHeader, const KivContainerHeader& zDefault);
// Raises the kept part of a header to what this process writes and remembers the first writer. A header of the
// previous generation stays as it is.
void UpgradeHeader(KivContainerHeaderInfo& zHeaderInfo);

// The registration that this system's own programs share: version 1, application 5, no veto.
bool KivRegisterOwnFormat();

}  // namespace kiv
