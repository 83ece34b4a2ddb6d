// Fields as data sections, and what was carried from a file of the format.

#include <algorithm>
#include <charconv>

#include "qx_db/pool/record_units.h"
#include "qx_db/record/verbs.h"

#include "exchange/carried_text.h"
#include "exchange/msh/msh_builder.h"
#include "exchange/msh/msh_kinds.h"
#include "exchange/msh/msh_write_sections.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

CQXDBSession* SessionOf(const MshModel& model) {
  return const_cast<CQXDBSession*>(&model.Session());
}

// ---- fields -------------------------------------------------------------------------------------

/// The values of one node or element.
struct Values {
  ITR target;
  std::int32_t first;
  std::int32_t end;
};

/// The numbers of a field, whatever they belong to, and where those of each target stand.
struct FieldNumbers {
  std::vector<double> numbers;
  std::vector<Values> values;
};

FieldNumbers NumbersOf(const MshModel& model, const tagTField& field, LossReport& report) {
  const bool by_node = field.place == tagTField::kNodes;
  FieldNumbers found;
  std::uint64_t dropped = 0;
  const auto list = [&](const auto& from) {
    for (const auto& entry : from) found.numbers.push_back(entry.value);
    for (std::int32_t i = 0; i < from.GetSize();) {
      std::int32_t end = i;
      while (end < from.GetSize() && from[end].target == from[i].target) ++end;
      const ITR target = from[i].target;
      const bool is_there =
          by_node ? target && !KeyedSetBase::IsRemoved(target) : model.HasCell(target);
      if (is_there) {
        found.values.push_back({target, i, end});
      } else {
        ++dropped;
      }
      i = end;
    }
  };
  if (by_node) {
    list(field.node_values);
  } else {
    list(field.element_values);
  }
  report.Lost("values of elements that are not in the file", dropped, Utf8(field.name.View()),
              "they were deleted, or have no place there");
  return found;
}

constexpr const char* kDataSections[] = {"NodeData", "ElementData", "ElementNodeData"};

void WriteField(const MshModel& model, MshSink& out, bool binary, const tagTField& field,
                LossReport& report) {
  const auto [numbers, values] = NumbersOf(model, field, report);
  const auto& elements = *SessionOf(model)->GetPool<DPoolElem>(code::kElem);
  out.Text("${}\n1\n\"{}\"\n1\n{}\n3\n{}\n{}\n{}\n", kDataSections[field.place],
           Utf8(field.name.View()), field.time, field.step, field.components, values.size());
  for (const Values& of_one : values) {
    out.Int(KeyOf(of_one.target));
    const std::int32_t components = field.components;
    const std::int32_t nodes = (of_one.end - of_one.first) / components;
    std::vector<std::int32_t> places(static_cast<std::size_t>(nodes));
    for (std::int32_t i = 0; i < nodes; ++i) places[static_cast<std::size_t>(i)] = i;
    if (field.place == tagTField::kElementNodes) {
      out.Int(nodes);
      const auto kind = MshKindOf(elements.GetAtNU(of_one.target).type);
      if (kind && kind->order && kind->nodes == nodes) {
        for (std::int32_t i = 0; i < nodes; ++i) {
          places[static_cast<std::size_t>(kind->order[i])] = i;
        }
      }
    }
    for (const std::int32_t place : places) {
      for (std::int32_t c = 0; c < components; ++c) {
        out.Real(numbers[static_cast<std::size_t>(of_one.first + place * components + c)]);
      }
    }
    out.EndLine();
  }
  if (binary) out.Text("\n");
  out.Text("$End{}\n", kDataSections[field.place]);
}

// ---- carried ------------------------------------------------------------------------------------

/// The numbers of a carried text one after another.
class Numbers {
 public:
  explicit Numbers(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}
  template <class T>
  T Next() {
    while (at_ < end_ && (*at_ == ' ' || *at_ == '\n')) ++at_;
    T value = 0;
    const auto [next, error] = std::from_chars(at_, end_, value);
    is_good_ = is_good_ && error == std::errc();
    at_ = next;
    return value;
  }
  bool AtEnd() {
    while (at_ < end_ && (*at_ == ' ' || *at_ == '\n')) ++at_;
    return at_ == end_;
  }
  bool IsGood() const { return is_good_; }

 private:
  const char* at_;
  const char* end_;
  bool is_good_ = true;
};

struct Link {
  std::int32_t head[3]{};  ///< dimension, entity, master
  std::vector<double> affine;
  std::vector<std::pair<Key, Key>> pairs;
};

/// A carried link; a pair of which a node is gone has a 0 in it and is left out.
bool ReadLink(std::string_view text, Link& link, std::uint64_t& dropped) {
  Numbers in(text);
  for (std::int32_t& number : link.head) number = in.Next<std::int32_t>();
  const auto affine = in.Next<std::int32_t>();
  for (std::int32_t i = 0; i < affine && in.IsGood(); ++i) link.affine.push_back(in.Next<double>());
  const auto pairs = in.Next<std::int32_t>();
  for (std::int32_t i = 0; i < pairs && in.IsGood(); ++i) {
    const auto node = in.Next<Key>();
    const auto master = in.Next<Key>();
    if (node > 0 && master > 0) {
      link.pairs.emplace_back(node, master);
    } else {
      ++dropped;
    }
  }
  return in.IsGood();
}

