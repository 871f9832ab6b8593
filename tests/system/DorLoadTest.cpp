// Many models, many requests, many cycles, large payloads. KIV_LOAD=full in the environment asks for the long form,
// KIV_LOAD=busy for the same with two busy loops beside it.
#include <algorithm>
#include <cstdlib>

#include "DorTreeTest.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct Load {
  int m_nModels, m_nRequests, m_nCycles;
  uint64_t m_nLargest;
};

// "", "full" or "busy".
std::string AskedLoad() {
  const char* szLoad = std::getenv("KIV_LOAD");
  return szLoad != nullptr ? szLoad : "";
}

// Two processes that do nothing but take the cores, if asked for.
class BusyLoops {
 public:
  BusyLoops() {
    if (AskedLoad() != "busy") return;
    bool bExisted = false;
    m_hGoOn = KivSysEvent::Create(EventName(), bExisted);
    for (int i = 0; i < 2; ++i) m_vzLoops.push_back(StartTestChild("SpinsForAsLongAsItsParentLives", {EventName()}));
  }
  ~BusyLoops() {
    for (KivSysProcess& zLoop : m_vzLoops) zLoop.Terminate(1);
  }

 private:
  static KivWString EventName() { return u"KivTestBusy" + OwnPid(); }
  KivSysEvent m_hGoOn;
  std::vector<KivSysProcess> m_vzLoops;
};

// What a part of the load took, for the record.
class Stopwatch {
 public:
  explicit Stopwatch(std::string strWhat) : m_strWhat(std::move(strWhat)) {}
  ~Stopwatch() {
    std::printf("%s: %.1f s\n", m_strWhat.c_str(), static_cast<double>(sys::SteadyNs() - m_iStart) / 1e9);
  }

 private:
  std::string m_strWhat;
  uint64_t m_iStart = sys::SteadyNs();
};

Load Amount() {
  if (!AskedLoad().empty()) return {64, 100000, 1000, uint64_t{256} << 20};
  return {16, static_cast<int>(Scaled(5000, 500)), static_cast<int>(Scaled(50, 5)), uint64_t{16} << 20};
}

class Random {
 public:
  explicit Random(uint64_t iSeed) : m_iState(iSeed) {}
  uint64_t Below(uint64_t n) {
    m_iState = m_iState * 6364136223846793005u + 1442695040888963407u;
    return (m_iState >> 33) % n;
  }

 private:
  uint64_t m_iState;
};

// Open descriptors of a process, where the system shows them; else 0.
size_t DescriptorsOf(int32_t iPid) {
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(u"/proc/" + Decimal(iPid) + u"/fd", vzEntries);
  return vzEntries.size();
}

std::vector<size_t> DescriptorsOf(const std::vector<int32_t>& viPids) {
  std::vector<size_t> vn;
  for (int32_t iPid : viPids) vn.push_back(DescriptorsOf(iPid));
  return vn;
}

constexpr char16_t kPick[] = u"DorHandler_PickOneElement";

// Own memory of client, relay and the handlers of these models, in bytes; each process tells its own.
std::vector<int64_t> MemoryOf(DorClient& zClient, const std::vector<int64_t>& viModels) {
  std::vector<int64_t> vi{MemoryInUse()};
  KivByteBuffer vcResult;
  const auto Ask = [&](const KivWString& csRequest, const KivByteBuffer& vcPayload) {
    uint64_t iCursor = 0;
    int64_t iBytes = -1;
    EXPECT_EQ(zClient.CallUnchecked(csRequest, vcPayload, vcResult), 0);
    EXPECT_TRUE(KivGetInt64(iCursor, vcResult, &iBytes));
    EXPECT_GT(iBytes, 0);
    vi.push_back(iBytes);
  };
  Ask(kAskRelayFootprint, {});
  for (int64_t iModel : viModels) {
    KivByteBuffer vcPayload = IdPayload(iModel);
    for (char c : std::string("footprint")) vcPayload.push_back(static_cast<uint8_t>(c));
    Ask(kPick, vcPayload);
  }
  return vi;
}

