// What the tests of the block cache share.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "KivCacheUseFile.h"
#include "KivLittleEndian.h"
#include "KivMemFile.h"
#include "KivTestFile.h"

namespace kivtest {

inline constexpr uint64_t kTail = 100;

// A memory file of three whole blocks and a short one, and what the rules say of its cache.
class FileCache : public FileTest {
 protected:
  FileCache() : m_vcBase(Pattern(3 * kBlock + kTail)), m_zFile(m_vcBase.data(), m_vcBase.size()) {}

  std::vector<uint32_t>& Words(kiv::KivCacheUseFile& zFile) { return zFile.GetCache()->m_vcCacheStatus; }
  std::vector<uint32_t>& Words() { return Words(m_zFile); }
  kiv::KivWString PatchPath() { return m_zFolder / u"patch"; }
  std::string Patch(uint64_t iSize) {
    EXPECT_TRUE(m_zFile.SaveCache(PatchPath(), iSize));
    return m_zFolder.ReadBytes(u"patch");
  }
  kiv::KivWString MakePatch(const std::string& strBytes) {
    m_zFolder.WriteBytes(u"in", strBytes);
    return m_zFolder / u"in";
  }

  Bytes m_vcBase;
  kiv::KivMemFile m_zFile;
};

inline std::string Record(uint64_t iBlock, const std::string& strData, uint64_t nClaimed) {
  std::string strRecord(16, '\0');
  kiv::KivStore<uint64_t>(strRecord.data(), iBlock);
  kiv::KivStore<uint64_t>(strRecord.data() + 8, nClaimed);
  return strRecord + strData;
}

inline std::string Record(uint64_t iBlock, const std::string& strData) {
  return Record(iBlock, strData, strData.size());
}

}  // namespace kivtest
