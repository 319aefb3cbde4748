#include <cstdio>
#include <new>

#include "zel/mux/multiplexer_api.h"
#include "zel/mux/multiplexer_texts.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

constexpr int32_t kRateMargin = 8192;  // bits a second beyond the deficit that was seen

// From its provider to a PID of the first pass's output.
bool MoveInput(tsm_stream_record& record, TarnArray& files, char const* firstPassFile) {
  record.user = nullptr;
  record.sourceTsPid = record.pid;
  tarn_array_free_strings(&files);
  return tarn_array_append_text(&files, firstPassFile);
}

int MoveInputs(tsm_program& program, tsm_video& video, char const* firstPassFile) {
  bool moved = MoveInput(video, video.files, firstPassFile);
  for (tsm_audio* const audio : program.audio) {
    if (audio == nullptr) break;
    moved = MoveInput(*audio, audio->files, firstPassFile) && moved;
  }
  for (tsm_smpte302m* const pcm : program.smpte302m) {
    if (pcm == nullptr) continue;
    for (void*& user : pcm->pairUser) user = nullptr;
    moved = MoveInput(*pcm, pcm->pairFiles[0], firstPassFile) && moved;
  }
  return moved ? 0 : ZelErrorOutOfMemory;
}

}  // namespace

int CTarnwickMultiplexerApi::PrepareNextPass(int32_t pass, char const* firstPassFile) {
  InstallCallbacks();
  tsm_program* const program = config->programs;
  tsm_video* const video = program != nullptr ? program->video[0] : nullptr;
  int64_t adjusted = kRateMargin;
  if (video != nullptr) adjusted += int64_t{video->rateAdjustment} + extraVideoRate;
  // Without video there is nothing to give more room to: another run would end as the last did.
  if (video == nullptr || adjusted + firstVideoRate >= muxRate) {
    SetText(errorMessage, kTwoPassFailed);
    return ZelErrorFailed;
  }
  video->rateAdjustment = int32_t(adjusted);
  if (pass != 1) return 0;
  if (firstPassFile == nullptr) return ZelErrorNullArgument;
  return MoveInputs(*program, *video, firstPassFile);
}

int CTarnwickMultiplexerApi::DropUnboundRecords() {
  try {
    for (tsm_program* program = config->programs; program != nullptr; program = program->next) {
      for (tsm_video*& slot : program->video)
        if (slot != nullptr && slot->user == nullptr) {
          droppedVideo.push_back({&slot, slot});
          slot = nullptr;
        }
      for (tsm_audio*& slot : program->audio)
        if (slot != nullptr && slot->user == nullptr) {
          droppedAudio.push_back({&slot, slot});
          slot = nullptr;
        }
    }
  } catch (std::bad_alloc const&) {
    return ZelErrorOutOfMemory;
  }
  return 0;
}

int CTarnwickMultiplexerApi::WriteConfiguration(char const* path) const {
  if (engine.writeConfiguration == nullptr) return ZelErrorNotSupported;
  std::FILE* const file = std::fopen(path, "w");
  if (file == nullptr) return ZelErrorCannotOpen;
  engine.writeConfiguration(config, file);
  std::fclose(file);
  return 0;
}

// The configuration ends here, with the records that pass 0 took out of their slots.
int CTarnwickMultiplexerApi::Finish(int result) {
  for (auto const& [slot, record] : droppedVideo) *slot = record;
  for (auto const& [slot, record] : droppedAudio) *slot = record;
  droppedVideo.clear();
  droppedAudio.clear();
  tsm_config_free(config);
  config = nullptr;
  return result;
}

int CTarnwickMultiplexerApi::Verdict(tsm_stats const& stats) {
  int32_t const errors = stats.errors;
  int32_t const warnings = stats.warnings;
  if (errors + warnings <= errorThreshold) return Finish(0);
  if (!enable2Pass) {
    // Counts alone fail no run without a threshold.
    if (!abort && errorThreshold < 1) return Finish(0);
  } else {
    if (needsAnotherPass) return ZelErrorOverrun;
    bool const errorsPass = errors < 1 || stopOnError != 1;
    if (errorsPass && (warnings < 1 || stopOnWarning != 1)) return Finish(0);
  }
  if (errorMessage == nullptr) errorMessage = lastMessage;
  return Finish(ZelErrorFailed);
}

int CTarnwickMultiplexerApi::Run() {
  void* const handle = engine.open(config, &muxRate);
  if (handle == nullptr) return Finish(ZelErrorFailed);
  needsAnotherPass = false;
  extraVideoRate = 0;
  if (engine.run(handle) < 0) {
    engine.close(handle);
    return Finish(ZelErrorFailed);
  }
  tsm_stats stats;
  engine.getStats(handle, &stats);
  engine.close(handle);
  return Verdict(stats);
}

int CTarnwickMultiplexerApi::Multiplex(char const* configurationOutputPath, int32_t pass,
                                       char const* firstPassFile) {
  if (config == nullptr) return ZelErrorNotReady;
  // A two-pass run never fails by count.
  if (enable2Pass) stopOnError = stopOnWarning = 0;
  int prepared = 0;
  if (pass > 0) {
    prepared = PrepareNextPass(pass, firstPassFile);
  } else {
    if (config->rate != 0) config->rate = (headroom + 100) * config->rate / 100;
    prepared = DropUnboundRecords();
  }
  if (prepared == 0 && configurationOutputPath != nullptr)
    prepared = WriteConfiguration(configurationOutputPath);
  return prepared < 0 ? Finish(prepared) : Run();
}

}  // namespace Morvalen::Zel
