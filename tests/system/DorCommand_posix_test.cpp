// The dor command where names are bytes, and its shell opens folders and sends signals.
#ifndef _WIN32

#include "DorCommandTest.h"
#include "KivSysFile.h"
#include "KivTestPipe.h"

using namespace kiv;
using namespace kivtest;

namespace {

std::string Quoted(const TestFolder& zFolder) {
  return "'" + sys::WideToUtf8(zFolder.Path()) + "'";
}

// Begins a script: the shell stands at "lines" in the folder, its process in $dor, and has served one request.
// "child NAME PARENT" prints a process by its name and its parent.
std::string ShellScript(const TestFolder& zFolder, const KivWString& csProgram, const std::string& strOptions = "") {
  return "cd " + Quoted(zFolder) + " && mkfifo lines && exec 3<>lines || exit 90\n" + sys::WideToUtf8(csProgram) +
         " shell model.kiv" + strOptions + " <lines >answers 2>errors &\n" +
         "dor=$!; echo DoNothing >&3\n"
         "child() { sed -n \"s/^\\([0-9]*\\) ($1) . $2 .*/\\1/p\" /proc/[0-9]*/stat 2>/dev/null; }\n"
         "for i in $(seq 6000); do grep -q served answers && break; sleep 0.02; done\n";
}

// The exit code of the folder's file "script".
int RunScript(const TestFolder& zFolder, const std::string& strStreams) {
  return std::system(("sh " + Quoted(zFolder) + "/script " + strStreams).c_str());
}

}  // namespace

TEST_F(DorCommand, AnInputThatCannotBeReadIsAnError) {
  int iResult = 0;
  EXPECT_TRUE(Holds(Output(u"shell " + Model() + u" < /", &iResult), "standard input cannot be read"));
  EXPECT_NE(iResult, 0);
}

TEST_F(DorCommand, AnOutputThatCannotBeWrittenIsAnError) {
  for (const KivWString& csArguments : {KivWString(u"requests"), u"call " + Model() + u" DoNothing"}) {
    const KivWString csLine = Program() + u" " + csArguments + u" >/dev/full 2>\"" + (m_zFolder / u"errors") + u"\"";
    EXPECT_NE(std::system(sys::WideToUtf8(csLine).c_str()), 0);
    EXPECT_EQ(m_zFolder.ReadBytes(u"errors"), "dor: standard output cannot be written\n");
  }
}

TEST_F(DorCommand, APipeIsNoModelAndIsNotWaitedFor) {
  ASSERT_TRUE(MakePipe(m_zFolder, u"pipe"));
  EXPECT_EQ(Why(u"pipe"), "is no regular file");
}

// Behind an & a shell has Ctrl-C's signal ignored, and an ignored one stays so; SIGTERM asks for the same stop.
TEST_F(DorCommand, AStopWhileAPipedShellWaitsIsAnErrorAndLeavesNothing) {
  WriteFile(m_zFolder / u"script", ShellScript(m_zFolder, Program()) +
                                       "kill -TERM $dor; wait $dor; [ $? -eq 1 ] && ! ls -d ZUR_TMP_FOLDER-*\n");
  EXPECT_EQ(RunScript(m_zFolder, "2>/dev/null"), 0);
  EXPECT_EQ(m_zFolder.ReadBytes(u"errors"), "dor: stopped\n");
  EXPECT_TRUE(Holds(m_zFolder.ReadBytes(u"answers"), "served"));
}

// Processes are found by their names and their parents. The relay that has ended stays a zombie while the shell waits.
TEST_F(DorCommand, AShellWhoseHandlerWasKilledBetweenLinesGives4) {
  WriteFile(m_zFolder / u"script",
            ShellScript(m_zFolder, Program()) +
                "relay=$(child DorRelay $dor); kill -KILL $(child DorHandler $relay) || exit 91\n"
                "for i in $(seq 6000); do grep -qa . /proc/$relay/cmdline || break; sleep 0.02; done\n"
                "echo DoNothing >&3; wait $dor; [ $? -eq 4 ] && ! ls -d ZUR_TMP_FOLDER-*\n");
  EXPECT_EQ(RunScript(m_zFolder, "2>/dev/null"), 0);
  EXPECT_EQ(m_zFolder.ReadBytes(u"errors"), "dor: the relay has ended\n");
}

