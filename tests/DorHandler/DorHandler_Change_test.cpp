// Requests that change the model, its history, and files of it.
#include "DorHandlerTest.h"
#include "KivModelCheck.h"
#include "KivSysFault.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

using namespace kiv;
using namespace kivtest;

namespace {

using HandlerChange = HandlerTest;
using Doubles = std::vector<double>;
using Code_ = DorAnswerCode;

size_t FileNum(const TestFolder& zFolder) {
  size_t nFiles = 0;
  for (const auto& zEntry : std::filesystem::directory_iterator(std::filesystem::path(zFolder.Path())))
    nFiles += zEntry.is_regular_file();
  return nFiles;
}

// What the full check finds.
std::string Findings(const KivWString& csPath) {
  std::string strAll;
  KivToolModel zModel(csPath);
  const KivCheckResult zResult = KivCheckModel(
      zModel, [&](const KivCheckFinding& z) { strAll += std::string(z.m_szCode) + ": " + z.m_strSentence + "\n"; });
  EXPECT_GT(zResult.m_nElements, 5u);
  EXPECT_GT(zResult.m_nTriangles, 0u);
  return strAll;
}

}  // namespace

TEST_F(HandlerChange, ANameIsChangedTakenBackAndBroughtBack) {
  EXPECT_EQ(Code("SnapShot"), Code_::Done);
  const std::string strBefore = Written();
  EXPECT_EQ(Code("SetAsmInfo", {"3", "a name that is much longer than the one before it, so that the record moves"}),
            Code_::Done);
  const std::string strAfter = Written();
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"3"}).m_vzValue, "name").substr(0, 6), "a name");
  EXPECT_EQ(Code("SnapShot"), Code_::Done);
  const DorDecodedAnswer zUndo = Ask("Undo", {"1"});
  EXPECT_EQ(Int(zUndo.m_vzValue, "steps_done"), 1);
  EXPECT_EQ(Int(zUndo.m_vzValue, "undo_steps"), 0);
  EXPECT_EQ(Int(zUndo.m_vzValue, "redo_steps"), 1);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"3"}).m_vzValue, "name"), "bolt A");
  EXPECT_EQ(Written(), strBefore) << "byte for byte";
  EXPECT_EQ(Code("Redo", {"1"}), Code_::Done);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"3"}).m_vzValue, "name").substr(0, 6), "a name");
  EXPECT_EQ(Written(), strAfter);
}

TEST_F(HandlerChange, AnUndoOfAChangeThatNoSnapshotHoldsCanBeBroughtBack) {
  Ask("SnapShot");
  const KivByteBuffer vcFirst = State();
  Ask("SetAsmInfo", {"1", "second"});
  const KivByteBuffer vcSecond = State();
  EXPECT_EQ(Code("Undo", {"1"}), Code_::Done);
  EXPECT_EQ(State(), vcFirst);
  EXPECT_EQ(Code("Redo", {"1"}), Code_::Done);
  EXPECT_EQ(State(), vcSecond);
}

TEST_F(HandlerChange, StepsGoAsFarAsThereAreStates) {
  EXPECT_EQ(Code("Undo", {"1"}), Code_::NothingToUndo);
  EXPECT_EQ(Code("Redo", {"1"}), Code_::NothingToRedo);
  Ask("SetAsmInfo", {"1", "unsaved"});
  EXPECT_EQ(Code("Undo", {"1"}), Code_::NothingToUndo) << "no snapshot was taken";
  Ask("SnapShot");
  EXPECT_EQ(Code("Undo", {"1"}), Code_::NothingToUndo) << "it holds the present state";
  EXPECT_EQ(Int(Ask("SnapShot").m_vzValue, "undo_steps"), 0) << "a second one of the same state is none";
  for (const char* szName : {"one", "two", "three"}) {
    Ask("SetAsmInfo", {"1", szName});
    Ask("SnapShot");
  }
  EXPECT_EQ(Int(Ask("Undo", {"2"}).m_vzValue, "steps_done"), 2);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "one");
  EXPECT_EQ(Int(Ask("Undo", {"9223372036854775807"}).m_vzValue, "steps_done"), 1);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "unsaved");
  EXPECT_EQ(Int(Ask("Redo", {"9223372036854775807"}).m_vzValue, "steps_done"), 3);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "three");
  for (const char* szBad : {"0", "-1", "-9223372036854775808"}) {
    EXPECT_EQ(Code("Undo", {szBad}), Code_::BadArgument);
    EXPECT_EQ(Code("Redo", {szBad}), Code_::BadArgument);
  }
}

