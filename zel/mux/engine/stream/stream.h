#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/clock/tsm_time.h"

/// One output PID as the slot loop sees it. What a kind of stream needs beyond this (input, access
/// units, buffer model) hangs on `state`; the loop never looks inside.

namespace zel::mux {

struct buffer_model;
struct tsm_mux;
struct tsm_stream;

inline constexpr size_t kPacketBytes = 188;
inline constexpr int kNullPid = 0x1FFF;

/// The packet under construction, and the two bytes that EventNotify sends behind it.
struct tsm_packet {
  uint8_t bytes[kPacketBytes];
  uint8_t events[2];

  int pid() const { return (bytes[1] & 0x1F) << 8 | bytes[2]; }
  /// Turns the packet into "nothing to send", which passes the slot to the next candidate.
  constexpr void make_null() {
    bytes[0] = 0x47;
    bytes[1] = 0x1F;
    bytes[2] = 0xFF;
    bytes[3] = 0x10;
  }
};

/// What EventNotify's two bytes tell about a packet. The first byte holds the low eight.
enum packet_event : unsigned {
  kEventLowestLevel = 1,
  kEventHighestLevel = 2,
  kEventSplicePoint = 4,
  kEventPsi = 8,  // PSI on a PID other than 0
  kEventPcr = 16,
  kEventPat = 32,
  kEventSpliceCountdownPcr = 64,
  kEventAccessPoint = 128,  // random access or discontinuity
  kEventNonAnchor = 256,    // an access unit starts that no other refers to
};

inline void set_event(tsm_packet& packet, unsigned event) {
  packet.events[0] = static_cast<uint8_t>(packet.events[0] | (event & 0xFF));
  packet.events[1] = static_cast<uint8_t>(packet.events[1] | event >> 8);
}

/// A leaky bucket that a stream's or a program's packets pass (SBsize in bytes, SBrate in bits per
/// second).
struct smoothing_buffer {
  double size = 0;
  double leakRate = 0;
  double level = 0;
  tsm_time leakedAt;
};

enum class stream_kind : uint32_t {
  psi = 1,
  video = 2,
  audio = 3,
  data = 4,
  smpte302m = 5,
  table = 6,
  private_stream = 7,
  scte35 = 8,
  pcr_only = 9,
  lpcm = 12,
};

/// Bits of tsm_stream::flags.
enum stream_flag : uint32_t {
  kInitDiPending = 1u << 0,
  kPriority = 1u << 1,
  kSourceEnded = 1u << 2,
  kNoMorePackets = 1u << 3,
  kPacedPsi = 1u << 4,
  kPsiStream = 1u << 5,
  kPacketHasPcr = 1u << 6,
  kCarriesPcr = 1u << 7,
  kDiscontinuityWithPcr = 1u << 8,
  kForcePcr = 1u << 9,
  kTransportPriority = 1u << 10,
  kPcrPes = 1u << 24,
  kPesPriority = 1u << 29,
  kAligned = 1u << 30,
  kPesCopyright = 1u << 31,
};
inline constexpr int kPidShift = 11;         // 13 bits
inline constexpr int kContinuityShift = 25;  // 4 bits

/// Bits of tsm_stream::flags2.
enum stream_flag2 : uint32_t {
  kPesOriginal = 1u << 0,
  // 1 to 4: the flag bits of the PES header's first flag byte.
  kHeaderOriginal = 1u << 1,
  kHeaderCopyright = 1u << 2,
  kHeaderAlignment = 1u << 3,
  kHeaderPriority = 1u << 4,
  kHold = 1u << 8,
  kRandomAccess = 1u << 9,
  kSpliceBefore = 1u << 10,
  kSpliceAfter = 1u << 11,
  kPcrGop = 1u << 12,
  kScanMetEnd = 1u << 13,
  kTerminated = 1u << 15,
  kDriftOnPcr = 1u << 16,
};

/// The kind's own part: input, analyser, buffer model. Owned by the stream.
struct stream_state {
  virtual ~stream_state() = default;
};

/// What a stream's line in the PMT says. Analysers fill it in before the PSI is built.
struct pmt_description {
  bool listed = false;  // whether the stream has a line at all
  uint8_t streamType = 0;
  int order = 0;                                  // PMTorder
  std::vector<std::vector<uint8_t>> descriptors;  // each whole, tag and length included
  // The dependent layer's line (MVC, SVC), where there is one.
  int layerPid = -1;
  uint8_t layerStreamType = 0;
  std::vector<std::vector<uint8_t>> layerDescriptors;
};

/// Fills `packet`, or makes it a null packet where the stream wants nothing sent; in both cases it
/// steps the stream's times. `now` is the slot's time.
using make_packet_function = void (*)(tsm_stream& stream, const tsm_time& now, tsm_packet& packet,
                                      tsm_mux& mux);

/// What a stream tells of its next packets, where they are nothing but payload behind the header.
struct packet_stretch {
  int64_t packets = 0;  // so many, if each goes
  tsm_time until;       // before this
};

/// Tells a stretch that begins at `now`; `stretch` holds what others allow and is made narrower.
/// False where there's none, or none that's worth while.
using plan_stretch_function = bool (*)(tsm_stream& stream, const tsm_time& now,
                                       packet_stretch& stretch);
/// Makes the next packet of a stretch, and steps the stream's times.
using make_inner_function = void (*)(tsm_stream& stream, tsm_packet& packet);

/// The program index of a stream that belongs to no program.
inline constexpr uint32_t kTransportLevel = 0xFFFFFFFF;

struct tsm_stream {
  double rate = 0;                          // bits per second of this stream's transport packets
  uint32_t program = 0;                     // program_number; 0 at transport level
  uint32_t programIndex = kTransportLevel;  // place of the program in the configuration
  uint32_t PESnau = 1, PESnauCount = 0;
  uint32_t PTSnPES = 1, PTSnPESCount = 0;
  stream_kind kind = stream_kind::data;
  uint32_t flags = 0;
  uint32_t flags2 = 0;
  uint32_t pcrPeriod = 0;  // ms
  tsm_time pcrNext;
  tsm_time pcrStep;
  tsm_time nextTime;   // may go at or after this time
  tsm_time dueTime;    // should go by this time: nextTime + interval
  tsm_time interval;   // 4.0608e10 / rate
  tsm_time holdUntil;  // with kHold: no packet before
  smoothing_buffer* streamSB = nullptr;
  smoothing_buffer* programSB = nullptr;
  make_packet_function makePacket = nullptr;
  plan_stretch_function planStretch = nullptr;  // null where the kind has none
  make_inner_function makeInner = nullptr;
  std::unique_ptr<stream_state> state;
  tsm_time pcrOffset;
  uint8_t pesId = 0, pesIdExtension = 0;
  double driftPerPacket = 0;

