// The dor command: exit codes, arguments, JSON.
#include <cstdio>
#include <cstdlib>

#include "DorCommandTest.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"

using namespace kiv;
using namespace kivtest;

TEST_F(DorCommand, GoodWorkGives0) {
  EXPECT_EQ(Run(u"open " + Model()), 0);
  EXPECT_EQ(Run(u"call " + Model() + u" DoNothing"), 0);
  EXPECT_EQ(Run(u"call " + Model() + u" DorHandler_GetAsmTreeInfo --json"), 0);
  EXPECT_EQ(Run(u"bench " + Model() + u" --requests 20 --idle 1"), 0);
  EXPECT_EQ(Run(u"requests"), 0);
  EXPECT_EQ(Run(u"--help"), 0);
}

TEST_F(DorCommand, WhatTheHandlerDoesNotDoGives1) {
  EXPECT_EQ(Run(u"call " + Model() + u" GetFilletIntCurve 3 -7"), 1);
}

TEST_F(DorCommand, WrongUseGives2AndStartsNothing) {
  // A relay that is started makes the monitor's folder.
  const KivWString csMonitor = m_zFolder / u"monitor";
  SetVariable("TW_PROCESS_MONITOR_FOLDER", sys::WideToUtf8(csMonitor));
  for (const char16_t* szArguments :
       {u"", u"open", u"call model.kiv", u"call model.kiv NoSuch", u"nothing", u"call model.kiv IsPlanarFace 3",
        u"call model.kiv IsPlanarFace 3 x", u"call model.kiv ReadDor x", u"bench model.kiv --requests 0",
        u"bench model.kiv --idle 64", u"open model.kiv --no-such-option", u"open \"\"", u"call \"\" DoNothing",
        u"shell \"\""})
    EXPECT_EQ(Run(szArguments), 2) << sys::WideToUtf8(szArguments);
  EXPECT_FALSE(sys::PathExists(csMonitor));
  EXPECT_EQ(Run(u"call " + Model() + u" DoNothing"), 0);
  EXPECT_TRUE(sys::PathExists(csMonitor));
}

TEST_F(DorCommand, AModelThatCannotBeReadGives3) {
  EXPECT_EQ(Run(u"open missing.kiv"), 3);
  EXPECT_EQ(Run(u"call \"no model\" DoNothing"), 3);
}

