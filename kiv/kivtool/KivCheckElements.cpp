// The walk over all elements of a model that the check makes.
#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "KivBrepData.h"
#include "KivCheckWalk.h"
#include "KivInstance.h"
#include "KivModel.h"
#include "KivModelNote.h"
#include "KivNumberText.h"
#include "KivPositionTable.h"
#include "KivPositionTableManager.h"
#include "KivProgress.h"

namespace kiv {
namespace {

constexpr uint32_t kAnyTag = 0;
constexpr uint8_t kUnseen = 0xFF;
constexpr uint8_t kOtherTag = 0xFE;
constexpr uint8_t kNoKey = 0xFD;        // no key leads there from the model
constexpr uint8_t kNoKeyButOne = 0xFC;  // but one of another such element
constexpr uint8_t kTableTag = 10;

// A key that is still to be followed.
struct Reference {
  uint64_t m_iKey = 0;
  uint32_t m_iTag = kAnyTag;  // of the element that must stand there
  uint32_t m_iOrTag = 0;      // or of this one
  uint64_t m_iFrom = 0;       // position of the element that holds the key
  const char* m_szName = "";
  bool m_bLink = false;  // leads to a child, which has no other parent
};

class ElementWalk {
 public:
  ElementWalk(KivToolModel& zModel, KivCheckSink& zSink)
      : m_zModel(zModel), m_zSink(zSink), m_zProgress("checking elements", 0) {}

  void Run() {
    GatherRecords();
    MarkTables();
    if (m_zModel.LoadBlock<KivModel>(kModelPosition) == nullptr)
      m_zSink.Add("model-missing", kModelPosition, 0, "the record at position 264 is no KivModel that can be loaded");
    else
      Follow({kModelPosition, KivMemoryBlockModel::kTag, 0, 0, "the model", true});
    while (!m_vzToVisit.empty()) {
      const Reference zReference = m_vzToVisit.back();
      m_vzToVisit.pop_back();
      m_zProgress.Set(m_nSeen);
      Follow(zReference);
    }
    CheckUnreachable();
    CheckTableKeys();
  }

 private:
  void GatherRecords() {
    KivRecordWalk zWalk(m_zModel);
    KivToolRecord zRecord;
    for (uint32_t i = 0; zWalk.Next(zRecord); ++i) {
      if (i % 256 == 0) m_zProgress.Set(0);
      if (!zRecord.m_bFree) m_viUsed.push_back(zRecord.m_iPosition);
    }
    m_vcSeen.assign(m_viUsed.size(), kUnseen);
    m_zProgress.SetTotal(m_viUsed.size());
  }

  // The index of a record in use; false if none begins there.
  bool FindRecord(uint64_t iPosition, size_t& iRecord) const {
    const auto it = std::lower_bound(m_viUsed.begin(), m_viUsed.end(), iPosition);
    if (it == m_viUsed.end() || *it != iPosition) return false;
    iRecord = static_cast<size_t>(it - m_viUsed.begin());
    return true;
  }

  void MarkTables() {
    if (m_zModel.Probe().m_zHeader.U32(KivContainerHeader::FilePositionTableMode) == 0) return;
    try {
      m_viTable = m_zModel.Manager().GetPositionTableManager()->GetBlockPositions();
      for (const Position iTable : m_viTable) {
        size_t iRecord = 0;
        if (FindRecord(iTable, iRecord))
          m_vcSeen[iRecord] = kTableTag, ++m_nSeen;
        else
          m_zSink.Add("key-dangling", iTable, 0, "a position table is named where no record in use begins");
      }
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      m_zSink.Add("element-unloadable", 0, 0, "the chain of position tables cannot be followed");
    }
  }

