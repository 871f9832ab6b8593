// A whole model: building and saving it, opening it, its structure, and a walk that loads every element once; then
// one part of a million triangles, as one face and as 100,000; then layer queries in each of the four forms of a list.
//
//   usage: model_bench [instances] [nodes] [parts]      default: 100000 20000 2000
// CPU time, and the peak of memory of the process that builds and of the one that walks. The limit of active
// elements is the default.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <set>
#include <vector>

#include "KivContainerHeader.h"
#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivMeshTree.h"
#include "KivModelBuilder.h"
#include "KivTestModel.h"

namespace {

using namespace kiv;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "model_bench: %s\n", szWhat);
  std::exit(1);
}

template <typename Body>
double Seconds(Body&& body) {
  const std::clock_t tStart = std::clock();
  body();
  return static_cast<double>(std::clock() - tStart) / CLOCKS_PER_SEC;
}

double PeakMiB() {
  rusage zUsage{};
  getrusage(RUSAGE_SELF, &zUsage);
  return static_cast<double>(zUsage.ru_maxrss) / 1024;
}

void AddMesh(KivMemoryBlockFaceEdge& zMesh, uint32_t nFaces) {
  zMesh.m_fStep = 0.001f;
  for (uint32_t i = 0; i < nFaces; ++i) kivtest::AddRibbon(zMesh, 2, 1, static_cast<float>(i));
}

void Build(KivModelBuilder& z, size_t nInstances, size_t nNodes, size_t nParts) {
  for (size_t i = 0; i < nParts; ++i) {
    AddMesh(z.FaceEdge(z.AddPart(), 0), 6);
    KivBrepEntry& zEntry = z.Brep(i).AddGeometry(kBrepAnalyticKind);
    zEntry.m_vcGeometry.assign(50, 0);
  }
  z.AddNode(u"root");
  for (size_t i = 1; i < nNodes; ++i) z.AddNode(u"a node of the model", (i - 1) / 10);
  for (size_t i = 0; i < nNodes; i += 20) z.PMI(i).AddPMI();
  for (size_t i = 0; i < nInstances; ++i) {
    KivEMatrix4 zMatrix;
    zMatrix.Translate({static_cast<double>(i % 100), static_cast<double>(i / 100), 0});
    z.PlaceInstance(i % nParts, zMatrix, i % nNodes);
  }
}

void BigPart(uint32_t nFaces, uint32_t nTriangles) {
  const KivWString csPath = u"model_bench.kiv";
  KivModelBuilder zBuilder;
  kivtest::AddRibbons(zBuilder.FaceEdge(zBuilder.AddPart(), 0), nFaces, nTriangles, 1);
  zBuilder.FaceEdge(0, 0).m_fStep = 0.01f;
  zBuilder.PlaceInstance(0, KivEMatrix4(), zBuilder.AddNode(u"part"));
  const double dSave = Seconds([&] { Demand(zBuilder.Save(csPath), "not saved"); });
  KivModelStatusBase* pzModel = nullptr;
  KivMeshStatistics zStatistics;
  const double dLoad = Seconds([&] {
    Demand(KivDataSpaceBase::GetInstance()->AddModel(csPath, KivModelOpenInfo(), &pzModel) == KivAddModelResult::Done &&
               KivAddModelMeshes(pzModel->GetKey(), 0, zStatistics),
           "not loaded");
  });
  Demand(zStatistics.m_iNormalTri == int64_t{nFaces} * nTriangles, "another number of triangles");
  KivDataSpaceBase::GetInstance()->RemoveModel(pzModel);
  std::printf("part of %u faces of %u triangles: save %8.3f s, open and load %8.3f s\n", nFaces, nTriangles, dSave,
              dLoad);
}

