// The header: default, compatibility test, upgrade.
#include "KivContainerHeader.h"

#include <gtest/gtest.h>

#include <limits>

#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivTestChild.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"

using namespace kiv;
using namespace kivtest;
using H = KivContainerHeader;

namespace {

// Exit code of a child body: 0 when all its checks hold, else the line of the first that does not.
int RunChild(const char* szName) {
  KivSysProcess zChild = StartTestChild(szName, {});
  if (!zChild.IsOpen() || zChild.Wait(60000) != KivSysWait::Signalled) return -1;
  int32_t iCode = -1;
  zChild.GetExitCode(iCode);
  return iCode;
}

H Header(uint32_t iApplication, uint8_t iGeneration = 0x14, uint32_t iMinor = 10) {
  H zHeader = H::MakeDefault();
  zHeader.Fill8(H::FormatVersion, iGeneration);
  zHeader.SetU32(H::FormatMinorVersion, iMinor);
  zHeader.SetU32(H::WriterApplication, iApplication);
  return zHeader;
}

}  // namespace

#define CHILD_CHECK(condition) \
  if (!(condition)) return __LINE__ % 250 + 1

TEST(ContainerHeader, TheDefaultHeaderHasTheDocumentedBytes) {
  KivRegisterOwnFormat();
  H zHeader = H::MakeDefault();
  EXPECT_EQ(zHeader.U64(H::WriterFileTime), KivGetExecutableFileTime());
  zHeader.SetU64(H::WriterFileTime, 0);
  Bytes vcExpected = BytesOfHex(
      "1414141414141414 b0b0b0b0b0b0b0b0 0a000000 01000000 00000000 08040201 1412111008040201 f304b53f 00000000"
      "a6498eca06bd3075 05000000 0000000000000000 00000000 0801000000000000 0000000000000000"
      "0000000000000000 0000000000000000 0000000000000000 0000000000000000 0000000000000000 14000000");
  vcExpected.resize(256);
  EXPECT_EQ(Bytes(zHeader.Data(), zHeader.Data() + 256), vcExpected);
}

TEST(ContainerHeader, OnlyTheFirstByteOfEachMarkCounts) {
  KivRegisterOwnFormat();
  H zHeader = H::MakeDefault();
  for (size_t i = 1; i < 8; ++i) {
    zHeader.Data()[i] = static_cast<uint8_t>(i);
    zHeader.Data()[8 + i] = static_cast<uint8_t>(i);
  }
  EXPECT_TRUE(IsCompatibleHeader(zHeader));
  zHeader.Data()[8] = 0xB1;
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
  zHeader.Data()[8] = 0xB0;
  zHeader.Data()[0] = 0x12;
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
}

TEST(ContainerHeader, APreviousGenerationPassesWithAnyMinorVersionAndMarkTheCurrentOneOnlyUpToItsOwn) {
  KivRegisterOwnFormat();
  EXPECT_TRUE(IsCompatibleHeader(Header(5, 0x13, 99)));
  EXPECT_TRUE(IsCompatibleHeader(Header(5, 0x14, 10)));
  EXPECT_FALSE(IsCompatibleHeader(Header(5, 0x14, 11)));
  H zHeader = Header(5, 0x13, 99);
  zHeader.Data()[8] = 0;
  EXPECT_TRUE(IsCompatibleHeader(zHeader));
}

TEST(ContainerHeader, ByteOrderMarksMustBeEqual) {
  KivRegisterOwnFormat();
  H zHeader = H::MakeDefault();
  zHeader.SetU32(H::ByteOrderMark32, 0x08040201);
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
  zHeader = H::MakeDefault();
  zHeader.SetU64(H::ByteOrderMark64, 0);
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
}

