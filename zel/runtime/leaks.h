#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "zel/base/export.h"
#include "zel/runtime/lock.h"

namespace Morvalen::Zel {

class CDependenciesObjectVS2012;

/// Finds objects that somebody forgot to release: what is created between `Mark` and
/// `ShowLeaksSinceMark` and still lives then is reported on the debug output
/// (`DebugOutput::SetSink`, or ZEL_DEBUG=5 in the environment), grouped by the place of its
/// creation.
///
/// Objects report to the tracker only in a library built with the CMake option ZEL_LEAK_HOOKS; in
/// others their creation costs nothing and nothing is ever recorded.
///
/// There is one tracker in a process. All operations are safe on any thread; objects may come and
/// go on others meanwhile.
class Leaks {
 public:
  static constexpr int32_t Off = 0;     ///< record nothing
  static constexpr int32_t Object = 1;  ///< live objects
  static constexpr int32_t Stack = 2;   ///< and a stack trace of each creation

  /// Starts tracking, and forgets what was recorded before. `mode` is one of the constants here or
  /// in CLeaks. `type` is the tag of the objects to track, such as CString::Type, or 0 for all.
  static ZEL_API void Mark(int32_t mode, uint32_t type);

  /// Ends tracking and reports at most 128 groups of leaked objects.
  /// @return the number of objects tracked that still live: 0 when nothing leaked.
  static ZEL_API int ShowLeaksSinceMark();
};

/// The leak tracker itself: more modes, more of the report. Use `Leaks` where that will do.
class CLeaks {
 public:
  static constexpr int32_t Off = 0;                  ///< record nothing
  static constexpr int32_t Object = 1;               ///< live objects
  static constexpr int32_t Stack = 2;                ///< and a stack trace of each creation
  static constexpr int32_t ReferenceCountInfo = 3;   ///< and counts of acquires and releases
  static constexpr int32_t ReferenceCountStack = 4;  ///< and a stack trace of each acquire

  /// As `Leaks::Mark`, with the modes here.
  static ZEL_API void Mark(int32_t mode, uint32_t type);

  /// As `Leaks::ShowLeaksSinceMark`, with details of the first `limit` groups.
  static ZEL_API int ShowLeaksSinceMark(int32_t limit);

  /// Another view of the references that were recorded since the last `Mark`, for the mode
  /// ReferenceCountStack: where the acquires were that no release has answered, or perhaps none. It
  /// reports the first `limit` places, while tracking or after it ended.
  static ZEL_API void ShowReferenceLeaksSinceMark(int32_t limit);

  /// Sets a function that gives the caller's stack as text, in place of the built-in capture; null
  /// restores that. The text is copied, so it may be the same buffer each time; null is no trace.
  /// The function is called on the thread that creates or acquires an object, with the tracker's
  /// lock held; objects that it uses itself aren't recorded. It must not throw, and must not wait
  /// for another thread.
  static ZEL_API void SetCallback(char* (*callback)());

  CLeaks(CLeaks const&) = delete;
  CLeaks& operator=(CLeaks const&) = delete;

 private:
  friend class CDependenciesObjectVS2012;  // calls the hooks
  friend struct CLeaksTestAccess;          // the tests' way in; defined there only
  friend void StartLeakTracker();

  struct Backtrace;
  struct ReferenceInfo;
  struct Slot;
  struct Group;
  struct Totals;
  struct ReferencePlace;
  class Operation;

  CLeaks();
  ~CLeaks();

  // The hooks. The object has to be alive: a release is reported before it's done.

  static void CreateObject(CDependenciesObjectVS2012 const* object) {
    if (CLeaks* const tracker = Active()) tracker->AddObject(object);
  }
  static void DestroyObject(CDependenciesObjectVS2012 const* object) {
    if (CLeaks* const tracker = Active()) tracker->RemoveObject(object);
  }
  static void AcquireObject(CDependenciesObjectVS2012 const* object) {
    if (CLeaks* const tracker = Active()) tracker->AddObjectReference(object);
  }
  static void ReleaseObject(CDependenciesObjectVS2012 const* object) {
    if (CLeaks* const tracker = Active()) tracker->RemoveObjectReference(object);
  }
  // A class that sets its tag in its own constructor was seen with another one by CreateObject.
  static void RetypeObject(CDependenciesObjectVS2012 const* object, uint32_t formerType) {
    if (CLeaks* const tracker = Active()) tracker->ChangeObjectType(object, formerType);
  }

  static CLeaks* Active() {
    CLeaks* const tracker = instance.load(std::memory_order_acquire);
    if (tracker == nullptr || tracker->mode.load(std::memory_order_relaxed) == Off) return nullptr;
    return tracker;
  }

  void Begin(int32_t newMode, uint32_t newTypeFilter);
  int End(int32_t limit);
  void AddObject(CDependenciesObjectVS2012 const* object);
  void RemoveObject(CDependenciesObjectVS2012 const* object);
  void AddObjectReference(CDependenciesObjectVS2012 const* object);
  void RemoveObjectReference(CDependenciesObjectVS2012 const* object);
  void ChangeObjectType(CDependenciesObjectVS2012 const* object, uint32_t formerType);

  // From here on the lock is held.

  bool PassesFilter(uint32_t type) const { return typeFilter == 0 || type == typeFilter; }
  void Record(CDependenciesObjectVS2012 const* object, void const* innermost);
  void Forget(uint32_t index);
  void FreeAll();

  uint32_t HomeOf(CDependenciesObjectVS2012 const* object) const;
  uint32_t FindObjectIndexHoldingLock(CDependenciesObjectVS2012 const* object,
                                      uint64_t& probes) const;
  uint32_t FindFreeIndexHoldingLock(CDependenciesObjectVS2012 const* object,
                                    uint64_t& probes) const;
  bool GrowForOneMore();
  void ShrinkIfSparse();
  void Rehash(uint32_t newPrimeIndex);

  void CaptureBacktrace(Backtrace& backtrace, void const* innermost);
  void AppendToScratch(size_t& used, char const* text, size_t length);

  static void LogObject(Operation& operation, char const* label,
                        CDependenciesObjectVS2012 const* object, uint32_t type, char const* trace);
  void LogLeaksByEquivalentBacktraces(Operation& operation, int32_t limit);
  static void LogGroup(Operation& operation, Group const& group, Totals& totals);
  static void LogReferences(Operation& operation, Group const& group, Totals& totals);
  void LogReferenceLeaksByBacktrace(Operation& operation, int32_t limit);

  // Null before the process's start has come to it and after its exit has.
  static std::atomic<CLeaks*> instance;

  char* (*callback)();
  // Read without the lock, so that tracking costs a test when it's off; each hook tests it again
  // with the lock held, so that an old value does no harm.
  std::atomic<int32_t> mode;
  uint32_t typeFilter;
  CDependenciesLock lock;  // guards everything else
  uint32_t primeIndex;
  uint32_t tableSize;
  uint32_t objectCount;
  std::unique_ptr<Slot[]> table;
  uint64_t objectsTracked;
  uint32_t peakObjects;
  uint64_t addLookups;
  uint64_t addProbes;
  uint64_t removeLookups;
  uint64_t removeProbes;
  uint64_t addReferenceLookups;
  uint64_t addReferenceProbes;
  uint64_t removeReferenceLookups;
  uint64_t removeReferenceProbes;
  std::unique_ptr<char[]> scratch;
  uint32_t scratchSize;
  bool busy;  // an operation is under way; one inside it comes from the callback
};

}  // namespace Morvalen::Zel
