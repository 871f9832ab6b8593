// The out-of-core store beside LMDB, its memory, and the cost of snapshot, undo and redo against the model's size.
//
//   usage: store_bench FOLDER [elements] [megabytes...]
// Elements hold 68 bytes of header, eight references and a text of 400 bytes. LMDB holds the same bytes under the
// element's number, parsed by the same code. No engine waits for the disk; LMDB commits every 1,000 operations.
// Ratios are our operations per second over the peer's. Sizes of models default to 10 100 1000. Cold fetches are of a
// file that was taken out of the system's page cache, and by the clock.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KivContainerHeader.h"
#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivLittleEndian.h"
#include "KivOutOfCoreBlock.h"
#include "KivOutOfCoreHandle.h"
#include "KivSysProcess.h"

namespace {

using namespace kiv;
namespace fs = std::filesystem;

constexpr uint32_t kHeaderSize = 68;
constexpr uint32_t kReferences = 8;
constexpr uint32_t kTextSize = 400;
constexpr uint32_t kRecordSize = kHeaderSize + 8 * kReferences + kTextSize;
constexpr uint32_t kTypeIndex = 1;
constexpr uint32_t kTypeWord = kTypeIndex << 16;
constexpr int kCommitEvery = 1000;

[[noreturn]] void Fail(const std::string& strText) {
  std::fprintf(stderr, "store_bench: %s\n", strText.c_str());
  std::exit(1);
}

struct BenchBlock : KivMemoryBlock {
  KivMemoryBlockHeader GetHeader() const override { return m_zHeader; }
  KivMemoryBlockLinks GetLinks() override {
    return {&m_zHeader.m_aiLink[0], &m_zHeader.m_aiLink[1], &m_zHeader.m_aiLink[2]};
  }
  KivMemoryBlockHeader m_zHeader;
  uint64_t m_aiReference[kReferences] = {};
  std::string m_strText;
};

bool Parse(const uint8_t* pBytes, size_t nBytes, BenchBlock& zBlock) {
  if (nBytes < kRecordSize || KivLoad<uint32_t>(pBytes) != kTypeWord) return false;
  for (size_t i = 0; i < 3; ++i) zBlock.m_zHeader.m_aiLink[i] = KivLoad<uint64_t>(pBytes + 16 + 8 * i);
  for (size_t i = 0; i < kReferences; ++i) zBlock.m_aiReference[i] = KivLoad<uint64_t>(pBytes + kHeaderSize + 8 * i);
  zBlock.m_strText.assign(reinterpret_cast<const char*>(pBytes) + kHeaderSize + 8 * kReferences, kTextSize);
  return true;
}

void Build(const BenchBlock& zBlock, uint8_t* pBytes) {
  std::memset(pBytes, 0, kRecordSize);
  KivStore<uint32_t>(pBytes, kTypeWord);
  for (size_t i = 0; i < 3; ++i) KivStore<uint64_t>(pBytes + 16 + 8 * i, zBlock.m_zHeader.m_aiLink[i]);
  for (size_t i = 0; i < kReferences; ++i) KivStore<uint64_t>(pBytes + kHeaderSize + 8 * i, zBlock.m_aiReference[i]);
  std::memcpy(pBytes + kHeaderSize + 8 * kReferences, zBlock.m_strText.data(), kTextSize);
}

class BenchElement : public KivOutOfCoreBlockNode<BenchBlock> {
 public:
  using KivOutOfCoreBlockNode::KivOutOfCoreBlockNode;
  bool Load(bool) override {
    return WithoutThrow([this] {
      BenchBlock* pzBlock = TakeBlock();
      if (pzBlock == nullptr) return false;
      if (m_iDataSize == 0) return true;
      uint8_t acBytes[kRecordSize];
      return m_iDataSize >= kRecordSize && ReadData(acBytes, kRecordSize) && Parse(acBytes, kRecordSize, *pzBlock);
    });
  }
  bool Save(bool) override {
    return WithoutThrow([this] {
      uint8_t acBytes[kRecordSize];
      Build(*m_pzMemoryBlock, acBytes);
      return WriteData(acBytes, kRecordSize);
    });
  }
  uint32_t GetElementType() override { return kTypeWord; }
};

KivOutOfCoreData* MakeElement(uint32_t, uint32_t iManagerKey) {
  return new BenchElement(iManagerKey);
}

void RegisterType() {
  KivDataSpaceBase* pzSpace = KivDataSpaceBase::GetInstance();
  pzSpace->SetGetOutOfCoreData(kTypeIndex, MakeElement);
  for (uint32_t iRow = 0; iRow < kKivHandlerRowNum; ++iRow) {
    pzSpace->SetGetAllPosition(iRow, kTypeIndex,
                               [](const std::vector<uint8_t>&, std::vector<uint64_t>&) { return true; });
    pzSpace->SetReplaceAllPosition(iRow, kTypeIndex,
                                   [](std::vector<uint8_t>&, const std::map<uint64_t, uint64_t>&) { return true; });
  }
}

// Processor time of this process: the machine may be shared.
class Stopwatch {
 public:
  double Cpu() const { return static_cast<double>(std::clock() - m_iCpu) / CLOCKS_PER_SEC; }
  double Wall() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_zWall).count(); }

 private:
  std::clock_t m_iCpu = std::clock();
  std::chrono::steady_clock::time_point m_zWall = std::chrono::steady_clock::now();
};

