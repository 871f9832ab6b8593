// The steps of the check of a model, and where their findings go.
#pragma once

#include "KivModelCheck.h"

namespace kiv {

class KivCheckSink {
 public:
  KivCheckSink(const KivCheckVisitor& pfnFinding, KivCheckResult& zResult)
      : m_zResult(zResult), m_pfnFinding(pfnFinding) {}

  // szCode is one of KivListCheckCodes.
  void Add(const char* szCode, uint64_t iPosition, uint64_t iKey, const std::string& strSentence);
  void AddContainer(const std::string& strCode, KivCheckSeverity eSeverity, uint64_t iPosition,
                    const std::string& strSentence);

  KivCheckResult& m_zResult;

 private:
  const KivCheckVisitor& m_pfnFinding;
};

// Every element, first those that a key leads to from the model on: its record, its links, its keys, its content.
void KivCheckElements(KivToolModel& zModel, KivCheckSink& zSink);
// Indices and placements of nodes and instances.
void KivCheckStructure(KivToolModel& zModel, KivCheckSink& zSink);
// The content of one block, by its type.
void KivCheckBlock(const KivMemoryBlock& zBlock, uint64_t iPosition, uint64_t iKey, KivCheckSink& zSink);

}  // namespace kiv
