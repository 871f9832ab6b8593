// The element with saved views of an assembly node and their groups, and the lookups that a view's lists of PMI and of
// layers give. docs/element_records.md has the record.
//
// Views and groups refer to one another by kind and number, not by keys; a camera holds no keys but its links.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "KivElement.h"
#include "KivLayerFilter.h"
#include "KivPMI.h"

namespace kiv {

constexpr uint32_t kPmiEntryKind = KivMemoryBlockPMI::kPMIKind;
constexpr uint32_t kLayerFilterEntryKind = KivMemoryBlockLayerFilter::kFilterKind;
constexpr uint32_t kViewKind = 10014;
constexpr uint32_t kViewGroupKind = 10015;

// Whether something is shown in a view.
struct KivViewShow {
  uint32_t m_iRef0 = 0;
  uint32_t m_iKind = 0;  // in the list of PMI kPmiEntryKind; carried in that of layers
  uint32_t m_iRef1 = 0;
  uint32_t m_iState = 0;  // 0 to 2; KivViewLookup takes 1 as shown and 2 as hidden
};

struct KivViewClip {
  std::array<std::array<double, 3>, 3> m_dClip{};
  std::array<bool, 2> m_bClipFlag{};
  std::array<uint32_t, 2> m_iClipData{};
};

struct KivViewSectionItem {
  uint32_t m_iSectionItem = 0;
  std::vector<uint32_t> m_viSectionItem;
};
struct KivViewSectionSubPart {
  std::array<uint64_t, 2> m_iSubPartData{};
  std::vector<std::array<uint64_t, 2>> m_vSubPartPair;
};
struct KivViewSectionPart {
  std::array<uint64_t, 3> m_iPartData{};
  uint32_t m_iPartValue = 0;
  std::vector<KivViewSectionSubPart> m_vSubPart;
};

// What has no comment is carried.
struct KivView {
  KivEntryFrame m_zFrame;
  uint32_t m_iViewMode = 0;  // 0 to 2
  uint32_t m_iViewType = 0;  // 0 to 2
  std::array<std::array<double, 3>, 3> m_dViewPoint{};
  std::array<double, 9> m_dViewValue{};
  bool m_bViewFlag0 = false;
  bool m_bViewFlag1 = true;     // from revision 2
  uint32_t m_iPMIShowMode = 0;  // 0 to 2
  std::vector<KivViewShow> m_vPMIShow;
  uint32_t m_iLayerShowMode = 0;  // 0 to 2
  std::vector<KivViewShow> m_vLayerShow;
  std::array<uint32_t, 2> m_iViewData{};
  std::vector<std::array<uint32_t, 5>> m_vViewRecord;
  std::vector<KivViewClip> m_vClip;   // a load empties both if m_bClipOn is false
  std::vector<uint8_t> m_vcClipByte;  // from revision 4
  uint32_t m_iClipValue = 0;          // from revision 4
  bool m_bClipOn = false;
  bool m_bSectionOn =
      false;  // from revision 3; one of the two forms of a section follows: the list, if it is not empty
  std::vector<KivViewSectionItem> m_vSectionList;
  std::array<double, 11> m_dSection{};
  uint32_t m_iSectionValue = 0;
  std::vector<KivViewSectionPart> m_vSectionPart;
  uint32_t m_iFilterRef0 = 0;
  uint32_t m_iFilterKind = kGapKind;  // kLayerFilterEntryKind, or kGapKind for none
  uint32_t m_iFilterRef1 = 0;
  uint32_t m_iGroupRef0 = 0;
  uint32_t m_iGroupKind = kGapKind;  // kViewGroupKind, or kGapKind for none
  std::array<uint32_t, 2> m_iGroupRef1{};
  KivWString m_strViewName;

  void Clear() { *this = KivView(); }
};

struct KivViewMember {
  uint32_t m_iMember0 = 0;
  uint32_t m_iMemberKind = kViewKind;  // or kViewGroupKind
  uint32_t m_iMember1 = 0;
};

struct KivViewGroup {
  KivEntryFrame m_zFrame;
  bool m_bGroupFlag = false;
  uint32_t m_iGroupValue = 0;
  uint32_t m_iParentKind = kGapKind;  // kViewGroupKind, or kGapKind for no parent
  uint32_t m_iParentRef = 0;
  std::vector<KivViewMember> m_vMember;
  uint32_t m_iGroupValue2 = 0;
  KivWString m_strGroupName;

