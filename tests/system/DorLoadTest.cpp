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

constexpr char16_t kPick[] = u"DorHandler_PickOneElement";

// Footprints of client, relay and the handlers of these models; each process tells its own.
std::vector<Footprint> FootprintsOf(DorClient& zClient, const std::vector<int64_t>& viModels) {
  std::vector<Footprint> vz{OwnFootprint()};
  KivByteBuffer vcResult;
  const auto Ask = [&](const KivWString& csRequest, const KivByteBuffer& vcPayload) {
    uint64_t iCursor = 0;
    Footprint z;
    EXPECT_EQ(zClient.CallUnchecked(csRequest, vcPayload, vcResult), 0);
    EXPECT_TRUE(KivGetInt64(iCursor, vcResult, &z.m_iMemory) && KivGetInt64(iCursor, vcResult, &z.m_iHandles));
    vz.push_back(z);
  };
  Ask(kAskRelayFootprint, {});
  for (int64_t iModel : viModels) {
    KivByteBuffer vcPayload = IdPayload(iModel);
    for (char c : std::string("footprint")) vcPayload.push_back(static_cast<uint8_t>(c));
    Ask(kPick, vcPayload);
  }
  for (const Footprint& z : vz) {
    EXPECT_GT(z.m_iMemory, 0);
    EXPECT_GT(z.m_iHandles, 0);
  }
  return vz;
}

constexpr int64_t kMiB = int64_t{1} << 20;

// No process has one handle more, or more memory than that.
void ExpectFlat(const std::vector<Footprint>& vzBefore, const std::vector<Footprint>& vzAfter, int64_t iMost) {
  ASSERT_EQ(vzBefore.size(), vzAfter.size());
  for (size_t i = 0; i < vzBefore.size(); ++i) {
    SCOPED_TRACE("process " + std::to_string(i) + " (client, relay, handlers)");
    EXPECT_LE(vzAfter[i].m_iHandles, vzBefore[i].m_iHandles);
    if (kSanitized) continue;  // its allocator keeps what is freed
    EXPECT_LE(vzAfter[i].m_iMemory, vzBefore[i].m_iMemory + iMost);
  }
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
  std::vector<Footprint> vzBefore;
  for (int i = 0; i < zLoad.m_nRequests; ++i) {
    if (i == zLoad.m_nRequests / 5) vzBefore = FootprintsOf(zClient, viModels);
    const int64_t iModel = viModels[zRandom.Below(viModels.size())];
    const KivByteBuffer vcPayload =
        Payload(iModel, 33 + zRandom.Below(zRandom.Below(20) == 0 ? 60000 : 2000), iSeed + static_cast<uint64_t>(i));
    ASSERT_EQ(zClient.CallUnchecked(kPick, vcPayload, vcResult), 0);
    ASSERT_TRUE(vcResult == vcPayload);
  }
  ExpectFlat(vzBefore, FootprintsOf(zClient, viModels), 2 * kMiB);
  EXPECT_TRUE(zClient.Close());
}

TEST(DorLoad, ModelsAreOpenedAndClosedAgainAndAgain) {
  const Load zLoad = Amount();
  const BusyLoops zBusy;
  const Stopwatch zWatch(std::to_string(zLoad.m_nCycles) + " cycles");
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  std::vector<Footprint> vzBefore;
  for (int i = 0; i < zLoad.m_nCycles; ++i) {
    const int64_t iModel = zClient.Open(u"model");
    ASSERT_EQ(iModel, i);
    ASSERT_EQ(zClient.Call(KivWString(kDorDoNothing), IdPayload(iModel)).m_iStatus, 0);
    zClient.Clear(iModel);
    ASSERT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
    if (i == zLoad.m_nCycles / 2) vzBefore = FootprintsOf(zClient, {});
  }
  // The relay's last child may not have been waited for yet.
  EXPECT_TRUE(Eventually([&] { return FootprintsOf(zClient, {})[1].m_iHandles <= vzBefore[1].m_iHandles; }));
  ExpectFlat(vzBefore, FootprintsOf(zClient, {}), 2 * kMiB);
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
  const std::vector<Footprint> vzBefore = FootprintsOf(zClient, {iModel});
  KivByteBuffer vcResult;
  {
    // Once as a tail and once as a block that is written again.
    ASSERT_EQ(zClient.CallUnchecked(kPick, Payload(iModel, kLargeBytes, 1), vcResult), 0);
    const KivByteBuffer vcCurve = LargeCurve(iModel);
    ASSERT_EQ(zClient.CallUnchecked(u"DorHandler_IsLinearCurve", vcCurve, vcResult), 0);
    EXPECT_TRUE(vcResult == vcCurve);
  }
  KivByteBuffer().swap(vcResult);
  ExpectFlat(vzBefore, FootprintsOf(zClient, {iModel}), 16 * kMiB);
}

TEST(DorLoad, AVeryLargeRequestForAModelThatFailedLeavesNoMemoryEither) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const int64_t iModel = zClient.StartOpen(u"read status 10");
  EXPECT_THROW(zClient.AwaitOpen(iModel), DorReadError);
  const std::vector<Footprint> vzBefore = FootprintsOf(zClient, {});
  KivByteBuffer vcResult;
  EXPECT_EQ(zClient.CallUnchecked(u"DorHandler_IsLinearCurve", LargeCurve(iModel), vcResult), kDorStatusReadFailed);
  ExpectFlat(vzBefore, FootprintsOf(zClient, {}), 16 * kMiB);
}
