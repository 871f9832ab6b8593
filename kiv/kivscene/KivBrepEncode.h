// Writes the geometry strings of B-rep entries (KivBrepGeometry.h).
#pragma once

#include <cstdint>
#include <vector>

#include "KivBrepGeometry.h"

namespace kiv {

// The shortest string that is decoded to exactly this geometry, bit by bit: compact knots and quantised poles are taken
// only where they lose nothing. Empty for a geometry that no string can hold, and for numbers that are not finite.
std::vector<uint8_t> KivEncodeBrepGeometry(const KivBrepGeometry& zGeometry);

}  // namespace kiv
