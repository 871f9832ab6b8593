// Writes a binary glTF 2.0 file. Vertices and indices go to a file beside it while they come, so that only lists of
// nodes, meshes and accessors are in memory.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "KivEMatrix4.h"
#include "KivMatrixSplit.h"
#include "KivModelMeaning.h"
#include "KivSysFile.h"

namespace kiv {

constexpr uint32_t kNoGltfIndex = 0xFFFFFFFFu;

struct KivGltfPrimitive {
  uint32_t m_iMode = 4;                 // 4 triangles, 1 lines
  uint32_t m_iPosition = kNoGltfIndex;  // accessors
  uint32_t m_iNormal = kNoGltfIndex;
  uint32_t m_iIndices = kNoGltfIndex;
  std::optional<KivColour> m_fColour;
};

struct KivGltfNode {
  std::string m_strName;
  std::optional<KivEMatrix4> m_zMatrix;  // one that KivIsPlainPlacement takes
  std::optional<KivGltfTrs> m_zTrs;      // instead
  uint32_t m_iMesh = kNoGltfIndex;
  std::vector<uint32_t> m_viChildren;
};

struct KivGltfMesh {
  std::string m_strName;
  std::vector<KivGltfPrimitive> m_vzPrimitive;  // at least one
};

class KivGltfWriter {
 public:
  // The file must not exist. Throws KivToolError, as all of these do, if something cannot be written; it names the
  // target, which the file may be the part of that is being written.
  KivGltfWriter(const KivWString& csPath, const KivWString& csTarget);

  // x, y, z of each vertex, at least one; all finite. They give the accessor's index.
  uint32_t AddVectors(const std::vector<float>& vfVector, bool bPositions);
  uint32_t AddIndices(const std::vector<uint32_t>& viIndex, size_t nVertices);
  uint32_t AddMesh(KivGltfMesh zMesh);
  uint32_t AddNode(KivGltfNode zNode);
  KivGltfNode& Node(uint32_t i) { return m_vzNode[i]; }
  size_t GetNodeNum() const { return m_vzNode.size(); }
  size_t GetMeshNum() const { return m_vzMesh.size(); }

  // Writes the file, out to the disk, and gives its length.
  uint64_t Finish(const std::vector<uint32_t>& viRoot);

 private:
  struct Accessor {
    uint64_t m_iOffset = 0;
    uint64_t m_nBytes = 0;
    uint64_t m_nCount = 0;
    uint32_t m_iComponent = 0;
    bool m_bBounds = false;
    std::array<float, 3> m_fMin{}, m_fMax{};
  };
  void Append(const void* pBytes, size_t nBytes);
  void FlushPart();
  // Throws for a file that would have so many bytes and cannot.
  void CheckLength(uint64_t nBytes) const;
  uint32_t AddAccessor(const Accessor& zAccessor, const void* pBytes);
  std::string BuildJson(const std::vector<uint32_t>& viRoot);
  // The chunk of what was gathered beside the file.
  void CopyBinary(KivSysFile& zFile, uint64_t iAt);

  KivWString m_csPath, m_csTarget;
  KivSysFile m_zBinary;
  std::vector<uint8_t> m_vcPart;  // behind what the file has
  uint64_t m_nWritten = 0;
  std::vector<Accessor> m_vzAccessor;
  std::vector<KivGltfMesh> m_vzMesh;
  std::vector<KivGltfNode> m_vzNode;
};

}  // namespace kiv
