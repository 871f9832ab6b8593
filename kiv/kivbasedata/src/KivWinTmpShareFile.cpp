#include "KivWinTmpShareFile.h"

#include <algorithm>
#include <utility>

#include "KivSysFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivWinTmpShareFile";
constexpr uint64_t kFirstCapacity = 0x10000;
constexpr uint64_t kMostOfOneView = 0x10000000;

constexpr KivSysOpenMode kWriterMode{
    KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways,
    KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose};
constexpr KivSysOpenMode kReaderMode{KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting,
                                     KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess};

}  // namespace

bool KivWinTmpShareFileOwner::Create(const KivWString& csPath) {
  if (csPath.empty()) return false;
  KivSysFile zFile = KivSysFile::Open(csPath, kWriterMode);
  if (!zFile.IsOpen()) return false;
  m_pzFile = KivSharedPtr<KivWinMappedFile>(new KivWinMappedFile(std::move(zFile), false, false, KivSysFile()));
  if (m_pzFile->CanUseDirectBuffer()) m_pzFile->PrepareDirectBuffer(kFirstCapacity);
  m_iCapacity = m_pzFile->GetLength();
  return true;
}

bool KivWinTmpShareFileOwner::Write(uint64_t iOffset, const void* pSource, uint64_t nSize) {
  if (!m_pzFile) return true;
  if (m_pzFile->CanUseDirectBuffer() && (iOffset > m_iCapacity || nSize > m_iCapacity - iOffset)) {
    uint64_t iCapacity = std::max(m_iCapacity, kFirstCapacity);
    while (iOffset > iCapacity || nSize > iCapacity - iOffset) {
      if (iCapacity > UINT64_MAX / 2) {
        KIV_FAIL();
        return false;
      }
      iCapacity *= 2;
    }
    // The capacity counts as reached in any case: without a mapping the bytes go through the handle.
    m_pzFile->PrepareDirectBuffer(iCapacity);
    m_iCapacity = iCapacity;
  }
  m_pzFile->TakeWriteFailure();  // of a write that left by an exception
  m_pzFile->Write(iOffset, pSource, nSize);
  return !m_pzFile->TakeWriteFailure();
}

void KivWinTmpShareFileOwner::Release() {
  m_pzFile = KivSharedPtr<KivWinMappedFile>();
  m_iCapacity = 0;
}

KivWinTmpShareFileCopiable::KivWinTmpShareFileCopiable() : m_pzImpl(new KivWinTmpShareFileWithCount) {}

KivWinTmpShareFileCopiable::KivWinTmpShareFileCopiable(const KivWinTmpShareFileCopiable& zOther)
    : m_pzImpl(zOther.m_pzImpl) {
  ++m_pzImpl->m_iCount;
}

KivWinTmpShareFileCopiable& KivWinTmpShareFileCopiable::operator=(const KivWinTmpShareFileCopiable& zOther) {
  if (this == &zOther) return *this;
  KivWinTmpShareFileWithCount* pzImpl = zOther.m_pzImpl;
  ++pzImpl->m_iCount;  // first, since both may share one owner
  DropImpl();
  m_pzImpl = pzImpl;
  return *this;
}

KivWinTmpShareFileCopiable::~KivWinTmpShareFileCopiable() {
  try {
    DropImpl();
  } catch (...) {
    // A destructor lets no exception out; the report has been made.
  }
}

void KivWinTmpShareFileCopiable::DropImpl() {
  --m_pzImpl->m_iCount;
  if (!KIV_CHECK(m_pzImpl->m_iCount >= 0)) return;
  if (m_pzImpl->m_iCount == 0) delete m_pzImpl;
}

bool KivWinTmpShareFileReader::Open(const KivWString& csPath) {
  if (csPath.empty()) return false;
  uint64_t iLength = 0;
  if (m_pzFile && (csPath != m_csPath || !m_pzFile->IsStillThere(iLength))) m_pzFile = KivSharedPtr<KivWinMappedFile>();
  if (!m_pzFile) {
    KivSysFile zFile = KivSysFile::Open(csPath, kReaderMode);
    if (!zFile.IsOpen()) return false;
    m_pzFile = KivSharedPtr<KivWinMappedFile>(new KivWinMappedFile(std::move(zFile), true, false, KivSysFile()));
    m_csPath = csPath;
    iLength = m_pzFile->GetLength();
  }
  m_iLength = iLength;
  // A mapping that stays is made anew when the slot has grown.
  if (iLength != 0 && m_pzFile->CanUseDirectBuffer() && m_pzFile->GetDirectBufferSize() != iLength)
    m_pzFile->PrepareDirectBuffer(iLength);
  return true;
}

uint64_t KivWinTmpShareFileReader::Read(uint64_t iOffset, void* pDestination, uint64_t nSize) {
  return m_pzFile ? m_pzFile->Read(iOffset, pDestination, nSize) : 0;
}

bool KivWinTmpShareFileReader::ReadAll(uint64_t iOffset, uint64_t nSize, KivByteBuffer& vcBytes) {
  if (!m_pzFile) return false;
  if (nSize == 0 || nSize > kMostOfOneView || iOffset > m_pzFile->GetDirectBufferSize() ||
      nSize > m_pzFile->GetDirectBufferSize() - iOffset) {
    vcBytes.resize(nSize);
    return nSize == 0 || m_pzFile->Read(iOffset, vcBytes.data(), nSize) == nSize;
  }
  // Straight from the view: the bytes are not filled with zeros first. Nothing throws while the direct buffer is out.
  if (vcBytes.capacity() < nSize) {
    KivByteBuffer().swap(vcBytes);
    vcBytes.reserve(nSize);
  }
  const uint8_t* pBytes = m_pzFile->GetDirectBuffer(true, iOffset, nSize);
  if (pBytes == nullptr) return false;
  vcBytes.assign(pBytes, pBytes + nSize);
  m_pzFile->ReleaseDirectBuffer();
  return !m_pzFile->HasLostPages();
}

void KivWinTmpShareFileReader::Release() {
  if (!KivSysFile::ReadersMayStay()) m_pzFile = KivSharedPtr<KivWinMappedFile>();
}

}  // namespace kiv
