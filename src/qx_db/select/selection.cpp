#include "qx_db/select/selection.h"

#include "qx_db/record/verbs.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/term.h"

namespace qx {

std::string_view NameOf(SelectKind kind) {
  constexpr std::string_view kNames[] = {"nodes", "elements", "faces"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::vector<Key> Selection::Keys() const {
  std::vector<Key> keys;
  keys.reserve(static_cast<std::size_t>(Count()));
  for (const ITR item : items) keys.push_back(KeyOf(item));
  for (const tagTElemSide& face : faces) keys.push_back(KeyOf(face.element));
  return keys;
}

Result<SelectionRule> SelectionRule::Parse(std::string_view text,
                                           std::optional<SelectKind> wanted) {
  Result<select::Term> term = select::ReadTerm(text, wanted);
  if (!term) return term.Error();
  SelectionRule rule;
  rule.text_ = std::string(text);
  rule.root_ = std::make_shared<const select::Term>(std::move(*term));
  return rule;
}

SelectKind SelectionRule::Kind() const { return root_->kind; }

Result<Selection> SelectionRule::Evaluate(const CQXDBSession& session) const {
  const select::MeshView mesh(session, text_);
  select::Marks marks;
  if (Outcome marked = select::Mark(mesh, *root_, marks); !marked) return marked.Error();
  Selection selection;
  selection.kind = root_->kind;
  if (selection.kind == SelectKind::kFaces) {
    marks.ForEach([&](std::size_t face) {
      tagTElemSide side;
      side.element = mesh.Elements().Records()[face / select::MeshView::kFacesPerElement];
      side.side = static_cast<std::int32_t>(face % select::MeshView::kFacesPerElement);
      selection.faces.Add(side);
    });
    return selection;
  }
  const std::vector<ITR>& records =
      (selection.kind == SelectKind::kNodes ? mesh.Nodes() : mesh.Elements()).Records();
  marks.ForEach([&](std::size_t i) { selection.items.Add(records[i]); });
  return selection;
}

Result<Selection> Select(const CQXDBSession& session, std::string_view text,
                         std::optional<SelectKind> wanted) {
  const auto rule = SelectionRule::Parse(text, wanted);
  if (!rule) return rule.Error();
  return rule->Evaluate(session);
}

}  // namespace qx
