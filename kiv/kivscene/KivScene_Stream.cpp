// Bytes of a scene, little-endian, without gaps. A list is its count (u64) and its entries; a text is the list of its
// units; an optional value is a byte, 0 or 1, and behind a 1 the value.
//
//   OFFSET  SIZE  FIELD
//   0       8     "KivScene"
//   8       4     version, 1
//   12      4     0: a scene, 1: a reader's failure
//   16            of a failure: the reason, a list of UTF-8 bytes
//   16            of a scene: f64 metres for one unit, then the lists of parts, nodes, layers, warnings:
//     part        name, u8 has faces, list of levels, list of geometry strings
//     level       f64 tolerance, list of faces, list of edges
//     face        u32 id, list of f64 (vertices), list of f32 (normals), list of u32 (indices), style
//     edge        u32 id, list of f64 (vertices), style
//     style       optional colour (4 x f32), optional layer (u32)
//     geometry    u32 kind, u64 KivGeometryId, list of bytes
//     node        name, u32 parent, 16 x f64 matrix, list of u32 (parts), style
//     layer       u32 number, name, u8 on
//     warning     list of UTF-8 bytes
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "KivBrepGeometry.h"
#include "KivRecordBytes.h"
#include "KivScene.h"

namespace kiv {
namespace {

constexpr char kMagic[] = "KivScene";
constexpr uint32_t kVersion = 1;
constexpr uint32_t kFormScene = 0;
constexpr uint32_t kFormFailure = 1;

// --- Writing --------------------------------------------------------------------------------------------------------

// Counts the bytes while it has no target.
class Sink {
 public:
  explicit Sink(uint8_t* pTarget) : m_pTarget(pTarget) {}
  uint64_t Count() const { return m_nBytes; }

  void Bytes(const void* pSource, uint64_t nBytes) {
    if (m_pTarget != nullptr && nBytes > 0) std::memcpy(m_pTarget + m_nBytes, pSource, nBytes);
    m_nBytes += nBytes;
  }
  template <typename T>
  void Put(std::type_identity_t<T> value) {
    if (m_pTarget != nullptr) KivStore<T>(m_pTarget + m_nBytes, value);
    m_nBytes += sizeof(T);
  }
  template <typename List>
  void Array(const List& zList) {
    Put<uint64_t>(zList.size());
    Bytes(zList.data(), zList.size() * sizeof zList[0]);
  }
  template <typename Entry>
  void Style(const Entry& zEntry) {
    Put<uint8_t>(zEntry.m_fColour.has_value());
    if (zEntry.m_fColour) Bytes(zEntry.m_fColour->data(), sizeof(KivColour));
    Put<uint8_t>(zEntry.m_iLayer.has_value());
    if (zEntry.m_iLayer) Put<uint32_t>(*zEntry.m_iLayer);
  }

