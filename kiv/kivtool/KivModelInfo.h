// What the command info tells about a model.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "KivMeshCount.h"
#include "KivToolModel.h"

namespace kiv {

struct KivInfoType {
  uint64_t m_nElements = 0;
  uint64_t m_nBytes = 0;  // of their records, frames included
};

struct KivInfoLevel {
  std::optional<float> m_fTolerance;
  KivMeshCount m_zCount;  // each part once, however often it is placed
};

struct KivModelInfo {
  uint64_t m_iFileLength = 0;
  uint32_t m_iGeneration = 0;  // 20 or 19
  uint32_t m_iMinorVersion = 0;
  uint32_t m_iWriterApplication = 0;
  uint32_t m_iWriterVersion = 0;
  bool m_bKeyed = false;
  uint64_t m_nKeys = 0;

  uint64_t m_nUsedRecords = 0;
  uint64_t m_nFreeRecords = 0;
  uint64_t m_nUsedBytes = 0;
  uint64_t m_nFreeBytes = 0;
  uint64_t m_nPayloadBytes = 0;
  std::array<KivInfoType, kElementTagNum> m_azType;  // by tag; 0 for what is no element of the library
  bool m_bRecordsWhole = true;                       // false: the chain of records is broken

  uint64_t m_nNodes = 0;
  uint64_t m_nInstances = 0;
  uint64_t m_nParts = 0;
  std::vector<KivInfoLevel> m_vzLevel;
  bool m_bStructureWhole = true;  // false: something could not be loaded, and the numbers leave it out
  bool m_bMeshesWhole = true;     // the same of the meshes
  std::array<float, 6> m_fBox{};
  bool m_bBox = false;
  std::optional<double> m_dMetresPerUnit;

  bool IsWhole() const { return m_bRecordsWhole && m_bStructureWhole && m_bMeshesWhole; }
};

// bDeep: loads every mesh. Throws KivToolError if the user stops it.
KivModelInfo KivGetModelInfo(KivToolModel& zModel, bool bDeep);

}  // namespace kiv
