#include "zel/runtime/byte_array.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "zel/runtime/hexadecimal.h"
#include "zel/runtime/lazy_storage.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

// Whether a range of `count` at `offset` lies within `length`. Without overflow: all are
// not negative when the difference is taken.
bool IsWithin(int32_t offset, int32_t count, int32_t length) {
  return offset >= 0 && count >= 0 && count <= length && offset <= length - count;
}

}  // namespace

CByteArray::CByteArray(int32_t wanted)
    : CDependenciesObjectVS2012(Type, nullptr),
      length(std::max(wanted, 0)),
      storage(nullptr),
      data(nullptr),
      parent(nullptr) {}

CByteArray::CByteArray(int32_t wanted, unsigned char* foreign, CDependenciesObjectVS2012* keeper)
    : CByteArray(wanted) {
  if (keeper != nullptr) keeper->Acquire();
  parent = keeper;
  data.store(foreign, std::memory_order_relaxed);
}

CByteArray::CByteArray(unsigned char const* source, int32_t wanted) : CByteArray(wanted) {
  unsigned char* bytes = GetData();
  if (bytes == nullptr) {
    length = 0;
    return;
  }
  if (source != nullptr && length > 0) std::memcpy(bytes, source, static_cast<size_t>(length));
}

CByteArray::~CByteArray() {
  std::free(storage.load(std::memory_order_relaxed));
  if (parent != nullptr) parent->Release();
}

unsigned char* CByteArray::GetData() {
  return LazyData(data, storage, static_cast<size_t>(length));
}

int CByteArray::GetData(int32_t offset, int32_t count, CByteArray** result) {
  if (result == nullptr) return ZelErrorNullArgument;
  if (!IsWithin(offset, count, length)) return ZelErrorOutOfBounds;
  unsigned char* bytes = GetData();
  if (bytes == nullptr) return ZelErrorOutOfMemory;
  auto* window = new CByteArray(count, bytes + offset, this);
  if (window == nullptr) return ZelErrorOutOfMemory;
  *result = window;
  return 0;
}

unsigned char CByteArray::GetData(int32_t index) const {
  unsigned char const* bytes = data.load(std::memory_order_acquire);
  return bytes != nullptr && index >= 0 && index < length ? bytes[index] : 0;
}

void CByteArray::SetData(unsigned char* foreign) {
  CDependenciesObjectVS2012* old = parent;
  parent = nullptr;
  data.store(foreign, std::memory_order_release);
  if (old != nullptr) old->Release();
}

int CByteArray::SetData(CByteArray* keeper, int32_t offset) {
  if (keeper == nullptr) return ZelErrorNullArgument;
  if (!IsWithin(offset, length, keeper->length)) return ZelErrorOutOfBounds;
  // The array as a window on itself is what it is already; a reference to itself would never end.
  if (keeper == this) return 0;
  unsigned char* bytes = keeper->GetData();
  if (bytes == nullptr) return ZelErrorOutOfMemory;
  CDependenciesObjectVS2012* old = parent;
  keeper->Acquire();
  parent = keeper;
  data.store(bytes + offset, std::memory_order_release);
  if (old != nullptr) old->Release();
  return 0;
}

int32_t CByteArray::GetLength() const {
  return length;
}

int CByteArray::Clear() {
  unsigned char* bytes = GetData();
  if (bytes == nullptr) return ZelErrorOutOfMemory;
  std::memset(bytes, 0, static_cast<size_t>(length));
  return 0;
}

int CByteArray::Clear(int32_t offset, int32_t count) {
  unsigned char* bytes = data.load(std::memory_order_acquire);
  if (bytes == nullptr) return ZelErrorFailed;
  if (!IsWithin(offset, count, length)) return ZelErrorInvalidArgument;
  std::memset(bytes + offset, 0, static_cast<size_t>(count));
  return 0;
}

bool CByteArray::StartsWith(unsigned char const* bytes, int32_t count) const {
  unsigned char const* own = data.load(std::memory_order_acquire);
  if (own == nullptr || bytes == nullptr || count < 0 || count > length) return false;
  return std::memcmp(own, bytes, static_cast<size_t>(count)) == 0;
}

