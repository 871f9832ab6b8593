// Small files of meshes, as other programs write them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kivtest {

template <typename T>
void AddRaw(std::string& strBytes, T value) {
  char acBytes[sizeof value];
  std::memcpy(acBytes, &value, sizeof value);
  strBytes.append(acBytes, sizeof value);
}

inline std::string Floats(const std::vector<float>& vf) {
  std::string strBytes;
  for (const float f : vf) AddRaw(strBytes, f);
  return strBytes;
}

// Two triangles of a unit square, each with its normal.
inline std::string BinaryStl(const std::vector<float>& vfSquare = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}) {
  std::string strFile(80, ' ');
  AddRaw<uint32_t>(strFile, 2);
  for (const std::vector<size_t>& viCorner : {std::vector<size_t>{0, 1, 2}, std::vector<size_t>{0, 2, 3}}) {
    strFile += Floats({0, 0, 1});
    for (const size_t i : viCorner) strFile += Floats({vfSquare[3 * i], vfSquare[3 * i + 1], vfSquare[3 * i + 2]});
    AddRaw<uint16_t>(strFile, 0);
  }
  return strFile;
}

inline std::string TextStl() {
  const std::string strFacet =
      "facet normal 0 0 1\n outer loop\n  vertex 0 0 0\n  vertex 1 0 0\n  vertex 0 1 0.5\n endloop\nendfacet\n";
  return "solid plate\n" + strFacet + "endsolid plate\nsolid lid\n" + strFacet + strFacet + "endsolid lid\n";
}

// Two objects of one material each, a quadrangle, a line of three points, and normals.
inline std::string Obj(const std::string& strLibrary = "colours.mtl") {
  return "mtllib " + strLibrary +
         "\n"
         "o plate\nv 0 0 0\nv 2 0 0\nv 2 2 0\nv 0 2 0\nvn 0 0 1\nusemtl red\nf 1//1 2//1 3//1 4//1\n"
         "o wire\nv 0 0 5\nv 1 0 5\nv 1 1 5\nusemtl glass\nl 5 6 7\n";
}
inline std::string Mtl() {
  return "newmtl red\nKd 1 0.25 0\nnewmtl glass\nKd 0 0 1\nd 0.5\n";
}

inline std::string PlyHead(const std::string& strForm, const std::string& strVertices = "4",
                           const std::string& strFaces = "2") {
  return "ply\nformat " + strForm + " 1.0\ncomment of a test\nelement vertex " + strVertices +
         "\nproperty float x\nproperty float y\nproperty float z\nelement face " + strFaces +
         "\nproperty list uchar int vertex_indices\nend_header\n";
}
inline std::string TextPly(const std::string& strLastFace = "3 0 2 3") {
  return PlyHead("ascii") + "0 0 0\n1 0 0\n1 1 0\n0 1 0.25\n3 0 1 2\n" + strLastFace + "\n";
}
inline std::string BinaryPly(const std::vector<float>& vfVertex = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.25f}) {
  std::string strFile = PlyHead("binary_little_endian") + Floats(vfVertex);
  for (const std::vector<int32_t>& viFace : {std::vector<int32_t>{0, 1, 2}, std::vector<int32_t>{0, 2, 3}}) {
    AddRaw<uint8_t>(strFile, 3);
    for (const int32_t i : viFace) AddRaw(strFile, i);
  }
  return strFile;
}

// One face of three corners, whose list announces nCount.
inline std::string PlyWithList(uint32_t nCount) {
  std::string strFile = PlyHead("binary_little_endian", "3", "1");
  strFile.replace(strFile.find("list uchar"), 10, "list uint");
  strFile += Floats({0, 0, 0, 1, 0, 0, 1, 1, 0});
  AddRaw(strFile, nCount);
  for (const int32_t i : {0, 1, 2}) AddRaw(strFile, i);
  return strFile;
}

// --- glTF -----------------------------------------------------------------------------------------------------------

// Three corners and normals, then three indices.
inline std::string GltfBuffer() {
  std::string strBytes = Floats({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 1, 0, 0, 1});
  for (const uint16_t i : {0, 1, 2}) AddRaw<uint16_t>(strBytes, i);
  return strBytes + std::string(2, '\0');
}

inline std::string Base64(const std::string& strBytes) {
  static const char szDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string strText;
  for (size_t i = 0; i < strBytes.size(); i += 3) {
    uint32_t iBits = 0;
    for (size_t k = 0; k < 3; ++k)
      iBits = iBits << 8 | (i + k < strBytes.size() ? static_cast<uint8_t>(strBytes[i + k]) : 0u);
    for (size_t k = 0; k < 4; ++k) strText += i + k > strBytes.size() ? '=' : szDigits[iBits >> (18 - 6 * k) & 63];
  }
  return strText;
}

