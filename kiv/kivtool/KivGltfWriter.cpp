#include "KivGltfWriter.h"

#include <algorithm>
#include <limits>

#include "KivJsonWriter.h"
#include "KivLittleEndian.h"
#include "KivProgress.h"
#include "KivToolError.h"
#include "KivToolOutput.h"

namespace kiv {
namespace {

constexpr size_t kPartBytes = 1 << 20;
constexpr uint32_t kFloat = 5126, kShort = 5123, kInt = 5125;
constexpr uint32_t kVertexTarget = 34962, kIndexTarget = 34963;
// File: magic, version, length; chunk: length, type
constexpr uint32_t kMagic = 0x46546C67, kVersion = 2, kJsonChunk = 0x4E4F534A, kBinaryChunk = 0x004E4942;
constexpr KivWStringView kBinarySuffix = u".bin";

[[noreturn]] void FailToWrite(const KivWString& csTarget) {
  throw KivToolError(KivShown(csTarget) + ": cannot be written");
}

void WriteAll(KivSysFile& zFile, uint64_t iOffset, const uint8_t* pBytes, uint64_t nBytes, const KivWString& csTarget) {
  while (nBytes > 0) {
    const uint32_t nPart = static_cast<uint32_t>(std::min<uint64_t>(nBytes, kPartBytes));
    uint32_t nDone = 0;
    if (!zFile.WriteAt(iOffset, pBytes, nPart, nDone) || nDone == 0) FailToWrite(csTarget);
    iOffset += nDone;
    pBytes += nDone;
    nBytes -= nDone;
  }
}

KivSysFile Create(const KivWString& csPath, KivSysFileFlags iFlags, const KivWString& csTarget) {
  KivSysFile zFile =
      KivSysFile::Open(csPath, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew, iFlags});
  if (!zFile.IsOpen()) FailToWrite(csTarget);
  return zFile;
}

void PutTrs(KivJsonWriter& zJson, const KivGltfTrs& z) {
  if (z.m_dTranslation != std::array<double, 3>{}) zJson.Row("translation", z.m_dTranslation);
  if (z.m_dRotation != std::array<double, 4>{0, 0, 0, 1}) zJson.Row("rotation", z.m_dRotation);
  if (z.m_dScale != std::array<double, 3>{1, 1, 1}) zJson.Row("scale", z.m_dScale);
}

}  // namespace

KivGltfWriter::KivGltfWriter(const KivWString& csPath, const KivWString& csTarget)
    : m_csPath(csPath),
      m_csTarget(csTarget),
      m_zBinary(Create(csPath + KivWString(kBinarySuffix), KivSysFileFlags::Temporary | KivSysFileFlags::DeleteOnClose,
                       csTarget)) {}

void KivGltfWriter::CheckLength(uint64_t nBytes) const {
  if (nBytes > std::numeric_limits<uint32_t>::max())
    throw KivToolError(KivShown(m_csTarget) +
                       ": would have more than 4 GiB, which glTF cannot hold (try another --level)");
}

void KivGltfWriter::FlushPart() {
  CheckLength(m_nWritten + m_vcPart.size());
  WriteAll(m_zBinary, m_nWritten, m_vcPart.data(), m_vcPart.size(), m_csTarget);
  m_nWritten += m_vcPart.size();
  m_vcPart.clear();
}

void KivGltfWriter::Append(const void* pBytes, size_t nBytes) {
  const auto* p = static_cast<const uint8_t*>(pBytes);
  m_vcPart.insert(m_vcPart.end(), p, p + nBytes);
  while (m_vcPart.size() % 4 != 0) m_vcPart.push_back(0);
  if (m_vcPart.size() >= kPartBytes) FlushPart();
}

uint32_t KivGltfWriter::AddAccessor(const Accessor& zAccessor, const void* pBytes) {
  Accessor& z = m_vzAccessor.emplace_back(zAccessor);
  z.m_iOffset = m_nWritten + m_vcPart.size();
  Append(pBytes, static_cast<size_t>(z.m_nBytes));
  return static_cast<uint32_t>(m_vzAccessor.size() - 1);
}

uint32_t KivGltfWriter::AddVectors(const std::vector<float>& vfVector, bool bPositions) {
  Accessor z;
  z.m_iComponent = kFloat;
  z.m_nCount = vfVector.size() / 3;
  z.m_nBytes = z.m_nCount * 12;
  z.m_bBounds = bPositions;
  for (size_t k = 0; k < 3; ++k) z.m_fMin[k] = z.m_fMax[k] = vfVector[k];
  for (size_t i = 3; i < vfVector.size(); ++i) {
    z.m_fMin[i % 3] = std::min(z.m_fMin[i % 3], vfVector[i]);
    z.m_fMax[i % 3] = std::max(z.m_fMax[i % 3], vfVector[i]);
  }
  return AddAccessor(z, vfVector.data());  // little-endian, as all that this runs on
}

