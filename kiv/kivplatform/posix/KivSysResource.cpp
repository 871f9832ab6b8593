#include "KivSysResource.h"

#include <elf.h>
#include <link.h>

#include <cstdint>
#include <cstring>

namespace kiv::sys {
namespace {

constexpr char kNoteName[] = "KIV_DATA";

// Walks the notes of one segment. A note is: name size, descriptor size, type (32 bits each), name, descriptor, both
// padded to 4 bytes.
bool HoldsNote(const uint8_t* pNotes, uint64_t nBytes) {
  while (nBytes >= sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) zNote;
    std::memcpy(&zNote, pNotes, sizeof zNote);
    const uint64_t nName = (static_cast<uint64_t>(zNote.n_namesz) + 3) & ~uint64_t{3};
    const uint64_t nDescriptor = (static_cast<uint64_t>(zNote.n_descsz) + 3) & ~uint64_t{3};
    if (nName > nBytes - sizeof zNote || nDescriptor > nBytes - sizeof zNote - nName) return false;
    if (zNote.n_namesz == sizeof kNoteName && std::memcmp(pNotes + sizeof zNote, kNoteName, sizeof kNoteName) == 0)
      return true;
    pNotes += sizeof zNote + nName + nDescriptor;
    nBytes -= sizeof zNote + nName + nDescriptor;
  }
  return false;
}

int LookAtProgram(dl_phdr_info* pInfo, size_t, void* pFound) {
  for (int i = 0; i < pInfo->dlpi_phnum; ++i) {
    const ElfW(Phdr)& zHeader = pInfo->dlpi_phdr[i];
    if (zHeader.p_type != PT_NOTE) continue;
    const auto* const pNotes = reinterpret_cast<const uint8_t*>(pInfo->dlpi_addr + zHeader.p_vaddr);
    if (HoldsNote(pNotes, zHeader.p_memsz)) *static_cast<bool*>(pFound) = true;
  }
  return 1;  // the first object is the program itself; libraries do not count
}

}  // namespace

bool HasKivDataResource() {
  bool bFound = false;
  dl_iterate_phdr(LookAtProgram, &bFound);
  return bFound;
}

}  // namespace kiv::sys
