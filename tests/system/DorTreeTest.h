// Trees of client, relay and handlers: the real programs, or a relay of this program whose handlers misbehave on
// demand.
#pragma once

#include "DorClient.h"
#include "DorRelay.h"
#include "KivExProcTest.h"

namespace kivtest {

// The model of KivTestMachine.h.
void WriteModelFile(const kiv::KivWString& csPath);

// The programs of the build.
kiv::DorClientOptions RealPrograms(const TestFolder& zFolder);
// The relay's logic in a body of this program, with handlers that run the body "OddHandler". What a handler does
// stands in the path of its model, "<when> <what>", as in "read kill", and in the tails of DorHandler_PickOneElement.
//   when: read, clear, call      what: kill, exit, report, status <n>, cut <n> (bytes less), long (a byte more),
//                                      id (another model), name (another request), wait <name of an event>,
//                                      footprint (answers with its Footprint)
// Anything else is answered as it should be; calls are answered with their payload. The relay itself answers the
// request kAskRelayFootprint with its Footprint. The handlers may run another body.
kiv::DorClientOptions OddPrograms(const TestFolder& zFolder, const std::string& strHandlerBody = "OddHandler",
                                  const std::vector<kiv::KivWString>& vcsHandlerArgs = {});
constexpr char16_t kAskRelayFootprint[] = u"KivTestFootprint";

// What a process holds.
struct Footprint {
  int64_t m_iMemory = 0;   // bytes that are its own
  int64_t m_iHandles = 0;  // open ones
};
Footprint OwnFootprint();
kiv::KivByteBuffer FootprintPayload(const Footprint& zFootprint);  // two integers

inline kiv::KivByteBuffer IdPayload(int64_t iModel) {
  kiv::KivByteBuffer vc;
  kiv::KivPutInt64(vc, iModel);
  return vc;
}

}  // namespace kivtest
