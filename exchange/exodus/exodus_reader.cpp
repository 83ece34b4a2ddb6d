#include "exchange/exodus/exodus_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <map>
#include <set>
#include <tuple>
#include <unordered_set>

#include "qx_db/mesh/topology_table.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/exodus/exodus_kinds.h"
#include "exchange/exodus/nc_file.h"
#include "exchange/field_values.h"
#include "exchange/key_set.h"
#include "exchange/room.h"

namespace qx::exchange {
namespace {

class ExodusReader {
 public:
  ExodusReader(NcReader& in, const std::string& name, const ReadOptions& options,
               std::vector<Failure>& faults)
      : in_(in), name_(name), options_(options), faults_(faults), before_(faults.size()) {}

  /// The deck, unless something was added to the faults.
  std::optional<Deck> Read() {
    deck_.format = "exodus";
    ReadNodes();
    Tell(0.2);
    ReadBlocks();
    Tell(0.5);
    ReadSets();
    ReadVariables();
    ReadTexts();
    TellOfTheRest();
    KeepError();
    if (faults_.size() > before_) return std::nullopt;
    Tell(1);
    return std::move(deck_);  // sound by the way it was made
  }

 private:
  struct Block {
    std::int64_t id;
    std::int64_t first;  // its first element in the file, from 0
    std::int64_t count;
    std::size_t in_deck = kAway;  // its first element there
  };

  void Tell(double done) {
    if (options_.progress && Ok()) options_.progress(done);
    if (options_.is_cancelled && options_.is_cancelled()) {
      faults_.push_back({name_, "", "the import was cancelled", ""});
      is_over_ = true;
    }
  }

  /// Whether anything more is to be read.
  bool Ok() const { return in_.Ok() && !is_over_ && faults_.size() < LossReport::kMostFaults; }
  void Fault(std::string place, std::string what) {
    if (faults_.size() >= LossReport::kMostFaults) return;
    faults_.push_back({name_, std::move(place), std::move(what), "write the file again"});
  }
  /// Keeps what was wrong with an array, and goes on with the others.
  void KeepError() {
    if (in_.Ok()) return;
    Failure failure = in_.TakeError();
    Fault(std::move(failure.place), std::move(failure.what));
  }

  std::uint64_t Count(const std::string& dimension) const {
    return in_.Dimension(dimension).value_or(0);
  }

  /// Fails for a number of things that the file cannot hold, or the model.
  void CheckNumber(const char* dimension, std::uint64_t count) {
    if (count <= static_cast<std::uint64_t>(kMaxKey) && count <= in_.MostValues()) return;
    in_.Fail(dimension, fmt::format("{} of them are more than the file can hold", count));
  }

  /// The numbers that a map gives to nodes or elements; their places, from 1, without one.
  std::vector<Key> Ids(const std::string& map, std::uint64_t count, const char* what) {
    std::vector<Key> keys;
    MakeRoom(keys, count);
    const auto by_place = [&] {
      keys.clear();
      for (std::size_t i = 0; i < count; ++i) keys.push_back(static_cast<Key>(i + 1));
      return std::move(keys);
    };
    if (!in_.Has(map)) return by_place();
    bool are_good = true;
    bool ascend = true;
    in_.Integers(map, count, [&](std::span<const std::int64_t> ids) {
      for (const std::int64_t id : ids) {
        are_good = are_good && id > 0 && id <= kMaxKey;
        ascend = ascend && (keys.empty() || id > keys.back());
        keys.push_back(static_cast<Key>(id));
      }
    });
    KeepError();
    if (keys.size() != count) return by_place();
    if (are_good && (ascend || KeySet(keys).Repeated() == 0)) return keys;
    deck_.report.Changed(fmt::format("numbers of {} were given anew", what), count, map,
                         "those of the file are not whole, positive and different");
    return by_place();
  }

  // ---- the mesh -----------------------------------------------------------------------------

