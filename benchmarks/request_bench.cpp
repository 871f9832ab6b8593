// Requests of the handler: how many a second through the relay, and the distance of two faces of 10,000 triangles
// beside the libraries called directly on the same triangles: Eigen's tree with a triangle in each leaf, and FCL.
//
// usage: request_bench [SECONDS_PER_CASE]
#include <fcl/geometry/bvh/BVH_model.h>
#include <fcl/narrowphase/distance.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <unsupported/Eigen/BVH>
#include <vector>

#include "DorAnswerText.h"
#include "DorFaceTree.h"
#include "KivContainerHeader.h"
#include "KivModelBuilder.h"
#include "KivSysClock.h"
#include "KivSysProcess.h"

using namespace kiv;

namespace {

double g_dSeconds = 2;
constexpr uint32_t kSide = 71;  // squares along a side: 10,082 triangles

void Check(bool bGood, const char* szWhat) {
  if (bGood) return;
  std::fprintf(stderr, "request_bench: %s failed\n", szWhat);
  std::exit(1);
}

// A wavy square of 100 x 100.
KivMeshFace& AddWaves(KivMemoryBlockFaceEdge& zMesh, uint32_t iId, uint32_t nSide, double dPhase) {
  KivMeshFace& z = zMesh.AddFace();
  z.m_iId = iId;
  for (uint32_t y = 0; y <= nSide; ++y)
    for (uint32_t x = 0; x <= nSide; ++x) {
      const double dX = 100.0 * x / nSide, dY = 100.0 * y / nSide;
      const double dZ = 3 * std::sin(dX / 7 + dPhase) * std::cos(dY / 5 - dPhase);
      z.m_vfVertex.insert(z.m_vfVertex.end(), {static_cast<float>(dX), static_cast<float>(dY), static_cast<float>(dZ)});
      z.m_vfNormal.insert(z.m_vfNormal.end(), {0, 0, 1});
    }
  for (uint32_t y = 0; y < nSide; ++y)
    for (uint32_t x = 0; x < nSide; ++x) {
      const uint32_t a = y * (nSide + 1) + x, b = a + nSide + 1;
      z.m_viIndex.insert(z.m_viIndex.end(), {a, a + 1, b + 1, a, b + 1, b});
    }
  z.m_iVertexCount = static_cast<uint32_t>(z.m_vfVertex.size() / 3);
  z.m_iTriangleCount = static_cast<uint32_t>(z.m_viIndex.size() / 3);
  return z;
}

KivEMatrix4 Turned(double dAngle, double dZ) {
  KivEMatrix4 z;
  z.RotateX(dAngle);
  z.RotateY(dAngle / 2);
  z.Translate({0, 0, dZ});
  return z;
}

const KivEMatrix4 kFirst = Turned(0, 0), kSecond = Turned(0.3, 60), kClose = Turned(0.02, 7);

void WriteModel(const KivWString& csPath) {
  KivRegisterOwnFormat();
  KivModelBuilder zBuilder;
  zBuilder.SetLevels({1.0f, 0.1f, 0.01f});
  const size_t iPart = zBuilder.AddPart();
  for (size_t iLevel = 0; iLevel < 3; ++iLevel) {
    KivMemoryBlockFaceEdge& zMesh = zBuilder.FaceEdge(iPart, iLevel);
    zMesh.m_fStep = 0.0001f;
    for (float& f : zMesh.m_fOrigin) f = -10;
    AddWaves(zMesh, 1, iLevel == 2 ? kSide : 6, 0);
    AddWaves(zMesh, 2, 4, 1);
  }
  const size_t iRoot = zBuilder.AddNode(u"root");
  size_t iName = 0;
  for (const KivEMatrix4& zMatrix : {kFirst, kSecond, kClose}) {
    const size_t iNode = zBuilder.AddNode(sys::Utf8ToWide("node " + std::to_string(++iName)), iRoot);
    zBuilder.Node(iNode).m_zMatrix = zMatrix;
    zBuilder.PlaceInstance(iPart, zMatrix, iNode);
  }
  Check(zBuilder.Save(csPath), "writing the model");
}

double Measure(const std::string& strName, const std::function<void()>& pfn) {
  std::vector<double> vd;
  const uint64_t iEnd = sys::SteadyNs() + static_cast<uint64_t>(g_dSeconds * 1e9);
  pfn();
  for (uint64_t iNow = sys::SteadyNs(); iNow < iEnd || vd.size() < 5;) {
    pfn();
    const uint64_t iThen = sys::SteadyNs();
    vd.push_back(static_cast<double>(iThen - iNow) / 1e3);
    iNow = iThen;
  }
  std::sort(vd.begin(), vd.end());
  const double dMedian = vd[vd.size() / 2];
  std::printf("%-58s median %11.1f us  p99 %11.1f us  %9.0f/s\n", strName.c_str(), dMedian, vd[vd.size() * 99 / 100],
              1e6 / dMedian);
  return dMedian;
}

std::vector<DorTriangle> Triangles(const KivEMatrix4& zMatrix) {
  KivMemoryBlockFaceEdge zMesh;
  const KivMeshFace& z = AddWaves(zMesh, 1, kSide, 0);
  std::vector<DorTriangle> vz;
  const auto At = [&](uint32_t i) {
    return zMatrix.TransformPoint(KivECoord3{z.m_vfVertex[3 * i], z.m_vfVertex[3 * i + 1], z.m_vfVertex[3 * i + 2]});
  };
  for (size_t i = 0; i < z.m_viIndex.size(); i += 3)
    vz.push_back({At(z.m_viIndex[i]), At(z.m_viIndex[i + 1]), At(z.m_viIndex[i + 2])});
  return vz;
}

// --- Eigen, as its documentation shows it ---------------------------------------------------------------------------

using Box = Eigen::AlignedBox3d;

struct EigenFace {
  explicit EigenFace(const std::vector<DorTriangle>& vz) : m_vz(vz) {
    std::vector<int> vi;
    for (const DorTriangle& z : vz) {
      Box zBox;
      for (const KivECoord3& p : z) zBox.extend(Eigen::Vector3d(p.m_dX, p.m_dY, p.m_dZ));
      vi.push_back(static_cast<int>(vi.size()));
      m_vzBox.push_back(zBox);
    }
    m_zTree.init(vi.begin(), vi.end(), m_vzBox.begin(), m_vzBox.end());
  }
  const std::vector<DorTriangle>& m_vz;
  std::vector<Box> m_vzBox;
  Eigen::KdBVH<double, 3, int> m_zTree;
};

struct EigenMinimum {
  using Scalar = double;
  double minimumOnVolumeVolume(const Box& a, const Box& b) { return a.squaredExteriorDistance(b); }
  double minimumOnVolumeObject(const Box& a, int b) { return a.squaredExteriorDistance(m_zSecond.m_vzBox[At(b)]); }
  double minimumOnObjectVolume(int a, const Box& b) { return b.squaredExteriorDistance(m_zFirst.m_vzBox[At(a)]); }
  double minimumOnObjectObject(int a, int b) {
    return DorNearestOfTriangles(m_zFirst.m_vz[At(a)], m_zSecond.m_vz[At(b)]).m_dSquared;
  }
  static size_t At(int i) { return static_cast<size_t>(i); }
  const EigenFace& m_zFirst;
  const EigenFace& m_zSecond;
};

// --- FCL ------------------------------------------------------------------------------------------------------------

using FclModel = fcl::BVHModel<fcl::OBBRSSd>;

std::shared_ptr<FclModel> FclOf(const std::vector<DorTriangle>& vz) {
  auto pz = std::make_shared<FclModel>();
  const auto At = [](const KivECoord3& p) { return fcl::Vector3d(p.m_dX, p.m_dY, p.m_dZ); };
  pz->beginModel();
  for (const DorTriangle& z : vz) pz->addTriangle(At(z[0]), At(z[1]), At(z[2]));
  pz->endModel();
  return pz;
}

void CompareDistances(const char* szName, const std::vector<DorTriangle>& vzA, const std::vector<DorTriangle>& vzB) {
  double dOurs = 0, dEigen = 0, dFcl = 0;
  const DorFaceTree zA(vzA), zB(vzB);
  const double dOursUs =
      Measure(std::string(szName) + ", our tree, direct", [&] { dOurs = std::sqrt(zA.NearestTo(zB).m_dSquared); });
  const EigenFace zEigenA(vzA), zEigenB(vzB);
  const double dEigenUs = Measure(std::string(szName) + ", Eigen's tree, direct", [&] {
    EigenMinimum z{zEigenA, zEigenB};
    dEigen = std::sqrt(Eigen::BVMinimize(zEigenA.m_zTree, zEigenB.m_zTree, z));
  });
  fcl::CollisionObjectd zFclA(FclOf(vzA)), zFclB(FclOf(vzB));
  const double dFclUs = Measure(std::string(szName) + ", FCL (OBBRSS), direct", [&] {
    fcl::DistanceRequestd zRequest(true);
    fcl::DistanceResultd zResult;
    dFcl = fcl::distance(&zFclA, &zFclB, zRequest, zResult);
  });
  std::printf("    distances %.9f, %.9f, %.9f; Eigen/ours %.2f, FCL/ours %.2f\n", dOurs, dEigen, dFcl,
              dEigenUs / dOursUs, dFclUs / dOursUs);
  Check(std::abs(dOurs - dEigen) < 1e-9 && std::abs(dOurs - dFcl) < 1e-6, "agreement of the distances");
}

void MeasureBuild(const std::vector<DorTriangle>& vz) {
  Measure("tree of 10,082 triangles, ours", [&] { const DorFaceTree z(vz); });
  Measure("tree of 10,082 triangles, Eigen", [&] { const EigenFace z(vz); });
  Measure("tree of 10,082 triangles, FCL (OBBRSS)", [&] { FclOf(vz); });
}

}  // namespace

