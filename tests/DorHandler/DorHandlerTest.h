// The handler in this process, asked by words.
#pragma once

#include <gtest/gtest.h>

#include "DorAnswerForm.h"
#include "DorClient.h"
#include "DorHandler.h"
#include "KivDataSpaceBase.h"
#include "KivElementWalk.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivTestFolder.h"
#include "KivTestMachine.h"

namespace kivtest {

class HandlerTest : public testing::Test {
 protected:
  HandlerTest() {
    EXPECT_TRUE(WriteMachine(Model()));
    EXPECT_EQ(Read(Model()), 0);
  }
  ~HandlerTest() override { Send(u"DorHandler_ClearModel", Payload({})); }

  kiv::KivWString Model() const { return m_zFolder / u"machine.kiv"; }
  static std::string Utf8(const kiv::KivWString& cs) { return kiv::sys::WideToUtf8(cs); }

  static kiv::KivByteBuffer Payload(const std::vector<int64_t>& vi) {
    kiv::KivByteBuffer vc;
    kiv::KivPutInt64(vc, 5);
    for (const int64_t i : vi) kiv::KivPutInt64(vc, i);
    return vc;
  }
  static kiv::KivByteBuffer Send(const kiv::KivWString& csRequest, const kiv::KivByteBuffer& vcPayload,
                                 int32_t* piStatus = nullptr) {
    int32_t iStatus = -7;
    kiv::KivByteBuffer vcResult;
    EXPECT_EQ(kiv::DorHandlerDispatch(csRequest, vcPayload, iStatus, vcResult), 0);
    if (piStatus != nullptr) *piStatus = iStatus;
    return vcResult;
  }
  static int32_t Read(const kiv::KivWString& csPath) {
    kiv::KivByteBuffer vc;
    kiv::KivPutInt64(vc, 5);
    kiv::KivPutString(vc, csPath);
    kiv::KivPutInt64(vc, 0);
    int32_t iStatus = -7;
    Send(u"DorHandler_ReadDor", vc, &iStatus);
    return iStatus;
  }
  // Every answer keeps to its form.
  static kiv::DorDecodedAnswer Ask(const std::string& strName, const std::vector<std::string>& vstrWords = {}) {
    const kiv::DorRequestRow* pzRow = kiv::DorFindRequest(kiv::sys::Utf8ToWide("DorHandler_" + strName));
    kiv::KivByteBuffer vcPayload;
    std::string strError;
    EXPECT_TRUE(kiv::DorBuildPayload(*pzRow, 5, vstrWords, vcPayload, strError)) << strError;
    kiv::DorDecodedAnswer zAnswer;
    int32_t iStatus = -7;
    EXPECT_TRUE(kiv::DorDecodeAnswer(*pzRow, Send(kiv::KivWString(pzRow->m_csName), vcPayload, &iStatus), zAnswer));
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(zAnswer.m_iCode != 0, !zAnswer.m_csReason.empty());
    return zAnswer;
  }
  static kiv::DorAnswerCode Code(const std::string& strName, const std::vector<std::string>& vstrWords = {}) {
    return static_cast<kiv::DorAnswerCode>(Ask(strName, vstrWords).m_iCode);
  }
  static std::string Reason(const std::string& strName, const std::vector<std::string>& vstrWords = {}) {
    return Utf8(Ask(strName, vstrWords).m_csReason);
  }
  static int64_t Int(const std::vector<kiv::DorValue>& vz, std::string_view strName) {
    const kiv::DorValue* pz = kiv::DorFindValue(vz, strName);
    return pz != nullptr && pz->m_viInteger.size() == 1 ? pz->m_viInteger[0] : -12345;
  }
  static std::vector<double> Floats(const std::vector<kiv::DorValue>& vz, std::string_view strName) {
    const kiv::DorValue* pz = kiv::DorFindValue(vz, strName);
    return pz != nullptr ? pz->m_vdFloat : std::vector<double>();
  }
  static std::string Text(const std::vector<kiv::DorValue>& vz, std::string_view strName) {
    const kiv::DorValue* pz = kiv::DorFindValue(vz, strName);
    return pz != nullptr ? Utf8(pz->m_csText) : "no such field";
  }
  static std::vector<std::vector<kiv::DorValue>> List(const std::vector<kiv::DorValue>& vz, std::string_view strName) {
    const kiv::DorValue* pz = kiv::DorFindValue(vz, strName);
    EXPECT_NE(pz, nullptr) << strName;
    std::vector<std::vector<kiv::DorValue>> vvzItem;
    for (size_t i = 0; pz != nullptr && i < pz->m_nItems; ++i) vvzItem.push_back(pz->Item(i));
    return vvzItem;
  }
  // Low and high corner in one; empty for no box.
  static std::vector<double> Box(const std::vector<kiv::DorValue>& vz) {
    std::vector<double> vd;
    for (const auto& vzItem : List(vz, "box"))
      for (const char* szCorner : {"low", "high"})
        for (const double d : Floats(vzItem, szCorner)) vd.push_back(d);
    return vd;
  }
  // The store of the open model.
  static uint32_t Key() {
    const auto& spModel = kiv::KivDataSpaceBase::GetInstance()->GetModels();
    EXPECT_EQ(spModel.size(), 1u);
    return spModel.empty() ? 0 : (*spModel.begin())->GetKey();
  }
  // Changes the block of an element behind the handler's back.
  template <typename Element, typename Change>
  static void Edit(uint64_t iKey, Change&& pfnChange) {
    kiv::DorChange z(Key());
    pfnChange(z.Edit<Element>(iKey));
    EXPECT_TRUE(z.Commit());
  }
  static uint64_t InstanceKey() { return kiv::KivGetModel(Key())->GetMemoryBlock()->m_zHeader.m_aiLink[1]; }
  // The mesh of an instance of the first element, by level.
  static uint64_t MeshKey(size_t iInstance, size_t iLevel) {
    auto* pz = kiv::KivOutOfCoreHandle(Key(), InstanceKey()).Fetch<kiv::KivInstance>();
    return pz->GetMemoryBlock()->m_vzInstance[iInstance].m_vzLevel[iLevel].m_iFaceEdgeKey;
  }
  // Opens what is open now from a file of its own.
  void ReadAgain() {
    const kiv::KivWString csPath = m_zFolder / (u"again" + kiv::sys::Utf8ToWide(std::to_string(m_nWritten++)));
    EXPECT_EQ(Code("WriteDor", {Utf8(csPath), "0", "0", "0", "0"}), kiv::DorAnswerCode::Done);
    EXPECT_EQ(Read(csPath), 0);
  }
  // The present state as the bytes of a file.
  std::string Written() {
    const kiv::KivWString csName = u"written" + kiv::sys::Utf8ToWide(std::to_string(m_nWritten++)) + u".kiv";
    EXPECT_EQ(Code("WriteDor", {Utf8(m_zFolder / csName), "0", "1", "0", "0"}), kiv::DorAnswerCode::Done);
    return m_zFolder.ReadBytes(csName);
  }
  // All that can be asked, as bytes.
  static kiv::KivByteBuffer State() {
    kiv::KivByteBuffer vcAll = Send(u"DorHandler_GetAsmTreeInfo", Payload({}));
    const auto Append = [&](const kiv::KivByteBuffer& vc) { vcAll.insert(vcAll.end(), vc.begin(), vc.end()); };
    for (int64_t iNode = 0; iNode < 5; ++iNode) Append(Send(u"DorHandler_GetAsmInfo", Payload({iNode})));
    for (int64_t iInstance = 0; iInstance < 3; ++iInstance)
      for (int64_t iFace = 1; iFace < 3; ++iFace) Append(Send(u"DorHandler_GetFaceInfo", Payload({iInstance, iFace})));
    return vcAll;
  }
  static std::vector<std::string> MatrixWords(const std::string& strNode, const std::vector<double>& vd) {
    std::vector<std::string> vstr{strNode};
    for (const double d : vd) vstr.push_back(std::to_string(d));
    return vstr;
  }
  static std::vector<double> Shift(double dX, double dY, double dZ) {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, dX, dY, dZ, 1};
  }

  TestFolder m_zFolder;
  int m_nWritten = 0;
};

}  // namespace kivtest
