// Files for containers under test, a reader of the container format that shares no code with the library, and a plain
// re-telling of the container's operations over two byte vectors, against which the library is compared byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ISnapShotFile.h"
#include "KivFastFileContainer.h"
#include "KivSharedPtr.h"
#include "KivTestFolder.h"
#include "KivTestScale.h"

namespace kivtest {

using Bytes = std::vector<uint8_t>;

// A quarter of the steps where each is far slower.
inline int ScaledSteps(int iSteps) {
  return static_cast<int>(Scaled(static_cast<uint64_t>(iSteps), static_cast<uint64_t>(iSteps) / 4));
}

enum class FileKind { Memory, Plain, Mapped };
const char* NameOf(FileKind iKind);

kiv::KivSharedPtr<kiv::ISnapShotFile> MakeMemory(const Bytes& vcContent = {});
// A new file in the folder.
kiv::KivSharedPtr<kiv::ISnapShotFile> MakeFile(FileKind iKind, const TestFolder& zFolder,
                                               const kiv::KivWString& csName);
// An existing one, for reading and writing.
kiv::KivSharedPtr<kiv::ISnapShotFile> OpenFile(FileKind iKind, const kiv::KivWString& csPath);
// An existing one below a cache that takes the writes.
kiv::KivSharedPtr<kiv::ISnapShotFile> OpenCached(const kiv::KivWString& csPath);
Bytes Content(kiv::ISnapShotFile& zFile);

// A file that answers like an unmanaged one although its bytes are in memory: no direct buffers.
kiv::KivSharedPtr<kiv::ISnapShotFile> MakeUnmanagedMemory(const Bytes& vcContent = {});

// A record of iSize bytes c.
kiv::Position AddSize(kiv::KivFastFileContainer& zContainer, uint32_t iSize, uint8_t c = 0x77);
// A record's payload, "(null)" if there is none.
std::string TextOf(kiv::KivFastFileContainer& zContainer, kiv::Position iFile);

// An existing container in two files of the test's own.
struct ContainerOfTwoFiles : kiv::KivFastFileContainerBase {
  ContainerOfTwoFiles(kiv::KivSharedPtr<kiv::ISnapShotFile> pzMain, kiv::KivSharedPtr<kiv::ISnapShotFile> pzUnused)
      : KivFastFileContainerBase(nullptr), m_pzMain(pzMain), m_pzUnused(pzUnused) {
    Initialize();
  }
  kiv::KivSharedPtr<kiv::ISnapShotFile> GetBaseFile() override { return m_pzMain; }
  kiv::KivSharedPtr<kiv::ISnapShotFile> GetUnusedRecordFile() override { return m_pzUnused; }
  kiv::KivSharedPtr<kiv::ISnapShotFile> m_pzMain, m_pzUnused;
};

Bytes BytesOfHex(const std::string& strHex);  // blanks and line ends are passed over

inline uint64_t U64At(const Bytes& vcBytes, uint64_t iOffset) {
  uint64_t iValue = 0;
  for (int i = 7; i >= 0; --i) iValue = iValue << 8 | vcBytes.at(static_cast<size_t>(iOffset) + static_cast<size_t>(i));
  return iValue;
}
inline uint32_t U32At(const Bytes& vcBytes, uint64_t iOffset) {
  uint32_t iValue = 0;
  for (int i = 3; i >= 0; --i) iValue = iValue << 8 | vcBytes.at(static_cast<size_t>(iOffset) + static_cast<size_t>(i));
  return iValue;
}
inline void PutU64(Bytes& vcBytes, uint64_t iOffset, uint64_t iValue) {
  if (vcBytes.size() < iOffset + 8) vcBytes.resize(static_cast<size_t>(iOffset + 8));
  for (size_t i = 0; i < 8; ++i) vcBytes[static_cast<size_t>(iOffset) + i] = static_cast<uint8_t>(iValue >> (8 * i));
}
inline void PutU32(Bytes& vcBytes, uint64_t iOffset, uint32_t iValue) {
  for (size_t i = 0; i < 4; ++i) vcBytes.at(static_cast<size_t>(iOffset) + i) = static_cast<uint8_t>(iValue >> (8 * i));
}

// --- Reader --------------------------------------------------------------------------------------

struct ReadRecord {
  uint64_t iSize;
  uint64_t iFileSize;
  bool bFree;
  Bytes vcPayload;  // of a record in use
};

struct ReadNodeInfo {
  bool bBranch;
  uint64_t iMin, iMax, iParent;
  std::vector<std::pair<uint64_t, uint64_t>> vPairs;  // size, position
  std::vector<uint64_t> viChildren;
};

struct ReadContainer {
  std::map<uint64_t, ReadRecord> mapRecord;
  std::map<uint64_t, ReadNodeInfo> mapNode;  // reached from the root
  std::string strError;                      // empty: sound
};

// Reads the records up to iEnd and the tree from iRoot.
ReadContainer ReadContainerBytes(const Bytes& vcMain, uint64_t iEnd, const Bytes& vcUnused, uint64_t iRoot);

// --- Oracle --------------------------------------------------------------------------------------

class ContainerOracle {
 public:
  // bManaged: both files are memory files, whose capacity the container sets.
  explicit ContainerOracle(bool bManaged, uint32_t iVersion, uint32_t iApplication, uint64_t iFileTime);

  uint64_t Add(const Bytes& vcPayload, uint32_t iPadding = 0);
  void Delete(uint64_t iFile);
  uint64_t Move(uint64_t iFile, uint64_t& iStart, uint64_t& iStoredAt);
  void Flush();

  Bytes vcMain;
  Bytes vcUnused;
  uint64_t iEnd = 264, iValid = 0, iNum = 0, iRoot = 0, iCursor = 0;
  uint32_t iOrder = 20;

 private:
  struct Node {
    uint8_t ac[360];
  };
  Node Read(uint64_t iNode) const;
  void Write(const Node& zNode);
  void Reserve(uint64_t iPayload);
  void WriteRecordBytes(uint64_t iFile, uint64_t iSize, const Bytes& vcPayload, uint32_t iPadding);
  void MakeFree(uint64_t iFile, uint64_t iSize);
  uint64_t Split(uint64_t iFile, uint64_t iFound, uint64_t iNeeded);
  bool Find(uint64_t iNode, uint64_t iSize, uint64_t& iFoundSize, uint64_t& iFoundFile) const;
  bool Insert(uint64_t iNode, uint64_t iSize, uint64_t iFile);
  bool Remove(uint64_t iNode, uint64_t iSize, uint64_t iFile);
  bool RemoveWhole(Node zNode);
  void Push(uint64_t iNode);
  uint64_t Allocate();

  bool m_bManaged;
};

}  // namespace kivtest