constexpr int64_t kMiB = int64_t{1} << 20;

void ExpectFlat(const std::vector<int64_t>& viBefore, const std::vector<int64_t>& viAfter, int64_t iMost) {
  ASSERT_EQ(viBefore.size(), viAfter.size());
  if (kSanitized) return;  // its allocator keeps what is freed
  for (size_t i = 0; i < viBefore.size(); ++i)
    EXPECT_LE(viAfter[i], viBefore[i] + iMost) << "process " << i << " (client, relay, handlers)";
}

KivByteBuffer Payload(int64_t iModel, uint64_t nBytes, uint64_t iSeed) {
  KivByteBuffer vc = IdPayload(iModel);
  vc.resize(8 + nBytes);
  for (uint64_t i = 0; i < nBytes; ++i) vc[8 + i] = static_cast<uint8_t>((i + iSeed) * 131 >> 3);
  return vc;
}

constexpr uint64_t kLargeBytes = 48u << 20;  // more than an allocator keeps for itself

// The payload of DorHandler_IsLinearCurve with a block of that size.
KivByteBuffer LargeCurve(int64_t iModel) {
  KivByteBuffer vcCurve = IdPayload(iModel);
  for (int64_t i : {1, 2, 1}) KivPutInt64(vcCurve, i);
  KivPutInt64(vcCurve, static_cast<int64_t>(kLargeBytes));
  const KivByteBuffer vcBlock(kLargeBytes, 7);
  KivPutBlock(vcCurve, vcBlock.data(), kLargeBytes);
  return vcCurve;
}

}  // namespace

KIV_TEST_CHILD(SpinsForAsLongAsItsParentLives) {
  while (KivSysEvent::Open(vcsArgs.at(0)).IsOpen()) {
    const uint64_t iEnd = sys::SteadyNs() + 200000000;
    while (sys::SteadyNs() < iEnd) {
    }
  }
  return 0;
}

TEST(DorLoad, RequestsInRandomOrderOverManyModelsComeBackUnchangedAndMemoryStaysFlat) {
  const Load zLoad = Amount();
  const uint64_t iSeed = sys::SteadyNs();
  RecordProperty("seed", std::to_string(iSeed));
  std::printf("seed %llu\n", static_cast<unsigned long long>(iSeed));
  const BusyLoops zBusy;
  const Stopwatch zWatch(std::to_string(zLoad.m_nRequests) + " requests over " + std::to_string(zLoad.m_nModels) +
                         " models");
  Random zRandom(iSeed);
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  std::vector<int64_t> viModels;
  for (int i = 0; i < zLoad.m_nModels; ++i) viModels.push_back(zClient.StartOpen(u"model"));
  for (int64_t iModel : viModels) zClient.AwaitOpen(iModel);
  EXPECT_EQ(zClient.ListTree().size(), static_cast<size_t>(zLoad.m_nModels) + 2);

  KivByteBuffer vcResult;
  const std::vector<int32_t> viPids = zClient.ListTree();
  std::vector<size_t> vnDescriptors;
  std::vector<int64_t> viMemory;
  for (int i = 0; i < zLoad.m_nRequests; ++i) {
    if (i == zLoad.m_nRequests / 5) {
      vnDescriptors = DescriptorsOf(viPids);
      viMemory = MemoryOf(zClient, viModels);
    }
    const int64_t iModel = viModels[zRandom.Below(viModels.size())];
    const KivByteBuffer vcPayload =
        Payload(iModel, 33 + zRandom.Below(zRandom.Below(20) == 0 ? 60000 : 2000), iSeed + static_cast<uint64_t>(i));
    ASSERT_EQ(zClient.CallUnchecked(kPick, vcPayload, vcResult), 0);
    ASSERT_TRUE(vcResult == vcPayload);
  }
  EXPECT_EQ(DescriptorsOf(viPids), vnDescriptors);
  ExpectFlat(viMemory, MemoryOf(zClient, viModels), 2 * kMiB);
  EXPECT_TRUE(zClient.Close());
}

