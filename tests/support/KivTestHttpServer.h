// The HTTP server of the tests (http_server.py tells what it serves), on the loopback interface.
//
// Natively each object starts a server of its own. Where a test program cannot start one (Windows programs under
// Wine), ctest starts it beside the tests, and KIV_TEST_HTTP_PORT_FILE names the file with its port.
#pragma once

#include "KivSysProcess.h"
#include "KivTestFolder.h"

namespace kivtest {

class TestHttpServer {
 public:
  TestHttpServer();
  ~TestHttpServer();
  TestHttpServer(const TestHttpServer&) = delete;
  TestHttpServer& operator=(const TestHttpServer&) = delete;

  bool IsRunning() const { return m_iPort != 0; }
  uint16_t Port() const { return m_iPort; }
  // "http://127.0.0.1:<port>" and the path.
  kiv::KivWString Url(const kiv::KivWString& csPath) const;
  // Puts a file where /files/<name> finds it.
  void AddFile(const kiv::KivWString& csName, const std::string& strBytes) const;

 private:
  TestFolder m_zFolder;
  kiv::KivWString m_csFiles;
  kiv::KivSysProcess m_zProcess;
  uint16_t m_iPort = 0;
};

}  // namespace kivtest
