// The faces and edges of a part in the order of their numbers.
#pragma once

#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS_Shape.hxx>

namespace kiv {

// Numbers are indices in the maps, from 1. They depend on the source alone, so every reading gives the same.
struct KivStepShape {
  explicit KivStepShape(const TopoDS_Shape& zShape) : m_zShape(zShape) {
    TopExp::MapShapes(zShape, TopAbs_FACE, m_zFaces);
    TopExp::MapShapes(zShape, TopAbs_EDGE, m_zEdges);
  }
  bool IsEmpty() const { return m_zFaces.IsEmpty() && m_zEdges.IsEmpty(); }

  TopoDS_Shape m_zShape;
  TopTools_IndexedMapOfShape m_zFaces;
  TopTools_IndexedMapOfShape m_zEdges;  // degenerate ones, which have no length, among them
};

}  // namespace kiv
