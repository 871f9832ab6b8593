// What this project's programs mean by the fields that the library only carries. docs/kiv.md tells it to users.
//
//   nodes          m_strNodeName[0] is the name of the place, [1] that of the part or assembly; m_zMatrix places the
//   node
//                  in its parent; m_viChildren are indices of nodes
//   instances      m_iInstanceData[0] is the index of the node; m_zMatrix places the part in the model, so it is the
//                  product of the node's matrix and those of its parents, from the inside out
//   meshes         level 0 is the coarsest; m_iId of a face or an edge is its number in the part, from 1, the same in
//   all
//                  levels and for the same source in every import
//   exact geometry m_iGeometryId says what the string is about, KivGeometryId
//   layers         of the root node's layer filter: one entry for each layer, with its name and its number; entities
//                  name theirs in an attribute
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "KivElementRecord.h"

namespace kiv {

// --- Attributes -----------------------------------------------------------------------------------------------------

enum class KivMeaning : uint8_t {
  Colour = 1,  // 4 x f32: red, green, blue, opacity, 0 to 1, linear; of faces, edges and nodes
  Layer = 2,   // u32: number of a layer; of faces, edges and nodes
  Unit = 3     // f64: metres for one unit of length; of the model note
};

using KivColour = std::array<float, 4>;

// The attribute's value; nothing where there is none, or one of another length or with values outside of those above.
std::optional<KivColour> KivGetColour(const std::vector<KivAttribute>& vzAttribute);
std::optional<uint32_t> KivGetLayer(const std::vector<KivAttribute>& vzAttribute);
std::optional<double> KivGetUnit(const std::vector<KivAttribute>& vzAttribute);
// True if such an attribute is there, whatever it holds.
bool KivHasMeaning(const std::vector<KivAttribute>& vzAttribute, KivMeaning eMeaning);
// Replaces the attribute, or adds it.
void KivSetColour(std::vector<KivAttribute>& vzAttribute, const KivColour& fColour);
void KivSetLayer(std::vector<KivAttribute>& vzAttribute, uint32_t iLayer);
void KivSetUnit(std::vector<KivAttribute>& vzAttribute, double dMetres);

// --- Exact geometry -------------------------------------------------------------------------------------------------

// Analytic types. A face's or an edge's own direction is not kept.
enum class KivAnalytic : uint8_t {
  Plane = 1,     // a point, the normal
  Cylinder = 2,  // a point of the axis, its direction, the radius
  Round = 3,     // of a face a sphere: centre, any direction; of an edge a circle: centre, normal; the radius
  Line = 4,      // a point, the direction
  Cone = 5       // the apex, the axis; the axis's length is the tangent of the half angle
};

// What a geometry string describes. A NURBS surface takes several strings: one row for each row of poles along the
// second direction (knots and order of the first direction), and one profile with knots and order of the second
// direction, whose poles are 0.
enum class KivGeometryUse : uint8_t { Face = 0, Edge = 1, SurfaceRow = 2, SurfaceProfile = 3 };

struct KivGeometryId {
  uint32_t m_iId = 0;  // of the face or edge
  KivGeometryUse m_eUse = KivGeometryUse::Face;
  uint32_t m_iRow = 0;  // of a surface row, from 0; below 2^24

  // OFFSET  BITS  FIELD
  // 0       32    m_iId
  // 32      8     m_eUse
  // 40      24    m_iRow
  uint64_t Pack() const {
    return uint64_t{m_iRow & 0xFFFFFFu} << 40 | static_cast<uint64_t>(m_eUse) << 32 | uint64_t{m_iId};
  }
  static KivGeometryId Unpack(uint64_t iPacked) {
    return {static_cast<uint32_t>(iPacked), static_cast<KivGeometryUse>(iPacked >> 32 & 0xFF),
            static_cast<uint32_t>(iPacked >> 40)};
  }
};

}  // namespace kiv
