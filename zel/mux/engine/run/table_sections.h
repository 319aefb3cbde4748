#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/reporting.h"

/// The sections of a table stream: ISO/IEC 13818-1, 2.4.4.

namespace zel::mux {

using table_section = std::vector<uint8_t>;

/// Makes a section out of what was given for one. A long section (section_syntax_indicator) whose
/// section_length counts a CRC that isn't there gets it. Empty where there is nothing to send;
/// `number` is what messages call it: warnings 110 and 111.
table_section complete_section(std::span<const uint8_t> given, int number, int pid,
                               reporting& reports);

/// The tables that stand in the record. None with anything in it is fatal 84 or 85.
std::vector<table_section> sections_of_record(const Morvalen::Zel::tsm_table& record,
                                              reporting& reports);

/// Splits bytes into the sections that they are made of, stuffing (FF) between them left out. False
/// where they aren't sections from end to end.
bool split_sections(std::span<const uint8_t> bytes, std::vector<table_section>& sections);

/// The sections of the record's files of bare sections, one behind the other. What isn't made of
/// sections is fatal 148, as are documents, which take another reader.
std::vector<table_section> sections_of_files(const Morvalen::Zel::tsm_table& record,
                                             reporting& reports);

}  // namespace zel::mux
