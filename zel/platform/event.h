#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zel::platform {

/// An event of either kind, signalled or not, that threads wait for, alone or with others.
///
/// - Auto-reset: `set` releases exactly one waiting thread, and the event is then unsignalled; with
///   nobody waiting it stays signalled until one wait takes it.
/// - Manual-reset: `set` releases every waiting thread, and the event stays signalled, letting
///   through all waits, until `reset`.
///
/// A waiting thread is released by the call of `set` itself, not when it gets to run: two sets
/// release two waiters of an auto-reset event, and a `reset` right behind a `set` takes nothing
/// back.
///
/// Any thread may call anything at any time. A thread that has come out of a wait may destroy the
/// event even while the `set` that released it is still returning.
///
/// Cost: setting, resetting and a wait that needn't block are one atomic operation each while
/// nobody waits. There is no lock but a bit of each event's own, and no allocation.
class Event {
 public:
  enum class Kind : uint8_t { autoReset, manualReset };

  static constexpr uint32_t kInfinite = 0xFFFFFFFFu;
  static constexpr size_t kMaximumEvents = 64;  // of one wait
  // Results of waits that aren't an index.
  static constexpr int kTimedOut = -1;
  static constexpr int kFailed = -2;

  explicit Event(Kind kind, bool signalled = false);
  Event(Event const&) = delete;
  Event& operator=(Event const&) = delete;

  void set();
  void reset();

  /// Waits for this event; a limit of 0 ms only looks. False when the time ran out.
  bool wait(uint32_t milliseconds = kInfinite);

  /// Waits for any of the events, and takes one: the one with the lowest index of those signalled.
  /// @return its index, kTimedOut, or kFailed for none or too many events or a null one.
  static int waitAny(std::span<Event* const> events, uint32_t milliseconds = kInfinite);

  /// Waits until all events are signalled at once and takes all; until then it takes none.
  /// @return 0, kTimedOut, or kFailed as of waitAny, or when an event is there twice.
  static int waitAll(std::span<Event* const> events, uint32_t milliseconds = kInfinite);

 private:
  struct Node;
  struct Waiter;

  // The state word: kLocked guards the list and freezes the other bits; whoever holds it changes a
  // copy and stores that when he lets go, which is the last thing that he does to the event.
  static constexpr uint32_t kSignalled = 1;
  static constexpr uint32_t kHasWaiters = 2;  // the list isn't empty: setting must look at it
  static constexpr uint32_t kLocked = 4;
  static constexpr uint32_t kContended = 8;  // somebody sleeps until kLocked is cleared

  uint32_t lock();
  void unlock(uint32_t state);
  void link(Node& node);
  void unlink(Node& node);
  bool take();
  void setWithWaiters();
  Node* claimWaitersForAny();
  Waiter* pinWaiterForAll(uint32_t offer);
  void offerToWaitersForAll(Waiter* pinned, uint32_t offer);
  static void leave(Node& node);
  static bool finishWaitForAll(Waiter& waiter);

  std::atomic<uint32_t> state_;
  Kind const kind_;
  uint32_t offers_ =
      0;  // counts sets that looked for waits for all; guarded by kLocked, so is this:
  Node* first_ = nullptr;
  Node* last_ = nullptr;
};

}  // namespace zel::platform
