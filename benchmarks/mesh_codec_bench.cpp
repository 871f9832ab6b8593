// The mesh codec beside meshoptimizer, Draco and memcpy, on the same meshes and the same quantisation.
//
//   usage: mesh_codec_bench [triangles...]      default: 10000 1000000 10000000
// Speeds are in GB/s of decoded data (f32 positions and normals, u32 indices), CPU time of the best of several runs,
// into memory that is there already; "B/tri" is the coded size. The ratio is our speed over the peer's.
#include <draco/compression/decode.h>
#include <draco/compression/encode.h>
#include <draco/mesh/mesh.h>
#include <meshoptimizer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "KivMeshCodec.h"
#include "MeshSamples.h"

namespace {

constexpr float kStep = 1.0f / 16384;  // 16 bits over the box of 3 around a torus
constexpr int kPositionBits = 16;

template <typename T>
void Use(T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// Of this process, which has one thread: other processes on the machine disturb it less than a clock on the wall.
double CpuSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// Seconds of the fastest run; at least three, and more while they are short.
template <typename Body>
double Fastest(Body&& body) {
  double dBest = 1e9;
  double dTotal = 0;
  for (int i = 0; i < 3 || (i < 200 && dTotal < 0.25); ++i) {
    const double dStart = CpuSeconds();
    body();
    const double d = CpuSeconds() - dStart;
    dBest = std::min(dBest, d);
    dTotal += d;
  }
  return dBest;
}

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "mesh_codec_bench: %s\n", szWhat);
  std::exit(1);
}

// --- Ours -----------------------------------------------------------------------------------------------------------

struct Coded {
  std::vector<uint8_t> m_vcBytes;
  double m_dEncode = 0;
  double m_dDecode = 0;
};

uint32_t IndexSizeOf(const bench::Mesh& zMesh) {
  const size_t n = zMesh.Vertices();
  return n <= 256 ? 1 : n <= 65536 ? 2 : 4;
}

kiv::KivMeshFaceView ViewOf(const bench::Mesh& zMesh) {
  kiv::KivMeshFaceView z;
  z.m_iVertexCount = z.m_iNormalCount = static_cast<uint32_t>(zMesh.Vertices());
  z.m_iTriangleCount = static_cast<uint32_t>(zMesh.Triangles());
  z.m_iIndexSize = IndexSizeOf(zMesh);
  z.m_vfVertex = zMesh.m_vfVertex;
  z.m_vfNormal = zMesh.m_vfNormal;
  z.m_viIndex = zMesh.m_viIndex;
  return z;
}

