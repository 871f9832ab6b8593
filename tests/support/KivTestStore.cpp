#include "KivTestStore.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "KivContainerHeader.h"
#include "KivDataUtil.h"
#include "KivLittleEndian.h"
#include "KivOutOfCorePositionTables.h"

namespace kivtest {

using namespace kiv;

namespace {

constexpr uint64_t kLinks = 16;
constexpr uint64_t kBox = 40;

template <typename T>
void Append(std::vector<uint8_t>& vcBytes, T value) {
  vcBytes.resize(vcBytes.size() + sizeof(T));
  KivStore<T>(vcBytes.data() + vcBytes.size() - sizeof(T), value);
}

KivOutOfCoreData* MakeNote(uint32_t, uint32_t iManagerKey) {
  return new TestNote(iManagerKey);
}
KivOutOfCoreData* MakeBag(uint32_t, uint32_t iManagerKey) {
  return new TestBag(iManagerKey);
}

// An attribute of these types is one key.
bool GetKey(const std::vector<uint8_t>& vcAttribute, std::vector<uint64_t>& viPosition) {
  if (vcAttribute.size() != 8) return false;
  viPosition.push_back(KivLoad<uint64_t>(vcAttribute.data()));
  return true;
}
bool ReplaceKey(std::vector<uint8_t>& vcAttribute, const std::map<uint64_t, uint64_t>& mapPosition) {
  if (vcAttribute.size() != 8) return false;
  const auto itNew = mapPosition.find(KivLoad<uint64_t>(vcAttribute.data()));
  if (itNew == mapPosition.end()) return false;
  KivStore<uint64_t>(vcAttribute.data(), itNew->second);
  return true;
}

}  // namespace

std::vector<uint8_t> BuildTestRecord(uint32_t iTypeWord, const TestBlock& zBlock) {
  std::vector<uint8_t> vcBytes(kTestHeaderSize);
  KivStore<uint32_t>(&vcBytes[0], iTypeWord);
  KivStore<uint32_t>(&vcBytes[8], 1);
  KivStore<uint32_t>(&vcBytes[12], kTestHeaderSize);
  for (size_t i = 0; i < 3; ++i) {
    KivStore<uint64_t>(&vcBytes[kLinks + 8 * i], zBlock.m_zHeader.m_aiLink[i]);
    KivStore<float>(&vcBytes[kBox + 4 * i], zBlock.m_zHeader.m_afBoxMin[i]);
    KivStore<float>(&vcBytes[kBox + 12 + 4 * i], zBlock.m_zHeader.m_afBoxMax[i]);
  }
  Append<uint32_t>(vcBytes, static_cast<uint32_t>(zBlock.m_viReference.size()));
  for (const uint64_t iReference : zBlock.m_viReference) Append<uint64_t>(vcBytes, iReference);
  Append<uint32_t>(vcBytes, static_cast<uint32_t>(zBlock.m_strText.size()));
  vcBytes.insert(vcBytes.end(), zBlock.m_strText.begin(), zBlock.m_strText.end());
  return vcBytes;
}

bool ParseTestRecord(uint32_t iTypeWord, const std::vector<uint8_t>& vcBytes, TestBlock& zBlock) {
  zBlock = TestBlock();
  zBlock.m_zHeader.m_iTag = iTypeWord;
  if (vcBytes.size() < kTestHeaderSize + 8 || KivLoad<uint32_t>(vcBytes.data()) != iTypeWord) return false;
  for (size_t i = 0; i < 3; ++i) {
    zBlock.m_zHeader.m_aiLink[i] = KivLoad<uint64_t>(&vcBytes[kLinks + 8 * i]);
    zBlock.m_zHeader.m_afBoxMin[i] = KivLoad<float>(&vcBytes[kBox + 4 * i]);
    zBlock.m_zHeader.m_afBoxMax[i] = KivLoad<float>(&vcBytes[kBox + 12 + 4 * i]);
  }
  uint64_t iPos = kTestHeaderSize;
  const uint64_t nReference = KivLoad<uint32_t>(&vcBytes[iPos]);
  iPos += 4;
  if (nReference > (vcBytes.size() - iPos) / 8) return false;
  for (uint64_t i = 0; i < nReference; ++i, iPos += 8)
    zBlock.m_viReference.push_back(KivLoad<uint64_t>(&vcBytes[iPos]));
  if (vcBytes.size() - iPos < 4) return false;
  const uint64_t nText = KivLoad<uint32_t>(&vcBytes[iPos]);
  iPos += 4;
  if (nText > vcBytes.size() - iPos) return false;
  zBlock.m_strText.assign(reinterpret_cast<const char*>(&vcBytes[0]) + iPos, nText);
  return true;
}

TestElementCounts& TestCounts() {
  static TestElementCounts zCounts;
  return zCounts;
}

TestElementFaults& TestFaults() {
  static TestElementFaults zFaults;
  return zFaults;
}

// --- TestNote -------------------------------------------------------------------------------------------------------

TestNote::TestNote(uint32_t iManagerKey) : KivOutOfCoreBlockNode(iManagerKey) {
  ++TestCounts().m_iObjects;
}

TestNote::~TestNote() {
  --TestCounts().m_iObjects;
}

bool TestNote::Load(bool) {
  ++TestCounts().m_iLoads;
  return WithoutThrow([this] {
    if (TestFaults().m_bLoadFails) return false;
    TestBlock* pzBlock = TakeBlock();
    if (pzBlock == nullptr) return false;
    *pzBlock = TestBlock();
    if (m_iDataSize == 0) return true;
    std::vector<uint8_t> vcBytes(static_cast<size_t>(m_iDataSize));
    return ReadData(vcBytes.data(), vcBytes.size()) && ParseTestRecord(TypeWord(), vcBytes, *pzBlock);
  });
}

bool TestNote::Save(bool) {
  ++TestCounts().m_iSaves;
  return WithoutThrow([this] {
    if (TestFaults().m_bSaveFails || m_pzMemoryBlock == nullptr) return false;
    const std::vector<uint8_t> vcBytes = BuildTestRecord(TypeWord(), *m_pzMemoryBlock);
    return WriteData(vcBytes.data(), vcBytes.size());
  });
}

bool TestNote::Release() {
  ++TestCounts().m_iReleases;
  return KivOutOfCoreBlockNode::Release();
}

bool TestNote::GetAllPosition(std::vector<uint64_t>& viPosition) {
  if (!KivOutOfCoreTreeNode::GetAllPosition(viPosition)) return false;
  const TestBlock* pzBlock = GetMemoryBlock();
  if (pzBlock == nullptr) return false;
  viPosition.insert(viPosition.end(), pzBlock->m_viReference.begin(), pzBlock->m_viReference.end());
  return true;
}

bool TestNote::ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition) {
  if (!KivOutOfCoreTreeNode::ReplaceAllPosition(mapPosition)) return false;
  TestBlock* pzBlock = GetMemoryBlockForWrite();
  if (pzBlock == nullptr) return false;
  for (uint64_t& iReference : pzBlock->m_viReference) {
    const auto itNew = mapPosition.find(iReference);
    if (itNew == mapPosition.end()) return false;
    iReference = itNew->second;
  }
  return true;
}

