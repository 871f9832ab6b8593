// Records of model elements for tests: blocks from bytes and back, with and without a store.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>

#include "KivElement.h"
#include "KivTestHeap.h"
#include "KivTestMesh.h"
#include "KivTestStore.h"

namespace kivtest {

inline uint64_t QuietReports() {
  return kiv::KivLastQuietReport().m_iNumber;
}

// Pieces of records for FromHex.
inline std::string HexU32(uint32_t i) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string str;
  for (int k = 0; k < 4; ++k, i >>= 8) str += {kDigits[i >> 4 & 15], kDigits[i & 15]};
  return str;
}
inline std::string HexZeros(size_t nBytes) {
  return std::string(2 * nBytes, '0');
}
inline std::string HexFrame(uint32_t iOffset, uint32_t iKind, uint32_t iSize) {
  return HexU32(iOffset) + HexU32(iKind) + HexU32(iSize);
}

template <typename Block>
std::unique_ptr<Block> NewBlock() {
  auto pzBlock = std::make_unique<Block>();
  typename Block::Memory zMemory;
  kiv::KivResetElement(*pzBlock, zMemory);
  return pzBlock;
}

// What a read may take from the heap, all in all: lists grow by doubling, an entry in memory is larger than its least
// record, and a refusal is reported with its texts.
inline uint64_t MostHeapFor(const Bytes& vc) {
  return 64 * vc.size() + 256 * 1024;
}

// Reads from a fresh allocation of just these bytes, and within the memory that they are worth.
template <typename Block>
bool ReadRecord(const Bytes& vc, Block& zBlock, bool bVer19 = false, bool bKeysOnly = false) {
  const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[vc.size()]);
  std::copy(vc.begin(), vc.end(), pOwn.get());
  typename Block::Memory zMemory;
  const HeapUse zHeap;
  const bool bRead =
      kiv::KivReadElement(std::span<const uint8_t>(pOwn.get(), vc.size()), bVer19, bKeysOnly, zBlock, zMemory);
  EXPECT_LE(zHeap.Bytes(), MostHeapFor(vc));
  return bRead;
}

// The lists of a block keep their memory: a later read of the record takes none.
template <typename Block>
void ExpectLaterReadsTakeNothingFromTheHeap(const Bytes& vc) {
  auto pzBlock = std::make_unique<Block>();
  typename Block::Memory zMemory;
  const std::span<const uint8_t> vcRecord(vc);
  for (const bool bKeysOnly : {false, true}) {
    const HeapUse zFirst;
    ASSERT_TRUE(kiv::KivReadElement(vcRecord, false, bKeysOnly, *pzBlock, zMemory));
    ASSERT_GT(zFirst.Calls(), 0u);
    for (int i = 0; i < 2; ++i) {
      const HeapUse zHeap;
      const bool bRead = kiv::KivReadElement(vcRecord, false, bKeysOnly, *pzBlock, zMemory);
      EXPECT_EQ(zHeap.Calls(), 0u);
      EXPECT_TRUE(bRead);
    }
  }
}

template <typename Block>
int64_t SizeOf(Block& zBlock) {
  typename Block::Memory zMemory;
  return kiv::KivSizeElement(zBlock, zMemory);
}

// The block as a record of the newest revision; empty if it cannot be one. The sizing must agree with the writer.
template <typename Block>
Bytes BuildRecord(Block& zBlock) {
  typename Block::Memory zMemory;
  const uint32_t iFormat = kiv::KivRulesOf<Block>().m_iFormat;
  zBlock.m_zHeader.m_iFormat = iFormat;
  zBlock.BeforeSave(false);
  Bytes vc;
  const int64_t nBytes = kiv::KivSizeElement(zBlock, zMemory);
  if (nBytes > 0) {
    vc.resize(static_cast<size_t>(nBytes));
    EXPECT_TRUE(kiv::KivWriteElement(std::span<uint8_t>(vc), iFormat, zBlock, zMemory));
  }
  zBlock.AfterSave();
  return vc;
}

// A damaged record must be read within its bytes. What can be read must be writable as it then is, unless the sizing
// refuses it, and be read once more as the same.
template <typename Block>
void ExpectReadsSafely(const Bytes& vc, bool bVer19) {
  static Block zBlock, zAgain;
  if (!ReadRecord(vc, zBlock, bVer19)) return;
  // A save refuses the offsets of generation 19.
  uint32_t& iDataOffset = zBlock.m_zHeader.m_iDataOffset;
  iDataOffset = std::max(iDataOffset, kiv::KivRulesOf<Block>().m_iDataOffset);
  const Bytes vcOut = BuildRecord(zBlock);
  if (vcOut.empty()) return;
  ASSERT_TRUE(ReadRecord(vcOut, zAgain));
  const Bytes vcTwice = BuildRecord(zAgain);
  EXPECT_EQ(vcTwice, vcOut);
}

