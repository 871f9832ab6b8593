#include "DorRequests.h"

namespace kiv {
namespace {

constexpr DorRequestRow kRows[] = {
    {u"DorHandler_ReadDor", DorRequestFamily::Open, "s"},
    {u"DorHandler_ClearModel", DorRequestFamily::Close, "m"},
    {u"DorHandler_WriteDor", DorRequestFamily::Forward, "msiiii", DorReadFailure::CodePerField},
    {u"DorHandler_DelAsmInfo", DorRequestFamily::Refused, ""},
    {u"DorHandler_CopyAsm", DorRequestFamily::Refused, ""},
    {u"DorHandler_CompareFace", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetFaceRadius", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetEdgeRadius", DorRequestFamily::Refused, ""},
    {u"DorHandler_SaveCurShapShot", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetAsmTreeInfo", DorRequestFamily::Forward, "m"},
    {u"DorHandler_DeletePartComponent", DorRequestFamily::Forward, "mi"},
    {u"DorHandler_SetInstPathPartMatrix", DorRequestFamily::Forward, "miffffffffffffffff"},
    {u"DorHandler_SnapShot", DorRequestFamily::Forward, "m"},
    {u"DorHandler_Undo", DorRequestFamily::Forward, "mi"},
    {u"DorHandler_Redo", DorRequestFamily::Forward, "mi"},
    {u"DorHandler_GetAsmInfo", DorRequestFamily::Forward, "mi"},
    {u"DorHandler_GetFaceInfo", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_GetEdgeInfo", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_SetAsmInfo", DorRequestFamily::Forward, "mis"},
    {u"DorHandler_SetFaceInfo", DorRequestFamily::Forward, "miiffff"},
    {u"DorHandler_SetEdgeInfo", DorRequestFamily::Forward, "miiffff"},
    {u"DorHandler_DelFaceInfo", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_DelEdgeInfo", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_GetPointOnFace", DorRequestFamily::Forward, "miic"},
    {u"DorHandler_GetPointOnEdge", DorRequestFamily::Forward, "miic"},
    {u"DorHandler_GetPointOnCurve", DorRequestFamily::Forward, "miick"},
    {u"DorHandler_PickOneElement", DorRequestFamily::Forward, "mt"},
    {u"DorHandler_IsPlanarFace", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_GetFilletIntCurve", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_IsLinearEdge", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_IsLinearCurve", DorRequestFamily::Forward, "miik"},
    {u"DorHandler_FindEdgeCloserVertex", DorRequestFamily::Forward, "miicf"},
    {u"DorHandler_IsRevolutionFace", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_CalcDistVertexVertex", DorRequestFamily::Forward, "miiii"},
    {u"DorHandler_CalcDistVertexEdge", DorRequestFamily::Forward, "miiiiic"},
    {u"DorHandler_CalcDistVertexCurve", DorRequestFamily::Forward, "miiiiick"},
    {u"DorHandler_CalcDistVertexFace", DorRequestFamily::Forward, "miiiiic"},
    {u"DorHandler_CalcDistEdgeEdge", DorRequestFamily::Forward, "miiiiic"},
    {u"DorHandler_CalcDistCurveEdge", DorRequestFamily::Forward, "miiiiicn"},
    {u"DorHandler_CalcDistEdgeFace", DorRequestFamily::Forward, "miiiiic"},
    {u"DorHandler_CalcDistCurveFace", DorRequestFamily::Forward, "miiiiick"},
    {u"DorHandler_CalcDistFaceFace", DorRequestFamily::Forward, "miiiiic"},
    {u"DorHandler_IsParallelLinearEdge", DorRequestFamily::Forward, "miiii"},
    {u"DorHandler_IsParallelLinearCurve", DorRequestFamily::Forward, "miiiin"},
    {u"DorHandler_IsParallelPlanarFace", DorRequestFamily::Forward, "miiii"},
    {u"DorHandler_CalcAngleThreeVertices", DorRequestFamily::Forward, "mccc", DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAngleLinearEdgeLinearEdge", DorRequestFamily::Forward, "mcccc", DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAngleLinearEdgePlanarFace", DorRequestFamily::Forward, "mcccc", DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAnglePlanarFaceLinearEdge", DorRequestFamily::Forward, "mcccc", DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAnglePlanarFacePlanarFace", DorRequestFamily::Forward, "mcccc", DorReadFailure::TenForFloats},
    {u"DorHandler_CalcDraftAngle", DorRequestFamily::Forward, "miicc", DorReadFailure::TenForFloats},
    {u"DorHandler_DoNothing", DorRequestFamily::Forward, "m"},
};

}  // namespace

std::span<const DorRequestRow> DorRequestTable() {
  return kRows;
}

const DorRequestRow* DorFindRequest(KivWStringView csName) {
  for (const DorRequestRow& zRow : kRows)
    if (zRow.m_csName == csName) return &zRow;
  return nullptr;
}

}  // namespace kiv
