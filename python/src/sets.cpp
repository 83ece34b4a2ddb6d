// Mesh sets: adding, changing, merging and deleting them by their rules.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/model/standard_pools.h"

#include "handle.h"

namespace qx::python {
namespace {

using AnyKeys = py::array_t<Key, py::array::c_style | py::array::forcecast>;

DPoolMset& Sets(CQXDBSession& session) { return Pool<tagTMset>(session); }

ITR Find(const DPoolBase& pool, Key key) {
  const ITR found = pool.Find(key);
  if (!found) {
    Refuse(FaultKind::kMissing, Place(pool, key), "is not in the model", "see the pool's keys");
  }
  return found;
}

TArray<ITR> FindAll(const DPoolBase& pool, const AnyKeys& keys) {
  TArray<ITR> items;
  items.Reserve(keys.size());
  for (py::ssize_t i = 0; i < keys.size(); ++i) items.Add(Find(pool, keys.data()[i]));
  return items;
}

void Demand(const Handle& handle, int done) {
  if (!done) throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
}

Key Add(Handle& handle, const std::string& name, Key parent) {
  Key key = 0;
  Edit(handle, "Add a mesh set", [&](CQXDBSession& session) {
    ITR added = 0;
    Demand(handle, Sets(session).TR_Add(Utf16(name).c_str(), parent, added));
    key = KeyOf(added);
  });
  return key;
}

/// Adds members to a set, or takes them off its lists.
void ChangeMembers(Handle& handle, Key set, const AnyKeys& nodes, const AnyKeys& elements,
                   bool add) {
  Edit(handle, add ? "Add to a mesh set" : "Take off a mesh set", [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    DPoolMset& sets = Sets(session);
    const TArray<ITR> of_nodes = FindAll(Pool<tagTNode>(session), nodes);
    const TArray<ITR> of_elements = FindAll(Pool<tagTElem>(session), elements);
    const ITR at = Find(sets, set);
    Demand(handle, add ? sets.Private_Add_NodeElem(at, of_nodes, of_elements)
                       : sets.Private_Del_NodeElem(at, of_nodes, of_elements));
  });
}

/// Keys of the nodes or of the elements of a set, those by its rule among them.
AnyKeys MembersIn(Handle& handle, Key set, bool of_nodes) {
  const Guard guard(handle);
  std::vector<Key> keys;
  {
    const py::gil_scoped_release others_may_run;
    const SetMembers members = MembersOf(handle.Session(), Find(Sets(handle.Session()), set));
    for (const ITR item : of_nodes ? members.Nodes() : members.Elements()) {
      if (IsLive(item)) keys.push_back(KeyOf(item));
    }
  }
  return AnyKeys(static_cast<py::ssize_t>(keys.size()), keys.data());
}

void GiveRule(Handle& handle, Key set, const std::string& rule) {
  Edit(handle, "Change the rule of a mesh set", [&](CQXDBSession& session) {
    const Outcome given =
        SetRule(session, Find(Sets(session), set), rule, &session.Units().Model());
    if (!given) throw Fault(FaultKind::kValue, given.Error());
  });
}

void ToList(Handle& handle, Key set) {
  Edit(handle, "Make a plain list of a mesh set", [&](CQXDBSession& session) {
    const Outcome made = MakePlain(session, Find(Sets(session), set));
    if (!made) throw Fault(FaultKind::kMissing, made.Error());
  });
}

}  // namespace

void BindSets(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model.def("set_add", Add, py::arg("name"), py::arg("parent"))
      .def("set_members", ChangeMembers, py::arg("set"), py::arg("nodes"), py::arg("elements"),
           py::arg("add"))
      .def("set_keys", MembersIn, py::arg("set"), py::arg("of_nodes"))
      .def("set_rule", GiveRule, py::arg("set"), py::arg("rule"))
      .def(
          "set_rule_of",
          [](Handle& handle, Key set) {
            const Guard guard(handle);
            return RuleOf(handle.Session(), Find(Sets(handle.Session()), set));
          },
          py::arg("set"))
      .def("set_to_list", ToList, py::arg("set"))
      .def(
          "set_rename",
          [](Handle& handle, Key set, const std::string& name) {
            Edit(handle, "Rename a mesh set", [&](CQXDBSession& session) {
              DPoolMset& sets = Sets(session);
              Demand(handle, sets.TR_Rename(Find(sets, set), Utf16(name).c_str()));
            });
          },
          py::arg("set"), py::arg("name"))
      .def(
          "set_parent",
          [](Handle& handle, Key set, Key parent) {
            Edit(handle, "Move a mesh set", [&](CQXDBSession& session) {
              DPoolMset& sets = Sets(session);
              Demand(handle, sets.TR_SetParent(Find(sets, set), parent));
            });
          },
          py::arg("set"), py::arg("parent"))
      .def(
          "set_merge",
          [](Handle& handle, Key into, const AnyKeys& others) {
            Edit(handle, "Merge mesh sets", [&](CQXDBSession& session) {
              DPoolMset& sets = Sets(session);
              const py::gil_scoped_release others_may_run;
              Demand(handle, sets.Merge(Find(sets, into), FindAll(sets, others)));
            });
          },
          py::arg("into"), py::arg("others"))
      .def(
          "set_delete",
          [](Handle& handle, const AnyKeys& keys) {
            Edit(handle, "Delete mesh sets", [&](CQXDBSession& session) {
              DPoolMset& sets = Sets(session);
              const py::gil_scoped_release others_may_run;
              Demand(handle, sets.TR_Del(FindAll(sets, keys)));
            });
          },
          py::arg("sets"))
      .def(
          "set_rebuild",
          [](Handle& handle, bool gather) {
            Edit(handle, "Rebuild mesh sets", [&](CQXDBSession& session) {
              const py::gil_scoped_release others_may_run;
              Demand(handle, Sets(session).RebuildMeshset(gather));
            });
          },
          py::arg("gather"));
}

}  // namespace qx::python
