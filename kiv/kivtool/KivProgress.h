// A bar on the terminal behind standard error, for work that takes over a second. Nothing where there is no terminal.
// A thread draws it, so that the seconds go on whatever the work does.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace kiv {

class KivProgress {
 public:
  // A total of 0 is one that is not known: the bar moves to and fro then.
  KivProgress(std::string strWhat, uint64_t nTotal);
  ~KivProgress();  // takes the bar away
  KivProgress(const KivProgress&) = delete;
  KivProgress& operator=(const KivProgress&) = delete;

  // Throws KivToolError once the user wants to stop.
  void Set(uint64_t nDone);
  void Advance(uint64_t nDone = 1) { Set(m_nDone + nDone); }

  void SetTotal(uint64_t nTotal) { m_nTotal = nTotal; }

  // What stands in the terminal's line, in less than nColumns: the end of strWhat, the bar, the seconds; where there is
  // no room for all of it the bar goes first. The frames of a bar that moves are numbered.
  static std::string Line(const std::string& strWhat, uint64_t nDone, uint64_t nTotal, uint64_t iSeconds,
                          uint64_t iFrame, size_t nColumns);

  // Takes a bar away that stands, and lets none come up again: before the process ends somewhere else.
  static void EndAll();

  // Takes a bar away that stands, and lets none come up while it lives: for lines that are printed meanwhile.
  class Pause {
   public:
    Pause();

   private:
    std::lock_guard<std::mutex> m_zGuard;
  };

 private:
  void DrawAll();
  void Draw(uint64_t iSeconds, uint64_t iFrame) const;

  const std::string m_strWhat;
  std::atomic<uint64_t> m_nTotal;
  std::atomic<uint64_t> m_nDone{0};
  std::mutex m_zLock;
  std::condition_variable m_zEnd;
  bool m_bEnd = false;
  std::thread m_zThread;  // only on a terminal
};

}  // namespace kiv
