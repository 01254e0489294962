#include "Suggestion.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr std::size_t kMostChanges = 2;

/// How many letters must be inserted, removed or replaced to make `to` of `from`.
std::size_t Changes(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.length() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.length(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < to.length(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string Suggestion(const std::string& typed, const std::vector<std::string>& words) {
  std::string nearest;
  std::size_t fewest = std::min(kMostChanges + 1, typed.length());
  for (const std::string& word : words) {
    const std::size_t changes = Changes(typed, word);
    if (changes < fewest) {
      fewest = changes;
      nearest = word;
    }
  }
  return nearest;
}
