#include "tools/zel/mux/mux_run.h"

#include <algorithm>
#include <exception>
#include <map>
#include <memory>

#include "zel/mux/engine/engine.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

// The run that the process's callbacks belong to.
struct Run {
  const MuxSink& sink;
  MuxResult result;
  std::exception_ptr thrown;

  template <class Call>
  int guarded(Call call) noexcept {
    if (thrown != nullptr) return 1;
    try {
      call();
      return 0;
    } catch (...) {
      thrown = std::current_exception();
      return 1;
    }
  }
};

Run& runOf(void* user) {
  return *static_cast<Run*>(user);
}

int onProgress(void* user, const tsm_stats* stats) {
  Run& run = runOf(user);
  return run.guarded([&] {
    if (run.sink.progress) run.sink.progress(*stats, run.result.rate);
  });
}

int onWrite(void* user, const uint8_t* data, int32_t size, int32_t) {
  Run& run = runOf(user);
  return run.guarded([&] { run.sink.write(std::span(data, static_cast<size_t>(size))); });
}

void onMessage(void* user, int fatal, int32_t code, const char* text) {
  Run& run = runOf(user);
  // The engine says of a failed write only that it failed: what was thrown says why.
  run.guarded([&] { run.result.messages.add(parseEngineMessage(fatal != 0, code, text)); });
}

void onTrace(void* user, const tsm_trace_event* event) {
  Run& run = runOf(user);
  run.guarded([&] { run.sink.trace(*event); });
}

struct HandleCloser {
  void operator()(tsm_handle* handle) const { tsm_close(handle); }
};

void collect(const tsm_handle* handle, MuxResult& result) {
  tsm_get_stats(handle, &result.stats);
  tsm_stream_stats stream;
  for (int32_t index = 0; tsm_get_stream_stats(handle, index, &stream) == 0; ++index)
    result.streams.push_back(stream);
}

}  // namespace

MuxResult multiplex(tsm_config& config, const MuxSink& sink) {
  // Many packets at once cost the system least; more than these, memory that no cache holds.
  constexpr int32_t kMostAtOnce = 8192;
  config.outPkts = std::min(config.outPkts, kMostAtOnce);
  Run run{sink, {}, nullptr};
  config.writeUser = config.progressUser = config.errorUser = &run;
  tsm_set_callbacks(onProgress, sink.write ? onWrite : nullptr, onMessage, nullptr, nullptr);
  {
    const std::unique_ptr<tsm_handle, HandleCloser> handle(tsm_open(&config, &run.result.rate));
    if (handle != nullptr) {
      if (sink.trace) tsm_set_trace(handle.get(), onTrace, &run);
      int32_t outcome = 0;
      do {
        outcome = tsm_run(handle.get());
      } while (outcome >= 0 && run.thrown == nullptr && !tsm_finished(handle.get()));
      run.result.done = outcome >= 0;
      collect(handle.get(), run.result);
    }
  }
  if (run.thrown != nullptr) std::rethrow_exception(run.thrown);
  return std::move(run.result);
}

NextPass prepareNextPass(const MuxResult& last, tsm_config& config) {
  constexpr int32_t kVideoUnderflow = 0;
  constexpr int32_t kAudioUnderflow = 1;
  constexpr int32_t kMargin = 8192;  // bits a second
  NextPass next;
  std::map<int32_t, int64_t> lacking;  // bits a second, by PID
  for (const MessageGroup& group : last.messages.groups()) {
    if (group.first.isFatal) continue;
    if (group.first.code == kAudioUnderflow) next.needed = true;
    if (group.first.code != kVideoUnderflow) continue;
    next.needed = true;
    lacking[group.first.pid] = group.worstRate;
  }
  for (tsm_program* program = config.programs; program != nullptr; program = program->next) {
    for (tsm_video* video : program->video) {
      if (video == nullptr || lacking.count(video->pid) == 0) continue;
      const int64_t adjusted = int64_t{video->rateAdjustment} + lacking[video->pid] + kMargin;
      // More than the whole stream has: no further pass would be any better.
      if (adjusted >= last.rate) continue;
      video->rateAdjustment = static_cast<int32_t>(adjusted);
      next.possible = true;
    }
  }
  return next;
}

}  // namespace zel::tool