  bool HasParent() const { return m_iParentKind == kViewGroupKind; }
  void Clear() { *this = KivViewGroup(); }
};

class KivMemoryBlockCamera : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 12;
  static constexpr char kSource[] = "src\\KivCamera";

  void Clear() {
    m_vzView.Clear();
    m_vzGroup.Clear();
  }
  // A new one, which is counted.
  KivView& AddView();
  KivViewGroup& AddGroup();

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kViewKinds[] = {kGapKind, kViewKind};
    static constexpr uint32_t kGroupKinds[] = {kGapKind, kViewGroupKind};
    uint32_t nViews = static_cast<uint32_t>(m_vzView.size());
    uint32_t nGroups = static_cast<uint32_t>(m_vzGroup.size());
    return zFields.FillTo(m_zHeader.m_iDataOffset) && zFields.Numbers(nViews) &&
           zFields.Entries(m_vzView, KivEntryCounting::All, nViews, kViewKinds,
                           [](auto& z, KivView& zView) { return VisitView(z, zView); }) &&
           zFields.Numbers(nGroups) &&
           zFields.Entries(m_vzGroup, KivEntryCounting::All, nGroups, kGroupKinds,
                           [](auto& z, KivViewGroup& zGroup) { return VisitGroup(z, zGroup); });
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzView);
    pfnList(m_vzGroup);
  }

  KivReusedList<KivView> m_vzView;
  KivReusedList<KivViewGroup> m_vzGroup;

 private:
  template <typename Fields>
  static bool VisitView(Fields& zFields, KivView& z) {
    return zFields.Numbers(z.m_iViewMode, z.m_iViewType) && zFields.Check(z.m_iViewMode <= 2 && z.m_iViewType <= 2) &&
           zFields.Numbers(z.m_dViewPoint, z.m_dViewValue) && zFields.Flag(z.m_bViewFlag0) &&
           (zFields.Format() < 2 || zFields.Flag(z.m_bViewFlag1)) &&
           VisitShow(zFields, z.m_iPMIShowMode, z.m_vPMIShow, true) &&
           VisitShow(zFields, z.m_iLayerShowMode, z.m_vLayerShow, false) && zFields.Numbers(z.m_iViewData) &&
           zFields.Items(z.m_vViewRecord, 20, [](auto& f, std::array<uint32_t, 5>& ai) { return f.Numbers(ai); }) &&
           VisitClips(zFields, z) && VisitSection(zFields, z) && zFields.Numbers(z.m_iFilterRef0, z.m_iFilterKind) &&
           zFields.Check(z.m_iFilterKind == kLayerFilterEntryKind || z.m_iFilterKind == kGapKind) &&
           zFields.Numbers(z.m_iFilterRef1, z.m_iGroupRef0, z.m_iGroupKind) &&
           zFields.Check(z.m_iGroupKind == kViewGroupKind || z.m_iGroupKind == kGapKind) &&
           zFields.Numbers(z.m_iGroupRef1) && zFields.Text(z.m_strViewName);
  }

  template <typename Fields>
  static bool VisitShow(Fields& zFields, uint32_t& iMode, std::vector<KivViewShow>& vShow, bool bPmi) {
    return zFields.Numbers(iMode) && zFields.Check(iMode <= 2) &&
           zFields.Items(vShow, 16, [bPmi](auto& f, KivViewShow& z) {
             return f.Numbers(z.m_iRef0, z.m_iKind, z.m_iRef1, z.m_iState) &&
                    f.Check((!bPmi || z.m_iKind == kPmiEntryKind) && z.m_iState <= 2);
           });
  }

  template <typename Fields>
  static bool VisitClips(Fields& zFields, KivView& z) {
    if (zFields.Format() >= 4) {
      if (!zFields.Items(z.m_vClip, 82,
                         [](auto& f, KivViewClip& zClip) {
                           return f.Numbers(zClip.m_dClip) && f.Flag(zClip.m_bClipFlag[0]) &&
                                  f.Flag(zClip.m_bClipFlag[1]) && f.Numbers(zClip.m_iClipData);
                         }) ||
          !zFields.Bytes(z.m_vcClipByte) || !zFields.Numbers(z.m_iClipValue))
        return false;
    } else {
      z.m_vClip.assign(1, KivViewClip());
      if (!zFields.Numbers(z.m_vClip[0].m_dClip)) return false;
    }
    if (!zFields.Flag(z.m_bClipOn)) return false;
    if constexpr (Fields::kReading) {
      if (!z.m_bClipOn) {
        z.m_vClip.clear();
        z.m_vcClipByte.clear();
      }
    }
    return true;
  }

  template <typename Fields>
  static bool VisitSection(Fields& zFields, KivView& z) {
    if (zFields.Format() < 3) return true;
    if (!zFields.Flag(z.m_bSectionOn)) return false;
    if (!z.m_bSectionOn) return true;
    if (!zFields.Items(z.m_vSectionList, 8, [](auto& f, KivViewSectionItem& zItem) {
          return f.Numbers(zItem.m_iSectionItem) && f.List(zItem.m_viSectionItem);
        }))
      return false;
    if (!z.m_vSectionList.empty()) return true;
    return zFields.Numbers(z.m_dSection, z.m_iSectionValue) &&
           zFields.Items(z.m_vSectionPart, 32, [](auto& f, KivViewSectionPart& zPart) {
             return f.Numbers(zPart.m_iPartData, zPart.m_iPartValue) &&
                    f.Items(zPart.m_vSubPart, 20, [](auto& g, KivViewSectionSubPart& zSub) {
                      return g.Numbers(zSub.m_iSubPartData) &&
                             g.Items(zSub.m_vSubPartPair, 16,
                                     [](auto& h, std::array<uint64_t, 2>& ai) { return h.Numbers(ai); });
                    });
           });
  }

  template <typename Fields>
  static bool VisitGroup(Fields& zFields, KivViewGroup& z) {
    return zFields.Flag(z.m_bGroupFlag) && zFields.Numbers(z.m_iGroupValue, z.m_iParentKind) &&
           zFields.Check(z.m_iParentKind == kViewGroupKind || z.m_iParentKind == kGapKind) &&
           zFields.Numbers(z.m_iParentRef) &&
           zFields.Items(
               z.m_vMember, 12,
               [](auto& f, KivViewMember& zMember) {
                 return f.Numbers(zMember.m_iMember0, zMember.m_iMemberKind, zMember.m_iMember1) &&
                        f.Check(zMember.m_iMemberKind == kViewKind || zMember.m_iMemberKind == kViewGroupKind);
               }) &&
           zFields.Numbers(z.m_iGroupValue2) && zFields.Text(z.m_strGroupName);
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockCamera>;
extern template class KivElement<KivMemoryBlockCamera>;

class KivCamera : public KivElement<KivMemoryBlockCamera> {
 public:
  using KivElement::KivElement;
};

// What a view shows of one list. The records with one m_iRef0 make one entry of the table, a lookup of its own with a
// memo of its own over their m_iRef1: state 1 lists it as on, 2 as off, 0 as neither.
class KivViewLookup {
 public:
  // False, after a report, without memory; the lookup is then as before.
  bool Build(uint32_t iMode, const std::vector<KivViewShow>& vShow);
  // An iRef0 without records is on in mode 1, off in mode 2, and bDefaultOn otherwise.
  bool Query(bool bDefaultOn, uint32_t iRef0, uint32_t iRef1);
  // The lookup of an iRef0; null if it has no records.
  const KivLayerFilterLookup* GetEntry(uint32_t iRef0) const;

 private:
  uint32_t m_iMode = 0;
  std::map<uint32_t, KivLayerFilterLookup> m_mapTable;
};

// Both lists of a view.
struct KivViewDisplay {
  explicit KivViewDisplay(const KivView& zView)
      : m_bWhole(m_zPMI.Build(zView.m_iPMIShowMode, zView.m_vPMIShow) &&
                 m_zLayer.Build(zView.m_iLayerShowMode, zView.m_vLayerShow)) {}

  KivViewLookup m_zPMI;
  KivViewLookup m_zLayer;
  bool m_bWhole;  // false, after a report, if there was no memory for both
};

}  // namespace kiv
