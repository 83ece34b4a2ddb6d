// STL: triangles, each with its own corners. Text knows them by the name of their solid, binary
// files by a colour of 15 bits, as most programs that write colours do.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

#include "qx_db/lib/math.h"

#include "exchange/surface/surface_builder.h"
#include "exchange/surface/surface_formats.h"
#include "exchange/surface/surface_sink.h"
#include "exchange/text_lines.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".stl"};
constexpr FormatOption kWriteOptions[] = {
    {"encoding", "binary, ascii", "binary with colours of sets, or text with their names"},
    kSurfaceSets,
};

constexpr std::size_t kHeader = 80;
constexpr std::size_t kFacet = 50;  ///< normal and corners of 4 bytes a number, attribute of 2
/// What ours are known by: the head of a binary file, the end of the name of a solid.
constexpr std::string_view kOwnHeader = "STL written by QX_db";
constexpr std::string_view kOwnMark = "; QX_db";

std::uint64_t CountOf(std::string_view bytes) {
  std::uint32_t count = 0;
  std::memcpy(&count, bytes.data() + kHeader, sizeof(count));
  return count;
}

bool HasSizeOfBinary(std::string_view bytes) {
  return bytes.size() >= kHeader + 4 && bytes.size() == kHeader + 4 + kFacet * CountOf(bytes);
}

std::string_view WithoutBlanks(std::string_view head) {
  head.remove_prefix(std::min(head.find_first_not_of(" \t\r\n"), head.size()));
  return head;
}

bool IsText(std::string_view head) {
  // The head of a binary file may say anything; the number of its triangles is no text.
  if (head.substr(0, kHeader + 4).find('\0') != head.npos) return false;
  head = WithoutBlanks(head);
  const std::string start = AsciiUpper(head.substr(0, 4096));
  return start.starts_with("SOLID") &&
         (start.find("FACET") != start.npos || start.find("ENDSOLID") != start.npos);
}

bool LooksLike(std::string_view head) {
  return head.starts_with(kOwnHeader) || HasSizeOfBinary(head) || IsText(head);
}

/// A binary file tells by its size only, which a head of a large one has not, and which may be
/// wrong.
bool MayBe(std::string_view head) {
  return std::any_of(head.begin(), head.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 9; });
}

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  if (!head || !LooksLike(*head)) return false;
  const std::string_view line = std::string_view(*head).substr(0, head->find('\n'));
  return head->starts_with(kOwnHeader) || (line.starts_with("solid") && line.ends_with(kOwnMark));
}

// ---- in -----------------------------------------------------------------------------------------

/// Colours of facets: 5 bits each of red, green and blue, and one that says whether they count. Of
/// two conventions the one that has a colour of the whole in the header is the other way round.
class FacetColors {
 public:
  explicit FacetColors(std::string_view header)
      : is_reversed_(header.find("COLOR=") != std::string_view::npos) {}

  /// 0x00BBGGRR; Group::kNone where the facet has none of its own.
  std::int32_t Of(std::uint16_t attribute) const {
    if (((attribute & 0x8000) != 0) == is_reversed_) return Mesh::Group::kNone;
    const auto part = [&](int shift) {
      const int five = attribute >> shift & 31;
      return five << 3 | five >> 2;
    };
    const int low = part(0), green = part(5), high = part(10);
    return is_reversed_ ? high << 16 | green << 8 | low : low << 16 | green << 8 | high;
  }

 private:
  bool is_reversed_;
};

