#include "tests/support/dnxhd_exact.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <utility>

#include "tests/support/dnxhd_planes.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/tables/weights.h"

namespace zel::test {

namespace {

using dnxhd::kBlockCoefficients;

using Block = std::array<double, kBlockCoefficients>;

// Share of frequency k in sample x: the orthonormal transform.
std::array<std::array<double, 8>, 8> makeBasis() {
  std::array<std::array<double, 8>, 8> basis{};
  for (size_t k = 0; k < 8; ++k) {
    for (size_t x = 0; x < 8; ++x) {
      const double scale = k == 0 ? std::sqrt(0.125) : 0.5;
      basis[k][x] = scale * std::cos(static_cast<double>((2 * x + 1) * k) * std::numbers::pi / 16);
    }
  }
  return basis;
}

struct Transformed {
  Block samples{};
  std::array<double, 8> between{};  // by column
};

Transformed inverse(const int16_t* coefficients) {
  static const auto basis = makeBasis();
  Block rows{};
  for (size_t y = 0; y < 8; ++y) {
    for (size_t k = 0; k < 8; ++k) {
      const double value = coefficients[8 * y + k];
      if (value == 0) continue;
      for (size_t x = 0; x < 8; ++x) rows[8 * y + x] += value * basis[k][x];
    }
  }
  Transformed out;
  for (size_t x = 0; x < 8; ++x) {
    for (size_t k = 0; k < 8; ++k) {
      const double value = rows[8 * k + x];
      out.between[x] = std::max(out.between[x], std::abs(value));
      for (size_t y = 0; y < 8; ++y) out.samples[8 * y + x] += value * basis[k][y];
    }
  }
  return out;
}

// The lines of two blocks that stand one above the other, out of those that hold a field each.
void interleave(Block& upper, Block& lower) {
  Block above{};
  Block below{};
  for (size_t line = 0; line < 16; ++line) {
    const Block& from = line % 2 == 0 ? upper : lower;
    Block& to = line < 8 ? above : below;
    std::copy_n(from.begin() + static_cast<ptrdiff_t>(line / 2 * 8), 8,
                to.begin() + static_cast<ptrdiff_t>(line % 8 * 8));
  }
  upper = above;
  lower = below;
}

// What may change the coefficients of a row before they are transformed.
using RowWork = std::function<void(std::span<int16_t> coefficients,
                                   std::span<const dnxhd::MacroblockFlags> flags)>;
// What is told of each block: where it begins in the row's coefficients, and where it comes to lie.
using BlockWork = std::function<void(size_t offset, const std::vector<size_t>& samples)>;

class ExactDecoder {
 public:
  ExactDecoder(const dnxhd::VCIDEntry& entry, dnxhd::Reconstruction reconstruction)
      : entry_(entry),
        geometry_(dnxhd::GeometryOf(entry)),
        blocks_(dnxhd::BlocksOf(dnxhd::CodingModeOf(entry))),
        places_(entry),
        reader_(entry, reconstruction) {
    begin_[1] = places_.plane(0).size();
    begin_[2] = begin_[1] + places_.plane(1).size();
    exact.samples.resize(begin_[2] + places_.plane(2).size());
    exact.between.resize(exact.samples.size());
  }

  void decode(std::span<const uint8_t> frame, const RowWork& rowWork, const BlockWork& blockWork) {
    std::vector<int16_t> coefficients(geometry_.mbCols * blocks_ * kBlockCoefficients);
    std::vector<dnxhd::MacroblockFlags> flags(geometry_.mbCols);
    for (size_t picture = 0; picture < geometry_.pictures; ++picture) {
      const auto bytes = frame.subspan(picture * geometry_.pictureBytes, geometry_.pictureBytes);
      dnxhd::FrameHeader header;
      if (dnxhd::ParseFrameHeader(bytes, header) != dnxhd::kSuccessful)
        throw std::invalid_argument("a header that is none");
      for (size_t row = 0; row < geometry_.mbRows; ++row) {
        size_t end = 0;
        if (reader_.Read(bytes.subspan(dnxhd::kHeaderBytes), header.rowOffsets[row],
                         {coefficients.data(), flags.data()}, end) != dnxhd::kSuccessful)
          throw std::invalid_argument("a row that doesn't read");
        if (rowWork) rowWork(coefficients, flags);
        for (size_t column = 0; column < geometry_.mbCols; ++column) {
          decodeMacroblock(coefficients, flags[column].field, picture, row, column, blockWork);
        }
      }
    }
  }

  ExactPlanes exact;