 private:
  uint8_t* m_pTarget;
  uint64_t m_nBytes = 0;
};

void WriteHead(Sink& zSink, uint32_t iForm) {
  zSink.Bytes(kMagic, sizeof kMagic - 1);
  zSink.Put<uint32_t>(kVersion);
  zSink.Put<uint32_t>(iForm);
}

void WriteLevel(Sink& zSink, const KivSceneLevel& zLevel) {
  zSink.Put<double>(zLevel.m_dTolerance);
  zSink.Put<uint64_t>(zLevel.m_vzFace.size());
  for (const KivSceneFace& zFace : zLevel.m_vzFace) {
    zSink.Put<uint32_t>(zFace.m_iId);
    zSink.Array(zFace.m_vdVertex);
    zSink.Array(zFace.m_vfNormal);
    zSink.Array(zFace.m_viIndex);
    zSink.Style(zFace);
  }
  zSink.Put<uint64_t>(zLevel.m_vzEdge.size());
  for (const KivSceneEdge& zEdge : zLevel.m_vzEdge) {
    zSink.Put<uint32_t>(zEdge.m_iId);
    zSink.Array(zEdge.m_vdVertex);
    zSink.Style(zEdge);
  }
}

void WriteScene(Sink& zSink, const KivScene& zScene) {
  WriteHead(zSink, kFormScene);
  zSink.Put<double>(zScene.m_dMetresPerUnit);
  zSink.Put<uint64_t>(zScene.m_vzPart.size());
  for (const KivScenePart& zPart : zScene.m_vzPart) {
    zSink.Array(zPart.m_csName);
    zSink.Put<uint8_t>(zPart.m_bHasFaces);
    zSink.Put<uint64_t>(zPart.m_vzLevel.size());
    for (const KivSceneLevel& zLevel : zPart.m_vzLevel) WriteLevel(zSink, zLevel);
    zSink.Put<uint64_t>(zPart.m_vzGeometry.size());
    for (const KivSceneGeometry& zGeometry : zPart.m_vzGeometry) {
      zSink.Put<uint32_t>(zGeometry.m_iKind);
      zSink.Put<uint64_t>(zGeometry.m_zId.Pack());
      zSink.Array(zGeometry.m_vcGeometry);
    }
  }
  zSink.Put<uint64_t>(zScene.m_vzNode.size());
  for (const KivSceneNode& zNode : zScene.m_vzNode) {
    zSink.Array(zNode.m_csName);
    zSink.Put<uint32_t>(zNode.m_iParent);
    for (size_t i = 0; i < 16; ++i) zSink.Put<double>(zNode.m_zMatrix[i]);
    zSink.Array(zNode.m_viPart);
    zSink.Style(zNode);
  }
  zSink.Put<uint64_t>(zScene.m_vzLayer.size());
  for (const KivSceneLayer& zLayer : zScene.m_vzLayer) {
    zSink.Put<uint32_t>(zLayer.m_iLayer);
    zSink.Array(zLayer.m_csName);
    zSink.Put<uint8_t>(zLayer.m_bOn);
  }
  zSink.Put<uint64_t>(zScene.m_vstrWarning.size());
  for (const std::string& strWarning : zScene.m_vstrWarning) zSink.Array(strWarning);
}

// --- Reading --------------------------------------------------------------------------------------------------------

// Fewest bytes of an entry: no list is given memory for more entries than the bytes behind its count can hold.
constexpr uint64_t kMinStyle = 1 + 1;
constexpr uint64_t kMinPart = 8 + 1 + 8 + 8;
constexpr uint64_t kMinLevel = 8 + 8 + 8;
constexpr uint64_t kMinFace = 4 + 8 + 8 + 8 + kMinStyle;
constexpr uint64_t kMinEdge = 4 + 8 + kMinStyle;
constexpr uint64_t kMinGeometry = 4 + 8 + 8;
constexpr uint64_t kMinNode = 8 + 4 + 128 + 8 + kMinStyle;
constexpr uint64_t kMinLayer = 4 + 8 + 1;
constexpr uint64_t kMinText = 8;

class Source : public KivRecordReader {
 public:
  using KivRecordReader::KivRecordReader;

