#include "KivExProcTest.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <utility>

#include "KivLittleEndian.h"

namespace kivtest {

using namespace kiv;

size_t CountMarkers(const KivWString& csRoot) {
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(ProcessFolder(csRoot), vzEntries);
  return vzEntries.size();
}

bool TreeEnds(const KivWString& csRoot) {
  return Eventually([&] { return CountMarkers(csRoot) == 0; });
}

size_t CountLivingFiles(const KivWString& csFolder) {
  size_t nFiles = 0;
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(csFolder, vzEntries);
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    if (zEntry.m_bFolder) {
      nFiles += CountLivingFiles(Join(csFolder, zEntry.m_csName));
    } else if (zEntry.m_csName == u"input" || zEntry.m_csName == u"output" || zEntry.m_csName.starts_with(u"KivProc")) {
      ++nFiles;
    }
  }
  return nFiles;
}

void WriteFile(const KivWString& csPath, const std::string& strBytes) {
  KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways, KivSysFileFlags::None});
  uint32_t nDone = 0;
  ASSERT_TRUE(hFile.IsOpen());
  ASSERT_TRUE(strBytes.empty() || hFile.WriteAt(0, strBytes.data(), static_cast<uint32_t>(strBytes.size()), nDone));
}

int32_t BecomeRoot(const KivWString& csRoot) {
  static bool bEndLoop;  // of the root's own service loop, once
  bEndLoop = true;
  KivExProcLib_SetHandlers([]() -> int32_t { return std::exchange(bEndLoop, false) ? -1 : 0; }, nullptr, nullptr);
  return KivExProcLib_Run({u"root", u"-r" + csRoot});
}

void EndRoot() {
  KivExProcLib_CloseDown(0, false);
  KivRemoveTree(KivExProcLib_GetRootFolder());
}

int32_t RunMember(KivExProcHandler pfnTick, KivExProcHandler pfnPoll, KivExProcDispatch pfnDispatch) {
  // Where the record of a report goes.
  KivSetWorkFolder(Join(GivenRoot(), u"work" + OwnPid()));
  std::vector<KivWString> vcsArguments{ProcessArguments().front()};
  for (const KivWString& csArgument : ProcessArguments())
    if (csArgument.starts_with(u"-r") || csArgument.starts_with(u"-p") || csArgument.starts_with(u"-j"))
      vcsArguments.push_back(csArgument);
  KivExProcLib_SetHandlers(pfnTick, pfnPoll, pfnDispatch);
  const int32_t iResult = KivExProcLib_Run(vcsArguments);
  KivExProcLib_CloseDown(iResult, true);
  return iResult;
}

KivWString GivenRoot() {
  return ProcessArguments().at(1).substr(2);
}
KivWString GivenParent() {
  return ProcessArguments().at(2).substr(2);
}

KivWString TestProgram() {
  KivWString csPath;
  sys::ProgramPath(csPath);
  return csPath;
}

KivWString BodyArguments(const std::string& strBody, const std::vector<KivWString>& vcsArgs) {
  const KivWString csLine = TestChildCommandLine(strBody, vcsArgs);
  return csLine.substr(csLine.find(TestChildArgument(strBody)));
}

int32_t StartBody(const std::string& strBody, int32_t& iPid, const std::vector<KivWString>& vcsArgs) {
  return KivExProcLib_StartChild(TestProgram(), BodyArguments(strBody, vcsArgs), iPid);
}

int32_t GoOn() {
  return 0;
}

int32_t EchoDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                     KivByteBuffer& vcResult) {
  if (csRequest == u"echo") {
    vcResult = vcPayload;
  } else if (csRequest == u"status") {
    iStatus = KivLoad<int32_t>(vcPayload.data());
    vcResult = {1, 2, 3};
  } else if (csRequest == u"wait") {
    const KivSysEvent hEvent = KivSysEvent::Open(Wide(Text(vcPayload)));
    hEvent.Wait(kLongMs);
    vcResult = vcPayload;
  } else if (csRequest == u"start") {
    int32_t iPid = 0;
    iStatus = StartBody(Text(vcPayload), iPid);
    vcResult = Bytes(std::to_string(iPid));
  } else if (csRequest == u"send") {
    int64_t iChildStatus = 0;
    iStatus = KivExProcLib_SendMessage(std::stoi(Text(vcPayload)), u"echo", vcPayload, iChildStatus, vcResult);
  } else if (csRequest == u"fail") {
    return 5;
  } else if (csRequest == u"report") {
    KivReportFailure("asked for", "tests", 1);
  } else if (csRequest == u"exit") {
    std::exit(3);
  } else if (csRequest == u"kill") {
    sys::EndProcess(7);
  } else {
    vcResult = Bytes(std::to_string(csRequest.size()));
  }
  return 0;
}

void SetVariable(const char* szName, const std::string& strValue) {
  static std::list<std::string> lstrKept;  // the C library keeps the texts
  lstrKept.push_back(std::string(szName) + "=" + strValue);
  putenv(lstrKept.back().data());
}

KivSysFile MakeSlot(const KivWString& csPath, const std::string& strBytes) {
  KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways,
               KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose});
  uint32_t nDone = 0;
  if (hFile.IsOpen() && !strBytes.empty())
    hFile.WriteAt(0, strBytes.data(), static_cast<uint32_t>(strBytes.size()), nDone);
  return hFile;
}

KivSysFile MakeMarker(const KivWString& csPath) {
  return KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
               KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose});
}

std::string RequestImage(uint64_t nSizeField, const KivWString& csName, const std::string& strPayload) {
  std::string strImage(520, '\0');
  KivStore<uint64_t>(strImage.data(), nSizeField);
  std::memcpy(strImage.data() + 8, csName.data(), std::min<size_t>(csName.size(), 256) * 2);
  return strImage + strPayload;
}

std::string AnswerImage(uint64_t nSizeField, int64_t iStatus, const std::string& strPayload) {
  std::string strImage(16, '\0');
  KivStore<uint64_t>(strImage.data(), nSizeField);
  KivStore<int64_t>(strImage.data() + 8, iStatus);
  return strImage + strPayload;
}

std::string ToHexText(const std::string& strBytes) {
  static const char* const szDigits = "0123456789abcdef";
  std::string strHex;
  for (char c : strBytes) {
    strHex += szDigits[static_cast<uint8_t>(c) >> 4];
    strHex += szDigits[static_cast<uint8_t>(c) & 15];
  }
  return strHex;
}

std::string FromHexText(const std::string& strHex) {
  std::string strBytes;
  for (size_t i = 0; i + 1 < strHex.size(); i += 2)
    strBytes += static_cast<char>(std::stoi(strHex.substr(i, 2), nullptr, 16));
  return strBytes;
}

}  // namespace kivtest
