#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "zel/mux/engine/input/input_window.h"
#include "zel/mux/engine/input/source_warnings.h"
#include "zel/mux/engine/input/stream_source.h"
#include "zel/mux/engine/input/time_stamp_marks.h"
#include "zel/mux/engine/stream/fixed_ring.h"
#include "zel/syntax/pes.h"

namespace zel::mux {

/// One elementary stream out of a transport stream, of packets of 188 to 511 bytes: what its PES
/// packets carry, from the first that begins. Damage is told and passed over; a packet that comes
/// twice counts once.
class transport_stream_source : public stream_source {
 public:
  /// Which: a PID, or (-1) the first PID whose PES packets have the stream_id.
  struct selection {
    int pid = -1;
    int streamId = 0;
    bool described = false;  // description() is wanted
  };

  transport_stream_source(std::unique_ptr<stream_source> bytes, const selection& wanted,
                          source_fault_function fault);

  int32_t read(uint8_t* to, int32_t room) override;
  int64_t take_transition() override;
  int64_t first_pts90k() const override { return firstPts_; }
  std::optional<source_description> description() override { return tables_.find(wanted_.pid); }
  std::optional<source_stamp> stamp_at(int64_t position) const override {
    return marks_.at(position);
  }
  std::optional<source_stamp> stamp_from(int64_t position, int64_t dts90k) const override {
    return marks_.from(position, dts90k);
  }
  int64_t first_dts90k() const override { return firstDts_ >= 0 ? firstDts_ : firstPts_; }

  /// Bytes of a packet and what goes with it; 0 where there are no packets. After the first read.
  size_t packet_size() const { return packetSize_; }

 private:
  bool find_packets();
  void find_description();
  bool resynchronise();
  const uint8_t* next_packet();
  void pass_transitions();
  void take_packet(const uint8_t* packet);
  void take_payload(std::span<const uint8_t> payload, bool unitStart);
  void start_pes(std::span<const uint8_t> payload);
  bool is_wanted(int pid, std::span<const uint8_t> payload, bool unitStart);
  bool is_repeated(const uint8_t* packet, std::span<const uint8_t> payload);

  input_window window_;
  selection wanted_;
  source_fault_function fault_;
  size_t packetSize_ = 0;
  bool searched_ = false;
  bool packetHeld_ = false;  // the packet in front of the window is being delivered
  std::span<const uint8_t> pending_;

  enum class state { outside, header, payload };
  state state_ = state::outside;
  std::array<uint8_t, syntax::kMostPesHeader> header_{};
  size_t headerFill_ = 0;
  int64_t pesLeft_ = 0;  // below 0: not told
  int continuity_ = -1;
  std::array<uint8_t, 188> last_{};
  source_tables tables_;
  bool joined_ = false;    // the packet that comes next may be of another file than the last
  int64_t nextFile_ = -1;  // where in the source the next file begins, -1: not known
  fixed_ring<int64_t, 64> transitions_;
  int64_t firstPts_ = -1;
  int64_t firstDts_ = -1;
  int64_t given_ = 0;  // bytes
  time_stamp_marks marks_;
};

/// The size of packets that `bytes` consist of, and where the first begins: the smallest size, then
/// the smallest place, at which every sync byte is there. 0 where there is none.
size_t find_packet_size(std::span<const uint8_t> bytes, size_t& first);

}  // namespace zel::mux
