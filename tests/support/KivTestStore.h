// Stores for tests: two element types of our own, and container files with or without position tables.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KivDataSpaceBase.h"
#include "KivOutOfCoreBlock.h"
#include "KivOutOfCoreHandle.h"
#include "KivOutOfCoreManager.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"

namespace kivtest {

// Record of both types: the common header of 68 bytes (the links at 16, the box at 40), then
//   68  u32  number of references, then as many u64
//   ..  u32  length of the text, then its bytes
struct TestBlock : kiv::KivMemoryBlock {
  kiv::KivMemoryBlockHeader GetHeader() const override { return m_zHeader; }
  kiv::KivMemoryBlockLinks GetLinks() override {
    return {&m_zHeader.m_aiLink[0], &m_zHeader.m_aiLink[1], &m_zHeader.m_aiLink[2]};
  }

  kiv::KivMemoryBlockHeader m_zHeader;
  std::vector<uint64_t> m_viReference;
  std::string m_strText;
};

constexpr uint32_t kTestHeaderSize = 68;
constexpr uint32_t kTestNoteIndex = 1;
constexpr uint32_t kTestBagIndex = 2;

// What a record of a test element with this text and no references has.
constexpr uint64_t TestRecordSize(uint64_t iTextSize) {
  return kTestHeaderSize + 4 + 4 + iTextSize;
}

std::vector<uint8_t> BuildTestRecord(uint32_t iTypeWord, const TestBlock& zBlock);
bool ParseTestRecord(uint32_t iTypeWord, const std::vector<uint8_t>& vcBytes, TestBlock& zBlock);

// Counters of the calls that the store makes, over all test elements.
struct TestElementCounts {
  int m_iObjects = 0;  // alive now
  int m_iLoads = 0;
  int m_iSaves = 0;
  int m_iReleases = 0;
};
TestElementCounts& TestCounts();

// What a test makes go wrong.
struct TestElementFaults {
  bool m_bLoadFails = false;
  bool m_bSaveFails = false;
};
TestElementFaults& TestFaults();

// One static block for all of the class.
class TestNote : public kiv::KivOutOfCoreBlockNode<TestBlock> {
 public:
  explicit TestNote(uint32_t iManagerKey);
  ~TestNote() override;

  bool Load(bool bModifyOnlyForPosition) override;
  bool Save(bool bModifyOnlyForPosition) override;
  bool Release() override;
  bool GetAllPosition(std::vector<uint64_t>& viPosition) override;
  bool ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition) override;
  uint32_t GetElementType() override { return TypeWord(); }

  virtual uint32_t TypeWord() const { return (kTestNoteIndex << 16) | 0x0101; }
  bool HasBlock() const { return m_pzMemoryBlock != nullptr; }
  using KivOutOfCoreData::GetDerivedValues;
  using KivOutOfCoreData::RawData;
};

// A block for each element; reserves half as much again as it needs; keeps the raw record.
class TestBag : public kiv::KivOutOfCoreTreeNode {
 public:
  explicit TestBag(uint32_t iManagerKey);
  ~TestBag() override;

  bool Load(bool bModifyOnlyForPosition) override;
  bool Save(bool bModifyOnlyForPosition) override;
  bool Release() override;
  uint64_t GetReservedSize(uint64_t iDataSize) override { return iDataSize + iDataSize / 2; }
  TestBlock* GetMemoryBlock() override;
  TestBlock* GetMemoryBlockForWrite() override;
  uint32_t GetElementType() override { return (kTestBagIndex << 16) | 0x0202; }
  using KivOutOfCoreData::RawData;

 private:
  std::unique_ptr<TestBlock> m_pzMemoryBlock;
};

// Registers both types with the data space, once in a process.
void RegisterTestTypes();

// The work folder of the whole test process, and the format.
void PrepareStoreProcess();

// Makes an empty container file. With bTables it gets a first position table and table mode 1.
void MakeContainerFile(const kiv::KivWString& csPath, bool bTables);
// Overwrites header bytes of a file; iOffset counts from the header's start.
void PatchHeader(const kiv::KivWString& csPath, uint32_t iOffset, const std::string& strBytes);
std::string FileBytes(const kiv::KivWString& csPath);
void PutFileBytes(const kiv::KivWString& csPath, const std::string& strBytes);

// Opens files as models of the one data space, and removes them at the end.
class StoreTest : public testing::Test {
 protected:
  StoreTest();
  ~StoreTest() override;

  kiv::KivDataSpaceBase& Space() { return *kiv::KivDataSpaceBase::GetInstance(); }
  kiv::KivWString MakeFile(const kiv::KivWString& csName, bool bTables = false);
  // Limits other than 1 are set at once.
  kiv::KivModelStatusBase* Open(const kiv::KivWString& csPath, bool bForWrite, int32_t iLimit = 1);
  void Close(kiv::KivModelStatusBase* pzModel);
  // A new note in the model, stored.
  kiv::KivOutOfCoreHandle AddNote(kiv::KivModelStatusBase* pzModel, const std::string& strText);
  kiv::KivOutOfCoreHandle AddBag(kiv::KivModelStatusBase* pzModel, const std::string& strText);
  // "" if the element cannot be fetched.
  std::string TextOf(const kiv::KivOutOfCoreHandle& zHandle);
  bool SetText(kiv::KivOutOfCoreHandle& zHandle, const std::string& strText);  // and stores it
  kiv::KivOutOfCoreManager* ManagerOf(kiv::KivModelStatusBase* pzModel) { return pzModel->GetManager(); }

  TestFolder m_zFolder;
};

}  // namespace kivtest
