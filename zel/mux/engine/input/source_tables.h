#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

/// What the PMTs of a transport stream say of its streams: ISO/IEC 13818-1, 2.4.4.

namespace zel::mux {

/// A stream's line in a PMT.
struct source_description {
  uint8_t streamType = 0;
  std::vector<std::vector<uint8_t>> descriptors;  // each whole, tag and length included
};

class source_tables {
 public:
  /// Looks at a packet's 188 bytes. Damaged packets and sections are passed over.
  void take_packet(std::span<const uint8_t, 188> packet);

  /// The line of `pid`, if a PMT had one.
  std::optional<source_description> find(int pid) const;

 private:
  struct assembly {
    std::vector<uint8_t> bytes;
    int continuity = -1;
    bool inSection = false;
  };

  bool is_wanted(int pid) const { return pid == 0 || pmtPids_.contains(pid); }
  void take_payload(int pid, assembly& part, std::span<const uint8_t> payload);
  void take_sections(int pid, assembly& part);
  void take_section(int pid, std::span<const uint8_t> section);
  void take_pat(std::span<const uint8_t> section);
  void take_pmt(std::span<const uint8_t> section);

  std::set<int> pmtPids_;
  std::map<int, assembly> assemblies_;
  std::map<int, source_description> streams_;
};

}  // namespace zel::mux
