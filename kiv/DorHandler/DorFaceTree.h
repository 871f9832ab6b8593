// Triangles of a face in a tree of boxes, for distances between faces; and the trees of the faces that were asked for
// last.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "DorTriangle.h"

namespace kiv {

// When a search for a distance gives up: a few seconds, since the relay serves nobody meanwhile.
struct DorSearchLimits {
  size_t m_nMostPairs = 4'000'000;    // of triangles that it looks at
  size_t m_nMostWaiting = 1'000'000;  // pairs of boxes that it puts aside, which takes memory
};

class DorFaceTree {
 public:
  // At least one triangle, all coordinates numbers.
  explicit DorFaceTree(std::vector<DorTriangle> vzTriangle);
  ~DorFaceTree();
  DorFaceTree(const DorFaceTree&) = delete;
  DorFaceTree& operator=(const DorFaceTree&) = delete;

  size_t GetTriangleNum() const { return m_vzTriangle.size(); }
  // About, with what stands in the tree.
  size_t GetByteNum() const;
  // Nearest points of two trees, the first on this one. Refuses with Failed where too many triangles are about equally
  // near for a tree to sort them out.
  DorNearest NearestTo(const DorFaceTree& zOther, const DorSearchLimits& zLimits = DorSearchLimits()) const;

 private:
  struct Boxes;
  class Search;

  std::vector<DorTriangle> m_vzTriangle;  // those of a leaf stand together
  std::unique_ptr<Boxes> m_pzBoxes;
};

// Trees by instance and face, up to a number of bytes; the one that was used longest ago goes first.
class DorFaceTrees {
 public:
  using Key = std::pair<int64_t, int64_t>;

  explicit DorFaceTrees(size_t nMostBytes = size_t{96} << 20) : m_nMostBytes(nMostBytes) {}

  // The tree of the key, made by pfnTriangles() if it is not here.
  template <typename Triangles>
  std::shared_ptr<const DorFaceTree> Get(const Key& zKey, Triangles&& pfnTriangles) {
    const auto it = m_mapTree.find(zKey);
    if (it != m_mapTree.end()) {
      it->second.m_iUsed = ++m_iClock;
      return it->second.m_pzTree;
    }
    return Keep(zKey, std::make_shared<const DorFaceTree>(pfnTriangles()));
  }
  void Clear();
  size_t GetByteNum() const { return m_nBytes; }

 private:
  struct Kept {
    std::shared_ptr<const DorFaceTree> m_pzTree;
    uint64_t m_iUsed = 0;
  };
  std::shared_ptr<const DorFaceTree> Keep(const Key& zKey, std::shared_ptr<const DorFaceTree> pzTree);

  size_t m_nMostBytes;
  size_t m_nBytes = 0;
  uint64_t m_iClock = 0;
  std::map<Key, Kept> m_mapTree;
};

}  // namespace kiv
