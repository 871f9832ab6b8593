// Keeps a few records in a .kiv file, frees one, opens the file again and lists what is in it.
//
//   usage: records FILE
#include <cstdio>
#include <exception>
#include <string>

#include "KivContainerHeader.h"
#include "KivFastFileContainer.h"
#include "KivFileFactory.h"
#include "KivSysFile.h"

namespace {

kiv::KivSharedPtr<kiv::ISnapShotFile> OpenMapped(const kiv::KivWString& csPath, kiv::KivSysDisposition iDisposition,
                                                 kiv::KivSysFileFlags iFlags) {
  kiv::KivSysOpenMode zMode;
  zMode.m_iAccess = kiv::KivSysAccess::ReadWrite;
  zMode.m_iShare = kiv::KivSysShare::None;
  zMode.m_iDisposition = iDisposition;
  zMode.m_iFlags = kiv::KivSysFileFlags::RandomAccess | iFlags;
  kiv::KivSysFile zFile = kiv::KivSysFile::Open(csPath, zMode);
  return zFile.IsOpen() ? kiv::KivCreateMappedFile(std::move(zFile)) : kiv::KivSharedPtr<kiv::ISnapShotFile>();
}

int Run(const kiv::KivWString& csPath) {
  using kiv::KivSysDisposition;
  using kiv::KivSysFileFlags;
  kiv::KivRegisterOwnFormat();  // once in a process, before the first container

  kiv::Position iHello = 0;
  {
    // While it is open, a container keeps its free space in a second file, which goes with it.
    const auto pzMain = OpenMapped(csPath, KivSysDisposition::CreateAlways, KivSysFileFlags::None);
    const auto pzUnused = OpenMapped(csPath + u".urf", KivSysDisposition::CreateAlways,
                                     KivSysFileFlags::DeleteOnClose | KivSysFileFlags::Temporary);
    if (!pzMain || !pzUnused) return 1;
    kiv::KivFastFileContainer zContainer(pzMain, pzUnused, nullptr);
    const std::string strFirst = "the first record";
    const std::string strHello = "hello";
    const kiv::Position iFirst =
        zContainer.AddRecord(kiv::KivContainerData(strFirst.data(), static_cast<uint32_t>(strFirst.size())));
    iHello = zContainer.AddRecord(kiv::KivContainerData(strHello.data(), static_cast<uint32_t>(strHello.size())));
    zContainer.DeleteRecord(iFirst);
  }  // flushes: the file is complete now

  kiv::KivFastFileContainer zContainer(OpenMapped(csPath, KivSysDisposition::OpenExisting, KivSysFileFlags::None),
                                       nullptr);
  if (zContainer.GetStatus() != kiv::KivContainerStatus::Usable) return 2;
  const kiv::KivContainerRecord zRecord = zContainer.GetRecord(iHello);
  std::string strText(zRecord.m_iFileSize, '\0');
  zRecord.m_pzFile->Read(zRecord.m_iOffset, strText.data(), strText.size());
  const kiv::KivContainerCheck zCheck = zContainer.FullCheck();
  std::printf("%s at %s; %s used, %s free, %s\n", strText.c_str(), std::to_string(iHello).c_str(),
              std::to_string(zCheck.m_iUsedRecordNum).c_str(), std::to_string(zCheck.m_iFreeRecordNum).c_str(),
              zCheck.IsSound() ? "sound" : "damaged");
  return zCheck.IsSound() ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: records FILE\n");
    return 64;
  }
  try {
    return Run(kiv::sys::Utf8ToWide(argv[1]));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "records: %s: %s\n", argv[1], e.what());
    return 70;
  }
}
