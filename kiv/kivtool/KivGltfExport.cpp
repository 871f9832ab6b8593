#include "KivGltfExport.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "KivFaceEdgeData.h"
#include "KivGltfWriter.h"
#include "KivModelTree.h"
#include "KivPolyElemData.h"
#include "KivProgress.h"
#include "KivToolError.h"
#include "KivToolOutput.h"

namespace kiv {
namespace {

bool IsFinite(const KivEMatrix4& z) {
  for (size_t i = 0; i < 16; ++i)
    if (!std::isfinite(z[i])) return false;
  return true;
}

bool IsClose(const KivEMatrix4& zA, const KivEMatrix4& zB) {
  for (size_t i = 0; i < 16; ++i)
    if (!(std::abs(zA[i] - zB[i]) <= 1e-6 * (1 + std::abs(zA[i]) + std::abs(zB[i])))) return false;
  return true;
}

// Triangles or lines that become one primitive.
struct Group {
  std::vector<float> m_vfVertex;
  std::vector<float> m_vfNormal;
  std::vector<uint32_t> m_viIndex;
};

class Exporter {
 public:
  Exporter(KivToolModel& zModel, const KivGltfOptions& zOptions, const KivWString& csPath, const KivWString& csTarget)
      : m_zModel(zModel), m_zOptions(zOptions), m_zStructure(KivLoadStructure(zModel)), m_zWriter(csPath, csTarget) {}

  KivGltfSummary Run() {
    if (!m_zStructure.m_bComplete) FailIncomplete();
    const size_t nLevels = m_zStructure.GetLevelNum();
    if (m_zOptions.m_iLevel && *m_zOptions.m_iLevel >= std::max<size_t>(nLevels, 1))
      throw KivToolError("the model has " + std::to_string(nLevels) + " levels, and no level " +
                         std::to_string(*m_zOptions.m_iLevel));
    AddParts();
    AddNodes();
    std::vector<uint32_t> viRoot = m_viRoot;
    if (m_zStructure.m_dUnit && !viRoot.empty() && *m_zStructure.m_dUnit != 1) {
      KivGltfNode zNode;
      zNode.m_strName = "metres";
      zNode.m_zTrs.emplace();
      zNode.m_zTrs->m_dScale.fill(*m_zStructure.m_dUnit);
      zNode.m_viChildren = viRoot;
      viRoot = {m_zWriter.AddNode(std::move(zNode))};
    }
    m_zSummary.m_nNodes = m_zWriter.GetNodeNum();
    m_zSummary.m_nMeshes = m_zWriter.GetMeshNum();
    m_zSummary.m_nBytes = m_zWriter.Finish(viRoot);
    m_zSummary.m_vstrNote.assign(m_ssNote.begin(), m_ssNote.end());
    return m_zSummary;
  }

 private:
  void Note(const std::string& strNote) { m_ssNote.insert(strNote); }

  // A file without whole parts would pass for the model.
  [[noreturn]] void FailIncomplete() const {
    throw KivToolError(KivShown(m_zModel.Path()) +
                       ": is damaged: some of its elements cannot be loaded (see kiv check), nothing was exported");
  }

  // --- Parts --------------------------------------------------------------------------------------------------------

  void AddParts() {
    KivProgress zProgress("exporting", m_zStructure.m_vzPart.size());
    m_vvzPrimitive.resize(m_zStructure.m_vzPart.size());
    for (size_t i = 0; i < m_zStructure.m_vzPart.size(); ++i) {
      zProgress.Set(i);
      const std::vector<KivToolPart::Level>& vzLevel = m_zStructure.m_vzPart[i].m_vzLevel;
      size_t n = m_zOptions.m_iLevel ? std::min(*m_zOptions.m_iLevel + 1, vzLevel.size()) : vzLevel.size();
      while (n > 0 && vzLevel[n - 1] == KivToolPart::Level()) --n;
      if (n == 0) continue;
      const KivToolPart::Level& zLevel = vzLevel[n - 1];
      for (const uint64_t iKey : {zLevel.m_iFaceEdgeKey, zLevel.m_iCommonKey, zLevel.m_iPolyElemKey})
        if (iKey != 0) AddTree(iKey, zProgress);
      FinishGroups(m_vvzPrimitive[i]);
    }
  }

