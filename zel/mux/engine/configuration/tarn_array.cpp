#include "zel/mux/engine/configuration/tarn_array.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace Morvalen::Zel {
namespace {

constexpr int32_t kLeastCapacity = 8;

TarnArray* strings_of(const TarnArray* array) {
  return static_cast<TarnArray*>(array->elements);
}

}  // namespace

bool tarn_array_reserve(TarnArray* array, int32_t capacity, size_t elementSize) noexcept {
  if (array->elements != nullptr && capacity <= array->capacity) return true;
  const int64_t doubled =
      std::min<int64_t>(int64_t{array->capacity} * 2, std::numeric_limits<int32_t>::max());
  const auto wanted = std::max({static_cast<int32_t>(doubled), capacity, kLeastCapacity});
  if (elementSize != 0 && static_cast<size_t>(wanted) > SIZE_MAX / elementSize) return false;
  void* grown = std::realloc(array->elements, static_cast<size_t>(wanted) * elementSize);
  if (grown == nullptr) return false;
  array->elements = grown;
  array->capacity = wanted;
  return true;
}

void tarn_array_free(TarnArray* array) noexcept {
  std::free(array->elements);
  *array = {};
}

bool tarn_array_append_bytes(TarnArray* array, std::span<const uint8_t> bytes) noexcept {
  if (bytes.size() >= std::numeric_limits<int32_t>::max() ||
      array->count == std::numeric_limits<int32_t>::max())
    return false;
  if (!tarn_array_reserve(array, array->count + 1, sizeof(TarnArray))) return false;
  TarnArray string = {};
  const auto size = static_cast<int32_t>(bytes.size());
  if (!tarn_array_reserve(&string, size + 1, 1)) return false;
  if (!bytes.empty()) std::memcpy(string.elements, bytes.data(), bytes.size());
  static_cast<char*>(string.elements)[size] = 0;
  string.count = size;
  strings_of(array)[array->count++] = string;
  return true;
}

bool tarn_array_append_text(TarnArray* array, std::string_view text) noexcept {
  return tarn_array_append_bytes(array,
                                 {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

void tarn_array_free_strings(TarnArray* array) noexcept {
  for (int32_t i = 0; i < array->count; ++i) tarn_array_free(&strings_of(array)[i]);
  tarn_array_free(array);
}

std::span<const uint8_t> tarn_array_bytes(const TarnArray* array, int32_t index) noexcept {
  if (index < 0 || index >= array->count) return {};
  const TarnArray& string = strings_of(array)[index];
  return {static_cast<const uint8_t*>(string.elements), static_cast<size_t>(string.count)};
}

std::string_view tarn_array_text(const TarnArray* array, int32_t index) noexcept {
  const std::span<const uint8_t> bytes = tarn_array_bytes(array, index);
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace Morvalen::Zel
