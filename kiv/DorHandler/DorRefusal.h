// How a request says no: thrown anywhere in its work, it becomes the answer's code and reason. Nothing has changed
// then.
#pragma once

#include <string>
#include <utility>

#include "DorRequests.h"

namespace kiv {

struct DorRefusal {
  DorRefusal(DorAnswerCode iCode, std::string strReason) : m_iCode(iCode), m_strReason(std::move(strReason)) {}

  DorAnswerCode m_iCode;
  std::string m_strReason;
};

// For what a model's records should hold and do not.
template <typename Pointer>
Pointer DorNeed(Pointer pz, const char* szWhat) {
  if (!pz) throw DorRefusal(DorAnswerCode::Damaged, std::string(szWhat) + " cannot be read");
  return pz;
}

}  // namespace kiv