int main(int nArguments, char** apszArgument) {
  if (nArguments > 1) g_dSeconds = std::atof(apszArgument[1]);
  const std::filesystem::path zModel =
      std::filesystem::temp_directory_path() / ("request_bench" + std::to_string(sys::CurrentProcessNumber()) + ".kiv");
  WriteModel(zModel.u16string());
  {
    DorClientOptions zOptions;
    zOptions.m_csRelay = sys::Utf8ToWide(KIV_BENCH_RELAY);
    DorClient zClient(zOptions);
    const int64_t iModel = zClient.Open(zModel.u16string());
    const auto Request = [&](const char* szName, const std::vector<std::string>& vstrWords) {
      const DorRequestRow* pzRow = DorFindCallable(szName);
      KivByteBuffer vcPayload, vcResult;
      std::string strError;
      Check(DorBuildPayload(*pzRow, iModel, vstrWords, vcPayload, strError), "a payload");
      const KivWString csName(pzRow->m_csName);
      std::string strAll = szName;
      for (const std::string& strWord : vstrWords) strAll += " " + strWord;
      Measure(strAll + ", through the relay", [&] {
        Check(zClient.CallUnchecked(csName, vcPayload, vcResult) == 0 && vcResult.size() >= 8 && vcResult[0] == 0,
              "a request");
      });
    };
    Request("DoNothing", {});
    Request("GetFaceInfo", {"0", "2"});
    Request("GetFaceInfo", {"0", "1"});
    Request("CalcDistFaceFace", {"0", "1", "1", "1", "0", "0,0,0"});
    Request("CalcDistFaceFace", {"0", "1", "2", "1", "0", "0,0,0"});
    zClient.Clear(iModel);
    zClient.Close();
  }
  std::filesystem::remove(zModel);
  const std::vector<DorTriangle> vzFirst = Triangles(kFirst);
  MeasureBuild(vzFirst);
  CompareDistances("faces 60 apart, turned", vzFirst, Triangles(kSecond));
  CompareDistances("faces close, nearly parallel", vzFirst, Triangles(kClose));
  return 0;
}
