#include "zel/runtime/leaks.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "zel/runtime/leak_hooks.h"
#include "zel/runtime/leak_messages.h"
#include "zel/runtime/leak_records.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

namespace {

constexpr int32_t kDefaultLimit = 128;
constexpr uint32_t kFirstScratchSize = 256;

}  // namespace

// Set by the process's start, which comes before the initialisation of static objects.
constinit std::atomic<CLeaks*> CLeaks::instance{nullptr};

void StartLeakTracker() {
  alignas(CLeaks) static std::byte storage[sizeof(CLeaks)];
  CLeaks::instance.store(new (storage) CLeaks, std::memory_order_release);
  // At exit what was recorded goes, but neither the tracker nor its lock: another thread may be
  // waiting for the lock in a hook, and finds the mode off when it gets it. Hooks of objects that
  // die later find no instance.
  std::atexit([] {
    CLeaks* const tracker = CLeaks::instance.exchange(nullptr, std::memory_order_acq_rel);
    if (tracker != nullptr) tracker->FreeAll();
  });
}

void Leaks::Mark(int32_t mode, uint32_t type) {
  CLeaks::Mark(mode, type);
}

int Leaks::ShowLeaksSinceMark() {
  return CLeaks::ShowLeaksSinceMark(kDefaultLimit);
}

void CLeaks::Mark(int32_t mode, uint32_t type) {
  if (CLeaks* const tracker = instance.load(std::memory_order_acquire)) tracker->Begin(mode, type);
}

int CLeaks::ShowLeaksSinceMark(int32_t limit) {
  CLeaks* const tracker = instance.load(std::memory_order_acquire);
  return tracker != nullptr ? tracker->End(limit) : 0;
}

void CLeaks::ShowReferenceLeaksSinceMark(int32_t limit) {
  CLeaks* const tracker = instance.load(std::memory_order_acquire);
  if (tracker == nullptr) return;
  Operation operation(*tracker);
  if (!operation.IsNested()) tracker->LogReferenceLeaksByBacktrace(operation, limit);
}

void CLeaks::SetCallback(char* (*callback)()) {
  CLeaks* const tracker = instance.load(std::memory_order_acquire);
  if (tracker == nullptr) return;
  Operation operation(*tracker);
  tracker->callback = callback;
}

CLeaks::CLeaks()
    : callback(nullptr),
      mode(Off),
      typeFilter(0),
      primeIndex(0),
      tableSize(0),
      objectCount(0),
      objectsTracked(0),
      peakObjects(0),
      scratch(std::make_unique<char[]>(kFirstScratchSize)),
      scratchSize(kFirstScratchSize),
      busy(false) {
  Rehash(0);
}

CLeaks::~CLeaks() {
  FreeAll();
}

void CLeaks::FreeAll() {
  Operation operation(*this);
  mode.store(Off);
  table.reset();
  tableSize = 0;
  objectCount = 0;
  scratch.reset();
  scratchSize = 0;
}

void CLeaks::Begin(int32_t newMode, uint32_t newTypeFilter) {
  Operation operation(*this);
  if (operation.IsNested()) return;
  std::for_each_n(table.get(), tableSize, [](Slot& slot) { slot = Slot(); });
  objectCount = 0;
  Rehash(0);
  objectsTracked = 0;
  peakObjects = 0;
  typeFilter = newTypeFilter;
  mode.store(newMode);
}

int CLeaks::End(int32_t limit) {
  Operation operation(*this);
  if (operation.IsNested()) return 0;
  const auto leaked = static_cast<int>(objectCount);
  if (objectCount > 0) {
    LogLeaksByEquivalentBacktraces(operation, limit);
  } else {
    operation.Log(zel::platform::kDebugInformation, LeakMessages::NoLeaks, objectsTracked,
                  static_cast<int32_t>(peakObjects));
  }
  mode.store(Off);
  return leaked;
}

__attribute__((noinline)) void CLeaks::AddObject(CDependenciesObjectVS2012 const* object) {
  void const* const caller = __builtin_return_address(0);
  if (object == nullptr || mode.load(std::memory_order_relaxed) == Off) return;
  Operation operation(*this);
  if (operation.IsNested() || mode.load() == Off || !PassesFilter(object->GetType())) return;
  Record(object, caller);
}

