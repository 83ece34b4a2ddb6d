// PLY: points and faces with whatever properties the header names, as text or in either byte order.
// Ours have the colour of a set by face and, beside it, the number of the set among those that
// comments of the header name.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

#include "exchange/surface/surface_builder.h"
#include "exchange/surface/surface_formats.h"
#include "exchange/surface/surface_sink.h"
#include "exchange/text_lines.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".ply"};
constexpr FormatOption kWriteOptions[] = {
    {"encoding", "binary, ascii", "how numbers are stored"},
    kSurfaceSets,
};
constexpr std::string_view kOwnComment = "comment PLY written by QX_db";
constexpr std::string_view kSetComment = "qxdb_set";

bool LooksLike(std::string_view head) {
  return head.starts_with("ply\n") || head.starts_with("ply\r\n");
}

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && LooksLike(*head) && head->find(kOwnComment) != std::string::npos;
}

// ---- in -----------------------------------------------------------------------------------------

enum class Number { kInt8, kUint8, kInt16, kUint16, kInt32, kUint32, kFloat, kDouble };

std::optional<Number> NumberOf(std::string_view type) {
  constexpr std::pair<std::string_view, Number> kTypes[] = {
      {"char", Number::kInt8},      {"int8", Number::kInt8},     {"uchar", Number::kUint8},
      {"uint8", Number::kUint8},    {"short", Number::kInt16},   {"int16", Number::kInt16},
      {"ushort", Number::kUint16},  {"uint16", Number::kUint16}, {"int", Number::kInt32},
      {"int32", Number::kInt32},    {"uint", Number::kUint32},   {"uint32", Number::kUint32},
      {"float", Number::kFloat},    {"float32", Number::kFloat}, {"double", Number::kDouble},
      {"float64", Number::kDouble},
  };
  for (const auto& [name, number] : kTypes) {
    if (name == type) return number;
  }
  return std::nullopt;
}

std::size_t SizeOf(Number number) {
  constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
  return kSizes[static_cast<int>(number)];
}

struct Property {
  std::string name;
  Number type = Number::kDouble;
  std::optional<Number> count = {};  ///< of a list
};

struct Element {
  std::string name;
  std::uint64_t count = 0;
  std::vector<Property> properties = {};
};

struct Header {
  bool is_text = true;
  bool is_swapped = false;
  std::vector<Element> elements;
  std::vector<std::pair<std::string, std::int32_t>> sets;  ///< names and colours, of ours
  std::size_t size = 0;                                    ///< bytes
};

class PlyFile {
 public:
  PlyFile(std::string_view bytes, SurfaceBuilder& surface)
      : bytes_(bytes), surface_(surface), lines_(bytes) {}

  void Read() {
    if (!ReadHeader()) return;
    at_ = header_.size;
    std::uint64_t total = 0, done = 0;
    for (const Element& element : header_.elements) total += element.count;
    for (const Element& element : header_.elements) {
      if (element.name == "vertex") points_ = element.count;
    }
    for (const Element& element : header_.elements) {
      const bool is_point = element.name == "vertex";
      const bool is_face = element.name == "face";
      TellOfUnread(element);
      if (element.properties.empty()) {  // its rows take no bytes
        if (is_face) {
          surface_.Report().Lost("faces of fewer than three corners were left out", element.count,
                                 "face 1", "they have no area");
        }
        continue;
      }
      if (!is_over_ && !HasRoomFor(element)) return;
      for (std::uint64_t i = 0; i < element.count && surface_.Ok() && !is_over_; ++i) {
        if (header_.is_text && !NextTextLine()) {
          return Wrong(fmt::format("{} {}", element.name, i + 1), "the file ends before it");
        }
        ReadRow(element, i, is_point, is_face);
        if (++done % 16384 == 0) {
          surface_.Tell(static_cast<double>(done) / static_cast<double>(total));
        }
      }
    }
    if (surface_.Ok() && !is_over_) TellOfTheEnd();
  }

 private:
  /// Bytes that no element of the header is of.
  void TellOfTheEnd() {
    std::string_view rest =
        bytes_.substr(std::min(header_.is_text ? lines_.At() : at_, bytes_.size()));
    if (header_.is_text) {
      rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    }
    surface_.Report().Lost("bytes behind the last row were left out", rest.size(),
                           fmt::format("byte {}", bytes_.size() - rest.size() + 1),
                           "the header names no element that they are of");
  }

  void Wrong(std::string place, std::string what) {
    surface_.Fault(std::move(place), std::move(what));
    is_over_ = true;
  }

