#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/packet/pes_header.h"
#include "zel/mux/engine/run/reporting.h"

/// What PESPrivateDataFile names: bytes that PES headers of a video or audio stream carry (ISO/IEC
/// 13818-1, 2.4.3.7), and when. It is a text; "#" begins a comment. Each line is one entry, five
/// fields with blanks, tabs or commas between them:
///
///   TYPE TIME COUNT EXT2 DATA
///
///   offset    00:00:10.00  25  no   00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F
///   timecode  10:00:12:00   0  yes  42 53 53 44
///   packet    400           1  no   FF FE FD FC FB FA F9 F8 F7 F6 F5 F4 F3 F2 F1 F0
///
/// TYPE says what TIME is: `offset` hh:mm:ss.ss from the stream's first frame on, `timecode`
/// hh:mm:ss:ff of the program's first video, `packet` a number of PES packets in which a frame
/// commences, counted from 0. From the first PES packet at or behind that time on COUNT of them
/// carry the bytes; with 0 all do until the next entry begins. EXT2 `no` puts 16 bytes into the
/// PES_private_data field, `yes` 1 to 127 bytes into the PES extension field. Entries stand in the
/// order of their times: one that begins ends the one before it.

namespace zel::mux {

struct video_state;

struct private_data_entry {
  enum class place { offset, timecode, packet };
  place type = place::offset;
  double ticks = 0;  // of an offset; of a time code once the video's first one is known
  Morvalen::Zel::tsm_time_code timecode{};
  int64_t packet = 0;
  int64_t count = 0;
  pes_private_form form = pes_private_form::field;
  std::vector<uint8_t> data;
};

/// What is wrong with a line: the message's code, 0 for nothing.
struct private_data_line {
  int fatal = 0;
  int warning = 0;
  std::optional<private_data_entry> entry;  // none where the line is blank, or wrong
};
private_data_line parse_private_data_line(std::string_view line);

class private_data_list {
 public:
  /// Reads the file that a record names. A field that can't be read is fatal 109 to 113 and leaves
  /// its line out, an incomplete line is warning 107. False after fatal 108: it can't be opened.
  bool read(const Morvalen::Zel::TarnArray& name, int pid, reporting& reports);

  /// Before the first due(): the program's first video, whose first unit is read, or null. Where it
  /// has no time codes, entries by them are fatal 110 and fall away.
  void set_video(const video_state* video, int pid, reporting& reports);

  /// Whether any entry uses the extension field; for the stream's rate.
  bool has_extension() const;
  bool empty() const { return entries_.empty(); }

  /// The entry that a PES packet carries whose first frame has time stamp `pts`, or null.
  /// `firstPts` is the stream's. May be asked again for the same packet.
  const private_data_entry* due(double pts, double firstPts);
  /// The packet went out.
  void sent();

 private:
  bool has_come(const private_data_entry& entry) const;

  std::vector<private_data_entry> entries_;
  size_t next_ = 0;      // the first that hasn't begun
  int64_t left_ = 0;     // of the one before it; below 0: until the next
  int64_t packets_ = 0;  // sent
  // Times are followed from packet to packet, so that they count on where time stamps wrap.
  bool started_ = false;
  double elapsed_ = 0;
  double lastPts_ = 0;
};

/// Puts what `entry` says (null: nothing) into the fields.
void set_private_data(pes_fields& fields, const private_data_entry* entry);

}  // namespace zel::mux
