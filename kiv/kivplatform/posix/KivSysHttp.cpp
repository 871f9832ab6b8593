#include "KivSysHttp.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KivSysPosix.h"

namespace kiv {
namespace {

constexpr size_t kBufferLimit = 256 * 1024;  // the transfer pauses while this much waits to be read
constexpr size_t kHeaderLimit = 256 * 1024;  // names and values of one answer
constexpr long kConnectTimeoutMs = 60'000;
constexpr long kStallSeconds = 60;  // no byte for this long is a failure

struct MultiDeleter {
  void operator()(CURLM* pMulti) const { curl_multi_cleanup(pMulti); }
};
using Multi = std::unique_ptr<CURLM, MultiDeleter>;
struct EasyDeleter {
  void operator()(CURL* pEasy) const { curl_easy_cleanup(pEasy); }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;
struct ListDeleter {
  void operator()(curl_slist* pList) const { curl_slist_free_all(pList); }
};
using List = std::unique_ptr<curl_slist, ListDeleter>;

// Open connections to one host, used again by later requests; each request has a set to itself while it lives.
class ConnectionPool {
 public:
  Multi Take() {
    const std::lock_guard zGuard(m_zLock);
    if (m_vpIdle.empty()) return Multi(curl_multi_init());
    Multi pMulti = std::move(m_vpIdle.back());
    m_vpIdle.pop_back();
    return pMulti;
  }

  void Give(Multi pMulti) {
    const std::lock_guard zGuard(m_zLock);
    if (m_vpIdle.size() < 4) m_vpIdle.push_back(std::move(pMulti));
  }

