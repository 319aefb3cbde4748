// Any text as a line of a list of PES private data: no crash, no over-read, and what is accepted
// fits its place in a PES header.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "zel/mux/engine/packet/private_data.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto line = zel::mux::parse_private_data_line(text);
  if (!line.entry) return 0;
  if (line.fatal != 0 || line.warning != 0) std::abort();
  zel::mux::pes_fields fields;
  zel::mux::set_private_data(fields, &*line.entry);
  uint8_t header[zel::mux::kMostPesHeader];
  const int written = zel::mux::put_pes_header(header, fields);
  const int added = line.entry->form == zel::mux::pes_private_form::field
                        ? 1 + 16
                        : 2 + static_cast<int>(line.entry->data.size());
  if (written != 9 + added || written != zel::mux::pes_header_size(fields)) std::abort();
  return 0;
}
