#include "tools/zel/pattern.h"

#include <fnmatch.h>

#include <algorithm>

namespace zel::tool {
namespace {

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

Pattern::Pattern(std::string text)
    : text_(std::move(text)), wildcards_(text_.find_first_of("*?[") != std::string::npos) {}

bool Pattern::matches(std::string_view name) const {
  if (wildcards_) return fnmatch(text_.c_str(), std::string(name).c_str(), FNM_CASEFOLD) == 0;
  return std::search(name.begin(), name.end(), text_.begin(), text_.end(),
                     [](char a, char b) { return lower(a) == lower(b); }) != name.end() ||
         text_.empty();
}

}  // namespace zel::tool
