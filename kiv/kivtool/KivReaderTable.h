// Which program reads which foreign files. A reader is a folder of kivreaders/, whose formats.txt lists what it reads.
#pragma once

#include <vector>

#include "KivSysText.h"

namespace kiv {

struct KivReaderFormat {
  const char16_t* m_szName;    // lower case; names of its files end with a dot and this
  const char16_t* m_szReader;  // the program beside this one, without the suffix of programs
};

// All that some reader reads, whether it is installed or not.
const std::vector<KivReaderFormat>& KivListReaderFormats();

}  // namespace kiv