 private:
  void decodeMacroblock(const std::vector<int16_t>& coefficients, bool byFields, size_t picture,
                        size_t row, size_t column, const BlockWork& blockWork) {
    std::vector<Transformed> macroblock(blocks_);
    for (size_t block = 0; block < blocks_; ++block) {
      macroblock[block] =
          inverse(coefficients.data() + (column * blocks_ + block) * kBlockCoefficients);
    }
    if (byFields) {
      // Luma's four, then two of each chroma component.
      constexpr std::array<std::array<size_t, 2>, 4> kPairs = {{{0, 2}, {1, 3}, {4, 5}, {6, 7}}};
      for (const auto& pair : kPairs)
        interleave(macroblock[pair[0]].samples, macroblock[pair[1]].samples);
    }
    std::vector<size_t> samples;
    for (size_t block = 0; block < blocks_; ++block) {
      const DnxhdPlanes::Place place = places_.placeOf(column, row, block);
      samples.clear();
      for (size_t y = 0; y < 8 && place.y + y < geometry_.lines; ++y) {
        const size_t line = (place.y + y) * geometry_.pictures + picture;
        const size_t at = begin_[place.plane] + line * places_.width(place.plane) + place.x;
        for (size_t x = 0; x < 8; ++x) {
          samples.push_back(at + x);
          exact.samples[at + x] =
              macroblock[block].samples[8 * y + x] + static_cast<double>(1 << (entry_.depth - 1));
          exact.between[at + x] = static_cast<float>(macroblock[block].between[x]);
        }
      }
      if (blockWork) blockWork((column * blocks_ + block) * kBlockCoefficients, samples);
    }
  }

  const dnxhd::VCIDEntry& entry_;
  const dnxhd::PictureGeometry geometry_;
  const size_t blocks_;
  const DnxhdPlanes places_;
  dnxhd::RowReader reader_;
  std::array<size_t, 3> begin_{};
};

// Magnitude of a coefficient of level L: (L * w + within + term) / d.
struct Step {
  int w;
  int within;
  int term;
  int d;

  int value(int level) const { return (level * w + within + term) / d; }
  // The level that has the value. There is one, as w is no less than d.
  int level(int value) const { return (value * d - within - term + w - 1) / w; }
};

}  // namespace

ExactPlanes exactPlanes(const dnxhd::VCIDEntry& entry, std::span<const uint8_t> frame,
                        dnxhd::Reconstruction reconstruction) {
  ExactDecoder decoder(entry, reconstruction);
  decoder.decode(frame, nullptr, nullptr);
  return std::move(decoder.exact);
}

OwnException exactWithOwnException(const dnxhd::VCIDEntry& entry, std::span<const uint8_t> frame) {
  const bool is444 = dnxhd::IsRgbFamily(entry);
  const int d = is444 ? 32 : 1 << (13 - entry.depth);
  const size_t blocks = is444 ? 12 : 8;
  ExactDecoder decoder(entry, dnxhd::Reconstruction::kThreeQuarters);
  OwnException made;
  made.touched.resize(decoder.exact.samples.size());
  std::vector<bool> changedBlocks;
  const RowWork rowWork = [&](std::span<int16_t> coefficients,
                              std::span<const dnxhd::MacroblockFlags> flags) {
    changedBlocks.assign(coefficients.size() / kBlockCoefficients, false);
    for (size_t block = 0; block < changedBlocks.size(); ++block) {
      const bool luma = is444 ? block % 6 < 2 : block % 8 < 4;
      const auto& weights = luma ? entry.lumaWeights : entry.chromaWeights;
      for (size_t k = 1; k < kBlockCoefficients; ++k) {
        int16_t& coefficient = coefficients[block * kBlockCoefficients + dnxhd::kScan[k]];
        if (coefficient == 0) continue;
        const int weight = static_cast<int>(weights[k]);
        const int w = weight * flags[block / blocks].q;
        const int within = (w + w / 2) / 2;
        const Step peers = {w, within, weight == 32 && d == 32 ? 0 : d / 2, d};
        const Step own = {w, within, w == d ? 0 : d / 2, d};
        const int level = peers.level(std::abs(int{coefficient}));
        if (peers.value(level) != std::abs(int{coefficient}))
          throw std::logic_error("a coefficient that no level gives");
        ++made.levels;
        if (own.value(level) == peers.value(level)) continue;
        ++made.changed;
        changedBlocks[block] = true;
        coefficient = static_cast<int16_t>(coefficient < 0 ? -own.value(level) : own.value(level));
      }
    }
  };
  const BlockWork blockWork = [&](size_t offset, const std::vector<size_t>& samples) {
    if (!changedBlocks[offset / kBlockCoefficients]) return;
    for (const size_t sample : samples) made.touched[sample] = true;
  };
  decoder.decode(frame, rowWork, blockWork);
  made.planes = std::move(decoder.exact);
  return made;
}

ExactJudgement judgeBesidePeer(const std::vector<int>& ours, const std::vector<int>& peer,
                               const ExactPlanes& exact, int depth) {
  const double top = (1 << depth) - 1;
  const double room = depth == 8 ? std::numeric_limits<double>::infinity()
                                 : static_cast<double>(1 << (depth - 1)) * std::sqrt(8.0) + 0.01;
  ExactJudgement judgement;
  for (size_t i = 0; i < ours.size(); ++i) {
    const double value = std::clamp(exact.samples[i], 0.0, top);
    judgement.ownError = std::max(judgement.ownError, std::abs(ours[i] - value));
    if (exact.between[i] > room) {
      ++judgement.crowded;
      continue;
    }
    if (ours[i] == peer[i]) continue;
    ++judgement.differing;
    judgement.largest = std::max(judgement.largest, std::abs(ours[i] - peer[i]));
    judgement.fromHalf = std::max(judgement.fromHalf, std::abs(value - std::floor(value) - 0.5));
  }
  return judgement;
}

}  // namespace zel::test
