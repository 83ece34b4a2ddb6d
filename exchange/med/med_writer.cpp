#include "exchange/med/med_writer.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_map>

#include "qx_db/record/element_types.h"

#include "exchange/deck.h"
#include "exchange/group_classes.h"
#include "exchange/hdf5/h5_writer.h"
#include "exchange/med/med_fields.h"
#include "exchange/med/med_kinds.h"
#include "exchange/med/med_reader.h"

namespace qx::exchange {
namespace {

class MedFile {
 public:
  MedFile(const CQXDBSession& session, LossReport& report, const Progress& progress)
      : report_(report), progress_(progress), deck_(DeckOf(session, ShareOf(progress, 0, 0.3))) {
    report_.Append(deck_.report);
    const UnitSystem& units = session.Units().Current();
    const auto length = static_cast<std::size_t>(units[UnitBase::kLength]);
    unit_ = UnitsOf(UnitBase::kLength)[length].name;
    for (const Key key : deck_.node_keys) {
      node_number_.emplace(key, static_cast<std::int32_t>(node_number_.size()) + 1);
    }
    ListElements();
    NameGroups();
    of_nodes_ = Families(deck_.node_keys.size(), 1);
    of_elements_ = Families(element_place_.size(), -1);
    TellOfTheRest(session);
  }

  void Write(H5Writer& out) {
    out_ = &out;
    WriteHead();
    WriteFamilies();
    WriteNodes();
    Tell(0.5);
    WriteElements();
    WriteMedFields(out, "mesh", deck_, node_number_, element_place_, runs_, report_);
    Tell(0.95);
  }

 private:
  void Tell(double done) const {
    if (progress_) progress_(done);
  }

  void ListElements() {
    UnwrittenElements others;
    std::uint64_t with_property = 0;
    Key first_with_property = 0;
    for (std::size_t i = 0; i < deck_.elements.size(); ++i) {
      const Mesh::Element& element = deck_.elements[i];
      const ElementType* const type = FindElementType(element.type);
      if (!type) others.Add(element.type, element.key);
      if (element.property != 0 && with_property++ == 0) first_with_property = element.key;
      if (!type) continue;
      dimension_ = std::max(dimension_, type->dimension);
      of_type_[element.type].push_back(i);
    }
    for (const auto& [code, elements] : of_type_) {
      for (const std::size_t i : elements) {
        element_place_.emplace(deck_.elements[i].key,
                               static_cast<std::uint32_t>(element_place_.size()));
      }
    }
    others.Report(report_);
    report_.Lost("elements were written without their property", with_property,
                 fmt::format("element {}", first_with_property), "the format has no place for it");
  }

  /// Groups are told apart by their names.
  void NameGroups() {
    std::uint64_t renamed = 0, parents = 0;
    std::string first_renamed, first_parent;
    std::set<std::string> taken;
    for (const Mesh::Group& group : deck_.groups) taken.insert(group.name);
    std::set<std::string> used;
    for (const Mesh::Group& group : deck_.groups) {
      std::string name = FittingMed(group.name, kMedGroupNameBytes);
      for (int n = 2; used.contains(name) || (name != group.name && taken.contains(name)); ++n) {
        name = fmt::format("{} ({})", FittingMed(group.name, kMedGroupNameBytes - 14), n);
      }
      if (name != group.name && renamed++ == 0) {
        first_renamed = group.name.empty() ? "an empty one" : group.name;
      }
      if (group.parent != Mesh::Group::kNone && parents++ == 0) first_parent = group.name;
      used.insert(name);
      groups_.emplace_back(std::move(name), &group);
    }
    report_.Changed("names of sets became others", renamed, first_renamed,
                    "a group's name has 80 bytes and names one");
    report_.Lost("places of sets in others", parents, first_parent, "groups have no hierarchy");
  }

  void TellOfTheRest(const CQXDBSession& session) {
    constexpr std::uint16_t kWritten[] = {code::kNode, code::kElem, code::kMset, code::kField};
    ReportUnwritten(session, "med", kWritten, report_);
  }

