#include "zel/mux/engine/video/describe_video.h"

#include "zel/mux/engine/audio/descriptors.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

namespace {

constexpr uint8_t kVideoPesId = 0xE0;

// ETSI EN 300 468, 6.2.1: tag 0x70, with the bit of access unit information (TS 101 154, D.2).
descriptor_bytes adaptation_data_descriptor() {
  return {0x70, 1, 0x02};
}

}  // namespace

uint8_t video_stream_type(video_coding coding) {
  switch (coding) {
    case video_coding::mpeg1:
      return 1;
    case video_coding::mpeg2:
      return 2;
    case video_coding::mpeg4_part2:
      return 16;
    case video_coding::avc:
      return 27;
    case video_coding::hevc:
      return 36;
    case video_coding::unknown:
      break;
  }
  return 0;
}

void describe_video(video_state& state, int32_t mask) {
  tsm_stream& stream = *state.stream;
  pmt_description& pmt = stream.pmt;
  pmt.listed = true;
  if (pmt.streamType == 0) pmt.streamType = video_stream_type(state.characteristics.coding);
  if (stream.pesId == 0) stream.pesId = kVideoPesId;
  const auto* const analyser = static_cast<const video_analyser*>(state.analyser.get());
  const bool masked = state.characteristics.coding == video_coding::avc;
  if (analyser != nullptr && (mask & (masked ? kDescribeAvc : ~0)) != 0) {
    for (const auto& descriptor : analyser->descriptors()) {
      add_automatic_descriptor(pmt.descriptors, descriptor);
    }
  }
  if (state.config->auInfo && (mask & kDescribeAdaptationData) != 0) {
    add_automatic_descriptor(pmt.descriptors, adaptation_data_descriptor());
  }
}

}  // namespace zel::mux