  void AddTree(uint64_t iRootKey, KivProgress& zProgress) {
    std::set<uint64_t> siSeen;
    std::vector<uint64_t> viToVisit = {iRootKey};
    while (!viToVisit.empty()) {
      const uint64_t iKey = viToVisit.back();
      viToVisit.pop_back();
      if (iKey == 0 || !siSeen.insert(m_zModel.Resolve(iKey)).second) continue;
      zProgress.Advance(0);
      KivOutOfCoreTreeNode* pzElement = m_zModel.Load(iKey);
      const KivMemoryBlock* pzBlock = pzElement != nullptr ? pzElement->GetMemoryBlock() : nullptr;
      if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(pzBlock)) {
        AddBlock(*pzFaceEdge);
      } else if (const auto* pzPoly = dynamic_cast<const KivMemoryBlockPolyElem*>(pzBlock)) {
        AddBlock(*pzPoly);
      } else {
        FailIncomplete();
      }
      viToVisit.push_back(pzBlock->GetHeader().m_aiLink[2]);
      viToVisit.push_back(pzBlock->GetHeader().m_aiLink[1]);
    }
  }

  template <typename Block>
  void AddBlock(const Block& zBlock) {
    for (const auto& zFace : zBlock.m_vzFace)
      if (!zFace.m_zFrame.IsGap()) AddFace(zFace, (zBlock.m_iMeshFlags & kMeshIndexCount) != 0);
    if (!m_zOptions.m_bEdges) return;
    for (const KivMeshEdge& zEdge : zBlock.m_vzEdge)
      if (!zEdge.m_zFrame.IsGap()) AddEdge(zEdge);
  }

  static double LengthOf(const float* pf) {
    return std::hypot(static_cast<double>(pf[0]), static_cast<double>(pf[1]), static_cast<double>(pf[2]));
  }
  static bool IsDirection(const float* pf) {
    const double dLength = LengthOf(pf);
    return dLength > 1e-6 && std::isfinite(dLength);
  }
  static bool HasNormals(const KivMeshFace& zFace) {
    if (zFace.m_vfNormal.empty() || zFace.m_vfNormal.size() != zFace.m_vfVertex.size()) return false;
    for (size_t i = 0; i + 2 < zFace.m_vfNormal.size(); i += 3)
      if (IsDirection(zFace.m_vfNormal.data() + i)) return true;
    return false;
  }

  // Of length 1. Where there is none, that of the triangles around: viIndex from iFirst on, of this face.
  static void AddNormals(const KivMeshFace& zFace, uint32_t iBase, size_t iFirst, Group& zGroup) {
    const size_t nVertices = zFace.m_vfVertex.size() / 3;
    std::map<uint32_t, KivECoord3> mapMissing;
    for (uint32_t i = 0; i < nVertices; ++i)
      if (!IsDirection(zFace.m_vfNormal.data() + 3 * size_t{i})) mapMissing[i];
    const auto At = [&](uint32_t i) {
      const float* pf = zFace.m_vfVertex.data() + 3 * size_t{i};
      return KivECoord3{static_cast<double>(pf[0]), static_cast<double>(pf[1]), static_cast<double>(pf[2])};
    };
    for (size_t i = iFirst; !mapMissing.empty() && i + 2 < zGroup.m_viIndex.size(); i += 3) {
      const uint32_t* pi = zGroup.m_viIndex.data() + i;
      const uint32_t aiCorner[3] = {pi[0] - iBase, pi[1] - iBase, pi[2] - iBase};
      for (const uint32_t iCorner : aiCorner)
        if (const auto it = mapMissing.find(iCorner); it != mapMissing.end())
          it->second += (At(aiCorner[1]) - At(aiCorner[0])).Cross(At(aiCorner[2]) - At(aiCorner[0]));
    }
    for (uint32_t i = 0; i < nVertices; ++i) {
      const float* pf = zFace.m_vfNormal.data() + 3 * size_t{i};
      KivECoord3 z = {static_cast<double>(pf[0]), static_cast<double>(pf[1]), static_cast<double>(pf[2])};
      if (const auto it = mapMissing.find(i); it != mapMissing.end()) z = it->second;
      const double dLength = z.Length();
      z = dLength > 1e-30 && std::isfinite(dLength) ? z * (1 / dLength) : KivECoord3{0, 0, 1};  // shows nowhere
      for (const double d : {z.m_dX, z.m_dY, z.m_dZ}) zGroup.m_vfNormal.push_back(static_cast<float>(d));
    }
  }