  void WriteHead() {
    out_->Group("/INFOS_GENERALES");
    out_->Integer("/INFOS_GENERALES", "MAJ", 3);
    out_->Integer("/INFOS_GENERALES", "MIN", 0);
    out_->Integer("/INFOS_GENERALES", "REL", 0);
    out_->Group("/ENS_MAA");
    out_->Group("/FAS");
    out_->Group(mesh_);
    out_->Integer(mesh_, "DIM", std::max(dimension_, 1));
    out_->Integer(mesh_, "ESP", 3);
    out_->Integer(mesh_, "REP", 0);  // Cartesian
    out_->Integer(mesh_, "TYP", 0);  // unstructured
    out_->Integer(mesh_, "SRT", 0);  // by step, then by iteration
    out_->Text(mesh_, "UNT", "", 17);
    out_->Text(mesh_, "UNI", fmt::format("{0:16}{0:16}{0:16}", unit_), 49);
    out_->Text(mesh_, "NOM", fmt::format("{:16}{:16}{:16}", "X", "Y", "Z"), 49);
    out_->Text(mesh_, "DES", kMedOwn, 201);
    out_->Group(step_);
    out_->Integer(step_, "CGT", 1);
    out_->Integer(step_, "NDT", -1);
    out_->Integer(step_, "NOR", -1);
    out_->Real(step_, "PDT", -1.0);
    out_->Group(families_);
    out_->Group(families_ + "/FAMILLE_ZERO");
    out_->Integer(families_ + "/FAMILLE_ZERO", "NUM", 0);
  }

  void Entities(const std::string& path, std::int32_t geometry) {
    out_->Group(path);
    out_->Integer(path, "CGT", 1);
    out_->Integer(path, "CGS", 1);
    if (geometry != 0) out_->Integer(path, "GEO", geometry);
    out_->Text(path, "PFL", kMedAll, 24);
  }
  template <class T>
  void Put(const std::string& path, const std::vector<T>& values, std::size_t count) {
    out_->Put(path, std::span<const T>(values));
    out_->Integer(path, "CGT", 1);
    out_->Integer(path, "NBR", static_cast<std::int32_t>(count));
  }

  /// Nodes or elements told apart by the groups that they are in, each kind with the number of its
  /// family: from 1 or -1 on, in the order in which they are met, 0 for what is in no group.
  struct Families {
    Families(std::size_t count, std::int32_t direction) : classes(count), sign(direction) {}
    std::int32_t Of(std::size_t i) const { return number_of[classes.ClassOf(i)]; }

    ElementClasses classes;
    std::int32_t sign;
    std::vector<std::int32_t> number_of;
    std::int32_t last = 0;  // without sign
  };

  template <class PlaceOf>
  void Divide(Families& families, std::size_t count, std::vector<Key> Mesh::Group::*members,
              PlaceOf&& place_of) const {
    for (const auto& entry : groups_) {
      std::vector<std::uint32_t> places;
      for (const Key key : entry.second->*members) {
        if (const auto place = place_of(key)) places.push_back(*place);
      }
      families.classes.AddGroup(places);
    }
    families.number_of.resize(families.classes.Count());
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t of = families.classes.ClassOf(i);
      if (of != 0 && families.number_of[of] == 0) {
        families.number_of[of] = families.sign * ++families.last;
      }
    }
  }

  /// Calls `take` with the number of each family and its groups.
  template <class Take>
  static void ForEachFamily(const Families& families, Take&& take) {
    for (std::uint32_t c = 1; c < families.number_of.size(); ++c) {
      if (families.number_of[c] != 0) take(families.number_of[c], families.classes.GroupsOf(c));
    }
  }

  void WriteFamily(const std::string& path, std::int32_t number,
                   const std::vector<std::uint32_t>& groups) {
    const std::string family = fmt::format("{}/FAM_{}", path, number);
    out_->Group(family);
    out_->Integer(family, "NUM", number);
    out_->Group(family + "/GRO");
    out_->Integer(family + "/GRO", "NBR", static_cast<std::int32_t>(groups.size()));
    std::vector<std::string> names;
    for (const std::uint32_t group : groups) names.push_back(groups_[group].first);
    out_->PutTexts(family + "/GRO/NOM", names, kMedGroupNameBytes);
  }

