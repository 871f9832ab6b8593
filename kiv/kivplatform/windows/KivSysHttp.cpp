#include "KivSysHttp.h"

#include "KivSysWindows.h"
// Needs windows.h before it.
#include <wininet.h>

#include <algorithm>
#include <vector>

namespace kiv {
namespace {

// Owns one handle of the internet library.
class InternetHandle {
 public:
  explicit InternetHandle(HINTERNET hHandle) : m_hHandle(hHandle) {}
  InternetHandle(const InternetHandle&) = delete;
  InternetHandle& operator=(const InternetHandle&) = delete;
  ~InternetHandle() {
    if (m_hHandle != nullptr) InternetCloseHandle(m_hHandle);
  }
  HINTERNET Get() const { return m_hHandle; }

 private:
  HINTERNET m_hHandle;
};

constexpr DWORD kRequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION |
                                INTERNET_FLAG_NO_AUTO_REDIRECT;
static_assert(kRequestFlags == 0x84600000);

// A line end in a path or a referrer would begin a header of its own.
bool HasControls(const KivWString& csText) {
  return std::any_of(csText.begin(), csText.end(), [](char16_t c) { return c < 0x20; });
}

}  // namespace

struct KivSysHttpSession::Impl {
  explicit Impl(HINTERNET hHandle) : m_zHandle(hHandle) {}
  InternetHandle m_zHandle;
};
struct KivSysHttpConnection::Impl {
  Impl(HINTERNET hHandle, bool bSecure) : m_zHandle(hHandle), m_bSecure(bSecure) {}
  InternetHandle m_zHandle;
  bool m_bSecure;
};
struct KivSysHttpRequest::Impl {
  explicit Impl(HINTERNET hHandle) : m_zHandle(hHandle) {}
  InternetHandle m_zHandle;
};

KivSysHttpRequest::KivSysHttpRequest(std::unique_ptr<Impl> pzImpl) : m_pzImpl(std::move(pzImpl)) {}
KivSysHttpRequest::~KivSysHttpRequest() = default;

bool KivSysHttpRequest::GetStatus(uint32_t& iStatus) const {
  DWORD iSystem = 0;
  DWORD nSize = sizeof iSystem;
  if (!HttpQueryInfoW(m_pzImpl->m_zHandle.Get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &iSystem, &nSize,
                      nullptr))
    return false;
  iStatus = iSystem;
  return true;
}

bool KivSysHttpRequest::GetHeader(const KivWString& csName, KivWString& csValue) const {
  // In: the name; out: the value.
  std::vector<wchar_t> vcText(csName.begin(), csName.end());
  vcText.resize(csName.size() + 8192, L'\0');
  DWORD nSize = static_cast<DWORD>((vcText.size() - 1) * sizeof(wchar_t));
  if (!HttpQueryInfoW(m_pzImpl->m_zHandle.Get(), HTTP_QUERY_CUSTOM, vcText.data(), &nSize, nullptr)) return false;
  csValue = sys::FromSystem(std::wstring_view(vcText.data(), nSize / sizeof(wchar_t)));
  return true;
}

bool KivSysHttpRequest::Read(void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  DWORD nRead = 0;
  const BOOL bOk = InternetReadFile(m_pzImpl->m_zHandle.Get(), pBuffer, nCount, &nRead);
  nDone = bOk ? nRead : 0;
  return bOk != FALSE;
}

KivSysHttpConnection::KivSysHttpConnection(std::unique_ptr<Impl> pzImpl) : m_pzImpl(std::move(pzImpl)) {}
KivSysHttpConnection::~KivSysHttpConnection() = default;

std::unique_ptr<KivSysHttpRequest> KivSysHttpConnection::Get(const KivWString& csPath, const KivWString& csReferrer,
                                                             const KivWString& csHeaders) {
  if (HasControls(csPath) || HasControls(csReferrer)) return nullptr;
  const wchar_t* aszAccept[] = {L"application/octet-stream", L"*/*", nullptr};
  const std::wstring csSystemReferrer = sys::ToSystem(csReferrer);
  const DWORD iFlags = kRequestFlags | (m_pzImpl->m_bSecure ? INTERNET_FLAG_SECURE : 0);
  const HINTERNET hRequest =
      HttpOpenRequestW(m_pzImpl->m_zHandle.Get(), L"GET", sys::ToSystem(csPath).c_str(), nullptr,
                       csReferrer.empty() ? nullptr : csSystemReferrer.c_str(), aszAccept, iFlags, 0);
  if (hRequest == nullptr) return nullptr;
  auto pzImpl = std::make_unique<KivSysHttpRequest::Impl>(hRequest);
  const std::wstring csSystemHeaders = sys::ToSystem(csHeaders);
  if (!HttpSendRequestW(hRequest, csHeaders.empty() ? nullptr : csSystemHeaders.c_str(),
                        static_cast<DWORD>(csSystemHeaders.size()), nullptr, 0))
    return nullptr;
  return std::unique_ptr<KivSysHttpRequest>(new KivSysHttpRequest(std::move(pzImpl)));
}

KivSysHttpSession::KivSysHttpSession(const KivWString& csUserAgent)
    : m_pzImpl(std::make_unique<Impl>(
          InternetOpenW(sys::ToSystem(csUserAgent).c_str(), INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0))) {}
KivSysHttpSession::~KivSysHttpSession() = default;

bool KivSysHttpSession::IsOpen() const noexcept {
  return m_pzImpl->m_zHandle.Get() != nullptr;
}

std::unique_ptr<KivSysHttpConnection> KivSysHttpSession::Connect(const KivSysUrl& zUrl) {
  if (!IsOpen()) return nullptr;
  const HINTERNET hConnection = InternetConnectW(m_pzImpl->m_zHandle.Get(), sys::ToSystem(zUrl.m_csHost).c_str(),
                                                 zUrl.m_iPort, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0);
  if (hConnection == nullptr) return nullptr;
  auto pzImpl = std::make_unique<KivSysHttpConnection::Impl>(hConnection, zUrl.m_bSecure);
  return std::unique_ptr<KivSysHttpConnection>(new KivSysHttpConnection(std::move(pzImpl)));
}

namespace sys {

bool SplitUrl(const KivWString& csUrl, KivSysUrl& zUrl) {
  std::vector<wchar_t> vcHost(4096);
  std::vector<wchar_t> vcPath(4096);
  URL_COMPONENTSW zParts = {};
  zParts.dwStructSize = sizeof zParts;
  zParts.lpszHostName = vcHost.data();
  zParts.dwHostNameLength = static_cast<DWORD>(vcHost.size());
  zParts.lpszUrlPath = vcPath.data();
  zParts.dwUrlPathLength = static_cast<DWORD>(vcPath.size());
  if (csUrl.empty() || !InternetCrackUrlW(ToSystem(csUrl).c_str(), 0, 0, &zParts)) return false;
  if (zParts.nScheme != INTERNET_SCHEME_HTTP && zParts.nScheme != INTERNET_SCHEME_HTTPS) return false;
  if (vcHost[0] == L'\0') return false;
  zUrl.m_csHost = FromSystem(vcHost.data());
  zUrl.m_csPath = FromSystem(vcPath.data());
  zUrl.m_iPort = zParts.nPort;
  zUrl.m_bSecure = zParts.nScheme == INTERNET_SCHEME_HTTPS;
  return true;
}

}  // namespace sys
}  // namespace kiv
