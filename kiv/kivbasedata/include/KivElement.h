// Model elements: how a block becomes a record and comes back, and the element class around it. docs/element_records.md
// tells what a new element type needs.
//
// Reports are quiet; operations give false or a code.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "KivDataSpaceFields.h"
#include "KivElementBlock.h"
#include "KivElementFields.h"
#include "KivElementKeys.h"
#include "KivOutOfCoreBlock.h"

namespace kiv {

template <typename Block>
const KivElementRules& KivRulesOf() {
  static const KivElementRules& zRules = *KivFindElementRules(Block::kTag);
  return zRules;
}

// Gives a block its defaults, and forgets what is kept beside it.
template <typename Block>
void KivResetElement(Block& zBlock, typename Block::Memory& zMemory) {
  zBlock.m_zHeader = KivNewElementHeader(KivRulesOf<Block>());
  zBlock.Clear();
  zMemory.Clear();
}

// Before a block is filled that held other records: gives the memory of its lists back if they keep more than a few
// times what the largest record since the last look takes, as they do when the large items of records stand in
// different places. It looks at the lists only after some records, so that it costs the reading nothing to speak of.
template <typename Block>
void KivTrimElement(Block& zBlock) {
  constexpr uint64_t kTimes = 4, kAlways = 1 << 20;
  KivBlockTraffic& zTraffic = zBlock.m_zTraffic;
  if (zTraffic.m_nSince <= kTimes * zTraffic.m_nLargest + kAlways) return;
  KivListBytes zBytes;
  zBlock.VisitLists([&](const auto& vz) { vz.AddBytes(zBytes); });
  if (zBytes.m_nKept > kTimes * std::max(zBytes.m_nUsed, zTraffic.m_nLargest) + kAlways)
    zBlock.VisitLists([](auto& vz) { vz.Free(); });
  zTraffic.m_nLargest = zTraffic.m_nSince = 0;
}

// Fills a block that has its defaults. What was read before a failure stays in the block. zReader stands at the
// record's start and holds all of it; it is left behind the last entry.
template <typename Block>
bool KivParseElement(KivRecordReader& zReader, bool bVer19Data, bool bKeysOnly, Block& zBlock,
                     typename Block::Memory& zMemory) {
  const KivElementRules& zRules = KivRulesOf<Block>();
  KivMemoryBlockHeader& zHeader = zBlock.m_zHeader;
  if (!KivReadElementHeader(zReader, zRules, bVer19Data, zHeader)) return false;
  KivFieldReader zFields(zReader, KivReadAsFormat(zRules, zHeader.m_iFormat), bKeysOnly);
  if (!zBlock.VisitBody(zFields, zMemory)) return false;
  if (zRules.m_bRaisedOnRead) {
    zHeader.m_iFormat = zRules.m_iFormat;
    zHeader.m_iDataOffset = std::max(zHeader.m_iDataOffset, zRules.m_iDataOffset);
  }
  return true;
}

// The same from the bytes of a record, into any block; no bytes at all give the defaults.
template <typename Block>
bool KivReadElement(std::span<const uint8_t> vcRecord, bool bVer19Data, bool bKeysOnly, Block& zBlock,
                    typename Block::Memory& zMemory) {
  KivResetElement(zBlock, zMemory);
  if (vcRecord.empty()) return true;
  KivRecordReader zReader(vcRecord.data(), vcRecord.size());
  return KivParseElement(zReader, bVer19Data, bKeysOnly, zBlock, zMemory);
}

// The sizing pass: gives all entries their offsets and sizes and answers the size of the record, or the code, 0 or
// below, of what cannot be written.
template <typename Block>
int64_t KivSizeElement(Block& zBlock, typename Block::Memory& zMemory) {
  const KivElementRules& zRules = KivRulesOf<Block>();
  const KivElementSizing eHeader = KivCheckElementHeader(zRules, zBlock.m_zHeader);
  if (eHeader != KivElementSizing::Good) return static_cast<int64_t>(eHeader);
  KivFieldSizer zFields(zRules.m_iFormat, kElementHeaderSize);
  if (!zBlock.VisitBody(zFields, zMemory)) return zFields.RefusedWith();
  if (zRules.m_iCountCode != 0 && zFields.LiveNum() != zBlock.m_zHeader.m_iEntryCount) return zRules.m_iCountCode;
  return static_cast<int64_t>(zFields.Offset());
}

// Fills a record by a block that was sized, or read, as it is. iFormat is the layout's revision. The bytes of gaps stay
// as they are.
template <typename Block>
bool KivWriteElement(std::span<uint8_t> vcRecord, uint32_t iFormat, Block& zBlock, typename Block::Memory& zMemory) {
  static constexpr const char* kSource = Block::kSource;
  KivRecordWriter zWriter(vcRecord.data(), vcRecord.size());
  KivFieldWriter zFields(zWriter, iFormat);
  if (!KivWriteElementHeader(zWriter, zBlock.m_zHeader) || !zBlock.VisitBody(zFields, zMemory)) return false;
  if (KivRulesOf<Block>().m_iCountCode != 0 && !KIV_ASSERT(zFields.LiveNum() == zBlock.m_zHeader.m_iEntryCount))
    return false;
  return KIV_ASSERT(zWriter.Remaining() == 0);
}

// Where the bytes of bulky records stand while they are read: large ones in one buffer of the process, which grows.
constexpr uint64_t kElementStackBytes = 180000;
bool KivIsReadOnStack(uint64_t nBytes);
uint8_t* KivElementReadBuffer(uint64_t nBytes);  // with 16 bytes of slack

// An element whose block is a KivElementBlock.
template <typename Block>
class KivElement : public KivOutOfCoreBlockNode<Block> {
  using Base = KivOutOfCoreBlockNode<Block>;

