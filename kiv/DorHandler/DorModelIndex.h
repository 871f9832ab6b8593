// Where things stand in the open model: instances, parts, and the faces and edges of each part. Made when it is first
// asked for, from the records; pointers to elements are not kept.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "DorBox.h"
#include "KivInstance.h"
#include "KivModelMeaning.h"

namespace kiv {

// An instance, by its number: live entries in the order of the instance tree.
struct DorPlace {
  uint64_t m_iElementKey = 0;
  uint32_t m_iEntry = 0;  // in its element
  uint32_t m_iNode = 0;
  uint32_t m_iPart = 0;
};

// An element of the instance tree; parents stand before their children.
struct DorInstanceElement {
  uint64_t m_iKey = 0;
  std::array<uint64_t, 2> m_aiChild{};
};

// What makes instances instances of one part: the same records.
struct DorPartKeys {
  std::vector<std::array<uint64_t, 2>> m_vaiMesh;  // of each level: its own tree of faces and edges, and the common one
  uint64_t m_iBrepKey = 0;

  auto operator<=>(const DorPartKeys&) const = default;
};

// A face, an edge or a geometry string: where its entry stands.
struct DorEntryPlace {
  uint32_t m_iId = 0;
  uint32_t m_iEntry = 0;
  uint64_t m_iElementKey = 0;
};

struct DorLevelIndex {
  std::vector<DorEntryPlace> m_vzFace;  // by id; of two with the same id the first one counts
  std::vector<DorEntryPlace> m_vzEdge;
  uint64_t m_nTriangles = 0;
};

struct DorPartIndex {
  std::vector<DorLevelIndex> m_vzLevel;
  std::vector<DorEntryPlace> m_vzGeometry;  // by id; those of an id in the order of the records
  size_t m_nEntries = 0;
};

class DorModelIndex {
 public:
  explicit DorModelIndex(uint32_t iManagerKey) : m_iManagerKey(iManagerKey) {}

  // Refuses with Damaged where the instance tree cannot be read.
  const std::vector<DorPlace>& Places();
  const std::vector<DorInstanceElement>& InstanceElements();
  const std::vector<DorPartKeys>& Parts();
  // Refuses with UnknownInstance.
  const DorPlace& PlaceOf(int64_t iInstance);
  // A copy of the instance's entry.
  KivInstanceEntry EntryOf(const DorPlace& zPlace);
  std::vector<float> Tolerances();  // of the levels

  // Good until another part is asked for. Refuses with Damaged.
  const DorPartIndex& Part(uint32_t iPart);
  // The box of all meshes of a part; mapChanged holds boxes of mesh elements that count in the place of the stored
  // ones.
  DorBox PartBox(uint32_t iPart, const std::map<uint64_t, DorBox>& mapChanged);

  // Parts that have a tree of meshes in common with a part, itself among them.
  std::vector<uint32_t> PartsBeside(uint32_t iPart);

  // Null if there is none.
  static const DorEntryPlace* Find(const std::vector<DorEntryPlace>& vz, int64_t iId);

  void ForgetParts() { m_mapPart.clear(), m_nEntries = 0; }

 private:
  static constexpr size_t kMostEntries = size_t{1} << 21;  // of all parts that are kept

  void ReadInstances();
  void ReadMeshes(uint64_t iKey, DorLevelIndex& zLevel);
  void ReadGeometry(uint64_t iKey, DorPartIndex& zPart);

  uint32_t m_iManagerKey;
  bool m_bInstances = false;
  std::vector<DorPlace> m_vzPlace;
  std::vector<DorInstanceElement> m_vzElement;
  std::vector<DorPartKeys> m_vzPart;
  std::vector<float> m_vfTolerance;
  std::map<uint32_t, DorPartIndex> m_mapPart;
  size_t m_nEntries = 0;
};

}  // namespace kiv
