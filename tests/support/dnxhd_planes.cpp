#include "tests/support/dnxhd_planes.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zel::test {

using dnxhd::kBlockCoefficients;

DnxhdPlanes::DnxhdPlanes(const dnxhd::VCIDEntry& entry)
    : geometry_(dnxhd::GeometryOf(entry)),
      depth_(entry.depth),
      lines_(size_t{geometry_.lines} * geometry_.pictures),
      is444_(dnxhd::IsRgbFamily(entry)) {
  for (size_t plane = 0; plane < 3; ++plane) planes_[plane].resize(width(plane) * lines_);
}

size_t DnxhdPlanes::width(size_t plane) const {
  return plane == 0 || is444_ ? geometry_.width : geometry_.width / 2;
}

std::vector<int> DnxhdPlanes::samples() const {
  std::vector<int> all;
  for (const std::vector<int>& plane : planes_) all.insert(all.end(), plane.begin(), plane.end());
  return all;
}

size_t DnxhdPlanes::rawSize() const {
  const size_t samples = planes_[0].size() + planes_[1].size() + planes_[2].size();
  return samples * (depth_ == 8 ? 1 : 2);
}

void DnxhdPlanes::readRaw(const uint8_t* bytes) {
  const auto byte = [&] { return int{*bytes++}; };
  for (std::vector<int>& plane : planes_) {
    for (int& sample : plane) {
      sample = byte();
      if (depth_ > 8) sample |= byte() << 8;
    }
  }
}

std::string DnxhdPlanes::raw() const {
  std::string bytes;
  bytes.reserve(rawSize());
  for (const std::vector<int>& plane : planes_) {
    for (const int sample : plane) {
      bytes.push_back(static_cast<char>(sample & 255));
      if (depth_ > 8) bytes.push_back(static_cast<char>(sample >> 8));
    }
  }
  return bytes;
}

// Stored blocks: four of luma, two of each chroma component; in 4:4:4 pairs of each component,
// upper then lower.
DnxhdPlanes::Place DnxhdPlanes::placeOf(size_t column, size_t row, size_t block) const {
  if (is444_) {
    return {block / 2 % 3, column * 16 + block % 2 * 8, row * 16 + block / 6 * 8};
  }
  if (block < 4) return {0, column * 16 + block % 2 * 8, row * 16 + block / 2 * 8};
  return {1 + (block - 4) / 2, column * 8, row * 16 + block % 2 * 8};
}

dnxhd::ResultWord DnxhdPlanes::TakeRow(const dnxhd::DecodedRow& row) {
  for (size_t column = 0; column < row.mbCols; ++column) {
    for (size_t block = 0; block < row.blocks; ++block) {
      const int16_t* const in = row.samples + (column * row.blocks + block) * kBlockCoefficients;
      const Place place = placeOf(column, row.row, block);
      for (size_t y = 0; y < 8 && place.y + y < geometry_.lines; ++y) {
        const size_t line = (place.y + y) * geometry_.pictures + row.picture;
        int* const out = planes_[place.plane].data() + line * width(place.plane) + place.x;
        for (size_t x = 0; x < 8; ++x) {
          out[x] = std::clamp(in[8 * y + x] + (1 << (depth_ - 1)), 0, (1 << depth_) - 1);
        }
      }
    }
  }
  return dnxhd::kSuccessful;
}

void DnxhdPlanes::macroblockRow(size_t picture, size_t row, int16_t* blocks) const {
  const size_t perMacroblock = is444_ ? 12 : 8;
  for (size_t column = 0; column < geometry_.mbCols; ++column) {
    for (size_t block = 0; block < perMacroblock; ++block, blocks += kBlockCoefficients) {
      const Place place = placeOf(column, row, block);
      for (size_t y = 0; y < 8; ++y) {
        const size_t inPicture = std::min<size_t>(place.y + y, geometry_.lines - 1);
        const size_t line = inPicture * geometry_.pictures + picture;
        const int* const in = planes_[place.plane].data() + line * width(place.plane) + place.x;
        for (size_t x = 0; x < 8; ++x) {
          blocks[8 * y + x] = static_cast<int16_t>(in[x] - (1 << (depth_ - 1)));
        }
      }
    }
  }
}

SampleDifference sampleDifference(const std::vector<int>& a, const std::vector<int>& b, int depth) {
  SampleDifference difference;
  double squares = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const int error = std::abs(a[i] - b[i]);
    difference.largest = std::max(difference.largest, error);
    squares += double{1} * error * error;
  }
  const double peak = (1 << depth) - 1;
  difference.psnr = 10 * std::log10(peak * peak * static_cast<double>(a.size()) / (squares + 1e-9));
  return difference;
}

double structuralSimilarity(const std::vector<int>& a, const std::vector<int>& b, size_t width,
                            int depth) {
  const double peak = (1 << depth) - 1;
  const double c1 = 0.01 * 0.01 * peak * peak;
  const double c2 = 0.03 * 0.03 * peak * peak;
  const size_t lines = a.size() / width;
  double total = 0;
  size_t windows = 0;
  for (size_t y0 = 0; y0 + 8 <= lines; y0 += 4) {
    for (size_t x0 = 0; x0 + 8 <= width; x0 += 4) {
      double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
      for (size_t y = y0; y < y0 + 8; ++y) {
        for (size_t x = x0; x < x0 + 8; ++x) {
          const double va = a[y * width + x];
          const double vb = b[y * width + x];
          sa += va;
          sb += vb;
          saa += va * va;
          sbb += vb * vb;
          sab += va * vb;
        }
      }
      const double ma = sa / 64, mb = sb / 64;
      const double va = saa / 64 - ma * ma, vb = sbb / 64 - mb * mb, cov = sab / 64 - ma * mb;
      total += (2 * ma * mb + c1) * (2 * cov + c2) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
      ++windows;
    }
  }
  return windows == 0 ? 1 : total / static_cast<double>(windows);
}

}  // namespace zel::test
