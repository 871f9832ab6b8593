// Requests that look and change nothing; statuses of the read; codes of refusals.
#include <cmath>
#include <limits>
#include <sstream>

#include "DorHandlerTest.h"
#include "DorRequest.h"
#include "KivModelMeaning.h"

using namespace kiv;
using namespace kivtest;

namespace {

using HandlerInfo = HandlerTest;
using Doubles = std::vector<double>;

// 10 x 10 squares of size 1, from the offset on along all axes, of the height that pfnHeight gives.
template <typename Height>
void AddGrid(KivMemoryBlockFaceEdge& zMesh, uint32_t iId, double dOffset, Height&& pfnHeight) {
  std::vector<float> vf;
  std::vector<uint32_t> vi;
  for (uint32_t y = 0; y <= 10; ++y)
    for (uint32_t x = 0; x <= 10; ++x)
      for (const double d : {1.0 * x, 1.0 * y, pfnHeight(1.0 * x, 1.0 * y)})
        vf.push_back(static_cast<float>(dOffset + d));
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 10; ++x) {
      const uint32_t a = y * 11 + x, b = a + 11;
      vi.insert(vi.end(), {a, a + 1, b + 1, a, b + 1, b});
    }
  AddMachineFace(zMesh, iId, vf, vi);
}

}  // namespace

TEST_F(HandlerInfo, TheTreeHasAllNodesWithParentsPlacesAndBoxes) {
  const DorDecodedAnswer z = Ask("GetAsmTreeInfo");
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Text(z.m_vzValue, "path"), Utf8(Model()));
  EXPECT_EQ(Floats(z.m_vzValue, "unit"), Doubles{0.001});
  EXPECT_EQ(Box(z.m_vzValue), (Doubles{0, 0, -1, 10, 10, 9}));
  EXPECT_EQ(Int(z.m_vzValue, "instances"), 3);
  EXPECT_EQ(Int(z.m_vzValue, "parts"), 2);
  const auto& vvzNode = List(z.m_vzValue, "nodes");
  ASSERT_EQ(vvzNode.size(), 5u);
  const std::vector<int64_t> viParent{-1, 0, 0, 2, 2}, viType{3, 1, 2, 1, 1}, viMarks{2, 8, 0, 0, 0};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(Int(vvzNode[i], "node"), static_cast<int64_t>(i));
    EXPECT_EQ(Int(vvzNode[i], "parent"), viParent[i]);
    EXPECT_EQ(Int(vvzNode[i], "type"), viType[i]);
    EXPECT_EQ(Int(vvzNode[i], "marks"), viMarks[i]);
  }
  EXPECT_EQ(Text(vvzNode[4], "name"), "bolt B");
  EXPECT_EQ(Text(vvzNode[4], "part"), "BOLT");
  EXPECT_EQ(Floats(vvzNode[2], "matrix"), Shift(0, 0, 5));
  EXPECT_EQ(Box(vvzNode[4]), (Doubles{7, 7, 5, 9, 9, 9}));
  EXPECT_EQ(Box(vvzNode[2]), (Doubles{1, 1, 5, 9, 9, 9})) << "around its children";
  ASSERT_EQ(List(vvzNode[4], "places").size(), 1u);
  EXPECT_EQ(Int(List(vvzNode[4], "places")[0], "instance"), 2);
  EXPECT_EQ(Int(List(vvzNode[4], "places")[0], "part"), 1);
}