TEST_F(HandlerChange, AChangeBehindAnUndoEndsTheFuture) {
  Ask("SnapShot");
  Ask("SetAsmInfo", {"1", "old future"});
  Ask("Undo", {"1"});
  Ask("SetAsmInfo", {"1", "new"});
  EXPECT_EQ(Code("Redo", {"1"}), Code_::NothingToRedo);
  EXPECT_EQ(Code("Undo", {"1"}), Code_::Done);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "plate");
  EXPECT_EQ(Code("Redo", {"1"}), Code_::Done);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "new");
}

TEST_F(HandlerChange, ANodeThatMovesTakesItsInstancesAndAllBoxesAlong) {
  Ask("SnapShot");
  const KivByteBuffer vcBefore = State();
  const DorDecodedAnswer z = Ask("SetInstPathPartMatrix", MatrixWords("2", Shift(0, 0, 20)));
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Int(z.m_vzValue, "instances"), 2);
  EXPECT_EQ(Box(Ask("GetAsmTreeInfo").m_vzValue), (Doubles{0, 0, -1, 10, 10, 24}));
  EXPECT_EQ(Box(Ask("GetFaceInfo", {"1", "1"}).m_vzValue), (Doubles{1, 1, 20, 3, 3, 24}));
  EXPECT_EQ(Box(Ask("GetAsmInfo", {"4"}).m_vzValue), (Doubles{7, 7, 20, 9, 9, 24}));
  EXPECT_EQ(Floats(Ask("GetAsmInfo", {"4"}).m_vzValue, "absolute"), Shift(8, 8, 20));
  EXPECT_EQ(Floats(Ask("GetAsmInfo", {"4"}).m_vzValue, "matrix"), Shift(8, 8, 0));
  EXPECT_NEAR(Floats(Ask("CalcDistFaceFace", {"0", "1", "1", "2", "0", "0,0,0"}).m_vzValue, "distance")[0], 20, 1e-12);
  Ask("Undo", {"1"});
  EXPECT_EQ(State(), vcBefore);
  EXPECT_NEAR(Floats(Ask("CalcDistFaceFace", {"0", "1", "1", "2", "0", "0,0,0"}).m_vzValue, "distance")[0], 5, 1e-12);
}

TEST_F(HandlerChange, AMatrixThatIsNoneChangesNothing) {
  const KivByteBuffer vcBefore = State();
  const auto CodeOf = [&](std::vector<double> vd) { return Code("SetInstPathPartMatrix", MatrixWords("3", vd)); };
  std::vector<double> vd = Shift(1, 2, 3);
  vd[3] = 1;
  EXPECT_EQ(CodeOf(vd), Code_::BadMatrix) << "not affine";
  vd = Shift(1, 2, 3);
  vd[15] = 2;
  EXPECT_EQ(CodeOf(vd), Code_::BadMatrix);
  vd = Shift(1, 2, 3);
  vd[10] = 0;
  EXPECT_EQ(CodeOf(vd), Code_::BadMatrix) << "flat";
  EXPECT_EQ(CodeOf(std::vector<double>(16, 0)), Code_::BadMatrix);
  EXPECT_EQ(CodeOf(Shift(1e300, 0, 0)), Code_::NotANumber) << "its box is beyond floats";
  vd = Shift(0, 0, 0);
  vd[0] = vd[5] = vd[10] = 1e200;
  EXPECT_EQ(CodeOf(vd), Code_::NotANumber);
  std::vector<std::string> vstr = MatrixWords("3", Shift(0, 0, 0));
  vstr[1] = "nan";
  EXPECT_EQ(Code("SetInstPathPartMatrix", vstr), Code_::NotANumber);
  EXPECT_EQ(State(), vcBefore);
  vd = Shift(0, 0, 0);
  vd[0] = -1e-4;
  vd[5] = vd[10] = 1e-4;
  EXPECT_EQ(CodeOf(vd), Code_::Done) << "small and mirrored is a matrix like others";
}

