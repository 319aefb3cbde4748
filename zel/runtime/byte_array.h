#pragma once

#include <atomic>
#include <cstdint>

#include "zel/base/export.h"
#include "zel/platform/automation.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// A block of bytes that owns its memory, wraps memory of somebody else, or is a window on another
/// array. Its length is fixed when it is made.
///
/// Threads: the bytes themselves are unguarded. `GetData()` may be called on any thread: when
/// several make the memory at the same moment all get the same block. `SetData` is for one thread,
/// while no other uses the array.
class ZEL_API CByteArray : public CDependenciesObjectVS2012 {
 public:
  static constexpr uint32_t Type = FourCharacterCode("data");

  /// An array without memory, which is made at the first `GetData()`. A negative length becomes 0.
  explicit CByteArray(int32_t wanted);
  /// Wraps `foreign` memory, which stays the caller's and has to outlive the array. `keeper`, which
  /// may be null, gets a reference for as long, to keep the memory alive.
  CByteArray(int32_t wanted, unsigned char* foreign, CDependenciesObjectVS2012* keeper);
  /// Copies `wanted` bytes. With a null `source` the memory is there, uninitialised.
  CByteArray(unsigned char const* source, int32_t wanted);
  ~CByteArray() override;

  /// The bytes. Memory that is missing is made, uninitialised; null if there is none to be had.
  unsigned char* GetData();
  /// A window of `count` bytes at `offset`, which shares this array's memory and holds a reference
  /// to it. The caller owns the reference in `*result`.
  /// @return 0; ZelErrorOutOfBounds if the range is not within the array, ZelErrorNullArgument,
  /// ZelErrorOutOfMemory. `*result` is set on success only.
  int GetData(int32_t offset, int32_t count, CByteArray** result);
  /// The byte at an index; 0 without data or out of range.
  unsigned char GetData(int32_t index) const;
  /// Points the array at `foreign` memory, which stays the caller's, and releases the parent.
  /// Memory that the array owns is kept until it dies; null brings it back at the next `GetData()`.
  void SetData(unsigned char* foreign);
  /// Makes this array a window on `keeper`, which gets a reference.
  /// @return 0; ZelErrorOutOfBounds if the offset is negative or leaves less than this array's
  /// length, ZelErrorNullArgument, ZelErrorOutOfMemory.
  int SetData(CByteArray* keeper, int32_t offset);
  int32_t GetLength() const;

  /// Zeroes all bytes, making the memory if it is missing. @return 0 or ZelErrorOutOfMemory.
  int Clear();
  /// Zeroes a range. @return 0; ZelErrorFailed without data, ZelErrorInvalidArgument for a range
  /// that is not within the array.
  int Clear(int32_t offset, int32_t count);

  /// Whether the array starts with these bytes. Null, a negative count and an array without data
  /// give false.
  bool StartsWith(unsigned char const* bytes, int32_t count) const;
  /// Whether lengths and bytes are equal. Null, and an array without data on this side, give false.
  bool Equals(CByteArray const* other) const;
  bool Equals(unsigned char const* bytes, int32_t count) const;
  /// 32-bit FNV-1a of the bytes, computed at each call; 0 without data.
  uint32_t GetHashCode() override;

  /// A copy as a one-dimensional array of VT_UI1 with lower bound 0, for the caller to destroy with
  /// `SafeArrayDestroy`. Null without data or memory.
  SAFEARRAY* ToSAFEARRAY() const;

  /// The bytes that pairs of hexadecimal digits of either case stand for. The caller owns the
  /// reference in `result`, which is set on success only.
  /// @return 0; ZelErrorNullArgument for null text, ZelErrorInvalidArgument for an odd number of
  /// characters or one that is no digit, ZelErrorOutOfMemory.
  static int FromHexString(char const* text, CByteArray*& result);

 private:
  int32_t length;
  // What this array owns. Set once, by the constructor or the first thread that needed it.
  std::atomic<unsigned char*> storage;
  std::atomic<unsigned char*> data;
  CDependenciesObjectVS2012* parent;  // one reference, or null
};

/// Holds one reference to a `CByteArray`.
class ZEL_API ByteArray : public Object<CByteArray, void, void> {
 public:
  ByteArray();
  /// Adopts the caller's reference.
  ByteArray(CByteArray* bytes);
  ByteArray(ByteArray const& other);
  /// A new array with a copy of the bytes.
  ByteArray(unsigned char const* source, int length);
  /// A new array that wraps `data`, kept alive by the array that `parent` holds.
  ByteArray(int length, unsigned char* data, Object<CByteArray, void, void> parent);
  ~ByteArray() override;

  using Object<CByteArray, void, void>::operator=;
  ByteArray& operator=(ByteArray const& other);

  /// The bytes, made if they are missing; null for an empty holder.
  operator unsigned char const*() const;
  /// 0 for an empty holder, as is a byte of it.
  int32_t GetLength() const;
  unsigned char GetData(int index) const;

  /// A holder with a reference of its own.
  static ByteArray FromObject(CByteArray* bytes);
};

}  // namespace Morvalen::Zel
