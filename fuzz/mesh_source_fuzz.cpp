// Input: a byte that picks the format, then the bytes of a source of meshes, of a list of materials, or of a polygon's
// corners. What is prepared for the library of formats must be taken again; a list of materials has one;
// triangles are of the polygon's corners and no more than it has room for.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KivMeshPolygon.h"
#include "KivMeshSource.h"
#include "KivSceneReader.h"

namespace {

using namespace kiv;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "mesh_source_fuzz: %s\n", szWhat);
  std::abort();
}

bool Prepare(KivMeshPreparation pfnPrepare, std::vector<uint8_t>& vcBytes) {
  std::vector<std::string> vstrWarning;
  KivMeshPlaces vzPlace;
  try {
    pfnPrepare(vcBytes, vstrWarning, vzPlace);
  } catch (const KivSceneError& e) {
    Demand(e.what()[0] != '\0', "a refusal without a reason");
    return false;
  }
  return true;
}

void CutPolygon(const std::vector<uint8_t>& vcBytes) {
  // Small whole numbers, so that many corners stand on lines and at one place.
  std::vector<KivPolygonCutter::Point> vzPoint;
  for (size_t i = 0; i + 2 < vcBytes.size(); i += 3)
    vzPoint.push_back({static_cast<double>(vcBytes[i] % 16), static_cast<double>(vcBytes[i + 1] % 16),
                       static_cast<double>(vcBytes[i + 2] % 4)});
  KivPolygonCutter zCutter(10'000'000);
  std::vector<uint32_t> viCorner;
  try {
    zCutter.Cut(vzPoint, viCorner);
  } catch (const KivSceneError&) {
    return;
  }
  Demand(viCorner.size() % 3 == 0, "a corner without a triangle");
  Demand(viCorner.empty() || viCorner.size() <= 3 * (vzPoint.size() - 2), "more triangles than there is room for");
  for (const uint32_t i : viCorner) Demand(i < vzPoint.size(), "a corner that the polygon has not");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  if (nSize == 0) return 0;
  std::vector<uint8_t> vcBytes(pData + 1, pData + nSize);
  constexpr const char16_t* kFormats[] = {u"stl", u"obj", u"ply", u"gltf"};
  const size_t iKind = pData[0] % 6;
  if (iKind < 4) {
    const KivMeshPreparation pfnPrepare = KivFindMeshFormat(kFormats[iKind])->m_pfnPrepare;
    if (Prepare(pfnPrepare, vcBytes)) Demand(Prepare(pfnPrepare, vcBytes), "prepared bytes are refused");
  } else if (iKind == 4) {
    KivMeshMaterials mapMaterial;
    const bool bRead = KivReadMaterials({reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()}, mapMaterial);
    Demand(bRead != mapMaterial.empty(), "a list without a material, or materials of none");
  } else {
    CutPolygon(vcBytes);
  }
  return 0;
}
