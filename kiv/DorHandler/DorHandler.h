// The reference handler: one process for one model. Answers what the relay forwards.
//
// Every answer but those to DorHandler_ReadDor and DorHandler_ClearModel begins with a result code (DorAnswerCode) and
// comes with status 0, since other statuses reach a client without the answer. A code other than Done is followed by
// the reason, a wide string. docs/requests.md shows the answers.
#pragma once

#include <cstdint>

#include "DorRequests.h"
#include "DorSession.h"
#include "KivByteBuffer.h"
#include "KivSysText.h"

namespace kiv {

// Serves one request; an exception in its work becomes its answer. 0, always.
int32_t DorHandlerDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                           KivByteBuffer& vcResult);
int32_t DorHandlerPoll();
int32_t DorHandlerTick();

}  // namespace kiv
