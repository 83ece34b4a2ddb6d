#include "exchange/unv/unv_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <set>

#include "qx_db/lib/math.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/unv/unv_fields.h"
#include "exchange/unv/unv_kinds.h"
#include "exchange/unv/unv_text.h"

namespace qx::exchange {
namespace {

using Integers = std::vector<std::int64_t>;
using Reals = std::vector<double>;

/// A system of the file, in global coordinates.
struct System {
  std::int32_t type = 0;
  std::array<Vector3, 3> axes{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  Vector3 origin;

  bool IsGlobal() const {
    const auto is = [](const Vector3& v, double x, double y, double z) {
      return v.x == x && v.y == y && v.z == z;
    };
    return type == tagTCord::kRectangular && is(axes[0], 1, 0, 0) && is(axes[1], 0, 1, 0) &&
           is(axes[2], 0, 0, 1) && is(origin, 0, 0, 0);
  }
};

/// The unit of a base whose value in SI units is that much; -1 for none.
std::int32_t UnitOfSize(UnitBase base, double size) {
  const std::span<const UnitDefinition> units = UnitsOf(base);
  for (std::size_t i = 0; i < units.size(); ++i) {
    if (std::abs(units[i].numerator / units[i].denominator / size - 1) < 1e-6) {
      return static_cast<std::int32_t>(i);
    }
  }
  return -1;
}

class UnvReader {
 public:
  UnvReader(std::string_view bytes, const std::string& name, const ReadOptions& options,
            std::vector<Failure>& faults)
      : in_(bytes), name_(name), options_(options), faults_(faults), before_(faults.size()) {
    deck_.format = "unv";
  }

  Result<Deck> Read() {
    bool is_known = false;
    while (faults_.size() < LossReport::kMostFaults && in_.NextDataset()) {
      const std::string place = in_.Place();
      is_known |= ReadDataset();
      if (in_.Wrong().empty() && in_.IsCut()) in_.Fail("the file ends before the dataset does");
      if (!in_.Wrong().empty()) {
        Fault(in_.WrongPlace(), fmt::format("dataset {}: {}", in_.Name(), in_.Wrong()));
      }
      Tell(0.8 * in_.Done());
    }
    if (!is_known && faults_.size() == before_) {
      Fault("", "there is no dataset of nodes, elements or anything else that is read");
    }
    if (faults_.size() == before_) {
      PlaceNodes();
      CountFromOne();
      MakeBlocks();
      TakeMembers();
      (void)CheckMesh(deck_, name_, &faults_);
      if (is_reduced_) ReportUnused(deck_, deck_.report);
    }
    if (faults_.size() > before_) return faults_[before_];
    Tell(1);
    return std::move(deck_);
  }

 private:
  /// What an element has that the model has no place for: descriptor, tables, colour, ends.
  using Form = std::array<std::int64_t, 6>;

  void Tell(double done) const {
    if (options_.progress) options_.progress(done);
  }
  void Fault(std::string place, std::string what) {
    if (faults_.size() >= LossReport::kMostFaults) return;
    faults_.push_back({name_, std::move(place), std::move(what), "write the file again"});
  }

  /// Whether the dataset is one that is read.
  bool ReadDataset() {
    const std::string& name = in_.Name();
    const auto number = WholeOf<int>(name).value_or(0);
    switch (number) {
      case 151:
        return ReadHeader(), true;
      case 164:
        return ReadUnits(), true;
      case 15:
      case 781:
      case 2411:
        return ReadNodes(number), true;
      case 780:
      case 2412:
        return ReadElements(number), true;
      case 2420:
        return ReadSystems(), true;
      case 2417:
      case 2429:
      case 2430:
      case 2432:
      case 2435:
      case 2452:
      case 2467:
      case 2477:
        return ReadGroups(number >= 2435 ? 4 : 2), true;
      case 55:
      case 56:
      case 2414:
        return UnvFields(deck_).Read(in_), true;
      default:
        return Carry(name), number > 0;
    }
  }