  /// Whether what is left of the file can hold all rows of an element.
  bool HasRoomFor(const Element& element) {
    // Of a list its number of members is there at least, of text a digit and a blank or line end,
    // of which the last may be missing.
    std::uint64_t least = 0;
    for (const Property& property : element.properties) {
      least += header_.is_text ? 2 : SizeOf(property.count.value_or(property.type));
    }
    const std::uint64_t left =
        header_.is_text ? bytes_.size() - lines_.At() + 1 : bytes_.size() - at_;
    if (element.count <= left / least) return true;
    Wrong(fmt::format("{} {}", element.name, left / least + 1),
          fmt::format("the file ends before it, of {}", element.count));
    return false;
  }

  // ---- the header ---------------------------------------------------------------------------

  bool ReadHeader() {
    bool has_format = false;
    lines_.Next();  // "ply"
    while (lines_.Next()) {
      Words words(lines_.Line());
      const std::string_view word = words.Next();
      if (word == "end_header") {
        header_.size = lines_.At();
        if (!has_format) Wrong("line 2", "the header names no format");
        return !is_over_;
      }
      if (word == "format") {
        const std::string_view name = words.Next();
        has_format = true;
        header_.is_text = name == "ascii";
        header_.is_swapped = name == "binary_big_endian";
        if (!header_.is_text && !header_.is_swapped && name != "binary_little_endian") {
          Wrong(lines_.Place(), fmt::format("'{}' is no format", CleanText(name.substr(0, 40))));
        }
      } else if (word == "element") {
        const std::string name = CleanText(words.Next());
        const auto count = WholeOf<std::uint64_t>(words.Next());
        if (!count || name.empty() || *count > bytes_.size()) {
          Wrong(lines_.Place(), "the element has no number, or one beyond what the file can hold");
        }
        header_.elements.push_back({name, count.value_or(0)});
      } else if (word == "property") {
        AddProperty(words);
      } else if (word == "comment" && words.Next() == kSetComment) {
        const auto color = WholeOf<std::int32_t>(words.Next());
        header_.sets.emplace_back(words.Rest(), color.value_or(0));
      } else if (word != "comment" && word != "obj_info" && !word.empty()) {
        Wrong(lines_.Place(),
              fmt::format("'{}' is no word of the header", CleanText(word.substr(0, 40))));
      }
      if (is_over_) return false;
    }
    Wrong(lines_.Place(), "the file ends amid its header");
    return false;
  }

  void AddProperty(Words& words) {
    std::string_view type = words.Next();
    Property property;
    if (type == "list") {
      property.count = NumberOf(words.Next());
      type = words.Next();
      if (!property.count || *property.count >= Number::kFloat) {
        return Wrong(lines_.Place(), "the list has no whole number of members");
      }
    }
    const auto number = NumberOf(type);
    property.name = CleanText(words.Next());
    if (!number || property.name.empty() || header_.elements.empty()) {
      return Wrong(lines_.Place(), "the property has no type or name, or is of no element");
    }
    property.type = *number;
    header_.elements.back().properties.push_back(std::move(property));
  }

  /// What is there and not read, by name.
  void TellOfUnread(const Element& element) {
    const bool is_point = element.name == "vertex";
    const bool is_face = element.name == "face";
    const auto& all = element.properties;
    const auto has = [&](std::string_view name) {
      return std::any_of(all.begin(), all.end(), [&](const Property& p) { return p.name == name; });
    };
    has_sets_ = is_face ? has("qxdb_set") : has_sets_;
    has_colors_ = is_face ? has("red") && has("green") && has("blue") : has_colors_;
    if (is_point && element.count > 0 && !(has("x") && has("y") && has("z"))) {
      return Wrong("the header", "points have no x, y and z");
    }
    if (!is_point && !is_face) {
      return surface_.Report().Lost(fmt::format("elements '{}' were left out", element.name),
                                    element.count, "the header",
                                    "the model has points and faces of such a file");
    }
    for (const Property& property : all) {
      const std::string_view name = property.name;
      const bool is_read =
          is_point ? name == "x" || name == "y" || name == "z"
                   : IsCorners(property) || name == "qxdb_set" || (has_colors_ && IsColor(name));
      if (is_read) continue;
      surface_.Report().Lost(
          fmt::format("properties '{}' of {} were left out", name, is_point ? "points" : "faces"),
          element.count, "the header", "the model has no place for them");
    }
  }

  static bool IsCorners(const Property& property) {
    return property.count && (property.name == "vertex_indices" || property.name == "vertex_index");
  }
  static bool IsColor(std::string_view name) {
    return name == "red" || name == "green" || name == "blue";
  }

  // ---- rows ---------------------------------------------------------------------------------

