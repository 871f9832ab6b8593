// What the check asks of the nodes and the instances.
#include <cmath>

#include "KivCheckWalk.h"
#include "KivModelTree.h"

namespace kiv {
namespace {

bool IsFinite(const KivEMatrix4& zMatrix) {
  for (size_t i = 0; i < 16; ++i)
    if (!std::isfinite(zMatrix[i])) return false;
  return true;
}

bool IsClose(const KivEMatrix4& zA, const KivEMatrix4& zB) {
  for (size_t i = 0; i < 16; ++i)
    if (!(std::abs(zA[i] - zB[i]) <= 1e-6 * (1 + std::abs(zA[i]) + std::abs(zB[i])))) return false;
  return true;
}

class StructureCheck {
 public:
  StructureCheck(KivToolModel& zModel, KivCheckSink& zSink)
      : m_zStructure(KivLoadStructure(zModel)),
        m_zSink(zSink),
        m_iTreePosition(zModel.Resolve(m_zStructure.m_iAssemblyKey)),
        m_zModel(zModel) {}

  void Run() {
    if (!m_zStructure.m_bComplete)
      m_zSink.Add("structure-incomplete", 0, 0, "nodes or instances could not be loaded, and are not checked");
    m_vzInModel.resize(m_zStructure.m_vzNode.size());
    KivWalkAssembly(m_zStructure, [&](const KivTreeRow& zRow) { Row(zRow); });
    for (const KivToolInstance& zInstance : m_zStructure.m_vzInstance) Instance(zInstance);
  }

 private:
  void AddNode(const char* szCode, uint64_t iNode, const std::string& strWhat) {
    m_zSink.Add(szCode, m_iTreePosition, m_zStructure.m_iAssemblyKey, "node " + std::to_string(iNode) + strWhat);
  }

  void Row(const KivTreeRow& zRow) {
    switch (zRow.m_eKind) {
      case KivTreeRow::Kind::Node:
        Node(zRow);
        break;
      case KivTreeRow::Kind::Again:
        AddNode("node-two-parents", zRow.m_iNode, " is the child of more than one node, or twice of one");
        break;
      case KivTreeRow::Kind::Circle:
        AddNode("node-circle", zRow.m_iNode, " is one of its own parents");
        break;
      case KivTreeRow::Kind::Missing:
        AddNode("node-child", zRow.m_iParent,
                " names the child " + std::to_string(zRow.m_iNode) + ", which does not exist");
        break;
      case KivTreeRow::Kind::NoNode:
        break;  // told with the instance
    }
  }

  void Node(const KivTreeRow& zRow) {
    const KivAssemblyNode& zNode = m_zStructure.m_vzNode[zRow.m_iNode];
    if (!IsFinite(zNode.m_zMatrix))
      AddNode("node-matrix", zRow.m_iNode, " has a matrix with values that are no finite numbers");
    KivEMatrix4& zInModel = m_vzInModel[zRow.m_iNode];
    zInModel = zNode.m_zMatrix;
    if (zRow.m_iDepth != 0)
      zInModel *= m_vzInModel[zRow.m_iParent];
    else if (zRow.m_iNode != 0)
      AddNode("node-root", zRow.m_iNode, " has no parent, and is not the first one");
  }

  void Instance(const KivToolInstance& z) {
    const auto Add = [&](const char* szCode, const std::string& strWhat) {
      m_zSink.Add(szCode, m_zModel.Resolve(z.m_iElementKey), z.m_iElementKey,
                  "instance " + std::to_string(z.m_iEntry) + strWhat);
    };
    if (m_zStructure.m_vzPart[z.m_iPart].m_vzLevel.size() > m_zStructure.m_vfLevelTolerance.size())
      Add("instance-levels", " has more levels than there are tolerances");
    if (!IsFinite(z.m_zMatrix)) {
      Add("instance-matrix", " has a matrix with values that are no finite numbers");
      return;
    }
    if (z.m_iNode >= m_zStructure.m_vzNode.size() || m_zStructure.m_vzNode[z.m_iNode].m_zFrame.IsGap())
      Add("instance-node", " names the node " + std::to_string(z.m_iNode) + ", which does not exist");
    else if (IsFinite(m_vzInModel[z.m_iNode]) && !IsClose(z.m_zMatrix, m_vzInModel[z.m_iNode]))
      Add("instance-placement",
          " does not stand where node " + std::to_string(z.m_iNode) + " and its parents place it");
  }

  const KivToolStructure m_zStructure;
  KivCheckSink& m_zSink;
  uint64_t m_iTreePosition;
  KivToolModel& m_zModel;
  std::vector<KivEMatrix4> m_vzInModel;  // by node
};

}  // namespace

void KivCheckStructure(KivToolModel& zModel, KivCheckSink& zSink) {
  StructureCheck(zModel, zSink).Run();
}

}  // namespace kiv
