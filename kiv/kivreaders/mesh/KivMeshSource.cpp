#include "KivMeshSource.h"

#include <algorithm>
#include <assimp/IOStream.hpp>
#include <charconv>
#include <cstring>
#include <string_view>

#include "KivSceneReader.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr uint64_t kLargestFile = uint64_t{4} << 30;  // bytes

constexpr std::string_view kFallback = "source.mtl";

// Of a format without nodes that the library changes.
template <auto pfnPrepare>
void Prepare(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning, KivMeshPlaces&) {
  pfnPrepare(vcBytes, vstrWarning);
}

constexpr KivMeshFormat kFormats[] = {
    {"stl", "STL", 0, false, false, false, Prepare<KivPrepareStl>},
    {"obj", "OBJ", 0, true, true, false, Prepare<KivPrepareObj>},
    {"ply", "PLY", 0, true, false, false, Prepare<KivPreparePly>},
    {"gltf", "glTF", 1, true, true, true, KivPrepareGltf},
    {"glb", "GLB", 1, true, true, true, KivPrepareGltf},
};

// --- Streams --------------------------------------------------------------------------------------------------------

class Stream : public Assimp::IOStream {
 public:
  explicit Stream(std::shared_ptr<const std::vector<uint8_t>> pvcBytes) : m_pvcBytes(std::move(pvcBytes)) {}

  size_t Read(void* pBuffer, size_t nSize, size_t nCount) override {
    if (nSize == 0 || nCount == 0) return 0;
    const size_t nWhole = std::min(nCount, (m_pvcBytes->size() - m_iAt) / nSize);
    if (nWhole > 0) std::memcpy(pBuffer, m_pvcBytes->data() + m_iAt, nWhole * nSize);
    m_iAt += nWhole * nSize;
    return nWhole;
  }
  size_t Write(const void*, size_t, size_t) override { return 0; }
  aiReturn Seek(size_t nOffset, aiOrigin iOrigin) override {
    // Offsets are unsigned; one back from the end or from here is a large one.
    const size_t iFrom = iOrigin == aiOrigin_SET ? 0 : iOrigin == aiOrigin_CUR ? m_iAt : m_pvcBytes->size();
    const size_t iTo = iOrigin == aiOrigin_END && nOffset <= iFrom ? iFrom - nOffset : iFrom + nOffset;
    if (iTo > m_pvcBytes->size()) return aiReturn_FAILURE;
    m_iAt = iTo;
    return aiReturn_SUCCESS;
  }
  size_t Tell() const override { return m_iAt; }
  size_t FileSize() const override { return m_pvcBytes->size(); }
  void Flush() override {}

 private:
  std::shared_ptr<const std::vector<uint8_t>> m_pvcBytes;
  size_t m_iAt = 0;
};

// --- Names ----------------------------------------------------------------------------------------------------------

// False for a name that leads out of the folder that it is meant for.
bool StaysBelow(std::string strName) {
  std::replace(strName.begin(), strName.end(), '\\', '/');
  if (strName.empty() || strName[0] == '/' || strName.find(':') != std::string::npos) return false;
  for (size_t iFrom = 0; iFrom <= strName.size();) {
    const size_t iTo = std::min(strName.find('/', iFrom), strName.size());
    if (std::string_view(strName).substr(iFrom, iTo - iFrom) == "..") return false;
    iFrom = iTo + 1;
  }
  return true;
}

// With the bytes that stand as % and two hex digits, and with the other separator of folders.
std::string Decoded(const std::string& strName) {
  std::string strDecoded;
  for (size_t i = 0; i < strName.size(); ++i) {
    uint8_t iByte = 0;
    const char* const pDigits = strName.data() + i + 1;
    const bool bCoded = strName[i] == '%' && i + 2 < strName.size() &&
                        std::from_chars(pDigits, pDigits + 2, iByte, 16).ptr == pDigits + 2 && iByte != 0;
    strDecoded += bCoded ? static_cast<char>(iByte) : strName[i];
    if (bCoded) i += 2;
  }
  std::replace(strDecoded.begin(), strDecoded.end(), '\\', '/');
  return strDecoded;
}

}  // namespace

const KivMeshFormat* KivFindMeshFormat(const KivWString& csSuffix) {
  const std::string strSuffix = sys::WideToUtf8(csSuffix);
  for (const KivMeshFormat& zFormat : kFormats)
    if (strSuffix == zFormat.m_szSuffix) return &zFormat;
  return nullptr;
}

