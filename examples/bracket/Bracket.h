// The sample assembly: an L-shaped bracket with ribs, held by four bolts with washers.
//
//   Bracket assembly
//     Plate               part "Bracket plate", blue with holes and a front of other colours; layer "Plates"
//     Fastener 1 to 4     assembly "Fastener", placed in grey, the last one turned and red
//       Bolt              part "Bolt M6x20" without a colour; layer "Fasteners"
//       Washer            part "Washer 6", yellow; layer "Fasteners"
#pragma once

#include <string>

// Writes it as a STEP file in millimetres. Shapes and names are always the same, in the same order; that of the styles
// behind them varies. False if it could not be written.
bool WriteBracket(const std::string& strPath);
