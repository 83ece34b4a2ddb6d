#include "exchange/med/med_reader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/hdf5/h5_apart.h"
#include "exchange/hdf5/h5_deck_reader.h"
#include "exchange/key_set.h"
#include "exchange/med/med_fields.h"
#include "exchange/med/med_kinds.h"
#include "exchange/room.h"

namespace qx::exchange {
namespace {

/// Texts of a group's name take so many bytes.

class MedReader : H5DeckReader {
 public:
  MedReader(H5Reader& in, const std::string& name, const ReadOptions& options,
            std::vector<Failure>& faults)
      : H5DeckReader(in, name, options, faults) {}

  /// The deck, unless something was added to the faults.
  std::optional<Deck> Read() {
    deck_.format = "med";
    Tell(0.02);
    if (const auto major = in_.IntegerAttribute("/INFOS_GENERALES", "MAJ"); major && *major < 3) {
      faults_.push_back(
          {name_, "",
           fmt::format("is a MED file of version {}.{}: those from 3.0 on are read", *major,
                       in_.IntegerAttribute("/INFOS_GENERALES", "MIN").value_or(0)),
           "convert it to a later version"});
      return std::nullopt;
    }
    const std::vector<std::string> meshes = in_.Children("/ENS_MAA");
    if (meshes.empty()) {
      Fault("ENS_MAA", "there is no mesh");
    } else {
      ReadMesh(meshes[0]);
      deck_.report.Lost("further meshes were left out", meshes.size() - 1,
                        meshes.size() > 1 ? TrimmedMed(meshes[1]) : "", "a model has one mesh");
      KeepError();
      if (!HasFaults()) ReadMedFields(in_, meshes[0], runs_, deck_);
    }
    return Checked(leaves_nodes_);
  }

 private:
  /// Groups of families, by their numbers. Those of nodes and of elements are apart.
  using Families = std::map<std::int64_t, std::vector<std::size_t>>;
  /// The numbers of families, and of the nodes or elements, one by one.
  struct Numbers {
    std::vector<std::int64_t> families;
    std::vector<std::int64_t> own;
  };

  void ReadMesh(const std::string& name) {
    const std::string mesh = "/ENS_MAA/" + name;
    const auto space = in_.IntegerAttribute(mesh, "ESP");
    const auto type = in_.IntegerAttribute(mesh, "TYP").value_or(0);
    const auto frame = in_.IntegerAttribute(mesh, "REP").value_or(0);
    if (!space || *space < 1 || *space > 3) {
      return Fault(mesh.substr(1), "it has no dimension ESP between 1 and 3");
    }
    if (type != 0) return Fault(mesh.substr(1), "it is a structured mesh, which is not read");
    if (frame != 0) {
      return Fault(mesh.substr(1),
                   "its coordinates are cylindrical or spherical, which is not read");
    }
    ReadUnit(mesh, static_cast<std::size_t>(*space));
    // Steps of computation stand between since version 3; the first has the whole mesh.
    std::string step = mesh;
    if (!in_.IsGroup(mesh + "/NOE")) {
      const std::vector<std::string> steps = in_.Children(mesh);
      if (steps.empty()) return Fault(mesh.substr(1), "it has no nodes");
      step = mesh + "/" + steps[0];
      deck_.report.Lost("further steps of the mesh were left out", steps.size() - 1, mesh.substr(1),
                        "the model has one");
    }
    ReadFamilies("/FAS/" + name);
    ReadNodes(step + "/NOE", static_cast<std::size_t>(*space));
    KeepError();
    Tell(0.3);
    if (HasFaults()) return;
    ReadElements(step + "/MAI");
    KeepError();
    for (const char* part : {"FAC", "ARE"}) {
      if (!in_.IsGroup(step + "/" + part)) continue;
      deck_.report.Lost("faces and edges that are no elements were left out", 1, part,
                        "the model has elements only");
    }
  }

