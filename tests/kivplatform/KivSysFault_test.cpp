#include "KivSysFault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "KivPlatformTest.h"
#include "KivSysMapping.h"
#include "KivSysThread.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct CallCase {
  KivSysCall m_iCall;
  const char* m_szName;
  std::function<bool()> m_pfnCall;  // true if it succeeded
};

// Calls of every kind, each of which succeeds again and again.
struct Calls {
  TestFolder m_zFolder;
  KivSysFile m_zFile =
      OpenFile(m_zFolder / u"file", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways);
  KivSysMapping m_zMapping;
  KivSysEvent m_zEvent;
  KivSysProcess m_zProcess;
  KivWString m_csEvent = UniqueName("Fault");
  std::vector<CallCase> m_vzCases;

  Calls() {
    bool bExisted = false;
    m_zEvent = KivSysEvent::Create(m_csEvent, bExisted);
    m_zMapping.Create(m_zFile, false, 4096, u"");
    static char s_acBytes[100];
    const auto Add = [this](KivSysCall iCall, const char* szName, std::function<bool()> pfnCall) {
      m_vzCases.push_back({iCall, szName, std::move(pfnCall)});
    };
    Add(KivSysCall::FileOpen, "FileOpen", [this] {
      return OpenFile(m_zFolder / u"file", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting)
          .IsOpen();
    });
    Add(KivSysCall::FileRead, "FileRead", [this] {
      uint32_t nDone = 0;
      return m_zFile.ReadAt(0, s_acBytes, 100, nDone) && nDone == 100;
    });
    Add(KivSysCall::FileWrite, "FileWrite", [this] {
      uint32_t nDone = 0;
      return m_zFile.WriteAt(0, s_acBytes, 100, nDone) && nDone == 100;
    });
    Add(KivSysCall::FileSetLength, "FileSetLength", [this] { return m_zFile.SetLength(8192); });
    Add(KivSysCall::FileFlush, "FileFlush", [this] { return m_zFile.Flush(); });
    Add(KivSysCall::FileLength, "FileLength", [this] {
      uint64_t iLength = 0;
      return m_zFile.GetLength(iLength);
    });
    Add(KivSysCall::MappingCreate, "MappingCreate", [this] {
      KivSysMapping zMapping;
      return zMapping.Create(m_zFile, true, 100, u"");
    });
    Add(KivSysCall::MappingView, "MappingView", [this] {
      uint8_t* const pView = m_zMapping.MapView(0, 100);
      m_zMapping.UnmapView(pView, 100);
      return pView != nullptr;
    });
    Add(KivSysCall::EventCreate, "EventCreate", [] {
      bool bExistedToo = false;
      return KivSysEvent::Create(UniqueName("Fault"), bExistedToo).IsOpen();
    });
    Add(KivSysCall::EventOpen, "EventOpen", [this] { return KivSysEvent::Open(m_csEvent).IsOpen(); });
    Add(KivSysCall::EventSignal, "EventSignal", [this] { return m_zEvent.Set(); });
    Add(KivSysCall::EventSignal, "EventSignal", [this] { return m_zEvent.Reset(); });
    Add(KivSysCall::EventWait, "EventWait", [this] { return m_zEvent.Wait(0) != KivSysWait::Failed; });
    Add(KivSysCall::EventWait, "EventWait", [this] { return m_zEvent.Test() != KivSysWait::Failed; });
    Add(KivSysCall::ProcessStart, "ProcessStart", [] { return StartTestChild("FaultNothing", {}).IsOpen(); });
    Add(KivSysCall::FolderMake, "FolderMake", [this] { return sys::MakeFolder(m_zFolder / UniqueName("Folder")); });
    Add(KivSysCall::FolderRemove, "FolderRemove", [this] {
      if (!sys::FolderExists(m_zFolder / u"gone"))
        std::filesystem::create_directory(std::filesystem::path(m_zFolder / u"gone"));
      return sys::RemoveFolder(m_zFolder / u"gone");
    });
    Add(KivSysCall::FolderList, "FolderList", [this] {
      std::vector<KivSysFolderEntry> vzEntries;
      return sys::ListFolder(m_zFolder.Path(), vzEntries);
    });
    Add(KivSysCall::FileRemove, "FileRemove", [this] {
      m_zFolder.WriteBytes(u"goes", "");
      return sys::RemoveFileAt(m_zFolder / u"goes");
    });
    Add(KivSysCall::FileMove, "FileMove", [this] {
      m_zFolder.WriteBytes(u"from", "");
      return sys::RenamePath(m_zFolder / u"from", m_zFolder / UniqueName("To")) == 0;
    });
    Add(KivSysCall::FileCopy, "FileCopy",
        [this] { return sys::CopyFileTo(m_zFolder / u"file", m_zFolder / UniqueName("Copy")); });
    Add(KivSysCall::ThreadStart, "ThreadStart", [] { return sys::StartThread([] {}, 0); });
    Add(KivSysCall::Clock, "Clock", [] {
      KivSysLocalTime zTime;
      return sys::LocalTimeNow(zTime);
    });
    Add(KivSysCall::ProcessWait, "ProcessWait", [this] {
      if (!m_zProcess.IsOpen()) m_zProcess = StartTestChild("FaultNothing", {});
      return m_zProcess.Wait(0) != KivSysWait::Failed;
    });
    Add(KivSysCall::JobCreate, "JobCreate", [] { return KivSysJob::Create(UniqueName("FaultJob")).IsOpen(); });
  }
};

