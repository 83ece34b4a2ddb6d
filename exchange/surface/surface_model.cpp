#include "exchange/surface/surface_model.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "qx_db/mesh/mesh_surface.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/element_types.h"

#include "exchange/group_classes.h"
#include "exchange/surface/surface_sink.h"
#include "exchange/text_lines.h"

namespace qx::exchange {
namespace {

using Face = SurfaceModel::Face;

/// Corners of a face of 6 or 8 nodes as faces of its own nodes: corners first, then those between.
constexpr std::array<std::array<std::int8_t, 4>, 4> kOfSix = {
    {{0, 3, 5, -1}, {3, 1, 4, -1}, {5, 4, 2, -1}, {3, 4, 5, -1}}};
constexpr std::array<std::array<std::int8_t, 4>, 5> kOfEight = {
    {{0, 4, 7, -1}, {4, 1, 5, -1}, {5, 2, 6, -1}, {6, 3, 7, -1}, {4, 5, 6, 7}}};

/// The groups that an option names, as their places; none where one is not there.
std::optional<std::vector<std::size_t>> Chosen(const Deck& deck, std::string_view names,
                                               std::string& unknown) {
  std::vector<std::size_t> chosen;
  const auto take = [&](std::string_view name) {
    const auto number = WholeOf<Key>(name);
    bool is_found = false;
    for (std::size_t g = 0; g < deck.groups.size(); ++g) {
      if (deck.groups[g].name != name && deck.groups[g].key != number) continue;
      chosen.push_back(g);
      is_found = true;
    }
    return is_found;
  };
  if (take(names)) return chosen;
  while (!names.empty()) {
    const std::size_t end = std::min(names.find(','), names.size());
    unknown = names.substr(0, end);
    if (!take(names.substr(0, end))) return std::nullopt;
    names.remove_prefix(std::min(end + 1, names.size()));
  }
  return chosen;
}

/// A deck of some elements of another, with their nodes.
Deck PartOf(const Deck& deck, const std::unordered_set<Key>& elements) {
  Deck part;
  std::unordered_set<Key> nodes;
  for (std::size_t e = 0; e < deck.elements.size(); ++e) {
    if (!elements.contains(deck.elements[e].key)) continue;
    Mesh::Element element = deck.elements[e];
    const auto first = deck.connectivity.begin() + static_cast<std::ptrdiff_t>(element.first);
    const auto last = first + static_cast<std::ptrdiff_t>(deck.NodesOf(e));
    element.first = part.connectivity.size();
    element.property = 0;
    part.elements.push_back(element);
    part.connectivity.insert(part.connectivity.end(), first, last);
    nodes.insert(first, last);
  }
  for (std::size_t n = 0; n < deck.node_keys.size(); ++n) {
    if (!nodes.contains(deck.node_keys[n])) continue;
    part.node_keys.push_back(deck.node_keys[n]);
    part.coordinates.insert(part.coordinates.end(), &deck.coordinates[3 * n],
                            &deck.coordinates[3 * n] + 3);
  }
  return part;
}

class SurfaceMaker {
 public:
  SurfaceMaker(const CQXDBSession& session, std::string_view format, LossReport& report)
      : session_(session), format_(format), report_(report) {}

  Result<SurfaceModel> Make(const std::string& path, std::string_view sets,
                            const Progress& progress) {
    deck_ = DeckOf(session_, ShareOf(progress, 0, 0.3));
    report_.Append(deck_.report);
    groups_.resize(deck_.groups.size());
    std::iota(groups_.begin(), groups_.end(), std::size_t{0});
    CQXDBSession part(AddStandardPools);
    const bool is_whole = sets == kSurfaceSets.values;
    if (!is_whole) {
      std::string unknown;
      const auto chosen = Chosen(deck_, sets, unknown);
      if (!chosen) {
        return Failure{path, "", fmt::format("the model has no set '{}'", unknown),
                       "name its sets, or their numbers, with commas, or say sets=all"};
      }
      groups_ = *chosen;
      for (const std::size_t g : groups_) {
        wanted_.insert(deck_.groups[g].elements.begin(), deck_.groups[g].elements.end());
      }
      part.Units().SetModel(session_.Units().Current());
      part.Units().SetCurrent(session_.Units().Current());
      LossReport ignored;
      if (Outcome made = AddDeck(part, PartOf(deck_, wanted_), path, ignored); !made) {
        return made.Error();
      }
    }
    FindClasses();
    if (progress) progress(0.4);
    const DenseMesh mesh(is_whole ? session_ : part);
    AddFaces(mesh, SurfaceOf(mesh));
    if (progress) progress(0.6);
    if (model_.faces.empty()) {
      return Failure{path, "", "there is no face to be written",
                     "name sets of solids or surface elements, or write another format"};
    }
    SortByClass();
    TellOfTheRest(is_whole);
    return std::move(model_);
  }

