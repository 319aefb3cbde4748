#include "zel/platform/automation.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace Morvalen::Zel {
namespace {

// A counted string's block: four bytes that are unused, so that the text is aligned, then the
// length in bytes, then the text.
constexpr size_t kTextOffset = 8;
constexpr size_t kLengthOffset = 4;

char* blockOf(BSTR text) {
  return reinterpret_cast<char*>(text) - kTextOffset;
}

// An array's block: 16 bytes, the last four of them the element type, then the descriptor.
constexpr size_t kDescriptorOffset = 16;
constexpr size_t kTypeDistance = 4;

char* blockOf(SAFEARRAY* array) {
  return reinterpret_cast<char*>(array) - kDescriptorOffset;
}

static_assert(sizeof(void*) != 8 || (sizeof(SAFEARRAY) == 32 && offsetof(SAFEARRAY, pvData) == 16));
static_assert(offsetof(SAFEARRAY, cLocks) == 8);

bool hasDimension(const SAFEARRAY* array, uint32_t dimension) {
  return dimension >= 1 && dimension <= array->cDims;
}

}  // namespace

BSTR SysAllocString(OLECHAR const* text) {
  if (text == nullptr) return nullptr;
  const size_t count = std::char_traits<OLECHAR>::length(text);
  if (count > std::numeric_limits<uint32_t>::max()) return nullptr;
  return SysAllocStringLen(text, static_cast<uint32_t>(count));
}

BSTR SysAllocStringLen(OLECHAR const* text, uint32_t count) {
  constexpr uint32_t kLongest = std::numeric_limits<uint32_t>::max() / sizeof(OLECHAR);
  if (count > kLongest) return nullptr;
  const auto bytes = static_cast<uint32_t>(count * sizeof(OLECHAR));
  auto* block = static_cast<char*>(std::malloc(kTextOffset + size_t{bytes} + sizeof(OLECHAR)));
  if (block == nullptr) return nullptr;
  std::memcpy(block + kLengthOffset, &bytes, sizeof(bytes));
  if (text != nullptr && bytes != 0) std::memcpy(block + kTextOffset, text, bytes);
  std::memset(block + kTextOffset + bytes, 0, sizeof(OLECHAR));
  return reinterpret_cast<BSTR>(block + kTextOffset);
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(blockOf(text));
}

uint32_t SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  uint32_t bytes = 0;
  std::memcpy(&bytes, blockOf(text) + kLengthOffset, sizeof(bytes));
  return static_cast<uint32_t>(bytes / sizeof(OLECHAR));
}

SAFEARRAY* SafeArrayCreate(VARTYPE type, uint32_t dimensions, SAFEARRAYBOUND* bounds) {
  if (type != VT_UI1 || dimensions != 1 || bounds == nullptr) return nullptr;
  auto* block = static_cast<char*>(std::calloc(1, kDescriptorOffset + sizeof(SAFEARRAY)));
  if (block == nullptr) return nullptr;
  // An empty array has data too: one byte that nobody counts.
  void* data = std::calloc(bounds->cElements != 0 ? bounds->cElements : 1, 1);
  if (data == nullptr) {
    std::free(block);
    return nullptr;
  }
  const uint32_t storedType = type;
  std::memcpy(block + kDescriptorOffset - kTypeDistance, &storedType, sizeof(storedType));
  return new (block + kDescriptorOffset) SAFEARRAY{1, FADF_HAVEVARTYPE, 1, 0, data, {*bounds}};
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  if (array == nullptr) return S_OK;
  if (array->cLocks != 0) return DISP_E_ARRAYISLOCKED;
  std::free(array->pvData);
  std::free(blockOf(array));
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) {
  if (array == nullptr || data == nullptr) return E_INVALIDARG;
  // The other platform stops at 16 bits of locks too.
  if (array->cLocks >= 0xFFFF) return E_UNEXPECTED;
  ++array->cLocks;
  *data = array->pvData;
  return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) {
  if (array == nullptr) return E_INVALIDARG;
  if (array->cLocks == 0) return E_UNEXPECTED;
  --array->cLocks;
  return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, uint32_t dimension, int32_t* bound) {
  if (array == nullptr || bound == nullptr) return E_INVALIDARG;
  if (!hasDimension(array, dimension)) return DISP_E_BADINDEX;
  *bound = array->rgsabound[dimension - 1].lLbound;
  return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, uint32_t dimension, int32_t* bound) {
  if (array == nullptr || bound == nullptr) return E_INVALIDARG;
  if (!hasDimension(array, dimension)) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND& range = array->rgsabound[dimension - 1];
  *bound = static_cast<int32_t>(static_cast<uint32_t>(range.lLbound) + range.cElements - 1);
  return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type) {
  if (array == nullptr || type == nullptr) return E_INVALIDARG;
  uint32_t stored = 0;
  std::memcpy(&stored, reinterpret_cast<char*>(array) - kTypeDistance, sizeof(stored));
  *type = static_cast<VARTYPE>(stored);
  return S_OK;
}

}  // namespace Morvalen::Zel
