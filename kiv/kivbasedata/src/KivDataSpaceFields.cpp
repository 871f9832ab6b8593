#include "KivDataSpaceFields.h"

namespace kiv {
namespace {

KivDataSpaceFields* g_pzInUse = nullptr;

// Never destroyed: files may outlive the data space.
KivDataSpaceFields& PlainFields() {
  static KivDataSpaceFields& zFields = *new KivDataSpaceFields;
  return zFields;
}

}  // namespace

KivDataSpaceFields* KivDataSpaceFields::GetInstance() {
  return g_pzInUse != nullptr ? g_pzInUse : &PlainFields();
}

void KivDataSpaceFields::SetInstance(KivDataSpaceFields* pzFields) {
  g_pzInUse = pzFields;
}

bool KivGetNoDirectBuffer() {
  return KivDataSpaceFields::GetInstance()->m_bNoDirectBuffer;
}

void KivSetNoDirectBuffer(bool bOn) {
  KivDataSpaceFields::GetInstance()->m_bNoDirectBuffer = bOn;
}

}  // namespace kiv
