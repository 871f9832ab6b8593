// Integers and floats as little-endian bytes at any address. Every persistent image goes through these.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kiv {

static_assert(std::endian::native == std::endian::little, "byte images are little-endian and are not converted");

template <typename T>
T KivLoad(const void* pSource) noexcept {
  static_assert(std::is_arithmetic_v<T>);
  T value;
  std::memcpy(&value, pSource, sizeof value);
  return value;
}

template <typename T>
void KivStore(void* pDestination, std::type_identity_t<T> value) noexcept {
  static_assert(std::is_arithmetic_v<T>);
  std::memcpy(pDestination, &value, sizeof value);
}

}  // namespace kiv