void ReadBinary(std::string_view bytes, SurfaceBuilder& surface) {
  if (!HasSizeOfBinary(bytes)) {
    if (bytes.size() < kHeader + 4) return surface.Fault("", "the file ends amid its header");
    return surface.Fault("",
                         fmt::format("{} triangles take {} bytes, the file has {}", CountOf(bytes),
                                     kHeader + 4 + kFacet * CountOf(bytes), bytes.size()));
  }
  const std::uint64_t count = CountOf(bytes);
  const FacetColors colors(bytes.substr(0, kHeader));
  surface.Reserve(3 * count, count);
  // Attributes are often something else: they are colours where they are few.
  constexpr std::size_t kMostColors = 256;
  std::map<std::int32_t, std::size_t> groups;
  std::uint64_t others = 0;
  std::uint64_t first_other = 0;
  for (std::uint64_t f = 0; f < count && surface.Ok(); ++f) {
    const char* at = bytes.data() + kHeader + 4 + kFacet * f;
    float numbers[12];
    std::uint16_t attribute = 0;
    std::memcpy(numbers, at, sizeof(numbers));
    std::memcpy(&attribute, at + sizeof(numbers), sizeof(attribute));
    std::uint32_t corners[3];
    for (std::size_t c = 0; c < 3; ++c) {
      const float* p = numbers + 3 + 3 * c;
      if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2])) {
        surface.Fault(fmt::format("triangle {}", f + 1), "a coordinate is not a finite number",
                      "correct the coordinate");
      }
      corners[c] = surface.AddPoint({p[0], p[1], p[2]});
    }
    const std::int32_t color = colors.Of(attribute);
    if (color == Mesh::Group::kNone) {
      if (attribute != 0 && others++ == 0) first_other = f + 1;
      surface.AddFace(corners, {});
    } else if (groups.contains(color) || groups.size() < kMostColors) {
      auto [group, is_new] = groups.try_emplace(color, 0);
      if (is_new) group->second = surface.GroupOf(ColorName(color), color);
      surface.AddFace(corners, std::span(&group->second, 1));
    } else {
      if (others++ == 0) first_other = f + 1;
      surface.AddFace(corners, {});
    }
    if (f % 65536 == 0) surface.Tell(static_cast<double>(f) / static_cast<double>(count));
  }
  surface.Report().Lost("attributes of triangles that are no colours", others,
                        fmt::format("triangle {}", first_other),
                        "it is not known what they mean, or there are too many");
}

/// The text's keywords, line by line, whatever their case.
class StlText {
 public:
  StlText(std::string_view text, SurfaceBuilder& surface) : lines_(text), surface_(surface) {}

  void Read() {
    while (lines_.Next() && surface_.Ok()) {
      Words words(lines_.Line());
      const std::string word = AsciiUpper(words.Next());
      if (word.empty()) continue;
      if (word == "VERTEX") {
        AddCorner(words);
      } else if (word == "ENDFACET") {
        EndFacet();
      } else if (word == "SOLID") {
        BeginSolid(words.Rest());
      } else if (word == "FACET") {
        if (is_in_facet_) Wrong("a facet begins before the last one ends");
        if (!is_in_solid_) Wrong("a facet stands outside of a solid");
        is_in_facet_ = is_in_solid_ = true;
        corners_.clear();
      } else if (word == "ENDSOLID") {
        if (is_in_facet_) Wrong("the solid ends amid a facet");
        is_in_solid_ = is_in_facet_ = false;
      } else if (word != "OUTER" && word != "ENDLOOP") {
        Wrong(fmt::format("'{}' is no word of such a file", CleanText(word.substr(0, 40))));
      }
      if (surface_.Faces() % 16384 == 0) surface_.Tell(lines_.Done());
    }
    if (is_in_solid_) Wrong("the file ends before the solid does");
  }

 private:
  void Wrong(std::string what) { surface_.Fault(lines_.Place(), std::move(what)); }

  void BeginSolid(std::string_view name) {
    if (is_in_solid_) Wrong("a solid begins before the last one ends");
    is_in_solid_ = true;
    if (name.ends_with(kOwnMark)) {
      name.remove_suffix(kOwnMark.size());
      name = Words(name).Rest();
    }
    groups_.clear();
    if (!name.empty()) groups_.push_back(surface_.GroupOf(name));
  }

