// Reads STEP files: assembly, parts, names, colours and layers.
#pragma once

#include <vector>

#include "KivScene.h"

namespace kiv {

// Tolerances in millimetres; the scene is in millimetres. Throws KivSceneError.
void KivReadStep(const KivWString& csSource, const std::vector<double>& vdTolerance, KivScene& zScene);

}  // namespace kiv