uint64_t WorkingSet() {
  KivSysMemoryCounters zCounters;
  sys::MemoryCounters(zCounters);
  return zCounters.m_iWorkingSet;
}

// Bytes that the files in the work folder take on the disk.
uint64_t WorkFolderBytes() {
  uint64_t iBytes = 0;
  for (const auto& zEntry : fs::directory_iterator(fs::path(KivGetWorkFolder()))) {
    struct stat zStat {};
    if (::stat(zEntry.path().c_str(), &zStat) == 0) iBytes += static_cast<uint64_t>(zStat.st_blocks) * 512;
  }
  return iBytes;
}

// Takes a file that nobody has mapped out of the page cache and says how much of it stayed there.
void DropFromPageCache(const fs::path& zPath) {
  const int iFile = ::open(zPath.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat zStat {};
  if (iFile < 0 || ::fstat(iFile, &zStat) != 0 || zStat.st_size == 0) Fail("no file to take out of the page cache");
  const auto nBytes = static_cast<size_t>(zStat.st_size);
  if (::fdatasync(iFile) != 0 || ::posix_fadvise(iFile, 0, 0, POSIX_FADV_DONTNEED) != 0) Fail("the pages stay");
  void* const pView = ::mmap(nullptr, nBytes, PROT_READ, MAP_SHARED, iFile, 0);
  if (pView == MAP_FAILED) Fail("no view of the file");
  std::vector<unsigned char> vcResident((nBytes + 4095) / 4096);
  if (::mincore(pView, nBytes, vcResident.data()) != 0) Fail("nobody tells what is in memory");
  size_t nResident = 0;
  for (const unsigned char c : vcResident) nResident += c & 1;
  ::munmap(pView, nBytes);
  ::close(iFile);
  if (nResident * 100 > vcResident.size())
    std::printf("  %zu of %zu pages of %s stayed in memory\n", nResident, vcResident.size(), zPath.filename().c_str());
}

std::string TextOf(uint64_t i) {
  std::string strText(kTextSize, static_cast<char>('a' + i % 26));
  std::memcpy(strText.data(), &i, sizeof i);
  return strText;
}

std::vector<uint64_t> MakeModel(const KivWString& csPath, uint64_t nElements) {
  KivStoreSource zSource;
  zSource.m_csPath = csPath;
  const KivOutOfCoreManagerKeyOwner zOwner(zSource);
  std::vector<uint64_t> viPosition;
  viPosition.reserve(nElements);
  std::vector<uint8_t> vcBytes(kRecordSize);
  BenchBlock zBlock;
  for (uint64_t i = 0; i < nElements; ++i) {
    zBlock.m_strText = TextOf(i);
    Build(zBlock, vcBytes.data());
    viPosition.push_back(zOwner.GetManager()->GetContainer()->AddRecord(KivContainerData(vcBytes.data(), kRecordSize)));
  }
  return viPosition;
}

KivModelStatusBase* Open(const KivWString& csPath, bool bForWrite, int32_t iLimit) {
  KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = bForWrite;
  KivModelStatusBase* pzModel = nullptr;
  if (KivDataSpaceBase::GetInstance()->AddModel(csPath, zInfo, &pzModel) != KivAddModelResult::Done) Fail("no model");
  if (iLimit != 1) KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(pzModel->GetKey(), iLimit);
  return pzModel;
}

void Close(KivModelStatusBase* pzModel) {
  KivDataSpaceBase::GetInstance()->RemoveModel(pzModel);
}

const BenchBlock& Fetch(uint32_t iKey, uint64_t iPosition, uint64_t i) {
  auto* pzElement = static_cast<BenchElement*>(KivOutOfCoreManager::GetElement(iKey, iPosition));
  const BenchBlock* pzBlock = pzElement->GetMemoryBlock();
  if (std::memcmp(pzBlock->m_strText.data(), &i, sizeof i) != 0) Fail("an element is not what was stored");
  return *pzBlock;
}

struct Order {
  explicit Order(uint64_t nElements, uint64_t nAsked, uint64_t iSeed = 7) {
    std::mt19937_64 zRandom(iSeed);
    for (uint64_t i = 0; i < nAsked; ++i) m_viIndex.push_back(zRandom() % nElements);
  }
  std::vector<uint64_t> m_viIndex;
};

void Line(const char* szWork, double dOurs, double dPeer) {
  if (dPeer > 0)
    std::printf("%-44s %12.0f /s   lmdb %12.0f /s   ratio %.2f\n", szWork, dOurs, dPeer, dOurs / dPeer);
  else
    std::printf("%-44s %12.0f /s\n", szWork, dOurs);
  std::fflush(stdout);
}

struct PeerResult {
  double m_dFirst = 0;
  double m_dHot = 0;
  double m_dCold = 0;
  double m_dWrite = 0;
};

PeerResult RunLmdb(const fs::path& zFolder, uint64_t nElements, const Order& zOrder, const Order& zColdOrder) {
  const auto Check = [](int iResult) {
    if (iResult != 0) Fail(mdb_strerror(iResult));
  };
  fs::create_directory(zFolder);
  MDB_env* pEnvironment = nullptr;
  MDB_txn* pTransaction = nullptr;
  MDB_dbi iDatabase = 0;
  const auto OpenIt = [&] {
    Check(mdb_env_create(&pEnvironment));
    Check(mdb_env_set_mapsize(pEnvironment, size_t{8} << 30));
    Check(mdb_env_open(pEnvironment, zFolder.c_str(), MDB_NOSYNC, 0600));
    Check(mdb_txn_begin(pEnvironment, nullptr, 0, &pTransaction));
    Check(mdb_dbi_open(pTransaction, nullptr, MDB_INTEGERKEY, &iDatabase));
    Check(mdb_txn_commit(pTransaction));
  };
  OpenIt();
  std::vector<uint8_t> vcBytes(kRecordSize);
  BenchBlock zBlock;
  const auto Put = [&](uint64_t i) {
    zBlock.m_strText = TextOf(i);
    Build(zBlock, vcBytes.data());
    MDB_val zKey{sizeof i, &i};
    MDB_val zValue{vcBytes.size(), vcBytes.data()};
    Check(mdb_put(pTransaction, iDatabase, &zKey, &zValue, 0));
  };
  const auto PutAll = [&](uint64_t nCount, auto&& index) {
    for (uint64_t i = 0; i < nCount;) {
      Check(mdb_txn_begin(pEnvironment, nullptr, 0, &pTransaction));
      for (int k = 0; k < kCommitEvery && i < nCount; ++k, ++i) Put(index(i));
      Check(mdb_txn_commit(pTransaction));
    }
  };
  PutAll(nElements, [](uint64_t i) { return i; });
  const auto GetAll = [&](const Order& zAsked) {
    Check(mdb_txn_begin(pEnvironment, nullptr, MDB_RDONLY, &pTransaction));
    for (uint64_t i : zAsked.m_viIndex) {
      MDB_val zKey{sizeof i, &i};
      MDB_val zValue{};
      Check(mdb_get(pTransaction, iDatabase, &zKey, &zValue));
      if (!Parse(static_cast<const uint8_t*>(zValue.mv_data), zValue.mv_size, zBlock) ||
          std::memcmp(zBlock.m_strText.data(), &i, sizeof i) != 0)
        Fail("lmdb gave something else");
    }
    mdb_txn_abort(pTransaction);
  };
  mdb_env_close(pEnvironment);
  DropFromPageCache(zFolder / "data.mdb");
  OpenIt();
  PeerResult zResult;
  {
    const Stopwatch zTime;
    GetAll(zColdOrder);
    zResult.m_dCold = static_cast<double>(zColdOrder.m_viIndex.size()) / zTime.Wall();
  }
  GetAll(zOrder);  // brings everything in
  mdb_env_close(pEnvironment);
  OpenIt();
  for (int iPass = 0; iPass < 2; ++iPass) {
    const Stopwatch zTime;
    GetAll(zOrder);
    (iPass == 0 ? zResult.m_dFirst : zResult.m_dHot) = static_cast<double>(zOrder.m_viIndex.size()) / zTime.Cpu();
  }
  const Stopwatch zTime;
  PutAll(zOrder.m_viIndex.size(), [&](uint64_t i) { return zOrder.m_viIndex[i]; });
  zResult.m_dWrite = static_cast<double>(zOrder.m_viIndex.size()) / zTime.Cpu();
  mdb_env_close(pEnvironment);
  return zResult;
}

void RunCold(const KivWString& csPath, const std::vector<uint64_t>& viPosition, const Order& zOrder,
             const Order& zColdOrder, double dPeer) {
  std::printf("%zu cold fetches among %llu elements of %u bytes, random order, per second by the clock\n",
              zColdOrder.m_viIndex.size(), static_cast<unsigned long long>(viPosition.size()), kRecordSize);
  for (const bool bForWrite : {false, true}) {
    DropFromPageCache(fs::path(csPath));
    KivModelStatusBase* pzModel = Open(csPath, bForWrite, 1000);
    const Stopwatch zTime;
    for (const uint64_t i : zColdOrder.m_viIndex) Fetch(pzModel->GetKey(), viPosition[i], i);
    Line(bForWrite ? "fetch+read, in place, cold" : "fetch+read, for reading, cold",
         static_cast<double>(zColdOrder.m_viIndex.size()) / zTime.Wall(), dPeer);
    for (const uint64_t i : zOrder.m_viIndex) Fetch(pzModel->GetKey(), viPosition[i], i);  // brings everything in
    Close(pzModel);
  }
}

void RunElements(const fs::path& zFolder, uint64_t nElements) {
  const KivWString csPath = (zFolder / "elements.kiv").u16string();
  const std::vector<uint64_t> viPosition = MakeModel(csPath, nElements);
  const Order zOrder(nElements, nElements);
  const Order zColdOrder(nElements, nElements / 100, 8);
  const PeerResult zPeer = RunLmdb(zFolder / "lmdb", nElements, zOrder, zColdOrder);
  const auto nAsked = static_cast<double>(zOrder.m_viIndex.size());
  RunCold(csPath, viPosition, zOrder, zColdOrder, zPeer.m_dCold);
  std::printf("%llu elements of %u bytes, random order, per second of processor time\n",
              static_cast<unsigned long long>(nElements), kRecordSize);
  for (const bool bForWrite : {false, true})
    for (const int32_t iLimit : {1, 1000}) {
      KivModelStatusBase* pzModel = Open(csPath, bForWrite, iLimit);
      const uint32_t iKey = pzModel->GetKey();
      char acName[64];
      for (int iPass = 0; iPass < 2; ++iPass) {
        const Stopwatch zTime;
        for (const uint64_t i : zOrder.m_viIndex) Fetch(iKey, viPosition[i], i);
        std::snprintf(acName, sizeof acName, "fetch+read, %s, limit %d, %s", bForWrite ? "in place" : "for reading",
                      iLimit, iPass == 0 ? "first" : "again");
        Line(acName, nAsked / zTime.Cpu(), iPass == 0 ? zPeer.m_dFirst : zPeer.m_dHot);
      }
      const Stopwatch zTime;
      for (const uint64_t i : zOrder.m_viIndex) {
        auto* pzElement = static_cast<BenchElement*>(KivOutOfCoreManager::GetElement(iKey, viPosition[i]));
        pzElement->GetMemoryBlockForWrite()->m_strText = TextOf(i);
      }
      if (!KivOutOfCoreManager::DeactivateAll(iKey)) Fail("a change was not stored");
      std::snprintf(acName, sizeof acName, "change+store, %s, limit %d", bForWrite ? "in place" : "for reading",
                    iLimit);
      Line(acName, nAsked / zTime.Cpu(), zPeer.m_dWrite);
      Close(pzModel);
    }
}

void RunMemory(const fs::path& zFolder, uint64_t nElements) {
  const KivWString csPath = (zFolder / "elements.kiv").u16string();
  std::printf("memory of a walk over %llu elements: objects and growth of the working set in MB\n",
              static_cast<unsigned long long>(nElements));
  std::vector<uint64_t> viPosition;
  for (uint64_t i = 0, iPosition = 264; i < nElements; ++i, iPosition += kRecordSize + 24)
    viPosition.push_back(iPosition);
  for (const int32_t iLimit : {2, 1000, 1}) {
    // With one block for the class no more than one element is active, whatever the limit.
    KivDataSpaceBase::GetInstance()->SetBlockPerElement(iLimit > 1);
    KivModelStatusBase* pzModel = Open(csPath, true, iLimit);
    const uint32_t iKey = pzModel->GetKey();
    // The mapped file enters the working set first.
    std::vector<uint8_t> vcBytes(1 << 20);
    const KivSharedPtr<ISnapShotFile> pzFile = pzModel->GetManager()->GetContainer()->GetBaseFile();
    for (uint64_t iOffset = 0; iOffset + vcBytes.size() < pzFile->GetLength(); iOffset += vcBytes.size())
      pzFile->Read(iOffset, vcBytes.data(), vcBytes.size());
    const uint64_t iBefore = WorkingSet();
    std::printf("  limit %-5d", iLimit);
    for (uint64_t i = 0; i < nElements; ++i) {
      Fetch(iKey, viPosition[i], i);
      if ((i + 1) % (nElements / 4) == 0)
        std::printf("  %zu / %.1f", pzModel->GetManager()->GetKnownElementNum(),
                    static_cast<double>(static_cast<int64_t>(WorkingSet() - iBefore)) / 1e6);
    }
    std::printf("\n");
    Close(pzModel);
  }
  KivDataSpaceBase::GetInstance()->SetBlockPerElement(false);
}

void RunSnapShots(const fs::path& zFolder, uint64_t nMegaBytes) {
  const uint64_t nElements = nMegaBytes * 1000000 / (kRecordSize + 24);
  const KivWString csPath = (zFolder / "snapshots.kiv").u16string();
  const std::vector<uint64_t> viPosition = MakeModel(csPath, nElements);
  KivModelStatusBase* pzModel = Open(csPath, false, 1000);
  KivDataSpaceBase& zSpace = *KivDataSpaceBase::GetInstance();
  const uint32_t iKey = pzModel->GetKey();
  const Order zChanged(nElements, 1000);
  constexpr char kMark[] = "one!";
  const auto Change = [&] {
    for (const uint64_t i : zChanged.m_viIndex) {
      auto* pzElement = static_cast<BenchElement*>(KivOutOfCoreManager::GetElement(iKey, viPosition[i]));
      pzElement->GetMemoryBlockForWrite()->m_strText.replace(8, 4, kMark);
    }
  };
  const auto ExpectTexts = [&](bool bChanged) {
    for (const uint64_t i : zChanged.m_viIndex) {
      std::string strText = TextOf(i);
      if (bChanged) strText.replace(8, 4, kMark);
      if (Fetch(iKey, viPosition[i], i).m_strText != strText) Fail("a state is not the one that was asked for");
    }
  };
  const auto Snap = [&] {
    if (zSpace.CreateSnapShot() != KivCreateSnapShotResult::Done) Fail("a snapshot was not made");
  };
  const auto Time = [](auto&& body) {
    const Stopwatch zTime;
    body();
    return 1000 * zTime.Wall();
  };
  const double dSnap0 = Time(Snap);
  const double dChange = Time(Change);
  const uint64_t iDisk0 = WorkFolderBytes();
  const double dSnap1 = Time(Snap);
  const uint64_t iDisk1 = WorkFolderBytes();
  ExpectTexts(true);
  const double dUndo = Time([&] {
    if (zSpace.UndoSnapShot(2) != KivUndoResult::Done) Fail("an undo failed");
  });
  ExpectTexts(false);
  const double dRedo = Time([&] {
    if (zSpace.RedoSnapShot(1) != KivRedoResult::Done) Fail("a redo failed");
  });
  ExpectTexts(true);
  const uint64_t iDisk2 = WorkFolderBytes();
  const KivWString csCopy = (zFolder / "copy.kiv").u16string();
  const double dCopy = Time([&] { fs::copy_file(fs::path(csPath), fs::path(csCopy)); });
  fs::remove(fs::path(csCopy));
  std::printf(
      "%6llu MB: first snapshot %.2f ms, 1,000 changes %.1f ms, snapshot %.2f ms, undo %.2f ms, redo %.2f ms; "
      "work files %.1f MB before, %.1f after it, %.1f after undo and redo; copy of the file %.1f ms\n",
      static_cast<unsigned long long>(nMegaBytes), dSnap0, dChange, dSnap1, dUndo, dRedo,
      static_cast<double>(iDisk0) / 1e6, static_cast<double>(iDisk1) / 1e6, static_cast<double>(iDisk2) / 1e6, dCopy);
  std::fflush(stdout);
  Close(pzModel);
  fs::remove(fs::path(csPath));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) Fail("usage: store_bench FOLDER [elements] [megabytes...]");
  const fs::path zFolder = fs::path(argv[1]) / "store_bench";
  fs::remove_all(zFolder);
  fs::create_directories(zFolder);
  KivSetWorkFolder((zFolder / "work").u16string());
  KivRegisterOwnFormat();
  RegisterType();
  const uint64_t nElements = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 200000;
  std::vector<uint64_t> viMegaBytes;
  for (int i = 3; i < argc; ++i) viMegaBytes.push_back(std::strtoull(argv[i], nullptr, 10));
  if (viMegaBytes.empty()) viMegaBytes = {10, 100, 1000};
  RunElements(zFolder, nElements);
  RunMemory(zFolder, nElements);
  for (const uint64_t nMegaBytes : viMegaBytes) RunSnapShots(zFolder, nMegaBytes);
  fs::remove_all(zFolder);
  return 0;
}