KivSysFaultPlan Plan(KivSysCall iCall, uint64_t iNth, bool bFromThenOn = false,
                     KivSysFaultKind iKind = KivSysFaultKind::Fail) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = iCall;
  zPlan.m_iNth = iNth;
  zPlan.m_bFromThenOn = bFromThenOn;
  zPlan.m_iKind = iKind;
  return zPlan;
}

}  // namespace

KIV_TEST_CHILD(FaultNothing) {
  return 0;
}

TEST(Fault, EachKindOfCallFailsOnceAtItsTurn) {
  Calls zCalls;
  for (const CallCase& zCase : zCalls.m_vzCases) {
    SCOPED_TRACE(zCase.m_szName);
    ASSERT_TRUE(zCase.m_pfnCall()) << "without a plan";
    const KivSysFaultScope zScope(Plan(zCase.m_iCall, 2));
    EXPECT_TRUE(zCase.m_pfnCall());
    EXPECT_FALSE(zScope.HasFired());
    sys::SetLastErrorNumber(0);
    EXPECT_FALSE(zCase.m_pfnCall());
    EXPECT_NE(sys::LastError(), 0);
    EXPECT_TRUE(zScope.HasFired());
    EXPECT_TRUE(zCase.m_pfnCall());
    EXPECT_EQ(zScope.GetCount(zCase.m_iCall), 3u);
  }
}

TEST(Fault, EachKindOfCallFailsFromItsTurnOn) {
  Calls zCalls;
  for (const CallCase& zCase : zCalls.m_vzCases) {
    SCOPED_TRACE(zCase.m_szName);
    {
      const KivSysFaultScope zScope(Plan(zCase.m_iCall, 2, true));
      EXPECT_TRUE(zCase.m_pfnCall());
      for (int i = 0; i < 3; ++i) EXPECT_FALSE(zCase.m_pfnCall());
      EXPECT_EQ(zScope.GetCount(zCase.m_iCall), 4u);
    }
    EXPECT_TRUE(zCase.m_pfnCall()) << "after the scope";
  }
}

TEST(Fault, APlanOfOneKindLeavesTheOthersAlone) {
  Calls zCalls;
  for (const CallCase& zCase : zCalls.m_vzCases) {
    const KivSysFaultScope zScope(Plan(zCase.m_iCall, 1, true));
    for (const CallCase& zOther : zCalls.m_vzCases) {
      // A copy opens its source.
      if (zOther.m_iCall == KivSysCall::FileCopy && zCase.m_iCall == KivSysCall::FileOpen) continue;
      EXPECT_EQ(zOther.m_pfnCall(), zOther.m_iCall != zCase.m_iCall) << zOther.m_szName << " with " << zCase.m_szName;
    }
  }
}

