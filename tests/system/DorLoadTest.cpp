// Many models, many requests, many cycles, large payloads. KIV_LOAD=full in the environment asks for the long form.
#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "DorTreeTest.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct Load {
  int m_nModels, m_nRequests, m_nCycles;
  uint64_t m_nLargest;
};

Load Amount() {
  const char* szLoad = std::getenv("KIV_LOAD");
  if (szLoad != nullptr && std::string(szLoad) == "full") return {64, 100000, 1000, uint64_t{256} << 20};
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

// Open descriptors and resident pages of a process, where the system shows them; else 0.
struct Footprint {
  size_t m_nDescriptors = 0;
  uint64_t m_nPages = 0;
};

Footprint FootprintOf(int32_t iPid) {
  Footprint z;
  std::vector<KivSysFolderEntry> vzEntries;
  if (sys::ListFolder(u"/proc/" + Decimal(iPid) + u"/fd", vzEntries)) z.m_nDescriptors = vzEntries.size();
  std::ifstream zFile("/proc/" + std::to_string(iPid) + "/statm");
  uint64_t nTotal = 0;
  zFile >> nTotal >> z.m_nPages;
  return z;
}

KivByteBuffer Payload(int64_t iModel, uint64_t nBytes, uint64_t iSeed) {
  KivByteBuffer vc = IdPayload(iModel);
  vc.resize(8 + nBytes);
  for (uint64_t i = 0; i < nBytes; ++i) vc[8 + i] = static_cast<uint8_t>((i + iSeed) * 131 >> 3);
  return vc;
}

constexpr char16_t kPick[] = u"DorHandler_PickOneElement";

}  // namespace

TEST(DorLoad, RequestsInRandomOrderOverManyModelsComeBackUnchangedAndMemoryStaysFlat) {
  const Load zLoad = Amount();
  const uint64_t iSeed = sys::SteadyNs();
  RecordProperty("seed", std::to_string(iSeed));
  std::printf("seed %llu\n", static_cast<unsigned long long>(iSeed));
  Random zRandom(iSeed);
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  std::vector<int64_t> viModels;
  for (int i = 0; i < zLoad.m_nModels; ++i) viModels.push_back(zClient.StartOpen(u"model"));
  for (int64_t iModel : viModels) zClient.AwaitOpen(iModel);
  EXPECT_EQ(zClient.ListTree().size(), static_cast<size_t>(zLoad.m_nModels) + 2);

  KivByteBuffer vcResult;
  std::vector<std::pair<int32_t, Footprint>> vzBefore;
  for (int i = 0; i < zLoad.m_nRequests; ++i) {
    if (i == zLoad.m_nRequests / 5)
      for (int32_t iPid : zClient.ListTree()) vzBefore.emplace_back(iPid, FootprintOf(iPid));
    const int64_t iModel = viModels[zRandom.Below(viModels.size())];
    const KivByteBuffer vcPayload =
        Payload(iModel, 33 + zRandom.Below(zRandom.Below(20) == 0 ? 60000 : 2000), iSeed + static_cast<uint64_t>(i));
    ASSERT_EQ(zClient.CallUnchecked(kPick, vcPayload, vcResult), 0);
    ASSERT_TRUE(vcResult == vcPayload);
  }
  for (const auto& [iPid, zBefore] : vzBefore) {
    const Footprint zAfter = FootprintOf(iPid);
    EXPECT_LE(zAfter.m_nDescriptors, zBefore.m_nDescriptors) << iPid;
    if (!kSanitized) {
      EXPECT_LE(zAfter.m_nPages, zBefore.m_nPages + 512) << iPid;
    }
  }
  EXPECT_TRUE(zClient.Close());
}

TEST(DorLoad, ModelsAreOpenedAndClosedAgainAndAgain) {
  const Load zLoad = Amount();
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  Footprint zClientBefore, zRelayBefore;
  for (int i = 0; i < zLoad.m_nCycles; ++i) {
    const int64_t iModel = zClient.Open(u"model");
    ASSERT_EQ(iModel, i);
    ASSERT_EQ(zClient.Call(KivWString(kDorDoNothing), IdPayload(iModel)).m_iStatus, 0);
    zClient.Clear(iModel);
    ASSERT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
    if (i == zLoad.m_nCycles / 2) {
      zClientBefore = FootprintOf(static_cast<int32_t>(sys::CurrentProcessNumber()));
      zRelayBefore = FootprintOf(zClient.GetRelayPid());
    }
  }
  // The relay may still be about to forget the last child.
  EXPECT_TRUE(Eventually([&] {
    return FootprintOf(static_cast<int32_t>(sys::CurrentProcessNumber())).m_nDescriptors <=
               zClientBefore.m_nDescriptors &&
           FootprintOf(zClient.GetRelayPid()).m_nDescriptors <= zRelayBefore.m_nDescriptors;
  }));
  EXPECT_TRUE(zClient.Close());
}

TEST(DorLoad, LargePayloadsGoBothWays) {
  const Load zLoad = Amount();
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