TEST(ContainerHeader, FloatMarksAreComparedAsNumbersAndANaNPasses) {
  KivRegisterOwnFormat();
  H zHeader = H::MakeDefault();
  KivStore<float>(zHeader.Data() + H::FloatMark, 1.4142137F);
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
  KivStore<float>(zHeader.Data() + H::FloatMark, std::numeric_limits<float>::quiet_NaN());
  EXPECT_TRUE(IsCompatibleHeader(zHeader));
  KivStore<double>(zHeader.Data() + H::DoubleMark, 3.0);
  EXPECT_FALSE(IsCompatibleHeader(zHeader));
  KivStore<double>(zHeader.Data() + H::DoubleMark, std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(IsCompatibleHeader(zHeader));
}

TEST(ContainerHeader, Application5OpensFilesOfOthersOnlyWhileTheirFormatIsOld) {
  KivRegisterOwnFormat();
  EXPECT_TRUE(IsCompatibleHeader(Header(5)));
  EXPECT_FALSE(IsCompatibleHeader(Header(2)));
  EXPECT_FALSE(IsCompatibleHeader(Header(2, 0x14, 2)));
  EXPECT_TRUE(IsCompatibleHeader(Header(2, 0x14, 1)));
  EXPECT_TRUE(IsCompatibleHeader(Header(0, 0x14, 0)));
  EXPECT_TRUE(IsCompatibleHeader(Header(77, 0x13, 99)));
}

KIV_TEST_CHILD(HeaderApplication0) {
  KivSetFormatCompatibilityCallback(nullptr);
  KivSetFormatVersion(1);
  KivSetFormatApplication(0);
  CHILD_CHECK(!IsCompatibleHeader(Header(0)));
  CHILD_CHECK(!IsCompatibleHeader(Header(0, 0x13)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x14, 0)));
  return 0;
}

KIV_TEST_CHILD(HeaderApplication3) {
  KivSetFormatCompatibilityCallback(nullptr);
  KivSetFormatVersion(1);
  KivSetFormatApplication(3);
  CHILD_CHECK(!IsCompatibleHeader(Header(3)));
  CHILD_CHECK(!IsCompatibleHeader(Header(3, 0x13)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x14, 0)));
  return 0;
}

TEST(ContainerHeader, Applications0And3OpenNothingNotEvenTheirOwnFiles) {
  EXPECT_EQ(RunChild("HeaderApplication0"), 0);
  EXPECT_EQ(RunChild("HeaderApplication3"), 0);
}

KIV_TEST_CHILD(HeaderApplication2) {
  KivSetFormatCompatibilityCallback(nullptr);
  KivSetFormatVersion(1);
  KivSetFormatApplication(2);
  CHILD_CHECK(IsCompatibleHeader(Header(2)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5)));
  CHILD_CHECK(IsCompatibleHeader(Header(5, 0x14, 1)));
  CHILD_CHECK(IsCompatibleHeader(Header(5, 0x13, 50)));
  return 0;
}

KIV_TEST_CHILD(HeaderApplication7) {
  KivSetFormatCompatibilityCallback(nullptr);
  KivSetFormatVersion(1);
  KivSetFormatApplication(7);
  CHILD_CHECK(IsCompatibleHeader(Header(7)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x14, 1)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x13, 1)));
  return 0;
}

TEST(ContainerHeader, Application2OpensOldFilesOfOthersAndApplication7OnlyItsOwn) {
  EXPECT_EQ(RunChild("HeaderApplication2"), 0);
  EXPECT_EQ(RunChild("HeaderApplication7"), 0);
}