  void Carry(const std::string& name) {
    if (!in_.Wrong().empty()) return;
    const std::string place = in_.Place();
    const std::string head(in_.Line());
    const std::string text = in_.Rest();
    if (Words(head).Rest() != name || !IsUtf8(text) || text.find('\0') != text.npos) {
      deck_.report.Lost(fmt::format("datasets {} were left out", name), 1, place,
                        "they are not text");
      return;
    }
    tagTCarried carried;
    carried.key = static_cast<Key>(deck_.Of<tagTCarried>().size() + 1);
    carried.format.Set(u"unv");
    carried.keyword.Set(Utf16(name));
    carried.order = carried.key;
    carried.checked = tagTCarried::kUnchecked;
    carried.text.Assign(text.data(), text.size());
    deck_.Of<tagTCarried>().push_back(std::move(carried));
    deck_.report.Assumed(fmt::format("datasets {} are carried as text", name),
                         "numbers in it are not checked against renumbering");
  }

  void ReadHeader() {
    std::vector<std::string> lines;
    while (in_.NextLine()) lines.push_back(CleanText(Words(in_.Line()).Rest()));
    lines.resize(std::max<std::size_t>(lines.size(), 6));
    tagTOrigin origin;
    origin.title.Set(Utf16(lines[1] == "NONE" ? std::string() : lines[1]));
    if (deck_.Of<tagTOrigin>().empty()) deck_.Of<tagTOrigin>().push_back(origin);
    if (!lines[5].starts_with(kUnvOwn)) return;
    UnitSystem units;
    Words words(std::string_view(lines[5]).substr(kUnvOwn.size()));
    for (int i = 0; i < kUnitBaseCount; ++i) {
      const auto base = static_cast<UnitBase>(i);
      units[base] = FindUnit(base, words.Next());
      if (units[base] < 0) return;
    }
    deck_.units = units;
    has_own_units_ = true;
  }

  void ReadUnits() {
    Integers numbers;
    Reals factors;
    if (!in_.NeedLine()) return;  // a code, which the factors say again, and words
    if (!in_.Reals(4, factors, 25)) return;
    if (!factors_.empty() && factors != factors_) {
      return in_.Fail("the units are others than those of the dataset 164 before");
    }
    factors_ = factors;
    if (has_own_units_) return;
    if (!(factors[0] > 0) || !(factors[1] > 0)) return in_.Fail("the factors are not positive");
    UnitSystem units;
    const std::int32_t length = UnitOfSize(UnitBase::kLength, 1 / factors[0]);
    const std::int32_t force = UnitOfSize(UnitBase::kForce, 1 / factors[1]);
    if (length < 0) {
      length_factor_ = 1 / factors[0];
      deck_.report.Changed("the unit of lengths became the metre", 1, in_.Place(),
                           "the model does not have that of the file; results stay as they are");
    } else {
      units[UnitBase::kLength] = length;
    }
    if (force < 0) {
      deck_.report.Assumed("forces were taken as newtons",
                           "the model does not have the unit of the file");
    } else {
      units[UnitBase::kForce] = force;
    }
    const std::span<const UnitDefinition> heats = UnitsOf(UnitBase::kTemperature);
    const auto heat = std::find_if(heats.begin(), heats.end(), [&](const UnitDefinition& unit) {
      return std::abs(unit.numerator / unit.denominator * factors[2] - 1) < 1e-6 &&
             std::abs(unit.offset - factors[3]) < 0.01;
    });
    if (heat == heats.end()) {
      deck_.report.Assumed(
          fmt::format("temperatures were taken as {}",
                      heats[static_cast<std::size_t>(units[UnitBase::kTemperature])].name),
          "the model does not have the unit of the file");
    } else {
      units[UnitBase::kTemperature] = static_cast<std::int32_t>(heat - heats.begin());
    }
    deck_.units = units;
  }

  // ---- nodes and systems --------------------------------------------------------------------

  bool TakeKey(std::int64_t number, Key& key) {
    if (number < 0 || number > kMaxKey) {
      in_.Fail(fmt::format("number {} is not between 1 and {}", number, kMaxKey));
      return false;
    }
    key = static_cast<Key>(number);
    return true;
  }