bool CByteArray::Equals(CByteArray const* other) const {
  if (other == nullptr || other->length != length) return false;
  unsigned char const* own = data.load(std::memory_order_acquire);
  // An empty array needs no data on the other side; a longer one without has no bytes to be equal.
  if (length == 0) return own != nullptr;
  return Equals(other->data.load(std::memory_order_acquire), length);
}

bool CByteArray::Equals(unsigned char const* bytes, int32_t count) const {
  return count == length && StartsWith(bytes, count);
}

uint32_t CByteArray::GetHashCode() {
  unsigned char const* bytes = data.load(std::memory_order_acquire);
  if (bytes == nullptr) return 0;
  uint32_t hash = 0x811C9DC5;
  for (int32_t i = 0; i < length; ++i) hash = (hash ^ bytes[i]) * 16777619u;
  return hash;
}

SAFEARRAY* CByteArray::ToSAFEARRAY() const {
  unsigned char const* bytes = data.load(std::memory_order_acquire);
  if (bytes == nullptr) return nullptr;
  SAFEARRAYBOUND bound = {static_cast<uint32_t>(length), 0};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  void* copy = nullptr;
  if (SafeArrayAccessData(array, &copy) != S_OK) return nullptr;
  std::memcpy(copy, bytes, static_cast<size_t>(length));
  SafeArrayUnaccessData(array);
  return array;
}

int CByteArray::FromHexString(char const* text, CByteArray*& result) {
  if (text == nullptr) return ZelErrorNullArgument;
  const std::string_view digits(text);
  const auto isDigit = [](char symbol) { return HexadecimalValue(symbol) >= 0; };
  constexpr size_t kMostBytes = 0x7FFFFFFF;
  if (digits.size() % 2 != 0 || digits.size() / 2 > kMostBytes) return ZelErrorInvalidArgument;
  if (!std::all_of(digits.begin(), digits.end(), isDigit)) return ZelErrorInvalidArgument;
  const auto count = static_cast<int32_t>(digits.size() / 2);
  auto* array = new CByteArray(count);
  unsigned char* bytes = array != nullptr ? array->GetData() : nullptr;
  if (bytes == nullptr) {
    if (array != nullptr) array->Release();
    return ZelErrorOutOfMemory;
  }
  for (size_t i = 0; i < digits.size(); i += 2) {
    bytes[i / 2] = static_cast<unsigned char>(HexadecimalValue(digits[i]) << 4 |
                                              HexadecimalValue(digits[i + 1]));
  }
  result = array;
  return 0;
}

ByteArray::ByteArray() = default;

ByteArray::ByteArray(CByteArray* bytes) : BaseObject(bytes) {}

ByteArray::ByteArray(ByteArray const& other) = default;

ByteArray::ByteArray(unsigned char const* source, int length)
    : BaseObject(new CByteArray(source, length)) {}

ByteArray::ByteArray(int length, unsigned char* data, Object<CByteArray, void, void> parent)
    : BaseObject(new CByteArray(length, data, static_cast<CByteArray*>(parent))) {
  parent = static_cast<CByteArray*>(nullptr);
}

ByteArray::~ByteArray() = default;

ByteArray& ByteArray::operator=(ByteArray const& other) {
  Object::operator=(other);
  return *this;
}

ByteArray::operator unsigned char const*() const {
  return typed != nullptr ? typed->GetData() : nullptr;
}

int32_t ByteArray::GetLength() const {
  return typed != nullptr ? typed->GetLength() : 0;
}

unsigned char ByteArray::GetData(int index) const {
  return typed != nullptr ? typed->GetData(index) : 0;
}

ByteArray ByteArray::FromObject(CByteArray* bytes) {
  // The stand-alone holder owns nothing: the reference that it added is the new holder's.
  return ByteArray(static_cast<CByteArray*>(Object::FromObject(bytes)));
}

}  // namespace Morvalen::Zel
