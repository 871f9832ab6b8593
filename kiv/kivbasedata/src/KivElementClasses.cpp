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

// The code of all element classes. Sources that only use them are spared compiling it.
template class KivOutOfCoreBlockNode<KivMemoryBlockFaceEdge>;
template class KivElement<KivMemoryBlockFaceEdge>;
template class KivMeshElement<KivMemoryBlockFaceEdge>;
template class KivOutOfCoreBlockNode<KivMemoryBlockPolyElem>;
template class KivElement<KivMemoryBlockPolyElem>;
template class KivMeshElement<KivMemoryBlockPolyElem>;
template class KivOutOfCoreBlockNode<KivMemoryBlockAssemblyTree>;
template class KivElement<KivMemoryBlockAssemblyTree>;
template class KivOutOfCoreBlockNode<KivMemoryBlockInstance>;
template class KivElement<KivMemoryBlockInstance>;
template class KivOutOfCoreBlockNode<KivMemoryBlockLayerFilter>;
template class KivElement<KivMemoryBlockLayerFilter>;
template class KivOutOfCoreBlockNode<KivMemoryBlockCamera>;
template class KivElement<KivMemoryBlockCamera>;
template class KivOutOfCoreBlockNode<KivMemoryBlockPMI>;
template class KivElement<KivMemoryBlockPMI>;
template class KivOutOfCoreBlockNode<KivMemoryBlockBrep>;
template class KivElement<KivMemoryBlockBrep>;
template class KivOutOfCoreBlockNode<KivMemoryBlockVertex>;
template class KivElement<KivMemoryBlockVertex>;
template class KivOutOfCoreBlockNode<KivMemoryBlockModel>;
template class KivElement<KivMemoryBlockModel>;
template class KivOutOfCoreBlockNode<KivMemoryBlockModelNote>;
template class KivElement<KivMemoryBlockModelNote>;
template class KivOutOfCoreBlockNode<KivMemoryBlockPermanentIdTable>;
template class KivElement<KivMemoryBlockPermanentIdTable>;

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
