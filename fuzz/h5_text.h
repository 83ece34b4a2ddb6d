#pragma once
// HDF5 files as text. The library falls over damaged files, and its own checks are not ours to try:
// what a target changes is what stands in a file, and the file is always whole.
//
// A line is an item, its parts are apart by tabs, the values of a part by blanks. Attributes and
// arrays belong to the group above them.
//
//   g NAME             a group, in which the next items are    <    back to the group around it
//   i NAME VALUE       an attribute that is a whole number     j    the same as an array of one
//   r NAME VALUE       one that is real                        t    NAME WIDTH TEXT: a text
//   I NAME LENGTHS VALUES   an array: whole numbers of 32 bits, L of 64, R real ones, F of 32 bits
//   C NAME LENGTHS TEXT     one of characters                  T    NAME WIDTH TEXT|TEXT: of texts

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/file.h"

#include "exchange/hdf5/h5_reader.h"
#include "exchange/hdf5/h5_writer.h"
#include "fuzz/scratch.h"

namespace qx::fuzz {

/// The parts of a text between marks; one at least.
inline std::vector<std::string> Parts(std::string_view text, char mark) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == mark) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

/// Numbers at the start of each part between blanks, without those that are none.
template <class T>
std::vector<T> NumbersIn(std::string_view text) {
  std::vector<T> numbers;
  for (const std::string& part : Parts(text, ' ')) {
    T number{};
    if (std::from_chars(part.data(), part.data() + part.size(), number).ec == std::errc()) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

/// Makes the file that such a text describes. A line that cannot be is passed over.
class H5OfText {
 public:
  explicit H5OfText(const std::string& path) : out_(path) {}

  bool Make(std::string_view text) {
    for (const std::string& line : Parts(text, '\n')) {
      std::vector<std::string> parts = Parts(line, '\t');
      if (parts.size() > 4 || parts[0].size() != 1) continue;
      parts.resize(4);
      Item(parts[0][0], parts[1], parts[2], parts[3]);
    }
    return out_.Finish().empty();
  }

 private:
  static constexpr std::uint64_t kMost = 1 << 16;  // values of an array

  void Item(char what, const std::string& name, const std::string& second,
            const std::string& third) {
    if (what == '<') return group_.resize(std::min(group_.rfind('/'), group_.size()));
    const bool is_attribute = std::string_view("ijrt").find(what) != std::string_view::npos;
    const std::string path = group_ + "/" + name;
    if (name.empty() || name == "." || name.find('/') != name.npos ||
        name.find('\0') != name.npos || std::count(path.begin(), path.end(), '/') > 32 ||
        !taken_.insert(is_attribute ? path + "/@" : path).second) {
      return;
    }
    const std::string owner = group_.empty() ? "/" : group_;
    if (what == 'g') {
      out_.Group(path);
      group_ = path;
    } else if (what == 'i' || what == 'j') {
      const auto values = NumbersIn<std::int32_t>(second);
      const std::int32_t value = values.empty() ? 0 : values[0];
      what == 'i' ? out_.Integer(owner, name.c_str(), value)
                  : out_.IntegerInArray(owner, name.c_str(), value);
    } else if (what == 'r') {
      const auto values = NumbersIn<double>(second);
      out_.Real(owner, name.c_str(), values.empty() ? 0 : values[0]);
    } else if (what == 't') {
      out_.Text(owner, name.c_str(), third, WidthOf(second));
    } else if (what == 'I') {
      Array<std::int32_t>(path, second, NumbersIn<std::int32_t>(third));
    } else if (what == 'L') {
      Array<std::int64_t>(path, second, NumbersIn<std::int64_t>(third));
    } else if (what == 'R') {
      Array<double>(path, second, NumbersIn<double>(third));
    } else if (what == 'F') {
      Array<float>(path, second, NumbersIn<float>(third));
    } else if (what == 'C') {
      Array<char>(path, second, std::vector<char>(third.begin(), third.end()));
    } else if (what == 'T') {
      out_.PutTexts(path, third.empty() ? std::vector<std::string>() : Parts(third, '|'),
                    WidthOf(second));
    }
  }

  static std::size_t WidthOf(const std::string& text) {
    const auto widths = NumbersIn<std::uint32_t>(text);
    return widths.empty() ? 1 : std::clamp<std::size_t>(widths[0], 1, 4096);
  }

  /// As many values as the lengths say: zeros for those that are missing.
  template <class T>
  void Array(const std::string& path, const std::string& shape, std::vector<T> values) {
    auto lengths = NumbersIn<std::uint64_t>(shape);
    if (lengths.size() > 4) lengths.resize(4);
    std::uint64_t count = 1;
    for (std::uint64_t& length : lengths) {
      length = std::min(length, kMost / std::max<std::uint64_t>(count, 1));
      count *= length;
    }
    values.resize(lengths.empty() ? std::min<std::size_t>(values.size(), kMost) : count);
    if constexpr (std::is_same_v<T, char>) {
      out_.Put(path, std::string_view(values.data(), values.size()), lengths);
    } else {
      out_.Put(path, std::span<const T>(values), lengths);
    }
  }

  exchange::H5Writer out_;
  std::string group_;
  std::set<std::string> taken_;
};

/// The bytes of the file that a text describes; none where it cannot be made.
inline std::string H5FileOf(std::string_view text) {
  const std::string path = Folder() + "/made.h5";
  if (!H5OfText(path).Make(text)) return {};
  return *ReadWholeFile(path);
}

/// What describes a group of a file, with the attributes of these names.
inline void Describe(exchange::H5Reader& in, const std::string& group,
                     const std::vector<const char*>& attributes, std::string& text) {
  using Kind = exchange::H5Reader::Kind;
  const std::string path = group.empty() ? "/" : group;
  for (const char* name : attributes) {
    if (const auto number = in.IntegerAttribute(path, name)) {
      text += fmt::format("i\t{}\t{}\n", name, *number);
    } else if (const auto real = in.RealAttribute(path, name)) {
      text += fmt::format("r\t{}\t{}\n", name, *real);
    } else if (const auto words = in.TextAttribute(path, name)) {
      text += fmt::format("t\t{}\t{}\t{}\n", name, words->size() + 1, *words);
    }
  }
  for (const std::string& name : in.Children(path)) {
    const std::string child = group + "/" + name;
    if (in.IsGroup(child)) {
      text += "g\t" + name + "\n";
      Describe(in, child, attributes, text);
      text += "<\n";
      continue;
    }
    const std::string lengths = fmt::format("{}", fmt::join(in.LengthsOf(child), " "));
    switch (in.KindOf(child)) {
      case Kind::kInteger:
        text += fmt::format("I\t{}\t{}\t{}\n", name, lengths, fmt::join(in.Integers(child), " "));
        break;
      case Kind::kReal:
        text += fmt::format("R\t{}\t{}\t{}\n", name, lengths, fmt::join(in.Reals(child), " "));
        break;
      case Kind::kText:
        text += fmt::format("C\t{}\t{}\t{}\n", name, lengths, in.Bytes(child));
        break;
      case Kind::kOther: {  // texts, whose width is their bytes by their number
        const std::string bytes = in.Bytes(child);
        const auto counts = in.LengthsOf(child);
        const std::size_t count = counts.empty() ? 1 : counts[0];
        const std::size_t width = bytes.size() / std::max<std::size_t>(count, 1);
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < count; ++i) {
          texts.emplace_back(bytes.substr(i * width, width).c_str());
        }
        text += fmt::format("T\t{}\t{}\t{}\n", name, width, fmt::join(texts, "|"));
        break;
      }
    }
  }
}

}  // namespace qx::fuzz
