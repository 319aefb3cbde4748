#include "zel/mux/engine/video/mpeg4_analyser.h"

#include <algorithm>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/mpeg_pictures.h"
#include "zel/mux/engine/video/video_messages.h"
#include "zel/syntax/mpeg4_part2.h"

// The time stamps follow the rule of MPEG-2: a VOP of type B is shown when it's decoded, others
// when the next of them is. The VOPs' own times say the same for a fixed rate; for others they
// don't tell when to decode.

namespace zel::mux {

namespace {

using syntax::Mpeg4GroupOfVop;
using syntax::Mpeg4Level;
using syntax::Mpeg4ObjectLayer;
using syntax::Mpeg4Vop;

// A layer's header with both of its matrices; a VOP's with a second of modulo bits and more.
constexpr int32_t kLayerBytes = 192;
constexpr int32_t kShortBytes = 8;
constexpr int32_t kVopBytes = 16;
constexpr double kRateUnit = 400;

class mpeg4_analyser final : public mpeg_pictures {
 public:
  explicit mpeg4_analyser(video_state& state) : mpeg_pictures(state) {}

  bool characteristics_known() const override { return vopSeen_; }

 protected:
  int32_t bytes_wanted(uint8_t code) const override;
  void on_code(int64_t prefix, std::span<const uint8_t> bytes) override;
  double period_of(const access_unit& unit) override;
  void settle_coding() override {}
  void restart_parsing() override;

 private:
  void on_layer(std::span<const uint8_t> payload);
  void on_group(std::span<const uint8_t> payload);
  void on_vop(int64_t prefix, std::span<const uint8_t> payload);
  void apply_layer();
  void apply_rates();

  uint8_t profileAndLevel_ = 0;
  uint8_t objectVerid_ = 1;
  Mpeg4ObjectLayer layer_;
  bool layerSeen_ = false;
  bool layerPending_ = false;
  bool vopSeen_ = false;