  void ReadRow(const Element& element, std::uint64_t row, bool is_point, bool is_face) {
    const auto place = [&] {
      return header_.is_text ? lines_.Place() : fmt::format("{} {}", element.name, row + 1);
    };
    std::array<double, 3> at{};
    std::int32_t color = 0;
    std::int64_t set = 0;
    corners_.clear();
    bool is_sound = true;
    for (const Property& property : element.properties) {
      std::uint64_t count = 1;
      if (property.count) {
        const double members = Next(*property.count, place);
        if (is_over_) return;
        if (!(members >= 0 && members <= static_cast<double>(bytes_.size()))) {
          return Wrong(place(), fmt::format("a list cannot have {} members", members));
        }
        count = static_cast<std::uint64_t>(members);
      }
      for (std::uint64_t i = 0; i < count; ++i) {
        const double value = Next(property.type, place);
        if (is_over_) return;
        if (is_point && property.name.size() == 1) {
          const char axis = property.name[0];
          if (axis >= 'x' && axis <= 'z') at[static_cast<std::size_t>(axis - 'x')] = value;
        } else if (is_face && IsCorners(property)) {
          is_sound = is_sound && value >= 0 && value < static_cast<double>(points_) &&
                     value == std::floor(value);
          if (is_sound) corners_.push_back(static_cast<std::uint32_t>(value));
          if (!is_sound) {
            surface_.Fault(place(), fmt::format("there is no point {} of {}", value, points_));
            break;
          }
        } else if (is_face && IsColor(property.name)) {
          const double most = property.type >= Number::kFloat ? 255 : 1;
          const double scaled = std::isfinite(value) ? most * value : 0;
          const int part = static_cast<int>(std::clamp(scaled, 0.0, 255.0));
          color |= part << (property.name[0] == 'r' ? 0 : property.name[0] == 'g' ? 8 : 16);
        } else if (is_face && property.name == "qxdb_set") {
          set = std::isfinite(value) ? static_cast<std::int64_t>(std::clamp(value, 0.0, 1e9)) : 0;
        }
      }
      // After a faulty row in text the next one is read; of a binary file nothing more makes sense.
      if (!is_sound) {
        is_over_ = !header_.is_text;
        return;
      }
    }
    if (is_point) {
      if (!std::all_of(at.begin(), at.end(), [](double x) { return std::isfinite(x); })) {
        surface_.Fault(place(), "a coordinate is not a finite number", "correct the coordinate");
      }
      surface_.AddPoint(at);
    }
    if (is_face) AddFace(set, color);
  }

  void AddFace(std::int64_t set, std::int32_t color) {
    constexpr std::size_t kMostColors = 256;
    std::vector<std::size_t> groups;
    if (has_sets_) {
      if (set >= 1 && set <= static_cast<std::int64_t>(header_.sets.size())) {
        const auto& [name, of_set] = header_.sets[static_cast<std::size_t>(set) - 1];
        groups.push_back(surface_.GroupOf(name, of_set));
      }
    } else if (has_colors_) {
      if (colors_.contains(color) || colors_.size() < kMostColors) {
        auto [found, is_new] = colors_.try_emplace(color, 0);
        if (is_new) found->second = surface_.GroupOf(ColorName(color), color);
        groups.push_back(found->second);
      } else {
        surface_.Report().Lost("colours of faces", 1, fmt::format("face {}", surface_.Faces() + 1),
                               "more than 256 make no sets");
      }
    }
    surface_.AddFace(corners_, groups);
  }

  bool NextTextLine() {
    while (lines_.Next()) {
      words_ = Words(lines_.Line());
      if (!words_.Rest().empty()) return true;
    }
    return false;
  }

  template <class Place>
  double Next(Number type, const Place& place) {
    if (header_.is_text) {
      const std::string_view word = words_.Next();
      const auto number = WholeOf<double>(word);
      if (!number) {
        Wrong(place(), word.empty()
                           ? std::string("numbers are missing")
                           : fmt::format("'{}' is no number", CleanText(word.substr(0, 40))));
      }
      return number.value_or(0);
    }
    const std::size_t size = SizeOf(type);
    if (bytes_.size() - at_ < size) {
      Wrong(place(), "the file ends before it");
      return 0;
    }
    char raw[8];
    std::memcpy(raw, bytes_.data() + at_, size);
    at_ += size;
    if (header_.is_swapped) std::reverse(raw, raw + size);
    const auto as = [&]<class T>(T value) {
      std::memcpy(&value, raw, sizeof(T));
      return static_cast<double>(value);
    };
    switch (type) {
      case Number::kInt8:
        return as(std::int8_t{});
      case Number::kUint8:
        return as(std::uint8_t{});
      case Number::kInt16:
        return as(std::int16_t{});
      case Number::kUint16:
        return as(std::uint16_t{});
      case Number::kInt32:
        return as(std::int32_t{});
      case Number::kUint32:
        return as(std::uint32_t{});
      case Number::kFloat:
        return as(float{});
      default:
        return as(double{});
    }
  }

