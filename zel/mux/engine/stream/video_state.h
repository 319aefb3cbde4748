#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/packet/private_data.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/fixed_ring.h"
#include "zel/mux/engine/stream/stream.h"
#include "zel/mux/engine/video/layer_boundaries.h"

/// What a video stream's analyser and its packet maker share. The analyser fills: it finds access
/// units, sizes and times them and tells what the stream says of itself. The packet maker drains.

namespace Morvalen::Zel {
struct tsm_video;
struct tsm_time_code;
}  // namespace Morvalen::Zel

namespace zel::mux {

class reporting;

struct video_time_code {
  uint8_t hours = 0, minutes = 0, seconds = 0, frames = 0;
  bool dropFrame = false;
  bool known = false;
};

// access_unit::pictureType, as picture_coding_type of MPEG-1 and MPEG-2 has it.
inline constexpr uint8_t kPictureI = 1;
inline constexpr uint8_t kPictureP = 2;
inline constexpr uint8_t kPictureB = 3;
// access_unit::fieldStructure, as picture_structure of MPEG-2 has it.
inline constexpr uint8_t kTopField = 1;
inline constexpr uint8_t kBottomField = 2;
inline constexpr uint8_t kWholeFrame = 3;

/// One access unit in the input. The bytes stand at [start, start + size).
struct access_unit {
  double dts = 0;  // 27 MHz ticks within the wrap
  double pts = 0;
  int64_t start = 0;           // position in the input
  int32_t size = 0;            // as in the input, without what the packet maker inserts
  int64_t dependentStart = 0;  // second layer, MVC and SVC: its bytes in dependentInput
  int32_t dependentSize = 0;
  int32_t pictureStart = 0;  // from `start` to the picture start code (MPEG) or the first slice
  uint8_t pictureType = 0;
  uint8_t fieldStructure = kWholeFrame;
  bool topFieldFirst = false;
  bool timed = false;           // dts and pts are final; units leave in order once they are
  bool keyPoint = false;        // decoding can start here
  bool sequenceHeader = false;  // or parameter sets
  bool gop = false;             // a GOP header stands in it
  bool hasDelimiter = false;    // AVC, HEVC: starts with an access unit delimiter
  uint8_t primaryPicType = 7;   // for a delimiter to insert (ITU-T H.264, table 7-5)
  video_time_code timeCode;
  // The analyser's own, for ordering.
  int64_t poc = 0;
  bool beginsOrder = false;  // no unit before it is shown after it: poc counts anew
  int32_t fieldCount = 2;    // half frame periods that it's shown
  double outputDelay = -1;   // ticks from decoding to display where the stream tells; else below 0
  double removalDelay = -1;  // ticks since the unit of the buffering period before, likewise
  bool bufferingPeriod = false;

  // Set by plan_insertions() once the size is known; before that, 0.
  uint8_t delimiterBytes = 0;  // in front of the unit
  uint8_t quadBytePad = 0;     // zero bytes before pictureStart

