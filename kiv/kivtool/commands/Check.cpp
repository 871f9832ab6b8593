// kiv check FILE: everything that is wrong with a model.
#include <cinttypes>

#include "KivCommand.h"
#include "KivModelCheck.h"

namespace kiv {
namespace {

constexpr uint64_t kListedOfCode = 100;

class CheckCommand : public KivCommand {
 public:
  const char* Name() const override { return "check"; }
  const char* Help() const override { return "everything that is wrong with a model"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model");
    zOptions.Flag("--all", m_bAll, "list all findings, not only the first 100 of each code");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    KivToolModel zModel(m_csPath, true);
    if (zOutput.IsJson()) {
      zOutput.Json().BeginObject();
      zOutput.Json().Value("file", sys::WideToUtf8(m_csPath));
      zOutput.Json().BeginArray("findings");
    }
    std::map<std::string, uint64_t> mapListed;
    const auto List = [&](const KivCheckFinding& zFinding) {
      if (++mapListed[zFinding.m_szCode] <= kListedOfCode || m_bAll) Print(zOutput, zFinding);
    };
    const KivCheckResult zResult = KivCheckModel(zModel, List, &zOutput);
    if (zOutput.IsJson()) {
      zOutput.Json().End();
      PrintSummary(zOutput.Json(), zResult);
      zOutput.Json().End();
    }
    if (!m_bAll)
      for (const auto& [strCode, nFindings] : zResult.m_mapCode)
        if (nFindings > kListedOfCode)
          zOutput.Line("%s: %" PRIu64 " further findings are not listed", strCode.c_str(), nFindings - kListedOfCode);
    zOutput.Line("%s: %" PRIu64 " errors, %" PRIu64 " warnings; %" PRIu64 " elements, %" PRIu64 " faces, %" PRIu64
                 " edges, %" PRIu64 " triangles, %" PRIu64 " geometry strings checked",
                 KivShown(m_csPath).c_str(), zResult.m_nErrors, zResult.m_nWarnings, zResult.m_nElements,
                 zResult.m_nFaces, zResult.m_nEdges, zResult.m_nTriangles, zResult.m_nGeometries);
    return zResult.m_nErrors != 0 ? KivToolExit::Findings : KivToolExit::Good;
  }

 private:
  static const char* SeverityText(KivCheckSeverity eSeverity) {
    return eSeverity == KivCheckSeverity::Error ? "error" : "warning";
  }

  static void Print(KivToolOutput& zOutput, const KivCheckFinding& z) {
    if (zOutput.IsJson()) {
      KivJsonWriter& zJson = zOutput.Json();
      zJson.BeginObject();
      zJson.Value("code", z.m_szCode);
      zJson.Value("severity", SeverityText(z.m_eSeverity));
      zJson.Value("position", z.m_iPosition);
      zJson.Value("key", z.m_iKey);
      zJson.Value("sentence", z.m_strSentence);
      zJson.End();
      return;
    }
    zOutput.Line("%s %s at %" PRIu64 ": %s", SeverityText(z.m_eSeverity), z.m_szCode, z.m_iPosition,
                 z.m_strSentence.c_str());
  }

  static void PrintSummary(KivJsonWriter& zJson, const KivCheckResult& z) {
    zJson.BeginObject("codes");
    for (const auto& [strCode, nFindings] : z.m_mapCode) zJson.Value(strCode, nFindings);
    zJson.End();
    zJson.Value("errors", z.m_nErrors);
    zJson.Value("warnings", z.m_nWarnings);
    zJson.Value("elements", z.m_nElements);
    zJson.Value("faces", z.m_nFaces);
    zJson.Value("edges", z.m_nEdges);
    zJson.Value("triangles", z.m_nTriangles);
    zJson.Value("geometries", z.m_nGeometries);
  }

  KivWString m_csPath;
  bool m_bAll = false;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeCheckCommand() {
  return std::make_unique<CheckCommand>();
}

}  // namespace kiv