// --- TestBag --------------------------------------------------------------------------------------------------------

TestBag::TestBag(uint32_t iManagerKey) : KivOutOfCoreTreeNode(iManagerKey) {
  ++TestCounts().m_iObjects;
}

TestBag::~TestBag() {
  --TestCounts().m_iObjects;
}

bool TestBag::Load(bool) {
  ++TestCounts().m_iLoads;
  return WithoutThrow([this] {
    if (TestFaults().m_bLoadFails) return false;
    m_pzMemoryBlock = std::make_unique<TestBlock>();
    if (m_iDataSize == 0) return true;
    if (m_vcRawData.size() != m_iDataSize) {
      m_vcRawData.resize(static_cast<size_t>(m_iDataSize));
      if (!ReadData(m_vcRawData.data(), m_vcRawData.size())) {
        m_vcRawData.clear();
        return false;
      }
    }
    return ParseTestRecord(GetElementType(), m_vcRawData, *m_pzMemoryBlock);
  });
}

bool TestBag::Save(bool) {
  ++TestCounts().m_iSaves;
  return WithoutThrow([this] {
    if (TestFaults().m_bSaveFails || m_pzMemoryBlock == nullptr) return false;
    const std::vector<uint8_t> vcBytes = BuildTestRecord(GetElementType(), *m_pzMemoryBlock);
    return WriteData(vcBytes.data(), vcBytes.size());
  });
}

bool TestBag::Release() {
  ++TestCounts().m_iReleases;
  m_pzMemoryBlock.reset();
  return true;
}

TestBlock* TestBag::GetMemoryBlock() {
  if (!Activate(false)) return nullptr;
  if (m_pzMemoryBlock == nullptr && !Load(false)) return nullptr;
  return m_pzMemoryBlock.get();
}

TestBlock* TestBag::GetMemoryBlockForWrite() {
  TestBlock* pzBlock = GetMemoryBlock();
  if (pzBlock != nullptr) MarkModified();
  return pzBlock;
}

// --- Files and models -----------------------------------------------------------------------------------------------

void RegisterTestTypes() {
  KivDataSpaceBase* pzSpace = KivDataSpaceBase::GetInstance();
  const std::pair<uint32_t, KivElementFactory> azType[] = {{kTestNoteIndex, MakeNote}, {kTestBagIndex, MakeBag}};
  for (const auto& [iIndex, pfnMake] : azType) {
    pzSpace->SetGetOutOfCoreData(iIndex, pfnMake);
    for (uint32_t iRow = 0; iRow < kKivHandlerRowNum; ++iRow) {
      pzSpace->SetGetAllPosition(iRow, iIndex, GetKey);
      pzSpace->SetReplaceAllPosition(iRow, iIndex, ReplaceKey);
    }
  }
}

