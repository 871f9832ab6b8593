// What all commands have in common, and the command show.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "KivCommand.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivToolModel.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using kivtest::RunKiv;
using kivtest::TestFolder;
using kivtest::ToolRun;
using nlohmann::ordered_json;

size_t LineNum(const std::string& str) {
  return static_cast<size_t>(std::count(str.begin(), str.end(), '\n'));
}

// The arguments behind a command's name that stand for a model to be read.
std::vector<std::vector<KivWString>> ReadingCommands(const KivWString& csFile, const TestFolder& zFolder) {
  return {{u"info", csFile}, {u"check", csFile},          {u"records", csFile},
          {u"tree", csFile}, {u"show", csFile, u"model"}, {u"export", csFile, zFolder / u"out.glb"}};
}

TEST(AllCommands, FilesThatAreNoModelsGiveOneLineOrOneDocument) {
  const TestFolder zFolder;
  std::mt19937 zRandom(9);
  std::string strRandom(5000, ' ');
  for (char& c : strRandom) c = static_cast<char>(zRandom());
  zFolder.WriteBytes(u"empty", "");
  zFolder.WriteBytes(u"random", strRandom);
  zFolder.WriteBytes(u"text.kiv", "This is no model.\n");
  kivtest::MakeToolModel(zFolder / u"good.kiv");
  const std::string strGood = zFolder.ReadBytes(u"good.kiv");
  zFolder.WriteBytes(u"head", strGood.substr(0, 200));
  std::string strNewer = strGood;
  strNewer[8 + 16] = 11;
  zFolder.WriteBytes(u"newer", strNewer);
  std::string strMarks = strGood;
  strMarks[8 + 28] = 0;
  zFolder.WriteBytes(u"marks", strMarks);
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"folder"));
  for (const char16_t* szName :
       {u"missing", u"empty", u"random", u"text.kiv", u"head", u"newer", u"marks", u"folder"}) {
    for (std::vector<KivWString> vcsArguments : ReadingCommands(zFolder / szName, zFolder)) {
      const std::string strWhich = sys::WideToUtf8(vcsArguments[0] + u" " + szName);
      const bool bText = szName[0] != u'r' && szName[0] != u'h';  // some in JSON, to save starts
      if (!bText) vcsArguments.push_back(u"--json");
      const ToolRun zRun = RunKiv(vcsArguments);
      EXPECT_EQ(zRun.m_iExit, 2) << strWhich;
      if (bText) {
        EXPECT_EQ(zRun.m_strOut, "") << strWhich;
        EXPECT_EQ(LineNum(zRun.m_strErr), 1u) << strWhich << zRun.m_strErr;
        EXPECT_EQ(zRun.m_strErr.substr(0, 5), "kiv: ") << strWhich;
      } else {
        const ordered_json z = ordered_json::parse(zRun.m_strOut);
        EXPECT_EQ(z["exit_code"], 2) << strWhich;
        EXPECT_NE(z["error"], "") << strWhich;
        EXPECT_EQ(zRun.m_strErr, "") << strWhich;
      }
      EXPECT_FALSE(sys::PathExists(zFolder / u"out.glb"));
    }
  }
}

TEST(AllCommands, AModelThatIsCutGivesFindingsOrOneLine) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"good.kiv");
  const std::string strGood = zFolder.ReadBytes(u"good.kiv");
  zFolder.WriteBytes(u"cut.kiv", strGood.substr(0, 264000));
  for (const std::vector<KivWString>& vcsArguments : ReadingCommands(zFolder / u"cut.kiv", zFolder)) {
    const ToolRun zRun = RunKiv(vcsArguments);
    const std::string strWhich = sys::WideToUtf8(vcsArguments[0]);
    EXPECT_EQ(zRun.m_iExit, vcsArguments[0] == u"check" ? 1 : 2) << strWhich << zRun.m_strOut << zRun.m_strErr;
    if (vcsArguments[0] == u"check") continue;
    EXPECT_EQ(LineNum(zRun.m_strErr), 1u) << strWhich << zRun.m_strErr;
  }
  EXPECT_FALSE(sys::PathExists(zFolder / u"out.glb"));
}

// Changes a byte in the payload of each record with this tag.
void Damage(const TestFolder& zFolder, const KivWString& csName, uint32_t iTag, size_t iOffset) {
  std::string strBytes = zFolder.ReadBytes(csName);
  const std::string strGood = strBytes;
  {
    KivToolModel zModel(zFolder / csName);
    KivRecordWalk zWalk(zModel);
    for (KivToolRecord zRecord; zWalk.Next(zRecord);)
      if (zRecord.m_bHasTag && zRecord.m_iTag == iTag) strBytes[zRecord.m_iPosition + 16 + iOffset] = 77;
  }
  ASSERT_NE(strBytes, strGood);
  zFolder.WriteBytes(csName, strBytes);
}

