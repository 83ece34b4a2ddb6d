#include "exchange/cgns/cgns_solutions.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <numeric>
#include <set>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/cgns/cgns_model.h"

namespace qx::exchange {
namespace {

using Child = CgnsTree::Child;

constexpr std::size_t kNameWidth = 32;

std::string Clean(const std::string& name) { return IsUtf8(name) ? name : "?"; }

/// The number at the end of a name with the letter before it, as in "SolutionAtStep3"; "" for none.
std::string NumberAtEnd(const std::string& name) {
  const std::size_t letter = name.find_last_not_of("0123456789");
  const bool is_number = letter != name.npos && letter + 1 < name.size() && name[letter] != ' ';
  return is_number ? name.substr(letter) : std::string();
}

}  // namespace

std::vector<Key> CgnsCellKeys(const Deck& deck, std::size_t first_element,
                              const std::vector<Key>& key_of, const std::vector<bool>& is_lost,
                              std::int64_t dimension) {
  std::vector<Key> keys;
  std::size_t e = first_element;
  const auto add_element = [&] {
    if (e == deck.elements.size()) return;
    const Mesh::Element& element = deck.elements[e++];
    if (FindElementType(element.type)->dimension == dimension) keys.push_back(element.key);
  };
  for (std::size_t number = 1; number < key_of.size(); ++number) {
    if (key_of[number] != 0) {
      add_element();
    } else if (is_lost[number]) {
      keys.push_back(0);
    }
  }
  while (key_of.empty() && e < deck.elements.size()) add_element();
  return keys;
}

void CgnsSolutionReader::ReadSteps(const std::vector<Child>& of_base) {
  for (const Child& child : of_base) {
    if (child.label != "BaseIterativeData_t") continue;
    for (const Child& array : tree_.Children(child.path)) {
      if (array.name == "TimeValues") times_ = tree_.File().Reals(CgnsTree::Data(array.path));
      if (array.name == "IterationValues") numbers_ = tree_.IntegersOf(array.path);
    }
  }
}

void CgnsSolutionReader::ReadPointers(const Child& node) {
  for (const Child& array : tree_.Children(node.path)) {
    if (!array.name.starts_with("FlowSolution") || array.name.find("Pointers") == array.name.npos ||
        tree_.File().KindOf(CgnsTree::Data(array.path)) != H5Reader::Kind::kText) {
      continue;
    }
    const std::string names = tree_.File().Bytes(CgnsTree::Data(array.path));
    for (std::size_t step = 0; step < names.size() / kNameWidth; ++step) {
      std::string name = names.substr(step * kNameWidth, kNameWidth);
      name.resize(std::min(name.find('\0'), name.size()));
      name.resize(name.find_last_not_of(' ') + 1);
      step_of_.try_emplace(name, step + 1);
    }
  }
}

/// The step of a solution, from 1; 0 for none. Where the lists name those of cells only, those of
/// vertices have the same number at their ends.
std::size_t CgnsSolutionReader::StepOf(const std::string& solution) const {
  if (const auto found = step_of_.find(solution); found != step_of_.end()) return found->second;
  const std::string number = NumberAtEnd(solution);
  if (number.empty()) return 0;
  for (const auto& [name, step] : step_of_) {
    if (NumberAtEnd(name) == number) return step;
  }
  return 0;
}

void CgnsSolutionReader::ReadZone(const Zone& zone, const std::vector<Child>& of_zone) {
  step_of_.clear();
  in_zone_.clear();
  for (const Child& child : of_zone) {
    if (child.label == "ZoneIterativeData_t") ReadPointers(child);
  }
  for (const Child& child : of_zone) {
    if (child.label != "FlowSolution_t") continue;
    ReadSolution(zone, child);
    // Of a broken solution nothing more is read; the mesh that it is of may be whole.
    if (tree_.File().Ok()) continue;
    const Failure failure = tree_.File().TakeError();
    deck_.report.Lost("solutions that are broken were left out, from there on", 1,
                      Clean(failure.place), failure.what);
  }
}

void CgnsSolutionReader::LeaveOut(const Child& solution, const char* why) {
  deck_.report.Lost("solutions were left out", 1, Clean(solution.path.substr(1)), why);
}

bool CgnsSolutionReader::FindTargets(const Zone& zone, const std::vector<Child>& below,
                                     bool is_of_nodes, std::vector<Key>& targets) {
  std::string list;
  bool is_range = false;
  for (const Child& child : below) {
    if (child.name != "PointList" && child.name != "PointRange") continue;
    list = child.path;
    is_range = child.name == "PointRange";
  }
  if (list.empty() && is_of_nodes) {
    const auto first = deck_.node_keys.begin() + static_cast<std::ptrdiff_t>(zone.first_node);
    targets.assign(first, first + static_cast<std::ptrdiff_t>(zone.nodes));
    return true;
  }
  if (list.empty()) return targets = zone.cells, true;
  if (zone.elements.empty()) return false;
  std::vector<std::int64_t> points = tree_.IntegersOf(list);
  if (is_range && points.size() == 2) {
    const auto [low, high] = std::minmax(points[0], points[1]);
    if (low < 1 || high > static_cast<std::int64_t>(std::max(zone.nodes, zone.elements.size()))) {
      return false;
    }
    points.resize(static_cast<std::size_t>(high - low) + 1);
    std::iota(points.begin(), points.end(), std::int64_t{low});
  }
  const std::size_t most = is_of_nodes ? zone.nodes : zone.elements.size() - 1;
  for (const std::int64_t point : points) {
    if (point < 1 || static_cast<std::uint64_t>(point) > most) return false;
    const auto at = static_cast<std::size_t>(point);
    targets.push_back(is_of_nodes ? deck_.node_keys[zone.first_node + at - 1] : zone.elements[at]);
  }
  return true;
}

void CgnsSolutionReader::ReadSolution(const Zone& zone, const Child& solution) {
  const std::vector<Child> below = tree_.Children(solution.path);
  if (tree_.RindOf(solution.path) > 0) {
    return LeaveOut(solution, "they have values of rind (ghost) points, which are not read");
  }
  std::vector<Array> arrays;
  std::string location = "Vertex";
  for (const Child& child : below) {
    const H5Reader::Kind kind = tree_.File().KindOf(CgnsTree::Data(child.path));
    if (child.label == "GridLocation_t") location = tree_.TextOf(child.path);
    if (child.label != "DataArray_t") continue;
    if (kind != H5Reader::Kind::kReal && kind != H5Reader::Kind::kInteger) continue;
    const std::string full = tree_.TextOf(tree_.Find(child.path, "FullName"));
    arrays.push_back(
        {Clean(full.empty() ? child.name : full), child.path, kind == H5Reader::Kind::kInteger});
  }
  const bool is_of_nodes = location == "Vertex";
  if (!is_of_nodes && !location.ends_with("Center")) {
    return LeaveOut(solution, "they are neither of vertices nor of cells, faces or edges");
  }
  std::vector<Key> targets;
  const bool has_list = std::any_of(below.begin(), below.end(), [](const Child& child) {
    return child.name == "PointList" || child.name == "PointRange";
  });
  if (!is_of_nodes && location != "CellCenter" && !has_list) {
    return LeaveOut(solution, "faces and edges without a list are not numbered");
  }
  if (!FindTargets(zone, below, is_of_nodes, targets)) {
    return LeaveOut(solution, "their list names what there is not, or points of a structured zone");
  }
  const std::size_t step = StepOf(solution.name);
  const std::int32_t place = is_of_nodes ? tagTField::kNodes : tagTField::kElements;
  for (std::size_t a = 0; a < arrays.size() && tree_.File().Ok();) {
    const auto is_part = [&](std::size_t c) {
      const std::string& first = arrays[a].name;
      return a + c < arrays.size() && first.size() > 1 &&
             arrays[a + c].name.size() == first.size() && arrays[a + c].name.back() == "XYZ"[c] &&
             arrays[a + c].name.compare(0, first.size() - 1, first, 0, first.size() - 1) == 0;
    };
    const bool is_vector = is_part(0) && is_part(1) && is_part(2);
    std::string name = arrays[a].name;
    if (is_vector) name.pop_back();
    ReadArrays(&arrays[a], is_vector ? 3 : 1, std::move(name), place, step, targets);
    a += is_vector ? 3 : 1;
  }
}

void CgnsSolutionReader::ReadArrays(const Array* first, std::size_t count, std::string name,
                                    std::int32_t place, std::size_t step,
                                    const std::vector<Key>& targets) {
  std::vector<double> values;
  bool is_whole = true;
  for (const Array* array = first; array != first + count; ++array) {
    const std::vector<double> column =
        tree_.File().Reals(CgnsTree::Data(array->path), targets.size());
    if (!tree_.File().Ok()) return;
    values.insert(values.end(), column.begin(), column.end());
    is_whole = is_whole && array->is_whole;
  }
  const auto components = static_cast<std::int32_t>(count);
  // Zones have parts of one field; a zone that has its name twice has two.
  FieldKey key{std::move(name), place, components, step, 0};
  key.nth = in_zone_[key]++;
  const auto [found, is_new] = fields_.try_emplace(key, deck_.Of<tagTField>().size());
  if (is_new) {
    std::int32_t number = 0;
    if (step > 0) {
      const std::int64_t given =
          step <= numbers_.size() ? numbers_[step - 1] : static_cast<std::int64_t>(step);
      number = static_cast<std::int32_t>(std::clamp<std::int64_t>(given, 0, kMaxKey));
    }
    const double time = step > 0 && step <= times_.size() ? times_[step - 1] : 0;
    AddField(deck_, key.name, place, components, number, std::isfinite(time) ? time : 0).integers =
        is_whole;
  }
  tagTField& field = deck_.Of<tagTField>()[found->second];
  for (std::size_t i = 0; i < targets.size(); ++i) {
    if (targets[i] != 0) AddValues(field, targets[i], &values[i], targets.size());
  }
}

// ---- writing ------------------------------------------------------------------------------------

CgnsSolutions SolutionsOf(const Deck& deck,
                          const std::unordered_map<Key, std::int32_t>& node_number,
                          const std::unordered_map<Key, std::int32_t>& element_number,
                          const std::vector<std::int32_t>& cells, CgnsNames& names,
                          LossReport& report) {
  CgnsSolutions solutions;
  std::set<std::pair<std::int32_t, double>> steps;
  LossReport twice;  // each is told of once
  for (const tagTField& field : deck.Of<tagTField>()) {
    const bool has_step = field.step != 0 || field.time != 0;
    if (has_step && IsTable(field, twice)) steps.insert({field.step, double{field.time}});
  }
  solutions.steps.assign(steps.begin(), steps.end());
  std::vector<CgnsNames> array_names;  // of each solution
  for (const tagTField& field : deck.Of<tagTField>()) {
    if (!IsTable(field, report)) continue;
    const bool is_of_nodes = field.place == tagTField::kNodes;
    const auto& numbers = is_of_nodes ? node_number : element_number;
    FieldTable table = TableOf(field, [&](Key key) {
      const auto found = numbers.find(key);
      return found == numbers.end() ? kNowhere : static_cast<std::size_t>(found->second) - 1;
    });
    TellOfTable(field, table, report);
    if (table.targets.empty()) continue;
    std::vector<std::int32_t> points;
    for (const std::size_t target : table.targets) {
      points.push_back(static_cast<std::int32_t>(target) + 1);
    }
    if (is_of_nodes ? table.IsOf(node_number.size()) : points == cells) points.clear();
    std::size_t step = 0;
    if (field.step != 0 || field.time != 0) {
      const std::pair at(std::int32_t{field.step}, double{field.time});
      step = 1 + static_cast<std::size_t>(
                     std::lower_bound(solutions.steps.begin(), solutions.steps.end(), at) -
                     solutions.steps.begin());
    }
    auto found =
        std::find_if(solutions.all.begin(), solutions.all.end(), [&](const CgnsSolution& solution) {
          return solution.is_of_nodes == is_of_nodes && solution.step == step &&
                 solution.points == points;
        });
    if (found == solutions.all.end()) {
      CgnsSolution solution;
      solution.name = names.Take(fmt::format("{}Solution{}", is_of_nodes ? "Vertex" : "Cell",
                                             step > 0 ? fmt::format("AtStep{}", step) : ""));
      solution.is_of_nodes = is_of_nodes;
      solution.points = std::move(points);
      solution.step = step;
      solutions.all.push_back(std::move(solution));
      array_names.push_back(CgnsNames{"GridLocation", "PointList", "FullName"});
      found = std::prev(solutions.all.end());
    }
    CgnsNames& taken = array_names[static_cast<std::size_t>(found - solutions.all.begin())];
    const bool is_whole =
        field.integers != 0 && std::all_of(table.values.begin(), table.values.end(), [](double v) {
          return v == std::nearbyint(v) && std::abs(v) <= std::numeric_limits<std::int32_t>::max();
        });
    const std::string name = Utf8(field.name.View());
    report.Changed("fields of several components were written as an array for each",
                   field.components == 2 || field.components > 3, name,
                   "an array has one number of each; three that end in X, Y and Z are a vector");
    for (std::int32_t c = 0; c < field.components; ++c) {
      CgnsSolution::Array array;
      array.full = field.components == 1   ? name
                   : field.components == 3 ? name + "XYZ"[c]
                                           : fmt::format("{}_{}", name, c + 1);
      array.name = taken.Take(array.full);
      array.table = solutions.tables.size();
      array.component = c;
      array.is_whole = is_whole;
      found->arrays.push_back(std::move(array));
    }
    solutions.tables.push_back(std::move(table));
  }
  return solutions;
}

}  // namespace qx::exchange