  // The list with room for its entries, each of nMin bytes or more.
  template <typename List>
  bool Room(List& zList, uint64_t nMin) {
    uint64_t nEntries = 0;
    if (!Get(nEntries) || nEntries > Remaining() / nMin) return false;
    zList.resize(static_cast<size_t>(nEntries));
    return true;
  }
  template <typename List>
  bool Array(List& zList) {
    if (!Room(zList, sizeof zList[0])) return false;
    const uint64_t nBytes = uint64_t{zList.size()} * sizeof zList[0];
    if (nBytes > 0) std::memcpy(zList.data(), Take(nBytes), nBytes);
    return true;
  }
  bool Flag(bool& bFlag) {
    uint8_t iFlag = 0;
    if (!Get(iFlag) || iFlag > 1) return false;
    bFlag = iFlag == 1;
    return true;
  }
  template <typename Entry>
  bool Style(Entry& zEntry) {
    bool bColour = false, bLayer = false;
    if (!Flag(bColour)) return false;
    if (bColour)
      for (float& f : zEntry.m_fColour.emplace())
        if (!Get(f)) return false;
    if (!Flag(bLayer)) return false;
    return !bLayer || Get(zEntry.m_iLayer.emplace());
  }
};

bool ReadLevel(Source& zSource, KivSceneLevel& zLevel) {
  if (!zSource.Get(zLevel.m_dTolerance) || !zSource.Room(zLevel.m_vzFace, kMinFace)) return false;
  for (KivSceneFace& zFace : zLevel.m_vzFace)
    if (!zSource.Get(zFace.m_iId) || !zSource.Array(zFace.m_vdVertex) || !zSource.Array(zFace.m_vfNormal) ||
        !zSource.Array(zFace.m_viIndex) || !zSource.Style(zFace))
      return false;
  if (!zSource.Room(zLevel.m_vzEdge, kMinEdge)) return false;
  for (KivSceneEdge& zEdge : zLevel.m_vzEdge)
    if (!zSource.Get(zEdge.m_iId) || !zSource.Array(zEdge.m_vdVertex) || !zSource.Style(zEdge)) return false;
  return true;
}

bool ReadPart(Source& zSource, KivScenePart& zPart) {
  if (!zSource.Array(zPart.m_csName) || !zSource.Flag(zPart.m_bHasFaces) || !zSource.Room(zPart.m_vzLevel, kMinLevel))
    return false;
  for (KivSceneLevel& zLevel : zPart.m_vzLevel)
    if (!ReadLevel(zSource, zLevel)) return false;
  if (!zSource.Room(zPart.m_vzGeometry, kMinGeometry)) return false;
  for (KivSceneGeometry& zGeometry : zPart.m_vzGeometry) {
    uint64_t iPacked = 0;
    if (!zSource.Get(zGeometry.m_iKind) || !zSource.Get(iPacked) || !zSource.Array(zGeometry.m_vcGeometry))
      return false;
    zGeometry.m_zId = KivGeometryId::Unpack(iPacked);
  }
  return true;
}

bool ReadNode(Source& zSource, KivSceneNode& zNode) {
  if (!zSource.Array(zNode.m_csName) || !zSource.Get(zNode.m_iParent)) return false;
  for (size_t i = 0; i < 16; ++i)
    if (!zSource.Get(zNode.m_zMatrix[i])) return false;
  return zSource.Array(zNode.m_viPart) && zSource.Style(zNode);
}

bool ReadScene(Source& zSource, KivScene& zScene) {
  if (!zSource.Get(zScene.m_dMetresPerUnit) || !zSource.Room(zScene.m_vzPart, kMinPart)) return false;
  for (KivScenePart& zPart : zScene.m_vzPart)
    if (!ReadPart(zSource, zPart)) return false;
  if (!zSource.Room(zScene.m_vzNode, kMinNode)) return false;
  for (KivSceneNode& zNode : zScene.m_vzNode)
    if (!ReadNode(zSource, zNode)) return false;
  if (!zSource.Room(zScene.m_vzLayer, kMinLayer)) return false;
  for (KivSceneLayer& zLayer : zScene.m_vzLayer)
    if (!zSource.Get(zLayer.m_iLayer) || !zSource.Array(zLayer.m_csName) || !zSource.Flag(zLayer.m_bOn)) return false;
  if (!zSource.Room(zScene.m_vstrWarning, kMinText)) return false;
  for (std::string& strWarning : zScene.m_vstrWarning)
    if (!zSource.Array(strWarning)) return false;
  return true;
}

// Empty if it is well.
std::string ReadBytes(const std::vector<uint8_t>& vcBytes, KivScene& zScene) {
  Source zSource(vcBytes.data(), vcBytes.size());
  const uint8_t* const pMagic = zSource.Take(sizeof kMagic - 1);
  if (pMagic == nullptr || std::memcmp(pMagic, kMagic, sizeof kMagic - 1) != 0) return "this is no scene file";
  uint32_t iVersion = 0, iForm = 0;
  if (!zSource.Get(iVersion) || !zSource.Get(iForm)) return "the scene file is cut";
  if (iVersion != kVersion) return "the scene file has an unknown version";
  if (iForm == kFormFailure) {
    std::string strReason;
    if (!zSource.Array(strReason) || zSource.Remaining() != 0 || strReason.size() > kSceneReasonMax)
      return "the scene file is damaged";
    return strReason.empty() ? "the reader gives no reason" : strReason;
  }
  if (iForm != kFormScene) return "the scene file is of an unknown form";
  if (!ReadScene(zSource, zScene)) return "the scene file is cut or damaged";
  if (zSource.Remaining() != 0) return "the scene file has something behind its end";
  std::string strError;
  KivCheckScene(zScene, strError);
  return strError;
}

// --- Checking -------------------------------------------------------------------------------------------------------

bool AllNumbers(const std::vector<double>& vd) {
  constexpr uint64_t kExponent = uint64_t{0x7FF} << 52;
  bool bGood = true;
  for (const double d : vd) bGood &= (std::bit_cast<uint64_t>(d) & kExponent) != kExponent;
  return bGood;
}

bool AllNumbers(const std::vector<float>& vf) {
  bool bGood = true;
  for (const float f : vf) bGood &= (std::bit_cast<uint32_t>(f) & 0x7F800000u) != 0x7F800000u;
  return bGood;
}

const char* CheckColour(const std::optional<KivColour>& fColour) {
  if (!fColour) return nullptr;
  for (const float f : *fColour)
    if (!std::isfinite(f)) return "a colour is no number";
  return nullptr;
}

template <typename Entry>
const char* CheckIds(const std::vector<Entry>& vzEntry) {
  std::vector<uint32_t> viId;
  viId.reserve(vzEntry.size());
  for (const Entry& zEntry : vzEntry) viId.push_back(zEntry.m_iId);
  if (!std::is_sorted(viId.begin(), viId.end())) std::sort(viId.begin(), viId.end());
  if (!viId.empty() && viId.front() == 0) return "a face or an edge has the number 0";
  if (std::adjacent_find(viId.begin(), viId.end()) != viId.end()) return "two faces or edges have the same number";
  return nullptr;
}

const char* CheckFace(const KivSceneFace& z) {
  if (z.m_vdVertex.size() % 3 != 0 || z.m_viIndex.size() % 3 != 0)
    return "a list of vertices or triangles is no whole one";
  if (!z.m_vfNormal.empty() && z.m_vfNormal.size() != z.m_vdVertex.size())
    return "a face has another number of normals";
  if (!AllNumbers(z.m_vdVertex)) return "a coordinate is no number";
  if (!AllNumbers(z.m_vfNormal)) return "a normal is no number";
  uint32_t iLargest = 0;
  for (const uint32_t i : z.m_viIndex) iLargest = std::max(iLargest, i);
  if (!z.m_viIndex.empty() && iLargest >= z.m_vdVertex.size() / 3)
    return "a triangle names a vertex that does not exist";
  return CheckColour(z.m_fColour);
}

const char* CheckEdge(const KivSceneEdge& z) {
  if (z.m_vdVertex.size() % 3 != 0) return "a list of vertices or triangles is no whole one";
  if (!AllNumbers(z.m_vdVertex)) return "a coordinate is no number";
  return CheckColour(z.m_fColour);
}

const char* CheckPart(const KivScenePart& zPart) {
  if (!zPart.m_bHasFaces && zPart.m_vzLevel.size() > 1) return "a bare mesh has more than one level";
  for (const KivSceneLevel& zLevel : zPart.m_vzLevel) {
    if (!std::isfinite(zLevel.m_dTolerance) || zLevel.m_dTolerance < 0) return "a tolerance is no number";
    for (const KivSceneFace& zFace : zLevel.m_vzFace)
      if (const char* sz = CheckFace(zFace)) return sz;
    for (const KivSceneEdge& zEdge : zLevel.m_vzEdge)
      if (const char* sz = CheckEdge(zEdge)) return sz;
    if (const char* sz = CheckIds(zLevel.m_vzFace)) return sz;
    if (const char* sz = CheckIds(zLevel.m_vzEdge)) return sz;
  }
  for (const KivSceneGeometry& z : zPart.m_vzGeometry) {
    if (z.m_iKind != kBrepNurbsKind && z.m_iKind != kBrepAnalyticKind) return "a geometry string has an unknown kind";
    if (z.m_zId.m_eUse > KivGeometryUse::SurfaceProfile) return "a geometry string has an unknown use";
  }
  return nullptr;
}

const char* CheckNode(const KivScene& zScene, size_t iNode) {
  const KivSceneNode& zNode = zScene.m_vzNode[iNode];
  if (iNode == 0 ? zNode.m_iParent != kNoSceneIndex : zNode.m_iParent >= iNode)
    return "a node's parent is no earlier node";
  for (size_t i = 0; i < 16; ++i)
    if (!std::isfinite(zNode.m_zMatrix[i])) return "a placement is no number";
  for (const uint32_t iPart : zNode.m_viPart)
    if (iPart >= zScene.m_vzPart.size()) return "a node names a part that does not exist";
  return CheckColour(zNode.m_fColour);
}

const char* Check(const KivScene& zScene) {
  if (!std::isfinite(zScene.m_dMetresPerUnit) || zScene.m_dMetresPerUnit < 0) return "the unit of length is no number";
  const bool bUnit = zScene.m_dMetresPerUnit > 0;
  if (bUnit && (zScene.m_dMetresPerUnit < kSceneUnitMin || zScene.m_dMetresPerUnit > kSceneUnitMax))
    return "the unit of length is too small or too large";
  for (const KivScenePart& zPart : zScene.m_vzPart)
    if (const char* sz = CheckPart(zPart)) return sz;
  for (size_t i = 0; i < zScene.m_vzNode.size(); ++i)
    if (const char* sz = CheckNode(zScene, i)) return sz;
  return nullptr;
}

}  // namespace

bool KivCheckScene(const KivScene& zScene, std::string& strError) {
  const char* const sz = Check(zScene);
  strError = sz == nullptr ? "" : sz;
  return sz == nullptr;
}

std::vector<uint8_t> KivWriteScene(const KivScene& zScene) {
  Sink zCount(nullptr);
  WriteScene(zCount, zScene);
  std::vector<uint8_t> vcBytes(zCount.Count());
  Sink zSink(vcBytes.data());
  WriteScene(zSink, zScene);
  return vcBytes;
}

std::vector<uint8_t> KivWriteSceneFailure(const std::string& strReason) {
  const std::string strShort = strReason.substr(0, kSceneReasonMax);
  Sink zCount(nullptr);
  WriteHead(zCount, kFormFailure);
  zCount.Array(strShort);
  std::vector<uint8_t> vcBytes(zCount.Count());
  Sink zSink(vcBytes.data());
  WriteHead(zSink, kFormFailure);
  zSink.Array(strShort);
  return vcBytes;
}

bool KivReadScene(const std::vector<uint8_t>& vcBytes, KivScene& zScene, std::string& strError) {
  zScene = KivScene();
  strError = ReadBytes(vcBytes, zScene);
  if (!strError.empty()) zScene = KivScene();
  return strError.empty();
}

}  // namespace kiv
