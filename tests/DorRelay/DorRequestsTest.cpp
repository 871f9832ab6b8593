#include "DorRequests.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "DorAnswerForm.h"
#include "DorAnswerText.h"
#include "DorClient.h"
#include "DorRelayFake.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct DocumentedRow {
  std::string m_strName, m_strForm, m_strFamily;
};

std::vector<std::string> Cells(const std::string& strLine) {
  std::vector<std::string> vstrCells;
  std::stringstream zLine(strLine.substr(1));
  for (std::string strCell; std::getline(zLine, strCell, '|');) {
    const size_t iFirst = strCell.find_first_not_of(' '), iLast = strCell.find_last_not_of(' ');
    vstrCells.push_back(iFirst == std::string::npos ? "" : strCell.substr(iFirst, iLast - iFirst + 1));
  }
  return vstrCells;
}

// "model, 2 i, c" as the letters of the code.
std::string FormOf(std::string strText) {
  static const std::map<std::string, char> mapLetters{{"model", 'm'}, {"i", 'i'},     {"f", 'f'},    {"s", 's'},
                                                      {"c", 'c'},     {"curve", 'k'}, {"tail", 't'}, {"count", 'n'}};
  std::string strForm;
  std::stringstream zText(strText);
  for (std::string strField; std::getline(zText, strField, ',');) {
    std::stringstream zField(strField);
    std::string strWord;
    zField >> strWord;
    size_t nTimes = 1;
    if (std::isdigit(static_cast<unsigned char>(strWord[0]))) {
      nTimes = std::stoul(strWord);
      zField >> strWord;
    }
    if (strWord == "curves" || strWord == "nothing") continue;  // the count has told it
    strForm += std::string(nTimes, mapLetters.at(strWord));
  }
  return strForm;
}

std::vector<DocumentedRow> DocumentedRows() {
  std::ifstream zFile(KIV_TEST_DOCS_DIR "/requests.md");
  std::vector<DocumentedRow> vzRows;
  bool bTable = false;
  for (std::string strLine; std::getline(zFile, strLine);) {
    if (strLine.starts_with("## ")) bTable = strLine == "## Table";
    if (!bTable || !strLine.starts_with("| `")) continue;
    const std::vector<std::string> vstrCells = Cells(strLine);
    vzRows.push_back({vstrCells[0].substr(1, vstrCells[0].size() - 2), FormOf(vstrCells[1]), vstrCells[2]});
  }
  return vzRows;
}

const char* FamilyName(DorRequestFamily iFamily) {
  switch (iFamily) {
    case DorRequestFamily::Open:
      return "open";
    case DorRequestFamily::Close:
      return "close";
    case DorRequestFamily::Forward:
      return "forward";
    case DorRequestFamily::Refused:
      return "refused";
  }
  return "";
}

std::string Built(const char16_t* szName, const std::vector<std::string>& vstrWords) {
  KivByteBuffer vcPayload;
  std::string strError;
  if (!DorBuildPayload(*DorFindRequest(szName), 5, vstrWords, vcPayload, strError)) return "error: " + strError;
  return std::string(vcPayload.begin(), vcPayload.end());
}

std::string Expected(const std::function<void(KivByteBuffer&)>& pfnPut) {
  KivByteBuffer vc;
  KivPutInt64(vc, 5);
  pfnPut(vc);
  return std::string(vc.begin(), vc.end());
}

}  // namespace

TEST(DorRequests, TheDocumentedTableIsTheTableOfTheCode) {
  const std::vector<DocumentedRow> vzRows = DocumentedRows();
  ASSERT_EQ(vzRows.size(), DorRequestTable().size());
  for (size_t i = 0; i < vzRows.size(); ++i) {
    const DorRequestRow& zRow = DorRequestTable()[i];
    EXPECT_EQ(vzRows[i].m_strName, sys::WideToUtf8(zRow.m_csName));
    EXPECT_EQ(vzRows[i].m_strForm, zRow.m_szForm) << vzRows[i].m_strName;
    EXPECT_EQ(vzRows[i].m_strFamily, FamilyName(zRow.m_iFamily)) << vzRows[i].m_strName;
  }
}

