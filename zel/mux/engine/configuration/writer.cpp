#include <algorithm>
#include <new>
#include <string>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/key_access.h"
#include "zel/mux/engine/configuration/key_table.h"
#include "zel/mux/engine/configuration/values.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;

constexpr int32_t kExtendedStreamId = 253;  // ISO/IEC 13818-1, 2.4.3.7: extended_stream_id

std::string hexadecimal(int32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*x", digits, static_cast<uint32_t>(value));
  return text;
}

std::string hex_bytes(std::span<const uint8_t> bytes, bool upper) {
  const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  std::string text;
  for (const uint8_t each : bytes) {
    text += ' ';
    text += digits[each >> 4];
    text += digits[each & 15];
  }
  return text;
}

// A text that a reader trims, or takes for a quoted one, is quoted.
std::string quoted_if_needed(std::string_view text) {
  const bool blanks = !text.empty() && (text.front() == ' ' || text.front() == '\t' ||
                                        text.back() == ' ' || text.back() == '\t');
  std::string result(text);
  if (blanks) result.insert(0, 1, '"').push_back('"');
  return result;
}

class configuration_writer {
 public:
  std::string write(const tsm_config& config);

 private:
  void write_header(const std::string& header, const TarnArray& comments);
  void write_keys(const tsm_config_section& section, const void* record);
  void write_key(const tsm_config_section& section, const tsm_config_key& row, const void* record);
  void write_files(const tsm_config_key& row, const TarnArray& files);
  void write_program(const tsm_program& program, int number);
  template <class Record, size_t slots>
  void write_records(Record* const (&slot)[slots], std::string_view name);

  std::string text_;
};

const tsm_config_section& section_named(std::string_view name) {
  const auto all = tsm_config_sections();
  return *std::find_if(all.begin(), all.end(),
                       [&](const tsm_config_section& each) { return each.name == name; });
}

// Whether a row is left out though its condition holds.
bool is_left_out(const tsm_config_section& section, const tsm_config_key& row, const void* record) {
  if (row.written == tsm_written::never) return true;
  if (row.name == "StreamIDExtension")
    return static_cast<const tsm_stream_record*>(record)->pesId != kExtendedStreamId;
  if (section.name == "Program" &&
      (row.name == "ProgramNumber" || row.name == "PMTPID" || row.name == "PMTvsn"))
    return false;
  if (row.name == "OutPkts" && field_of<int32_t>(row, record) == 0) return true;
  if (row.name == "PktSize") return field_of<int32_t>(row, record) <= row.fallback;
  return has_default(row, record);
}

std::string value_text(const tsm_config_key& row, const void* record) {
  switch (row.kind) {
    case tsm_value_kind::yes_no:
      return field_of<bool>(row, record) ? "yes" : "no";
    case tsm_value_kind::tri_state:
      return field_of<int32_t>(row, record) != 0 ? "yes" : "no";
    case tsm_value_kind::mask_bit:
      return "no";
    case tsm_value_kind::choice: {
      const int32_t position = choice_position(row, field_of<int32_t>(row, record));
      const bool known = position >= 0 && static_cast<size_t>(position) < row.choices.size();
      const std::string word(known ? row.choices[static_cast<size_t>(position)] : "");
      return word == "Even" ? "even" : word;
    }
    case tsm_value_kind::wide_integer:
      return std::to_string(field_of<int64_t>(row, record));
    case tsm_value_kind::real:
      return real_text(field_of<double>(row, record));
    case tsm_value_kind::text:
      return quoted_if_needed(tarn_array_text(&field_of<TarnArray>(row, record), 0));
    case tsm_value_kind::time:
      return time_text(field_of<tsm_time_code>(row, record));
    case tsm_value_kind::time_offset:
      return time_offset_text(field_of<tsm_time_code>(row, record));
    case tsm_value_kind::integers: {
      const auto& list = field_of<TarnArray>(row, record);
      std::string text;
      for (int32_t i = 0; i < list.count; ++i) {
        if (i > 0) text += ' ';
        text += std::to_string(static_cast<const int32_t*>(list.elements)[i]);
      }
      return text;
    }
    default: {
      const int32_t value = field_of<int32_t>(row, record);
      if (row.written == tsm_written::one) return "1";
      if (row.written == tsm_written::hexadecimal) return hexadecimal(value, 1);
      if (row.written == tsm_written::hexadecimal4) return hexadecimal(value, 4);
      return std::to_string(value);
    }
  }
}