  void AddCorner(Words& words) {
    std::array<double, 3> at{};
    for (double& x : at) {
      const std::string_view word = words.Next();
      const auto number = RealOf(word);
      if (!number) {
        return Wrong(fmt::format("'{}' is no coordinate", CleanText(word.substr(0, 40))));
      }
      x = *number;
    }
    if (!is_in_facet_) return Wrong("a corner stands outside of a facet");
    corners_.push_back(surface_.AddPoint(at));
  }

  void EndFacet() {
    if (!is_in_facet_) return Wrong("a facet ends that has not begun");
    is_in_facet_ = false;
    if (corners_.size() != 3) {
      return Wrong(fmt::format("the facet has {} corners instead of 3", corners_.size()));
    }
    surface_.AddFace(corners_, groups_);
  }

  TextLines lines_;
  SurfaceBuilder& surface_;
  bool is_in_solid_ = false;
  bool is_in_facet_ = false;
  std::vector<std::uint32_t> corners_;
  std::vector<std::size_t> groups_;  // of the solid: its own, or none
};

// ---- out ----------------------------------------------------------------------------------------

std::array<double, 3> NormalOf(const SurfaceModel& surface,
                               const std::array<std::uint32_t, 3>& corners) {
  const auto at = [&](std::size_t i) {
    const std::array<double, 3>& p = surface.points[corners[i]];
    return Vector3{p[0], p[1], p[2]};
  };
  const Vector3 normal = Cross(at(1) - at(0), at(2) - at(0));
  const double length = std::sqrt(Dot(normal, normal));
  if (!(length > 0) || !std::isfinite(length)) return {0, 0, 0};
  return {normal.x / length, normal.y / length, normal.z / length};
}

std::uint16_t AttributeOf(const SurfaceModel::Set* set) {
  if (!set) return 0;
  const auto color = static_cast<std::uint32_t>(set->color);
  const std::uint32_t red = color >> 3 & 31, green = color >> 11 & 31, blue = color >> 19 & 31;
  return static_cast<std::uint16_t>(0x8000 | red << 10 | green << 5 | blue);
}

void WriteBinary(const SurfaceModel& surface, std::uint32_t triangles, SurfaceSink& out) {
  out.Put(fmt::format("{:<{}}", kOwnHeader, kHeader));
  out.Bytes(triangles);
  for (const SurfaceModel::Face& face : surface.faces) {
    const std::uint16_t attribute = AttributeOf(surface.SetOf(face.element_class));
    ForEachTriangle(face, [&](const std::array<std::uint32_t, 3>& corners) {
      for (const double x : NormalOf(surface, corners)) out.Bytes(static_cast<float>(x));
      for (const std::uint32_t corner : corners) {
        for (const double x : surface.points[corner]) out.Bytes(static_cast<float>(x));
      }
      out.Bytes(attribute);
    });
    out.Step();
  }
}

/// A solid for each set, with the faces that are in none before them.
void WriteText(const SurfaceModel& surface, SurfaceSink& out) {
  std::vector<const SurfaceModel::Face*> faces;
  for (const SurfaceModel::Face& face : surface.faces) faces.push_back(&face);
  const auto set_of = [&](const SurfaceModel::Face* face) {
    return surface.SetOf(face->element_class);
  };
  std::stable_sort(faces.begin(), faces.end(), [&](const auto* a, const auto* b) {
    return std::less<>()(set_of(a), set_of(b));  // null, then in the order of the sets
  });
  const auto name_of = [&](const SurfaceModel::Face* face) {
    const SurfaceModel::Set* set = set_of(face);
    return set ? CleanText(set->name) : std::string();
  };
  for (std::size_t f = 0; f < faces.size(); ++f) {
    if (f == 0 || set_of(faces[f]) != set_of(faces[f - 1])) {
      if (f > 0) out.Add("endsolid {}\n", name_of(faces[f - 1]));
      out.Add("solid {} {}\n", name_of(faces[f]), kOwnMark);
    }
    ForEachTriangle(*faces[f], [&](const std::array<std::uint32_t, 3>& corners) {
      const auto normal = NormalOf(surface, corners);
      out.Add(" facet normal {} {} {}\n  outer loop\n", normal[0], normal[1], normal[2]);
      for (const std::uint32_t corner : corners) {
        const auto& p = surface.points[corner];
        out.Add("   vertex {} {} {}\n", p[0], p[1], p[2]);
      }
      out.Put("  endloop\n endfacet\n");
    });
    out.Step();
  }
  out.Add("endsolid {}\n", name_of(faces.back()));
}