  void ReadNodes() {
    const std::uint64_t nodes = Count("num_nodes");
    dimension_ = in_.NeededDimension("num_dim");
    if (in_.Ok() && (dimension_ < 1 || dimension_ > 3)) {
      in_.Fail("num_dim", fmt::format("{} dimensions cannot be", dimension_));
    }
    CheckNumber("num_nodes", nodes);
    KeepError();
    if (faults_.size() > before_) {
      is_over_ = true;  // nothing else makes sense
      return;
    }
    AppendBy(deck_.coordinates, 3 * nodes,
             [](double* to, std::size_t, std::size_t count) { std::fill_n(to, count, 0.0); });
    std::set<std::size_t> not_finite;  // a bound of them
    if (in_.Has("coord")) {
      std::uint64_t place = 0;
      in_.Reals("coord", dimension_ * nodes, [&](std::span<const double> values) {
        for (const double value : values) {
          const std::uint64_t at = place++;
          PutCoordinate(at % nodes, at / nodes, value, not_finite);
        }
      });
    } else if (nodes > 0) {
      for (std::size_t d = 0; d < dimension_; ++d) {
        std::size_t i = 0;
        in_.Reals(fmt::format("coord{}", "xyz"[d]), nodes, [&](std::span<const double> values) {
          for (const double value : values) PutCoordinate(i++, d, value, not_finite);
        });
        KeepError();
      }
    }
    KeepError();
    deck_.node_keys = Ids("node_num_map", nodes, "nodes");
    for (const std::size_t i : not_finite) {
      Fault(fmt::format("node {}", deck_.node_keys[i]), "a coordinate is not a finite number");
    }
  }

  void PutCoordinate(std::size_t node, std::size_t axis, double value,
                     std::set<std::size_t>& not_finite) {
    deck_.coordinates[3 * node + axis] = value;
    if (!std::isfinite(value) && not_finite.size() < LossReport::kMostFaults) {
      not_finite.insert(node);
    }
  }

  std::vector<std::string> NamesOf(const std::string& variable, std::uint64_t count) {
    std::vector<std::string> names;
    if (in_.Has(variable)) names = in_.Texts(variable);
    names.resize(count);
    for (std::string& name : names) {
      if (!IsUtf8(name)) name = "?";
    }
    return names;
  }
  std::vector<std::int64_t> IdsOf(const std::string& property, std::uint64_t count) {
    if (in_.Has(property)) return in_.Integers(property, count);
    std::vector<std::int64_t> ids(count);
    for (std::size_t i = 0; i < count; ++i) ids[i] = static_cast<std::int64_t>(i + 1);
    return ids;
  }

  Mesh::Group& AddGroup(const std::string& name, const char* what, std::int64_t id, int kind,
                        int dimension) {
    Mesh::Group group;
    group.name = name.empty() ? fmt::format("{} {}", what, id) : name;
    group.dimension = dimension;
    Mesh::SetTag tag;
    tag.kind = kind;
    tag.dimension = dimension;
    tag.tag = id == static_cast<std::int32_t>(id) ? static_cast<std::int32_t>(id) : 0;
    tag.named = !name.empty();
    group.tags.push_back(std::move(tag));
    deck_.groups.push_back(std::move(group));
    return deck_.groups.back();
  }

  void ReadBlocks() {
    const std::uint64_t elements = Count("num_elem");
    const std::uint64_t blocks = Count("num_el_blk");
    CheckNumber("num_elem", elements);
    CheckNumber("num_el_blk", blocks);
    if (!Ok()) return;
    const std::vector<std::int64_t> ids = IdsOf("eb_prop1", blocks);
    const std::vector<std::string> names = NamesOf("eb_names", blocks);
    // A bound on what the numbers below may ask for.
    std::vector<std::uint64_t> counts(blocks);
    std::uint64_t total = 0;
    for (std::size_t b = 0; b < blocks; ++b) {
      counts[b] = Count(fmt::format("num_el_in_blk{}", b + 1));
      total += std::min<std::uint64_t>(counts[b], 1u << 31);
    }
    KeepError();
    if (total != elements) {
      Fault("num_elem", fmt::format("the blocks have {} elements of {}", total, elements));
      is_over_ = true;
    }
    if (is_over_ || ids.size() != blocks) return;
    element_keys_ = Ids("elem_num_map", elements, "elements");
    MakeRoom(deck_.elements, elements);
    for (std::size_t b = 0; b < blocks && Ok(); ++b) {
      ReadBlock(b + 1, ids[b], names[b], static_cast<std::int64_t>(counts[b]));
      KeepError();
    }
    if (leaves_nodes_) ReportUnused(deck_, deck_.report);
  }

