// Sections of versions 4.0 and 4.1: nodes and elements in blocks, one a geometric entity, whose
// physical groups stand in a section of their own.

#include <array>
#include <fmt/format.h>
#include <utility>

#include "exchange/msh/msh_sections.h"

namespace qx::exchange {
namespace {

/// What differs between 4.0 and 4.1.
enum class Layout { k40, k41 };

bool Wide(Layout version) { return version == Layout::k41; }

MshBuilder::Tag CheckedEntity(MshCursor& in, std::int32_t dimension, std::int32_t tag) {
  if (dimension < 0 || dimension > 3) {
    in.Fail(fmt::format("{} is no dimension of an entity", dimension),
            "correct it to a number from 0 to 3");
  }
  return {dimension, tag};
}

/// Dimension and tag of a block's entity, which 4.0 stores in the other order.
MshBuilder::Tag ReadEntityOfBlock(MshCursor& in, Layout version) {
  const std::int32_t first = in.Int();
  const std::int32_t second = in.Int();
  return version == Layout::k41 ? CheckedEntity(in, first, second)
                                : CheckedEntity(in, second, first);
}

/// Fails unless the blocks of a section have held as many items as its beginning says.
void CheckTotal(MshCursor& in, std::uint64_t total, std::uint64_t sum, const char* of_what) {
  if (total == sum) return;
  in.Fail(fmt::format("the section announces {} {}, its blocks hold {}", total, of_what, sum),
          "correct the count at the beginning of the section");
}

// ---- entities -----------------------------------------------------------------------------------

std::vector<std::int32_t> ReadTags(MshCursor& in, const char* of_what) {
  const std::uint64_t count = in.CheckCount(in.Size(), of_what, 2, 4);
  std::vector<std::int32_t> groups;
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) groups.push_back(in.Int());
  return groups;
}

void ReadEntityLists(MshCursor& in, MshBuilder& mesh, Layout version, bool partitioned) {
  std::array<std::uint64_t, 4> counts;
  for (std::uint64_t& count : counts) count = in.Size();
  for (int dimension = 0; dimension < 4; ++dimension) {
    const std::uint64_t count = counts[static_cast<std::size_t>(dimension)];
    for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
      const std::int32_t tag = in.Int();
      MshBuilder::Entity entity;
      if (partitioned) {
        entity.parent.first = in.Int();
        entity.parent.second = in.Int();
        entity.partitions = ReadTags(in, "partitions");
      }
      const bool is_point = dimension == 0 && version == Layout::k41;
      in.SkipReals(is_point ? 3 : 6);  // a point, or a bounding box
      entity.groups = ReadTags(in, "physical tags");
      if (dimension > 0) entity.boundary = ReadTags(in, "bounding entities");
      if (in.Ok()) mesh.AddEntity({dimension, tag}, std::move(entity));
    }
  }
}

void ReadPartitions(MshCursor& in, MshBuilder& mesh, Layout version) {
  CarryPartitions(in, mesh);
  ReadEntityLists(in, mesh, version, true);
}

// ---- nodes --------------------------------------------------------------------------------------

void ReadPoint(MshCursor& in, MshBuilder& mesh, int parameters) {
  mesh.AddPoint({in.Real(), in.Real(), in.Real()});
  in.SkipReals(parameters);
  if (parameters > 0) mesh.LeaveOutParameters();
}

void ReadNodeBlocks(MshCursor& in, MshBuilder& mesh, Layout version) {
  const std::uint64_t blocks = in.Size();
  const std::uint64_t total = in.CheckCount(in.Size(), "nodes", 8, 28);
  if (version == Layout::k41) in.Size(), in.Size();  // smallest and largest number
  mesh.ReserveNodes(total);
  std::uint64_t sum = 0;
  for (std::uint64_t b = 0; b < blocks && in.Ok(); ++b) {
    const auto [dimension, tag] = ReadEntityOfBlock(in, version);
    mesh.BeginNodeBlock({dimension, tag});
    const int parameters = in.Int() != 0 ? dimension : 0;
    const std::uint64_t count = in.CheckCount(in.Size(), "nodes", 8, 28);
    sum += count;
    if (version == Layout::k40) {
      for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
        mesh.AddNodeKey(in.Number(false, "node"));
        ReadPoint(in, mesh, parameters);
        in.PassOver();
      }
      continue;
    }
    for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
      mesh.AddNodeKey(in.Number(true, "node"));
      in.PassOver();
    }
    for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
      ReadPoint(in, mesh, parameters);
      in.PassOver();
    }
  }
  CheckTotal(in, total, sum, "nodes");
}

