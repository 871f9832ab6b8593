// Any bytes as a model: in memory, where it is opened, walked by position, by key and from its root, its tables walked,
// snapshotted, changed, taken back, saved and closed; or in a file that is changed in place, closed and read once more.
// What may come is a report; what is made stays within a bound that the input sets.
//
// Input: the first byte picks whether the header is repaired (1), the report mode (2), a limit of active elements (4;
// the upper four bits say which) and whether there are position tables (8). Without a limit of its own, 16 changes a
// file in place, under a limit of 3 with 32. The rest is the file.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "KivContainerHeader.h"
#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivMeshTree.h"
#include "KivOutOfCoreBlock.h"
#include "KivOutOfCoreHandle.h"
#include "KivPositionTable.h"
#include "KivPositionTableManager.h"
#include "KivSysProcess.h"

namespace {

constexpr uint32_t kNoteIndex = 1;
constexpr uint32_t kFrameSize = 68;

template <typename Body>
void Try(const Body& body) {
  try {
    body();
  } catch (const kiv::KivException&) {
  }
}

struct NoteBlock : kiv::KivMemoryBlock {
  kiv::KivMemoryBlockHeader GetHeader() const override { return m_zHeader; }
  kiv::KivMemoryBlockLinks GetLinks() override {
    return {&m_zHeader.m_aiLink[0], &m_zHeader.m_aiLink[1], &m_zHeader.m_aiLink[2]};
  }
  kiv::KivMemoryBlockHeader m_zHeader;
  std::vector<uint8_t> m_vcBytes;
};

// A record is its frame and any bytes; the links stand at 16.
class Note : public kiv::KivOutOfCoreBlockNode<NoteBlock> {
 public:
  using KivOutOfCoreBlockNode::KivOutOfCoreBlockNode;
  bool Load(bool) override {
    return WithoutThrow([this] {
      NoteBlock* pzBlock = TakeBlock();
      if (pzBlock == nullptr) return false;
      *pzBlock = NoteBlock();
      pzBlock->m_vcBytes.resize(kFrameSize);
      if (m_iDataSize == 0) return true;
      if (m_iDataSize < kFrameSize) return false;
      // The record lies in the file, so that no more is asked for than there is.
      pzBlock->m_vcBytes.resize(static_cast<size_t>(m_iDataSize));
      if (!ReadData(pzBlock->m_vcBytes.data(), pzBlock->m_vcBytes.size())) return false;
      for (size_t i = 0; i < 3; ++i)
        pzBlock->m_zHeader.m_aiLink[i] = kiv::KivLoad<uint64_t>(pzBlock->m_vcBytes.data() + 16 + 8 * i);
      return true;
    });
  }
  bool Save(bool) override {
    return WithoutThrow([this] {
      if (m_pzMemoryBlock == nullptr) return false;
      std::vector<uint8_t>& vcBytes = m_pzMemoryBlock->m_vcBytes;
      kiv::KivStore<uint32_t>(vcBytes.data(), kNoteIndex << 16);
      for (size_t i = 0; i < 3; ++i)
        kiv::KivStore<uint64_t>(vcBytes.data() + 16 + 8 * i, m_pzMemoryBlock->m_zHeader.m_aiLink[i]);
      return WriteData(vcBytes.data(), vcBytes.size());
    });
  }
  uint32_t GetElementType() override { return kNoteIndex << 16; }
};

kiv::KivOutOfCoreData* MakeNote(uint32_t, uint32_t iManagerKey) {
  return new Note(iManagerKey);
}

void Prepare() {
  static bool bDone = false;
  if (bDone) return;
  bDone = true;
  kiv::KivRegisterOwnFormat();
  kiv::KivRegisterElementClasses();
  kiv::KivSetWorkFolder((std::filesystem::temp_directory_path() / "kivstorefuzz").u16string());
  kiv::KivDataSpaceBase& zSpace = *kiv::KivDataSpaceBase::GetInstance();
  zSpace.SetGetOutOfCoreData(kNoteIndex, MakeNote);
  for (uint32_t iRow = 0; iRow < kiv::kKivHandlerRowNum; ++iRow) {
    zSpace.SetGetAllPosition(iRow, kNoteIndex,
                             [](const std::vector<uint8_t>&, std::vector<uint64_t>&) { return true; });
    zSpace.SetReplaceAllPosition(iRow, kNoteIndex,
                                 [](std::vector<uint8_t>&, const std::map<uint64_t, uint64_t>&) { return true; });
  }
}

// Elements at the first places and keys, and along their links.
void Walk(uint32_t iKey, std::vector<uint64_t> viToDo) {
  for (size_t i = 0; i < viToDo.size() && i < 200; ++i)
    Try([&] {
      auto* pzNode = dynamic_cast<kiv::KivOutOfCoreTreeNode*>(kiv::KivOutOfCoreManager::GetElement(iKey, viToDo[i]));
      std::vector<uint64_t> viLink;
      if (pzNode == nullptr || !pzNode->GetAllPosition(viLink)) return;
      viToDo.insert(viToDo.end(), viLink.begin(), viLink.end());
    });
}

// The elements of a model as they hang together. The reports of a walk never leave it.
void WalkFromRoot(uint32_t iKey) {
  kiv::KivWalkElements(iKey, {0, 1, 2, 5, 7, 8, 11, 12, 13}, kiv::kAllLevels, [&](kiv::KivOutOfCoreTreeNode& zElement) {
    if (zElement.GetElementType() > 13) std::abort();
  });
  kiv::KivGetSecondElement(iKey);
  kiv::KivMeshStatistics zStatistics;
  kiv::KivAddModelMeshes(iKey, 0, zStatistics);
}

void Change(uint32_t iKey, const std::vector<uint64_t>& viPosition, uint8_t iFill, size_t nSize) {
  for (size_t i = 0; i < viPosition.size() && i < 20; ++i)
    Try([&] {
      kiv::KivOutOfCoreHandle zNote(iKey, viPosition[i]);
      auto* pzNote = zNote.Fetch<Note>();
      NoteBlock* pzBlock = pzNote != nullptr ? pzNote->GetMemoryBlockForWrite() : nullptr;
      if (pzBlock == nullptr) return;
      pzBlock->m_vcBytes.resize(kFrameSize + nSize * (i + 1), iFill);
      if (i % 4 == 3)
        zNote.Delete();
      else if (i % 4 != 2)
        zNote.Commit();
    });
  for (size_t i = 0; i < 5; ++i)
    Try([&] {
      auto pzNote = std::make_unique<Note>(iKey);
      NoteBlock* pzBlock = pzNote->GetMemoryBlockForWrite();
      if (pzBlock == nullptr) return;
      pzBlock->m_vcBytes.resize(kFrameSize + 10 * nSize, iFill);
      kiv::KivStoreNewElement(std::move(pzNote));
    });
}

std::filesystem::path FileName(const char* szKind) {
  return std::filesystem::path(kiv::KivGetWorkFolder()) / (szKind + std::to_string(kiv::sys::CurrentProcessNumber()));
}

// Of the length that a header claims for its free-space image the container believes up to 64 MiB.
void ExpectBounded(const std::filesystem::path& zFile, size_t nSize) {
  std::error_code zError;
  if (std::filesystem::exists(zFile, zError) && std::filesystem::file_size(zFile, zError) > 8 * nSize + (72 << 20))
    std::abort();
}

// A model always goes, and leaves nothing.
void Remove(kiv::KivModelStatusBase* pzModel) {
  kiv::KivSetReportNoThrow(true);
  if (kiv::KivDataSpaceBase::GetInstance()->RemoveModel(pzModel) != kiv::KivRemoveModelResult::Done) std::abort();
}

kiv::KivPositionTableManager& TablesOf(kiv::KivModelStatusBase* pzModel) {
  return *pzModel->GetManager()->GetPositionTableManager();
}

// Places of records, true and false ones, and keys.
std::vector<uint64_t> PlacesIn(kiv::KivModelStatusBase* pzModel, size_t nBytes) {
  Try([&] { TablesOf(pzModel).GetPositionNum(); });
  // Tables do not overlap, so that a file makes no more blocks than it has room for.
  const uint64_t nMost = nBytes / kiv::KivMemoryBlockPositionTable::kRecordSize19 + 1;
  if (TablesOf(pzModel).GetLoadedBlockNum() > nMost) std::abort();

  std::vector<uint64_t> viPosition = {264, nBytes, nBytes - 24, ~uint64_t{0}};
  for (uint64_t i = 0; i < 10; ++i) viPosition.push_back(kiv::KivPositionTableManager::kTableKey + i * 4099);
  uint64_t iFile = 264;
  for (int i = 0; i < 50; ++i) {
    kiv::KivContainerRecordWithSizes zRecord;
    Try([&] { zRecord = pzModel->GetManager()->GetContainer()->GetRecordWithSizes(iFile); });
    if (zRecord.m_iRecordSize < 24 || zRecord.m_iRecordSize > nBytes) break;
    viPosition.push_back(iFile);
    iFile += zRecord.m_iRecordSize;
  }
  return viPosition;
}

void ReadAndTakeBack(const std::vector<uint8_t>& vcFile, uint8_t iChoice) {
  kiv::KivDataSpaceBase& zSpace = *kiv::KivDataSpaceBase::GetInstance();
  kiv::KivModelOpenInfo zInfo;
  zInfo.m_pvData = vcFile.data();
  zInfo.m_iDataSize = vcFile.size();
  kiv::KivModelStatusBase* pzModel = nullptr;
  Try([&] { zSpace.AddModel(u"memory", zInfo, &pzModel); });
  if (pzModel == nullptr) return;
  const uint32_t iKey = pzModel->GetKey();
  if ((iChoice & 4) != 0) kiv::KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(iKey, 1 + (iChoice >> 4));
  const std::vector<uint64_t> viPosition = PlacesIn(pzModel, vcFile.size());
  Walk(iKey, viPosition);
  bool bSnapShot = false;
  Try([&] { bSnapShot = zSpace.CreateSnapShot() == kiv::KivCreateSnapShotResult::Done; });
  Change(iKey, viPosition, iChoice, 50);
  if (bSnapShot) {
    Try([&] { zSpace.CreateSnapShot(); });
    Change(iKey, viPosition, 1, 3);
    Try([&] { zSpace.UndoSnapShot(2); });
    Try([&] { zSpace.RedoSnapShot(1); });
    Walk(iKey, viPosition);
  }
  const std::filesystem::path zSaved = FileName("saved");
  std::error_code zError;
  std::filesystem::remove(zSaved, zError);
  Try([&] { zSpace.SaveSnapShot(pzModel, zSaved.u16string(), 0); });
  ExpectBounded(zSaved, vcFile.size());
  WalkFromRoot(iKey);
  Try([&] { kiv::KivOutOfCoreManager::DeactivateAll(iKey); });
  Remove(pzModel);
  std::filesystem::remove(zSaved, zError);
}

void ChangeInPlace(const std::vector<uint8_t>& vcFile, uint8_t iChoice) {
  kiv::KivDataSpaceBase& zSpace = *kiv::KivDataSpaceBase::GetInstance();
  const std::filesystem::path zFile = FileName("changed");
  std::filesystem::create_directories(zFile.parent_path());
  std::ofstream(zFile, std::ios::binary)
      .write(reinterpret_cast<const char*>(vcFile.data()), static_cast<std::streamsize>(vcFile.size()));
  kiv::KivModelOpenInfo zInfo;
  zInfo.m_bOpenForWrite = true;
  kiv::KivModelStatusBase* pzModel = nullptr;
  Try([&] { zSpace.AddModel(zFile.u16string(), zInfo, &pzModel); });
  if (pzModel != nullptr) {
    const uint32_t iKey = pzModel->GetKey();
    if ((iChoice & 32) != 0) kiv::KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(iKey, 3);
    const std::vector<uint64_t> viPosition = PlacesIn(pzModel, vcFile.size());
    Walk(iKey, viPosition);
    Change(iKey, viPosition, iChoice, 50);
    // A file that is changed in place does not go back: the snapshot says so, or the undo does.
    Try([&] {
      if (zSpace.CreateSnapShot() == kiv::KivCreateSnapShotResult::Done &&
          zSpace.UndoSnapShot(1) == kiv::KivUndoResult::Done)
        std::abort();
    });
    Try([&] { pzModel->GetManager()->SaveChanges(); });
    Change(iKey, viPosition, 1, 3);
    uint64_t iStart = 0;
    for (size_t i = viPosition.size(); i-- > 14;)
      Try([&] {
        kiv::KivOutOfCoreData* pzElement = kiv::KivOutOfCoreManager::GetElement(iKey, viPosition[i]);
        if (pzElement != nullptr) pzElement->MoveRecord(iStart);
      });
    Try([&] { TablesOf(pzModel).RewriteAllTables(); });
    Walk(iKey, viPosition);
    Try([&] { kiv::KivOutOfCoreManager::FlushMainFile(iKey); });
    Remove(pzModel);
    ExpectBounded(zFile, vcFile.size());
    // What was opened once stays a model.
    zInfo.m_bOpenForWrite = false;
    if (zSpace.AddModel(zFile.u16string(), zInfo, &pzModel) != kiv::KivAddModelResult::Done) std::abort();
    Walk(pzModel->GetKey(), PlacesIn(pzModel, static_cast<size_t>(std::filesystem::file_size(zFile))));
    WalkFromRoot(pzModel->GetKey());
    Remove(pzModel);
  }
  std::error_code zError;
  std::filesystem::remove(zFile, zError);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  if (nSize < 1 || nSize > 1 << 20) return 0;
  Prepare();
  kiv::KivSetReported(true);  // no log entries
  const uint8_t iChoice = pData[0];
  std::vector<uint8_t> vcFile(pData + 1, pData + nSize);
  if ((iChoice & 1) != 0 && vcFile.size() >= 264) {  // the fixed marks, so that most inputs come past the first test
    kiv::KivContainerHeader zHeader = kiv::KivContainerHeader::MakeDefault();
    std::memcpy(vcFile.data() + 8, zHeader.Data(), 72);
  }
  if ((iChoice & 8) != 0 && vcFile.size() >= 264)
    kiv::KivStore<uint32_t>(vcFile.data() + 8 + kiv::KivContainerHeader::FilePositionTableMode, 1);
  kiv::KivSetReportNoThrow((iChoice & 2) != 0);
  if ((iChoice & 4) == 0 && (iChoice & 16) != 0)
    ChangeInPlace(vcFile, iChoice);
  else
    ReadAndTakeBack(vcFile, iChoice);
  kiv::KivSetReportNoThrow(false);
  if (!kiv::KivDataSpaceBase::GetInstance()->GetModels().empty()) std::abort();
  return 0;
}
