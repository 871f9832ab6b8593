// The file classes beside bare transfers on a handle (pread, pwrite) and a bare mapping: sequential in GB/s, random
// access of 8 bytes in ns; first touch of a cached file beside copying it; snapshot and restore against file size.
//
// usage: file_bench [MiB of the large file, 1024 by default]
#include <algorithm>
#include <bit>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivFileFactory.h"
#include "KivMemFile.h"
#include "KivSysMapping.h"
#include "KivWinFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;

constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kPiece = 0x10000;
constexpr int kRepeats = 3;

double Seconds(const std::function<void()>& pfnWork) {
  const auto zStart = std::chrono::steady_clock::now();
  pfnWork();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - zStart).count();
}

double Best(const std::function<void()>& pfnWork, int nRepeats = kRepeats) {
  constexpr double kEnough = 5;  // seconds; where each access is a call of the system a few runs have to do
  double dBest = 1e30;
  double dAll = 0;
  for (int i = 0; i < nRepeats && dAll < kEnough; ++i) {
    const double dSeconds = Seconds(pfnWork);
    dBest = std::min(dBest, dSeconds);
    dAll += dSeconds;
  }
  return dBest;
}

// A fixed pseudo-random order; no division, whose cost would hide that of the access.
class Order {
 public:
  explicit Order(uint64_t nBytes) : m_nPlaces(std::bit_floor(nBytes / 8)) {}
  uint64_t Next() {
    m_iState = m_iState * 6364136223846793005u + 1442695040888963407u;
    return ((m_iState >> 24) & (m_nPlaces - 1)) * 8;
  }

 private:
  uint64_t m_nPlaces;
  uint64_t m_iState = 42;
};

struct Target {
  std::string m_strName;
  std::function<void(uint64_t, void*, uint32_t)> m_pfnRead;
  std::function<void(uint64_t, const void*, uint32_t)> m_pfnWrite;  // may be empty
};

struct Result {
  double m_dReadRate = 0;  // GB/s
  double m_dWriteRate = 0;
  double m_dReadTime = 0;  // ns
  double m_dWriteTime = 0;
};

uint64_t g_iSink = 0;

Result Measure(const Target& zTarget, uint64_t nBytes, uint64_t nRandom) {
  Result z;
  std::vector<uint8_t> vcPiece(kPiece, 1);
  const auto Rate = [&](double dSeconds) { return static_cast<double>(nBytes) / dSeconds * 1e-9; };
  const auto Time = [&](double dSeconds) { return dSeconds / static_cast<double>(nRandom) * 1e9; };
  z.m_dReadRate = Rate(Best([&] {
    for (uint64_t i = 0; i < nBytes; i += kPiece) zTarget.m_pfnRead(i, vcPiece.data(), kPiece);
    g_iSink += vcPiece[5];
  }));
  z.m_dReadTime = Time(Best([&] {
    Order zOrder(nBytes);
    uint64_t iValue = 0;
    for (uint64_t i = 0; i < nRandom; ++i) {
      zTarget.m_pfnRead(zOrder.Next(), &iValue, 8);
      g_iSink += iValue;
    }
  }));
  if (!zTarget.m_pfnWrite) return z;
  z.m_dWriteRate = Rate(Best([&] {
    for (uint64_t i = 0; i < nBytes; i += kPiece) zTarget.m_pfnWrite(i, vcPiece.data(), kPiece);
  }));
  z.m_dWriteTime = Time(Best([&] {
    Order zOrder(nBytes);
    for (uint64_t i = 0; i < nRandom; ++i) zTarget.m_pfnWrite(zOrder.Next(), &i, 8);
  }));
  return z;
}

