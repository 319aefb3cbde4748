#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zel::tool {

/// The candidate that `text` was probably meant to be: about a third of its letters may be wrong.
/// Empty when none is near.
std::string_view nearest(std::string_view text, std::span<const std::string> candidates);

/// "; did you mean \"--preset\"?", or nothing.
std::string didYouMean(std::string_view text, std::span<const std::string> candidates);

}  // namespace zel::tool