  void ReadNodes(int dataset) {
    Integers numbers;
    Reals at;
    Key key = 0;
    while (in_.NextLine()) {
      if (dataset == 15) {
        if (!in_.NumbersOfLine(4, numbers, at)) return;
        if (at.size() != 3 || numbers.size() != 4)
          return in_.Fail("the node has no three coordinates");
      } else {
        if (!in_.IntegersOfLine(numbers)) return;
        if (numbers.empty()) continue;
        if (!in_.Reals(3, at, 25)) return;
      }
      numbers.resize(4);
      if (!TakeKey(numbers[0], key)) return;
      deck_.node_keys.push_back(key);
      deck_.coordinates.insert(deck_.coordinates.end(), at.begin(), at.begin() + 3);
      if (numbers[2] > 1) ++displacement_systems_[numbers[2]];
      // The newest form names the system to give coordinates out in; they count in the global one.
      if (dataset == 2411) {
        if (numbers[1] > 0) ++export_systems_[numbers[1]];
      } else if (numbers[1] == 1) {
        ones_.push_back(deck_.node_keys.size() - 1);
      } else if (numbers[1] > 1) {
        node_systems_.emplace_back(deck_.node_keys.size() - 1, numbers[1]);
      }
      TellNow();
    }
  }

  void TellNow() {
    if (++items_ % 65536 == 0) Tell(0.8 * in_.Done());
  }

  void ReadSystems() {
    Integers numbers;
    Reals row;
    if (!in_.NeedLine() || !in_.NeedLine()) return;  // the part, and its name
    while (in_.NextLine()) {
      if (!in_.IntegersOfLine(numbers)) return;
      if (numbers.empty()) continue;
      Key key = 0;
      if (numbers.size() < 2 || numbers[1] < 0 || numbers[1] > 2) {
        return in_.Fail("the system has no type");
      }
      if (!TakeKey(numbers[0], key) || !in_.NeedLine()) return;
      const std::string name = CleanText(Words(in_.Line()).Rest());
      System system;
      system.type = static_cast<std::int32_t>(numbers[1]);
      for (std::size_t r = 0; r < 4; ++r) {
        if (!in_.Reals(3, row, 25)) return;
        (r < 3 ? system.axes[r] : system.origin) = {row[0], row[1], row[2]};
      }
      const Vector3 across = Cross(system.axes[0], system.axes[1]);
      if (!(Length(across) > 0) || !std::isfinite(Length(across))) {
        return in_.Fail("the system's axes are none");
      }
      const Vector3& third = system.axes[2];
      const double along = Dot(across, third) / (Length(across) * Length(third));
      deck_.report.Changed("third axes that do not stand on the first two, to their right",
                           !(along > 1 - 1e-6), fmt::format("system {}", key),
                           "a system of the model has a third axis of its first two");
      systems_[key] = system;
      if (key <= 1 && system.IsGlobal()) continue;
      AddSystem(key, name, system);
    }
  }

  void AddSystem(Key key, const std::string& name, const System& system) {
    tagTCord record;
    record.key = key;
    record.name.Set(Utf16(name));
    record.type = system.type;
    // The axes' points lie so far out that their digits are worth as much as the origin's.
    const double reach = std::max(1.0, Length(system.origin));
    const auto point = [&](const Vector3& d) {
      return tagTVector3<double>{system.origin.x + reach * d.x, system.origin.y + reach * d.y,
                                 system.origin.z + reach * d.z};
    };
    record.origin = point({0, 0, 0});
    record.axis_point = point(system.axes[0]);
    record.plane_point = point(system.axes[1]);
    deck_.Of<tagTCord>().push_back(record);
  }

