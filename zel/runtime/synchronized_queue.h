#pragma once

#include "zel/runtime/holder.h"
#include "zel/runtime/queue.h"

namespace Morvalen::Zel {

/// The form of a queue that many threads can use. What each operation does, and answers when the
/// lock can't be had, is told at CDependenciesQueue::Synchronized.
class CSynchronizedQueue : public CDependenciesQueue {
 public:
  /// Adds a reference to the wrapped queue.
  explicit CSynchronizedQueue(CDependenciesQueue* wrapped);
  ~CSynchronizedQueue() override;

  bool IsSynchronized() override;
  int32_t GetCapacity() override;
  int32_t GetThreshold() override;
  void SetThreshold(int32_t value) override;
  void Clear() override;
  bool Underflowed() override;
  bool IsEmpty() override;
  bool ExceedsThreshold() override;
  bool IsFull() override;
  bool Overflowed() override;
  int32_t GetCount() override;
  int Requeue(CDependenciesObjectVS2012* item) override;
  int Enqueue(CDependenciesObjectVS2012* item) override;
  CDependenciesObjectVS2012* Dequeue() override;
  CDependenciesObjectVS2012* CheckFront() override;

 protected:
  bool Wait() override;
  bool Wait(int32_t milliseconds) override;

 private:
  template <class Operation, class Result>
  Result UnderLock(Operation operation, Result otherwise);
  int PutUnderLock(int (CDependenciesQueue::*put)(CDependenciesObjectVS2012*),
                   CDependenciesObjectVS2012* item);
  template <class Operation>
  bool WaitUnderLock(Operation operation);

  RObject<CDependenciesQueue> queue;
};

}  // namespace Morvalen::Zel
