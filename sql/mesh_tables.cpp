// Tables computed from the mesh, and from who refers to what.

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/app/mesh_mass.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/model/deletion.h"
#include "qx_db/model/set_rules.h"

#include "sql/derived_tables.h"

namespace qx::sql {
namespace {

using Given = Computed::Given;
using Rows = Computed::Rows;

Column Real(std::string name, std::string meaning, int category) {
  Column column{.name = std::move(name), .type = ColumnType::kReal, .meaning = std::move(meaning)};
  column.category = category;
  column.has_unit = true;
  column.unit = FindUnitCategory(category)->name;
  return column;
}

/// A key that the query gives; -1 for what is none.
std::int64_t GivenKey(const std::optional<Value>& given) {
  if (const auto* integer = std::get_if<std::int64_t>(&*given)) return *integer;
  const auto* real = std::get_if<double>(&*given);
  const bool is_key = real && *real >= 0 && *real <= kMaxKey && *real == std::floor(*real);
  return is_key ? static_cast<std::int64_t>(*real) : -1;
}

// ---- sides that one element has alone -----------------------------------------------------------

Computed FreeSides(const char* name, const char* meaning, LooseSides (*find)(const DenseMesh&)) {
  return {.name = name,
          .meaning = meaning,
          .columns = {Integer("element", "key of the element"),
                      Integer("side", "number of the side, as in element_side")},
          .fill = [find](Link& link, const Given&, Rows& rows) -> Outcome {
            const auto mesh = link.Mesh();
            for (const DenseSide& side : find(*mesh).free) {
              rows.emplace_back(std::int64_t{KeyOf(mesh->ElementItr(side.element))});
              rows.emplace_back(std::int64_t{side.side});
            }
            return {};
          }};
}

// ---- findings -----------------------------------------------------------------------------------

Outcome FillFindings(Link& link, const Given&, Rows& rows) {
  const auto mesh = link.Mesh();
  for (const Finding& finding : FindFaults(*mesh, 0)) {
    for (const Key key : finding.keys) {
      rows.emplace_back(std::string(finding.name));
      rows.emplace_back(std::int64_t{finding.is_fault});
      rows.emplace_back(finding.of_nodes ? Value() : Value(std::int64_t{key}));
      rows.emplace_back(finding.of_nodes ? Value(std::int64_t{key}) : Value());
      rows.emplace_back(std::string(finding.remedy));
    }
  }
  return {};
}

Outcome FillUnused(Link& link, const Given&, Rows& rows) {
  const auto mesh = link.Mesh();
  for (const std::uint32_t node : FindUnusedNodes(*mesh).unused) {
    rows.emplace_back(std::int64_t{mesh->NodeKey(node)});
  }
  return {};
}

// ---- masses -------------------------------------------------------------------------------------

Outcome FillMasses(Link& link, const Given&, Rows& rows) {
  const auto mesh = link.Mesh();
  const MassReport report = ComputeMass(link.Session(), *mesh, {});
  for (const MassOfProperty& of : report.by_property) {
    const RigidBody body = ToRigidBody(of.mass);
    rows.emplace_back(of.property_key ? Value(std::int64_t{of.property_key}) : Value());
    rows.emplace_back(of.elements);
    for (const double number : {of.length, of.area, of.volume, of.mass.size}) {
      rows.emplace_back(number);
    }
    for (const double number : {body.center.x, body.center.y, body.center.z}) {
      rows.emplace_back(body.mass > 0 ? Value(number) : Value());
    }
  }
  return {};
}

// ---- sets with those below them -----------------------------------------------------------------

/// The set and all below it, each once.
std::vector<ITR> WithThoseBelow(const DPoolMset& sets, ITR top) {
  std::vector<ITR> found{top};
  for (std::size_t i = 0; i < found.size(); ++i) {
    TArray<ITR> children;
    sets.GetItrListByParentMsetK(KeyOf(found[i]), children);
    for (const ITR child : children) {
      if (std::find(found.begin(), found.end(), child) == found.end()) found.push_back(child);
    }
  }
  return found;
}

template <class Members>
Computed WithChildren(const char* name, const char* what, Members members) {
  return {.name = name,
          .meaning = std::string(what) + "s of mesh sets and of all sets below them, each once",
          .columns = {Integer("mesh_set", "key of the set"),
                      Integer(what, std::string("key of the ") + what)},
          .fill = [members](Link& link, const Given&, Rows& rows) -> Outcome {
            const auto& sets = Pool<tagTMset>(link.Session());
            for (ITR set = sets.GetHeadPosition(); set; sets.Next(set)) {
              std::unordered_set<ITR> seen;
              for (const ITR part : WithThoseBelow(sets, set)) {
                const SetMembers of_part = MembersOf(link.Session(), part);
                for (const ITR member : members(of_part)) {
                  if (!member || !seen.insert(member).second) continue;
                  rows.emplace_back(std::int64_t{KeyOf(set)});
                  rows.emplace_back(std::int64_t{KeyOf(member)});
                }
              }
            }
            return {};
          }};
}

// ---- uses ---------------------------------------------------------------------------------------

/// The place of the pool that a query names among all; -1 for none.
int PlaceOfPool(const Link& link, const std::optional<Value>& given) {
  const auto* name = std::get_if<std::string>(&*given);
  int place = 0;
  for (const DPoolBase* candidate : link.Session().Pools()) {
    if (name && EqualNoCase(*name, TableName(*candidate))) return place;
    ++place;
  }
  return -1;
}

/// Of 63 bits 6 for the pool, 31 for the key, 26 for the uses of a record.
sqlite3_int64 FirstUse(Link& link, const Given& given) {
  return sqlite3_int64{PlaceOfPool(link, given[0])} << 57 | GivenKey(given[1]) << 26;
}

Outcome FillUses(Link& link, const Given& given, Rows& rows) {
  const int place = PlaceOfPool(link, given[0]);
  if (place < 0) {
    return Failure{"", "where_used", "pool names no table of records", "see the table pool"};
  }
  const DPoolBase* pool = link.Session().Pools()[static_cast<std::size_t>(place)];
  const std::int64_t key = GivenKey(given[1]);
  const ITR item = key >= 0 && key <= kMaxKey ? pool->Find(static_cast<Key>(key)) : 0;
  for (const Use& use : WhereUsed(link.Session(), pool->GetTypeCode(), item)) {
    rows.push_back(*given[0]);
    rows.push_back(*given[1]);
    rows.emplace_back(TableName(*link.Session().GetDataPool(use.type)));
    rows.emplace_back(std::int64_t{KeyOf(use.item)});
    rows.emplace_back(use.row ? Value(Utf8(use.row->name)) : Value());
  }
  return {};
}

}  // namespace

std::vector<Computed> MeshTables() {
  std::vector<Computed> tables;
  tables.push_back(FreeSides("free_face", "faces of solids that no other element has", LooseFaces));
  tables.push_back(
      FreeSides("free_edge", "edges of surface elements that no other has", LooseEdges));
  tables.push_back(
      {.name = "finding",
       .meaning = "what is wrong with the mesh or worth knowing, as qxdb check finds it",
       .columns = {Text("kind", "what was found"),
                   Integer("is_fault", "1 for wrong in every mesh, 0 for worth knowing"),
                   Integer("element", "key of the element concerned, or NULL"),
                   Integer("node", "key of the node concerned, or NULL"),
                   Text("remedy", "what mends it")},
       .fill = FillFindings});
  tables.push_back({.name = "unused_node",
                    .meaning = "nodes that no element has and that no record needs",
                    .columns = {Integer("node", "key of the node")},
                    .fill = FillUnused});
  tables.push_back(
      {.name = "property_mass",
       .meaning = "masses by property, as far as densities, thicknesses and sections are known",
       .columns = {Integer("property", "key of the property, NULL for none"),
                   Integer("elements", "how many have it"),
                   Real("length", "of lines", unit::kLength),
                   Real("area", "of surfaces", unit::kArea),
                   Real("volume", "of all, with thickness and section", unit::kVolume),
                   Real("mass", "of all", unit::kMass),
                   Real("center_x", "centre of mass", unit::kLength),
                   Real("center_y", "centre of mass", unit::kLength),
                   Real("center_z", "centre of mass", unit::kLength)},
       .fill = FillMasses});
  tables.push_back(WithChildren(
      "mesh_set_element_all", "element",
      [](const SetMembers& set) -> const auto& { return set.Elements(); }));
  tables.push_back(WithChildren(
      "mesh_set_node_all", "node",
      [](const SetMembers& set) -> const auto& { return set.Nodes(); }));
  Column pool = Text("pool", "table of the record that is asked about");
  Column key = Integer("key", "its key");
  pool.is_hidden = key.is_hidden = true;
  tables.push_back({.name = "where_used",
                    .meaning = "uses of one record: where_used('node', 5)",
                    .columns = {pool, key, Text("user", "table of a record that uses it"),
                                Integer("user_key", "key of that record"),
                                Text("member", "the member that does, NULL where its key does")},
                    .arguments = {0, 1},
                    .fill = FillUses,
                    .first_row_id = FirstUse});
  return tables;
}

}  // namespace qx::sql