  void ReadBlock(std::size_t number, std::int64_t id, const std::string& name, std::int64_t count) {
    const std::int64_t first = blocks_.empty() ? 0 : blocks_.back().first + blocks_.back().count;
    blocks_.push_back({id, first, count});
    const std::string connect = fmt::format("connect{}", number);
    const std::string type = in_.TextAttribute(connect, "elem_type");
    const auto width = static_cast<std::int64_t>(Count(fmt::format("num_nod_per_el{}", number)));
    const auto kind = FindExodusKind(type, width);
    const int dimension = kind ? FindElementType(kind->code)->dimension : -1;
    Mesh::Group& group = AddGroup(name, "block", id, tagTSetTag::kElements, std::max(dimension, 0));
    if (count == 0) return;
    leaves_nodes_ = leaves_nodes_ || !kind || kind->is_reduced;
    if (!kind) {
      deck_.report.Lost(
          fmt::format("elements of type '{}' with {} nodes were left out", type, width),
          static_cast<std::uint64_t>(count), fmt::format("block {}", id),
          "the model has no such element");
      return;
    }
    if (kind->is_reduced) {
      deck_.report.Changed(fmt::format("{}-node elements of type '{}' were read as {}", width, type,
                                       FindElementType(kind->code)->plural),
                           static_cast<std::uint64_t>(count), fmt::format("block {}", id),
                           "the model has no such element: nodes that it lacks are left over");
    }
    const auto used = static_cast<std::size_t>(FindElementType(kind->code)->nodes);
    const auto per_row = static_cast<std::size_t>(width);
    const auto nodes = static_cast<std::int64_t>(deck_.node_keys.size());
    const Key* const node_keys = deck_.node_keys.data();
    const std::size_t in_deck = deck_.elements.size();
    const auto first_place = static_cast<std::size_t>(first);
    MakeRoom(deck_.connectivity,
             deck_.connectivity.size() + static_cast<std::size_t>(count) * used);
    std::array<std::size_t, 20> order;
    for (std::size_t i = 0; i < used; ++i) {
      order[i] = kind->order ? static_cast<std::size_t>(kind->order[i]) : i;
    }
    std::size_t e = 0;
    const auto take = [&](std::span<const std::int64_t> rows) {
      const std::size_t more = rows.size() / per_row;
      std::size_t at = deck_.connectivity.size();
      deck_.connectivity.resize(at + more * used);
      Key* to = deck_.connectivity.data() + at;
      for (const std::int64_t* row = rows.data(); row < rows.data() + more * per_row;
           row += per_row, ++e, at += used) {
        deck_.elements.push_back({element_keys_[first_place + e], kind->code, at});
        for (std::size_t i = 0; i < used; ++i) {
          const std::int64_t node = row[order[i]];
          if (node >= 1 && node <= nodes) {
            *to++ = node_keys[node - 1];
            continue;
          }
          Fault(connect, fmt::format("element {} names node {} of {}", e + 1, node, nodes));
          to += used - i;
          break;
        }
      }
    };
    // The pieces of an array of another shape end amid an element.
    std::vector<std::int64_t> rest;
    const auto add = [&](std::span<const std::int64_t> piece) {
      if (!rest.empty()) {
        const auto lacking = piece.first(std::min(per_row - rest.size(), piece.size()));
        rest.insert(rest.end(), lacking.begin(), lacking.end());
        piece = piece.subspan(lacking.size());
        if (rest.size() < per_row) return;
        take(rest);
      }
      const std::size_t whole = piece.size() / per_row * per_row;
      take(piece.first(whole));
      rest.assign(piece.begin() + static_cast<std::ptrdiff_t>(whole), piece.end());
    };
    in_.Integers(connect, static_cast<std::uint64_t>(count * width), add);
    if (!in_.Ok()) return;
    blocks_.back().in_deck = in_deck;
    const auto keys = element_keys_.begin() + first;
    group.elements.assign(keys, keys + count);
    ReadAttributes(number, blocks_.back());
  }

