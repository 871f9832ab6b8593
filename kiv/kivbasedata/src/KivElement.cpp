#include "KivElement.h"

namespace kiv {

bool KivIsReadOnStack(uint64_t nBytes) {
  return nBytes <= kElementStackBytes &&
         10 * nBytes < 9 * uint64_t{KivDataSpaceFields::GetInstance()->m_iStackBufferLimit};
}

uint8_t* KivElementReadBuffer(uint64_t nBytes) {
  constexpr size_t kSlack = 16;
  // Never destroyed: elements may be the last to go.
  static std::vector<uint8_t>& vcBuffer = *new std::vector<uint8_t>;
  const size_t nNeeded = static_cast<size_t>(nBytes) + kSlack;
  if (vcBuffer.size() < nNeeded) vcBuffer.resize(nNeeded);
  return vcBuffer.data();
}

}  // namespace kiv
