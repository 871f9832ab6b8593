// A small model for those that ask a handler: a plate and two bolts, with names, levels, exact geometry and colours.
#pragma once

#include "KivModelBuilder.h"

namespace kivtest {

// Millimetres; all coordinates are multiples of 1/64 and are stored exactly. Two levels of detail, of 1 and 0.1.
//
//   node 0 machine             layers 1 "steel" and 2 "paint"
//     node 1 plate             instance 0 of the part number 0; red
//     node 2 bolts             at 0, 0, 5
//       node 3 bolt A          at 2, 2, 0: instance 1 of the part number 1
//       node 4 bolt B          at 8, 8, 0: instance 2 of the part number 1
//
//   part no 0, plate   face 1: the square 0, 0, 0 to 10, 10, 0; a plane; layer 2; 2 and 8 triangles
//                    face 2: the square at z = -1; a surface of 2 x 2 poles; blue; 2 triangles
//                    edge 1: from 0, 0, 0 to 10, 0, 0; a line; 2 and 3 points
//   part no 1, bolt    face 1: eight sides of radius 1 around z from 0 to 4; a cylinder
//                    face 2: the cap at z = 0; no exact geometry
void FillMachine(kiv::KivModelBuilder& zBuilder);
bool WriteMachine(const kiv::KivWString& csPath);

// A face of the model's kinds: vertices as x, y, z, triangles as indices.
kiv::KivMeshFace& AddMachineFace(kiv::KivMemoryBlockFaceEdge& zMesh, uint32_t iId, const std::vector<float>& vfVertex,
                                 const std::vector<uint32_t>& viIndex);

}  // namespace kivtest