  /// Coordinates count in the systems that nodes name; in the model in the global one.
  void PlaceNodes() {
    const auto place = [&](std::size_t node, std::int64_t label) {
      const auto system = systems_.find(static_cast<Key>(std::min<std::int64_t>(label, kMaxKey)));
      if (system == systems_.end() || system->second.IsGlobal()) return;
      double* at = &deck_.coordinates[3 * node];
      const Vector3 p = ToRectangular(system->second.type, {at[0], at[1], at[2]});
      const auto& [type, axes, origin] = system->second;
      at[0] = origin.x + p.x * axes[0].x + p.y * axes[1].x + p.z * axes[2].x;
      at[1] = origin.y + p.x * axes[0].y + p.y * axes[1].y + p.z * axes[2].y;
      at[2] = origin.z + p.x * axes[0].z + p.y * axes[1].z + p.z * axes[2].z;
      if (!std::exchange(is_moved_, true)) {
        deck_.report.Assumed("coordinates count in the systems that nodes name");
      }
    };
    for (const auto& [node, label] : node_systems_) place(node, label);
    if (const auto one = systems_.find(1); one != systems_.end() && !one->second.IsGlobal()) {
      for (const std::size_t node : ones_) place(node, 1);
    }
    if (length_factor_ != 1) {
      for (double& x : deck_.coordinates) x *= length_factor_;
      for (tagTCord& system : deck_.Of<tagTCord>()) {
        for (auto* point : {&system.origin, &system.axis_point, &system.plane_point}) {
          point->x *= length_factor_;
          point->y *= length_factor_;
          point->z *= length_factor_;
        }
      }
    }
    TellSystems(displacement_systems_, "systems in which displacements of nodes count",
                "the model counts them in the global one");
    TellSystems(export_systems_, "systems in which nodes are to be given out",
                "the model has coordinates in the global one, as the file has them");
  }

  /// Those of `counts` that are in the file and not the global one.
  void TellSystems(const std::map<std::int64_t, std::uint64_t>& counts, const char* what,
                   const char* why) {
    for (const auto& [label, nodes] : counts) {
      const auto system = systems_.find(static_cast<Key>(std::min<std::int64_t>(label, kMaxKey)));
      if (system == systems_.end() || system->second.IsGlobal()) continue;
      deck_.report.Lost(what, nodes, fmt::format("system {}", label), why);
    }
  }

  // ---- elements -----------------------------------------------------------------------------

  void ReadElements(int dataset) {
    Integers numbers, ends, nodes;
    std::map<Form, std::size_t>::iterator form = forms_.end();
    while (in_.NextLine()) {
      if (!in_.IntegersOfLine(numbers)) return;
      if (numbers.empty()) continue;
      // In the old form two more numbers say where the tables are.
      if (dataset == 780 && numbers.size() == 8) {
        numbers = {numbers[0], numbers[1], numbers[3], numbers[5], numbers[6], numbers[7]};
      }
      if (numbers.size() != 6) return in_.Fail("the element has no six numbers");
      const std::int64_t descriptor = numbers[1];
      const std::int64_t count = numbers[5];
      if (count < 1 || count > 1000) {
        return in_.Fail(fmt::format("an element cannot have {} nodes", count));
      }
      ends.assign(3, 0);
      if (IsUnvBeam(descriptor) && !in_.Integers(3, ends)) return;
      Key key = 0;
      if (!TakeKey(numbers[0], key)) return;
      const std::string place = in_.Place();
      if (!in_.Integers(static_cast<std::size_t>(count), nodes)) return;
      TellNow();
      const auto kind = FindUnvKind(descriptor, count);
      if (!kind) {
        deck_.report.Lost(
            fmt::format("elements of descriptor {} with {} nodes were left out", descriptor, count),
            1, place, "the model has no such element");
        left_out_.push_back(key);
        is_reduced_ = true;
        continue;
      }
      if (kind->is_reduced) {
        deck_.report.Changed(fmt::format("elements of {} nodes were read as {}", count,
                                         FindElementType(kind->code)->plural),
                             1, place, "the model has no such element: a node is left over");
        is_reduced_ = true;
      }
      if (ends[0] != 0) {
        deck_.report.Lost("nodes that orient beams", 1, place,
                          "the model has orientations by direction");
      }
      const auto own = static_cast<std::size_t>(FindElementType(kind->code)->nodes);
      const std::int8_t* order = UnvOrderOf(kind->code);
      const std::size_t first = deck_.connectivity.size();
      deck_.connectivity.resize(first + own);
      for (std::size_t k = 0; k < own; ++k) {
        Key node = 0;
        if (!TakeKey(nodes[k], node)) return;
        deck_.connectivity[first + (order ? static_cast<std::size_t>(order[k]) : k)] = node;
      }
      const Form its{descriptor, numbers[2], numbers[3], numbers[4], ends[1], ends[2]};
      if (form == forms_.end() || form->first != its) {
        form = forms_.try_emplace(its, forms_.size()).first;
      }
      form_of_.push_back(form->second);
      deck_.elements.push_back({key, kind->code, first});
    }
  }

