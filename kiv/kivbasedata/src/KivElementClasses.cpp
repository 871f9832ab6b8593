#include "KivElementClasses.h"

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivModel.h"
#include "KivModelNote.h"
#include "KivPMI.h"
#include "KivPermanentIdTable.h"
#include "KivPolyElemData.h"
#include "KivVertexData.h"

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
  Register<KivLayerFilter>();
  Register<KivCamera>();
  Register<KivPMI>();
  Register<KivBrepData>();
  Register<KivVertexData>();
  Register<KivModel>();
  Register<KivModelNote>();
  Register<KivPermanentIdTable>();
}

}  // namespace kiv