  // The plain triangles, then those of the strip; those with corners that are one or do not exist are left out.
  void AddTriangles(const KivMeshFace& zFace, bool bStrips, uint32_t iBase, Group& zGroup) {
    const size_t nVertices = zFace.m_vfVertex.size() / 3;
    const auto IsGood = [&](uint32_t i) {
      return i < nVertices && std::isfinite(zFace.m_vfVertex[3 * size_t{i}]) &&
             std::isfinite(zFace.m_vfVertex[3 * size_t{i} + 1]) && std::isfinite(zFace.m_vfVertex[3 * size_t{i} + 2]);
    };
    const auto Add = [&](uint32_t a, uint32_t b, uint32_t c) {
      if (!IsGood(a) || !IsGood(b) || !IsGood(c)) return Note("triangles with corners that do not exist were left out");
      if (a == b || b == c || c == a) return;
      zGroup.m_viIndex.insert(zGroup.m_viIndex.end(), {iBase + a, iBase + b, iBase + c});
    };
    const std::vector<uint32_t>& vi = zFace.m_viIndex;
    if (vi.empty()) {
      for (uint32_t i = 0; size_t{i} + 2 < nVertices && i / 3 < zFace.m_iTriangleCount; i += 3) Add(i, i + 1, i + 2);
      return;
    }
    const size_t nPlain = bStrips ? std::min(vi.size(), 3 * size_t{zFace.m_iTriangleCount}) : vi.size();
    for (size_t i = 0; i + 2 < nPlain; i += 3) Add(vi[i], vi[i + 1], vi[i + 2]);
    for (size_t i = nPlain; i + 2 < vi.size(); ++i) {
      const bool bOdd = (i - nPlain) % 2 != 0;
      Add(vi[i], vi[bOdd ? i + 2 : i + 1], vi[bOdd ? i + 1 : i + 2]);
    }
  }

  static void AddVertices(const std::vector<float>& vfVertex, Group& zGroup) {
    for (size_t i = 0; i < vfVertex.size() / 3 * 3; ++i)
      zGroup.m_vfVertex.push_back(std::isfinite(vfVertex[i]) ? vfVertex[i] : 0.0f);
  }

  void AddFace(const KivMeshFace& zFace, bool bStrips) {
    const bool bNormals = HasNormals(zFace);
    const std::optional<KivColour> fColour = KivGetColour(zFace.m_vzAttribute);
    Group& zGroup = m_zOptions.m_bFaces ? NewGroup(fColour, bNormals, false) : m_mapGroup[{fColour, bNormals, false}];
    const uint32_t iBase = static_cast<uint32_t>(zGroup.m_vfVertex.size() / 3);
    const size_t nBefore = zGroup.m_viIndex.size();
    AddTriangles(zFace, bStrips, iBase, zGroup);
    m_zSummary.m_nTriangles += (zGroup.m_viIndex.size() - nBefore) / 3;
    AddVertices(zFace.m_vfVertex, zGroup);
    if (bNormals) AddNormals(zFace, iBase, nBefore, zGroup);
  }

  void AddEdge(const KivMeshEdge& zEdge) {
    const size_t nPoints = zEdge.m_vfVertex.size() / 3;
    if (nPoints < 2) return;
    for (const float f : zEdge.m_vfVertex)
      if (!std::isfinite(f)) return Note("edges with points that are no numbers were left out");
    Group& zGroup = m_mapGroup[{KivGetColour(zEdge.m_vzAttribute), false, true}];
    const uint32_t iBase = static_cast<uint32_t>(zGroup.m_vfVertex.size() / 3);
    AddVertices(zEdge.m_vfVertex, zGroup);
    for (uint32_t i = 0; i + 1 < nPoints; ++i)
      zGroup.m_viIndex.insert(zGroup.m_viIndex.end(), {iBase + i, iBase + i + 1});
    m_zSummary.m_nLines += nPoints - 1;
  }

