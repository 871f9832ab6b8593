#include "KivTestHttpServer.h"

#include <fstream>
#include <stdexcept>

#include "KivSysClock.h"
#include "KivSysHttp.h"

namespace kivtest {
namespace {

uint16_t ReadPort(const std::filesystem::path& zFile) {
  std::ifstream zText(zFile);
  unsigned iPort = 0;
  zText >> iPort;
  return static_cast<uint16_t>(iPort);
}

}  // namespace

TestHttpServer::TestHttpServer() {
#ifdef KIV_TEST_HTTP_PORT_FILE
  const std::filesystem::path zPortFile(KIV_TEST_HTTP_PORT_FILE);
  m_csFiles = zPortFile.parent_path().u16string();
  m_iPort = ReadPort(zPortFile);
#else
  m_csFiles = m_zFolder.Path();
  const kiv::KivWString csPortFile = m_zFolder / u"port";
  kiv::KivSysProcessStart zStart;
  zStart.m_csCommandLine = u"\"" + kiv::sys::Utf8ToWide(KIV_TEST_PYTHON) + u"\" \"" +
                           kiv::sys::Utf8ToWide(KIV_TEST_SUPPORT_DIR) + u"/http_server.py\" \"" + csPortFile +
                           u"\" \"" + m_csFiles + u"\"";
  m_zProcess = kiv::KivSysProcess::Start(zStart);
  while (m_zProcess.IsOpen() && m_iPort == 0 && m_zProcess.Wait(1) == kiv::KivSysWait::TimedOut)
    m_iPort = ReadPort(std::filesystem::path(csPortFile));
#endif
  if (m_iPort == 0) throw std::runtime_error("the HTTP server of the tests is not running");
}

TestHttpServer::~TestHttpServer() {
  if (m_zProcess.IsOpen()) m_zProcess.Terminate(0);
}

kiv::KivWString TestHttpServer::Url(const kiv::KivWString& csPath) const {
  return kiv::sys::Utf8ToWide("http://127.0.0.1:" + std::to_string(m_iPort)) + csPath;
}

void TestHttpServer::AddFile(const kiv::KivWString& csName, const std::string& strBytes) const {
  std::ofstream zFile(std::filesystem::path(m_csFiles) / csName, std::ios::binary);
  zFile.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
}

}  // namespace kivtest
