#include "KivSysPresence.h"

#include "KivSysFolder.h"

namespace kiv {

KivSysPresence::~KivSysPresence() {
  Forget();
}

void KivSysPresence::Forget() noexcept {}

bool KivSysPresence::Exists(const KivWString& csPath) {
  return sys::PathExists(csPath);
}

}  // namespace kiv
