#include "zel/mux/engine/configuration/key_access.h"

#include <cstring>
#include <string>

#include "zel/mux/engine/configuration/configuration_line.h"
#include "zel/mux/engine/configuration/values.h"

namespace zel::mux {

using namespace Morvalen::Zel;

namespace {

template <class Value>
Value& field(const tsm_config_key& row, void* record) {
  return *static_cast<Value*>(row.field(record));
}

// The names under which a numbered key is looked up: each "0" is any digit.
constexpr std::string_view kFileNumber = "000000000";
constexpr std::string_view kBytesNumber = "000";

constexpr std::string_view kWordSize = "WordSize";
constexpr int32_t kLeastWordSize = 16;
constexpr int32_t kWordSizeStep = 4;

template <class Value, class Parsed>
parse_result take(const tsm_config_key& row, void* record, const Parsed& parsed) {
  if (!parsed) return parse_result::bad;
  field<Value>(row, record) = static_cast<Value>(*parsed);
  return parse_result::done;
}

parse_result parse_choice_into(const tsm_config_key& row, std::string_view text, void* record) {
  auto position = parse_choice(text, row.choices);
  // StopOnAV was once a yes or no.
  if (!position && row.name == "StopOnAV") {
    if (const auto flag = parse_yes_no(text)) position = *flag ? 1 : 0;
  }
  if (!position) return parse_result::bad;
  field<int32_t>(row, record) = choice_value(row, *position);
  return parse_result::done;
}

parse_result parse_integers_into(const tsm_config_key& row, std::string_view text, void* record) {
  const auto values = parse_integers(text);
  if (!values) return parse_result::bad;
  auto& list = field<TarnArray>(row, record);
  const auto count = static_cast<int32_t>(values->size());
  if (!tarn_array_reserve(&list, count, sizeof(int32_t))) return parse_result::no_memory;
  if (count > 0) std::memcpy(list.elements, values->data(), values->size() * sizeof(int32_t));
  list.count = count;
  return parse_result::done;
}

}  // namespace

bool is_listed(const tsm_config_key& row, std::string_view key) {
  switch (row.kind) {
    case tsm_value_kind::files:
      return matches_listed_name(key, row.name) ||
             matches_listed_name(key, std::string(row.numberedName) + std::string(kFileNumber));
    case tsm_value_kind::hex_list:
      return matches_listed_name(key, std::string(row.name) + std::string(kBytesNumber));
    default:
      return matches_listed_name(key, row.name);
  }
}

bool is_in_force(const tsm_config_section& section, const tsm_config_key& row, const void* record) {
  if (row.field == nullptr) return false;
  switch (row.when) {
    case tsm_when::packet_stamps:
      return static_cast<const tsm_config*>(record)->pktTs;
    case tsm_when::burst_nulls:
      return static_cast<const tsm_config*>(record)->burstNulls;
    case tsm_when::automatic_descriptors:
      return !static_cast<const tsm_config*>(record)->autoDescrDisabled;
    case tsm_when::user_channel: {
      constexpr int32_t kUser = 2;
      return section.name == "SMPTE302M" &&
             static_cast<const tsm_smpte302m*>(record)->channelStatus[row.limit - 1] == kUser;
    }
    default:
      break;
  }
  // A caption file has its offset; without one the offset means nothing.
  if (row.kind == tsm_value_kind::time_offset && row.name.starts_with("CCTimeOffset")) {
    const auto& video = *static_cast<const tsm_video*>(record);
    if (row.name.ends_with("12")) return video.sccFile12.count != 0;
    if (row.name.ends_with("34")) return video.sccFile34.count != 0;
    return video.sccFile.count != 0;
  }
  return true;
}

int32_t choice_value(const tsm_config_key& row, int32_t position) {
  return row.name == kWordSize ? kLeastWordSize + kWordSizeStep * position : position;
}

int32_t choice_position(const tsm_config_key& row, int32_t value) {
  return row.name == kWordSize ? (value - kLeastWordSize) / kWordSizeStep : value;
}

void set_default(const tsm_config_key& row, void* record) {
  switch (row.kind) {
    case tsm_value_kind::yes_no:
      field<bool>(row, record) = row.fallback != 0;
      return;
    case tsm_value_kind::tri_state:
    case tsm_value_kind::integer:
    case tsm_value_kind::long_integer:
      field<int32_t>(row, record) = static_cast<int32_t>(row.fallback);
      return;
    case tsm_value_kind::choice:
      field<int32_t>(row, record) = choice_value(row, static_cast<int32_t>(row.fallback));
      return;
    case tsm_value_kind::mask_bit:
      field<int32_t>(row, record) |= 1 << row.limit;
      return;
    case tsm_value_kind::wide_integer:
      field<int64_t>(row, record) = static_cast<int64_t>(row.fallback);
      return;
    case tsm_value_kind::real:
      field<double>(row, record) = row.fallback;
      return;
    case tsm_value_kind::time:
    case tsm_value_kind::time_offset:
      field<tsm_time_code>(row, record) = {};
      return;
    default:
      return;
  }
}

bool has_default(const tsm_config_key& row, const void* record) {
  switch (row.kind) {
    case tsm_value_kind::yes_no:
      return field_of<bool>(row, record) == (row.fallback != 0);
    case tsm_value_kind::tri_state:
    case tsm_value_kind::integer:
    case tsm_value_kind::long_integer:
      return field_of<int32_t>(row, record) == static_cast<int32_t>(row.fallback);
    case tsm_value_kind::choice:
      return choice_position(row, field_of<int32_t>(row, record)) ==
             static_cast<int32_t>(row.fallback);
    case tsm_value_kind::mask_bit:
      return (field_of<int32_t>(row, record) >> row.limit & 1) != 0;
    case tsm_value_kind::wide_integer:
      return field_of<int64_t>(row, record) == static_cast<int64_t>(row.fallback);
    case tsm_value_kind::real:
      return field_of<double>(row, record) == row.fallback;
    case tsm_value_kind::time:
    case tsm_value_kind::time_offset:
      return field_of<tsm_time_code>(row, record).sign == 0;
    default:
      return row.when != tsm_when::user_channel && field_of<TarnArray>(row, record).count == 0;
  }
}

parse_result parse_into(const tsm_config_key& row, std::string_view text, void* record) {
  switch (row.kind) {
    case tsm_value_kind::yes_no:
      return take<bool>(row, record, parse_yes_no(text));
    case tsm_value_kind::tri_state:
      return take<int32_t>(row, record, parse_yes_no(text));
    case tsm_value_kind::mask_bit: {
      const auto flag = parse_yes_no(text);
      if (!flag) return parse_result::bad;
      auto& mask = field<int32_t>(row, record);
      mask = *flag ? mask | 1 << row.limit : mask & ~(1 << row.limit);
      return parse_result::done;
    }
    case tsm_value_kind::choice:
      return parse_choice_into(row, text, record);
    case tsm_value_kind::integer:
      return take<int32_t>(row, record, parse_integer(text));
    case tsm_value_kind::long_integer:
      return take<int32_t>(row, record, parse_long(text));
    case tsm_value_kind::wide_integer:
      return take<int64_t>(row, record, parse_wide(text));
    case tsm_value_kind::real:
      return take<double>(row, record, parse_real(text));
    case tsm_value_kind::text:
      if (text.empty()) return parse_result::done;
      return tarn_array_append_text(&field<TarnArray>(row, record), parse_text(text))
                 ? parse_result::done
                 : parse_result::no_memory;
    case tsm_value_kind::time:
      return take<tsm_time_code>(row, record, parse_time(text));
    case tsm_value_kind::time_offset:
      return take<tsm_time_code>(row, record, parse_time_offset(text));
    case tsm_value_kind::integers:
      return parse_integers_into(row, text, record);
    default:
      return parse_result::bad;
  }
}

}  // namespace zel::mux