  // Keys of the tables that lead nowhere, and that no element holds. A key of a deleted element stays, and two may lead
  // to one record where its place was another's before.
  void CheckTableKeys() {
    for (size_t iTable = 0; iTable < m_viTable.size(); ++iTable) {
      m_zProgress.Set(m_nSeen);
      const KivMemoryBlockPositionTable* pzTable = m_zModel.LoadBlock<KivPositionTable>(m_viTable[iTable]);
      if (pzTable == nullptr) continue;  // keys that are used say so
      for (size_t i = 0; i < pzTable->m_iPositionNum && i < pzTable->m_aiPosition.size(); ++i) {
        const uint64_t iPosition = pzTable->m_aiPosition[i];
        const uint64_t iKey = KivPositionTableManager::kTableKey + iTable * KivMemoryBlockPositionTable::kEntryNum + i;
        size_t iRecord = 0;
        if (iPosition == 0 || FindRecord(iPosition, iRecord) || m_siDangling.count(iKey) != 0) continue;
        m_zSink.Add("key-stale", iPosition, iKey,
                    "the key " + KivHexText(iKey) + " of the position tables leads to no record in use");
      }
    }
  }

  static std::string From(const Reference& z) {
    if (z.m_iFrom == 0) return z.m_szName;
    return std::string(z.m_szName) + " of the element at " + std::to_string(z.m_iFrom);
  }

  void Follow(const Reference& z) {
    const uint64_t iPosition = m_zModel.Resolve(z.m_iKey);
    size_t iRecord = 0;
    if (!FindRecord(iPosition, iRecord)) return ReportDangling(z);
    if (m_vcSeen[iRecord] != kUnseen) return FollowAgain(z, iPosition, m_vcSeen[iRecord]);
    m_vcSeen[iRecord] = kOtherTag;
    ++m_nSeen;
    KivOutOfCoreTreeNode* pzElement = m_zModel.Load(z.m_iKey);
    if (pzElement == nullptr) return ReportUnloadable(z, iPosition, z.m_iKey);
    ++m_zSink.m_zResult.m_nElements;
    const uint32_t iTag = pzElement->GetElementType() & 0xFFFF;
    if (iTag < kElementTagNum) m_vcSeen[iRecord] = static_cast<uint8_t>(iTag);
    if (!CheckType(z, iTag, iPosition)) return;
    const KivMemoryBlock& zBlock = *pzElement->GetMemoryBlock();
    CheckParent(z, zBlock, iPosition);
    KivCheckBlock(zBlock, iPosition, z.m_iKey, m_zSink);
    GatherKeys(zBlock, iPosition, iTag);
    CheckKeyList(*pzElement, iTag, iPosition, z.m_iKey);  // last: bulky elements would be loaded anew
  }

  // To where another key has led.
  void FollowAgain(const Reference& z, uint64_t iPosition, uint8_t cSeen) {
    if (cSeen < kElementTagNum) CheckType(z, cSeen, iPosition);
    if (z.m_bLink)
      m_zSink.Add("link-twice", iPosition, z.m_iKey,
                  From(z) + " leads to an element that another key has led to: a circle, or a second parent");
  }

  void ReportDangling(const Reference& z) {
    m_siDangling.insert(z.m_iKey);
    m_zSink.Add("key-dangling", m_zModel.Resolve(z.m_iKey), z.m_iKey,
                From(z) + " leads to no record in use (key " + KivHexText(z.m_iKey) + ")");
  }

  bool CheckType(const Reference& z, uint32_t iTag, uint64_t iPosition) {
    if (z.m_iTag == kAnyTag || iTag == z.m_iTag || iTag == z.m_iOrTag) return true;
    m_zSink.Add(
        "key-type", iPosition, z.m_iKey,
        From(z) + " leads to a " + KivElementName(iTag, 0) + ", and must lead to a " + KivElementName(z.m_iTag, 0));
    return false;
  }

  void ReportUnloadable(const Reference& z, uint64_t iPosition, uint64_t iKey) {
    KivElementFrame acFrame{};
    try {
      KivContainerRecord zRecord;
      KivOutOfCoreMemoryStorage* pzStorage = m_zModel.Manager().GetStorage();
      if (pzStorage->ReadElementHeader(iPosition, acFrame, zRecord) != KivStorageResult::Done) acFrame.fill(0);
    } catch (const std::exception&) {
      acFrame.fill(0);
    }
    const uint32_t iWord = KivLoad<uint32_t>(acFrame.data());
    if ((iWord >> 16 & 0xFF) != 0) {
      m_zSink.Add("element-foreign", iPosition, iKey,
                  From(z) + " leads to an element of an application's own type " + std::to_string(iWord >> 16 & 0xFF));
      return;
    }
    m_zSink.Add("element-unloadable", iPosition, iKey,
                From(z) + " leads to a record that cannot be loaded as a " + KivElementName(iWord & 0xFFFF, 0));
  }

