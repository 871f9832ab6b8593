// The reference handler: one process for one model. Answers what the relay forwards.
//
// Every answer but those to DorHandler_ReadDor and DorHandler_ClearModel begins with a result code (DorAnswerCode) and
// comes with status 0, since other statuses reach a client without the answer. A code other than Done is followed by
// the reason, a wide string. docs/requests.md shows the answers.
#pragma once

#include <cstdint>

#include "DorRequests.h"
#include "KivByteBuffer.h"
#include "KivSysText.h"

namespace kiv {

enum class DorAnswerCode : int64_t {
  Done = 0,
  NotOffered = 1,  // this handler has no answer to the request
  NoModel = 2,     // no model has been read
  BadPayload = 3,  // the fields do not fit the request
  Failed = 4       // the work ended with a report, or for want of memory
};

// Status of the answer to DorHandler_ReadDor.
enum class DorReadResult : int32_t { Done = 0, NotOpened = 10, NotAModel = 20, Failed = 30 };

enum class DorFileKind : int64_t { Unknown = 0, Model = 1, Package = 2 };

// What the file is, found from its header or its trailer; bOpened is false if it cannot be opened.
DorFileKind DorProbeModelFile(const KivWString& csPath, bool& bOpened, uint64_t& iLength);

// Serves one request; an exception in its work becomes its answer. 0, always.
int32_t DorHandlerDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                           KivByteBuffer& vcResult);
int32_t DorHandlerPoll();
int32_t DorHandlerTick();

}  // namespace kiv