  std::string_view bytes_;
  SurfaceBuilder& surface_;
  TextLines lines_;
  Words words_{""};
  std::size_t at_ = 0;
  Header header_;
  std::uint64_t points_ = 0;
  bool has_sets_ = false;
  bool has_colors_ = false;
  bool is_over_ = false;
  std::vector<std::uint32_t> corners_;
  std::map<std::int32_t, std::size_t> colors_;
};

// ---- out ----------------------------------------------------------------------------------------

void WriteHeader(const SurfaceModel& surface, bool is_text, SurfaceSink& out) {
  static_assert(std::endian::native == std::endian::little);
  out.Add("ply\nformat {} 1.0\n{}\n", is_text ? "ascii" : "binary_little_endian", kOwnComment);
  for (const SurfaceModel::Set& set : surface.sets) {
    out.Add("comment {} {} {}\n", kSetComment, set.color, CleanText(set.name));
  }
  out.Add("element vertex {}\n", surface.points.size());
  for (const char axis : {'x', 'y', 'z'}) out.Add("property double {}\n", axis);
  out.Add("element face {}\nproperty list uchar int vertex_indices\n", surface.faces.size());
  if (!surface.sets.empty()) {
    for (const char* part : {"red", "green", "blue"}) out.Add("property uchar {}\n", part);
    out.Put("property int qxdb_set\n");
  }
  out.Put("end_header\n");
}

void WriteRows(const SurfaceModel& surface, bool is_text, SurfaceSink& out) {
  const auto number = [&](auto value, const char* after) {
    if (!is_text) return out.Bytes(value);
    if constexpr (sizeof(value) == 1) {
      out.Add("{}{}", static_cast<int>(value), after);
    } else {
      out.Add("{}{}", value, after);
    }
  };
  for (const auto& p : surface.points) {
    for (std::size_t d = 0; d < 3; ++d) number(p[d], d < 2 ? " " : "\n");
    out.Step();
  }
  constexpr std::uint32_t kNoColor = 0xC0C0C0;  // of faces in no set
  for (const SurfaceModel::Face& face : surface.faces) {
    const SurfaceModel::Set* set = surface.SetOf(face.element_class);
    number(face.corners, "");
    for (std::size_t i = 0; i < face.corners; ++i) {
      if (is_text) out.Put(" ");
      number(static_cast<std::int32_t>(face.points[i]), "");
    }
    if (!surface.sets.empty()) {
      const std::uint32_t color = set ? static_cast<std::uint32_t>(set->color) : kNoColor;
      if (is_text) out.Put(" ");
      for (const int shift : {0, 8, 16}) number(static_cast<std::uint8_t>(color >> shift), " ");
      number(set ? static_cast<std::int32_t>(set - surface.sets.data()) + 1 : 0, "");
    }
    if (is_text) out.Put("\n");
    out.Step();
  }
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  LossReport found;
  const auto surface = MakeSurface(session, path, "ply", options, found);
  if (!surface) return surface.AsOutcome();
  ReportFurtherSets(*surface, found);
  for (const SurfaceModel::Set& set : surface->sets) {
    if (Words(CleanText(set.name)).Rest() == set.name) continue;
    found.Changed("names of sets", 1, set.name, "a name is the rest of a line");
  }
  const bool is_text = ValueOf(options.values, kWriteOptions, "encoding") == "ascii";
  const Outcome written = WriteSurface(*surface, path, options, [&](SurfaceSink& out) {
    WriteHeader(*surface, is_text, out);
    WriteRows(*surface, is_text, out);
  });
  if (written) report.Append(found);
  return written;
}

}  // namespace

Result<Deck> ParsePly(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  SurfaceBuilder surface("ply", name, options, faults);
  if (LooksLike(bytes)) {
    PlyFile(bytes, surface).Read();
  } else {
    surface.Fault("line 1", "the file does not begin with 'ply'");
  }
  return surface.Finish();
}

Format PlyFormat() {
  Format format;
  format.name = "ply";
  format.title = "PLY surface (text, binary)";
  format.extensions = kExtensions;
  format.capabilities = capability::kSurface;
  format.looks_like = LooksLike;
  format.is_own = IsOwn;
  format.read = ReadSurface<ParsePly>;
  format.write = Write;
  format.read_options = SurfaceReadOptions();
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