TEST(DorRequests, TheDocumentedFieldsAndAnswersAreThoseOfTheCode) {
  std::map<std::string, std::pair<std::string, std::string>> mapDocumented, mapCode;
  std::ifstream zFile(KIV_TEST_DOCS_DIR "/requests.md");
  bool bTable = false;
  for (std::string strLine; std::getline(zFile, strLine);) {
    if (strLine.starts_with("## ")) bTable = strLine == "## Fields and answers";
    if (!bTable || !strLine.starts_with("| `")) continue;
    const std::vector<std::string> vstrCells = Cells(strLine);
    if (vstrCells.size() == 3 && vstrCells[0].starts_with("`DorHandler_"))
      mapDocumented[vstrCells[0].substr(1, vstrCells[0].size() - 2)] = {vstrCells[1], vstrCells[2]};
  }
  const auto Documented = [](const char* sz) { return *sz == '\0' ? std::string("nothing") : std::string(sz); };
  for (const DorRequestRow& zRow : DorRequestTable())
    if (zRow.m_szAnswer != nullptr)
      mapCode[sys::WideToUtf8(zRow.m_csName)] = {Documented(zRow.m_szFields), Documented(zRow.m_szAnswer)};
  EXPECT_EQ(mapDocumented, mapCode);
  EXPECT_GT(mapCode.size(), 10u);
}

TEST(DorRequests, TheDocumentedCodesAreThoseOfTheCode) {
  std::ifstream zFile(KIV_TEST_DOCS_DIR "/requests.md");
  int64_t nCodes = 0;
  for (std::string strLine; std::getline(zFile, strLine);) {
    if (!strLine.starts_with("| " + std::to_string(nCodes) + " | ")) continue;
    if (Cells(strLine).size() < 3 || Cells(strLine)[1] != DorAnswerCodeText(nCodes)) continue;
    ++nCodes;
  }
  EXPECT_EQ(nCodes, static_cast<int64_t>(DorAnswerCode::CannotWrite) + 1);
  EXPECT_STREQ(DorAnswerCodeText(nCodes), "unknown code");
  EXPECT_STREQ(DorAnswerCodeText(-1), "unknown code");
}

TEST(DorRequests, NamedFieldsAreThoseOfTheForm) {
  for (const DorRequestRow& zRow : DorRequestTable()) {
    const DorForm* pzFields = DorFieldsOf(zRow);
    EXPECT_EQ(pzFields == nullptr, zRow.m_szFields == nullptr);
    if (pzFields == nullptr) continue;
    std::string strForm = zRow.m_iFamily == DorRequestFamily::Open ? "" : "m";
    for (const DorField& zField : *pzFields) strForm += std::string(zField.m_nTimes, zField.m_cKind);
    EXPECT_EQ(strForm, zRow.m_szForm) << sys::WideToUtf8(zRow.m_csName);
  }
}

TEST(DorAnswerForm, WhatIsNoFormIsRefused) {
  for (const char* szBad : {"i", "i ", "x name", "i a,", "i a, ", "i a,i b", "list l", "list l ()", "list l (i a",
                            "2 s a", "0 i a", "i a)", "ii a", "list (i a)"})
    EXPECT_THROW(DorParseForm(szBad), std::logic_error) << szBad;
  EXPECT_TRUE(DorParseForm("").empty());
  const DorForm zForm = DorParseForm("i a, list b (c p, list q (2 f r)), s t");
  ASSERT_EQ(zForm.size(), 3u);
  EXPECT_EQ(zForm[1].m_vzItem[1].m_vzItem[0].m_nTimes, 2u);
}

