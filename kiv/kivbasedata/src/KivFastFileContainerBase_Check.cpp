// The established consistency check and the dump.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "KivException.h"
#include "KivFastFileContainerBase.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint64_t kMaxPointers = 40;

// Decimal as a signed number, which is how the dump shows every count and position ("%I64d").
std::string Decimal(uint64_t iValue) {
  return std::to_string(static_cast<int64_t>(iValue));
}

// Bytes as "%02hhx".
std::string Hex(const uint8_t* pBytes, size_t nCount) {
  static const char* const szDigits = "0123456789abcdef";
  std::string strText;
  for (size_t i = 0; i < nCount; ++i) {
    strText += szDigits[pBytes[i] >> 4];
    strText += szDigits[pBytes[i] & 15];
  }
  return strText;
}

}  // namespace

// Walks the tree with an explicit stack, compares every pair with the main file and counts.
void KivFastFileContainerBase::CheckTree(uint64_t iDeletedFileNum, uint64_t& iCheckedNode,
                                         uint64_t& iFileInUnusedRecordFile) {
  iCheckedNode = 0;
  iFileInUnusedRecordFile = 0;
  const uint64_t iSlots = NodeSlotsInFile();
  std::vector<uint64_t> viStack{m_iRootNode};
  while (!viStack.empty()) {
    const uint64_t iNode = viStack.back();
    viStack.pop_back();
    if (iCheckedNode >= iSlots) {  // a ring
      KIV_FAIL();
      break;
    }
    ++iCheckedNode;
    NodeBytes acNode{};
    uint64_t nRead = 0;
    if (iNode >= kFirstNode && iNode <= kFirstNode + kNodeSize * iSlots)
      nRead = (iNode - kFirstNode) / kNodeSize < iSlots ? ReadUnusedRecordFile(iNode, acNode.data(), kNodeSize) : 0;
    if (nRead != kNodeSize) {
      KIV_FAIL();
      continue;
    }
    if (acNode[0] == 0) KIV_FAIL();
    if (KivLoad<uint64_t>(&acNode[32]) != iNode) KIV_FAIL();
    const uint64_t iNum = acNode[2];
    const bool bBranch = acNode[1] != 0;
    if (iNum > (bBranch ? kMaxPointers : kMaxPointers / 2)) {
      KIV_FAIL();
      continue;
    }
    if (iNum == 0) KIV_CHECK(iDeletedFileNum == 0);
    for (uint64_t i = 0; i < iNum; ++i) {
      if (bBranch) {
        viStack.push_back(KivLoad<uint64_t>(&acNode[40 + 8 * i]));
        continue;
      }
      ++iFileInUnusedRecordFile;
      const uint64_t iFileSize = KivLoad<uint64_t>(&acNode[40 + 16 * i]);
      uint64_t iRecordSizeInBaseFile = 0;
      uint64_t iFileSizeInBaseFile = 0;
      if (!ReadSizes(KivLoad<uint64_t>(&acNode[48 + 16 * i]), iRecordSizeInBaseFile, iFileSizeInBaseFile)) continue;
      KIV_CHECK(iFileSize == iRecordSizeInBaseFile);
      KIV_CHECK(iFileSizeInBaseFile == iRecordSizeInBaseFile);
    }
  }
  KIV_CHECK(iCheckedNode == GetValidNodeNum());
  KIV_CHECK(iFileInUnusedRecordFile == iDeletedFileNum);
}

bool KivFastFileContainerBase::CheckConsistency() {
  KIV_CHECK(!m_bContainerLocked);
  // From the header on, not from the first record: this is meant.
  uint64_t iCurrentPos = KivContainerHeader::kFilePosition;
  uint64_t iDeletedFileNum = 0;
  while (iCurrentPos < m_iEndPosition) {
    uint64_t iRecordSize = 0;
    uint64_t iFileSize = 0;
    if (!ReadSizes(iCurrentPos, iRecordSize, iFileSize)) break;
    if (iRecordSize == iFileSize) ++iDeletedFileNum;
    if (iRecordSize == 0) {
      KIV_FAIL();
      break;
    }
    if (iRecordSize > UINT64_MAX - iCurrentPos) {
      iCurrentPos = UINT64_MAX;
      break;
    }
    iCurrentPos += iRecordSize;
  }
  KIV_CHECK(iCurrentPos <= m_iEndPosition);
  uint64_t iCheckedNode = 0;
  uint64_t iFileInUnusedRecordFile = 0;
  CheckTree(iDeletedFileNum, iCheckedNode, iFileInUnusedRecordFile);
  return true;
}

