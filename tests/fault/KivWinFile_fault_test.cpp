// The background reader where memory is short.
#include "KivFileFactory.h"
#include "KivSysClock.h"
#include "KivTestFile.h"
#include "KivTestHeap.h"

namespace {

using namespace kiv;
using namespace kivtest;

class ReaderFault : public FileTest {};

}  // namespace

TEST_F(ReaderFault, ARequestWithoutMemoryHoldsUpNobodyAndCanBeMadeAgain) {
  const Bytes vcBase = Pattern(3 * kBlock);
  const KivWString csBase = MakeFile(u"base", vcBase);
  for (const bool bFromThenOn : {false, true})
    for (uint64_t iNth = 1;; ++iNth) {
      SCOPED_TRACE(iNth);
      auto pzFile = KivCreateReadOnlyMappedFile(OpenToRead(csBase), OpenToRead(csBase));
      bool bFired = false;
      {
        const NoMemory zNone(iNth, bFromThenOn);
        try {
          pzFile->RequestBackGroundRead(0, 3);
        } catch (const std::exception&) {
          // A report of the reader that does not start, or the want of memory itself.
        }
        bFired = zNone.HasFired();
      }
      pzFile->RequestBackGroundRead(0, 3);
      while (!pzFile->IsBackGroundReadDone(0)) sys::SleepMs(1);  // a request that is lost never ends this
      Bytes vcRead(vcBase.size());
      EXPECT_EQ(pzFile->Read(0, vcRead.data(), vcRead.size()), vcRead.size());
      EXPECT_EQ(vcRead, vcBase);
      pzFile.Release();  // waits for a reader that runs, and for no other
      EXPECT_TRUE(KivSysFile::Open(csBase, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting,
                                            KivSysFileFlags::None})
                      .IsOpen());
      if (!bFired) break;
    }
}
