#include "DorFaceTree.h"

#include <algorithm>
#include <limits>
#include <unsupported/Eigen/BVH>

#include "DorRefusal.h"

namespace kiv {
namespace {

using Box = Eigen::AlignedBox3d;

constexpr size_t kLeafTriangles = 4;

Eigen::Vector3d Point(const KivECoord3& z) {
  return {z.m_dX, z.m_dY, z.m_dZ};
}

Box BoxOf(const DorTriangle* pBegin, const DorTriangle* pEnd) {
  Box zBox;
  for (const DorTriangle* p = pBegin; p != pEnd; ++p)
    for (const KivECoord3& z : *p) zBox.extend(Point(z));
  return zBox;
}

// A run of triangles that stand together.
struct Leaf {
  uint32_t m_iBegin = 0, m_iEnd = 0;
  Box m_zBox;
};

// Sorts triangles into leaves: halves along the longest side of the box around their centres.
void Split(std::vector<DorTriangle>& vz, size_t iBegin, size_t iEnd, std::vector<Leaf>& vzLeaf) {
  if (iEnd - iBegin <= kLeafTriangles) {
    vzLeaf.push_back(
        {static_cast<uint32_t>(iBegin), static_cast<uint32_t>(iEnd), BoxOf(vz.data() + iBegin, vz.data() + iEnd)});
    return;
  }
  const auto Centre = [](const DorTriangle& z) { return z[0] + z[1] + z[2]; };
  Box zBox;
  for (size_t i = iBegin; i < iEnd; ++i) zBox.extend(Point(Centre(vz[i])));
  Eigen::Index iAxis = 0;
  zBox.sizes().maxCoeff(&iAxis);
  // Whole leaves on the left side.
  const size_t nLeaves = (iEnd - iBegin + kLeafTriangles - 1) / kLeafTriangles;
  const size_t iMiddle = iBegin + nLeaves / 2 * kLeafTriangles;
  const auto At = [](size_t i, std::vector<DorTriangle>& v) { return v.begin() + static_cast<std::ptrdiff_t>(i); };
  std::nth_element(At(iBegin, vz), At(iMiddle, vz), At(iEnd, vz), [&](const DorTriangle& a, const DorTriangle& b) {
    return Point(Centre(a))[iAxis] < Point(Centre(b))[iAxis];
  });
  Split(vz, iBegin, iMiddle, vzLeaf);
  Split(vz, iMiddle, iEnd, vzLeaf);
}

}  // namespace

struct DorFaceTree::Boxes {
  explicit Boxes(std::vector<Leaf> vzLeaf) : m_vzLeaf(std::move(vzLeaf)) {
    std::vector<uint32_t> viLeaf(m_vzLeaf.size());
    std::vector<Box> vzBox;
    vzBox.reserve(m_vzLeaf.size());
    for (uint32_t i = 0; i < viLeaf.size(); ++i) {
      viLeaf[i] = i;
      vzBox.push_back(m_vzLeaf[i].m_zBox);
    }
    m_zTree.init(viLeaf.begin(), viLeaf.end(), vzBox.begin(), vzBox.end());
  }

  std::vector<Leaf> m_vzLeaf;
  Eigen::KdBVH<double, 3, uint32_t> m_zTree;
};

// What the tree asks on its way down; lengths are squares.
class DorFaceTree::Search {
 public:
  using Scalar = double;

  Search(const DorFaceTree& zFirst, const DorFaceTree& zSecond, const DorSearchLimits& zLimits)
      : m_zFirst(zFirst), m_zSecond(zSecond), m_zLimits(zLimits) {
    m_zBest = DorNearestOfTriangles(zFirst.m_vzTriangle[0], zSecond.m_vzTriangle[0]);
  }

