#include "zel/dnxhd/formatters/resampler.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "zel/dnxhd/formatters/resampling_taps.h"

namespace zel::dnxhd {

namespace {

constexpr size_t kMaxEdge = 16;
constexpr size_t kLumaShift = 0;
constexpr size_t kChromaShift = 1;

// A line with room for its edges, and for kernels that work on whole vectors of groups.
using ExtendedLine = std::array<int16_t, PlanarLine::kRoom + 4 * kMaxEdge + 32>;

// To the nearest, halves away from zero.
int RoundedAway(int value, int shift) {
  const int half = 1 << (shift - 1);
  return value > 0 ? (value + half) >> shift : -((half - value) >> shift);
}

void Extend(int16_t* line, size_t samples, size_t edge) {
  std::fill_n(line, edge, line[edge]);
  std::fill_n(line + edge + samples, edge + 1, line[edge + samples - 1]);
}

bool Divides(uint32_t from, uint32_t to, uint32_t advance, uint32_t phases) {
  return from * phases == to * advance && from % (2 * advance) == 0;
}

int SumOf(const int16_t* extended, const FilterDescription& filter, size_t group, size_t phase) {
  const FilterDescription::Phase& at = filter.phases[phase];
  const int16_t* const in = extended + group * filter.advance + at.inputOffset;
  int sum = 0;
  for (size_t i = 0; i < at.tapCount; ++i) sum += filter.taps[at.tapsAt + i] * in[i];
  return sum;
}

void Reduce(const int16_t* in, int16_t* out, size_t samples, bool offset) {
  for (size_t i = 0; i < samples; ++i) {
    const int x = std::clamp(in[i] - (offset ? 512 : 0), -508, 507);
    out[i] = static_cast<int16_t>(4 * std::clamp(RoundedAway(x, 2), -128, 127));
  }
}

void Quality(const int16_t* extended, const FilterDescription& filter, int16_t* out,
             size_t groups) {
  for (size_t group = 0; group < groups; ++group) {
    for (size_t phase = 0; phase < filter.phaseCount; ++phase) {
      const int sum = SumOf(extended, filter, group, phase);
      *out++ = static_cast<int16_t>(4 * std::clamp(RoundedAway(sum, kTapShift + 2), -128, 127));
    }
  }
}

void Draft(const int16_t* extended, const FilterDescription& filter, int16_t* out, size_t groups) {
  for (size_t group = 0; group < groups; ++group) {
    for (size_t phase = 0; phase < filter.phaseCount; ++phase) {
      const int sum = SumOf(extended, filter, group, phase) + (1 << (kTapShift - 1));
      *out++ = static_cast<int16_t>(std::clamp(sum >> kTapShift, 0, 255));
    }
  }
}

}  // namespace

const ResampleKernels& ScalarResampleKernels() {
  static constexpr ResampleKernels kKernels = {Reduce, Quality, Draft};
  return kKernels;
}

int CResampler::ProcessLines(LineSource& source, PlanarLine& destination, LineSink& sink,
                             LineRange range) const {
  PlanarLine line;
  for (size_t i = range.first; i < range.first + range.count; ++i) {
    source.GetLine(i, line);
    int result = info_.offset ? FilterOffsetY(line[0], destination[0])
                              : FilterCentredY(line[0], destination[0]);
    if (result == 0) {
      result = info_.offset ? FilterOffsetCb(line[1], destination[1])
                            : FilterCentredCb(line[1], destination[1]);
    }
    if (result == 0) {
      result = info_.offset ? FilterOffsetCr(line[2], destination[2])
                            : FilterCentredCr(line[2], destination[2]);
    }
    if (result != 0) return result;
    sink.TakeLine(i, destination);
  }
  return 0;
}

int CBaseQualityPolyLine::Configure(const ResamplerInfo& info) {
  info_ = info;
  if (Divides(info.inputWidth, info.outputWidth, 4, 3)) {
    luma_ = &kShrinkLuma;
    chroma_ = &kShrinkChroma;
  } else if (Divides(info.inputWidth, info.outputWidth, 3, 4)) {
    luma_ = &kExpandLuma;
    chroma_ = &kExpandChroma;
  } else {
    luma_ = chroma_ = nullptr;
    return kMissingResource;
  }
  return std::max(info.inputWidth, info.outputWidth) <= kMaxLine ? 0 : kMissingResource;
}

const ResampleKernels& CBaseQualityPolyLine::Kernels() const {
  return ScalarResampleKernels();
}

void CBaseQualityPolyLine::FilterStep(const int16_t* extended, const FilterDescription& filter,
                                      int16_t* out, size_t groups) const {
  Kernels().quality(extended, filter, out, groups);
}

int CBaseQualityPolyLine::FilterLine(const FilterDescription* filter, const int16_t* in,
                                     int16_t* out, size_t samples, bool offset) const {
  if (filter == nullptr) return kMissingResource;
  ExtendedLine line;
  Kernels().reduce(in, line.data() + filter->edge, samples, offset);
  Extend(line.data(), samples, filter->edge);
  const size_t groups = samples / filter->advance;
  FilterStep(line.data(), *filter, out, groups);
  if (!offset) return 0;
  for (size_t i = 0; i < groups * filter->phaseCount; ++i) {
    out[i] = static_cast<int16_t>(std::clamp<int>(out[i], -508, 504) + 512);
  }
  return 0;
}

int CBaseQualityPolyLine::FilterCentredY(const int16_t* in, int16_t* out) const {
  return FilterLine(luma_, in, out, info_.inputWidth >> kLumaShift, false);
}
int CBaseQualityPolyLine::FilterCentredCb(const int16_t* in, int16_t* out) const {
  return FilterLine(chroma_, in, out, info_.inputWidth >> kChromaShift, false);
}
int CBaseQualityPolyLine::FilterCentredCr(const int16_t* in, int16_t* out) const {
  return FilterLine(chroma_, in, out, info_.inputWidth >> kChromaShift, false);
}
int CBaseQualityPolyLine::FilterOffsetY(const int16_t* in, int16_t* out) const {
  return FilterLine(luma_, in, out, info_.inputWidth >> kLumaShift, true);
}
int CBaseQualityPolyLine::FilterOffsetCb(const int16_t* in, int16_t* out) const {
  return FilterLine(chroma_, in, out, info_.inputWidth >> kChromaShift, true);
}
int CBaseQualityPolyLine::FilterOffsetCr(const int16_t* in, int16_t* out) const {
  return FilterLine(chroma_, in, out, info_.inputWidth >> kChromaShift, true);
}

int CBaseDraftPolyLine::Configure(const ResamplerInfo& info) {
  info_ = info;
  filter_ = nullptr;
  constexpr const FilterDescription* kFilters[] = {&kDraft3To4, &kDraft3To2, &kDraft3To1,
                                                   &kDraft2To1, &kDraft4To1};
  if (info.offset || std::max(info.inputWidth, info.outputWidth) > kMaxLine) {
    return kMissingResource;
  }
  for (const FilterDescription* filter : kFilters) {
    if (Divides(info.inputWidth, info.outputWidth, filter->advance, filter->phaseCount)) {
      filter_ = filter;
      return 0;
    }
  }
  return kMissingResource;
}

void CBaseDraftPolyLine::FilterStep(const int16_t* extended, const FilterDescription& filter,
                                    int16_t* out, size_t groups) const {
  ScalarResampleKernels().draft(extended, filter, out, groups);
}

// Samples enter a delay line that starts out full of the first one; behind the last one it enters
// again. An output is due as soon as the sample of its last tap has entered.
int CBaseDraftPolyLine::FilterLine(const int16_t* in, int16_t* out, size_t samples) const {
  const FilterDescription& filter = *filter_;
  const size_t length = filter.phases[0].tapCount;
  std::array<int16_t, 8> delay;  // the newest sample first
  assert(length <= delay.size());
  delay.fill(in[0]);
  size_t entered = 0;
  for (size_t group = 0; group < samples / filter.advance; ++group) {
    for (size_t phase = 0; phase < filter.phaseCount; ++phase) {
      const FilterDescription::Phase& at = filter.phases[phase];
      const size_t due = group * filter.advance + at.inputOffset + length - filter.edge;
      for (; entered < due; ++entered) {
        std::copy_backward(delay.begin(), delay.end() - 1, delay.end());
        delay[0] = in[std::min(entered, samples - 1)];
      }
      FilterDescription one = filter;
      one.phases[0] = {0, at.tapCount, at.tapsAt};
      one.phaseCount = 1;
      std::array<int16_t, 8> ordered;
      std::reverse_copy(delay.begin(), delay.begin() + static_cast<ptrdiff_t>(length),
                        ordered.begin());
      FilterStep(ordered.data(), one, out++, 1);
    }
  }
  return 0;
}

int CBaseDraftPolyLine::FilterCentred(const int16_t* in, int16_t* out, size_t samples) const {
  if (filter_ == nullptr) return kMissingResource;
  std::array<int16_t, PlanarLine::kRoom> bytes{};
  for (size_t i = 0; i < samples; ++i) {
    bytes[i] = static_cast<int16_t>(std::clamp<int>((in[i] + 512 + 2) >> 2, 0, 255));
  }
  const int result = FilterLine(bytes.data(), out, samples);
  const size_t made = samples / filter_->advance * filter_->phaseCount;
  for (size_t i = 0; i < made; ++i) out[i] = static_cast<int16_t>(4 * out[i] - 512);
  return result;
}

int CBaseDraftPolyLine::FilterCentredY(const int16_t* in, int16_t* out) const {
  return FilterCentred(in, out, info_.inputWidth >> kLumaShift);
}
int CBaseDraftPolyLine::FilterCentredCb(const int16_t* in, int16_t* out) const {
  return FilterCentred(in, out, info_.inputWidth >> kChromaShift);
}
int CBaseDraftPolyLine::FilterCentredCr(const int16_t* in, int16_t* out) const {
  return FilterCentred(in, out, info_.inputWidth >> kChromaShift);
}
int CBaseDraftPolyLine::FilterBytesY(const int16_t* in, int16_t* out) const {
  return filter_ == nullptr ? kMissingResource
                            : FilterLine(in, out, info_.inputWidth >> kLumaShift);
}
int CBaseDraftPolyLine::FilterBytesCb(const int16_t* in, int16_t* out) const {
  return filter_ == nullptr ? kMissingResource
                            : FilterLine(in, out, info_.inputWidth >> kChromaShift);
}
int CBaseDraftPolyLine::FilterBytesCr(const int16_t* in, int16_t* out) const {
  return FilterBytesCb(in, out);
}

void COptiDraftPolyLine::FilterStep(const int16_t* extended, const FilterDescription& filter,
                                    int16_t* out, size_t groups) const {
  kernels_.draft(extended, filter, out, groups);
}

// The delay line's content is that of the line with its edges.
int COptiDraftPolyLine::FilterLine(const int16_t* in, int16_t* out, size_t samples) const {
  ExtendedLine line;
  std::copy_n(in, samples, line.data() + filter_->edge);
  Extend(line.data(), samples, filter_->edge);
  FilterStep(line.data(), *filter_, out, samples / filter_->advance);
  return 0;
}

std::unique_ptr<CResampler> MakeResampler(ResamplerForm form, bool useReference,
                                          const ResamplerInfo& info) {
  std::unique_ptr<CResampler> made;
  if (form == ResamplerForm::kQuality) {
    if (useReference) {
      made = std::make_unique<CBaseQualityPolyLine>();
    } else {
      made = std::make_unique<COptQualityPolyLine>();
    }
  } else if (useReference) {
    made = std::make_unique<CBaseDraftPolyLine>();
  } else {
    made = std::make_unique<COptiDraftPolyLine>();
  }
  if (made->Configure(info) != 0) return nullptr;
  return made;
}

}  // namespace zel::dnxhd
