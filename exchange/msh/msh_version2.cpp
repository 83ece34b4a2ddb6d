// Sections of version 2.2: nodes and elements one by one, each element with its own tags.

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <vector>

#include "exchange/msh/msh_sections.h"

namespace qx::exchange::msh2 {
namespace {

/// A count, which is a line of text in binary files too.
std::uint64_t ReadCount(MshCursor& in, const char* of_what, std::size_t binary_bytes) {
  const std::int64_t count = in.TextInteger();
  if (count < 0) in.Fail(fmt::format("'{}' is negative", count), "correct the number");
  if (in.IsBinary()) in.EndLine();
  return in.CheckCount(static_cast<std::uint64_t>(count), of_what, 8, binary_bytes);
}

void ReadAllNodes(MshCursor& in, MshBuilder& mesh, bool parametric) {
  const std::uint64_t count = ReadCount(in, "nodes", 28);
  mesh.ReserveNodes(count);
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    mesh.AddNodeKey(in.Number(false, "node"));
    mesh.AddPoint({in.Real(), in.Real(), in.Real()});
    if (parametric) {
      const std::int32_t dimension = in.Int();
      in.SkipInts(1);  // the entity
      if (dimension == 1 || dimension == 2) in.SkipReals(dimension);
      mesh.LeaveOutParameters();
    }
    in.PassOver();
  }
}

/// Tags and nodes of an element.
void ReadElement(MshCursor& in, MshBuilder& mesh, const MshKind& kind, Key key, std::int32_t tags) {
  if (tags < 0) in.Fail(fmt::format("{} tags are no number of tags", tags), "correct the number");
  const std::int32_t group = tags > 0 ? in.Int() : 0;
  const std::int32_t entity = tags > 1 ? in.Int() : 0;
  std::vector<std::int32_t> partitions;
  if (tags > 2) {
    const std::int32_t count = in.Int();
    const std::int32_t there = std::clamp(count, 0, tags - 3);
    for (std::int32_t i = 0; i < there && in.Ok(); ++i) partitions.push_back(in.Int());
    in.SkipInts(static_cast<std::uint64_t>(tags - 3 - there));
  }
  std::array<Key, kMostMshNodes> nodes;
  const auto count = static_cast<std::size_t>(kind.nodes);
  for (std::size_t i = 0; i < count && in.Ok(); ++i) nodes[i] = in.Number(false, "node");
  if (in.Ok()) mesh.AddElement(kind, key, std::span(nodes).first(count), entity, group, partitions);
}

void ReadTextElements(MshCursor& in, MshBuilder& mesh, std::uint64_t count) {
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    const Key key = in.Number(false, "element");
    const std::int32_t number = in.Int();
    const auto kind = FindMshKind(number);
    if (kind && kind->nodes > 0) {
      ReadElement(in, mesh, *kind, key, in.Int());
    } else {
      in.RestOfLine();
      mesh.LeaveOut(number, key);
    }
    in.PassOver();
  }
}

/// Binary files store elements in runs of one type and number of tags.
void ReadBinaryElements(MshCursor& in, MshBuilder& mesh, std::uint64_t count) {
  for (std::uint64_t done = 0; done < count && in.Ok();) {
    const std::int32_t number = in.Int();
    const auto kind = FindMshKind(number);
    if (!kind || kind->nodes == 0) {
      in.Fail(fmt::format("elements of type {} cannot be read from a binary file", number),
              "write the file as text");
    }
    const std::int32_t run = in.Int();
    const std::int32_t tags = in.Int();
    if (run < 1 || static_cast<std::uint64_t>(run) > count - done) {
      in.Fail(fmt::format("a run of {} elements is not within the {} elements of the section", run,
                          count),
              "write the file again");
    }
    for (std::int32_t i = 0; i < run && in.Ok(); ++i) {
      ReadElement(in, mesh, *kind, in.Number(false, "element"), tags);
    }
    done += static_cast<std::uint64_t>(run);
  }
}

}  // namespace

void ReadNodes(MshCursor& in, MshBuilder& mesh) { ReadAllNodes(in, mesh, false); }

void ReadParametricNodes(MshCursor& in, MshBuilder& mesh) { ReadAllNodes(in, mesh, true); }

void ReadElements(MshCursor& in, MshBuilder& mesh) {
  const std::uint64_t count = ReadCount(in, "elements", 8);
  mesh.ReserveElements(count);
  in.IsBinary() ? ReadBinaryElements(in, mesh, count) : ReadTextElements(in, mesh, count);
}

}  // namespace qx::exchange::msh2
