// Tessellates parts.
#pragma once

#include "KivScene.h"
#include "KivStepShape.h"

namespace kiv {

// One level of detail. Faces and edges that give nothing are left out. Nothing of it stays in the shape. Throws
// std::bad_alloc if something failed while memory was used up.
KivSceneLevel KivMeshStepShape(const KivStepShape& zShape, double dTolerance);

}  // namespace kiv
