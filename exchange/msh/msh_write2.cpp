// Nodes and elements of version 2.2, where each element tells its group, entity and partitions.

#include <algorithm>

#include "exchange/msh/msh_builder.h"
#include "exchange/msh/msh_kinds.h"
#include "exchange/msh/msh_write_sections.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

/// An element as the file lists it: once for each of its groups.
struct Row {
  std::uint32_t cell;
  Key key;
  std::int32_t group;
};

class Mesh22 {
 public:
  Mesh22(const MshModel& model, MshSink& out, bool binary)
      : model_(model), out_(out), binary_(binary), partitions_(model.Cells().size()) {
    ListRows();
    ListPartitions();
  }

  void Write() {
    WriteNodes();
    WriteElements();
  }

  void FillReport(LossReport& report) const {
    report.Changed("elements are repeated under a further number for a further group", repeated_,
                   fmt::format("element {}", first_repeated_),
                   "so version 2.2 says that an element is in several groups");
    report.Lost("further groups of elements", unsaid_, fmt::format("element {}", kMaxKey),
                "no number is free to repeat them under");
    std::uint64_t boundaries = 0;
    std::uint64_t on_entities = 0;
    for (const MshModel::Entity& entity : model_.Entities()) {
      if (!entity.block) continue;
      boundaries += !entity.block->boundary.IsEmpty();
      on_entities += entity.block->nodes.size();
    }
    constexpr const char* kWhy = "version 2.2 has no place for them";
    report.Lost("boundaries of entities", boundaries, "$Entities", kWhy);
    report.Lost("entities that nodes lie on", on_entities, "$Entities", kWhy);
  }

 private:
  void ListRows() {
    const auto& cells = model_.Cells();
    Key last = 0;
    for (const MshModel::Cell& cell : cells) last = std::max(last, cell.element->key);
    for (std::uint32_t i = 0; i < cells.size(); ++i) {
      const MshModel::Entity& entity = model_.Entities()[cells[i].entity];
      const Key key = cells[i].element->key;
      for (std::size_t s = 0; s < entity.sets.size(); ++s) {
        if (s > 0 && last == kMaxKey) {
          ++unsaid_;
          break;
        }
        const std::int32_t group = model_.Sets()[entity.sets[s]].tags.at(entity.dimension).number;
        rows_.push_back({i, s == 0 ? key : ++last, group});
        if (s > 0 && repeated_++ == 0) first_repeated_ = key;
      }
      if (entity.sets.empty()) rows_.push_back({i, key, 0});
    }
  }

  void ListPartitions() {
    const auto& cells = model_.Cells();
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const tagTBlock* block = model_.Entities()[cells[i].entity].block;
      if (block) partitions_[i].assign(block->partitions.begin(), block->partitions.end());
    }
    auto* session = const_cast<CQXDBSession*>(&model_.Session());
    auto& elements = *session->GetPool<DPoolElem>(code::kElem);
    host::ForEach<tagTField>(session, [&](ITR, const tagTField& field) {
      if (field.name.View() != kPartitionField) return true;
      for (const tagTElemValue& value : field.element_values) {
        if (!model_.HasCell(value.target)) continue;
        partitions_[elements.GetParamIdx(value.target)].push_back(
            static_cast<std::int32_t>(value.value));
      }
      return true;
    });
  }

  void WriteNodes() {
    DPoolNode& nodes = model_.Nodes();
    out_.Text("$Nodes\n{}\n", nodes.GetSize());
    for (ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
      out_.Int(nodes.GetAtNU(at).key);
      for (const double value : model_.PositionOf(at)) out_.Real(value);
      out_.EndLine();
      if (!out_.CountItem()) return;
    }
    out_.EndSection("Nodes");
  }

  std::int32_t TypeOf(const Row& row) const {
    return MshKindOf(model_.Cells()[row.cell].element->type)->number;
  }
  std::size_t TagsOf(const Row& row) const {
    const std::size_t partitions = partitions_[row.cell].size();
    return partitions > 0 ? 3 + partitions : 2;
  }

  void WriteElements() {
    out_.Text("$Elements\n{}\n", rows_.size());
    for (std::size_t begin = 0; begin < rows_.size();) {
      std::size_t end = begin + 1;
      while (end < rows_.size() && TypeOf(rows_[end]) == TypeOf(rows_[begin]) &&
             TagsOf(rows_[end]) == TagsOf(rows_[begin])) {
        ++end;
      }
      if (binary_) {
        out_.Int(TypeOf(rows_[begin]));
        out_.Int(static_cast<std::int32_t>(end - begin));
        out_.Int(static_cast<std::int32_t>(TagsOf(rows_[begin])));
      }
      for (; begin < end; ++begin) {
        WriteElement(rows_[begin]);
        if (!out_.CountItem()) return;
      }
    }
    out_.EndSection("Elements");
  }

  void WriteElement(const Row& row) {
    const MshModel::Cell& cell = model_.Cells()[row.cell];
    const MshKind kind = *MshKindOf(cell.element->type);
    out_.Int(row.key);
    if (!binary_) {
      out_.Int(kind.number);
      out_.Int(static_cast<std::int32_t>(TagsOf(row)));
    }
    out_.Int(row.group);
    out_.Int(model_.Entities()[cell.entity].tag);
    const std::vector<std::int32_t>& partitions = partitions_[row.cell];
    if (!partitions.empty()) {
      out_.Int(static_cast<std::int32_t>(partitions.size()));
      for (const std::int32_t partition : partitions) out_.Int(partition);
    }
    const std::array<Key, 20> nodes = NodesInFile(*cell.element, kind.order);
    for (std::size_t i = 0; i < cell.element->nodes.size(); ++i) out_.Int(nodes[i]);
    out_.EndLine();
  }

  const MshModel& model_;
  MshSink& out_;
  bool binary_;
  std::vector<Row> rows_;
  std::vector<std::vector<std::int32_t>> partitions_;  // by cell
  std::uint64_t repeated_ = 0;
  Key first_repeated_ = 0;
  std::uint64_t unsaid_ = 0;
};

}  // namespace

void WriteMesh22(const MshModel& model, MshSink& out, bool binary, LossReport& report) {
  Mesh22 mesh(model, out, binary);
  mesh.Write();
  mesh.FillReport(report);
}

}  // namespace qx::exchange
