// The record container beside SQLite, LMDB and LevelDB, and the cost of its operations as free space shatters.
//
//   usage: container_bench FOLDER [records] [engine...]      engines: kiv sqlite lmdb leveldb free
// Records of 100 B to 4 KiB. No engine waits for the disk (no sync); SQLite and LMDB commit every 1,000 operations, the
// container flushes at the end of each phase. Ratios are our operations per second over the peer's.
#include <leveldb/cache.h>
#include <leveldb/db.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
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
#include "KivFastFileContainer.h"
#include "KivFileFactory.h"
#include "KivSysFile.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr uint32_t kSmallest = 100;
constexpr uint32_t kLargest = 4096;
constexpr uint64_t kCommitEvery = 1000;

[[noreturn]] void Fail(const std::string& strText) {
  std::fprintf(stderr, "container_bench: %s\n", strText.c_str());
  std::exit(1);
}

uint32_t SizeOf(uint64_t iId) {
  uint64_t x = (iId + 1) * 0x9E3779B97F4A7C15;
  x ^= x >> 31;
  return kSmallest + static_cast<uint32_t>(x % (kLargest - kSmallest + 1));
}

// The payload begins and ends with its id; what lies between cannot be compressed.
class Payload {
 public:
  Payload() : m_vcNoise(1 << 20), m_vcBytes(kLargest) {
    std::mt19937_64 zRandom(1);
    for (uint8_t& c : m_vcNoise) c = static_cast<uint8_t>(zRandom());
  }
  const uint8_t* Make(uint64_t iId, uint32_t& nSize) {
    nSize = SizeOf(iId);
    std::memcpy(m_vcBytes.data(), m_vcNoise.data() + (iId * 4099) % ((1 << 20) - kLargest), nSize);
    std::memcpy(m_vcBytes.data(), &iId, 8);
    std::memcpy(m_vcBytes.data() + nSize - 8, &iId, 8);
    return m_vcBytes.data();
  }
  static void Verify(uint64_t iId, const uint8_t* pBytes, size_t nSize) {
    uint64_t aiId[2] = {~iId, ~iId};
    if (nSize == SizeOf(iId)) {
      std::memcpy(&aiId[0], pBytes, 8);
      std::memcpy(&aiId[1], pBytes + nSize - 8, 8);
    }
    if (aiId[0] != iId || aiId[1] != iId) Fail("record " + std::to_string(iId) + " is not what was stored");
  }

 private:
  std::vector<uint8_t> m_vcNoise;
  std::vector<uint8_t> m_vcBytes;
};

class Engine {
 public:
  virtual ~Engine() = default;
  virtual void Open(bool bNew) = 0;
  virtual void Close() = 0;
  virtual void Add(uint64_t iId, const uint8_t* pBytes, uint32_t nSize) = 0;
  virtual void Get(uint64_t iId, std::vector<uint8_t>& vcBytes) = 0;
  virtual void Delete(uint64_t iId) = 0;
  virtual void EndPhase() = 0;
};

// --- Container -----------------------------------------------------------------------------------

kiv::KivWString Wide(const std::string& strText) {
  return kiv::KivWString(strText.begin(), strText.end());
}

kiv::KivSharedPtr<kiv::ISnapShotFile> Mapped(const std::string& strPath, bool bNew) {
  kiv::KivSysOpenMode zMode;
  zMode.m_iAccess = kiv::KivSysAccess::ReadWrite;
  zMode.m_iShare = kiv::KivSysShare::None;
  zMode.m_iDisposition = bNew ? kiv::KivSysDisposition::CreateAlways : kiv::KivSysDisposition::OpenExisting;
  zMode.m_iFlags = kiv::KivSysFileFlags::RandomAccess;
  kiv::KivSysFile zFile = kiv::KivSysFile::Open(Wide(strPath), zMode);
  if (!zFile.IsOpen()) Fail("cannot open " + strPath);
  return kiv::KivCreateMappedFile(std::move(zFile));
}

