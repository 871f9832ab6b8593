#include "KivMeshSource.h"

#include <assimp/material.h>
#include <algorithm>
#include <assimp/IOStream.hpp>
#include <charconv>
#include <cstring>
#include <string_view>

#include "KivMeshNames.h"
#include "KivMeshWords.h"
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
      m_bStl(m_strName == "source.stl"),
      m_pvcBytes(std::make_shared<const std::vector<uint8_t>>(std::move(vcBytes))) {
  const size_t iSeparator = csSource.find_last_of(KivWString(u"/") + sys::kSeparator);
  m_csFolder = iSeparator == KivWString::npos ? KivWString() : csSource.substr(0, iSeparator + 1);
  const KivWString csFile = csSource.substr(m_csFolder.size());
  m_csFallback = m_csFolder + csFile.substr(0, csFile.rfind(u'.')) + u".mtl";
  if (!m_bStl) return;
  if (const std::optional<KivMeshMaterial> fMaterial = KivStlHeadMaterial(*m_pvcBytes))
    m_mapMaterial.emplace(AI_DEFAULT_MATERIAL_NAME, *fMaterial);
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
    constexpr Form kForms[] = {{"nodes[", "]"}, {"meshes[", "]"},      {"<", ">"},
                               {"ROOT", ""},    {"defaultobject", ""}, {AI_DEFAULT_MATERIAL_NAME, ""}};
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

std::string KivMeshSource::NameOf(std::string_view strName) const {
  return HasMaterials() ? KivNameOf(strName) : std::string(strName);
}

const KivMeshMaterial* KivMeshSource::FindMaterial(std::string_view strMaterial) const {
  // What stands for no material is a number without a name.
  if (strMaterial.starts_with(kNumberInName)) return nullptr;
  const auto it = m_mapMaterial.find(KivNameOf(strMaterial));
  return it == m_mapMaterial.end() ? nullptr : &it->second;
}

bool KivMeshSource::Exists(const char* szName) const {
  KivWString csPath;
  const std::string strName = m_bMaterials ? KivNameOf(szName) : szName;
  return strName == m_strName || (Find(strName, csPath) && sys::PathExists(csPath) && !sys::FolderExists(csPath));
}

void KivMeshSource::AddMissing(const std::string& strName) {
  const bool bKnown = std::find(m_vstrMissing.begin(), m_vstrMissing.end(), strName) != m_vstrMissing.end();
  if (strName != kFallback && !bKnown && m_vstrMissing.size() < 10) m_vstrMissing.push_back(strName);
}

// A file may have a name with blanks; else these stand between the names of files.
std::vector<std::string> KivMeshSource::MaterialLists(const std::string& strNames) const {
  if (Exists(strNames.c_str())) return {strNames};
  std::vector<std::string> vstrName;
  std::string_view strRest = strNames;
  bool bSome = false;
  for (std::string_view strWord = TakeWord(strRest); !strWord.empty(); strWord = TakeWord(strRest))
    bSome = Exists(vstrName.emplace_back(strWord).c_str()) || bSome;
  return bSome ? vstrName : std::vector<std::string>{strNames};
}

bool KivMeshSource::ReadMaterials(const std::string& strName) {
  try {
    KivWString csPath;
    return Find(strName, csPath) && KivReadMaterials(TextOf(KivReadSceneSource(csPath, kLargestFile)), m_mapMaterial);
  } catch (const KivSceneError&) {
    return false;
  }
}

Assimp::IOStream* KivMeshSource::OpenMaterials(const std::string& strNames) {
  bool bRead = false;
  for (const std::string& strName : MaterialLists(strNames)) {
    if (ReadMaterials(strName)) {
      bRead = true;
      continue;
    }
    AddMissing(strName);
    // One of another folder may have come along.
    bRead = ReadMaterials(strName.substr(strName.find_last_of("/\\") + 1)) || bRead;
  }
  if (!bRead) return nullptr;
  constexpr std::string_view kEmpty = "# list of materials\n";
  return new Stream(std::make_shared<const std::vector<uint8_t>>(kEmpty.begin(), kEmpty.end()));
}

Assimp::IOStream* KivMeshSource::Open(const char* szName, const char*) {
  if (szName == m_strName) return new Stream(m_pvcBytes);
  if (m_bMaterials) return OpenMaterials(KivNameOf(szName));
  KivWString csPath;
  try {
    if (Find(szName, csPath))
      return new Stream(std::make_shared<const std::vector<uint8_t>>(KivReadSceneSource(csPath, kLargestFile)));
  } catch (const KivSceneError&) {
    // The library of formats goes on without the file, or gives up with a reason of its own.
  }
  AddMissing(szName);
  return nullptr;
}

void KivMeshSource::Close(Assimp::IOStream* pzStream) {
  delete pzStream;
}

}  // namespace kiv
