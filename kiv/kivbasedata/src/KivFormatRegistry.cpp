#include "KivFormatRegistry.h"

#include <optional>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "KivFastFileContainer";

std::optional<KivFormatVeto> g_zVeto;
std::optional<uint32_t> g_zVersion;
std::optional<uint32_t> g_zApplication;

template <typename T>
bool SetOnce(std::optional<T>& zValue, T value) {
  if (!zValue.has_value()) zValue = value;
  if (*zValue == value) return true;
  KIV_FAIL();
  return false;
}

}  // namespace

bool KivSetFormatCompatibilityCallback(KivFormatVeto pfnVeto) {
  return SetOnce(g_zVeto, pfnVeto);
}
bool KivSetFormatVersion(uint32_t iVersion) {
  return SetOnce(g_zVersion, iVersion);
}
bool KivSetFormatApplication(uint32_t iApplication) {
  return SetOnce(g_zApplication, iApplication);
}

KivFormatVeto KivFormatCompatibilityCallback() {
  return g_zVeto.value_or(nullptr);
}
uint32_t KivFormatVersion() {
  return g_zVersion.value_or(0);
}
uint32_t KivFormatApplication() {
  return g_zApplication.value_or(0);
}

bool IsInitialized() {
  return g_zVeto.has_value() && g_zVersion.has_value() && g_zApplication.has_value();
}

}  // namespace kiv
