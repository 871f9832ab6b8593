// What stands behind the standard streams, and the user's wish that the program should stop.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

enum class KivSysInput {
  Line,
  TooLong,  // a line of more than 1 MiB; what is left of it is passed over
  End,
  Failed,  // the input cannot be read: it is closed, a folder, or broken
  Stopped  // a stop was requested
};

// Cuts bytes that come in pieces into lines; their ends are taken off. The last line need not have one.
class KivSysLineCutter {
 public:
  explicit KivSysLineCutter(size_t nLongest = size_t{1} << 20) : m_nLongest(nLongest) {}

  void Put(std::string_view strPiece) { m_strAhead += strPiece; }
  void PutEnd() { m_bEnded = true; }
  // Line, TooLong or End; nothing while more bytes are needed to tell.
  std::optional<KivSysInput> Next(std::string& strLine);

 private:
  size_t m_nLongest;
  std::string m_strAhead;   // behind the last line
  size_t m_iSeen = 0;       // so many bytes of it hold no end
  bool m_bPassing = false;  // over the rest of a line that was too long
  bool m_bEnded = false;
};

namespace sys {

// True if standard error goes to a terminal, or standard input comes from one.
bool IsErrorTerminal();
bool IsInputTerminal();
// Columns of the terminal behind standard error; 80 where it does not tell them.
size_t ErrorTerminalWidth();

// The next line of standard input. A stop that is requested while it waits ends the wait.
KivSysInput ReadInputLine(std::string& strLine);

// From here on the first request to stop (Ctrl-C; on Linux also SIGTERM and SIGHUP) is only noted, so that the program
// can clean up; the second one ends it as usual. Linux: a signal that is ignored (nohup) stays ignored.
void CatchStopRequests();
bool IsStopRequested();
// While held, every further request is only noted as well: for a program that ends by itself soon.
void HoldStopRequests(bool bHold);

}  // namespace sys
}  // namespace kiv
