// Snapshots, undo and redo; and the request that asks for nothing.
#include "DorRequestWorks.h"
#include "DorSession.h"

namespace kiv {
namespace {

int64_t StepsOf(const DorRequestFields& zFields) {
  const int64_t iSteps = zFields.Integer("steps");
  if (iSteps < 1) throw DorRefusal(DorAnswerCode::BadArgument, "steps is at least 1");
  return iSteps;
}

void PutStepNums(const DorSession& zSession, DorAnswerWriter& zAnswer) {
  zAnswer.Integer("undo_steps", zSession.UndoStepNum());
  zAnswer.Integer("redo_steps", zSession.RedoStepNum());
}

}  // namespace

void DorServeDoNothing(DorSession&, const DorRequestFields&, DorAnswerWriter&) {}

void DorServeSnapShot(DorSession& zSession, const DorRequestFields&, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zSession.SnapShot();
  PutStepNums(zSession, zAnswer);
}

void DorServeUndo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zAnswer.Integer("steps_done", zSession.Undo(StepsOf(zFields)));
  PutStepNums(zSession, zAnswer);
}

void DorServeRedo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zAnswer.Integer("steps_done", zSession.Redo(StepsOf(zFields)));
  PutStepNums(zSession, zAnswer);
}

}  // namespace kiv
