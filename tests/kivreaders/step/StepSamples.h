// STEP files for tests, and what the library itself says of a file.
#pragma once

#include <string>

namespace kivtest {

// Millimetres, placements applied.
struct StepMeasures {
  double m_dVolume = 0;
  double m_dArea = 0;
  double m_adBoxMin[3] = {}, m_adBoxMax[3] = {};
};
StepMeasures MeasureStep(const std::string& strPath);

// Shapes side by side, of every kind of surface and curve that a file can have: a torus, a B-spline face (rational, and
// plain), a swept, a turned and an offset face, a face of a cone's part, loose edges (ellipse, B-spline, hyperbola), a
// wire, and a lone point.
bool WriteStepKinds(const std::string& strPath);
// A box of 1 x 2 x 3 inches whose file is in inches.
bool WriteStepInches(const std::string& strPath);
// One point.
bool WriteStepPoint(const std::string& strPath);
// A solid with a colour and a layer of its own among the two of one part, an edge with a colour, a part in two layers,
// a layer that is off, and names beyond ASCII.
bool WriteStepStyles(const std::string& strPath);
// "Whole" with two places "Left" and "Right" of an assembly with one place "Inner" of a box; the box at "Right" alone
// is red, in the others it has the colour of its part, green.
bool WriteStepUsage(const std::string& strPath);
// An assembly of a box of 2 x 3 x 4 whose shape stands in a file of its own beside it, as strPath tells.
bool WriteStepReference(const std::string& strPath);

}  // namespace kivtest
