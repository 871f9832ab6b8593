// kiv import IN OUT.kiv: a model of a foreign file.
#include <algorithm>
#include <cinttypes>

#include "KivCommand.h"
#include "KivNumberText.h"
#include "KivProgress.h"
#include "KivReaderTable.h"
#include "KivReportQuiet.h"
#include "KivSceneReader.h"
#include "KivSceneToModel.h"
#include "KivStopGuard.h"
#include "KivSysClock.h"
#include "KivSysFolder.h"
#include "KivTargetFile.h"
#include "KivToolModel.h"

namespace kiv {
namespace {

constexpr size_t kMostLevels = 32;

std::string KnownFormats() {
  std::string strKnown;
  for (const KivReaderFormat& z : KivListReaderFormats())
    strKnown += (strKnown.empty() ? "" : ", ") + sys::WideToUtf8(z.m_szName);
  return strKnown;
}

const KivReaderFormat* FindFormat(const KivWString& csName) {
  for (const KivReaderFormat& z : KivListReaderFormats())
    if (csName == z.m_szName) return &z;
  return nullptr;
}

class ImportCommand : public KivCommand {
 public:
  const char* Name() const override { return "import"; }
  const char* Help() const override { return "makes a model of a foreign file: STEP, STL, OBJ, PLY, glTF"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("IN", m_csSource, "foreign file");
    zOptions.Argument("OUT", m_csTarget, "model to write, .kiv");
    zOptions.Flag("--force", m_bForce, "replace OUT if it exists");
    m_strFormatHelp = "what IN is, where its name does not end so: " + KnownFormats();
    zOptions.Text("--format", m_csFormat, m_strFormatHelp.c_str());
    zOptions.Numbers(
        "--tolerance", m_zImport.m_vdTolerance,
        "tolerance of each level of detail, the coarsest first: in millimetres, or for a file without a unit "
        "in its own (default: 1 0.1 0.01; above a metre, and without a unit, in thousandths of the diagonal)");
    zOptions.Numbers("--angle", m_vdAngle,
                     "meshes: triangles that meet at less are one face, in degrees (default: 30)");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    const uint64_t iStartNs = sys::SteadyNs();
    CheckOptions();
    if (m_csSource.empty()) throw KivToolError("the file has no name");
    const KivReaderFormat& zFormat = FormatOfSource();
    KivCheckTargetName(m_csTarget, u"kiv");
    const KivWString csReader = ReaderOf(zFormat);
    KivTargetFile zTarget(m_csTarget, m_bForce, {m_csSource});
    KivImportSummary zSummary;
    {
      const KivStopGuard zGuard([&] { return zTarget.Abandon(); }, zOutput);
      KivScene zScene;
      Read(csReader, zFormat, zTarget.GetTemporaryPath(), zScene);
      KivPrepareToolProcess();
      Write(zScene, zTarget.GetTemporaryPath(), zSummary);
      zTarget.Commit();
    }
    const double dSeconds = static_cast<double>(sys::SteadyNs() - iStartNs) / 1e9;
    for (const std::string& str : zSummary.m_vstrWarning)
      zOutput.Note("%s: %s", KivShown(m_csSource).c_str(), KivShown(sys::Utf8ToWide(str)).c_str());
    if (zOutput.IsJson())
      PrintJson(zOutput.Json(), zSummary, dSeconds);
    else
      PrintText(zOutput, zSummary, dSeconds);
    return KivToolExit::Good;
  }

 private:
  void CheckOptions() {
    const std::vector<double>& vd = m_zImport.m_vdTolerance;
    if (vd.size() > kMostLevels) throw KivToolError("--tolerance: more than 32 levels");
    for (size_t i = 0; i < vd.size(); ++i) {
      if (!(vd[i] >= 1e-9 && vd[i] <= 1e9)) throw KivToolError("--tolerance: each is from 1e-9 to 1e9");
      if (i > 0 && !(vd[i] < vd[i - 1])) throw KivToolError("--tolerance: the coarsest comes first, each once");
    }
    if (m_vdAngle.size() > 1 || (m_vdAngle.size() == 1 && !(m_vdAngle[0] >= 0 && m_vdAngle[0] <= 180)))
      throw KivToolError("--angle: one number from 0 to 180");
    if (!m_vdAngle.empty()) m_zImport.m_dAngle = m_vdAngle[0];
  }