  /// "mm" among the names of units, which must be the same for all axes that have one.
  void ReadUnit(const std::string& mesh, std::size_t axes) {
    constexpr std::size_t kWidth = 16;
    const std::string units = in_.TextAttribute(mesh, "UNI").value_or("");
    std::string unit;
    for (std::size_t d = 0; d < axes && d * kWidth < units.size(); ++d) {
      const std::string own = TrimmedMed(units.substr(d * kWidth, kWidth));
      if (unit.empty()) unit = own;
      if (!own.empty() && own != unit) {
        return Fault(mesh.substr(1),
                     fmt::format("its axes are in different units ('{}', '{}')", unit, own));
      }
    }
    const int index = unit.empty() ? -1 : FindUnit(UnitBase::kLength, unit);
    if (index < 0) return;
    deck_.units.emplace();
    (*deck_.units)[UnitBase::kLength] = index;
  }

  // ---- families and groups --------------------------------------------------------------------

  void ReadFamilies(const std::string& path) {
    for (const bool is_of_nodes : {true, false}) {
      const std::string folder = path + (is_of_nodes ? "/NOEUD" : "/ELEME");
      Families& families = is_of_nodes ? node_families_ : element_families_;
      for (const std::string& name : in_.Children(folder)) {
        const std::string family = folder + "/" + name;
        const auto number = in_.IntegerAttribute(family, "NUM");
        if (!number) {
          Fault(family.substr(1), "it has no number NUM");
          continue;
        }
        std::vector<std::size_t>& groups = families[*number];
        if (in_.IsGroup(family + "/GRO")) {
          const std::string texts = in_.Bytes(family + "/GRO/NOM");
          KeepError();
          for (std::size_t at = 0; at + kMedGroupNameBytes <= texts.size();
               at += kMedGroupNameBytes) {
            groups.push_back(GroupAt(TrimmedMed(texts.substr(at, kMedGroupNameBytes))));
          }
        }
        if (in_.IsGroup(family + "/ATT")) {
          deck_.report.Lost("attributes of families were left out", 1, TrimmedMed(name),
                            "the model has no place for them");
        }
      }
    }
  }

  std::size_t GroupAt(const std::string& name) {
    const auto [found, is_new] = places_.try_emplace(name, deck_.groups.size());
    if (is_new) {
      deck_.groups.emplace_back();
      deck_.groups.back().name = name;
    }
    return found->second;
  }

  Numbers ReadNumbers(const std::string& path, std::uint64_t count) {
    Numbers numbers;
    if (in_.Has(path + "/FAM")) numbers.families = in_.Integers(path + "/FAM", count);
    KeepError();
    if (in_.Has(path + "/NUM")) numbers.own = in_.Integers(path + "/NUM", count);
    KeepError();
    return numbers;
  }

  /// Puts nodes or elements, by their keys, into the groups of their families.
  template <class KeyAt>
  void Fill(const std::vector<std::int64_t>& families, const Families& described,
            std::vector<Key> Mesh::Group::*members, const std::string& place, KeyAt&& key_at) {
    std::uint64_t unknown = 0;
    for (std::size_t i = 0; i < families.size(); ++i) {
      if (families[i] == 0) continue;
      const auto groups = described.find(families[i]);
      unknown += groups == described.end();
      if (groups == described.end()) continue;
      for (const std::size_t group : groups->second) {
        auto& list = deck_.groups[group].*members;
        // A family may name a group twice.
        if (list.empty() || list.back() != key_at(i)) list.push_back(key_at(i));
      }
    }
    deck_.report.Lost("families that are not described", unknown, place.substr(1),
                      "their groups are not known");
  }

  // ---- the mesh -------------------------------------------------------------------------------