uint32_t KivGltfWriter::AddIndices(const std::vector<uint32_t>& viIndex, size_t nVertices) {
  Accessor z;
  z.m_nCount = viIndex.size();
  if (nVertices > 65535) {
    z.m_iComponent = kInt;
    z.m_nBytes = z.m_nCount * 4;
    return AddAccessor(z, viIndex.data());
  }
  const std::vector<uint16_t> viShort(viIndex.begin(), viIndex.end());
  z.m_iComponent = kShort;
  z.m_nBytes = z.m_nCount * 2;
  return AddAccessor(z, viShort.data());
}

uint32_t KivGltfWriter::AddMesh(KivGltfMesh zMesh) {
  m_vzMesh.push_back(std::move(zMesh));
  return static_cast<uint32_t>(m_vzMesh.size() - 1);
}

uint32_t KivGltfWriter::AddNode(KivGltfNode zNode) {
  m_vzNode.push_back(std::move(zNode));
  return static_cast<uint32_t>(m_vzNode.size() - 1);
}

std::string KivGltfWriter::BuildJson(const std::vector<uint32_t>& viRoot) {
  std::string strJson;
  KivJsonWriter zJson([&](std::string_view str) { strJson += str; });
  zJson.BeginObject();
  zJson.BeginObject("asset");
  zJson.Value("version", "2.0");
  zJson.Value("generator", "kiv " KIV_TOOL_VERSION);
  zJson.End();
  zJson.Value("scene", 0);
  zJson.BeginArray("scenes");
  zJson.BeginObject();
  if (!viRoot.empty()) zJson.Row("nodes", viRoot);
  zJson.End();
  zJson.End();

  if (!m_vzNode.empty()) zJson.BeginArray("nodes");
  for (const KivGltfNode& z : m_vzNode) {
    zJson.BeginObject();
    if (!z.m_strName.empty()) zJson.Value("name", z.m_strName);
    if (z.m_zMatrix) {
      zJson.BeginRow("matrix");
      for (size_t i = 0; i < 16; ++i) zJson.Value({}, (*z.m_zMatrix)[i]);
      zJson.End();
    }
    if (z.m_zTrs) PutTrs(zJson, *z.m_zTrs);
    if (z.m_iMesh != kNoGltfIndex) zJson.Value("mesh", z.m_iMesh);
    if (!z.m_viChildren.empty()) zJson.Row("children", z.m_viChildren);
    zJson.End();
  }
  if (!m_vzNode.empty()) zJson.End();

  std::map<KivColour, uint32_t> mapMaterial;
  std::vector<KivColour> vfMaterial;
  if (!m_vzMesh.empty()) zJson.BeginArray("meshes");
  for (const KivGltfMesh& zMesh : m_vzMesh) {
    zJson.BeginObject();
    if (!zMesh.m_strName.empty()) zJson.Value("name", zMesh.m_strName);
    zJson.BeginArray("primitives");
    for (const KivGltfPrimitive& z : zMesh.m_vzPrimitive) {
      zJson.BeginObject();
      zJson.BeginObject("attributes");
      zJson.Value("POSITION", z.m_iPosition);
      if (z.m_iNormal != kNoGltfIndex) zJson.Value("NORMAL", z.m_iNormal);
      zJson.End();
      zJson.Value("indices", z.m_iIndices);
      if (z.m_iMode != 4) zJson.Value("mode", z.m_iMode);
      if (z.m_fColour) {
        KivColour fColour = *z.m_fColour;
        for (float& f : fColour) f = std::clamp(f, 0.0f, 1.0f);
        const auto [it, bNew] = mapMaterial.try_emplace(fColour, static_cast<uint32_t>(vfMaterial.size()));
        if (bNew) vfMaterial.push_back(fColour);
        zJson.Value("material", it->second);
      }
      zJson.End();
    }
    zJson.End();
    zJson.End();
  }
  if (!m_vzMesh.empty()) zJson.End();

  if (!vfMaterial.empty()) zJson.BeginArray("materials");
  for (const KivColour& fColour : vfMaterial) {
    zJson.BeginObject();
    zJson.BeginObject("pbrMetallicRoughness");
    zJson.Row("baseColorFactor", fColour);
    zJson.Value("metallicFactor", 0);
    zJson.Value("roughnessFactor", 0.6);
    zJson.End();
    if (fColour[3] < 1) zJson.Value("alphaMode", "BLEND");
    zJson.Value("doubleSided", true);
    zJson.End();
  }
  if (!vfMaterial.empty()) zJson.End();

  if (!m_vzAccessor.empty()) {
    zJson.BeginArray("accessors");
    for (size_t i = 0; i < m_vzAccessor.size(); ++i) {
      const Accessor& z = m_vzAccessor[i];
      zJson.BeginObject();
      zJson.Value("bufferView", i);
      zJson.Value("componentType", z.m_iComponent);
      zJson.Value("count", z.m_nCount);
      zJson.Value("type", z.m_iComponent == kFloat ? "VEC3" : "SCALAR");
      if (z.m_bBounds) {
        // As doubles: the text of the exact value.
        zJson.Row("min", std::array<double, 3>{z.m_fMin[0], z.m_fMin[1], z.m_fMin[2]});
        zJson.Row("max", std::array<double, 3>{z.m_fMax[0], z.m_fMax[1], z.m_fMax[2]});
      }
      zJson.End();
    }
    zJson.End();
    zJson.BeginArray("bufferViews");
    for (const Accessor& z : m_vzAccessor) {
      zJson.BeginObject();
      zJson.Value("buffer", 0);
      zJson.Value("byteOffset", z.m_iOffset);
      zJson.Value("byteLength", z.m_nBytes);
      zJson.Value("target", z.m_iComponent == kFloat ? kVertexTarget : kIndexTarget);
      zJson.End();
    }
    zJson.End();
    zJson.BeginArray("buffers");
    zJson.BeginObject();
    zJson.Value("byteLength", m_nWritten);
    zJson.End();
    zJson.End();
  }
  zJson.EndTo(0);
  return strJson;
}

