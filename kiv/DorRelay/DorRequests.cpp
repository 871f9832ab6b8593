#include "DorRequests.h"

#include "KivLittleEndian.h"

namespace kiv {
namespace {

constexpr DorRequestRow kRows[] = {
    {u"DorHandler_ReadDor", DorRequestFamily::Open, "s", "s path", nullptr},
    {u"DorHandler_ClearModel", DorRequestFamily::Close, "m", "", nullptr},
    {u"DorHandler_WriteDor", DorRequestFamily::Forward, "msiiii", "s path, i overwrite, i verify, 2 i reserved",
     "i bytes", DorReadFailure::CodePerField},
    {u"DorHandler_DelAsmInfo", DorRequestFamily::Refused, ""},
    {u"DorHandler_CopyAsm", DorRequestFamily::Refused, ""},
    {u"DorHandler_CompareFace", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetFaceRadius", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetEdgeRadius", DorRequestFamily::Refused, ""},
    {u"DorHandler_SaveCurShapShot", DorRequestFamily::Refused, ""},
    {u"DorHandler_GetAsmTreeInfo", DorRequestFamily::Forward, "m", "",
     "s path, f unit, list box (c low, c high), i instances, i parts, list nodes (i node, i parent, i type, s name, s "
     "part, 16 f matrix, list box (c low, c high), i marks, list places (i instance, i part))"},
    {u"DorHandler_DeletePartComponent", DorRequestFamily::Forward, "mi"},
    {u"DorHandler_SetInstPathPartMatrix", DorRequestFamily::Forward, "miffffffffffffffff", "i node, 16 f matrix",
     "i instances"},
    {u"DorHandler_SnapShot", DorRequestFamily::Forward, "m", "", "i undo_steps, i redo_steps"},
    {u"DorHandler_Undo", DorRequestFamily::Forward, "mi", "i steps", "i steps_done, i undo_steps, i redo_steps"},
    {u"DorHandler_Redo", DorRequestFamily::Forward, "mi", "i steps", "i steps_done, i undo_steps, i redo_steps"},
    {u"DorHandler_GetAsmInfo", DorRequestFamily::Forward, "mi", "i node",
     "i node, i parent, i type, s name, s part, s text, 16 f matrix, 16 f absolute, list box (c low, c high), i marks, "
     "list colour (4 f rgba), list layer (i layer), list children (i node), list places (i instance, i part, 16 f "
     "matrix, list box (c low, c high), list levels (f tolerance, i triangles), list faces (i face), list edges (i "
     "edge))"},
    {u"DorHandler_GetFaceInfo", DorRequestFamily::Forward, "mii", "i instance, i face",
     "i part, list box (c low, c high), f area, list levels (f tolerance, i vertices, i triangles), list colour (4 f "
     "rgba), list layer (i layer), list analytic (i type, c point, c axis, f radius), list nurbs (i order_1, list "
     "knots_1 (f knot), i order_2, list knots_2 (f knot), i rows, list poles (c pole, f weight))"},
    {u"DorHandler_GetEdgeInfo", DorRequestFamily::Forward, "mii", "i instance, i edge",
     "i part, list box (c low, c high), f length, list levels (f tolerance, i points), list colour (4 f rgba), list "
     "layer (i layer), list analytic (i type, c point, c axis, f radius), list nurbs (i order, list knots (f knot), "
     "list poles (c pole, f weight))"},
    {u"DorHandler_SetAsmInfo", DorRequestFamily::Forward, "mis", "i node, s name", ""},
    {u"DorHandler_SetFaceInfo", DorRequestFamily::Forward, "miiffff", "i instance, i face, 4 f rgba", "i instances"},
    {u"DorHandler_SetEdgeInfo", DorRequestFamily::Forward, "miiffff"},
    {u"DorHandler_DelFaceInfo", DorRequestFamily::Forward, "mii", "i instance, i face", "i instances"},
    {u"DorHandler_DelEdgeInfo", DorRequestFamily::Forward, "mii"},
    {u"DorHandler_GetPointOnFace", DorRequestFamily::Forward, "miic"},
    {u"DorHandler_GetPointOnEdge", DorRequestFamily::Forward, "miic"},
    {u"DorHandler_GetPointOnCurve", DorRequestFamily::Forward, "miick"},
    {u"DorHandler_PickOneElement", DorRequestFamily::Forward, "mt"},
    {u"DorHandler_IsPlanarFace", DorRequestFamily::Forward, "mii", "i instance, i face",
     "i planar, i exact, c point, c normal, f deviation"},
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
    {u"DorHandler_CalcDistFaceFace", DorRequestFamily::Forward, "miiiiic",
     "i instance_1, i face_1, i instance_2, i face_2, i option, c reserved",
     "f distance, c point_1, c point_2, i triangles_1, i triangles_2"},
    {u"DorHandler_IsParallelLinearEdge", DorRequestFamily::Forward, "miiii"},
    {u"DorHandler_IsParallelLinearCurve", DorRequestFamily::Forward, "miiiin"},
    {u"DorHandler_IsParallelPlanarFace", DorRequestFamily::Forward, "miiii"},
    {u"DorHandler_CalcAngleThreeVertices", DorRequestFamily::Forward, "mccc", nullptr, nullptr,
     DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAngleLinearEdgeLinearEdge", DorRequestFamily::Forward, "mcccc", nullptr, nullptr,
     DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAngleLinearEdgePlanarFace", DorRequestFamily::Forward, "mcccc", nullptr, nullptr,
     DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAnglePlanarFaceLinearEdge", DorRequestFamily::Forward, "mcccc", nullptr, nullptr,
     DorReadFailure::TenForFloats},
    {u"DorHandler_CalcAnglePlanarFacePlanarFace", DorRequestFamily::Forward, "mcccc", nullptr, nullptr,
     DorReadFailure::TenForFloats},
    {u"DorHandler_CalcDraftAngle", DorRequestFamily::Forward, "miicc", nullptr, nullptr, DorReadFailure::TenForFloats},
    {u"DorHandler_DoNothing", DorRequestFamily::Forward, "m", "", ""},
};

// Walks over the fields of a payload, which stays as it is.
class FormWalk {
 public:
  explicit FormWalk(const KivByteBuffer& vcPayload) : m_vcPayload(vcPayload) {}

