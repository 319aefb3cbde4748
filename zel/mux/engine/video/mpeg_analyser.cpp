#include "zel/mux/engine/video/mpeg_analyser.h"

#include <algorithm>
#include <array>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/group_place.h"
#include "zel/mux/engine/video/mpeg_pictures.h"
#include "zel/mux/engine/video/time_code.h"
#include "zel/mux/engine/video/vbv_limits.h"
#include "zel/mux/engine/video/video_messages.h"
#include "zel/syntax/mpeg_video.h"

namespace zel::mux {

namespace {

using syntax::MpegGroupHeader;
using syntax::MpegPictureCodingExtension;
using syntax::MpegPictureHeader;
using syntax::MpegSequenceExtension;
using syntax::MpegSequenceHeader;

// The code's byte and what is read of each header: of a sequence header all but the matrices.
constexpr int32_t kSequenceBytes = 1 + 8;
constexpr int32_t kExtensionBytes = 1 + 9;
constexpr int32_t kGroupBytes = 1 + 4;
constexpr int32_t kPictureBytes = 1 + 5;
// A variable rate in MPEG-1; encoders of MPEG-2 write it too where nothing limits the rate.
constexpr uint32_t kVariableRate = 0x3FFFF;
constexpr int32_t kHighestFrameRateCode = 8;

bool parse_sequence(std::span<const uint8_t> payload, MpegSequenceHeader& header) {
  // The flags of the matrices, which aren't looked at, may claim bytes that weren't asked for.
  std::array<uint8_t, kSequenceBytes - 1 + 2 * 64> padded{};
  if (payload.size() < kSequenceBytes - 1) return false;
  std::copy_n(payload.begin(), kSequenceBytes - 1, padded.begin());
  return parseMpegSequenceHeader(padded, header);
}

class mpeg_analyser final : public mpeg_pictures {
 public:
  explicit mpeg_analyser(video_state& state) : mpeg_pictures(state) {}

  bool characteristics_known() const override {
    return characteristics().coding != video_coding::unknown;
  }

 protected:
  int32_t bytes_wanted(uint8_t code) const override;
  void on_code(int64_t prefix, std::span<const uint8_t> bytes) override;
  double period_of(const access_unit& unit) override;
  void settle_coding() override;
  void restart_parsing() override;
  void time_code_of(access_unit& unit) override;

 private:
  void begin_headers(int64_t prefix);
  void on_sequence(std::span<const uint8_t> payload);
  void on_extension(std::span<const uint8_t> payload);
  void on_group(std::span<const uint8_t> payload);
  void on_picture(std::span<const uint8_t> payload);
  void on_slice();
  void apply_sequence();
  void apply_frame_rate();

  // The newest sequence header and its extension; applied at the picture that follows.
  MpegSequenceHeader sequence_;
  MpegSequenceExtension extension_;
  bool sequenceSeen_ = false;
  bool extensionSeen_ = false;
  bool sequencePending_ = false;
  bool hasB_ = false;  // in spite of low_delay
  bool vbvDelaySeen_ = false;
  int32_t reportedRateCode_ = -1;
  bool reportedMpeg2_ = false;

  MpegPictureHeader picture_;
  MpegPictureCodingExtension coding_;
  bool sliceSeen_ = false;

  MpegGroupHeader group_;
  bool groupSeen_ = false;
  group_place place_;

