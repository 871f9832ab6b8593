// Snapshots, undo and redo; and the request that asks for nothing.
#include "DorRequest.h"
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

void ServeDoNothing(DorSession&, const DorRequestFields&, DorAnswerWriter&) {}

void ServeSnapShot(DorSession& zSession, const DorRequestFields&, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zSession.SnapShot();
  PutStepNums(zSession, zAnswer);
}

void ServeUndo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zAnswer.Integer("steps_done", zSession.Undo(StepsOf(zFields)));
  PutStepNums(zSession, zAnswer);
}

void ServeRedo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  zSession.RequireEditable();
  zAnswer.Integer("steps_done", zSession.Redo(StepsOf(zFields)));
  PutStepNums(zSession, zAnswer);
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfHistory() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_DoNothing", ServeDoNothing},
      {u"DorHandler_SnapShot", ServeSnapShot, false},
      {u"DorHandler_Undo", ServeUndo, false},
      {u"DorHandler_Redo", ServeRedo, false},
  };
  return kRows;
}

}  // namespace kiv
