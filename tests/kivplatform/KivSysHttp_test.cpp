#include "KivSysHttp.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "KivTestHttpServer.h"

using namespace kiv;
using namespace kivtest;

namespace {

uint8_t ByteAt(uint64_t i) {
  return static_cast<uint8_t>(i % 251 * 31 % 251);
}

struct Client {
  KivSysHttpSession m_zSession{u"KivTest/1.0"};
  std::unique_ptr<KivSysHttpConnection> m_pzConnection;
  explicit Client(const TestHttpServer& zServer) {
    KivSysUrl zUrl;
    if (sys::SplitUrl(zServer.Url(u"/"), zUrl)) m_pzConnection = m_zSession.Connect(zUrl);
  }
};

std::vector<uint8_t> ReadAll(KivSysHttpRequest& zRequest, uint32_t nPart, bool& bDone) {
  std::vector<uint8_t> vcBytes;
  std::vector<uint8_t> vcPart(nPart);
  uint32_t nDone = 0;
  while ((bDone = zRequest.Read(vcPart.data(), nPart, nDone)) && nDone != 0)
    vcBytes.insert(vcBytes.end(), vcPart.begin(), vcPart.begin() + nDone);
  return vcBytes;
}

}  // namespace

TEST(Http, AddressesAreSplit) {
  KivSysUrl zUrl;
  ASSERT_TRUE(sys::SplitUrl(u"http://host.example/a/b?c=d", zUrl));
  EXPECT_TRUE(zUrl.m_csHost == u"host.example");
  EXPECT_TRUE(zUrl.m_csPath == u"/a/b?c=d");
  EXPECT_EQ(zUrl.m_iPort, 80);
  EXPECT_FALSE(zUrl.m_bSecure);
  ASSERT_TRUE(sys::SplitUrl(u"HTTPS://host.example:8443/x", zUrl));
  EXPECT_EQ(zUrl.m_iPort, 8443);
  EXPECT_TRUE(zUrl.m_bSecure);
  ASSERT_TRUE(sys::SplitUrl(u"https://host.example/", zUrl));
  EXPECT_EQ(zUrl.m_iPort, 443);
  for (const KivWString& csUrl : {KivWString(), KivWString(u"ftp://host/a"), KivWString(u"C:\\a.kiv"),
                                  KivWString(u"/a.kiv"), KivWString(u"http:"), KivWString(u"file:///a")})
    EXPECT_FALSE(sys::SplitUrl(csUrl, zUrl)) << sys::WideToUtf8(csUrl);
}

TEST(Http, GetsAnAnswerWithItsHeaders) {
  const TestHttpServer zServer;
  ASSERT_TRUE(zServer.IsRunning());
  const Client zClient(zServer);
  ASSERT_NE(zClient.m_pzConnection, nullptr);
  const auto pzRequest = zClient.m_pzConnection->Get(u"/bytes/1000", u"", u"");
  ASSERT_NE(pzRequest, nullptr);
  uint32_t iStatus = 0;
  EXPECT_TRUE(pzRequest->GetStatus(iStatus));
  EXPECT_EQ(iStatus, 200u);
  KivWString csValue;
  EXPECT_TRUE(pzRequest->GetHeader(u"content-LENGTH", csValue));
  EXPECT_TRUE(csValue == u"1000");
  EXPECT_TRUE(pzRequest->GetHeader(u"X-Kiv-Test", csValue));
  EXPECT_TRUE(csValue == u"some value") << sys::WideToUtf8(csValue);
  EXPECT_FALSE(pzRequest->GetHeader(u"X-Nothing", csValue));
  bool bDone = false;
  const std::vector<uint8_t> vcBytes = ReadAll(*pzRequest, 333, bDone);
  EXPECT_TRUE(bDone);
  ASSERT_EQ(vcBytes.size(), 1000u);
  for (uint64_t i = 0; i < 1000; ++i) ASSERT_EQ(vcBytes[i], ByteAt(i));
  uint32_t nDone = 1;
  EXPECT_TRUE(pzRequest->Read(&nDone, 4, nDone));
  EXPECT_EQ(nDone, 0u) << "the end stays the end";
}

TEST(Http, SendsItsHeaders) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  const auto pzRequest =
      zClient.m_pzConnection->Get(u"/echo", u"http://referrer.example/", u"Range: bytes=0-99\r\nX-One: 1\r\n");
  ASSERT_NE(pzRequest, nullptr);
  bool bDone = false;
  const std::vector<uint8_t> vcBytes = ReadAll(*pzRequest, 4096, bDone);
  const std::string strText(vcBytes.begin(), vcBytes.end());
  for (const char* szLine : {"User-Agent: KivTest/1.0", "Range: bytes=0-99", "X-One: 1",
                             "Referer: http://referrer.example/", "application/octet-stream"})
    EXPECT_NE(strText.find(szLine), std::string::npos) << szLine << " in\n" << strText;
}