  // Colour, normals, lines.
  struct GroupKey {
    std::optional<KivColour> m_fColour;
    bool m_bNormals = false;
    bool m_bLines = false;
    uint64_t m_iFace = 0;
    auto operator<=>(const GroupKey&) const = default;
  };
  Group& NewGroup(const std::optional<KivColour>& fColour, bool bNormals, bool bLines) {
    return m_mapGroup[{fColour, bNormals, bLines, ++m_iFace}];
  }

  void FinishGroups(std::vector<KivGltfPrimitive>& vzPrimitive) {
    for (auto& [zKey, zGroup] : m_mapGroup) {
      if (zGroup.m_viIndex.empty()) continue;
      KivGltfPrimitive z;
      z.m_iMode = zKey.m_bLines ? 1 : 4;
      z.m_fColour = zKey.m_fColour;
      z.m_iPosition = m_zWriter.AddVectors(zGroup.m_vfVertex, true);
      if (zKey.m_bNormals) z.m_iNormal = m_zWriter.AddVectors(zGroup.m_vfNormal, false);
      z.m_iIndices = m_zWriter.AddIndices(zGroup.m_viIndex, zGroup.m_vfVertex.size() / 3);
      vzPrimitive.push_back(z);
      zGroup = Group();
    }
    m_mapGroup.clear();
  }

  // --- Nodes --------------------------------------------------------------------------------------------------------

  // A part in the colour that its place gives to faces without one.
  uint32_t MeshOf(size_t iPart, const std::optional<KivColour>& fColour, const std::string& strName) {
    if (m_vvzPrimitive[iPart].empty()) return kNoGltfIndex;
    const auto [it, bNew] = m_mapMesh.try_emplace({iPart, fColour}, kNoGltfIndex);
    if (bNew) {
      KivGltfMesh zMesh{strName, m_vvzPrimitive[iPart]};
      for (KivGltfPrimitive& z : zMesh.m_vzPrimitive)
        if (!z.m_fColour) z.m_fColour = fColour;
      it->second = m_zWriter.AddMesh(std::move(zMesh));
    }
    return it->second;
  }

  // A node for a placement; iInside is the one that takes children and meshes.
  uint32_t PlaceNode(const std::string& strName, const KivEMatrix4& zMatrix, uint32_t& iInside) {
    KivGltfNode zNode;
    zNode.m_strName = strName;
    if (!IsFinite(zMatrix)) {
      Note("placements with values that are no numbers were left out");
    } else if (zMatrix.IsIdentityLike(KivEMatrix4())) {
      // nothing to write
    } else if (KivIsPlainPlacement(zMatrix)) {
      zNode.m_zMatrix = zMatrix;
    } else {
      if (!zMatrix.IsAffine()) Note("the perspective of placements was left out");
      KivGltfNode zInner;
      KivSplitPlacement(zMatrix, zInner.m_zTrs.emplace(), zNode.m_zTrs.emplace());
      iInside = m_zWriter.AddNode(std::move(zInner));
      zNode.m_viChildren = {iInside};
      return m_zWriter.AddNode(std::move(zNode));
    }
    return iInside = m_zWriter.AddNode(std::move(zNode));
  }

  void AddNodes() {
    const size_t nNodes = m_zStructure.m_vzNode.size();
    m_viInside.assign(nNodes, kNoGltfIndex);
    m_vzInModel.resize(nNodes);
    m_vfColour.resize(nNodes);
    KivProgress zProgress("exporting nodes", nNodes);
    KivWalkAssembly(m_zStructure, [&](const KivTreeRow& zRow) {
      zProgress.Advance();
      if (zRow.m_eKind == KivTreeRow::Kind::Node)
        AddRow(zRow);
      else if (zRow.m_eKind == KivTreeRow::Kind::NoNode)
        AddApart(zRow.m_viInstance[0]);
      else
        Note("children that are circles, stand in the tree twice or do not exist were left out");
    });
  }

