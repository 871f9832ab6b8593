// Any requests in any order: a code each, and the handler goes on.
#include <cmath>
#include <limits>
#include <random>

#include "DorHandlerTest.h"

using namespace kiv;
using namespace kivtest;

namespace {

using HandlerRandom = HandlerTest;

int64_t RandomInteger(std::mt19937& zRandom) {
  static constexpr int64_t kOdd[] = {-1, 3, 5, 100, INT64_MAX, INT64_MIN, int64_t{1} << 32, 0xFFFFFFFF};
  return zRandom() % 5 != 0 ? static_cast<int64_t>(zRandom() % 3) : kOdd[zRandom() % std::size(kOdd)];
}

double RandomFloat(std::mt19937& zRandom) {
  static const double kOdd[] = {std::nan(""), std::numeric_limits<double>::infinity(), 1e300, -1e-300, 1e38};
  if (zRandom() % 60 == 0) return kOdd[zRandom() % std::size(kOdd)];
  return static_cast<double>(zRandom() % 5) / 4;
}

// Fits the form, or is damaged somewhere.
KivByteBuffer RandomPayload(const DorRequestRow& zRow, std::mt19937& zRandom, const KivWString& csPath) {
  KivByteBuffer vc;
  bool bMatrix = std::string(zRow.m_szForm).size() == 18;
  int nFloats = 0;
  for (const char* p = zRow.m_szForm; *p != '\0'; ++p) {
    switch (*p) {
      case 'm':
      case 'i':
        KivPutInt64(vc, RandomInteger(zRandom));
        break;
      case 'f':
        // Mostly a matrix that is one.
        if (bMatrix && zRandom() % 64 != 0)
          KivPutDouble(vc, nFloats % 5 == 0 ? 1 : nFloats / 4 == 3 ? static_cast<double>(zRandom() % 50) : 0);
        else
          KivPutDouble(vc, RandomFloat(zRandom));
        ++nFloats;
        break;
      case 's':
        KivPutString(vc, zRandom() % 3 == 0 ? csPath : KivWString(zRandom() % 40, u'n'));
        break;
      case 'c':
        for (int i = 0; i < 3; ++i) KivPutDouble(vc, RandomFloat(zRandom));
        break;
      default:
        KivPutInt64(vc, RandomInteger(zRandom));
        break;
    }
  }
  if (zRandom() % 20 == 0) vc.resize(zRandom() % (vc.size() + 9));
  if (zRandom() % 20 == 0 && !vc.empty()) vc[zRandom() % vc.size()] ^= static_cast<uint8_t>(1 + zRandom() % 255);
  return vc;
}

}  // namespace

TEST_F(HandlerRandom, EachRequestHasOneCodeAndEverythingGoesOn) {
  for (const uint32_t iSeed : {1u, 2u, 3u}) {
    SCOPED_TRACE(iSeed);
    std::mt19937 zRandom(iSeed);
    std::set<int64_t> siCode;
    for (int i = 0; i < 1500; ++i) {
      const auto vzTable = DorRequestTable();
      const DorRequestRow& zRow = vzTable[zRandom() % vzTable.size()];
      if (zRow.m_iFamily != DorRequestFamily::Forward || (zRow.m_szAnswer == nullptr && zRandom() % 8 != 0)) continue;
      const KivWString csPath = m_zFolder / (u"out" + sys::Utf8ToWide(std::to_string(zRandom() % 3)) + u".kiv");
      const KivByteBuffer vcResult = Send(KivWString(zRow.m_csName), RandomPayload(zRow, zRandom, csPath));
      DorDecodedAnswer zAnswer;
      ASSERT_TRUE(DorDecodeAnswer(zRow, vcResult, zAnswer)) << Utf8(KivWString(zRow.m_csName));
      EXPECT_STRNE(DorAnswerCodeText(zAnswer.m_iCode), "unknown code");
      EXPECT_NE(zAnswer.m_iCode, static_cast<int64_t>(DorAnswerCode::Damaged)) << Utf8(zAnswer.m_csReason);
      EXPECT_NE(zAnswer.m_iCode, static_cast<int64_t>(DorAnswerCode::Failed))
          << Utf8(KivWString(zRow.m_csName)) << ": " << Utf8(zAnswer.m_csReason);
      siCode.insert(zAnswer.m_iCode);
      if (zRandom() % 400 == 0) Send(KivWString(kDorClearModel), Payload({}));
      if (zRandom() % 200 == 0) Read(Model());
    }
    EXPECT_GT(siCode.size(), 8u);
    EXPECT_EQ(Read(Model()), 0);
    EXPECT_EQ(Code("GetAsmTreeInfo"), DorAnswerCode::Done);
  }
}