TEST_F(HandlerInfo, ANodeInFullHasWhatIsBelowItAndTheIdsOfItsParts) {
  const DorDecodedAnswer z = Ask("GetAsmInfo", {"1"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Text(z.m_vzValue, "name"), "plate");
  ASSERT_EQ(List(z.m_vzValue, "colour").size(), 1u);
  EXPECT_EQ(Floats(List(z.m_vzValue, "colour")[0], "rgba"), (Doubles{1, 0, 0, 1}));
  EXPECT_TRUE(List(z.m_vzValue, "layer").empty());
  ASSERT_EQ(List(z.m_vzValue, "places").size(), 1u);
  const auto vzPlace = List(z.m_vzValue, "places")[0];
  ASSERT_EQ(List(vzPlace, "levels").size(), 2u);
  EXPECT_EQ(Int(List(vzPlace, "levels")[0], "triangles"), 4);
  EXPECT_EQ(Int(List(vzPlace, "levels")[1], "triangles"), 10);
  EXPECT_NEAR(Floats(List(vzPlace, "levels")[1], "tolerance")[0], 0.1, 1e-6);
  ASSERT_EQ(List(vzPlace, "faces").size(), 2u);
  EXPECT_EQ(Int(List(vzPlace, "faces")[1], "face"), 2);
  ASSERT_EQ(List(vzPlace, "edges").size(), 1u);

  const DorDecodedAnswer zBolt = Ask("GetAsmInfo", {"3"});
  EXPECT_EQ(Floats(zBolt.m_vzValue, "matrix"), Shift(2, 2, 0));
  EXPECT_EQ(Floats(zBolt.m_vzValue, "absolute"), Shift(2, 2, 5));
  const DorDecodedAnswer zBolts = Ask("GetAsmInfo", {"2"});
  ASSERT_EQ(List(zBolts.m_vzValue, "children").size(), 2u);
  EXPECT_EQ(Int(List(zBolts.m_vzValue, "children")[1], "node"), 4);
}

TEST_F(HandlerInfo, AFaceIsShownWhereItStands) {
  const DorDecodedAnswer z = Ask("GetFaceInfo", {"0", "1"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Box(z.m_vzValue), (Doubles{0, 0, 0, 10, 10, 0}));
  EXPECT_EQ(Floats(z.m_vzValue, "area"), Doubles{100});
  ASSERT_EQ(List(z.m_vzValue, "levels").size(), 2u);
  EXPECT_EQ(Int(List(z.m_vzValue, "levels")[0], "vertices"), 4);
  EXPECT_EQ(Int(List(z.m_vzValue, "levels")[1], "triangles"), 8);
  EXPECT_EQ(Int(List(z.m_vzValue, "layer")[0], "layer"), 2);
  EXPECT_TRUE(List(z.m_vzValue, "colour").empty());
  ASSERT_EQ(List(z.m_vzValue, "analytic").size(), 1u);
  EXPECT_EQ(Int(List(z.m_vzValue, "analytic")[0], "type"), static_cast<int64_t>(KivAnalytic::Plane));
  EXPECT_TRUE(List(z.m_vzValue, "nurbs").empty());

  const DorDecodedAnswer zBolt = Ask("GetFaceInfo", {"2", "1"});
  EXPECT_EQ(Int(zBolt.m_vzValue, "part"), 1);
  EXPECT_EQ(Box(zBolt.m_vzValue), (Doubles{7, 7, 5, 9, 9, 9}));
  EXPECT_EQ(Floats(List(zBolt.m_vzValue, "analytic")[0], "radius"), Doubles{1});
  EXPECT_NEAR(Floats(zBolt.m_vzValue, "area")[0], 4 * 16 * std::sin(3.14159265 / 8), 0.2);
}

TEST_F(HandlerInfo, ASurfaceOfPolesComesRowByRow) {
  const DorDecodedAnswer z = Ask("GetFaceInfo", {"0", "2"});
  ASSERT_EQ(List(z.m_vzValue, "nurbs").size(), 1u);
  const auto vz = List(z.m_vzValue, "nurbs")[0];
  EXPECT_EQ(Int(vz, "order_1"), 2);
  EXPECT_EQ(Int(vz, "order_2"), 2);
  EXPECT_EQ(Int(vz, "rows"), 2);
  EXPECT_EQ(List(vz, "knots_2").size(), 4u);
  ASSERT_EQ(List(vz, "poles").size(), 4u);
  EXPECT_EQ(Floats(List(vz, "poles")[2], "pole"), (Doubles{0, 10, -1}));
  EXPECT_EQ(Floats(List(vz, "poles")[2], "weight"), Doubles{1});
  EXPECT_EQ(Floats(List(z.m_vzValue, "colour")[0], "rgba"), (Doubles{0, 0, 1, 1}));
}

TEST_F(HandlerInfo, AnEdgeIsShownWithItsLength) {
  const DorDecodedAnswer z = Ask("GetEdgeInfo", {"0", "1"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_EQ(Floats(z.m_vzValue, "length"), Doubles{10});
  EXPECT_EQ(Int(List(z.m_vzValue, "levels")[1], "points"), 3);
  EXPECT_EQ(Int(List(z.m_vzValue, "analytic")[0], "type"), static_cast<int64_t>(KivAnalytic::Line));
  EXPECT_EQ(Code("GetEdgeInfo", {"1", "1"}), DorAnswerCode::UnknownEdge);
}

TEST_F(HandlerInfo, PlanesAreFoundByExactGeometryElseByTheMesh) {
  const auto Planar = [&](const char* szInstance, const char* szFace) {
    const DorDecodedAnswer z = Ask("IsPlanarFace", {szInstance, szFace});
    EXPECT_EQ(z.m_iCode, 0);
    return std::pair(Int(z.m_vzValue, "planar"), Int(z.m_vzValue, "exact"));
  };
  EXPECT_EQ(Planar("0", "1"), std::pair(int64_t{1}, int64_t{1}));
  EXPECT_EQ(Planar("1", "1"), std::pair(int64_t{0}, int64_t{1}));
  EXPECT_EQ(Planar("1", "2"), std::pair(int64_t{1}, int64_t{0}));
  const DorDecodedAnswer z = Ask("IsPlanarFace", {"1", "2"});
  EXPECT_NEAR(Floats(z.m_vzValue, "normal")[2], -1, 1e-9);
  EXPECT_NEAR(Floats(z.m_vzValue, "point")[2], 5, 1e-9);
}

TEST_F(HandlerInfo, AFlatFaceFarFromTheOriginIsPlanarAndACurvedOneIsNot) {
  const std::vector<double> vdOffset{0, 1e3, 1e4, 1e5, 1e6};
  KivModelBuilder zBuilder;
  zBuilder.SetLevels({1e-4f});
  const size_t iRoot = zBuilder.AddNode(u"grids");
  for (const double dOffset : vdOffset) {
    const size_t iPart = zBuilder.AddPart();
    KivMemoryBlockFaceEdge& zMesh = zBuilder.FaceEdge(iPart, 0);
    zMesh.m_iCoordWidth = 4;
    zMesh.m_fStep = 0x1p-20f;
    for (float& f : zMesh.m_fOrigin) f = static_cast<float>(dOffset - 1);
    AddGrid(zMesh, 1, dOffset, [](double dX, double dY) { return 0.3 * dX + 0.2 * dY; });
    AddGrid(zMesh, 2, dOffset, [](double dX, double dY) { return 0.2 * (dX - 5) * (dX - 5) + 0.2 * dY; });
    zBuilder.PlaceInstance(iPart, KivEMatrix4(), iRoot);
  }
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"grids.kiv"));
  ASSERT_EQ(Read(m_zFolder / u"grids.kiv"), 0);
  for (size_t i = 0; i < vdOffset.size(); ++i) {
    const DorDecodedAnswer zFlat = Ask("IsPlanarFace", {std::to_string(i), "1"});
    EXPECT_EQ(Int(zFlat.m_vzValue, "planar"), 1) << vdOffset[i];
    EXPECT_EQ(Int(zFlat.m_vzValue, "exact"), 0);
    const Doubles vdNormal = Floats(zFlat.m_vzValue, "normal");
    ASSERT_EQ(vdNormal.size(), 3u);
    EXPECT_NEAR(vdNormal[2], 1 / std::sqrt(1.13), 0.01) << vdOffset[i];
    const DorDecodedAnswer zCurved = Ask("IsPlanarFace", {std::to_string(i), "2"});
    EXPECT_EQ(Int(zCurved.m_vzValue, "planar"), 0) << vdOffset[i];
    EXPECT_EQ(Int(zCurved.m_vzValue, "exact"), 0);
    // The parabola's middle lies below the plane of its mean slope, its ends above.
    EXPECT_GT(Floats(zCurved.m_vzValue, "deviation").at(0), 2) << vdOffset[i];
  }
}

TEST_F(HandlerInfo, AnExactNormalKeepsItsDigitsWhateverThePlacement) {
  const double d = std::sqrt(0.5);
  struct Case {
    double m_dShift, m_dScale;
  };
  for (const auto& [dShift, dScale] : {Case{0, 1}, Case{1e10, 1}, Case{1e30, 1}, Case{0, 1e-30}, Case{1e10, 1e-30}}) {
    SCOPED_TRACE(testing::Message() << dShift << ", " << dScale);
    // Turned about the y axis by an eighth.
    const Doubles vdTurned{d, 0, -d, 0, 0, 1, 0, 0, d, 0, d, 0};
    std::vector<std::string> vstr{"1"};
    for (const double dElement : vdTurned) {
      std::ostringstream zText;
      zText.precision(17);
      zText << dElement * dScale;
      vstr.push_back(zText.str());
    }
    for (int i = 0; i < 3; ++i) vstr.push_back(dShift == 0 ? "0" : dShift == 1e10 ? "1e10" : "1e30");
    vstr.push_back("1");
    ASSERT_EQ(Code("SetInstPathPartMatrix", vstr), DorAnswerCode::Done);
    const DorDecodedAnswer z = Ask("IsPlanarFace", {"0", "1"});
    EXPECT_EQ(Int(z.m_vzValue, "exact"), 1);
    const Doubles vd = Floats(z.m_vzValue, "normal");
    ASSERT_EQ(vd.size(), 3u);
    EXPECT_NEAR(vd[0], d, 1e-15);
    EXPECT_NEAR(vd[1], 0, 1e-15);
    EXPECT_NEAR(vd[2], d, 1e-15);
  }
}

TEST_F(HandlerInfo, ANormalLooksToWhereTheTrianglesLookAlsoInAMirror) {
  const auto NormalZ = [&](const char* szFace) {
    const Doubles vd = Floats(Ask("IsPlanarFace", {"0", szFace}).m_vzValue, "normal");
    for (const double d : vd) EXPECT_FALSE(d == 0 && std::signbit(d)) << "-0";
    return vd.size() == 3 ? vd[2] : 0;
  };
  EXPECT_NEAR(NormalZ("1"), 1, 1e-15) << "exact";
  EXPECT_NEAR(NormalZ("2"), 1, 1e-15) << "by the mesh";
  const auto Place = [&](double dX, double dZ) {
    return Code("SetInstPathPartMatrix", MatrixWords("1", {dX, 0, 0, 0, 0, 1, 0, 0, 0, 0, dZ, 0, 0, 0, 0, 1}));
  };
  ASSERT_EQ(Place(1, -1), DorAnswerCode::Done);
  EXPECT_NEAR(NormalZ("1"), -1, 1e-15);
  EXPECT_NEAR(NormalZ("2"), -1, 1e-15);
  ASSERT_EQ(Place(-1, 1), DorAnswerCode::Done);
  EXPECT_NEAR(NormalZ("1"), 1, 1e-15);
  EXPECT_NEAR(NormalZ("2"), 1, 1e-15);
  // The same plane with its material on the other side.
  for (size_t iLevel = 0; iLevel < 2; ++iLevel)
    Edit<KivFaceEdgeData>(MeshKey(0, iLevel), [](auto& zMesh) {
      std::vector<uint32_t>& vi = zMesh.m_vzFace[0].m_viIndex;
      for (size_t i = 0; i < vi.size(); i += 3) std::swap(vi[i], vi[i + 1]);
    });
  EXPECT_NEAR(NormalZ("1"), -1, 1e-15);
}

TEST_F(HandlerInfo, TheDistanceOfTwoFacesHasBothNearestPoints) {
  const DorDecodedAnswer z = Ask("CalcDistFaceFace", {"0", "1", "1", "2", "0", "0,0,0"});
  ASSERT_EQ(z.m_iCode, 0);
  EXPECT_NEAR(Floats(z.m_vzValue, "distance")[0], 5, 1e-12);
  EXPECT_NEAR(Floats(z.m_vzValue, "point_1")[2], 0, 1e-12);
  EXPECT_NEAR(Floats(z.m_vzValue, "point_2")[2], 5, 1e-12);
  EXPECT_EQ(Int(z.m_vzValue, "triangles_1"), 8);
  EXPECT_EQ(Int(z.m_vzValue, "triangles_2"), 8);
  // Between the two bolts: centres are 6 apart along x and y, and the sides face each other.
  const DorDecodedAnswer zBolts = Ask("CalcDistFaceFace", {"1", "1", "2", "1", "0", "0,0,0"});
  EXPECT_NEAR(Floats(zBolts.m_vzValue, "distance")[0], std::hypot(6, 6) - 2, 0.05);
  EXPECT_EQ(Floats(Ask("CalcDistFaceFace", {"0", "1", "0", "1", "0", "0,0,0"}).m_vzValue, "distance"), Doubles{0});
}

TEST_F(HandlerInfo, WhatIsNotThereHasItsCode) {
  for (const char* szBad : {"-1", "5", "9223372036854775807", "-9223372036854775808", "4294967296"}) {
    EXPECT_EQ(Code("GetAsmInfo", {szBad}), DorAnswerCode::UnknownNode) << szBad;
    EXPECT_EQ(Code("SetAsmInfo", {szBad, "x"}), DorAnswerCode::UnknownNode) << szBad;
    EXPECT_EQ(Code("GetFaceInfo", {szBad, "1"}), DorAnswerCode::UnknownInstance) << szBad;
    EXPECT_EQ(Code("GetFaceInfo", {"0", szBad}), DorAnswerCode::UnknownFace) << szBad;
    EXPECT_EQ(Code("GetEdgeInfo", {"0", szBad}), DorAnswerCode::UnknownEdge) << szBad;
    EXPECT_EQ(Code("DelFaceInfo", {"0", szBad}), DorAnswerCode::UnknownFace) << szBad;
    EXPECT_EQ(Code("IsPlanarFace", {szBad, szBad}), DorAnswerCode::UnknownInstance) << szBad;
    EXPECT_EQ(Code("CalcDistFaceFace", {"0", "1", szBad, "1", "0", "0,0,0"}), DorAnswerCode::UnknownInstance) << szBad;
    EXPECT_EQ(Code("CalcDistFaceFace", {"0", "1", "0", "1", szBad, "0,0,0"}), DorAnswerCode::BadArgument) << szBad;
  }
}

TEST_F(HandlerInfo, NumbersThatAreNoneHaveTheirCode) {
  for (const char* szBad : {"nan", "inf", "-inf"}) {
    EXPECT_EQ(Code("CalcDistFaceFace", {"0", "1", "1", "1", "0", std::string("0,0,") + szBad}),
              DorAnswerCode::NotANumber);
    EXPECT_EQ(Code("SetFaceInfo", {"0", "1", "0", "0", szBad, "1"}), DorAnswerCode::NotANumber);
  }
}

// Others would be refused as not offered, or have no form to answer by.
TEST(DorRequestWork, ARequestHasAWorkExactlyIfTheTableHasItsFieldsAndItsAnswer) {
  size_t nWorks = 0;
  for (const DorRequestRow& zRow : DorRequestTable()) {
    const bool bWork = DorFindWork(zRow.m_csName) != nullptr;
    EXPECT_EQ(bWork, zRow.m_szAnswer != nullptr) << sys::WideToUtf8(zRow.m_csName);
    EXPECT_TRUE(!bWork || zRow.m_szFields != nullptr) << sys::WideToUtf8(zRow.m_csName);
    nWorks += bWork;
  }
  EXPECT_GE(nWorks, 15u);
  EXPECT_EQ(DorFindWork(u"no such request"), nullptr);
}

TEST_F(HandlerInfo, ARequestThatIsNotOfferedOrDoesNotFitHasItsCode) {
  EXPECT_EQ(Code("GetFilletIntCurve", {"0", "1"}), DorAnswerCode::NotOffered);
  const auto CodeOf = [&](const KivWString& csName, const KivByteBuffer& vcPayload) {
    uint64_t iCursor = 0;
    int64_t iCode = -1;
    EXPECT_TRUE(KivGetInt64(iCursor, Send(csName, vcPayload), &iCode));
    return static_cast<DorAnswerCode>(iCode);
  };
  EXPECT_EQ(CodeOf(u"DorHandler_GetFaceInfo", Payload({0})), DorAnswerCode::BadPayload);
  EXPECT_EQ(CodeOf(u"DorHandler_GetFaceInfo", Payload({0, 1, 2})), DorAnswerCode::BadPayload);
  EXPECT_EQ(CodeOf(u"DorHandler_GetFaceInfo", {}), DorAnswerCode::BadPayload);
  EXPECT_EQ(CodeOf(u"no such request", Payload({})), DorAnswerCode::NotOffered);
  EXPECT_EQ(CodeOf(u"DorHandler_SetAsmInfo", Payload({1, int64_t{1} << 62})), DorAnswerCode::BadPayload);
}

TEST(DorAnswerWriter, AnAnswerBeyondItsBytesIsRefused) {
  const DorRequestRow& zRow = *DorFindRequest(u"DorHandler_Undo");
  KivByteBuffer vcResult;
  const auto Put = [&](size_t nMostBytes) {
    DorAnswerWriter zAnswer(zRow, vcResult, nMostBytes);
    for (const char* szName : {"steps_done", "undo_steps", "redo_steps"}) zAnswer.Integer(szName, 1);
    zAnswer.Finish();
  };
  EXPECT_NO_THROW(Put(32));
  EXPECT_EQ(vcResult.size(), 32u);
  try {
    Put(8);
    FAIL() << "not refused";
  } catch (const DorRefusal& e) {
    EXPECT_EQ(e.m_iCode, DorAnswerCode::Failed);
    EXPECT_EQ(e.m_strReason, "the answer has more than 8 bytes");
  }
  EXPECT_EQ(vcResult.size(), 16u) << "no more is put";
}

TEST_F(HandlerInfo, WithoutAModelAllIsRefusedAndAReadBringsItBack) {
  Send(u"DorHandler_ClearModel", Payload({}));
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily != DorRequestFamily::Forward) continue;
    uint64_t iCursor = 0;
    int64_t iCode = -1;
    EXPECT_TRUE(KivGetInt64(iCursor, Send(KivWString(zRow.m_csName), Payload({0, 0, 0})), &iCode));
    EXPECT_EQ(static_cast<DorAnswerCode>(iCode), DorAnswerCode::NoModel) << Utf8(KivWString(zRow.m_csName));
  }
  EXPECT_EQ(Read(Model()), 0);
  EXPECT_EQ(Code("GetAsmTreeInfo"), DorAnswerCode::Done);
}