  /// A block for the elements of each form but the one that elements are written with by default.
  void MakeBlocks() {
    std::vector<tagTBlock> blocks(forms_.size());
    std::vector<Form> form(forms_.size());
    for (const auto& [its, place] : forms_) form[place] = its;
    for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
      const Form& its = form[form_of_[e]];
      const Form usual{UnvDescriptorOf(deck_.elements[e].type), 1, 1, 7, 0, 0};
      if (its != usual) {
        blocks[form_of_[e]].elements.Add(static_cast<ITR>(deck_.elements[e].key));
      }
    }
    for (std::size_t f = 0; f < blocks.size(); ++f) {
      if (blocks[f].elements.IsEmpty()) continue;
      const Form& its = form[f];
      blocks[f].key = static_cast<Key>(deck_.Of<tagTBlock>().size() + 1);
      blocks[f].format.Set(u"unv");
      blocks[f].tag = blocks[f].key;
      const std::string name =
          fmt::format(fmt::runtime(kUnvBlock), its[0], its[1], its[2], its[3], its[4], its[5]);
      blocks[f].name.Set(Utf16(name));
      if (Utf8(blocks[f].name.View()) != name) {
        deck_.report.Lost("tables and colours of elements", 1, name, "their numbers are too large");
        continue;
      }
      deck_.Of<tagTBlock>().push_back(std::move(blocks[f]));
    }
  }

  // ---- groups -------------------------------------------------------------------------------

  /// `width` numbers stand for each member: its kind, its own, and two more in newer datasets.
  void ReadGroups(std::size_t width) {
    constexpr std::int64_t kNode = 7, kElement = 8;
    Integers numbers, members;
    while (in_.NextLine()) {
      if (!in_.IntegersOfLine(numbers)) return;
      if (numbers.empty()) continue;
      const std::string place = in_.Place();
      if (numbers.size() < 2) return in_.Fail("the group has no number of members");
      const std::int64_t count = numbers.back();
      Mesh::Group group;
      if (!TakeKey(numbers[0], group.key)) return;
      deck_.report.Changed("groups of a number that another has got a new one",
                           !group_numbers_.insert(group.key).second, place,
                           "a number names one mesh set");
      if (std::any_of(numbers.begin() + 1, numbers.end() - 1, [](auto n) { return n != 0; })) {
        deck_.report.Lost("active sets of groups", 1, place,
                          "the model has no place for loads and restraints of a group");
      }
      if (!in_.NeedLine()) return;
      group.name = CleanText(Words(in_.Line()).Rest());
      if (group.name.empty()) {
        group.name = fmt::format("group {}", numbers[0]);
        deck_.report.Changed("groups without a name got one", 1, place, "a mesh set has one");
      }
      if (count < 0 || count > kMaxKey) {
        return in_.Fail(fmt::format("a group cannot have {} members", count));
      }
      std::int64_t left = count;
      std::uint64_t others = 0;
      while (left > 0) {
        if (!in_.NeedLine() || !in_.IntegersOfLine(members)) return;
        if (members.empty() || members.size() % width != 0) {
          return in_.Fail("a line of members is not whole");
        }
        for (std::size_t i = 0; i < members.size() && left > 0; i += width, --left) {
          Key key = 0;
          if (members[i] != kNode && members[i] != kElement) {
            ++others;
            continue;
          }
          if (!TakeKey(members[i + 1], key)) return;
          (members[i] == kNode ? group.nodes : group.elements).push_back(key);
        }
        TellNow();
      }
      deck_.report.Lost("members of groups that are no nodes or elements", others, place,
                        "a mesh set has nodes and elements");
      deck_.groups.push_back(std::move(group));
    }
  }

