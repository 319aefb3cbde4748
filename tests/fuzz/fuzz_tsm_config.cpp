// Any bytes as a configuration text: what was read is written, and read again. The second text is
// the first, unless the line of PTSi, which doesn't end, has taken a key.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "zel/mux/engine/configuration/key_access.h"

namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_config_read;
using Morvalen::Zel::tsm_config_write;
using zel::mux::config_owner;

config_owner read(const uint8_t* data, size_t size) {
  if (size == 0) return nullptr;
  FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (file == nullptr) std::abort();
  config_owner config(tsm_config_read(file, nullptr, nullptr, nullptr, nullptr, nullptr));
  std::fclose(file);
  return config;
}

std::string write(const tsm_config& config) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  if (file == nullptr) std::abort();
  tsm_config_write(&config, file);
  std::fclose(file);
  std::string result(text, size);
  std::free(text);
  return result;
}

config_owner read(const std::string& text) {
  return read(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const config_owner config = read(data, size);
  if (config == nullptr) return 0;
  const config_owner again = read(write(*config));
  if (again == nullptr) std::abort();
  return 0;
}