TEST(DorLoad, ModelsAreOpenedAndClosedAgainAndAgain) {
  const Load zLoad = Amount();
  const BusyLoops zBusy;
  const Stopwatch zWatch(std::to_string(zLoad.m_nCycles) + " cycles");
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const std::vector<int32_t> viPids{static_cast<int32_t>(sys::CurrentProcessNumber()), zClient.GetRelayPid()};
  std::vector<size_t> vnDescriptors;
  std::vector<int64_t> viMemory;
  for (int i = 0; i < zLoad.m_nCycles; ++i) {
    const int64_t iModel = zClient.Open(u"model");
    ASSERT_EQ(iModel, i);
    ASSERT_EQ(zClient.Call(KivWString(kDorDoNothing), IdPayload(iModel)).m_iStatus, 0);
    zClient.Clear(iModel);
    ASSERT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
    if (i == zLoad.m_nCycles / 2) {
      vnDescriptors = DescriptorsOf(viPids);
      viMemory = MemoryOf(zClient, {});
    }
  }
  // The relay may still be about to forget the last child.
  EXPECT_TRUE(Eventually([&] {
    const std::vector<size_t> vn = DescriptorsOf(viPids);
    return vn[0] <= vnDescriptors[0] && vn[1] <= vnDescriptors[1];
  }));
  ExpectFlat(viMemory, MemoryOf(zClient, {}), 2 * kMiB);
  EXPECT_TRUE(zClient.Close());
}

TEST(DorLoad, LargePayloadsGoBothWays) {
  const Load zLoad = Amount();
  const BusyLoops zBusy;
  const Stopwatch zWatch("payloads to " + std::to_string(zLoad.m_nLargest >> 20) + " MiB");
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const int64_t iModel = zClient.Open(u"model");
  KivByteBuffer vcResult;
  for (uint64_t nBytes = 1 << 16; nBytes <= zLoad.m_nLargest; nBytes *= 4) {
    for (const uint64_t n : {nBytes - 8 - 520, nBytes - 7 - 520, nBytes}) {
      const KivByteBuffer vcPayload = Payload(iModel, n, n);
      ASSERT_EQ(zClient.CallUnchecked(kPick, vcPayload, vcResult), 0);
      ASSERT_TRUE(vcResult == vcPayload) << n;
    }
  }
  // A small one behind a large one is not disturbed by the old content.
  const KivByteBuffer vcSmall = Payload(iModel, 40, 1);
  ASSERT_EQ(zClient.CallUnchecked(kPick, vcSmall, vcResult), 0);
  EXPECT_TRUE(vcResult == vcSmall);
}

TEST(DorLoad, AVeryLargeRequestLeavesNoMemoryInTheProcessesThatItPassed) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const int64_t iModel = zClient.Open(u"model");
  const std::vector<int64_t> viBefore = MemoryOf(zClient, {iModel});
  KivByteBuffer vcResult;
  {
    // Once as a tail and once as a block that is written again.
    ASSERT_EQ(zClient.CallUnchecked(kPick, Payload(iModel, kLargeBytes, 1), vcResult), 0);
    const KivByteBuffer vcCurve = LargeCurve(iModel);
    ASSERT_EQ(zClient.CallUnchecked(u"DorHandler_IsLinearCurve", vcCurve, vcResult), 0);
    EXPECT_TRUE(vcResult == vcCurve);
  }
  KivByteBuffer().swap(vcResult);
  ExpectFlat(viBefore, MemoryOf(zClient, {iModel}), 16 * kMiB);
}

TEST(DorLoad, AVeryLargeRequestForAModelThatFailedLeavesNoMemoryEither) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const int64_t iModel = zClient.StartOpen(u"read status 10");
  EXPECT_THROW(zClient.AwaitOpen(iModel), DorReadError);
  const std::vector<int64_t> viBefore = MemoryOf(zClient, {});
  KivByteBuffer vcResult;
  EXPECT_EQ(zClient.CallUnchecked(u"DorHandler_IsLinearCurve", LargeCurve(iModel), vcResult), kDorStatusReadFailed);
  ExpectFlat(viBefore, MemoryOf(zClient, {}), 16 * kMiB);
}
