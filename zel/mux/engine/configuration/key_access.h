#pragma once

#include <memory>
#include <string_view>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/key_table.h"

// What reader and writer do with a row of the key table and a record of its section.

namespace zel::mux {

struct config_deleter {
  void operator()(Morvalen::Zel::tsm_config* config) const {
    Morvalen::Zel::tsm_config_free(config);
  }
};
using config_owner = std::unique_ptr<Morvalen::Zel::tsm_config, config_deleter>;

/// Whether `key`, of a text, is one that the row stands for.
bool is_listed(const Morvalen::Zel::tsm_config_key& row, std::string_view key);

/// Whether the row's condition holds in `record`.
bool is_in_force(const Morvalen::Zel::tsm_config_section& section,
                 const Morvalen::Zel::tsm_config_key& row, const void* record);

/// Puts a row's default into its field. Lists and texts are left alone: they start out empty.
void set_default(const Morvalen::Zel::tsm_config_key& row, void* record);
bool has_default(const Morvalen::Zel::tsm_config_key& row, const void* record);

enum class parse_result { done, bad, no_memory };
/// Sets the field from `text`; a bad one leaves it as it was. Not for files and bytes.
parse_result parse_into(const Morvalen::Zel::tsm_config_key& row, std::string_view text,
                        void* record);

/// A choice's value for its position, and back: most are the position itself.
int32_t choice_value(const Morvalen::Zel::tsm_config_key& row, int32_t position);
int32_t choice_position(const Morvalen::Zel::tsm_config_key& row, int32_t value);

template <class Value>
const Value& field_of(const Morvalen::Zel::tsm_config_key& row, const void* record) {
  // The table's accessors serve both ways; nothing is changed through this one.
  return *static_cast<const Value*>(row.field(const_cast<void*>(record)));
}

}  // namespace zel::mux
