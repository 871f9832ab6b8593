// The dor command: one model, one request, shown on standard output.
//
// Exit codes: 0 good; 1 the request was refused or failed; 2 wrong use; 3 the model could not be read; 4 the tree could
// not be started or has ended; 5 good, but folders are left behind.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "DorClient.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysMain.h"
#include "KivSysTerminal.h"

namespace kiv {
namespace {

using Json = nlohmann::ordered_json;

enum ExitCode { kGood = 0, kRefused = 1, kWrongUse = 2, kNotRead = 3, kTreeEnded = 4, kLeftBehind = 5 };

constexpr const char* kPrefix = "DorHandler_";
constexpr size_t kShownBytes = 256;

struct Settings {
  bool m_bJson = false;
  std::string m_strRelay;
  std::string m_strModel;
  std::string m_strRequest;
  std::vector<std::string> m_vstrWords;
  int m_nRequests = 20000;
  uint64_t m_nBytes = 64;
  int m_nIdle = 0;
};

double MsSince(uint64_t iStartNs) {
  return static_cast<double>(sys::SteadyNs() - iStartNs) / 1e6;
}

std::string Hex(const KivByteBuffer& vcBytes, size_t nMost) {
  std::string strHex;
  char acByte[3];
  for (size_t i = 0; i < vcBytes.size() && i < nMost; ++i) {
    std::snprintf(acByte, sizeof acByte, "%02x", vcBytes[i]);
    strHex += acByte;
  }
  return strHex;
}

const char* StatusText(int32_t iStatus) {
  switch (iStatus) {
    case kDorStatusReading:
      return "the model is still being read";
    case kDorStatusServed:
      return "served";
    case kDorStatusNoChild:
      return "no handler is there";
    case kDorStatusReadFailed:
      return "the model could not be read";
    case kDorStatusExchangeFailed:
      return "the exchange with the handler failed";
    case kDorStatusRefused:
      return "the handler refused";
    default:
      return "the handler's own status";
  }
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
  return zClient.Open(sys::Utf8ToWide(zSettings.m_strModel), [&] { return zSpinner.Turn(); });
}

DorClientOptions Options(const Settings& zSettings) {
  DorClientOptions zOptions;
  zOptions.m_csRelay = sys::Utf8ToWide(zSettings.m_strRelay);
  return zOptions;
}

void Print(const Json& zJson) {
  std::printf("%s\n", zJson.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

// Says why nothing came of it: as JSON on standard output if asked for, else as a line on standard error.
int Fail(const Settings& zSettings, ExitCode iCode, const std::string& strWhy) {
  if (zSettings.m_bJson) {
    Print({{"error", strWhy}, {"exit_code", static_cast<int>(iCode)}});
  } else {
    std::fprintf(stderr, "dor: %s\n", strWhy.c_str());
  }
  return iCode;
}

// The exit code behind the end of the tree.
int CodeOf(bool bGood, bool bClean) {
  if (!bClean) std::fprintf(stderr, "dor: folders are left behind\n");
  if (!bGood) return kRefused;
  return bClean ? kGood : kLeftBehind;
}

// What every answer of the handler begins with: its result code, and a reason where that is not 0.
struct HandlerAnswer {
  bool m_bKnown = false;
  int64_t m_iCode = 0;
  std::string m_strReason;
};

HandlerAnswer ReadHandlerAnswer(const KivByteBuffer& vcResult) {
  HandlerAnswer z;
  uint64_t iCursor = 0;
  if (vcResult.size() < 8 || !KivGetInt64(iCursor, vcResult, &z.m_iCode)) return z;
  z.m_bKnown = true;
  KivWString csReason;
  if (z.m_iCode != 0 && vcResult.size() >= 16 && KivGetString(iCursor, vcResult, &csReason))
    z.m_strReason = sys::WideToUtf8(csReason);
  return z;
}

// The fields of the answers that this command knows by heart.
Json AnswerFields(const KivWString& csRequest, const KivByteBuffer& vcResult) {
  Json zFields = Json::object();
  if (csRequest != kDorGetAsmTreeInfo) return zFields;
  uint64_t iCursor = 8;
  int64_t iKind = 0, iLength = 0;
  KivWString csPath;
  if (!KivGetInt64(iCursor, vcResult, &iKind) || !KivGetInt64(iCursor, vcResult, &iLength) ||
      !KivGetString(iCursor, vcResult, &csPath))
    return zFields;
  zFields["kind"] = iKind == 1 ? "model" : iKind == 2 ? "package" : "unknown";
  zFields["bytes"] = iLength;
  zFields["path"] = sys::WideToUtf8(csPath);
  return zFields;
}

// True if the handler did what it was asked for.
bool ShowAnswer(const Settings& zSettings, const KivWString& csRequest, const DorAnswer& zAnswer, double dMs) {
  const HandlerAnswer zHandler = ReadHandlerAnswer(zAnswer.m_vcResult);
  const bool bGood = zAnswer.m_iStatus == kDorStatusServed && (!zHandler.m_bKnown || zHandler.m_iCode == 0);
  const Json zFields = bGood ? AnswerFields(csRequest, zAnswer.m_vcResult) : Json::object();
  if (zSettings.m_bJson) {
    Json zJson;
    zJson["request"] = sys::WideToUtf8(csRequest);
    zJson["status"] = zAnswer.m_iStatus;
    zJson["status_text"] = StatusText(zAnswer.m_iStatus);
    if (zHandler.m_bKnown) zJson["code"] = zHandler.m_iCode;
    if (!zHandler.m_strReason.empty()) zJson["reason"] = zHandler.m_strReason;
    if (!zFields.empty()) zJson["answer"] = zFields;
    zJson["bytes"] = Hex(zAnswer.m_vcResult, zAnswer.m_vcResult.size());
    zJson["milliseconds"] = dMs;
    Print(zJson);
    return bGood;
  }
  std::printf("%s: %s (status %d), %zu bytes, %.3f ms\n", sys::WideToUtf8(csRequest).c_str(),
              StatusText(zAnswer.m_iStatus), zAnswer.m_iStatus, zAnswer.m_vcResult.size(), dMs);
  if (zHandler.m_bKnown && zHandler.m_iCode != 0)
    std::printf("  code %lld: %s\n", static_cast<long long>(zHandler.m_iCode), zHandler.m_strReason.c_str());
  for (const auto& [strName, zValue] : zFields.items())
    std::printf("  %s: %s\n", strName.c_str(),
                (zValue.is_string() ? zValue.get<std::string>() : zValue.dump()).c_str());
  if (zFields.empty() && zAnswer.m_vcResult.size() > 8)
    std::printf("  %s%s\n", Hex(zAnswer.m_vcResult, kShownBytes).c_str(),
                zAnswer.m_vcResult.size() > kShownBytes ? "..." : "");
  return bGood;
}

// The row of a request that may be called; the prefix of the name may be left out.
const DorRequestRow* FindRow(const std::string& strName) {
  const DorRequestRow* pzRow = DorFindRequest(sys::Utf8ToWide(strName));
  if (pzRow == nullptr) pzRow = DorFindRequest(sys::Utf8ToWide(kPrefix + strName));
  return pzRow != nullptr && pzRow->m_iFamily == DorRequestFamily::Forward ? pzRow : nullptr;
}

int RunOpen(const Settings& zSettings) {
  const uint64_t iStart = sys::SteadyNs();
  DorClient zClient(Options(zSettings));
  const double dStartMs = MsSince(iStart);
  const uint64_t iOpen = sys::SteadyNs();
  const int64_t iModel = OpenModel(zClient, zSettings);
  const double dOpenMs = MsSince(iOpen);
  const std::vector<int32_t> viPids = zClient.ListTree();
  KivByteBuffer vcPayload;
  KivPutInt64(vcPayload, iModel);
  const uint64_t iAsk = sys::SteadyNs();
  const DorAnswer zAnswer = zClient.Call(KivWString(kDorGetAsmTreeInfo), vcPayload);
  const double dAskMs = MsSince(iAsk);
  zClient.Clear(iModel);
  const uint64_t iClose = sys::SteadyNs();
  const bool bClean = zClient.Close();
  const double dCloseMs = MsSince(iClose);

  const HandlerAnswer zHandler = ReadHandlerAnswer(zAnswer.m_vcResult);
  const bool bGood = zAnswer.m_iStatus == kDorStatusServed && zHandler.m_iCode == 0;
  const Json zFields = bGood ? AnswerFields(KivWString(kDorGetAsmTreeInfo), zAnswer.m_vcResult) : Json::object();
  if (zSettings.m_bJson) {
    Json zJson;
    zJson["model"] = iModel;
    zJson["root_folder"] = sys::WideToUtf8(zClient.GetRootFolder());
    zJson["processes"] = viPids;
    zJson["answer"] = zFields;
    zJson["milliseconds"] = {{"start", dStartMs}, {"open", dOpenMs}, {"ask", dAskMs}, {"close", dCloseMs}};
    zJson["left_behind"] = !bClean;
    Print(zJson);
    return CodeOf(bGood, bClean);
  }
  std::printf("tree      started in %.1f ms, root folder %s\n", dStartMs,
              sys::WideToUtf8(zClient.GetRootFolder()).c_str());
  std::printf("processes");
  for (int32_t iPid : viPids) std::printf(" %d", iPid);
  std::printf(" (client first)\nopened    model %lld in %.1f ms\n", static_cast<long long>(iModel), dOpenMs);
  for (const auto& [strName, zValue] : zFields.items())
    std::printf("  %s: %s\n", strName.c_str(),
                (zValue.is_string() ? zValue.get<std::string>() : zValue.dump()).c_str());
  std::printf("asked     in %.3f ms\nclosed    in %.1f ms, %s\n", dAskMs, dCloseMs,
              bClean ? "nothing left behind" : "folders are left behind");
  return CodeOf(bGood, bClean);
}

int RunCall(const Settings& zSettings) {
  const DorRequestRow* pzRow = FindRow(zSettings.m_strRequest);
  if (pzRow == nullptr)
    return Fail(zSettings, kWrongUse,
                "the relay serves no request '" + zSettings.m_strRequest + "' (dor requests lists them)");
  KivByteBuffer vcPayload;
  std::string strError;
  if (!DorBuildPayload(*pzRow, 0, zSettings.m_vstrWords, vcPayload, strError))
    return Fail(zSettings, kWrongUse, zSettings.m_strRequest + ": " + strError);
  DorClient zClient(Options(zSettings));
  const int64_t iModel = OpenModel(zClient, zSettings);
  DorBuildPayload(*pzRow, iModel, zSettings.m_vstrWords, vcPayload, strError);
  const KivWString csRequest(pzRow->m_csName);
  const uint64_t iStart = sys::SteadyNs();
  const DorAnswer zAnswer = zClient.Call(csRequest, vcPayload);
  const double dMs = MsSince(iStart);
  zClient.Clear(iModel);
  const bool bClean = zClient.Close();
  return CodeOf(ShowAnswer(zSettings, csRequest, zAnswer, dMs), bClean);
}

int RunBench(const Settings& zSettings) {
  DorClient zClient(Options(zSettings));
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
  Json zJson = Json::array();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily != DorRequestFamily::Forward) continue;
    const std::string strName = sys::WideToUtf8(zRow.m_csName);
    if (zSettings.m_bJson) {
      zJson.push_back({{"request", strName}, {"arguments", DorDescribeForm(zRow)}});
    } else {
      std::printf("%-44s %s\n", strName.c_str(), DorDescribeForm(zRow).c_str());
    }
  }
  if (zSettings.m_bJson) Print(zJson);
  return kGood;
}

// A negative number is no option: its sign is hidden from the parser.
constexpr char kHiddenSign = '\x01';

std::string HideSign(std::string strWord) {
  if (strWord.size() > 1 && strWord[0] == '-' &&
      (std::isdigit(static_cast<unsigned char>(strWord[1])) || strWord[1] == '.'))
    strWord[0] = kHiddenSign;
  return strWord;
}

std::string ShowSign(std::string strWord) {
  if (!strWord.empty() && strWord[0] == kHiddenSign) strWord[0] = '-';
  return strWord;
}

int Guarded(int (*pfnRun)(const Settings&), const Settings& zSettings) {
  try {
    return pfnRun(zSettings);
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

  CLI::App* pzOpen = zApp.add_subcommand("open", "open a model, show what it is and the tree that served it");
  pzOpen->add_option("MODEL", zSettings.m_strModel, "model file or package")->required();
  pzOpen->callback([&] { pfnRun = RunOpen; });

  CLI::App* pzCall = zApp.add_subcommand("call", "open a model, send one request, show the answer");
  pzCall->add_option("MODEL", zSettings.m_strModel, "model file or package")->required();
  pzCall->add_option("REQUEST", zSettings.m_strRequest, "name, DorHandler_ may be left out")->required();
  pzCall->add_option("ARGS", zSettings.m_vstrWords, "the request's fields behind the model id");
  pzCall->callback([&] { pfnRun = RunCall; });

  CLI::App* pzBench = zApp.add_subcommand("bench", "measure round trips through relay and handler");
  pzBench->add_option("MODEL", zSettings.m_strModel, "model file or package")->required();
  pzBench->add_option("--requests", zSettings.m_nRequests, "round trips to measure")->check(CLI::Range(1, 100000000));
  pzBench->add_option("--bytes", zSettings.m_nBytes, "payload of a request")
      ->check(CLI::Range(uint64_t{8}, uint64_t{1} << 30));
  pzBench->add_option("--idle", zSettings.m_nIdle, "further models that stay idle")->check(CLI::Range(0, 63));
  pzBench->callback([&] { pfnRun = RunBench; });

  CLI::App* pzRequests = zApp.add_subcommand("requests", "list the requests and their arguments");
  pzRequests->callback([&] { pfnRun = RunRequests; });

  std::vector<std::string> vstrArguments;
  for (size_t i = vcsArguments.size(); i > 1; --i)
    vstrArguments.push_back(HideSign(sys::WideToUtf8(vcsArguments[i - 1])));
  try {
    zApp.parse(vstrArguments);
  } catch (const CLI::ParseError& e) {
    return zApp.exit(e) == 0 ? kGood : kWrongUse;
  }
  for (std::string& strWord : zSettings.m_vstrWords) strWord = ShowSign(strWord);
  for (std::string* pstrWord : {&zSettings.m_strModel, &zSettings.m_strRequest, &zSettings.m_strRelay})
    *pstrWord = ShowSign(*pstrWord);
  sys::CatchStopRequests();
  return Guarded(pfnRun, zSettings);
}
