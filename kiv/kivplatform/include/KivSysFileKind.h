// What a path leads to, whether two paths lead to the same, and who may use it.
#pragma once

#include <cstdint>
#include <optional>

#include "KivSysText.h"

namespace kiv {

// Equal for two paths exactly if they lead to one file, by whatever names and links, as long as it is not removed.
struct KivSysFileIdentity {
  uint64_t m_iVolume = 0;
  uint64_t m_iIndex = 0;
  bool operator==(const KivSysFileIdentity&) const = default;
};

namespace sys {

// True for what is there and is no regular file: a folder, a device, a pipe, a socket. A link counts as what it leads
// to. False for a regular file, and where nothing is.
bool IsNoRegularFile(const KivWString& csPath);

// Gives a new file, which is private to the user as all are that are made here, the permissions of the file whose place
// it is about to take or, where there is none, those that the user's settings give to new files. False on failure.
// Windows: nothing, since a new file takes its folder's.
bool TakePermissionsFor(const KivWString& csNew, const KivWString& csTarget);

// Nothing where nothing is, or where it cannot be looked at.
std::optional<KivSysFileIdentity> FindFileIdentity(const KivWString& csPath);

}  // namespace sys
}  // namespace kiv