TEST(AllCommands, AMeshThatCannotBeLoadedIsToldByInfoAndNotExported) {
  const TestFolder zFolder;
  const KivWString csModel = zFolder / u"m.kiv";
  kivtest::MakeToolModel(csModel);
  Damage(zFolder, u"m.kiv", 1, 104);  // the kind of the first entry
  zFolder.WriteBytes(u"out.glb", "good");
  const ToolRun zExport = RunKiv({u"export", csModel, zFolder / u"out.glb", u"--force"});
  EXPECT_EQ(zExport.m_iExit, 2);
  EXPECT_EQ(zExport.m_strOut, "");
  EXPECT_EQ(LineNum(zExport.m_strErr), 1u) << zExport.m_strErr;
  EXPECT_NE(zExport.m_strErr.find("m.kiv: is damaged"), std::string::npos) << zExport.m_strErr;
  EXPECT_EQ(zFolder.ReadBytes(u"out.glb"), "good");
  const ToolRun zInfo = RunKiv({u"info", csModel});
  EXPECT_EQ(zInfo.m_iExit, 1);
  EXPECT_NE(zInfo.m_strOut.find("; incomplete, see kiv check"), std::string::npos) << zInfo.m_strOut;
  const ToolRun zDeep = RunKiv({u"info", u"--deep", u"--json", csModel});
  EXPECT_EQ(zDeep.m_iExit, 1);
  EXPECT_EQ(ordered_json::parse(zDeep.m_strOut)["whole"], false);
  std::vector<KivSysFolderEntry> vzEntry;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntry));
  EXPECT_EQ(vzEntry.size(), 2u);
}

TEST(AllCommands, AnAssemblyThatCannotBeLoadedIsToldByTreeAndNotExported) {
  const TestFolder zFolder;
  const KivWString csModel = zFolder / u"m.kiv";
  kivtest::MakeToolModel(csModel);
  Damage(zFolder, u"m.kiv", 6, 0);
  const ToolRun zTree = RunKiv({u"tree", csModel});
  EXPECT_EQ(zTree.m_iExit, 1);
  EXPECT_NE(zTree.m_strErr.find("could not be loaded"), std::string::npos) << zTree.m_strErr;
  EXPECT_EQ(RunKiv({u"export", csModel, zFolder / u"out.glb"}).m_iExit, 2);
  EXPECT_FALSE(sys::PathExists(zFolder / u"out.glb"));
}

TEST(AllCommands, WrongUseGives2AndHelpGives0) {
  for (const std::vector<KivWString>& vcsArguments :
       std::vector<std::vector<KivWString>>{{},
                                            {u"nothing"},
                                            {u"info"},
                                            {u"info", u"a", u"b"},
                                            {u"info", u"a", u"--no-such-option"},
                                            {u"show", u"a"},
                                            {u"export", u"a"},
                                            {u"tree", u"a", u"--depth", u"x"},
                                            {u"tree", u"a", u"--depth", u"-1"},
                                            {u"records", u"a", u"--type"},
                                            {u"records", u"a", u"--type", u"77"},
                                            {u"records", u"a", u"--type", u"0"}}) {
    const ToolRun zRun = RunKiv(vcsArguments);
    EXPECT_EQ(zRun.m_iExit, 2) << zRun.m_strErr;
    EXPECT_EQ(zRun.m_strOut, "");
    EXPECT_EQ(LineNum(zRun.m_strErr), 1u) << zRun.m_strErr;
    EXPECT_EQ(zRun.m_strErr.substr(0, 5), "kiv: ");
  }
  const ToolRun zJson = RunKiv({u"info", u"--json"});
  EXPECT_EQ(zJson.m_iExit, 2);
  EXPECT_EQ(ordered_json::parse(zJson.m_strOut)["exit_code"], 2);
  EXPECT_EQ(zJson.m_strErr, "");
  EXPECT_EQ(RunKiv({u"--help"}).m_iExit, 0);
  for (const auto& pzCommand : KivMakeCommands())
    EXPECT_NE(RunKiv({u"--help"}).m_strOut.find(pzCommand->Name()), std::string::npos);
  EXPECT_EQ(RunKiv({u"check", u"--help"}).m_iExit, 0);
  EXPECT_EQ(RunKiv({u"--version"}).m_strOut.substr(0, 4), "kiv ");
}

TEST(AllCommands, AFileWhoseNameLooksLikeANumberIsNoOption) {
  const TestFolder zFolder;
  const ToolRun zRun = RunKiv({u"info", u"-5"});
  EXPECT_EQ(zRun.m_iExit, 2);
  EXPECT_EQ(zRun.m_strErr, "kiv: -5: does not exist\n");
}

