#include "zel/mux/engine/input/source_tables.h"

#include "zel/base/byte_order.h"
#include "zel/base/crc32.h"

namespace zel::mux {

namespace {

constexpr size_t kHeader = 3;  // table_id and what ends in section_length
constexpr size_t kLongHeader = 8;
constexpr size_t kCrc = 4;
constexpr uint8_t kPatTable = 0;
constexpr uint8_t kPmtTable = 2;
constexpr uint8_t kStuffing = 0xFF;
constexpr int kPidMask = 0x1FFF;
constexpr size_t kLengthMask = 0x0FFF;

int pid_at(const uint8_t* at) {
  return base::loadBig16(at) & kPidMask;
}
size_t length_at(const uint8_t* at) {
  return base::loadBig16(at) & kLengthMask;
}

// A loop of descriptors, as far as their lengths make sense.
std::vector<std::vector<uint8_t>> split(std::span<const uint8_t> loop) {
  std::vector<std::vector<uint8_t>> all;
  while (loop.size() >= 2) {
    const size_t size = 2u + loop[1];
    if (size > loop.size()) break;
    all.emplace_back(loop.begin(), loop.begin() + static_cast<ptrdiff_t>(size));
    loop = loop.subspan(size);
  }
  return all;
}

}  // namespace

void source_tables::take_packet(std::span<const uint8_t, 188> packet) {
  constexpr uint8_t kSync = 0x47;
  const int pid = (packet[1] & 0x1F) << 8 | packet[2];
  if (packet[0] != kSync || !is_wanted(pid)) return;
  // Known to be damaged, scrambled, or without payload.
  if ((packet[1] & 0x80) != 0 || (packet[3] & 0xC0) != 0 || (packet[3] & 0x10) == 0) return;
  const size_t place = (packet[3] & 0x20) != 0 ? 5u + packet[4] : 4u;
  if (place >= packet.size()) return;
  assembly& part = assemblies_[pid];
  const int counter = packet[3] & 15;
  if (counter == part.continuity) return;  // sent twice
  if (part.continuity >= 0 && counter != ((part.continuity + 1) & 15)) part.inSection = false;
  part.continuity = counter;

  std::span<const uint8_t> payload = packet.subspan(place);
  if ((packet[1] & 0x40) == 0) return take_payload(pid, part, payload);
  const size_t pointer = payload[0];
  payload = payload.subspan(1);
  if (pointer > payload.size()) return;
  take_payload(pid, part, payload.first(pointer));
  part.bytes.clear();
  part.inSection = true;
  take_payload(pid, part, payload.subspan(pointer));
}

void source_tables::take_payload(int pid, assembly& part, std::span<const uint8_t> payload) {
  if (!part.inSection) return;
  part.bytes.insert(part.bytes.end(), payload.begin(), payload.end());
  take_sections(pid, part);
}

void source_tables::take_sections(int pid, assembly& part) {
  size_t at = 0;
  while (part.bytes.size() - at >= kHeader && part.bytes[at] != kStuffing) {
    const size_t size = kHeader + length_at(part.bytes.data() + at + 1);
    if (part.bytes.size() - at < size) break;
    take_section(pid, std::span<const uint8_t>(part.bytes).subspan(at, size));
    at += size;
  }
  part.bytes.erase(part.bytes.begin(), part.bytes.begin() + static_cast<ptrdiff_t>(at));
  // Behind stuffing nothing comes until the next pointer.
  if (!part.bytes.empty() && part.bytes[0] == kStuffing) part.inSection = false;
}

void source_tables::take_section(int pid, std::span<const uint8_t> section) {
  if (section.size() < kLongHeader + kCrc || base::crc32(section) != 0) return;
  const auto body = section.first(section.size() - kCrc);
  if (pid == 0 && section[0] == kPatTable) take_pat(body);
  if (pid != 0 && section[0] == kPmtTable) take_pmt(body);
}

void source_tables::take_pat(std::span<const uint8_t> section) {
  for (size_t at = kLongHeader; at + 4 <= section.size(); at += 4) {
    const bool isProgram = base::loadBig16(section.data() + at) != 0;
    if (isProgram) pmtPids_.insert(pid_at(section.data() + at + 2));
  }
}

void source_tables::take_pmt(std::span<const uint8_t> section) {
  if (section.size() < kLongHeader + 4) return;
  size_t at = kLongHeader + 4 + length_at(section.data() + kLongHeader + 2);
  while (at + 5 <= section.size()) {
    const uint8_t* const line = section.data() + at;
    const size_t size = length_at(line + 3);
    if (at + 5 + size > section.size()) return;
    streams_[pid_at(line + 1)] = {line[0], split(section.subspan(at + 5, size))};
    at += 5 + size;
  }
}

std::optional<source_description> source_tables::find(int pid) const {
  const auto found = streams_.find(pid);
  if (found == streams_.end()) return std::nullopt;
  return found->second;
}

}  // namespace zel::mux
