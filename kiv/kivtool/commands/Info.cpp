// kiv info FILE: what a model holds.
#include <cinttypes>

#include "KivCommand.h"
#include "KivModelInfo.h"
#include "KivNumberText.h"

namespace kiv {
namespace {

void PrintPackage(KivToolOutput& zOutput, const KivWString& csPath, const KivModelProbe& zProbe) {
  if (zOutput.IsJson()) {
    KivJsonWriter& zJson = zOutput.Json();
    zJson.BeginObject();
    zJson.Value("file", sys::WideToUtf8(csPath));
    zJson.Value("kind", "package");
    zJson.Value("bytes", zProbe.m_iLength);
    zJson.End();
  }
  zOutput.Line("%s: package, %s", KivShown(csPath).c_str(), KivBytesText(zProbe.m_iLength).c_str());
}

void PrintJson(KivJsonWriter& zJson, const KivWString& csPath, const KivModelInfo& z, bool bDeep) {
  zJson.BeginObject();
  zJson.Value("file", sys::WideToUtf8(csPath));
  zJson.Value("kind", "model");
  zJson.Value("bytes", z.m_iFileLength);
  zJson.Value("generation", z.m_iGeneration);
  zJson.Value("minor_version", z.m_iMinorVersion);
  zJson.Value("writer_application", z.m_iWriterApplication);
  zJson.Value("writer_version", z.m_iWriterVersion);
  zJson.Value("keyed", z.m_bKeyed);
  zJson.Value("keys", z.m_nKeys);
  zJson.BeginObject("records");
  zJson.Value("used", z.m_nUsedRecords);
  zJson.Value("used_bytes", z.m_nUsedBytes);
  zJson.Value("payload_bytes", z.m_nPayloadBytes);
  zJson.Value("free", z.m_nFreeRecords);
  zJson.Value("free_bytes", z.m_nFreeBytes);
  zJson.Value("whole", z.m_bRecordsWhole);
  zJson.End();
  zJson.BeginArray("elements");
  for (uint32_t iTag = 0; iTag < kElementTagNum; ++iTag) {
    const KivInfoType& zType = z.m_azType[iTag];
    if (zType.m_nElements == 0) continue;
    zJson.BeginObject();
    zJson.Value("tag", iTag);
    zJson.Value("name", KivElementName(iTag, 0));
    zJson.Value("count", zType.m_nElements);
    zJson.Value("bytes", zType.m_nBytes);
    zJson.End();
  }
  zJson.End();
  zJson.Value("nodes", z.m_nNodes);
  zJson.Value("instances", z.m_nInstances);
  zJson.Value("parts", z.m_nParts);
  zJson.BeginArray("levels");
  for (size_t i = 0; i < z.m_vzLevel.size(); ++i) {
    const KivInfoLevel& zLevel = z.m_vzLevel[i];
    zJson.BeginObject();
    zJson.Value("level", i);
    if (zLevel.m_fTolerance)
      zJson.Value("tolerance", *zLevel.m_fTolerance);
    else
      zJson.Null("tolerance");
    zJson.Value("faces", zLevel.m_zCount.m_nFaces);
    zJson.Value("edges", zLevel.m_zCount.m_nEdges);
    zJson.Value("triangles", zLevel.m_zCount.m_nTriangles);
    zJson.Value("vertices", zLevel.m_zCount.m_nVertices);
    zJson.Value("exact", zLevel.m_zCount.m_bExact);
    zJson.End();
  }
  zJson.End();
  if (z.m_bBox)
    zJson.Row("box", z.m_fBox);
  else
    zJson.Null("box");
  if (z.m_dMetresPerUnit)
    zJson.Value("metres_per_unit", *z.m_dMetresPerUnit);
  else
    zJson.Null("metres_per_unit");
  zJson.Value("whole", z.m_bStructureWhole && z.m_bMeshesWhole);
  zJson.Value("deep", bDeep);
  zJson.End();
}

void PrintText(KivToolOutput& zOutput, const KivWString& csPath, const KivModelInfo& z) {
  zOutput.Line("%s: model, generation %u, %s", KivShown(csPath).c_str(), z.m_iGeneration,
               KivBytesText(z.m_iFileLength).c_str());
  zOutput.Line("written by  application %u, version %u, minor version %u", z.m_iWriterApplication, z.m_iWriterVersion,
               z.m_iMinorVersion);
  zOutput.Line("keys        %s", z.m_bKeyed ? (std::to_string(z.m_nKeys) + " in position tables").c_str()
                                            : "none, elements are named by their positions");
  zOutput.Line("records     %" PRIu64 " used (%s), %" PRIu64 " free (%s)%s", z.m_nUsedRecords,
               KivBytesText(z.m_nUsedBytes).c_str(), z.m_nFreeRecords, KivBytesText(z.m_nFreeBytes).c_str(),
               z.m_bRecordsWhole ? "" : "; the chain of records is broken, see kiv check");
  for (uint32_t iTag = 0; iTag < kElementTagNum; ++iTag) {
    const KivInfoType& zType = z.m_azType[iTag];
    if (zType.m_nElements != 0)
      zOutput.Line("  %-20s %8" PRIu64 "  %s", KivElementName(iTag, 0), zType.m_nElements,
                   KivBytesText(zType.m_nBytes).c_str());
  }
  zOutput.Line("structure   %" PRIu64 " nodes, %" PRIu64 " instances of %" PRIu64 " parts%s", z.m_nNodes,
               z.m_nInstances, z.m_nParts, z.m_bStructureWhole ? "" : "; incomplete, see kiv check");
  for (size_t i = 0; i < z.m_vzLevel.size(); ++i) {
    const KivInfoLevel& zLevel = z.m_vzLevel[i];
    const std::string strTolerance = zLevel.m_fTolerance ? KivNumberText(*zLevel.m_fTolerance) : "none";
    zOutput.Line("level %-5" PRIu64 " tolerance %s: %" PRIu64 " faces, %" PRIu64 " edges, %" PRIu64 " triangles%s",
                 uint64_t{i}, strTolerance.c_str(), zLevel.m_zCount.m_nFaces, zLevel.m_zCount.m_nEdges,
                 zLevel.m_zCount.m_nTriangles,
                 !zLevel.m_zCount.m_bWhole   ? "; incomplete, see kiv check"
                 : !zLevel.m_zCount.m_bExact ? " (at least)"
                                             : "");
  }
  if (z.m_bBox)
    zOutput.Line("box         %s %s %s to %s %s %s", KivNumberText(z.m_fBox[0]).c_str(),
                 KivNumberText(z.m_fBox[1]).c_str(), KivNumberText(z.m_fBox[2]).c_str(),
                 KivNumberText(z.m_fBox[3]).c_str(), KivNumberText(z.m_fBox[4]).c_str(),
                 KivNumberText(z.m_fBox[5]).c_str());
  else
    zOutput.Line("box         none");
  if (z.m_dMetresPerUnit)
    zOutput.Line("unit        %s m", KivNumberText(*z.m_dMetresPerUnit).c_str());
  else
    zOutput.Line("unit        not told");
}

class InfoCommand : public KivCommand {
 public:
  const char* Name() const override { return "info"; }
  const char* Help() const override { return "what a model holds: records, elements, parts, levels, box"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model or package");
    zOptions.Flag("--deep", m_bDeep,
                  "load every mesh to count its faces and triangles (else they are counted by what their frames say: "
                  "triangles in strips are left out, and damage inside of a mesh is not seen)");
  }
  KivToolExit Run(KivToolOutput& zOutput) override {
    const KivModelProbe zProbe = KivProbeForTool(m_csPath);
    if (zProbe.m_eKind == KivModelFileKind::Package) {
      PrintPackage(zOutput, m_csPath, zProbe);
      return KivToolExit::Good;
    }
    KivToolModel zModel(m_csPath);
    const KivModelInfo zInfo = KivGetModelInfo(zModel, m_bDeep);
    if (zOutput.IsJson())
      PrintJson(zOutput.Json(), m_csPath, zInfo, m_bDeep);
    else
      PrintText(zOutput, m_csPath, zInfo);
    return zInfo.IsWhole() ? KivToolExit::Good : KivToolExit::Findings;
  }

 private:
  KivWString m_csPath;
  bool m_bDeep = false;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeInfoCommand() {
  return std::make_unique<InfoCommand>();
}

}  // namespace kiv