  bool IsAtEnd() const { return m_iCursor == m_vcPayload.size(); }
  bool HasZero() const { return m_bZero; }

  bool Pass(char cKind) {
    int64_t iValue = 0;
    switch (cKind) {
      case 'm':
      case 'i':
      case 'f':
        return Integer(iValue);
      case 'c':
        return Skip(24);
      case 's':
        return Integer(iValue) && iValue >= 0 && static_cast<uint64_t>(iValue) <= Left() / 2 &&
               Text(static_cast<uint64_t>(iValue));
      case 'k':
        return Curve();
      case 'n': {
        int64_t nCurves = 0;
        if (!Integer(nCurves) || (nCurves != 1 && nCurves != 2)) return false;
        return Curve() && (nCurves == 1 || Curve());
      }
      case 't':
        return Skip(Left());
      default:
        return false;
    }
  }

 private:
  uint64_t Left() const { return m_vcPayload.size() - m_iCursor; }

  bool Skip(uint64_t nBytes) {
    if (nBytes > Left()) return false;
    m_iCursor += nBytes;
    return true;
  }
  bool Integer(int64_t& iValue) {
    if (Left() < sizeof iValue) return false;
    iValue = KivLoad<int64_t>(m_vcPayload.data() + m_iCursor);
    return Skip(sizeof iValue);
  }
  bool Text(uint64_t nUnits) {
    const uint8_t* p = m_vcPayload.data() + m_iCursor;
    for (uint64_t i = 0; i < nUnits && !m_bZero; ++i) m_bZero = KivLoad<char16_t>(p + 2 * i) == 0;
    return Skip(nUnits * 2);
  }
  bool Curve() {
    int64_t iKind = 0, iSize = 0, iOwnSize = 0;
    if (!Integer(iKind)) return false;
    if (iKind == 0) return Skip(48);
    return iKind == 1 && Integer(iSize) && iSize >= 1 && Integer(iOwnSize) && iOwnSize == iSize &&
           Skip(static_cast<uint64_t>(iSize));
  }

  const KivByteBuffer& m_vcPayload;
  uint64_t m_iCursor = 0;
  bool m_bZero = false;  // in a text that was passed
};

}  // namespace

const char* DorAnswerCodeText(int64_t iCode) {
  static constexpr const char* kTexts[] = {
      "done",         "not offered",      "no model",        "bad payload",     "failed",
      "unknown node", "unknown instance", "unknown face",    "unknown edge",    "not a number",
      "bad matrix",   "bad argument",     "nothing to undo", "nothing to redo", "damaged",
      "no mesh",      "not editable",     "bad path",        "would overwrite", "own file",
      "cannot write"};
  return iCode >= 0 && static_cast<uint64_t>(iCode) < std::size(kTexts) ? kTexts[iCode] : "unknown code";
}

std::span<const DorRequestRow> DorRequestTable() {
  return kRows;
}

const DorRequestRow* DorFindRequest(KivWStringView csName) {
  for (const DorRequestRow& zRow : kRows)
    if (zRow.m_csName == csName) return &zRow;
  return nullptr;
}

bool DorFitsForm(const DorRequestRow& zRow, const KivByteBuffer& vcPayload) {
  FormWalk zWalk(vcPayload);
  for (const char* p = zRow.m_szForm; *p != '\0'; ++p)
    if (!zWalk.Pass(*p)) return false;
  return zWalk.IsAtEnd();
}

bool DorHasZeroInText(const DorRequestRow& zRow, const KivByteBuffer& vcPayload) {
  FormWalk zWalk(vcPayload);
  for (const char* p = zRow.m_szForm; *p != '\0' && zWalk.Pass(*p); ++p) {
  }
  return zWalk.HasZero();
}

}  // namespace kiv