  // ---- fields -------------------------------------------------------------------------------

  tagTField& Field(const std::string& name, std::int32_t place, std::int32_t step, double time) {
    auto [found, is_new] = fields_.try_emplace({name, place, step}, deck_.Of<tagTField>().size());
    if (!is_new) return deck_.Of<tagTField>()[found->second];
    return AddField(deck_, name, place, 1, step, time);
  }

  /// Adds the values of a block's elements. What is no number has no value.
  void AddElementValues(tagTField& field, const Block& block, const std::vector<double>& values,
                        std::size_t stride = 1, std::size_t offset = 0) {
    for (std::int64_t e = 0; e < block.count; ++e) {
      const auto place = static_cast<std::size_t>(block.first + e);
      const double value = values[static_cast<std::size_t>(e) * stride + offset];
      if (block.in_deck == kAway || std::isnan(value)) continue;
      field.element_values.Add({value, static_cast<ITR>(element_keys_[place])});
    }
  }

  void ReadAttributes(std::size_t number, const Block& block) {
    const std::uint64_t count = Count(fmt::format("num_att_in_blk{}", number));
    const std::string variable = fmt::format("attrib{}", number);
    if (count == 0 || !in_.Has(variable)) return;
    if (count > kMostFields) {
      deck_.report.Lost("attributes of elements were left out", count,
                        fmt::format("block {}", block.id), kTooManyFields);
      return;
    }
    const std::vector<std::string> names = NamesOf(fmt::format("attrib_name{}", number), count);
    const std::vector<double> values =
        in_.Reals(variable, count * static_cast<std::uint64_t>(block.count));
    for (std::size_t a = 0; a < count && in_.Ok(); ++a) {
      const std::string name = names[a].empty() ? std::to_string(a + 1) : names[a];
      AddElementValues(Field(std::string(kExodusAttribute) + name, tagTField::kElements, 0, 0),
                       block, values, count, a);
    }
  }

  /// How many variables to read of those that a dimension counts.
  std::uint64_t CountFields(const char* dimension, const char* left_out) {
    const std::uint64_t count = Count(dimension);
    if (count <= kMostFields) return count;
    deck_.report.Lost(left_out, count, dimension, kTooManyFields);
    return 0;
  }

