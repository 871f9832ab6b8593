#include "KivElementClasses.h"

#include "KivAssemblyTree.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivModel.h"
#include "KivModelNote.h"
#include "KivPermanentIdTable.h"
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
  Register<KivModel>();
  Register<KivModelNote>();
  Register<KivPermanentIdTable>();
}

}  // namespace kiv