TEST_F(HandlerChange, AColourIsThatOfTheFaceInAllPlacesAndNothingElseOfTheMeshChanges) {
  const KivByteBuffer vcGeometry = Send(u"DorHandler_GetEdgeInfo", Payload({0, 1}));
  const auto vdArea = Floats(Ask("GetFaceInfo", {"1", "1"}).m_vzValue, "area");
  const DorDecodedAnswer z = Ask("SetFaceInfo", {"1", "1", "0.25", "0.5", "0.75", "1"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Int(z.m_vzValue, "instances"), 2);
  for (const char* szInstance : {"1", "2"}) {
    const DorDecodedAnswer zInfo = Ask("GetFaceInfo", {szInstance, "1"});
    ASSERT_EQ(List(zInfo.m_vzValue, "colour").size(), 1u);
    EXPECT_EQ(Floats(List(zInfo.m_vzValue, "colour")[0], "rgba"), (Doubles{0.25, 0.5, 0.75, 1}));
    EXPECT_EQ(Floats(zInfo.m_vzValue, "area"), vdArea);
  }
  EXPECT_TRUE(List(Ask("GetFaceInfo", {"1", "2"}).m_vzValue, "colour").empty());
  EXPECT_EQ(Send(u"DorHandler_GetEdgeInfo", Payload({0, 1})), vcGeometry);
  for (const char* szBad : {"-0.1", "1.01", "1e300"})
    EXPECT_EQ(Code("SetFaceInfo", {"1", "1", "0", szBad, "0", "1"}), Code_::BadArgument);
}

TEST_F(HandlerChange, AFaceThatIsRemovedGoesFromAllLevelsPlacesAndBoxesWithItsGeometry) {
  Ask("SnapShot");
  const KivByteBuffer vcBefore = State();
  const DorDecodedAnswer z = Ask("DelFaceInfo", {"1", "1"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Int(z.m_vzValue, "instances"), 2);
  EXPECT_EQ(Code("GetFaceInfo", {"2", "1"}), Code_::UnknownFace);
  EXPECT_EQ(Code("DelFaceInfo", {"2", "1"}), Code_::UnknownFace);
  EXPECT_EQ(Box(Ask("GetAsmTreeInfo").m_vzValue), (Doubles{0, 0, -1, 10, 10, 5}));
  EXPECT_EQ(Code("DelFaceInfo", {"1", "2"}), Code_::Done);
  EXPECT_EQ(Box(Ask("GetAsmTreeInfo").m_vzValue), (Doubles{0, 0, -1, 10, 10, 0})) << "the bolts are empty";
  EXPECT_TRUE(Box(Ask("GetAsmInfo", {"3"}).m_vzValue).empty());
  EXPECT_EQ(Code("DelFaceInfo", {"0", "2"}), Code_::Done);
  EXPECT_EQ(Code("GetEdgeInfo", {"0", "1"}), Code_::Done) << "edges stay, and their geometry";
  EXPECT_EQ(List(Ask("GetEdgeInfo", {"0", "1"}).m_vzValue, "analytic").size(), 1u);
  EXPECT_EQ(Read(Model()), 0) << "the file is as it was";
  EXPECT_EQ(State(), vcBefore);
}

TEST_F(HandlerChange, AFileThatIsWrittenOpensAndShowsTheChanges) {
  Ask("SetAsmInfo", {"1", "front plate"});
  Ask("SetInstPathPartMatrix", MatrixWords("4", Shift(3, 3, 3)));
  Ask("SetFaceInfo", {"0", "1", "0.5", "0.5", "0.5", "1"});
  Ask("DelFaceInfo", {"0", "2"});
  const KivByteBuffer vcState = State();
  const KivWString csNew = m_zFolder / u"new.kiv";
  const DorDecodedAnswer z = Ask("WriteDor", {Utf8(csNew), "0", "1", "0", "0"});
  ASSERT_EQ(z.m_iCode, 0) << Utf8(z.m_csReason);
  EXPECT_EQ(Int(z.m_vzValue, "bytes"), static_cast<int64_t>(m_zFolder.ReadBytes(u"new.kiv").size()));
  Send(u"DorHandler_ClearModel", Payload({}));
  EXPECT_EQ(Findings(csNew), "");
  ASSERT_EQ(Read(csNew), 0);
  KivByteBuffer vcRead = State();
  // The path, which comes first, differs.
  const size_t nHead = 8 + 8 + 2 * csNew.size(), nOldHead = 8 + 8 + 2 * Model().size();
  EXPECT_TRUE(std::equal(vcRead.begin() + static_cast<ptrdiff_t>(nHead), vcRead.end(),
                         vcState.begin() + static_cast<ptrdiff_t>(nOldHead), vcState.end()));
  EXPECT_EQ(Code("SetAsmInfo", {"0", "edited again"}), Code_::Done);
}

TEST_F(HandlerChange, AFileIsWrittenWholeOrNotAtAllAndNeverOverAnotherUnasked) {
  const std::string strModel = m_zFolder.ReadBytes(u"machine.kiv");
  m_zFolder.WriteBytes(u"there.kiv", "something else");
  const auto CodeOf = [&](const KivWString& csPath, const char* szOverwrite, const char* szVerify = "0",
                          const char* szReserved = "0") {
    return Code("WriteDor", {Utf8(csPath), szOverwrite, szVerify, szReserved, "0"});
  };
  EXPECT_EQ(CodeOf(m_zFolder / u"there.kiv", "0"), Code_::WouldOverwrite);
  EXPECT_EQ(m_zFolder.ReadBytes(u"there.kiv"), "something else");
  EXPECT_EQ(CodeOf(Model(), "1"), Code_::OwnFile);
  EXPECT_EQ(CodeOf(Model(), "0"), Code_::OwnFile);
  EXPECT_EQ(CodeOf(u"relative.kiv", "0"), Code_::BadPath);
  EXPECT_EQ(CodeOf(u"", "0"), Code_::BadPath);
  EXPECT_EQ(CodeOf(m_zFolder.Path(), "1"), Code_::BadPath) << "a folder";
  EXPECT_EQ(CodeOf(m_zFolder / u"no such folder" + KivWString(1, sys::kSeparator) + u"x.kiv", "0"), Code_::CannotWrite);
  for (const char* szBad : {"2", "-1", "9223372036854775807"}) {
    EXPECT_EQ(CodeOf(m_zFolder / u"x.kiv", szBad), Code_::BadArgument);
    EXPECT_EQ(CodeOf(m_zFolder / u"x.kiv", "0", szBad), Code_::BadArgument);
    EXPECT_EQ(CodeOf(m_zFolder / u"x.kiv", "0", "0", szBad), Code_::BadArgument);
  }
  EXPECT_EQ(CodeOf(m_zFolder / u"there.kiv", "1", "1"), Code_::Done);
  EXPECT_EQ(m_zFolder.ReadBytes(u"machine.kiv"), strModel);
  EXPECT_EQ(FileNum(m_zFolder), 2u) << "no temporary file is left";
  EXPECT_EQ(Read(m_zFolder / u"there.kiv"), 0);
}

TEST_F(HandlerChange, WhyAFileCannotBeWrittenIsSaidInWords) {
  const auto ReasonOf = [&](const KivWString& csPath) {
    return Reason("WriteDor", {Utf8(csPath), "0", "0", "0", "0"});
  };
  EXPECT_EQ(ReasonOf(m_zFolder / u"no such folder" + KivWString(1, sys::kSeparator) + u"x.kiv"),
            "the folder is not there");
  EXPECT_EQ(ReasonOf(m_zFolder / u"machine.kiv" + KivWString(1, sys::kSeparator) + u"x.kiv"), "the folder is not there")
      << "a file in its place";
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileWrite;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  zPlan.m_iKind = KivSysFaultKind::DiskFull;
  {
    const KivSysFaultScope zFull(zPlan);
    EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"x.kiv"), "0", "0", "0", "0"}), Code_::CannotWrite);
    EXPECT_TRUE(zFull.HasFired());
    const std::string strReason = ReasonOf(m_zFolder / u"x.kiv");
    EXPECT_TRUE(strReason == "the file could not be written" || strReason == "the disk has no room for the file")
        << strReason;
  }
  EXPECT_FALSE(sys::PathExists(m_zFolder / u"x.kiv"));
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"x.kiv"), "0", "1", "0", "0"}), Code_::Done);
}

