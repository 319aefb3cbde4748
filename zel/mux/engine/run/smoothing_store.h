#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/run/output_writer.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

/// The packets between two PCRs of a variable rate multiplex. Receivers take their arrival to be
/// even between the PCRs, so they are held until the second PCR is there; streams that are rare
/// among them are then spread evenly, because they came in whenever their model had room.
class smoothing_store {
 public:
  static constexpr size_t kCapacity = 4095;

  smoothing_store();

  size_t size() const { return packets_.size(); }
  /// False where the store is full.
  bool add(const tsm_packet& packet);
  /// Spreads the rare streams' packets.
  void spread();
  /// Hands everything to the writer, in order. False where a write failed. The time line's count of
  /// packets stays.
  bool release(output_writer& writer, Morvalen::Zel::tsm_stats& stats);

 private:
  static constexpr size_t kPids = 8192;

  void spread_one(int pid, size_t count);

  std::vector<tsm_packet> packets_;  // room for all, from the start
  std::vector<tsm_packet> others_, rare_;
  std::array<uint16_t, kPids> counts_{};
};

}  // namespace zel::mux
