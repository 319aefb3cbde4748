#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/pcm/pcm_source.h"

/// Sources that are made of others.

namespace zel::mux {

/// Several sources side by side: their channels one behind the other, at the largest depth. One
/// that ends before the others is silent from there on.
class joined_source : public pcm_source {
 public:
  explicit joined_source(std::vector<std::unique_ptr<pcm_source>> sources);

  int channels() const override { return channels_; }
  int bits() const override { return bits_; }
  result read(int32_t* out, size_t stride, size_t frames, size_t& count) override;

 private:
  static constexpr size_t kBlock = 512;  // frames
  struct input {
    std::unique_ptr<pcm_source> source;
    size_t firstChannel = 0;
    size_t framesRead = 0;  // of the block
    bool ended = false;
  };

  bool fill(input& from);
  result next_block();

  std::vector<input> inputs_;
  int channels_ = 0;
  int bits_ = 0;
  std::vector<int32_t> block_;
  size_t blockFrames_ = 0;
  size_t taken_ = 0;
};

/// Left and right of any number of channels: the sums of each channel by its coefficient, rounded
/// and kept within what the depth can hold.
class downmix_source : public pcm_source {
 public:
  using coefficients = std::array<double, kMostPcmChannels>;

  downmix_source(std::unique_ptr<pcm_source> source, const coefficients& left,
                 const coefficients& right)
      : source_(std::move(source)), left_(left), right_(right) {}

  int channels() const override { return 2; }
  int bits() const override { return source_->bits(); }
  result read(int32_t* out, size_t stride, size_t frames, size_t& count) override;

 private:
  int32_t mix(const int32_t* samples, const coefficients& by) const;

  std::unique_ptr<pcm_source> source_;
  coefficients left_;
  coefficients right_;
};

}  // namespace zel::mux
