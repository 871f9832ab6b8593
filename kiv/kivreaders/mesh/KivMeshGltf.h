// What the checks of a glTF share: its JSON, and members of it that may be of any kind. In version 2 the parts of a
// file stand in lists and are named by numbers, in version 1 they stand in objects and are named by texts; most rules
// are the same.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "KivMeshSource.h"

namespace kiv::gltf {

using Json = nlohmann::json;

// Null without it, or where zObject is no object.
const Json* Member(const Json& zObject, const char* szName);
// The entries of a list or object; none of anything else.
const Json& Entries(const Json* pzMember);
// 0 without it. Throws KivSceneError for what is no whole number of 32 bits.
uint64_t Count(const Json& zObject, const char* szName);
// Empty without it, or for what is no text.
std::string Text(const Json& zObject, const char* szName);

// True for version 1. Throws KivSceneError for one that is not read. What the library does not take for the version
// that it is becomes what it takes; bChanged then. (KivMeshGltf_Version.cpp)
bool TakeVersion(Json& zFile, bool& bChanged);

// The roots that the shown scene names; null without it. (KivMeshGltf_Nodes.cpp)
const Json* SceneNodes(const Json& zFile, bool bFirst);
// A scene for a file that has none, or of version 1 shows none: the library asks for it. True if it was missing.
// (KivMeshGltf_Nodes.cpp)
bool WriteScene(Json& zFile, bool bFirst);
// Throws KivSceneError for nodes that are no shallow trees, a scene without nodes, and placements that are none.
// (KivMeshGltf_Nodes.cpp)
void CheckNodes(const Json& zFile, bool bFirst);
// The nodes of the shown scene, which CheckNodes has passed. Warns of nodes, copies, places and pictures that are left
// out. (KivMeshGltf_Places.cpp)
KivMeshPlaces ShownPlaces(const Json& zFile, bool bFirst, std::vector<std::string>& vstrWarning);

// The bytes of a buffer that stand in the file itself.
class BufferBytes {
 public:
  // Of a buffer that names none, strBinary: a GLB's second piece, or empty.
  BufferBytes(const Json& zBuffer, std::string_view strBinary);

  // 0 for bytes that stand elsewhere or cannot be read.
  uint64_t Size() const { return m_nSize; }
  uint64_t NumberAt(uint64_t iByte, uint64_t nBytes) const;
  bool IsText() const { return m_bText; }

 private:
  uint8_t ByteAt(uint64_t i) const;

  std::string_view m_strBytes;  // or digits of base 64
  bool m_bText = false;
  uint64_t m_nSize = 0;
};
// The library refuses a buffer whose text holds more bytes than it tells; others pass over what is behind. True if
// there was one, which tells all its bytes then. (KivMeshGltf_Bytes.cpp)
bool FitLengths(Json& zFile);

// Throws KivSceneError for numbers behind the end of their buffer, or of a kind that is not read, and for indices
// beyond their corners where the library would believe them. strBinary: a GLB's second piece, or empty.
// (KivMeshGltf_Meshes.cpp)
void CheckMeshes(const Json& zFile, bool bFirst, std::string_view strBinary);
// Of version 2: skeletons, movements, other forms of meshes and placements of pictures are taken away, since the
// library reads them by names and counts that it does not hold against each other. True if there was any.
// (KivMeshGltf_Movements.cpp)
bool TakeAwayMovements(Json& zFile, std::vector<std::string>& vstrWarning);

}  // namespace kiv::gltf
