#include "KivTestContainer.h"

#include <algorithm>
#include <set>

#include "KivFileFactory.h"
#include "KivSysFile.h"
#include "KivWritableMemFile.h"

namespace kivtest {
namespace {

using kiv::KivSharedPtr;

class UnmanagedMemoryFile : public kiv::KivWritableMemFile {
 public:
  bool CanUseDirectBuffer() override { return false; }
  kiv::KivFile* CreateInstance() override { return new UnmanagedMemoryFile; }
};

}  // namespace

const char* NameOf(FileKind iKind) {
  return iKind == FileKind::Memory ? "memory" : iKind == FileKind::Plain ? "plain" : "mapped";
}

KivSharedPtr<kiv::ISnapShotFile> MakeMemory(const Bytes& vcContent) {
  auto* pzFile = new kiv::KivWritableMemFile;
  pzFile->m_vcData = vcContent;
  return KivSharedPtr<kiv::ISnapShotFile>(pzFile);
}

KivSharedPtr<kiv::ISnapShotFile> MakeUnmanagedMemory(const Bytes& vcContent) {
  auto* pzFile = new UnmanagedMemoryFile;
  pzFile->m_vcData = vcContent;
  return KivSharedPtr<kiv::ISnapShotFile>(pzFile);
}

static KivSharedPtr<kiv::ISnapShotFile> Wrap(FileKind iKind, const kiv::KivWString& csPath, bool bNew) {
  if (iKind == FileKind::Memory) return MakeMemory();
  kiv::KivSysOpenMode zMode;
  zMode.m_iAccess = kiv::KivSysAccess::ReadWrite;
  zMode.m_iShare = kiv::KivSysShare::None;
  zMode.m_iDisposition = bNew ? kiv::KivSysDisposition::CreateAlways : kiv::KivSysDisposition::OpenExisting;
  zMode.m_iFlags = kiv::KivSysFileFlags::RandomAccess;
  kiv::KivSysFile zFile = kiv::KivSysFile::Open(csPath, zMode);
  if (!zFile.IsOpen()) return {};
  return iKind == FileKind::Plain ? kiv::KivCreateFile(std::move(zFile)) : kiv::KivCreateMappedFile(std::move(zFile));
}

KivSharedPtr<kiv::ISnapShotFile> MakeFile(FileKind iKind, const TestFolder& zFolder, const kiv::KivWString& csName) {
  return Wrap(iKind, zFolder / csName, true);
}

KivSharedPtr<kiv::ISnapShotFile> OpenFile(FileKind iKind, const kiv::KivWString& csPath) {
  return Wrap(iKind, csPath, false);
}

KivSharedPtr<kiv::ISnapShotFile> OpenCached(const kiv::KivWString& csPath) {
  kiv::KivSysOpenMode zMode;
  zMode.m_iShare = kiv::KivSysShare::ReadWrite;
  kiv::KivSysFile zFile = kiv::KivSysFile::Open(csPath, zMode);
  if (!zFile.IsOpen()) return {};
  return kiv::KivCreateReadOnlyMappedFile(std::move(zFile), kiv::KivSysFile());
}

Bytes Content(kiv::ISnapShotFile& zFile) {
  Bytes vcBytes(static_cast<size_t>(zFile.GetLength()));
  if (!vcBytes.empty()) zFile.Read(0, vcBytes.data(), vcBytes.size());
  return vcBytes;
}

kiv::Position AddSize(kiv::KivFastFileContainer& zContainer, uint32_t iSize, uint8_t c) {
  const Bytes vcPayload(iSize + 1, c);
  return zContainer.AddRecord(kiv::KivContainerData(vcPayload.data(), iSize));
}

std::string TextOf(kiv::KivFastFileContainer& zContainer, kiv::Position iFile) {
  const kiv::KivContainerRecord zRecord = zContainer.GetRecord(iFile);
  if (!zRecord.m_pzFile) return "(null)";
  std::string strText(zRecord.m_iFileSize, '\0');
  zRecord.m_pzFile->Read(zRecord.m_iOffset, strText.data(), strText.size());
  return strText;
}

Bytes BytesOfHex(const std::string& strHex) {
  Bytes vcBytes;
  int iHalf = -1;
  for (const char c : strHex) {
    if (c == ' ' || c == '\n') continue;
    const int iDigit = c <= '9' ? c - '0' : (c | 32) - 'a' + 10;
    if (iHalf < 0) {
      iHalf = iDigit;
    } else {
      vcBytes.push_back(static_cast<uint8_t>(iHalf * 16 + iDigit));
      iHalf = -1;
    }
  }
  return vcBytes;
}

// --- Reader --------------------------------------------------------------------------------------

ReadContainer ReadContainerBytes(const Bytes& vcMain, uint64_t iEnd, const Bytes& vcUnused, uint64_t iRoot) {
  ReadContainer zRead;
  const auto Fail = [&](const std::string& strText, uint64_t iPosition) {
    if (zRead.strError.empty()) zRead.strError = strText + " at " + std::to_string(iPosition);
  };
  uint64_t iFile = 264;
  while (iFile < iEnd && zRead.strError.empty()) {
    ReadRecord zRecord{U64At(vcMain, iFile), U64At(vcMain, iFile + 8), false, {}};
    if (zRecord.iSize < 24 || zRecord.iSize > iEnd - iFile) {
      Fail("record size", iFile);
      break;
    }
    if (U64At(vcMain, iFile + zRecord.iSize - 8) != iFile) Fail("back pointer", iFile);
    zRecord.bFree = zRecord.iSize == zRecord.iFileSize;
    if (zRecord.bFree) {
      for (uint64_t i = iFile + 16; i < iFile + zRecord.iSize - 8; ++i)
        if (vcMain[static_cast<size_t>(i)] != 0) Fail("free record not zero", i);
    } else if (zRecord.iFileSize + 24 > zRecord.iSize) {
      Fail("payload size", iFile);
      break;
    } else {
      const auto itFirst = vcMain.begin() + static_cast<ptrdiff_t>(iFile) + 16;
      zRecord.vcPayload.assign(itFirst, itFirst + static_cast<ptrdiff_t>(zRecord.iFileSize));
    }
    zRead.mapRecord[iFile] = zRecord;
    iFile += zRecord.iSize;
  }
  if (iFile != iEnd) Fail("walk does not end at the end", iFile);

  std::vector<std::pair<uint64_t, uint64_t>> vPending{{iRoot, 0}};
  std::map<uint64_t, uint64_t> mapFree;
  while (!vPending.empty() && zRead.strError.empty()) {
    const auto [iNode, iParent] = vPending.back();
    vPending.pop_back();
    if (iNode < 8 || (iNode - 8) % 360 != 0 || iNode + 360 > vcUnused.size() || zRead.mapNode.count(iNode) != 0) {
      Fail("node position", iNode);
      break;
    }
    ReadNodeInfo zNode{vcUnused[static_cast<size_t>(iNode) + 1] != 0,
                       U64At(vcUnused, iNode + 8),
                       U64At(vcUnused, iNode + 16),
                       U64At(vcUnused, iNode + 24),
                       {},
                       {}};
    const uint32_t iNum = vcUnused[static_cast<size_t>(iNode) + 2];
    if (vcUnused[static_cast<size_t>(iNode)] != 1) Fail("unused node", iNode);
    if (zNode.iParent != iParent) Fail("parent", iNode);
    if (U64At(vcUnused, iNode + 32) != iNode) Fail("own position", iNode);
    if (iNum > 20) Fail("child number", iNode);
    if (iNum == 0 && iNode != iRoot) Fail("empty node", iNode);
    for (uint64_t i = 0; i < iNum && i < 20; ++i) {
      if (zNode.bBranch) {
        const uint64_t iChild = U64At(vcUnused, iNode + 40 + 8 * i);
        zNode.viChildren.push_back(iChild);
        vPending.emplace_back(iChild, iNode);
      } else {
        const uint64_t iSize = U64At(vcUnused, iNode + 40 + 16 * i);
        const uint64_t iPosition = U64At(vcUnused, iNode + 48 + 16 * i);
        if (iSize < zNode.iMin || iSize > zNode.iMax) Fail("pair outside range", iNode);
        if (!zNode.vPairs.empty() && zNode.vPairs.back().first > iSize) Fail("pair order", iNode);
        zNode.vPairs.emplace_back(iSize, iPosition);
        if (!mapFree.emplace(iPosition, iSize).second) Fail("pair twice", iPosition);
      }
    }
    zRead.mapNode[iNode] = zNode;
  }
  for (const auto& [iNode, zNode] : zRead.mapNode) {
    if (!zNode.bBranch || !zRead.strError.empty()) continue;
    uint64_t iTo = zNode.iMin;
    for (const uint64_t iChild : zNode.viChildren) {
      const ReadNodeInfo& zChild = zRead.mapNode[iChild];
      if (zChild.iMin > iTo || zChild.iMax < iTo) Fail("children's ranges", iNode);
      iTo = zChild.iMax;
    }
    if (iTo < zNode.iMax) Fail("children's ranges at the end", iNode);
  }
  for (const auto& [iPosition, zRecord] : zRead.mapRecord)
    if (zRecord.bFree && (mapFree.count(iPosition) == 0 || mapFree[iPosition] != zRecord.iSize))
      Fail("free record without pair", iPosition);
  for (const auto& [iPosition, iSize] : mapFree)
    if (zRead.mapRecord.count(iPosition) == 0 || !zRead.mapRecord[iPosition].bFree)
      Fail("pair without record", iPosition);
  return zRead;
}

// --- Oracle --------------------------------------------------------------------------------------

namespace {

void Grow(Bytes& vcBytes, uint64_t iSize) {
  if (vcBytes.size() < iSize) vcBytes.resize(static_cast<size_t>(iSize));
}

uint64_t Get(const uint8_t* p, uint64_t iOffset) {
  uint64_t iValue;
  std::memcpy(&iValue, p + iOffset, 8);
  return iValue;
}
void Set(uint8_t* p, uint64_t iOffset, uint64_t iValue) {
  std::memcpy(p + iOffset, &iValue, 8);
}

}  // namespace

ContainerOracle::ContainerOracle(bool bManaged, uint32_t iVersion, uint32_t iApplication, uint64_t iFileTime)
    : m_bManaged(bManaged) {
  if (bManaged) {
    Grow(vcMain, 1024);
    Grow(vcUnused, 1024);
  }
  Grow(vcMain, 264);
  for (size_t i = 0; i < 8; ++i) {
    vcMain[8 + i] = 0x14;
    vcMain[16 + i] = 0xB0;
  }
  PutU32(vcMain, 8 + 16, 10);
  PutU32(vcMain, 8 + 20, iVersion);
  PutU32(vcMain, 8 + 28, 0x01020408);
  PutU64(vcMain, 8 + 32, 0x0102040810111214);
  PutU32(vcMain, 8 + 40, 0x3FB504F3);
  PutU64(vcMain, 8 + 48, 0x7530BD06CA8E49A6);
  PutU32(vcMain, 8 + 56, iApplication);
  PutU64(vcMain, 8 + 60, iFileTime);
  PutU64(vcMain, 8 + 72, 264);
  PutU32(vcMain, 8 + 128, 20);
  Grow(vcUnused, 8);
  iRoot = Allocate();
  Node zRoot{};
  zRoot.ac[0] = 1;
  Set(zRoot.ac, 16, UINT64_MAX);
  Set(zRoot.ac, 32, iRoot);
  Write(zRoot);
}

ContainerOracle::Node ContainerOracle::Read(uint64_t iNode) const {
  Node zNode;
  std::memcpy(zNode.ac, vcUnused.data() + iNode, 360);
  return zNode;
}

void ContainerOracle::Write(const Node& zNode) {
  const uint64_t iNode = Get(zNode.ac, 32);
  Grow(vcUnused, iNode + 360);
  std::memcpy(vcUnused.data() + iNode, zNode.ac, 360);
}

void ContainerOracle::Reserve(uint64_t iPayload) {
  if (!m_bManaged) return;
  const uint64_t n = iEnd + iPayload + 1024;
  if (vcMain.size() < n) Grow(vcMain, std::max(iEnd + iEnd / 32, n));
  const uint64_t m = iNum * 360 + 8;
  if (vcUnused.size() < m + 1024) Grow(vcUnused, m + 1024 + m / 32);
}

void ContainerOracle::WriteRecordBytes(uint64_t iFile, uint64_t iSize, const Bytes& vcPayload, uint32_t iPadding) {
  PutU64(vcMain, iFile, iSize);
  PutU64(vcMain, iFile + 8, vcPayload.size());
  Grow(vcMain, iFile + 16 + vcPayload.size());
  for (size_t i = 0; i < vcPayload.size(); ++i)
    vcMain[static_cast<size_t>(iFile) + 16 + i] = i < vcPayload.size() - iPadding ? vcPayload[i] : uint8_t{0};
  PutU64(vcMain, iFile + iSize - 8, iFile);
}

void ContainerOracle::MakeFree(uint64_t iFile, uint64_t iSize) {
  PutU64(vcMain, iFile, iSize);
  PutU64(vcMain, iFile + 8, iSize);
  PutU64(vcMain, iFile + iSize - 8, iFile);
}

uint64_t ContainerOracle::Split(uint64_t iFile, uint64_t iFound, uint64_t iNeeded) {
  if (iFound < iNeeded + 50) return iFound;
  MakeFree(iFile + iNeeded, iFound - iNeeded);
  Insert(iRoot, iFound - iNeeded, iFile + iNeeded);
  return iNeeded;
}

uint64_t ContainerOracle::Add(const Bytes& vcPayload, uint32_t iPadding) {
  Reserve(vcPayload.size());
  const uint64_t iNeeded = vcPayload.size() + 24;
  uint64_t iFound = 0;
  uint64_t iFile = 0;
  if (Find(iRoot, iNeeded, iFound, iFile)) {
    Remove(iRoot, iFound, iFile);
    WriteRecordBytes(iFile, Split(iFile, iFound, iNeeded), vcPayload, iPadding);
    return iFile;
  }
  iFile = iEnd;
  WriteRecordBytes(iFile, iNeeded, vcPayload, iPadding);
  iEnd += iNeeded;
  return iFile;
}

void ContainerOracle::Delete(uint64_t iFile) {
  Reserve(0);
  uint64_t iStart = iFile;
  uint64_t iLeftSize = 0;
  uint64_t iLeft = 0;
  const uint64_t l = U64At(vcMain, iFile - 8);
  if (U64At(vcMain, l) == U64At(vcMain, l + 8)) {
    iLeft = iStart = l;
    iLeftSize = U64At(vcMain, l);
  }
  uint64_t iMerged = iLeftSize + U64At(vcMain, iFile);
  const uint64_t n = iFile + U64At(vcMain, iFile);
  uint64_t iRight = 0;
  if (iEnd > n && U64At(vcMain, n) == U64At(vcMain, n + 8)) {
    iRight = n;
    iMerged += U64At(vcMain, n);
  }
  if (iLeft != 0) Remove(iRoot, iLeftSize, iLeft);
  if (iRight != 0) Remove(iRoot, U64At(vcMain, iRight), iRight);
  std::memset(vcMain.data() + iStart, 0, static_cast<size_t>(iMerged));
  MakeFree(iStart, iMerged);
  Insert(iRoot, iMerged, iStart);
}

uint64_t ContainerOracle::Move(uint64_t iFile, uint64_t& iStart, uint64_t& iStoredAt) {
  uint64_t c = std::max<uint64_t>(iStart, 264);
  const uint64_t iSize = U64At(vcMain, iFile + 8);
  const Bytes vcPayload(vcMain.begin() + static_cast<ptrdiff_t>(iFile) + 16,
                        vcMain.begin() + static_cast<ptrdiff_t>(iFile + 16 + iSize));
  Delete(iFile);
  const uint64_t iNeeded = iSize + 24;
  for (; c < iEnd; c += U64At(vcMain, c)) {
    const uint64_t g = U64At(vcMain, c);
    if (g != U64At(vcMain, c + 8) || g < iNeeded) continue;
    Reserve(0);
    Remove(iRoot, g, c);
    WriteRecordBytes(c, Split(c, g, iNeeded), vcPayload, 0);
    iStart = iStoredAt = c;
    return c;
  }
  iStoredAt = Add(vcPayload);
  return 0;
}

bool ContainerOracle::Find(uint64_t iNode, uint64_t iSize, uint64_t& iFoundSize, uint64_t& iFoundFile) const {
  const Node zNode = Read(iNode);
  if (Get(zNode.ac, 16) < iSize) return false;
  for (uint64_t i = 0; i < zNode.ac[2]; ++i) {
    if (zNode.ac[1] != 0) {
      if (Find(Get(zNode.ac, 40 + 8 * i), iSize, iFoundSize, iFoundFile)) return true;
    } else if (Get(zNode.ac, 40 + 16 * i) >= iSize) {
      iFoundSize = Get(zNode.ac, 40 + 16 * i);
      iFoundFile = Get(zNode.ac, 48 + 16 * i);
      return true;
    }
  }
  return false;
}

bool ContainerOracle::Insert(uint64_t iNode, uint64_t iSize, uint64_t iFile) {
  Node zNode = Read(iNode);
  if (iSize < Get(zNode.ac, 8) || iSize > Get(zNode.ac, 16)) return false;
  uint64_t iCount = zNode.ac[2];
  if (zNode.ac[1] != 0) {
    for (uint64_t i = 0; i < iCount; ++i)
      if (Insert(Get(zNode.ac, 40 + 8 * i), iSize, iFile)) return true;
    return false;
  }
  if (iCount < iOrder) {
    uint64_t i = 0;
    while (i < iCount && Get(zNode.ac, 40 + 16 * i) < iSize) ++i;
    for (uint64_t k = iCount; k > i; --k) {
      Set(zNode.ac, 40 + 16 * k, Get(zNode.ac, 40 + 16 * (k - 1)));
      Set(zNode.ac, 48 + 16 * k, Get(zNode.ac, 48 + 16 * (k - 1)));
    }
    Set(zNode.ac, 40 + 16 * i, iSize);
    Set(zNode.ac, 48 + 16 * i, iFile);
    ++zNode.ac[2];
    Write(zNode);
    return true;
  }
  const uint64_t h = iOrder / 2;
  const uint64_t k = Get(zNode.ac, 40 + 16 * (h - 1));
  const auto NewNode = [this] {
    Node zNew{};
    zNew.ac[0] = 1;
    Set(zNew.ac, 32, Allocate());
    Write(zNew);
    return zNew;
  };
  Node zLeft = NewNode();
  Node zRight = NewNode();
  const uint64_t iLeft = Get(zLeft.ac, 32);
  const uint64_t iRight = Get(zRight.ac, 32);
  zLeft.ac[2] = static_cast<uint8_t>(h);
  zRight.ac[2] = static_cast<uint8_t>(iOrder - h);
  Set(zLeft.ac, 8, Get(zNode.ac, 8));
  Set(zLeft.ac, 16, k);
  Set(zRight.ac, 8, k);
  Set(zRight.ac, 16, Get(zNode.ac, 16));
  Set(zLeft.ac, 24, iNode);
  Set(zRight.ac, 24, iNode);
  for (uint64_t i = 0; i < 2 * h; ++i) Set(zLeft.ac, 40 + 8 * i, Get(zNode.ac, 40 + 8 * i));
  for (uint64_t i = 0; i < 2 * (iOrder - h); ++i) Set(zRight.ac, 40 + 8 * i, Get(zNode.ac, 40 + 8 * (i + 2 * h)));
  Write(zLeft);
  Write(zRight);
  const uint64_t iParent = Get(zNode.ac, 24);
  if (iParent == 0 || Read(iParent).ac[2] == iOrder) {
    zNode.ac[1] = 1;
    zNode.ac[2] = 2;
    std::memset(zNode.ac + 40, 0, 320);
    Set(zNode.ac, 40, iLeft);
    Set(zNode.ac, 48, iRight);
    Write(zNode);
  } else {
    Node zParent = Read(iParent);
    uint64_t i = 0;
    while (Get(zParent.ac, 40 + 8 * i) != iNode) ++i;
    for (uint64_t n = zParent.ac[2]; n > i + 1; --n) Set(zParent.ac, 40 + 8 * n, Get(zParent.ac, 40 + 8 * (n - 1)));
    Set(zParent.ac, 40 + 8 * i, iLeft);
    Set(zParent.ac, 48 + 8 * i, iRight);
    ++zParent.ac[2];
    Write(zParent);
    zNode.ac[0] = 0;
    Write(zNode);
    --iValid;
    Set(zLeft.ac, 24, iParent);
    Set(zRight.ac, 24, iParent);
    Write(zLeft);
    Write(zRight);
  }
  if (!Insert(iLeft, iSize, iFile)) Insert(iRight, iSize, iFile);
  return true;
}

bool ContainerOracle::Remove(uint64_t iNode, uint64_t iSize, uint64_t iFile) {
  Node zNode = Read(iNode);
  if (iSize < Get(zNode.ac, 8) || iSize > Get(zNode.ac, 16)) return false;
  const uint64_t iCount = zNode.ac[2];
  for (uint64_t i = 0; i < iCount; ++i) {
    if (zNode.ac[1] != 0) {
      if (Remove(Get(zNode.ac, 40 + 8 * i), iSize, iFile)) return true;
      continue;
    }
    if (Get(zNode.ac, 48 + 16 * i) != iFile) continue;
    for (uint64_t k = i; k + 1 < iCount; ++k) {
      Set(zNode.ac, 40 + 16 * k, Get(zNode.ac, 40 + 16 * (k + 1)));
      Set(zNode.ac, 48 + 16 * k, Get(zNode.ac, 48 + 16 * (k + 1)));
    }
    --zNode.ac[2];
    if (iCount == 1) return RemoveWhole(zNode);
    Write(zNode);
    return true;
  }
  return false;
}

bool ContainerOracle::RemoveWhole(Node zNode) {
  const uint64_t iNode = Get(zNode.ac, 32);
  const uint64_t iParent = Get(zNode.ac, 24);
  if (iParent == 0) {
    zNode.ac[1] = 0;
    zNode.ac[2] = 0;
    Write(zNode);
    return true;
  }
  zNode.ac[0] = 0;
  Write(zNode);
  --iValid;
  Node zParent = Read(iParent);
  const uint64_t iCount = zParent.ac[2];
  if (iCount == 1) return Get(zParent.ac, 40) == iNode && RemoveWhole(zParent);
  uint64_t i = 0;
  while (i < iCount && Get(zParent.ac, 40 + 8 * i) != iNode) ++i;
  if (i == iCount) return false;
  const uint64_t iNeighbour = Get(zParent.ac, 40 + 8 * (i == 0 ? 1 : i - 1));
  Node zNeighbour = Read(iNeighbour);
  Set(zNeighbour.ac, 8, std::min(Get(zNeighbour.ac, 8), Get(zNode.ac, 8)));
  Set(zNeighbour.ac, 16, std::max(Get(zNeighbour.ac, 16), Get(zNode.ac, 16)));
  Write(zNeighbour);
  Push(iNeighbour);
  for (uint64_t k = i; k + 1 < iCount; ++k) Set(zParent.ac, 40 + 8 * k, Get(zParent.ac, 40 + 8 * (k + 1)));
  --zParent.ac[2];
  Write(zParent);
  return true;
}

void ContainerOracle::Push(uint64_t iNode) {
  const Node zNode = Read(iNode);
  if (zNode.ac[1] == 0) return;
  Node zFirst = Read(Get(zNode.ac, 40));
  if (Get(zFirst.ac, 8) > Get(zNode.ac, 8)) {
    Set(zFirst.ac, 8, Get(zNode.ac, 8));
    Write(zFirst);
    Push(Get(zFirst.ac, 32));
    return;
  }
  Node zLast = Read(Get(zNode.ac, 40 + 8 * (zNode.ac[2] - 1u)));
  if (Get(zLast.ac, 16) < Get(zNode.ac, 16)) {
    Set(zLast.ac, 16, Get(zNode.ac, 16));
    Write(zLast);
    Push(Get(zLast.ac, 32));
  }
}

uint64_t ContainerOracle::Allocate() {
  if (iNum != iValid) {
    for (int i = 0; i < 10; ++i) {
      const double d = static_cast<double>(static_cast<int64_t>(iCursor)) * 0.31415926;
      iCursor = (static_cast<uint64_t>(static_cast<int64_t>(d)) + iCursor + 1) % iNum;
      if (vcUnused[static_cast<size_t>(iCursor * 360 + 8)] == 0) {
        ++iValid;
        return iCursor * 360 + 8;
      }
    }
  }
  const uint64_t iNode = iNum * 360 + 8;
  Grow(vcUnused, iNode + 360);
  std::memset(vcUnused.data() + iNode, 0, 360);
  ++iNum;
  ++iValid;
  return iNode;
}

void ContainerOracle::Flush() {
  PutU64(vcMain, 8 + 72, iEnd);
  PutU64(vcMain, 8 + 80, vcUnused.size());
  PutU64(vcMain, 8 + 88, iValid);
  PutU64(vcMain, 8 + 96, iNum);
  PutU64(vcMain, 8 + 104, iRoot);
  PutU64(vcMain, 8 + 112, iCursor);
  PutU32(vcMain, 8 + 128, iOrder);
  Grow(vcMain, iEnd + vcUnused.size());
  std::memcpy(vcMain.data() + iEnd, vcUnused.data(), vcUnused.size());
}

}  // namespace kivtest
