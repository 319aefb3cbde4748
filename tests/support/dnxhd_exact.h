#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zel/dnxhd/bitstream/row_reader.h"

namespace zel::test {

/// A frame as its codes say, with no rounding behind the dequantiser: the inverse transform in
/// double precision, by the definition of the cosine transform. Neither our transforms nor
/// another decoder's have a part in it, so that it tells which of two decoders a difference is of.
struct ExactPlanes {
  /// All planes, one behind the other, lines of fields interleaved: the order of
  /// DnxhdPlanes::samples(). Not limited to codes.
  std::vector<double> samples;
  /// The largest magnitude between the passes of the transform, rows first, in the sample's column
  /// of its block: what a decoder has to hold there. A picture within its codes comes to no more
  /// than half their range times the root of eight.
  std::vector<float> between;
};

/// `frame` is whole and sound.
ExactPlanes exactPlanes(const dnxhd::VCIDEntry& entry, std::span<const uint8_t> frame,
                        dnxhd::Reconstruction reconstruction);

/// The same with levels reconstructed at three quarters, but the rounding term left out where this
/// codec does it, where weight times step is the divisor. That sets the one rule apart from the
/// other.
struct OwnException {
  ExactPlanes planes;
  size_t levels = 0;          // that aren't 0
  size_t changed = 0;         // of those: coefficients that are others than the peer's
  std::vector<bool> touched;  // samples of blocks with such a coefficient
};
OwnException exactWithOwnException(const dnxhd::VCIDEntry& entry, std::span<const uint8_t> frame);

/// Two decoders' samples of a frame beside the exact ones.
struct ExactJudgement {
  double ownError = 0;   // the largest of ours
  int largest = 0;       // difference between the two, and
  size_t differing = 0;  // how many samples have one, and
  double fromHalf = 0;   // how far the exact values of those are from the middle between two codes
  size_t crowded = 0;    // samples, not counted above, that `between` says the other can't hold
};

/// `peer` is FFmpeg's. Its transform keeps 10-bit samples in 16 bits between the passes, with room
/// for no more than what a picture within its codes comes to; beyond, as in noise of black and
/// white, it cuts them off. Those columns are `crowded`.
ExactJudgement judgeBesidePeer(const std::vector<int>& ours, const std::vector<int>& peer,
                               const ExactPlanes& exact, int depth);

}  // namespace zel::test