void Print(const std::string& strName, const Result& z, const Result& zPeer) {
  if (z.m_dWriteRate == 0) {
    std::printf("  %-44s %7.2f %5.2fx  %7s %6s  %8.0f %5.2fx  %8s\n", strName.c_str(), z.m_dReadRate,
                z.m_dReadRate / zPeer.m_dReadRate, "-", "", z.m_dReadTime, z.m_dReadTime / zPeer.m_dReadTime, "-");
    return;
  }
  std::printf("  %-44s %7.2f %5.2fx  %7.2f %5.2fx  %8.0f %5.2fx  %8.0f %5.2fx\n", strName.c_str(), z.m_dReadRate,
              z.m_dReadRate / zPeer.m_dReadRate, z.m_dWriteRate, z.m_dWriteRate / zPeer.m_dWriteRate, z.m_dReadTime,
              z.m_dReadTime / zPeer.m_dReadTime, z.m_dWriteTime, z.m_dWriteTime / zPeer.m_dWriteTime);
}

KivSysFile Open(const std::filesystem::path& zPath, bool bWrite, KivSysDisposition iDisposition) {
  KivSysOpenMode zMode;
  zMode.m_iAccess = bWrite ? KivSysAccess::ReadWrite : KivSysAccess::Read;
  zMode.m_iShare = bWrite ? KivSysShare::None : KivSysShare::ReadWrite;
  zMode.m_iDisposition = iDisposition;
  zMode.m_iFlags = KivSysFileFlags::RandomAccess | KivSysFileFlags::Temporary;
  KivSysFile hFile = KivSysFile::Open(zPath.u16string(), zMode);
  if (!hFile.IsOpen()) {
    std::fprintf(stderr, "file_bench: cannot open %s\n", zPath.string().c_str());
    std::exit(1);
  }
  return hFile;
}

void Fill(const std::filesystem::path& zPath, uint64_t nBytes) {
  KivSysFile hFile = Open(zPath, true, KivSysDisposition::CreateAlways);
  std::vector<uint8_t> vcPiece(kMiB);
  for (size_t i = 0; i < vcPiece.size(); ++i) vcPiece[i] = static_cast<uint8_t>(i * 7);
  uint32_t nDone = 0;
  for (uint64_t i = 0; i < nBytes; i += kMiB) hFile.WriteAt(i, vcPiece.data(), static_cast<uint32_t>(kMiB), nDone);
}

Target ReadsOf(ISnapShotFile* pFile) {
  return {"", [pFile](uint64_t iOffset, void* pBuffer, uint32_t nCount) { pFile->Read(iOffset, pBuffer, nCount); }, {}};
}

Target Whole(const std::string& strName, const KivSharedPtr<ISnapShotFile>& pzFile) {
  ISnapShotFile* pFile = pzFile.Get();
  return {strName, [pFile](uint64_t iOffset, void* pBuffer, uint32_t nCount) { pFile->Read(iOffset, pBuffer, nCount); },
          [pFile](uint64_t iOffset, const void* pBuffer, uint32_t nCount) { pFile->Write(iOffset, pBuffer, nCount); }};
}

