// A model as a binary glTF file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KivToolModel.h"

namespace kiv {

struct KivGltfOptions {
  std::optional<size_t> m_iLevel;  // none: the finest. Parts without this level give their finest coarser one
  bool m_bEdges = false;           // edges as lines
  bool m_bFaces = false;           // a primitive for each face; else faces of one colour are one
};

struct KivGltfSummary {
  uint64_t m_nBytes = 0;
  uint64_t m_nNodes = 0;
  uint64_t m_nMeshes = 0;
  uint64_t m_nTriangles = 0;  // of all parts, each once
  uint64_t m_nLines = 0;
  std::vector<std::string> m_vstrNote;  // what was left out, one sentence each
};

// Writes a new file; what glTF cannot hold is left out and noted. Throws KivToolError if the file cannot be written, an
// element that it needs cannot be loaded, the model has no such level, or the user stops it. csTarget is what messages
// call the file.
KivGltfSummary KivExportGltf(KivToolModel& zModel, const KivGltfOptions& zOptions, const KivWString& csPath,
                             const KivWString& csTarget);

}  // namespace kiv
