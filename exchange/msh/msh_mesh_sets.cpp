// $QXMeshSets: what physical groups cannot say of mesh sets. Text in every file, as names are:
//
//   number of sets
//   key  colour (BBGGRR)  parent (place among these sets from 1, 0 for none)
//     number of groups  (dimension  tag) ...  number of nodes  (node) ...  "name"
//
// a line for each set. The nodes are those that belong to it besides the nodes of its elements.

#include <charconv>
#include <fmt/format.h>

#include "exchange/msh/msh_sections.h"

namespace qx::exchange {
namespace {

/// A count of items of at least `bytes` each.
std::uint64_t ReadTextCount(MshCursor& in, const char* of_what, std::size_t bytes) {
  const std::int64_t count = in.TextInteger();
  if (count < 0) in.Fail(fmt::format("'{}' is negative", count), "correct the number");
  return in.CheckCount(static_cast<std::uint64_t>(count), of_what, bytes, bytes);
}

std::int32_t ReadInRange(MshCursor& in, const char* what, std::int64_t low, std::int64_t high) {
  const std::int64_t number = in.TextInteger();
  if (number >= low && number <= high) return static_cast<std::int32_t>(number);
  in.Fail(fmt::format("{} {} is not between {} and {}", what, number, low, high),
          "correct the number");
  return static_cast<std::int32_t>(low);
}

std::int32_t ReadColor(MshCursor& in) {
  const std::string_view text = in.Token();
  std::uint32_t color = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), color, 16);
  if (text.size() < 6 || error != std::errc() || end != text.data() + text.size()) {
    in.Fail(fmt::format("'{}' is no colour", text), "give it as six to eight hexadecimal digits");
  }
  return static_cast<std::int32_t>(color);
}

}  // namespace

void ReadMeshSets(MshCursor& in, MshBuilder& mesh) {
  const std::uint64_t count = ReadTextCount(in, "mesh sets", 19);
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    MshBuilder::MeshSet set;
    set.set.key = ReadInRange(in, "key", 0, kMaxKey);
    set.set.color = ReadColor(in);
    set.set.parent = ReadInRange(in, "parent", 0, static_cast<std::int64_t>(count)) - 1;
    const std::uint64_t groups = ReadTextCount(in, "physical groups", 4);
    for (std::uint64_t g = 0; g < groups && in.Ok(); ++g) {
      const std::int32_t dimension = ReadInRange(in, "dimension", 0, 3);
      set.groups.emplace_back(dimension, ReadInRange(in, "physical group", 1, kMaxKey));
    }
    const std::uint64_t nodes = ReadTextCount(in, "nodes", 2);
    for (std::uint64_t n = 0; n < nodes && in.Ok(); ++n) {
      set.set.nodes.push_back(ReadInRange(in, "node", 1, kMaxKey));
    }
    set.set.name = ReadQuotedName(in);
    mesh.AddMeshSet(std::move(set));
  }
}

}  // namespace qx::exchange