TEST(DorAnswerForm, AnAnswerThatDoesNotFitToTheLastByteIsNotDecoded) {
  const DorRequestRow& zRow = *DorFindRequest(u"DorHandler_GetAsmInfo");
  KivByteBuffer vc;
  for (int64_t i : {0, 3, -1, 1}) KivPutInt64(vc, i);
  for (const char16_t* sz : {u"a", u"", u"ccc"}) KivPutString(vc, sz);
  for (int i = 0; i < 32; ++i) KivPutDouble(vc, i);
  for (int64_t i : {0, 0, 0, 0, 2, 7, 8, 0}) KivPutInt64(vc, i);
  DorDecodedAnswer z;
  ASSERT_TRUE(DorDecodeAnswer(zRow, vc, z));
  EXPECT_EQ(DorFindValue(z.m_vzValue, "children")->Item(1)[0].m_viInteger[0], 8);
  for (size_t n = 0; n < vc.size(); ++n)
    EXPECT_FALSE(DorDecodeAnswer(zRow, KivByteBuffer(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n)), z)) << n;
  vc.push_back(0);
  EXPECT_FALSE(DorDecodeAnswer(zRow, vc, z));
  vc.pop_back();
  for (const int64_t nItems : {int64_t{-1}, INT64_MAX, INT64_MIN, int64_t{1} << 61, int64_t{9}}) {
    KivByteBuffer vcLying(vc.begin(), vc.end() - 8);
    KivPutInt64(vcLying, nItems);
    EXPECT_FALSE(DorDecodeAnswer(zRow, vcLying, z)) << nItems;
  }
}

// Each value of its own would take twenty times the answer.
TEST(DorAnswerForm, ItemsOfNumbersAloneTakeTheRoomOfTheirNumbers) {
  const DorRequestRow& zRow = *DorFindRequest(u"DorHandler_GetEdgeInfo");
  constexpr int64_t kPoles = 1000;
  KivByteBuffer vc;
  for (int64_t i : {0, 3, 0}) KivPutInt64(vc, i);
  KivPutDouble(vc, 2.5);
  for (int64_t i : {2}) KivPutInt64(vc, i);  // levels
  for (int i = 0; i < 2; ++i) {
    KivPutDouble(vc, 0.5 + i);
    KivPutInt64(vc, 70 + i);
  }
  for (int64_t i : {0, 0, 0, 1, 4, 0}) KivPutInt64(vc, i);  // no colour, layer, analytic; a curve without knots
  KivPutInt64(vc, kPoles);
  for (int i = 0; i < 4 * kPoles; ++i) KivPutDouble(vc, i);
  DorDecodedAnswer z;
  ASSERT_TRUE(DorDecodeAnswer(zRow, vc, z));
  const DorValue zLevels = *DorFindValue(z.m_vzValue, "levels");
  ASSERT_EQ(zLevels.m_nItems, 2u);
  EXPECT_EQ(DorFindValue(zLevels.Item(1), "tolerance")->m_vdFloat, std::vector<double>{1.5});
  EXPECT_EQ(DorFindValue(zLevels.Item(1), "points")->m_viInteger, std::vector<int64_t>{71});
  const DorValue zPoles = *DorFindValue(DorFindValue(z.m_vzValue, "nurbs")->Item(0), "poles");
  EXPECT_EQ(zPoles.m_nItems, static_cast<size_t>(kPoles));
  EXPECT_TRUE(zPoles.m_vvzItem.empty());
  EXPECT_EQ(zPoles.m_vdFloat.size(), static_cast<size_t>(4 * kPoles));
  EXPECT_EQ(DorFindValue(zPoles.Item(999), "pole")->m_vdFloat, (std::vector<double>{3996, 3997, 3998}));
  EXPECT_EQ(DorFindValue(zPoles.Item(999), "weight")->m_vdFloat, std::vector<double>{3999});
}

