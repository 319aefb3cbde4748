#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "zel/base/export.h"

// The vocabulary of configuration texts, once: the reader, the writer, the check for unknown keys
// and the lists that people read are all made from these rows. Rows stand in the order in which the
// writer writes them.

namespace Morvalen::Zel {

/// What a value may be.
enum class tsm_value_kind {
  yes_no,
  tri_state,     ///< yes, no or not given
  mask_bit,      ///< yes/no, one bit of a mask
  choice,        ///< one of a few words
  integer,       ///< decimal, hexadecimal with 0x, octal with a leading 0; 32 bits
  long_integer,  ///< decimal only; 32 bits
  wide_integer,  ///< decimal, 64 bits
  real,
  text,
  time,         ///< [-]hh:mm:ss:ff
  time_offset,  ///< [-]hh:mm:ss.ss
  integers,     ///< separated by blanks, tabs or commas
  hex,          ///< bytes
  hex_list,     ///< bytes; numbered keys from 1
  files,        ///< one, or several in numbered keys
};

/// How a value is written when it isn't the default.
enum class tsm_written {
  never,
  plain,            ///< as its kind is: numbers in decimal, a real with three decimals
  hexadecimal,      ///< 0x%x
  hexadecimal4,     ///< 0x%04x
  one,              ///< always 1
  without_line_end  ///< plain, but the line doesn't end
};

/// When a key is read, and written.
enum class tsm_when { always, packet_stamps, burst_nulls, automatic_descriptors, user_channel };

/// One keyword of a section.
struct tsm_config_key {
  std::string_view name;  ///< without the number of numbered keys
  tsm_value_kind kind;
  /// The field in a record of the section.
  void* (*field)(void* record);
  double fallback = 0;  ///< the default of numbers, choices (position) and flags
  tsm_written written = tsm_written::plain;
  tsm_when when = tsm_when::always;
  int error = 4;  ///< code of the message about a bad value
  std::span<const std::string_view> choices = {};
  int32_t limit = 0;  ///< of bytes; of mask_bit: the bit; of a channel's keys: the channel
  std::string_view writtenName = {};   ///< where it differs
  std::string_view numberedName = {};  ///< of files: the key before the number

  /// The name that the writer uses.
  constexpr std::string_view name_written() const {
    return writtenName.empty() ? name : writtenName;
  }
};

/// One kind of section.
struct tsm_config_section {
  std::string_view name;  ///< without its number
  std::string_view writtenName;
  std::span<const tsm_config_key> keys;
  int slots;    ///< of a program, or 0
  int tooMany;  ///< code of the message about one section beyond them
  int noFiles;  ///< code of the message about a missing File, or 0
};

/// All sections: Transport, Program, then the kinds of streams in the order in which they are
/// written.
ZEL_API std::span<const tsm_config_section> tsm_config_sections() noexcept;

/// A word for people: "yes/no", "integer"...
ZEL_API std::string_view tsm_value_kind_name(tsm_value_kind kind) noexcept;

}  // namespace Morvalen::Zel
