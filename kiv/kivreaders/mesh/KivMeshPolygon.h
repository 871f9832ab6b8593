// Polygons into triangles, by cutting off ears.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace kiv {

// Keeps its memory from one polygon to the next.
class KivPolygonCutter {
 public:
  using Point = std::array<double, 3>;

  // nMostWork: how many corners may be looked at for all polygons together. The work grows with the square of a
  // polygon's corners; by default one of 40,000 is cut, within some seconds.
  explicit KivPolygonCutter(uint64_t nMostWork = 1'000'000'000) : m_nMostWork(nMostWork) {}

  // Gives three corners for each triangle, numbers into vzPoint, in the polygon's sense of rotation. The polygon may be
  // concave, lie a little outside a plane, have corners on straight lines, and touch itself, as where a slit leads to a
  // hole. Every corner becomes one of a triangle, but for those that stand where the next one stands, and tips of ways
  // there and back. False if it crosses itself: what it covers is not told by its corners then, and its triangles may
  // be too many or too few. Throws KivSceneError when the polygons so far took more work than that.
  bool Cut(const std::vector<Point>& vzPoint, std::vector<uint32_t>& viCorner);

 private:
  // What of the other corners keeps one from being an ear: all in its triangle or on its sides; of those on the two
  // sides that are the polygon's own only those that lead inside; only those inside.
  enum class Strictness { Sides, Cut, Inside };

  struct Corner {
    double m_dU, m_dV;
    double m_dHeight;  // above the plane of the other two
    uint32_t m_iBefore, m_iNext;
    uint32_t m_iBlocker;  // one that kept it from being an ear with these neighbours; kNone: not known
    bool m_bThere;
  };

  bool Flatten(const std::vector<Point>& vzPoint);
  double Turn(uint32_t iA, uint32_t iB, uint32_t iC) const;
  bool Coincide(uint32_t iA, uint32_t iB) const;
  bool LeadsInto(uint32_t iCorner, uint32_t iFrom, uint32_t iTip, uint32_t iTo) const;
  bool Blocks(uint32_t iCorner, uint32_t iA, uint32_t iB, uint32_t iC, Strictness eStrictness) const;
  bool IsSpike(uint32_t i) const;
  bool IsEar(uint32_t i, Strictness eStrictness);
  void CheckWork() const;
  uint32_t FindEar(uint32_t iFrom, Strictness eStrictness);
  uint32_t FindAny(uint32_t iFrom) const;
  void Remove(uint32_t i);
  bool HasArea(uint32_t i) const;
  void AddTriangle(uint32_t i, std::vector<uint32_t>& viCorner) const;

  std::vector<Corner> m_vzCorner;
  uint32_t m_nLeft = 0;
  uint64_t m_nMostWork;
  uint64_t m_nWork = 0;
};

}  // namespace kiv
