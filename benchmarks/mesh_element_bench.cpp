// Mesh elements through the store: a load and a save of one record, beside the codec alone on the same streams and
// beside memcpy of the decoded data.
//
//   usage: mesh_element_bench [triangles...]      default: 10000 1000000
// Milliseconds of CPU time, best of several runs. "raw": the record's bytes are kept beside the element; "file": they
// are fetched each time; "first": the same with lists that have no memory yet.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "KivContainerHeader.h"
#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivElementClasses.h"
#include "KivFaceEdgeData.h"
#include "KivOutOfCoreHandle.h"
#include "MeshSamples.h"

namespace {

using namespace kiv;

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "mesh_element_bench: %s\n", szWhat);
  std::exit(1);
}

// Prepare, which is not timed, and body in turn.
template <typename Prepare, typename Body>
double FastestMilliseconds(Prepare&& prepare, Body&& body) {
  double dBest = 1e9, dTotal = 0;
  for (int i = 0; i < 5 || (i < 200 && dTotal < 1000); ++i) {
    prepare();
    const std::clock_t iStart = std::clock();
    body();
    const double d = 1000.0 * static_cast<double>(std::clock() - iStart) / CLOCKS_PER_SEC;
    dBest = std::min(dBest, d);
    dTotal += d;
  }
  return dBest;
}

template <typename Body>
double FastestMilliseconds(Body&& body) {
  return FastestMilliseconds([] {}, body);
}

void Fill(KivMemoryBlockFaceEdge& zBlock, const std::vector<bench::Mesh>& vzMesh, uint32_t iFlags) {
  zBlock.m_fStep = 1.0f / 16384;
  zBlock.m_iCoordWidth = 2;
  zBlock.m_iMeshFlags = iFlags;
  zBlock.m_zHeader.m_afBoxMin = {-2, -2, -2};
  zBlock.m_zHeader.m_afBoxMax = {3, 3, 3};
  for (float& f : zBlock.m_fOrigin) f = -2;
  for (const bench::Mesh& zMesh : vzMesh) {
    KivMeshFace& z = zBlock.AddFace();
    z.m_iVertexCount = static_cast<uint32_t>(zMesh.Vertices());
    z.m_iTriangleCount = static_cast<uint32_t>(zMesh.Triangles());
    z.m_iIndexSize = zMesh.Vertices() <= 256 ? 1 : zMesh.Vertices() <= 65536 ? 2 : 4;
    z.m_vfVertex = zMesh.m_vfVertex;
    z.m_vfNormal = zMesh.m_vfNormal;
    z.m_viIndex = zMesh.m_viIndex;
  }
  zBlock.m_zHeader.m_iEntryCount = static_cast<uint32_t>(vzMesh.size());
}

void Measure(const char* szName, const std::vector<bench::Mesh>& vzMesh, uint32_t iFlags, uint32_t iKey) {
  auto pzNew = std::make_unique<KivFaceEdgeData>(iKey);
  KivMemoryBlockFaceEdge* pzBlock = pzNew->GetMemoryBlockForWrite();
  Demand(pzBlock != nullptr, "no block");
  Fill(*pzBlock, vzMesh, iFlags);
  KivOutOfCoreHandle zHandle = KivStoreNewElement(std::move(pzNew));
  auto* pz = zHandle.Fetch<KivFaceEdgeData>();
  Demand(pz != nullptr && pz->GetMemoryBlock() != nullptr, "the element is not stored");

  size_t nTriangles = 0, nOutput = 0;
  for (const bench::Mesh& zMesh : vzMesh) {
    nTriangles += zMesh.Triangles();
    nOutput += zMesh.OutputBytes();
  }
  std::vector<uint8_t> vcRecord(pz->GetDataSize());
  Demand(pz->ReadData(vcRecord.data(), vcRecord.size()), "the record is not read");
  auto pzParsed = std::make_unique<KivMemoryBlockFaceEdge>();
  KivMeshFlags zFlags;
  const auto Parse = [&] {
    Demand(KivReadElement(std::span<const uint8_t>(vcRecord), false, false, *pzParsed, zFlags), "not parsed");
  };
  const double dFirst =
      FastestMilliseconds([&] { (pzParsed.reset(), pzParsed = std::make_unique<KivMemoryBlockFaceEdge>()); }, Parse);
  const double dParse = FastestMilliseconds(Parse);
  const double dRaw = FastestMilliseconds([&] { Demand(pz->Load(false), "not loaded"); });
  KivDataSpaceBase::GetInstance()->SetKeepRawData(0);
  const double dFile = FastestMilliseconds([&] { Demand(pz->Load(false), "not loaded"); });
  KivDataSpaceBase::GetInstance()->SetKeepRawData(1);
  const double dSave = FastestMilliseconds([&] { Demand(pz->Save(false), "not saved"); });
  std::vector<uint8_t> vcFrom(nOutput, 1), vcTo(nOutput);
  const double dCopy = FastestMilliseconds([&] {
    std::memcpy(vcTo.data(), vcFrom.data(), nOutput);
    asm volatile("" : : "g"(vcTo.data()) : "memory");
  });
  std::printf("%-28s %9zu %7zu %6.1f | %8.2f %8.2f %8.2f %8.2f | %8.2f | %8.2f %6.2f\n", szName, nTriangles,
              vzMesh.size(), static_cast<double>(vcRecord.size()) / static_cast<double>(nTriangles), dRaw, dFile,
              dParse, dFirst, dSave, dCopy, dCopy / dRaw);
  Demand(zHandle.Delete(), "not deleted");
}

}  // namespace

int main(int argc, char** argv) {
  Demand(KivRegisterOwnFormat(), "no format");
  KivRegisterElementClasses();
  KivOutOfCoreManager::SetOutOfCoreFileBase(u".");
  const KivOutOfCoreManagerKeyOwner zOwner{KivStoreSource()};
  Demand(zOwner.GetManager() != nullptr, "no store");
  std::vector<size_t> vnTriangles;
  for (int i = 1; i < argc; ++i) vnTriangles.push_back(static_cast<size_t>(std::atoll(argv[i])));
  if (vnTriangles.empty()) vnTriangles = {10000, 1000000};
  std::printf("%-28s %9s %7s %6s | %8s %8s %8s %8s | %8s | %8s %6s\n", "", "triangles", "faces", "B/tri", "raw", "file",
              "parse", "first", "save", "memcpy", "/raw");
  for (const size_t n : vnTriangles) {
    const std::vector<bench::Mesh> vzTorus = {bench::WavyTorus(n)};
    const std::vector<bench::Mesh> vzParts = bench::PartFaces(n);
    Measure("torus, plain", vzTorus, 0, zOwner.GetKey());
    Measure("torus, delta", vzTorus, kMeshDelta, zOwner.GetKey());
    Measure("boxes and cylinders, plain", vzParts, 0, zOwner.GetKey());
    Measure("boxes and cylinders, delta", vzParts, kMeshDelta, zOwner.GetKey());
  }
  return 0;
}
