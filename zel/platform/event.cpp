// Events with a direct hand-over.
//
// A blocked wait is a Waiter on the waiting thread's stack, with a node in the list of each event
// that it waits for. Setting an event claims waiters for itself: one atomic step of a waiter's
// outcome decides between several events, and the time limit, that want it at once. So a signal
// either belongs to exactly one waiter or stays in the event, and nothing needs to be passed on
// when a thread wakes late. The alternative, waking threads that then try to take the signal, would
// lose the second of two sets that come before the first woken thread runs.
//
// Claim and release are two steps: a waiter that is claimed comes out of its wait only when the
// outcome is published, and that is after the setting thread has let go of the event. That is why
// the woken thread may destroy the event at once.
//
// Waits for all events are rare. They take the events' locks in the order of addresses, so that
// they see and take them all at one moment. Setting an event offers it to such waiters after
// letting go of its own lock, with the waiter pinned by a count.

#include "zel/platform/event.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>

#include "zel/platform/futex.h"

namespace zel::platform {

namespace {

// Outcomes of a waiter that aren't an index.
constexpr uint32_t kPending = 0x80000000u;
constexpr uint32_t kAsleep = 0x80000001u;   // pending, and the thread needs a wake-up call
constexpr uint32_t kClaimed = 0x80000002u;  // decided, the index follows in a moment
constexpr uint32_t kGaveUp = 0x80000003u;   // the time ran out first

// How often to look at a lock before sleeping: it is held for some tens of instructions.
constexpr int kSpins = 64;

// Room for the nodes of one wait, of which only those in use are made.
template <class Node>
class NodeStorage {
 public:
  Node& add() { return *std::construct_at(at(count_++)); }
  Node& operator[](size_t index) { return *at(index); }
  std::span<Node> span() { return {at(0), count_}; }

 private:
  static_assert(std::is_trivially_destructible_v<Node>);
  Node* at(size_t index) { return reinterpret_cast<Node*>(bytes_) + index; }

  alignas(Node) std::byte bytes_[sizeof(Node) * Event::kMaximumEvents];
  size_t count_ = 0;
};

Deadline deadlineAfter(uint32_t milliseconds) {
  if (milliseconds == Event::kInfinite) return std::nullopt;
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

}  // namespace

struct Event::Node {
  Event* event = nullptr;
  Waiter* waiter = nullptr;
  uint32_t index = 0;
  uint32_t offer = 0;   // a wait for all: the event's last offer to it
  bool linked = false;  // guarded by the event's lock, as are the links
  bool asleep = false;  // claimed from its sleep
  Node* previous = nullptr;
  Node* next = nullptr;  // outside the list: the next of those that one set released
};

struct Event::Waiter {
  std::atomic<uint32_t> outcome{kPending};
  std::atomic<uint32_t> pins{0};  // threads that look at this waiter with no event locked
  std::span<Node> nodesForAll;    // in the order of the events' addresses; empty in a wait for any

  bool claim(bool& asleep) {
    uint32_t value = outcome.load(std::memory_order_relaxed);
    while (value == kPending || value == kAsleep) {
      if (outcome.compare_exchange_weak(value, kClaimed, std::memory_order_relaxed)) {
        asleep = value == kAsleep;
        return true;
      }
    }
    return false;
  }

  // The waiter may be gone as soon as the outcome is stored.
  void publish(uint32_t index, bool asleep) {
    outcome.store(index, std::memory_order_release);
    if (asleep) futexWake(outcome, 1);
  }

  // Blocks until the outcome is published, or gives up at the deadline.
  uint32_t await(Deadline const& deadline) {
    uint32_t value = outcome.load(std::memory_order_acquire);
    while (value >= kPending) {
      if (value == kClaimed) {
        std::this_thread::yield();
        value = outcome.load(std::memory_order_acquire);
        continue;
      }
      if (value == kPending) {
        if (!outcome.compare_exchange_weak(value, kAsleep, std::memory_order_acquire)) continue;
        value = kAsleep;
      }
      bool const inTime = futexWait(outcome, kAsleep, deadline);
      if (!inTime && outcome.compare_exchange_strong(value, kGaveUp, std::memory_order_acquire)) {
        return kGaveUp;
      }
      value = outcome.load(std::memory_order_acquire);
    }
    return value;
  }

