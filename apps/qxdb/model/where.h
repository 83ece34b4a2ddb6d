#pragma once
// Selections on the command line: the option --where, and what is picked by it.

#include <optional>
#include <string>

#include "qx_db/select/selection.h"

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

/// The option --where of a command, which qxdb select explains.
Option& AddWhere(Command& command, std::string& where, const std::string& what);

/// What a text selects in a model. A fault of the text is one of what was typed and has no file;
/// what the model does not have is one of the model.
Result<Selection> SelectIn(const Model& model, const std::string& where,
                           std::optional<SelectKind> wanted = {});

/// The nodes or elements of a pool by a selection; fails when there are none, and for a pool of
/// anything else.
Result<TArray<ITR>> PickWhere(const Model& model, const DPoolBase& pool, const std::string& where);

/// "1-5,9,12": ascending ranges, of at most so many; "..." stands for the rest.
std::string KeyRangesText(std::vector<Key> keys, std::size_t most);

}  // namespace qx::app
