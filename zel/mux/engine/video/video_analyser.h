#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "zel/mux/engine/messages/message.h"
#include "zel/mux/engine/stream/video_state.h"
#include "zel/mux/engine/video/display_order.h"
#include "zel/mux/engine/video/frame_rates.h"

/// What the analysers of all video codings have alike: the walk over start codes, access units that
/// begin and end, time stamps in decoding order, time codes and the cuts by them. A coding says
/// which codes it wants to see, where units begin, how long one lasts and in which order they are
/// shown.
///
/// The stream is walked twice from where its data begin: the discovery learns its characteristics
/// from what is buffered, and queues nothing; the run queues. What was learnt and reported stays
/// known across the two, so that each change is told once.

namespace zel::mux {

// What holds for a stream that says nothing.
inline constexpr int32_t kDefaultVbvSize = 112;  // units of 2,048 bytes
inline constexpr double kDefaultBitRate = 3'000'000;
inline constexpr int32_t kDefaultVbvDelay = 50'000;
inline constexpr int32_t kVbvDelayNotTold = 65'535;

class video_analyser : public video_state::analyser_state {
 public:
  explicit video_analyser(video_state& state);

  enum class progress { advanced, starved };
  /// Looks at the next start code and what of its unit the coding wants to see. Starved: more bytes
  /// have to be loaded first, or the source is through.
  progress step();

  /// Discovery: enough was seen to know what the stream says of itself.
  virtual bool characteristics_known() const = 0;
  /// Ends discovery: what isn't told gets its default, with the warnings that go with it.
  void settle();
  /// From here on units are queued. The walk begins anew.
  void begin_run();

  /// The source has given all: the last unit ends, and every unit gets its time.
  void finish();

  /// The stream's own descriptors as discovery found them, each whole.
  const std::vector<std::vector<uint8_t>>& descriptors() const { return descriptors_; }

  /// Whether units have got their time stamps since it was last asked.
  bool take_timed();
  /// No more units are wanted: the run ended by a time code or its duration.
  bool is_cut_off() const { return ended_; }

 protected:
  /// For bytes_wanted(): the unit as far as the next start code, at most kMostHeader bytes.
  static constexpr int32_t kWholeUnit = -1;
  static constexpr int32_t kMostHeader = 65'536;

  /// How many bytes from the code's byte on on_code() wants; 1 is the code alone.
  virtual int32_t bytes_wanted(uint8_t code) const = 0;
  /// `bytes` begins with the code's byte. Fewer than wanted where the source ends.
  virtual void on_code(int64_t prefix, std::span<const uint8_t> bytes) = 0;
  /// Where the walk goes on, from the code's byte on: past it where a code of zero is one.
  virtual int32_t code_size() const { return 0; }

  /// The unit's time in decoding order, in ticks. Called once a unit, in order.
  virtual double period_of(const access_unit& unit) = 0;
  /// The unit's DTS, where `running` is the end of the unit before it.
  virtual double dts_of(const access_unit& unit, double running) {
    static_cast<void>(unit);
    return running;
  }
  /// The newest unit of the queue has its DTS; gives display times to what can have them.
  virtual void order_units(bool ended) = 0;
  /// The coding's part of settle(): checks, and descriptors.
  virtual void settle_coding() = 0;
  void add_descriptor(std::vector<uint8_t> descriptor) {
    descriptors_.push_back(std::move(descriptor));
  }
  /// Forgets what was parsed; what was learnt and reported stays.
  virtual void restart_parsing() = 0;
  /// The unit's time code: by default one frame behind the last.
  virtual void time_code_of(access_unit& unit);

  bool unit_open() const { return open_; }
  /// Headers at `start`: ends the open unit and begins another, unless the open one has had nothing
  /// but headers yet and goes on. @return whether one began.
  bool begin_with_headers(int64_t start);
  /// The unit that is open.
  access_unit& unit() { return unit_; }
  /// The unit that is open holds a picture: the next unit's headers begin another.
  void set_has_picture(int64_t pictureAt);
  bool has_picture() const { return hasPicture_; }

  video_state& state() { return state_; }
  const video_state& state() const { return state_; }
  video_characteristics& characteristics() { return state_.characteristics; }
  const video_characteristics& characteristics() const { return state_.characteristics; }
  bool discovering() const { return discovering_; }
  int pictures_seen() const { return pictures_; }
  void warn(int code, const message_argument& argument = {});
  void fatal(int code, const message_argument& argument = {});

  /// The frame rate that the configuration sets, which wins over the stream's.
  bool rate_is_configured() const { return configuredRate_.period > 0; }
  void set_frame_rate(const frame_rate_row& row);
  /// The bit rate or the buffer's size as headers say, in bits per second and bytes; told where
  /// they change.
  void set_bit_rate(double bitRate);
  void set_vbv_size(int32_t size);
  void set_vbv_bytes(double bytes);

 private:
  int64_t wanted_size(int32_t wanted, int64_t body, int64_t available);
  void end_unit(int64_t end);
  bool is_cut(const access_unit& unit);
  void enqueue(const access_unit& unit);
  void note_transitions(const access_unit& unit);
  void time_transitions();
  void end_source();

  video_state& state_;
  bool discovering_ = true;
  frame_rate_row configuredRate_{};
  std::vector<std::vector<uint8_t>> descriptors_;
  // As the data told them last; 0: they haven't.
  double toldBitRate_ = 0;
  int32_t toldVbvSize_ = 0;

  int64_t prefix_ = -1;   // of the unit that waits for more bytes; -1: none
  int64_t searched_ = 0;  // up to here its end was searched
  std::vector<uint8_t> header_;

  access_unit unit_;
  int64_t dependentEnd_ = 0;  // of the second layer's part of the unit before
  bool open_ = false;
  bool hasPicture_ = false;
  int pictures_ = 0;
  size_t queued_ = 0;
  bool ended_ = false;

  bool startSeen_ = false;        // the configured Start has come, or there is none
  video_time_code toldTimeCode_;  // the last that the stream told
  int64_t fieldsSince_ = 0;       // of the units from that one on
  size_t untimed_ = 0;            // at the queue's end
  int64_t nextFile_ = -1;         // where it begins in the input; -1: not known
};

}  // namespace zel::mux
