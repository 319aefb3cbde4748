#include "zel/mux/engine/video/avc_analyser.h"

#include <algorithm>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/nal_analyser.h"
#include "zel/mux/engine/video/parameter_store.h"
#include "zel/mux/engine/video/video_descriptors.h"
#include "zel/mux/engine/video/video_messages.h"
#include "zel/syntax/avc_levels.h"
#include "zel/syntax/avc_nal.h"
#include "zel/syntax/avc_picture_order.h"
#include "zel/syntax/avc_sei.h"
#include "zel/syntax/avc_slice.h"

namespace zel::mux {

namespace {

using syntax::AvcHrd;
using syntax::AvcNalHeader;
using syntax::AvcPicTiming;
using syntax::AvcPps;
using syntax::AvcSliceHeader;
using syntax::AvcSps;

// A slice header with all of its lists and weights; the marking at its end tells of resets.
constexpr int32_t kSliceBytes = 768;
constexpr uint8_t kAssumedLevel = 40;
constexpr int kMostDpbFrames = 16;

constexpr nal_messages kMessages = {kAvcDepthChanged, kAvcSeiAlignment, kAvcNoBitRate,
                                    kAvcOddFrameRate};

// The HRD that lengths and rates are taken of: NAL before VCL.
const AvcHrd* hrd_of(const AvcSps& sps) {
  if (sps.vui.nalHrdPresent) return &sps.vui.nalHrd;
  return sps.vui.vclHrdPresent ? &sps.vui.vclHrd : nullptr;
}

// Frames that the picture store may hold back, ITU-T H.264, A.3.1 h and E.2.1.
int reorder_frames(const AvcSps& sps) {
  if (sps.pocType == 2) return 0;
  if (sps.vuiPresent && sps.vui.bitstreamRestriction) {
    return static_cast<int>(std::min<uint32_t>(sps.vui.maxNumReorderFrames, kMostDpbFrames));
  }
  const bool highIntra = sps.constraintSet(3) && sps.profileIdc >= 100;
  if (highIntra || sps.profileIdc == 44) return 0;
  const syntax::AvcLevel* const level = syntax::findAvcLevel(sps.levelIdc, sps.constraintSet(3));
  const uint64_t mbs = uint64_t{sps.picWidthInMbs} * sps.frameHeightInMbs();
  if (level == nullptr || mbs == 0) return kMostDpbFrames;
  return static_cast<int>(std::min<uint64_t>(level->maxDpbMbs / mbs, kMostDpbFrames));
}

class avc_analyser final : public nal_analyser {
 public:
  explicit avc_analyser(video_state& state)
      : nal_analyser(state, kMessages, state.config->avcReorderDepth) {}

  bool characteristics_known() const override { return sliceSeen_; }

 protected:
  int32_t bytes_wanted(uint8_t code) const override;
  void on_code(int64_t prefix, std::span<const uint8_t> bytes) override;
  void settle_coding() override;
  void order_units(bool ended) override;
  void restart_parsing() override;
  void on_other_sei(const syntax::SeiMessage& message) override;
  void apply_timing(std::span<const uint8_t> payload) override;
  initial_delay read_initial_delay(std::span<const uint8_t> payload) const override;

 private:
  void begin_headers(int64_t prefix);
  void on_delimiter(std::span<const uint8_t> bytes);
  void on_sps(std::span<const uint8_t> rbsp);
  void on_slice(int64_t prefix, std::span<const uint8_t> bytes);
  void begin_picture(int64_t prefix, const AvcSliceHeader& slice);
  void pair_fields(const AvcSliceHeader& slice, bool afterIdr);
  void add_slice_type(uint8_t type);
  void activate(const AvcSps& sps);
  void apply_sps(const AvcSps& sps);
  void apply_rates(const AvcSps& sps);
  void apply_frame_rate(const AvcSps& sps);

  parameter_store<AvcSps, 32> sps_;
  parameter_store<AvcPps, 256> pps_;
  uint8_t chromaFormat_ = 1;  // of the newest SPS, for the PPS behind it
  bool sliceSeen_ = false;