TEST(DorAnswerText, AThousandItemsAnd256BytesAreShown) {
  DorSpoken z;
  z.m_pzRow = DorFindRequest(u"DorHandler_GetEdgeInfo");
  const auto TextOf = [&](int64_t nLevels, int64_t nKnots) {
    KivByteBuffer& vc = z.m_zAnswer.m_vcResult;
    vc.clear();
    for (int64_t i : {0, 3, 0}) KivPutInt64(vc, i);
    KivPutDouble(vc, 2.5);
    KivPutInt64(vc, nLevels);
    for (int64_t i = 0; i < nLevels; ++i) {
      KivPutDouble(vc, 0.5);
      KivPutInt64(vc, i);
    }
    for (int64_t i : {0, 0, 0, 1, 4}) KivPutInt64(vc, i);
    KivPutInt64(vc, nKnots);
    for (int64_t i = 0; i < nKnots; ++i) KivPutDouble(vc, static_cast<double>(i));
    KivPutInt64(vc, 0);
    z.m_bDecoded = DorDecodeAnswer(*z.m_pzRow, vc, z.m_zDecoded);
    EXPECT_TRUE(z.m_bDecoded);
    return DorAnswerText(z);
  };
  const auto Holds = [](const std::string& str, const char* szPart) { return str.find(szPart) != std::string::npos; };
  const std::string strWhole = TextOf(1000, 1000), strCut = TextOf(1001, 1001);
  for (const std::string& str : {strWhole, strCut}) {
    EXPECT_TRUE(Holds(str, "    - tolerance 0.5, points 999\n"));
    EXPECT_TRUE(Holds(str, ", 998, 999"));
    EXPECT_FALSE(Holds(str, "points 1000") || Holds(str, ", 1000"));
  }
  EXPECT_TRUE(strWhole.find("...") == std::string::npos);
  EXPECT_TRUE(Holds(strCut, "  levels: 1001\n"));
  EXPECT_TRUE(Holds(strCut, "points 999\n    ...\n"));
  EXPECT_TRUE(Holds(strCut, ", 999, ...\n"));

  z.m_bDecoded = false;
  z.m_zAnswer.m_vcResult.assign(256, 0xab);
  EXPECT_TRUE(DorAnswerText(z).ends_with("abab\n"));
  z.m_zAnswer.m_vcResult.push_back(0xcd);
  EXPECT_TRUE(DorAnswerText(z).ends_with("abab...\n"));
}

TEST(DorWords, ALineIsSplitAsAShellDoes) {
  std::vector<std::string> vstr;
  std::string strError;
  const auto Split = [&](const std::string& strLine) {
    EXPECT_TRUE(DorSplitWords(strLine, vstr, strError)) << strLine;
    return vstr;
  };
  using Words = std::vector<std::string>;
  EXPECT_EQ(Split("  SetAsmInfo 3\t'front plate'  "), (Words{"SetAsmInfo", "3", "front plate"}));
  EXPECT_EQ(Split("a\"b c\"d '' \"\""), (Words{"ab cd", "", ""}));
  EXPECT_EQ(Split("a\\ b \"x\\\"y\" 'p\\q'"), (Words{"a b", "x\"y", "p\\q"}));
  EXPECT_EQ(Split("a#b # c 'd"), (Words{"a#b"}));
  EXPECT_TRUE(Split("# all of it").empty());
  EXPECT_TRUE(Split("").empty());
  EXPECT_EQ(Split("last\r"), Words{"last"});
  for (const char* szBad : {"'a", "\"a", "a \"b\\\""}) EXPECT_FALSE(DorSplitWords(szBad, vstr, strError)) << szBad;
}

TEST(DorRequests, NamesAreUniqueAndEveryRowButTheFirstAndTheRefusedOnesBeginsWithAModel) {
  std::set<KivWStringView> setNames;
  for (const DorRequestRow& zRow : DorRequestTable()) {
    EXPECT_TRUE(setNames.insert(zRow.m_csName).second);
    const std::string strForm = zRow.m_szForm;
    if (zRow.m_iFamily == DorRequestFamily::Forward || zRow.m_iFamily == DorRequestFamily::Close) {
      EXPECT_TRUE(strForm.starts_with("m")) << sys::WideToUtf8(zRow.m_csName);
      EXPECT_EQ(strForm.find('m', 1), std::string::npos);
    }
  }
  EXPECT_EQ(setNames.size(), 52u);
  EXPECT_FALSE(setNames.contains(u"DorHandler_IsFilletFace"));
  EXPECT_TRUE(setNames.contains(u"DorHandler_SaveCurShapShot"));
}