KIV_TEST_CHILD(HeaderAnyApplication) {
  KivSetFormatCompatibilityCallback(nullptr);
  KivSetFormatVersion(1);
  KivSetFormatApplication(0xFFFFFFFF);
  for (const uint32_t iApplication : {0u, 2u, 3u, 5u, 77u}) CHILD_CHECK(IsCompatibleHeader(Header(iApplication)));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x14, 11)));

  // An open resets both writer fields in the memory copy.
  KivContainerHeaderInfo zInfo;
  H zHeader = Header(5);
  zHeader.SetU32(H::WriterVersion, 42);
  zHeader.GetInfo(zInfo);
  UpgradeHeader(zInfo);
  H zUpgraded;
  zUpgraded.SetInfo(zInfo);
  CHILD_CHECK(zUpgraded.U32(H::WriterVersion) == 0);
  CHILD_CHECK(zUpgraded.U32(H::WriterApplication) == 0);
  CHILD_CHECK(zUpgraded.U32(H::FirstWriterVersion) == 42);
  CHILD_CHECK(zUpgraded.U32(H::FirstWriterApplication) == 5);
  CHILD_CHECK(zUpgraded.U64(H::UpgradeFileTime) == KivGetExecutableFileTime());

  // One that says so already stays.
  zHeader = Header(0xFFFFFFFF);
  zHeader.SetU32(H::WriterVersion, 42);
  zHeader.GetInfo(zInfo);
  UpgradeHeader(zInfo);
  zUpgraded.SetInfo(zInfo);
  CHILD_CHECK(zUpgraded.U32(H::WriterVersion) == 42);
  CHILD_CHECK(zUpgraded.U32(H::WriterApplication) == 0xFFFFFFFF);
  CHILD_CHECK(zUpgraded.U64(H::UpgradeFileTime) == 0);
  return 0;
}

TEST(ContainerHeader, AnyApplicationPassesEveryFileAndResetsTheWriterFieldsInMemory) {
  EXPECT_EQ(RunChild("HeaderAnyApplication"), 0);
}

namespace {
std::vector<uint32_t> g_viAsked;
bool g_bVetoAnswer = true;
bool Veto(uint32_t iVersion) {
  g_viAsked.push_back(iVersion);
  return g_bVetoAnswer;
}
}  // namespace

KIV_TEST_CHILD(HeaderVeto) {
  KivSetFormatCompatibilityCallback(Veto);
  KivSetFormatVersion(1);
  KivSetFormatApplication(5);
  H zHeader = Header(5);
  zHeader.SetU32(H::WriterVersion, 1234);
  CHILD_CHECK(IsCompatibleHeader(zHeader));
  zHeader.SetU32(H::WriterApplication, 2);
  CHILD_CHECK(!IsCompatibleHeader(zHeader));  // asked all the same, before the application counts
  CHILD_CHECK((g_viAsked == std::vector<uint32_t>{1234, 0}));
  // Refused before the callback: generation, mark, minor version.
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x15)));
  zHeader = Header(5);
  zHeader.Data()[8] = 0;
  CHILD_CHECK(!IsCompatibleHeader(zHeader));
  CHILD_CHECK(!IsCompatibleHeader(Header(5, 0x14, 11)));
  CHILD_CHECK(g_viAsked.size() == 2);
  // Behind it: the byte order, and the application.
  zHeader = Header(5);
  zHeader.SetU32(H::ByteOrderMark32, 0);  // refused behind it
  CHILD_CHECK(!IsCompatibleHeader(zHeader));
  CHILD_CHECK(g_viAsked.size() == 3);
  g_bVetoAnswer = false;
  CHILD_CHECK(!IsCompatibleHeader(Header(5)));
  CHILD_CHECK(g_viAsked.size() == 4);
  return 0;
}

KIV_TEST_CHILD(HeaderVetoOfAForeignApplication) {
  KivSetFormatCompatibilityCallback(Veto);
  KivSetFormatVersion(1);
  KivSetFormatApplication(7);
  H zHeader = Header(2, 0x13, 99);  // a previous generation passes up to the application, which refuses it
  zHeader.SetU32(H::WriterVersion, 1234);
  CHILD_CHECK(!IsCompatibleHeader(zHeader));
  CHILD_CHECK((g_viAsked == std::vector<uint32_t>{0}));
  return 0;
}

KIV_TEST_CHILD(HeaderVetoNotRegistered) {
  KivSetFormatCompatibilityCallback(Veto);
  KivSetFormatVersion(1);
  NoThrowScope zNoThrow;
  CHILD_CHECK(!IsCompatibleHeader(Header(0)));  // the registration is asked before the callback
  CHILD_CHECK(g_viAsked.empty());
  return 0;
}

