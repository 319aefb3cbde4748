#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/base/export.h"

// Counted wide strings and byte arrays as automation callers know them: the few calls and the
// record layouts that the runtime's interface names, and no more.
//
// The layouts are those of the other platform to the byte, also where that differs from this
// system's habits: an OLECHAR has 16 bits although `wchar_t` has 32, because readers of these
// records find the length and the terminator by the layout, count bytes by twos, and pass them on
// (over a wire, into a foreign runtime) as they are. The functions allocate with malloc and are
// exported, since the caller of this library is who frees.

namespace Morvalen::Zel {

using OLECHAR = char16_t;
/// Points at the first unit. The four bytes before it hold the length in BYTES, without the
/// terminator of one zero unit; the text may hold zero units too. Aligned to 8 bytes.
using BSTR = OLECHAR*;
using HRESULT = int32_t;
using VARTYPE = uint16_t;

inline constexpr VARTYPE VT_UI1 = 17;  ///< unsigned bytes

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
inline constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000B);
inline constexpr HRESULT DISP_E_ARRAYISLOCKED = static_cast<HRESULT>(0x8002000D);

/// A new counted string with a copy of the text up to its terminator. Null for null, or without
/// memory.
ZEL_API BSTR SysAllocString(OLECHAR const* text);
/// A new counted string of `count` units, copied from `text`, which may hold zeros; with a null
/// `text` the units are uninitialised. Null without memory or when the bytes don't fit 32 bits.
ZEL_API BSTR SysAllocStringLen(OLECHAR const* text, uint32_t count);
/// Frees a counted string; null is allowed.
ZEL_API void SysFreeString(BSTR text);
/// Units of a counted string, 0 for null.
ZEL_API uint32_t SysStringLen(BSTR text);

/// Bounds of one dimension of an array.
struct SAFEARRAYBOUND {
  uint32_t cElements;
  int32_t lLbound;
};

/// Descriptor of an array. The element type stands in the four bytes before it.
struct SAFEARRAY {
  uint16_t cDims;
  uint16_t fFeatures;   // FADF_... bits
  uint32_t cbElements;  // bytes of one element
  uint32_t cLocks;
  void* pvData;
  SAFEARRAYBOUND rgsabound[1];  // cDims of them
};

inline constexpr uint16_t FADF_HAVEVARTYPE = 0x0080;

/// A new array of zeroed elements. Only VT_UI1 in one dimension is made here.
/// @return null for another type or number of dimensions, null `bounds`, or without memory.
ZEL_API SAFEARRAY* SafeArrayCreate(VARTYPE type, uint32_t dimensions, SAFEARRAYBOUND* bounds);
/// Frees an array; null is allowed. @return S_OK; DISP_E_ARRAYISLOCKED, and nothing happens.
ZEL_API HRESULT SafeArrayDestroy(SAFEARRAY* array);
/// Locks the array and gives its elements. The count of locks is not atomic.
/// @return S_OK; E_INVALIDARG for null; E_UNEXPECTED for too many locks.
ZEL_API HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data);
/// @return S_OK; E_INVALIDARG for null; E_UNEXPECTED if the array is not locked.
ZEL_API HRESULT SafeArrayUnaccessData(SAFEARRAY* array);
/// First and last index of a dimension, counted from 1. An empty one has its last before its first.
/// @return S_OK; E_INVALIDARG for null; DISP_E_BADINDEX for a dimension that isn't there.
ZEL_API HRESULT SafeArrayGetLBound(SAFEARRAY* array, uint32_t dimension, int32_t* bound);
ZEL_API HRESULT SafeArrayGetUBound(SAFEARRAY* array, uint32_t dimension, int32_t* bound);
/// @return S_OK; E_INVALIDARG for null.
ZEL_API HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);

}  // namespace Morvalen::Zel
