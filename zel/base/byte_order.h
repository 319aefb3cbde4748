#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// Integers in bytes, big end first (`...Big...`, the way of the broadcast standards) or little end
/// first (Wave files, some boards). Pointers need no alignment; the caller answers for the room.
/// Each is one load or store, and a swap at most; all work at compile time too.

namespace zel::base {

namespace byte_order_internal {

template <typename T>
constexpr T swapped(T value) {
  if constexpr (sizeof(T) == 2) return __builtin_bswap16(value);
  if constexpr (sizeof(T) == 4) return __builtin_bswap32(value);
  if constexpr (sizeof(T) == 8) return __builtin_bswap64(value);
}

template <typename T, std::endian Order>
constexpr T load(const uint8_t* bytes) {
  if (std::is_constant_evaluated()) {
    T value = 0;
    for (unsigned i = 0; i < sizeof(T); ++i) {
      const unsigned place = Order == std::endian::big ? sizeof(T) - 1 - i : i;
      value = static_cast<T>(value | static_cast<T>(bytes[i]) << 8 * place);
    }
    return value;
  }
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return Order == std::endian::native ? value : swapped(value);
}

template <typename T, std::endian Order>
constexpr void store(uint8_t* bytes, T value) {
  if (std::is_constant_evaluated()) {
    for (unsigned i = 0; i < sizeof(T); ++i) {
      const unsigned place = Order == std::endian::big ? sizeof(T) - 1 - i : i;
      bytes[i] = static_cast<uint8_t>(value >> 8 * place);
    }
    return;
  }
  if (Order != std::endian::native) value = swapped(value);
  std::memcpy(bytes, &value, sizeof value);
}

}  // namespace byte_order_internal

constexpr uint16_t loadBig16(const uint8_t* bytes) {
  return byte_order_internal::load<uint16_t, std::endian::big>(bytes);
}
constexpr uint32_t loadBig24(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) << 16 | loadBig16(bytes + 1);
}
constexpr uint32_t loadBig32(const uint8_t* bytes) {
  return byte_order_internal::load<uint32_t, std::endian::big>(bytes);
}
constexpr uint64_t loadBig64(const uint8_t* bytes) {
  return byte_order_internal::load<uint64_t, std::endian::big>(bytes);
}

constexpr uint16_t loadLittle16(const uint8_t* bytes) {
  return byte_order_internal::load<uint16_t, std::endian::little>(bytes);
}
constexpr uint32_t loadLittle24(const uint8_t* bytes) {
  return loadLittle16(bytes) | static_cast<uint32_t>(bytes[2]) << 16;
}
constexpr uint32_t loadLittle32(const uint8_t* bytes) {
  return byte_order_internal::load<uint32_t, std::endian::little>(bytes);
}
constexpr uint64_t loadLittle64(const uint8_t* bytes) {
  return byte_order_internal::load<uint64_t, std::endian::little>(bytes);
}

constexpr void storeBig16(uint8_t* bytes, uint16_t value) {
  byte_order_internal::store<uint16_t, std::endian::big>(bytes, value);
}
/// The upper eight bits of `value` are dropped.
constexpr void storeBig24(uint8_t* bytes, uint32_t value) {
  bytes[0] = static_cast<uint8_t>(value >> 16);
  storeBig16(bytes + 1, static_cast<uint16_t>(value));
}
constexpr void storeBig32(uint8_t* bytes, uint32_t value) {
  byte_order_internal::store<uint32_t, std::endian::big>(bytes, value);
}
constexpr void storeBig64(uint8_t* bytes, uint64_t value) {
  byte_order_internal::store<uint64_t, std::endian::big>(bytes, value);
}

constexpr void storeLittle16(uint8_t* bytes, uint16_t value) {
  byte_order_internal::store<uint16_t, std::endian::little>(bytes, value);
}
/// The upper eight bits of `value` are dropped.
constexpr void storeLittle24(uint8_t* bytes, uint32_t value) {
  storeLittle16(bytes, static_cast<uint16_t>(value));
  bytes[2] = static_cast<uint8_t>(value >> 16);
}
constexpr void storeLittle32(uint8_t* bytes, uint32_t value) {
  byte_order_internal::store<uint32_t, std::endian::little>(bytes, value);
}
constexpr void storeLittle64(uint8_t* bytes, uint64_t value) {
  byte_order_internal::store<uint64_t, std::endian::little>(bytes, value);
}

}  // namespace zel::base
