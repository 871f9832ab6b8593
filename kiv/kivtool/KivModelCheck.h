// The full check of a model: its container, every element, link and key, every mesh and geometry string, and the
// meaning that this project's programs give to carried fields.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "KivToolModel.h"
#include "KivToolOutput.h"

namespace kiv {

enum class KivCheckSeverity { Warning, Error };

// One kind of finding. The code never changes; docs/kiv.md has the list.
struct KivCheckCode {
  const char* m_szCode;
  KivCheckSeverity m_eSeverity;
  const char* m_szMeaning;
};

struct KivCheckFinding {
  const char* m_szCode = "";
  KivCheckSeverity m_eSeverity = KivCheckSeverity::Error;
  uint64_t m_iPosition = 0;  // of the record, or of the node in the unused record file; 0 where there is none
  uint64_t m_iKey = 0;       // by which the record was reached; 0 if by none
  std::string m_strSentence;
};

struct KivCheckResult {
  uint64_t m_nErrors = 0;
  uint64_t m_nWarnings = 0;
  uint64_t m_nElements = 0;  // loaded
  uint64_t m_nFaces = 0;
  uint64_t m_nEdges = 0;
  uint64_t m_nTriangles = 0;
  uint64_t m_nGeometries = 0;
  std::map<std::string, uint64_t> m_mapCode;  // findings of each code
};

using KivCheckVisitor = std::function<void(const KivCheckFinding&)>;

// The codes of the findings of the container begin with "container-" and end in the kind's name; they are not in this
// table.
const KivCheckCode* KivFindCheckCode(const std::string& strCode);
std::vector<KivCheckCode> KivListCheckCodes();

// Hands each finding to pfnFinding as it is found. Takes memory for 9 bytes a record and for the structure of the
// assembly. Throws KivToolError if the user stops it; where it cannot look for that a guard ends the process instead,
// if there is an output to tell it.
KivCheckResult KivCheckModel(KivToolModel& zModel, const KivCheckVisitor& pfnFinding,
                             KivToolOutput* pzOutput = nullptr);

}  // namespace kiv
