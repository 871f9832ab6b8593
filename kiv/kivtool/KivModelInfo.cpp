#include "KivModelInfo.h"

#include <map>

#include "KivModelStructure.h"
#include "KivPositionTableManager.h"
#include "KivProgress.h"

namespace kiv {
namespace {

void ReadHeader(KivToolModel& zModel, KivModelInfo& zInfo) {
  const KivContainerHeader& zHeader = zModel.Probe().m_zHeader;
  zInfo.m_iFileLength = zModel.Probe().m_iLength;
  zInfo.m_iGeneration = zHeader.Byte(KivContainerHeader::FormatVersion);
  zInfo.m_iMinorVersion = zHeader.U32(KivContainerHeader::FormatMinorVersion);
  zInfo.m_iWriterApplication = zHeader.U32(KivContainerHeader::WriterApplication);
  zInfo.m_iWriterVersion = zHeader.U32(KivContainerHeader::WriterVersion);
  zInfo.m_bKeyed = zHeader.U32(KivContainerHeader::FilePositionTableMode) != 0;
  if (!zInfo.m_bKeyed) return;
  try {
    zInfo.m_nKeys = zModel.Manager().GetPositionTableManager()->GetPositionNum();
  } catch (const std::exception&) {
    zInfo.m_bStructureWhole = false;
  }
}

void CountRecords(KivToolModel& zModel, KivModelInfo& zInfo) {
  KivRecordWalk zWalk(zModel);
  KivProgress zProgress("counting records", zWalk.GetEnd());
  KivToolRecord zRecord;
  for (uint32_t i = 0; zWalk.Next(zRecord); ++i) {
    if (i % 256 == 0) zProgress.Set(zRecord.m_iPosition);
    if (zRecord.m_bFree) {
      ++zInfo.m_nFreeRecords;
      zInfo.m_nFreeBytes += zRecord.m_iRecordSize;
      continue;
    }
    ++zInfo.m_nUsedRecords;
    zInfo.m_nUsedBytes += zRecord.m_iRecordSize;
    zInfo.m_nPayloadBytes += zRecord.m_iPayloadSize;
    const bool bKnown = zRecord.m_bHasTag && zRecord.m_iTypeIndex == 0 && zRecord.m_iTag < kElementTagNum;
    KivInfoType& zType = zInfo.m_azType[bKnown ? zRecord.m_iTag : 0];
    ++zType.m_nElements;
    zType.m_nBytes += zRecord.m_iRecordSize;
  }
  zInfo.m_bRecordsWhole = !zWalk.IsBroken();
}

void CountLevels(KivToolModel& zModel, const KivToolStructure& zStructure, bool bDeep, KivModelInfo& zInfo) {
  zInfo.m_vzLevel.resize(zStructure.GetLevelNum());
  KivProgress zProgress("counting triangles", zInfo.m_vzLevel.size() * zStructure.m_vzPart.size());
  for (size_t iLevel = 0; iLevel < zInfo.m_vzLevel.size(); ++iLevel) {
    KivInfoLevel& zLevel = zInfo.m_vzLevel[iLevel];
    if (iLevel < zStructure.m_vfLevelTolerance.size()) zLevel.m_fTolerance = zStructure.m_vfLevelTolerance[iLevel];
    std::set<uint64_t> siSeen;
    for (const KivToolPart& zPart : zStructure.m_vzPart) {
      zProgress.Advance();
      if (iLevel >= zPart.m_vzLevel.size()) continue;
      const KivToolPart::Level& z = zPart.m_vzLevel[iLevel];
      for (const uint64_t iKey : {z.m_iFaceEdgeKey, z.m_iCommonKey, z.m_iPolyElemKey}) {
        if (iKey == 0) continue;
        zLevel.m_zCount += bDeep ? KivCountMeshTreeDeep(zModel, iKey, siSeen) : KivCountMeshTree(zModel, iKey, siSeen);
      }
    }
    zInfo.m_bMeshesWhole = zInfo.m_bMeshesWhole && zLevel.m_zCount.m_bWhole;
  }
}

}  // namespace

KivModelInfo KivGetModelInfo(KivToolModel& zModel, bool bDeep) {
  KivModelInfo zInfo;
  ReadHeader(zModel, zInfo);
  CountRecords(zModel, zInfo);
  const KivToolStructure zStructure = KivLoadStructure(zModel);
  for (const KivAssemblyNode& zNode : zStructure.m_vzNode) zInfo.m_nNodes += !zNode.m_zFrame.IsGap();
  zInfo.m_nInstances = zStructure.m_vzInstance.size();
  zInfo.m_nParts = zStructure.m_vzPart.size();
  zInfo.m_bStructureWhole = zInfo.m_bStructureWhole && zStructure.m_bComplete;
  zInfo.m_fBox = zStructure.m_fBox;
  zInfo.m_bBox = zInfo.m_nInstances != 0 && KivIsBox(zStructure.m_fBox);  // a new model has one of zeros
  zInfo.m_dMetresPerUnit = zStructure.m_dUnit;
  CountLevels(zModel, zStructure, bDeep, zInfo);
  return zInfo;
}

}  // namespace kiv
