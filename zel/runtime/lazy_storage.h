#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>

namespace Morvalen::Zel {

/// The data of an array, whose memory is made at first use. `data` points at memory of any owner,
/// `storage` at what the array itself owns. Threads that come at the same moment make a block each,
/// one of which is put in place and the others freed, so that all get the same.
/// @return null without memory.
template <class T>
T* LazyData(std::atomic<T*>& data, std::atomic<T*>& storage, size_t count) {
  T* present = data.load(std::memory_order_acquire);
  if (present != nullptr) return present;
  T* owned = storage.load(std::memory_order_acquire);
  if (owned == nullptr) {
    // An empty array has an address too. Uninitialised: callers fill what they asked for.
    auto* fresh = static_cast<T*>(std::malloc(count != 0 ? count * sizeof(T) : 1));
    if (fresh == nullptr) return nullptr;
    if (storage.compare_exchange_strong(owned, fresh, std::memory_order_acq_rel,
                                        std::memory_order_acquire)) {
      owned = fresh;
    } else {
      std::free(fresh);
    }
  }
  return data.compare_exchange_strong(present, owned, std::memory_order_acq_rel,
                                      std::memory_order_acquire)
             ? owned
             : present;
}

}  // namespace Morvalen::Zel
