// What a file is, by its first and its last bytes.
#pragma once

#include <cstdint>

#include "KivContainerHeader.h"
#include "KivSysText.h"

namespace kiv {

enum class KivModelFileKind : int32_t { Unknown = 0, Model = 1, Package = 2 };

struct KivModelProbe {
  bool m_bOpened = false;  // the file can be read
  uint64_t m_iLength = 0;
  KivModelFileKind m_eKind = KivModelFileKind::Unknown;
  KivContainerHeader m_zHeader;  // of a model
};

// Never reports.
KivModelProbe KivProbeModelFile(const KivWString& csPath);

}  // namespace kiv
