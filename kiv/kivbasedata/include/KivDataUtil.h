// Work folders, temporary names, logs and small answers about the system. Process-wide; first calls come from the main
// thread and nothing here has a lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "KivByteBuffer.h"
#include "KivSysText.h"

namespace kiv {

// --- Text -----------------------------------------------------------------------------------------------------------

// The results hold the closing 0. An empty measure or another length than the measured one is reported.
void KivToAnsi(const KivWString& csText, std::vector<char>& vcText);
void KivToUtf8(const KivWString& csText, std::vector<char>& vcText);
// Up to the first 0. Null and an empty array are reported and give an empty text.
void KivFromUtf8(const char* szText, KivWString& csText);
void KivFromUtf8(const std::vector<char>& vcText, KivWString& csText);

// One scratch array for large temporary blocks; grows, and lives as long as the process. No lock.
std::vector<uint8_t>& KivGetScratchBytes();

// --- Work folder ----------------------------------------------------------------------------------------------------

// Settles the work folder, once: a relative name goes under the program's folder, an empty one is generated. Asked
// again it changes nothing and gives true for an empty text only.
bool KivSetWorkFolder(const KivWString& csFolder);
bool KivIsWorkFolderSettled();             // makes nothing
const KivWString& KivGetWorkFolder();      // makes the folder if needed
const KivWString& KivGetWorkFolderName();  // its last part, or the text given
KivWString KivMakeTempFolderName();        // ZUR_TMP_FOLDER-<date>-<time>-<pid>; nothing is made
KivWString KivGetWorkFileName();           // work<pid>.kiv in the work folder
KivWString KivGetWorkCacheName();          // work<pid>-<n>.cache; n rises with each call
KivWString KivGetShaderFolder();

bool KivSetLogFolder(const KivWString& csFolder);
const KivWString& KivGetLogFolder();
KivWString KivGetErrorLogPath();  // Error.log in the log folder
const KivWString& KivGetModuleFolder();
// Path of a program of the family, cached for the life of the process; the running executable for an empty name.
const KivWString& KivFindModule(const KivWString& csName);

// --- Timing log -----------------------------------------------------------------------------------------------------

// KivLog<pid>.txt in the work folder: seconds since the first line, four memory counters, the message. A line that
// cannot be written is dropped, and the next one tries again.
void KivWriteLog(const KivWString& csMessage);
void KivLogNumber(int32_t iNumber, const KivWString& csMessage);
void KivLogDouble(double dNumber, const KivWString& csMessage);

enum class KivCopyLogResult : uint32_t { Done = 0, NoLogOpen = 10, TargetExists = 20, NotCopied = 30 };
// With a code above NoLogOpen the log stays closed.
KivCopyLogResult KivCopyLog(const KivWString& csTarget);
void KivCloseLog();  // closes the log and deletes its file
KivWString KivGetMemoryText();

// --- Clock, system --------------------------------------------------------------------------------------------------

uint32_t KivGetTimeMs();
bool KivIsTimeOver(uint32_t iDeadline);  // never for a deadline of 0
void KivGetWindowsVersion(uint32_t& iMajor, uint32_t& iMinor);
uint32_t KivGetAllocationGranularity();
bool KivHasDataResource();
bool KivIsDeveloperMode();
void KivCheckHeaps(bool bOn);  // once on it stays on
// How many blocks the background reader had to read at its last pass: asked for at once, and when idle. Any thread.
void KivSetReadQueueSizes(uint32_t nUrgent, uint32_t nIdle);
void KivGetReadQueueSizes(uint32_t& nUrgent, uint32_t& nIdle);

// --- Files ----------------------------------------------------------------------------------------------------------

enum class KivRemoveTreeResult : uint32_t { Done = 0, NoFolder = 10, NotListed = 20, NotRemoved = 30 };
// Links in the tree, and a link in its place, are removed and never followed.
KivRemoveTreeResult KivRemoveTree(const KivWString& csFolder);
// Removes the generated work folders of ended processes below a folder, and the folder itself if it is then empty.
bool KivRemoveOrphanFolders(const KivWString& csFolder, bool bLeaveOutThisProcess);
int32_t KivMoveFile(const KivWString& csSource, const KivWString& csTarget, bool bCopy);
// At the last '\' or '/'; the separator goes to neither output.
void KivSplitPath(const KivWString& csPath, KivWString& csFolder, KivWString& csName);
bool KivFileExists(const KivWString& csPath);

}  // namespace kiv
