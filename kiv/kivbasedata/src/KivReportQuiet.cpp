#include "KivReportQuiet.h"

#include "KivException.h"

namespace kiv {
namespace {

KivQuietReport g_zLast;

}  // namespace

void KivReportHere(const char* szCondition, const char* szSource, int32_t iLine) noexcept {
  g_zLast.m_iNumber += 1;
  g_zLast.m_szCondition = szCondition != nullptr ? szCondition : "";
  g_zLast.m_szSource = szSource != nullptr ? szSource : "";
  g_zLast.m_iLine = iLine;
  try {
    KivReportFailure(szCondition, szSource, iLine);
  } catch (...) {
    // The operation that asked for the report goes on with its own failure.
  }
}

void KivReportThrownHere(const char* szSource, int32_t iLine) noexcept {
  try {
    throw;
  } catch (const KivException&) {
  } catch (const KivDispatchException&) {
  } catch (...) {
    KivReportHere("0", szSource, iLine);
  }
}

const KivQuietReport& KivLastQuietReport() noexcept {
  return g_zLast;
}

}  // namespace kiv
