// The instantiations of the holder and container templates that leave the library.

#include "zel/runtime/array.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/dictionary.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/list.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

bool ItemsEqual(CString const* a, CString const* b) {
  return a == b || (a != nullptr && b != nullptr && a->Equals(b));
}

// By contents, as strings are, since equal bytes are equal values. An array that has no data yet
// equals itself only.
bool ItemsEqual(CByteArray const* a, CByteArray const* b) {
  return a == b || (a != nullptr && b != nullptr && a->Equals(b));
}

template class Object<CString, void, void>;
template class Object<CByteArray, void, void>;
template class RObject<CString>;
template class RObject<CByteArray>;
template class CArray<CString>;
template class CEnumerator<CString>;
template class CEnumerator<CByteArray>;
template class CDependenciesListEnumerator<CString>;
template class CDependenciesListEnumerator<CByteArray>;
template class CDependenciesList<CString>;
template class CDependenciesList<CByteArray>;
template class CDictionary<CString, CByteArray>;

}  // namespace Morvalen::Zel