void LayerQueries() {
  const struct {
    const char* m_szName;
    std::vector<uint32_t> m_viLayer;
  } azCase[] = {{"empty", {}}, {"list", {5, 9, 200}}, {"bit set", {1, 2, 3, 4, 100, 200, 256}}, {"set", {}}};
  for (const auto& zCase : azCase) {
    KivLayerFilterEntry zEntry;
    for (const uint32_t i : zCase.m_viLayer) zEntry.m_vzLayer.push_back({i, false});
    if (zCase.m_szName[0] == 's')
      for (uint32_t i = 0; i < 1000; ++i) zEntry.m_vzLayer.push_back({i * 7, false});
    KivLayerFilterLookup zLookup;
    zLookup.Build(&zEntry);
    std::set<uint32_t> siPeer;
    for (const KivLayer& zLayer : zEntry.m_vzLayer) siPeer.insert(zLayer.m_iLayer);
    constexpr uint32_t kQueries = 20000000;
    uint32_t iLayer = 1, nOn = 0, nPeer = 0;
    const double dOther = Seconds([&] {
      for (uint32_t i = 0; i < kQueries; ++i) {
        iLayer = iLayer * 1664525u + 1013904223u;
        nOn += zLookup.Query(true, iLayer >> 23);
      }
    });
    const double dSame = Seconds([&] {
      for (uint32_t i = 0; i < kQueries; ++i) {
        asm volatile("" : "+r"(iLayer));
        nOn += zLookup.Query(true, iLayer & 511);
      }
    });
    iLayer = 1;
    const double dPeer = Seconds([&] {
      for (uint32_t i = 0; i < kQueries; ++i) {
        iLayer = iLayer * 1664525u + 1013904223u;
        nPeer += siPeer.count(iLayer >> 23) == 0;
      }
    });
    Demand(nOn >= nPeer, "the lookup and its peer disagree");
    std::printf("layers, %-8s %8.1f million queries/s, the same layer again %8.1f, std::set %8.1f, ratio %5.2f\n",
                zCase.m_szName, kQueries / dOther / 1e6, kQueries / dSame / 1e6, kQueries / dPeer / 1e6,
                dPeer / dOther);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const auto Argument = [&](int i, size_t nDefault) {
    return argc > i ? static_cast<size_t>(std::atoll(argv[i])) : nDefault;
  };
  const size_t nInstances = Argument(1, 100000), nNodes = Argument(2, 20000), nParts = Argument(3, 2000);
  const KivWString csPath = u"model_bench.kiv";
  std::remove("model_bench.kiv");
  const auto Prepare = [] {
    Demand(KivRegisterOwnFormat(), "no format");
    KivRegisterElementClasses();
    KivOutOfCoreManager::SetOutOfCoreFileBase(u".");
  };
  // In a process of its own, so that its memory is not counted below.
  const pid_t iBuilder = fork();
  if (iBuilder == 0) {
    Prepare();
    auto pzBuilder = std::make_unique<KivModelBuilder>();
    const double dBuild = Seconds([&] { Build(*pzBuilder, nInstances, nNodes, nParts); });
    const double dSave = Seconds([&] { Demand(pzBuilder->Save(csPath), "not saved"); });
    std::printf("%zu instances, %zu nodes, %zu parts\n", nInstances, nNodes, nParts);
    std::printf("build %8.3f s, save %8.3f s, peak %7.1f MiB\n", dBuild, dSave, PeakMiB());
    std::fflush(stdout);
    _exit(0);
  }
  int iStatus = 1;
  Demand(iBuilder > 0 && waitpid(iBuilder, &iStatus, 0) == iBuilder && iStatus == 0, "not built");
  Prepare();
  {
    KivModelStatusBase* pzModel = nullptr;
    const double dOpen = Seconds([&] {
      Demand(KivDataSpaceBase::GetInstance()->AddModel(csPath, KivModelOpenInfo(), &pzModel) == KivAddModelResult::Done,
             "not opened");
    });
    const uint32_t iKey = pzModel->GetKey();
    const double dTree = Seconds([&] {
      KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
      Demand(pzTree != nullptr && pzTree->GetMemoryBlock() != nullptr &&
                 pzTree->GetMemoryBlock()->m_vzNode.size() == nNodes,
             "no tree");
    });
    for (int n = 0; n < 2; ++n) {
      size_t nElements = 0, nFound = 0;
      const double dWalk = Seconds([&] {
        Demand(KivWalkElements(iKey, {1, 2, 5, 7, 8, 11, 12, 13}, kAllLevels,
                               [&](KivOutOfCoreTreeNode& zElement) {
                                 ++nElements;
                                 if (zElement.GetElementType() != 2) return;
                                 nFound += static_cast<KivInstance&>(zElement).GetMemoryBlock()->m_vzInstance.size();
                               }),
               "not all elements can be loaded");
      });
      Demand(nFound == nInstances, "another number of instances");
      std::printf(
          "%s open %8.4f s, tree %8.4f s, walk %8.3f s: %zu elements, %.0f elements/s, %.0f instances/s, peak %7.1f "
          "MiB\n",
          n == 0 ? "first: " : "again: ", dOpen, dTree, dWalk, nElements, static_cast<double>(nElements) / dWalk,
          static_cast<double>(nInstances) / dWalk, PeakMiB());
    }
    KivDataSpaceBase::GetInstance()->RemoveModel(pzModel);
  }
  BigPart(1, 1000000);
  BigPart(100000, 10);
  LayerQueries();
  std::remove("model_bench.kiv");
  return 0;
}