  void ReadVariables() {
    const std::uint64_t steps = Count("time_step");
    CheckNumber("time_step", steps);
    if (!Ok()) return;
    std::vector<double> times;
    if (in_.Has("time_whole")) times = in_.Reals("time_whole", steps);
    KeepError();
    times.resize(steps);
    if (steps == 0) return;
    const std::uint64_t of_nodes = CountFields("num_nod_var", "variables of nodes were left out");
    const std::uint64_t of_elements =
        CountFields("num_elem_var", "variables of elements were left out");
    const std::vector<std::string> node_names = NamesOf("name_nod_var", of_nodes);
    const std::vector<std::string> element_names = NamesOf("name_elem_var", of_elements);
    const std::uint64_t nodes = deck_.node_keys.size();
    const bool is_old = in_.Has("vals_nod_var");  // all variables in one array
    if (is_old) {
      deck_.report.Lost("variables of nodes were left out", of_nodes, "vals_nod_var",
                        "they are in the form of 32-bit files of old");
    }
    struct Part {
      std::size_t variable;
      std::size_t block;
      std::string name;
    };
    std::vector<Part> parts;
    for (const std::string& name : in_.Variables()) {
      unsigned variable = 0;
      unsigned block = 0;
      if (std::sscanf(name.c_str(), "vals_elem_var%ueb%u", &variable, &block) != 2) continue;
      if (variable < 1 || variable > of_elements || block < 1 || block > blocks_.size()) continue;
      if (blocks_[block - 1].count > 0) parts.push_back({variable - 1, block - 1, name});
    }
    std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) {
      return std::pair(a.variable, a.block) < std::pair(b.variable, b.block);
    });
    for (std::uint64_t step = 0; step < steps && Ok(); ++step) {
      const auto number = static_cast<std::int32_t>(step + 1);
      for (std::size_t v = 0; v < of_nodes && !is_old && Ok(); ++v) {
        const std::vector<double> values =
            in_.RealsAt(fmt::format("vals_nod_var{}", v + 1), step, nodes);
        if (!in_.Ok()) {
          KeepError();
          continue;
        }
        tagTField& field = Field(node_names[v], tagTField::kNodes, number, times[step]);
        field.node_values.Reserve(static_cast<std::int64_t>(nodes));
        for (std::size_t i = 0; i < nodes; ++i) {
          if (std::isnan(values[i])) continue;
          field.node_values.Add({values[i], static_cast<ITR>(deck_.node_keys[i])});
        }
      }
      for (const Part& part : parts) {
        const Block& block = blocks_[part.block];
        const std::vector<double> values =
            in_.RealsAt(part.name, step, static_cast<std::uint64_t>(block.count));
        if (!in_.Ok()) {
          KeepError();
          continue;
        }
        AddElementValues(
            Field(element_names[part.variable], tagTField::kElements, number, times[step]), block,
            values);
      }
      Tell(0.6 + 0.3 * static_cast<double>(step + 1) / static_cast<double>(steps));
    }
  }

  // ---- sets ---------------------------------------------------------------------------------

  void ReadSets() {
    ForEachSet(
        "num_node_sets", "ns", "node set", tagTSetTag::kNodes, "num_nod_ns",
        [&](std::size_t number, std::uint64_t count, Mesh::Group& group) {
          for (const std::int64_t node : in_.Integers(fmt::format("node_ns{}", number), count)) {
            if (node < 1 || node > static_cast<std::int64_t>(deck_.node_keys.size())) {
              Fault(fmt::format("node_ns{}", number), fmt::format("node {} is not there", node));
              continue;
            }
            group.nodes.push_back(deck_.node_keys[static_cast<std::size_t>(node) - 1]);
          }
        });
    ForEachSet("num_elem_sets", "els", "element set", tagTSetTag::kElements, "num_ele_els",
               [&](std::size_t number, std::uint64_t count, Mesh::Group& group) {
                 std::uint64_t gone = 0;
                 for (const std::int64_t element :
                      in_.Integers(fmt::format("elem_els{}", number), count)) {
                   const Mesh::Element* found =
                       ElementAt(fmt::format("elem_els{}", number), element);
                   if (found) group.elements.push_back(found->key);
                   gone += !found;
                 }
                 deck_.report.Lost("members of sets that were not read", gone, group.name,
                                   "their elements were left out");
               });
    ForEachSet("num_side_sets", "ss", "side set", tagTSetTag::kSides, "num_side_ss",
               [&](std::size_t number, std::uint64_t count, Mesh::Group& group) {
                 ReadSides(number, count, group);
               });
    // A set may list a member twice, the model's sets list it once.
    for (Mesh::Group& group : deck_.groups) {
      for (std::vector<Key>* members : {&group.elements, &group.nodes}) {
        if (group.tags[0].kind == tagTSetTag::kElements && group.tags[0].dimension >= 0) continue;
        std::unordered_set<Key> seen;
        const auto end = std::remove_if(members->begin(), members->end(),
                                        [&](Key key) { return !seen.insert(key).second; });
        deck_.report.Changed("members that sets list twice",
                             static_cast<std::uint64_t>(members->end() - end), group.name,
                             "a mesh set has each once");
        members->erase(end, members->end());
      }
    }
  }