TEST_F(HandlerChange, AFileThatDoesNotReachTheDiskDoesNotTakeItsPlace) {
  m_zFolder.WriteBytes(u"there.kiv", "something else");
  const std::vector<std::string> vstrWords{Utf8(m_zFolder / u"there.kiv"), "1", "0", "0", "0"};
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileFlush;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zNoFlush(zPlan);
    EXPECT_EQ(Code("WriteDor", vstrWords), Code_::CannotWrite);
    EXPECT_TRUE(zNoFlush.HasFired());
  }
  EXPECT_EQ(m_zFolder.ReadBytes(u"there.kiv"), "something else");
  EXPECT_EQ(FileNum(m_zFolder), 2u) << "no temporary file is left";
  EXPECT_EQ(Code("WriteDor", vstrWords), Code_::Done);
}

TEST_F(HandlerChange, TheLongestNameThatAFileCanHaveIsWritten) {
  const size_t nFolder = m_zFolder.Path().size();
  const size_t nName = sys::kSeparator == u'\\' ? 258 - nFolder : 255;  // there the whole path counts
  const KivWString csPath = m_zFolder / (KivWString(nName - 4, u'n') + u".kiv");
  EXPECT_EQ(Code("WriteDor", {Utf8(csPath), "0", "1", "0", "0"}), Code_::Done);
  EXPECT_EQ(Code("WriteDor", {Utf8(csPath), "1", "1", "0", "0"}), Code_::Done);
  EXPECT_EQ(Read(csPath), 0);
}

