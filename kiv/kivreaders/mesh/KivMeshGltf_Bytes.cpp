#include "KivMeshGltf.h"

namespace kiv::gltf {
namespace {

uint32_t DigitOf64(char c) {
  if (c >= 'A' && c <= 'Z') return static_cast<uint32_t>(c - 'A');
  if (c >= 'a' && c <= 'z') return static_cast<uint32_t>(c - 'a') + 26;
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0') + 52;
  return c == '+' ? 62 : c == '/' ? 63 : 0;
}

}  // namespace

BufferBytes::BufferBytes(const Json& zBuffer, std::string_view strBinary) {
  const Json* const pzUri = Member(zBuffer, "uri");
  if (pzUri == nullptr) {
    m_strBytes = strBinary;
    m_nSize = strBinary.size();
    return;
  }
  if (!pzUri->is_string()) return;
  const std::string_view strUri = pzUri->get_ref<const std::string&>();
  const size_t iComma = strUri.find(',');
  if (!strUri.starts_with("data:") || iComma == std::string_view::npos) return;
  if (!strUri.substr(0, iComma).ends_with(";base64")) return;
  m_strBytes = strUri.substr(iComma + 1);
  if (m_strBytes.empty() || m_strBytes.size() % 4 != 0) return;
  m_bText = true;
  m_nSize = m_strBytes.size() / 4 * 3 - (m_strBytes.ends_with("==") ? 2 : m_strBytes.ends_with('=') ? 1 : 0);
}

uint8_t BufferBytes::ByteAt(uint64_t i) const {
  if (!m_bText) return static_cast<uint8_t>(m_strBytes[static_cast<size_t>(i)]);
  const size_t iDigit = static_cast<size_t>(i / 3 * 4 + i % 3);
  const uint32_t iBits = DigitOf64(m_strBytes[iDigit]) << 6 | DigitOf64(m_strBytes[iDigit + 1]);
  return static_cast<uint8_t>(iBits >> (4 - 2 * (i % 3)));
}

uint64_t BufferBytes::NumberAt(uint64_t iByte, uint64_t nBytes) const {
  uint64_t iNumber = 0;
  for (uint64_t i = nBytes; i > 0; --i) iNumber = iNumber << 8 | ByteAt(iByte + i - 1);
  return iNumber;
}

bool FitLengths(Json& zFile) {
  const auto itBuffers = zFile.find("buffers");
  if (itBuffers == zFile.end() || !itBuffers->is_structured()) return false;
  bool bFitted = false;
  for (Json& zBuffer : *itBuffers) {
    const BufferBytes zBytes(zBuffer, {});
    if (!zBytes.IsText() || zBytes.Size() <= Count(zBuffer, "byteLength")) continue;
    zBuffer["byteLength"] = zBytes.Size();
    bFitted = true;
  }
  return bFitted;
}

}  // namespace kiv::gltf
