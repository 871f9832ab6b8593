// How upper layers make files on handles. The handle is taken over; a background handle that is not open stands for
// none. An empty pointer means that there was no memory; a handle that is not open is reported.
#pragma once

#include <cstdint>

#include "ISnapShotFile.h"
#include "KivSysFile.h"

namespace kiv {

// KivWinFile, writable, cache off.
KivSharedPtr<ISnapShotFile> KivCreateFile(KivSysFile hFile);
// KivWinFile, read-only.
KivSharedPtr<ISnapShotFile> KivCreateReadOnlyFile(KivSysFile hFile, bool bEnableCache);
// KivWinMappedFile, writable, cache off. An empty file grows to 1 byte.
KivSharedPtr<ISnapShotFile> KivCreateMappedFile(KivSysFile hFile);
// KivWinMappedFile, read-only, cache on.
KivSharedPtr<ISnapShotFile> KivCreateReadOnlyMappedFile(KivSysFile hFile, KivSysFile hFileForBackGroundRead);
// KivVirtualNetworkFile: waits iDelay milliseconds before each operation.
KivSharedPtr<ISnapShotFile> KivCreateVirtualNetworkFile(KivSysFile hFile, uint32_t iDelay, bool bEnableCache,
                                                        KivSysFile hFileForBackGroundRead);

}  // namespace kiv