  void AddRow(const KivTreeRow& zRow) {
    const size_t iNode = static_cast<size_t>(zRow.m_iNode);
    const KivAssemblyNode& zNode = m_zStructure.m_vzNode[iNode];
    const uint32_t iOutside = PlaceNode(sys::WideToUtf8(zNode.m_strNodeName[0]), zNode.m_zMatrix, m_viInside[iNode]);
    m_vzInModel[iNode] = zNode.m_zMatrix;
    m_vfColour[iNode] = KivGetColour(zNode.m_vzAttribute);
    if (zRow.m_iDepth == 0) {
      m_viRoot.push_back(iOutside);
    } else {
      m_zWriter.Node(m_viInside[zRow.m_iParent]).m_viChildren.push_back(iOutside);
      m_vzInModel[iNode] *= m_vzInModel[zRow.m_iParent];
      if (!m_vfColour[iNode]) m_vfColour[iNode] = m_vfColour[zRow.m_iParent];
    }
    for (const size_t i : zRow.m_viInstance) AddInstance(i, iNode);
  }

  void AddInstance(size_t iInstance, size_t iNode) {
    const KivToolInstance& zInstance = m_zStructure.m_vzInstance[iInstance];
    const KivAssemblyNode& zNode = m_zStructure.m_vzNode[iNode];
    if (IsFinite(m_vzInModel[iNode]) && !IsClose(zInstance.m_zMatrix, m_vzInModel[iNode])) {
      AddApart(iInstance, m_vfColour[iNode], sys::WideToUtf8(zNode.m_strNodeName[0]));
      return;
    }
    const uint32_t iMesh = MeshOf(zInstance.m_iPart, m_vfColour[iNode], sys::WideToUtf8(zNode.m_strNodeName[1]));
    if (iMesh == kNoGltfIndex) return;
    KivGltfNode& zInside = m_zWriter.Node(m_viInside[iNode]);
    if (zInside.m_iMesh == kNoGltfIndex) {
      zInside.m_iMesh = iMesh;
      return;
    }
    KivGltfNode zMore;
    zMore.m_iMesh = iMesh;
    const uint32_t iMore = m_zWriter.AddNode(std::move(zMore));
    m_zWriter.Node(m_viInside[iNode]).m_viChildren.push_back(iMore);
  }

  // An instance that does not stand where its node does.
  void AddApart(size_t iInstance, const std::optional<KivColour>& fColour = {}, const std::string& strName = {}) {
    const KivToolInstance& zInstance = m_zStructure.m_vzInstance[iInstance];
    const uint32_t iMesh = MeshOf(zInstance.m_iPart, fColour, strName);
    if (iMesh == kNoGltfIndex) return;
    uint32_t iInside = kNoGltfIndex;
    m_viRoot.push_back(PlaceNode(strName, zInstance.m_zMatrix, iInside));
    m_zWriter.Node(iInside).m_iMesh = iMesh;
  }

  KivToolModel& m_zModel;
  const KivGltfOptions m_zOptions;
  const KivToolStructure m_zStructure;
  KivGltfWriter m_zWriter;
  KivGltfSummary m_zSummary;
  std::set<std::string> m_ssNote;
  std::map<GroupKey, Group> m_mapGroup;  // of the part at hand
  uint64_t m_iFace = 0;
  std::vector<std::vector<KivGltfPrimitive>> m_vvzPrimitive;  // by part
  std::map<std::pair<size_t, std::optional<KivColour>>, uint32_t> m_mapMesh;
  std::vector<uint32_t> m_viInside;  // by node, as the next two
  std::vector<KivEMatrix4> m_vzInModel;
  std::vector<std::optional<KivColour>> m_vfColour;
  std::vector<uint32_t> m_viRoot;
};

}  // namespace

KivGltfSummary KivExportGltf(KivToolModel& zModel, const KivGltfOptions& zOptions, const KivWString& csPath,
                             const KivWString& csTarget) {
  return Exporter(zModel, zOptions, csPath, csTarget).Run();
}

}  // namespace kiv