 public:
  static constexpr uint32_t kTag = Block::kTag;

  using Base::Base;

  bool Load(bool bModifyOnlyForPosition) override;
  bool Save(bool bModifyOnlyForPosition) override;

  uint32_t GetElementType() override { return Block::kTag; }

  // The links, then the keys of the body. Nothing is replaced in a block whose MayVisitKeys refuses; where a key is
  // missing, those before it are replaced.
  bool GetAllPosition(std::vector<uint64_t>& viPosition) override;
  bool ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition) override;

  // How often the one block of the type has been taken by its elements.
  static uint64_t GetBlockAcquireNum() { return KivOutOfCoreBlock<Block>::GetAcquireNum(); }

 protected:
  // After each load and each save that succeeded.
  virtual void AfterTransfer() {}

  typename Block::Memory m_zMemory;

 private:
  static constexpr const char* kSource = Block::kSource;

  static bool KeepsRawData() {
    const KivDataSpaceFields& zSpace = *KivDataSpaceFields::GetInstance();
    return zSpace.m_iKeepRawData != 0 && !zSpace.m_bBlockPerElement;
  }

  // Hands the record's bytes to pfnParse.
  template <typename Parse>
  bool WithRecordBytes(Parse&& pfnParse) {
    const uint64_t nBytes = this->m_iDataSize;
    if (KeepsRawData()) {
      if (this->m_vcRawData.size() != nBytes) {
        std::vector<uint8_t> vcBytes(static_cast<size_t>(nBytes));
        if (!Fetch(vcBytes.data())) return false;
        this->m_vcRawData = std::move(vcBytes);
      }
      return pfnParse(std::span<const uint8_t>(this->m_vcRawData));
    }
    if constexpr (Block::kIsBulk) {
      if (KivIsReadOnStack(nBytes)) return WithBytesOnStack(pfnParse);
      uint8_t* pBytes = KivElementReadBuffer(nBytes);
      return Fetch(pBytes) && pfnParse(std::span<const uint8_t>(pBytes, static_cast<size_t>(nBytes)));
    } else {
      std::vector<uint8_t> vcBytes(static_cast<size_t>(nBytes));
      return Fetch(vcBytes.data()) && pfnParse(std::span<const uint8_t>(vcBytes));
    }
  }
  // Not inlined: only these calls take the room.
  template <typename Parse>
  [[gnu::noinline]] bool WithBytesOnStack(Parse&& pfnParse) {
    alignas(16) uint8_t acBytes[kElementStackBytes];
    return Fetch(acBytes) && pfnParse(std::span<const uint8_t>(acBytes, static_cast<size_t>(this->m_iDataSize)));
  }
  // Leaves the element as modified as it is.
  bool Fetch(uint8_t* pBytes) {
    const bool bModified = this->m_bModified;
    const bool bRead = this->ReadData(pBytes, this->m_iDataSize);
    this->m_bModified = bModified;
    return KIV_ASSERT(bRead);
  }

