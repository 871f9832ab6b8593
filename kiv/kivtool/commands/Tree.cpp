// kiv tree FILE: the assembly, drawn as a tree.
#include "KivCommand.h"
#include "KivLayerFilter.h"
#include "KivModelMeaning.h"
#include "KivModelTree.h"
#include "KivProgress.h"

namespace kiv {
namespace {

constexpr size_t kDrawnDepth = 40;  // deeper rows tell their depth by a number

struct LayerSet {
  KivWString m_csName;
  std::vector<KivLayer> m_vzLayer;
};

// The filters of a node.
std::vector<LayerSet> LayersOf(KivToolModel& zModel, const KivAssemblyNode& zNode) {
  std::vector<LayerSet> vzSet;
  if (zNode.m_iLayerFilterKey == 0) return vzSet;
  const KivMemoryBlockLayerFilter* pzBlock = zModel.LoadBlock<KivLayerFilter>(zNode.m_iLayerFilterKey);
  if (pzBlock == nullptr) return vzSet;
  for (const KivLayerFilterEntry& z : pzBlock->m_vzFilter)
    if (!z.m_zFrame.IsGap()) vzSet.push_back({z.m_strFilterName, z.m_vzLayer});
  return vzSet;
}

std::string ColourText(const KivColour& fColour) {
  char acText[48];
  std::snprintf(acText, sizeof acText, "%.3g %.3g %.3g %.3g", static_cast<double>(fColour[0]),
                static_cast<double>(fColour[1]), static_cast<double>(fColour[2]), static_cast<double>(fColour[3]));
  return acText;
}

class TreeCommand : public KivCommand {
 public:
  const char* Name() const override { return "tree"; }
  const char* Help() const override { return "the assembly: nodes, placements, parts, layers"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model");
    zOptions.Whole("--depth", m_iDepth, 0, INT32_MAX, "go so deep; the roots have depth 0");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    KivToolModel zModel(m_csPath);
    const KivToolStructure zStructure = KivLoadStructure(zModel);
    if (!zStructure.m_bComplete)
      zOutput.Note("%s: some elements could not be loaded and are left out, see kiv check", KivShown(m_csPath).c_str());
    KivProgress zProgress("walking the assembly", zStructure.m_vzNode.size());
    if (zOutput.IsJson()) {
      zOutput.Json().BeginObject();
      zOutput.Json().Value("file", sys::WideToUtf8(m_csPath));
      zOutput.Json().Value("whole", zStructure.m_bComplete);
      zOutput.Json().BeginArray("rows");
    } else if (zStructure.m_vzNode.empty()) {
      zOutput.Line("no nodes");
    }
    KivWalkAssembly(zStructure, [&](const KivTreeRow& zRow) {
      zProgress.Advance();
      if (zRow.m_iDepth > static_cast<size_t>(m_iDepth)) return;
      if (zOutput.IsJson())
        PrintJson(zOutput.Json(), zModel, zStructure, zRow);
      else
        PrintText(zOutput, zModel, zStructure, zRow);
    });
    if (zOutput.IsJson()) zOutput.Json().EndTo(0);
    return zStructure.m_bComplete ? KivToolExit::Good : KivToolExit::Findings;
  }

 private:
  static const char* KindText(KivTreeRow::Kind eKind) {
    switch (eKind) {
      case KivTreeRow::Kind::Node:
        return "node";
      case KivTreeRow::Kind::Again:
        return "again";
      case KivTreeRow::Kind::Circle:
        return "circle";
      case KivTreeRow::Kind::Missing:
        return "missing";
      case KivTreeRow::Kind::NoNode:
        return "no node";
    }
    return "";
  }

  static void PrintJson(KivJsonWriter& zJson, KivToolModel& zModel, const KivToolStructure& zStructure,
                        const KivTreeRow& zRow) {
    zJson.BeginObject();
    zJson.Value("depth", zRow.m_iDepth);
    zJson.Value("kind", KindText(zRow.m_eKind));
    zJson.Value("node", zRow.m_iNode);
    if (zRow.m_iDepth != 0)
      zJson.Value("parent", zRow.m_iParent);
    else
      zJson.Null("parent");
    if (zRow.m_eKind == KivTreeRow::Kind::Node) {
      const KivAssemblyNode& zNode = zStructure.m_vzNode[zRow.m_iNode];
      zJson.Value("name", sys::WideToUtf8(zNode.m_strNodeName[0]));
      zJson.Value("part_name", sys::WideToUtf8(zNode.m_strNodeName[1]));
      zJson.Value("type", KivNodeTypeName(zNode.m_iNodeType));
      zJson.BeginRow("matrix");
      for (size_t i = 0; i < 16; ++i) zJson.Value({}, zNode.m_zMatrix[i]);
      zJson.End();
      zJson.Value("placement", KivPlacementText(zNode.m_zMatrix));
      if (const auto fColour = KivGetColour(zNode.m_vzAttribute)) zJson.Row("colour", *fColour);
      if (const auto iLayer = KivGetLayer(zNode.m_vzAttribute)) zJson.Value("layer", *iLayer);
      if (zNode.m_iPMIKey != 0) zJson.Value("pmi_key", zNode.m_iPMIKey);
      if (zNode.m_iCameraKey != 0) zJson.Value("camera_key", zNode.m_iCameraKey);
      if (zNode.m_iLayerFilterKey != 0) PrintLayers(zJson, LayersOf(zModel, zNode));
    }
    if (zRow.m_eKind == KivTreeRow::Kind::Node || zRow.m_eKind == KivTreeRow::Kind::NoNode) {
      zJson.BeginArray("instances");
      for (const size_t i : zRow.m_viInstance) {
        zJson.BeginObject();
        zJson.Value("instance", i);
        zJson.Value("part", zStructure.m_vzInstance[i].m_iPart);
        zJson.End();
      }
      zJson.End();
    }
    zJson.End();
  }

