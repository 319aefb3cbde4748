#include "zel/runtime/queue.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "zel/runtime/result_codes.h"
#include "zel/runtime/synchronized_queue.h"

namespace Morvalen::Zel {

namespace {

// The largest power of two that a 32-bit signed count holds.
constexpr int32_t kMaximumLogSize = 30;

// An array of 2^logSize nulls, or null. Not touched here, so that a large ring costs what it holds.
CDependenciesObjectVS2012** AllocateRing(int32_t logSize) {
  if (logSize > kMaximumLogSize) return nullptr;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): a slot is a pointer.
  void* const ring = std::calloc(size_t{1} << logSize, sizeof(CDependenciesObjectVS2012*));
  return static_cast<CDependenciesObjectVS2012**>(ring);
}

}  // namespace

CDependenciesQueue::CDependenciesQueue()
    : logSize(0),
      maxLogSize(0),
      capacity(0),
      threshold(0),
      items(nullptr),
      tail(0),
      head(0),
      overflowed(false),
      underflowed(false) {}

CDependenciesQueue::CDependenciesQueue(int32_t wanted) : CDependenciesQueue(wanted, wanted) {}

CDependenciesQueue::CDependenciesQueue(int32_t wanted, int32_t limit) : CDependenciesQueue() {
  logSize = std::max(std::min(wanted, limit), 0);
  maxLogSize = limit;
  items = AllocateRing(logSize);
  capacity = items != nullptr ? int32_t{1} << logSize : 0;
  threshold = capacity / 2;
}

CDependenciesQueue::~CDependenciesQueue() {
  CDependenciesQueue::Clear();
  std::free(items);
}

CDependenciesQueue* CDependenciesQueue::Synchronized(CDependenciesQueue* queue) {
  return queue != nullptr ? new CSynchronizedQueue(queue) : nullptr;
}

// The place of an item: the index modulo the capacity, which is a power of two.
//
// Deliberate: a negative index is taken by the magnitude of its remainder, so that index -1 has
// place 1 and not the last one. Pinned by queue_test.cpp,
// RequeueAtTheStartTakesThePlaceOfTheSecondItem.
int32_t CDependenciesQueue::Position(int32_t index) const {
  return std::abs(index) & (capacity - 1);
}

// Before the newest index overflows, takes whole rounds of the ring off both: no place changes. The
// newest index is one short of a whole round then, so after the item that is coming it is a round
// at least, and requeueing into a queue that isn't full can't take the oldest below 0.
void CDependenciesQueue::RewindIndexes() {
  if (tail != std::numeric_limits<int32_t>::max()) return;
  int32_t const rounds = head & ~(capacity - 1);
  head -= rounds;
  tail -= rounds;
}

void CDependenciesQueue::Grow() {
  if (Count() < capacity || logSize >= maxLogSize) return;
  // Stays raised when there is no memory now, so that the next attempt asks for twice as much.
  ++logSize;
  CDependenciesObjectVS2012** const grown = AllocateRing(logSize);
  if (grown == nullptr) return;
  int32_t const count = Count();
  for (int32_t i = 0; i < count; ++i) {
    // Moved rather than copied: behind a Requeue below 0 two indexes may share a place, whose item
    // must not be owned twice.
    std::swap(grown[i], items[Position(head + i)]);
  }
  std::free(items);
  items = grown;
  capacity = int32_t{1} << logSize;
  head = 0;
  tail = count;
}

// Grows if necessary; whether there is room for one more item.
bool CDependenciesQueue::HasRoom() {
  Grow();
  if (Count() < capacity) return true;
  overflowed = true;
  return false;
}

void CDependenciesQueue::Store(int32_t index, CDependenciesObjectVS2012* item) {
  CDependenciesObjectVS2012*& place = items[Position(index)];
  CDependenciesObjectVS2012* const overwritten = place;
  if (item != nullptr) item->Acquire();
  place = item;
  if (overwritten != nullptr) overwritten->Release();
}

int CDependenciesQueue::Enqueue(CDependenciesObjectVS2012* item) {
  if (!HasRoom()) return ZelErrorQueueFull;
  RewindIndexes();
  // Counted before it is stored: storing may release an overwritten item, and so run code that
  // looks at this queue.
  int32_t const index = tail++;
  Store(index, item);
  return 0;
}

int CDependenciesQueue::Requeue(CDependenciesObjectVS2012* item) {
  if (!HasRoom()) return ZelErrorQueueFull;
  Store(--head, item);
  return 0;
}

CDependenciesObjectVS2012* CDependenciesQueue::Dequeue() {
  if (Count() < 1) {
    underflowed = true;
    return nullptr;
  }
  return std::exchange(items[Position(head++)], nullptr);
}

CDependenciesObjectVS2012* CDependenciesQueue::CheckFront() {
  if (Count() < 1) return nullptr;
  CDependenciesObjectVS2012* const item = items[Position(head)];
  if (item != nullptr) item->Acquire();
  return item;
}

void CDependenciesQueue::Clear() {
  while (Count() > 0) {
    CDependenciesObjectVS2012* const item = CDependenciesQueue::Dequeue();
    if (item != nullptr) item->Release();
  }
  overflowed = false;
  underflowed = false;
}

void CDependenciesQueue::SetThreshold(int32_t value) {
  threshold = std::clamp(value, 0, capacity);
}

int32_t CDependenciesQueue::GetThreshold() {
  return threshold;
}

int32_t CDependenciesQueue::GetCapacity() {
  return capacity;
}

int32_t CDependenciesQueue::GetCount() {
  return Count();
}

bool CDependenciesQueue::IsSynchronized() {
  return false;
}

bool CDependenciesQueue::IsEmpty() {
  return tail == head;
}

bool CDependenciesQueue::IsFull() {
  return Count() == capacity;
}

bool CDependenciesQueue::ExceedsThreshold() {
  return Count() > threshold;
}

bool CDependenciesQueue::Overflowed() {
  return overflowed;
}

bool CDependenciesQueue::Underflowed() {
  return underflowed;
}

}  // namespace Morvalen::Zel
