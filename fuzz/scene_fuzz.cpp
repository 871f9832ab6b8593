// Input: a scene file. What can be read must not take memory far beyond its size, must be a scene that a model can be
// made of, and must be the same bytes when it is written again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "KivScene.h"

namespace {

using namespace kiv;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "scene_fuzz: %s\n", szWhat);
  std::abort();
}

template <typename List>
size_t Bytes(const List& zList) {
  return zList.capacity() * sizeof zList[0];
}

size_t Taken(const KivScene& zScene) {
  size_t n = Bytes(zScene.m_vzPart) + Bytes(zScene.m_vzNode) + Bytes(zScene.m_vzLayer) + Bytes(zScene.m_vstrWarning);
  for (const KivScenePart& zPart : zScene.m_vzPart) {
    n += Bytes(zPart.m_csName) + Bytes(zPart.m_vzLevel) + Bytes(zPart.m_vzGeometry);
    for (const KivSceneLevel& zLevel : zPart.m_vzLevel) {
      n += Bytes(zLevel.m_vzFace) + Bytes(zLevel.m_vzEdge);
      for (const KivSceneFace& z : zLevel.m_vzFace) n += Bytes(z.m_vdVertex) + Bytes(z.m_vfNormal) + Bytes(z.m_viIndex);
      for (const KivSceneEdge& z : zLevel.m_vzEdge) n += Bytes(z.m_vdVertex);
    }
    for (const KivSceneGeometry& z : zPart.m_vzGeometry) n += Bytes(z.m_vcGeometry);
  }
  for (const KivSceneNode& z : zScene.m_vzNode) n += Bytes(z.m_csName) + Bytes(z.m_viPart);
  for (const KivSceneLayer& z : zScene.m_vzLayer) n += Bytes(z.m_csName);
  for (const std::string& str : zScene.m_vstrWarning) n += Bytes(str);
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const std::vector<uint8_t> vcBytes(pData, pData + nSize);
  KivScene zScene;
  std::string strError;
  if (!KivReadScene(vcBytes, zScene, strError)) {
    Demand(!strError.empty() && strError.size() <= kSceneReasonMax, "a refusal without a reason");
    Demand(zScene.m_vzPart.empty() && zScene.m_vzNode.empty(), "a scene beside a refusal");
    return 0;
  }
  Demand(Taken(zScene) <= 16 * nSize + 4096, "more memory than the input is worth");
  Demand(KivCheckScene(zScene, strError), "a scene with a fault");
  Demand(KivWriteScene(zScene) == vcBytes, "other bytes when it is written again");
  return 0;
}
