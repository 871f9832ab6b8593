// What the tests of kiv-read-mesh share.
#pragma once

#include "KivMeshFiles.h"
#include "KivReaderTest.h"

namespace kivtest {

inline ReaderOutcome ReadMesh(const kiv::KivWString& csPath) {
  return RunReader(u"kiv-read-mesh", csPath);
}

// Of a file with these bytes.
inline ReaderOutcome ReadBytes(const kiv::KivWString& csName, const std::string& strBytes) {
  const TestFolder zFolder;
  zFolder.WriteBytes(csName, strBytes);
  return ReadMesh(zFolder / csName);
}

// Corner k of triangle i.
inline std::vector<double> Corner(const kiv::KivSceneFace& z, size_t i, size_t k) {
  const size_t iAt = 3 * size_t{z.m_viIndex[3 * i + k]};
  return {z.m_vdVertex[iAt], z.m_vdVertex[iAt + 1], z.m_vdVertex[iAt + 2]};
}

using Point = std::vector<double>;

inline void ExpectColour(const std::optional<kiv::KivColour>& fIs, const kiv::KivColour& fMust) {
  ASSERT_TRUE(fIs.has_value());
  for (size_t i = 0; i < 4; ++i) EXPECT_NEAR((*fIs)[i], fMust[i], 1e-6) << i;
}

inline constexpr float kLinearOfQuarter = 0.050876088f, kLinearOf128 = 0.215860501f;  // of 0.25 and 128 / 255

inline std::string Replaced(std::string str, const std::string& strFrom, const std::string& strTo) {
  for (size_t i = 0; (i = str.find(strFrom, i)) != std::string::npos; i += strTo.size())
    str.replace(i, strFrom.size(), strTo);
  return str;
}

}  // namespace kivtest
