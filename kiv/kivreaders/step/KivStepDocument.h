// Reads STEP files: assembly, parts, names, colours and layers.
#pragma once

#include <vector>

#include "KivScene.h"

namespace kiv {

// Tolerances in millimetres; none: those of KivDefaultTolerances. The scene is in millimetres. Throws KivSceneError, or
// std::bad_alloc where memory does not suffice.
void KivReadStep(const KivWString& csSource, const std::vector<double>& vdTolerance, KivScene& zScene);

}  // namespace kiv
