// What the JSON of a glTF says, where the library of formats believes it: it walks nodes by calls of calls and makes a
// node anew for each node that names it, it reads where accessors lead it, and takes any numbers for coordinates.
#include "KivMeshGltf.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>
#include <string_view>

#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {

namespace gltf {

// Null without it, or where zObject is no object.
const Json* Member(const Json& zObject, const char* szName) {
  if (!zObject.is_object()) return nullptr;
  const auto it = zObject.find(szName);
  return it == zObject.end() ? nullptr : &*it;
}

// The entries of a list or object; none of anything else.
const Json& Entries(const Json* pzMember) {
  static const Json s_zNone = Json::array();
  return pzMember != nullptr && pzMember->is_structured() ? *pzMember : s_zNone;
}

uint64_t Count(const Json& zObject, const char* szName) {
  const Json* const pzCount = Member(zObject, szName);
  if (pzCount == nullptr) return 0;
  if (!pzCount->is_number_unsigned() || pzCount->get<uint64_t>() > std::numeric_limits<uint32_t>::max())
    throw KivSceneError(std::string("a '") + szName + "' of it is no count");
  return pzCount->get<uint64_t>();
}

std::string Text(const Json& zObject, const char* szName) {
  const Json* const pzText = Member(zObject, szName);
  return pzText != nullptr && pzText->is_string() ? pzText->get<std::string>() : std::string();
}

}  // namespace gltf

