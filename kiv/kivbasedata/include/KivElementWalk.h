// From a model's root to its elements: accessors, and a walk over all of them. docs/model.md has the picture.
//
// Reports are quiet (source "src\KivModel"). Pointers to elements and blocks are good until the next operation on the
// store.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivInstance.h"
#include "KivModel.h"
#include "KivModelNote.h"

namespace kiv {

// --- Accessors ------------------------------------------------------------------------------------------------------

// The element at kModelPosition. Null after a report.
KivModel* KivGetModel(uint32_t iManagerKey);
// The root of the instance tree. Null after a report, also for a model without one.
KivInstance* KivGetInstanceRoot(uint32_t iManagerKey);
// These are null, too, where there is no such element, without a report.
KivModelNote* KivGetModelNote(uint32_t iManagerKey);
KivAssemblyTree* KivGetAssemblyTree(uint32_t iManagerKey);
KivOutOfCoreTreeNode* KivGetSecondElement(uint32_t iManagerKey);

// --- Walk -----------------------------------------------------------------------------------------------------------

// Gets each element that the walk has loaded. What it throws ends the walk and passes through it.
using KivElementVisitor = std::function<void(KivOutOfCoreTreeNode& zElement)>;

// Loads a tree of elements through the links 1 and 2 of each, and visits each once: keys that stand in siSeen are
// passed by, and those that come are added. False if a part could not be loaded or noted for lack of memory, which is
// reported and left out.
bool KivWalkTree(uint32_t iManagerKey, uint64_t iRootKey, std::set<uint64_t>& siSeen,
                 const KivElementVisitor& pfnVisit);

constexpr int32_t kAllLevels = -1;

// Loads the elements with these tags, and visits them:
//   7, 11, 12     PMI, layer filter and camera of each assembly node
//   0, 2          the instances
//   1, 8          the meshes of one level of detail, or with a negative iLevel those of all levels and the common ones
//   5, 13         the B-reps, and the vertices
// No key is visited twice; an element that is referred to by its table key here and by its position there has two.
// False if a part could not be loaded or noted for lack of memory, which is reported and left out.
bool KivWalkElements(uint32_t iManagerKey, const std::set<uint32_t>& siTag, int32_t iLevel,
                     const KivElementVisitor& pfnVisit);

// Opens a file as a store of its own, and loads and visits the model, its note, the assembly tree, the second element
// and all that the walk finds. A model may lack the three in between. False if the file is no store, and if a part
// could not be loaded or noted, which is reported and left out.
bool KivReadWholeModel(const KivWString& csPath, const KivElementVisitor& pfnVisit);

}  // namespace kiv