bool KivFastFileContainerBase::Dump(const KivWString& csPath, std::map<Position, bool>& mapUsed) {
  KIV_CHECK(!m_bContainerLocked);
  if (csPath.empty()) return false;
  sys::RemoveFileAt(csPath);
  std::ofstream zDumpFile{std::filesystem::path(csPath)};  // as text: the platform's line ends
  if (!KIV_CHECK_AS(zDumpFile.is_open(), "pDumpFile != NULL")) return false;
  mapUsed.clear();

  zDumpFile << "MainFileBlockInfo\n";
  uint8_t acBytes[32] = {};
  ReadBaseFile(0, acBytes, 8);
  zDumpFile << "dummy(0-7) : " << Hex(acBytes, 8) << "\n";
  for (long iOffset = 8; iOffset <= 232; iOffset += 32) {
    char szRow[64];
    std::snprintf(szRow, sizeof szRow, "header(%3ld-%3ld) : ", iOffset, iOffset + 31);
    ReadBaseFile(static_cast<uint64_t>(iOffset), acBytes, sizeof acBytes);
    zDumpFile << szRow;
    for (size_t i = 0; i < sizeof acBytes; i += 8) zDumpFile << Hex(acBytes + i, 8) << " ";
    zDumpFile << "\n";
  }

  zDumpFile << "Position\tRecordSize\tFileSize\tUsedOrNot\n";
  uint64_t iValidBlockNum = 0;
  uint64_t iDeletedBlockNum = 0;
  uint64_t iCurrentPos = kFirstRecord;
  while (iCurrentPos < m_iEndPosition) {
    uint64_t iRecordSize = 0;
    uint64_t iFileSize = 0;
    if (!ReadSizes(iCurrentPos, iRecordSize, iFileSize)) break;
    const bool bUsed = iRecordSize != iFileSize;
    zDumpFile << Decimal(iCurrentPos) << "\t" << Decimal(iRecordSize) << "\t" << Decimal(iFileSize) << "\t"
              << (bUsed ? "used\n" : "NOT used\n");
    mapUsed[iCurrentPos] = bUsed;
    ++(bUsed ? iValidBlockNum : iDeletedBlockNum);
    if (iRecordSize == 0) {
      KIV_FAIL();
      zDumpFile << "break by size 0 record\n";
      break;
    }
    iCurrentPos = iRecordSize > UINT64_MAX - iCurrentPos ? UINT64_MAX : iCurrentPos + iRecordSize;
  }
  if (iCurrentPos > m_iEndPosition) {
    KIV_FAIL();
    zDumpFile << "iCurrentPos > m_iEndPosition\n";
  }
  zDumpFile << "ValidBlockNum = " << Decimal(iValidBlockNum) << "\n";
  zDumpFile << "DeletedBlockNum = " << Decimal(iDeletedBlockNum) << "\n";

  uint64_t iCheckedNode = 0;
  uint64_t iFileInUnusedRecordFile = 0;
  CheckTree(iDeletedBlockNum, iCheckedNode, iFileInUnusedRecordFile);
  zDumpFile << "UnusedRecordFileInfo\n";
  zDumpFile << "iCheckedNode = " << Decimal(iCheckedNode) << "\n";
  zDumpFile << "ValidNodeNum = " << Decimal(GetValidNodeNum()) << "\n";
  zDumpFile << "iFileInUnusedRecordFile = " << Decimal(iFileInUnusedRecordFile) << "\n";
  return true;
}

}  // namespace kiv
