#include "KivToolOutput.h"

#include <cstdarg>

#include "KivProgress.h"

namespace kiv {

KivToolOutput::KivToolOutput(bool bJson, std::FILE* pResult, std::FILE* pOther)
    : m_bJson(bJson), m_pResult(pResult), m_pOther(pOther), m_zJson([this](std::string_view str) { Put(str); }) {}

void KivToolOutput::Put(std::string_view str) {
  m_strPending += str;
  if (str.find('\n') != std::string_view::npos) PutPending();
}

void KivToolOutput::PutPending() {
  const KivProgress::Pause zPause;
  std::fwrite(m_strPending.data(), 1, m_strPending.size(), m_pResult);
  m_strPending.clear();
}

void KivToolOutput::Line(const char* szFormat, ...) {
  if (m_bJson) return;
  const KivProgress::Pause zPause;
  va_list zArguments;
  va_start(zArguments, szFormat);
  std::vfprintf(m_pResult, szFormat, zArguments);
  va_end(zArguments);
  std::fputc('\n', m_pResult);
}

void KivToolOutput::Note(const char* szFormat, ...) {
  const KivProgress::Pause zPause;
  va_list zArguments;
  va_start(zArguments, szFormat);
  std::fputs("kiv: ", m_pOther);
  std::vfprintf(m_pOther, szFormat, zArguments);
  va_end(zArguments);
  std::fputc('\n', m_pOther);
}

KivToolExit KivToolOutput::Fail(const std::string& strWhy) {
  if (!m_bJson) {
    std::fflush(m_pResult);
    Note("%s", strWhy.c_str());
    return KivToolExit::Failed;
  }
  if (m_zJson.IsBegun() && m_zJson.GetDepth() == 0) return KivToolExit::Failed;  // the document was complete
  if (!m_zJson.IsBegun()) m_zJson.BeginObject();
  m_zJson.EndTo(1);
  m_zJson.Value("error", strWhy);
  m_zJson.Value("exit_code", static_cast<int32_t>(KivToolExit::Failed));
  m_zJson.End();
  return KivToolExit::Failed;
}

bool KivToolOutput::Finish() {
  if (m_bJson) m_zJson.EndTo(0);
  PutPending();
  return std::fflush(m_pResult) == 0 && std::ferror(m_pResult) == 0;
}

}  // namespace kiv