const KivMeshFormat& KivMeshFormatOfBytes(const KivMeshFormat& zFormat, const std::vector<uint8_t>& vcBytes) {
  if (zFormat.m_pfnPrepare != KivPrepareGltf) return zFormat;
  const std::string_view strBytes(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  return *KivFindMeshFormat(strBytes.starts_with("glTF") ? u"glb" : u"gltf");
}

KivMeshSource::KivMeshSource(const KivWString& csSource, const KivMeshFormat& zFormat, std::vector<uint8_t> vcBytes)
    : m_strName(std::string("source.") + zFormat.m_szSuffix),
      m_bMaterials(m_strName == "source.obj"),
      m_pvcBytes(std::make_shared<const std::vector<uint8_t>>(std::move(vcBytes))) {
  const size_t iSeparator = csSource.find_last_of(KivWString(u"/") + sys::kSeparator);
  m_csFolder = iSeparator == KivWString::npos ? KivWString() : csSource.substr(0, iSeparator + 1);
  const KivWString csFile = csSource.substr(m_csFolder.size());
  m_csFallback = m_csFolder + csFile.substr(0, csFile.rfind(u'.')) + u".mtl";
}

bool KivMeshSource::Find(const std::string& strName, KivWString& csPath) const {
  if (!StaysBelow(strName)) return false;
  csPath = strName == kFallback ? m_csFallback : m_csFolder + sys::Utf8ToWide(strName);
  if (sys::PathExists(csPath)) return true;
  const std::string strDecoded = Decoded(strName);
  if (strDecoded != strName && StaysBelow(strDecoded)) csPath = m_csFolder + sys::Utf8ToWide(strDecoded);
  return true;
}

bool KivMeshSource::Holds(std::string_view strName) const {
  if (!m_fsetName) {
    struct Form {
      std::string_view m_strBegin, m_strEnd;
    };
    constexpr Form kForms[] = {{"nodes[", "]"}, {"meshes[", "]"}, {"<", ">"}, {"ROOT", ""}, {"defaultobject", ""}};
    constexpr size_t kLongest = 64;
    const std::string_view strBytes(reinterpret_cast<const char*>(m_pvcBytes->data()), m_pvcBytes->size());
    m_fsetName.emplace();
    for (const Form& z : kForms)
      for (size_t i = 0; (i = strBytes.find(z.m_strBegin, i)) != std::string_view::npos; i += z.m_strBegin.size()) {
        const size_t iEnd = strBytes.substr(i, kLongest).find(z.m_strEnd, z.m_strBegin.size());
        if (iEnd != std::string_view::npos) m_fsetName->emplace(strBytes.substr(i, iEnd + z.m_strEnd.size()));
      }
  }
  return m_fsetName->contains(strName);
}

bool KivMeshSource::TellsColour(std::string_view strMaterial) const {
  return !m_bMaterials || m_setColoured.contains(strMaterial);
}

bool KivMeshSource::Exists(const char* szName) const {
  KivWString csPath;
  return szName == m_strName || (Find(szName, csPath) && sys::PathExists(csPath) && !sys::FolderExists(csPath));
}

Assimp::IOStream* KivMeshSource::Open(const char* szName, const char*) {
  if (szName == m_strName) return new Stream(m_pvcBytes);
  KivWString csPath;
  try {
    if (Find(szName, csPath)) {
      std::vector<uint8_t> vcBytes = KivReadSceneSource(csPath, kLargestFile);
      if (!m_bMaterials || KivCleanMaterials(vcBytes, m_setColoured))
        return new Stream(std::make_shared<const std::vector<uint8_t>>(std::move(vcBytes)));
    }
  } catch (const KivSceneError&) {
    // The library of formats goes on without the file, or gives up with a reason of its own.
  }
  const bool bKnown = std::find(m_vstrMissing.begin(), m_vstrMissing.end(), szName) != m_vstrMissing.end();
  if (szName != kFallback && !bKnown && m_vstrMissing.size() < 10) m_vstrMissing.push_back(szName);
  return nullptr;
}

void KivMeshSource::Close(Assimp::IOStream* pzStream) {
  delete pzStream;
}

}  // namespace kiv