// A second model of what undo and redo do: whole states in a list.
TEST_F(HandlerRandom, UndoAndRedoAgreeWithAListOfStates) {
  for (const uint32_t iSeed : {11u, 12u, 13u, 14u}) {
    SCOPED_TRACE(iSeed);
    ASSERT_EQ(Read(Model()), 0);
    std::mt19937 zRandom(iSeed);
    std::vector<KivByteBuffer> vvcHeld;
    size_t iNow = 0;  // the held state that is the present one, or that the present one came from
    bool bHeld = false;
    KivByteBuffer vcNow = State();
    const auto Hold = [&] {
      if (bHeld) return;
      if (!vvcHeld.empty()) vvcHeld.resize(iNow + 1);
      vvcHeld.push_back(vcNow);
      iNow = vvcHeld.size() - 1;
      bHeld = true;
    };
    for (int i = 0; i < 60; ++i) {
      const std::string strSteps = std::to_string(1 + zRandom() % 3);
      switch (zRandom() % 6) {
        case 0:
          ASSERT_EQ(Code("SnapShot"), DorAnswerCode::Done);
          Hold();
          break;
        case 1: {
          const bool bCan = bHeld ? iNow > 0 : !vvcHeld.empty();
          ASSERT_EQ(Code("Undo", {strSteps}), bCan ? DorAnswerCode::Done : DorAnswerCode::NothingToUndo);
          if (!bCan) break;
          Hold();
          iNow -= std::min<size_t>(iNow, std::stoul(strSteps));
          break;
        }
        case 2: {
          const bool bCan = bHeld && iNow + 1 < vvcHeld.size();
          ASSERT_EQ(Code("Redo", {strSteps}), bCan ? DorAnswerCode::Done : DorAnswerCode::NothingToRedo);
          if (bCan) iNow = std::min(vvcHeld.size() - 1, iNow + std::stoul(strSteps));
          break;
        }
        default: {
          DorAnswerCode iCode = DorAnswerCode::Done;
          const std::string strInstance = std::to_string(zRandom() % 3), strFace = std::to_string(1 + zRandom() % 2);
          if (zRandom() % 8 == 0)
            iCode = Code("DelFaceInfo", {strInstance, strFace});
          else if (zRandom() % 3 == 0)
            iCode =
                Code("SetFaceInfo", {strInstance, strFace, "0.5", std::to_string(zRandom() % 100 / 100.0), "0", "1"});
          else if (zRandom() % 2 == 0)
            iCode = Code("SetAsmInfo", {std::to_string(zRandom() % 5), std::string(zRandom() % 300, 'x')});
          else
            iCode = Code("SetInstPathPartMatrix",
                         MatrixWords(std::to_string(zRandom() % 5), Shift(zRandom() % 50, zRandom() % 9, 1)));
          if (iCode == DorAnswerCode::Done) {
            vcNow = State();
            bHeld = false;
          } else {
            ASSERT_EQ(iCode, DorAnswerCode::UnknownFace);
          }
          break;
        }
      }
      if (bHeld) vcNow = vvcHeld[iNow];
      ASSERT_TRUE(State() == vcNow) << i;
    }
  }
}
