// dor shell: one model, one request for each line of standard input.
#pragma once

#include <functional>
#include <string>

#include "DorAnswerText.h"

namespace kiv {

struct DorShellOptions {
  bool m_bKeepGoing = false;  // go on after a request that was refused or failed where the input is no terminal
  // Where the input is no terminal: gets each line before it is looked at. May be empty.
  std::function<void(const std::string&)> m_pfnLine;
  // Shows an answer, or why a line was not sent.
  std::function<void(const DorSpoken&)> m_pfnAnswer;
  std::function<void(const std::string&)> m_pfnError;
};

// Reads to the end of the input, to "quit", or until a stop was requested. True if every line could be read and every
// request was served and done; not after a stop where the input is no terminal, since lines may be left.
bool DorRunShell(DorClient& zClient, int64_t iModel, const DorShellOptions& zOptions);

// All requests that may be called, with their fields: a line for each.
std::string DorRequestsText();

}  // namespace kiv
