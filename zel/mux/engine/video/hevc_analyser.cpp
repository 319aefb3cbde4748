#include "zel/mux/engine/video/hevc_analyser.h"

#include <algorithm>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/nal_analyser.h"
#include "zel/mux/engine/video/parameter_store.h"
#include "zel/mux/engine/video/video_descriptors.h"
#include "zel/mux/engine/video/video_messages.h"
#include "zel/syntax/hevc_levels.h"
#include "zel/syntax/hevc_nal.h"
#include "zel/syntax/hevc_sei.h"
#include "zel/syntax/hevc_slice.h"

namespace zel::mux {

namespace {

using syntax::HevcCpb;
using syntax::HevcHrd;
using syntax::HevcNalHeader;
using syntax::HevcPps;
using syntax::HevcSliceOrder;
using syntax::HevcSps;
using syntax::HevcVps;

// A slice segment header as far as the POC: flags, an id, an address, a type and a count.
constexpr int32_t kSliceBytes = 48;
constexpr uint8_t kAssumedLevel = 120;  // 4
constexpr int64_t kNalFactor = 1100;    // CpbBrNalFactor of Main and Main 10, A.4.2
constexpr double kHighestRate = 880e6;  // Main at level 6.2, High tier

constexpr nal_messages kMessages = {kHevcDepthChanged, kHevcSeiAlignment, kHevcNoBitRate,
                                    kHevcOddFrameRate};

class hevc_analyser final : public nal_analyser {
 public:
  explicit hevc_analyser(video_state& state)
      : nal_analyser(state, kMessages, state.config->hevcReorderDepth) {}

  bool characteristics_known() const override { return sliceSeen_; }

 protected:
  int32_t bytes_wanted(uint8_t code) const override;
  void on_code(int64_t prefix, std::span<const uint8_t> bytes) override;
  void settle_coding() override;
  void restart_parsing() override;
  void on_other_sei(const syntax::SeiMessage& message) override;
  void apply_timing(std::span<const uint8_t> payload) override;
  initial_delay read_initial_delay(std::span<const uint8_t> payload) const override;

 private:
  void on_time_code(std::span<const uint8_t> payload);
  void on_slice(int64_t prefix, const HevcNalHeader& nal, std::span<const uint8_t> bytes);
  void begin_picture(int64_t prefix, const HevcSliceOrder& slice);
  void add_slice_type(uint8_t type);
  void activate(const HevcSps& sps);
  void apply_sps(const HevcSps& sps);
  void apply_frame_rate(const HevcSps& sps);
  void apply_rates(const HevcSps& sps);
  const HevcHrd* hrd_of(const HevcSps& sps) const;
  double tick() const;

  parameter_store<HevcVps, 16> vps_;
  parameter_store<HevcSps, 16> sps_;
  parameter_store<HevcPps, 64> pps_;
  bool fieldSequence_ = false;
  bool sliceSeen_ = false;

  syntax::HevcPictureOrderCounter counter_;
  bool sequenceEnded_ = true;  // the next IRAP picture begins a sequence

  syntax::HevcProfileTierLevel levels_;  // for the descriptor
  bool subPictureParameters_ = false;