  AvcSliceHeader slice_;     // of the newest primary picture
  AvcSliceHeader next_;      // being read
  bool sliceKnown_ = false;  // slice_ is of the open unit
  bool pictureIdr_ = false;
  uint8_t firstFieldStructure_ = 0;  // of a field that waits for its second; 0: none
  uint32_t firstFieldFrameNum_ = 0;
  int64_t deferredStart_ = -1;  // a prefix NAL unit that the next slice tells the unit of
  syntax::AvcPictureOrderCounter counter_;
  bool idrSeen_ = false;
  bool secondField_ = false;

  bool recoveryPoint_ = false;  // of the open unit

  bool framePackingSeen_ = false;
  uint8_t profileIdc_ = 0, constraintFlags_ = 0, levelIdc_ = 0;  // for the descriptor
  bool levelReported_ = false;
  bool frameRateReported_ = false;
  bool timingTold_ = false;
};

int32_t avc_analyser::bytes_wanted(uint8_t code) const {
  switch (code & 0x1F) {
    case syntax::kAvcSlice:
    case syntax::kAvcSlicePartitionA:
    case syntax::kAvcIdrSlice:
      return kSliceBytes;
    case syntax::kAvcSei:
    case syntax::kAvcSps:
    case syntax::kAvcPps:
      return kWholeUnit;
    case syntax::kAvcDelimiter:
      return 2;
    default:
      return 1;
  }
}

void avc_analyser::on_code(int64_t prefix, std::span<const uint8_t> bytes) {
  const uint8_t type = bytes[0] & 0x1F;
  if ((bytes[0] & 0x80) != 0) return;
  if (type == syntax::kAvcSlice || type == syntax::kAvcSlicePartitionA ||
      type == syntax::kAvcIdrSlice) {
    on_slice(prefix, bytes);
    return;
  }
  if (type == syntax::kAvcPrefix) {
    // It stands before each slice, so that only the slice tells whose it is.
    if (deferredStart_ < 0) deferredStart_ = start_of(prefix);
    return;
  }
  if (syntax::avcTypeBeginsAccessUnit(type)) begin_headers(prefix);
  if (!unit_open()) return;
  switch (type) {
    case syntax::kAvcDelimiter:
      on_delimiter(bytes);
      break;
    case syntax::kAvcSps:
      on_sps(rbsp_of(bytes, 1));
      break;
    case syntax::kAvcPps:
      pps_.add(rbsp_of(bytes, 1), [this](std::span<const uint8_t> rbsp, AvcPps& pps) {
        return syntax::parseAvcPps(rbsp, chromaFormat_, pps);
      });
      break;
    case syntax::kAvcSei:
      on_sei(rbsp_of(bytes, 1));
      break;
    default:
      break;
  }
}

void avc_analyser::begin_headers(int64_t prefix) {
  if (!begin_untimed(deferredStart_ >= 0 ? deferredStart_ : start_of(prefix))) return;
  deferredStart_ = -1;
  sliceKnown_ = false;
  recoveryPoint_ = false;
}

void avc_analyser::on_delimiter(std::span<const uint8_t> bytes) {
  unit().hasDelimiter = true;
  if (bytes.size() > 1) unit().primaryPicType = bytes[1] >> 5;
}

void avc_analyser::on_sps(std::span<const uint8_t> rbsp) {
  const AvcSps* const sps = sps_.add(rbsp, syntax::parseAvcSps);
  if (sps == nullptr) return;
  unit().sequenceHeader = true;
  chromaFormat_ = sps->chromaFormatIdc;
}

void avc_analyser::on_other_sei(const syntax::SeiMessage& message) {
  if (message.type == syntax::kSeiRecoveryPoint) recoveryPoint_ = true;
  if (message.type == syntax::kAvcSeiFramePacking) framePackingSeen_ = true;
}

initial_delay avc_analyser::read_initial_delay(std::span<const uint8_t> payload) const {
  uint8_t id = 0;
  if (!syntax::peekAvcBufferingPeriodSpsId(payload, id)) return {.sound = false};
  const AvcSps* const sps = sps_.find(id);
  if (sps == nullptr) return {};
  const AvcHrd* const hrd = hrd_of(*sps);
  if (hrd == nullptr) return {};
  syntax::AvcBufferingPeriod period;
  if (!syntax::parseAvcBufferingPeriod(payload, *sps, period)) return {.sound = false};
  const auto& delays = sps->vui.nalHrdPresent ? period.nal : period.vcl;
  return {.delay90k = delays[hrd->cpbCount - 1u].delay};
}

void avc_analyser::on_slice(int64_t prefix, std::span<const uint8_t> bytes) {
  AvcNalHeader nal;
  if (!syntax::parseAvcNalHeader(bytes, nal)) return;
  const auto rbsp = rbsp_of(bytes, nal.size);
  uint8_t ppsId = 0;
  syntax::peekAvcSlicePpsId(rbsp, ppsId);
  const AvcPps* const pps = pps_.find(ppsId);
  const AvcSps* const sps = pps == nullptr ? nullptr : sps_.find(pps->spsId);
  // What lacks its parameter sets, or breaks off, stays with the unit that it's in.
  const bool usable =
      sps != nullptr &&
      (syntax::parseAvcSliceHeader(rbsp, nal, *sps, *pps, next_) || next_.markingRead);
  if (!usable) {
    deferredStart_ = -1;
    return;
  }
  if (next_.redundantPicCnt != 0) return;
  if (!sliceKnown_ || syntax::avcSliceBeginsPicture(slice_, next_)) {
    begin_headers(prefix);
    activate(*sps);
    begin_picture(prefix, next_);
  }
  deferredStart_ = -1;
  slice_ = next_;
  sliceKnown_ = true;
  add_slice_type(next_.type);
}

void avc_analyser::begin_picture(int64_t prefix, const AvcSliceHeader& slice) {
  sliceSeen_ = true;
  set_has_picture(prefix);
  access_unit& unit = this->unit();
  const bool afterIdr = pictureIdr_;
  pictureIdr_ = slice.idr;
  unit.pictureType = kPictureI;
  unit.fieldStructure = !slice.fieldPic     ? kWholeFrame
                        : slice.bottomField ? kBottomField
                                            : kTopField;
  unit.keyPoint = pictureIdr_ || recoveryPoint_;
  unit.fieldCount = slice.fieldPic ? 1 : 2;
  pair_fields(slice, afterIdr);

  const syntax::AvcPictureOrder order = counter_.next(*sps_.active(), slice);
  const bool resets = slice.resetsPictures();
  unit.poc = resets ? 0 : order.poc;
  unit.topFieldFirst = slice.fieldPic ? !slice.bottomField : order.top <= order.bottom;
  unit.beginsOrder = (pictureIdr_ && !secondField_) || resets;
  idrSeen_ = idrSeen_ || pictureIdr_;
  apply_unit_timing();
}

// 7.4.1.2.4: the second field of a frame has its frame_num and the other parity.
void avc_analyser::pair_fields(const AvcSliceHeader& slice, bool afterIdr) {
  const uint8_t structure = unit().fieldStructure;
  secondField_ = slice.fieldPic && firstFieldStructure_ != 0 && firstFieldStructure_ != structure &&
                 firstFieldFrameNum_ == slice.frameNum && (!slice.idr || afterIdr);
  firstFieldStructure_ = slice.fieldPic && !secondField_ ? structure : uint8_t{0};
  firstFieldFrameNum_ = slice.frameNum;
}

void avc_analyser::apply_timing(std::span<const uint8_t> payload) {
  AvcPicTiming timing;
  if (!syntax::parseAvcPicTiming(payload, *sps_.active(), timing)) return warn_of_sei();
  access_unit& unit = this->unit();
  if (timing.picStructPresent && unit.fieldStructure == kWholeFrame) {
    const int fields = syntax::avcDisplayFields(timing.picStruct);
    if (fields > 0) unit.fieldCount = fields;
    // Table D-1: 3 and 5 begin with the top field, 4 and 6 with the bottom field.
    if (timing.picStruct >= 3 && timing.picStruct <= 6) {
      unit.topFieldFirst = timing.picStruct % 2 == 1;
    }
  }
  if (timing.delaysPresent) {
    set_delays(timing.cpbRemovalDelay, timing.dpbOutputDelay, characteristics().framePeriod / 2);
  }
  set_time_code(timing.clock[0]);
}

void avc_analyser::add_slice_type(uint8_t type) {
  const bool isP = type == syntax::kAvcSliceP || type == syntax::kAvcSliceSp;
  access_unit& unit = this->unit();
  const uint8_t shown = type == syntax::kAvcSliceB ? kPictureB : isP ? kPictureP : kPictureI;
  unit.pictureType = std::max(unit.pictureType, shown);
  if (!unit.hasDelimiter) unit.primaryPicType = static_cast<uint8_t>(unit.pictureType - kPictureI);
}

void avc_analyser::order_units(bool ended) {
  if (!ended && uses_poc() && idrSeen_ && !secondField_) {
    const access_unit& newest = state().units.back();
    if (newest.poc == 0 && !newest.beginsOrder && newest.pictureType != kPictureI) give_up_poc();
  }
  nal_analyser::order_units(ended);
}

void avc_analyser::activate(const AvcSps& sps) {
  const bool first = sps_.active() == nullptr;
  // What changes behind the first one is the run's to find.
  if (sps_.activate(sps) && (first || !discovering())) apply_sps(sps);
}

void avc_analyser::apply_sps(const AvcSps& sps) {
  video_characteristics& video = characteristics();
  video.coding = video_coding::avc;
  profileIdc_ = sps.profileIdc;
  constraintFlags_ = sps.constraintFlags;
  levelIdc_ = sps.levelIdc;
  video.width = static_cast<int32_t>(sps.croppedWidth());
  video.height = static_cast<int32_t>(sps.croppedHeight());
  video.profile = sps.profileIdc;
  video.level = sps.levelIdc;
  video.chromaFormat = sps.chromaFormatIdc;
  video.progressiveSequence = sps.frameMbsOnly;
  const int frames = reorder_frames(sps);
  video.lowDelay = frames == 0;
  set_max_reorder(sps.frameMbsOnly ? frames : 2 * frames + 1);
  // Without the restriction the number is what the level allows, not what the stream needs.
  set_told_reorder(sps.vuiPresent && sps.vui.bitstreamRestriction ? frames : 0);
  apply_frame_rate(sps);
  apply_rates(sps);
}

void avc_analyser::apply_frame_rate(const AvcSps& sps) {
  const syntax::AvcTiming& timing = sps.vui.timing;
  if (!timing.present || timing.numUnitsInTick == 0 || timing.timeScale == 0) {
    if (!rate_is_configured() && !frameRateReported_) fatal(kAvcNoFrameRate);
    frameRateReported_ = true;
    timingTold_ = false;
    set_frame_rate(*find_frame_rate(kDefaultFrameRateCode));
    return;
  }
  timingTold_ = true;
  set_timed_rate(timing.timeScale, 2.0 * timing.numUnitsInTick);
  if (timing.fixedFrameRate || rate_is_configured() || frameRateReported_) return;
  frameRateReported_ = true;
  if (state().config->frameRateTolerant) return;
  warn(kAvcNoFixedRate, int64_t{characteristics().frameRateRounded});
}

void avc_analyser::apply_rates(const AvcSps& sps) {
  const syntax::AvcLevel* level = syntax::findAvcLevel(sps.levelIdc, sps.constraintSet(3));
  if (level == nullptr) {
    if (!levelReported_) fatal(kAvcLevelUnknown, int64_t{sps.levelIdc});
    levelReported_ = true;
    level = syntax::findAvcLevel(kAssumedLevel, false);
  }
  if (const AvcHrd* const hrd = hrd_of(sps)) {
    set_bit_rate(static_cast<double>(hrd->bitRate(hrd->cpbCount - 1)));
    set_vbv_bytes(static_cast<double>(hrd->cpbBits(hrd->cpbCount - 1)) / 8);
    return;
  }
  const int64_t factor = syntax::avcProfileFactors(sps.profileIdc).nal;
  set_level_rates(int64_t{level->maxBr} * factor, int64_t{level->maxCpb} * factor);
}

void avc_analyser::restart_parsing() {
  nal_analyser::restart_parsing();
  sps_.deactivate();
  sliceKnown_ = pictureIdr_ = secondField_ = idrSeen_ = false;
  recoveryPoint_ = false;
  firstFieldStructure_ = 0;
  deferredStart_ = -1;
  counter_ = {};
}

void avc_analyser::settle_coding() {
  add_descriptor(avc_video_descriptor(profileIdc_, constraintFlags_, levelIdc_, framePackingSeen_));
  if (!timingTold_) {
    add_descriptor(avc_timing_descriptor(characteristics().framePeriod));
  }
}

}  // namespace

std::unique_ptr<video_analyser> make_avc_analyser(video_state& state) {
  return std::make_unique<avc_analyser>(state);
}

}  // namespace zel::mux