  static void PrintLayers(KivJsonWriter& zJson, const std::vector<LayerSet>& vzSet) {
    zJson.BeginArray("layers");
    for (const LayerSet& zSet : vzSet) {
      zJson.BeginObject();
      zJson.Value("name", sys::WideToUtf8(zSet.m_csName));
      zJson.BeginArray("layers");
      for (const KivLayer& z : zSet.m_vzLayer) {
        zJson.BeginObject();
        zJson.Value("layer", z.m_iLayer);
        zJson.Value("on", z.m_bOn);
        zJson.End();
      }
      zJson.End();
      zJson.End();
    }
    zJson.End();
  }

  // The lines that lead to a row; m_vbMore tells for each depth whether a sibling is still to come.
  std::string Lead(const KivTreeRow& zRow) {
    const size_t iDepth = zRow.m_iDepth;
    m_vbMore.resize(iDepth + 1);
    m_vbMore[iDepth] = !zRow.m_bLast;
    if (iDepth > kDrawnDepth) return "(depth " + std::to_string(iDepth) + ") ";
    std::string strLead;
    for (size_t i = 1; i < iDepth; ++i) strLead += m_vbMore[i] ? "|   " : "    ";
    if (iDepth > 0) strLead += zRow.m_bLast ? "`-- " : "|-- ";
    return strLead;
  }

  void PrintText(KivToolOutput& zOutput, KivToolModel& zModel, const KivToolStructure& zStructure,
                 const KivTreeRow& zRow) {
    const std::string strLead = Lead(zRow);
    if (zRow.m_eKind == KivTreeRow::Kind::NoNode) {
      zOutput.Line("(no node %llu)  part #%llu", static_cast<unsigned long long>(zRow.m_iNode),
                   static_cast<unsigned long long>(zStructure.m_vzInstance[zRow.m_viInstance[0]].m_iPart));
      return;
    }
    if (zRow.m_eKind != KivTreeRow::Kind::Node) {
      const char* szWhy = zRow.m_eKind == KivTreeRow::Kind::Circle ? "is one of its own parents; the circle is cut here"
                          : zRow.m_eKind == KivTreeRow::Kind::Again ? "stands elsewhere in this tree already"
                                                                    : "does not exist";
      zOutput.Line("%s(node %llu %s)", strLead.c_str(), static_cast<unsigned long long>(zRow.m_iNode), szWhy);
      return;
    }
    const KivAssemblyNode& zNode = zStructure.m_vzNode[zRow.m_iNode];
    std::string strLine = zNode.m_strNodeName[0].empty() ? "(no name)" : KivShown(zNode.m_strNodeName[0]);
    if (!zNode.m_strNodeName[1].empty() && zNode.m_strNodeName[1] != zNode.m_strNodeName[0])
      strLine += " \"" + KivShown(zNode.m_strNodeName[1]) + "\"";
    strLine += std::string("  ") + KivNodeTypeName(zNode.m_iNodeType);
    const auto Add = [&](const std::string& str) { strLine += ", " + str; };
    const std::string strPlacement = KivPlacementText(zNode.m_zMatrix);
    if (!strPlacement.empty()) Add(strPlacement);
    for (const size_t i : zRow.m_viInstance) Add("part #" + std::to_string(zStructure.m_vzInstance[i].m_iPart));
    if (const auto fColour = KivGetColour(zNode.m_vzAttribute)) Add("colour " + ColourText(*fColour));
    if (const auto iLayer = KivGetLayer(zNode.m_vzAttribute)) Add("layer " + std::to_string(*iLayer));
    if (zNode.m_iPMIKey != 0) Add("PMI");
    if (zNode.m_iCameraKey != 0) Add("camera");
    if (zNode.m_iLayerFilterKey != 0) Add(LayerText(LayersOf(zModel, zNode)));
    zOutput.Line("%s%s", strLead.c_str(), strLine.c_str());
  }

  static std::string LayerText(const std::vector<LayerSet>& vzSet) {
    std::string strText = "layers";
    for (size_t iSet = 0; iSet < vzSet.size(); ++iSet) {
      strText += iSet == 0 ? " " : "; ";
      if (!vzSet[iSet].m_csName.empty()) strText += "\"" + KivShown(vzSet[iSet].m_csName) + "\"";
      for (const KivLayer& z : vzSet[iSet].m_vzLayer)
        strText += " " + std::to_string(z.m_iLayer) + (z.m_bOn ? "" : " (off)");
    }
    return strText;
  }

  KivWString m_csPath;
  int64_t m_iDepth = INT32_MAX;
  std::vector<bool> m_vbMore;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeTreeCommand() {
  return std::make_unique<TreeCommand>();
}

}  // namespace kiv
