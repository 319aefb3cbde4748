#include "zel/mux/engine/psi/psi_tables.h"

#include <algorithm>
#include <climits>

#include "zel/base/byte_order.h"
#include "zel/base/crc32.h"

namespace zel::mux {

namespace {

constexpr size_t kCrcBytes = 4;

class section_writer {
 public:
  /// `second` holds the bits above the length: section_syntax_indicator and those beside it.
  section_writer(uint8_t tableId, uint8_t second) : bytes_{tableId, second, 0} {}

  void byte(int value) { bytes_.push_back(static_cast<uint8_t>(value)); }
  void word(int value) {
    byte(value >> 8 & 0xFF);
    byte(value & 0xFF);
  }
  /// table_id_extension to last_section_number: one section, current.
  void long_header(int extension, int version) {
    word(extension);
    byte(0xC0 | (version & 31) << 1 | 1);
    byte(0);
    byte(0);
  }
  void block(std::span<const uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  /// A loop behind its 12-bit length, under reserved ones.
  void loop(std::span<const uint8_t> bytes) {
    word(0xF000 | static_cast<int>(bytes.size() & 0xFFF));
    block(bytes);
  }

  std::vector<uint8_t> finish() {
    const size_t length = bytes_.size() - 3 + kCrcBytes;
    bytes_[1] = static_cast<uint8_t>((bytes_[1] & 0xF0) | (length >> 8 & 15));
    bytes_[2] = static_cast<uint8_t>(length);
    const uint32_t crc = base::crc32(bytes_);
    bytes_.resize(bytes_.size() + kCrcBytes);
    base::storeBig32(bytes_.data() + bytes_.size() - kCrcBytes, crc);
    return std::move(bytes_);
  }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace

std::vector<uint8_t> make_pat(int transportStreamId, int version, int nitPid,
                              std::span<const pat_program> programs) {
  section_writer section(0, 0xB0);
  section.long_header(transportStreamId, version);
  if (nitPid > 0) {
    section.word(0);
    section.word(0xE000 | (nitPid & 0x1FFF));
  }
  for (const pat_program& program : programs) {
    section.word(program.number);
    section.word(0xE000 | (program.pmtPid & 0x1FFF));
  }
  return section.finish();
}

std::vector<uint8_t> make_pmt(int programNumber, int version, int pcrPid,
                              std::span<const uint8_t> programDescriptors,
                              std::span<const pmt_line> lines) {
  section_writer section(2, 0xB0);
  section.long_header(programNumber, version);
  section.word(0xE000 | (pcrPid < 0 ? 0x1FFF : pcrPid & 0x1FFF));
  section.loop(programDescriptors);
  for (const pmt_line& line : lines) {
    section.byte(line.streamType);
    section.word(0xE000 | (line.pid & 0x1FFF));
    section.loop(line.descriptors);
  }
  return section.finish();
}

// EN 300 468, 7.1.1, but with a CRC_32, which the clause's short section doesn't have: every
// section that this multiplexer makes ends with one. Who reads by the clause alone finds the
// transition flag in its place, and the length tells him what to pass over.
std::vector<uint8_t> make_dit(bool transition) {
  section_writer section(0x7E, 0x70);
  section.byte(transition ? 0xFF : 0x7F);
  return section.finish();
}

// EN 300 468, 7.1.2.
std::vector<uint8_t> make_sit(int version, std::span<const uint8_t> transmissionDescriptors,
                              int serviceId, int runningStatus,
                              std::span<const uint8_t> serviceDescriptors) {
  section_writer section(0x7F, 0xF0);
  section.long_header(0xFFFF, version);
  section.loop(transmissionDescriptors);
  section.word(serviceId);
  section.word(0x8000 | (runningStatus & 7) << 12 |
               static_cast<int>(serviceDescriptors.size() & 0xFFF));
  section.block(serviceDescriptors);
  return section.finish();
}

void sort_by_order(std::span<pmt_line> lines) {
  const auto key = [](const pmt_line& line) { return line.order == 0 ? INT_MAX : line.order; };
  if (std::ranges::all_of(lines, [](const pmt_line& line) { return line.order == 0; })) return;
  // Equal orders may come in any order; a stable sort gives the same bytes on every machine.
  std::ranges::stable_sort(lines, {}, key);
}

bool descriptors_fill(std::span<const uint8_t> descriptors) {
  size_t place = 0;
  while (place + 2 <= descriptors.size()) place += 2u + descriptors[place + 1];
  return place == descriptors.size();
}

bool add_unless_there(std::vector<uint8_t>& descriptors, std::span<const uint8_t> descriptor) {
  size_t place = 0;
  while (place + 2 <= descriptors.size()) {
    const size_t size = 2u + descriptors[place + 1];
    if (place + size > descriptors.size()) break;
    if (std::ranges::equal(std::span(descriptors).subspan(place, size), descriptor)) return false;
    place += size;
  }
  descriptors.insert(descriptors.end(), descriptor.begin(), descriptor.end());
  return true;
}

void cut_section(std::vector<uint8_t>& section, size_t size) {
  if (section.size() <= size || size < 3 + kCrcBytes) return;
  section.resize(size - kCrcBytes);
  const size_t length = size - 3;
  section[1] = static_cast<uint8_t>((section[1] & 0xF0) | (length >> 8 & 15));
  section[2] = static_cast<uint8_t>(length);
  const uint32_t crc = base::crc32(section);
  section.resize(size);
  base::storeBig32(section.data() + size - kCrcBytes, crc);
}

}  // namespace zel::mux
