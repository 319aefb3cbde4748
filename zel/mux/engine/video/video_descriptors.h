#pragma once

#include <cstdint>

#include "zel/mux/engine/audio/descriptors.h"
#include "zel/syntax/hevc_parameter_sets.h"

/// The descriptors that video streams get of themselves, each whole with tag and length: ISO/IEC
/// 13818-1, 2.6.64 and what follows.

namespace zel::mux {

/// Tag 0x28. `constraintFlags` is the byte behind profile_idc, its low two bits are
/// AVC_compatible_flags here.
descriptor_bytes avc_video_descriptor(uint8_t profileIdc, uint8_t constraintFlags, uint8_t levelIdc,
                                      bool framePacking);
/// Tag 0x2A, for a stream that doesn't tell its frame rate: the period in 27 MHz ticks.
descriptor_bytes avc_timing_descriptor(double framePeriod);

/// Tag 0x04: how a layer builds on the one below. The base layer has index 0, the other 1.
enum class hierarchy : uint8_t { spatial = 1, mvc = 9, base_layer = 15 };
descriptor_bytes hierarchy_descriptor(hierarchy type);
/// Tag 0x31, of the view of that order index. Rates in bits per second.
descriptor_bytes mvc_extension_descriptor(double bitRate, int viewOrderIndex);
/// Tag 0x30.
struct svc_extension {
  int32_t width = 0, height = 0;
  double framesPerSecond = 0;
  double bitRate = 0;
  uint8_t dependencyId = 0;
};
descriptor_bytes svc_extension_descriptor(const svc_extension& layer);

/// Tag 0x38.
descriptor_bytes hevc_video_descriptor(const syntax::HevcProfileTierLevel& level,
                                       bool subPictureParameters);
/// Tag 0x3F with extension 3, likewise for a stream that doesn't tell its frame rate.
descriptor_bytes hevc_timing_descriptor(double framePeriod);

}  // namespace zel::mux
