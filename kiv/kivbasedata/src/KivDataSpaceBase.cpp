#include "KivDataSpaceBase.h"

namespace kiv {
namespace {

KivDataSpaceBase* g_pzInstalled = nullptr;

}  // namespace

KivDataSpaceBase* KivDataSpaceBase::GetInstance() {
  if (g_pzInstalled != nullptr) return g_pzInstalled;
  static KivDataSpaceBase zInstance;
  return &zInstance;
}

void KivDataSpaceBase::InstallInstance(KivDataSpaceBase* pzInstance) {
  g_pzInstalled = pzInstance;
}

bool KivGetNoDirectBuffer() {
  return KivDataSpaceBase::GetInstance()->m_bNoDirectBuffer;
}

void KivSetNoDirectBuffer(bool bOn) {
  KivDataSpaceBase::GetInstance()->m_bNoDirectBuffer = bOn;
}

}  // namespace kiv
