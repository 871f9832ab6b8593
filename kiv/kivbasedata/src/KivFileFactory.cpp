#include "KivFileFactory.h"

#include <new>
#include <utility>

#include "KivVirtualNetworkFile.h"
#include "KivWinFile.h"
#include "KivWinMappedFile.h"

namespace kiv {
namespace {

template <typename File, typename... Arguments>
KivSharedPtr<ISnapShotFile> Make(Arguments&&... arguments) {
  try {
    return KivSharedPtr<ISnapShotFile>(new File(std::forward<Arguments>(arguments)...));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

KivSharedPtr<ISnapShotFile> KivCreateFile(KivSysFile hFile) {
  return Make<KivWinFile>(std::move(hFile), false, false, KivSysFile());
}

KivSharedPtr<ISnapShotFile> KivCreateReadOnlyFile(KivSysFile hFile, bool bEnableCache) {
  return Make<KivWinFile>(std::move(hFile), true, bEnableCache, KivSysFile());
}

KivSharedPtr<ISnapShotFile> KivCreateMappedFile(KivSysFile hFile) {
  return Make<KivWinMappedFile>(std::move(hFile), false, false, KivSysFile());
}

KivSharedPtr<ISnapShotFile> KivCreateReadOnlyMappedFile(KivSysFile hFile, KivSysFile hFileForBackGroundRead) {
  return Make<KivWinMappedFile>(std::move(hFile), true, true, std::move(hFileForBackGroundRead));
}

KivSharedPtr<ISnapShotFile> KivCreateVirtualNetworkFile(KivSysFile hFile, uint32_t iDelay, bool bEnableCache,
                                                        KivSysFile hFileForBackGroundRead) {
  return Make<KivVirtualNetworkFile>(std::move(hFile), iDelay, bEnableCache, std::move(hFileForBackGroundRead));
}

}  // namespace kiv
