// Files for tests: handles, patterns, and a data space that a test moves by hand.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivFileFactory.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"

namespace kivtest {

inline constexpr uint64_t kBlock = 0x10000;

using Bytes = std::vector<uint8_t>;

inline Bytes Pattern(uint64_t nCount, uint32_t iSeed = 1) {
  Bytes vcBytes(nCount);
  uint32_t iState = iSeed * 2654435761u + 12345u;
  for (uint8_t& c : vcBytes) {
    iState = iState * 1664525u + 1013904223u;
    c = static_cast<uint8_t>(iState >> 24);
  }
  return vcBytes;
}

inline std::string Text(const Bytes& vcBytes) {
  return std::string(vcBytes.begin(), vcBytes.end());
}

// The work folder of the whole test process.
inline void UseTestWorkFolder() {
  static const TestFolder zFolder;
  static const bool bSet = kiv::KivSetWorkFolder(zFolder / u"work");
  ASSERT_TRUE(bSet);
}

inline kiv::KivSysFile OpenHandle(const kiv::KivWString& csPath, kiv::KivSysAccess iAccess,
                                  kiv::KivSysDisposition iDisposition,
                                  kiv::KivSysShare iShare = kiv::KivSysShare::ReadWrite) {
  kiv::KivSysOpenMode zMode;
  zMode.m_iAccess = iAccess;
  zMode.m_iShare = iShare;
  zMode.m_iDisposition = iDisposition;
  zMode.m_iFlags = kiv::KivSysFileFlags::RandomAccess;
  return kiv::KivSysFile::Open(csPath, zMode);
}

inline kiv::KivSysFile OpenToRead(const kiv::KivWString& csPath) {
  return OpenHandle(csPath, kiv::KivSysAccess::Read, kiv::KivSysDisposition::OpenExisting);
}

inline kiv::KivSysFile OpenNew(const kiv::KivWString& csPath) {
  return OpenHandle(csPath, kiv::KivSysAccess::ReadWrite, kiv::KivSysDisposition::CreateAlways, kiv::KivSysShare::None);
}

// What a read gives, cut to its count.
inline Bytes ReadBytes(kiv::ISnapShotFile& zFile, uint64_t iOffset, uint64_t nCount) {
  Bytes vcBytes(nCount);
  vcBytes.resize(zFile.Read(iOffset, vcBytes.data(), nCount));
  return vcBytes;
}

inline void WriteBytes(kiv::ISnapShotFile& zFile, uint64_t iOffset, const Bytes& vcBytes) {
  zFile.Write(iOffset, vcBytes.data(), vcBytes.size());
}

inline Bytes Slice(const Bytes& vcBytes, uint64_t iOffset, uint64_t nCount) {
  Bytes vcSlice(nCount);
  for (uint64_t i = 0; i < nCount && iOffset + i < vcBytes.size(); ++i) vcSlice[i] = vcBytes[iOffset + i];
  return vcSlice;
}

// Sets the place in the history, and puts everything back at the end.
class DataSpaceScope {
 public:
  DataSpaceScope() = default;
  ~DataSpaceScope() {
    auto* pzSpace = kiv::KivDataSpaceBase::GetInstance();
    pzSpace->m_iCurBaseSnapShot = -1;
    pzSpace->m_bDiscardingSnapShot = false;
    pzSpace->m_bNoDirectBuffer = false;
    pzSpace->m_iStackBufferLimit = 200000;
  }
  DataSpaceScope(const DataSpaceScope&) = delete;
  DataSpaceScope& operator=(const DataSpaceScope&) = delete;

  void Base(int32_t iBase) { kiv::KivDataSpaceBase::GetInstance()->m_iCurBaseSnapShot = iBase; }
  void Discarding(bool bOn) { kiv::KivDataSpaceBase::GetInstance()->m_bDiscardingSnapShot = bOn; }
  // The next snapshot, as the data space takes it.
  kiv::KivSharedPtr<kiv::ISnapShotFile> Take(kiv::ISnapShotFile& zFile) {
    ++kiv::KivDataSpaceBase::GetInstance()->m_iCurBaseSnapShot;
    return zFile.CreateSnapShot();
  }
};

// True if the body reports, in a host whose reports return.
template <typename Body>
bool ReportsAndReturns(Body&& body) {
  const NoThrowScope zNoThrow;
  const uint64_t nBefore = kiv::KivGetReportCount();
  body();
  return kiv::KivGetReportCount() != nBefore;
}

class FileTest : public testing::Test {
 protected:
  FileTest() { UseTestWorkFolder(); }

  kiv::KivWString MakeFile(const kiv::KivWString& csName, const Bytes& vcBytes) {
    m_zFolder.WriteBytes(csName, Text(vcBytes));
    return m_zFolder / csName;
  }

  // Work files in the work folder.
  static int64_t CountWorkFiles() {
    std::vector<kiv::KivSysFolderEntry> vzEntries;
    kiv::sys::ListFolder(kiv::KivGetWorkFolder(), vzEntries);
    return std::count_if(vzEntries.begin(), vzEntries.end(), [](const kiv::KivSysFolderEntry& zEntry) {
      return zEntry.m_csName.substr(0, 4) == u"work" && zEntry.m_csName.find(u".cache") != kiv::KivWString::npos;
    });
  }

  TestFolder m_zFolder;
  DataSpaceScope m_zSpace;
};

}  // namespace kivtest

// The statement reports in a host whose reports return.
#define EXPECT_RETURNING_REPORT(statement) EXPECT_TRUE(kivtest::ReportsAndReturns([&] { statement; }))
#define EXPECT_NO_RETURNING_REPORT(statement) EXPECT_FALSE(kivtest::ReportsAndReturns([&] { statement; }))
