#include "exchange/msh_writer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <system_error>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/element_types.h"

#include "exchange/group_classes.h"
#include "exchange/mesh.h"
#include "exchange/msh_kinds.h"
#include "exchange/msh_sink.h"

namespace qx::exchange {
namespace {

bool IsMissing(ITR itr) { return itr == 0 || KeyedSetBase::IsRemoved(itr); }

/// A name without line ends and other control characters, which a line of text cannot hold.
std::string OneLine(std::u16string_view name, bool& changed) {
  std::string line = Utf8(name);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) >= 0x20) continue;
    c = '?';
    changed = true;
  }
  return line;
}

/// Elements that the file has, in the entities it needs: elements of one dimension that are in the
/// same sets share one, but for points, which have one each.
class MshModel {
 public:
  explicit MshModel(const CQXDBSession& session)
      : nodes_(*session.GetPool<DPoolNode>(code::kNode)),
        elements_(*session.GetPool<DPoolElem>(code::kElem)),
        length_unit_(session.Units().GetConvertFactorCurrent(unit::kLength)) {
    ListCells();
    classes_ = ElementClasses(cells_.size());
    ListSets(*session.GetPool<DPoolMset>(code::kMset));
    FindEntities();
    const auto* active = session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);
    active_sets_ = active ? active->GetSize() : 0;
  }

  std::uint64_t Items() const {
    return cells_.size() + static_cast<std::uint64_t>(nodes_.GetSize());
  }

  void Write(MshSink& out, bool binary) const {
    out.Text("$MeshFormat\n4.1 {} 8\n", binary ? 1 : 0);
    if (binary) out.Int(1);
    out.EndSection("MeshFormat");
    WriteNames(out);
    WriteSets(out);
    WriteEntities(out);
    WriteNodes(out);
    WriteElements(out);
  }

  void AddNotes(std::vector<std::string>& notes) const {
    const auto note = [&](const std::string& what, std::int64_t count) {
      if (count > 0) notes.push_back(fmt::format("{}: {}", what, count));
    };
    for (const auto& [type, count] : other_types_) {
      note(fmt::format("elements of type {} were left out", type), count);
    }
    note("elements without all their nodes were left out", incomplete_);
    note("elements were written without their property", with_property_);
    note("active element sets were left out", active_sets_);
    note("line ends and the like in names of mesh sets became question marks", renamed_);
  }

 private:
  struct Cell {
    const tagTElem* element;
    std::uint32_t entity = 0;
  };
  struct Set {
    const tagTMset* record;
    std::int32_t tag;
    std::string name;
    std::set<int> dimensions;
    std::vector<Key> extra_nodes;
  };
  struct Entity {
    int dimension;
    std::int32_t tag;
    std::vector<std::uint32_t> sets;
    std::array<double, 3> low{};
    std::array<double, 3> high{};
    bool is_empty = true;
  };
  static int DimensionOf(const tagTElem& element) {
    return FindElementType(element.type)->dimension;
  }

  void ListCells() {
    for (ITR at = elements_.GetHeadPosition(); at; elements_.Next(at)) {
      elements_.SetParamIdx(at, KeyedSetBase::kParamMask);
      const tagTElem& element = elements_.GetAtNU(at);
      const ElementType* type = FindElementType(element.type);
      if (!type) {
        ++other_types_[element.type];
      } else if (element.nodes.GetSize() != type->nodes ||
                 std::any_of(element.nodes.begin(), element.nodes.end(), IsMissing)) {
        ++incomplete_;
      } else {
        elements_.SetParamIdx(at, static_cast<std::uint32_t>(cells_.size()));
        cells_.push_back({&element});
        with_property_ += element.property != 0;
      }
    }
  }

  /// Numbers of the cells that a set lists.
  std::vector<std::uint32_t> Members(const tagTMset& set) const {
    std::vector<std::uint32_t> members;
    for (const ITR element : set.elements) {
      if (IsMissing(element)) continue;
      const std::uint32_t cell = elements_.GetParamIdx(element);
      if (cell < cells_.size()) members.push_back(cell);
    }
    return members;
  }

  void ListSets(const DPoolMset& pool) {
    const ITR by_default = pool.DefaultItr();
    for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
      const tagTMset& record = pool.GetAtNU(at);
      if (at == by_default && record.nodes.IsEmpty() && record.elements.IsEmpty()) continue;
      bool changed = false;
      Set set{&record, record.key, OneLine(record.name.View(), changed), {}, {}};
      renamed_ += changed;
      if (set.tag == 0) set.tag = pool.Set().GetNewKeyUp(1);  // the format's tags begin at 1
      const std::vector<std::uint32_t> members = Members(record);
      classes_.AddGroup(members);
      ItemMarks told(nodes_);
      for (const std::uint32_t cell : members) {
        set.dimensions.insert(DimensionOf(*cells_[cell].element));
        told.Add({cells_[cell].element->nodes.data(), cells_[cell].element->nodes.size()});
      }
      for (const ITR node : record.nodes) {
        if (!IsMissing(node) && told.Insert(node)) set.extra_nodes.push_back(KeyOf(node));
      }
      // A set without elements still has a name to be known by.
      if (set.dimensions.empty()) set.dimensions.insert(0);
      sets_.push_back(std::move(set));
    }
  }

  std::array<double, 3> PositionOf(ITR node) const {
    const tagTVector3<double> p = nodes_.GetAtNU(node).position;
    return {p.x / length_unit_, p.y / length_unit_, p.z / length_unit_};
  }

  static void Widen(Entity& entity, const std::array<double, 3>& point) {
    for (std::size_t i = 0; i < 3; ++i) {
      entity.low[i] = entity.is_empty ? point[i] : std::min(entity.low[i], point[i]);
      entity.high[i] = entity.is_empty ? point[i] : std::max(entity.high[i], point[i]);
    }
    entity.is_empty = false;
  }

  void FindEntities() {
    std::array<std::int32_t, 4> last_tag{};
    std::map<std::pair<int, std::uint32_t>, std::uint32_t> known;
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      const int dimension = DimensionOf(*cells_[i].element);
      const std::uint32_t element_class = classes_.ClassOf(i);
      const auto next = static_cast<std::uint32_t>(entities_.size());
      const auto found =
          dimension == 0 ? next
                         : known.emplace(std::pair(dimension, element_class), next).first->second;
      if (found == next) {
        const std::int32_t tag = ++last_tag[static_cast<std::size_t>(dimension)];
        entities_.push_back({dimension, tag, classes_.GroupsOf(element_class)});
      }
      cells_[i].entity = found;
      for (const ITR node : cells_[i].element->nodes) Widen(entities_[found], PositionOf(node));
    }
    if (entities_.empty()) {  // nodes need one to be on
      entities_.push_back({3, 1, {}});
      for (ITR at = nodes_.GetHeadPosition(); at; nodes_.Next(at)) {
        Widen(entities_.back(), PositionOf(at));
      }
    }
  }

  void WriteNames(MshSink& out) const {
    std::size_t count = 0;
    for (const Set& set : sets_) count += set.dimensions.size();
    if (count == 0) return;
    out.Text("$PhysicalNames\n{}\n", count);
    for (int dimension = 0; dimension < 4; ++dimension) {
      for (const Set& set : sets_) {
        if (!set.dimensions.contains(dimension)) continue;
        out.Text("{} {} \"{}\"\n", dimension, set.tag, set.name);
      }
    }
    out.Text("$EndPhysicalNames\n");
  }

  void WriteSets(MshSink& out) const {
    if (sets_.empty()) return;
    std::map<Key, std::size_t> place;  // from 1
    for (std::size_t i = 0; i < sets_.size(); ++i) place.emplace(sets_[i].record->key, i + 1);
    out.Text("$QXMeshSets\n{}\n", sets_.size());
    for (const Set& set : sets_) {
      const auto parent = place.find(set.record->parent_key);
      out.Text("{} {:06X} {} {}", set.record->key, static_cast<std::uint32_t>(set.record->color),
               parent == place.end() ? 0 : parent->second, set.dimensions.size());
      for (const int dimension : set.dimensions) out.Text(" {} {}", dimension, set.tag);
      out.Text(" {}", set.extra_nodes.size());
      for (const Key node : set.extra_nodes) out.Text(" {}", node);
      out.Text(" \"{}\"\n", set.name);
    }
    out.Text("$EndQXMeshSets\n");
  }

  void WriteEntities(MshSink& out) const {
    std::array<std::uint64_t, 4> counts{};
    for (const Entity& entity : entities_) ++counts[static_cast<std::size_t>(entity.dimension)];
    out.Text("$Entities\n");
    for (const std::uint64_t count : counts) out.Size(count);
    out.EndLine();
    for (int dimension = 0; dimension < 4; ++dimension) {
      for (const Entity& entity : entities_) {
        if (entity.dimension != dimension) continue;
        out.Int(entity.tag);
        for (const double value : entity.low) out.Real(value);
        if (dimension > 0) {
          for (const double value : entity.high) out.Real(value);
        }
        out.Size(entity.sets.size());
        for (const std::uint32_t set : entity.sets) out.Int(sets_[set].tag);
        if (dimension > 0) out.Size(0);  // its boundary
        out.EndLine();
      }
    }
    out.EndSection("Entities");
  }

  /// The first line of $Nodes and $Elements: blocks, items, and the least and largest number.
  static void WriteTotals(MshSink& out, std::uint64_t blocks, const std::vector<Key>& keys) {
    const auto [least, largest] = std::minmax_element(keys.begin(), keys.end());
    out.Size(blocks);
    out.Size(keys.size());
    out.Size(static_cast<std::uint64_t>(keys.empty() ? 0 : *least));
    out.Size(static_cast<std::uint64_t>(keys.empty() ? 0 : *largest));
    out.EndLine();
  }

  void WriteNodes(MshSink& out) const {
    std::vector<Key> keys;
    for (ITR at = nodes_.GetHeadPosition(); at;) keys.push_back(nodes_.GetNextNU(at).key);
    out.Text("$Nodes\n");
    WriteTotals(out, keys.empty() ? 0 : 1, keys);
    if (!keys.empty()) {
      // All in one block, which keeps their order, on an entity of the highest dimension.
      const Entity& on = *std::max_element(
          entities_.begin(), entities_.end(),
          [](const Entity& a, const Entity& b) { return a.dimension < b.dimension; });
      out.Int(on.dimension);
      out.Int(on.tag);
      out.Int(0);  // no parameters
      out.Size(keys.size());
      out.EndLine();
      for (const Key key : keys) {
        out.Size(static_cast<std::uint64_t>(key));
        out.EndLine();
      }
      for (ITR at = nodes_.GetHeadPosition(); at; nodes_.Next(at)) {
        for (const double value : PositionOf(at)) out.Real(value);
        out.EndLine();
        if (!out.CountItem()) return;
      }
    }
    out.EndSection("Nodes");
  }

  /// Elements from `begin` that follow each other in one entity and of one type: a block.
  std::size_t EndOfBlock(std::size_t begin) const {
    std::size_t end = begin;
    while (end < cells_.size() && cells_[end].entity == cells_[begin].entity &&
           cells_[end].element->type == cells_[begin].element->type) {
      ++end;
    }
    return end;
  }

  void WriteElements(MshSink& out) const {
    std::uint64_t blocks = 0;
    for (std::size_t i = 0; i < cells_.size(); i = EndOfBlock(i)) ++blocks;
    std::vector<Key> keys;
    for (const Cell& cell : cells_) keys.push_back(cell.element->key);
    out.Text("$Elements\n");
    WriteTotals(out, blocks, keys);
    for (std::size_t begin = 0; begin < cells_.size();) {
      const std::size_t end = EndOfBlock(begin);
      const Entity& entity = entities_[cells_[begin].entity];
      const MshKind kind = *MshKindOf(cells_[begin].element->type);
      out.Int(entity.dimension);
      out.Int(entity.tag);
      out.Int(kind.number);
      out.Size(end - begin);
      out.EndLine();
      for (; begin < end; ++begin) {
        WriteElement(out, *cells_[begin].element, kind);
        if (!out.CountItem()) return;
      }
    }
    out.EndSection("Elements");
  }

  static void WriteElement(MshSink& out, const tagTElem& element, const MshKind& kind) {
    const auto count = static_cast<std::size_t>(element.nodes.GetSize());
    std::array<Key, 20> in_file{};
    for (std::size_t i = 0; i < count; ++i) {
      const auto place = kind.order ? static_cast<std::size_t>(kind.order[i]) : i;
      in_file[place] = KeyOf(element.nodes[static_cast<std::ptrdiff_t>(i)]);
    }
    out.Size(static_cast<std::uint64_t>(element.key));
    for (std::size_t i = 0; i < count; ++i) out.Size(static_cast<std::uint64_t>(in_file[i]));
    out.EndLine();
  }

  DPoolNode& nodes_;
  DPoolElem& elements_;
  double length_unit_;
  std::vector<Cell> cells_;
  ElementClasses classes_{0};
  std::vector<Set> sets_;
  std::vector<Entity> entities_;
  std::map<std::int32_t, std::int64_t> other_types_;
  std::int64_t incomplete_ = 0;
  std::int64_t with_property_ = 0;
  std::int64_t active_sets_ = 0;
  std::int64_t renamed_ = 0;
};

