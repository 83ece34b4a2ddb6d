// Entities, nodes and elements of version 4.1.

#include <algorithm>
#include <charconv>

#include "qx_db/record/verbs.h"

#include "exchange/msh/msh_kinds.h"
#include "exchange/msh/msh_write_sections.h"

namespace qx::exchange {
namespace {

using Entity = MshModel::Entity;

bool IsPartition(const Entity& entity) {
  return entity.block && !entity.block->partitions.IsEmpty();
}

void WriteEntity(const MshModel& model, const Entity& entity, MshSink& out) {
  out.Int(entity.tag);
  if (IsPartition(entity)) {
    out.Int(entity.block->parent_dimension);
    out.Int(entity.block->parent_tag);
    out.Size(entity.block->partitions.size());
    for (const std::int32_t partition : entity.block->partitions) out.Int(partition);
  }
  for (const double value : entity.low) out.Real(value);
  if (entity.dimension > 0) {
    for (const double value : entity.high) out.Real(value);
  }
  out.Size(entity.sets.size());
  for (const std::uint32_t set : entity.sets) {
    out.Int(model.Sets()[set].tags.at(entity.dimension).number);
  }
  if (entity.dimension > 0) {
    const bool has_boundary = entity.block && entity.block->tag == entity.tag;
    out.Size(has_boundary ? entity.block->boundary.size() : 0);
    if (has_boundary) {
      for (const std::int32_t tag : entity.block->boundary) out.Int(tag);
    }
  }
  out.EndLine();
}

/// Entities that are partitions, or those that are none.
void WriteEntityLists(const MshModel& model, bool partitions, MshSink& out) {
  std::array<std::uint64_t, 4> counts{};
  for (const Entity& entity : model.Entities()) {
    if (IsPartition(entity) == partitions) ++counts[static_cast<std::size_t>(entity.dimension)];
  }
  for (const std::uint64_t count : counts) out.Size(count);
  out.EndLine();
  for (int dimension = 0; dimension < 4; ++dimension) {
    for (const Entity& entity : model.Entities()) {
      if (entity.dimension != dimension || IsPartition(entity) != partitions) continue;
      WriteEntity(model, entity, out);
    }
  }
}

void WriteGhostEntities(const MshModel& model, MshSink& out) {
  const std::string text = GhostEntities(model);
  std::vector<std::int32_t> numbers;
  const char* at = text.data();
  const char* end = at + text.size();
  while (at < end) {
    std::int32_t number = 0;
    const auto [next, error] = std::from_chars(at, end, number);
    if (error == std::errc()) numbers.push_back(number);
    at = error == std::errc() ? next : at + 1;
  }
  out.Size(numbers.empty() ? 1 : static_cast<std::uint64_t>(numbers[0]));
  out.EndLine();
  out.Size(numbers.empty() ? 0 : (numbers.size() - 1) / 2);
  out.EndLine();
  for (std::size_t i = 1; i + 1 < numbers.size(); i += 2) {
    out.Int(numbers[i]);
    out.Int(numbers[i + 1]);
    out.EndLine();
  }
}

void WriteEntities(const MshModel& model, MshSink& out) {
  const auto& entities = model.Entities();
  const bool has_partitions = std::any_of(entities.begin(), entities.end(), IsPartition);
  if (!has_partitions || !std::all_of(entities.begin(), entities.end(), IsPartition)) {
    out.Text("$Entities\n");
    WriteEntityLists(model, false, out);
    out.EndSection("Entities");
  }
  if (!has_partitions) return;
  out.Text("$PartitionedEntities\n");
  WriteGhostEntities(model, out);
  WriteEntityLists(model, true, out);
  out.EndSection("PartitionedEntities");
}

/// The first line of $Nodes and $Elements: blocks, items, and the least and largest number.
void WriteTotals(MshSink& out, std::uint64_t blocks, const std::vector<Key>& keys) {
  const auto [least, largest] = std::minmax_element(keys.begin(), keys.end());
  out.Size(blocks);
  out.Size(keys.size());
  out.Size(static_cast<std::uint64_t>(keys.empty() ? 0 : *least));
  out.Size(static_cast<std::uint64_t>(keys.empty() ? 0 : *largest));
  out.EndLine();
}

/// Nodes that follow each other on one entity are a block.
void WriteNodes(const MshModel& model, MshSink& out) {
  struct Run {
    const Entity* on;
    ITR first;
    std::size_t count;
  };
  std::vector<Run> runs;
  std::vector<Key> keys;
  DPoolNode& nodes = model.Nodes();
  for (ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
    const Entity& on = model.EntityOf(at);
    if (runs.empty() || runs.back().on != &on) runs.push_back({&on, at, 0});
    ++runs.back().count;
    keys.push_back(nodes.GetAtNU(at).key);
  }
  out.Text("$Nodes\n");
  WriteTotals(out, runs.size(), keys);
  const Key* key = keys.data();
  for (const Run& run : runs) {
    out.Int(run.on->dimension);
    out.Int(run.on->tag);
    out.Int(0);  // no parameters
    out.Size(run.count);
    out.EndLine();
    for (std::size_t i = 0; i < run.count; ++i) {
      out.Size(static_cast<std::uint64_t>(*key++));
      out.EndLine();
    }
    ITR at = run.first;
    for (std::size_t i = 0; i < run.count; ++i, nodes.Next(at)) {
      for (const double value : model.PositionOf(at)) out.Real(value);
      out.EndLine();
      if (!out.CountItem()) return;
    }
  }
  out.EndSection("Nodes");
}

/// Elements from `begin` that follow each other in one entity and of one type: a block.
std::size_t EndOfBlock(const std::vector<MshModel::Cell>& cells, std::size_t begin) {
  std::size_t end = begin;
  while (end < cells.size() && cells[end].entity == cells[begin].entity &&
         cells[end].element->type == cells[begin].element->type) {
    ++end;
  }
  return end;
}

void WriteElements(const MshModel& model, MshSink& out) {
  const auto& cells = model.Cells();
  std::uint64_t blocks = 0;
  for (std::size_t i = 0; i < cells.size(); i = EndOfBlock(cells, i)) ++blocks;
  std::vector<Key> keys;
  for (const MshModel::Cell& cell : cells) keys.push_back(cell.element->key);
  out.Text("$Elements\n");
  WriteTotals(out, blocks, keys);
  for (std::size_t begin = 0; begin < cells.size();) {
    const std::size_t end = EndOfBlock(cells, begin);
    const Entity& entity = model.Entities()[cells[begin].entity];
    const MshKind kind = *MshKindOf(cells[begin].element->type);
    out.Int(entity.dimension);
    out.Int(entity.tag);
    out.Int(kind.number);
    out.Size(end - begin);
    out.EndLine();
    for (; begin < end; ++begin) {
      const tagTElem& element = *cells[begin].element;
      const std::array<Key, 20> nodes = NodesInFile(element, kind.order);
      out.Size(static_cast<std::uint64_t>(element.key));
      for (std::size_t i = 0; i < element.nodes.size(); ++i) {
        out.Size(static_cast<std::uint64_t>(nodes[i]));
      }
      out.EndLine();
      if (!out.CountItem()) return;
    }
  }
  out.EndSection("Elements");
}

}  // namespace

std::array<Key, 20> NodesInFile(const tagTElem& element, const std::int8_t* order) {
  std::array<Key, 20> in_file{};
  for (std::size_t i = 0; i < element.nodes.size(); ++i) {
    const auto place = order ? static_cast<std::size_t>(order[i]) : i;
    in_file[place] = KeyOf(element.nodes[static_cast<std::ptrdiff_t>(i)]);
  }
  return in_file;
}

void WriteMesh41(const MshModel& model, MshSink& out) {
  WriteEntities(model, out);
  WriteNodes(model, out);
  WriteElements(model, out);
}

}  // namespace qx::exchange
