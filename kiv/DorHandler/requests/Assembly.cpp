// The tree of nodes: what is in it, names, placements.
#include <cmath>

#include "DorAssembly.h"
#include "DorRequest.h"
#include "KivElementWalk.h"
#include "KivModelMeaning.h"

namespace kiv {
namespace {

// Bits: 0 PMI, 1 layer filter, 2 camera, 3 colour, 4 layer.
int64_t MarksOf(const KivAssemblyNode& z) {
  const bool abMark[] = {z.m_iPMIKey != 0, z.m_iLayerFilterKey != 0, z.m_iCameraKey != 0,
                         KivGetColour(z.m_vzAttribute).has_value(), KivGetLayer(z.m_vzAttribute).has_value()};
  int64_t iMarks = 0;
  for (size_t i = 0; i < std::size(abMark); ++i) iMarks |= int64_t{abMark[i]} << i;
  return iMarks;
}

double UnitOf(DorSession& zSession) {
  KivModelNote* pzNote = KivGetModelNote(zSession.Key());
  const KivMemoryBlockModelNote* pzBlock = pzNote != nullptr ? pzNote->GetMemoryBlock() : nullptr;
  return pzBlock != nullptr ? KivGetUnit(pzBlock->m_vzAttribute).value_or(0) : 0;
}

size_t LiveNum(const KivMemoryBlockAssemblyTree& zTree) {
  size_t n = 0;
  for (const KivAssemblyNode& z : zTree.m_vzNode) n += !z.m_zFrame.IsGap();
  return n;
}

void PutLevels(DorSession& zSession, uint32_t iPart, DorAnswerWriter& zAnswer) {
  const DorPartIndex& zPart = zSession.Index().Part(iPart);
  const std::vector<float> vfTolerance = zSession.Index().Tolerances();
  zAnswer.List("levels", zPart.m_vzLevel.size());
  for (size_t i = 0; i < zPart.m_vzLevel.size(); ++i) {
    zAnswer.Float("tolerance", i < vfTolerance.size() ? vfTolerance[i] : 0);
    zAnswer.Integer("triangles", static_cast<int64_t>(zPart.m_vzLevel[i].m_nTriangles));
  }
}

// The ids that any level has, each once.
void PutIds(const DorPartIndex& zPart, std::vector<DorEntryPlace> DorLevelIndex::*pvz, std::string_view strList,
            std::string_view strName, DorAnswerWriter& zAnswer) {
  std::vector<uint32_t> viId;
  for (const DorLevelIndex& zLevel : zPart.m_vzLevel)
    for (const DorEntryPlace& z : zLevel.*pvz) viId.push_back(z.m_iId);
  std::sort(viId.begin(), viId.end());
  viId.erase(std::unique(viId.begin(), viId.end()), viId.end());
  zAnswer.List(strList, viId.size());
  for (const uint32_t iId : viId) zAnswer.Integer(strName, iId);
}

// Affine, with numbers that stay numbers, and with a volume: the three axes must not lie in a plane, as measured by
// their own lengths.
KivEMatrix4 MatrixOf(const DorRequestFields& zFields) {
  constexpr double kLeastVolume = 1e-9;
  KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) z[i] = zFields.Float("matrix", i);
  if (!z.IsAffine()) throw DorRefusal(DorAnswerCode::BadMatrix, "the last column of the matrix is not 0, 0, 0, 1");
  const KivECoord3 zX{z[0], z[1], z[2]}, zY{z[4], z[5], z[6]}, zZ{z[8], z[9], z[10]};
  const double dLengths = zX.Length() * zY.Length() * zZ.Length();
  const double dVolume = std::abs(zX.Cross(zY).Dot(zZ));
  if (!std::isfinite(dLengths) || !std::isfinite(dVolume))
    throw DorRefusal(DorAnswerCode::NotANumber, "the matrix has numbers that are too large");
  if (!(dVolume > kLeastVolume * dLengths)) throw DorRefusal(DorAnswerCode::BadMatrix, "the matrix is singular");
  return z;
}

void ServeGetAsmTreeInfo(DorSession& zSession, const DorRequestFields&, DorAnswerWriter& zAnswer) {
  DorBox zBox;
  for (const DorPlace& zPlace : zSession.Index().Places())
    zBox.Add(DorBox{zSession.Index().EntryOf(zPlace).m_fInstanceBox});
  zAnswer.Text("path", zSession.Path());
  zAnswer.Float("unit", UnitOf(zSession));
  zAnswer.Box(zBox);
  zAnswer.Integer("instances", static_cast<int64_t>(zSession.Index().Places().size()));
  zAnswer.Integer("parts", static_cast<int64_t>(zSession.Index().Parts().size()));
  const KivMemoryBlockAssemblyTree* pzTree = DorAssemblyBlock(zSession);
  if (pzTree == nullptr) return zAnswer.List("nodes", 0);
  const std::vector<int64_t> viParent = DorParents(*pzTree);
  const auto vviInstance = DorInstancesOfNodes(zSession, pzTree->m_vzNode.size());
  zAnswer.List("nodes", LiveNum(*pzTree));
  for (size_t i = 0; i < pzTree->m_vzNode.size(); ++i) {
    const KivAssemblyNode& zNode = pzTree->m_vzNode[i];
    if (zNode.m_zFrame.IsGap()) continue;
    zAnswer.Integer("node", static_cast<int64_t>(i));
    zAnswer.Integer("parent", viParent[i]);
    zAnswer.Integer("type", zNode.m_iNodeType);
    zAnswer.Text("name", zNode.m_strNodeName[0]);
    zAnswer.Text("part", zNode.m_strNodeName[1]);
    zAnswer.Matrix("matrix", zNode.m_zMatrix);
    zAnswer.Box(DorBox{zNode.m_fNodeBox});
    zAnswer.Integer("marks", MarksOf(zNode));
    zAnswer.List("places", vviInstance[i].size());
    for (const int64_t iInstance : vviInstance[i]) {
      zAnswer.Integer("instance", iInstance);
      zAnswer.Integer("part", zSession.Index().PlaceOf(iInstance).m_iPart);
    }
  }
}

void ServeGetAsmInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const int64_t iNode = zFields.Integer("node");
  const KivMemoryBlockAssemblyTree* pzTree = DorAssemblyBlock(zSession);
  const KivAssemblyNode zNode = DorNodeOf(pzTree, iNode);  // a copy: the parts are read behind it
  const std::vector<int64_t> viParent = DorParents(*pzTree);
  const KivEMatrix4 zAbsolute = DorAbsoluteMatrices(*pzTree, viParent)[static_cast<size_t>(iNode)];
  const auto viInstance = DorInstancesOfNodes(zSession, pzTree->m_vzNode.size())[static_cast<size_t>(iNode)];
  zAnswer.Integer("node", iNode);
  zAnswer.Integer("parent", viParent[static_cast<size_t>(iNode)]);
  zAnswer.Integer("type", zNode.m_iNodeType);
  zAnswer.Text("name", zNode.m_strNodeName[0]);
  zAnswer.Text("part", zNode.m_strNodeName[1]);
  zAnswer.Text("text", zNode.m_strNodeName[2]);
  zAnswer.Matrix("matrix", zNode.m_zMatrix);
  zAnswer.Matrix("absolute", zAbsolute);
  zAnswer.Box(DorBox{zNode.m_fNodeBox});
  zAnswer.Integer("marks", MarksOf(zNode));
  const std::optional<KivColour> zColour = KivGetColour(zNode.m_vzAttribute);
  zAnswer.List("colour", zColour ? 1 : 0);
  if (zColour) zAnswer.Floats("rgba", {(*zColour)[0], (*zColour)[1], (*zColour)[2], (*zColour)[3]});
  const std::optional<uint32_t> iLayer = KivGetLayer(zNode.m_vzAttribute);
  zAnswer.List("layer", iLayer ? 1 : 0);
  if (iLayer) zAnswer.Integer("layer", *iLayer);
  zAnswer.List("children", zNode.m_viChildren.size());
  for (const uint64_t iChild : zNode.m_viChildren) zAnswer.Integer("node", static_cast<int64_t>(iChild));
  zAnswer.List("places", viInstance.size());
  for (const int64_t iInstance : viInstance) {
    const DorPlace& zPlace = zSession.Index().PlaceOf(iInstance);
    const KivInstanceEntry zEntry = zSession.Index().EntryOf(zPlace);
    zAnswer.Integer("instance", iInstance);
    zAnswer.Integer("part", zPlace.m_iPart);
    zAnswer.Matrix("matrix", zEntry.m_zMatrix);
    zAnswer.Box(DorBox{zEntry.m_fInstanceBox});
    PutLevels(zSession, zPlace.m_iPart, zAnswer);
    const DorPartIndex& zPart = zSession.Index().Part(zPlace.m_iPart);
    PutIds(zPart, &DorLevelIndex::m_vzFace, "faces", "face", zAnswer);
    PutIds(zPart, &DorLevelIndex::m_vzEdge, "edges", "edge", zAnswer);
  }
}

void ServeSetAsmInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter&) {
  constexpr size_t kMostUnits = 4096;
  const int64_t iNode = zFields.Integer("node");
  const KivWString& csName = zFields.Text("name");
  DorNodeOf(DorAssemblyBlock(zSession), iNode);
  if (csName.size() > kMostUnits)
    throw DorRefusal(DorAnswerCode::BadArgument, "a name has at most " + std::to_string(kMostUnits) + " units");
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  auto& zTree = pzChange->Edit<KivAssemblyTree>(DorAssemblyKey(zSession));
  zTree.m_vzNode[static_cast<size_t>(iNode)].m_strNodeName[0] = csName;
  zSession.Commit(std::move(pzChange), false);
}

void ServeSetInstPathPartMatrix(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const int64_t iNode = zFields.Integer("node");
  DorNodeOf(DorAssemblyBlock(zSession), iNode);
  const KivEMatrix4 zMatrix = MatrixOf(zFields);
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  auto& zTree = pzChange->Edit<KivAssemblyTree>(DorAssemblyKey(zSession));
  zTree.m_vzNode[static_cast<size_t>(iNode)].m_zMatrix = zMatrix;

  const std::vector<int64_t> viParent = DorParents(zTree);
  const std::vector<KivEMatrix4> vzAbsolute = DorAbsoluteMatrices(zTree, viParent);
  std::vector<bool> vbMoves(viParent.size());  // the node and what is below it
  for (const int64_t i : DorTopDown(viParent)) {
    const int64_t iUp = viParent[static_cast<size_t>(i)];
    vbMoves[static_cast<size_t>(i)] = i == iNode || (iUp != kDorNoNode && vbMoves[static_cast<size_t>(iUp)]);
  }
  DorMoved zMoved;
  const std::vector<DorPlace>& vzPlace = zSession.Index().Places();
  for (size_t i = 0; i < vzPlace.size(); ++i)
    if (vzPlace[i].m_iNode < vbMoves.size() && vbMoves[vzPlace[i].m_iNode])
      zMoved.m_mapMatrix[static_cast<int64_t>(i)] = vzAbsolute[vzPlace[i].m_iNode];
  const size_t nInstances = DorFollow(zSession, zMoved, *pzChange);
  zAnswer.Integer("instances", static_cast<int64_t>(nInstances));
  zAnswer.Finish();
  zSession.Commit(std::move(pzChange), false);
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfAssembly() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_GetAsmTreeInfo", ServeGetAsmTreeInfo},
      {u"DorHandler_GetAsmInfo", ServeGetAsmInfo},
      {u"DorHandler_SetAsmInfo", ServeSetAsmInfo},
      {u"DorHandler_SetInstPathPartMatrix", ServeSetInstPathPartMatrix},
  };
  return kRows;
}

}  // namespace kiv
