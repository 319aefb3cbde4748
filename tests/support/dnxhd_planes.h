#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/encoder/row_source.h"

namespace zel::test {

/// Planes of a frame, the lines of two fields interleaved: what formatters stand between, told by
/// the letter of the format, without their speed. 4:2:2, or 4:4:4 for the ids that are.
class DnxhdPlanes : public dnxhd::RowTaker {
 public:
  explicit DnxhdPlanes(const dnxhd::VCIDEntry& entry);

  size_t width(size_t plane) const;
  size_t lines() const { return lines_; }
  int depth() const { return depth_; }
  std::vector<int>& plane(size_t plane) { return planes_[plane]; }
  const std::vector<int>& plane(size_t plane) const { return planes_[plane]; }
  /// All planes, one behind the other.
  std::vector<int> samples() const;

  /// 8-bit planes in bytes, deeper ones in 16-bit words, low byte first; `bytes` holds at least
  /// rawSize().
  void readRaw(const uint8_t* bytes);
  std::string raw() const;
  size_t rawSize() const;

  dnxhd::ResultWord TakeRow(const dnxhd::DecodedRow& row) override;

  /// A row of macroblocks as the encoder takes it: centred samples, lines below the picture
  /// repeating its last.
  void macroblockRow(size_t picture, size_t row, int16_t* blocks) const;

  /// Where the first sample of a stored block stands in its picture.
  struct Place {
    size_t plane;
    size_t x;
    size_t y;
  };
  Place placeOf(size_t column, size_t row, size_t block) const;

 private:
  const dnxhd::PictureGeometry geometry_;
  const int depth_;
  const size_t lines_;
  const bool is444_;
  std::array<std::vector<int>, 3> planes_;
};

/// Frames are DnxhdPlanes.
class DnxhdPlanesSource : public dnxhd::RowSource {
 public:
  dnxhd::ResultWord FetchRow(const void* frame, size_t picture, size_t row,
                             int16_t* blocks) const override {
    static_cast<const DnxhdPlanes*>(frame)->macroblockRow(picture, row, blocks);
    return dnxhd::kSuccessful;
  }
};

struct SampleDifference {
  int largest = 0;
  double psnr = 0;
};
SampleDifference sampleDifference(const std::vector<int>& a, const std::vector<int>& b, int depth);

/// Mean structural similarity over 8 by 8 windows that overlap by half, of one plane.
double structuralSimilarity(const std::vector<int>& a, const std::vector<int>& b, size_t width,
                            int depth);

/// Bytes on a 16-byte boundary.
class AlignedBytes {
 public:
  explicit AlignedBytes(size_t size)
      : bytes_(static_cast<uint8_t*>(::operator new(size, kAlignment))), size_(size) {}
  ~AlignedBytes() { ::operator delete(bytes_, kAlignment); }
  AlignedBytes(const AlignedBytes&) = delete;
  AlignedBytes& operator=(const AlignedBytes&) = delete;
  std::span<uint8_t> bytes() const { return {bytes_, size_}; }

 private:
  static constexpr std::align_val_t kAlignment{64};
  uint8_t* bytes_;
  size_t size_;
};

}  // namespace zel::test
