#include "zel/dnxhd/jobs/job_list_mgr.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace zel::dnxhd {

namespace {

constexpr std::array<char[kErrorTextBytes], 2> kErrorTexts = {{
    "Job Handler List Is Empty\t\t",
    "Job Parameter List Is Empty\t",
}};

template <class T>
bool Append(std::vector<T*>& list, T* const* items, size_t count) {
  try {
    list.insert(list.end(), items, items + count);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

int32_t JobListMgr::AddJobs(CodecJob* const* jobs, size_t count) {
  if (count == 0) return kSuccessful;
  if (!Append(jobs_, jobs, count)) return kErrorInMemoryAllocation;
  jobCount_ += count;
  return kSuccessful;
}

int32_t JobListMgr::AddHandlers(IJobHandler* const* handlers, size_t count) {
  if (count == 0) return kSuccessful;
  try {
    const size_t all = handlers_.size() + count;
    handlers_.reserve(all);
    freeHandlers_.reserve(all);
    busyHandlers_.reserve(all);
  } catch (const std::bad_alloc&) {
    return kErrorInMemoryAllocation;
  }
  handlers_.insert(handlers_.end(), handlers, handlers + count);
  freeHandlers_.insert(freeHandlers_.end(), handlers, handlers + count);
  handlerCount_ += count;
  return kSuccessful;
}

void JobListMgr::RemoveJobs(uint32_t id) {
  std::erase_if(jobs_, [id](const CodecJob* job) { return job->id == id; });
  next_ = 0;
}

void JobListMgr::RemoveHandlers(uint32_t id) {
  const auto matches = [id](const IJobHandler* handler) { return handler->GetId() == id; };
  std::erase_if(handlers_, matches);
  std::erase_if(freeHandlers_, matches);
  std::erase_if(busyHandlers_, matches);
}

void JobListMgr::ClearJobs() {
  jobs_.clear();
  next_ = 0;
}

// Handlers that the list no longer knows must not be handed out either.
void JobListMgr::ClearHandlers() {
  handlers_.clear();
  freeHandlers_.clear();
  busyHandlers_.clear();
}

void JobListMgr::ClearAll() {
  ClearJobs();
  ClearHandlers();
}

void JobListMgr::ResetJobs() {
  for (CodecJob* job : jobs_) {
    if (job->status != kJobReady) job->status = kJobReady;
    job->error = kSuccessful;
  }
  next_ = 0;
  busyHandlers_.clear();
  freeHandlers_.assign(handlers_.begin(), handlers_.end());
}

int32_t JobListMgr::GetNextJob(CodecJob*& job, IJobHandler*& handler) {
  job = nullptr;
  handler = nullptr;
  if (jobs_.empty()) {
    lastError_ = kNoJob;
    return 1;
  }
  if (handlers_.empty()) {
    lastError_ = kNoHandler;
    return 0;
  }
  // The jobs before the next one are the workers' now, and their statuses too.
  const auto unseen = std::span(jobs_).subspan(next_);
  const auto ready =
      std::ranges::find_if(unseen, [](const CodecJob* each) { return each->status == kJobReady; });
  if (ready == unseen.end()) {
    next_ = 0;  // the run is over
    lastError_ = kNoJob;
    return 1;
  }
  next_ += static_cast<size_t>(ready - unseen.begin()) + 1;
  job = *ready;
  job->status = kJobRunning;
  if (freeHandlers_.empty()) {
    lastError_ = kNoHandler;
    return 0;
  }
  handler = freeHandlers_.front();
  busyHandlers_.push_back(handler);
  freeHandlers_.erase(freeHandlers_.begin());
  return 0;
}

void JobListMgr::ReleaseHandler(CodecJob* /*job*/, IJobHandler* handler) {
  const auto busy = std::ranges::find(busyHandlers_, handler);
  if (busy == busyHandlers_.end()) return;
  busyHandlers_.erase(busy);
  freeHandlers_.push_back(handler);
}

void JobListMgr::GetErrorText(char* buffer) const {
  const auto row = static_cast<size_t>(lastError_);
  if (row < kErrorTexts.size()) {
    std::memcpy(buffer, kErrorTexts[row], kErrorTextBytes);
  } else {
    std::memset(buffer, 0, kErrorTextBytes);
  }
}

}  // namespace zel::dnxhd
