#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// A ring of references, first in, first out, that can grow up to a limit and remembers that it was
/// full or empty when somebody wanted it otherwise.
///
/// For one thread at a time, unless it comes from `Synchronized`.
class ZEL_API CDependenciesQueue : public CDependenciesObjectVS2012 {
 public:
  /// A queue for 2^logSize items (a negative logarithm counts as 0) that never grows.
  explicit CDependenciesQueue(int32_t logSize);
  /// A queue for 2^logSize items, not above 2^maxLogSize, that grows up to 2^maxLogSize.
  ///
  /// A queue that has no memory for its ring has a capacity of 0, so that it is full and empty at
  /// once. No ring has more than 2^30 places.
  CDependenciesQueue(int32_t logSize, int32_t maxLogSize);
  ~CDependenciesQueue() override;

  /// A form of `queue` that many threads can use, with a reference to it for as long as it lives
  /// and one reference for the caller; null when there is no memory for it or `queue` is null. Use
  /// `queue` through it only.
  ///
  /// Each operation is one step under the wrapper's lock. For several in one, hold a CAutoLock on
  /// it. When the lock can't be had the operations do nothing, and answer -1 for GetCapacity and
  /// GetThreshold, 0 for GetCount, false for Underflowed, true for the other questions, null for
  /// items, and the lock's result code for Enqueue and Requeue.
  static CDependenciesQueue* Synchronized(CDependenciesQueue* queue);

  /// Blocks until something is put into, taken out of or cleared from a synchronized queue, or the
  /// time is over. It takes the lock itself. Everybody who waits wakes, so look again:
  ///
  ///     CDependenciesObjectVS2012::CAutoLock lock(queue);
  ///     while (queue->GetCount() == 0) queue->Wait();
  ///     item = queue->Dequeue();
  ///
  /// Without the lock around it the loop can miss what happens between its two calls, and should
  /// wait with a time limit.
  /// @return false when the time ran out, or the queue isn't synchronized.
  using CDependenciesObjectVS2012::Wait;

  // The order of the virtual operations is part of the interface.

  /// Whether the queue locks itself.
  virtual bool IsSynchronized();
  /// Items that there is room for.
  virtual int32_t GetCapacity();
  /// The level of ExceedsThreshold.
  virtual int32_t GetThreshold();
  /// Sets the level of ExceedsThreshold, brought into 0 to the capacity. It starts at half the
  /// capacity, and growing leaves it.
  virtual void SetThreshold(int32_t value);
  /// Releases all items and forgets that the queue overflowed or underflowed.
  virtual void Clear();
  /// Whether an item was wanted when there was none, since the last `Clear`.
  virtual bool Underflowed();
  virtual bool IsEmpty();
  /// Whether there are more items than the threshold.
  virtual bool ExceedsThreshold();
  virtual bool IsFull();
  /// Whether an item found no room, since the last `Clear`.
  virtual bool Overflowed();
  virtual int32_t GetCount();
  /// Puts an item, which may be null, in front of the oldest one, to be the next one out, and adds
  /// a reference. Meant for what was dequeued just now.
  ///
  /// Deliberate: without a `Dequeue` before it since the queue was made or has grown, the item goes
  /// to a place that another one may have, which is then released. Pinned by queue_test.cpp,
  /// RequeueAtTheStartTakesThePlaceOfTheSecondItem.
  /// @return 0, or ZelErrorQueueFull, and then the item isn't kept
  virtual int Requeue(CDependenciesObjectVS2012* item);
  /// Puts an item, which may be null, behind the newest one and adds a reference.
  /// @return 0, or ZelErrorQueueFull, and then the item isn't kept
  virtual int Enqueue(CDependenciesObjectVS2012* item);
  /// Takes the oldest item out, with its reference; null when there is none.
  virtual CDependenciesObjectVS2012* Dequeue();
  /// The oldest item, with a reference for the caller, left where it is; null when there is none.
  virtual CDependenciesObjectVS2012* CheckFront();

 protected:
  /// No ring at all: for a class that keeps its items elsewhere.
  CDependenciesQueue();
  /// Doubles a full ring, if the limit and the memory allow it.
  void Grow();

 private:
  friend class CDependenciesQueueTest;

  int32_t Count() const { return tail - head; }
  int32_t Position(int32_t index) const;
  bool HasRoom();
  void Store(int32_t index, CDependenciesObjectVS2012* item);
  void RewindIndexes();

  int32_t logSize;
  int32_t maxLogSize;
  int32_t capacity;  // 1 << logSize, or 0 without a ring
  int32_t threshold;
  CDependenciesObjectVS2012** items;
  int32_t tail;  // running index one past the newest item
  int32_t head;  // running index of the oldest item; negative only by Requeue
  bool overflowed;
  bool underflowed;
};

}  // namespace Morvalen::Zel
