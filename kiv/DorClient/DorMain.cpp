// The dor command: one model, one request, shown on standard output.
//
// Exit codes: 0 good; 1 the request was refused or failed, or its answer could not be written; 2 wrong use; 3 the model
// could not be read; 4 the tree could not be started or has ended; 5 good, but folders are left behind.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "DorAnswerText.h"
#include "DorClient.h"
#include "DorShell.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysFile.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysMain.h"
#include "KivSysTerminal.h"
#include "KivSysTextExact.h"

namespace kiv {
namespace {

using Json = nlohmann::ordered_json;

enum ExitCode { kGood = 0, kRefused = 1, kWrongUse = 2, kNotRead = 3, kTreeEnded = 4, kLeftBehind = 5 };

struct Settings {
  bool m_bJson = false;
  std::string m_strRelay;
  std::string m_strModel;
  std::string m_strRequest;
  std::vector<std::string> m_vstrWords;
  int m_nRequests = 20000;
  uint64_t m_nBytes = 64;
  int m_nIdle = 0;
  bool m_bKeepGoing = false;
};

double MsSince(uint64_t iStartNs) {
  return static_cast<double>(sys::SteadyNs() - iStartNs) / 1e6;
}

std::string Hex(const KivByteBuffer& vcBytes) {
  std::string strHex;
  char acByte[3];
  for (const uint8_t c : vcBytes) {
    std::snprintf(acByte, sizeof acByte, "%02x", c);
    strHex += acByte;
  }
  return strHex;
}

// Looks before a tree is started: all that the relay would say is that the model could not be read.
void RequireFile(const KivWString& csPath) {
  if (!sys::PathExists(csPath)) throw DorReadError("there is no such file");
  if (sys::FolderExists(csPath)) throw DorReadError("is a folder");
  if (sys::IsNoRegularFile(csPath)) throw DorReadError("is no regular file");  // looking into it might take for ever
  const KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::Read, KivSysShare::Read, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
  if (!hFile.IsOpen()) throw DorReadError("cannot be opened for reading");
  uint64_t nBytes = 0;
  if (hFile.GetLength(nBytes) && nBytes == 0) throw DorReadError("is empty");
}

// A spinner on a terminal while a read runs; nothing elsewhere.
class Spinner {
 public:
  // False if the user wants to stop.
  bool Turn() {
    if (sys::IsStopRequested()) return false;
    if (!sys::IsErrorTerminal()) return true;
    static const char* const aszFrames[] = {"|", "/", "-", "\\"};
    std::fprintf(stderr, "\r%s reading", aszFrames[m_iFrame++ % 4]);
    std::fflush(stderr);
    return true;
  }
  ~Spinner() {
    if (m_iFrame != 0) std::fprintf(stderr, "\r\033[K");
  }

