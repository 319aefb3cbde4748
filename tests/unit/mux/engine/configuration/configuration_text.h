#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "zel/mux/engine/configuration/key_access.h"

namespace zel::test {

struct ConfigMessage {
  int severity;
  int code;
  std::string text;
};

using Files = std::unique_ptr<FILE, int (*)(FILE*)>;

/// Reads `text`; the messages go to `messages` where it isn't null.
inline mux::config_owner readConfig(const std::string& text,
                                    std::vector<ConfigMessage>* messages = nullptr,
                                    const Morvalen::Zel::TarnArray* outputs = nullptr,
                                    const Morvalen::Zel::TarnArray* videos = nullptr,
                                    const Morvalen::Zel::TarnArray* audios = nullptr) {
  const Files file(std::tmpfile(), &std::fclose);
  if (file == nullptr) return nullptr;
  std::fwrite(text.data(), 1, text.size(), file.get());
  const auto keep = [](void* user, int severity, int code, const char* said, int) {
    if (user != nullptr)
      static_cast<std::vector<ConfigMessage>*>(user)->push_back({severity, code, said});
  };
  return mux::config_owner(
      Morvalen::Zel::tsm_config_read(file.get(), outputs, videos, audios, messages, keep));
}

inline std::string writeConfig(const Morvalen::Zel::tsm_config& config) {
  const Files file(std::tmpfile(), &std::fclose);
  if (file == nullptr) return "no temporary file";
  Morvalen::Zel::tsm_config_write(&config, file.get());
  std::string text(static_cast<size_t>(std::ftell(file.get())), '\0');
  std::rewind(file.get());
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  return text;
}

}  // namespace zel::test