Coded RunOurs(const std::vector<bench::Mesh>& vzFaces, uint32_t iCoordWidth, uint32_t iFlags) {
  kiv::KivMemoryBlockFaceEdgeInterfaceData zHeader;
  zHeader.m_iCoordWidth = iCoordWidth;
  zHeader.m_fStep = kStep;
  zHeader.m_iMeshFlags = iFlags;
  for (float& f : zHeader.m_fOrigin) f = -1.5f;
  const float afBox[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
  Coded zCoded;
  std::vector<uint8_t> viLocal(vzFaces.size());
  zCoded.m_dEncode = Fastest([&] {
    int64_t nTotal = 0;
    for (size_t i = 0; i < vzFaces.size(); ++i)
      nTotal += kiv::KivMeshFaceSize(zHeader, afBox, ViewOf(vzFaces[i]), viLocal[i]);
    zCoded.m_vcBytes.resize(static_cast<size_t>(nTotal));
    kiv::KivRecordWriter zWriter(zCoded.m_vcBytes.data(), zCoded.m_vcBytes.size());
    for (size_t i = 0; i < vzFaces.size(); ++i)
      Demand(kiv::KivMeshPutFace(zWriter, zHeader, afBox, ViewOf(vzFaces[i]), viLocal[i]), "encode");
  });
  std::vector<bench::Mesh> vzBack(vzFaces.size());
  zCoded.m_dDecode = Fastest([&] {
    kiv::KivRecordReader zReader(zCoded.m_vcBytes.data(), zCoded.m_vcBytes.size());
    for (size_t i = 0; i < vzFaces.size(); ++i) {
      const uint32_t nVertices = static_cast<uint32_t>(vzFaces[i].Vertices());
      uint8_t iLocal = 0;
      Demand(kiv::KivMeshGetFace(zReader, zHeader, nVertices, static_cast<uint32_t>(vzFaces[i].Triangles()), nVertices,
                                 IndexSizeOf(vzFaces[i]), iLocal, vzBack[i].m_vfVertex, vzBack[i].m_vfNormal,
                                 vzBack[i].m_viIndex),
             "decode");
    }
  });
  for (size_t i = 0; i < vzFaces.size(); ++i) Demand(vzBack[i].m_viIndex == vzFaces[i].m_viIndex, "indices differ");
  return zCoded;
}

// Streams by themselves, for one mesh.
template <typename Put, typename Get>
void Stream(const char* szName, size_t nCoded, size_t nDecoded, Put&& pfnPut, Get&& pfnGet) {
  std::vector<uint8_t> vc(nCoded);
  const double dPut = Fastest([&] {
    kiv::KivRecordWriter zWriter(vc.data(), vc.size());
    Demand(pfnPut(zWriter), szName);
  });
  const double dGet = Fastest([&] {
    kiv::KivRecordReader zReader(vc.data(), vc.size());
    Demand(pfnGet(zReader), szName);
  });
  std::printf("  %-34s encode %6.2f  decode %6.2f GB/s  %6.2f bytes per item\n", szName,
              static_cast<double>(nDecoded) / dPut / 1e9, static_cast<double>(nDecoded) / dGet / 1e9,
              static_cast<double>(nCoded) * 12 / static_cast<double>(nDecoded));
}

void Streams(const bench::Mesh& zMesh, const bench::Mesh& zOptimised) {
  const float afBox[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
  kiv::KivMemoryBlockFaceEdgeInterfaceData zHeader;
  for (float& f : zHeader.m_fOrigin) f = -1.5f;
  const uint32_t nVertices = static_cast<uint32_t>(zMesh.Vertices());
  const uint32_t nTriangles = static_cast<uint32_t>(zMesh.Triangles());
  std::vector<float> vf;
  std::vector<uint32_t> vi;
  const auto Vertices = [&](const char* szName, uint32_t iWidth, uint32_t iFlags) {
    zHeader.m_iCoordWidth = iWidth;
    zHeader.m_iMeshFlags = iFlags;
    zHeader.m_fStep = iWidth == 1 ? 1.0f / 80 : kStep;
    const auto eFace = kiv::KivMeshEntryType::Face;
    Stream(
        szName, kiv::KivMeshVertexStreamSize(zHeader, eFace, afBox, 0, zMesh.m_vfVertex), 12 * zMesh.Vertices(),
        [&](auto& z) { return kiv::KivMeshPutVertexStream(z, zHeader, eFace, afBox, 0, zMesh.m_vfVertex); },
        [&](auto& z) { return kiv::KivMeshGetVertexStream(z, zHeader, eFace, 0, nVertices, vf); });
  };
  Vertices("vertices, 1 byte", 1, 0);
  Vertices("vertices, 2 bytes", 2, 0);
  Vertices("vertices, 4 bytes", 4, 0);
  Vertices("vertices, delta", 1, kiv::kMeshDelta);
  const auto Normals = [&](const char* szName, const std::vector<float>& vfNormal) {
    Stream(
        szName, kiv::KivMeshNormalStreamSize(vfNormal, nVertices), 12 * zMesh.Vertices(),
        [&](auto& z) { return kiv::KivMeshPutNormalStream(z, vfNormal, nVertices); },
        [&](auto& z) { return kiv::KivMeshGetNormalStream(z, nVertices, vf); });
  };
  std::vector<float> vfRuns(zMesh.m_vfNormal.size());
  for (size_t i = 0; i < vfRuns.size(); ++i) vfRuns[i] = zMesh.m_vfNormal[i / 90 * 90 + i % 3];
  std::vector<float> vfRandom(zMesh.m_vfNormal.size());
  for (size_t i = 0; i < vfRandom.size(); i += 3)  // another order, so that neighbours differ
    std::memcpy(&vfRandom[i], &zMesh.m_vfNormal[(i / 3 * 7919 % zMesh.Vertices()) * 3], 12);
  Normals("normals, plain", vfRandom);
  Normals("normals, runs of 30", vfRuns);
  const auto Indices = [&](const char* szName, uint32_t iSize, uint32_t iFlags, const std::vector<uint32_t>& viIndex) {
    zHeader.m_iMeshFlags = iFlags;
    std::vector<uint32_t> viFit(viIndex);
    if (iSize < 4)
      for (uint32_t& i : viFit) i &= iSize == 1 ? 0xFF : 0xFFFF;
    Stream(
        szName, kiv::KivMeshIndexStreamSize(zHeader, iSize, viFit), 12 * zMesh.Triangles(),
        [&](auto& z) { return kiv::KivMeshPutIndexStream(z, zHeader, nTriangles, iSize, viFit); },
        [&](auto& z) { return kiv::KivMeshGetIndexStream(z, zHeader, nTriangles, iSize, vi); });
  };
  Indices("triangles, 1-byte indices", 1, 0, zMesh.m_viIndex);
  Indices("triangles, 2-byte indices", 2, 0, zMesh.m_viIndex);
  Indices("triangles, 4-byte indices", 4, 0, zMesh.m_viIndex);
  Indices("triangles, delta, grid order", 4, kiv::kMeshDelta, zMesh.m_viIndex);
  Indices("triangles, delta, cache order", 4, kiv::kMeshDelta, zOptimised.m_viIndex);
}

// --- Peers ----------------------------------------------------------------------------------------------------------

// Positions as 4 x u16 and normals as 4 x i8, the vertex that such a mesh has for it; decoding includes the way back
// to floats, as ours does.
struct PackedVertex {
  uint16_t m_aiPosition[4];
  int8_t m_aiNormal[4];
};

Coded RunMeshOptimizer(const std::vector<bench::Mesh>& vzFaces) {
  Coded zCoded;
  std::vector<std::vector<PackedVertex>> vvz(vzFaces.size());
  std::vector<std::pair<size_t, size_t>> vnSize(vzFaces.size());
  size_t nBound = 0;
  for (size_t i = 0; i < vzFaces.size(); ++i) {
    vvz[i].resize(vzFaces[i].Vertices());
    nBound += meshopt_encodeVertexBufferBound(vvz[i].size(), sizeof(PackedVertex)) +
              meshopt_encodeIndexBufferBound(vzFaces[i].m_viIndex.size(), vzFaces[i].Vertices());
  }
  std::vector<uint8_t> vcBound(nBound);
  size_t nTotal = 0;
  zCoded.m_dEncode = Fastest([&] {
    uint8_t* p = vcBound.data();
    uint8_t* const pEnd = p + nBound;
    for (size_t i = 0; i < vzFaces.size(); ++i) {
      const bench::Mesh& zMesh = vzFaces[i];
      for (size_t k = 0; k < zMesh.Vertices(); ++k) {
        for (size_t a = 0; a < 3; ++a) {
          vvz[i][k].m_aiPosition[a] = static_cast<uint16_t>((zMesh.m_vfVertex[3 * k + a] + 1.5f) / kStep);
          vvz[i][k].m_aiNormal[a] = static_cast<int8_t>(meshopt_quantizeSnorm(zMesh.m_vfNormal[3 * k + a], 8));
        }
      }
      vnSize[i].first = meshopt_encodeVertexBuffer(p, static_cast<size_t>(pEnd - p), vvz[i].data(), vvz[i].size(),
                                                   sizeof(PackedVertex));
      p += vnSize[i].first;
      vnSize[i].second =
          meshopt_encodeIndexBuffer(p, static_cast<size_t>(pEnd - p), zMesh.m_viIndex.data(), zMesh.m_viIndex.size());
      p += vnSize[i].second;
    }
    nTotal = static_cast<size_t>(p - vcBound.data());
  });
  std::vector<bench::Mesh> vzBack(vzFaces.size());
  std::vector<PackedVertex> vzScratch;
  zCoded.m_dDecode = Fastest([&] {
    const uint8_t* p = vcBound.data();
    for (size_t i = 0; i < vzFaces.size(); ++i) {
      bench::Mesh& zBack = vzBack[i];
      vzScratch.resize(vzFaces[i].Vertices());
      zBack.m_vfVertex.resize(vzFaces[i].m_vfVertex.size());
      zBack.m_vfNormal.resize(vzFaces[i].m_vfNormal.size());
      zBack.m_viIndex.resize(vzFaces[i].m_viIndex.size());
      Demand(
          meshopt_decodeVertexBuffer(vzScratch.data(), vzScratch.size(), sizeof(PackedVertex), p, vnSize[i].first) == 0,
          "meshopt vertices");
      p += vnSize[i].first;
      Demand(meshopt_decodeIndexBuffer(zBack.m_viIndex.data(), zBack.m_viIndex.size(), sizeof(uint32_t), p,
                                       vnSize[i].second) == 0,
             "meshopt indices");
      p += vnSize[i].second;
      for (size_t k = 0; k < vzScratch.size(); ++k) {
        for (size_t a = 0; a < 3; ++a) {
          zBack.m_vfVertex[3 * k + a] = (vzScratch[k].m_aiPosition[a] + 0.5f) * kStep - 1.5f;
          zBack.m_vfNormal[3 * k + a] = vzScratch[k].m_aiNormal[a] * (1.0f / 127);
        }
      }
    }
  });
  vcBound.resize(nTotal);
  zCoded.m_vcBytes = std::move(vcBound);
  return zCoded;
}

std::unique_ptr<draco::Mesh> DracoMesh(const bench::Mesh& zMesh) {
  auto pzMesh = std::make_unique<draco::Mesh>();
  const uint32_t nVertices = static_cast<uint32_t>(zMesh.Vertices());
  pzMesh->set_num_points(nVertices);
  for (const bool bNormal : {false, true}) {
    draco::GeometryAttribute zAttribute;
    zAttribute.Init(bNormal ? draco::GeometryAttribute::NORMAL : draco::GeometryAttribute::POSITION, nullptr, 3,
                    draco::DT_FLOAT32, false, 12, 0);
    const int iAttribute = pzMesh->AddAttribute(zAttribute, true, nVertices);
    const std::vector<float>& vf = bNormal ? zMesh.m_vfNormal : zMesh.m_vfVertex;
    for (uint32_t i = 0; i < nVertices; ++i)
      pzMesh->attribute(iAttribute)->SetAttributeValue(draco::AttributeValueIndex(i), &vf[3 * i]);
  }
  pzMesh->SetNumFaces(zMesh.Triangles());
  for (size_t i = 0; i < zMesh.Triangles(); ++i) {
    draco::Mesh::Face zFace;
    for (size_t k = 0; k < 3; ++k) zFace[static_cast<int>(k)] = zMesh.m_viIndex[3 * i + k];
    pzMesh->SetFace(draco::FaceIndex(static_cast<uint32_t>(i)), zFace);
  }
  return pzMesh;
}

Coded RunDraco(const std::vector<bench::Mesh>& vzFaces) {
  Coded zCoded;
  std::vector<std::unique_ptr<draco::Mesh>> vpz;
  for (const bench::Mesh& zMesh : vzFaces) vpz.push_back(DracoMesh(zMesh));
  std::vector<draco::EncoderBuffer> vz(vzFaces.size());
  const double dStart = CpuSeconds();
  for (size_t i = 0; i < vzFaces.size(); ++i) {
    draco::Encoder zEncoder;
    zEncoder.SetSpeedOptions(9, 10);
    zEncoder.SetAttributeQuantization(draco::GeometryAttribute::POSITION, kPositionBits);
    zEncoder.SetAttributeQuantization(draco::GeometryAttribute::NORMAL, 7);
    Demand(zEncoder.EncodeMeshToBuffer(*vpz[i], &vz[i]).ok(), "draco encode");
  }
  zCoded.m_dEncode = CpuSeconds() - dStart;
  size_t nTotal = 0;
  for (const auto& z : vz) nTotal += z.size();
  zCoded.m_vcBytes.resize(nTotal);
  const double dDecode = CpuSeconds();
  for (const auto& z : vz) {
    draco::DecoderBuffer zBuffer;
    zBuffer.Init(z.data(), z.size());
    draco::Decoder zDecoder;
    auto zResult = zDecoder.DecodeMeshFromBuffer(&zBuffer);
    Demand(zResult.ok(), "draco decode");
  }
  zCoded.m_dDecode = CpuSeconds() - dDecode;
  return zCoded;
}

double RunMemcpy(const std::vector<bench::Mesh>& vzFaces) {
  std::vector<bench::Mesh> vzCopy(vzFaces);
  return Fastest([&] {
    for (size_t i = 0; i < vzFaces.size(); ++i) {
      std::memcpy(vzCopy[i].m_vfVertex.data(), vzFaces[i].m_vfVertex.data(), 4 * vzFaces[i].m_vfVertex.size());
      std::memcpy(vzCopy[i].m_vfNormal.data(), vzFaces[i].m_vfNormal.data(), 4 * vzFaces[i].m_vfNormal.size());
      std::memcpy(vzCopy[i].m_viIndex.data(), vzFaces[i].m_viIndex.data(), 4 * vzFaces[i].m_viIndex.size());
    }
    Use(vzCopy);
  });
}

void Compare(const char* szMesh, const std::vector<bench::Mesh>& vzFaces) {
  double dBytes = 0, dTriangles = 0;
  for (const bench::Mesh& z : vzFaces) {
    dBytes += static_cast<double>(z.OutputBytes());
    dTriangles += static_cast<double>(z.Triangles());
  }
  std::printf("%s: %.0f triangles in %zu faces, %.1f MB decoded\n", szMesh, dTriangles, vzFaces.size(), dBytes / 1e6);
  const Coded zPlain = RunOurs(vzFaces, 2, 0);
  const auto Print = [&](const char* szName, const Coded& z) {
    std::printf("  %-24s encode %6.2f GB/s  decode %6.2f GB/s  %6.2f B/tri   our plain decode is %5.2f times as fast\n",
                szName, dBytes / z.m_dEncode / 1e9, dBytes / z.m_dDecode / 1e9,
                static_cast<double>(z.m_vcBytes.size()) / dTriangles, z.m_dDecode / zPlain.m_dDecode);
  };
  Print("plain streams", zPlain);
  Print("delta streams", RunOurs(vzFaces, 2, kiv::kMeshDelta));
  Print("meshoptimizer", RunMeshOptimizer(vzFaces));
  Print("Draco", RunDraco(vzFaces));
  std::printf("  %-24s                                %6.2f GB/s\n", "memcpy", dBytes / RunMemcpy(vzFaces) / 1e9);
}

// The order in which a GPU likes it: indices mostly near each other, and no regular pattern.
bench::Mesh CacheOrdered(const bench::Mesh& zMesh) {
  bench::Mesh z = zMesh;
  meshopt_optimizeVertexCache(z.m_viIndex.data(), zMesh.m_viIndex.data(), zMesh.m_viIndex.size(), zMesh.Vertices());
  std::vector<uint32_t> viNew(zMesh.Vertices());
  meshopt_optimizeVertexFetchRemap(viNew.data(), z.m_viIndex.data(), z.m_viIndex.size(), zMesh.Vertices());
  for (uint32_t& i : z.m_viIndex) i = viNew[i];
  for (size_t i = 0; i < viNew.size(); ++i) {
    std::memcpy(&z.m_vfVertex[3 * viNew[i]], &zMesh.m_vfVertex[3 * i], 12);
    std::memcpy(&z.m_vfNormal[3 * viNew[i]], &zMesh.m_vfNormal[3 * i], 12);
  }
  return z;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<size_t> vnTriangles;
  for (int i = 1; i < argc; ++i) vnTriangles.push_back(static_cast<size_t>(std::atoll(argv[i])));
  if (vnTriangles.empty()) vnTriangles = {10000, 1000000, 10000000};
  for (const size_t nTriangles : vnTriangles) {
    const bench::Mesh zTorus = bench::WavyTorus(nTriangles);
    const bench::Mesh zOrdered = CacheOrdered(zTorus);
    std::printf("streams of a torus of %zu triangles, %zu vertices\n", zTorus.Triangles(), zTorus.Vertices());
    Streams(zTorus, zOrdered);
    Compare("torus, grid order", {zTorus});
    Compare("torus, cache order", {zOrdered});
    Compare("boxes and cylinders", bench::PartFaces(nTriangles));
  }
  return 0;
}