  bool Store(Block& zBlock, bool bModifyOnlyForPosition) {
    const KivElementRules& zRules = KivRulesOf<Block>();
    if (!KivRaiseElementFormat(zRules, bModifyOnlyForPosition, zBlock.m_zHeader)) return false;
    struct AroundSave {
      ~AroundSave() { m_zBlock.AfterSave(); }
      Block& m_zBlock;
    } const zAround{zBlock};
    zBlock.BeforeSave(bModifyOnlyForPosition);
    if (!KIV_ASSERT(zBlock.m_zHeader.m_iDataOffset >= zRules.m_iDataOffset)) return false;
    std::vector<uint8_t> vcRecord;
    const bool bOver = Block::kKeepsLayout && bModifyOnlyForPosition;
    const bool bBuilt = bOver ? BuildOverOldRecord(zBlock, vcRecord) : BuildRecord(zBlock, vcRecord);
    zBlock.m_zTraffic.Count(vcRecord.size());
    if (!bBuilt || !KIV_ASSERT(this->WriteData(vcRecord.data(), vcRecord.size()))) return false;
    zBlock.m_zTraffic.WasGood(vcRecord.size());
    this->m_vcRawData.clear();
    if (!bOver) m_nUsed = vcRecord.size();
    return true;
  }
  bool BuildRecord(Block& zBlock, std::vector<uint8_t>& vcRecord) {
    typename Block::Memory zMemory;
    const int64_t nBytes = KivSizeElement(zBlock, zMemory);
    if (!KIV_ASSERT(nBytes > 0)) return false;
    vcRecord.resize(static_cast<size_t>(nBytes));
    return KivWriteElement(std::span<uint8_t>(vcRecord), KivRulesOf<Block>().m_iFormat, zBlock, zMemory);
  }
  // The bytes that the entries took must be filled again; those behind them stay.
  bool BuildOverOldRecord(Block& zBlock, std::vector<uint8_t>& vcRecord) {
    const KivElementRules& zRules = KivRulesOf<Block>();
    if (!KIV_ASSERT(this->m_iDataSize >= zRules.m_iDataOffset && this->m_iDataSize >= m_nUsed)) return false;
    if (this->m_vcRawData.size() == this->m_iDataSize) {
      vcRecord = this->m_vcRawData;
    } else {
      vcRecord.resize(static_cast<size_t>(this->m_iDataSize));
      if (!Fetch(vcRecord.data())) return false;
    }
    return KivWriteElement(std::span<uint8_t>(vcRecord).first(m_nUsed),
                           KivReadAsFormat(zRules, zBlock.m_zHeader.m_iFormat), zBlock, m_zMemory);
  }

  size_t m_nUsed = 0;  // bytes of the record up to the end of the last entry
};

// Not inline: a class that is compiled once elsewhere costs those who use it nothing.
template <typename Block>
bool KivElement<Block>::Load(bool bModifyOnlyForPosition) {
  return this->WithoutThrow([&] {
    const bool bVer19Data = this->IsVer19Data();
    Block* pzBlock = this->TakeBlock();
    if (pzBlock == nullptr) return false;
    KivTrimElement(*pzBlock);
    KivResetElement(*pzBlock, m_zMemory);
    m_nUsed = 0;
    const auto Parse = [&](std::span<const uint8_t> vcRecord) {
      KivRecordReader zReader(vcRecord.data(), vcRecord.size());
      if (!KivParseElement(zReader, bVer19Data, bModifyOnlyForPosition, *pzBlock, m_zMemory)) return false;
      m_nUsed = zReader.Offset();
      return true;
    };
    pzBlock->m_zTraffic.Count(this->m_iDataSize);
    if (this->m_iDataSize != 0 &&
        !(KivIsRecordLongEnough(KivRulesOf<Block>(), bVer19Data, this->m_iDataSize) && WithRecordBytes(Parse)))
      return false;
    pzBlock->m_zTraffic.WasGood(this->m_iDataSize);
    AfterTransfer();
    return true;
  });
}

template <typename Block>
bool KivElement<Block>::Save(bool bModifyOnlyForPosition) {
  return this->WithoutThrow([&] {
    if (!KIV_ASSERT(this->m_pzMemoryBlock != nullptr)) return false;
    if (!Store(*this->m_pzMemoryBlock, bModifyOnlyForPosition)) return false;
    AfterTransfer();
    return true;
  });
}

template <typename Block>
bool KivElement<Block>::GetAllPosition(std::vector<uint64_t>& viPosition) {
  return this->WithoutThrow([&] {
    viPosition.clear();
    if (Block::kIsBulk && this->HasStore() && !(this->Unload() && this->Activate(true))) return false;
    Block* pzBlock = this->GetMemoryBlock();
    if (!KIV_ASSERT(pzBlock != nullptr) || !pzBlock->MayVisitKeys(false)) return false;
    if (!Base::GetAllPosition(viPosition)) return false;
    KivKeyCollector zKeys(this->GetModelStatus(), viPosition);
    return pzBlock->VisitKeys(zKeys);
  });
}

template <typename Block>
bool KivElement<Block>::ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition) {
  return this->WithoutThrow([&] {
    Block* pzBlock = this->GetMemoryBlock();
    if (!KIV_ASSERT(pzBlock != nullptr) || !pzBlock->MayVisitKeys(true)) return false;
    if (!Base::ReplaceAllPosition(mapPosition)) return false;
    KivKeyReplacer zKeys(this->GetModelStatus(), mapPosition);
    return pzBlock->VisitKeys(zKeys);
  });
}

}  // namespace kiv
