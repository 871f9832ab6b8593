#include "KivStepDocument.h"

#include <BRepBndLib.hxx>
#include <Bnd_Box.hxx>
#include <Interface_Check.hxx>
#include <Interface_InterfaceModel.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Quantity_ColorRGBA.hxx>
#include <STEPCAFControl_Controller.hxx>
#include <STEPCAFControl_Reader.hxx>
#include <STEPConstruct_ExternRefs.hxx>
#include <STEPControl_Reader.hxx>
#include <Standard_Failure.hxx>
#include <Standard_OutOfMemory.hxx>
#include <TDF_AttributeSequence.hxx>
#include <TDF_LabelSequence.hxx>
#include <TDF_Tool.hxx>
#include <TDataStd_Name.hxx>
#include <TDocStd_Document.hxx>
#include <Transfer_Binder.hxx>
#include <Transfer_TransientProcess.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_GraphNode.hxx>
#include <XCAFDoc_LayerTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <XSControl_TransferReader.hxx>
#include <XSControl_WorkSession.hxx>
#include <algorithm>
#include <cmath>
#include <istream>
#include <map>
#include <new>
#include <set>
#include <streambuf>
#include <string_view>
#include <utility>

#include "KivSceneLevels.h"
#include "KivSceneReader.h"
#include "KivStepGeometry.h"
#include "KivStepMesh.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr uint64_t kSourceMax = uint64_t{1} << 32;
constexpr double kMetresPerMillimetre = 0.001;
constexpr double kLeastTolerance = 1e-6;  // below, the library makes nothing of most shapes
constexpr uint32_t kNodeMax = 2000000;    // a few references to references give any number of them
constexpr uint32_t kDepthMax = 1000;
constexpr uint32_t kReferenceDepthMax = 100;
constexpr std::string_view kFirstWord = "ISO-10303-21";
constexpr std::string_view kLastWord = "END-ISO-10303-21";

std::string InQuotes(const KivWString& csName) {
  return "\"" + sys::WideToUtf8(csName) + "\"";
}

// The library does not say when want of memory was the reason.
[[noreturn]] void FailInLibrary(const std::string& strWhy) {
  if (KivIsMemoryUsedUp()) throw std::bad_alloc();
  throw KivSceneError(strWhy);
}

// --- The file -------------------------------------------------------------------------------------------------------

class BytesBuffer : public std::streambuf {
 public:
  explicit BytesBuffer(std::vector<uint8_t>& vcBytes) {
    char* const pcBegin = reinterpret_cast<char*>(vcBytes.data());
    setg(pcBegin, pcBegin, pcBegin + vcBytes.size());
  }
};

