#include "KivModelCheck.h"

#include <optional>

#include "KivCheckWalk.h"
#include "KivProgress.h"
#include "KivStopGuard.h"

namespace kiv {
namespace {

using Severity = KivCheckSeverity;

// --- The container --------------------------------------------------------------------------------------------------

bool IsHarmless(KivContainerFindingKind eKind) {
  return eKind == KivContainerFindingKind::FreeNotZeroed || eKind == KivContainerFindingKind::FreeNeighbours;
}

// The container's check does not look whether the user wants to stop.
KivContainerCheck RunFullCheck(KivToolModel& zModel, KivToolOutput* pzOutput) {
  const KivProgress zProgress("checking the container", 0);
  std::optional<KivStopGuard> zGuard;
  if (pzOutput != nullptr) zGuard.emplace([] { return true; }, *pzOutput);
  return zModel.Container().FullCheck();
}

// A record or a node that breaks the rules of docs/container_format.md.
void CheckContainer(KivToolModel& zModel, KivCheckSink& zSink, KivToolOutput* pzOutput) {
  try {
    const KivContainerCheck zCheck = RunFullCheck(zModel, pzOutput);
    for (const KivContainerFinding& z : zCheck.m_vzFinding) {
      const std::string strName = KivGetFindingName(z.m_iKind);
      zSink.AddContainer("container-" + strName, IsHarmless(z.m_iKind) ? Severity::Warning : Severity::Error,
                         z.m_iPosition,
                         "the container breaks a rule of its format, " + strName + "; the value found there is " +
                             std::to_string(z.m_iValue));
    }
    if (zCheck.m_iFindingNum > zCheck.m_vzFinding.size())
      zSink.Add("container-more", 0, 0,
                std::to_string(zCheck.m_iFindingNum - zCheck.m_vzFinding.size()) +
                    " further findings in the container are not listed");
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    zSink.Add("container-unreadable", 0, 0, "the check of the container could not be carried through");
  }
}

}  // namespace

// --- Codes ----------------------------------------------------------------------------------------------------------

std::vector<KivCheckCode> KivListCheckCodes() {
  return {
      {"container-reported", Severity::Error, "a failure was reported while the container was opened"},
      {"container-more", Severity::Error, "more findings in the container than are listed"},
      {"container-unreadable", Severity::Error, "the container could not be checked to its end"},
      {"model-missing", Severity::Error, "the first record is no KivModel that can be loaded"},
      {"key-dangling", Severity::Error, "a key leads to no record in use"},
      {"key-stale", Severity::Warning, "a key that no element holds leads to no record in use"},
      {"key-type", Severity::Error, "a key leads to an element of another type than its place demands"},
      {"keys-refused", Severity::Warning, "an element does not list its keys"},
      {"element-unloadable", Severity::Error, "the record of an element cannot be read"},
      {"element-foreign", Severity::Warning, "an element of an application's own type, which is not looked into"},
      {"element-unreachable", Severity::Warning, "no key leads from the model to a record in use"},
      {"link-twice", Severity::Error,
       "a link leads to an element that another key has led to: a circle, or two parents"},
      {"link-parent", Severity::Warning, "link 0 of an element does not lead to its parent"},
      {"box-invalid", Severity::Error,
       "a box with values that are no finite numbers, or a low corner above the high one"},
      {"mesh-length", Severity::Error, "lists of a face or an edge have lengths that do not fit its counts"},
      {"mesh-index", Severity::Error, "an index beyond the vertices of its face"},
      {"mesh-number", Severity::Error, "a coordinate or a component of a normal that is no finite number"},
      {"mesh-box", Severity::Warning, "vertices outside the box of their element"},
      {"mesh-id-twice", Severity::Warning, "two faces or two edges of one element with the same id"},
      {"attribute-invalid", Severity::Warning,
       "a colour, a layer or a unit of another length, or with values that make none: it is passed over"},
      {"geometry-invalid", Severity::Error, "a geometry string that is not well-formed"},
      {"geometry-id", Severity::Warning, "a geometry string that does not say what it describes"},
      {"structure-incomplete", Severity::Error, "nodes or instances could not be loaded, and are not checked"},
      {"node-child", Severity::Error, "a node names a child that does not exist"},
      {"node-circle", Severity::Error, "a node is one of its own parents"},
      {"node-two-parents", Severity::Warning, "a node is the child of two nodes, or twice of one"},
      {"node-root", Severity::Warning, "a node that is not the first one has no parent"},
      {"node-matrix", Severity::Error, "a node's matrix has values that are no finite numbers"},
      {"instance-node", Severity::Error, "an instance names a node that does not exist"},
      {"instance-matrix", Severity::Error, "an instance's matrix has values that are no finite numbers"},
      {"instance-placement", Severity::Warning,
       "an instance does not stand where its node and the node's parents place it"},
      {"instance-levels", Severity::Warning, "an instance has more levels than there are tolerances"},
  };
}

const KivCheckCode* KivFindCheckCode(const std::string& strCode) {
  static const std::vector<KivCheckCode> vzCode = KivListCheckCodes();
  for (const KivCheckCode& z : vzCode)
    if (strCode == z.m_szCode) return &z;
  return nullptr;
}

// --- Findings -------------------------------------------------------------------------------------------------------

void KivCheckSink::AddContainer(const std::string& strCode, Severity eSeverity, uint64_t iPosition,
                                const std::string& strSentence) {
  ++(eSeverity == Severity::Error ? m_zResult.m_nErrors : m_zResult.m_nWarnings);
  ++m_zResult.m_mapCode[strCode];
  m_pfnFinding({strCode.c_str(), eSeverity, iPosition, 0, strSentence});
}

void KivCheckSink::Add(const char* szCode, uint64_t iPosition, uint64_t iKey, const std::string& strSentence) {
  const KivCheckCode* pzCode = KivFindCheckCode(szCode);
  const Severity eSeverity = pzCode != nullptr ? pzCode->m_eSeverity : Severity::Error;
  ++(eSeverity == Severity::Error ? m_zResult.m_nErrors : m_zResult.m_nWarnings);
  ++m_zResult.m_mapCode[szCode];
  m_pfnFinding({szCode, eSeverity, iPosition, iKey, strSentence});
}

KivCheckResult KivCheckModel(KivToolModel& zModel, const KivCheckVisitor& pfnFinding, KivToolOutput* pzOutput) {
  KivCheckResult zResult;
  KivCheckSink zSink(pfnFinding, zResult);
  if (!zModel.WasSound())
    zSink.Add("container-reported", 0, 0, "a failure was reported while the container was opened");
  CheckContainer(zModel, zSink, pzOutput);
  KivCheckElements(zModel, zSink);
  KivCheckStructure(zModel, zSink);
  return zResult;
}

}  // namespace kiv
