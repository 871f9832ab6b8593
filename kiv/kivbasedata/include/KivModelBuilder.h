// Builds a model in memory and writes it as a container whose elements refer to each other by keys, so that they can
// grow and move. docs/model.md has the picture.
//
//   KivModelBuilder zBuilder;
//   const size_t iBolt = zBuilder.AddPart();
//   zBuilder.FaceEdge(iBolt, 0).AddFace() ...           // a mesh at level 0
//   const size_t iRoot = zBuilder.AddNode(u"machine");
//   const size_t iNode = zBuilder.AddNode(u"bolt", iRoot);
//   zBuilder.PlaceInstance(iBolt, zMatrix, iNode);
//   zBuilder.PMI(iNode).AddPMI() ...
//   bool bDone = zBuilder.Save(u"machine.kiv");
//
// The blocks that it hands out are the elements' own: fill any of their fields. Links, keys, numbers of entries, kinds
// of nodes and the size of the note's parameters are set by Save, and so are boxes: those of meshes by their vertices,
// and by the meshes in them those of exact geometry and vertices, instances, nodes, the assembly tree, the note and the
// model. What has no meshes to go by keeps the box that it has: exact geometry and vertices of a part without any, and
// all PMI, layer filters, cameras and permanent ids.
//
// References stay good while the builder lives, but for that to a node, which the next AddNode may move. A part, a node
// or an instance that does not exist throws std::out_of_range where it is asked for, but for the node of a PMI, a layer
// filter or a camera: Save refuses that one.
//
// Where the records leave a meaning open, the builder gives one: m_viChildren of a node are indices of nodes,
// m_iInstanceData[0] of an instance is the index of its node. A part that no instance places is not stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivModelNote.h"
#include "KivPMI.h"
#include "KivPermanentIdTable.h"
#include "KivPolyElemData.h"
#include "KivVertexData.h"

namespace kiv {

class KivModelBuilder {
 public:
  static constexpr size_t kNoNode = SIZE_MAX;

  KivModelBuilder();

  // Tolerances of the levels of detail, the first one first; one of 0.01 unless set.
  void SetLevels(const std::vector<float>& vfTolerance) { m_vfLevelTolerance = vfTolerance; }

  // --- Parts --------------------------------------------------------------------------------------------------------

  size_t AddPart();
  // What a part has, made with the first call.
  KivMemoryBlockFaceEdge& FaceEdge(size_t iPart, size_t iLevel);
  KivMemoryBlockPolyElem& PolyElem(size_t iPart, size_t iLevel);
  KivMemoryBlockBrep& Brep(size_t iPart);
  KivMemoryBlockVertex& Vertices(size_t iPart);

  // --- Structure ----------------------------------------------------------------------------------------------------

  // The first node is the root. Each other one has one parent, before it; Save refuses anything else, and a part or a
  // node that does not exist.
  size_t AddNode(const KivWString& csName, size_t iParent = kNoNode);
  KivAssemblyNode& Node(size_t iNode);  // until the next AddNode
  size_t PlaceInstance(size_t iPart, const KivEMatrix4& zMatrix, size_t iNode);
  std::vector<KivAttribute>& InstanceAttributes(size_t iInstance) { return m_vzPlaced.at(iInstance).m_vzAttribute; }

  // What a node has, made with the first call.
  KivMemoryBlockPMI& PMI(size_t iNode);
  KivMemoryBlockLayerFilter& LayerFilter(size_t iNode);
  KivMemoryBlockCamera& Camera(size_t iNode);

  // --- The whole ----------------------------------------------------------------------------------------------------

  KivModelNoteParameters& Parameters() { return m_zNote; }
  std::vector<KivAttribute>& NoteAttributes() { return m_zNote.m_vzAttribute; }
  KivMemoryBlockPermanentIdTable& PermanentIds();

  // Writes a new file, and reads it back before it says true. False after a report; the file is then no whole model.
  // It can be called again.
  bool Save(const KivWString& csPath);

 private:
  static constexpr size_t kMostLevels = 4096;  // a mesh of a higher level is refused when it is saved

  bool WriteInto(const KivWString& csPath);
  bool IsWhole(const KivWString& csPath) const;

  struct Part {
    std::map<size_t, std::unique_ptr<KivMemoryBlockFaceEdge>> m_mapFaceEdge;  // by level
    std::map<size_t, std::unique_ptr<KivMemoryBlockPolyElem>> m_mapPolyElem;
    std::unique_ptr<KivMemoryBlockBrep> m_pzBrep;
    std::unique_ptr<KivMemoryBlockVertex> m_pzVertex;
  };
  struct Placed {
    size_t m_iPart = 0;
    size_t m_iNode = kNoNode;
    KivEMatrix4 m_zMatrix;
    std::vector<KivAttribute> m_vzAttribute;
  };
  class Writer;

  std::vector<float> m_vfLevelTolerance = {0.01f};
  std::deque<Part> m_vzPart;
  std::deque<Placed> m_vzPlaced;
  bool m_bParentsExist = true;  // those that AddNode was given
  KivMemoryBlockAssemblyTree m_zAssembly;
  KivMemoryBlockModelNote m_zNote;
  std::map<size_t, std::unique_ptr<KivMemoryBlockPMI>> m_mapPMI;  // by node
  std::map<size_t, std::unique_ptr<KivMemoryBlockLayerFilter>> m_mapLayerFilter;
  std::map<size_t, std::unique_ptr<KivMemoryBlockCamera>> m_mapCamera;
  std::unique_ptr<KivMemoryBlockPermanentIdTable> m_pzPermanentIds;
};

}  // namespace kiv