TEST(Http, RangesGiveTheirPart) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  for (int i = 0; i < 5; ++i) {
    const auto pzRequest = zClient.m_pzConnection->Get(u"/bytes/100000", u"", u"Range: bytes=70000-70009\r\n");
    ASSERT_NE(pzRequest, nullptr);
    uint32_t iStatus = 0;
    EXPECT_TRUE(pzRequest->GetStatus(iStatus));
    EXPECT_EQ(iStatus, 206u);
    KivWString csValue;
    EXPECT_TRUE(pzRequest->GetHeader(u"Content-Range", csValue));
    EXPECT_TRUE(csValue == u"bytes 70000-70009/100000");
    bool bDone = false;
    const std::vector<uint8_t> vcBytes = ReadAll(*pzRequest, 100, bDone);
    ASSERT_EQ(vcBytes.size(), 10u);
    for (uint64_t j = 0; j < 10; ++j) EXPECT_EQ(vcBytes[j], ByteAt(70000 + j));
  }
}

TEST(Http, LargeBodiesStream) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  constexpr uint64_t kBytes = 20'000'000;
  const auto pzRequest = zClient.m_pzConnection->Get(u"/bytes/20000000", u"", u"");
  ASSERT_NE(pzRequest, nullptr);
  std::vector<uint8_t> vcPart(70'000);
  uint64_t nAll = 0;
  uint32_t nDone = 0;
  while (pzRequest->Read(vcPart.data(), static_cast<uint32_t>(vcPart.size()), nDone) && nDone != 0) {
    ASSERT_EQ(vcPart[0], ByteAt(nAll));
    ASSERT_EQ(vcPart[nDone - 1], ByteAt(nAll + nDone - 1));
    nAll += nDone;
  }
  EXPECT_EQ(nAll, kBytes);
}

TEST(Http, AnAnswerMayBeLeftUnread) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  for (int i = 0; i < 3; ++i) {
    const auto pzRequest = zClient.m_pzConnection->Get(u"/bytes/20000000", u"", u"");
    ASSERT_NE(pzRequest, nullptr);
    uint8_t acPart[16];
    uint32_t nDone = 0;
    EXPECT_TRUE(pzRequest->Read(acPart, sizeof acPart, nDone));
    EXPECT_GT(nDone, 0u);
  }
}

TEST(Http, ChunkedBodiesAreJoined) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  const auto pzRequest = zClient.m_pzConnection->Get(u"/chunked/5500", u"", u"");
  ASSERT_NE(pzRequest, nullptr);
  bool bDone = false;
  EXPECT_EQ(ReadAll(*pzRequest, 512, bDone).size(), 5500u);
  EXPECT_TRUE(bDone);
}

TEST(Http, StatusesAreToldAndRedirectionsNotFollowed) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  for (const char* szStatus : {"404", "416", "500", "302"}) {
    const auto pzRequest = zClient.m_pzConnection->Get(sys::Utf8ToWide(std::string("/status/") + szStatus), u"", u"");
    ASSERT_NE(pzRequest, nullptr) << szStatus;
    uint32_t iStatus = 0;
    EXPECT_TRUE(pzRequest->GetStatus(iStatus));
    EXPECT_EQ(std::to_string(iStatus), szStatus);
  }
}

TEST(Http, ABodyThatIsCutGivesNoMoreThanCame) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  const auto pzRequest = zClient.m_pzConnection->Get(u"/cut/10000", u"", u"");
  ASSERT_NE(pzRequest, nullptr);
  bool bDone = true;
  EXPECT_LE(ReadAll(*pzRequest, 1024, bDone).size(), 5000u);
}

TEST(Http, NobodyThereGivesNoRequest) {
  uint16_t iPort = 0;
  {
    const TestHttpServer zServer;
    iPort = zServer.Port();
  }
  KivSysHttpSession zSession(u"KivTest");
  ASSERT_TRUE(zSession.IsOpen());
  // Port 1 of the own machine, where nobody listens.
  const auto pzConnection = zSession.Connect({u"127.0.0.1", u"/", 1, false});
  EXPECT_TRUE(pzConnection == nullptr || pzConnection->Get(u"/", u"", u"") == nullptr);
  EXPECT_EQ(zSession.Connect({u"", u"/", iPort, false}), nullptr);
}

TEST(Http, RequestsMayRunOnDifferentThreads) {
  const TestHttpServer zServer;
  const Client zClient(zServer);
  std::vector<std::thread> vzThreads;
  std::atomic<int> nGood{0};
  for (int i = 0; i < 6; ++i) {
    vzThreads.emplace_back([&, i] {
      for (int j = 0; j < 5; ++j) {
        const std::string strPath = "/bytes/" + std::to_string(1000 * (i + 1) + j);
        const auto pzRequest = zClient.m_pzConnection->Get(sys::Utf8ToWide(strPath), u"", u"");
        bool bDone = false;
        if (pzRequest != nullptr && ReadAll(*pzRequest, 700, bDone).size() == 1000u * (i + 1) + j) ++nGood;
      }
    });
  }
  for (std::thread& zThread : vzThreads) zThread.join();
  EXPECT_EQ(nGood.load(), 30);
}