void WriteLink(const Link& link, MshSink& out, bool is_old) {
  if (is_old) {
    out.Text("{} {} {}\n", link.head[0], link.head[1], link.head[2]);
    if (!link.affine.empty()) {
      out.Text("Affine");
      for (const double value : link.affine) out.Text(" {}", value);
      out.Text("\n");
    }
    out.Text("{}\n", link.pairs.size());
    for (const auto& [node, master] : link.pairs) out.Text("{} {}\n", node, master);
    return;
  }
  for (const std::int32_t number : link.head) out.Int(number);
  out.EndLine();
  out.Size(link.affine.size());
  for (const double value : link.affine) out.Real(value);
  out.EndLine();
  out.Size(link.pairs.size());
  out.EndLine();
  for (const auto& [node, master] : link.pairs) {
    out.Size(static_cast<std::uint64_t>(node));
    out.Size(static_cast<std::uint64_t>(master));
    out.EndLine();
  }
}

void WritePeriodic(const std::vector<const tagTCarried*>& records, MshSink& out, bool is_old,
                   LossReport& report) {
  std::vector<Link> links;
  std::uint64_t dropped = 0;
  for (const tagTCarried* record : records) {
    Link link;
    const std::string text = Follow(*record, true, "0").text;
    if (ReadLink(text, link, dropped)) links.push_back(std::move(link));
  }
  report.Lost("periodic pairs of nodes of which one is gone", dropped, "$Periodic",
              "it was deleted");
  if (links.empty()) return;
  out.Text("$Periodic\n");
  if (is_old) {
    out.Text("{}\n", links.size());
  } else {
    out.Size(links.size());
    out.EndLine();
  }
  for (const Link& link : links) WriteLink(link, out, is_old);
  if (is_old) {
    out.Text("$EndPeriodic\n");
  } else {
    out.EndSection("Periodic");
  }
}

void WriteGhosts(std::string_view text, MshSink& out, LossReport& report) {
  struct Ghost {
    Key element;
    std::int32_t partition;
    std::vector<std::int32_t> in;
  };
  std::vector<Ghost> ghosts;
  std::uint64_t dropped = 0;
  Numbers in(text);
  while (!in.AtEnd() && in.IsGood()) {
    Ghost ghost{in.Next<Key>(), in.Next<std::int32_t>(), {}};
    const auto count = in.Next<std::int32_t>();
    for (std::int32_t i = 0; i < count && in.IsGood(); ++i) {
      ghost.in.push_back(in.Next<std::int32_t>());
    }
    if (ghost.element > 0) {
      ghosts.push_back(std::move(ghost));
    } else {
      ++dropped;
    }
  }
  report.Lost("ghosts of elements that are gone", dropped, "$GhostElements", "they were deleted");
  out.Text("$GhostElements\n");
  out.Size(ghosts.size());
  out.EndLine();
  for (const Ghost& ghost : ghosts) {
    out.Size(static_cast<std::uint64_t>(ghost.element));
    out.Int(ghost.partition);
    out.Size(ghost.in.size());
    for (const std::int32_t partition : ghost.in) out.Int(partition);
    out.EndLine();
  }
  out.EndSection("GhostElements");
}

template <class Visit>
void ForEachCarried(const MshModel& model, Visit&& visit) {
  host::ForEach<tagTCarried>(SessionOf(model), [&](ITR, const tagTCarried& carried) {
    if (carried.format.View() == u"msh") visit(carried, Utf8(carried.keyword.View()));
    return true;
  });
}

}  // namespace

void WriteFields(const MshModel& model, MshSink& out, bool binary, bool with_partitions,
                 LossReport& report) {
  host::ForEach<tagTField>(SessionOf(model), [&](ITR, const tagTField& field) {
    if (field.place < 0 || field.place > 2) return true;
    if (field.name.View() == kPartitionField) {
      if (!with_partitions) {
        report.Lost("partitions that elements tell themselves", field.element_values.size(),
                    Utf8(field.name.View()), "version 4.1 has them by entity: write version 2.2");
      }
      return true;
    }
    if (field.components < 1) {
      report.Lost("fields whose values have no fixed number", 1, Utf8(field.name.View()),
                  "a data section has as many of each node or element");
      return true;
    }
    tagTField in_current = field;
    ConvertUnitsOut(in_current, model.Session().Units());
    WriteField(model, out, binary, in_current, report);
    return true;
  });
}

void WriteCarried(const MshModel& model, MshSink& out, bool binary, MshVersion version,
                  LossReport& report) {
  const bool is_old = version == MshVersion::k22;
  std::vector<const tagTCarried*> links;
  ForEachCarried(model, [&](const tagTCarried& carried, const std::string& keyword) {
    if (keyword == "Periodic") links.push_back(&carried);
  });
  WritePeriodic(links, out, is_old, report);
  ForEachCarried(model, [&](const tagTCarried& carried, const std::string& keyword) {
    if (keyword == "Periodic" || keyword == "GhostEntities") return;
    if (keyword == "GhostElements") {
      if (is_old) {
        report.Lost("ghost elements", carried.places.size(), "$GhostElements",
                    "version 4.1 has them");
      } else {
        WriteGhosts(Follow(carried, true, "0").text, out, report);
      }
      return;
    }
    if (binary && keyword != "Comments") {
      report.Lost("carried sections $" + keyword, 1, "$" + keyword,
                  "their text does not fit a binary file");
      return;
    }
    if (carried.checked == tagTCarried::kUnchecked) {
      report.Assumed("section $" + keyword + " was written as it came",
                     "not checked against renumbering");
    }
    out.Text("${}\n{}$End{}\n", keyword, std::string_view(carried.text.data(), carried.text.size()),
             keyword);
  });
}

std::string GhostEntities(const MshModel& model) {
  std::string text;
  ForEachCarried(model, [&](const tagTCarried& carried, const std::string& keyword) {
    if (keyword == "GhostEntities") text.assign(carried.text.data(), carried.text.size());
  });
  return text;
}

}  // namespace qx::exchange