TEST_F(DorCommand, WhyAModelCannotBeReadIsSaidInWords) {
  WriteFile(m_zFolder / u"empty", "");
  EXPECT_EQ(Why(u"missing.kiv"), "there is no such file");
  EXPECT_EQ(Why(u"missing.kiv", u"bench"), "there is no such file");
  EXPECT_EQ(Why(u"missing.kiv", u"shell"), "there is no such file");
  EXPECT_EQ(Why(u"empty"), "is empty");
  EXPECT_EQ(Why(u"no model"), "the model could not be read: the file is no model, or a damaged one");
  sys::MakeFolder(m_zFolder / u"folder");
  EXPECT_EQ(Why(u"folder"), "is a folder");
  const KivSysFile hKept = KivSysFile::Open(
      m_zFolder / u"model.kiv",
      {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
  EXPECT_EQ(Why(u"model.kiv"), "cannot be opened for reading");
}

TEST_F(DorCommand, ALineOfTheShellThatIsNoUtf8IsRefused) {
  WriteFile(m_zFolder / u"lines", "SetAsmInfo 1 \xff\n");
  EXPECT_NE(Output(u"shell " + Model() + u" <\"" + (m_zFolder / u"lines") + u"\"").find("dor: a line is no UTF-8\n"),
            std::string::npos);
}

TEST_F(DorCommand, WrongUseIsOneLine) {
  EXPECT_EQ(Output(u"open model.kiv --no-such"),
            "dor: The following argument was not expected: --no-such (--help tells how it is used)\n");
}

TEST_F(DorCommand, ATreeThatCannotBeStartedGives4) {
  EXPECT_EQ(Run(u"open model.kiv --relay \"" + (m_zFolder / u"no relay") + u"\""), 4);
}

TEST_F(DorCommand, APathThatBeginsLikeANegativeNumberIsAPath) {
  EXPECT_EQ(Run(u"open -1.kiv"), 0);
}

TEST_F(DorCommand, ArgumentsMayBeNegative) {
  const std::string strText = Output(u"call " + Model() + u" GetFilletIntCurve -3 -7 --json");
  EXPECT_TRUE(Holds(strText, "\"status\": 0")) << strText;
  EXPECT_TRUE(Holds(strText, "GetFilletIntCurve")) << strText;
}

TEST_F(DorCommand, JsonTellsTheTreeTheTimesAndThatNothingIsLeft) {
  const std::string strText = Output(u"open " + Model() + u" --json");
  for (const char* szPart : {"\"model\": 0", "\"root_folder\"", "\"processes\"", "\"name\": \"bolt B\"",
                             "\"instances\": 3", "\"milliseconds\"", "\"left_behind\": false"})
    EXPECT_TRUE(Holds(strText, szPart)) << szPart << " in " << strText;
  EXPECT_FALSE(Holds(strText, "reading")) << "the spinner, which is for a terminal";
}

TEST_F(DorCommand, ErrorsAreJsonToo) {
  const std::string strText = Output(u"--json open \"" + (m_zFolder / u"missing.kiv") + u"\"");
  EXPECT_TRUE(Holds(strText, "\"error\"")) << strText;
  EXPECT_TRUE(Holds(strText, "\"exit_code\": 3")) << strText;
  EXPECT_TRUE(Holds(Output(u"--json call " + Model() + u" NoSuch"), "\"exit_code\": 2"));
  for (const char16_t* szArguments : {u"--json call model.kiv", u"open model.kiv --no-such-option --json", u"--json"}) {
    const std::string strWrong = Output(szArguments);
    EXPECT_TRUE(Holds(strWrong, "{\n  \"error\": \"")) << strWrong;
    EXPECT_TRUE(Holds(strWrong, "\"exit_code\": 2")) << strWrong;
  }
}

TEST_F(DorCommand, TheListOfRequestsTellsWhichAreOffered) {
  const std::string strText = Output(u"requests"), strJson = Output(u"requests --json");
  const auto Line = [&](const std::string& strName) {
    const size_t i = strText.find(strName + " ");
    return i == std::string::npos ? "" : strText.substr(i, strText.find('\n', i) - i);
  };
  EXPECT_TRUE(Line("DorHandler_GetFilletIntCurve").ends_with("(not offered yet)")) << strText;
  EXPECT_EQ(Line("DorHandler_IsPlanarFace").find("offered"), std::string::npos) << strText;
  EXPECT_FALSE(Line("DorHandler_IsPlanarFace").empty()) << strText;
  EXPECT_TRUE(Holds(strJson, "\"offered\": true") && Holds(strJson, "\"offered\": false")) << strJson;
}

// --- dor shell ------------------------------------------------------------------------------------------------------

TEST_F(DorCommand, TheShellServesALineAfterTheOther) {
  WriteFile(m_zFolder / u"lines",
            "# a comment\n\nSnapShot\nDorHandler_SetAsmInfo 1 'front plate'\nGetAsmInfo 1\nUndo 1\r\n"
            "GetAsmInfo 1\nquit\nNoSuchRequest\n");
  const std::string strText = Output(u"shell " + Model() + u" < \"" + (m_zFolder / u"lines") + u"\"");
  EXPECT_TRUE(Holds(strText, "name: \"front plate\"")) << strText;
  EXPECT_TRUE(Holds(strText, "redo_steps: 1")) << strText;
  EXPECT_LT(strText.find("front plate"), strText.find("name: \"plate\"")) << strText;
  EXPECT_FALSE(Holds(strText, "NoSuchRequest")) << "behind the end";
}

TEST_F(DorCommand, AWordWithAZeroIsShownWholeInTheShellsError) {
  WriteFile(m_zFolder / u"lines", std::string("DoNothing\0x\n", 12));
  const std::string strText = Output(u"shell " + Model() + u" < \"" + (m_zFolder / u"lines") + u"\"");
  EXPECT_TRUE(Holds(strText, "dor: the relay serves no request 'DoNothing\\x00x'\n")) << strText;
}

TEST_F(DorCommand, TheShellStopsAtTheFirstRequestThatIsRefusedUnlessItIsToldNotTo) {
  WriteFile(m_zFolder / u"lines", "GetFaceInfo 0 77\nSetAsmInfo 1\n'no end\nGetFaceInfo 0 1");
  const KivWString csInput = u" < \"" + (m_zFolder / u"lines") + u"\"";
  const std::string strStopped = Output(u"shell " + Model() + csInput);
  EXPECT_TRUE(Holds(strStopped, "code 7, unknown face")) << strStopped;
  EXPECT_FALSE(Holds(strStopped, "too few")) << strStopped;
  const std::string strAll = Output(u"shell --keep-going " + Model() + csInput);
  for (const char* szPart : {"code 7, unknown face", "too few arguments", "a quote does not end", "area: 100"})
    EXPECT_TRUE(Holds(strAll, szPart)) << szPart << " in " << strAll;
}

TEST_F(DorCommand, TheShellsExitCodeTellsWhetherAllWasDone) {
  const auto CodeOf = [&](const std::string& strLines, const std::string& strOptions) {
    WriteFile(m_zFolder / u"lines", strLines);
    int iResult = -1;
    Output(u"shell " + sys::Utf8ToWide(strOptions) + u" " + Model() + u" < \"" + (m_zFolder / u"lines") + u"\"",
           &iResult);
    return iResult == 0;
  };
  EXPECT_TRUE(CodeOf("DoNothing\nhelp\n", ""));
  EXPECT_TRUE(CodeOf("", ""));
  EXPECT_FALSE(CodeOf("DoNothing\nRedo 1\n", ""));
  EXPECT_FALSE(CodeOf("Redo 1\nDoNothing\n", "--keep-going"));
  EXPECT_FALSE(CodeOf("nonsense\n", ""));
}

TEST_F(DorCommand, ALineThatIsTooLongIsOneErrorAndNotTheEnd) {
  WriteFile(m_zFolder / u"lines", "DoNothing\n" + std::string(1'100'000, 'x') + "\nGetAsmInfo 99\nDoNothing\n");
  const KivWString csInput = Model() + u" < \"" + (m_zFolder / u"lines") + u"\"";
  int iResult = 0;
  const std::string strAll = Output(u"shell --keep-going " + csInput, &iResult);
  EXPECT_NE(iResult, 0);
  const size_t iLong = strAll.find("dor: a line has more than 1 MiB"), iNode = strAll.find("> GetAsmInfo 99");
  ASSERT_NE(iLong, std::string::npos) << strAll.substr(0, 2000);
  EXPECT_LT(strAll.find("> DoNothing"), iLong) << "errors stand behind what was printed before them";
  EXPECT_LT(iLong, iNode);
  EXPECT_LT(iNode, strAll.rfind("> DoNothing"));
  const std::string strStopped = Output(u"shell " + csInput, &iResult);
  EXPECT_NE(iResult, 0);
  EXPECT_TRUE(Holds(strStopped, "1 MiB")) << strStopped.substr(0, 2000);
  EXPECT_FALSE(Holds(strStopped, "GetAsmInfo")) << strStopped.substr(0, 2000);
}

TEST_F(DorCommand, NamesReachTheTerminalWithoutControlCharacters) {
  WriteFile(m_zFolder / u"lines", "SetAsmInfo 1 '\x1b]0;x\x07 \"a\"'\nGetAsmInfo 1\n\x1b[2J\n");
  const std::string strText = Output(u"shell --keep-going " + Model() + u" < \"" + (m_zFolder / u"lines") + u"\"");
  EXPECT_TRUE(Holds(strText, "name: \"\\x1b]0;x\\x07 \\\"a\\\"\"")) << strText;
  EXPECT_TRUE(Holds(strText, "no request '\\x1b[2J'"));
  EXPECT_FALSE(Holds(strText, "\x1b"));
}

TEST_F(DorCommand, ACallShowsItsAnswerByNamesInBothForms) {
  EXPECT_TRUE(Holds(Output(u"call " + Model() + u" GetFaceInfo 0 1"), "area: 100"));
  const std::string strJson = Output(u"call " + Model() + u" GetFaceInfo 0 1 --json");
  for (const char* szPart : {"\"area\": 100.0", "\"code\": 0", "\"levels\": [", "\"triangles\": 8"})
    EXPECT_TRUE(Holds(strJson, szPart)) << szPart << " in " << strJson;
  const std::string strRefused = Output(u"call " + Model() + u" GetFaceInfo 9 1 --json");
  EXPECT_TRUE(Holds(strRefused, "\"code_text\": \"unknown instance\"")) << strRefused;
}

TEST_F(DorCommand, AFileIsWrittenRelativeToTheUsersFolder) {
  EXPECT_EQ(Run(u"call " + Model() + u" WriteDor written.kiv 0 1 0 0"), 0);
  EXPECT_TRUE(sys::PathExists(m_zFolder / u"written.kiv"));
  EXPECT_EQ(Run(u"call " + Model() + u" WriteDor written.kiv 0 1 0 0"), 1) << "it is there";
  EXPECT_EQ(Run(u"open written.kiv"), 0);
}
