#include "zel/runtime/synchronized_queue.h"

namespace Morvalen::Zel {

CSynchronizedQueue::CSynchronizedQueue(CDependenciesQueue* wrapped) {
  queue.SafeAcquire(wrapped);
}

CSynchronizedQueue::~CSynchronizedQueue() = default;

template <class Operation, class Result>
Result CSynchronizedQueue::UnderLock(Operation operation, Result otherwise) {
  if (Enter() < 0) return otherwise;
  Result const result = operation();
  Exit();
  return result;
}

bool CSynchronizedQueue::IsSynchronized() {
  return true;
}

int32_t CSynchronizedQueue::GetCapacity() {
  return UnderLock([this] { return queue->GetCapacity(); }, -1);
}

int32_t CSynchronizedQueue::GetThreshold() {
  return UnderLock([this] { return queue->GetThreshold(); }, -1);
}

void CSynchronizedQueue::SetThreshold(int32_t value) {
  if (Enter() < 0) return;
  queue->SetThreshold(value);
  Exit();
}

void CSynchronizedQueue::Clear() {
  if (Enter() < 0) return;
  queue->Clear();
  NotifyAll();
  Exit();
}

bool CSynchronizedQueue::Underflowed() {
  return UnderLock([this] { return queue->Underflowed(); }, false);
}

bool CSynchronizedQueue::IsEmpty() {
  return UnderLock([this] { return queue->IsEmpty(); }, true);
}

bool CSynchronizedQueue::ExceedsThreshold() {
  return UnderLock([this] { return queue->ExceedsThreshold(); }, true);
}

bool CSynchronizedQueue::IsFull() {
  return UnderLock([this] { return queue->IsFull(); }, true);
}

bool CSynchronizedQueue::Overflowed() {
  return UnderLock([this] { return queue->Overflowed(); }, true);
}

int32_t CSynchronizedQueue::GetCount() {
  return UnderLock([this] { return queue->GetCount(); }, 0);
}

int CSynchronizedQueue::PutUnderLock(int (CDependenciesQueue::*put)(CDependenciesObjectVS2012*),
                                     CDependenciesObjectVS2012* item) {
  int result = Enter();
  if (result < 0) return result;
  result = (queue->*put)(item);
  if (result >= 0) result = NotifyAll();
  Exit();
  return result;
}

int CSynchronizedQueue::Requeue(CDependenciesObjectVS2012* item) {
  return PutUnderLock(&CDependenciesQueue::Requeue, item);
}

int CSynchronizedQueue::Enqueue(CDependenciesObjectVS2012* item) {
  return PutUnderLock(&CDependenciesQueue::Enqueue, item);
}

CDependenciesObjectVS2012* CSynchronizedQueue::Dequeue() {
  if (Enter() < 0) return nullptr;
  CDependenciesObjectVS2012* const item = queue->Dequeue();
  NotifyAll();
  Exit();
  return item;
}

CDependenciesObjectVS2012* CSynchronizedQueue::CheckFront() {
  return UnderLock([this] { return queue->CheckFront(); },
                   static_cast<CDependenciesObjectVS2012*>(nullptr));
}

// A wait leaves the lock once. So a caller who holds it already, to look and wait in one step, must
// not be made to enter it again: it would sleep with the lock held, and nobody could wake it.
template <class Operation>
bool CSynchronizedQueue::WaitUnderLock(Operation operation) {
  if (HoldsLock()) return operation();
  return UnderLock(operation, false);
}

bool CSynchronizedQueue::Wait() {
  return WaitUnderLock([this] { return CDependenciesQueue::Wait(); });
}

bool CSynchronizedQueue::Wait(int32_t milliseconds) {
  return WaitUnderLock([this, milliseconds] { return CDependenciesQueue::Wait(milliseconds); });
}

}  // namespace Morvalen::Zel
