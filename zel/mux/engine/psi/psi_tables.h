#pragma once

#include <cstdint>
#include <span>
#include <vector>

/// The sections that the multiplexer makes itself: PAT and PMT of ISO/IEC 13818-1, 2.4.4, and the
/// selection and discontinuity information of ETSI EN 300 468, 7.1. Each comes whole, with its CRC;
/// a section of more than kLargestSection bytes is the caller's to report and to cut.

namespace zel::mux {

inline constexpr size_t kLargestSection = 1023;

struct pat_program {
  int number;
  int pmtPid;
};

struct pmt_line {
  uint8_t streamType = 0;
  int pid = 0;
  int order = 0;                     // PMTorder; 0 stands behind all others
  std::vector<uint8_t> descriptors;  // joined
};

/// `nitPid` of 0 or below: no network line.
std::vector<uint8_t> make_pat(int transportStreamId, int version, int nitPid,
                              std::span<const pat_program> programs);

/// `pcrPid` below 0: the program has no PCR.
std::vector<uint8_t> make_pmt(int programNumber, int version, int pcrPid,
                              std::span<const uint8_t> programDescriptors,
                              std::span<const pmt_line> lines);

std::vector<uint8_t> make_dit(bool transition);

std::vector<uint8_t> make_sit(int version, std::span<const uint8_t> transmissionDescriptors,
                              int serviceId, int runningStatus,
                              std::span<const uint8_t> serviceDescriptors);

/// By PMTorder ascending, 0 last. Lines keep their places where none has an order.
void sort_by_order(std::span<pmt_line> lines);

/// Whether the lengths of the descriptors end exactly where the bytes end.
bool descriptors_fill(std::span<const uint8_t> descriptors);

/// Adds `descriptor`, unless one with exactly these bytes stands in the list.
bool add_unless_there(std::vector<uint8_t>& descriptors, std::span<const uint8_t> descriptor);

/// Cuts a section to `size` bytes and makes length and CRC right again.
void cut_section(std::vector<uint8_t>& section, size_t size);

}  // namespace zel::mux