  bool levelReported_ = false;
  bool rateTooHighReported_ = false;
  bool timingTold_ = false;
};

int32_t hevc_analyser::bytes_wanted(uint8_t code) const {
  const int type = code >> 1 & 0x3F;
  if (type <= syntax::kHevcLastVcl) return kSliceBytes;
  switch (type) {
    case syntax::kHevcVps:
    case syntax::kHevcSps:
    case syntax::kHevcPps:
    case syntax::kHevcPrefixSei:
      return kWholeUnit;
    default:
      return static_cast<int32_t>(syntax::kHevcNalHeaderSize);
  }
}

void hevc_analyser::on_code(int64_t prefix, std::span<const uint8_t> bytes) {
  HevcNalHeader nal;
  if (!syntax::parseHevcNalHeader(bytes, nal)) return;
  // Other layers belong to the access unit of the base layer.
  if (nal.layerId != 0) return;
  if (syntax::hevcTypeIsVcl(nal.type)) {
    on_slice(prefix, nal, bytes);
    return;
  }
  if (syntax::hevcTypeBeginsAccessUnit(nal.type)) begin_untimed(start_of(prefix));
  if (!unit_open()) return;
  switch (nal.type) {
    case syntax::kHevcDelimiter:
      unit().hasDelimiter = true;
      break;
    case syntax::kHevcVps:
      vps_.add(rbsp_of(bytes, syntax::kHevcNalHeaderSize), syntax::parseHevcVps);
      break;
    case syntax::kHevcSps:
      if (sps_.add(rbsp_of(bytes, syntax::kHevcNalHeaderSize), syntax::parseHevcSps) != nullptr) {
        unit().sequenceHeader = true;
      }
      break;
    case syntax::kHevcPps:
      pps_.add(rbsp_of(bytes, syntax::kHevcNalHeaderSize), syntax::parseHevcPps);
      break;
    case syntax::kHevcPrefixSei:
      on_sei(rbsp_of(bytes, syntax::kHevcNalHeaderSize));
      break;
    case syntax::kHevcEndOfSequence:
    case syntax::kHevcEndOfBitstream:
      sequenceEnded_ = true;
      counter_.restart();
      break;
    default:
      break;
  }
}

void hevc_analyser::on_other_sei(const syntax::SeiMessage& message) {
  if (message.type == syntax::kHevcSeiTimeCode) on_time_code(message.payload);
}

initial_delay hevc_analyser::read_initial_delay(std::span<const uint8_t> payload) const {
  uint8_t id = 0;
  if (!syntax::peekHevcBufferingPeriodSpsId(payload, id)) return {.sound = false};
  const HevcSps* const sps = sps_.find(id);
  if (sps == nullptr || !sps->vui.hrdPresent) return {};
  syntax::HevcBufferingPeriod period;
  if (!syntax::parseHevcBufferingPeriod(payload, *sps, period)) return {.sound = false};
  const auto& delays = period.nal.empty() ? period.vcl : period.nal;
  if (delays.empty()) return {};
  return {.delay90k = delays.back().delay};
}

void hevc_analyser::on_time_code(std::span<const uint8_t> payload) {
  syntax::HevcTimeCode code;
  if (!syntax::parseHevcTimeCode(payload, code)) return warn_of_sei();
  if (code.count > 0) set_time_code(code.clock[0]);
}

void hevc_analyser::on_slice(int64_t prefix, const HevcNalHeader& nal,
                             std::span<const uint8_t> bytes) {
  const auto rbsp = rbsp_of(bytes, syntax::kHevcNalHeaderSize);
  syntax::HevcSlicePeek peek;
  if (!syntax::peekHevcSlice(rbsp, nal.type, peek)) return;
  const HevcPps* const pps = pps_.find(peek.ppsId);
  const HevcSps* const sps = pps == nullptr ? nullptr : sps_.find(pps->spsId);
  HevcSliceOrder slice;
  // What lacks its parameter sets, or breaks off, stays with the unit that it's in.
  if (sps == nullptr || !syntax::parseHevcSliceOrder(rbsp, nal, *sps, *pps, slice)) return;
  if (slice.firstSegmentInPic) {
    begin_untimed(start_of(prefix));
    activate(*sps);
    begin_picture(prefix, slice);
  }
  if (has_picture() && !slice.dependent) add_slice_type(slice.type);
}

void hevc_analyser::begin_picture(int64_t prefix, const HevcSliceOrder& slice) {
  sliceSeen_ = true;
  set_has_picture(prefix);
  access_unit& unit = this->unit();
  const bool irap = syntax::hevcTypeIsIrap(slice.nalType);
  unit.pictureType = kPictureI;
  unit.keyPoint = irap;
  unit.fieldCount = fieldSequence_ ? 1 : 2;
  unit.poc = counter_.next(*sps_.active(), slice);
  unit.beginsOrder = syntax::hevcTypeIsIdr(slice.nalType) || syntax::hevcTypeIsBla(slice.nalType) ||
                     (irap && sequenceEnded_);
  sequenceEnded_ = false;
  apply_unit_timing();
}

double hevc_analyser::tick() const {
  return characteristics().framePeriod / (fieldSequence_ ? 2 : 1);
}

void hevc_analyser::apply_timing(std::span<const uint8_t> payload) {
  syntax::HevcPicTiming timing;
  if (!syntax::parseHevcPicTiming(payload, *sps_.active(), timing)) return warn_of_sei();
  access_unit& unit = this->unit();
  if (timing.frameFieldInfoPresent) {
    const int fields = syntax::hevcDisplayFields(timing.picStruct);
    if (fields > 0) unit.fieldCount = fields;
    // Table D.2: fields are 1 and 2, and 9 to 12 with what they pair with.
    const bool isField = fields == 1;
    const bool top = timing.picStruct % 2 == 1;
    if (isField) unit.fieldStructure = top ? kTopField : kBottomField;
    unit.topFieldFirst = top;
  }
  if (timing.delaysPresent) set_delays(timing.auCpbRemovalDelay, timing.picDpbOutputDelay, tick());
}

void hevc_analyser::add_slice_type(uint8_t type) {
  access_unit& unit = this->unit();
  const uint8_t shown = type == syntax::kHevcSliceB   ? kPictureB
                        : type == syntax::kHevcSliceP ? kPictureP
                                                      : kPictureI;
  unit.pictureType = std::max(unit.pictureType, shown);
}

void hevc_analyser::activate(const HevcSps& sps) {
  const bool first = sps_.active() == nullptr;
  // What changes behind the first one is the run's to find.
  if (sps_.activate(sps) && (first || !discovering())) apply_sps(sps);
}

void hevc_analyser::apply_sps(const HevcSps& sps) {
  video_characteristics& video = characteristics();
  video.coding = video_coding::hevc;
  levels_ = sps.profileTierLevel;
  const HevcHrd* const hrd = hrd_of(sps);
  subPictureParameters_ = hrd != nullptr && hrd->subPicParamsPresent;
  video.width = static_cast<int32_t>(sps.croppedWidth());
  video.height = static_cast<int32_t>(sps.croppedHeight());
  video.profile = sps.profileTierLevel.general.idc;
  video.level = sps.profileTierLevel.generalLevelIdc;
  video.chromaFormat = sps.chromaFormatIdc;
  fieldSequence_ = sps.vui.fieldSeq;
  video.progressiveSequence = !fieldSequence_;
  const int32_t reorder = sps.ordering[sps.maxSubLayersMinus1].maxNumReorderPics;
  video.lowDelay = reorder == 0;
  set_max_reorder(reorder);
  set_told_reorder(fieldSequence_ ? (reorder + 1) / 2 : reorder);
  apply_frame_rate(sps);
  apply_rates(sps);
}

// Annex E.2.1 lets a tick be a picture's time; of fields two make a frame.
void hevc_analyser::apply_frame_rate(const HevcSps& sps) {
  const HevcVps* const vps = vps_.find(sps.vpsId);
  const auto told = [](const syntax::HevcTiming& timing) {
    return timing.present && timing.numUnitsInTick > 0 && timing.timeScale > 0;
  };
  const syntax::HevcTiming* timing = &sps.vui.timing;
  if (!told(*timing) && vps != nullptr) timing = &vps->timing;
  timingTold_ = told(*timing);
  if (!timingTold_) {
    set_frame_rate(*find_frame_rate(kDefaultFrameRateCode));
    return;
  }
  set_timed_rate(timing->timeScale, (fieldSequence_ ? 2.0 : 1.0) * timing->numUnitsInTick);
}

const HevcHrd* hevc_analyser::hrd_of(const HevcSps& sps) const {
  if (sps.vui.hrdPresent) return &sps.vui.hrd;
  const HevcVps* const vps = vps_.find(sps.vpsId);
  return vps != nullptr && !vps->hrds.empty() ? &vps->hrds.front() : nullptr;
}

void hevc_analyser::apply_rates(const HevcSps& sps) {
  const HevcCpb* cpb = nullptr;
  const HevcHrd* const hrd = hrd_of(sps);
  if (hrd != nullptr) {
    const syntax::HevcSubLayerHrd& layer = hrd->subLayers[sps.maxSubLayersMinus1];
    if (!layer.nal.empty()) {
      cpb = &layer.nal.back();
    } else if (!layer.vcl.empty()) {
      cpb = &layer.vcl.back();
    }
  }
  const bool rateKnown = cpb != nullptr || state().config->rate > 0;
  const uint8_t idc = sps.profileTierLevel.generalLevelIdc;
  const syntax::HevcLevel* level = syntax::findHevcLevel(idc);
  if (level == nullptr) {
    if (!levelReported_ && rateKnown) warn(kHevcLevelDefault, int64_t{idc});
    if (!levelReported_ && !rateKnown) fatal(kHevcLevelWithoutRate, int64_t{idc});
    levelReported_ = true;
    level = syntax::findHevcLevel(kAssumedLevel);
  }
  if (cpb != nullptr) {
    const auto nalRate = hrd->bitRate(*cpb) / 1000 * kNalFactor;
    auto rate = static_cast<double>(nalRate);
    if (rate > kHighestRate) {
      if (!rateTooHighReported_) {
        warn(kHevcRateTooHigh, static_cast<int64_t>(std::min(rate, 2147483647.0)));
      }
      rateTooHighReported_ = true;
      rate = kHighestRate;
    }
    set_bit_rate(rate);
    set_vbv_bytes(static_cast<double>(hrd->cpbBits(*cpb)) / 8);
    return;
  }
  const bool high = sps.profileTierLevel.general.tier;
  set_level_rates(level->maxBr(high) * kNalFactor, level->maxCpb(high) * kNalFactor);
}

void hevc_analyser::restart_parsing() {
  nal_analyser::restart_parsing();
  sps_.deactivate();
  sequenceEnded_ = true;
  counter_ = {};
}

void hevc_analyser::settle_coding() {
  add_descriptor(hevc_video_descriptor(levels_, subPictureParameters_));
  if (!timingTold_) {
    add_descriptor(hevc_timing_descriptor(characteristics().framePeriod));
  }
}

}  // namespace

std::unique_ptr<video_analyser> make_hevc_analyser(video_state& state) {
  return std::make_unique<hevc_analyser>(state);
}

}  // namespace zel::mux
