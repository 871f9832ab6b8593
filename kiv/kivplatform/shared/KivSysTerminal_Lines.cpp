#include "KivSysTerminal.h"

namespace kiv {

std::optional<KivSysInput> KivSysLineCutter::Next(std::string& strLine) {
  if (m_bPassing) {
    const size_t iEnd = m_strAhead.find('\n');
    m_strAhead.erase(0, iEnd == std::string::npos ? iEnd : iEnd + 1);
    m_bPassing = iEnd == std::string::npos;
  }
  const size_t iEnd = m_strAhead.find('\n', m_iSeen);
  m_iSeen = 0;
  if ((iEnd == std::string::npos ? m_strAhead.size() : iEnd) > m_nLongest) {
    m_bPassing = true;
    return KivSysInput::TooLong;
  }
  if (iEnd != std::string::npos) {
    strLine = m_strAhead.substr(0, iEnd);
    m_strAhead.erase(0, iEnd + 1);
    return KivSysInput::Line;
  }
  m_iSeen = m_strAhead.size();
  if (!m_bEnded) return std::nullopt;
  if (m_strAhead.empty()) return KivSysInput::End;
  strLine.swap(m_strAhead);
  m_strAhead.clear();
  m_iSeen = 0;
  return KivSysInput::Line;
}

}  // namespace kiv
