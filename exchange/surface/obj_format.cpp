// OBJ: points, faces of any number of corners, and the groups that they are in. Objects are groups
// as well; materials, normals and whatever else is for drawing is told as left out.

#include <algorithm>
#include <fmt/format.h>
#include <set>

#include "exchange/surface/surface_builder.h"
#include "exchange/surface/surface_formats.h"
#include "exchange/surface/surface_sink.h"
#include "exchange/text_lines.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".obj"};
constexpr FormatOption kWriteOptions[] = {kSurfaceSets};
constexpr std::string_view kOwnLine = "# OBJ written by QX_db";

/// Every line begins with a keyword of the format; one of them is a point of three numbers.
bool LooksLike(std::string_view head) {
  constexpr std::string_view kWords[] = {"v",      "vn",     "vt", "vp", "f",      "l",
                                         "p",      "g",      "o",  "s",  "usemtl", "mtllib",
                                         "usemap", "maplib", "mg", "end"};
  if (head.starts_with(kOwnLine)) return true;
  bool has_point = false;
  bool is_continued = false;
  TextLines lines(head);
  while (lines.Next()) {
    Words words(lines.Line());
    const std::string_view word = words.Next();
    const bool was_continued = is_continued;
    is_continued = lines.Line().ends_with('\\');
    if (word.empty() || word[0] == '#' || was_continued) continue;
    if (lines.At() == head.size() && !head.ends_with('\n')) break;  // it may be cut
    if (std::find(std::begin(kWords), std::end(kWords), word) == std::end(kWords)) return false;
    if (word != "v") continue;
    for (int i = 0; i < 3; ++i) {
      if (!RealOf(words.Next())) return false;
    }
    has_point = true;
  }
  return has_point;
}

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && head->starts_with(kOwnLine);
}

// ---- in -----------------------------------------------------------------------------------------

class ObjText {
 public:
  ObjText(std::string_view text, SurfaceBuilder& surface) : lines_(text), surface_(surface) {}

  void Read() {
    std::size_t count = 0;
    while (lines_.Next() && surface_.Ok()) {
      std::string_view line = lines_.Line();
      std::string whole;  // of a line that goes on in the next one
      while (line.ends_with('\\')) {
        whole.append(line.substr(0, line.size() - 1)) += ' ';
        line = lines_.Next() ? lines_.Line() : std::string_view();
        if (!line.ends_with('\\')) whole.append(line);
      }
      ReadLine(Words(whole.empty() ? line : std::string_view(whole)));
      if (++count % 16384 == 0) surface_.Tell(lines_.Done());
    }
  }

 private:
  void Wrong(std::string what) { surface_.Fault(lines_.Place(), std::move(what)); }

  void ReadLine(Words words) {
    const std::string_view keyword = words.Next();
    if (keyword.empty() || keyword[0] == '#') return;
    if (keyword == "v") {
      AddPoint(words);
    } else if (keyword == "f" || keyword == "fo") {
      AddFace(words);
    } else if (keyword == "g") {
      groups_.clear();
      for (std::string_view name = words.Next(); !name.empty(); name = words.Next()) {
        if (name != "default") groups_.push_back(surface_.GroupOf(name));
      }
    } else if (keyword == "o") {
      object_.clear();
      if (!words.Rest().empty()) object_.push_back(surface_.GroupOf(words.Rest()));
    } else {
      const std::string word = CleanText(keyword.substr(0, 40));
      surface_.Report().Lost(fmt::format("lines '{}' were left out", word), 1, lines_.Place(),
                             "the model has nodes, elements and sets");
    }
  }

  void AddPoint(Words& words) {
    std::array<double, 3> at{};
    for (double& x : at) {
      const std::string_view word = words.Next();
      const auto number = RealOf(word);
      if (!number) {
        return Wrong(fmt::format("'{}' is no coordinate", CleanText(word.substr(0, 40))));
      }
      x = *number;
    }
    surface_.AddPoint(at);
    const std::string_view more = words.Next();
    if (!more.empty() && RealOf(more) != 1.0) {
      surface_.Report().Lost("colours and weights of points", 1, lines_.Place(), "nodes have none");
    }
  }

  void AddFace(Words& words) {
    corners_.clear();
    const auto points = static_cast<std::int64_t>(surface_.Points());
    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) {
      const auto number = WholeOf<std::int64_t>(word.substr(0, word.find('/')));
      const std::int64_t at = !number ? -1 : *number < 0 ? points + *number : *number - 1;
      if (at < 0 || at >= points) {
        return Wrong(fmt::format("'{}' is none of the {} points before it",
                                 CleanText(word.substr(0, 40)), points));
      }
      corners_.push_back(static_cast<std::uint32_t>(at));
    }
    std::vector<std::size_t> all = groups_;
    all.insert(all.end(), object_.begin(), object_.end());
    surface_.AddFace(corners_, all);
  }

  TextLines lines_;
  SurfaceBuilder& surface_;
  std::vector<std::uint32_t> corners_;
  std::vector<std::size_t> groups_;
  std::vector<std::size_t> object_;  ///< or none
};

// ---- out ----------------------------------------------------------------------------------------

/// Names of sets as words of a line, no two the same; tells of those that changed.
std::vector<std::string> NamesOf(const SurfaceModel& surface, LossReport& report) {
  std::vector<std::string> names;
  std::set<std::string> used{"default"};
  for (const SurfaceModel::Set& set : surface.sets) {
    std::string name = CleanText(set.name);
    std::replace(name.begin(), name.end(), ' ', '_');
    if (name.empty()) name = "set";
    if (name.ends_with('\\')) name += '_';
    const std::string base = name;
    for (int i = 2; !used.insert(name).second; ++i) name = fmt::format("{}_{}", base, i);
    if (name != set.name) {
      report.Changed("names of sets", 1, set.name,
                     "a name is one word, and one set's: blanks become '_'");
    }
    names.push_back(std::move(name));
  }
  return names;
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  LossReport found;
  const auto surface = MakeSurface(session, path, "obj", options, found);
  if (!surface) return surface.AsOutcome();
  const std::vector<std::string> names = NamesOf(*surface, found);
  found.Lost("colours of sets", names.size(), names.empty() ? "" : surface->sets[0].name,
             "the format has them in a file beside it");
  const Outcome written = WriteSurface(*surface, path, options, [&](SurfaceSink& out) {
    out.Add("{}\n", kOwnLine);
    for (const auto& p : surface->points) {
      out.Add("v {} {} {}\n", p[0], p[1], p[2]);
      out.Step();
    }
    std::uint32_t now = 0;  // faces in no group come first
    for (const SurfaceModel::Face& face : surface->faces) {
      if (face.element_class != now) {
        now = face.element_class;
        out.Put("g");
        for (const std::uint32_t set : surface->classes[now]) out.Add(" {}", names[set]);
        out.Put("\n");
      }
      out.Put("f");
      for (std::size_t i = 0; i < face.corners; ++i) out.Add(" {}", face.points[i] + 1);
      out.Put("\n");
      out.Step();
    }
  });
  if (written) report.Append(found);
  return written;
}

}  // namespace

Result<Deck> ParseObj(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  SurfaceBuilder surface("obj", name, options, faults);
  ObjText(bytes, surface).Read();
  return surface.Finish();
}

Format ObjFormat() {
  Format format;
  format.name = "obj";
  format.title = "OBJ surface";
  format.extensions = kExtensions;
  format.capabilities = capability::kSurface;
  format.looks_like = LooksLike;
  format.is_own = IsOwn;
  format.read = ReadSurface<ParseObj>;
  format.write = Write;
  format.read_options = SurfaceReadOptions();
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
