// What only the Windows backend does.
#ifdef _WIN32
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KivPlatformTest.h"
#include "KivSysDiag.h"
#include "KivSysMapping.h"
#include "KivTestFolder.h"

namespace {

using namespace kiv;
using namespace kivtest;

LONG CALLBACK GoOnBehindInPageErrors(EXCEPTION_POINTERS* pzInfo) {
  return pzInfo->ExceptionRecord->ExceptionCode == static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR)
             ? EXCEPTION_CONTINUE_EXECUTION
             : EXCEPTION_CONTINUE_SEARCH;
}

TEST(WindowsMapping, APageThatCannotBeBroughtInIsReportedBeforeItEndsTheProcess) {
  const TestFolder zFolder;
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenAlways);
  KivSysMapping zMapping;
  ASSERT_TRUE(zMapping.Create(zFile, false, 100'000, u""));
  uint8_t* const pView = zMapping.MapView(0, 100'000);
  ASSERT_NE(pView, nullptr);
  std::vector<KivWString> vcsLines;
  sys::SetSystemLogHook([&vcsLines](const KivWString&, const KivWString& csText) {
    vcsLines.push_back(csText);
    return true;
  });
  void* const pHandler = AddVectoredExceptionHandler(0, GoOnBehindInPageErrors);
  const auto Raise = [](const uint8_t* pAddress) {
    const ULONG_PTR aiArgument[3] = {0, reinterpret_cast<ULONG_PTR>(pAddress), 0xC000026E};
    RaiseException(static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR), 0, 3, aiArgument);
  };
  Raise(pView + 99'999);
  ASSERT_EQ(vcsLines.size(), 1u);
  EXPECT_EQ(vcsLines[0], u"a mapped file has lost a page: its share has gone, or the disk failed (C000026E)");
  uint8_t cElsewhere = 0;
  Raise(&cElsewhere);
  EXPECT_EQ(vcsLines.size(), 1u);
  zMapping.UnmapView(pView, 100'000);
  Raise(pView + 99'999);
  EXPECT_EQ(vcsLines.size(), 1u) << "the view is gone";
  RemoveVectoredExceptionHandler(pHandler);
  sys::SetSystemLogHook(nullptr);
}

}  // namespace
#endif