TEST_F(HandlerChange, FilesThatHaveTheNameOfATemporaryOneStay) {
  const KivWString csStem = u".dor" + sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber()));
  const std::vector<KivWString> vcsName{csStem + u"-0.tmp", csStem + u"-1.tmp"};
  m_zFolder.WriteBytes(vcsName[0], "somebody's");
  m_zFolder.WriteBytes(vcsName[1], "");
  EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / u"new.kiv"), "0", "1", "0", "0"}), Code_::Done);
  EXPECT_EQ(m_zFolder.ReadBytes(vcsName[0]), "somebody's");
  EXPECT_TRUE(sys::PathExists(m_zFolder / vcsName[1]));
  EXPECT_EQ(FileNum(m_zFolder), 4u);
}

TEST_F(HandlerChange, TextsWithAZeroInThemAreRefused) {
  const std::string strThere = "something else";
  m_zFolder.WriteBytes(u"there.kiv", strThere);
  const auto WithZero = [](const std::string& str) { return str + std::string(1, '\0') + "tail"; };
  EXPECT_EQ(Code("WriteDor", {WithZero(Utf8(m_zFolder / u"there.kiv")), "1", "0", "0", "0"}), Code_::BadPath);
  EXPECT_EQ(m_zFolder.ReadBytes(u"there.kiv"), strThere);
  const KivByteBuffer vcBefore = State();
  EXPECT_EQ(Code("SetAsmInfo", {"1", WithZero("a")}), Code_::BadArgument);
  EXPECT_EQ(State(), vcBefore);
}

TEST_F(HandlerChange, ANameHasAtMost4096Units) {
  std::string strPairs;  // two units each
  for (int i = 0; i < 2048; ++i) strPairs += "\xF0\x9F\x94\xA9";
  for (const std::string& strLongest : {std::string(4096, 'n'), strPairs}) {
    EXPECT_EQ(Code("SetAsmInfo", {"1", strLongest}), Code_::Done);
    EXPECT_TRUE(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name") == strLongest);
    EXPECT_EQ(Code("SetAsmInfo", {"1", strLongest + "n"}), Code_::BadArgument);
    EXPECT_TRUE(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name") == strLongest);
  }
  EXPECT_EQ(Code("SetAsmInfo", {"1", ""}), Code_::Done);
}

TEST_F(HandlerChange, MoreSnapshotsThanAreKeptForgetTheOldest) {
  Ask("SnapShot");
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(Code("SetAsmInfo", {"1", "name " + std::to_string(i)}), Code_::Done);
    ASSERT_EQ(Code("SnapShot"), Code_::Done);
  }
  const DorDecodedAnswer z = Ask("Undo", {"1000"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Int(z.m_vzValue, "steps_done"), 255);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "name 44");
  EXPECT_EQ(Int(Ask("Redo", {"1000"}).m_vzValue, "steps_done"), 255);
  EXPECT_EQ(Text(Ask("GetAsmInfo", {"1"}).m_vzValue, "name"), "name 299");
}
