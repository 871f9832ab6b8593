// HTTP GET: a session, a connection to a host, a request on it. WinINet on Windows, libcurl on Linux.
#pragma once

#include <cstdint>
#include <memory>

#include "KivSysText.h"

namespace kiv {

struct KivSysUrl {
  KivWString m_csHost;
  KivWString m_csPath;  // with the query
  uint16_t m_iPort = 0;
  bool m_bSecure = false;
};

class KivSysHttpSession;
class KivSysHttpConnection;

// One sent request, whose answer can be read. One thread at a time; different requests may run on different threads.
class KivSysHttpRequest {
 public:
  ~KivSysHttpRequest();
  KivSysHttpRequest(const KivSysHttpRequest&) = delete;
  KivSysHttpRequest& operator=(const KivSysHttpRequest&) = delete;

  // HTTP status of the answer. Redirections are not followed.
  bool GetStatus(uint32_t& iStatus) const;
  // A header of the answer by its name, case ignored; false if it is not there.
  bool GetHeader(const KivWString& csName, KivWString& csValue) const;
  // The next bytes of the body: true with 0 at its end. Waits for at least one byte.
  bool Read(void* pBuffer, uint32_t nCount, uint32_t& nDone);

 private:
  friend class KivSysHttpConnection;
  struct Impl;
  explicit KivSysHttpRequest(std::unique_ptr<Impl> pzImpl);
  std::unique_ptr<Impl> m_pzImpl;
};

class KivSysHttpConnection {
 public:
  ~KivSysHttpConnection();
  KivSysHttpConnection(const KivSysHttpConnection&) = delete;
  KivSysHttpConnection& operator=(const KivSysHttpConnection&) = delete;

  // Sends a GET that accepts "application/octet-stream" and "*/*", with a referrer (empty: none) and further header
  // lines (separated by CR LF; may be empty). Null if nothing could be sent or no answer came.
  std::unique_ptr<KivSysHttpRequest> Get(const KivWString& csPath, const KivWString& csReferrer,
                                         const KivWString& csHeaders);

 private:
  friend class KivSysHttpSession;
  struct Impl;
  explicit KivSysHttpConnection(std::unique_ptr<Impl> pzImpl);
  std::unique_ptr<Impl> m_pzImpl;
};

class KivSysHttpSession {
 public:
  explicit KivSysHttpSession(const KivWString& csUserAgent);
  ~KivSysHttpSession();
  KivSysHttpSession(const KivSysHttpSession&) = delete;
  KivSysHttpSession& operator=(const KivSysHttpSession&) = delete;

  bool IsOpen() const noexcept;
  // Null if the host cannot be used; reaching it may only fail at the first request.
  std::unique_ptr<KivSysHttpConnection> Connect(const KivSysUrl& zUrl);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_pzImpl;
};

namespace sys {

// Splits an http or https address; false for anything else.
bool SplitUrl(const KivWString& csUrl, KivSysUrl& zUrl);

}  // namespace sys
}  // namespace kiv
