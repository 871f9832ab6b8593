#include "KivModelTree.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "KivNumberText.h"

namespace kiv {
namespace {

class Walker {
 public:
  Walker(const KivToolStructure& zStructure, const std::function<void(const KivTreeRow&)>& pfnRow)
      : m_z(zStructure), m_pfnRow(pfnRow), m_vcState(zStructure.m_vzNode.size(), kNew) {}

  void WalkAll() {
    GatherInstances();
    std::vector<bool> vbChild(m_z.m_vzNode.size(), false);
    for (const KivAssemblyNode& zNode : m_z.m_vzNode)
      for (const uint64_t iChild : zNode.m_viChildren)
        if (iChild < vbChild.size()) vbChild[iChild] = true;
    for (size_t i = 0; i < m_z.m_vzNode.size(); ++i)
      if (!vbChild[i]) WalkFrom(i);
    for (size_t i = 0; i < m_z.m_vzNode.size(); ++i) WalkFrom(i);
    for (const size_t iInstance : m_viHomeless) {
      KivTreeRow zRow;
      zRow.m_eKind = KivTreeRow::Kind::NoNode;
      zRow.m_iNode = m_z.m_vzInstance[iInstance].m_iNode;
      zRow.m_viInstance = {iInstance};
      m_pfnRow(zRow);
    }
  }

 private:
  enum State : uint8_t { kNew, kOpen, kDone };
  struct Open {
    size_t m_iNode;
    size_t m_iNextChild;
  };

  void GatherInstances() {
    m_vviInstance.resize(m_z.m_vzNode.size());
    for (size_t i = 0; i < m_z.m_vzInstance.size(); ++i) {
      const uint32_t iNode = m_z.m_vzInstance[i].m_iNode;
      if (iNode < m_z.m_vzNode.size() && !m_z.m_vzNode[iNode].m_zFrame.IsGap())
        m_vviInstance[iNode].push_back(i);
      else
        m_viHomeless.push_back(i);
    }
  }

  void WalkFrom(size_t iRoot) {
    if (m_vcState[iRoot] != kNew || m_z.m_vzNode[iRoot].m_zFrame.IsGap()) return;
    Enter(iRoot, 0, 0, true);
    while (!m_vzOpen.empty()) {
      const size_t iNode = m_vzOpen.back().m_iNode;
      const std::vector<uint64_t>& viChildren = m_z.m_vzNode[iNode].m_viChildren;
      const size_t iNext = m_vzOpen.back().m_iNextChild++;
      if (iNext >= viChildren.size()) {
        m_vcState[iNode] = kDone;
        m_vzOpen.pop_back();
        continue;
      }
      Visit(viChildren[iNext], m_vzOpen.size(), iNode, iNext + 1 == viChildren.size());
    }
  }

  void Visit(uint64_t iChild, size_t iDepth, size_t iParent, bool bLast) {
    KivTreeRow zRow{KivTreeRow::Kind::Missing, iDepth, iParent, iChild, bLast, {}};
    if (iChild < m_z.m_vzNode.size() && !m_z.m_vzNode[iChild].m_zFrame.IsGap()) {
      if (m_vcState[iChild] == kNew) return Enter(static_cast<size_t>(iChild), iDepth, iParent, bLast);
      zRow.m_eKind = m_vcState[iChild] == kOpen ? KivTreeRow::Kind::Circle : KivTreeRow::Kind::Again;
    }
    m_pfnRow(zRow);
  }

  void Enter(size_t iNode, size_t iDepth, size_t iParent, bool bLast) {
    m_vcState[iNode] = kOpen;
    m_vzOpen.push_back({iNode, 0});
    m_pfnRow({KivTreeRow::Kind::Node, iDepth, iParent, iNode, bLast, m_vviInstance[iNode]});
  }

  const KivToolStructure& m_z;
  const std::function<void(const KivTreeRow&)>& m_pfnRow;
  std::vector<uint8_t> m_vcState;
  std::vector<Open> m_vzOpen;
  std::vector<std::vector<size_t>> m_vviInstance;  // by node
  std::vector<size_t> m_viHomeless;
};

std::string Rounded(double dValue) {
  char acText[40];
  std::snprintf(acText, sizeof acText, "%.6g", dValue == 0 ? 0.0 : dValue);
  return acText;
}

}  // namespace

void KivWalkAssembly(const KivToolStructure& zStructure, const std::function<void(const KivTreeRow&)>& pfnRow) {
  Walker(zStructure, pfnRow).WalkAll();
}

std::string KivPlacementText(const KivEMatrix4& z) {
  for (size_t i = 0; i < 16; ++i)
    if (!std::isfinite(z[i])) return "placement has values that are no numbers";
  std::string strText;
  const auto Add = [&](const std::string& str) { strText += (strText.empty() ? "" : ", ") + str; };
  const KivECoord3 zAt = z.GetTranslation();
  if (zAt != KivECoord3()) Add("at " + Rounded(zAt.m_dX) + " " + Rounded(zAt.m_dY) + " " + Rounded(zAt.m_dZ));
  if (!z.IsAffine()) Add("not affine");

  const KivECoord3 azRow[3] = {{z[0], z[1], z[2]}, {z[4], z[5], z[6]}, {z[8], z[9], z[10]}};
  const double adLength[3] = {azRow[0].Length(), azRow[1].Length(), azRow[2].Length()};
  constexpr double kClose = 1e-6;
  const double dVolume = azRow[0].Cross(azRow[1]).Dot(azRow[2]);
  if (std::abs(dVolume) < 1e-30) {
    Add("flattened");
    return strText;
  }
  const double dScale = std::cbrt(std::abs(dVolume));
  bool bAlike = true;
  for (int i = 0; i < 3; ++i) {
    bAlike = bAlike && std::abs(adLength[i] - dScale) <= kClose * dScale;
    bAlike = bAlike && std::abs(azRow[i].Dot(azRow[(i + 1) % 3])) <= kClose * dScale * dScale;
  }
  if (!bAlike) {
    Add("distorted");
    return strText;
  }
  const double dSign = dVolume < 0 ? -1 : 1;
  const double dCosine = std::clamp((dSign * (z[0] + z[5] + z[10]) / dScale - 1) / 2, -1.0, 1.0);
  const double dDegrees = std::acos(dCosine) * 180 / std::numbers::pi;
  if (dSign < 0) Add("mirrored");
  if (dDegrees > 1e-4) Add("turned " + Rounded(dDegrees) + " deg");
  if (std::abs(dScale - 1) > kClose) Add("scaled " + Rounded(dScale));
  return strText;
}

const char* KivNodeTypeName(uint32_t iNodeType) {
  switch (static_cast<KivNodeType>(iNodeType)) {
    case KivNodeType::Leaf:
      return "leaf";
    case KivNodeType::Inner:
      return "inner";
    case KivNodeType::Root:
      return "root";
  }
  return "no type";
}

}  // namespace kiv
