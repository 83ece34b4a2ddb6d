#pragma once
// The table of conditions: everything that the language can ask is one row of it, and the parser,
// the help, the completion and the page of the language are made of the rows.
// Threads: any; the table never changes.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/select/marks.h"
#include "qx_db/select/mesh_view.h"
#include "qx_db/select/term.h"

namespace qx::select {

/// Marks what a condition selects, of the term's kind; `marks` come empty. The parts of the term
/// are evaluated by Mark().
using Evaluate = Outcome (*)(const MeshView& mesh, const Term& term, Marks& marks);

struct Condition {
  std::string_view group;
  /// What is written: words in lower case as they are, in upper case arguments (ConditionArguments,
  /// or for the first word a family of heads), in brackets what may be left out.
  std::string_view syntax;
  Kinds kinds;
  std::string_view what;
  std::string_view example;
  Evaluate evaluate;
  /// Kinds that a SELECTION may be of; 0: the same as the result.
  Kinds of = 0;
  /// Which of them when the text fits several.
  SelectKind preferred = SelectKind::kElements;
};

std::span<const Condition> ConditionRows();

/// The words of a syntax.
std::vector<std::string_view> WordsOf(std::string_view syntax);

/// The words that may stand for the head of a condition: itself, or those of its family.
std::vector<std::string> HeadsOf(const Condition& condition);

/// Evaluates a whole term.
Outcome Mark(const MeshView& mesh, const Term& term, Marks& marks);

/// Whether a term asks of each node or element only what it says itself, where its nodes are, and
/// which lists have it: the answer for one does not change by what becomes of another. `pools` gets
/// the types besides nodes and elements that the answer depends on.
bool LooksAtOne(const Term& term, std::vector<std::uint16_t>& pools);

/// The mesh sets that a condition "set" names, with those below them where it asks for them. Fails
/// where one is not there.
Result<std::vector<ITR>> SetsNamedBy(const MeshView& mesh, const Term& term);

// What the rows are made of, by subject.
Outcome MarkAll(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkKeys(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkTypes(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkTypeCodes(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkSets(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkActiveSets(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkOrphans(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkProperties(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkMaterials(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkGeometry(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkBox(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkSphere(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkCylinder(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkAbove(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkBelow(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkCoordinate(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkMeasure(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkSize(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkSurface(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkFreeEdges(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkUsed(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkUnused(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkRings(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkConnected(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkSpread(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkFacing(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkNodesOf(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkElementsOf(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkElementsTouching(const MeshView& mesh, const Term& term, Marks& marks);
Outcome MarkFacesOf(const MeshView& mesh, const Term& term, Marks& marks);

}  // namespace qx::select
