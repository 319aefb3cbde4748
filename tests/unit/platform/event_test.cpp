#include "zel/platform/event.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include "tests/support/blocked_thread.h"
#include "tests/support/seed.h"

namespace zel::platform {

namespace {

using zel::test::BlockedThread;

constexpr auto kAuto = Event::Kind::autoReset;
constexpr auto kManual = Event::Kind::manualReset;

// A thread that waits for one event.
struct Waiting {
  explicit Waiting(Event& event) : thread([&event] { event.wait(); }) { thread.awaitBlocked(); }
  BlockedThread thread;
};

int endedCount(std::vector<std::unique_ptr<Waiting>> const& threads) {
  int count = 0;
  for (auto const& waiting : threads) count += waiting->thread.ended() ? 1 : 0;
  return count;
}

// Gives released threads time to end, and threads that were wrongly released too.
void settle() {
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

}  // namespace

TEST(AutoResetEvent, StartsAsItIsTold) {
  EXPECT_FALSE(Event(kAuto).wait(0));
  Event signalled(kAuto, true);
  EXPECT_TRUE(signalled.wait(0));
  EXPECT_FALSE(signalled.wait(0));
}

TEST(AutoResetEvent, StaysSignalledWhenNobodyWaitsAndLetsOneThrough) {
  Event event(kAuto);
  event.set();
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(event.wait());
  EXPECT_FALSE(event.wait(0));
}

TEST(AutoResetEvent, CountsNoSetsBeyondOne) {
  Event event(kAuto);
  event.set();
  event.set();
  EXPECT_TRUE(event.wait(0));
  EXPECT_FALSE(event.wait(0));
}

TEST(AutoResetEvent, ResetTakesTheSignalBack) {
  Event event(kAuto, true);
  event.reset();
  EXPECT_FALSE(event.wait(0));
  event.reset();
  EXPECT_FALSE(event.wait(0));
}

TEST(AutoResetEvent, ReleasesExactlyOneWaiterAtEachSet) {
  Event event(kAuto);
  std::vector<std::unique_ptr<Waiting>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(std::make_unique<Waiting>(event));
  for (int released = 1; released <= 4; ++released) {
    event.set();
    EXPECT_FALSE(event.wait(0)) << "the signal went to a waiter, so it isn't there for others";
    settle();
    EXPECT_EQ(endedCount(threads), released);
  }
}

TEST(AutoResetEvent, SetsInARowReleaseAsManyWaiters) {
  Event event(kAuto);
  std::vector<std::unique_ptr<Waiting>> threads;
  for (int i = 0; i < 3; ++i) threads.push_back(std::make_unique<Waiting>(event));
  event.set();
  event.set();
  event.set();
  for (auto& waiting : threads) waiting->thread.join();
  EXPECT_FALSE(event.wait(0));
}

TEST(AutoResetEvent, ResetBehindASetDoesNotHoldTheWaiter) {
  Event event(kAuto);
  Waiting waiting(event);
  event.set();
  event.reset();
  waiting.thread.join();
}

TEST(AutoResetEvent, SignalAfterATimeoutIsKept) {
  Event event(kAuto);
  EXPECT_FALSE(event.wait(2));
  event.set();
  EXPECT_TRUE(event.wait(0));
  EXPECT_FALSE(event.wait(2));
}

TEST(ManualResetEvent, LetsEveryWaitThroughUntilReset) {
  Event event(kManual);
  EXPECT_FALSE(event.wait(0));
  event.set();
  EXPECT_TRUE(event.wait(0));
  EXPECT_TRUE(event.wait());
  event.reset();
  EXPECT_FALSE(event.wait(0));
}

TEST(ManualResetEvent, SetReleasesAllWaiters) {
  Event event(kManual);
  std::vector<std::unique_ptr<Waiting>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(std::make_unique<Waiting>(event));
  event.set();
  for (auto& waiting : threads) waiting->thread.join();
  EXPECT_TRUE(event.wait(0));
}

TEST(ManualResetEvent, ResetBehindASetHoldsNoWaiter) {
  Event event(kManual);
  std::vector<std::unique_ptr<Waiting>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(std::make_unique<Waiting>(event));
  event.set();
  event.reset();
  for (auto& waiting : threads) waiting->thread.join();
  EXPECT_FALSE(event.wait(0));
}

TEST(EventWait, TimesOutNoSoonerThanTold) {
  Event event(kManual);
  auto const start = std::chrono::steady_clock::now();
  EXPECT_FALSE(event.wait(20));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST(EventWait, IsReleasedBeforeItsTimeIsOver) {
  Event event(kAuto);
  bool released = false;
  BlockedThread thread([&] { released = event.wait(60000); });
  thread.awaitBlocked();
  event.set();
  thread.join();
  EXPECT_TRUE(released);
}

TEST(EventWaitAny, LowestSignalledIndexWinsAndTheOthersStay) {
  Event a(kAuto), b(kAuto, true), c(kAuto, true);
  std::array<Event*, 3> const all{&a, &b, &c};
  EXPECT_EQ(Event::waitAny(all, 0), 1);
  EXPECT_EQ(Event::waitAny(all, 0), 2);
  EXPECT_EQ(Event::waitAny(all, 0), Event::kTimedOut);
  a.set();
  c.set();
  EXPECT_EQ(Event::waitAny(all), 0);
  EXPECT_TRUE(c.wait(0));
}

// Whoever sees the second of two sets sees the first as well: what was set before it comes first,
// wherever in its look at the events the waiting thread is. Many events that are not set make that
// look a long one.
TEST(EventWaitAny, OfTwoSetInOrderTheFirstComesFirst) {
  constexpr int kRounds = 300;
  std::vector<std::unique_ptr<Event>> events;
  std::vector<Event*> all;
  for (size_t i = 0; i < Event::kMaximumEvents; ++i) {
    events.push_back(std::make_unique<Event>(kAuto));
    all.push_back(events.back().get());
  }
  int const last = static_cast<int>(all.size()) - 1;
  std::atomic<int> round{0};
  std::thread setter([&] {
    for (int i = 1; i <= kRounds; ++i) {
      while (round.load(std::memory_order_acquire) < i) std::this_thread::yield();
      all.front()->set();
      all.back()->set();
    }
  });
  int wrong = 0;
  for (int i = 1; i <= kRounds; ++i) {
    round.store(i, std::memory_order_release);
    int first = Event::kTimedOut;
    // Without a limit it would sleep before the setter runs, more often than not.
    while (first == Event::kTimedOut) first = Event::waitAny(all, 0);
    wrong += first == 0 ? 0 : 1;
    wrong += Event::waitAny(all) == last - first ? 0 : 1;
  }
  setter.join();
  EXPECT_EQ(wrong, 0);
}

TEST(EventWaitAny, ManualEventKeepsWinningOverHigherOnes) {
  Event manual(kManual, true), automatic(kAuto, true);
  std::array<Event*, 2> const all{&manual, &automatic};
  EXPECT_EQ(Event::waitAny(all, 0), 0);
  EXPECT_EQ(Event::waitAny(all, 0), 0);
  EXPECT_TRUE(automatic.wait(0));
}

TEST(EventWaitAny, BlockedWaitTellsWhichEventReleasedIt) {
  for (int which = 0; which < 3; ++which) {
    Event a(kAuto), b(kManual), c(kAuto);
    std::array<Event*, 3> const all{&a, &b, &c};
    int result = Event::kFailed;
    BlockedThread thread([&] { result = Event::waitAny(all); });
    thread.awaitBlocked();
    all[static_cast<size_t>(which)]->set();
    thread.join();
    EXPECT_EQ(result, which);
    EXPECT_EQ(Event::waitAny(all, 0), which == 1 ? 1 : Event::kTimedOut);
  }
}

TEST(EventWaitAny, TakesOnlyTheFirstOfTwoSets) {
  Event a(kAuto), b(kAuto);
  std::array<Event*, 2> const all{&a, &b};
  int result = Event::kFailed;
  BlockedThread thread([&] { result = Event::waitAny(all); });
  thread.awaitBlocked();
  b.set();
  a.set();
  thread.join();
  EXPECT_EQ(result, 1) << "the wait was over with the first set";
  EXPECT_TRUE(a.wait(0)) << "so the second one is there for the next";
}

TEST(EventWaitAny, LeavesNothingBehindAfterATimeout) {
  Event a(kAuto), b(kAuto);
  std::array<Event*, 2> const all{&a, &b};
  EXPECT_EQ(Event::waitAny(all, 2), Event::kTimedOut);
  a.set();
  b.set();
  EXPECT_TRUE(a.wait(0));
  EXPECT_TRUE(b.wait(0));
}

TEST(EventWaitAny, SameEventTwiceIsItsFirstIndex) {
  Event a(kAuto);
  std::array<Event*, 2> const all{&a, &a};
  int result = Event::kFailed;
  BlockedThread thread([&] { result = Event::waitAny(all); });
  thread.awaitBlocked();
  a.set();
  thread.join();
  EXPECT_EQ(result, 0);
  a.set();
  EXPECT_EQ(Event::waitAny(all, 0), 0);
  EXPECT_FALSE(a.wait(0));
}

TEST(EventWaitAny, TakesAsManyEventsAsItSaysAndNoMore) {
  std::vector<std::unique_ptr<Event>> events;
  std::vector<Event*> pointers;
  for (size_t i = 0; i < Event::kMaximumEvents + 1; ++i) {
    events.push_back(std::make_unique<Event>(kAuto));
    pointers.push_back(events.back().get());
  }
  std::span<Event* const> const most(pointers.data(), Event::kMaximumEvents);
  int result = Event::kFailed;
  BlockedThread thread([&] { result = Event::waitAny(most); });
  thread.awaitBlocked();
  most.back()->set();
  thread.join();
  EXPECT_EQ(result, static_cast<int>(Event::kMaximumEvents) - 1);
  EXPECT_EQ(Event::waitAny(pointers, 0), Event::kFailed);
  EXPECT_EQ(Event::waitAll(pointers, 0), Event::kFailed);
}

TEST(EventWaits, RefuseNoEventAndNullEvents) {
  Event a(kAuto, true);
  std::array<Event*, 2> const holed{&a, nullptr};
  EXPECT_EQ(Event::waitAny({}, 0), Event::kFailed);
  EXPECT_EQ(Event::waitAll({}, 0), Event::kFailed);
  EXPECT_EQ(Event::waitAny(holed, 0), Event::kFailed);
  EXPECT_EQ(Event::waitAll(holed, 0), Event::kFailed);
  EXPECT_TRUE(a.wait(0)) << "a refused wait takes nothing";
}

TEST(EventWaitAll, RefusesAnEventThatIsThereTwice) {
  Event a(kAuto, true);
  std::array<Event*, 2> const twice{&a, &a};
  EXPECT_EQ(Event::waitAll(twice, 0), Event::kFailed);
  EXPECT_TRUE(a.wait(0));
}

TEST(EventWaitAll, TakesAllOrNone) {
  Event a(kAuto, true), b(kAuto), c(kManual, true);
  std::array<Event*, 3> const all{&a, &b, &c};
  EXPECT_EQ(Event::waitAll(all, 0), Event::kTimedOut);
  EXPECT_EQ(Event::waitAll(all, 3), Event::kTimedOut);
  EXPECT_TRUE(a.wait(0)) << "a wait that failed took nothing";
  a.set();
  b.set();
  EXPECT_EQ(Event::waitAll(all, 0), 0);
  EXPECT_FALSE(a.wait(0));
  EXPECT_FALSE(b.wait(0));
  EXPECT_TRUE(c.wait(0)) << "a manual-reset event isn't taken";
}

TEST(EventWaitAll, BlockedWaitConsumesNothingUntilTheLastIsSignalled) {
  Event a(kAuto), b(kAuto);
  std::array<Event*, 2> const all{&b, &a};
  BlockedThread thread([&] { Event::waitAll(all); });
  thread.awaitBlocked();
  a.set();
  EXPECT_TRUE(a.wait(0)) << "the waiting thread leaves the signal to others";
  b.set();
  settle();
  EXPECT_FALSE(thread.ended()) << "both were signalled, but not at one moment";
  a.set();
  EXPECT_FALSE(a.wait(0)) << "the last set gives both signals to the waiting thread";
  EXPECT_FALSE(b.wait(0));
  thread.join();
}

TEST(EventWaitAll, OfSeveralWaitersOneGetsTheSignals) {
  Event a(kAuto), b(kManual);
  std::array<Event*, 2> const all{&a, &b};
  BlockedThread first([&] { Event::waitAll(all); });
  first.awaitBlocked();
  BlockedThread second([&] { Event::waitAll(all); });
  second.awaitBlocked();
  b.set();
  a.set();
  settle();
  EXPECT_NE(first.ended(), second.ended());
  a.set();
  first.join();
  second.join();
}

TEST(EventWaitAll, SetsOfAManualEventReachAllWaiters) {
  Event a(kManual, true), b(kManual);
  std::array<Event*, 2> const all{&a, &b};
  BlockedThread first([&] { Event::waitAll(all); });
  BlockedThread second([&] { Event::waitAll(all); });
  first.awaitBlocked();
  second.awaitBlocked();
  b.set();
  b.reset();
  first.join();
  second.join();
}

TEST(EventWaitAll, MixedWithWaitsForAny) {
  Event a(kAuto), b(kAuto);
  std::array<Event*, 2> const both{&a, &b};
  BlockedThread all([&] { Event::waitAll(both); });
  all.awaitBlocked();
  Waiting any(a);
  a.set();
  any.thread.join();
  EXPECT_FALSE(all.ended());
  b.set();
  a.set();
  all.join();
  EXPECT_EQ(Event::waitAny(both, 0), Event::kTimedOut);
}

// Two threads pass a turn back and forth. What one writes before its set, the other reads behind
// its wait, which the thread sanitizer checks.
TEST(EventStress, TurnsPassBackAndForth) {
  Event ping(kAuto), pong(kAuto);
  int turns = 0;
  constexpr int kRounds = 5000;
  std::thread other([&] {
    for (int i = 0; i < kRounds; ++i) {
      ping.wait();
      ++turns;
      pong.set();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    ++turns;
    ping.set();
    pong.wait();
  }
  other.join();
  EXPECT_EQ(turns, 2 * kRounds);
}

// The usual way to wait for a job's end: the event is a local of the waiting thread and goes as
// soon as the wait is over, while the setting thread may still be inside its call.
TEST(EventStress, WaiterDestroysTheEventAtOnce) {
  std::atomic<Event*> job{nullptr};
  std::atomic<bool> stop{false};
  std::vector<std::thread> workers;
  for (int i = 0; i < 2; ++i) {
    workers.emplace_back([&] {
      while (!stop) {
        if (Event* const event = job.exchange(nullptr)) {
          event->set();
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  for (int round = 0; round < 3000; ++round) {
    auto done = std::make_unique<Event>(round % 2 == 0 ? kAuto : kManual);
    auto never = std::make_unique<Event>(kAuto, round % 3 == 2);
    job = done.get();
    if (round % 3 == 0) {
      ASSERT_TRUE(done->wait());
    } else if (round % 3 == 1) {
      std::array<Event*, 2> const either{never.get(), done.get()};
      ASSERT_EQ(Event::waitAny(either), 1);
    } else {
      std::array<Event*, 2> const both{never.get(), done.get()};
      ASSERT_EQ(Event::waitAll(both), 0);
    }
  }
  stop = true;
  for (std::thread& worker : workers) worker.join();
}

// Two sets close to each other that fall into every moment of a wait's start: between its first
// looks and its sleep, and while it is in the lists of some of its events only. A signal that is
// lost hangs the test, and one that is taken twice leaves the other index out.
class RacingSets {
 public:
  explicit RacingSets(int rounds) : rounds_(rounds), setter_([this] { run(); }) {}
  ~RacingSets() { setter_.join(); }
  std::span<Event* const> events() const { return events_; }
  void roundIsOver() { ++over_; }

 private:
  void run() {
    std::mt19937 random(static_cast<unsigned>(zel::test::testSeed()));
    for (int round = 0; round < rounds_; ++round) {
      for (int looks = 0; over_ < round; ++looks) {
        if (looks > 1000) std::this_thread::yield();
      }
      for (unsigned pause = random() % 128; pause > 0; --pause) over_.load();
      size_t const first = random() % 2;
      events_[first]->set();
      events_[1 - first]->set();
    }
  }

  int const rounds_;
  Event a_{kAuto}, b_{kAuto};
  std::array<Event*, 2> const events_{&a_, &b_};
  std::atomic<int> over_{0};
  std::thread setter_;
};

TEST(EventStress, SetsRaceWithTheStartOfAWaitForAny) {
  constexpr int kRounds = 60000;
  RacingSets sets(kRounds);
  int wrong = 0;
  for (int round = 0; round < kRounds; ++round) {
    int const one = Event::waitAny(sets.events());
    int const other = Event::waitAny(sets.events());
    wrong += one + other == 1 ? 0 : 1;
    sets.roundIsOver();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(Event::waitAny(sets.events(), 0), Event::kTimedOut);
}

TEST(EventStress, SetsRaceWithTheStartOfAWaitForAll) {
  constexpr int kRounds = 60000;
  RacingSets sets(kRounds);
  int wrong = 0;
  for (int round = 0; round < kRounds; ++round) {
    wrong += Event::waitAll(sets.events()) == 0 ? 0 : 1;
    sets.roundIsOver();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(Event::waitAny(sets.events(), 0), Event::kTimedOut);
}

// Every signal of an auto-reset event that finds its waiter is taken once, whichever way the
// waiters wait and however their time limits fall.
TEST(EventStress, TokensAreNeitherLostNorDoubled) {
  constexpr int kTokens = 3;
  constexpr int kThreads = 4;
  constexpr int kRounds = 1200;
  std::array<Event, kTokens> tokens{Event(kAuto, true), Event(kAuto, true), Event(kAuto, true)};
  std::array<std::atomic<int>, kTokens> holders{};
  std::atomic<int> faults{0};
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(zel::test::testSeed()) + t);
      auto const hold = [&](size_t which) {
        if (holders[which].fetch_add(1) != 0) ++faults;
        if (random() % 4 == 0) std::this_thread::yield();
        holders[which].fetch_sub(1);
        tokens[which].set();
      };
      for (int round = 0; round < kRounds; ++round) {
        size_t const a = random() % kTokens;
        size_t const b = (a + 1 + random() % (kTokens - 1)) % kTokens;
        uint32_t const limit = random() % 3 == 0 ? random() % 2 : Event::kInfinite;
        std::array<Event*, 2> const pair{&tokens[a], &tokens[b]};
        switch (random() % 3) {
          case 0:
            if (tokens[a].wait(limit)) hold(a);
            break;
          case 1: {
            int const got = Event::waitAny(pair, limit);
            if (got >= 0) hold(got == 0 ? a : b);
            break;
          }
          default:
            if (Event::waitAll(pair, limit) == 0) {
              hold(a);
              hold(b);
            }
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(faults, 0);
  for (Event& token : tokens) EXPECT_TRUE(token.wait(0)) << "every token is back";
}

TEST(EventStress, ManualGateLetsEveryThreadThroughEachTime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  Event gate(kManual), arrived(kAuto);
  std::atomic<int> waiting{0};
  std::vector<std::thread> threads;
  Event passed(kManual);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        if (++waiting == kThreads) arrived.set();
        gate.wait();
        if (--waiting == 0) arrived.set();
        passed.wait();
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    arrived.wait();  // all are at the gate, or about to be
    passed.reset();
    gate.set();
    arrived.wait();  // all are through
    gate.reset();
    passed.set();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(waiting, 0);
}

}  // namespace zel::platform