void configuration_writer::write_header(const std::string& header, const TarnArray& comments) {
  text_ += header + "\n";
  for (int32_t i = 0; i < comments.count; ++i) {
    std::string line(tarn_array_text(&comments, i));
    std::replace_if(
        line.begin(), line.end(), [](char each) { return each == '\n' || each == '\r'; }, ' ');
    text_ += "#" + line + "\n";
  }
}

void configuration_writer::write_files(const tsm_config_key& row, const TarnArray& files) {
  if (files.count == 1) {
    text_ += std::string(row.name) + " = " + quoted_if_needed(tarn_array_text(&files, 0)) + "\n";
    return;
  }
  for (int32_t i = 0; i < files.count; ++i)
    text_ += std::string(row.numberedName) + std::to_string(i + 1) + " = " +
             quoted_if_needed(tarn_array_text(&files, i)) + "\n";
}

void configuration_writer::write_key(const tsm_config_section& section, const tsm_config_key& row,
                                     const void* record) {
  if (!is_in_force(section, row, record) || is_left_out(section, row, record)) return;
  const std::string name(row.name_written());
  if (row.kind == tsm_value_kind::files) return write_files(row, field_of<TarnArray>(row, record));
  if (row.when == tsm_when::user_channel) {
    const auto* bytes = &field_of<uint8_t>(row, record);
    text_ += name + " =" + hex_bytes({bytes, tsm_channel_status_size}, false) + "\n";
    return;
  }
  if (row.kind == tsm_value_kind::hex) {
    const auto bytes = tarn_array_bytes(&field_of<TarnArray>(row, record), 0);
    text_ += name + " =" + hex_bytes(bytes, false) + "\n";
    return;
  }
  if (row.kind == tsm_value_kind::hex_list) {
    const auto& list = field_of<TarnArray>(row, record);
    for (int32_t i = 0; i < list.count; ++i)
      text_ += name + std::to_string(i + 1) + " =" +
               hex_bytes(tarn_array_bytes(&list, i), name == "Table") + "\n";
    return;
  }
  text_ += name + " = " + value_text(row, record);
  if (row.written != tsm_written::without_line_end) text_ += "\n";
}

void configuration_writer::write_keys(const tsm_config_section& section, const void* record) {
  for (const tsm_config_key& row : section.keys) write_key(section, row, record);
}

// Numbers close gaps: they count records, not slots.
template <class Record, size_t slots>
void configuration_writer::write_records(Record* const (&slot)[slots], std::string_view name) {
  const tsm_config_section& section = section_named(name);
  int number = 0;
  for (const Record* each : slot) {
    if (each == nullptr) continue;
    const std::string header = std::string(section.writtenName) + std::to_string(++number) + "$";
    write_header("\n" + header, each->comments);
    write_keys(section, each);
  }
}

void configuration_writer::write_program(const tsm_program& program, int number) {
  write_header("\nProgram" + std::to_string(number) + "*", program.comments);
  write_keys(section_named("Program"), &program);
  write_records(program.video, "Video");
  write_records(program.audio, "Audio");
  write_records(program.data, "Data");
  write_records(program.table, "TableData");
  write_records(program.lpcm, "LPCM");
  write_records(program.smpte302m, "SMPTE302M");
  write_records(program.privateStream, "PrivateStream1Data");
  write_records(program.scte35, "Scte35Data");
}

std::string configuration_writer::write(const tsm_config& config) {
  write_header("Transport*", config.comments);
  write_keys(section_named("Transport"), &config);
  write_records(config.data, "Data");
  write_records(config.table, "TableData");
  int number = 0;
  for (const tsm_program* each = config.programs; each != nullptr; each = each->next)
    write_program(*each, ++number);
  return std::move(text_);
}

}  // namespace
}  // namespace zel::mux

namespace Morvalen::Zel {

void tsm_config_write(const tsm_config* config, FILE* file) noexcept {
  try {
    const std::string text = zel::mux::configuration_writer().write(*config);
    std::fwrite(text.data(), 1, text.size(), file);
  } catch (const std::bad_alloc&) {
    // Nothing has been written; the caller sees an empty file.
  }
}

}  // namespace Morvalen::Zel
