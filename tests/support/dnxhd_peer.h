#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/external_program.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

namespace zel::test {

/// What FFmpeg, run as a program, has to be told of an id.
struct DnxhdPeerId {
  uint32_t id;
  const char* pixels;
  /// Its own encoder's choice of the id goes by rate, samples and scan.
  const char* bitRate;
  bool interlaced;
};

/// All seventeen, in the order of their numbers.
std::span<const DnxhdPeerId> dnxhdPeerIds();

/// FFmpeg's codec. It knows 13 ids when it encodes and 15 when it decodes. What it doesn't know it
/// gets and gives in the house of another id with the same codes: headers are changed, and not a
/// bit of a macroblock. The ids themselves are known to both:
///
/// | id | encoded as | decoded as |
/// |---|---|---|
/// | 1254 | 1242, of a picture that needs few bytes | 1242 |
/// | 1256 | 4:4:4 of the format's resolution-independent form | itself |
/// | 1257 | two pictures of that, of 540 lines | fields of 1256, each a picture of its own |
/// | 1260 | 1259: macroblocks whose first bit, the field flag, is 0 | itself |
class DnxhdPeer {
 public:
  DnxhdPeer() : program_(programPath("ffmpeg")) {}
  bool installed() const { return !program_.empty(); }

  /// Frames of the id, of what `source`, a generator of FFmpeg's, draws. Fails the test, and gives
  /// none, where FFmpeg does. `pixels` other than null are for 4:4:4, in which G, B and R can be
  /// coded too.
  std::vector<uint8_t> encode(const DnxhdPeerId& id, const std::string& source, size_t frames,
                              const std::vector<std::string>& options,
                              const char* pixels = nullptr) const;

  /// The pictures that FFmpeg makes of frames of the id. Fails the test where it has anything to
  /// say, or makes another number of them. Planes of G, B and R come in this order.
  std::vector<DnxhdPlanes> decode(const dnxhd::VCIDEntry& entry,
                                  std::span<const uint8_t> frames) const;

 private:
  const std::string program_;
  const ScratchFolder folder_;
};

}  // namespace zel::test