  template <class Fill>
  void ForEachSet(const char* dimension, const std::string& letters, const char* what, int kind,
                  const char* size, const Fill& fill) {
    const std::uint64_t sets = Count(dimension);
    if (!Ok() || sets == 0) return;
    CheckNumber(dimension, sets);
    if (!Ok()) return KeepError();
    const std::vector<std::int64_t> ids = IdsOf(letters + "_prop1", sets);
    const std::vector<std::string> names = NamesOf(letters + "_names", sets);
    KeepError();
    if (ids.size() != sets) return;
    for (std::size_t s = 0; s < sets && Ok(); ++s) {
      Mesh::Group& group = AddGroup(names[s], what, ids[s], kind, -1);
      const std::uint64_t count = Count(size + std::to_string(s + 1));
      if (count > 0) fill(s + 1, count, group);
      KeepError();
    }
  }

  /// The element at a place of the file, from 1; null for one that was left out.
  const Mesh::Element* ElementAt(const std::string& variable, std::int64_t place) {
    if (place < 1 || place > static_cast<std::int64_t>(element_keys_.size())) {
      Fault(variable, fmt::format("element {} is not there", place));
      return nullptr;
    }
    const auto behind =
        std::upper_bound(blocks_.begin(), blocks_.end(), place - 1,
                         [](std::int64_t at, const Block& block) { return at < block.first; });
    if (behind == blocks_.begin()) return nullptr;
    const Block& block = *std::prev(behind);
    if (block.in_deck == kAway || place - 1 >= block.first + block.count) return nullptr;
    return &deck_.elements[block.in_deck + static_cast<std::size_t>(place - 1 - block.first)];
  }

  void ReadSides(std::size_t number, std::uint64_t count, Mesh::Group& group) {
    const std::string elements_name = fmt::format("elem_ss{}", number);
    const std::vector<std::int64_t> elements = in_.Integers(elements_name, count);
    const std::vector<std::int64_t> sides = in_.Integers(fmt::format("side_ss{}", number), count);
    std::uint64_t gone = 0;
    std::unordered_set<Key> seen;
    for (std::size_t i = 0; i < sides.size() && Ok(); ++i) {
      const Mesh::Element* element = ElementAt(elements_name, elements[i]);
      if (!element) {
        ++gone;
        continue;
      }
      const std::int32_t side = SideOfExodus(element->type, sides[i], dimension_ == 3);
      if (side < 0) {
        Fault(fmt::format("side_ss{}", number),
              fmt::format("element {} has no side {}", element->key, sides[i]));
        continue;
      }
      group.tags[0].sides.emplace_back(element->key, side);
      for (const Key node : NodesOf(*element, side)) {
        if (seen.insert(node).second) group.nodes.push_back(node);
      }
    }
    deck_.report.Lost("sides of elements that were not read", gone, group.name,
                      "their elements were left out");
  }

  std::vector<Key> NodesOf(const Mesh::Element& element, std::int32_t side) const {
    const ElementTopology topology(element.type);
    const Key* const own = deck_.connectivity.data() + element.first;
    const int dimension = FindElementType(element.type)->dimension;
    std::vector<Key> nodes;
    if (dimension == 3) {
      for (const std::int32_t node : topology.Face(side, true)) nodes.push_back(own[node]);
    } else if (dimension == 2 && side < topology.Edges()) {
      for (const std::int32_t node : topology.Edge(side, true)) nodes.push_back(own[node]);
    } else if (dimension == 2) {
      nodes.assign(own, own + topology.Nodes());
    } else {
      nodes.push_back(own[side]);
    }
    return nodes;
  }

