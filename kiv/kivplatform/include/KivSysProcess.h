// Processes: start, wait, list, and the job that ends a whole tree.
#pragma once

#include <cstdint>
#include <vector>

#include "KivSysEvent.h"
#include "KivSysText.h"

namespace kiv {

struct KivSysProcessStart {
  KivWString m_csCommandLine;  // program first, in double quotes; parts are split by the rules of CommandLineToArgvW
  KivWString m_csFolder;       // the child's current folder; empty: this process's
  bool m_bHideWindow = true;   // show state "hidden", with the fixed start record of the runtime
  // What the child prints goes nowhere, and it has nothing to read. Windows: it has no console.
  bool m_bNoStreams = false;
  // Out of the job of this process (Linux: out of its process group). Without m_csJobName the child is in no job then.
  bool m_bBreakAwayFromJob = false;
  // Job that the child will be assigned to, if the caller knows it at the start: Linux can only put a process into a
  // job's process group while it starts. It counts as a member from KivSysJob::Assign on. Windows takes no notice.
  KivWString m_csJobName;
};

struct KivSysMemoryCounters {  // bytes
  uint64_t m_iWorkingSet = 0;
  uint64_t m_iPeakWorkingSet = 0;
  uint64_t m_iPageFile = 0;
  uint64_t m_iPeakPageFile = 0;
};

// A started child. Movable; the destructor lets go of it without ending it, and leaves no zombie behind.
class KivSysProcess {
 public:
  KivSysProcess() noexcept = default;
  KivSysProcess(KivSysProcess&& zOther) noexcept;
  KivSysProcess& operator=(KivSysProcess&& zOther) noexcept;
  KivSysProcess(const KivSysProcess&) = delete;
  KivSysProcess& operator=(const KivSysProcess&) = delete;
  ~KivSysProcess();

  // Not open on failure, also when the program does not exist. The child inherits no handles.
  static KivSysProcess Start(const KivSysProcessStart& zStart);

  // A child of this process that was let go of, to hear of its end after all. Ask while it is known to run: on Linux it
  // is not open if its end has been taken, on Windows it is whatever process has the id.
  static KivSysProcess TakeBack(uint32_t iId);

  bool IsOpen() const noexcept { return m_iId != 0; }
  uint32_t GetId() const noexcept { return m_iId; }
  void Close() noexcept;

  KivSysWait Wait(uint32_t iMilliSeconds);
  // False while it runs. Linux keeps the low eight bits of a code; an end by a signal counts as 128 + its number.
  bool GetExitCode(int32_t& iCode);
  // Ends the process at once with this exit code (Linux: SIGKILL, whatever the code).
  bool Terminate(int32_t iCode);

 private:
  friend class KivSysJob;
  uint32_t m_iId = 0;
  intptr_t m_iHandle = 0;
};

// All processes of a tree, ended by one call. The root creates it; others open it by its name.
class KivSysJob {
 public:
  KivSysJob() noexcept = default;
  KivSysJob(KivSysJob&& zOther) noexcept;
  KivSysJob& operator=(KivSysJob&& zOther) noexcept;
  KivSysJob(const KivSysJob&) = delete;
  KivSysJob& operator=(const KivSysJob&) = delete;
  ~KivSysJob();

  static KivSysJob Create(const KivWString& csName);
  static KivSysJob Open(const KivWString& csName);
  bool IsOpen() const noexcept { return m_iHandle != 0; }
  void Close() noexcept;

  bool Contains(const KivSysProcess& zProcess, bool& bContained) const;
  bool Assign(const KivSysProcess& zProcess);
  // Ends every process of the job but the caller, also while they start others. csMarkerFolder holds the marker
  // files of the tree ("KivProc<id>"): Linux finds there those that left the process group.
  bool Terminate(int32_t iExitCode, const KivWString& csMarkerFolder);

 private:
  intptr_t m_iHandle = 0;
};

namespace sys {

uint32_t CurrentProcessNumber();
// All running processes, however many; false if they cannot be listed.
bool ListProcesses(std::vector<uint32_t>& viIds);
bool MemoryCounters(KivSysMemoryCounters& zCounters);  // of this process
// Ends this process at once: no unwinding, no destructors, no core file, no dialog.
[[noreturn]] void EndProcess(int32_t iCode);
// Makes an uncaught exception end this process with EndProcess(iCode).
void SetUncaughtExitCode(int32_t iCode);

}  // namespace sys
}  // namespace kiv
