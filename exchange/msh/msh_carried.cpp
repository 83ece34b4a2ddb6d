// Sections that a model has no place for. Their text is that of version 4.1, whatever the file's:
//
//   Periodic           dimension, entity, master; affine numbers with their count before them; the
//                      number of pairs; node and master node of each. A record for each link.
//   GhostElements      element, partition, ghost partitions with their count before them, a line
//                      each.
//   GhostEntities      the number of partitions; tag and partition of each ghost entity.
//
// A section that is not known keeps its text.

#include <charconv>
#include <fmt/format.h>
#include <vector>

#include "exchange/carried_text.h"
#include "exchange/msh/msh_sections.h"

namespace qx::exchange {
namespace {

std::uint64_t CheckedCount(MshCursor& in, std::int64_t count, const char* of_what) {
  if (count < 0) in.Fail(fmt::format("'{}' is negative", count), "correct the number");
  return in.CheckCount(static_cast<std::uint64_t>(count), of_what, 2, 2);
}

void CarryLink(MshBuilder& mesh, CarriedText& link, bool is_whole) {
  if (is_whole) mesh.AddCarried(link.Take());
}

}  // namespace

void ReadPeriodicText(MshCursor& in, MshBuilder& mesh) {
  const std::uint64_t links = CheckedCount(in, in.TextInteger(), "periodic links");
  for (std::uint64_t i = 0; i < links && in.Ok(); ++i) {
    CarriedText link(u"Periodic", tagTCarried::kChecked);
    for (int n = 0; n < 3; ++n) link.Number(in.TextInteger());
    link.EndLine();
    std::string_view word = in.Token();
    std::vector<double> affine;
    if (word == "Affine") {
      const std::string line(in.RestOfLine());
      const Progress none;
      MshCursor numbers(line, "", none);
      while (line.find_first_not_of(" \t", numbers.At()) != std::string::npos && numbers.Ok()) {
        affine.push_back(numbers.TextReal());
      }
      if (!numbers.Ok()) in.Fail("'Affine' is not followed by numbers", "correct the line");
      word = in.Token();
    }
    link.Number(affine.size());
    for (const double value : affine) link.Number(value);
    link.EndLine();
    std::int64_t pairs = -1;
    std::from_chars(word.data(), word.data() + word.size(), pairs);
    const std::uint64_t count = CheckedCount(in, pairs, "node pairs");
    link.Number(count);
    link.EndLine();
    for (std::uint64_t p = 0; p < count && in.Ok(); ++p) {
      for (int n = 0; n < 2; ++n) {
        const std::int64_t node = in.TextInteger();
        if (node < 1 || node > kMaxKey) in.Fail("a node number is out of range", "correct it");
        link.NodeKey(static_cast<Key>(node));
      }
      link.EndLine();
    }
    CarryLink(mesh, link, in.Ok());
  }
}

void ReadPeriodic41(MshCursor& in, MshBuilder& mesh) {
  const std::uint64_t links = in.CheckCount(in.Size(), "periodic links", 8, 28);
  for (std::uint64_t i = 0; i < links && in.Ok(); ++i) {
    CarriedText link(u"Periodic", tagTCarried::kChecked);
    for (int n = 0; n < 3; ++n) link.Number(in.Int());
    link.EndLine();
    const std::uint64_t affine = in.CheckCount(in.Size(), "numbers", 2, 8);
    link.Number(affine);
    for (std::uint64_t n = 0; n < affine && in.Ok(); ++n) link.Number(in.Real());
    link.EndLine();
    const std::uint64_t count = in.CheckCount(in.Size(), "node pairs", 4, 8);
    link.Number(count);
    link.EndLine();
    for (std::uint64_t p = 0; p < count && in.Ok(); ++p) {
      link.NodeKey(in.Number(true, "node"));
      link.NodeKey(in.Number(true, "node"));
      link.EndLine();
    }
    CarryLink(mesh, link, in.Ok());
  }
}

void ReadGhostElements(MshCursor& in, MshBuilder& mesh) {
  const std::uint64_t count = in.CheckCount(in.Size(), "ghost elements", 6, 12);
  CarriedText text(u"GhostElements", tagTCarried::kChecked);
  for (std::uint64_t i = 0; i < count && in.Ok(); ++i) {
    text.ElementKey(in.Number(true, "element"));
    text.Number(in.Int());
    const std::uint64_t ghosts = in.CheckCount(in.Size(), "ghost partitions", 2, 4);
    text.Number(ghosts);
    for (std::uint64_t g = 0; g < ghosts && in.Ok(); ++g) text.Number(in.Int());
    text.EndLine();
  }
  if (in.Ok() && count > 0) mesh.AddCarried(text.Take());
}

void CarryPartitions(MshCursor& in, MshBuilder& mesh) {
  CarriedText text(u"GhostEntities", tagTCarried::kNoKeys);
  text.Number(in.Size());
  text.EndLine();
  const std::uint64_t ghosts = in.CheckCount(in.Size(), "ghost entities", 4, 8);
  for (std::uint64_t i = 0; i < ghosts && in.Ok(); ++i) {
    text.Number(in.Int());
    text.Number(in.Int());
    text.EndLine();
  }
  if (in.Ok()) mesh.AddCarried(text.Take());
}

void CarryUnknown(MshCursor& in, MshBuilder& mesh, std::string_view name) {
  const bool is_binary = in.IsBinary() && name != "Comments";
  const std::string_view content = in.SkipSection();
  if (!in.Ok()) return;
  const std::string quoted(name);
  if (is_binary) {
    mesh.Lost(fmt::format("sections ${} were left out", quoted), 1, "$" + quoted,
              "what is in a binary file of an unknown section cannot be told");
    return;
  }
  tagTCarried carried;
  carried.keyword.Set(Utf16(quoted));
  carried.checked = name == "Comments" || name == "InterpolationScheme" ? tagTCarried::kNoKeys
                                                                        : tagTCarried::kUnchecked;
  carried.text.Assign(content.data(), content.size());
  mesh.AddCarried(std::move(carried));
}

void ReadUnits(MshCursor& in, MshBuilder& mesh) {
  UnitSystem units;
  for (int i = 0; i < kUnitBaseCount && in.Ok(); ++i) {
    const auto base = static_cast<UnitBase>(i);
    const std::string_view name = in.Token();
    units[base] = FindUnit(base, name);
    if (units[base] < 0) {
      in.Fail(fmt::format("'{}' is no unit of {}", name, UnitBaseName(base)), "correct the name");
    }
  }
  if (in.Ok()) mesh.SetUnits(units);
}

}  // namespace qx::exchange