  /// Factors that are not 1 have no place in the model.
  void TellOfFactors(const std::string& variable) {
    std::uint64_t others = 0;
    in_.Reals(variable, NcReader::kAny, [&](std::span<const double> factors) {
      others += static_cast<std::uint64_t>(
          std::count_if(factors.begin(), factors.end(), [](double factor) { return factor != 1; }));
    });
    KeepError();
    deck_.report.Lost("distribution factors of sets", others, variable,
                      "the model has no place for them");
  }

  // ---- the rest -----------------------------------------------------------------------------

  void ReadTexts() {
    if (!Ok()) return;
    tagTOrigin origin;
    origin.title.Set(Utf16(in_.TextAttribute("", "title")));
    deck_.Of<tagTOrigin>().push_back(origin);
    std::int32_t order = 0;
    for (const char* name : {"qa_records", "info_records"}) {
      if (!in_.Has(name)) continue;
      std::string text;
      for (const std::string& line : in_.Texts(name)) {
        text += (IsUtf8(line) ? line : std::string("?")) + "\n";
      }
      KeepError();
      if (text.empty()) continue;
      tagTCarried carried;
      carried.key = ++order;
      carried.format.Set(u"exodus");
      carried.keyword.Set(Utf16(name));
      carried.order = order;
      carried.checked = tagTCarried::kNoKeys;
      carried.text.Assign(text.data(), text.size());
      deck_.Of<tagTCarried>().push_back(std::move(carried));
    }
  }

  /// Whatever is in the file and was not read is told: by name, so that nothing is lost that nobody
  /// thought of.
  void TellOfTheRest() {
    if (!Ok()) return;
    LossReport& report = deck_.report;
    for (const std::string& variable : in_.Variables()) {
      if (variable.starts_with("dist_fact_")) {
        TellOfFactors(variable);
        continue;
      }
      const std::string_view loss = ExodusLossOf(variable);
      if (loss.empty()) continue;
      report.Lost(std::string(loss), 1, variable, "the model has no place for them");
    }
    if (dimension_ < 3 && !deck_.node_keys.empty()) {
      report.Assumed(fmt::format("a mesh of {} dimensions lies in space, at 0", dimension_));
    }
    const std::uint64_t steps = Count("time_step");
    if (steps > 0 && deck_.Of<tagTField>().empty()) {
      report.Lost("times of steps without values", steps, "time_whole",
                  "the model has the times of fields");
    }
  }

  static constexpr std::size_t kAway = ~std::size_t{0};
  // A small file must not make a model of fields without values.
  static constexpr std::uint64_t kMostFields = 10000;
  static constexpr const char* kTooManyFields = "more than 10000 are not read";

  NcReader& in_;
  const std::string& name_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  std::size_t before_;
  bool is_over_ = false;
  bool leaves_nodes_ = false;  // some that only elements had which were not read, or not whole
  std::uint64_t dimension_ = 3;
  Deck deck_;
  std::vector<Block> blocks_;
  std::vector<Key> element_keys_;  // by place in the file
  std::map<std::tuple<std::string, std::int32_t, std::int32_t>, std::size_t> fields_;
};

}  // namespace

Result<Deck> ReadExodus(const std::string& path, const ReadOptions& options,
                        std::vector<Failure>& faults) {
  const auto file = NcReader::Open(path);
  if (!file) {
    faults.push_back(file.Error());
    return file.Error();
  }
  const std::size_t before = faults.size();
  std::optional<Deck> deck = ExodusReader(**file, path, options, faults).Read();
  if (!deck) return faults[before];
  return std::move(*deck);
}

Result<Deck> ParseExodus(std::string_view bytes, const std::string& name,
                         std::vector<Failure>* faults) {
  const auto file = NcReader::OpenMemory(bytes, name);
  if (!file) return file.Error();
  std::vector<Failure> found;
  std::optional<Deck> deck = ExodusReader(**file, name, {}, found).Read();
  if (faults) faults->insert(faults->end(), found.begin(), found.end());
  if (!deck) return found.front();
  return std::move(*deck);
}

}  // namespace qx::exchange