  /// Members once each, and none that was left out.
  void TakeMembers() {
    std::sort(left_out_.begin(), left_out_.end());
    for (Mesh::Group& group : deck_.groups) {
      const auto is_gone = [&](Key key) {
        return std::binary_search(left_out_.begin(), left_out_.end(), key);
      };
      const auto gone = std::erase_if(group.elements, is_gone);
      deck_.report.Lost("members of sets that were not read", gone, group.name,
                        "their elements were left out");
      for (std::vector<Key>* members : {&group.elements, &group.nodes}) {
        std::vector<Key> sorted = *members;
        std::sort(sorted.begin(), sorted.end());
        if (std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end()) continue;
        sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
        deck_.report.Changed("members that sets list twice", members->size() - sorted.size(),
                             group.name, "a mesh set has each once");
        *members = std::move(sorted);
      }
    }
  }

  /// Some files number from 0; those of the model begin at 1.
  void CountFromOne() {
    const auto has_zero = [](const auto& keys) {
      return std::find(keys.begin(), keys.end(), 0) != keys.end();
    };
    const auto can_grow = [](const auto& keys) {
      return std::find(keys.begin(), keys.end(), kMaxKey) == keys.end();
    };
    constexpr const char* kWhy = "the file counts from 0, the model from 1";
    if (has_zero(deck_.node_keys) && can_grow(deck_.node_keys)) {
      for (auto* keys : {&deck_.node_keys, &deck_.connectivity}) {
        for (Key& key : *keys) key = key == kMaxKey ? key : key + 1;
      }
      for (Mesh::Group& group : deck_.groups) {
        for (Key& key : group.nodes) key = key == kMaxKey ? key : key + 1;
      }
      for (tagTField& field : deck_.Of<tagTField>()) {
        for (auto& value : field.node_values) value.target = ITR{value.target} + 1;
      }
      deck_.report.Changed("numbers of nodes grew by one", deck_.node_keys.size(), "node 0", kWhy);
    }
    std::vector<Key> keys = left_out_;
    for (const Mesh::Element& element : deck_.elements) keys.push_back(element.key);
    if (!has_zero(keys) || !can_grow(keys)) return;
    for (Mesh::Element& element : deck_.elements) ++element.key;
    for (Key& key : left_out_) ++key;
    for (Mesh::Group& group : deck_.groups) {
      for (Key& key : group.elements) key = key == kMaxKey ? key : key + 1;
    }
    for (tagTField& field : deck_.Of<tagTField>()) {
      for (auto& value : field.element_values) value.target = ITR{value.target} + 1;
    }
    deck_.report.Changed("numbers of elements grew by one", keys.size(), "element 0", kWhy);
  }

  UnvText in_;
  const std::string& name_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  std::size_t before_;
  Deck deck_;
  std::size_t items_ = 0;
  double length_factor_ = 1;
  Reals factors_;  // of the units, once they are read
  bool has_own_units_ = false;
  bool is_reduced_ = false;
  bool is_moved_ = false;
  std::set<Key> group_numbers_;
  std::map<Key, System> systems_;
  std::vector<std::pair<std::size_t, std::int64_t>> node_systems_;
  std::vector<std::size_t> ones_;  // nodes in system 1, which is mostly the global one
  std::map<std::int64_t, std::uint64_t> displacement_systems_, export_systems_;
  std::map<Form, std::size_t> forms_;
  std::vector<std::size_t> form_of_;  // of each element
  std::vector<Key> left_out_;
};

}  // namespace

Result<Deck> ParseUnv(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  return UnvReader(bytes, name, options, faults).Read();
}

}  // namespace qx::exchange
