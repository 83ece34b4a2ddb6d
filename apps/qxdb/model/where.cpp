#include "apps/qxdb/model/where.h"

#include <algorithm>
#include <fmt/format.h>

#include "apps/qxdb/model/selection.h"

namespace qx::app {

Option& AddWhere(Command& command, std::string& where, const std::string& what) {
  const auto fault = [](const std::string& text) -> std::string {
    return text.empty() ? "the selection is empty; all selects everything" : "";
  };
  return command.Add("--where", &where, what + ", as qxdb select explains")
      .Selection()
      .Check({fault, ""});
}

Result<Selection> SelectIn(const Model& model, const std::string& where,
                           std::optional<SelectKind> wanted) {
  const auto rule = SelectionRule::Parse(where, wanted);
  if (!rule) return rule.Error();
  auto selection = rule->Evaluate(model.session);
  if (selection) return selection;
  Failure failure = selection.Error();
  failure.file = model.path;
  return failure;
}

Result<TArray<ITR>> PickWhere(const Model& model, const DPoolBase& pool, const std::string& where) {
  const std::uint16_t type = pool.GetTypeCode();
  if (type != code::kNode && type != code::kElem) {
    return Failure{"", "where", fmt::format("selects nodes or elements, no {}", PoolLabel(pool)),
                   "name those by keys: 1-5,9,100- or all"};
  }
  const bool is_nodes = type == code::kNode;
  auto selection = SelectIn(model, where, is_nodes ? SelectKind::kNodes : SelectKind::kElements);
  if (!selection) return selection.Error();
  if (!selection->items.IsEmpty()) return std::move(selection->items);
  return Failure{model.path, "where", fmt::format("selects no {}", NameOf(selection->kind)),
                 "see what it selects with: qxdb select " + model.path};
}

std::string KeyRangesText(std::vector<Key> keys, std::size_t most) {
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  std::string text;
  std::size_t ranges = 0;
  for (std::size_t i = 0; i < keys.size(); ++ranges) {
    if (ranges == most) return text + ",...";
    std::size_t last = i;
    while (last + 1 < keys.size() && keys[last + 1] == keys[last] + 1) ++last;
    text += fmt::format("{}{}", text.empty() ? "" : ",", keys[i]);
    if (last > i) text += fmt::format("-{}", keys[last]);
    i = last + 1;
  }
  return text;
}

}  // namespace qx::app
