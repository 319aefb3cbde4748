#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// The multiplexer's growable array: a plain record, worked on by free functions. All bytes zero is
/// an empty array. What `elements` points at is the array's own, allocated with malloc.
///
/// An array of byte strings has elements that are themselves a TarnArray of bytes, whose `count` is
/// the string's length: descriptors, file lists and lists of texts are such arrays. The strings
/// have a zero byte behind their last one that `count` leaves out.
///
/// None of the functions may run while another thread uses the same array.
struct TarnArray {
  int32_t capacity;  ///< elements that fit
  int32_t count;     ///< elements that are there
  void* elements;
};

/// Makes room for `capacity` elements of `elementSize` bytes: the capacity doubles, and is at least
/// 8 and at least what is asked for.
/// @return false when memory is short; the array is then as it was.
ZEL_API bool tarn_array_reserve(TarnArray* array, int32_t capacity, size_t elementSize) noexcept;

/// Frees the elements of an array of plain values. The array is empty afterwards.
ZEL_API void tarn_array_free(TarnArray* array) noexcept;

/// Appends a copy of `bytes` to an array of byte strings.
/// @return false when memory is short; the array holds what it held.
ZEL_API bool tarn_array_append_bytes(TarnArray* array, std::span<const uint8_t> bytes) noexcept;

/// Appends a copy of `text` to an array of byte strings.
ZEL_API bool tarn_array_append_text(TarnArray* array, std::string_view text) noexcept;

/// Frees an array of byte strings, and its strings. The array is empty afterwards.
ZEL_API void tarn_array_free_strings(TarnArray* array) noexcept;

/// The bytes of string `index` of an array of byte strings; empty when there is none. Valid until
/// the array is freed: growing it doesn't move its strings.
ZEL_API std::span<const uint8_t> tarn_array_bytes(const TarnArray* array, int32_t index) noexcept;

/// The same as a text.
ZEL_API std::string_view tarn_array_text(const TarnArray* array, int32_t index) noexcept;

}  // namespace Morvalen::Zel