TEST(AllCommands, AWordThatIsNoValidTextPassesTheParser) {
  const KivWString csUnit01(1, u'\x01');
  for (const KivWString& csWord :
       {KivWString(), KivWString(u"a b"), KivWString(u"-5"), KivWString(u"--json"), csUnit01, csUnit01 + u"-5",
        KivWString(u"\u00e4\uFFFD\U0001F600"), KivWString{0xDCFF}, KivWString{u'a', 0xD83D},
        KivWString{0xD83D, u'a', 0xDC80}, KivWString{0xDC80, 0xD83D}, KivWString{0xD83D, 0xD83D, 0xDE00, 0xDE00},
        KivWString{0xD7FF, 0xE000}}) {
    const std::string strPacked = KivOptions::Pack(csWord);
    EXPECT_EQ(KivOptions::Unpack(strPacked), csWord);
    EXPECT_FALSE(strPacked.starts_with("-5"));
  }
}

TEST(ShowCommand, ShowsEveryElementOfAModel) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  const ordered_json zRecords = ordered_json::parse(RunKiv({u"records", u"--json", zFolder / u"m.kiv"}).m_strOut);
  std::set<std::string> ssType;
  for (const auto& zRow : zRecords["records"]) {
    if (zRow["free"]) continue;
    const KivWString csKey = sys::Utf8ToWide(std::to_string(zRow["position"].get<uint64_t>()));
    const ToolRun zRun = RunKiv({u"show", u"--json", u"--all", zFolder / u"m.kiv", csKey});
    ASSERT_EQ(zRun.m_iExit, 0) << zRun.m_strOut;
    const ordered_json z = ordered_json::parse(zRun.m_strOut);
    EXPECT_EQ(z["type"], zRow["type"]);
    EXPECT_EQ(z["payload_size"], zRow["payload"]);
    EXPECT_EQ(z["m_iTag"], zRow["tag"]);
    EXPECT_GT(z.size(), 14u) << "fields behind the header";
    ssType.insert(z["type"]);
  }
  EXPECT_EQ(ssType.size(), 12u);
}

TEST(ShowCommand, NamesKeysAndCutLists) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  const KivWString csFile = zFolder / u"m.kiv";
  const auto Json = [&](const KivWString& csKey) {
    return ordered_json::parse(RunKiv({u"show", u"--json", csFile, csKey}).m_strOut);
  };
  const ordered_json zModel = Json(u"model");
  EXPECT_EQ(zModel["position"], 264);
  EXPECT_EQ(Json(u"0x108"), Json(u"264"));
  const ordered_json zNote = Json(u"note");
  EXPECT_EQ(zNote["m_vzAttribute"]["items"][0]["metres_per_unit"], 0.001);
  const ordered_json zTree = Json(u"tree");
  EXPECT_EQ(zTree["key"], zNote["m_iAssemblyKey"]);
  EXPECT_EQ(zTree["m_vzNode"]["count"], 5);
  EXPECT_EQ(zTree["m_vzNode"]["items"][0]["m_strNodeName[0]"], "machine");
  EXPECT_EQ(zTree["m_vzNode"]["items"][4]["m_vzAttribute"]["items"][0]["colour"], (std::vector<double>{0, 0, 1, 0.5}));
  EXPECT_EQ(Json(u"second")["m_vstrPermanentId"]["count"], 2);
  const ordered_json zInstances = Json(u"instances");
  const uint64_t iBrep = zInstances["m_vzInstance"]["items"][0]["m_iBrepKey"];
  EXPECT_GE(iBrep, uint64_t{1} << 63);
  const ordered_json zBrep = Json(sys::Utf8ToWide(std::to_string(iBrep)));
  EXPECT_EQ(zBrep["m_vzGeometry"]["items"][0]["describes"], "face");
  EXPECT_EQ(zBrep["m_vzGeometry"]["items"][0]["m_iAnalyticType"], 1);
  const ToolRun zText = RunKiv({u"show", csFile, u"tree"});
  EXPECT_NE(zText.m_strOut.find("    m_strNodeName[0]: \"machine\"\n"), std::string::npos) << zText.m_strOut;
}

TEST(ShowCommand, KeysThatLeadToNoElementGive2) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  for (const char16_t* szKey : {u"0", u"1", u"265", u"999999999", u"0x8000000000009999", u"0xFFFFFFFFFFFFFFFF", u"x",
                                u"", u"0x", u"12x", u"99999999999999999999999", u"-1"}) {
    const ToolRun zRun = RunKiv({u"show", zFolder / u"m.kiv", szKey});
    EXPECT_EQ(zRun.m_iExit, 2) << sys::WideToUtf8(szKey);
    EXPECT_EQ(zRun.m_strOut, "");
    EXPECT_NE(zRun.m_strErr, "");
    const bool bKey = KivWStringView(szKey).size() == 18;
    EXPECT_EQ(zRun.m_strErr.find("the key is in no position table") != std::string::npos, bKey) << zRun.m_strErr;
  }
}

}  // namespace