  int anchorFields_ = 2;    // field periods that the last anchor is shown
  uint8_t firstField_ = 0;  // picture_structure of an anchor's field that waits for its second
};

int32_t mpeg_analyser::bytes_wanted(uint8_t code) const {
  switch (code) {
    case syntax::kMpegPicture:
      return kPictureBytes;
    case syntax::kMpegSequenceHeader:
      return kSequenceBytes;
    case syntax::kMpegExtension:
      return kExtensionBytes;
    case syntax::kMpegGroup:
      return kGroupBytes;
    default:
      return 1;
  }
}

void mpeg_analyser::on_code(int64_t prefix, std::span<const uint8_t> bytes) {
  const uint8_t code = bytes[0];
  const auto payload = bytes.subspan(1);
  if (code >= syntax::kMpegFirstSlice && code <= syntax::kMpegLastSlice) {
    if (!sliceSeen_) on_slice();
    return;
  }
  switch (code) {
    case syntax::kMpegSequenceHeader:
      begin_headers(prefix);
      on_sequence(payload);
      break;
    case syntax::kMpegGroup:
      begin_headers(prefix);
      on_group(payload);
      break;
    case syntax::kMpegPicture:
      begin_headers(prefix);
      if (!unit_open()) break;
      set_has_picture(prefix);
      on_picture(payload);
      break;
    case syntax::kMpegExtension:
      if (unit_open()) on_extension(payload);
      break;
    default:
      break;
  }
}

// Nothing can be told of pictures before the first sequence header.
void mpeg_analyser::begin_headers(int64_t prefix) {
  if (begin_with_headers(prefix)) sliceSeen_ = false;
}

void mpeg_analyser::on_sequence(std::span<const uint8_t> payload) {
  MpegSequenceHeader header;
  if (!parse_sequence(payload, header)) return;
  sequence_ = header;
  sequenceSeen_ = true;
  sequencePending_ = true;
  extension_ = {};
  unit().sequenceHeader = true;
}

void mpeg_analyser::on_group(std::span<const uint8_t> payload) {
  MpegGroupHeader header;
  if (!parseMpegGroupHeader(payload, header)) return;
  group_ = header;
  groupSeen_ = true;
  unit().gop = true;
}

void mpeg_analyser::on_extension(std::span<const uint8_t> payload) {
  MpegSequenceExtension sequence;
  if (parseMpegSequenceExtension(payload, sequence)) {
    extension_ = sequence;
    if (characteristics().coding == video_coding::mpeg1 && !reportedMpeg2_) {
      reportedMpeg2_ = true;
      fatal(kMpeg1BecameMpeg2);
    }
    extensionSeen_ = true;
    sequencePending_ = true;
    return;
  }
  MpegPictureCodingExtension coding;
  if (!has_picture() || !parseMpegPictureCodingExtension(payload, coding)) return;
  coding_ = coding;
  unit().fieldStructure = coding.pictureStructure == 0 ? kWholeFrame : coding.pictureStructure;
  unit().topFieldFirst = coding.topFieldFirst;
  unit().fieldCount = syntax::mpegDisplayFields(characteristics().progressiveSequence, coding);
}

void mpeg_analyser::on_picture(std::span<const uint8_t> payload) {
  picture_ = {};
  coding_ = {};
  coding_.pictureStructure = syntax::kMpegFrame;
  // The last header of the source may be cut: what is missing reads as zero.
  parseMpegPictureHeader(payload, picture_);
  if (sequencePending_) apply_sequence();
  access_unit& unit = this->unit();
  const uint8_t type = picture_.codingType;
  const bool legal = type >= syntax::kMpegPictureI && type <= syntax::kMpegPictureB;
  const bool firstIsD = type == syntax::kMpegPictureD && pictures_seen() == 0;
  if (!legal && !firstIsD && !discovering()) fatal(kIllegalFrameType);
  unit.pictureType = legal ? type : uint8_t{syntax::kMpegPictureI};
  unit.keyPoint = unit.sequenceHeader && unit.pictureType == syntax::kMpegPictureI;
  if (ends_low_delay(unit)) hasB_ = true;
  if (!vbvDelaySeen_) {
    vbvDelaySeen_ = true;
    characteristics().vbvDelay = picture_.vbvDelay;
  }
}

void mpeg_analyser::on_slice() {
  if (!has_picture()) return;
  sliceSeen_ = true;
  if (characteristics().coding != video_coding::unknown) return;
  characteristics().coding = extensionSeen_ ? video_coding::mpeg2 : video_coding::mpeg1;
}

void mpeg_analyser::apply_sequence() {
  sequencePending_ = false;
  // What changes behind the first header is the run's to find.
  if (discovering() && characteristics_known()) return;
  video_characteristics& video = characteristics();
  video.width = sequence_.horizontalSize | extension_.horizontalSizeExtension << 12;
  video.height = sequence_.verticalSize | extension_.verticalSizeExtension << 12;
  apply_frame_rate();
  const uint32_t rate = sequence_.bitRateValue | uint32_t{extension_.bitRateExtension} << 18;
  if (rate != 0 && rate != kVariableRate) set_bit_rate(rate * 400.0);
  const int32_t vbv = sequence_.vbvBufferSizeValue | extension_.vbvBufferSizeExtension << 10;
  if (vbv != 0) set_vbv_size(vbv);
  if (!extensionSeen_) return;
  video.escape = extension_.escape;
  video.profile = extension_.profile;
  video.level = extension_.level;
  video.chromaFormat = extension_.chromaFormat;
  video.progressiveSequence = extension_.progressiveSequence;
  video.lowDelay = extension_.lowDelay && !hasB_;
}

void mpeg_analyser::apply_frame_rate() {
  int32_t code = sequence_.frameRateCode;
  if (code == 0 || code > kHighestFrameRateCode) {
    if (code != reportedRateCode_) {
      reportedRateCode_ = code;
      fatal(kIllegalFrameRateCode);
    }
    code = kDefaultFrameRateCode;
  }
  const frame_rate_row& row = *find_frame_rate(code);
  const int n = extension_.frameRateExtensionN + 1;
  const int d = extension_.frameRateExtensionD + 1;
  set_frame_rate(n == d ? row : frame_rate_of(row.rate * n, d));
}

// ISO/IEC 13818-2, C.9 to C.12: a picture that is shown at once, as a B picture is, lasts as long
// as it is shown. While an anchor is decoded the one before it is shown, for that one's time.
double mpeg_analyser::period_of(const access_unit& unit) {
  const video_characteristics& video = characteristics();
  if (video.stillPicture) return state().config->stillPicSpacing * video.framePeriod;
  const double field = video.framePeriod / 2;
  if (unit.pictureType == syntax::kMpegPictureB || shows_at_once()) return unit.fieldCount * field;
  if (unit.fieldStructure == syntax::kMpegFrame) {
    const int fields = anchorFields_;
    anchorFields_ = unit.fieldCount;
    firstField_ = 0;
    return fields * field;
  }
  // Two fields share the time of the frame before: the second takes one field period.
  if (firstField_ != 0 && firstField_ != unit.fieldStructure) {
    firstField_ = 0;
    return field;
  }
  firstField_ = unit.fieldStructure;
  const int fields = anchorFields_;
  anchorFields_ = 2;
  return (fields - 1) * field;
}

// The time code of a group is that of its first picture in display order.
void mpeg_analyser::time_code_of(access_unit& unit) {
  if (!groupSeen_) return;
  if (unit.gop) place_.begin_group();
  video_time_code code;
  code.hours = group_.hours;
  code.minutes = group_.minutes;
  code.seconds = group_.seconds;
  code.frames = group_.pictures;
  code.dropFrame = group_.dropFrame;
  code.known = true;
  const int64_t frames = place_.frames_before(picture_.temporalReference, unit.fieldCount);
  unit.timeCode = advanced(code, frames, characteristics().frameRateRounded);
}

void mpeg_analyser::settle_coding() {
  const video_characteristics& video = characteristics();
  if (video.coding != video_coding::mpeg2) return;
  const int32_t most = max_vbv_bytes(video.escape, video.profile, video.level);
  if (most == 0) {
    fatal(kReservedProfile);
  } else if (int64_t{video.vbvSize} * 2048 > most) {
    warn(kVbvAboveLevel, int64_t{video.vbvSize});
  }
}

void mpeg_analyser::restart_parsing() {
  sequencePending_ = false;
  sliceSeen_ = groupSeen_ = false;
  place_ = {};
  sequence_ = {};
  extension_ = {};
}

}  // namespace

std::unique_ptr<video_analyser> make_mpeg_analyser(video_state& state) {
  return std::make_unique<mpeg_analyser>(state);
}

}  // namespace zel::mux
