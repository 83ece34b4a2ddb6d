#include "exchange/vtk/vtk_builder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <set>
#include <unordered_set>

#include "qx_db/record/element_types.h"

#include "exchange/key_set.h"

namespace qx::exchange {
namespace {

constexpr double kLargestWhole = 9007199254740992;  // 2^53: beyond it doubles leave some out

std::vector<double> Reals(const VtkArray& array, std::uint64_t& rounded) {
  std::vector<double> values;
  array.AppendTo(values, [&](auto value) {
    const auto real = static_cast<double>(value);
    if constexpr (sizeof(value) == 8 && std::is_integral_v<decltype(value)>) {
      rounded += std::abs(real) > kLargestWhole;
    }
    return real;
  });
  return values;
}

/// Cell types; 255, which is none, for what is not from 0 to 254.
std::vector<std::uint8_t> TypesOf(const VtkArray& array) {
  std::vector<std::uint8_t> types;
  array.AppendTo(types, [](auto value) {
    return value >= 0 && value < 255 ? static_cast<std::uint8_t>(value) : std::uint8_t{255};
  });
  return types;
}

bool IsGhostArray(const VtkArray& array) {
  return array.components == 1 && (array.name == "vtkGhostType" || array.name == "vtkGhostLevels");
}

void SetName(tagTField& field, const std::string& name, LossReport& report) {
  field.name.Set(Utf16(name));
  const std::string kept = Utf8(field.name.View());
  if (kept != name) {
    report.Changed("names of fields were cut", 1, fmt::format("\"{}\", now \"{}\"", name, kept),
                   "a field's name has 63 characters");
  }
}

}  // namespace

std::size_t VtkBuilder::PlaceHash::operator()(const Place& place) const {
  std::uint64_t hash = 0;
  for (const std::uint64_t bits : place.bits) {
    hash = (std::rotl(hash, 29) ^ bits) * 0x9E3779B97F4A7C15;  // Knuth's multiplicative hashing
  }
  return static_cast<std::size_t>(hash ^ hash >> 32);
}

void VtkBuilder::Faults::Add(std::string where, std::string what) {
  if (AreFull()) return;
  if (!piece.place.empty()) where = piece.place + (where.empty() ? "" : ", ") + where;
  all.push_back({file, std::move(where), std::move(what), "write the file again"});
}

bool VtkBuilder::Add(const VtkPiece& piece, const std::string& file, std::vector<Failure>& all) {
  ++piece_;
  Faults faults{piece, file, all, all.size()};
  if (piece.points + deck_.node_keys.size() > KeyedSetBase::kParamMask ||
      piece.cells + deck_.elements.size() > KeyedSetBase::kParamMask) {
    faults.Add("", "it has more points or cells than a model can hold");
    return false;
  }
  AddPoints(piece, faults);
  AddCells(piece, faults);
  if (!faults.None()) return false;
  for (const VtkArray& array : piece.point_data) AddData(array, true);
  for (const VtkArray& array : piece.cell_data) AddData(array, false);
  return true;
}

// ---- the mesh -----------------------------------------------------------------------------------

void VtkBuilder::AddPoints(const VtkPiece& piece, Faults& faults) {
  std::vector<double>& all = deck_.coordinates;
  const std::size_t base = all.size();
  piece.coordinates.AppendTo(all, [](auto value) { return static_cast<double>(value); });
  for (std::size_t i = base; i < all.size() && !faults.AreFull(); ++i) {
    if (std::isfinite(all[i])) continue;
    const std::size_t point = (i - base) / 3;
    faults.Add(fmt::format("point {}", point), "a coordinate is not a finite number");
    i = base + 3 * point + 2;  // once for each point
  }
  point_keys_.resize(piece.points);
  is_repeated_.clear();
  Key next = static_cast<Key>(deck_.node_keys.size());
  if (pieces_ < 2) {
    for (Key& key : point_keys_) key = ++next;
  } else {
    const auto place_of = [&](std::size_t i) {
      Place place;
      for (std::size_t d = 0; d < 3; ++d) {
        place.bits[d] = std::bit_cast<std::uint64_t>(all[base + 3 * i + d] + 0.0);  // -0 is 0
      }
      return place;
    };
    std::unordered_map<Place, std::uint32_t, PlaceHash> here;
    here.reserve(piece.points);
    for (std::size_t i = 0; i < piece.points; ++i) ++here[place_of(i)];
    is_repeated_.assign(piece.points, false);
    std::size_t kept = base;
    for (std::size_t i = 0; i < piece.points; ++i) {
      const Place place = place_of(i);
      const bool is_double = here[place] > 1;
      const auto [there, is_new] =
          places_.try_emplace(place, Occupant{next + 1, piece_, is_double});
      // Where a piece has two points at one place they are to be apart: a crack, a contact.
      const bool is_shared =
          !is_new && !is_double && !there->second.is_double && there->second.piece != piece_;
      shared_ += is_shared;
      doubles_ += !is_new && !is_shared && there->second.piece != piece_;
      if (is_shared && merge_) {
        is_repeated_[i] = true;
        point_keys_[i] = there->second.key;
        continue;
      }
      point_keys_[i] = ++next;
      std::copy_n(all.begin() + static_cast<std::ptrdiff_t>(base + 3 * i), 3,
                  all.begin() + static_cast<std::ptrdiff_t>(kept));
      kept += 3;
    }
    all.resize(kept);
  }
  MakeRoom(deck_.node_keys, static_cast<std::size_t>(next));
  for (Key key = static_cast<Key>(deck_.node_keys.size()) + 1; key <= next; ++key) {
    deck_.node_keys.push_back(key);
  }
}

/// Turns the places of points that the cells name into keys, behind the connectivity that is there.
void VtkBuilder::AddNodes(const VtkPiece& piece, const std::vector<std::int64_t>& offsets,
                          Faults& faults) {
  const std::size_t base = deck_.connectivity.size();
  const Key* const keys = point_keys_.data();
  const std::uint64_t points = piece.points;
  bool is_wrong = false;
  piece.connectivity.AppendTo(deck_.connectivity, [&](auto value) {
    const auto index = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    const bool is_there = index < points;
    is_wrong |= !is_there;
    return is_there ? keys[index] : 0;
  });
  if (!is_wrong) return;
  // By cell, each once.
  auto cell = offsets.begin();
  std::ptrdiff_t last = -1;
  for (std::size_t i = base; i < deck_.connectivity.size() && !faults.AreFull(); ++i) {
    if (deck_.connectivity[i] != 0) continue;
    cell = std::upper_bound(offsets.begin(), offsets.end(), static_cast<std::int64_t>(i - base));
    if (cell - offsets.begin() == last) continue;
    last = cell - offsets.begin();
    faults.Add(fmt::format("cell {}", last),
               fmt::format("it names a point that is none of the {}", piece.points));
  }
}

void VtkBuilder::AddCells(const VtkPiece& piece, Faults& faults) {
  const std::vector<std::uint8_t> types = TypesOf(piece.types);
  const std::vector<std::int64_t> offsets = piece.offsets.Integers();
  const std::size_t base = deck_.connectivity.size();
  AddNodes(piece, offsets, faults);
  const std::size_t node_count = deck_.connectivity.size() - base;
  // Elements have at most the nodes of their cells and can take their place, unless cells are
  // split.
  const bool is_split = std::any_of(types.begin(), types.end(), [](std::uint8_t type) {
    return type == kVtkPolyVertex || type == kVtkPolyLine || type == kVtkTriangleStrip;
  });
  std::vector<Key> apart;
  if (is_split)
    apart.assign(deck_.connectivity.begin() + static_cast<std::ptrdiff_t>(base),
                 deck_.connectivity.end());
  std::vector<std::int64_t> ghosts;
  std::int64_t ghost_bits = 1;  // a cell that another piece has, too
  for (const VtkArray& array : piece.cell_data) {
    if (pieces_ < 2 || !IsGhostArray(array)) continue;
    ghosts = array.Integers();
    if (array.name == "vtkGhostLevels") ghost_bits = -1;
  }

  first_element_ = deck_.elements.size();
  cell_of_.clear();
  MakeRoom(cell_of_, piece.cells);
  MakeRoom(deck_.elements, first_element_ + piece.cells);
  node_end_ = base;
  std::int64_t begin = 0;
  int last_type = -1;
  std::size_t last_count = 0;
  std::optional<VtkKind> kind;
  std::size_t nodes = 0;  // of an element of that kind
  for (std::size_t cell = 0; cell < piece.cells; ++cell) {
    const std::int64_t end = offsets[cell];
    if (end < begin || end > static_cast<std::int64_t>(node_count)) {
      faults.Add(fmt::format("cell {}", cell),
                 fmt::format("its offset {} is not between {} and {}", end, begin, node_count));
      if (faults.AreFull()) return;
      continue;
    }
    const Key* const first = (is_split ? apart.data() : deck_.connectivity.data() + base) + begin;
    const auto count = static_cast<std::size_t>(end - begin);
    begin = end;
    if (types[cell] != last_type || count != last_count) {
      last_type = types[cell];
      last_count = count;
      kind = FindVtkKind(last_type, count, old_hexahedra_);
      nodes = kind && kind->code != 0 ? static_cast<std::size_t>(FindElementType(kind->code)->nodes)
                                      : 0;
    }
    if (!kind) {
      faults.Add(fmt::format("cell {}", cell),
                 fmt::format("a cell of type {} cannot have {} nodes", last_type, count));
      if (faults.AreFull()) return;
      continue;
    }
    if (!ghosts.empty() && (ghosts[cell] & ghost_bits) > 0) {
      ++ghosts_;
      continue;
    }
    if (kind->code == 0) {
      Tell(left_out_[kind->plural], piece, cell);
      continue;
    }
    if (kind->fate == VtkKind::Fate::kReduced) {
      Tell(reduced_[{kind->plural, kind->code}], piece, cell);
    }
    if (kind->fate == VtkKind::Fate::kRenamed) ++renamed_[{kind->plural, kind->code}];
    if (kind->fate == VtkKind::Fate::kSplit) {
      ++renamed_[{kind->plural, kind->code}];
      SplitCell(last_type, *kind, first, count, cell);
    } else {
      AddElement(kind->code, nodes, first, kind->order, cell);
    }
  }
  deck_.connectivity.resize(node_end_);
}

/// Counts a cell that is not read as it is, and keeps where the first of its kind was.
void VtkBuilder::Tell(Told& told, const VtkPiece& piece, std::size_t cell) {
  if (told.count++ > 0) return;
  told.where = fmt::format("{}{}cell {}", piece.place, piece.place.empty() ? "" : ", ", cell);
}

/// A new element of these nodes, of which `order` tells which come when. They may be those that
/// stand where the element's are put.
void VtkBuilder::AddElement(std::int32_t code, std::size_t count, const Key* nodes,
                            const std::int8_t* order, std::size_t cell) {
  deck_.elements.push_back({static_cast<Key>(deck_.elements.size() + 1), code, node_end_});
  cell_of_.push_back(static_cast<std::uint32_t>(cell));
  std::array<Key, 20> ordered;
  for (std::size_t i = 0; order && i < count; ++i) ordered[i] = nodes[order[i]];
  const Key* const from = order ? ordered.data() : nodes;
  if (node_end_ + count > deck_.connectivity.size()) {
    deck_.connectivity.resize(2 * (node_end_ + count));
  }
  Key* const to = deck_.connectivity.data() + node_end_;
  if (to != from) std::memmove(to, from, count * sizeof(Key));
  node_end_ += count;
}

void VtkBuilder::SplitCell(int number, const VtkKind& kind, const Key* nodes, std::size_t count,
                           std::size_t cell) {
  // Every second triangle of a strip runs the other way round.
  constexpr std::int8_t kTurned[] = {0, 2, 1};
  const auto width = static_cast<std::size_t>(FindElementType(kind.code)->nodes);
  for (std::size_t i = 0; i + width <= count; ++i) {
    const bool turned = number == kVtkTriangleStrip && i % 2 == 1;
    AddElement(kind.code, width, nodes + i, turned ? kTurned : nullptr, cell);
  }
}

// ---- data ---------------------------------------------------------------------------------------

VtkBuilder::Role VtkBuilder::RoleOf(const VtkArray& array, bool of_points) const {
  if (array.components != 1 || !array.IsInteger()) return Role::kField;
  if (of_points && array.name == "node_key") return Role::kNodeKey;
  if (!of_points && array.name == "element_key") return Role::kElementKey;
  if (!of_points && array.name == "element_type") return Role::kElementType;
  if (!of_points && array.name == "property_key") return Role::kPropertyKey;
  const bool is_set =
      std::any_of(notes_.sets.begin(), notes_.sets.end(),
                  [&](const VtkNotes::Set& set) { return set.array == array.name; });
  return is_set ? Role::kSet : Role::kField;
}

/// Calls `visit` with every element of the piece and the value of its cell.
template <class Visit>
void VtkBuilder::ForEachOfElement(const VtkArray& array, Visit&& visit) const {
  std::size_t e = first_element_;
  std::uint32_t cell = 0;
  array.ForEach([&](auto value) {
    for (; e - first_element_ < cell_of_.size() && cell_of_[e - first_element_] == cell; ++e) {
      visit(e, AsInteger(value));
    }
    ++cell;
  });
}

void VtkBuilder::AddData(const VtkArray& array, bool of_points) {
  if (pieces_ > 1 && IsGhostArray(array)) return;
  const auto key_of = [](std::int64_t value) {
    return value > 0 && value <= kMaxKey ? static_cast<Key>(value) : 0;
  };
  const std::size_t elements = deck_.elements.size();
  switch (RoleOf(array, of_points)) {
    case Role::kNodeKey: {
      node_wishes_.resize(deck_.node_keys.size());
      std::size_t i = 0;
      array.ForEach([&](auto value) {
        const std::size_t point = i++;
        if (!is_repeated_.empty() && is_repeated_[point]) return;
        node_wishes_[static_cast<std::size_t>(point_keys_[point]) - 1] = key_of(AsInteger(value));
      });
      return;
    }
    case Role::kElementKey: {
      element_wishes_.resize(elements);
      ForEachOfElement(array, [&](std::size_t e, std::int64_t value) {
        const std::size_t i = e - first_element_;
        const bool is_part = i > 0 && cell_of_[i - 1] == cell_of_[i];
        if (!is_part) element_wishes_[e] = key_of(value);
      });
      return;
    }
    case Role::kElementType: {
      bool are_ours = true;
      ForEachOfElement(array, [&](std::size_t e, std::int64_t value) {
        are_ours &= value == deck_.elements[e].type;
      });
      if (!are_ours) AddField(array, of_points);
      return;
    }
    case Role::kPropertyKey:
      return ForEachOfElement(array, [&](std::size_t e, std::int64_t value) {
        deck_.elements[e].property = key_of(value);
      });
    case Role::kSet:
      return AddMembers(array, of_points);
    case Role::kField:
      return AddField(array, of_points);
  }
}

void VtkBuilder::AddMembers(const VtkArray& array, bool of_points) {
  auto& members = members_[array.name];  // elements and nodes
  if (of_points) {
    std::size_t i = 0;
    array.ForEach([&](auto flag) {
      const bool is_here = is_repeated_.empty() || !is_repeated_[i];
      if (flag != 0 && is_here) members.second.push_back(point_keys_[i]);
      ++i;
    });
    return;
  }
  ForEachOfElement(array, [&](std::size_t e, std::int64_t flag) {
    if (flag != 0) members.first.push_back(static_cast<Key>(e + 1));
  });
}

tagTField& VtkBuilder::FieldFor(const VtkArray& array, bool of_points) {
  const auto [found, is_new] = fields_.try_emplace(FieldKey{of_points, array.name});
  tagTField& field = found->second;
  if (!is_new) return field;
  field_order_.push_back(found->first);
  field.place = of_points ? tagTField::kNodes : tagTField::kElements;
  field.components = static_cast<std::int32_t>(array.components);
  field.integers = array.IsInteger();
  field.time = time_;
  const auto note = std::find_if(notes_.fields.begin(), notes_.fields.end(), [&](const auto& n) {
    return n.array == array.name && n.of_points == of_points;
  });
  if (note == notes_.fields.end()) {
    SetName(field, array.name, deck_.report);
    return field;
  }
  SetName(field, note->name, deck_.report);
  field.category = note->category;
  field.integers = note->integers;
  field.step = note->step;
  field.time = note->time;
  return field;
}

void VtkBuilder::AddField(const VtkArray& array, bool of_points) {
  tagTField& field = FieldFor(array, of_points);
  const std::size_t width = array.components;
  if (static_cast<std::size_t>(field.components) != width) {
    deck_.report.Lost("arrays whose components differ from piece to piece", 1, array.place,
                      "a field has as many everywhere");
    return;
  }
  const std::vector<double> values = Reals(array, rounded_);
  if (rounded_ > 0 && rounded_where_.empty()) rounded_where_ = array.place;
  const bool is_partial =
      std::any_of(notes_.fields.begin(), notes_.fields.end(), [&](const auto& note) {
        return note.partial && note.array == array.name && note.of_points == of_points;
      });
  const std::size_t targets = of_points ? point_keys_.size() : cell_of_.size();
  const auto have = field.node_values.size() + field.element_values.size();
  if (have + targets * width > static_cast<std::size_t>(kMaxKey)) {
    deck_.report.Lost("values of fields that have too many", targets * width, array.place,
                      "the model cannot hold them");
    return;
  }
  const auto fill = [&](auto& list, const auto& source_and_key) {
    std::int64_t at = list.GetSize();
    list.SetSize(at + static_cast<std::int64_t>(targets * width));
    auto* to = list.data() + at;
    for (std::size_t i = 0; i < targets; ++i) {
      const auto [source, key] = source_and_key(i);
      if (key == 0) continue;
      const double* from = values.data() + source * width;
      if (is_partial && std::all_of(from, from + width, [](double x) { return std::isnan(x); })) {
        continue;
      }
      for (std::size_t c = 0; c < width; ++c, ++to) {
        to->value = from[c];
        to->target = static_cast<ITR>(key);
      }
    }
    list.SetSize(to - list.data());
  };
  if (of_points && is_repeated_.empty()) {
    fill(field.node_values, [&](std::size_t i) { return std::pair(i, point_keys_[i]); });
  } else if (of_points) {
    const std::vector<bool> has_value = WithValueOfAnother(field, values, array.place);
    fill(field.node_values,
         [&](std::size_t i) { return std::pair(i, has_value[i] ? 0 : point_keys_[i]); });
    const auto by_target = [](const auto& a, const auto& b) {
      return static_cast<ITR>(a.target) < static_cast<ITR>(b.target);
    };
    auto* const first = field.node_values.data();
    std::stable_sort(first, first + field.node_values.size(), by_target);
  } else {
    fill(field.element_values, [&](std::size_t i) {
      return std::pair(cell_of_[i], static_cast<Key>(first_element_ + i + 1));
    });
  }
}

/// The points of the piece whose nodes have a value from another one already, which they keep;
/// counts those for which this piece has another value.
std::vector<bool> VtkBuilder::WithValueOfAnother(const tagTField& field,
                                                 const std::vector<double>& values,
                                                 const std::string& place) {
  std::vector<bool> has_value(point_keys_.size());
  const auto width = static_cast<std::size_t>(field.components);
  const auto* const begin = field.node_values.data();
  const auto* const end = begin + field.node_values.size();
  for (std::size_t i = 0; i < point_keys_.size(); ++i) {
    if (!is_repeated_[i]) continue;
    const auto node = static_cast<ITR>(point_keys_[i]);
    const auto* const found = std::lower_bound(begin, end, node, [](const auto& value, ITR key) {
      return static_cast<ITR>(value.target) < key;
    });
    has_value[i] = found != end && static_cast<ITR>(found->target) == node;
    bool is_same = true;
    for (std::size_t c = 0; has_value[i] && c < width; ++c) {
      const double one = found[c].value;
      const double other = values[i * width + c];
      is_same = is_same && (one == other || (std::isnan(one) && std::isnan(other)));
    }
    if (!is_same && differing_.count++ == 0) differing_.where = place;
  }
  return has_value;
}

// ---- the end ------------------------------------------------------------------------------------

/// Keys for places: the wished ones where they are free, new ones elsewhere; none when the places
/// themselves will do.
void VtkBuilder::GiveKeys(std::vector<Key>& wishes, std::size_t count, const char* what,
                          std::vector<Key>& keys) {
  if (wishes.empty()) return;
  wishes.resize(count);
  // Most often the numbers are the places, from 1.
  Key place = 0;
  if (std::all_of(wishes.begin(), wishes.end(), [&](Key wish) { return wish == ++place; })) return;
  const bool is_whole = std::find(wishes.begin(), wishes.end(), 0) == wishes.end();
  if (is_whole && KeySet(wishes).Repeated() == 0) {
    keys = std::move(wishes);
    return;
  }
  std::unordered_set<Key> used(wishes.begin(), wishes.end());
  std::unordered_set<Key> given;
  Key next = 1;
  std::uint64_t again = 0;
  Key first = 0;
  for (const Key wish : wishes) {
    Key key = wish;
    if (key == 0 || !given.insert(key).second) {
      again += key != 0;
      if (key != 0 && first == 0) first = key;
      while (used.contains(next)) ++next;
      key = next++;
    }
    keys.push_back(key);
  }
  deck_.report.Changed(fmt::format("numbers that {} share were given anew", what), again,
                       first == 0 ? "" : fmt::format("number {}", first),
                       "a number names one of them");
}

void VtkBuilder::Rename(const std::vector<Key>& nodes, const std::vector<Key>& elements) {
  const auto rename = [](std::vector<Key>& list, const std::vector<Key>& keys) {
    if (keys.empty()) return;
    for (Key& key : list) key = keys[static_cast<std::size_t>(key) - 1];
  };
  rename(deck_.node_keys, nodes);
  rename(deck_.connectivity, nodes);
  for (auto& [name, lists] : members_) {
    rename(lists.first, elements);
    rename(lists.second, nodes);
  }
  for (std::size_t i = 0; i < elements.size(); ++i) deck_.elements[i].key = elements[i];
  const auto rename_targets = [](auto& values, const std::vector<Key>& keys) {
    if (keys.empty()) return;
    for (auto& value : values) {
      value.target = static_cast<ITR>(keys[static_cast<std::size_t>(ITR{value.target}) - 1]);
    }
  };
  for (auto& [name, field] : fields_) {
    rename_targets(field.node_values, nodes);
    rename_targets(field.element_values, elements);
  }
}

void VtkBuilder::AddSets() {
  std::map<Key, std::size_t> place;
  for (const VtkNotes::Set& set : notes_.sets) {
    Mesh::Group group;
    group.name = set.name;
    group.color = set.color;
    group.key = set.key;
    if (const auto found = members_.find(set.array); found != members_.end()) {
      group.elements = found->second.first;
      group.nodes = found->second.second;
    }
    place.emplace(set.key, deck_.groups.size());
    deck_.groups.push_back(std::move(group));
  }
  for (std::size_t i = 0; i < notes_.sets.size(); ++i) {
    const auto parent = place.find(notes_.sets[i].parent);
    if (parent == place.end() || notes_.sets[i].parent == 0) continue;
    deck_.groups[i].parent = static_cast<std::int32_t>(parent->second);
  }
  Key key = 0;
  for (const VtkNotes::Tag& from : notes_.tags) {
    const auto set = place.find(from.set);
    if (set == place.end()) continue;
    tagTSetTag tag;
    tag.key = ++key;
    tag.format.Set(Utf16(from.format));
    tag.set = set->second + 1;
    tag.kind = from.tag.kind;
    tag.dimension = from.tag.dimension;
    tag.tag = from.tag.tag;
    tag.named = from.tag.named;
    for (const auto& [element, side] : from.tag.sides) {
      tag.sides.Add({static_cast<ITR>(element), side});
    }
    deck_.Of<tagTSetTag>().push_back(std::move(tag));
  }
}

Deck VtkBuilder::Finish(const char* format) {
  std::vector<Key> nodes;
  std::vector<Key> elements;
  GiveKeys(node_wishes_, deck_.node_keys.size(), "points", nodes);
  GiveKeys(element_wishes_, deck_.elements.size(), "cells", elements);
  Rename(nodes, elements);
  AddSets();
  Key key = 0;
  for (const FieldKey& name : field_order_) {
    tagTField& field = fields_[name];
    field.key = ++key;
    deck_.Of<tagTField>().push_back(std::move(field));
  }
  std::set<Key> properties;
  for (const Mesh::Element& element : deck_.elements) {
    if (element.property > 0) properties.insert(element.property);
  }
  for (const Key number : properties) {
    tagTProp property;
    property.key = number;
    property.name.Set(Utf16(fmt::format("property {}", number)));
    deck_.Of<tagTProp>().push_back(property);
  }
  if (!properties.empty()) {
    deck_.report.Assumed(
        fmt::format("{} properties are known by number only: they hold it", properties.size()));
  }
  deck_.units = notes_.units;
  deck_.format = format;
  FillReport();
  return std::move(deck_);
}

void VtkBuilder::FillReport() {
  LossReport& report = deck_.report;
  for (const auto& [kind, told] : reduced_) {
    report.Changed(
        fmt::format("{} were read as {}", kind.first, FindElementType(kind.second)->plural),
        told.count, told.where, "the model has no such element: nodes that it lacks are left over");
  }
  for (const auto& [kind, count] : renamed_) {
    report.Assumed(fmt::format("{} {} were read as {}", count, kind.first,
                               FindElementType(kind.second)->plural));
  }
  for (const auto& [plural, told] : left_out_) {
    report.Lost(plural + " were left out", told.count, told.where, "the model has no such element");
  }
  report.Changed("ghost cells, which another piece has, were left out", ghosts_, "vtkGhostType",
                 "each element is read once");
  report.Changed("whole numbers beyond 2^53 were rounded", rounded_, rounded_where_,
                 "fields hold double numbers");
  if (shared_ > 0) {
    report.Assumed(
        merge_ ? fmt::format("{} points at the place of a point of another piece are one node",
                             shared_)
               : fmt::format("{} points at the place of a point of another piece stayed apart; "
                             "--option points=merged makes one node of each",
                             shared_));
  }
  if (merge_ && doubles_ > 0) {
    report.Assumed(
        fmt::format("{} points at the place of a point of another piece stayed apart", doubles_),
        "a piece has two at one place");
  }
  report.Changed("values of one point that differ from piece to piece", differing_.count,
                 differing_.where, "a node keeps that of the first piece");
  if (!reduced_.empty() || !left_out_.empty() || ghosts_ > 0) ReportUnused(deck_, report);
}

}  // namespace qx::exchange
