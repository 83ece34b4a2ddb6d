#include "viewer/edits.h"

#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <rapidjson/document.h>
#include <vector>

#include "qx_db/app/mesh_repair.h"
#include "qx_db/core/read_snapshot.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/units.h"
#include "qx_db/model/deletion.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/text.h"

#include "viewer/page_data.h"
#include "viewer/records.h"

namespace qx::viewer {
namespace {

using Request = rapidjson::Document;

Failure Misunderstood(const std::string& what) {
  return {"", "edit", what, "ask for one of delete, set, move, fix, undo, redo"};
}

std::string TextOf(const Request& request, const char* name) {
  const auto member = request.FindMember(name);
  if (member == request.MemberEnd() || !member->value.IsString()) return {};
  return {member->value.GetString(), member->value.GetStringLength()};
}

bool FlagOf(const Request& request, const char* name) {
  const auto member = request.FindMember(name);
  return member != request.MemberEnd() && member->value.IsBool() && member->value.GetBool();
}

/// The records of a list of keys; fails at one that is not there.
Result<std::vector<ITR>> RecordsIn(const rapidjson::Value& list, const std::string& name,
                                   const DPoolBase& pool) {
  std::vector<ITR> items;
  if (!list.IsArray()) return Misunderstood(name + " is no list of keys");
  for (const auto& key : list.GetArray()) {
    const ITR item = key.IsInt() ? pool.Find(key.GetInt()) : 0;
    if (!item) {
      return Failure{"", TableName(pool) + " " + (key.IsInt() ? std::to_string(key.GetInt()) : "?"),
                     "there is no such record", "look at the model as it is now"};
    }
    items.push_back(item);
  }
  return items;
}

/// The same of a member of a request, which may be missing.
Result<std::vector<ITR>> RecordsOf(const Request& request, const char* name,
                                   const DPoolBase& pool) {
  const auto member = request.FindMember(name);
  if (member == request.MemberEnd()) return std::vector<ITR>();
  return RecordsIn(member->value, name, pool);
}

Failure Refused(const RefusalText& refusal) {
  const std::string text = refusal ? refusal() : std::string();
  return {"", "", text.empty() ? "the edit was refused" : text, ""};
}

/// `work` as one step of that name.
template <class Work>
Outcome AsStep(CQXDBSession& session, const char16_t* name, const RefusalText& refusal,
               Work&& work) {
  CTransaction transaction(&session);
  if (!transaction.Begin(name)) return Refused(refusal);
  if (Outcome done = work(); !done) return done;
  return transaction.Commit() ? Outcome() : Refused(refusal);
}

/// The deletion that a request asks for.
Result<SessionEdit> DeletionOf(const CQXDBSession& session, const Request& request) {
  const auto records = request.FindMember("records");
  if (records == request.MemberEnd() || !records->value.IsObject()) {
    return Misunderstood("\"records\" is no list of keys for each table");
  }
  std::vector<std::pair<std::uint16_t, std::vector<ITR>>> asked;
  for (const auto& [table, keys] : records->value.GetObject()) {
    const std::string name(table.GetString(), table.GetStringLength());
    const DPoolBase* pool = FindTable(session, name);
    if (!pool) return Misunderstood("there is no table \"" + name + "\"");
    auto items = RecordsIn(keys, name, *pool);
    if (!items) return items.Error();
    if (!items->empty()) asked.emplace_back(pool->GetTypeCode(), std::move(*items));
  }
  if (asked.empty()) return Misunderstood("nothing is selected");
  return SessionEdit([asked = std::move(asked)](CQXDBSession& in) {
    if (asked.size() == 1) return DeleteRecords(in, asked[0].first, asked[0].second);
    CTransaction all(&in);
    if (!all.Begin(qxLoadText("IDS_QX_TRANS_DELETE").c_str())) return 0;
    for (const auto& [type, items] : asked) {
      if (!DeleteRecords(in, type, items)) return 0;
    }
    return all.Commit();
  });
}

Outcome Delete(CQXDBSession& session, const Request& request, const RefusalText& refusal) {
  const auto deletion = DeletionOf(session, request);
  if (!deletion) return deletion.Error();
  if (!FlagOf(request, "turn") && !TurnsOf(session, *deletion).empty()) {
    return Failure{"", "", "would turn elements whose orientation or system goes",
                   "see its preview, and ask for it with \"turn\""};
  }
  return (*deletion)(session) ? Outcome() : Refused(refusal);
}

Outcome AddSet(CQXDBSession& session, const Request& request, const RefusalText& refusal) {
  auto& sets = *session.GetPool<DPoolMset>(code::kMset);
  const auto elements = RecordsOf(request, "elements", *session.GetDataPool(code::kElem));
  if (!elements) return elements.Error();
  const auto picked = RecordsOf(request, "nodes", *session.GetDataPool(code::kNode));
  if (!picked) return picked.Error();
  TArray<ITR> own, nodes;
  for (const ITR node : *picked) nodes.Add(node);
  for (const ITR element : *elements) {
    own.Add(element);
    nodes.Append(static_cast<const tagTElem*>(KeyedSetBase::RecordAt(element))->nodes);
  }
  return AsStep(session, u"Add mesh set", refusal, [&]() -> Outcome {
    ITR set = 0;
    const bool added = sets.TR_Add(Utf16(TextOf(request, "name")).c_str(), 0, set) &&
                       sets.Private_Add_NodeElem(set, nodes, own);
    return added ? Outcome() : Refused(refusal);
  });
}

Outcome Move(CQXDBSession& session, const Request& request, const RefusalText& refusal) {
  auto& pool = *session.GetPool<DPoolNode>(code::kNode);
  const auto nodes = RecordsOf(request, "nodes", pool);
  if (!nodes) return nodes.Error();
  const auto by = request.FindMember("by");
  if (by == request.MemberEnd() || !by->value.IsArray() || by->value.Size() != 3) {
    return Misunderstood("\"by\" is no list of three lengths");
  }
  Vector3 shift;
  for (rapidjson::SizeType i = 0; i < 3; ++i) {
    if (!by->value[i].IsNumber()) return Misunderstood("\"by\" is no list of three lengths");
    shift[static_cast<int>(i)] =
        session.Units().In(CQXNodeUnit::Instance().Code(0), by->value[i].GetDouble());
  }
  return AsStep(session, u"Move nodes", refusal, [&]() -> Outcome {
    for (const ITR item : *nodes) {
      tagTNode node = pool.GetAtNU(item);
      node.position.x += shift.x;
      node.position.y += shift.y;
      node.position.z += shift.z;
      const Vector3 moved(node.position);
      for (int i = 0; i < 3; ++i) {
        const double out = session.Units().Out(CQXNodeUnit::Instance().Code(0), moved[i]);
        if (std::abs(out) <= kFarthest) continue;
        return Failure{
            "", "node " + std::to_string(node.key),
            fmt::format("would have {} = {:g}, where nothing can be drawn", "xyz"[i], out),
            "move it less far"};
      }
      if (!pool.SetAtNU(item, node)) return Refused(refusal);
    }
    return {};
  });
}

Outcome Fix(CQXDBSession& session, const Request& request, const RefusalText& refusal) {
  RepairPlan plan;
  plan.inverted_solids = FlagOf(request, "solids");
  plan.misoriented_shells = FlagOf(request, "shells");
  plan.duplicate_elements = FlagOf(request, "duplicate_elements");
  plan.unreferenced_nodes = FlagOf(request, "unreferenced_nodes");
  const auto tolerance = request.FindMember("merge_tolerance");
  if (tolerance != request.MemberEnd() && tolerance->value.IsNumber()) {
    const double length = session.Units().In(unit::kLength, tolerance->value.GetDouble());
    if (!(length >= 0)) return Misunderstood("the tolerance is negative");
    plan.merge_tolerance = length;
  }
  return AsStep(session, u"Repair mesh", refusal, [&]() -> Outcome {
    RepairReport report;
    return RepairMesh(session, plan, report) ? Outcome() : Refused(refusal);
  });
}

Outcome UndoOrRedo(CQXDBSession& session, bool undo, const RefusalText& refusal) {
  if (undo ? !session.CanUndo() : !session.CanRedo()) {
    return Failure{"", "", undo ? "there is nothing to undo" : "there is nothing to redo", ""};
  }
  return (undo ? session.Undo() : session.Redo()) ? Outcome() : Refused(refusal);
}

Result<Request> Parse(std::string_view text) {
  Request request;
  request.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
  if (request.HasParseError() || !request.IsObject()) {
    return Misunderstood("the request is no JSON object");
  }
  return request;
}

Outcome Apply(CQXDBSession& session, const Request& request, const RefusalText& refusal) {
  const std::string edit = TextOf(request, "edit");
  if (edit == "delete") return Delete(session, request, refusal);
  if (edit == "set") return AddSet(session, request, refusal);
  if (edit == "move") return Move(session, request, refusal);
  if (edit == "fix") return Fix(session, request, refusal);
  if (edit == "undo" || edit == "redo") return UndoOrRedo(session, edit == "undo", refusal);
  return Misunderstood("\"" + edit + "\" is no edit");
}

}  // namespace

Outcome ApplyEdit(CQXDBSession& session, std::string_view text, const RefusalText& refusal) {
  const auto request = Parse(text);
  return request ? Apply(session, *request, refusal) : request.AsOutcome();
}

Result<std::string> PreviewEdit(const CQXDBSession& session, std::string_view text,
                                const RefusalText& refusal) {
  const auto request = Parse(text);
  if (!request) return request.Error();
  const std::string edit = TextOf(*request, "edit");
  if (edit == "undo" || edit == "redo") {
    return Failure{"", edit, "has no preview of its own", "look at what its step changed"};
  }
  const std::unique_ptr<CQXDBSession> copy = TakeSnapshot(session);
  std::vector<Key> turned;
  if (edit == "delete") {
    const auto deletion = DeletionOf(*copy, *request);
    if (!deletion) return deletion.Error();
    for (const Turn& turn : TurnsOf(*copy, *deletion)) turned.push_back(KeyOf(turn.element));
    if (!(*deletion)(*copy)) return Refused(refusal);
  } else if (Outcome done = Apply(*copy, *request, refusal); !done) {
    return done.Error();
  }
  return LastChanges(*copy, turned);
}

}  // namespace qx::viewer
