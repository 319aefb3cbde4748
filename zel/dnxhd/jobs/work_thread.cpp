#include "zel/dnxhd/jobs/work_thread.h"

#include <array>
#include <chrono>
#include <cstring>
#include <new>
#include <span>
#include <thread>

#include "zel/dnxhd/jobs/job_list_mgr.h"
#include "zel/platform/debug_output.h"

namespace zel::dnxhd {

namespace {

// Row N tells about code -N. kWorkerNoEvent can't arise on a system whose events need nothing from
// the kernel; a row it has all the same.
constexpr std::array<char[kErrorTextBytes], 7> kErrorTexts = {{
    "Worker Thread Succesful\t\t\t\t\t\t",
    "Worker Thread Error during memory allocation\t",
    "Worker Thread Error during Create Sync Event\t",
    "Worker Thread Error during Thread creation\t\t",
    "Worker Thread Error Thread Not free to create\t",
    "Worker Thread Error Thread Not free to delete\t",
    "Worker Thread Error Thread Not free to start new job",
}};

// The next stage of a frame is there sooner than a thread that sleeps is awake. So who has been at
// a job looks for the next one for a moment, while nobody else wants the processor.
constexpr std::chrono::microseconds kMoment{60};

int NextOf(std::span<platform::Event* const> events) {
  const auto end = std::chrono::steady_clock::now() + kMoment;
  do {
    const int signalled = platform::Event::waitAny(events, 0);
    if (signalled != platform::Event::kTimedOut) return signalled;
    std::this_thread::yield();
  } while (std::chrono::steady_clock::now() < end);
  return platform::Event::waitAny(events);
}

}  // namespace

// The last error is also where a job's result is kept, and most result words have no row here.
void WorkThread::GetErrorText(char* buffer) const {
  const auto row = static_cast<size_t>(-int64_t{lastError_.load(std::memory_order_relaxed)});
  if (row < kErrorTexts.size()) {
    std::memcpy(buffer, kErrorTexts[row], kErrorTextBytes);
  } else {
    std::memset(buffer, 0, kErrorTextBytes);
  }
}

WorkThread_Win::~WorkThread_Win() {
  if (threadHandle_.exists()) End();
}

int32_t WorkThread_Win::Create(int32_t index) {
  workerIndex_ = index;
  if (GetState() != kWorkerNotCreated) return Keep(kWorkerNotFreeToCreate);
  startEvent_.reset();
  exitEvent_.reset();
  spareEvent_.reset();
  // Before the thread is there, so that nothing it does comes first.
  state_.store(kWorkerFree, std::memory_order_release);
  bool started = false;
  try {
    started = threadHandle_.start([this] { Run(); });
  } catch (const std::bad_alloc&) {
    started = false;
  }
  if (!started) {
    state_.store(kWorkerNotCreated, std::memory_order_release);
    return Keep(kWorkerNoThread);
  }
  return Keep(kWorkerSuccessful);
}

int32_t WorkThread_Win::Destroy() {
  if (GetState() == kWorkerNotCreated) return Keep(kWorkerNotFreeToDelete);
  End();
  return Keep(kWorkerSuccessful);
}

void WorkThread_Win::End() {
  exitEvent_.set();
  if (!threadHandle_.joinWithin(kEndLimitMilliseconds)) {
    platform::debugOutput(platform::kDebugError,
                          "DNxHD worker %d has not ended in %u ms; waiting for it\n", workerIndex_,
                          kEndLimitMilliseconds);
    threadHandle_.join();
  }
  state_.store(kWorkerNotCreated, std::memory_order_release);
}

int32_t WorkThread_Win::StartJob(ThreadJobSlot* slot) {
  if (slot == nullptr || GetState() != kWorkerFree) return Keep(kWorkerNotFreeToStart);
  state_.store(kWorkerBusy, std::memory_order_release);
  workParameter_ = slot;
  startEvent_.set();
  return kWorkerSuccessful;
}

int32_t WorkThread_Win::SetPriority(int32_t value) {
  return threadHandle_.setPriority(value) ? kWorkerSuccessful : Keep(kWorkerPriorityRefused);
}

void WorkThread_Win::Run() {
  // A job that was started comes before the end: a start is never lost.
  platform::Event* const events[] = {&startEvent_, &exitEvent_};
  for (int next = platform::Event::waitAny(events); next == 0; next = NextOf(events)) {
    IThreadCallback* const callback = callback_;
    ThreadJobSlot* const slot = workParameter_;
    Keep(callback->Execute(slot));
    // In this order: whoever sees the event finds the worker free.
    state_.store(kWorkerFree, std::memory_order_release);
    callback->Completed(slot);
  }
}

}  // namespace zel::dnxhd
