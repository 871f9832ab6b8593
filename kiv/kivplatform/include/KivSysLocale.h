// Locale, language and what the system says of itself.
#pragma once

#include <cstdint>
#include <functional>

#include "KivSysText.h"

namespace kiv::sys {

// The user's locale holds, but for numbers: they are read and written with a point, whatever the user's settings.
// False if the numeric part could not be set.
bool SetUserLocaleWithPoint();
// The system's default language identifier in the numbering of Windows (0x0409 is US English), the user's where that
// is not to be had. Linux maps the language of LC_ALL, LC_MESSAGES or LANG; 0x0409 where it knows none.
uint32_t LanguageId();

// Major and minor version of the system: of Windows, or of the Linux kernel.
void SystemVersion(uint32_t& iMajor, uint32_t& iMinor);
// The unit of the start of file views; 0 if the system gives none (Linux).
uint32_t AllocationGranularity();
// DNS domains of this machine; false if the query fails.
enum class KivSysDomain { Logical, Physical };
bool DnsDomain(KivSysDomain iDomain, KivWString& csDomain);
// Answers the queries in place of the system while it is set. Null takes it off.
void SetDomainHook(std::function<bool(KivSysDomain iDomain, KivWString& csDomain)> pfnHook);
// The query without the hook.
bool SystemDnsDomain(KivSysDomain iDomain, KivWString& csDomain);

}  // namespace kiv::sys