class KivEngine : public Engine {
 public:
  explicit KivEngine(std::string strFolder) : m_strFolder(std::move(strFolder)) {}
  void Open(bool bNew) override {
    m_pzMain = Mapped(m_strFolder + "/main.kiv", bNew);
    if (bNew)
      m_pzContainer =
          std::make_unique<kiv::KivFastFileContainer>(m_pzMain, Mapped(m_strFolder + "/main.urf", true), nullptr);
    else
      m_pzContainer = std::make_unique<kiv::KivFastFileContainer>(m_pzMain, nullptr);
    if (m_pzContainer->GetStatus() != kiv::KivContainerStatus::Usable) Fail("container not usable");
  }
  void Close() override {
    m_pzContainer.reset();
    m_pzMain.Release();
    std::error_code zError;
    fs::remove(m_strFolder + "/main.urf", zError);  // the image is in the main file
  }
  // The position is the key; a caller keeps it, as the other engines' callers keep theirs.
  void Add(uint64_t iId, const uint8_t* pBytes, uint32_t nSize) override {
    if (m_viPosition.size() <= iId) m_viPosition.resize(iId + 1);
    m_viPosition[iId] = m_pzContainer->AddRecord(kiv::KivContainerData(pBytes, nSize));
  }
  void Get(uint64_t iId, std::vector<uint8_t>& vcBytes) override {
    const kiv::KivContainerRecord zRecord = m_pzContainer->GetRecord(m_viPosition[iId]);
    vcBytes.resize(zRecord.m_iFileSize);
    zRecord.m_pzFile->Read(zRecord.m_iOffset, vcBytes.data(), vcBytes.size());
  }
  void Delete(uint64_t iId) override { m_pzContainer->DeleteRecord(m_viPosition[iId]); }
  void EndPhase() override { m_pzContainer->Flush(); }
  kiv::KivFastFileContainer& Container() { return *m_pzContainer; }

 private:
  std::string m_strFolder;
  kiv::KivSharedPtr<kiv::ISnapShotFile> m_pzMain;
  std::unique_ptr<kiv::KivFastFileContainer> m_pzContainer;
  std::vector<kiv::Position> m_viPosition;
};

// --- SQLite --------------------------------------------------------------------------------------

class SqliteEngine : public Engine {
 public:
  explicit SqliteEngine(std::string strFolder) : m_strFolder(std::move(strFolder)) {}
  void Open(bool) override {
    if (sqlite3_open((m_strFolder + "/db.sqlite").c_str(), &m_pzDb) != SQLITE_OK) Fail("sqlite open");
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=OFF");
    Run("PRAGMA mmap_size=8589934592");
    Run("PRAGMA cache_size=-65536");
    Run("CREATE TABLE IF NOT EXISTS record(id INTEGER PRIMARY KEY, payload BLOB)");
    Prepare("INSERT INTO record VALUES(?,?)", m_pzAdd);
    Prepare("SELECT payload FROM record WHERE id=?", m_pzGet);
    Prepare("DELETE FROM record WHERE id=?", m_pzDelete);
  }
  void Close() override {
    Commit();
    for (sqlite3_stmt* pz : {m_pzAdd, m_pzGet, m_pzDelete}) sqlite3_finalize(pz);
    sqlite3_close(m_pzDb);
  }
  void Add(uint64_t iId, const uint8_t* pBytes, uint32_t nSize) override {
    Begin();
    sqlite3_bind_int64(m_pzAdd, 1, static_cast<int64_t>(iId));
    sqlite3_bind_blob(m_pzAdd, 2, pBytes, static_cast<int>(nSize), SQLITE_STATIC);
    if (sqlite3_step(m_pzAdd) != SQLITE_DONE) Fail("sqlite insert");
    sqlite3_reset(m_pzAdd);
    Count();
  }
  void Get(uint64_t iId, std::vector<uint8_t>& vcBytes) override {
    sqlite3_bind_int64(m_pzGet, 1, static_cast<int64_t>(iId));
    if (sqlite3_step(m_pzGet) != SQLITE_ROW) Fail("sqlite select");
    const auto* pBytes = static_cast<const uint8_t*>(sqlite3_column_blob(m_pzGet, 0));
    vcBytes.assign(pBytes, pBytes + sqlite3_column_bytes(m_pzGet, 0));
    sqlite3_reset(m_pzGet);
  }
  void Delete(uint64_t iId) override {
    Begin();
    sqlite3_bind_int64(m_pzDelete, 1, static_cast<int64_t>(iId));
    if (sqlite3_step(m_pzDelete) != SQLITE_DONE) Fail("sqlite delete");
    sqlite3_reset(m_pzDelete);
    Count();
  }
  void EndPhase() override { Commit(); }