 private:
  std::mutex m_zLock;
  std::vector<Multi> m_vpIdle;
};

std::string Trimmed(std::string_view strText) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t iFirst = strText.find_first_not_of(kBlanks);
  if (iFirst == std::string_view::npos) return {};
  return std::string(strText.substr(iFirst, strText.find_last_not_of(kBlanks) - iFirst + 1));
}

bool HasControls(std::string_view strText) {
  return std::any_of(strText.begin(), strText.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

}  // namespace

struct KivSysHttpRequest::Impl {
  std::shared_ptr<ConnectionPool> m_pzPool;
  Multi m_pMulti;
  List m_pHeaders;
  Easy m_pEasy;
  std::vector<std::pair<std::string, std::string>> m_vstrHeaders;
  size_t m_nHeaderBytes = 0;
  std::string m_strBody;  // what came and was not read yet, from m_iBody on
  size_t m_iBody = 0;
  bool m_bAnswer = false;  // the last answer's headers are complete
  bool m_bPaused = false;
  bool m_bDone = false;
  bool m_bFailed = false;

  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    if (m_pMulti == nullptr) return;
    if (m_pEasy != nullptr) curl_multi_remove_handle(m_pMulti.get(), m_pEasy.get());
    m_pEasy.reset();
    m_pzPool->Give(std::move(m_pMulti));
  }

  // No exception may pass through the library that calls these: without memory the transfer fails.
  static size_t OnHeader(char* pLine, size_t, size_t nLine, void* pThis) noexcept {
    try {
      return static_cast<Impl*>(pThis)->TakeHeader({pLine, nLine}) ? nLine : 0;
    } catch (const std::exception&) {
      return 0;
    }
  }

  static size_t OnBody(char* pBytes, size_t, size_t nBytes, void* pThis) noexcept {
    auto& zThis = *static_cast<Impl*>(pThis);
    zThis.m_bAnswer = true;
    if (zThis.m_strBody.size() - zThis.m_iBody >= kBufferLimit) {
      zThis.m_bPaused = true;
      return CURL_WRITEFUNC_PAUSE;
    }
    try {
      zThis.m_strBody.append(pBytes, nBytes);
    } catch (const std::exception&) {
      return 0;
    }
    return nBytes;
  }

  bool TakeHeader(std::string_view strLine) {
    m_nHeaderBytes += strLine.size();
    if (m_nHeaderBytes > kHeaderLimit) return false;
    if (strLine.substr(0, 5) == "HTTP/") {  // after an interim answer
      m_vstrHeaders.clear();
      m_bAnswer = false;
      return true;
    }
    const size_t iColon = strLine.find(':');
    if (iColon != std::string_view::npos) {
      m_vstrHeaders.emplace_back(Trimmed(strLine.substr(0, iColon)), Trimmed(strLine.substr(iColon + 1)));
      return true;
    }
    if (Trimmed(strLine).empty()) {
      long iStatus = 0;
      curl_easy_getinfo(m_pEasy.get(), CURLINFO_RESPONSE_CODE, &iStatus);
      m_bAnswer = iStatus >= 200;
    }
    return true;
  }

  const std::string* Find(const char* szName) const {
    for (const auto& [strName, strValue] : m_vstrHeaders)
      if (strcasecmp(strName.c_str(), szName) == 0) return &strValue;
    return nullptr;
  }

  // Moves the transfer on, waiting for the network at most a second.
  void Step() {
    int nRunning = 0;
    if (curl_multi_perform(m_pMulti.get(), &nRunning) != CURLM_OK) {
      m_bDone = m_bFailed = true;
      return;
    }
    int nLeft = 0;
    while (const CURLMsg* pMessage = curl_multi_info_read(m_pMulti.get(), &nLeft)) {
      if (pMessage->msg != CURLMSG_DONE) continue;
      m_bDone = true;
      m_bFailed = pMessage->data.result != CURLE_OK;
    }
    if (!m_bDone && nRunning != 0 && m_strBody.size() == m_iBody) {
      if (curl_multi_poll(m_pMulti.get(), nullptr, 0, 1000, nullptr) != CURLM_OK) m_bDone = m_bFailed = true;
    }
  }
};

struct KivSysHttpConnection::Impl {
  std::string m_strUserAgent;
  std::string m_strBase;  // scheme, host, port
  std::shared_ptr<ConnectionPool> m_pzPool = std::make_shared<ConnectionPool>();
};

struct KivSysHttpSession::Impl {
  std::string m_strUserAgent;
};

KivSysHttpRequest::KivSysHttpRequest(std::unique_ptr<Impl> pzImpl) : m_pzImpl(std::move(pzImpl)) {}
KivSysHttpRequest::~KivSysHttpRequest() = default;

bool KivSysHttpRequest::GetStatus(uint32_t& iStatus) const {
  long iCode = 0;
  if (curl_easy_getinfo(m_pzImpl->m_pEasy.get(), CURLINFO_RESPONSE_CODE, &iCode) != CURLE_OK || iCode <= 0)
    return false;
  iStatus = static_cast<uint32_t>(iCode);
  return true;
}

bool KivSysHttpRequest::GetHeader(const KivWString& csName, KivWString& csValue) const {
  const std::string* const pstrValue = m_pzImpl->Find(sys::WideToUtf8(csName).c_str());
  if (pstrValue == nullptr) return false;
  csValue = sys::Utf8ToWide(*pstrValue);
  return true;
}

bool KivSysHttpRequest::Read(void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  Impl& zImpl = *m_pzImpl;
  nDone = 0;
  if (nCount == 0) return true;
  while (zImpl.m_strBody.size() == zImpl.m_iBody && !zImpl.m_bDone) {
    zImpl.m_strBody.clear();
    zImpl.m_iBody = 0;
    if (zImpl.m_bPaused) {
      zImpl.m_bPaused = false;
      curl_easy_pause(zImpl.m_pEasy.get(), CURLPAUSE_CONT);  // gives what waited to OnBody at once
      if (!zImpl.m_strBody.empty()) break;
    }
    zImpl.Step();
  }
  const size_t nReady = zImpl.m_strBody.size() - zImpl.m_iBody;
  if (nReady == 0) return zImpl.m_bFailed ? sys::posix::FailWith(EIO) : true;
  nDone = static_cast<uint32_t>(std::min<size_t>(nReady, nCount));
  std::memcpy(pBuffer, zImpl.m_strBody.data() + zImpl.m_iBody, nDone);
  zImpl.m_iBody += nDone;
  return true;
}

KivSysHttpConnection::KivSysHttpConnection(std::unique_ptr<Impl> pzImpl) : m_pzImpl(std::move(pzImpl)) {}
KivSysHttpConnection::~KivSysHttpConnection() = default;

std::unique_ptr<KivSysHttpRequest> KivSysHttpConnection::Get(const KivWString& csPath, const KivWString& csReferrer,
                                                             const KivWString& csHeaders) {
  auto pzImpl = std::make_unique<KivSysHttpRequest::Impl>();
  pzImpl->m_pzPool = m_pzImpl->m_pzPool;
  pzImpl->m_pMulti = m_pzImpl->m_pzPool->Take();
  pzImpl->m_pEasy.reset(curl_easy_init());
  CURL* const pEasy = pzImpl->m_pEasy.get();
  if (pzImpl->m_pMulti == nullptr || pEasy == nullptr) return nullptr;

  std::string strPath = sys::WideToUtf8(csPath);
  if (strPath.empty() || strPath[0] != '/') strPath.insert(0, "/");
  if (HasControls(strPath)) return nullptr;
  for (size_t i = 0; (i = strPath.find(' ', i)) != std::string::npos;) strPath.replace(i, 1, "%20");

  const std::string strReferrer = sys::WideToUtf8(csReferrer);
  if (HasControls(strReferrer)) return nullptr;
  const std::string strHeaders = "Accept: application/octet-stream, */*\r\n" + sys::WideToUtf8(csHeaders);
  for (size_t iLine = 0; iLine < strHeaders.size();) {
    const size_t iEnd = std::min(strHeaders.find("\r\n", iLine), strHeaders.size());
    const std::string strLine = strHeaders.substr(iLine, iEnd - iLine);
    iLine = iEnd + 2;
    if (strLine.empty()) continue;
    if (HasControls(strLine)) return nullptr;
    curl_slist* const pList = curl_slist_append(pzImpl->m_pHeaders.get(), strLine.c_str());
    if (pList == nullptr) return nullptr;
    static_cast<void>(pzImpl->m_pHeaders.release());
    pzImpl->m_pHeaders.reset(pList);
  }

  // The machine itself is never reached through a proxy.
  std::string strNoProxy = "localhost,127.0.0.1,::1";
  for (const char* szVariable : {"no_proxy", "NO_PROXY"})
    if (const char* const szValue = std::getenv(szVariable)) strNoProxy += std::string(",") + szValue;

  curl_easy_setopt(pEasy, CURLOPT_URL, (m_pzImpl->m_strBase + strPath).c_str());
  curl_easy_setopt(pEasy, CURLOPT_USERAGENT, m_pzImpl->m_strUserAgent.c_str());
  if (!strReferrer.empty()) curl_easy_setopt(pEasy, CURLOPT_REFERER, strReferrer.c_str());
  curl_easy_setopt(pEasy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(pEasy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(pEasy, CURLOPT_NOPROXY, strNoProxy.c_str());
  curl_easy_setopt(pEasy, CURLOPT_CONNECTTIMEOUT_MS, kConnectTimeoutMs);
  curl_easy_setopt(pEasy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(pEasy, CURLOPT_LOW_SPEED_TIME, kStallSeconds);
  curl_easy_setopt(pEasy, CURLOPT_HTTPHEADER, pzImpl->m_pHeaders.get());
  curl_easy_setopt(pEasy, CURLOPT_HEADERFUNCTION, &KivSysHttpRequest::Impl::OnHeader);
  curl_easy_setopt(pEasy, CURLOPT_HEADERDATA, pzImpl.get());
  curl_easy_setopt(pEasy, CURLOPT_WRITEFUNCTION, &KivSysHttpRequest::Impl::OnBody);
  curl_easy_setopt(pEasy, CURLOPT_WRITEDATA, pzImpl.get());
  curl_easy_setopt(pEasy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  if (curl_multi_add_handle(pzImpl->m_pMulti.get(), pEasy) != CURLM_OK) return nullptr;

  while (!pzImpl->m_bAnswer && !pzImpl->m_bDone) pzImpl->Step();
  if (pzImpl->m_bFailed && !pzImpl->m_bAnswer) {
    sys::posix::FailWith(EIO);
    return nullptr;
  }
  return std::unique_ptr<KivSysHttpRequest>(new KivSysHttpRequest(std::move(pzImpl)));
}

KivSysHttpSession::KivSysHttpSession(const KivWString& csUserAgent) {
  static const bool s_bReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  if (!s_bReady) return;
  m_pzImpl = std::make_unique<Impl>();
  m_pzImpl->m_strUserAgent = sys::WideToUtf8(csUserAgent);
}

KivSysHttpSession::~KivSysHttpSession() = default;

bool KivSysHttpSession::IsOpen() const noexcept {
  return m_pzImpl != nullptr;
}

std::unique_ptr<KivSysHttpConnection> KivSysHttpSession::Connect(const KivSysUrl& zUrl) {
  const std::string strHost = sys::WideToUtf8(zUrl.m_csHost);
  if (!IsOpen() || strHost.empty() || strHost.find_first_of("/?#@ \\") != std::string::npos || HasControls(strHost)) {
    sys::posix::FailWith(EINVAL);
    return nullptr;
  }
  auto pzImpl = std::make_unique<KivSysHttpConnection::Impl>();
  pzImpl->m_strUserAgent = m_pzImpl->m_strUserAgent;
  const bool bAddress6 = strHost.find(':') != std::string::npos && strHost[0] != '[';
  pzImpl->m_strBase =
      std::string(zUrl.m_bSecure ? "https://" : "http://") + (bAddress6 ? "[" + strHost + "]" : strHost);
  if (zUrl.m_iPort != 0) pzImpl->m_strBase += ":" + std::to_string(zUrl.m_iPort);
  return std::unique_ptr<KivSysHttpConnection>(new KivSysHttpConnection(std::move(pzImpl)));
}

namespace sys {

bool SplitUrl(const KivWString& csUrl, KivSysUrl& zUrl) {
  KivSysUrl zResult;
  KivWStringView csRest = csUrl;
  const auto Starts = [&csRest](KivWStringView csPrefix) {
    if (csRest.size() < csPrefix.size()) return false;
    for (size_t i = 0; i < csPrefix.size(); ++i) {
      char16_t c = csRest[i];
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + (u'a' - u'A'));
      if (c != csPrefix[i]) return false;
    }
    csRest.remove_prefix(csPrefix.size());
    return true;
  };
  if (Starts(u"https://"))
    zResult.m_bSecure = true;
  else if (!Starts(u"http://"))
    return false;
  zResult.m_iPort = zResult.m_bSecure ? 443 : 80;

  csRest = csRest.substr(0, csRest.find(u'#'));
  const size_t iPath = std::min(csRest.find_first_of(u"/?"), csRest.size());
  KivWStringView csHost = csRest.substr(0, iPath);
  zResult.m_csPath = csRest.substr(iPath);
  if (zResult.m_csPath.empty() || zResult.m_csPath[0] != u'/') zResult.m_csPath.insert(0, 1, u'/');

  const size_t iUser = csHost.rfind(u'@');
  if (iUser != KivWStringView::npos) csHost.remove_prefix(iUser + 1);
  size_t iColon = csHost.rfind(u':');
  if (!csHost.empty() && csHost[0] == u'[') {  // an IPv6 address has colons of its own
    const size_t iClose = csHost.find(u']');
    if (iClose == KivWStringView::npos) return false;
    if (iColon < iClose) iColon = KivWStringView::npos;
  }
  if (iColon != KivWStringView::npos) {
    uint32_t iPort = 0;
    const KivWStringView csPort = csHost.substr(iColon + 1);
    for (const char16_t c : csPort) {
      if (c < u'0' || c > u'9') return false;
      iPort = iPort * 10 + (c - u'0');
      if (iPort > 65535) return false;
    }
    if (!csPort.empty()) {
      if (iPort == 0) return false;
      zResult.m_iPort = static_cast<uint16_t>(iPort);
    }
    csHost = csHost.substr(0, iColon);
  }
  if (csHost.empty()) return false;
  zResult.m_csHost = csHost;
  zUrl = std::move(zResult);
  return true;
}

}  // namespace sys
}  // namespace kiv