  // What others ask of a stream once its first reading is done.
  double framePeriod = 0;  // 27 MHz ticks of a frame; 0 where it has none
  double frameRate = 0;    // frames per second; 0 where it has none
  double firstDts = 0;     // D0 or A0 with everything added, 27 MHz ticks
  double firstPts = 0;
  pmt_description pmt;
  /// The decoder's buffer as the state simulates it, for statistics; null where the kind has none.
  buffer_model* buffer = nullptr;
  int64_t packetsSent = 0;
  /// How many of the units that have removal events in `buffer` aren't wholly sent: the last ones;
  /// for VBR's forced PCRs. Null where the kind has no buffer model.
  size_t (*unitsToSend)(const tsm_stream& stream) = nullptr;

  bool has(uint32_t flag) const { return (flags & flag) != 0; }
  bool has2(uint32_t flag) const { return (flags2 & flag) != 0; }
  void set(uint32_t flag) { flags |= flag; }
  void clear(uint32_t flag) { flags &= ~flag; }
  void set2(uint32_t flag) { flags2 |= flag; }
  void clear2(uint32_t flag) { flags2 &= ~flag; }

  int pid() const { return static_cast<int>(flags >> kPidShift & 0x1FFF); }
  void set_pid(int pid) {
    flags = (flags & ~(0x1FFFu << kPidShift)) | (static_cast<uint32_t>(pid) & 0x1FFF) << kPidShift;
  }
  uint8_t continuity() const { return static_cast<uint8_t>(flags >> kContinuityShift & 15); }
  void set_continuity(uint32_t counter) {
    flags = (flags & ~(15u << kContinuityShift)) | (counter & 15) << kContinuityShift;
  }

  /// After a packet, or a slot that it let pass.
  void step_times() {
    nextTime = dueTime;
    dueTime = add(dueTime, interval);
  }
  /// Sets `rate` and what follows from it. The times stay.
  void set_rate(double bitsPerSecond) {
    rate = bitsPerSecond;
    interval = time_from_ticks(kPacketBitTicks / bitsPerSecond);
  }
};

}  // namespace zel::mux