Outcome CheckNumbers(const DPoolBase& pool, const char* what, const std::string& path) {
  if (!pool.Find(0)) return {};
  return Failure{path, fmt::format("{} 0", what), "numbers in a MSH file begin at 1",
                 "renumber the model"};
}

}  // namespace

Outcome WriteMsh(const CQXDBSession& session, const std::string& path, MshEncoding encoding,
                 std::vector<std::string>* notes, const Progress& progress) {
  if (!session.GetDataPool(code::kMset)) {
    return Failure{path, "", "the model has no pool of mesh sets", "add the standard pools"};
  }
  Outcome fits = CheckCanBeWritten(session, path);
  if (fits) fits = CheckNumbers(*session.GetDataPool(code::kNode), "node", path);
  if (fits) fits = CheckNumbers(*session.GetDataPool(code::kElem), "element", path);
  if (!fits) return fits;

  const MshModel model(session);
  const std::string sibling = SiblingName(path);
  const auto reason = [] { return std::generic_category().message(errno); };
  std::ofstream out(PathFromUtf8(sibling), std::ios::binary | std::ios::trunc);
  if (!out) {
    return Failure{path, "", "cannot be created: " + reason(),
                   "check the folder and its permissions"};
  }
  const bool binary = encoding == MshEncoding::kBinary;
  {
    MshSink sink(out, binary, model.Items(), progress);
    model.Write(sink, binary);
  }
  out.close();
  Outcome outcome =
      out ? ReplaceFileDurably(sibling, path)
          : Failure{path, "", "cannot be written: " + reason(), "free some disk space"};
  if (!outcome) {
    std::error_code ignored;
    std::filesystem::remove(PathFromUtf8(sibling), ignored);
    return outcome;
  }
  if (notes) model.AddNotes(*notes);
  if (progress) progress(1.0);
  return {};
}

}  // namespace qx::exchange
