// The present state as a file of its own.
#include "DorRequest.h"
#include "DorSession.h"
#include "KivDataSpaceBase.h"
#include "KivElementWalk.h"
#include "KivOutOfCoreManager.h"
#include "KivSysFile.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr uint64_t kLeastModel = 264;

void RequireFlag(const DorRequestFields& zFields, std::string_view strName) {
  const int64_t i = zFields.Integer(strName);
  if (i != 0 && i != 1) throw DorRefusal(DorAnswerCode::BadArgument, std::string(strName) + " is 0 or 1");
}

KivSysFile OpenForLooking(const KivWString& csPath) {
  return KivSysFile::Open(
      csPath, {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
}

// With the separator behind it. A backslash is one on Windows alone.
KivWString FolderOf(const KivWString& csPath) {
  return csPath.substr(0, csPath.find_last_of(sys::kSeparator == u'/' ? u"/" : u"\\/") + 1);
}

// An empty file under a name that was free, in the target's folder. A short name: there is room for it wherever there
// is for the target's. The store writes over an empty file, and over no other.
KivWString MakeEmptyFileBeside(const KivWString& csTarget) {
  constexpr int kMostNames = 1000;
  const KivWString csStem = FolderOf(csTarget) + u".dor" + sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber()));
  for (int i = 0; i < kMostNames; ++i) {
    const KivWString csPath = csStem + u"-" + sys::Utf8ToWide(std::to_string(i)) + u".tmp";
    if (KivSysFile::Open(
            csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew, KivSysFileFlags::None})
            .IsOpen())
      return csPath;
    if (!sys::PathExists(csPath) && !sys::IsLink(csPath)) break;
  }
  throw DorRefusal(DorAnswerCode::CannotWrite, "no file can be made in the folder");
}

// The new file under a name of its own beside the target, removed unless it has taken the target's place.
class NewFile {
 public:
  explicit NewFile(const KivWString& csTarget) : m_csTarget(csTarget), m_csPath(MakeEmptyFileBeside(csTarget)) {}
  ~NewFile() {
    if (!m_bMoved) sys::RemoveFileAt(m_csPath);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const KivWString& Path() const { return m_csPath; }
  // Brings the bytes to the disk: a power cut behind TakePlace must not leave the name without them.
  bool Flush() const {
    KivSysFile hFile = KivSysFile::Open(
        m_csPath, {KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
    return hFile.IsOpen() && hFile.Flush();
  }
  void TakePlace(bool bOverwrite) {
    sys::TakePermissionsFor(m_csPath, m_csTarget);  // else it stays the user's own
    m_bMoved = (bOverwrite ? sys::ReplacePath(m_csPath, m_csTarget) : sys::RenamePath(m_csPath, m_csTarget)) == 0;
    if (m_bMoved) return;
    if (!bOverwrite && sys::PathExists(m_csTarget))
      throw DorRefusal(DorAnswerCode::WouldOverwrite, "the file is there already");
    throw DorRefusal(DorAnswerCode::CannotWrite, "the new file could not be moved to its place");
  }

 private:
  KivWString m_csTarget, m_csPath;
  bool m_bMoved = false;
};

uint64_t WrittenBytes(const KivWString& csPath) {
  const KivSysFile hFile = OpenForLooking(csPath);
  uint64_t nBytes = 0;
  return hFile.IsOpen() && hFile.GetLength(nBytes) ? nBytes : 0;
}

void RequireFolder(const KivWString& csPath) {
  const KivWString csFolder = FolderOf(csPath);
  if (!sys::FolderExists(csFolder)) throw DorRefusal(DorAnswerCode::CannotWrite, "the folder is not there");
  if (!sys::CanWriteFolder(csFolder)) throw DorRefusal(DorAnswerCode::CannotWrite, "the folder cannot be written to");
}

// What is left of the file still takes its room.
const char* WhyNotWritten(const DorSession& zSession, const KivWString& csPath) {
  constexpr uint64_t kSpare = 1 << 20;
  uint64_t nFree = 0;
  const KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenAlways, KivSysFileFlags::None});
  const bool bNoRoom = hFile.IsOpen() && hFile.GetDiskRoom(nFree) && nFree < WrittenBytes(zSession.Path()) + kSpare;
  return bNoRoom ? "the disk has no room for the file" : "the file could not be written";
}

bool Save(DorSession& zSession, const KivWString& csPath) {
  KivDataSpaceBase* const pzSpace = KivDataSpaceBase::GetInstance();
  bool bSaved = false;
  try {
    bSaved = pzSpace->SaveSnapShot(&zSession.Model(), csPath, 0) == KivSaveSnapShotResult::Done &&
             pzSpace->SaveSnapShotComplete(&zSession.Model(), csPath);
  } catch (...) {
    pzSpace->CancelSaveSnapShot(&zSession.Model(), csPath);
    throw;
  }
  pzSpace->CancelSaveSnapShot(&zSession.Model(), csPath);  // forgets the path
  return bSaved;
}

void ServeWriteDor(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const KivWString& csPath = zFields.Text("path");
  RequireFlag(zFields, "overwrite");
  RequireFlag(zFields, "verify");
  if (zFields.Integer("reserved", 0) != 0 || zFields.Integer("reserved", 1) != 0)
    throw DorRefusal(DorAnswerCode::BadArgument, "the last two integers are 0");
  const bool bOverwrite = zFields.Integer("overwrite") == 1;
  if (csPath.empty() || sys::IsRelativePath(csPath) || sys::FolderExists(csPath))
    throw DorRefusal(DorAnswerCode::BadPath, "the path is no absolute path of a file");
  if (sys::IsNoRegularFile(csPath))
    throw DorRefusal(DorAnswerCode::BadPath, "what the path leads to is no regular file");
  if (zSession.IsOwnFile(csPath)) throw DorRefusal(DorAnswerCode::OwnFile, "the path leads to the model's own file");
  if (!bOverwrite && sys::PathExists(csPath))
    throw DorRefusal(DorAnswerCode::WouldOverwrite, "the file is there already");

  zSession.RequireEditable();  // the store writes its own generation only
  RequireFolder(csPath);
  NewFile zNew(csPath);
  bool bSaved = false;
  try {
    bSaved = Save(zSession, zNew.Path());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    // The report stands in the log; whoever asked is told what it means.
  }
  const uint64_t nBytes = bSaved ? WrittenBytes(zNew.Path()) : 0;
  if (nBytes < kLeastModel || !zNew.Flush())
    throw DorRefusal(DorAnswerCode::CannotWrite, WhyNotWritten(zSession, zNew.Path()));
  if (zFields.Integer("verify") == 1 && !KivReadWholeModel(zNew.Path(), [](KivOutOfCoreTreeNode&) {}))
    throw DorRefusal(DorAnswerCode::CannotWrite, "the file that was written could not be read back");
  zAnswer.Integer("bytes", static_cast<int64_t>(nBytes));
  zAnswer.Finish();
  zNew.TakePlace(bOverwrite);
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfWrite() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_WriteDor", ServeWriteDor, false},
  };
  return kRows;
}

}  // namespace kiv