 private:
  int m_iFrame = 0;
};

int64_t OpenModel(DorClient& zClient, const Settings& zSettings) {
  Spinner zSpinner;
  return zClient.Open(sys::ExactToWide(zSettings.m_strModel), [&] { return zSpinner.Turn(); });
}

// For a tree that will read the model.
DorClientOptions StartOptions(const Settings& zSettings) {
  RequireFile(sys::ExactToWide(zSettings.m_strModel));
  DorClientOptions zOptions;
  zOptions.m_csRelay = sys::ExactToWide(zSettings.m_strRelay);
  return zOptions;
}

void Print(const Json& zJson) {
  std::printf("%s\n", zJson.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

// A line on standard error, behind what stands on standard output already.
void Note(const std::string& strText) {
  std::fflush(stdout);
  std::fprintf(stderr, "dor: %s\n", KivShown(sys::ExactToWide(strText)).c_str());
}

// Says why nothing came of it: as JSON on standard output if asked for, else as a line on standard error.
int Fail(const Settings& zSettings, ExitCode iCode, const std::string& strWhy) {
  if (zSettings.m_bJson) {
    Print({{"error", strWhy}, {"exit_code", static_cast<int>(iCode)}});
  } else {
    Note(strWhy);
  }
  return iCode;
}

// The exit code behind the end of the tree.
int CodeOf(bool bGood, bool bClean) {
  if (!bClean) Note("folders are left behind");
  if (!bGood) return kRefused;
  return bClean ? kGood : kLeftBehind;
}

Json ToJson(const DorValue& z);

Json ToJson(const std::vector<DorValue>& vzValue) {
  Json zObject = Json::object();
  for (const DorValue& z : vzValue) zObject[z.m_pzField->m_strName] = ToJson(z);
  return zObject;
}

// Several numbers of one name are an array; so is a list, of objects or, where its items have one field, of values.
Json ToJson(const DorValue& z) {
  switch (z.m_pzField->m_cKind) {
    case 's':
      return sys::WideToUtf8(z.m_csText);
    case 'i':
      return z.m_viInteger.size() == 1 ? Json(z.m_viInteger[0]) : Json(z.m_viInteger);
    case 'l': {
      Json zArray = Json::array();
      for (size_t i = 0; i < z.m_nItems; ++i) {
        const std::vector<DorValue> vzItem = z.Item(i);
        zArray.push_back(vzItem.size() == 1 ? ToJson(vzItem[0]) : ToJson(vzItem));
      }
      return zArray;
    }
    default:
      return z.m_vdFloat.size() == 1 ? Json(z.m_vdFloat[0]) : Json(z.m_vdFloat);
  }
}

Json ToJson(const DorSpoken& zSpoken) {
  Json zJson;
  zJson["request"] = sys::WideToUtf8(zSpoken.m_pzRow->m_csName);
  zJson["status"] = zSpoken.m_zAnswer.m_iStatus;
  zJson["status_text"] = DorStatusText(zSpoken.m_zAnswer.m_iStatus);
  if (zSpoken.m_bDecoded) {
    zJson["code"] = zSpoken.m_zDecoded.m_iCode;
    zJson["code_text"] = DorAnswerCodeText(zSpoken.m_zDecoded.m_iCode);
    if (zSpoken.m_zDecoded.m_iCode != 0)
      zJson["reason"] = sys::WideToUtf8(zSpoken.m_zDecoded.m_csReason);
    else
      zJson["answer"] = ToJson(zSpoken.m_zDecoded.m_vzValue);
  } else {
    zJson["bytes"] = Hex(zSpoken.m_zAnswer.m_vcResult);
  }
  zJson["milliseconds"] = zSpoken.m_dMilliseconds;
  return zJson;
}

void ShowAnswer(const Settings& zSettings, const DorSpoken& zSpoken) {
  if (zSettings.m_bJson)
    Print(ToJson(zSpoken));
  else
    std::fputs(DorAnswerText(zSpoken).c_str(), stdout);
}

int RunOpen(const Settings& zSettings) {
  const uint64_t iStart = sys::SteadyNs();
  DorClient zClient(StartOptions(zSettings));
  const double dStartMs = MsSince(iStart);
  const uint64_t iOpen = sys::SteadyNs();
  const int64_t iModel = OpenModel(zClient, zSettings);
  const double dOpenMs = MsSince(iOpen);
  const std::vector<int32_t> viPids = zClient.ListTree();
  const DorSpoken zSpoken = DorCallByName(zClient, iModel, "GetAsmTreeInfo", {});
  zClient.Clear(iModel);
  const uint64_t iClose = sys::SteadyNs();
  const bool bClean = zClient.Close();
  const double dCloseMs = MsSince(iClose);

  const bool bGood = zSpoken.IsGood();
  if (zSettings.m_bJson) {
    Json zJson;
    zJson["model"] = iModel;
    zJson["root_folder"] = sys::WideToUtf8(zClient.GetRootFolder());
    zJson["processes"] = viPids;
    if (bGood)
      zJson["answer"] = ToJson(zSpoken.m_zDecoded.m_vzValue);
    else
      zJson["refused"] = ToJson(zSpoken);
    zJson["milliseconds"] = {
        {"start", dStartMs}, {"open", dOpenMs}, {"ask", zSpoken.m_dMilliseconds}, {"close", dCloseMs}};
    zJson["left_behind"] = !bClean;
    Print(zJson);
    return CodeOf(bGood, bClean);
  }
  std::printf("tree      started in %.1f ms, root folder %s\n", dStartMs, KivShown(zClient.GetRootFolder()).c_str());
  std::printf("processes");
  for (int32_t iPid : viPids) std::printf(" %d", iPid);
  std::printf(" (client first)\nopened    model %lld in %.1f ms\n", static_cast<long long>(iModel), dOpenMs);
  std::fputs(DorAnswerText(zSpoken).c_str(), stdout);
  std::printf("closed    in %.1f ms, %s\n", dCloseMs, bClean ? "nothing left behind" : "folders are left behind");
  return CodeOf(bGood, bClean);
}

int RunCall(const Settings& zSettings) {
  const DorRequestRow* pzRow = DorFindCallable(zSettings.m_strRequest);
  if (pzRow == nullptr)
    return Fail(zSettings, kWrongUse,
                "the relay serves no request '" + zSettings.m_strRequest + "' (dor requests lists them)");
  KivByteBuffer vcPayload;
  std::string strError;
  if (!DorBuildPayload(*pzRow, 0, zSettings.m_vstrWords, vcPayload, strError))
    return Fail(zSettings, kWrongUse, zSettings.m_strRequest + ": " + strError);
  if (!DorTextsAreWellFormed(*pzRow, zSettings.m_vstrWords))
    return Fail(zSettings, kWrongUse, zSettings.m_strRequest + ": " + kDorIllFormed);
  DorClient zClient(StartOptions(zSettings));
  const int64_t iModel = OpenModel(zClient, zSettings);
  const DorSpoken zSpoken = DorCallByName(zClient, iModel, zSettings.m_strRequest, zSettings.m_vstrWords);
  zClient.Clear(iModel);
  const bool bClean = zClient.Close();
  ShowAnswer(zSettings, zSpoken);
  return CodeOf(zSpoken.IsGood(), bClean);
}

std::string WithoutReturn(std::string strLine) {
  if (strLine.ends_with('\r')) strLine.pop_back();
  return strLine;
}

int RunShell(const Settings& zSettings) {
  DorClient zClient(StartOptions(zSettings));
  const int64_t iModel = OpenModel(zClient, zSettings);
  DorShellOptions zOptions;
  zOptions.m_bKeepGoing = zSettings.m_bKeepGoing;
  if (!zSettings.m_bJson)  // answers from a file are read beside their questions
    zOptions.m_pfnLine = [](const std::string& strLine) {
      std::printf("> %s\n", KivShown(sys::Utf8ToWide(WithoutReturn(strLine))).c_str());
    };
  zOptions.m_pfnAnswer = [&](const DorSpoken& zSpoken) { ShowAnswer(zSettings, zSpoken); };
  zOptions.m_pfnError = [&](const std::string& strWhy) { Fail(zSettings, kRefused, strWhy); };
  const bool bGood = DorRunShell(zClient, iModel, zOptions);
  zClient.Clear(iModel);
  return CodeOf(bGood, zClient.Close());
}

int RunBench(const Settings& zSettings) {
  DorClient zClient(StartOptions(zSettings));
  const int64_t iModel = OpenModel(zClient, zSettings);
  for (int i = 0; i < zSettings.m_nIdle; ++i) OpenModel(zClient, zSettings);

  // The tail of this request is passed through unread.
  KivByteBuffer vcPayload, vcResult;
  KivPutInt64(vcPayload, iModel);
  vcPayload.resize(std::max<uint64_t>(zSettings.m_nBytes, 8), 0x5A);
  const KivWString csRequest(kDorPickOneElement);
  std::vector<double> vdMicroSeconds;
  const int nWarmUp = std::max(1, zSettings.m_nRequests / 10);
  uint64_t iTotal = sys::SteadyNs();
  for (int i = 0; i < nWarmUp + zSettings.m_nRequests; ++i) {
    if (i == nWarmUp) iTotal = sys::SteadyNs();
    const uint64_t iStart = sys::SteadyNs();
    if (zClient.CallUnchecked(csRequest, vcPayload, vcResult) != 0)
      return Fail(zSettings, kRefused, "a request was not served");
    if (sys::IsStopRequested()) throw DorClientError("stopped");
    if (i >= nWarmUp) vdMicroSeconds.push_back(static_cast<double>(sys::SteadyNs() - iStart) / 1e3);
  }
  const double dSeconds = MsSince(iTotal) / 1e3;
  const bool bClean = zClient.Close();
  std::sort(vdMicroSeconds.begin(), vdMicroSeconds.end());
  const double dMedian = vdMicroSeconds[vdMicroSeconds.size() / 2];
  const double dP99 = vdMicroSeconds[vdMicroSeconds.size() * 99 / 100];
  if (zSettings.m_bJson) {
    Print({{"requests", zSettings.m_nRequests},
           {"payload_bytes", vcPayload.size()},
           {"idle_handlers", zSettings.m_nIdle},
           {"requests_per_second", zSettings.m_nRequests / dSeconds},
           {"median_us", dMedian},
           {"p99_us", dP99}});
    return CodeOf(true, bClean);
  }
  std::printf("%d requests of %zu bytes, %d idle handlers: %.0f/s, median %.1f us, p99 %.1f us\n",
              zSettings.m_nRequests, vcPayload.size(), zSettings.m_nIdle, zSettings.m_nRequests / dSeconds, dMedian,
              dP99);
  return CodeOf(true, bClean);
}

int RunRequests(const Settings& zSettings) {
  if (!zSettings.m_bJson) {
    std::fputs(DorRequestsText().c_str(), stdout);
    return kGood;
  }
  Json zJson = Json::array();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily != DorRequestFamily::Forward) continue;
    Json zRequest{{"request", sys::WideToUtf8(zRow.m_csName)}, {"arguments", DorDescribeForm(zRow)}};
    zRequest["offered"] = zRow.m_szAnswer != nullptr;
    if (zRow.m_szAnswer != nullptr) zRequest["answer"] = zRow.m_szAnswer;
    zJson.push_back(zRequest);
  }
  Print(zJson);
  return kGood;
}

// Stands before a word that is no option though it looks like one, such as a negative number, and before one that
// begins with it by itself.
constexpr char kCover = '\x01';

// A word as bytes from which it comes back, for the parser.
std::string Covered(KivWStringView csWord) {
  const auto IsNumeral = [](char16_t c) { return (c >= u'0' && c <= u'9') || c == u'.'; };
  const bool bNumber = csWord.size() > 1 && csWord[0] == u'-' && IsNumeral(csWord[1]);
  const bool bCovered = bNumber || (!csWord.empty() && csWord[0] == static_cast<char16_t>(kCover));
  return (bCovered ? std::string(1, kCover) : std::string()) + sys::WideToExact(csWord);
}

void Uncover(std::string& strWord) {
  if (!strWord.empty() && strWord[0] == kCover) strWord.erase(0, 1);
}

int Guarded(int (*pfnRun)(const Settings&), const Settings& zSettings) {
  try {
    const int iCode = pfnRun(zSettings);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return iCode;
    Note("standard output cannot be written");
    return iCode == kGood ? kRefused : iCode;
  } catch (const DorReadError& e) {
    return Fail(zSettings, kNotRead, zSettings.m_strModel + ": " + e.what());
  } catch (const DorClientError& e) {
    return Fail(zSettings, kTreeEnded, e.what());
  } catch (const std::exception& e) {
    return Fail(zSettings, kTreeEnded, std::string("the exchange broke down: ") + e.what());
  }
}

}  // namespace
}  // namespace kiv

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  Settings zSettings;
  CLI::App zApp{"Opens CAD models through the relay and sends requests to their handlers.", "dor"};
  zApp.require_subcommand(1);
  zApp.fallthrough();
  zApp.add_flag("--json", zSettings.m_bJson, "print JSON");
  zApp.add_option("--relay", zSettings.m_strRelay, "path of the relay (default: DorRelay beside this program)");
  int (*pfnRun)(const Settings&) = nullptr;

  const CLI::Validator zNotEmpty([](const std::string& str) { return str.empty() ? "it is empty" : ""; }, "", "");
  CLI::App* pzOpen = zApp.add_subcommand("open", "open a model, show what it is and the tree that served it");
  pzOpen->add_option("MODEL", zSettings.m_strModel, "model file")->required()->check(zNotEmpty);
  pzOpen->callback([&] { pfnRun = RunOpen; });

  CLI::App* pzCall = zApp.add_subcommand("call", "open a model, send one request, show the answer");
  pzCall->add_option("MODEL", zSettings.m_strModel, "model file")->required()->check(zNotEmpty);
  pzCall->add_option("REQUEST", zSettings.m_strRequest, "name, DorHandler_ may be left out")->required();
  pzCall->add_option("ARGS", zSettings.m_vstrWords, "the request's fields behind the model id");
  pzCall->footer("'dor requests' lists the requests and their fields.");
  pzCall->callback([&] { pfnRun = RunCall; });

  CLI::App* pzShell = zApp.add_subcommand("shell", "open a model, send the requests on standard input, one a line");
  pzShell->add_option("MODEL", zSettings.m_strModel, "model file")->required()->check(zNotEmpty);
  pzShell->add_flag("--keep-going", zSettings.m_bKeepGoing, "go on after a request that was refused or failed");
  pzShell->callback([&] { pfnRun = RunShell; });

  CLI::App* pzBench = zApp.add_subcommand("bench", "measure round trips through relay and handler");
  pzBench->add_option("MODEL", zSettings.m_strModel, "model file")->required()->check(zNotEmpty);
  pzBench->add_option("--requests", zSettings.m_nRequests, "round trips to measure")->check(CLI::Range(1, 100000000));
  pzBench->add_option("--bytes", zSettings.m_nBytes, "payload of a request")
      ->check(CLI::Range(uint64_t{8}, uint64_t{1} << 30));
  pzBench->add_option("--idle", zSettings.m_nIdle, "further models that stay idle")->check(CLI::Range(0, 63));
  pzBench->callback([&] { pfnRun = RunBench; });

  CLI::App* pzRequests = zApp.add_subcommand("requests", "list the requests and their arguments");
  pzRequests->callback([&] { pfnRun = RunRequests; });

  std::vector<std::string> vstrArguments;
  for (size_t i = vcsArguments.size(); i > 1; --i) vstrArguments.push_back(Covered(vcsArguments[i - 1]));
  try {
    zApp.parse(vstrArguments);
  } catch (const CLI::ParseError& e) {
    // The flag itself may stand behind what was wrong.
    zSettings.m_bJson = std::find(vcsArguments.begin(), vcsArguments.end(), u"--json") != vcsArguments.end();
    if (e.get_exit_code() == 0) return zApp.exit(e);  // a help that was asked for
    std::string strWhy = e.what();
    std::erase(strWhy, kCover);
    return Fail(zSettings, kWrongUse, strWhy + " (--help tells how it is used)");
  }
  for (std::string& strWord : zSettings.m_vstrWords) Uncover(strWord);
  for (std::string* pstrWord : {&zSettings.m_strModel, &zSettings.m_strRequest, &zSettings.m_strRelay})
    Uncover(*pstrWord);
  sys::CatchStopRequests();
  return Guarded(pfnRun, zSettings);
}