uint64_t KivGltfWriter::Finish(const std::vector<uint32_t>& viRoot) {
  FlushPart();
  std::string strJson = BuildJson(viRoot);
  while (strJson.size() % 4 != 0) strJson += ' ';
  const uint64_t nTotal = 12 + 8 + strJson.size() + (m_nWritten != 0 ? 8 + m_nWritten : 0);
  CheckLength(nTotal);

  KivSysFile zFile = Create(m_csPath, KivSysFileFlags::SequentialScan, m_csTarget);
  uint8_t acHead[20];
  KivStore<uint32_t>(acHead, kMagic);
  KivStore<uint32_t>(acHead + 4, kVersion);
  KivStore<uint32_t>(acHead + 8, static_cast<uint32_t>(nTotal));
  KivStore<uint32_t>(acHead + 12, static_cast<uint32_t>(strJson.size()));
  KivStore<uint32_t>(acHead + 16, kJsonChunk);
  WriteAll(zFile, 0, acHead, sizeof acHead, m_csTarget);
  WriteAll(zFile, sizeof acHead, reinterpret_cast<const uint8_t*>(strJson.data()), strJson.size(), m_csTarget);
  if (m_nWritten != 0) CopyBinary(zFile, sizeof acHead + strJson.size());
  // The file may replace a good one: what the disk did not take must be known before.
  if (!zFile.Flush()) FailToWrite(m_csTarget);
  return nTotal;
}

void KivGltfWriter::CopyBinary(KivSysFile& zFile, uint64_t iAt) {
  uint8_t acHead[8];
  KivStore<uint32_t>(acHead, static_cast<uint32_t>(m_nWritten));
  KivStore<uint32_t>(acHead + 4, kBinaryChunk);
  WriteAll(zFile, iAt, acHead, sizeof acHead, m_csTarget);
  iAt += sizeof acHead;
  m_vcPart.resize(kPartBytes);
  KivProgress zProgress("writing", m_nWritten);
  for (uint64_t iDone = 0; iDone < m_nWritten;) {
    const uint32_t nPart = static_cast<uint32_t>(std::min<uint64_t>(kPartBytes, m_nWritten - iDone));
    uint32_t nRead = 0;
    if (!m_zBinary.ReadAt(iDone, m_vcPart.data(), nPart, nRead) || nRead == 0) FailToWrite(m_csTarget);
    WriteAll(zFile, iAt + iDone, m_vcPart.data(), nRead, m_csTarget);
    iDone += nRead;
    zProgress.Set(iDone);
  }
}

}  // namespace kiv