 private:
  void Run(const char* szSql) {
    if (sqlite3_exec(m_pzDb, szSql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail(szSql);
  }
  void Prepare(const char* szSql, sqlite3_stmt*& pz) {
    if (sqlite3_prepare_v2(m_pzDb, szSql, -1, &pz, nullptr) != SQLITE_OK) Fail(szSql);
  }
  void Begin() {
    if (m_iInTransaction == 0) Run("BEGIN");
  }
  void Count() {
    if (++m_iInTransaction == kCommitEvery) Commit();
  }
  void Commit() {
    if (m_iInTransaction != 0) Run("COMMIT");
    m_iInTransaction = 0;
  }

  std::string m_strFolder;
  sqlite3* m_pzDb = nullptr;
  sqlite3_stmt* m_pzAdd = nullptr;
  sqlite3_stmt* m_pzGet = nullptr;
  sqlite3_stmt* m_pzDelete = nullptr;
  uint64_t m_iInTransaction = 0;
};

// --- LMDB ----------------------------------------------------------------------------------------

class LmdbEngine : public Engine {
 public:
  explicit LmdbEngine(std::string strFolder) : m_strFolder(std::move(strFolder)) {}
  void Open(bool) override {
    Check(mdb_env_create(&m_pzEnv));
    Check(mdb_env_set_mapsize(m_pzEnv, uint64_t{16} << 30));
    Check(mdb_env_open(m_pzEnv, m_strFolder.c_str(), MDB_NOSYNC | MDB_WRITEMAP | MDB_NORDAHEAD, 0600));
    MDB_txn* pzTxn = nullptr;
    Check(mdb_txn_begin(m_pzEnv, nullptr, 0, &pzTxn));
    Check(mdb_dbi_open(pzTxn, nullptr, MDB_INTEGERKEY, &m_iDbi));
    Check(mdb_txn_commit(pzTxn));
  }
  void Close() override {
    Commit();
    mdb_env_close(m_pzEnv);
  }
  void Add(uint64_t iId, const uint8_t* pBytes, uint32_t nSize) override {
    Begin(false);
    MDB_val zKey{8, &iId};
    std::memcpy(m_acBytes, pBytes, nSize);
    MDB_val zData{nSize, m_acBytes};
    Check(mdb_put(m_pzTxn, m_iDbi, &zKey, &zData, 0));
    Count();
  }
  void Get(uint64_t iId, std::vector<uint8_t>& vcBytes) override {
    if (m_pzTxn == nullptr) Begin(true);
    MDB_val zKey{8, &iId};
    MDB_val zData{};
    Check(mdb_get(m_pzTxn, m_iDbi, &zKey, &zData));
    const auto* pBytes = static_cast<const uint8_t*>(zData.mv_data);
    vcBytes.assign(pBytes, pBytes + zData.mv_size);
  }
  void Delete(uint64_t iId) override {
    Begin(false);
    MDB_val zKey{8, &iId};
    Check(mdb_del(m_pzTxn, m_iDbi, &zKey, nullptr));
    Count();
  }
  void EndPhase() override { Commit(); }

 private:
  void Check(int iResult) {
    if (iResult != 0) Fail(std::string("lmdb: ") + mdb_strerror(iResult));
  }
  void Begin(bool bRead) {
    if (m_pzTxn != nullptr && m_bRead && !bRead) Commit();
    if (m_pzTxn != nullptr) return;
    Check(mdb_txn_begin(m_pzEnv, nullptr, bRead ? MDB_RDONLY : 0, &m_pzTxn));
    m_bRead = bRead;
  }
  void Count() {
    if (++m_iInTransaction == kCommitEvery) Commit();
  }
  void Commit() {
    if (m_pzTxn != nullptr) Check(mdb_txn_commit(m_pzTxn));
    m_pzTxn = nullptr;
    m_iInTransaction = 0;
  }

  std::string m_strFolder;
  MDB_env* m_pzEnv = nullptr;
  MDB_dbi m_iDbi = 0;
  MDB_txn* m_pzTxn = nullptr;
  bool m_bRead = false;
  uint64_t m_iInTransaction = 0;
  uint8_t m_acBytes[kLargest];
};

// --- LevelDB -------------------------------------------------------------------------------------

class LeveldbEngine : public Engine {
 public:
  explicit LeveldbEngine(std::string strFolder) : m_strFolder(std::move(strFolder)) {}
  void Open(bool) override {
    leveldb::Options zOptions;
    zOptions.create_if_missing = true;
    zOptions.compression = leveldb::kNoCompression;
    zOptions.write_buffer_size = 64 << 20;
    m_pzCache.reset(leveldb::NewLRUCache(64 << 20));
    zOptions.block_cache = m_pzCache.get();
    leveldb::DB* pzDb = nullptr;
    if (!leveldb::DB::Open(zOptions, m_strFolder + "/db", &pzDb).ok()) Fail("leveldb open");
    m_pzDb.reset(pzDb);
  }
  void Close() override { m_pzDb.reset(); }
  void Add(uint64_t iId, const uint8_t* pBytes, uint32_t nSize) override {
    const leveldb::Slice zData(reinterpret_cast<const char*>(pBytes), nSize);
    if (!m_pzDb->Put(leveldb::WriteOptions(), Key(iId), zData).ok()) Fail("leveldb put");
  }
  void Get(uint64_t iId, std::vector<uint8_t>& vcBytes) override {
    if (!m_pzDb->Get(leveldb::ReadOptions(), Key(iId), &m_strValue).ok()) Fail("leveldb get");
    vcBytes.assign(m_strValue.begin(), m_strValue.end());
  }
  void Delete(uint64_t iId) override {
    if (!m_pzDb->Delete(leveldb::WriteOptions(), Key(iId)).ok()) Fail("leveldb delete");
  }
  void EndPhase() override {}

 private:
  leveldb::Slice Key(uint64_t iId) {
    for (int i = 0; i < 8; ++i) m_acKey[i] = static_cast<char>(iId >> (56 - 8 * i));  // in order of the ids
    return leveldb::Slice(m_acKey, 8);
  }
  std::string m_strFolder;
  std::unique_ptr<leveldb::Cache> m_pzCache;
  std::unique_ptr<leveldb::DB> m_pzDb;
  std::string m_strValue;
  char m_acKey[8];
};

// --- Run -----------------------------------------------------------------------------------------

// Bytes that the disk holds for a folder: blocks, since some files are mostly holes.
uint64_t BytesIn(const std::string& strFolder) {
  uint64_t iBytes = 0;
  for (const auto& zEntry : fs::recursive_directory_iterator(strFolder)) {
    struct stat zStat {};
    if (zEntry.is_regular_file() && stat(zEntry.path().c_str(), &zStat) == 0)
      iBytes += 512 * static_cast<uint64_t>(zStat.st_blocks);
  }
  return iBytes;
}

// By the clock, and by the processor time of the whole process, which counts less on a machine that is busy with others
// and counts a peer's background threads.
struct Rate {
  double m_dWall = 0;
  double m_dCpu = 0;
};

struct Figures {
  std::map<std::string, Rate> m_mapRate;  // operations per second
  double m_dReopenMs = 0;
  uint64_t m_iBytesAfterAdd = 0;
  uint64_t m_iBytesAtEnd = 0;
};

template <typename Body>
Rate RateOf(uint64_t nOperations, const Body& body) {
  const auto tStart = Clock::now();
  const std::clock_t iCpuStart = std::clock();
  body();
  const double dCpu = static_cast<double>(std::clock() - iCpuStart) / CLOCKS_PER_SEC;
  const double dWall = std::chrono::duration<double>(Clock::now() - tStart).count();
  return {static_cast<double>(nOperations) / dWall, static_cast<double>(nOperations) / dCpu};
}

Figures Measure(Engine& zEngine, const std::string& strFolder, uint64_t nRecords) {
  Figures zFigures;
  Payload zPayload;
  std::vector<uint8_t> vcBytes;
  std::vector<uint64_t> viLiving;
  std::mt19937_64 zRandom(99);
  uint64_t iNextId = 0;
  const auto AddOne = [&] {
    uint32_t nSize = 0;
    const uint8_t* pBytes = zPayload.Make(iNextId, nSize);
    zEngine.Add(iNextId, pBytes, nSize);
    viLiving.push_back(iNextId++);
  };
  const auto GetOne = [&] {
    const uint64_t iId = viLiving[zRandom() % viLiving.size()];
    zEngine.Get(iId, vcBytes);
    Payload::Verify(iId, vcBytes.data(), vcBytes.size());
  };
  const auto DeleteOne = [&] {
    const size_t i = zRandom() % viLiving.size();
    zEngine.Delete(viLiving[i]);
    viLiving[i] = viLiving.back();
    viLiving.pop_back();
  };

  zEngine.Open(true);
  zFigures.m_mapRate["1 add"] = RateOf(nRecords, [&] {
    for (uint64_t i = 0; i < nRecords; ++i) AddOne();
    zEngine.EndPhase();
  });
  zFigures.m_iBytesAfterAdd = BytesIn(strFolder);
  zFigures.m_mapRate["2 random get"] = RateOf(nRecords, [&] {
    for (uint64_t i = 0; i < nRecords; ++i) GetOne();
    zEngine.EndPhase();
  });
  const uint64_t nDelete = nRecords * 3 / 10;
  zFigures.m_mapRate["3 delete"] = RateOf(nDelete, [&] {
    for (uint64_t i = 0; i < nDelete; ++i) DeleteOne();
    zEngine.EndPhase();
  });
  const uint64_t nMixed = nRecords * 4 / 10;
  zFigures.m_mapRate["4 mixed"] = RateOf(nMixed, [&] {
    for (uint64_t i = 0; i < nMixed; ++i) {
      const uint64_t iWhat = zRandom() % 4;
      if (iWhat < 2)
        GetOne();
      else if (iWhat == 2)
        AddOne();
      else
        DeleteOne();
    }
    zEngine.EndPhase();
  });
  zEngine.Close();
  zFigures.m_iBytesAtEnd = BytesIn(strFolder);
  std::vector<double> vdMs;
  for (int i = 0; i < 25; ++i) {
    const auto tStart = Clock::now();
    zEngine.Open(false);
    GetOne();
    vdMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - tStart).count());
    zEngine.Close();
  }
  zFigures.m_dReopenMs = *std::min_element(vdMs.begin(), vdMs.end());
  return zFigures;
}

