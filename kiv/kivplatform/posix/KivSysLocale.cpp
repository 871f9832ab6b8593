#include "KivSysLocale.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "KivSysPosix.h"

namespace kiv::sys {
namespace {

constexpr uint32_t kUsEnglish = 0x0409;

struct Language {
  const char* m_szName;  // language_COUNTRY, or the language alone for its other countries
  uint32_t m_iId;
};

// Within a language the entry with a country stands before the one without.
constexpr Language kLanguages[] = {
    {"ar", 0x0401},    {"bg", 0x0402},    {"ca", 0x0403},    {"zh_CN", 0x0804}, {"zh_HK", 0x0C04}, {"zh_SG", 0x1004},
    {"zh_TW", 0x0404}, {"zh", 0x0804},    {"cs", 0x0405},    {"da", 0x0406},    {"de_AT", 0x0C07}, {"de_CH", 0x0807},
    {"de_LI", 0x1407}, {"de_LU", 0x1007}, {"de", 0x0407},    {"el", 0x0408},    {"en_AU", 0x0C09}, {"en_CA", 0x1009},
    {"en_GB", 0x0809}, {"en_IE", 0x1809}, {"en_IN", 0x4009}, {"en_NZ", 0x1409}, {"en_ZA", 0x1C09}, {"en", 0x0409},
    {"es_AR", 0x2C0A}, {"es_MX", 0x080A}, {"es", 0x0C0A},    {"et", 0x0425},    {"eu", 0x042D},    {"fi", 0x040B},
    {"fr_BE", 0x080C}, {"fr_CA", 0x0C0C}, {"fr_CH", 0x100C}, {"fr_LU", 0x140C}, {"fr", 0x040C},    {"gl", 0x0456},
    {"he", 0x040D},    {"hi", 0x0439},    {"hr", 0x041A},    {"hu", 0x040E},    {"id", 0x0421},    {"is", 0x040F},
    {"it_CH", 0x0810}, {"it", 0x0410},    {"ja", 0x0411},    {"ko", 0x0412},    {"lt", 0x0427},    {"lv", 0x0426},
    {"ms", 0x043E},    {"nb", 0x0414},    {"nl_BE", 0x0813}, {"nl", 0x0413},    {"nn", 0x0814},    {"no", 0x0414},
    {"pl", 0x0415},    {"pt_BR", 0x0416}, {"pt", 0x0816},    {"ro", 0x0418},    {"ru", 0x0419},    {"sk", 0x041B},
    {"sl", 0x0424},    {"sr", 0x0C1A},    {"sv_FI", 0x081D}, {"sv", 0x041D},    {"th", 0x041E},    {"tr", 0x041F},
    {"uk", 0x0422},    {"vi", 0x042A},
};

}  // namespace

// Linux has one domain.
bool SystemDnsDomain(KivSysDomain, KivWString& csDomain) {
  char szHost[256] = {};
  if (gethostname(szHost, sizeof szHost - 1) != 0) return posix::FailWithErrno();
  if (const char* const pDot = std::strchr(szHost, '.')) {
    csDomain = Utf8ToWide(pDot + 1);
    return true;
  }
  char szDomain[256] = {};
  if (getdomainname(szDomain, sizeof szDomain - 1) != 0) return posix::FailWithErrno();
  csDomain = std::strcmp(szDomain, "(none)") == 0 ? u"" : Utf8ToWide(szDomain);
  return true;
}

bool SetUserLocaleWithPoint() {
  std::setlocale(LC_ALL, "");  // without effect for a locale that is not installed
  return std::setlocale(LC_NUMERIC, "C") != nullptr;
}

uint32_t LanguageId() {
  const char* szLocale = nullptr;
  for (const char* szVariable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    szLocale = std::getenv(szVariable);
    if (szLocale != nullptr && szLocale[0] != 0) break;
  }
  if (szLocale == nullptr) return kUsEnglish;
  std::string_view strLocale = szLocale;
  strLocale = strLocale.substr(0, strLocale.find_first_of(".@"));
  const std::string_view strLanguage = strLocale.substr(0, strLocale.find('_'));
  for (const Language& zLanguage : kLanguages)
    if (strLocale == zLanguage.m_szName || strLanguage == zLanguage.m_szName) return zLanguage.m_iId;
  return kUsEnglish;
}

void SystemVersion(uint32_t& iMajor, uint32_t& iMinor) {
  iMajor = 0;
  iMinor = 0;
  utsname zName{};
  if (uname(&zName) == 0) std::sscanf(zName.release, "%u.%u", &iMajor, &iMinor);
}

// Linux maps by the page and has no coarser unit of its own. With the library's default, patches and attachments have
// the same block size on every target.
uint32_t AllocationGranularity() {
  return 0;
}

}  // namespace kiv::sys
