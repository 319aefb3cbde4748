#pragma once

#include "zel/base/export.h"
#include "zel/runtime/four_character_code.h"

#define ZEL_VIDEO_FORMAT(name, code) static const unsigned int name = FourCharacterCode(code);

namespace Morvalen::Zel {

/// The codes of video sample formats, and what a code is called and what it is a kind of.
///
/// A code is four ASCII characters read as a big-endian number, so that codes compare as numbers,
/// or a plain number for the few that are no text. `Unknown` is 0. The table `formats` arranges the
/// codes in a forest: a row with a name and no parent is a family of its own ("h264"), one with a
/// name and a parent is a kind of it ("ai5 " under "AVCI" under "h264"), and one without a name is
/// an alias, a second spelling of its parent ("H264"). The first row with a code is the one that
/// counts. Not every constant has a row, and most rows have no constant.
///
/// All operations are pure, may be called on any thread, and take a handful of nanoseconds.
class ZEL_API VideoFormat {
 public:
  VideoFormat() = delete;

  /// One row of the table.
  struct Format {
    unsigned int format;  ///< the code
    unsigned int parent;  ///< the code of the row that it falls under; 0 for a root
    char const* name;     ///< the display name; null for an alias
  };

  /// 584 rows, and then one whose `format` is 0.
  static Format const formats[];

  /// The display name of the code, or of the code that it is an alias of. Null when it has no row.
  /// The text lives as long as the library.
  static char const* GetName(unsigned int format);

  /// The code itself if it has a name, or the code that it is an alias of: "YUYV" for "YUY2".
  /// 0 when it has no row.
  static unsigned int GetEquivalentFormat(unsigned int format);

  /// The category: what the code, its alias resolved, is a kind of. "ai5 " for "ai52", "h264" for
  /// "AVCI". 0 for a root, for an alias of a root, and for a code that has no row.
  static unsigned int GetCategoricalFormat(unsigned int format);

  /// The root of the code's tree: "h264" for "ai52", and for itself. 0 when it has no row.
  static unsigned int GetCanonicalFormat(unsigned int format);

  /// Whether `format` is `kind`, or an alias or a kind of it at any remove. True for two equal
  /// codes even when they have no row; otherwise false for a code that has none.
  static bool IsFormat(unsigned int format, unsigned int kind);

#include "zel/runtime/vocabulary/video_formats.def"
};

}  // namespace Morvalen::Zel

#undef ZEL_VIDEO_FORMAT
