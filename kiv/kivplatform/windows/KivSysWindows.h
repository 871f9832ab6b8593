// Shared by the sources of the Windows backend.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysText.h"

namespace kiv::sys {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

// The system's text type has the same units; one copy, since the two types may not alias.
inline std::wstring ToSystem(KivWStringView csText) {
  return std::wstring(csText.begin(), csText.end());
}
inline KivWString FromSystem(std::wstring_view csText) {
  return KivWString(csText.begin(), csText.end());
}

inline HANDLE ToHandle(intptr_t iHandle) {
  return reinterpret_cast<HANDLE>(iHandle);
}
inline intptr_t FromHandle(HANDLE hHandle) {
  return reinterpret_cast<intptr_t>(hHandle);
}

// What a call does that a fault plan fails: the last error is set by the plan.
inline bool FaultFails(KivSysCall iCall) {
  return AskFault(iCall) == FaultAnswer::Fail;
}

// False, with the last error set, for a text that the system would cut at its zero unit.
inline bool IsWhole(KivWStringView csText) {
  if (csText.find(u'\0') == KivWStringView::npos) return true;
  SetLastError(ERROR_INVALID_NAME);
  return false;
}

// The name of an object: an empty one would make an object that nobody else can open.
inline bool IsUsableName(KivWStringView csName) {
  if (!csName.empty()) return IsWhole(csName);
  SetLastError(ERROR_INVALID_NAME);
  return false;
}

}  // namespace kiv::sys
