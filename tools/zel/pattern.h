#pragma once

#include <string>
#include <string_view>

namespace zel::tool {

/// What a user types to pick names from a list. With a "*", "?" or "[" it is a shell pattern that
/// the whole name has to match; otherwise it is text that the name contains. Letters match in
/// either case. The empty pattern matches every name.
class Pattern {
 public:
  explicit Pattern(std::string text);
  bool matches(std::string_view name) const;

 private:
  std::string text_;
  bool wildcards_;
};

}  // namespace zel::tool