  void ReadNodes(const std::string& path, std::size_t space) {
    const std::vector<std::uint64_t> lengths = in_.LengthsOf(path + "/COO");
    std::uint64_t values = lengths.empty() ? 0 : 1;
    for (const std::uint64_t length : lengths) values = length > kMaxKey ? ~0ull : values * length;
    const std::uint64_t nodes = values / space;
    if (values % space != 0 || nodes > kMaxKey || values > in_.MostValues()) {
      return Fault(path.substr(1) + "/COO", fmt::format("it has {} coordinates", values));
    }
    AppendBy(deck_.coordinates, 3 * nodes,
             [](double* to, std::size_t, std::size_t count) { std::fill_n(to, count, 0.0); });
    std::set<std::uint64_t> not_finite;  // a bound of them
    std::uint64_t at = 0;
    in_.Reals(path + "/COO", values, [&](std::span<const double> piece) {
      for (const double value : piece) {  // all of one axis, then all of the next
        deck_.coordinates[3 * (at % nodes) + at / nodes] = value;
        if (!std::isfinite(value) && not_finite.size() < LossReport::kMostFaults) {
          not_finite.insert(at % nodes);
        }
        ++at;
      }
    });
    KeepError();
    for (const std::uint64_t node : not_finite) {
      Fault(path.substr(1),
            fmt::format("a coordinate of node {} is not a finite number", node + 1));
    }
    const Numbers numbers = ReadNumbers(path, nodes);
    deck_.node_keys = Keys(numbers.own, nodes, "nodes", path);
    Fill(numbers.families, node_families_, &Mesh::Group::nodes, path,
         [&](std::size_t i) { return deck_.node_keys[i]; });
  }

  /// The numbers of a file as keys; places, from 1, where it has none that can be.
  std::vector<Key> Keys(const std::vector<std::int64_t>& own, std::uint64_t count, const char* what,
                        const std::string& place) {
    std::vector<Key> keys;
    MakeRoom(keys, count);
    bool are_good = own.size() == count;
    for (const std::int64_t number : own) {
      are_good = are_good && number > 0 && number <= kMaxKey;
      keys.push_back(static_cast<Key>(number));
    }
    if (are_good && KeySet(keys).Repeated() == 0) return keys;
    if (!own.empty()) {
      deck_.report.Changed(fmt::format("numbers of {} were given anew", what), count,
                           place.substr(1), "those of the file are not positive and different");
    }
    keys.clear();
    for (std::uint64_t i = 0; i < count; ++i) keys.push_back(static_cast<Key>(i + 1));
    return keys;
  }

  void ReadElements(const std::string& path) {
    const std::vector<std::string> types = in_.Children(path);
    std::vector<std::int64_t> own, families;
    bool has_own = true;
    for (std::size_t t = 0; t < types.size() && Ok(); ++t) {
      ReadType(path + "/" + types[t], types[t], own, families, has_own);
      KeepError();
      Tell(0.3 + 0.6 * static_cast<double>(t + 1) / static_cast<double>(types.size()));
    }
    if (HasFaults()) return;
    if (!has_own) own.clear();
    const std::vector<Key> keys = Keys(own, deck_.elements.size(), "elements", path);
    for (std::size_t e = 0; e < keys.size(); ++e) deck_.elements[e].key = keys[e];
    Fill(families, element_families_, &Mesh::Group::elements, path,
         [&](std::size_t i) { return deck_.elements[i].key; });
    TakeNodesOut();
  }

