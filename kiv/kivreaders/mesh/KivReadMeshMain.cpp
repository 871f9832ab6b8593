// kiv-read-mesh: reads STL, OBJ, PLY, glTF and GLB for the kiv command.
#include <assimp/BaseImporter.h>
#include <algorithm>
#include <assimp/DefaultLogger.hpp>
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

// What the library of formats tells in its log alone.
class Log : public Assimp::Logger {
 public:
  // Where the library looks for it; it is owned there until Leave.
  static Log* Enter() {
    auto* const pzLog = new Log;
    Assimp::DefaultLogger::set(pzLog);
    return pzLog;
  }
  static void Leave() { Assimp::DefaultLogger::kill(); }

  bool HasLostFaces() const { return m_bLostFaces; }
  bool HasLostVertices() const { return m_bLostVertices; }

  bool attachStream(Assimp::LogStream*, unsigned int) override { return false; }
  bool detachStream(Assimp::LogStream*, unsigned int) override { return false; }

 private:
  void OnDebug(const char*) override {}
  void OnVerboseDebug(const char*) override {}
  void OnInfo(const char*) override {}
  void OnWarn(const char* szText) override {
    const std::string_view strText = szText;
    if (strText.find("out-of-range indices") != std::string_view::npos) m_bLostFaces = true;
    if (strText.find("Some vertices were dropped") != std::string_view::npos) m_bLostVertices = true;
  }
  void OnError(const char*) override {}

  bool m_bLostFaces = false;
  bool m_bLostVertices = false;
};

// One line, with the name that the file really has.
std::string Reason(std::string strText, const std::string& strName) {
  const std::string strSource = "source.";
  for (size_t i = strText.find(strSource); i != std::string::npos; i = strText.find(strSource, i + strName.size())) {
    const size_t iEnd = strText.find_first_not_of("abcdefghijklmnopqrstuvwxyz", i + strSource.size());
    strText.replace(i, std::min(iEnd, strText.size()) - i, strName);
  }
  for (char& c : strText)
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  // The library quotes whatever follows in the source.
  constexpr size_t kLongest = 300;
  if (strText.size() > kLongest) {
    size_t nKept = kLongest;
    while (nKept > 0 && (static_cast<unsigned char>(strText[nKept]) & 0xC0) == 0x80) --nKept;  // within a character
    strText.replace(nKept, std::string::npos, "...");
  }
  return strText;
}

void Read(const KivSceneRequest& zRequest, KivScene& zScene) {
  const KivWString& csSource = zRequest.m_csSource;
  const KivMeshFormat* pzFormat = KivFindMeshFormat(zRequest.m_csFormat);
  if (pzFormat == nullptr)
    throw KivSceneError("the reader does not know the format '" + sys::WideToUtf8(zRequest.m_csFormat) + "'");
  std::vector<uint8_t> vcBytes = KivReadSceneSource(csSource, kLargestSource);
  KivMeshPlaces vzPlace;
  pzFormat->m_pfnPrepare(vcBytes, zScene.m_vstrWarning, vzPlace);
  pzFormat = &KivMeshFormatOfBytes(*pzFormat, vcBytes);

  const size_t iSeparator = csSource.find_last_of(KivWString(u"/") + sys::kSeparator);
  const KivWString csFile = iSeparator == KivWString::npos ? csSource : csSource.substr(iSeparator + 1);
  auto* const pzSource = new KivMeshSource(csSource, *pzFormat, std::move(vcBytes));
  Assimp::Importer zImporter;
  zImporter.SetIOHandler(pzSource);  // which owns it from here on
  KeepFormat(zImporter, pzFormat->m_szSuffix);
  const Log* const pzLog = Log::Enter();
  const aiScene* pzScene = zImporter.ReadFile(pzSource->GetName(), 0);
  const bool bLostFaces = pzLog->HasLostFaces(), bLostVertices = pzLog->HasLostVertices();
  Log::Leave();
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
  if (bLostFaces) throw KivSceneError("a face names a vertex that does not exist");
  if (bLostVertices) zScene.m_vstrWarning.push_back("vertices that make no whole triangle or line are left out");
  KivCheckMeshes(*pzScene, *pzFormat);
  KivSceneFromMeshes(*pzScene, *pzFormat, *pzSource, vzPlace, csFile.substr(0, csFile.rfind(u'.')), zScene);
  for (const std::string& strMissing : pzSource->GetMissing())
    zScene.m_vstrWarning.push_back("a file that it names cannot be read: " + strMissing);
}

}  // namespace
}  // namespace kiv

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  return KivSceneReaderMain(vcsArguments, Read);
}
