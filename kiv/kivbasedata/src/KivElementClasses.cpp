#include "KivElementClasses.h"

#include "KivAssemblyTree.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivPolyElemData.h"

namespace kiv {
namespace {

template <typename Element>
void Register() {
  KivOutOfCoreManager::SetElementClass(
      Element::kTag, [](uint32_t, uint32_t iManagerKey) -> KivOutOfCoreData* { return new Element(iManagerKey); });
}

}  // namespace

void KivRegisterElementClasses() {
  Register<KivFaceEdgeData>();
  Register<KivPolyElemData>();
  Register<KivAssemblyTree>();
  Register<KivInstance>();
}

}  // namespace kiv
