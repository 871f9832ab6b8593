// kiv records FILE: the records of the container, one line each, as the walk over them finds them.
#include <algorithm>
#include <charconv>
#include <cinttypes>

#include "KivCommand.h"
#include "KivProgress.h"
#include "KivToolModel.h"

namespace kiv {
namespace {

// A tag from its number or its name, with or without "Kiv" and "Data".
bool FindTag(const std::string& strType, uint32_t& iTag) {
  const char* pEnd = strType.data() + strType.size();
  const auto zResult = std::from_chars(strType.data(), pEnd, iTag);
  if (zResult.ec == std::errc() && zResult.ptr == pEnd) return iTag > 0 && iTag < kElementTagNum;
  const auto Plain = [](std::string str) {
    for (char& c : str) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (str.starts_with("kiv")) str.erase(0, 3);
    if (str.ends_with("data")) str.resize(str.size() - 4);
    return str;
  };
  for (iTag = 1; iTag < kElementTagNum; ++iTag)
    if (Plain(strType) == Plain(KivElementName(iTag, 0))) return true;
  return false;
}

class RecordsCommand : public KivCommand {
 public:
  const char* Name() const override { return "records"; }
  const char* Help() const override { return "the records of a model's container, one line each"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model");
    zOptions.Flag("--free", m_bFree, "only free records");
    zOptions.Text("--type", m_csType, "only elements of a type: its tag, or its name such as Instance");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    uint32_t iTag = 0;
    if (!m_csType.empty() && !FindTag(sys::WideToUtf8(m_csType), iTag))
      throw KivToolError("--type: there is no element type '" + KivShown(m_csType) + "'");
    KivToolModel zModel(m_csPath, true);
    KivRecordWalk zWalk(zModel);
    KivProgress zProgress("reading records", zWalk.GetEnd());
    Begin(zOutput);
    uint64_t nShown = 0;
    KivToolRecord zRecord;
    for (uint64_t i = 0; zWalk.Next(zRecord); ++i) {
      if (i % 256 == 0) zProgress.Set(zRecord.m_iPosition);
      if (m_bFree && !zRecord.m_bFree) continue;
      if (!m_csType.empty() && !(zRecord.m_bHasTag && zRecord.m_iTag == iTag && zRecord.m_iTypeIndex == 0)) continue;
      Print(zOutput, zRecord);
      ++nShown;
    }
    if (zOutput.IsJson()) {
      KivJsonWriter& zJson = zOutput.Json();
      zJson.End();
      zJson.Value("count", nShown);
      zJson.Value("whole", !zWalk.IsBroken());
    }
    // The rows up to there are a result, but not the whole one.
    if (zWalk.IsBroken())
      throw KivToolError(KivShown(m_csPath) + ": is damaged: the chain of records is broken at position " +
                         std::to_string(zWalk.GetPosition()));
    if (zOutput.IsJson()) zOutput.Json().End();
    return KivToolExit::Good;
  }

 private:
  void Begin(KivToolOutput& zOutput) const {
    if (zOutput.IsJson()) {
      KivJsonWriter& zJson = zOutput.Json();
      zJson.BeginObject();
      zJson.Value("file", sys::WideToUtf8(m_csPath));
      zJson.BeginArray("records");
    }
    zOutput.Line("%12s %12s %12s  %-4s  %3s %-20s %s", "position", "size", "payload", "", "tag", "type", "revision");
  }

  static void Print(KivToolOutput& zOutput, const KivToolRecord& z) {
    const char* szName = KivElementName(z.m_iTag, z.m_iTypeIndex);
    if (zOutput.IsJson()) {
      KivJsonWriter& zJson = zOutput.Json();
      zJson.BeginObject();
      zJson.Value("position", z.m_iPosition);
      zJson.Value("size", z.m_iRecordSize);
      zJson.Value("payload", z.m_iPayloadSize);
      zJson.Value("free", z.m_bFree);
      if (z.m_bHasTag) {
        zJson.Value("tag", z.m_iTag);
        if (z.m_iTypeIndex != 0) zJson.Value("type_index", z.m_iTypeIndex);
        zJson.Value("type", szName);
        zJson.Value("revision", z.m_iFormat);
      }
      zJson.End();
    } else if (z.m_bHasTag) {
      zOutput.Line("%12" PRIu64 " %12" PRIu64 " %12" PRIu64 "  used  %3u %-20s %u", z.m_iPosition, z.m_iRecordSize,
                   z.m_iPayloadSize, z.m_iTag, szName, z.m_iFormat);
    } else {
      zOutput.Line("%12" PRIu64 " %12" PRIu64 " %12" PRIu64 "  %s", z.m_iPosition, z.m_iRecordSize, z.m_iPayloadSize,
                   z.m_bFree ? "free" : "used    - no element");
    }
  }

  KivWString m_csPath;
  bool m_bFree = false;
  KivWString m_csType;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeRecordsCommand() {
  return std::make_unique<RecordsCommand>();
}

}  // namespace kiv