/// Tells of what numbers of four bytes do not say, and of names.
void ReportBinary(const SurfaceModel& surface, LossReport& report) {
  std::uint64_t count = 0;
  std::size_t first = 0;
  for (std::size_t i = 0; i < surface.points.size(); ++i) {
    const auto& p = surface.points[i];
    const bool is_same = std::all_of(p.begin(), p.end(), [](double x) {
      return std::abs(x - static_cast<float>(x)) <= 1e-12 * std::abs(x);
    });
    if (!is_same && count++ == 0) first = i;
  }
  const auto& p = surface.points[first];
  report.Changed("coordinates were rounded to seven digits", count,
                 fmt::format("at {}, {}, {}", p[0], p[1], p[2]),
                 "numbers of a binary file have four bytes; text has them whole");
  for (const SurfaceModel::Set& set : surface.sets) {
    if (set.name == ColorName(set.color)) continue;
    report.Lost("names of sets, of which colours of 15 bits are left", 1, set.name,
                "a binary file has no names; text has them, and no colours");
  }
}

void ReportText(const SurfaceModel& surface, LossReport& report) {
  for (const SurfaceModel::Set& set : surface.sets) {
    if (!set.name.empty() && Words(CleanText(set.name)).Rest() == set.name) continue;
    report.Changed("names of sets", 1, set.name, "a name is the rest of a line");
  }
  report.Lost("colours of sets", surface.sets.size(),
              surface.sets.empty() ? "" : surface.sets[0].name,
              "text has no colours; a binary file has them, and no names");
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  LossReport found;
  const auto surface = MakeSurface(session, path, "stl", options, found);
  if (!surface) return surface.AsOutcome();
  std::uint64_t triangles = 0;
  for (const SurfaceModel::Face& face : surface->faces) triangles += face.corners - 2u;
  const bool is_text = ValueOf(options.values, kWriteOptions, "encoding") == "ascii";
  if (!is_text && triangles > 0xFFFFFFFFu) {
    return Failure{path, "", "the model has too many faces", "write it in parts, or as text"};
  }
  ReportFurtherSets(*surface, found);
  ReportDivided(*surface, found);
  if (is_text) {
    ReportText(*surface, found);
  } else {
    ReportBinary(*surface, found);
    for (const auto& p : surface->points) {
      if (std::all_of(p.begin(), p.end(), [](double x) { return std::abs(x) < 3.4e38; })) continue;
      return Failure{path, "", "a coordinate is too large for a binary file", "write it as text"};
    }
  }
  const Outcome written = WriteSurface(*surface, path, options, [&](SurfaceSink& out) {
    if (is_text) {
      WriteText(*surface, out);
    } else {
      WriteBinary(*surface, static_cast<std::uint32_t>(triangles), out);
    }
  });
  if (written) report.Append(found);
  return written;
}

}  // namespace

Result<Deck> ParseStl(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  SurfaceBuilder surface("stl", name, options, faults);
  if (!HasSizeOfBinary(bytes) && IsText(bytes.substr(0, 65536))) {
    StlText(bytes, surface).Read();
  } else {
    ReadBinary(bytes, surface);
  }
  return surface.Finish();
}

Format StlFormat() {
  Format format;
  format.name = "stl";
  format.title = "STL surface (text, binary)";
  format.extensions = kExtensions;
  format.capabilities = capability::kSurface;
  format.looks_like = LooksLike;
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadSurface<ParseStl>;
  format.write = Write;
  format.read_options = SurfaceReadOptions();
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
