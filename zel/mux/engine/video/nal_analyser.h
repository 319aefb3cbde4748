#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zel/mux/engine/video/display_order.h"
#include "zel/mux/engine/video/video_analyser.h"

/// What AVC and HEVC have alike: units with zero bytes before their start codes, emulation
/// prevention, and pictures whose times of display come from picture timing messages, from the
/// order of the POC, or from a configured delay.

namespace zel::mux {

/// Codes of messages that each of the two has for itself.
struct nal_messages {
  int depthChanged;
  int seiAlignment;
  int noBitRate;
  int oddFrameRate;
};

class nal_analyser : public video_analyser {
 public:
  nal_analyser(video_state& state, const nal_messages& messages, int32_t configuredDepth);

 protected:
  double period_of(const access_unit& unit) override;
  double dts_of(const access_unit& unit, double running) override;
  void order_units(bool ended) override;
  void restart_parsing() override;

  /// Of the start code: a zero byte before the prefix belongs to it.
  int64_t start_of(int64_t prefix) const;
  /// `bytes` up to the next start code, without the header and emulation prevention. Valid until
  /// the next call.
  std::span<const uint8_t> rbsp_of(std::span<const uint8_t> bytes, size_t headerSize);

  /// How many units may be decoded before and shown after one at the most.
  void set_max_reorder(int32_t units) { maxReorder_ = units; }
  /// The open unit's delays as a picture timing message has them: from the removal of the unit of
  /// the buffering period before, and from decoding to display.
  void set_delays(int64_t removal, int64_t output, double tick);
  /// The delay before the first picture is taken out of the buffer, in 90 kHz ticks.
  void set_initial_delay(uint32_t delay90k);
  /// Warning 75: the order of the POC isn't used any more.
  void give_up_poc();
  bool uses_poc() const { return mode_ == order_mode::poc; }
  void warn_of_sei();
  const nal_messages& messages() const { return messages_; }

  /// A frame rate by a stream's own timing, in frames per second as a fraction.
  void set_timed_rate(double numerator, double denominator);

 private:
  enum class order_mode { undecided, sei, poc, fixed };

  void decide(const access_unit& unit);
  void leave_sei();
  void sort(bool ended);

  nal_messages messages_;
  int32_t configuredDepth_;
  int32_t maxReorder_ = 16;
  order_mode mode_ = order_mode::undecided;
  double lastOutputDelay_ = 0;
  bool anchored_ = false;
  double anchorDts_ = 0;  // of the unit of the last buffering period
  double lastDts_ = 0;
  double expectedDts_ = 0;
  bool ignoresSei_ = false;
  bool seiReported_ = false;
  bool rateReported_ = false;
  bool pocReported_ = false;
  poc_display_order order_;
  std::vector<uint8_t> rbsp_;
};

}  // namespace zel::mux
