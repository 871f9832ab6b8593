// A placement in the two forms that glTF nodes have.
#pragma once

#include <array>

#include "KivEMatrix4.h"

namespace kiv {

// scale, then rotation, then translation, of column vectors.
struct KivGltfTrs {
  std::array<double, 3> m_dTranslation{};
  std::array<double, 4> m_dRotation = {0, 0, 0, 1};  // a quaternion x, y, z, w of length 1
  std::array<double, 3> m_dScale = {1, 1, 1};
};

// True if the affine part is a rotation, perhaps a mirroring, with a scale that is the same in all directions and not
// near 0: a node can have the matrix itself.
bool KivIsPlainPlacement(const KivEMatrix4& zMatrix);

// Any other affine matrix is a rotation (zInner), followed by a scale, a rotation and a translation (zOuter). Matrices
// with values that are no finite numbers are not for this.
void KivSplitPlacement(const KivEMatrix4& zMatrix, KivGltfTrs& zInner, KivGltfTrs& zOuter);

}  // namespace kiv