  const KivReaderFormat& FormatOfSource() const {
    const KivReaderFormat* const pzFormat = FindFormat(m_csFormat.empty() ? KivLowerSuffix(m_csSource) : m_csFormat);
    if (pzFormat != nullptr) return *pzFormat;
    if (!m_csFormat.empty())
      throw KivToolError("--format: '" + KivShown(m_csFormat) + "' is not known; known are " + KnownFormats());
    throw KivToolError(KivShown(m_csSource) + ": its format is not known by its name (--format tells it); known are " +
                       KnownFormats());
  }

  static KivWString ReaderOf(const KivReaderFormat& zFormat) {
    const KivWString csReader = KivProgramBeside(zFormat.m_szReader);
    if (sys::PathExists(csReader)) return csReader;
    throw KivToolError("files of this kind cannot be read here: the program " + sys::WideToUtf8(zFormat.m_szReader) +
                       " is not installed beside kiv");
  }

  void Read(const KivWString& csReader, const KivReaderFormat& zFormat, const KivWString& csTemporary,
            KivScene& zScene) {
    KivSceneRequest zRequest{zFormat.m_szName, m_csSource, m_zImport.m_vdTolerance};
    KivProgress zProgress("reading " + KivShown(m_csSource), 0);
    std::string strError;
    const bool bRead = KivRunSceneReader(csReader, zRequest, csTemporary + u".scene", zScene, strError, {});
    if (!bRead) throw KivToolError(KivShown(m_csSource) + ": " + KivShown(sys::Utf8ToWide(strError)));
  }

  void Write(KivScene& zScene, const KivWString& csTemporary, KivImportSummary& zSummary) {
    constexpr uint64_t kTotal = 1000;
    KivModelBuilder zBuilder;
    {
      KivProgress zProgress("making the model", kTotal);
      m_zImport.m_pfnProgress = [&](double d) { zProgress.Set(static_cast<uint64_t>(d * kTotal)); };
      std::string strError;
      if (!KivSceneToModel(zScene, m_zImport, zBuilder, zSummary, strError))
        throw KivToolError(KivShown(m_csSource) + ": " + KivShown(sys::Utf8ToWide(strError)));
    }
    KivProgress zProgress("writing " + KivShown(m_csTarget), 0);
    if (!zBuilder.Save(csTemporary))
      throw KivToolError(KivShown(m_csTarget) + ": cannot be written whole (" + KivLastQuietReport().m_szCondition +
                         ")");
  }

  void PrintText(KivToolOutput& zOutput, const KivImportSummary& z, double dSeconds) const {
    zOutput.Line("%s: %" PRIu64 " nodes, %" PRIu64 " instances of %" PRIu64 " parts, %" PRIu64 " faces, %" PRIu64
                 " edges, %" PRIu64 " geometry strings",
                 KivShown(m_csTarget).c_str(), z.m_nNodes, z.m_nInstances, z.m_nParts, z.m_nFaces, z.m_nEdges,
                 z.m_nGeometries);
    for (size_t i = 0; i < z.m_vdTolerance.size(); ++i)
      zOutput.Line("level %" PRIu64 "  tolerance %s: %" PRIu64 " triangles", uint64_t{i},
                   KivNumberText(z.m_vdTolerance[i]).c_str(), z.m_vnTriangles[i]);
    zOutput.Line("%" PRIu64 " warnings, %.2f s", uint64_t{z.m_vstrWarning.size()}, dSeconds);
  }

  void PrintJson(KivJsonWriter& zJson, const KivImportSummary& z, double dSeconds) const {
    zJson.BeginObject();
    zJson.Value("source", sys::WideToUtf8(m_csSource));
    zJson.Value("target", sys::WideToUtf8(m_csTarget));
    zJson.Value("parts", z.m_nParts);
    zJson.Value("nodes", z.m_nNodes);
    zJson.Value("instances", z.m_nInstances);
    zJson.Value("faces", z.m_nFaces);
    zJson.Value("edges", z.m_nEdges);
    zJson.Value("geometries", z.m_nGeometries);
    zJson.BeginArray("levels");
    for (size_t i = 0; i < z.m_vdTolerance.size(); ++i) {
      zJson.BeginObject();
      zJson.Value("level", i);
      zJson.Value("tolerance", z.m_vdTolerance[i]);
      zJson.Value("triangles", z.m_vnTriangles[i]);
      zJson.End();
    }
    zJson.End();
    zJson.Row("warnings", z.m_vstrWarning);
    zJson.Value("seconds", dSeconds);
    zJson.End();
  }

  KivWString m_csSource, m_csTarget, m_csFormat;
  std::string m_strFormatHelp;
  bool m_bForce = false;
  std::vector<double> m_vdAngle;
  KivImportOptions m_zImport;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeImportCommand() {
  return std::make_unique<ImportCommand>();
}

}  // namespace kiv
