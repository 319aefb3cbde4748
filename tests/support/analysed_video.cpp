#include "tests/support/analysed_video.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/input/circular_buffer.h"
#include "zel/mux/engine/packet/video_packets.h"
#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/video/open_video.h"

namespace zel::test {

namespace {

using namespace Morvalen::Zel;

struct Loader {
  std::span<const uint8_t> rest;
  size_t chunk;
};

int load(void* user, cbuf* buffer) {
  auto& loader = *static_cast<Loader*>(user);
  const auto room = static_cast<size_t>(mux::cbuf_free(*buffer));
  size_t count = std::min({loader.chunk, room, loader.rest.size()});
  while (count > 0) {
    const auto piece = std::min(count, static_cast<size_t>(buffer->end - buffer->write));
    std::copy_n(loader.rest.begin(), piece, buffer->write);
    buffer->write = mux::cbuf_forward(*buffer, buffer->write, static_cast<int32_t>(piece));
    loader.rest = loader.rest.subspan(piece);
    count -= piece;
  }
  return loader.rest.empty() ? 1 : 0;
}

int discard(void*, const uint8_t*, int32_t, int32_t) {
  return 0;
}

void note(void* user, int fatal, int32_t code, const char* text) {
  auto& result = *static_cast<AnalysedVideo*>(user);
  result.messages += fatal != 0 ? 'F' : 'W';
  result.messages += std::to_string(code);
  result.messages += ' ';
  const std::string whole = text;
  result.texts += whole.substr(std::min(whole.find('\n'), whole.size() - 1) + 1);
}

void drain(mux::video_state& state, AnalysedVideo& result) {
  while (mux::video_unit_ready(state, 0)) {
    const mux::access_unit& unit = state.units.front();
    if (!state.sourceEnded) {
      result.leastWaiting = std::min(result.leastWaiting, state.units.size());
    }
    result.units.push_back(unit);
    result.removals.push_back(state.model.removals.front());
    state.model.removals.pop();
    state.input.skip(static_cast<int32_t>(unit.start - state.input.read_position()));
    const size_t at = result.bytes.size();
    result.bytes.resize(at + static_cast<size_t>(unit.size));
    state.input.take(result.bytes.data() + at, unit.size);
    if (unit.dependentSize > 0) {
      mux::elementary_input& dependent = state.dependentInput;
      dependent.skip(static_cast<int32_t>(unit.dependentStart - dependent.read_position()));
      const size_t begin = result.dependentBytes.size();
      result.dependentBytes.resize(begin + static_cast<size_t>(unit.dependentSize));
      dependent.take(result.dependentBytes.data() + begin, unit.dependentSize);
    }
    state.units.pop();
  }
}

}  // namespace

int AnalysedVideo::count(const std::string& message) const {
  int found = 0;
  for (size_t at = 0; (at = (" " + messages).find(" " + message + " ", at)) != std::string::npos;
       ++at) {
    ++found;
  }
  return found;
}

double AnalysedVideo::shown(size_t unit) const {
  return mux::signed_difference(units[unit].pts, firstDts) / kPeriodAt25;
}

double AnalysedVideo::decoded(size_t unit) const {
  return mux::signed_difference(units[unit].dts, firstDts) / kPeriodAt25;
}

VideoFeed with(std::function<void(tsm_config&, tsm_video&)> configure) {
  VideoFeed feed;
  feed.configure = std::move(configure);
  return feed;
}

AnalysedVideo analyseVideo(std::span<const uint8_t> stream, const VideoFeed& feed) {
  AnalysedVideo result;
  tsm_config* const config = tsm_config_new();
  tsm_program* const program = tsm_add_program(config);
  tsm_video* const record = tsm_add_video(program);
  Loader loader{stream, feed.chunk};
  record->user = &loader;
  record->pid = 0x31;
  if (feed.configure) feed.configure(*config, *record);

  mux::tsm_mux run(mux::output_writer({}, {}, discard, nullptr));
  run.config = config;
  run.reports.deliver_to(note, &result);
  run.reports.stop_on(false, false);
  if (auto opened = mux::open_video(*record, *program, load, run)) {
    mux::set_up_stream(*opened, *record, program, run);
    mux::tsm_stream& video = *opened;
    run.streams.push_back(std::move(opened));
    auto& state = static_cast<mux::video_state&>(*video.state);
    state.firstVideo = &state;
    mux::start_video(video, run);
    result.started = !video.has(mux::kNoMorePackets);
    result.characteristics = state.characteristics;
    result.pmt = video.pmt;
    result.pesId = video.pesId;
    result.rate = video.rate;
    result.limit = state.model.limit;
    result.firstDts = state.firstDts;
    result.firstPts = state.firstPts;
    if (result.started) drain(state, result);
    result.startTimeCode = state.startTimeCode;
  }
  tsm_config_free(config);
  return result;
}

}  // namespace zel::test