  /// What goes out on the stream's own PID.
  int32_t base_size() const { return size + delimiterBytes + quadBytePad; }
  /// What the decoder receives, of both layers: the size that the removal event has.
  int32_t sent_size() const { return base_size() + dependentSize; }
};

inline constexpr size_t kAccessUnits = 649;

enum class video_coding : uint8_t { unknown, mpeg1, mpeg2, mpeg4_part2, avc, hevc };

/// What the stream's headers say, with the defaults of a stream that says nothing.
struct video_characteristics {
  video_coding coding = video_coding::unknown;
  double bitRate = 0;      // bits per second
  int32_t vbvSize = 0;     // in units of 2,048 bytes
  int32_t vbvDelay = 0;    // 90 kHz ticks; 65,535: not told
  double framePeriod = 0;  // 27 MHz ticks
  double frameRate = 0;    // frames per second
  int32_t frameRateRounded = 0;
  int32_t frameRateCode = 0;
  int32_t width = 0, height = 0;
  int32_t profile = 0, level = 0;
  bool escape = false;  // escape bit of profile_and_level_indication
  int32_t chromaFormat = 1;
  bool progressiveSequence = false;
  bool lowDelay = false;
  bool stillPicture = false;
  double dependentBitRate = 0;  // second layer, 0 without
};

/// Where a file begins behind another one, by its first unit.
struct video_transition {
  int64_t unitStart = 0;      // in the input
  double pts = -1;            // of the unit, ticks within the wrap; -1: not known yet
  int64_t sourcePts90k = -1;  // in the multiplex that it comes out of; -1: none
};

/// What the packet maker remembers of the unit and the PES packet that it's in.
struct video_cursor {
  bool inUnit = false;
  int32_t unitSent = 0;         // of the front unit's sent_size(), base layer
  int32_t dependentSent = 0;    // of its dependentSize
  int32_t pesUnitsLeft = 0;     // of the PES packet being sent
  int32_t pesBytes = 0;         // payload so far; for MaxPESlen
  bool nextUnitHasPes = false;  // the PES packet of the next unit has begun
  double stampedDts = 0;        // of the unit that the PES packet has its time stamps of
  int32_t pesBytesLeft = 0;     // of a PES packet of told length, for MaxPESlen
  bool dependentPesStart = true;
  uint8_t dependentContinuity = 0;
  int32_t strictHolds = 0;   // in a row, for StrictVBV
  int32_t layerTurn = 0;     // packets left to the layer whose turn it is
  bool paddedSmall = false;  // warning given
  bool insertedDelimiter = false;
  bool endCodeChecked = false;
};

struct video_state : stream_state {
  tsm_stream* stream = nullptr;
  const Morvalen::Zel::tsm_video* config = nullptr;
  reporting* report = nullptr;
  int32_t index = 0;                  // among the program's video streams
  video_state* firstVideo = nullptr;  // of the program; itself for the first

  elementary_input input;
  // With a second layer: the source of `input` splits `layeredInput`, the second layer's part goes
  // to `dependentInput`; or the two come in a PID each, and `layeredInput` isn't open.
  elementary_input layeredInput;
  elementary_input dependentInput;
  layer_boundaries* layers = nullptr;  // owned by `input`, or by `pairedLayers`
  std::unique_ptr<layer_boundaries> pairedLayers;
  /// scan_video, or what stands in for it where a stream's units come from elsewhere.
  bool (*scan)(video_state& state) = nullptr;
  bool noEmptyAf = false;  // of the transport level
  fixed_ring<access_unit, kAccessUnits> units;
  size_t leastUnits = 0;  // that are queued before the first is sent, while the source has more
  buffer_model model;
  video_characteristics characteristics;
  video_cursor cursor;
  private_data_list privateData;  // of PESPrivateDataFile

  double runningDts = 0;     // of the next access unit; 27 MHz ticks within the wrap
  double firstDts = 0;       // D0
  double firstPts = 0;       // of the first picture in decoding order
  double startBase = 0;      // D0 before Leader, StreamDelay and the run's start are added
  double stopDts = -1;       // a terminated stream takes no picture from here on; below 0: none
  int64_t scanPosition = 0;  // where scanning goes on
  bool sourceEnded = false;  // everything is queued: no more units come
  video_time_code startTimeCode;              // of the first unit that is taken
  video_time_code firstTimeCode;              // of the first that is known, taken or not
  std::vector<video_transition> transitions;  // of the files behind the first, as they are scanned
  int64_t fieldsLeftOut = 0;                  // of the units before the first that is taken
  // The times of day that cut the input, null where there are none.
  const Morvalen::Zel::tsm_time_code* cutStart = nullptr;
  const Morvalen::Zel::tsm_time_code* cutEnd = nullptr;

  /// What the analyser keeps for itself.
  struct analyser_state {
    virtual ~analyser_state() = default;
  };
  std::unique_ptr<analyser_state> analyser;
};

/// Reads headers until `characteristics` is known, gives it the defaults for what isn't told, and
/// rewinds: `scanPosition` and the input stand where the stream's data begin. Loads the input as
/// needed. Reports its findings; a stream without any picture is fatal 23.
void discover_video(video_state& state);

/// Queues more access units, loading the input as needed: returns once at least one more unit is
/// timed, or there is no room, or the source has ended (then `sourceEnded` is set and all units are
/// timed). Each unit gets its removal event, of sent_size() bytes at its DTS.
/// @return false if the source has ended and nothing was queued.
bool scan_video(video_state& state);

/// The bytes to be inserted into `unit`, whose size and flags are complete: an access unit
/// delimiter (warnings 135 and 136), the pad of `QuadByte`. The analyser calls it before it queues
/// the unit's removal event.
void plan_insertions(video_state& state, access_unit& unit);

}  // namespace zel::mux