void CLeaks::Record(CDependenciesObjectVS2012 const* object, void const* innermost) {
  if (!GrowForOneMore()) return;
  uint64_t probes = 0;
  Slot& slot = table[FindFreeIndexHoldingLock(object, probes)];
  slot.object = object;
  slot.type = object->GetType();
  const int32_t current = mode.load();
  if (current >= Stack) CaptureBacktrace(slot.backtrace, innermost);
  if (current >= ReferenceCountInfo) slot.references = std::make_unique<ReferenceInfo>();
  if (current >= ReferenceCountStack) CaptureBacktrace(slot.references->Next(), innermost);
  ++objectCount;
  peakObjects = std::max(peakObjects, objectCount);
  ++objectsTracked;
  ++addLookups;
  addProbes += probes;
}

void CLeaks::RemoveObject(CDependenciesObjectVS2012 const* object) {
  if (object == nullptr || mode.load(std::memory_order_relaxed) == Off) return;
  Operation operation(*this);
  if (operation.IsNested() || mode.load() == Off || !PassesFilter(object->GetType())) return;
  ++removeLookups;
  const uint32_t index = FindObjectIndexHoldingLock(object, removeProbes);
  if (index == tableSize) {
    LogObject(operation, LeakMessages::RemoveNotTracked, object, object->GetType(), nullptr);
    return;
  }
  Forget(index);
}

void CLeaks::Forget(uint32_t index) {
  table[index] = Slot();
  --objectCount;
  ShrinkIfSparse();
}

__attribute__((noinline)) void CLeaks::AddObjectReference(CDependenciesObjectVS2012 const* object) {
  void const* const caller = __builtin_return_address(0);
  if (object == nullptr || mode.load(std::memory_order_relaxed) < ReferenceCountInfo) return;
  Operation operation(*this);
  if (operation.IsNested() || mode.load() < ReferenceCountInfo) return;
  if (!PassesFilter(object->GetType())) return;
  ++addReferenceLookups;
  const uint32_t index = FindObjectIndexHoldingLock(object, addReferenceProbes);
  if (index == tableSize) {
    LogObject(operation, LeakMessages::AddReferenceNotTracked, object, object->GetType(), nullptr);
    return;
  }
  ReferenceInfo* const references = table[index].references.get();
  if (references == nullptr) {
    operation.Log(zel::platform::kDebugError, LeakMessages::AddReferenceInfoNull);
    return;
  }
  ++references->outstanding;
  ++references->possible;
  ++references->acquires;
  if (mode.load() >= ReferenceCountStack) CaptureBacktrace(references->Next(), caller);
}

void CLeaks::RemoveObjectReference(CDependenciesObjectVS2012 const* object) {
  if (object == nullptr || mode.load(std::memory_order_relaxed) < ReferenceCountInfo) return;
  Operation operation(*this);
  if (operation.IsNested() || mode.load() < ReferenceCountInfo) return;
  if (!PassesFilter(object->GetType())) return;
  ++removeReferenceLookups;
  const uint32_t index = FindObjectIndexHoldingLock(object, removeReferenceProbes);
  if (index == tableSize) {
    LogObject(operation, LeakMessages::RemoveReferenceNotTracked, object, object->GetType(),
              nullptr);
    return;
  }
  ReferenceInfo* const references = table[index].references.get();
  if (references == nullptr) {
    operation.Log(zel::platform::kDebugError, LeakMessages::RemoveReferenceInfoNull);
  } else if (references->outstanding == 0) {
    operation.Log(zel::platform::kDebugError, LeakMessages::NothingToRelease);
  } else if (references->outstanding > 1) {
    // No one can tell which of the acquires this answers.
    ++references->ambiguousReleases;
    --references->outstanding;
  } else {
    // The last one closes the books: whatever was ambiguous has been answered too.
    references->outstanding = 0;
    references->possible = 0;
    references->DropBacktraces();
    ++references->trackableReleases;
  }
}

// The object has its new tag already. With a filter on one of the two tags it begins or ceases to
// be tracked, silently; without one only the note of its tag changes.
__attribute__((noinline)) void CLeaks::ChangeObjectType(CDependenciesObjectVS2012 const* object,
                                                        uint32_t formerType) {
  void const* const caller = __builtin_return_address(0);
  Operation operation(*this);
  if (operation.IsNested() || mode.load() == Off) return;
  const uint32_t type = object->GetType();
  if (!PassesFilter(formerType)) {
    if (PassesFilter(type)) Record(object, caller);
    return;
  }
  uint64_t unused = 0;
  const uint32_t index = FindObjectIndexHoldingLock(object, unused);
  if (index == tableSize) return;
  if (PassesFilter(type)) {
    table[index].type = type;
  } else {
    Forget(index);
  }
}

}  // namespace Morvalen::Zel