TEST(Fault, DiskFullHasItsOwnError) {
  Calls zCalls;
  uint32_t nDone = 1;
  int32_t iDiskFull = 0;
  {
    const KivSysFaultScope zScope(Plan(KivSysCall::FileWrite, 1, false, KivSysFaultKind::DiskFull));
    EXPECT_FALSE(zCalls.m_zFile.WriteAt(0, "x", 1, nDone));
    EXPECT_EQ(nDone, 0u);
    iDiskFull = sys::LastError();
  }
  const KivSysFaultScope zScope(Plan(KivSysCall::FileWrite, 1));
  EXPECT_FALSE(zCalls.m_zFile.WriteAt(0, "x", 1, nDone));
  EXPECT_NE(sys::LastError(), iDiskFull);
}

TEST(Fault, ShortTransfersDoHalfAndSucceed) {
  Calls zCalls;
  const std::string strBytes = "0123456789";
  uint32_t nDone = 0;
  {
    const KivSysFaultScope zScope(Plan(KivSysCall::FileWrite, 1, false, KivSysFaultKind::ShortCount));
    EXPECT_TRUE(zCalls.m_zFile.WriteAt(0, strBytes.data(), 10, nDone));
    EXPECT_EQ(nDone, 5u);
    EXPECT_TRUE(zScope.HasFired());
    EXPECT_TRUE(zCalls.m_zFile.WriteAt(5, strBytes.data() + 5, 5, nDone));
    EXPECT_EQ(nDone, 5u);
  }
  EXPECT_EQ(zCalls.m_zFolder.ReadBytes(u"file").substr(0, 10), strBytes);
  const KivSysFaultScope zScope(Plan(KivSysCall::FileRead, 1, true, KivSysFaultKind::ShortCount));
  char acBytes[11] = {};
  EXPECT_TRUE(zCalls.m_zFile.ReadAt(0, acBytes, 10, nDone));
  EXPECT_EQ(nDone, 5u);
  EXPECT_STREQ(acBytes, "01234");
  EXPECT_TRUE(zCalls.m_zFile.ReadAt(0, acBytes, 1, nDone));
  EXPECT_EQ(nDone, 0u) << "at least one less than asked";
}

TEST(Fault, APlanOfAllKindsCountsThemTogether) {
  Calls zCalls;
  KivSysFaultPlan zPlan = Plan(KivSysCall::Count, 3);
  zPlan.m_bAnyCall = true;
  const KivSysFaultScope zScope(zPlan);
  uint64_t iLength = 0;
  EXPECT_TRUE(zCalls.m_zFile.GetLength(iLength));
  EXPECT_TRUE(zCalls.m_zFile.Flush());
  EXPECT_FALSE(zCalls.m_zEvent.Set());
  EXPECT_TRUE(zCalls.m_zEvent.Set());
  EXPECT_EQ(zScope.GetCount(KivSysCall::FileLength), 1u);
  EXPECT_EQ(zScope.GetCount(KivSysCall::EventSignal), 2u);
}

TEST(Fault, WhatOthersDoMeanwhileIsDoneBeforeTheCallAndOnce) {
  const TestFolder zFolder;
  int nRun = 0;
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FolderList;
  zPlan.m_iNth = 2;
  zPlan.m_iKind = KivSysFaultKind::Meanwhile;
  zPlan.m_pfnMeanwhile = [&] {
    ++nRun;
    zFolder.WriteBytes(u"made", "");
  };
  const KivSysFaultScope zFault(zPlan);
  std::vector<KivSysFolderEntry> vzEntries;
  for (size_t nExpected : {0u, 1u, 1u}) {
    EXPECT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
    EXPECT_EQ(vzEntries.size(), nExpected);
  }
  EXPECT_EQ(nRun, 1);
  EXPECT_TRUE(zFault.HasFired());
}

TEST(Fault, NumberZeroOnlyCounts) {
  Calls zCalls;
  const KivSysFaultScope zScope(Plan(KivSysCall::FileFlush, 0, true));
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(zCalls.m_zFile.Flush());
  EXPECT_FALSE(zScope.HasFired());
  EXPECT_EQ(zScope.GetCount(KivSysCall::FileFlush), 5u);
}

TEST(Fault, AFailedCreationLeavesNothingBehind) {
  const TestFolder zFolder;
  {
    const KivSysFaultScope zScope(Plan(KivSysCall::FileOpen, 1, true));
    EXPECT_FALSE(MakeMarker(zFolder / u"a").IsOpen());
    EXPECT_FALSE(sys::CopyFileTo(zFolder / u"a", zFolder / u"b"));
  }
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  EXPECT_TRUE(vzEntries.empty());
}
