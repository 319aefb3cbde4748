#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "zel/mux/engine/audio/frame_header.h"
#include "zel/mux/engine/stream/audio_state.h"
#include "zel/syntax/latm.h"

/// The pieces of the audio analyser: what it remembers of a stream, how it looks into the input,
/// how it reads an access unit, what it tells of changes, and how it passes from file to file.

namespace zel::mux {

/// A frame with the substreams that belong to it.
struct audio_unit {
  audio_frame_header first;
  int64_t start = 0;
  int32_t size = 0;
  int32_t padding = 0;  // of `size`, bytes at the end that the input doesn't have
  double bitRate = 0;
  double period = 0;
  int32_t channels = 0;
  int32_t extensionKind = 0;
  bool extension = false;  // DTS: with extension substreams, or of nothing else
  syntax::LatmConfig latm;

  /// Where the next one begins.
  int64_t end() const { return start + size - padding; }
};

inline constexpr int64_t kNoPlace = std::numeric_limits<int64_t>::max();

struct audio_analyser final : audio_state::analyser_state {
  bool begun = false;
  bool patient = false;        // what isn't loaded stays so
  bool keep = false;           // looking ahead: nothing leaves the input
  bool lost = false;           // a lost sync was told, and the next frame isn't found yet
  bool loud = false;           // messages of what the stream does go out: not in the discovery
  int64_t dataEnd = kNoPlace;  // of a DTS-HD file's stream chunk
  bool known = false;          // `last` holds an access unit
  audio_unit last;
  bool sizeMoved = false;
  bool variable = false;
  syntax::LatmConfig latm;
  bool latmKnown = false;
  std::vector<uint8_t> latmFrame;

  bool cleansUp = false;    // at transitions from file to file
  bool sourceBegan = true;  // the next unit is the first of its source
  bool searching = false;   // for that unit, behind a transition
  double lostFrames = 0;    // that transitions took away, less what they added
  size_t filesPassed = 0;   // behind the first
  double leftOut = 0;       // of the file just begun, to be with the pictures again: 27 MHz ticks
  fixed_ring<int64_t, 16> transitions;
};

audio_analyser& analyser_of(audio_state& state);
void warn(audio_state& state, int code, int64_t argument = 0);
void fatal(audio_state& state, int code, int64_t argument = 0);

// The input: analyser_input.cpp.

/// Loads until `count` bytes from `position` on are there, or can't be. Gives how many are.
int64_t available(audio_state& state, int64_t position, int64_t count);
/// Nothing can come any more: the source ended, or the stream's chunk.
bool at_end(audio_state& state, int64_t needed);

using header_bytes = std::array<uint8_t, kAudioHeaderBytes>;
/// What is there of a header at `position`.
std::span<const uint8_t> peek(audio_state& state, int64_t position, header_bytes& bytes);

/// Moves the scan position. Bytes before the first queued frame are nobody's and leave the input;
/// those behind it leave with the packets.
void move_scan(audio_state& state, int64_t position);

/// A DTS-HD file begins with "DTSHDHDR" and is chunks throughout; the stream stands in one of them.
/// Moves on to it where such a file begins at the scan position.
void enter_dtshd_file(audio_state& state);
/// The stream of a DTS-HD file is over: moves on to the next file, whatever lies between. False
/// where there is none, or none yet.
bool leave_dtshd_file(audio_state& state);

// Transitions: source_transitions.cpp.

/// The next place where a file begins; kNoPlace where none is known.
int64_t next_transition(audio_state& state);

enum class file_passage {
  inside,  // of a file, or in one that goes on in the next: read on
  passed,  // the scan position is another one
  ended,   // the look ahead doesn't go on into another file
};
/// Whether the scan position has come to the next file, and into its data.
file_passage enter_next_file(audio_state& state);
/// What becomes of `unit`, whose header is read, where a file begins inside of it.
file_passage cross_transition(audio_state& state, audio_unit& unit);
/// No header stands at the scan position. Whether a transition is the reason, and was passed.
file_passage search_behind_transition(audio_state& state);

// Following: video_transitions.cpp.

/// Whether `unit`, the first that is taken of another file, is to be left out so that sound and
/// pictures of that file are together; where sound is missing its time is moved on instead.
bool is_before_pictures(audio_state& state, const audio_unit& unit);

// Units: access_units.cpp.

enum class unit_result { found, later, ended };
/// The access unit at the scan position, whole in the input, or the next one that can be read.
unit_result read_unit(audio_state& state, audio_unit& unit);

// Changes: parameter_changes.cpp.

/// Warns of what differs from the unit before. Gives whether anything did.
bool tell_changes(audio_state& state, const audio_unit& unit);

}  // namespace zel::mux