TEST(ContainerHeader, TheVetoIsAskedInItsPlaceWithTheWriterVersionOfOwnFilesElseZero) {
  EXPECT_EQ(RunChild("HeaderVeto"), 0);
  EXPECT_EQ(RunChild("HeaderVetoOfAForeignApplication"), 0);
  EXPECT_EQ(RunChild("HeaderVetoNotRegistered"), 0);
}

KIV_TEST_CHILD(HeaderNotRegistered) {
  KivSetFormatVersion(1);
  KivSetFormatApplication(5);
  CHILD_CHECK(ReportOf([] { H::MakeDefault(); }) == u"IsInitialized()");
  CHILD_CHECK(ReportOf([] { KivFastFileContainer(MakeMemory(), MakeMemory(), nullptr); }) == u"IsInitialized()");
  try {
    H::MakeDefault();
  } catch (const KivException& e) {
    CHILD_CHECK(e.GetFile() == u"KivFastFileContainer");
  }
  NoThrowScope zNoThrow;
  const H zHeader = H::MakeDefault();
  CHILD_CHECK(zHeader.U32(H::WriterVersion) == 1);
  CHILD_CHECK(!IsCompatibleHeader(zHeader));
  return 0;
}

TEST(ContainerHeader, WithoutRegistrationTheDefaultIsReportedAndTheTestFails) {
  EXPECT_EQ(RunChild("HeaderNotRegistered"), 0);
}

TEST(ContainerHeader, AnUpgradeRemembersTheFirstWriterAndRaisesTheVersions) {
  KivRegisterOwnFormat();
  H zHeader = Header(2, 0x14, 1);
  zHeader.SetU32(H::WriterVersion, 0);
  zHeader.SetU64(H::UpgradeFileTime, 0);
  KivContainerHeaderInfo zInfo;
  zHeader.GetInfo(zInfo);
  UpgradeHeader(zInfo);
  H zUpgraded;
  zUpgraded.SetInfo(zInfo);
  EXPECT_EQ(zUpgraded.U64(H::FirstFormatVersion), 0x1414141414141414u);
  EXPECT_EQ(zUpgraded.U32(H::FirstFormatMinorVersion), 1u);
  EXPECT_EQ(zUpgraded.U32(H::FormatMinorVersion), 10u);
  EXPECT_EQ(zUpgraded.U32(H::FirstWriterVersion), 0u);
  EXPECT_EQ(zUpgraded.U32(H::WriterVersion), 1u);
  EXPECT_EQ(zUpgraded.U32(H::FirstWriterApplication), 2u);
  EXPECT_EQ(zUpgraded.U32(H::WriterApplication), 5u);
  EXPECT_EQ(zUpgraded.U64(H::UpgradeFileTime), KivGetExecutableFileTime());

  // A second upgrade leaves the first writer.
  UpgradeHeader(zInfo);
  zUpgraded.SetInfo(zInfo);
  EXPECT_EQ(zUpgraded.U32(H::FirstFormatMinorVersion), 1u);
  EXPECT_EQ(zUpgraded.U32(H::FirstWriterApplication), 2u);
}

TEST(ContainerHeader, AnUpgradeOfTheOwnApplicationLeavesTheUpgradeTime) {
  KivRegisterOwnFormat();
  H zHeader = Header(5);
  zHeader.SetU32(H::WriterVersion, 900);
  KivContainerHeaderInfo zInfo;
  zHeader.GetInfo(zInfo);
  UpgradeHeader(zInfo);
  H zUpgraded;
  zUpgraded.SetInfo(zInfo);
  EXPECT_EQ(zUpgraded.U32(H::WriterVersion), 900u);  // never lowered
  EXPECT_EQ(zUpgraded.U64(H::UpgradeFileTime), 0u);
}

TEST(ContainerHeader, APreviousGenerationIsNotUpgraded) {
  KivRegisterOwnFormat();
  KivContainerHeaderInfo zInfo;
  Header(2, 0x13, 99).GetInfo(zInfo);
  const KivContainerHeaderInfo zBefore = zInfo;
  UpgradeHeader(zInfo);
  EXPECT_EQ(zInfo, zBefore);
}