  void ReadType(const std::string& path, const std::string& name, std::vector<std::int64_t>& own,
                std::vector<std::int64_t>& families, bool& has_own) {
    const auto kind = FindMedKind(name);
    const std::string array = path + "/NOD";
    std::uint64_t values = 0;
    if (const auto lengths = in_.LengthsOf(array); lengths.size() == 1) values = lengths[0];
    if (!kind) {
      deck_.report.Lost(fmt::format("elements of type {} were left out", TrimmedMed(name)),
                        static_cast<std::uint64_t>(std::max<std::int64_t>(
                            in_.IntegerAttribute(array, "NBR").value_or(1), 0)),
                        path.substr(1), "the model has no such element");
      leaves_nodes_ = true;
      return;
    }
    const auto width = static_cast<std::uint64_t>(kind->nodes);
    const std::uint64_t count = values / width;
    if (values % width != 0 || values > in_.MostValues()) {
      return Fault(array.substr(1), fmt::format("it has {} nodes of {} each", values, width));
    }
    if (deck_.elements.size() + count > static_cast<std::uint64_t>(kMaxKey)) {
      return Fault(array.substr(1), "the file has more elements than a model can have");
    }
    if (kind->is_reduced) {
      leaves_nodes_ = true;
      deck_.report.Changed(fmt::format("elements of type {} were read as {}", name,
                                       FindElementType(kind->code)->plural),
                           count, path.substr(1),
                           "the model has no such element: nodes that it lacks are left over");
    }
    const auto used = static_cast<std::size_t>(FindElementType(kind->code)->nodes);
    const std::size_t first = deck_.connectivity.size();
    runs_[name] = {deck_.elements.size(), static_cast<std::size_t>(count)};
    MakeRoom(deck_.connectivity, first + count * used);
    deck_.connectivity.resize(first + count * used);
    for (std::uint64_t e = 0; e < count; ++e) {
      deck_.elements.push_back({1, kind->code, first + e * used});
    }
    // The order is its own inverse.
    std::vector<std::size_t> place_of(width, used);
    for (std::size_t k = 0; k < used; ++k) {
      place_of[kind->order ? static_cast<std::size_t>(kind->order[k]) : k] = k;
    }
    std::uint64_t at = 0;
    const auto nodes = static_cast<std::int64_t>(deck_.node_keys.size());
    in_.Integers(array, values, [&](std::span<const std::int64_t> piece) {
      for (const std::int64_t node : piece) {  // the first of all, then the second of all
        const std::uint64_t e = at % count;
        const std::size_t place = place_of[at / count];
        ++at;
        if (node < 1 || node > nodes) {
          Fault(array.substr(1), fmt::format("element {} names node {} of {}", e + 1, node, nodes));
        } else if (place < used) {
          deck_.connectivity[first + e * used + place] =
              deck_.node_keys[static_cast<std::size_t>(node) - 1];
        }
      }
    });
    KeepError();
    const Numbers numbers = ReadNumbers(path, count);
    has_own = has_own && (numbers.own.size() == count);
    own.insert(own.end(), numbers.own.begin(), numbers.own.end());
    families.insert(families.end(), numbers.families.begin(), numbers.families.end());
    families.resize(deck_.elements.size());
  }

  /// A set's nodes are those besides the nodes of its elements.
  void TakeNodesOut() {
    std::map<Key, std::size_t> place;
    for (const Mesh::Group& group : deck_.groups) {
      if (group.elements.empty() || group.nodes.empty()) continue;
      for (std::size_t e = 0; e < deck_.elements.size(); ++e) place[deck_.elements[e].key] = e;
      break;
    }
    for (Mesh::Group& group : deck_.groups) {
      if (group.elements.empty() || group.nodes.empty()) continue;
      std::set<Key> of_elements;
      for (const Key key : group.elements) {
        const std::size_t e = place.at(key);
        const Key* const own = deck_.connectivity.data() + deck_.elements[e].first;
        of_elements.insert(own, own + deck_.NodesOf(e));
      }
      std::erase_if(group.nodes, [&](Key key) { return of_elements.contains(key); });
    }
  }

  bool leaves_nodes_ = false;
  Families node_families_, element_families_;
  std::map<std::string, std::size_t> places_;  // of groups, by name
  std::map<std::string, MedRun> runs_;         // of types of elements, by name
};

}  // namespace

Result<Deck> ReadMed(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults) {
  std::error_code error;
  const auto size = std::filesystem::file_size(PathFromUtf8(path), error);
  return ReadHdf5<MedReader>([&] { return H5Reader::Open(path); }, error ? 0 : size, path, options,
                             faults);
}

Result<Deck> ParseMed(std::string_view bytes, const std::string& name, std::vector<Failure>* faults,
                      FirstRead first) {
  std::vector<Failure> all;
  Result<Deck> deck = ReadHdf5<MedReader>([&] { return H5Reader::OpenMemory(bytes, name); },
                                          bytes.size(), name, {}, all, first);
  if (faults) faults->insert(faults->end(), all.begin(), all.end());
  return deck;
}

}  // namespace qx::exchange
