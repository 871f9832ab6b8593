// A bar on the terminal behind standard error, for work that takes over a second. Nothing where there is no terminal.
#pragma once

#include <cstdint>
#include <string>

namespace kiv {

class KivProgress {
 public:
  // A total of 0 is one that is not known.
  KivProgress(std::string strWhat, uint64_t nTotal);
  ~KivProgress();  // takes the bar away
  KivProgress(const KivProgress&) = delete;
  KivProgress& operator=(const KivProgress&) = delete;

  // Throws KivToolError once the user wants to stop.
  void Set(uint64_t nDone);
  void Advance(uint64_t nDone = 1) { Set(m_nDone + nDone); }

 private:
  void Draw(uint64_t iNowNs);

  std::string m_strWhat;
  uint64_t m_nTotal;
  uint64_t m_nDone = 0;
  uint64_t m_iStartNs;
  uint64_t m_iDrawnNs = 0;
  bool m_bTerminal;
  bool m_bDrawn = false;
};

}  // namespace kiv
