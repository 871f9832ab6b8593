// Paths and folders.
#pragma once

#include <cstdint>
#include <vector>

#include "KivSysText.h"

namespace kiv {

struct KivSysFolderEntry {
  KivWString m_csName;
  bool m_bFolder = false;  // a folder itself; a link to one is none
  bool m_bLink = false;    // leads elsewhere: a symbolic link, a junction
};

namespace sys {

// The separator that this platform's paths are built with. Both '/' and '\' separate on Windows, '/' alone on Linux.
extern const char16_t kSeparator;
// What an executable's name ends with: ".exe", or nothing.
extern const KivWStringView kExecutableSuffix;

// True for a file or a folder. A delete-on-close file whose owner was killed does not exist (and is removed).
bool PathExists(const KivWString& csPath);
bool FolderExists(const KivWString& csPath);

// True if the path itself is a link, whatever it leads to. Separators at its end do not count.
bool IsLink(const KivWString& csPath);

// All entries but "." and "..", in no order, by the same rule of existence (links are always listed); false if the
// listing cannot start.
bool ListFolder(const KivWString& csFolder, std::vector<KivSysFolderEntry>& vzEntries);

bool MakeFolder(const KivWString& csFolder);    // one level, private to the user
bool RemoveFolder(const KivWString& csFolder);  // an empty one
bool RemoveFileAt(const KivWString& csPath);    // of a link itself, never its target
// Lets the file be written and removed, and the entries of the folder be removed. A link's target is never touched.
bool ClearReadOnly(const KivWString& csPath);
// Fails if the target exists. 0, or the C library's non-zero result. A file goes to another volume by a copy, whose
// source may stay if it cannot be removed; a folder does not go there.
int32_t RenamePath(const KivWString& csFrom, const KivWString& csTo);
// Moves a file to a name in the same folder; a file that has the name is replaced, so that there is always one of the
// two. A folder or a file in use elsewhere without sharing is not replaced. 0, or -1 on failure.
int32_t ReplacePath(const KivWString& csFrom, const KivWString& csTo);
// Fails if the target exists, and leaves no part of a target that it made.
bool CopyFileTo(const KivWString& csFrom, const KivWString& csTo);

bool IsRelativePath(const KivWString& csPath);
// The path from the root on: one that is relative means this process's current folder. Links stay, nothing needs
// to be there, and "." and ".." stay on Linux alone. False, with csAbsolute untouched, for an empty path or where the
// current folder has gone.
bool AbsolutePath(const KivWString& csPath, KivWString& csAbsolute);
// The same of what is there, through all links; on Windows without the prefix "\\?\". False, with csReal untouched, if
// nothing is there.
bool RealPath(const KivWString& csPath, KivWString& csReal);
// Path of the running executable; false on failure.
bool ProgramPath(KivWString& csPath);
// True if files can be made in the folder.
bool CanWriteFolder(const KivWString& csFolder);
// Where private temporary folders may stand when the program's own folder cannot be written. Linux: $XDG_RUNTIME_DIR,
// else $TMPDIR, else /tmp; of these the folder itself if nobody else can write there, and in a shared one (with the
// sticky bit) "kiv-<user id>", which belongs to the user and to nobody else, else the next one is taken. Windows: the
// user's temporary folder. Without a separator at the end.
KivWString PrivateTempFolder();
// An environment variable's value; false if it is not set.
bool EnvironmentText(const KivWString& csName, KivWString& csValue);

}  // namespace sys
}  // namespace kiv