// Each cut of a record must be refused, but for those that end where a gap behind the last live entry ends or begins;
// each byte with each bit turned, as 0 and as 0xFF is read without harm.
template <typename Block>
void ExpectDamageIsRefusedOrHarmless(const Bytes& vc, bool bVer19, size_t nGoodFrom) {
  static Block zBlock;
  for (size_t n = 1; n < vc.size(); ++n) {
    const bool bRead = ReadRecord(Bytes(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n)), zBlock, bVer19);
    EXPECT_EQ(bRead, n >= nGoodFrom) << "cut at " << n;
  }
  for (size_t i = 0; i < vc.size(); ++i) {
    for (int k = 0; k < 10; ++k) {
      Bytes vcBad = vc;
      vcBad[i] = k < 8 ? static_cast<uint8_t>(vc[i] ^ (1 << k)) : k == 8 ? 0x00 : 0xFF;
      ExpectReadsSafely<Block>(vcBad, bVer19);
    }
  }
}

// Random bytes behind a good header, all of them or some, and random bytes alone.
template <typename Block>
void ExpectRandomBytesAreHarmless(const Bytes& vc, size_t nHeader, uint64_t iSeed) {
  TestRandom zRandom(iSeed);
  for (int n = 0; n < 3000; ++n) {
    Bytes vcBad = vc;
    const uint32_t nFrom = n % 3 == 0 ? 0 : static_cast<uint32_t>(nHeader);
    const uint32_t nLeft = static_cast<uint32_t>(vc.size()) - nFrom;
    const uint32_t nChanges = n % 3 == 2 ? nLeft : 1 + zRandom.Below(6);
    for (uint32_t k = 0; k < nChanges; ++k)
      vcBad[nFrom + (n % 3 == 2 ? k : zRandom.Below(nLeft))] = static_cast<uint8_t>(zRandom.Below(256));
    ExpectReadsSafely<Block>(vcBad, n % 2 == 0);
    if (testing::Test::HasFailure()) FAIL() << "seed " << iSeed << ", round " << n;
  }
}

// A model that is changed in place, with records of given bytes in it.
class ElementStoreTest : public StoreTest {
 protected:
  ~ElementStoreTest() override {
    Space().SetBlockPerElement(false);
    Space().SetKeepRawData(1);
    Space().SetStackBufferLimit(200000);
  }
  void OpenEmpty(int32_t iLimit = 4, bool bTables = true) {
    m_pzModel = Open(MakeFile(u"a.kiv", bTables), true, iLimit);
    ASSERT_NE(m_pzModel, nullptr);
  }
  // Stores a record of these bytes and fetches its element.
  template <typename Element>
  Element* Put(const Bytes& vc) {
    const kiv::KivContainerData zData(vc.data(), static_cast<uint32_t>(vc.size()), 0);
    EXPECT_EQ(ManagerOf(m_pzModel)->GetStorage()->AddRecord(zData, m_iPosition), kiv::KivStorageResult::Done);
    return Fetch<Element>();
  }
  template <typename Element>
  Element* Fetch() {
    return kiv::KivOutOfCoreHandle(m_pzModel->GetKey(), m_iPosition).template Fetch<Element>();
  }
  Bytes Stored(const kiv::KivOutOfCoreData& zElement) {
    kiv::KivContainerRecord zRecord;
    kiv::KivOutOfCoreMemoryStorage* pzStorage = ManagerOf(m_pzModel)->GetStorage();
    EXPECT_EQ(pzStorage->FindRecord(zElement.GetPosition(), zRecord), kiv::KivStorageResult::Done);
    Bytes vc(zRecord.m_iFileSize);
    EXPECT_EQ(pzStorage->ReadRecord(zElement.GetPosition(), vc.data(), vc.size(), zRecord),
              kiv::KivStorageResult::Done);
    return vc;
  }

  // A write always makes the newest layout, so that one that leaves an old revision as it is makes no record of it:
  // such elements are saved whole. What is read back from the second save; null if something went wrong.
  template <typename Element, typename Block>
  std::unique_ptr<Block> SavedForKeysAloneThenWhole(const Bytes& vcOld, uint8_t iNewest) {
    auto pzRead = NewBlock<Block>();
    auto* pz = Put<Element>(vcOld);
    if (pz == nullptr || pz->GetMemoryBlockForWrite() == nullptr || !pz->Save(true)) return nullptr;
    EXPECT_EQ(pz->GetMemoryBlock()->m_zHeader.m_iFormat, vcOld[8]);
    const Bytes vcKeysOnly = Stored(*pz);
    EXPECT_EQ(vcKeysOnly[8], vcOld[8]);
    ReadRecord(vcKeysOnly, *pzRead);  // whatever it gives, within the record's bytes and what they are worth
    ExpectReadsSafely<Block>(vcKeysOnly, false);
    if (!pz->Save(false)) return nullptr;
    Bytes vcWhole = vcKeysOnly;
    vcWhole[8] = iNewest;
    EXPECT_EQ(Stored(*pz), vcWhole);
    return ReadRecord(vcWhole, *pzRead) ? std::move(pzRead) : nullptr;
  }

  kiv::KivModelStatusBase* m_pzModel = nullptr;
  uint64_t m_iPosition = 0;  // of the last record
};

}  // namespace kivtest