  bool reservedReported_ = false;
  bool rateReported_ = false;
  bool frameRateReported_ = false;
};

int32_t mpeg4_analyser::bytes_wanted(uint8_t code) const {
  if (syntax::isMpeg4ObjectLayer(code)) return kLayerBytes;
  switch (code) {
    case syntax::kMpeg4ObjectSequence:
    case syntax::kMpeg4VisualObject:
    case syntax::kMpeg4GroupOfVop:
      return kShortBytes;
    case syntax::kMpeg4Vop:
      return kVopBytes;
    default:
      return 1;
  }
}

void mpeg4_analyser::on_code(int64_t prefix, std::span<const uint8_t> bytes) {
  const uint8_t code = bytes[0];
  const auto payload = bytes.subspan(1);
  if (syntax::isMpeg4ReservedCode(code)) {
    if (!reservedReported_) warn(kMpeg4ReservedCode);
    reservedReported_ = true;
    return;
  }
  if (code <= syntax::kMpeg4LastObject) {
    begin_with_headers(prefix);
    return;
  }
  if (syntax::isMpeg4ObjectLayer(code)) {
    begin_with_headers(prefix);
    on_layer(payload);
    return;
  }
  switch (code) {
    case syntax::kMpeg4ObjectSequence: {
      begin_with_headers(prefix);
      syntax::Mpeg4ObjectSequence sequence;
      if (syntax::parseMpeg4ObjectSequence(payload, sequence)) {
        profileAndLevel_ = sequence.profileAndLevel;
      }
      break;
    }
    case syntax::kMpeg4VisualObject: {
      begin_with_headers(prefix);
      syntax::Mpeg4VisualObject object;
      if (syntax::parseMpeg4VisualObject(payload, object)) objectVerid_ = object.verid;
      break;
    }
    case syntax::kMpeg4GroupOfVop:
      begin_with_headers(prefix);
      on_group(payload);
      break;
    case syntax::kMpeg4Vop:
      on_vop(prefix, payload);
      break;
    default:
      break;
  }
}

void mpeg4_analyser::on_layer(std::span<const uint8_t> payload) {
  Mpeg4ObjectLayer layer;
  if (!syntax::parseMpeg4ObjectLayer(payload, objectVerid_, layer)) return;
  layer_ = layer;
  layerSeen_ = layerPending_ = true;
  unit().sequenceHeader = true;
}

void mpeg4_analyser::on_group(std::span<const uint8_t> payload) {
  Mpeg4GroupOfVop group;
  if (!syntax::parseMpeg4GroupOfVop(payload, group)) return;
  unit().gop = true;
  unit().timeCode = {group.hours, group.minutes, group.seconds, 0, false, true};
}

void mpeg4_analyser::on_vop(int64_t prefix, std::span<const uint8_t> payload) {
  // Without a layer's header nothing can be told of VOPs, nor decoded.
  if (!layerSeen_) return;
  begin_with_headers(prefix);
  if (layerPending_) apply_layer();
  Mpeg4Vop vop;
  syntax::parseMpeg4Vop(payload, layer_.timeIncrementResolution, vop);
  vopSeen_ = true;
  set_has_picture(prefix);
  access_unit& unit = this->unit();
  // A sprite refers to what was before, as P does.
  constexpr uint8_t kTypes[] = {kPictureI, kPictureP, kPictureB, kPictureP};
  unit.pictureType = kTypes[vop.codingType & 3];
  unit.keyPoint = unit.pictureType == kPictureI && unit.sequenceHeader;
  ends_low_delay(unit);
}

void mpeg4_analyser::apply_layer() {
  layerPending_ = false;
  // What changes behind the first one is the run's to find.
  if (discovering() && vopSeen_) return;
  video_characteristics& video = characteristics();
  video.coding = video_coding::mpeg4_part2;
  video.width = layer_.width;
  video.height = layer_.height;
  video.profile = profileAndLevel_ >> 4;
  video.level = profileAndLevel_ & 15;
  video.chromaFormat = layer_.chromaFormat;
  video.progressiveSequence = !layer_.interlaced;
  if (discovering()) video.lowDelay = layer_.controlParameters && layer_.lowDelay;
  if (layer_.fixedVopRate && layer_.fixedVopTimeIncrement > 0) {
    set_frame_rate(frame_rate_of(layer_.timeIncrementResolution, layer_.fixedVopTimeIncrement));
  } else {
    if (!rate_is_configured() && !frameRateReported_) fatal(kMpeg4NoFrameRate);
    frameRateReported_ = true;
    set_frame_rate(*find_frame_rate(kDefaultFrameRateCode));
  }
  apply_rates();
}

void mpeg4_analyser::apply_rates() {
  const Mpeg4Level* const level = syntax::findMpeg4Level(profileAndLevel_);
  if (layer_.vbv && layer_.vbv->vbvBufferSize > 0) {
    set_vbv_size(static_cast<int32_t>(layer_.vbv->vbvBufferSize));
  } else if (level != nullptr && level->maxVbvBufferSize > 0) {
    set_vbv_size(level->maxVbvBufferSize);
  }
  if (layer_.vbv && layer_.vbv->bitRate > 0) {
    set_bit_rate(layer_.vbv->bitRate * kRateUnit);
    return;
  }
  if (level == nullptr) {
    if (!rateReported_) warn(kMpeg4ProfileUnknown, int64_t{profileAndLevel_});
    rateReported_ = true;
    return;
  }
  set_bit_rate(level->maxBitRate * kRateUnit);
  if (!rateReported_ && state().config->rate <= 0) {
    warn(kMpeg4NoBitRate, static_cast<int64_t>(level->maxBitRate * kRateUnit));
  }
  rateReported_ = true;
}

double mpeg4_analyser::period_of(const access_unit&) {
  const video_characteristics& video = characteristics();
  return video.stillPicture ? state().config->stillPicSpacing * video.framePeriod
                            : video.framePeriod;
}

void mpeg4_analyser::restart_parsing() {
  layerSeen_ = layerPending_ = false;
}

}  // namespace

std::unique_ptr<video_analyser> make_mpeg4_analyser(video_state& state) {
  return std::make_unique<mpeg4_analyser>(state);
}

}  // namespace zel::mux
