// A run is over when its workers are at rest. That holds for runs that fail too, because what a job
// works on is the caller's again as soon as RunJobs returns; only a time limit lets it return while
// a worker is still at its job. Such a worker keeps its slot, refuses the jobs of later runs until
// it has finished, and its late signal must not be taken for that of a later job: StillBusy.

#include "zel/dnxhd/jobs/thread_foreman.h"

#include <array>
#include <cstdio>
#include <new>

namespace zel::dnxhd {

using platform::Event;

ThreadForeman::~ThreadForeman() {
  // Each waits for its thread, which may still use its slot and its event.
  workers_.clear();
}

int32_t ThreadForeman::Execute(ThreadJobSlot* slot) {
  return slot->handler->Execute(slot->job);
}

void ThreadForeman::Completed(ThreadJobSlot* slot) {
  slot->doneEvent->set();
}

int32_t ThreadForeman::DestroyWorkers() {
  if (state_ != kForemanIdle) return kFailed;
  for (const auto& worker : workers_) {
    if (const int32_t result = worker->Destroy(); result != 0) return result;
  }
  return 0;
}

int32_t ThreadForeman::SetThreadCount(int32_t count) {
  if (state_ != kForemanIdle || count < 0 || count > kMaximumWorkers) return kFailed;
  const auto wanted = static_cast<size_t>(count);
  while (workers_.size() > wanted) {
    workers_.pop_back();  // ends its thread
    slots_.pop_back();
    doneEvents_.pop_back();
    waitList_.pop_back();
    workerIndices_.pop_back();
    given_.pop_back();
  }
  try {
    AddWorkers(wanted);
  } catch (const std::bad_alloc&) {
    return kFailed;
  }
  // Every worker counts as free. Those that stay keep their events: one that a time limit left
  // behind may yet signal it.
  for (Event* event : waitList_) {
    event->reset();
    event->set();
  }
  for (size_t i = 0; i < workers_.size(); ++i) {
    if (workers_[i]->GetState() != kWorkerNotCreated) continue;
    if (workers_[i]->Create(workerIndices_[i]) != kWorkerSuccessful) return kFailed;
    workers_[i]->SetCallback(this);
  }
  return 0;
}

void ThreadForeman::AddWorkers(size_t count) {
  workers_.reserve(count);
  slots_.reserve(count);
  doneEvents_.reserve(count);
  waitList_.reserve(count);
  workerIndices_.reserve(count);
  given_.reserve(count);
  while (workers_.size() < count) {
    // All that can fail comes before the first list grows.
    auto worker = std::make_unique<WorkThread_Win>();
    auto slot = std::make_unique<ThreadJobSlot>();
    auto event = std::make_unique<Event>(Event::Kind::manualReset);
    slot->doneEvent = event.get();
    slot->index = static_cast<int32_t>(workers_.size());
    workerIndices_.push_back(static_cast<uint8_t>(workers_.size()));
    waitList_.push_back(event.get());
    given_.push_back(kNothing);
    workers_.push_back(std::move(worker));
    slots_.push_back(std::move(slot));
    doneEvents_.push_back(std::move(event));
  }
}

int32_t ThreadForeman::SetJobMgr(IJobMgr* manager) {
  if (state_ != kForemanIdle) return kFailed;
  jobMgr_ = manager;
  return 0;
}

int32_t ThreadForeman::RunJobs(int32_t mode, uint32_t timeoutMilliseconds) {
  if (state_ != kForemanIdle || jobMgr_ == nullptr) return kFailed;
  state_ = kForemanRunning;
  BeginRun();
  const uint32_t limit = timeoutMilliseconds == 0 ? Event::kInfinite : timeoutMilliseconds;
  const bool done = RunUntilShared(mode, limit) && AwaitAll(limit);
  if (!done && !timedOut_) AwaitInFlight();
  for (Event* event : waitList_) event->set();
  state_ = kForemanIdle;
  return done ? 0 : kFailed;
}

void ThreadForeman::BeginRun() {
  timedOut_ = false;
  for (size_t i = 0; i < slots_.size(); ++i) {
    given_[i] = kNothing;
    if (workers_[i]->GetState() == kWorkerBusy) continue;  // it still reads its slot
    slots_[i]->job = nullptr;
    slots_[i]->handler = nullptr;
  }
}

// Gives the jobs to whichever worker is free, until none is left.
bool ThreadForeman::RunUntilShared(int32_t mode, uint32_t timeoutMilliseconds) {
  for (;;) {
    const int signalled = Event::waitAny(waitList_, timeoutMilliseconds);
    if (signalled < 0) {
      timedOut_ = signalled == Event::kTimedOut;
      return false;
    }
    const auto worker = static_cast<size_t>(signalled);
    if (given_[worker] == kInFlight) {
      if (StillBusy(worker)) continue;
      if (!FinishJob(worker, mode)) return false;
    }
    CodecJob* job = nullptr;
    IJobHandler* handler = nullptr;
    if (jobMgr_->GetNextJob(job, handler) != 0 || job == nullptr || handler == nullptr) return true;
    if (!StartJob(worker, job, handler)) return false;
  }
}

// Whether the signal of a worker was a late one, of a job that an earlier run gave up waiting for.
// The worker is free before it signals: what is reset here while it's busy comes again.
bool ThreadForeman::StillBusy(size_t worker) {
  doneEvents_[worker]->reset();
  if (workers_[worker]->GetState() == kWorkerBusy) return true;
  doneEvents_[worker]->set();
  return false;
}

// A failed job's handler is as free as any other: without it, a run that goes on past failures
// would end for want of handlers.
bool ThreadForeman::FinishJob(size_t worker, int32_t mode) {
  given_[worker] = kFinished;
  const ThreadJobSlot& slot = *slots_[worker];
  if (slot.job->status != kJobDone && mode != kRunPastFailures) return false;
  jobMgr_->ReleaseHandler(slot.job, slot.handler);
  return true;
}

bool ThreadForeman::StartJob(size_t worker, CodecJob* job, IJobHandler* handler) {
  ThreadJobSlot* slot =
      nullptr;  // a worker that an earlier run left at its job still reads its own
  if (workers_[worker]->GetState() == kWorkerFree) {
    slot = slots_[worker].get();
    slot->job = job;
    slot->handler = handler;
    // Its event and its number are there from the start: a worker that is free may not have
    // signalled yet.
  }
  given_[worker] = kNothing;
  if (handler->Prepare(job) != 0) {
    DumpErrors();
    return false;
  }
  doneEvents_[worker]->reset();
  if (workers_[worker]->StartJob(slot) != kWorkerSuccessful) {
    DumpErrors();
    return false;
  }
  given_[worker] = kInFlight;
  return true;
}

// The barrier at the end of the run. Only the last job of each worker is looked at: the others have
// been.
bool ThreadForeman::AwaitAll(uint32_t timeoutMilliseconds) {
  for (bool late = true; late;) {
    if (Event::waitAll(waitList_, timeoutMilliseconds) != 0) {
      timedOut_ = true;
      return false;
    }
    late = false;
    for (size_t i = 0; i < workers_.size(); ++i) {
      if (given_[i] == kInFlight && StillBusy(i)) late = true;
    }
  }
  for (size_t i = 0; i < workers_.size(); ++i) {
    if (given_[i] == kNothing) continue;
    given_[i] = kFinished;
    const ThreadJobSlot& slot = *slots_[i];
    if (slot.job->status != kJobDone) return false;
    jobMgr_->ReleaseHandler(slot.job, slot.handler);
  }
  return true;
}

// A run that ends before its time: the workers finish the jobs that they have.
void ThreadForeman::AwaitInFlight() {
  for (size_t i = 0; i < workers_.size(); ++i) {
    while (given_[i] == kInFlight) {
      doneEvents_[i]->wait();
      if (!StillBusy(i)) given_[i] = kFinished;
    }
  }
}

// The manager's text is asked for and not printed; the caller of a run sees it by the words of the
// jobs. Pinned by thread_foreman_test.cpp, DumpErrorsTellsJobsAndWorkers.
void ThreadForeman::DumpErrors() {
  std::fputs("Job Parameter Error :\n", stdout);
  for (size_t i = 0; i < slots_.size(); ++i) {
    // A worker that is at its job may be writing the text.
    const bool readable = slots_[i]->job != nullptr && workers_[i]->GetState() != kWorkerBusy;
    std::printf("Thread Index = %d, Job Status %s \n", static_cast<int>(i),
                readable ? slots_[i]->job->text : "");
  }
  std::array<char, kErrorTextBytes> text{};
  std::fputs("Worker Thread Errors :\n", stdout);
  for (size_t i = 0; i < workers_.size(); ++i) {
    workers_[i]->GetErrorText(text.data());
    std::printf("Thread Index = %d, Job Status %s \n", static_cast<int>(i), text.data());
  }
  std::fputs("Job List Manager Error's :\n", stdout);
  if (jobMgr_ != nullptr) jobMgr_->GetErrorText(text.data());
}

}  // namespace zel::dnxhd
