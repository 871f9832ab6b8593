// kiv export FILE OUT.glb: a model as binary glTF 2.0.
#include <cinttypes>

#include "KivCommand.h"
#include "KivGltfExport.h"
#include "KivNumberText.h"
#include "KivStopGuard.h"
#include "KivTargetFile.h"

namespace kiv {
namespace {

class ExportCommand : public KivCommand {
 public:
  const char* Name() const override { return "export"; }
  const char* Help() const override { return "write a model as binary glTF 2.0 (.glb)"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model");
    zOptions.Argument("OUT", m_csTarget, "target, .glb");
    zOptions.Whole("--level", m_iLevel, 0, INT32_MAX, "level of detail, 0 for the coarsest (default: the finest)");
    zOptions.Flag("--edges", m_bEdges, "edges as lines");
    zOptions.Flag("--faces", m_bFaces, "a primitive for each face (default: one for all faces of a colour)");
    zOptions.Flag("--force", m_bForce, "replace the target if it exists");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    KivCheckTargetName(m_csTarget, u"glb");
    KivToolModel zModel(m_csPath);
    KivTargetFile zTarget(m_csTarget, m_bForce, {m_csPath});
    KivGltfOptions zOptions;
    if (m_iLevel >= 0) zOptions.m_iLevel = static_cast<size_t>(m_iLevel);
    zOptions.m_bEdges = m_bEdges;
    zOptions.m_bFaces = m_bFaces;
    KivGltfSummary z;
    {
      const KivStopGuard zGuard([&] { return zTarget.Abandon(); }, zOutput);
      z = KivExportGltf(zModel, zOptions, zTarget.GetTemporaryPath(), m_csTarget);
      zTarget.Commit();
    }
    if (zOutput.IsJson()) {
      KivJsonWriter& zJson = zOutput.Json();
      zJson.BeginObject();
      zJson.Value("file", sys::WideToUtf8(m_csPath));
      zJson.Value("target", sys::WideToUtf8(m_csTarget));
      zJson.Value("bytes", z.m_nBytes);
      zJson.Value("nodes", z.m_nNodes);
      zJson.Value("meshes", z.m_nMeshes);
      zJson.Value("triangles", z.m_nTriangles);
      zJson.Value("lines", z.m_nLines);
      zJson.BeginArray("notes");
      for (const std::string& str : z.m_vstrNote) zJson.Value({}, str);
      zJson.End();
      zJson.End();
    }
    zOutput.Line("%s: %s, %" PRIu64 " nodes, %" PRIu64 " meshes, %" PRIu64 " triangles, %" PRIu64 " lines",
                 KivShown(m_csTarget).c_str(), KivBytesText(z.m_nBytes).c_str(), z.m_nNodes, z.m_nMeshes,
                 z.m_nTriangles, z.m_nLines);
    for (const std::string& str : z.m_vstrNote) zOutput.Note("%s", str.c_str());
    return KivToolExit::Good;
  }

 private:
  KivWString m_csPath;
  KivWString m_csTarget;
  int64_t m_iLevel = -1;
  bool m_bEdges = false;
  bool m_bFaces = false;
  bool m_bForce = false;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeExportCommand() {
  return std::make_unique<ExportCommand>();
}

}  // namespace kiv
