#include "zel/mux/engine/video/video_descriptors.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "zel/base/bit_writer.h"

namespace zel::mux {

namespace {

constexpr uint8_t kAvcVideo = 0x28;
constexpr uint8_t kAvcTiming = 0x2A;
constexpr uint8_t kHierarchy = 0x04;
constexpr uint8_t kSvcExtension = 0x30;
constexpr uint8_t kMvcExtension = 0x31;
constexpr uint8_t kHevcVideo = 0x38;
constexpr uint8_t kExtension = 0x3F;
constexpr uint8_t kHevcTimingExtension = 3;

class body {
 public:
  void put(uint32_t value, int count) { writer_.write(value, count); }
  void reserved(int count) { writer_.write((uint32_t{1} << count) - 1, count); }
  void put_long(uint64_t value, int count) { writer_.writeLong(value, count); }

  descriptor_bytes with_tag(uint8_t tag) {
    const auto bytes = writer_.finish();
    descriptor_bytes descriptor;
    descriptor.reserve(bytes.size() + 2);
    descriptor.push_back(tag);
    descriptor.push_back(static_cast<uint8_t>(bytes.size()));
    descriptor.insert(descriptor.end(), bytes.begin(), bytes.end());
    return descriptor;
  }

 private:
  std::array<uint8_t, 64> buffer_{};
  base::BitWriter writer_{buffer_};
};

// The length of a tick: in 90 kHz units where they express it, else with N / K of 27 MHz.
void put_tick(body& bits, double ticks27M) {
  const double ticks90k = ticks27M / 300;
  const bool whole = ticks90k == std::floor(ticks90k) && ticks90k < 4294967296.0;
  bits.put(whole, 1);
  bits.reserved(7);
  if (!whole) {
    bits.put(1, 32);
    bits.put(1, 32);
  }
  bits.put(static_cast<uint32_t>(whole ? ticks90k : std::round(ticks27M)), 32);
}

uint32_t sixteen_bits(double value) {
  return static_cast<uint32_t>(std::clamp(std::round(value), 0.0, 65'535.0));
}

void put_rates(body& bits, double bitRate) {
  bits.put(sixteen_bits(bitRate / 1000), 16);  // average, kbit/s
  bits.put(sixteen_bits(bitRate / 1000), 16);  // highest
}

}  // namespace

descriptor_bytes avc_video_descriptor(uint8_t profileIdc, uint8_t constraintFlags, uint8_t levelIdc,
                                      bool framePacking) {
  body bits;
  bits.put(profileIdc, 8);
  bits.put(constraintFlags, 8);
  bits.put(levelIdc, 8);
  bits.put(0, 2);  // no stills, no pictures a day apart
  bits.put(!framePacking, 1);
  bits.reserved(5);
  return bits.with_tag(kAvcVideo);
}

// A tick is a field's time. The buffer isn't managed by the HRD's schedule but by its rate.
descriptor_bytes avc_timing_descriptor(double framePeriod) {
  body bits;
  bits.put(0, 1);
  bits.reserved(6);
  bits.put(1, 1);
  put_tick(bits, framePeriod / 2);
  bits.put(1, 1);  // fixed_frame_rate_flag
  bits.put(0, 2);
  bits.reserved(5);
  return bits.with_tag(kAvcTiming);
}

descriptor_bytes hierarchy_descriptor(hierarchy type) {
  const bool base = type == hierarchy::base_layer;
  body bits;
  // View, temporal, spatial, quality: a flag of 0 says that the layer adds that.
  bits.put(type != hierarchy::mvc, 1);
  bits.put(1, 1);
  bits.put(type != hierarchy::spatial, 1);
  bits.put(1, 1);
  bits.put(static_cast<uint32_t>(type), 4);
  bits.reserved(2);
  bits.put(base ? 0 : 1, 6);
  bits.put(0, 1);
  bits.reserved(1);
  bits.put(0, 6);
  bits.reserved(2);
  bits.put(base ? 0 : 1, 6);
  return bits.with_tag(kHierarchy);
}

descriptor_bytes mvc_extension_descriptor(double bitRate, int viewOrderIndex) {
  const auto index = static_cast<uint32_t>(viewOrderIndex);
  body bits;
  put_rates(bits, bitRate);
  bits.put(1, 1);  // view_association_not_present
  bits.put(0, 1);
  bits.reserved(2);
  bits.put(index, 10);
  bits.put(index, 10);
  bits.put(0, 3);
  bits.put(7, 3);  // all temporal layers
  bits.put(0, 2);
  return bits.with_tag(kMvcExtension);
}

descriptor_bytes svc_extension_descriptor(const svc_extension& layer) {
  body bits;
  bits.put(sixteen_bits(layer.width), 16);
  bits.put(sixteen_bits(layer.height), 16);
  bits.put(sixteen_bits(layer.framesPerSecond * 256), 16);
  put_rates(bits, layer.bitRate);
  bits.put(layer.dependencyId, 3);
  bits.reserved(5);
  bits.put(0, 8);  // one quality layer
  bits.put(0, 3);
  bits.put(7, 3);  // all temporal layers
  bits.put(0, 1);
  bits.reserved(1);
  return bits.with_tag(kSvcExtension);
}

descriptor_bytes hevc_video_descriptor(const syntax::HevcProfileTierLevel& level,
                                       bool subPictureParameters) {
  const syntax::HevcProfile& profile = level.general;
  body bits;
  bits.put(profile.space, 2);
  bits.put(profile.tier, 1);
  bits.put(profile.idc, 5);
  bits.put(profile.compatibility, 32);
  bits.put(profile.progressiveSource, 1);
  bits.put(profile.interlacedSource, 1);
  bits.put(profile.nonPackedConstraint, 1);
  bits.put(profile.frameOnlyConstraint, 1);
  bits.put_long(profile.constraintBits, 44);
  bits.put(level.generalLevelIdc, 8);
  bits.put(0, 3);  // all temporal layers, no stills, no pictures a day apart
  bits.put(!subPictureParameters, 1);
  bits.reserved(2);
  bits.put(3, 2);  // HDR_WCG_idc: nothing is said
  return bits.with_tag(kHevcVideo);
}

descriptor_bytes hevc_timing_descriptor(double framePeriod) {
  body bits;
  bits.put(kHevcTimingExtension, 8);
  bits.put(0, 1);  // hrd_management_valid_flag
  bits.put(1, 1);  // no target schedule
  bits.put(0x1F, 5);
  bits.put(1, 1);
  put_tick(bits, framePeriod);
  return bits.with_tag(kExtension);
}

}  // namespace zel::mux