  /// Groups are what families name, in the order in which they do. Where that is not the model's,
  /// or a group has nothing, a family that nothing is of comes first and names all.
  void WriteFamilies() {
    Divide(of_nodes_, deck_.node_keys.size(), &Mesh::Group::nodes, [&](Key key) {
      return std::optional(static_cast<std::uint32_t>(node_number_.at(key)) - 1);
    });
    Divide(of_elements_, element_place_.size(), &Mesh::Group::elements, [&](Key key) {
      const auto place = element_place_.find(key);
      return place == element_place_.end() ? std::nullopt : std::optional(place->second);
    });
    std::vector<bool> is_named(groups_.size());
    std::uint32_t next = 0;
    bool is_in_order = true;
    for (const Families* families : {&of_nodes_, &of_elements_}) {
      ForEachFamily(*families, [&](std::int32_t, const std::vector<std::uint32_t>& groups) {
        for (const std::uint32_t group : groups) {
          if (is_named[group]) continue;
          is_named[group] = true;
          is_in_order = is_in_order && group == next++;
        }
      });
    }
    is_in_order = is_in_order && next == groups_.size();
    const std::string nodes = families_ + "/NOEUD", elements = families_ + "/ELEME";
    if (of_nodes_.last > 0 || !is_in_order) out_->Group(nodes);
    if (!is_in_order) {
      std::vector<std::uint32_t> all(groups_.size());
      std::iota(all.begin(), all.end(), 0u);
      WriteFamily(nodes, of_nodes_.last + 1, all);
    }
    ForEachFamily(of_nodes_, [&](std::int32_t number, const std::vector<std::uint32_t>& groups) {
      WriteFamily(nodes, number, groups);
    });
    if (of_elements_.last > 0) out_->Group(elements);
    ForEachFamily(of_elements_, [&](std::int32_t number, const std::vector<std::uint32_t>& groups) {
      WriteFamily(elements, number, groups);
    });
  }

  void WriteNodes() {
    const std::size_t nodes = deck_.node_keys.size();
    const std::string path = step_ + "/NOE";
    Entities(path, 0);
    if (nodes == 0) return;
    std::vector<double> by_axis(3 * nodes);
    for (std::size_t i = 0; i < nodes; ++i) {
      for (std::size_t d = 0; d < 3; ++d) by_axis[d * nodes + i] = deck_.coordinates[3 * i + d];
    }
    Put(path + "/COO", by_axis, nodes);
    std::vector<std::int32_t> families(nodes);
    for (std::size_t i = 0; i < nodes; ++i) families[i] = of_nodes_.Of(i);
    Put(path + "/FAM", families, nodes);
    Put(path + "/NUM", deck_.node_keys, nodes);
  }

  void WriteElements() {
    if (of_type_.empty()) return;
    out_->Group(step_ + "/MAI");
    out_->Integer(step_ + "/MAI", "CGT", 1);
    std::size_t place = 0;
    for (const auto& [code, elements] : of_type_) {
      const MedKind& kind = MedKindOf(code);
      runs_.push_back({kind.name, {place, elements.size()}});
      const std::string path = fmt::format("{}/MAI/{}", step_, kind.name);
      Entities(path, kind.number);
      const std::size_t count = elements.size();
      const auto width = static_cast<std::size_t>(kind.nodes);
      std::vector<std::int32_t> nodes(count * width), numbers(count), families(count);
      for (std::size_t e = 0; e < count; ++e) {
        const Mesh::Element& element = deck_.elements[elements[e]];
        const Key* const own = deck_.connectivity.data() + element.first;
        for (std::size_t k = 0; k < width; ++k) {
          const std::size_t at = kind.order ? static_cast<std::size_t>(kind.order[k]) : k;
          nodes[k * count + e] = node_number_.at(own[at]);
        }
        numbers[e] = element.key;
        families[e] = of_elements_.Of(place++);
      }
      Put(path + "/NOD", nodes, count);
      Put(path + "/FAM", families, count);
      Put(path + "/NUM", numbers, count);
      Tell(0.5 + 0.4 * static_cast<double>(place) / static_cast<double>(element_place_.size()));
    }
  }

  const std::string mesh_ = "/ENS_MAA/mesh";
  const std::string step_ = mesh_ + "/-0000000000000000001-0000000000000000001";
  const std::string families_ = "/FAS/mesh";
  LossReport& report_;
  const Progress& progress_;
  Deck deck_;
  std::string_view unit_;
  std::int32_t dimension_ = 0;
  std::unordered_map<Key, std::int32_t> node_number_;
  std::unordered_map<Key, std::uint32_t> element_place_;            // in the file
  std::map<std::int32_t, std::vector<std::size_t>> of_type_;        // places in the deck
  std::vector<std::pair<std::string, const Mesh::Group*>> groups_;  // by their names in the file
  std::vector<std::pair<std::string_view, MedRun>> runs_;           // of one type in the file
  Families of_nodes_{0, 1}, of_elements_{0, -1};
  H5Writer* out_ = nullptr;
};

}  // namespace

Outcome WriteMed(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                 LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  MedFile med(session, found, options.progress);
  if (options.progress) options.progress(0.3);
  const auto write = [&](H5Writer& out) { med.Write(out); };
  if (Outcome written = WriteHdf5(path, write); !written) return written;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

}  // namespace qx::exchange
