#include "KivModelMeaning.h"

#include <algorithm>
#include <cmath>

#include "KivLittleEndian.h"

namespace kiv {
namespace {

const KivAttribute* Find(const std::vector<KivAttribute>& vzAttribute, KivMeaning eMeaning, size_t nBytes) {
  for (const KivAttribute& z : vzAttribute)
    if (z.m_iAttrib == static_cast<uint8_t>(eMeaning)) return z.m_vcBytes.size() == nBytes ? &z : nullptr;
  return nullptr;
}

std::vector<uint8_t>& Place(std::vector<KivAttribute>& vzAttribute, KivMeaning eMeaning, size_t nBytes) {
  KivAttribute* pzFound = nullptr;
  for (KivAttribute& z : vzAttribute)
    if (pzFound == nullptr && z.m_iAttrib == static_cast<uint8_t>(eMeaning)) pzFound = &z;
  if (pzFound == nullptr) {
    pzFound = &vzAttribute.emplace_back();
    pzFound->m_iAttrib = static_cast<uint8_t>(eMeaning);
  }
  pzFound->m_vcBytes.assign(nBytes, 0);
  return pzFound->m_vcBytes;
}

}  // namespace

std::optional<KivColour> KivGetColour(const std::vector<KivAttribute>& vzAttribute) {
  const KivAttribute* pz = Find(vzAttribute, KivMeaning::Colour, sizeof(KivColour));
  if (pz == nullptr) return std::nullopt;
  KivColour fColour;
  for (size_t i = 0; i < fColour.size(); ++i) {
    fColour[i] = KivLoad<float>(pz->m_vcBytes.data() + 4 * i);
    if (!(fColour[i] >= 0 && fColour[i] <= 1)) return std::nullopt;
  }
  return fColour;
}

std::optional<uint32_t> KivGetLayer(const std::vector<KivAttribute>& vzAttribute) {
  const KivAttribute* pz = Find(vzAttribute, KivMeaning::Layer, sizeof(uint32_t));
  return pz == nullptr ? std::nullopt : std::optional<uint32_t>(KivLoad<uint32_t>(pz->m_vcBytes.data()));
}

std::optional<double> KivGetUnit(const std::vector<KivAttribute>& vzAttribute) {
  const KivAttribute* pz = Find(vzAttribute, KivMeaning::Unit, sizeof(double));
  if (pz == nullptr) return std::nullopt;
  const double dMetres = KivLoad<double>(pz->m_vcBytes.data());
  return std::isfinite(dMetres) && dMetres > 0 ? std::optional<double>(dMetres) : std::nullopt;
}

bool KivHasMeaning(const std::vector<KivAttribute>& vzAttribute, KivMeaning eMeaning) {
  return std::any_of(vzAttribute.begin(), vzAttribute.end(),
                     [&](const KivAttribute& z) { return z.m_iAttrib == static_cast<uint8_t>(eMeaning); });
}

void KivSetColour(std::vector<KivAttribute>& vzAttribute, const KivColour& fColour) {
  std::vector<uint8_t>& vcBytes = Place(vzAttribute, KivMeaning::Colour, sizeof(KivColour));
  for (size_t i = 0; i < fColour.size(); ++i) KivStore<float>(vcBytes.data() + 4 * i, fColour[i]);
}

void KivSetLayer(std::vector<KivAttribute>& vzAttribute, uint32_t iLayer) {
  KivStore<uint32_t>(Place(vzAttribute, KivMeaning::Layer, sizeof iLayer).data(), iLayer);
}

void KivSetUnit(std::vector<KivAttribute>& vzAttribute, double dMetres) {
  KivStore<double>(Place(vzAttribute, KivMeaning::Unit, sizeof dMetres).data(), dMetres);
}

}  // namespace kiv