// ---- elements -----------------------------------------------------------------------------------

void ReadBlock(MshCursor& in, MshBuilder& mesh, const MshKind& kind, std::uint64_t count,
               bool wide) {
  std::array<Key, kMostMshNodes> nodes;
  const auto of_element = std::span(nodes).first(static_cast<std::size_t>(kind.nodes));
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    const Key key = in.Number(wide, "element");
    for (Key& node : of_element) node = in.Number(wide, "node");
    if (in.Ok()) mesh.AddElement(kind, key, of_element);
    in.PassOver();
  }
}

/// Passes over elements of a kind without a known number of nodes: in text a line each.
void SkipBlock(MshCursor& in, MshBuilder& mesh, std::int32_t number, std::uint64_t count) {
  if (in.IsBinary()) {
    in.Fail(fmt::format("elements of type {} cannot be read from a binary file", number),
            "write the file as text");
  }
  in.EndLine();
  Key first = 0;
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    if (i == 0) first = in.Number(true, "element");
    in.RestOfLine();
  }
  if (count > 0) mesh.LeaveOut(number, first, count);
}

void ReadElementBlocks(MshCursor& in, MshBuilder& mesh, Layout version) {
  const std::uint64_t blocks = in.Size();
  const std::uint64_t total = in.CheckCount(in.Size(), "elements", 4, 8);
  if (version == Layout::k41) in.Size(), in.Size();  // smallest and largest number
  mesh.ReserveElements(total);
  std::uint64_t sum = 0;
  for (std::uint64_t b = 0; b < blocks && in.Ok(); ++b) {
    mesh.BeginBlock(ReadEntityOfBlock(in, version));
    const std::int32_t number = in.Int();
    const std::uint64_t count = in.CheckCount(in.Size(), "elements", 4, 8);
    sum += count;
    const auto kind = FindMshKind(number);
    if (kind && kind->nodes > 0) {
      ReadBlock(in, mesh, *kind, count, Wide(version));
    } else {
      SkipBlock(in, mesh, number, count);
    }
  }
  CheckTotal(in, total, sum, "elements");
}

}  // namespace

namespace msh40 {
void ReadEntities(MshCursor& in, MshBuilder& mesh) {
  ReadEntityLists(in, mesh, Layout::k40, false);
}
void ReadPartitionedEntities(MshCursor& in, MshBuilder& mesh) {
  ReadPartitions(in, mesh, Layout::k40);
}
void ReadNodes(MshCursor& in, MshBuilder& mesh) { ReadNodeBlocks(in, mesh, Layout::k40); }
void ReadElements(MshCursor& in, MshBuilder& mesh) { ReadElementBlocks(in, mesh, Layout::k40); }
}  // namespace msh40

namespace msh41 {
void ReadEntities(MshCursor& in, MshBuilder& mesh) {
  ReadEntityLists(in, mesh, Layout::k41, false);
}
void ReadPartitionedEntities(MshCursor& in, MshBuilder& mesh) {
  ReadPartitions(in, mesh, Layout::k41);
}
void ReadNodes(MshCursor& in, MshBuilder& mesh) { ReadNodeBlocks(in, mesh, Layout::k41); }
void ReadElements(MshCursor& in, MshBuilder& mesh) { ReadElementBlocks(in, mesh, Layout::k41); }
}  // namespace msh41

}  // namespace qx::exchange