// One mesh of two pieces, one of them without a material, in two places below a root; the second one turns by 90
// degrees about z, doubles and moves by 10 in x. An empty name of the buffer stands for the binary piece of a GLB.
inline std::string Gltf(const std::string& strBuffer, const std::string& strIndexCount = "3") {
  const std::string strName = strBuffer.empty() ? "" : "\"uri\":\"" + strBuffer + "\",";
  return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
"nodes":[{"name":"assembly","children":[1,2]},{"name":"left","mesh":0},
{"name":"right","mesh":0,"translation":[10,0,0],"rotation":[0,0,0.7071067811865476,0.7071067811865476],"scale":[2,2,2]}],
"meshes":[{"name":"bracket","primitives":[{"attributes":{"POSITION":0,"NORMAL":1},"indices":2,"material":0},
{"attributes":{"POSITION":0},"indices":2}]}],
"materials":[{"name":"paint","pbrMetallicRoughness":{"baseColorFactor":[0.5,0.25,0.125,0.75]},
"alphaMode":"BLEND"}],
"accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[1,1,0]},
{"bufferView":1,"componentType":5126,"count":3,"type":"VEC3"},
{"bufferView":2,"componentType":5123,"count":)" +
         strIndexCount + R"(,"type":"SCALAR"}],
"bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":36},{"buffer":0,"byteOffset":36,"byteLength":36},
{"buffer":0,"byteOffset":72,"byteLength":6}],"buffers":[{)" +
         strName + R"("byteLength":80}]})";
}

inline std::string EmbeddedGltf() {
  return Gltf("data:application/octet-stream;base64," + Base64(GltfBuffer()));
}

// With nMore bytes behind those that the JSON tells of.
inline std::string Glb(std::string strJson = Gltf(""), size_t nMore = 0) {
  while (strJson.size() % 4 != 0) strJson += ' ';
  const std::string strBinary = GltfBuffer() + std::string(nMore, 'x');
  std::string strFile = "glTF";
  AddRaw<uint32_t>(strFile, 2);
  AddRaw<uint32_t>(strFile, static_cast<uint32_t>(12 + 8 + strJson.size() + 8 + strBinary.size()));
  AddRaw<uint32_t>(strFile, static_cast<uint32_t>(strJson.size()));
  strFile += "JSON" + strJson;
  AddRaw<uint32_t>(strFile, static_cast<uint32_t>(strBinary.size()));
  return strFile + std::string("BIN\0", 4) + strBinary;
}

// A glTF of nNodes nodes, each of which names the next one with strChildren, where # stands for its number.
inline std::string ChainGltf(size_t nNodes, const std::string& strChildren) {
  std::string strNodes;
  for (size_t i = 1; i < nNodes; ++i) {
    std::string strList = strChildren;
    for (size_t iAt = 0; (iAt = strList.find('#')) != std::string::npos;) strList.replace(iAt, 1, std::to_string(i));
    strNodes += "{\"children\":[" + strList + "]},";
  }
  std::string strFile = EmbeddedGltf();
  const size_t iFrom = strFile.find("\"nodes\":[{"), iTo = strFile.find("\"meshes\"");
  return strFile.replace(iFrom, iTo - iFrom, "\"nodes\":[" + strNodes + "{\"mesh\":0}],\n");
}

// Of version 1, where texts name what stands in objects: the same triangle in two places.
inline std::string FirstGltf() {
  return R"({"asset":{"version":"1.0"},"scene":"all","scenes":{"all":{"nodes":["top"]}},
"nodes":{"top":{"children":["left","right"]},"left":{"meshes":["bracket"]},
"right":{"meshes":["bracket"],"translation":[10,0,0]}},
"meshes":{"bracket":{"primitives":[{"attributes":{"POSITION":"places","NORMAL":"normals"},"indices":"corners",
"mode":4}]}},
"accessors":{"places":{"bufferView":"floats","byteOffset":0,"byteStride":12,"componentType":5126,"count":3,
"type":"VEC3"},"normals":{"bufferView":"floats","byteOffset":36,"componentType":5126,"count":3,"type":"VEC3"},
"corners":{"bufferView":"shorts","byteOffset":0,"componentType":5123,"count":3,"type":"SCALAR"}},
"bufferViews":{"floats":{"buffer":"all","byteOffset":0,"byteLength":72},
"shorts":{"buffer":"all","byteOffset":72,"byteLength":6}},
"buffers":{"all":{"byteLength":80,"uri":"data:application/octet-stream;base64,)" +
         Base64(GltfBuffer()) + R"("}}})";
}

// A triangle whose corners are announced to be nCount, of which it holds one.
inline std::string SparseGltf(const std::string& strCount) {
  return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"mesh":0}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0}}]}],
"accessors":[{"componentType":5126,"count":)" +
         strCount + R"(,"type":"VEC3","sparse":{"count":1,"indices":{"bufferView":0,"componentType":5125},
"values":{"bufferView":1}}}],
"bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":4},{"buffer":0,"byteOffset":4,"byteLength":12}],
"buffers":[{"uri":"data:application/octet-stream;base64,)" +
         Base64(std::string(4, '\0') + Floats({1, 2, 3})) + R"(","byteLength":16}]})";
}

}  // namespace kivtest
