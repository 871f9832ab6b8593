// The source of a mesh and the files beside it, as the library of formats sees them.
#pragma once

#include <array>
#include <assimp/IOSystem.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KivEMatrix4.h"
#include "KivSysText.h"

namespace kiv {

// A node as the source itself tells it, where the library of formats rounds places and changes names.
struct KivMeshPlace {
  size_t m_nChildren = 0;
  std::string m_strName;
  std::vector<std::string> m_vstrMesh;  // names of the meshes that stand here
  KivEMatrix4 m_zMatrix;                // in its parent
};
// In the order of a walk from the root, each node before its children; empty where the library tells enough.
using KivMeshPlaces = std::vector<KivMeshPlace>;

// Brings a source into the form that the library of formats knows, and throws KivSceneError for bytes that announce
// more than they hold, where the library would believe them. Warns of what the library leaves out without a word.
using KivMeshPreparation = void (*)(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning,
                                    KivMeshPlaces& vzPlace);

// What the reader knows about a format.
struct KivMeshFormat {
  const char* m_szSuffix;   // of files, as in formats.txt
  const char* m_szName;     // for messages
  double m_dMetresPerUnit;  // 0: the format does not tell
  bool m_bNormals;          // its normals are those of the form, not of each triangle
  bool m_bLines;            // may hold lines and points beside faces
  bool m_bLinear;           // its colours are linear; else sRGB
  KivMeshPreparation m_pfnPrepare;
};

// By the suffix; null for a format that is not read.
const KivMeshFormat* KivFindMeshFormat(const KivWString& csSuffix);
// Of a glTF, text or GLB by how the bytes begin, whatever the suffix; else the same format.
const KivMeshFormat& KivMeshFormatOfBytes(const KivMeshFormat& zFormat, const std::vector<uint8_t>& vcBytes);

void KivPrepareStl(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning);
void KivPrepareObj(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning);
void KivPreparePly(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning);
// Of both, text and GLB. Refused are versions that are not read, JSON or nodes that are nested too deeply, nodes that
// are no trees, numbers behind the end of their buffer or of a kind that is not read, and extensions that are needed
// and not read. Takes skeletons and movements of version 2 out of the bytes, and writes into them what the library of
// formats asks for and the source need not have. (KivMeshGltf.cpp)
void KivPrepareGltf(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning, KivMeshPlaces& vzPlace);

// What a file tells of a material. Colours are sRGB.
struct KivMeshMaterial {
  std::optional<std::array<float, 3>> m_fColour;
  std::optional<float> m_fOpacity, m_fTransparency;  // the opacity counts, if both are there
  bool m_bPicture = false;
};
using KivMeshMaterials = std::map<std::string, KivMeshMaterial, std::less<>>;  // by their names

// Adds the materials of a list. False for what is no such list, or one with a statement before the first material or
// with a colour or an opacity without its numbers. (KivMeshMaterials.cpp)
bool KivReadMaterials(std::string_view strText, KivMeshMaterials& mapMaterial);

// The colour that stands in the head of a prepared binary STL and holds for all its faces. (KivMeshStl.cpp)
std::optional<KivMeshMaterial> KivStlHeadMaterial(const std::vector<uint8_t>& vcBytes);

// Gives the source's bytes under the name "source.<suffix>", and files of its folder and below under theirs; nothing
// else. Files are taken whole.
class KivMeshSource : public Assimp::IOSystem {
 public:
  KivMeshSource(const KivWString& csSource, const KivMeshFormat& zFormat, std::vector<uint8_t> vcBytes);

  const std::string& GetName() const { return m_strName; }
  // Names of files that were asked for and could not be given.
  const std::vector<std::string>& GetMissing() const { return m_vstrMissing; }
  // True if the source's bytes have this text somewhere, of those that the library of formats makes up as names:
  // "nodes[3]", "meshes[0]", "<...>", "ROOT", "defaultobject", "DefaultMaterial".
  bool Holds(std::string_view strName) const;
  // The name that the library of formats knows in a form of its own (KivMeshNames.h).
  std::string NameOf(std::string_view strName) const;
  // True for OBJ and STL, whose colours the library of formats makes up in part: FindMaterial knows them.
  bool HasMaterials() const { return m_bMaterials || m_bStl; }
  // Null for one of which no file that was given tells something. By the name that the library has.
  const KivMeshMaterial* FindMaterial(std::string_view strMaterial) const;

  bool Exists(const char* szName) const override;
  char getOsSeparator() const override { return '/'; }
  Assimp::IOStream* Open(const char* szName, const char* szMode) override;
  void Close(Assimp::IOStream* pzStream) override;

 private:
  // False for a name that leads out of the folder.
  bool Find(const std::string& strName, KivWString& csPath) const;
  void AddMissing(const std::string& strName);
  // Of lists of materials, one or more with blanks between them: reads them, and gives the library an empty one. Null
  // if there is none.
  Assimp::IOStream* OpenMaterials(const std::string& strNames);
  std::vector<std::string> MaterialLists(const std::string& strNames) const;
  bool ReadMaterials(const std::string& strName);

  KivWString m_csFolder;  // of the source, with its separator, or empty
  std::string m_strName;
  bool m_bMaterials;  // other files are lists of materials
  bool m_bStl;
  KivWString
      m_csFallback;  // path of what is asked for as "source.mtl", in place of a list of materials that is missing
  std::shared_ptr<const std::vector<uint8_t>> m_pvcBytes;
  mutable std::optional<std::set<std::string, std::less<>>> m_fsetName;  // of Holds, from one pass over the bytes
  std::vector<std::string> m_vstrMissing;
  KivMeshMaterials m_mapMaterial;
};

}  // namespace kiv
