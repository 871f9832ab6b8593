// kiv show FILE KEY: all fields of one element.
#include <algorithm>
#include <charconv>

#include "KivCommand.h"
#include "KivFieldPrinter.h"
#include "KivModelStructure.h"
#include "KivProgress.h"
#include "KivToolModel.h"

namespace kiv {
namespace {

// Decimal, or hexadecimal behind 0x.
bool ParseKey(std::string_view str, uint64_t& iKey) {
  const bool bHex = str.starts_with("0x") || str.starts_with("0X");
  if (bHex) str.remove_prefix(2);
  const char* pEnd = str.data() + str.size();
  const auto zResult = std::from_chars(str.data(), pEnd, iKey, bHex ? 16 : 10);
  return !str.empty() && zResult.ec == std::errc() && zResult.ptr == pEnd;
}

class ShowCommand : public KivCommand {
 public:
  const char* Name() const override { return "show"; }
  const char* Help() const override { return "all fields of one element"; }
  void Declare(KivOptions& zOptions) override {
    zOptions.Argument("FILE", m_csPath, "model");
    zOptions.Argument("KEY", m_csKey, "position or key, decimal or with 0x; or model, note, tree, instances, second");
    zOptions.Flag("--all", m_bAll, "show lists whole");
  }

  KivToolExit Run(KivToolOutput& zOutput) override {
    KivToolModel zModel(m_csPath);
    const uint64_t iKey = FindKey(zModel);
    const uint64_t iPosition = zModel.Resolve(iKey);
    if (iPosition == 0 && iKey != 0) throw KivToolError(Where() + ": the key is in no position table of the model");
    KivToolRecord zRecord;
    FindRecord(zModel, iPosition, zRecord);
    KivOutOfCoreTreeNode* pzElement = zModel.Load(iKey);
    if (pzElement == nullptr)
      throw KivToolError(Where() + ": the record at " + std::to_string(iPosition) + " cannot be loaded as a " +
                         KivElementName(zRecord.m_iTag, zRecord.m_iTypeIndex));
    const KivMemoryBlock& zBlock = *pzElement->GetMemoryBlock();
    if (zOutput.IsJson()) zOutput.Json().BeginObject();
    KivFieldPrinter zPrinter(zOutput, m_bAll);
    ShowHeader(zModel, zRecord, iKey, zBlock.GetHeader(), zPrinter);
    KivShowBlock(zBlock, zPrinter);
    if (zOutput.IsJson()) zOutput.Json().End();
    return KivToolExit::Good;
  }

 private:
  std::string Where() const { return KivShown(m_csPath) + " " + KivShown(m_csKey); }

  uint64_t FindKey(KivToolModel& zModel) const {
    uint64_t iKey = 0;
    const std::string strKey = sys::WideToUtf8(m_csKey);
    if (ParseKey(strKey, iKey)) return iKey;
    const KivToolStructure zStructure = KivLoadStructure(zModel);
    if (strKey == "model") return KivFastFileContainerBase::kFirstRecord;
    if (strKey == "note")
      iKey = zStructure.m_iNoteKey;
    else if (strKey == "tree")
      iKey = zStructure.m_iAssemblyKey;
    else if (strKey == "instances")
      iKey = zStructure.m_iInstanceRootKey;
    else if (strKey == "second")
      iKey = zStructure.m_iSecondKey;
    else
      throw KivToolError("'" + KivShown(m_csKey) + "' is no key (a number, model, note, tree, instances or second)");
    if (iKey == 0) throw KivToolError(Where() + ": the model has none");
    return iKey;
  }

  // What stands between records must not be taken for one.
  void FindRecord(KivToolModel& zModel, uint64_t iPosition, KivToolRecord& zRecord) const {
    KivRecordWalk zWalk(zModel);
    KivProgress zProgress("looking for the record", std::min(iPosition, zWalk.GetEnd()));
    for (uint32_t i = 0; zWalk.Next(zRecord) && zRecord.m_iPosition < iPosition; ++i)
      if (i % 256 == 0) zProgress.Set(zRecord.m_iPosition);
    if (zRecord.m_iPosition != iPosition || zRecord.m_iRecordSize == 0)
      throw KivToolError(Where() + ": no record begins at position " + std::to_string(iPosition));
    if (zRecord.m_bFree) throw KivToolError(Where() + ": the record at " + std::to_string(iPosition) + " is free");
  }

  static void ShowHeader(KivToolModel& zModel, const KivToolRecord& zRecord, uint64_t iKey,
                         const KivMemoryBlockHeader& z, KivFieldPrinter& zPrinter) {
    zPrinter.Field("type", KivElementName(zRecord.m_iTag, zRecord.m_iTypeIndex));
    zPrinter.Field("position", zRecord.m_iPosition);
    zPrinter.Field("key", iKey);
    zPrinter.Field("record_size", zRecord.m_iRecordSize);
    zPrinter.Field("payload_size", zRecord.m_iPayloadSize);
    zPrinter.Field("m_iTag", z.m_iTag);
    zPrinter.Field("m_iEntryCount", z.m_iEntryCount);
    zPrinter.Field("m_iFormat", z.m_iFormat);
    zPrinter.Field("m_iDataOffset", z.m_iDataOffset);
    zPrinter.Field("m_iLink", z.m_aiLink);
    zPrinter.Field("link_positions",
                   std::array<uint64_t, 3>{zModel.Resolve(z.m_aiLink[0]), zModel.Resolve(z.m_aiLink[1]),
                                           zModel.Resolve(z.m_aiLink[2])});
    zPrinter.Field("m_fBoxMin", z.m_afBoxMin);
    zPrinter.Field("m_fBoxMax", z.m_afBoxMax);
    zPrinter.Field("m_iNodeState", z.m_iNodeState);
  }

  KivWString m_csPath;
  KivWString m_csKey;
  bool m_bAll = false;
};

}  // namespace

std::unique_ptr<KivCommand> KivMakeShowCommand() {
  return std::make_unique<ShowCommand>();
}

}  // namespace kiv
