#pragma once
// The word that was probably meant.
// Threads: any; nothing is kept between calls.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace qx::select {

/// The fewest letters to insert, remove, replace or exchange with the next to turn one word into
/// the other (the restricted edit distance).
inline std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before, last(b.size() + 1), now(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        now[j] = std::min(now[j], before[j - 2] + 1);
      }
    }
    before = last;
    std::swap(last, now);
  }
  return last[b.size()];
}

/// The known word nearest to this one: one that it begins, or one a few letters away; "" for none.
inline std::string NearestWord(std::string_view word, const std::vector<std::string>& known) {
  constexpr std::size_t kLongest = 64;  // what is longer is no slip
  if (word.empty() || word.size() > kLongest) return "";
  std::string nearest;
  std::size_t least = std::min<std::size_t>(2, word.size() / 2) + 1;
  for (const std::string& each : known) {
    const bool is_begun = word.size() > 2 && each.starts_with(word);
    const std::size_t distance = is_begun ? 1 : EditDistance(word, each);
    if (distance >= least) continue;
    least = distance;
    nearest = each;
  }
  return nearest;
}

}  // namespace qx::select