 private:
  /// Classes of elements that are in the same sets.
  void FindClasses() {
    std::unordered_map<Key, std::uint32_t> place;
    for (const Mesh::Element& element : deck_.elements) {
      place.emplace(element.key, static_cast<std::uint32_t>(place.size()));
    }
    ElementClasses classes(place.size());
    std::vector<std::uint32_t> members;
    for (const std::size_t g : groups_) {
      members.clear();
      for (const Key key : deck_.groups[g].elements) members.push_back(place.at(key));
      classes.AddGroup(members);
    }
    for (const auto& [key, at] : place) class_of_[key] = classes.ClassOf(at);
    for (std::uint32_t c = 0; c < classes.Count(); ++c) {
      model_.classes.push_back(classes.GroupsOf(c));
    }
  }

  void AddFaces(const DenseMesh& mesh, const MeshSurface& surface) {
    const double unit = mesh.Session().Units().GetConvertFactorCurrent(unit::kLength);
    std::vector<std::uint32_t> point_of(mesh.NodeCount(), 0);
    for (const FaceList& list : surface.faces) {
      for (const std::uint32_t node : list.nodes) point_of[node] = 1;
    }
    for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
      off_ += point_of[n] == 0;
      if (point_of[n] == 0) {
        if (off_ == 1) first_off_ = mesh.NodeKey(n);
        continue;
      }
      point_of[n] = static_cast<std::uint32_t>(model_.points.size());
      const Point3& at = mesh.Position(n);
      model_.points.push_back({at.x / unit, at.y / unit, at.z / unit});
    }
    for (const FaceList& list : surface.faces) {
      for (std::size_t f = 0; f < list.Count(); ++f) {
        const std::uint32_t* nodes = &list.nodes[f * list.nodes_per_face];
        const Key element = mesh.Element(list.elements[f]).key;
        const std::uint32_t of_element = class_of_.at(element);
        const auto add = [&](const std::array<std::int8_t, 4>& corners) {
          Face face{{}, static_cast<std::uint8_t>(corners[3] < 0 ? 3 : 4), of_element};
          for (std::size_t i = 0; i < face.corners; ++i) {
            face.points[i] = point_of[nodes[static_cast<std::size_t>(corners[i])]];
          }
          model_.faces.push_back(face);
        };
        if (list.nodes_per_face <= 4) {
          add({0, 1, 2, static_cast<std::int8_t>(list.nodes_per_face == 4 ? 3 : -1)});
          continue;
        }
        if (divided_++ == 0) first_divided_ = element;
        if (list.nodes_per_face == 6) std::for_each(kOfSix.begin(), kOfSix.end(), add);
        if (list.nodes_per_face == 8) std::for_each(kOfEight.begin(), kOfEight.end(), add);
      }
    }
  }

  /// Faces of one class together, in the order in which classes come first, and only sets that have
  /// faces.
  void SortByClass() {
    constexpr std::uint32_t kUnseen = ~0u;
    std::vector<std::uint32_t> rank(model_.classes.size(), kUnseen);
    std::vector<std::vector<std::uint32_t>> classes{{}};
    rank[0] = 0;  // those in no set
    for (const Face& face : model_.faces) {
      if (rank[face.element_class] != kUnseen) continue;
      rank[face.element_class] = static_cast<std::uint32_t>(classes.size());
      classes.push_back(model_.classes[face.element_class]);
    }
    std::vector<std::uint64_t> faces(groups_.size());
    for (Face& face : model_.faces) {
      face.element_class = rank[face.element_class];
      for (const std::uint32_t g : classes[face.element_class]) ++faces[g];
    }
    std::stable_sort(model_.faces.begin(), model_.faces.end(), [](const Face& a, const Face& b) {
      return a.element_class < b.element_class;
    });
    std::vector<std::uint32_t> set_of(groups_.size());
    for (std::size_t g = 0; g < groups_.size(); ++g) {
      const Mesh::Group& group = deck_.groups[groups_[g]];
      set_of[g] = static_cast<std::uint32_t>(model_.sets.size());
      if (faces[g] > 0) model_.sets.push_back({group.name, group.color, faces[g]});
      if (faces[g] > 0) continue;
      report_.Lost("sets without faces on the surface were left out", 1, group.name,
                   "a file of a surface has faces only");
    }
    for (std::vector<std::uint32_t>& sets : classes) {
      for (std::uint32_t& set : sets) set = set_of[set];
    }
    model_.classes = std::move(classes);
  }

