// Data sections: values by node, by element, and by node of each element.

#include <fmt/format.h>
#include <vector>

#include "exchange/msh/msh_sections.h"

namespace qx::exchange {
namespace {

/// A number of tags, which is small.
std::int64_t ReadTagCount(MshCursor& in) {
  const std::int64_t count = in.TextInteger();
  if (count >= 0 && count <= 1000) return count;
  in.Fail(fmt::format("'{}' is no number of tags", count), "correct the number");
  return 0;
}

constexpr const char* kOnlyFirst = "a field has one name and one time";

/// The tags, which are text in every file; gives the number of nodes or elements that follow.
std::uint64_t ReadHead(MshCursor& in, MshBuilder& mesh, tagTField& field, std::size_t bytes) {
  const std::int64_t texts = ReadTagCount(in);
  in.EndLine();
  for (std::int64_t i = 0; i < texts && in.Ok(); ++i) {
    std::string text = ReadQuotedName(in);
    if (i == 0) field.name.Set(Utf16(text));
    if (i > 0) mesh.Lost("further texts of data sections", 1, text, kOnlyFirst);
  }
  const std::int64_t reals = ReadTagCount(in);
  for (std::int64_t i = 0; i < reals && in.Ok(); ++i) {
    const double value = in.TextReal();
    if (i == 0) field.time = value;
  }
  mesh.Lost("further numbers of data sections",
            static_cast<std::uint64_t>(std::max<std::int64_t>(reals - 1, 0)),
            Utf8(field.name.View()), kOnlyFirst);
  const std::int64_t integers = ReadTagCount(in);
  std::int64_t tags[3] = {0, 1, 0};
  for (std::int64_t i = 0; i < integers && in.Ok(); ++i) {
    const std::int64_t value = in.TextInteger();
    if (i < 3) tags[i] = value;
    if (i == 3 && value != 0) {
      mesh.Lost("partitions of data sections", 1, Utf8(field.name.View()),
                "a field is of the whole mesh");
    }
  }
  if (integers < 3)
    in.Fail("there are fewer than three whole numbers", "write step, components and count");
  if (in.IsBinary()) in.EndLine();
  if (tags[1] < 1 || tags[1] > 1000) {
    in.Fail(fmt::format("{} components are not read", tags[1]), "write from 1 to 1000 components");
    tags[1] = 1;
  }
  if (tags[2] < 0) in.Fail(fmt::format("'{}' is negative", tags[2]), "correct the number");
  field.step = static_cast<std::int32_t>(tags[0]);
  field.components = static_cast<std::int32_t>(tags[1]);
  return in.CheckCount(static_cast<std::uint64_t>(tags[2]), "values",
                       2 + 2 * static_cast<std::size_t>(tags[1]),
                       bytes + 8 * static_cast<std::size_t>(tags[1]));
}

void ReadValues(MshCursor& in, MshBuilder& mesh, std::int32_t place) {
  tagTField field;
  field.place = place;
  const bool by_node = place == tagTField::kNodes;
  const std::uint64_t count = ReadHead(in, mesh, field, 4);
  const auto read = [&](auto& values) {
    values.Reserve(static_cast<std::int64_t>(count) * field.components);
    for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
      const auto key = static_cast<ITR>(in.Number(false, by_node ? "node" : "element"));
      std::int32_t nodes = 1;
      if (place == tagTField::kElementNodes) nodes = in.Int();
      if (nodes < 0 || nodes > kMostMshNodes) {
        in.Fail(fmt::format("{} is no number of nodes of an element", nodes), "correct the number");
      }
      for (std::int32_t v = 0; v < nodes * field.components && in.Ok(); ++v) {
        values.Add({in.Real(), key});
      }
    }
  };
  if (by_node) {
    read(field.node_values);
  } else {
    read(field.element_values);
  }
  if (in.Ok()) mesh.AddField(std::move(field));
}

}  // namespace

void ReadNodeData(MshCursor& in, MshBuilder& mesh) { ReadValues(in, mesh, tagTField::kNodes); }

void ReadElementData(MshCursor& in, MshBuilder& mesh) {
  ReadValues(in, mesh, tagTField::kElements);
}

void ReadElementNodeData(MshCursor& in, MshBuilder& mesh) {
  ReadValues(in, mesh, tagTField::kElementNodes);
}

}  // namespace qx::exchange
