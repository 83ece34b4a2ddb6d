#include "exchange/set_names.h"

#include <fmt/format.h>

namespace qx::exchange {
namespace {

constexpr std::size_t kLongest = DPoolMset::kLongestName;

/// The first units of a text, at most `length`, without half a surrogate pair at the end.
std::u16string Head(const std::u16string& text, std::size_t length) {
  if (text.size() <= length) return text;
  if (length > 0 && text[length - 1] >= 0xD800 && text[length - 1] <= 0xDBFF) --length;
  return text.substr(0, length);
}

}  // namespace

SetNames::SetNames(const DPoolMset& sets, std::span<const Mesh::Group> groups) {
  for (ITR at = sets.GetHeadPosition(); at; sets.Next(at)) {
    taken_.emplace(sets.GetAtNU(at).name.View());
  }
  for (const Mesh::Group& group : groups) {
    std::u16string name = Utf16(group.name);
    if (name.size() <= kLongest) taken_.insert(std::move(name));
  }
}

std::u16string SetNames::Fit(const std::string& name, LossReport& report) {
  std::u16string full = Utf16(name);
  if (full.size() <= kLongest) return full;
  const std::u16string head = Head(full, kLongest);
  std::u16string cut = head;
  for (int& number = last_number_[head]; !taken_.insert(cut).second;) {
    const std::u16string tail = Utf16(fmt::format("~{}", ++number));
    cut = Head(full, kLongest - tail.size()) + tail;
  }
  report.Changed(fmt::format("names of groups were cut to {} characters", kLongest), 1,
                 fmt::format("\"{}\", now \"{}\"", name, Utf8(cut)));
  return cut;
}

}  // namespace qx::exchange