double ThreadSeconds() {
  timespec zTime{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &zTime);
  return static_cast<double>(zTime.tv_sec) + static_cast<double>(zTime.tv_nsec) * 1e-9;
}

void MeasureFreeSpace(const std::string& strFolder) {
  std::printf("\ncost of an add that reuses free space and of a delete, by the number of free records\n");
  std::printf("%12s %12s %12s %12s %8s\n", "free", "add", "delete", "nodes", "depth");
  for (uint64_t nFree = 1; nFree <= 1000000; nFree *= 10) {
    fs::remove_all(strFolder);
    fs::create_directories(strFolder);
    KivEngine zEngine(strFolder);
    zEngine.Open(true);
    kiv::KivFastFileContainer& zContainer = zEngine.Container();
    Payload zPayload;
    std::vector<kiv::Position> viFree;
    uint32_t nSize = 0;
    for (uint64_t i = 0; i < nFree; ++i) {
      const uint8_t* pBytes = zPayload.Make(i, nSize);
      viFree.push_back(zContainer.AddRecord(kiv::KivContainerData(pBytes, nSize)));
      zContainer.AddRecord(kiv::KivContainerData(pBytes, 0));  // keeps the free ones apart
    }
    std::mt19937_64 zRandom(5);
    std::shuffle(viFree.begin(), viFree.end(), zRandom);
    for (const kiv::Position iFile : viFree) zContainer.DeleteRecord(iFile);
    // Rounds of adds and deletes that change a small part of the free records, as many each.
    const uint64_t nRound = std::max<uint64_t>(1, std::min<uint64_t>(nFree / 10, 1000));
    const uint64_t nRounds = 20000 / nRound;
    double dAdd = 0;  // processor time: the rounds are short
    double dDelete = 0;
    std::vector<kiv::Position> viAdded;
    for (uint64_t iRound = 0; iRound < nRounds; ++iRound) {
      viAdded.clear();
      const double dStart = ThreadSeconds();
      for (uint64_t i = 0; i < nRound; ++i) {
        const uint8_t* pBytes = zPayload.Make(nFree == 1 ? 0 : zRandom() % nFree, nSize);
        viAdded.push_back(zContainer.AddRecord(kiv::KivContainerData(pBytes, nSize)));
      }
      const double dMiddle = ThreadSeconds();
      for (const kiv::Position iFile : viAdded) zContainer.DeleteRecord(iFile);
      dAdd += dMiddle - dStart;
      dDelete += ThreadSeconds() - dMiddle;
    }
    const kiv::KivContainerCheck zCheck = zContainer.FullCheck();
    if (!zCheck.IsSound()) Fail("container not sound: " + zCheck.GetText());
    const double dNum = static_cast<double>(nRound * nRounds);
    std::printf("%12llu %9.0f ns %9.0f ns %12llu %8llu\n", static_cast<unsigned long long>(zCheck.m_iFreeRecordNum),
                dAdd / dNum * 1e9, dDelete / dNum * 1e9, static_cast<unsigned long long>(zCheck.m_iNodeNum),
                static_cast<unsigned long long>(zCheck.m_iDepth));
    std::fflush(stdout);
    zEngine.Close();
  }
  fs::remove_all(strFolder);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) Fail("usage: container_bench FOLDER [records] [engine...]");
  kiv::KivRegisterOwnFormat();
  const uint64_t nRecords = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000000;
  std::vector<std::string> vstrEngine(argv + std::min(argc, 3), argv + argc);
  if (vstrEngine.empty()) vstrEngine = {"kiv", "sqlite", "lmdb", "leveldb", "free"};
  std::map<std::string, Figures> mapFigures;
  for (const std::string& strEngine : vstrEngine) {
    const std::string strFolder = std::string(argv[1]) + "/" + strEngine;
    fs::remove_all(strFolder);
    fs::create_directories(strFolder);
    if (strEngine == "free") {
      MeasureFreeSpace(strFolder);
      continue;
    }
    std::unique_ptr<Engine> pzEngine;
    if (strEngine == "kiv") pzEngine = std::make_unique<KivEngine>(strFolder);
    if (strEngine == "sqlite") pzEngine = std::make_unique<SqliteEngine>(strFolder);
    if (strEngine == "lmdb") pzEngine = std::make_unique<LmdbEngine>(strFolder);
    if (strEngine == "leveldb") pzEngine = std::make_unique<LeveldbEngine>(strFolder);
    if (!pzEngine) Fail("no engine " + strEngine);
    const Figures& zFigures = mapFigures[strEngine] = Measure(*pzEngine, strFolder, nRecords);
    std::printf("%s, %llu records\n", strEngine.c_str(), static_cast<unsigned long long>(nRecords));
    const auto itOurs = mapFigures.find("kiv");
    for (const auto& [strPhase, zRate] : zFigures.m_mapRate) {
      std::printf("  %-14s %9.0f per s  %9.0f per s of processor", strPhase.c_str() + 2, zRate.m_dWall, zRate.m_dCpu);
      if (itOurs != mapFigures.end() && strEngine != "kiv")
        std::printf("   ratio %5.2f  %5.2f", itOurs->second.m_mapRate.at(strPhase).m_dWall / zRate.m_dWall,
                    itOurs->second.m_mapRate.at(strPhase).m_dCpu / zRate.m_dCpu);
      std::printf("\n");
    }
    std::printf("  %-14s %9.2f ms", "reopen + get", zFigures.m_dReopenMs);
    if (itOurs != mapFigures.end() && strEngine != "kiv")
      std::printf("   ratio %5.2f", zFigures.m_dReopenMs / itOurs->second.m_dReopenMs);
    std::printf("\n  %-14s %9.0f MB after add, %.0f MB at the end\n", "on disk",
                static_cast<double>(zFigures.m_iBytesAfterAdd) / 1e6,
                static_cast<double>(zFigures.m_iBytesAtEnd) / 1e6);
    std::fflush(stdout);
    fs::remove_all(strFolder);
  }
  return 0;
}