void PrepareStoreProcess() {
  static const TestFolder zFolder;
  static const bool bSet = KivSetWorkFolder(zFolder / u"work");
  ASSERT_TRUE(bSet);
  static const bool bFormat = KivRegisterOwnFormat();
  ASSERT_TRUE(bFormat);
}

std::string FileBytes(const KivWString& csPath) {
  std::ifstream zFile(std::filesystem::path(csPath), std::ios::binary);
  std::stringstream zText;
  zText << zFile.rdbuf();
  return zText.str();
}

void PutFileBytes(const KivWString& csPath, const std::string& strBytes) {
  std::ofstream zFile(std::filesystem::path(csPath), std::ios::binary);
  zFile.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
}

void PatchHeader(const KivWString& csPath, uint32_t iOffset, const std::string& strBytes) {
  std::fstream zFile(std::filesystem::path(csPath), std::ios::binary | std::ios::in | std::ios::out);
  zFile.seekp(static_cast<std::streamoff>(KivContainerHeader::kFilePosition + iOffset));
  zFile.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
}

void MakeContainerFile(const KivWString& csPath, bool bTables) {
  Position iFirstTable = 0;
  {
    KivStoreSource zSource;
    zSource.m_csPath = csPath;
    const KivOutOfCoreManagerKeyOwner zOwner(zSource);
    ASSERT_NE(zOwner.GetManager(), nullptr);
    if (bTables) {
      KivOutOfCorePositionTables zTables(zOwner.GetKey());
      iFirstTable = zTables.NewTable();
      ASSERT_NE(iFirstTable, 0U);
    }
  }
  if (!bTables) return;
  std::string strFirst(8, '\0');
  KivStore<uint64_t>(strFirst.data(), iFirstTable);
  PatchHeader(csPath, KivContainerHeader::FirstPositionTable, strFirst);
  PatchHeader(csPath, KivContainerHeader::FilePositionTableMode, std::string("\1\0\0\0", 4));
}

StoreTest::StoreTest() {
  PrepareStoreProcess();
  RegisterTestTypes();
}

StoreTest::~StoreTest() {
  TestFaults() = TestElementFaults();
  const NoThrowScope zNoThrow;
  Space().RemoveAllModels();
}

KivWString StoreTest::MakeFile(const KivWString& csName, bool bTables) {
  const KivWString csPath = m_zFolder / csName;
  MakeContainerFile(csPath, bTables);
  return csPath;
}

KivModelStatusBase* StoreTest::Open(const KivWString& csPath, bool bForWrite, int32_t iLimit) {
  KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = bForWrite;
  KivModelStatusBase* pzModel = nullptr;
  EXPECT_EQ(Space().AddModel(csPath, zInfo, &pzModel), KivAddModelResult::Done);
  if (pzModel != nullptr && iLimit != 1) {
    EXPECT_TRUE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(pzModel->GetKey(), iLimit));
  }
  return pzModel;
}

void StoreTest::Close(KivModelStatusBase* pzModel) {
  EXPECT_EQ(Space().RemoveModel(pzModel), KivRemoveModelResult::Done);
}

KivOutOfCoreHandle StoreTest::AddNote(KivModelStatusBase* pzModel, const std::string& strText) {
  auto pzNote = std::make_unique<TestNote>(pzModel->GetKey());
  TestBlock* pzBlock = pzNote->GetMemoryBlockForWrite();
  if (pzBlock == nullptr) return KivOutOfCoreHandle();
  pzBlock->m_strText = strText;
  return KivStoreNewElement(std::move(pzNote));
}

KivOutOfCoreHandle StoreTest::AddBag(KivModelStatusBase* pzModel, const std::string& strText) {
  auto pzBag = std::make_unique<TestBag>(pzModel->GetKey());
  TestBlock* pzBlock = pzBag->GetMemoryBlockForWrite();
  if (pzBlock == nullptr) return KivOutOfCoreHandle();
  pzBlock->m_strText = strText;
  return KivStoreNewElement(std::move(pzBag));
}

std::string StoreTest::TextOf(const KivOutOfCoreHandle& zHandle) {
  auto* pzNode = zHandle.Fetch<KivOutOfCoreTreeNode>();
  auto* pzBlock = pzNode != nullptr ? dynamic_cast<TestBlock*>(pzNode->GetMemoryBlock()) : nullptr;
  return pzBlock != nullptr ? pzBlock->m_strText : std::string();
}

bool StoreTest::SetText(KivOutOfCoreHandle& zHandle, const std::string& strText) {
  auto* pzNode = zHandle.Fetch<KivOutOfCoreTreeNode>();
  auto* pzBlock = pzNode != nullptr ? dynamic_cast<TestBlock*>(pzNode->GetMemoryBlockForWrite()) : nullptr;
  if (pzBlock == nullptr) return false;
  pzBlock->m_strText = strText;
  return zHandle.Commit();
}

}  // namespace kivtest