  // A child names its parent, or nobody where parts may be shared.
  void CheckParent(const Reference& z, const KivMemoryBlock& zBlock, uint64_t iPosition) {
    const uint64_t iParentKey = zBlock.GetHeader().m_aiLink[0];
    if (iParentKey == 0 && !(z.m_bLink && z.m_iFrom != 0)) return;
    if (iParentKey != 0 && m_zModel.Resolve(iParentKey) == z.m_iFrom) return;
    m_zSink.Add("link-parent", iPosition, z.m_iKey,
                "link 0 leads to " + std::to_string(m_zModel.Resolve(iParentKey)) + ", the parent stands at " +
                    std::to_string(z.m_iFrom));
  }

  void Push(uint64_t iKey, uint32_t iTag, uint64_t iFrom, const char* szName, bool bLink = false, uint32_t iOrTag = 0) {
    if (iKey != 0) m_vzToVisit.push_back({iKey, iTag, iOrTag, iFrom, szName, bLink});
  }

  void GatherKeys(const KivMemoryBlock& zBlock, uint64_t iPosition, uint32_t iTag) {
    const std::array<uint64_t, 3> aiLink = zBlock.GetHeader().m_aiLink;
    if (iTag == KivMemoryBlockModel::kTag) {
      Push(aiLink[1], KivMemoryBlockInstance::kTag, iPosition, "link 1", true);
      Push(aiLink[2], KivMemoryBlockModelNote::kTag, iPosition, "link 2", true);
      return;
    }
    Push(aiLink[1], iTag, iPosition, "link 1", true);
    Push(aiLink[2], iTag, iPosition, "link 2", true);
    if (const auto* pzInstances = dynamic_cast<const KivMemoryBlockInstance*>(&zBlock)) {
      for (const KivInstanceEntry& z : pzInstances->m_vzInstance) GatherInstance(z, iPosition);
    } else if (const auto* pzNote = dynamic_cast<const KivMemoryBlockModelNote*>(&zBlock)) {
      Push(pzNote->m_iAssemblyKey, KivMemoryBlockAssemblyTree::kTag, iPosition, "m_iAssemblyKey");
      Push(pzNote->m_iSecondKey, kAnyTag, iPosition, "m_iSecondKey");
    } else if (const auto* pzTree = dynamic_cast<const KivMemoryBlockAssemblyTree*>(&zBlock)) {
      for (const KivAssemblyNode& z : pzTree->m_vzNode) {
        Push(z.m_iPMIKey, 7, iPosition, "m_iPMIKey");
        Push(z.m_iLayerFilterKey, 11, iPosition, "m_iLayerFilterKey");
        Push(z.m_iCameraKey, 12, iPosition, "m_iCameraKey");
      }
    }
  }

  void GatherInstance(const KivInstanceEntry& z, uint64_t iPosition) {
    for (const KivInstanceLevel& zLevel : z.m_vzLevel) {
      Push(zLevel.m_iFaceEdgeKey, 1, iPosition, "m_iFaceEdgeKey");
      Push(zLevel.m_iPolyElemKey, 8, iPosition, "m_iPolyElemKey");
      Push(zLevel.m_iCommonKey, 1, iPosition, "m_iCommonKey", false, 8);
    }
    Push(z.m_iBrepKey, 5, iPosition, "m_iBrepKey");
    Push(z.m_iVertexKey, 13, iPosition, "m_iVertexKey");
    Push(z.m_iVertexKey2, 13, iPosition, "m_iVertexKey2");
    Push(z.m_iExtraKey, kAnyTag, iPosition, "m_iExtraKey");
  }

  // Elements whose keys are their links.
  static bool HasLinksAlone(uint32_t iTag) { return iTag == 1 || iTag == 8 || iTag == 5 || iTag == 13 || iTag == 10; }

