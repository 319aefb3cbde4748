#include "zel/mux/engine/run/smoothing_store.h"

#include <algorithm>

namespace zel::mux {

namespace {

constexpr size_t kFewest = 3;  // packets that can be spread
constexpr size_t kRare = 4;    // times less frequent than the most frequent PID

}  // namespace

smoothing_store::smoothing_store() {
  packets_.reserve(kCapacity);
  others_.reserve(kCapacity);
  rare_.reserve(kCapacity);
}

bool smoothing_store::add(const tsm_packet& packet) {
  if (packets_.size() >= kCapacity) return false;
  packets_.push_back(packet);
  return true;
}

// Takes the PID's packets out, and puts them back at even places from their first one to the end.
// The first keeps its place: where it has the PCR, that is what the store's time counts from.
void smoothing_store::spread_one(int pid, size_t count) {
  const auto isOfPid = [pid](const tsm_packet& packet) { return packet.pid() == pid; };
  const auto first =
      static_cast<size_t>(std::ranges::find_if(packets_, isOfPid) - packets_.begin());
  others_.clear();
  rare_.clear();
  for (const tsm_packet& packet : packets_) {
    if (isOfPid(packet)) {
      rare_.push_back(packet);
    } else {
      others_.push_back(packet);
    }
  }

  const size_t span = packets_.size() - first;
  size_t nextRare = 0;
  size_t nextOther = first;
  for (size_t i = first; i < packets_.size(); ++i) {
    const bool isPlace = nextRare < count && i - first >= nextRare * span / count;
    packets_[i] = isPlace ? rare_[nextRare++] : others_[nextOther++];
  }
}

void smoothing_store::spread() {
  for (const tsm_packet& packet : packets_) ++counts_[static_cast<size_t>(packet.pid())];
  size_t most = 0;
  for (const tsm_packet& packet : packets_) {
    most = std::max<size_t>(most, counts_[static_cast<size_t>(packet.pid())]);
  }
  for (size_t i = 0; i < packets_.size(); ++i) {
    const int pid = packets_[i].pid();
    const size_t count = counts_[static_cast<size_t>(pid)];
    if (count >= kFewest && count * kRare < most) spread_one(pid, count);
    counts_[static_cast<size_t>(pid)] = 0;  // once a PID
  }
}

bool smoothing_store::release(output_writer& writer, Morvalen::Zel::tsm_stats& stats) {
  const int64_t counted = stats.packetsCounted;
  bool isGood = true;
  for (const tsm_packet& packet : packets_) {
    isGood = writer.put(packet, stats);
    if (!isGood) break;
  }
  stats.packetsCounted = counted;
  packets_.clear();
  return isGood;
}

}  // namespace zel::mux
