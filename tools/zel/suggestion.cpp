#include "tools/zel/suggestion.h"

#include <algorithm>
#include <vector>

namespace zel::tool {
namespace {

// Levenshtein's distance: the fewest single-letter insertions, deletions and replacements.
size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

}  // namespace

std::string_view nearest(std::string_view text, std::span<const std::string> candidates) {
  constexpr size_t kLongest = 64;  // nobody mistypes an essay
  std::string_view best;
  size_t bestDistance = (text.size() + 2) / 3 + 1;
  if (text.size() > kLongest) return best;
  for (const std::string& candidate : candidates) {
    const size_t distance = editDistance(text, candidate);
    if (distance >= bestDistance) continue;
    bestDistance = distance;
    best = candidate;
  }
  return best;
}

std::string didYouMean(std::string_view text, std::span<const std::string> candidates) {
  const std::string_view found = nearest(text, candidates);
  return found.empty() ? std::string() : "; did you mean \"" + std::string(found) + "\"?";
}

}  // namespace zel::tool