TEST_F(HandlerInfo, TheReadsStatusTellsWhatIsWrongWithTheFile) {
  m_zFolder.WriteBytes(u"empty", "");
  m_zFolder.WriteBytes(u"text", std::string(5000, 'x'));
  std::string strHead(264, '\0');
  strHead.replace(8, 8, std::string(8, '\x14')).replace(16, 8, std::string(8, '\xB0'));
  m_zFolder.WriteBytes(u"head", strHead);
  m_zFolder.WriteBytes(u"package", std::string(12, '\0') + "M1K2I3V4");
  EXPECT_EQ(Read(m_zFolder / u"missing"), 10);
  EXPECT_EQ(Code("GetAsmTreeInfo"), DorAnswerCode::NoModel) << "the model before it is closed";
  EXPECT_EQ(Read(m_zFolder / u"empty"), 20);
  EXPECT_EQ(Read(m_zFolder / u"text"), 20);
  EXPECT_EQ(Read(m_zFolder / u"head"), 20) << "a container without a model in it";
  EXPECT_EQ(Read(m_zFolder / u"package"), 20);
  EXPECT_EQ(Read(Model()), 0);
  EXPECT_EQ(Read(Model()), 0) << "again";
  EXPECT_EQ(Code("DoNothing"), DorAnswerCode::Done);
}

TEST_F(HandlerInfo, EveryCutOfAModelIsAStatusOrAModel) {
  const std::string strModel = m_zFolder.ReadBytes(u"machine.kiv");
  for (size_t n = 0; n < strModel.size(); n += 997) {
    m_zFolder.WriteBytes(u"cut", strModel.substr(0, n));
    const int32_t iStatus = Read(m_zFolder / u"cut");
    EXPECT_TRUE(iStatus == 0 || iStatus == 20 || iStatus == 30) << n;
    for (const char* szName : {"GetAsmTreeInfo", "DoNothing"}) Ask(szName);
    if (iStatus == 0) State();
  }
}
