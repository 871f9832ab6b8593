#include <charconv>
#include <optional>
#include <utility>

#include "KivMeshGltf.h"
#include "KivSceneReader.h"

namespace kiv::gltf {
namespace {

using Version = std::pair<unsigned int, unsigned int>;

std::string TextOf(const Version& zVersion) {
  return std::to_string(zVersion.first) + "." + std::to_string(zVersion.second);
}

// Of a text, or of a number, which some write. Null for what is none.
std::optional<Version> VersionOf(const Json* pzVersion) {
  if (pzVersion == nullptr) return std::nullopt;
  const std::string strVersion = pzVersion->is_string()   ? pzVersion->get<std::string>()
                                 : pzVersion->is_number() ? pzVersion->dump()
                                                          : std::string();
  const char* const pEnd = strVersion.data() + strVersion.size();
  Version zVersion{0, 0};
  const auto [pMajor, iError] = std::from_chars(strVersion.data(), pEnd, zVersion.first);
  if (iError != std::errc()) return std::nullopt;
  if (pMajor == pEnd) return zVersion;
  if (*pMajor != '.' || std::from_chars(pMajor + 1, pEnd, zVersion.second).ec != std::errc()) return std::nullopt;
  return zVersion;
}

}  // namespace

bool TakeVersion(Json& zFile, bool& bChanged) {
  const Json* const pzAsset = Member(zFile, "asset");
  const std::optional<Version> zVersion = VersionOf(pzAsset == nullptr ? nullptr : Member(*pzAsset, "version"));
  if (!zVersion) throw KivSceneError("it is no readable glTF file: it does not tell its version");
  if (zVersion->first != 1 && zVersion->first != 2)
    throw KivSceneError("it is of version " + TextOf(*zVersion) + " of glTF; read are 1 and 2");
  const std::optional<Version> zLeast = VersionOf(Member(*pzAsset, "minVersion"));
  if (zLeast && *zLeast > Version(2, 0))
    throw KivSceneError("it needs version " + TextOf(*zLeast) + " of glTF; read are 1 and 2.0");
  // The library tells the version by the first character of a text.
  const bool bFirst = zVersion->first == 1;
  if (!Text(*pzAsset, "version").starts_with(bFirst ? '1' : '2')) {
    zFile["asset"]["version"] = bFirst ? "1.0" : "2.0";
    bChanged = true;
  }
  return bFirst;
}

}  // namespace kiv::gltf