void CompareTransfers(const std::filesystem::path& zFolder) {
  const uint64_t nBytes = 256 * kMiB;
  const uint64_t nRandom = 200000;
  Fill(zFolder / "a", nBytes);
  std::printf("Transfers, 256 MiB file in the page cache, 64 KiB pieces and random 8-byte accesses\n");
  std::printf("  %-44s %-14s  %-14s  %-15s  %-15s\n", "", "read GB/s", "write GB/s", "read 8 B, ns", "write 8 B, ns");

  KivSysFile hBare = Open(zFolder / "a", true, KivSysDisposition::OpenExisting);
  uint32_t nDone = 0;
  const Result zHandle = Measure({"", [&](uint64_t i, void* p, uint32_t n) { hBare.ReadAt(i, p, n, nDone); },
                                  [&](uint64_t i, const void* p, uint32_t n) { hBare.WriteAt(i, p, n, nDone); }},
                                 nBytes, nRandom);
  Print("bare handle (pread, pwrite)", zHandle, zHandle);
  hBare.Close();
  {
    const auto pzFile = KivCreateFile(Open(zFolder / "a", true, KivSysDisposition::OpenExisting));
    Print("KivWinFile", Measure(Whole("", pzFile), nBytes, nRandom), zHandle);
  }
  {
    const auto pzFile = KivCreateReadOnlyFile(Open(zFolder / "a", false, KivSysDisposition::OpenExisting), true);
    std::vector<uint8_t> vcAll(kMiB);
    for (uint64_t i = 0; i < nBytes; i += kMiB) pzFile->Read(i, vcAll.data(), kMiB);
    Print("KivWinFile read-only, cached blocks", Measure(Whole("", pzFile), nBytes, nRandom), zHandle);
  }
  {
    KivWinFile zFile(Open(zFolder / "a", false, KivSysDisposition::OpenExisting), true, false,
                     Open(zFolder / "a", false, KivSysDisposition::OpenExisting));
    const uint64_t nBlocks = nBytes / KivGetAllocationGranularity();
    for (uint64_t i = 0; i < nBlocks; ++i) zFile.RequestBackGroundRead(i, 2);
    for (uint64_t i = 0; i < nBlocks; ++i)
      while (!zFile.IsBackGroundReadDone(i)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    Print("KivWinFile, all read by its reader", Measure(ReadsOf(&zFile), nBytes, nRandom), zHandle);
  }
  {
    const auto pzFile =
        KivCreateReadOnlyMappedFile(Open(zFolder / "a", false, KivSysDisposition::OpenExisting), KivSysFile());
    pzFile->PrepareDirectBuffer(0);
    std::vector<uint8_t> vcAll(kMiB);
    for (uint64_t i = 0; i < nBytes; i += kMiB) pzFile->Read(i, vcAll.data(), kMiB);
    Print("KivWinMappedFile read-only, cached blocks", Measure(Whole("", pzFile), nBytes, nRandom), zHandle);
  }
  {
    const auto pzFile = KivCreateVirtualNetworkFile(Open(zFolder / "a", false, KivSysDisposition::OpenExisting), 0,
                                                    false, KivSysFile());
    Print("KivVirtualNetworkFile, delay 0, no cache", Measure(ReadsOf(pzFile.Get()), nBytes, nRandom), zHandle);
  }
  {
    std::vector<uint8_t> vcData(nBytes, 3);
    const KivSharedPtr<ISnapShotFile> pzFile(new KivMemFile(vcData.data(), vcData.size()));
    std::vector<uint8_t> vcAll(kMiB);
    for (uint64_t i = 0; i < nBytes; i += kMiB) pzFile->Read(i, vcAll.data(), kMiB);
    Print("KivMemFile, cached blocks", Measure(Whole("", pzFile), nBytes, nRandom), zHandle);
  }
  hBare = Open(zFolder / "a", true, KivSysDisposition::OpenExisting);
  KivSysMapping zMapping;
  zMapping.Create(hBare, false, nBytes, u"");
  uint8_t* const pMapped = zMapping.MapView(0, nBytes);
  const Result zMap = Measure({"", [&](uint64_t i, void* p, uint32_t n) { std::memcpy(p, pMapped + i, n); },
                               [&](uint64_t i, const void* p, uint32_t n) { std::memcpy(pMapped + i, p, n); }},
                              nBytes, nRandom);
  Print("bare mapping (memcpy)", zMap, zMap);
  zMapping.Close();
  hBare.Close();
  {
    const auto pzFile = KivCreateMappedFile(Open(zFolder / "a", true, KivSysDisposition::OpenExisting));
    pzFile->PrepareDirectBuffer(nBytes);
    Print("KivWinMappedFile", Measure(Whole("", pzFile), nBytes, nRandom), zMap);
  }
  {
    const KivSharedPtr<ISnapShotFile> pzFile(new KivWritableMemFile);
    pzFile->PrepareDirectBuffer(nBytes);
    Print("KivWritableMemFile", Measure(Whole("", pzFile), nBytes, nRandom), zMap);
  }
}

void CompareDirectBuffers(const std::filesystem::path& zFolder, uint64_t nBytes) {
  // Many short runs, so that some of them have a core for themselves on a busy machine.
  constexpr uint64_t nRandom = 20000;
  constexpr int nRuns = 400;
  Fill(zFolder / "b", nBytes);
  KivSysFile hBare = Open(zFolder / "b", false, KivSysDisposition::OpenExisting);
  KivSysMapping zMapping;
  zMapping.Create(hBare, true, 0, u"");
  const uint8_t* const pMapped = zMapping.MapView(0, nBytes);
  for (uint64_t i = 0; i < nBytes; i += 4096) g_iSink += pMapped[i];
  const auto pzFile =
      KivCreateReadOnlyMappedFile(Open(zFolder / "b", false, KivSysDisposition::OpenExisting), KivSysFile());
  pzFile->PrepareDirectBuffer(0);
  const auto Through = [pFile = pzFile.Get()](uint64_t iOffset) {
    uint64_t iValue = 0;
    std::memcpy(&iValue, pFile->GetDirectBuffer(true, iOffset, 8), 8);
    pFile->ReleaseDirectBuffer();
    return iValue;
  };
  for (uint64_t i = 0; i < nBytes; i += 4096) g_iSink += Through(i);
  Order zOrder(nBytes);
  const double dBare = Best(
      [&] {
        for (uint64_t i = 0; i < nRandom; ++i) {
          uint64_t iValue = 0;
          std::memcpy(&iValue, pMapped + zOrder.Next(), 8);
          g_iSink += iValue;
        }
      },
      nRuns);
  const double dBuffer = Best(
      [&] {
        for (uint64_t i = 0; i < nRandom; ++i) g_iSink += Through(zOrder.Next());
      },
      nRuns);
  // Each place depends on the value read before, as in a walk over nodes.
  uint64_t iLast = 0;
  const double dBareChain = Best(
      [&] {
        for (uint64_t i = 0; i < nRandom; ++i) std::memcpy(&iLast, pMapped + (zOrder.Next() ^ (iLast & 8)), 8);
      },
      nRuns);
  const double dBufferChain = Best(
      [&] {
        for (uint64_t i = 0; i < nRandom; ++i) iLast = Through(zOrder.Next() ^ (iLast & 8));
      },
      nRuns);
  g_iSink += iLast;
  const double dSequential = Best(
      [&] {
        for (uint64_t i = 0; i < nRandom; ++i) g_iSink += Through(i * 8 % nBytes);
      },
      nRuns);
  const auto Time = [](double dSeconds) { return dSeconds / nRandom * 1e9; };
  std::printf("Direct buffer of 8 bytes, mapped file of %" PRIu64 " MiB\n", nBytes / kMiB);
  std::printf("  random, bare mapping                     %6.1f ns\n", Time(dBare));
  std::printf("  random, get + read + release             %6.1f ns  %.2fx\n", Time(dBuffer), dBuffer / dBare);
  std::printf("  random walk, bare mapping                %6.1f ns\n", Time(dBareChain));
  std::printf("  random walk, get + read + release        %6.1f ns  %.2fx\n", Time(dBufferChain),
              dBufferChain / dBareChain);
  std::printf("  in order, get + read + release           %6.1f ns\n", Time(dSequential));
}

void CompareFirstTouch(const std::filesystem::path& zFolder) {
  constexpr uint64_t nBytes = 256 * kMiB;
  Fill(zFolder / "c", nBytes);
  std::error_code zError;
  const double dCopy = Best([&] {
    std::filesystem::copy_file(zFolder / "c", zFolder / "d", std::filesystem::copy_options::overwrite_existing, zError);
  });
  std::vector<uint8_t> vcPiece(kPiece);
  const double dPlainCopy = Best([&] {
    KivSysFile hFrom = Open(zFolder / "c", false, KivSysDisposition::OpenExisting);
    KivSysFile hTo = Open(zFolder / "d", true, KivSysDisposition::CreateAlways);
    uint32_t nDone = 0;
    for (uint64_t i = 0; i < nBytes; i += kPiece) {
      hFrom.ReadAt(i, vcPiece.data(), kPiece, nDone);
      hTo.WriteAt(i, vcPiece.data(), kPiece, nDone);
    }
  });
  const double dTouch = Best([&] {
    const auto pzFile = KivCreateReadOnlyFile(Open(zFolder / "c", false, KivSysDisposition::OpenExisting), true);
    for (uint64_t i = 0; i < nBytes; i += kPiece) pzFile->Read(i, vcPiece.data(), kPiece);
  });
  const double dAhead = Best([&] {
    const auto pzFile = KivCreateReadOnlyFile(Open(zFolder / "c", false, KivSysDisposition::OpenExisting), true);
    while (pzFile->AdvanceCaching(100)) {
    }
  });
  const auto Rate = [](double dSeconds) { return static_cast<double>(nBytes) / dSeconds * 1e-9; };
  std::printf("First touch of a cached file of 256 MiB, beside copying it\n");
  std::printf("  copy by the system                       %6.2f GB/s\n", Rate(dCopy));
  std::printf("  copy by read and write, 64 KiB           %6.2f GB/s\n", Rate(dPlainCopy));
  std::printf("  first touch, block by block              %6.2f GB/s  %.2fx of read and write\n", Rate(dTouch),
              dPlainCopy / dTouch);
  std::printf("  AdvanceCaching to the end                %6.2f GB/s  %.2fx of read and write\n", Rate(dAhead),
              dPlainCopy / dAhead);
}

void CompareSnapShots(const std::filesystem::path& zFolder, uint64_t nLargest) {
  std::printf("Snapshot, 100 changed blocks, restore\n");
  std::printf("  %10s  %14s  %14s  %14s\n", "file, MiB", "snapshot, us", "restore, us", "copy file, us");
  KivDataSpaceBase& zSpace = *KivDataSpaceBase::GetInstance();
  for (uint64_t nBytes = 16 * kMiB; nBytes <= nLargest; nBytes *= 4) {
    Fill(zFolder / "e", nBytes);
    std::error_code zError;
    const double dCopy = Best([&] {
      std::filesystem::copy_file(zFolder / "e", zFolder / "f", std::filesystem::copy_options::overwrite_existing,
                                 zError);
    });
    const auto pzFile =
        KivCreateReadOnlyMappedFile(Open(zFolder / "e", false, KivSysDisposition::OpenExisting), KivSysFile());
    // All words are there.
    std::vector<uint8_t> vcPiece(kMiB);
    for (uint64_t i = 0; i < nBytes; i += kMiB) pzFile->Read(i, vcPiece.data(), kMiB);
    zSpace.m_iCurBaseSnapShot = -1;
    double dSnapShot = 1e30;
    double dRestore = 1e30;
    std::vector<KivSharedPtr<ISnapShotFile>> vpzSnapShot;
    for (int i = 0; i < 10; ++i) {
      ++zSpace.m_iCurBaseSnapShot;
      dSnapShot = std::min(dSnapShot, Seconds([&] { vpzSnapShot.push_back(pzFile->CreateSnapShot()); }));
      for (uint64_t k = 0; k < 100; ++k) pzFile->Write(k * 2 * kPiece, "x", 1);
      dRestore = std::min(dRestore, Seconds([&] { pzFile->RestoreSnapShot(vpzSnapShot.back()); }));
    }
    std::printf("  %10" PRIu64 "  %14.0f  %14.0f  %14.0f\n", nBytes / kMiB, dSnapShot * 1e6, dRestore * 1e6,
                dCopy * 1e6);
    zSpace.m_bDiscardingSnapShot = true;
    while (!vpzSnapShot.empty()) {
      vpzSnapShot.back()->ReleaseSnapShot();
      vpzSnapShot.pop_back();
    }
    zSpace.m_bDiscardingSnapShot = false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t nLarge = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1024) * kMiB;
  const std::filesystem::path zFolder =
      std::filesystem::temp_directory_path() / ("kivfilebench" + std::to_string(KivGetTimeMs()));
  std::filesystem::create_directories(zFolder / "work");
  KivSetWorkFolder((zFolder / "work").u16string());
  if (argc <= 2) CompareTransfers(zFolder);
  CompareDirectBuffers(zFolder, nLarge);
  if (argc <= 2) CompareFirstTouch(zFolder);
  if (argc <= 2) CompareSnapShots(zFolder, nLarge);
  std::error_code zError;
  std::filesystem::remove_all(zFolder, zError);
  return g_iSink == 42 ? 1 : 0;
}
