// A small model of every kind of element for tests: a machine of two bolts and a plate, in two levels.
#pragma once

#include <string>

#include "KivModelBuilder.h"
#include "KivSysText.h"

namespace kivtest {

// Adds a face with a square of two triangles in z = fZ, with normals, and an edge around it.
void AddSquare(kiv::KivMemoryBlockFaceEdge& zMesh, uint32_t iId, float fSize, float fZ);

struct ToolModelParts {
  size_t m_iBolt = 0, m_iPlate = 0;
  size_t m_iRoot = 0, m_iGroup = 0;
};
// Two bolts of one part below a node "group", a plate below the root; colours, layers, a unit of millimetres, geometry,
// PMI, a camera, vertices, permanent ids.
ToolModelParts FillToolModel(kiv::KivModelBuilder& zBuilder);
// The same, written.
void MakeToolModel(const kiv::KivWString& csPath);

// The program kiv: its exit code and what it printed.
struct ToolRun {
  int32_t m_iExit = -1;
  std::string m_strOut;
  std::string m_strErr;
};
kiv::KivWString KivProgramPath();
ToolRun RunKiv(const std::vector<kiv::KivWString>& vcsArguments);

}  // namespace kivtest
