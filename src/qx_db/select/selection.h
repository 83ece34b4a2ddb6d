#pragma once
// Selections: nodes, elements or faces by a text such as "hex8 and box 0,0,0 10mm,10mm,2mm". The
// one language of every command and interface that asks which; docs/selecting.md has its grammar.
// Threads: rules are values that any number may read; evaluating reads a session, one at a time for
// it: its owner, or whoever reads a snapshot of it.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/record/array_elements.h"

namespace qx {

namespace select {
struct Term;
}

/// What a selection is of.
enum class SelectKind : std::uint8_t { kNodes, kElements, kFaces };

/// "nodes", "elements" or "faces".
QXDB_API std::string_view NameOf(SelectKind kind);

/// What was selected, as positions in the session. Editing the session makes it out of date.
struct QXDB_API Selection {
  SelectKind kind = SelectKind::kElements;
  TArray<ITR> items;           ///< nodes or elements, in the order of their pool; none of faces
  TArray<tagTElemSide> faces;  ///< in the order of their elements, sides by the topology table

  std::int64_t Count() const {
    return kind == SelectKind::kFaces ? faces.GetSize() : items.GetSize();
  }
  /// Of the nodes or elements; of faces those of their elements, once for each face.
  std::vector<Key> Keys() const;
};

/// A text that was read, ready to be evaluated on any session, any number of times.
class QXDB_API SelectionRule {
 public:
  /// Reads a text of UTF-8. The failure has no file; its place is "where: column 14", counted from
  /// 1 in characters. `wanted` settles of what a text selects that fits several kinds, and refuses
  /// one that does not fit it; without it elements come before nodes and nodes before faces.
  static Result<SelectionRule> Parse(std::string_view text, std::optional<SelectKind> wanted = {});

  const std::string& Text() const { return text_; }
  SelectKind Kind() const;
  /// Fails where the rule names what the session does not have (a set, a property, a system), with
  /// a place as above. Throws std::bad_alloc, and what a WorkWatch throws.
  Result<Selection> Evaluate(const CQXDBSession& session) const;

 private:
  SelectionRule() = default;

  std::string text_;
  std::shared_ptr<const select::Term> root_;
};

/// Reads and evaluates at once.
QXDB_API Result<Selection> Select(const CQXDBSession& session, std::string_view text,
                                  std::optional<SelectKind> wanted = {});

/// What there is to write, for help, completion and the page of the language.
struct ConditionInfo {
  std::string_view group;    ///< "by place"
  std::string_view syntax;   ///< "box POINT POINT [in SYSTEM]"
  std::string_view what;     ///< one line
  std::string_view example;  ///< a text that can be read
  std::string selects;       ///< "nodes, elements, faces"
};
QXDB_API std::vector<ConditionInfo> Conditions();
/// What an argument of the syntax is: pairs of its name and one line.
QXDB_API std::vector<std::pair<std::string_view, std::string>> ConditionArguments();
/// Every word that may begin a condition, in the order of the table.
QXDB_API std::vector<std::string> ConditionWords();
/// The conditions as the table of docs/selecting.md, and as plain text for a terminal.
QXDB_API std::string ConditionTable();
QXDB_API std::string ConditionHelp();

}  // namespace qx
