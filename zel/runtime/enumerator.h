#pragma once

#include "zel/base/export.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// A walk over a container's items. It starts before the first item. Not locked.
template <class T>
class CEnumerator : public CDependenciesObjectVS2012 {
 public:
  // The order of the virtual operations is part of the interface.

  /// Back to before the first item. @return 0
  virtual int Reset() = 0;
  /// Steps to the next item; whether there is one. Once it was false it stays so until `Reset`.
  virtual bool MoveNext() = 0;
  /// Puts the current item in the holder, which adds a reference unless it holds it already.
  /// @return 0, or ZelErrorNotReady when there is no current item.
  virtual int GetCurrent(RObject<T>& holder) = 0;
  /// Stores the current item with a reference for the caller.
  /// @return 0, or ZelErrorNotReady when there is no current item; `item` is then unchanged.
  virtual int GetCurrent(T*& item) = 0;
  /// The current item with a reference for the caller; null when there is none.
  virtual T* GetCurrent() = 0;
};

}  // namespace Morvalen::Zel