TEST(DorRequests, NamesAreComparedExactly) {
  EXPECT_NE(DorFindRequest(u"DorHandler_Undo"), nullptr);
  EXPECT_EQ(DorFindRequest(u"DorHandler_undo"), nullptr);
  EXPECT_EQ(DorFindRequest(u"DorHandler_Und"), nullptr);
  EXPECT_EQ(DorFindRequest(u"DorHandler_Undo "), nullptr);
  EXPECT_EQ(DorFindRequest(u""), nullptr);
}

TEST(DorForm, APayloadFitsItsFormToTheLastByteAndNoOther) {
  for (const DorRequestRow& zRow : DorRequestTable()) {
    SCOPED_TRACE(sys::WideToUtf8(zRow.m_csName));
    for (const auto& [nBlock, nCurves] : {std::pair<uint64_t, int64_t>{0, 1}, {0, 2}, {1, 1}, {5, 2}}) {
      KivByteBuffer vcPayload = MakePayload(zRow.m_szForm, 3, nBlock, nCurves);
      EXPECT_TRUE(DorFitsForm(zRow, vcPayload));
      const bool bTail = std::string(zRow.m_szForm).ends_with('t');
      for (size_t nKept = 0; nKept < vcPayload.size(); ++nKept)
        EXPECT_FALSE(
            DorFitsForm(zRow, KivByteBuffer(vcPayload.begin(), vcPayload.begin() + static_cast<ptrdiff_t>(nKept))))
            << nKept;
      vcPayload.push_back(0);
      EXPECT_EQ(DorFitsForm(zRow, vcPayload), bTail);
    }
  }
}

TEST(DorForm, AZeroIsFoundInTextsAndNowhereElse) {
  const DorRequestRow& zRow = *DorFindRequest(u"DorHandler_SetAsmInfo");
  const auto HasZero = [&](KivWStringView cs) {
    KivByteBuffer vcPayload;
    KivPutInt64(vcPayload, 0);
    KivPutInt64(vcPayload, 0);
    KivPutString(vcPayload, KivWString(cs));
    EXPECT_TRUE(DorFitsForm(zRow, vcPayload));
    return DorHasZeroInText(zRow, vcPayload);
  };
  EXPECT_FALSE(HasZero(u""));
  EXPECT_FALSE(HasZero(u"a\u0100"));
  EXPECT_TRUE(HasZero(KivWStringView(u"\0", 1)));
  EXPECT_TRUE(HasZero(KivWStringView(u"a\0b", 3)));
  EXPECT_TRUE(HasZero(KivWStringView(u"ab\0", 3)));
}

TEST(DorForm, LyingCountsKindsAndSizesDoNotFit) {
  const auto Fits = [](KivWStringView csName, const std::vector<int64_t>& viFields) {
    KivByteBuffer vcPayload;
    for (int64_t i : viFields) KivPutInt64(vcPayload, i);
    return DorFitsForm(*DorFindRequest(csName), vcPayload);
  };
  constexpr int64_t iMost = INT64_MAX, iLeast = INT64_MIN;
  for (int64_t nUnits : {int64_t{5}, int64_t{-1}, iMost, iLeast, int64_t{1} << 62})
    EXPECT_FALSE(Fits(u"DorHandler_ReadDor", {nUnits, 0})) << nUnits;
  EXPECT_TRUE(Fits(u"DorHandler_ReadDor", {4, 0}));
  for (int64_t iKind : {int64_t{2}, int64_t{-1}, int64_t{1} << 32})
    EXPECT_FALSE(Fits(u"DorHandler_IsLinearCurve", {1, 2, 3, iKind, 0, 0, 0, 0, 0, 0})) << iKind;
  for (int64_t iSize : {int64_t{0}, int64_t{-1}, int64_t{9}, iMost, iLeast})
    EXPECT_FALSE(Fits(u"DorHandler_IsLinearCurve", {1, 2, 3, 1, iSize, iSize, 0})) << iSize;
  EXPECT_FALSE(Fits(u"DorHandler_IsLinearCurve", {1, 2, 3, 1, 8, 7, 0}));
  EXPECT_TRUE(Fits(u"DorHandler_IsLinearCurve", {1, 2, 3, 1, 8, 8, 0}));
  for (int64_t nCurves : {int64_t{0}, int64_t{3}, int64_t{-1}, iMost})
    EXPECT_FALSE(Fits(u"DorHandler_IsParallelLinearCurve", {1, 2, 3, 4, 5, nCurves, 0, 0, 0, 0, 0, 0, 0})) << nCurves;
}