  void CheckKeyList(KivOutOfCoreTreeNode& zElement, uint32_t iTag, uint64_t iPosition, uint64_t iKey) {
    if (HasLinksAlone(iTag)) return;
    std::vector<uint64_t> viPosition;
    if (!zElement.GetAllPosition(viPosition)) {
      m_zSink.Add("keys-refused", iPosition, iKey,
                  "the element does not list its keys, since its links are not as they must be");
      return;
    }
    for (const uint64_t iListed : viPosition) {
      size_t iRecord = 0;
      if (iListed == 0 || FindRecord(m_zModel.Resolve(iListed), iRecord)) continue;
      m_siDangling.insert(iListed);
      m_zSink.Add("key-dangling", iPosition, iListed,
                  "a key of the element leads to no record in use (key " + KivHexText(iListed) + ")");
    }
  }

  // Records that no key leads to are elements all the same: each is loaded and checked, with its keys.
  void CheckUnreachable() {
    std::replace(m_vcSeen.begin(), m_vcSeen.end(), kUnseen, kNoKey);
    for (size_t i = 0; i < m_viUsed.size(); ++i) {
      if (m_vcSeen[i] != kNoKey && m_vcSeen[i] != kNoKeyButOne) continue;
      const uint64_t iPosition = m_viUsed[i];
      m_zProgress.Set(++m_nSeen);
      m_zSink.Add("element-unreachable", iPosition, 0, "no key leads from the model to this record");
      KivOutOfCoreTreeNode* pzElement = m_zModel.Load(iPosition);
      if (pzElement == nullptr) {
        ReportUnloadable({iPosition, kAnyTag, 0, 0, "the row of records", false}, iPosition, 0);
        continue;
      }
      ++m_zSink.m_zResult.m_nElements;
      const uint32_t iTag = pzElement->GetElementType() & 0xFFFF;
      const KivMemoryBlock& zBlock = *pzElement->GetMemoryBlock();
      KivCheckBlock(zBlock, iPosition, 0, m_zSink);
      GatherKeys(zBlock, iPosition, iTag);
      CheckParentKey(zBlock, iPosition, iTag);
      CheckKeyList(*pzElement, iTag, iPosition, 0);  // last: bulky elements would be loaded anew
      for (const Reference& z : m_vzToVisit) CheckReference(z);
      m_vzToVisit.clear();
    }
  }

  // Where no key leads nobody knows the parent, but it must be there; CheckKeyList looks at the other elements'.
  void CheckParentKey(const KivMemoryBlock& zBlock, uint64_t iPosition, uint32_t iTag) {
    const uint64_t iKey = zBlock.GetHeader().m_aiLink[0];
    size_t iRecord = 0;
    if (iKey != 0 && HasLinksAlone(iTag) && !FindRecord(m_zModel.Resolve(iKey), iRecord))
      ReportDangling({iKey, kAnyTag, 0, iPosition, "link 0", false});
  }

  // What Follow asks of a key, without going there: the row of records comes to all of them.
  void CheckReference(const Reference& z) {
    const uint64_t iPosition = m_zModel.Resolve(z.m_iKey);
    size_t iRecord = 0;
    if (!FindRecord(iPosition, iRecord)) return ReportDangling(z);
    uint8_t& cSeen = m_vcSeen[iRecord];
    if (cSeen != kNoKey && cSeen != kNoKeyButOne) return FollowAgain(z, iPosition, cSeen);
    KivOutOfCoreTreeNode* const pzElement = m_zModel.Load(iPosition);  // as its own turn does
    if (pzElement == nullptr || !CheckType(z, pzElement->GetElementType() & 0xFFFF, iPosition)) return;
    if (std::exchange(cSeen, kNoKeyButOne) == kNoKeyButOne) return FollowAgain(z, iPosition, kOtherTag);
    CheckParent(z, *pzElement->GetMemoryBlock(), iPosition);
  }

  KivToolModel& m_zModel;
  KivCheckSink& m_zSink;
  KivProgress m_zProgress;
  std::vector<uint64_t> m_viUsed;  // positions, ascending
  std::vector<uint8_t> m_vcSeen;   // the tag of the element that was found there, or one of the values above
  uint64_t m_nSeen = 0;            // records that were come to
  std::vector<Reference> m_vzToVisit;
  std::vector<Position> m_viTable;
  std::set<uint64_t> m_siDangling;  // keys that were found to lead nowhere
};

}  // namespace

void KivCheckElements(KivToolModel& zModel, KivCheckSink& zSink) {
  ElementWalk(zModel, zSink).Run();
}

}  // namespace kiv
