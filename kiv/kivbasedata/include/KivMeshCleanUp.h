// What a raw mesh goes through before it is coded. All operations work in place on the caller's arrays and return the
// new count; what stands behind it in an array is left over. Nothing here is coordinates-with-tolerance: points are the
// same if all their bits are.
#pragma once

#include <cstdint>

#include "KivECoord3.h"

namespace kiv {

// Removes each point of a polyline that equals the last kept one. pfPoint is x, y, z of each point. With bKeepTwo at
// least two points stay of two or more.
uint32_t KivDropConsecutivePoints(float* pfPoint, uint32_t nCount, bool bKeepTwo);

// Keeps the triangles with three different indices. If there are none and bKeepOne is set, those with two different
// ones; if there are none of these either, the first. piValue is null or a value for each triangle.
uint32_t KivDropDegenerateTriangles(uint32_t nCount, uint32_t* piTriangle, uint16_t* piValue, bool bKeepOne);

// Keeps the first of each set of equal points, in order. piPoint is three numbers for each; piValue is null or a value
// for each point.
uint32_t KivDropRepeatedPoints(uint32_t nCount, uint32_t* piPoint, uint16_t* piValue);

// What a vertex has gathered: the sum of its normals, and how many there are in it.
struct KivWeldVertex {
  KivECoord3 m_zNormal;
  uint32_t m_iMergeNum = 1;
};

// Welding merges a vertex into an earlier one with the same quantised point. Survivors close up in order, piTriangle
// is rewritten to them, and a survivor of several vertices gets its sum of normals normalised and its number set to 1.
// A triangle that names a vertex beyond nVertices is reported, and nothing is changed.
uint32_t KivWeldVertices(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                         KivWeldVertex* pzVertex);
// Merges only vertices that an edge of a triangle joins: into the first earlier survivor of the same point.
uint32_t KivWeldVerticesOnEdges(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                                KivWeldVertex* pzVertex);
// Without normals.
uint32_t KivWeldPoints(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint);

}  // namespace kiv
