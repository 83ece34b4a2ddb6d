#pragma once
// Fields that files brought along, results among them, as colours.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/mesh/dense_mesh.h"

#include "viewer/pack.h"

namespace qx::viewer {

/// One number for each element, NaN where there is none, in the order of the mesh; of a field by
/// node for each node as well, and the elements have the mean of theirs. In current units.
struct FieldValues {
  std::string label, unit;
  std::vector<float> elements, nodes;
};

/// What a name of values begins with that means a field.
inline constexpr std::string_view kFieldPrefix = "field:";

/// The names of all fields and components that FindField knows, for the page: "fields", a list of
/// {"name", "label"} in the order of the pool.
void WriteFields(Json& json, const CQXDBSession& session);
/// These names.
std::vector<std::string> FieldNames(const CQXDBSession& session);

/// "field:KEY" or "field:NAME", the last field of that name, followed by ":COMPONENT" from 1 where
/// it is not the magnitude that is meant. Several values of one element, as at its nodes, give
/// their mean. Nothing for another name.
std::optional<FieldValues> FindField(const CQXDBSession& session, const DenseMesh& mesh,
                                     std::string_view name);

}  // namespace qx::viewer