TEST(DorPayload, WordsBecomeTheFieldsOfTheForm) {
  EXPECT_EQ(Built(u"DorHandler_GetPointOnFace", {"7", "-8", "1,-2.5,3e2"}), Expected([](KivByteBuffer& vc) {
              KivPutInt64(vc, 7);
              KivPutInt64(vc, -8);
              KivPutCoord3(vc, {1, -2.5, 300});
            }));
  EXPECT_EQ(Built(u"DorHandler_SetAsmInfo", {"1", "gr\xC3\xBCn"}), Expected([](KivByteBuffer& vc) {
              KivPutInt64(vc, 1);
              KivPutString(vc, u"gr\u00fcn");
            }));
  EXPECT_EQ(Built(u"DorHandler_IsLinearCurve", {"1", "2", "block:a0FF"}), Expected([](KivByteBuffer& vc) {
              for (int64_t i : {1, 2, 1, 2}) KivPutInt64(vc, i);
              KivPutBlock(vc, "\xA0\xFF", 2);
            }));
  EXPECT_EQ(Built(u"DorHandler_IsParallelLinearCurve", {"1", "2", "3", "4", "line:1,2,3,4,5,6", "line:0,0,0,0,0,1"}),
            Expected([](KivByteBuffer& vc) {
              for (int64_t i : {1, 2, 3, 4, 2, 0}) KivPutInt64(vc, i);
              for (double d : {1., 2., 3., 4., 5., 6.}) KivPutDouble(vc, d);
              KivPutInt64(vc, 0);
              for (double d : {0., 0., 0., 0., 0., 1.}) KivPutDouble(vc, d);
            }));
  EXPECT_EQ(Built(u"DorHandler_PickOneElement", {}), Expected([](KivByteBuffer&) {}));
  EXPECT_EQ(Built(u"DorHandler_PickOneElement", {"0102"}),
            Expected([](KivByteBuffer& vc) { KivPutBytes(vc, "\x01\x02", 2); }));
}

TEST(DorPayload, WordsThatDoNotFitAreRefused) {
  for (const std::vector<std::string>& vstrWords : {std::vector<std::string>{},
                                                    {"1"},
                                                    {"1", "2", "3"},
                                                    {"1", "2", "3", "4"},
                                                    {"x", "2", "1,2,3"},
                                                    {"1", "2", "1,2"},
                                                    {"1", "2", "1,2,3,4"},
                                                    {"1", "2", "1,,3"},
                                                    {"1.5", "2", "1,2,3"},
                                                    {"1", "99999999999999999999", "1,2,3"},
                                                    {"1", "2", "1,2,3", "4"}})
    EXPECT_TRUE(Built(u"DorHandler_GetPointOnFace", vstrWords).starts_with("error: "));
  for (const char* szCurve : {"", "line:1,2,3", "block:", "block:0", "block:zz", "arc:1"})
    EXPECT_TRUE(Built(u"DorHandler_IsLinearCurve", {"1", "2", szCurve}).starts_with("error: ")) << szCurve;
  EXPECT_TRUE(Built(u"DorHandler_PickOneElement", {"0"}).starts_with("error: "));
}