TEST_F(DorCommand, PathsOfAnyBytesAreThoseFilesAndOtherTextsMustBeUtf8) {
  const KivWString csOdd = KivWString(1, 0xDCFE) + u".kiv", csOther = KivWString(1, 0xDCFF) + u".kiv";
  const KivWString csCopy = u"\"" + (m_zFolder / csOdd) + u"\"", csSecond = u"\"" + (m_zFolder / csOther) + u"\"";
  EXPECT_EQ(Run(u"call " + Model() + u" WriteDor " + csCopy + u" 0 0 0 0"), 0);
  EXPECT_EQ(Run(u"call " + Model() + u" WriteDor " + csSecond + u" 0 0 0 0"), 0);
  EXPECT_TRUE(sys::PathExists(m_zFolder / csOdd));
  EXPECT_TRUE(sys::PathExists(m_zFolder / csOther));
  EXPECT_EQ(Run(u"open " + csCopy), 0);
  EXPECT_EQ(Run(u"call " + csCopy + u" SetAsmInfo 1 " + KivWString(1, 0xDCFF)), 2);
  EXPECT_EQ(Output(u"open " + (m_zFolder / u"\x01nofile")),
            "dor: " + sys::WideToUtf8(m_zFolder / u"\\x01nofile") + ": there is no such file\n");
  for (const KivWString& csName : {csOdd, csOther}) EXPECT_TRUE(sys::RemoveFileAt(m_zFolder / csName));
}

TEST_F(DorCommand, RelativePathsOfAnyBytesAreThoseFilesAlsoInAFolderOfAnyBytes) {
  const std::string strFolder = Quoted(m_zFolder);
  const std::string strDor = sys::WideToUtf8(Program());
  const std::string strOdd = "$(printf 'a\\376')";
  WriteFile(m_zFolder / u"script",
            "cd " + strFolder + " && cp model.kiv " + strOdd + " && " + strDor + " open " + strOdd + " && " + strDor +
                " call model.kiv WriteDor " + strOdd + ".kiv 0 0 0 0 && [ -s " + strOdd + ".kiv ] && mkdir " + strOdd +
                "-folder && cd " + strOdd + "-folder && cp ../model.kiv . && " + strDor + " open model.kiv && " +
                strDor + " call model.kiv WriteDor copy.kiv 0 0 0 0 && [ -s copy.kiv ]" + " && cd .. && rm -r " +
                strOdd + "*\n");
  EXPECT_EQ(RunScript(m_zFolder, ">" + Quoted(m_zFolder) + "/answers 2>&1"), 0) << m_zFolder.ReadBytes(u"answers");
}

// The relay is found beside itself however it is called: through a link in a folder of such a name.
TEST_F(DorCommand, ARelayInAFolderOfAnyBytesIsStarted) {
  const std::string strFolder = Quoted(m_zFolder);
  KivWString csFolder, csName;
  KivSplitPath(RealPrograms(TestFolder()).m_csRelay, csFolder, csName);
  const std::string strOdd = "$(printf 'a\\376')";
  WriteFile(m_zFolder / u"script", "cd " + strFolder + " && ln -s '" + sys::WideToUtf8(csFolder) + "' " + strOdd +
                                       " && " + sys::WideToUtf8(Program()) + " open model.kiv --relay " + strOdd +
                                       "/DorRelay; code=$?; rm " + strOdd + "; exit $code\n");
  EXPECT_EQ(RunScript(m_zFolder, ">" + Quoted(m_zFolder) + "/answers 2>&1"), 0) << m_zFolder.ReadBytes(u"answers");
}

// The limit comes once the model stands open: below the model's own size none could be read.
TEST_F(DorCommand, AModelAboveTheUsersLimitOnFilesIsRefusedAndTheTreeGoesOn) {
  WriteFile(m_zFolder / u"script",
            ShellScript(m_zFolder, Program(), " --keep-going") +
                "prlimit --pid $(child DorHandler $(child DorRelay $dor)) --fsize=20000 || exit 91\n"
                "printf 'WriteDor copy.kiv 0 0 0 0\\nGetAsmTreeInfo\\nquit\\n' >&3; wait $dor; [ $? -eq 1 ]\n");
  EXPECT_EQ(RunScript(m_zFolder, "2>/dev/null"), 0);
  const std::string strAnswers = m_zFolder.ReadBytes(u"answers");
  EXPECT_TRUE(Holds(strAnswers, "code 20")) << strAnswers << m_zFolder.ReadBytes(u"errors");
  EXPECT_TRUE(Holds(strAnswers, "instances: 3")) << strAnswers;
  EXPECT_FALSE(sys::PathExists(m_zFolder / u"copy.kiv"));
}

#endif  // _WIN32
