#include <iterator>

#include "KivMeshGltf.h"

namespace kiv::gltf {
namespace {

// The objects of this name from all that stands in z. True if there was one.
bool TakeFromAll(Json& z, const char* szName) {
  bool bTaken = z.is_object() && z.contains(szName) && z[szName].is_object() && z.erase(szName) > 0;
  if (z.is_structured())
    for (Json& zPart : z) bTaken = TakeFromAll(zPart, szName) || bTaken;
  return bTaken;
}

}  // namespace

bool TakeAwayMovements(Json& zFile, std::vector<std::string>& vstrWarning) {
  bool bTaken = false;
  const auto Take = [&bTaken](Json& zObject, const char* szName) {
    const bool bThere = zObject.is_object() && zObject.erase(szName) > 0;
    bTaken = bTaken || bThere;
    return bThere;
  };
  const auto EachOf = [](Json& zObject, const char* szList, const auto& pfnEntry) {
    if (!zObject.is_object() || !zObject.contains(szList) || !zObject[szList].is_structured()) return;
    for (Json& zEntry : zObject[szList]) pfnEntry(zEntry);
  };
  if (Take(zFile, "animations")) vstrWarning.push_back("movements are left out");
  bool bSkeleton = false, bForms = false;
  EachOf(zFile, "nodes", [&](Json& zNode) {
    bSkeleton = Take(zNode, "skin") || bSkeleton;
    Take(zNode, "weights");
  });
  EachOf(zFile, "meshes", [&](Json& zMesh) {
    Take(zMesh, "weights");
    EachOf(zMesh, "primitives", [&](Json& zPiece) {
      bForms = Take(zPiece, "targets") || bForms;
      if (!zPiece.is_object() || !zPiece.contains("attributes") || !zPiece["attributes"].is_object()) return;
      Json& zAttributes = zPiece["attributes"];
      for (auto it = zAttributes.begin(); it != zAttributes.end();) {
        const bool bJoint = it.key().starts_with("JOINT") || it.key().starts_with("WEIGHT");
        bTaken = bTaken || bJoint;
        it = bJoint ? zAttributes.erase(it) : std::next(it);
      }
    });
  });
  Take(zFile, "skins");
  if (bSkeleton) vstrWarning.push_back("skeletons are left out: meshes stand in their basic form");
  if (bForms) vstrWarning.push_back("other forms of a mesh are left out");
  // Of pictures, which are left out as well.
  if (zFile.contains("materials")) bTaken = TakeFromAll(zFile["materials"], "KHR_texture_transform") || bTaken;
  return bTaken;
}

}  // namespace kiv::gltf