  // What cannot be better than the best is said to be far off, so that nobody goes on there.
  double minimumOnVolumeVolume(const Box& zFirst, const Box& zSecond) {
    const double d = Bound(zFirst, zSecond);
    if (d < m_zBest.m_dSquared) Count(m_nWaiting, m_zLimits.m_nMostWaiting);
    return d;
  }
  double minimumOnVolumeObject(const Box& zFirst, uint32_t iSecond) const {
    return Bound(zFirst, m_zSecond.m_pzBoxes->m_vzLeaf[iSecond].m_zBox);
  }
  double minimumOnObjectVolume(uint32_t iFirst, const Box& zSecond) const {
    return Bound(m_zFirst.m_pzBoxes->m_vzLeaf[iFirst].m_zBox, zSecond);
  }
  double minimumOnObjectObject(uint32_t iFirst, uint32_t iSecond) {
    const Leaf& zFirst = m_zFirst.m_pzBoxes->m_vzLeaf[iFirst];
    const Leaf& zSecond = m_zSecond.m_pzBoxes->m_vzLeaf[iSecond];
    if (zFirst.m_zBox.squaredExteriorDistance(zSecond.m_zBox) >= m_zBest.m_dSquared) return m_zBest.m_dSquared;
    for (uint32_t i = zFirst.m_iBegin; i < zFirst.m_iEnd; ++i) {
      const DorTriangle* const pFirst = &m_zFirst.m_vzTriangle[i];
      const Box zBox = BoxOf(pFirst, pFirst + 1);
      for (uint32_t k = zSecond.m_iBegin; k < zSecond.m_iEnd; ++k) {
        const DorTriangle* const pSecond = &m_zSecond.m_vzTriangle[k];
        if (zBox.squaredExteriorDistance(BoxOf(pSecond, pSecond + 1)) >= m_zBest.m_dSquared) continue;
        Count(m_nPairs, m_zLimits.m_nMostPairs);
        const DorNearest z = DorNearestOfTriangles(*pFirst, *pSecond);
        if (z.m_dSquared < m_zBest.m_dSquared) m_zBest = z;
      }
    }
    return m_zBest.m_dSquared;
  }

  DorNearest m_zBest;

 private:
  double Bound(const Box& zFirst, const Box& zSecond) const {
    const double d = zFirst.squaredExteriorDistance(zSecond);
    return d < m_zBest.m_dSquared ? d : std::numeric_limits<double>::max();
  }

  static void Count(size_t& n, size_t nMost) {
    if (++n > nMost) throw DorRefusal(DorAnswerCode::Failed, "too many triangles of the faces are about equally near");
  }

  const DorFaceTree& m_zFirst;
  const DorFaceTree& m_zSecond;
  const DorSearchLimits& m_zLimits;
  size_t m_nWaiting = 0, m_nPairs = 0;
};

DorFaceTree::DorFaceTree(std::vector<DorTriangle> vzTriangle) : m_vzTriangle(std::move(vzTriangle)) {
  std::vector<Leaf> vzLeaf;
  vzLeaf.reserve(m_vzTriangle.size() / kLeafTriangles + 1);
  Split(m_vzTriangle, 0, m_vzTriangle.size(), vzLeaf);
  m_pzBoxes = std::make_unique<Boxes>(std::move(vzLeaf));
}

DorFaceTree::~DorFaceTree() = default;

size_t DorFaceTree::GetByteNum() const {
  return m_vzTriangle.size() * sizeof(DorTriangle) + m_pzBoxes->m_vzLeaf.size() * 2 * sizeof(Leaf);
}

DorNearest DorFaceTree::NearestTo(const DorFaceTree& zOther, const DorSearchLimits& zLimits) const {
  Search zSearch(*this, zOther, zLimits);
  if (zSearch.m_zBest.m_dSquared > 0) Eigen::BVMinimize(m_pzBoxes->m_zTree, zOther.m_pzBoxes->m_zTree, zSearch);
  return zSearch.m_zBest;
}

void DorFaceTrees::Clear() {
  m_mapTree.clear();
  m_nBytes = 0;
}

std::shared_ptr<const DorFaceTree> DorFaceTrees::Keep(const Key& zKey, std::shared_ptr<const DorFaceTree> pzTree) {
  const size_t nBytes = pzTree->GetByteNum();
  while (!m_mapTree.empty() && m_nBytes + nBytes > m_nMostBytes) {
    const auto itOldest = std::min_element(m_mapTree.begin(), m_mapTree.end(), [](const auto& a, const auto& b) {
      return a.second.m_iUsed < b.second.m_iUsed;
    });
    m_nBytes -= itOldest->second.m_pzTree->GetByteNum();
    m_mapTree.erase(itOldest);
  }
  if (nBytes > m_nMostBytes) return pzTree;
  m_mapTree.emplace(zKey, Kept{pzTree, ++m_iClock});
  m_nBytes += nBytes;
  return pzTree;
}

}  // namespace kiv
