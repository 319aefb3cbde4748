#pragma once

#include <string>
#include <vector>

#include "zel/mux/engine/configuration/tarn_array.h"

namespace zel::mux {

/// The texts of an array of byte strings, in order.
inline std::vector<std::string> file_names(const Morvalen::Zel::TarnArray& files) {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(files.count));
  for (int32_t i = 0; i < files.count; ++i) {
    names.emplace_back(Morvalen::Zel::tarn_array_text(&files, i));
  }
  return names;
}

}  // namespace zel::mux
