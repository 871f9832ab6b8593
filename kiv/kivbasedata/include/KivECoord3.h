// A point or a vector in space.
#pragma once

namespace kiv {

struct KivECoord3 {
  double m_dX = 0;
  double m_dY = 0;
  double m_dZ = 0;

  friend bool operator==(const KivECoord3&, const KivECoord3&) = default;
};

}  // namespace kiv
