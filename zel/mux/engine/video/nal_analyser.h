#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "zel/mux/engine/video/display_order.h"
#include "zel/mux/engine/video/video_analyser.h"
#include "zel/syntax/clock_timestamp.h"
#include "zel/syntax/sei_message.h"

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

/// What a buffering period message says of the delay before the first picture is taken out.
struct initial_delay {
  bool sound = true;  // the message could be read, or its SPS hasn't come
  std::optional<uint32_t> delay90k{};
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

  /// begin_with_headers() of a unit that has no picture timing yet.
  bool begin_untimed(int64_t start);

  /// Walks the messages of an SEI unit. The picture timing waits for the first slice of its unit,
  /// which tells the SPS that it is read by.
  void on_sei(std::span<const uint8_t> rbsp);
  virtual void on_other_sei(const syntax::SeiMessage& message) = 0;
  virtual initial_delay read_initial_delay(std::span<const uint8_t> payload) const = 0;
  /// The unit's first slice has come: its picture timing is read, where it has one.
  void apply_unit_timing();
  virtual void apply_timing(std::span<const uint8_t> payload) = 0;
  /// The unit's time code, where the clock tells the hours.
  void set_time_code(const syntax::ClockTimestamp& clock);

  /// How many units may be decoded before and shown after one at the most.
  void set_max_reorder(int32_t units) { maxReorder_ = units; }
  /// How many frames the stream says that it reorders at the most; 0 where it says nothing.
  void set_told_reorder(int32_t frames) { toldReorder_ = frames; }
  /// The open unit's delays as a picture timing message has them: from the removal of the unit of
  /// the buffering period before, and from decoding to display.
  void set_delays(int64_t removal, int64_t output, double tick);
  /// Warning 75: the order of the POC isn't used any more.
  void give_up_poc();
  bool uses_poc() const { return mode_ == order_mode::poc; }
  void warn_of_sei();

  /// A frame rate by a stream's own timing, in frames per second as a fraction.
  void set_timed_rate(double numerator, double denominator);
  /// The rate and the buffer of a stream that tells only its level: the level's highest rate less
  /// 1/16, with a warning, and the level's buffer. In bits per second and bits.
  void set_level_rates(int64_t mostBits, int64_t bufferBits);

 private:
  enum class order_mode { undecided, sei, poc, fixed };

  void on_buffering_period(std::span<const uint8_t> payload);
  void set_initial_delay(uint32_t delay90k);
  void decide(const access_unit& unit);
  void leave_sei();
  void sort(bool ended);
  void show_as_told(bool ended);

  nal_messages messages_;
  int32_t configuredDepth_;
  int32_t maxReorder_ = 16;
  int32_t toldReorder_ = 0;
  order_mode mode_ = order_mode::undecided;
  double lastOutputDelay_ = 0;
  bool anchored_ = false;
  double anchorDts_ = 0;  // of the unit of the last buffering period
  double lastDts_ = 0;
  double expectedDts_ = 0;
  double toldRemoval_ = 0;   // of the newest unit; what its time of display counts from
  double displayDelay_ = 0;  // behind the told times of display
  bool anyShown_ = false;    // a unit has been timed as told
  bool ignoresSei_ = false;
  bool seiReported_ = false;
  bool rateReported_ = false;
  bool pocReported_ = false;
  bool initialDelaySeen_ = false;
  bool ratesReported_ = false;
  // The open unit's picture timing.
  bool timingSeen_ = false;
  std::vector<uint8_t> timing_;
  poc_display_order order_;
  std::vector<uint8_t> rbsp_;
};

}  // namespace zel::mux
