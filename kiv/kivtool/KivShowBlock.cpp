// The fields of each kind of block.
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivFieldPrinter.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivMemoryBlockPositionTable.h"
#include "KivModel.h"
#include "KivModelMeaning.h"
#include "KivModelNote.h"
#include "KivPMI.h"
#include "KivPermanentIdTable.h"
#include "KivPolyElemData.h"
#include "KivVertexData.h"

namespace kiv {
namespace {

// Prints the member m of z by its name.
#define SHOW(m) zPrinter.Field(#m, z.m)

using Printer = KivFieldPrinter;

void Show(const KivMemoryBlockModel& z, Printer& zPrinter) {
  SHOW(m_iModelValue);
  SHOW(m_fModelBoxMin);
  SHOW(m_fModelBoxMax);
}

void Show(const KivMemoryBlockModelNote& z, Printer& zPrinter) {
  SHOW(m_iParamSize);
  SHOW(m_iParam0);
  SHOW(m_iParam1);
  SHOW(m_iParam2);
  SHOW(m_iParam3);
  SHOW(m_iParam4);
  SHOW(m_iParam5);
  SHOW(m_iParam6);
  SHOW(m_iParam7);
  SHOW(m_dParam8);
  SHOW(m_dParam9);
  SHOW(m_dParam10);
  SHOW(m_dParam11);
  SHOW(m_dParam12);
  SHOW(m_dParam13);
  SHOW(m_dParam14);
  SHOW(m_iAssemblyKey);
  SHOW(m_iSecondKey);
  SHOW(m_dParam15);
  SHOW(m_iParam16);
  SHOW(m_vzAttribute);
}

void Show(const KivMemoryBlockAssemblyTree& zBlock, Printer& zPrinter) {
  zPrinter.Items("m_vzNode", zBlock.m_vzNode, [&](const KivAssemblyNode& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    SHOW(m_iNodeValue);
    SHOW(m_iPMIKey);
    SHOW(m_iLayerFilterKey);
    SHOW(m_iCameraKey);
    SHOW(m_iNodeData);
    SHOW(m_zMatrix);
    SHOW(m_fNodeBox);
    SHOW(m_iNodeState2);
    SHOW(m_iNodeType);
    SHOW(m_iNodeRef);
    SHOW(m_iNodeRef3);
    SHOW(m_viChildren);
    for (size_t i = 0; i < z.m_strNodeName.size(); ++i)
      zPrinter.Field(("m_strNodeName[" + std::to_string(i) + "]").c_str(), z.m_strNodeName[i]);
    SHOW(m_vzAttribute);
  });
}

void Show(const KivMemoryBlockInstance& zBlock, Printer& zPrinter) {
  zPrinter.Field("m_iInstanceValue", zBlock.m_iInstanceValue);
  zPrinter.Field("m_vfLevelTolerance", zBlock.m_vfLevelTolerance);
  zPrinter.Items("m_vzInstance", zBlock.m_vzInstance, [&](const KivInstanceEntry& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    SHOW(m_iInstanceData);
    zPrinter.Items("m_vzLevel", z.m_vzLevel, [&](const KivInstanceLevel& zLevel) {
      zPrinter.Field("m_iFaceEdgeKey", zLevel.m_iFaceEdgeKey);
      zPrinter.Field("m_iCommonKey", zLevel.m_iCommonKey);
      zPrinter.Field("m_iPolyElemKey", zLevel.m_iPolyElemKey);
      zPrinter.Field("m_iLevelValue", zLevel.m_iLevelValue);
      zPrinter.Field("m_iLevelKind", zLevel.m_iLevelKind);
      zPrinter.Field("m_vzAttribute", zLevel.m_vzAttribute);
    });
    SHOW(m_iBrepKey);
    SHOW(m_iVertexKey);
    SHOW(m_iVertexKey2);
    SHOW(m_iExtraKey);
    SHOW(m_iMatrixFlags);
    SHOW(m_iMatrixClass);
    SHOW(m_zMatrix);
    SHOW(m_fInstanceBox);
    SHOW(m_vzAttribute);
  });
}

template <typename Entry>
void ShowMeshEntry(const Entry& z, Printer& zPrinter) {
  SHOW(m_iValue0);
  SHOW(m_iValue1);
  SHOW(m_iId);
  SHOW(m_iValue3);
  SHOW(m_iDegenerate);
  SHOW(m_iVertexCount);
}

template <typename Block>
void ShowMesh(const Block& zMesh, Printer& zPrinter) {
  {
    const KivMemoryBlockFaceEdgeInterfaceData& z = zMesh;
    SHOW(m_iCoordWidth);
    zPrinter.Field("m_fOrigin", std::array<float, 3>{z.m_fOrigin[0], z.m_fOrigin[1], z.m_fOrigin[2]});
    SHOW(m_fStep);
    SHOW(m_iMeshFlags);
    SHOW(m_iMeshValue);
    SHOW(m_iDisplayValue);
  }
  zPrinter.Items("m_vzFace", zMesh.m_vzFace, [&](const auto& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    ShowMeshEntry(z, zPrinter);
    if constexpr (requires { z.m_bFlatNormals; }) SHOW(m_bFlatNormals);
    SHOW(m_iTriangleCount);
    SHOW(m_iIndexSize);
    SHOW(m_vfVertex);
    SHOW(m_vfNormal);
    SHOW(m_viIndex);
    SHOW(m_vzAttribute);
  });
  zPrinter.Items("m_vzEdge", zMesh.m_vzEdge, [&](const KivMeshEdge& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    ShowMeshEntry(z, zPrinter);
    SHOW(m_vfVertex);
    SHOW(m_vzAttribute);
  });
}

std::array<double, 3> Numbers(const KivECoord3& z) {
  return {z.m_dX, z.m_dY, z.m_dZ};
}

void ShowGeometry(const KivBrepEntry& zEntry, Printer& zPrinter) {
  KivBrepGeometry z;
  const bool bGood = KivDecodeBrepGeometry(zEntry.m_zFrame.m_iKind, zEntry.m_vcGeometry, z);
  zPrinter.Field("well_formed", bGood);
  if (!bGood) return;
  if (z.m_iKind == kBrepAnalyticKind) {
    SHOW(m_iAnalyticType);
    zPrinter.Field("m_zPoint", Numbers(z.m_zPoint));
    zPrinter.Field("m_zAxis", Numbers(z.m_zAxis));
    SHOW(m_dRadius);
    return;
  }
  SHOW(m_iOrder);
  SHOW(m_vdKnot);
  zPrinter.Items("m_vzPole", z.m_vzPole, [&](const KivECoord3& zPole) { zPrinter.Field("pole", Numbers(zPole)); });
  SHOW(m_vdWeight);
}

void Show(const KivMemoryBlockBrep& zBlock, Printer& zPrinter) {
  zPrinter.Field("m_iBrepValue", zBlock.m_iBrepValue);
  zPrinter.Items("m_vzGeometry", zBlock.m_vzGeometry, [&](const KivBrepEntry& z) {
    static constexpr const char* kUse[] = {"face", "edge", "surface row", "surface profile"};
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    SHOW(m_iGeometryId);
    const KivGeometryId zId = KivGeometryId::Unpack(z.m_iGeometryId);
    zPrinter.Field("describes",
                   zId.m_eUse <= KivGeometryUse::SurfaceProfile ? kUse[static_cast<size_t>(zId.m_eUse)] : "unknown");
    zPrinter.Field("of_id", zId.m_iId);
    zPrinter.Field("row", zId.m_iRow);
    SHOW(m_iGeometryZero);
    SHOW(m_vcGeometry);
    ShowGeometry(z, zPrinter);
    SHOW(m_vzAttribute);
  });
}

void Show(const KivMemoryBlockVertex& zBlock, Printer& zPrinter) {
  zPrinter.Field("m_iVertexValue", zBlock.m_iVertexValue);
  zPrinter.Items("m_vzVertex", zBlock.m_vzVertex, [&](const KivVertexEntry& z) {
    SHOW(m_iVertexData);
    SHOW(m_vzAttribute);
  });
}

void Show(const KivMemoryBlockPMI& zBlock, Printer& zPrinter) {
  zPrinter.Items("m_vzPMI", zBlock.m_vzPMI, [&](const KivPMIEntry& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    SHOW(m_iPMIType);
    SHOW(m_iPMISubType);
    SHOW(m_iPMIData);
    SHOW(m_iPMIData8);
    SHOW(m_viPMIInts);
    SHOW(m_viPMIRefs);
    SHOW(m_vcPMIBytes);
    SHOW(m_iPMIVector);
    SHOW(m_iPMIData9);
    SHOW(m_viPMIInts2);
    SHOW(m_viPMIInts3);
    zPrinter.Items("m_vTextBlock", z.m_vTextBlock, [&](const KivPMITextBlock& zText) {
      zPrinter.Items("m_vstrText", zText.m_vstrText, [&](const KivWString& cs) { zPrinter.Field("text", cs); });
      zPrinter.Field("m_iTextValue", zText.m_iTextValue);
      zPrinter.Field("m_iTextData", zText.m_iTextData);
      zPrinter.Field("m_acTextColour", zText.m_acTextColour);
      zPrinter.Field("m_vzAttribute", zText.m_vzAttribute);
    });
    zPrinter.Items("m_vPMITriple", z.m_vPMITriple,
                   [&](const std::array<uint32_t, 3>& ai) { zPrinter.Field("triple", ai); });
    SHOW(m_vzAttribute);
  });
}

void Show(const KivMemoryBlockPermanentIdTable& z, Printer& zPrinter) {
  zPrinter.Items("m_vstrPermanentId", z.m_vstrPermanentId, [&](const KivWString& cs) { zPrinter.Field("id", cs); });
}

void Show(const KivMemoryBlockLayerFilter& zBlock, Printer& zPrinter) {
  zPrinter.Items("m_vzFilter", zBlock.m_vzFilter, [&](const KivLayerFilterEntry& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    zPrinter.Items("m_vzLayer", z.m_vzLayer, [&](const KivLayer& zLayer) {
      zPrinter.Field("m_iLayer", zLayer.m_iLayer);
      zPrinter.Field("m_bOn", zLayer.m_bOn);
    });
    SHOW(m_iFilterValue);
    SHOW(m_strFilterName);
  });
}

void ShowSection(const KivView& z, Printer& zPrinter) {
  zPrinter.Items("m_vSectionList", z.m_vSectionList, [&](const KivViewSectionItem& zItem) {
    zPrinter.Field("m_iSectionItem", zItem.m_iSectionItem);
    zPrinter.Field("m_viSectionItem", zItem.m_viSectionItem);
  });
  SHOW(m_dSection);
  SHOW(m_iSectionValue);
  zPrinter.Items("m_vSectionPart", z.m_vSectionPart, [&](const KivViewSectionPart& zPart) {
    zPrinter.Field("m_iPartData", zPart.m_iPartData);
    zPrinter.Field("m_iPartValue", zPart.m_iPartValue);
    zPrinter.Items("m_vSubPart", zPart.m_vSubPart, [&](const KivViewSectionSubPart& zSub) {
      zPrinter.Field("m_iSubPartData", zSub.m_iSubPartData);
      zPrinter.Items("m_vSubPartPair", zSub.m_vSubPartPair,
                     [&](const std::array<uint64_t, 2>& ai) { zPrinter.Field("pair", ai); });
    });
  });
}

void ShowView(const KivView& z, Printer& zPrinter) {
  const auto ShowEntry = [&](const KivViewShow& zShow) {
    zPrinter.Field("m_iRef0", zShow.m_iRef0);
    zPrinter.Field("m_iKind", zShow.m_iKind);
    zPrinter.Field("m_iRef1", zShow.m_iRef1);
    zPrinter.Field("m_iState", zShow.m_iState);
  };
  SHOW(m_strViewName);
  SHOW(m_iViewMode);
  SHOW(m_iViewType);
  SHOW(m_dViewPoint);
  SHOW(m_dViewValue);
  SHOW(m_bViewFlag0);
  SHOW(m_bViewFlag1);
  SHOW(m_iPMIShowMode);
  zPrinter.Items("m_vPMIShow", z.m_vPMIShow, ShowEntry);
  SHOW(m_iLayerShowMode);
  zPrinter.Items("m_vLayerShow", z.m_vLayerShow, ShowEntry);
  SHOW(m_iViewData);
  zPrinter.Items("m_vViewRecord", z.m_vViewRecord,
                 [&](const std::array<uint32_t, 5>& ai) { zPrinter.Field("record", ai); });
  zPrinter.Items("m_vClip", z.m_vClip, [&](const KivViewClip& zClip) {
    zPrinter.Field("m_dClip", zClip.m_dClip);
    zPrinter.Field("m_bClipFlag", zClip.m_bClipFlag);
    zPrinter.Field("m_iClipData", zClip.m_iClipData);
  });
  SHOW(m_vcClipByte);
  SHOW(m_iClipValue);
  SHOW(m_bClipOn);
  SHOW(m_bSectionOn);
  if (z.m_bSectionOn) ShowSection(z, zPrinter);
  SHOW(m_iFilterRef0);
  SHOW(m_iFilterKind);
  SHOW(m_iFilterRef1);
  SHOW(m_iGroupRef0);
  SHOW(m_iGroupKind);
  SHOW(m_iGroupRef1);
}

void Show(const KivMemoryBlockCamera& zBlock, Printer& zPrinter) {
  zPrinter.Items("m_vzView", zBlock.m_vzView, [&](const KivView& z) {
    SHOW(m_zFrame);
    if (!z.m_zFrame.IsGap()) ShowView(z, zPrinter);
  });
  zPrinter.Items("m_vzGroup", zBlock.m_vzGroup, [&](const KivViewGroup& z) {
    SHOW(m_zFrame);
    if (z.m_zFrame.IsGap()) return;
    SHOW(m_strGroupName);
    SHOW(m_bGroupFlag);
    SHOW(m_iGroupValue);
    SHOW(m_iParentKind);
    SHOW(m_iParentRef);
    zPrinter.Items("m_vMember", z.m_vMember, [&](const KivViewMember& zMember) {
      zPrinter.Field("m_iMember0", zMember.m_iMember0);
      zPrinter.Field("m_iMemberKind", zMember.m_iMemberKind);
      zPrinter.Field("m_iMember1", zMember.m_iMember1);
    });
    SHOW(m_iGroupValue2);
  });
}

void Show(const KivMemoryBlockPositionTable& z, Printer& zPrinter) {
  SHOW(m_iPositionNum);
  const size_t nUsed = static_cast<size_t>(std::min<uint64_t>(z.m_iPositionNum, z.m_aiPosition.size()));
  zPrinter.Field("m_aiPosition",
                 std::vector<uint64_t>(z.m_aiPosition.begin(), z.m_aiPosition.begin() + static_cast<ptrdiff_t>(nUsed)));
}

void Show(const KivMemoryBlockFaceEdge& z, Printer& zPrinter) {
  ShowMesh(z, zPrinter);
}
void Show(const KivMemoryBlockPolyElem& z, Printer& zPrinter) {
  ShowMesh(z, zPrinter);
}

template <typename... Block>
void ShowAsOneOf(const KivMemoryBlock& zBlock, Printer& zPrinter) {
  const auto Try = [&](const auto* pzBlock) {
    if (pzBlock != nullptr) Show(*pzBlock, zPrinter);
    return pzBlock != nullptr;
  };
  (Try(dynamic_cast<const Block*>(&zBlock)) || ...);
}

}  // namespace

void KivShowBlock(const KivMemoryBlock& zBlock, KivFieldPrinter& zPrinter) {
  ShowAsOneOf<KivMemoryBlockModel, KivMemoryBlockModelNote, KivMemoryBlockAssemblyTree, KivMemoryBlockInstance,
              KivMemoryBlockFaceEdge, KivMemoryBlockPolyElem, KivMemoryBlockBrep, KivMemoryBlockVertex,
              KivMemoryBlockPMI, KivMemoryBlockPermanentIdTable, KivMemoryBlockLayerFilter, KivMemoryBlockCamera,
              KivMemoryBlockPositionTable>(zBlock, zPrinter);
}

}  // namespace kiv
