// The works of all requests that this handler answers, one for each name of the table in DorHandler.cpp.
#pragma once

#include "DorRequest.h"

namespace kiv {

// Assembly.cpp
void DorServeGetAsmTreeInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeGetAsmInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeSetAsmInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeSetInstPathPartMatrix(DorSession&, const DorRequestFields&, DorAnswerWriter&);
// FaceInfo.cpp
void DorServeGetFaceInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeGetEdgeInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
// FaceChange.cpp
void DorServeSetFaceInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeDelFaceInfo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
// Measure.cpp
void DorServeIsPlanarFace(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeCalcDistFaceFace(DorSession&, const DorRequestFields&, DorAnswerWriter&);
// History.cpp
void DorServeDoNothing(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeSnapShot(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeUndo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
void DorServeRedo(DorSession&, const DorRequestFields&, DorAnswerWriter&);
// Write.cpp
void DorServeWriteDor(DorSession&, const DorRequestFields&, DorAnswerWriter&);

}  // namespace kiv
