// kiv-read-mesh: reads STL, OBJ, PLY, glTF and GLB for the kiv command.
#include <assimp/BaseImporter.h>
#include <assimp/postprocess.h>
#include <algorithm>
#include <assimp/Importer.hpp>
#include <exception>
#include <new>
#include <string_view>

#include "KivMeshScene.h"
#include "KivMeshSource.h"
#include "KivSceneReader.h"
#include "KivSysFolder.h"
#include "KivSysMain.h"

namespace kiv {
namespace {

constexpr uint64_t kLargestSource = uint64_t{4} << 30;  // bytes

// Leaves only the readers of one format, so that no file is taken for what its name does not say.
void KeepFormat(Assimp::Importer& zImporter, const char* szSuffix) {
  for (size_t i = zImporter.GetImporterCount(); i > 0; --i) {
    Assimp::BaseImporter* const pzImporter = zImporter.GetImporter(i - 1);
    std::set<std::string> setSuffix;
    pzImporter->GetExtensionList(setSuffix);
    if (setSuffix.contains(szSuffix)) continue;
    zImporter.UnregisterLoader(pzImporter);
    delete pzImporter;
  }
}

// One line, with the name that the file really has.
std::string Reason(std::string strText, const std::string& strName) {
  const std::string strSource = "source.";
  for (size_t i = strText.find(strSource); i != std::string::npos; i = strText.find(strSource, i + strName.size())) {
    const size_t iEnd = strText.find_first_not_of("abcdefghijklmnopqrstuvwxyz", i + strSource.size());
    strText.replace(i, std::min(iEnd, strText.size()) - i, strName);
  }
  for (char& c : strText)
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  return strText;
}

void Read(const KivSceneRequest& zRequest, KivScene& zScene) {
  const KivWString& csSource = zRequest.m_csSource;
  const KivMeshFormat* const pzFormat = KivFindMeshFormat(zRequest.m_csFormat);
  if (pzFormat == nullptr)
    throw KivSceneError("the reader does not know the format '" + sys::WideToUtf8(zRequest.m_csFormat) + "'");
  std::vector<uint8_t> vcBytes = KivReadSceneSource(csSource, kLargestSource);
  KivNormaliseMeshText(*pzFormat, vcBytes);
  KivCheckMeshBytes(*pzFormat, vcBytes, zScene.m_vstrWarning);

  const size_t iSeparator = csSource.find_last_of(KivWString(u"/") + sys::kSeparator);
  const KivWString csFile = iSeparator == KivWString::npos ? csSource : csSource.substr(iSeparator + 1);
  auto* const pzSource = new KivMeshSource(csSource, *pzFormat, std::move(vcBytes));
  Assimp::Importer zImporter;
  zImporter.SetIOHandler(pzSource);  // which owns it from here on
  KeepFormat(zImporter, pzFormat->m_szSuffix);
  const aiScene* pzScene = zImporter.ReadFile(pzSource->GetName(), 0);
  const auto GiveUp = [&] {
    // Of what broke it, only the want of memory is no matter of the format.
    if (zImporter.GetException() != nullptr) try {
        std::rethrow_exception(zImporter.GetException());
      } catch (const std::bad_alloc&) {
        throw;
      } catch (...) {
      }
    throw KivSceneError(std::string("it is no readable ") + pzFormat->m_szName +
                        " file: " + Reason(zImporter.GetErrorString(), sys::WideToUtf8(csFile)));
  };
  if (pzScene == nullptr || pzScene->mRootNode == nullptr) GiveUp();
  KivCheckMeshes(*pzScene, *pzFormat);
  pzScene = zImporter.ApplyPostProcessing(aiProcess_Triangulate);
  if (pzScene == nullptr) GiveUp();
  // The materials of an OBJ stand in another file; without it they are made up.
  const bool bMaterials = std::string_view(pzFormat->m_szSuffix) != "obj" || pzSource->HasGivenOther();
  KivSceneFromMeshes(*pzScene, *pzFormat, *pzSource, csFile.substr(0, csFile.rfind(u'.')), bMaterials, zScene);
  for (const std::string& strMissing : pzSource->GetMissing())
    zScene.m_vstrWarning.push_back("a file that it names cannot be read: " + strMissing);
}

}  // namespace
}  // namespace kiv

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  return KivSceneReaderMain(vcsArguments, Read);
}
