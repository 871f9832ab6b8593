// A model as the readers of foreign files give it: parts with meshes and exact geometry, placed by a tree of nodes.
// Readers are programs of their own, which print and may crash: they write a scene to a file, KivSceneToModel makes the
// model of it.
//
// Coordinates are in the scene's unit of length, right-handed; nothing is quantised or scaled on the way.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KivEMatrix4.h"
#include "KivModelMeaning.h"
#include "KivSysText.h"

namespace kiv {

// Exact geometry of a face or an edge: a string of kind kBrepNurbsKind or kBrepAnalyticKind (KivBrepGeometry.h).
struct KivSceneGeometry {
  uint32_t m_iKind = 0;
  KivGeometryId m_zId;
  std::vector<uint8_t> m_vcGeometry;
};

struct KivSceneFace {
  uint32_t m_iId = 0;               // number in the part, from 1
  std::vector<double> m_vdVertex;   // x, y, z of each vertex
  std::vector<float> m_vfNormal;    // x, y, z of each vertex, length 1; or empty
  std::vector<uint32_t> m_viIndex;  // three for each triangle, counter-clockwise from outside
  std::optional<KivColour> m_fColour;
  std::optional<uint32_t> m_iLayer;
};

struct KivSceneEdge {
  uint32_t m_iId = 0;
  std::vector<double> m_vdVertex;  // a polyline
  std::optional<KivColour> m_fColour;
  std::optional<uint32_t> m_iLayer;
};

// One tessellation of a part.
struct KivSceneLevel {
  double m_dTolerance = 0;  // the largest distance from the exact form; 0 if it is not known
  std::vector<KivSceneFace> m_vzFace;
  std::vector<KivSceneEdge> m_vzEdge;
};

struct KivScenePart {
  KivWString m_csName;
  // True: the source has faces and edges of its own (level by level the same ids). False: the source is a bare mesh in
  // one level; its faces are what the file groups (a material, an object), not yet smooth regions.
  bool m_bHasFaces = false;
  std::vector<KivSceneLevel> m_vzLevel;  // the coarsest first
  std::vector<KivSceneGeometry> m_vzGeometry;
};

constexpr uint32_t kNoSceneIndex = 0xFFFFFFFFu;

struct KivSceneNode {
  KivWString m_csName;                 // of the place
  uint32_t m_iParent = kNoSceneIndex;  // an earlier node; the first node is the root, and the only one without a parent
  KivEMatrix4 m_zMatrix;               // in its parent
  std::vector<uint32_t> m_viPart;      // parts that stand here; the same part may stand in many nodes
  std::optional<KivColour> m_fColour;  // of everything below that has none
  std::optional<uint32_t> m_iLayer;
};

struct KivSceneLayer {
  uint32_t m_iLayer = 0;
  KivWString m_csName;
  bool m_bOn = true;
};

constexpr double kSceneUnitMin = 1e-12, kSceneUnitMax = 1e12;

struct KivScene {
  double m_dMetresPerUnit = 0;  // from kSceneUnitMin to kSceneUnitMax, or 0: the source does not tell
  std::vector<KivScenePart> m_vzPart;
  std::vector<KivSceneNode> m_vzNode;
  std::vector<KivSceneLayer> m_vzLayer;
  std::vector<std::string> m_vstrWarning;  // what was left out, for the user, one sentence each
};

// --- Scene files (KivScene_Stream.cpp) ------------------------------------------------------------------------------

// True if the scene is one that a model can be made of: its numbers are numbers, indices, parents and parts exist,
// faces and edges have numbers of their own. Else the reason.
bool KivCheckScene(const KivScene& zScene, std::string& strError);

// Bytes of a scene and back. Reading trusts nothing: false, with the reason, for bytes that are cut, that name parts or
// nodes that do not exist, indices beyond their vertices, numbers that are no numbers, or anything behind the end. The
// scene is empty then.
std::vector<uint8_t> KivWriteScene(const KivScene& zScene);
bool KivReadScene(const std::vector<uint8_t>& vcBytes, KivScene& zScene, std::string& strError);

// Bytes of a reader that gave up: KivReadScene gives false and this reason, at most kSceneReasonMax bytes of it.
constexpr uint64_t kSceneReasonMax = 4000;
std::vector<uint8_t> KivWriteSceneFailure(const std::string& strReason);

}  // namespace kiv
