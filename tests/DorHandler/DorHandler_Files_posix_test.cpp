// Files that the handler writes where pipes have names, files have permissions, links need no right, and a backslash
// separates nothing.
#ifndef _WIN32

#include <filesystem>

#include "DorHandlerTest.h"
#include "KivTestPipe.h"

using namespace kiv;
using namespace kivtest;

namespace {

using HandlerFiles = HandlerTest;
using Code_ = DorAnswerCode;

}  // namespace

TEST_F(HandlerFiles, APipeIsNeverReplacedByAFile) {
  ASSERT_TRUE(MakePipe(m_zFolder, u"pipe.kiv"));
  for (const char* szOverwrite : {"0", "1"}) {
    const DorDecodedAnswer z = Ask("WriteDor", {Utf8(m_zFolder / u"pipe.kiv"), szOverwrite, "0", "0", "0"});
    EXPECT_EQ(static_cast<Code_>(z.m_iCode), Code_::BadPath);
    EXPECT_TRUE(Utf8(z.m_csReason).ends_with("is no regular file")) << Utf8(z.m_csReason);
  }
  EXPECT_TRUE(IsPipe(m_zFolder, u"pipe.kiv"));
}

TEST_F(HandlerFiles, ALinkIsReplacedAndWhatItLedToStays) {
  m_zFolder.WriteBytes(u"target", "something else");
  const std::filesystem::path zLink(m_zFolder / u"link.kiv");
  std::error_code zError;
  std::filesystem::create_symlink(std::filesystem::path(m_zFolder / u"target"), zLink, zError);
  ASSERT_TRUE(!zError && std::filesystem::is_symlink(zLink)) << zError.message();
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"link.kiv"), "0", "0", "0", "0"}), Code_::WouldOverwrite);
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"link.kiv"), "1", "1", "0", "0"}), Code_::Done);
  EXPECT_FALSE(std::filesystem::is_symlink(zLink));
  EXPECT_EQ(m_zFolder.ReadBytes(u"target"), "something else");
}

TEST_F(HandlerFiles, ABackslashIsASignLikeOthersWhereItSeparatesNothing) {
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"back\\slash.kiv"), "0", "1", "0", "0"}), Code_::Done);
  EXPECT_EQ(Read(m_zFolder / u"back\\slash.kiv"), 0);
}

TEST_F(HandlerFiles, AFileThatIsReplacedKeepsItsPermissions) {
  m_zFolder.WriteBytes(u"there.kiv", "something else");
  const std::filesystem::path zThere(m_zFolder / u"there.kiv");
  using std::filesystem::perms;
  const perms iMode = perms::owner_read | perms::owner_write | perms::group_read;
  std::filesystem::permissions(zThere, iMode);
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"there.kiv"), "1", "0", "0", "0"}), Code_::Done);
  EXPECT_EQ(std::filesystem::status(zThere).permissions(), iMode);
}

#endif  // _WIN32