namespace {

using gltf::Entries;
using gltf::Json;
using gltf::Member;

constexpr size_t kDeepestText = 200;  // brackets

constexpr size_t kHead = 20;  // of a GLB, with that of its first piece

uint32_t NumberAt(std::string_view strBytes, size_t i) {
  uint32_t n = 0;
  if (strBytes.size() >= sizeof n && i <= strBytes.size() - sizeof n) std::memcpy(&n, strBytes.data() + i, sizeof n);
  return n;
}

bool IsBinary(std::string_view strBytes) {
  return strBytes.starts_with("glTF") && strBytes.size() >= kHead;
}

// The JSON of a GLB stands in its first piece.
std::string_view JsonOf(std::string_view strBytes) {
  return IsBinary(strBytes) ? strBytes.substr(kHead, NumberAt(strBytes, 12)) : strBytes;
}

// The second piece of a GLB; empty without it.
std::string_view BinaryOf(std::string_view strBytes) {
  const uint64_t iPiece = kHead + ((uint64_t{NumberAt(strBytes, 12)} + 3) & ~uint64_t{3}), iData = iPiece + 8;
  if (!IsBinary(strBytes) || iData > strBytes.size()) return {};
  return strBytes.substr(static_cast<size_t>(iData), NumberAt(strBytes, static_cast<size_t>(iPiece)));
}

void CheckPieces(std::string_view strBytes) {
  if (!strBytes.starts_with("glTF")) return;
  const uint64_t iPiece = kHead + ((uint64_t{NumberAt(strBytes, 12)} + 3) & ~uint64_t{3}), iData = iPiece + 8;
  // Of version 1 what follows is no piece.
  const uint32_t iVersion = NumberAt(strBytes, 4);
  const bool bSecond = iVersion != 1 && IsBinary(strBytes) && iData <= strBytes.size();
  if (!IsBinary(strBytes) || NumberAt(strBytes, 12) > strBytes.size() - kHead ||
      (bSecond && NumberAt(strBytes, static_cast<size_t>(iPiece)) > strBytes.size() - iData))
    throw KivSceneError("it is no readable GLB file: a piece of it is cut");
  if (iVersion != 1 && iVersion != 2)
    throw KivSceneError("it is of version " + std::to_string(iVersion) + " of GLB, which is not read");
}

void CheckBrackets(std::string_view strJson) {
  size_t nOpen = 0;
  bool bText = false;
  for (size_t i = 0; i < strJson.size(); ++i) {
    const char c = strJson[i];
    if (bText && c == '\\') {
      ++i;
    } else if (c == '"') {
      bText = !bText;
    } else if (!bText && (c == '{' || c == '[')) {
      if (++nOpen > kDeepestText) throw KivSceneError("its JSON is nested too deeply");
    } else if (!bText && (c == '}' || c == ']') && nOpen > 0) {
      --nOpen;
    }
  }
}

// Of a member that stands twice the library takes the first one, others the last one.
class UniqueMembers : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool start_object(std::size_t) override {
    m_vsetName.emplace_back();
    return true;
  }
  bool end_object() override {
    m_vsetName.pop_back();
    return true;
  }
  bool key(string_t& strName) override {
    if (!m_vsetName.back().insert(strName).second) throw KivSceneError("its JSON has a member twice");
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

 private:
  std::vector<std::set<std::string>> m_vsetName;  // of the objects that are open
};

// Discarded where it is no JSON. A pass of its own looks for names, since one with a call back for each part takes
// quadratic time for long lists of objects.
Json Parsed(std::string_view strJson) {
  UniqueMembers zUnique;
  if (!Json::sax_parse(strJson, &zUnique)) return Json(Json::value_t::discarded);
  return Json::parse(strJson, nullptr, false);
}

// A GLB keeps its other pieces.
void ReplaceJson(std::vector<uint8_t>& vcBytes, std::string strJson) {
  const std::string_view strBytes(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (!IsBinary(strBytes)) return vcBytes.assign(strJson.begin(), strJson.end());
  strJson.resize((strJson.size() + 3) & ~size_t{3}, ' ');
  const uint64_t iRest = kHead + ((uint64_t{NumberAt(strBytes, 12)} + 3) & ~uint64_t{3});
  const std::string_view strRest = iRest < strBytes.size() ? strBytes.substr(static_cast<size_t>(iRest)) : "";
  const auto Number = [](size_t nNumber) {
    const uint32_t n = static_cast<uint32_t>(nNumber);
    std::string strNumber(sizeof n, '\0');
    std::memcpy(strNumber.data(), &n, sizeof n);
    return strNumber;
  };
  std::string strNew(strBytes.substr(0, 8));
  strNew += Number(kHead + strJson.size() + strRest.size()) + Number(strJson.size());
  strNew.append(strBytes.substr(16, 4)).append(strJson).append(strRest);
  vcBytes.assign(strNew.begin(), strNew.end());
}

// Those that tell of pictures, materials and lights alone say nothing of the form.
void CheckRequired(const Json& zFile) {
  static const std::set<std::string> s_setKnown = {"KHR_draco_mesh_compression", "KHR_lights_punctual",
                                                   "KHR_technique_webgl",        "KHR_texture_basisu",
                                                   "KHR_texture_transform",      "EXT_texture_webp"};
  for (const Json& zName : Entries(Member(zFile, "extensionsRequired"))) {
    if (!zName.is_string()) continue;
    const std::string strName = zName.get<std::string>();
    if (s_setKnown.count(strName) == 0 && !strName.starts_with("KHR_materials_"))
      throw KivSceneError("it needs the extension '" + strName.substr(0, 100) + "', which is not read");
  }
}

}  // namespace

void KivPrepareGltf(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning, KivMeshPlaces& vzPlace) {
  PassUtf8Mark(vcBytes);
  const std::string_view strBytes = TextOf(vcBytes);
  CheckPieces(strBytes);
  const std::string_view strJson = JsonOf(strBytes);
  CheckBrackets(strJson);
  Json zFile = Parsed(strJson);
  if (!zFile.is_object()) throw KivSceneError("it is no readable glTF file: its JSON is damaged or missing");
  bool bChanged = false;
  const bool bFirst = gltf::TakeVersion(zFile, bChanged);
  if (IsBinary(strBytes) && (bFirst || NumberAt(strBytes, 4) == 1))
    throw KivSceneError("glTF 1 in its binary form is not read");
  // The library takes names to end there.
  if (bFirst && strJson.find("\\u0000") != std::string_view::npos) throw KivSceneError("a name of it has a zero");
  CheckRequired(zFile);
  if (gltf::WriteScene(zFile, bFirst)) bChanged = true;
  gltf::CheckNodes(zFile, bFirst);
  if (!bFirst && gltf::TakeAwayMovements(zFile, vstrWarning)) bChanged = true;
  gltf::CheckMeshes(zFile, bFirst, BinaryOf(strBytes));
  if (Entries(Member(zFile, "scenes")).size() > 1) vstrWarning.push_back("further scenes are left out");
  vzPlace = gltf::ShownPlaces(zFile, bFirst, vstrWarning);
  if (gltf::FitLengths(zFile)) bChanged = true;
  if (bChanged) ReplaceJson(vcBytes, zFile.dump());
}

}  // namespace kiv