  void unpin() { pins.fetch_sub(1, std::memory_order_release); }
  void awaitUnpinned() const {
    while (pins.load(std::memory_order_acquire) != 0) std::this_thread::yield();
  }
};

Event::Event(Kind kind, bool signalled) : state_(signalled ? kSignalled : 0), kind_(kind) {}

uint32_t Event::lock() {
  uint32_t state = state_.load(std::memory_order_relaxed);
  for (int spins = 0;;) {
    if ((state & kLocked) == 0) {
      if (state_.compare_exchange_weak(state, state | kLocked, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return state;
      }
      continue;
    }
    if (spins < kSpins) {
      ++spins;
    } else {
      if ((state & kContended) == 0) {
        if (!state_.compare_exchange_weak(state, state | kContended, std::memory_order_relaxed)) {
          continue;
        }
        state |= kContended;
      }
      futexWait(state_, state, std::nullopt);
    }
    state = state_.load(std::memory_order_relaxed);
  }
}

void Event::unlock(uint32_t state) {
  uint32_t const next = (state & kSignalled) | (first_ != nullptr ? kHasWaiters : 0);
  uint32_t const previous = state_.exchange(next, std::memory_order_release);
  if ((previous & kContended) != 0) futexWake(state_, INT32_MAX);
}

void Event::link(Node& node) {
  node.previous = last_;
  node.next = nullptr;
  (last_ != nullptr ? last_->next : first_) = &node;
  last_ = &node;
  node.linked = true;
}

void Event::unlink(Node& node) {
  (node.previous != nullptr ? node.previous->next : first_) = node.next;
  (node.next != nullptr ? node.next->previous : last_) = node.previous;
  node.linked = false;
}

void Event::set() {
  uint32_t state = state_.load(std::memory_order_relaxed);
  while ((state & (kHasWaiters | kLocked)) == 0) {
    // Stored even when it is signalled already, so that whoever takes the signal sees what this
    // thread did before.
    if (state_.compare_exchange_weak(state, state | kSignalled, std::memory_order_release,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  setWithWaiters();
}

void Event::reset() {
  uint32_t state = state_.load(std::memory_order_relaxed);
  while ((state & kSignalled) != 0) {
    if ((state & kLocked) != 0) {
      unlock(lock() & ~kSignalled);
      return;
    }
    if (state_.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acq_rel,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
}

// Takes the signal without blocking, if there is one.
bool Event::take() {
  uint32_t state = state_.load(std::memory_order_acquire);
  if (kind_ == Kind::manualReset) return (state & kSignalled) != 0;
  while ((state & kSignalled) != 0) {
    if ((state & kLocked) != 0) {
      state = lock();
      unlock(state & ~kSignalled);
      return (state & kSignalled) != 0;
    }
    if (state_.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

void Event::setWithWaiters() {
  uint32_t const state = lock();
  if ((state & kSignalled) != 0) {
    // Whoever waits has been offered this signal already.
    unlock(state);
    return;
  }
  Node* released = claimWaitersForAny();
  bool const taken = released != nullptr && kind_ == Kind::autoReset;
  uint32_t const offer = ++offers_;
  Waiter* const pinned = taken ? nullptr : pinWaiterForAll(offer);
  unlock(taken ? state : state | kSignalled);

  // From here on the event may be gone, unless a pinned waiter still waits for it.
  while (released != nullptr) {
    Node* const next = released->next;
    released->waiter->publish(released->index, released->asleep);
    released = next;
  }
  offerToWaitersForAll(pinned, offer);
}

// Takes waiters for any event out of the list, and claims the first that is still undecided, or for
// a manual-reset event all of them. Returns the claimed ones, chained.
Event::Node* Event::claimWaitersForAny() {
  Node* claimed = nullptr;
  Node** end = &claimed;
  for (Node* node = first_; node != nullptr;) {
    Node* const next = node->next;
    if (node->waiter->nodesForAll.empty()) {
      unlink(*node);
      // A waiter that is lost to us may go as soon as it has locked this event; a claimed one stays
      // until its outcome is published.
      if (node->waiter->claim(node->asleep)) {
        node->next = nullptr;
        *end = node;
        end = &node->next;
        if (kind_ == Kind::autoReset) break;
      }
    }
    node = next;
  }
  return claimed;
}

// The first waiter for all events that has not been given this offer or a later one.
Event::Waiter* Event::pinWaiterForAll(uint32_t offer) {
  for (Node* node = first_; node != nullptr; node = node->next) {
    if (node->waiter->nodesForAll.empty() || static_cast<int32_t>(offer - node->offer) <= 0) {
      continue;
    }
    node->offer = offer;
    node->waiter->pins.fetch_add(1, std::memory_order_relaxed);
    return node->waiter;
  }
  return nullptr;
}

// A waiter stays pinned until the event has been let go for the last time: that keeps the event
// too.
void Event::offerToWaitersForAll(Waiter* pinned, uint32_t offer) {
  while (pinned != nullptr) {
    bool const finished = finishWaitForAll(*pinned);
    Waiter* next = nullptr;
    if (!finished || kind_ == Kind::manualReset) {
      uint32_t const state = lock();
      if ((state & kSignalled) != 0) next = pinWaiterForAll(offer);
      unlock(state);
    }
    pinned->unpin();
    pinned = next;
  }
}

// Takes all events of the wait and releases its thread, if all are signalled at this moment.
bool Event::finishWaitForAll(Waiter& waiter) {
  std::array<uint32_t, kMaximumEvents> states;
  std::span<Node> const nodes = waiter.nodesForAll;
  uint32_t common = kSignalled;
  for (size_t i = 0; i < nodes.size(); ++i) {
    states[i] = nodes[i].event->lock();
    common &= states[i];
  }
  bool asleep = false;
  bool const claimed = common != 0 && waiter.claim(asleep);
  for (size_t i = 0; i < nodes.size(); ++i) {
    Event& event = *nodes[i].event;
    if (claimed && event.kind_ == Kind::autoReset) states[i] &= ~kSignalled;
    event.unlock(states[i]);
  }
  if (claimed) waiter.publish(0, asleep);
  return claimed;
}

void Event::leave(Node& node) {
  uint32_t const state = node.event->lock();
  if (node.linked) node.event->unlink(node);
  node.event->unlock(state);
}

bool Event::wait(uint32_t milliseconds) {
  Event* const self[] = {this};
  return waitAny(self, milliseconds) == 0;
}

int Event::waitAny(std::span<Event* const> events, uint32_t milliseconds) {
  if (events.empty() || events.size() > kMaximumEvents) return kFailed;
  if (std::ranges::find(events, nullptr) != events.end()) return kFailed;
  for (size_t i = 0; i < events.size(); ++i) {
    if ((events[i]->state_.load(std::memory_order_acquire) & kSignalled) == 0) continue;
    // Events before it may have been set since they were looked at, and before this one was.
    for (size_t j = 0; j <= i; ++j) {
      if (events[j]->take()) return static_cast<int>(j);
    }
  }
  if (milliseconds == 0) return kTimedOut;
  Deadline const deadline = deadlineAfter(milliseconds);

  Waiter waiter;
  NodeStorage<Node> nodes;
  size_t count = 0;
  for (; count < events.size(); ++count) {
    Event& event = *events[count];
    uint32_t const state = event.lock();
    if ((state & kSignalled) != 0) {
      bool asleep = false;
      bool const won = waiter.claim(asleep);  // or else an event before this one was set meanwhile
      event.unlock(won && event.kind_ == Kind::autoReset ? state & ~kSignalled : state);
      if (won) waiter.publish(static_cast<uint32_t>(count), false);
      break;
    }
    Node& node = nodes.add();
    node.event = &event;
    node.waiter = &waiter;
    node.index = static_cast<uint32_t>(count);
    event.link(node);
    event.unlock(state);
  }

  uint32_t const outcome = waiter.await(deadline);
  for (size_t i = 0; i < count; ++i) {
    // The event that released this thread has let it go already.
    if (i != outcome) leave(nodes[i]);
  }
  return outcome == kGaveUp ? kTimedOut : static_cast<int>(outcome);
}

int Event::waitAll(std::span<Event* const> events, uint32_t milliseconds) {
  if (events.empty() || events.size() > kMaximumEvents) return kFailed;
  if (std::ranges::find(events, nullptr) != events.end()) return kFailed;
  std::array<Event*, kMaximumEvents> ordered;
  std::span<Event*> const all(ordered.data(), events.size());
  std::ranges::copy(events, all.begin());
  std::ranges::sort(all, std::less<Event*>());
  if (std::ranges::adjacent_find(all) != all.end()) return kFailed;

  Waiter waiter;
  NodeStorage<Node> nodes;
  for (Event* const event : all) {
    Node& node = nodes.add();
    node.event = event;
    node.waiter = &waiter;
  }
  waiter.nodesForAll = nodes.span();
  if (finishWaitForAll(waiter)) return 0;
  if (milliseconds == 0) return kTimedOut;
  Deadline const deadline = deadlineAfter(milliseconds);

  for (Node& node : waiter.nodesForAll) {
    uint32_t const state = node.event->lock();
    node.offer = node.event->offers_;
    node.event->link(node);
    node.event->unlock(state);
  }
  // Whatever was set before its node was linked made no offer, so look once more.
  finishWaitForAll(waiter);

  uint32_t const outcome = waiter.await(deadline);
  for (Node& node : waiter.nodesForAll) leave(node);
  // Nobody can find this waiter in a list any more; wait for those who did so before.
  waiter.awaitUnpinned();
  return outcome == kGaveUp ? kTimedOut : 0;
}

}  // namespace zel::platform