// The library reads a cut file as far as it goes, and anything else as a file without parts.
void CheckFrame(const std::vector<uint8_t>& vcBytes) {
  const std::string_view strAll(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (strAll.substr(0, 4096).find(kFirstWord) == std::string_view::npos)
    throw KivSceneError("it is no STEP file, which begins with " + std::string(kFirstWord));
  const size_t nTail = std::min<size_t>(strAll.size(), 65536);
  if (strAll.substr(strAll.size() - nTail).find(kLastWord) == std::string_view::npos)
    throw KivSceneError("the STEP file is not whole: " + std::string(kLastWord) + " is missing at its end");
}

// --- Files that it refers to ---------------------------------------------------------------------------------------

// The names that a file refers to others by. Only those beside it or below may be named.
std::vector<std::string> ReferencesOf(const Handle(XSControl_WorkSession) & zSession) {
  STEPConstruct_ExternRefs zReferences(zSession);
  zReferences.LoadExternRefs();
  std::vector<std::string> vstrName;
  for (Standard_Integer i = 1; i <= zReferences.NbExternRefs(); ++i) {
    const char* const szName = zReferences.FileName(i);
    const std::string strName = szName == nullptr ? "" : szName;
    if (strName.starts_with('/') || strName.find("..") != std::string::npos)
      throw KivSceneError("the STEP file refers to a file outside of its folder: " + strName);
    if (!strName.empty()) vstrName.push_back(strName);
  }
  return vstrName;
}

KivWString FolderOf(const KivWString& csPath) {
  return csPath.substr(0, csPath.rfind(u'/') + 1);
}

// Files that the library will read, and those that they refer to in turn, each from the folder of the one that names
// it: looked at before it does. In a circle it would go round until it breaks down.
class References {
 public:
  explicit References(KivScene& zScene) : m_zScene(zScene) {}

  void Check(const KivWString& csFile, const Handle(XSControl_WorkSession) & zSession) {
    m_vcsWay.push_back(csFile);
    if (m_vcsWay.size() > kReferenceDepthMax)
      throw KivSceneError("the STEP file refers to files that refer to files, and so on, too often");
    for (const std::string& strName : ReferencesOf(zSession)) Look(FolderOf(csFile) + sys::Utf8ToWide(strName));
    m_vcsWay.pop_back();
  }

 private:
  void Look(const KivWString& csFile) {
    if (std::find(m_vcsWay.begin(), m_vcsWay.end(), csFile) != m_vcsWay.end())
      throw KivSceneError("the STEP file refers to files that refer back to it");
    if (!m_setSeen.insert(csFile).second) return;
    const std::string strFile = InQuotes(csFile.substr(FolderOf(csFile).size()));
    if (!sys::PathExists(csFile)) {
      m_zScene.m_vstrWarning.push_back("The file " + strFile + ", which it refers to, is not there and was left out.");
      return;
    }
    STEPControl_Reader zReader;
    {
      std::vector<uint8_t> vcBytes = KivReadSceneSource(csFile, kSourceMax);
      CheckFrame(vcBytes);
      BytesBuffer zBuffer(vcBytes);
      std::istream zStream(&zBuffer);
      if (zReader.ReadStream(sys::WideToUtf8(csFile).c_str(), zStream) != IFSelect_RetDone)
        FailInLibrary("the STEP file refers to " + strFile + ", whose text is not well-formed");
    }
    Check(csFile, zReader.WS());
  }

  KivScene& m_zScene;
  std::vector<KivWString> m_vcsWay;  // from the first file to the one that is looked at
  std::set<KivWString> m_setSeen;
};

// Entities that the library could not take as the file has them: with references to what is not there, or to others
// than they must have.
void WarnOfBadEntities(const Handle(XSControl_WorkSession) & zSession, KivScene& zScene) {
  const Handle(Interface_InterfaceModel) zModel = zSession->Model();
  uint64_t nBad = 0;
  for (Standard_Integer i = 1; !zModel.IsNull() && i <= zModel->NbEntities(); ++i)
    nBad += zModel->IsErrorEntity(i) ? 1 : 0;
  if (nBad > 0 && KivIsMemoryUsedUp()) throw std::bad_alloc();
  if (nBad > 0)
    zScene.m_vstrWarning.push_back("Entities with wrong references or values: " + std::to_string(nBad) +
                                   ". What needs them may be missing.");
}

// What the library has no memory for it notes as failed, and goes on.
void CheckMemoryOfTransfer(const Handle(XSControl_WorkSession) & zSession) {
  if (!KivIsMemoryUsedUp()) return;
  const Handle(Transfer_TransientProcess) zProcess = zSession->TransferReader()->TransientProcess();
  for (Standard_Integer i = 1; !zProcess.IsNull() && i <= zProcess->NbMapped(); ++i) {
    const Handle(Transfer_Binder) zBinder = zProcess->MapItem(i);
    if (!zBinder.IsNull() && zBinder->Check()->HasFailed()) throw std::bad_alloc();
  }
}

Handle(TDocStd_Document) ReadDocument(const KivWString& csSource, KivScene& zScene) {
  std::vector<uint8_t> vcBytes = KivReadSceneSource(csSource, kSourceMax);
  CheckFrame(vcBytes);
  Message::DefaultMessenger()->ChangePrinters().Clear();
  XCAFDoc_ShapeTool::SetAutoNaming(Standard_False);
  STEPCAFControl_Controller::Init();
  Interface_Static::SetCVal("xstep.cascade.unit", "MM");
  STEPCAFControl_Reader zReader;
  zReader.SetColorMode(Standard_True);
  zReader.SetNameMode(Standard_True);
  zReader.SetLayerMode(Standard_True);
  zReader.SetSHUOMode(Standard_True);
  zReader.SetPropsMode(Standard_False);
  zReader.SetGDTMode(Standard_False);
  zReader.SetMatMode(Standard_False);
  BytesBuffer zBuffer(vcBytes);
  std::istream zStream(&zBuffer);
  // The name tells where files stand that this one refers to.
  if (zReader.ChangeReader().ReadStream(sys::WideToUtf8(csSource).c_str(), zStream) != IFSelect_RetDone)
    FailInLibrary("the STEP file cannot be read: its text is not well-formed");
  WarnOfBadEntities(zReader.Reader().WS(), zScene);
  References(zScene).Check(csSource, zReader.Reader().WS());
  vcBytes = {};  // what was read is much larger
  Handle(TDocStd_Document) zDocument;
  XCAFApp_Application::GetApplication()->NewDocument("BinXCAF", zDocument);
  const bool bTransferred = zReader.NbRootsForTransfer() > 0 && zReader.Transfer(zDocument);
  CheckMemoryOfTransfer(zReader.Reader().WS());
  if (!bTransferred) FailInLibrary("the STEP file has no shapes");
  return zDocument;
}

KivWString FileStem(const KivWString& csPath) {
  const KivWString csFile = csPath.substr(csPath.rfind(u'/') + 1);
  return csFile.substr(0, csFile.rfind(u'.'));
}

// --- Labels ---------------------------------------------------------------------------------------------------------

KivWString NameOf(const TDF_Label& zLabel) {
  Handle(TDataStd_Name) zName;
  if (!zLabel.FindAttribute(TDataStd_Name::GetID(), zName)) return {};
  return {zName->Get().ToExtString(), static_cast<size_t>(zName->Get().Length())};
}

// What a label or a face has; nothing of what stands above it.
struct Style {
  std::optional<KivColour> m_fColour;
  std::optional<KivColour> m_fCurveColour;
  std::optional<uint32_t> m_iLayer;
};

class Styles {
 public:
  Styles(const TDF_Label& zMain, KivScene& zScene)
      : m_zColours(XCAFDoc_DocumentTool::ColorTool(zMain)),
        m_zLayers(XCAFDoc_DocumentTool::LayerTool(zMain)),
        m_zScene(zScene) {
    m_zLayers->GetLayerLabels(m_zLayerLabels);
    for (Standard_Integer i = 1; i <= m_zLayerLabels.Length(); ++i) {
      TCollection_ExtendedString zName;
      m_zLayers->GetLayer(m_zLayerLabels(i), zName);
      zScene.m_vzLayer.push_back({static_cast<uint32_t>(i),
                                  {zName.ToExtString(), static_cast<size_t>(zName.Length())},
                                  m_zLayers->IsVisible(m_zLayerLabels(i)) != 0});
    }
  }

  Style Of(const TDF_Label& zLabel) {
    Style zStyle;
    zStyle.m_fColour = ColourOf(zLabel, {XCAFDoc_ColorSurf, XCAFDoc_ColorGen});
    zStyle.m_fCurveColour = ColourOf(zLabel, {XCAFDoc_ColorCurv});
    TDF_LabelSequence zLabels;
    m_zLayers->GetLayers(zLabel, zLabels);
    for (Standard_Integer i = 1; i <= m_zLayerLabels.Length() && !zStyle.m_iLayer && !zLabels.IsEmpty(); ++i)
      if (m_zLayerLabels(i) == zLabels.First()) zStyle.m_iLayer = static_cast<uint32_t>(i);
    if (zLabels.Length() > 1 && !std::exchange(m_bToldLayers, true))
      m_zScene.m_vstrWarning.push_back("Some shapes are in several layers; each was put into its first one.");
    return zStyle;
  }

 private:
  std::optional<KivColour> ColourOf(const TDF_Label& zLabel, std::initializer_list<XCAFDoc_ColorType> aeType) {
    for (const XCAFDoc_ColorType eType : aeType) {
      Quantity_ColorRGBA zColour;
      if (!m_zColours->GetColor(zLabel, eType, zColour)) continue;
      const Quantity_Color& zRgb = zColour.GetRGB();
      return KivColour{static_cast<float>(zRgb.Red()), static_cast<float>(zRgb.Green()),
                       static_cast<float>(zRgb.Blue()), zColour.Alpha()};
    }
    return std::nullopt;
  }

  Handle(XCAFDoc_ColorTool) m_zColours;
  Handle(XCAFDoc_LayerTool) m_zLayers;
  TDF_LabelSequence m_zLayerLabels;
  KivScene& m_zScene;
  bool m_bToldLayers = false;
};

// --- Parts ----------------------------------------------------------------------------------------------------------

// Styles of single faces and edges of a part, by their numbers.
struct PartStyles {
  std::vector<Style> m_vzFace, m_vzEdge;
};

void Overlay(const Style& zUpper, Style& zStyle) {
  if (zUpper.m_fColour) zStyle.m_fColour = zUpper.m_fColour;
  if (zUpper.m_fCurveColour) zStyle.m_fCurveColour = zUpper.m_fCurveColour;
  if (zUpper.m_iLayer) zStyle.m_iLayer = zUpper.m_iLayer;
}

void OverlayInside(const TopoDS_Shape& zInside, const TopTools_IndexedMapOfShape& zNumbers, TopAbs_ShapeEnum eKind,
                   const Style& zStyle, std::vector<Style>& vzStyle) {
  TopTools_IndexedMapOfShape zFound;
  TopExp::MapShapes(zInside, eKind, zFound);
  for (Standard_Integer k = 1; k <= zFound.Extent(); ++k)
    if (const Standard_Integer i = zNumbers.FindIndex(zFound(k)); i > 0)
      Overlay(zStyle, vzStyle[static_cast<size_t>(i) - 1]);
}

PartStyles StylesInside(const TDF_Label& zPart, const KivStepShape& zShape, Styles& zStyles) {
  PartStyles zPartStyles;
  zPartStyles.m_vzFace.resize(static_cast<size_t>(zShape.m_zFaces.Extent()));
  zPartStyles.m_vzEdge.resize(static_cast<size_t>(zShape.m_zEdges.Extent()));
  // A curve's colour of the whole part is one of its edges; the other colours are those of the node.
  Style zOfPart;
  zOfPart.m_fCurveColour = zStyles.Of(zPart).m_fCurveColour;
  OverlayInside(zShape.m_zShape, zShape.m_zEdges, TopAbs_EDGE, zOfPart, zPartStyles.m_vzEdge);

  TDF_LabelSequence zLabels;
  XCAFDoc_ShapeTool::GetSubShapes(zPart, zLabels);
  std::vector<TDF_Label> vzLabel(zLabels.begin(), zLabels.end());
  // What is inside counts more: solids before their faces.
  std::stable_sort(vzLabel.begin(), vzLabel.end(), [](const TDF_Label& zA, const TDF_Label& zB) {
    return XCAFDoc_ShapeTool::GetShape(zA).ShapeType() < XCAFDoc_ShapeTool::GetShape(zB).ShapeType();
  });
  for (const TDF_Label& zLabel : vzLabel) {
    const TopoDS_Shape zInside = XCAFDoc_ShapeTool::GetShape(zLabel);
    Style zStyle = zStyles.Of(zLabel);
    OverlayInside(zInside, zShape.m_zFaces, TopAbs_FACE, zStyle, zPartStyles.m_vzFace);
    // Edges have the layer and the surface's colour only from what has no faces.
    const bool bWires = zInside.ShapeType() > TopAbs_FACE;
    if (!bWires) zStyle = {std::nullopt, zStyle.m_fCurveColour, std::nullopt};
    OverlayInside(zInside, zShape.m_zEdges, TopAbs_EDGE, zStyle, zPartStyles.m_vzEdge);
  }
  return zPartStyles;
}

// The sizes of what a document holds. Each part and assembly is looked at once, however often it stands somewhere.
class Boxes {
 public:
  // Of the box around all that stands in the model; 0 if it has no bounds.
  double Diagonal(const TDF_LabelSequence& zLabels) {
    Bnd_Box zAll;
    for (const TDF_Label& zLabel : zLabels) zAll.Add(Of(zLabel));
    return zAll.IsVoid() || zAll.IsOpen() ? 0 : std::sqrt(zAll.SquareExtent());
  }

 private:
  // Of a place.
  Bnd_Box Of(const TDF_Label& zPlace) {
    TDF_Label zShape = zPlace;
    if (XCAFDoc_ShapeTool::IsReference(zPlace)) XCAFDoc_ShapeTool::GetReferredShape(zPlace, zShape);
    TCollection_AsciiString zEntry;
    TDF_Tool::Entry(zShape, zEntry);
    if (const auto it = m_mapBox.find(zEntry.ToCString()); it != m_mapBox.end()) return Placed(it->second, zPlace);
    if (m_nDepth >= kDepthMax) return {};  // such an assembly is not read
    m_mapBox[zEntry.ToCString()] = {};     // for one that stands below itself
    ++m_nDepth;
    Bnd_Box zBox;
    if (XCAFDoc_ShapeTool::IsAssembly(zShape)) {
      TDF_LabelSequence zComponents;
      XCAFDoc_ShapeTool::GetComponents(zShape, zComponents);
      for (const TDF_Label& zComponent : zComponents) zBox.Add(Of(zComponent));
    } else {
      try {
        BRepBndLib::Add(XCAFDoc_ShapeTool::GetShape(zShape), zBox, Standard_False);
      } catch (const Standard_Failure&) {  // told where the part is read
        zBox.SetVoid();
      }
    }
    --m_nDepth;
    m_mapBox[zEntry.ToCString()] = zBox;
    return Placed(zBox, zPlace);
  }

  static Bnd_Box Placed(const Bnd_Box& zBox, const TDF_Label& zPlace) {
    return zBox.IsVoid() ? zBox : zBox.Transformed(XCAFDoc_ShapeTool::GetLocation(zPlace).Transformation());
  }

  std::map<std::string, Bnd_Box> m_mapBox;  // by the label's entry, where it does not stand anywhere
  uint32_t m_nDepth = 0;
};

class DocumentReader {
 public:
  // csRootName is for a root that has none in the file.
  DocumentReader(const Handle(TDocStd_Document) & zDocument, const KivWString& csRootName,
                 const std::vector<double>& vdTolerance, KivScene& zScene)
      : m_zStyles(zDocument->Main(), zScene), m_vdTolerance(vdTolerance), m_zScene(zScene) {
    zScene.m_dMetresPerUnit = kMetresPerMillimetre;
    TDF_LabelSequence zLabels;
    XCAFDoc_DocumentTool::ShapeTool(zDocument->Main())->GetFreeShapes(zLabels);
    if (zLabels.IsEmpty()) FailInLibrary("the STEP file has no shapes");
    if (m_vdTolerance.empty()) m_vdTolerance = KivDefaultTolerances(Boxes().Diagonal(zLabels), kMetresPerMillimetre);
    // Several shapes side by side stand below a root of their own.
    uint32_t iParent = kNoSceneIndex;
    if (zLabels.Length() > 1) {
      zScene.m_vzNode.emplace_back();
      iParent = 0;
    }
    for (const TDF_Label& zLabel : zLabels) AddNode(zLabel, iParent);
    if (zScene.m_vzNode[0].m_csName.empty()) zScene.m_vzNode[0].m_csName = csRootName;
    if (!zScene.m_vzPart.empty()) return;
    const std::string strWhy = zScene.m_vstrWarning.empty() ? "" : " that could be taken. " + zScene.m_vstrWarning[0];
    FailInLibrary("the STEP file has no faces and no edges" + strWhy);
  }

 private:
  // A place: a component of an assembly, or a shape that stands alone.
  void AddNode(const TDF_Label& zPlace, uint32_t iParent) {
    if (m_zScene.m_vzNode.size() >= kNodeMax || m_vzUpperPlace.size() > kDepthMax)
      throw KivSceneError("the STEP file has an assembly with too many places or levels");
    TDF_Label zShape = zPlace;
    if (XCAFDoc_ShapeTool::IsReference(zPlace)) XCAFDoc_ShapeTool::GetReferredShape(zPlace, zShape);

    const uint32_t iNode = static_cast<uint32_t>(m_zScene.m_vzNode.size());
    KivSceneNode& zNode = m_zScene.m_vzNode.emplace_back();
    zNode.m_csName = NameOf(zPlace);
    if (zNode.m_csName.empty()) zNode.m_csName = NameOf(zShape);
    zNode.m_iParent = iParent;
    zNode.m_zMatrix = ToMatrix(XCAFDoc_ShapeTool::GetLocation(zPlace).Transformation());
    Style zStyle = m_zStyles.Of(zShape);
    if (zShape != zPlace) Overlay(m_zStyles.Of(zPlace), zStyle);
    Overlay(StyleOfUsage(zPlace), zStyle);
    zNode.m_fColour = zStyle.m_fColour;
    zNode.m_iLayer = zStyle.m_iLayer;

    if (XCAFDoc_ShapeTool::IsAssembly(zShape)) {
      TDF_LabelSequence zComponents;
      XCAFDoc_ShapeTool::GetComponents(zShape, zComponents);
      m_vzUpperPlace.push_back(zPlace);
      for (const TDF_Label& zComponent : zComponents) AddNode(zComponent, iNode);
      m_vzUpperPlace.pop_back();
    } else if (const uint32_t iPart = FindPart(zShape); iPart != kNoSceneIndex) {
      m_zScene.m_vzNode[iNode].m_viPart.push_back(iPart);
    }
  }

  // What a component has only where it stands below certain others; the longest such way counts.
  Style StyleOfUsage(const TDF_Label& zPlace) {
    TDF_AttributeSequence zUsages;
    if (!XCAFDoc_ShapeTool::GetAllComponentSHUO(zPlace, zUsages)) return {};
    for (size_t iFrom = 0; iFrom < m_vzUpperPlace.size(); ++iFrom) {
      TDF_LabelSequence zWay;
      for (size_t i = iFrom; i < m_vzUpperPlace.size(); ++i) zWay.Append(m_vzUpperPlace[i]);
      zWay.Append(zPlace);
      Handle(XCAFDoc_GraphNode) zUsage;
      if (XCAFDoc_ShapeTool::FindSHUO(zWay, zUsage)) return m_zStyles.Of(zUsage->Label());
    }
    return {};
  }

  // From columns to rows.
  static KivEMatrix4 ToMatrix(const gp_Trsf& zPlacement) {
    KivEMatrix4 zMatrix;
    for (Standard_Integer iRow = 1; iRow <= 3; ++iRow)
      for (Standard_Integer iColumn = 1; iColumn <= 4; ++iColumn)
        zMatrix[static_cast<size_t>(4 * (iColumn - 1) + iRow - 1)] = zPlacement.Value(iRow, iColumn);
    return zMatrix;
  }

  // The same part for the same label; kNoSceneIndex for an empty one.
  uint32_t FindPart(const TDF_Label& zLabel) {
    TCollection_AsciiString zEntry;
    TDF_Tool::Entry(zLabel, zEntry);
    const auto [it, bNew] = m_viPart.try_emplace(zEntry.ToCString(), kNoSceneIndex);
    if (bNew) it->second = AddPart(zLabel);
    return it->second;
  }

  uint32_t AddPart(const TDF_Label& zLabel) {
    const KivWString csName = NameOf(zLabel);
    const KivStepShape zShape(XCAFDoc_ShapeTool::GetShape(zLabel));
    KivScenePart zPart;
    try {
      if (!zShape.IsEmpty()) zPart = ReadPart(zLabel, zShape, csName);
    } catch (const Standard_OutOfMemory&) {
      throw;
    } catch (const Standard_Failure& z) {
      if (KivIsMemoryUsedUp()) throw std::bad_alloc();
      Warn("The part " + InQuotes(csName) +
           " was left out, since it could not be tessellated: " + z.GetMessageString() + ".");
      return kNoSceneIndex;
    }
    const auto HasMesh = [](const KivSceneLevel& z) { return !z.m_vzFace.empty() || !z.m_vzEdge.empty(); };
    if (!std::all_of(zPart.m_vzLevel.begin(), zPart.m_vzLevel.end(), HasMesh) || zPart.m_vzLevel.empty()) {
      Warn("The part " + InQuotes(csName) + " has neither faces nor edges and was left out.");
      return kNoSceneIndex;
    }
    m_zScene.m_vzPart.push_back(std::move(zPart));
    return static_cast<uint32_t>(m_zScene.m_vzPart.size() - 1);
  }

  KivScenePart ReadPart(const TDF_Label& zLabel, const KivStepShape& zShape, const KivWString& csName) {
    KivScenePart zPart;
    zPart.m_csName = csName;
    zPart.m_bHasFaces = true;
    const PartStyles zStyles = StylesInside(zLabel, zShape, m_zStyles);
    for (const double dTolerance : m_vdTolerance) {
      KivSceneLevel& zLevel = zPart.m_vzLevel.emplace_back(KivMeshStepShape(zShape, dTolerance));
      for (KivSceneFace& zFace : zLevel.m_vzFace) {
        const Style& zStyle = zStyles.m_vzFace[zFace.m_iId - 1];
        zFace.m_fColour = zStyle.m_fColour;
        zFace.m_iLayer = zStyle.m_iLayer;
      }
      for (KivSceneEdge& zEdge : zLevel.m_vzEdge) {
        const Style& zStyle = zStyles.m_vzEdge[zEdge.m_iId - 1];
        zEdge.m_fColour = zStyle.m_fCurveColour ? zStyle.m_fCurveColour : zStyle.m_fColour;
        zEdge.m_iLayer = zStyle.m_iLayer;
      }
      const size_t nFaces = static_cast<size_t>(zShape.m_zFaces.Extent());
      WarnOfSome(csName, nFaces - zLevel.m_vzFace.size(), "faces could not be tessellated and were left out");
    }
    KivStepGeometry zGeometry = KivGetStepGeometry(zShape);
    zPart.m_vzGeometry = std::move(zGeometry.m_vzGeometry);
    WarnOfSome(csName, zGeometry.m_nFacesWithout, "faces have no exact geometry that can be kept");
    WarnOfSome(csName, zGeometry.m_nEdgesWithout, "edges have no exact geometry that can be kept");
    return zPart;
  }

  void WarnOfSome(const KivWString& csPart, uint64_t nSome, const char* szWhat) {
    if (nSome == 0) return;
    if (KivIsMemoryUsedUp()) throw std::bad_alloc();
    Warn("In the part " + InQuotes(csPart) + " " + std::to_string(nSome) + " " + szWhat + ".");
  }
  void Warn(std::string strWarning) {
    // The same holds for each level, and is told once.
    if (m_zScene.m_vstrWarning.empty() || m_zScene.m_vstrWarning.back() != strWarning)
      m_zScene.m_vstrWarning.push_back(std::move(strWarning));
  }

  Styles m_zStyles;
  std::vector<double> m_vdTolerance;
  KivScene& m_zScene;
  std::vector<TDF_Label> m_vzUpperPlace;     // from the root down to the node that is being filled
  std::map<std::string, uint32_t> m_viPart;  // by the label's entry
};

}  // namespace

void KivReadStep(const KivWString& csSource, const std::vector<double>& vdTolerance, KivScene& zScene) {
  for (const double d : vdTolerance)
    if (d < kLeastTolerance) throw KivSceneError("a STEP file takes no tolerance below 0.000001 millimetres");
  try {
    const Handle(TDocStd_Document) zDocument = ReadDocument(csSource, zScene);
    DocumentReader(zDocument, FileStem(csSource), vdTolerance, zScene);
    zDocument->Close();
  } catch (const Standard_OutOfMemory&) {
    throw std::bad_alloc();
  } catch (const Standard_Failure& z) {
    FailInLibrary(std::string("the STEP file cannot be read: ") + z.DynamicType()->Name() + " " + z.GetMessageString());
  }
}

}  // namespace kiv