  void TellOfTheRest(bool is_whole) {
    constexpr const char* kWhy = "a file of a surface has faces only";
    UnwrittenElements others;
    std::uint64_t solids = 0, with_property = 0, unchosen = 0;
    Key first_solid = 0, first_with_property = 0, first_unchosen = 0;
    for (const Mesh::Element& element : deck_.elements) {
      if (!is_whole && !wanted_.contains(element.key)) {
        if (unchosen++ == 0) first_unchosen = element.key;
        continue;
      }
      const ElementType* type = FindElementType(element.type);
      if (!type || type->dimension < 2) others.Add(element.type, element.key);
      if (type && type->dimension == 3 && solids++ == 0) first_solid = element.key;
      if (element.property != 0 && with_property++ == 0) first_with_property = element.key;
    }
    others.Report(report_);
    const auto at = [](Key key) { return fmt::format("element {}", key); };
    report_.Lost("elements that are in none of the sets were left out", unchosen,
                 at(first_unchosen), "the sets to be written were named");
    report_.Changed("solids became their free faces", solids, at(first_solid), kWhy);
    report_.Changed("quadratic faces were divided at their nodes", divided_, at(first_divided_),
                    "faces have corners only");
    report_.Lost("nodes that are not on the surface were left out", off_,
                 fmt::format("node {}", first_off_), kWhy);
    report_.Lost("elements were written without their property", with_property,
                 at(first_with_property), "the format has no place for it");
    report_.Lost("numbers of elements and nodes", deck_.elements.size(),
                 deck_.elements.empty() ? "" : at(deck_.elements[0].key),
                 "the format numbers what it has by its place");
    for (const std::size_t g : groups_) {
      const Mesh::Group& group = deck_.groups[g];
      if (!group.nodes.empty()) {
        report_.Lost("nodes of sets", group.nodes.size(), group.name, kWhy);
      }
      if (group.parent != Mesh::Group::kNone) {
        report_.Lost("places of sets in others", 1, group.name, "the format has no hierarchy");
      }
    }
    constexpr std::uint16_t kWritten[] = {code::kNode, code::kElem, code::kMset};
    ReportUnwritten(session_, format_, kWritten, report_);
  }

  const CQXDBSession& session_;
  std::string_view format_;
  LossReport& report_;
  Deck deck_;
  std::vector<std::size_t> groups_;  // of the deck, that are written
  std::unordered_set<Key> wanted_;
  std::unordered_map<Key, std::uint32_t> class_of_;  // of elements
  SurfaceModel model_;
  std::uint64_t off_ = 0;
  Key first_off_ = 0;
  std::uint64_t divided_ = 0;
  Key first_divided_ = 0;
};

}  // namespace

const SurfaceModel::Set* SurfaceModel::SetOf(std::uint32_t element_class) const {
  const Set* least = nullptr;
  for (const std::uint32_t set : classes[element_class]) {
    if (!least || sets[set].faces < least->faces) least = &sets[set];
  }
  return least;
}

Result<SurfaceModel> MakeSurface(const CQXDBSession& session, const std::string& path,
                                 std::string_view format, const WriteOptions& options,
                                 LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits.Error();
  const FormatOption known[] = {kSurfaceSets};
  return SurfaceMaker(session, format, report)
      .Make(path, ValueOf(options.values, known, "sets"), options.progress);
}

void ReportFurtherSets(const SurfaceModel& surface, LossReport& report) {
  for (const SurfaceModel::Face& face : surface.faces) {
    const std::size_t sets = surface.classes[face.element_class].size();
    if (sets < 2) continue;
    report.Lost("further sets of faces", sets - 1,
                surface.sets[surface.classes[face.element_class][0]].name,
                "a face of the format is in one; it is written in the smallest");
  }
}

void ReportDivided(const SurfaceModel& surface, LossReport& report) {
  std::uint64_t count = 0;
  std::size_t first = 0;
  for (std::size_t f = 0; f < surface.faces.size(); ++f) {
    if (surface.faces[f].corners == 4 && count++ == 0) first = f + 1;
  }
  report.Changed("quadrilaterals were divided into triangles", count, fmt::format("face {}", first),
                 "the format has triangles only");
}

Outcome WriteSurface(const SurfaceModel& surface, const std::string& path,
                     const WriteOptions& options, const std::function<void(SurfaceSink&)>& write) {
  const Outcome written = WriteFileBy(path, [&](std::ostream& out) {
    SurfaceSink sink(out, surface.points.size() + surface.faces.size(), options.progress);
    write(sink);
  });
  if (written && options.progress) options.progress(1);
  return written;
}

}  // namespace qx::exchange
