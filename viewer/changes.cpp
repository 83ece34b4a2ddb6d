// The history as the page shows it: the steps, and what one of them changed.

#include <array>
#include <cmath>
#include <map>
#include <unordered_map>

#include "qx_db/lib/units.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

#include "viewer/page_data.h"
#include "viewer/records.h"

namespace qx::viewer {
namespace {

/// What became of a record in a step, by how it stands in the end.
enum Fate { kAdded, kRemoved, kChanged };

/// The fate of each record that a step touched, but for those that came and went in it.
std::map<std::uint16_t, std::vector<std::pair<ITR, Fate>>> FatesOf(const Step& step) {
  struct Course {
    std::uint16_t type, first, last;
  };
  std::unordered_map<ITR, std::size_t> place;
  std::vector<std::pair<ITR, Course>> courses;  // in the order of the step
  for (const Change& change : step.changes) {
    const ITR item = change.item;  // out of the packed notice
    const auto [known, is_new] = place.emplace(item, courses.size());
    if (is_new) courses.push_back({item, {change.type, change.operation, change.operation}});
    courses[known->second].second.last = change.operation;
  }
  std::map<std::uint16_t, std::vector<std::pair<ITR, Fate>>> fates;
  for (const auto& [item, course] : courses) {
    const bool added = course.first == tagTRNotify::kInserted;
    const bool removed = course.last == tagTRNotify::kRemoved;
    if (added && removed) continue;
    fates[course.type].emplace_back(item, added ? kAdded : removed ? kRemoved : kChanged);
  }
  return fates;
}

/// Of elements that came, more are not outlined: a step that brought a whole mesh is known by it.
constexpr std::size_t kMostOutlined = 5000;

/// Appends the corner-to-corner lines of an element; a removed one is readable as long as its step.
void AddOutline(ITR item, const CQXDBSession& session, std::vector<double>& out) {
  const auto& element = *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(item));
  const auto add = [&](std::int32_t a, std::int32_t b) {
    std::array<double, 6> ends{};
    for (std::size_t i = 0; i < 2; ++i) {
      // A node that went as well still has its position.
      const ITR at = element.nodes[i == 0 ? a : b];
      if (at == 0) return;
      const Vector3 position(static_cast<const tagTNode*>(KeyedSetBase::RecordAt(at))->position);
      for (int axis = 0; axis < 3; ++axis) {
        const double c = session.Units().Out(CQXNodeUnit::Instance().Code(0), position[axis]);
        if (!(std::abs(c) <= kFarthest)) return;
        ends[3 * i + static_cast<std::size_t>(axis)] = c;
      }
    }
    out.insert(out.end(), ends.begin(), ends.end());
  };
  for (const NodeLine& line : topology::OutlineOf(element.type, element.nodes.GetSize())) {
    add(line.from, line.to);
  }
}

}  // namespace

void WriteChangeCounts(Json& json, const CQXDBSession& session, const Step& step) {
  json.StartObject();
  for (const auto& [type, records] : FatesOf(step)) {
    std::array<std::int64_t, 3> counts{};
    for (const auto& [item, fate] : records) ++counts[static_cast<std::size_t>(fate)];
    json.Name(TableName(*session.GetDataPool(type))).StartArray();
    for (const std::int64_t count : counts) json.Int64(count);
    json.EndArray();
  }
  json.EndObject();
}

void WriteSteps(Json& json, const CQXDBSession& session) {
  const auto write = [&](const Step& step, bool done) {
    json.StartObject();
    json.Integer("number", step.number).Integer("time_ms", step.time_ms);
    json.Text("name", Utf8(step.name)).Flag("done", done).Name("counts");
    WriteChangeCounts(json, session, step);
    json.EndObject();
  };
  json.StartArray();
  for (const Step& step : session.History().Done()) write(step, true);
  const auto& undone = session.History().Undone();
  for (auto step = undone.rbegin(); step != undone.rend(); ++step) write(*step, false);
  json.EndArray();
}

std::string LastChanges(const CQXDBSession& session, std::span<const Key> turned) {
  Pack pack;
  const auto& done = session.History().Done();
  std::vector<std::int32_t> keys[2][3];         // elements, nodes; by fate
  std::array<std::vector<double>, 2> outlines;  // of elements added, removed
  if (!done.empty()) {
    for (const auto& [type, records] : FatesOf(done.back())) {
      if (type != code::kElem && type != code::kNode) continue;
      for (const auto& [item, fate] : records) {
        keys[type == code::kNode][fate].push_back(KeyOf(item));
        if (type != code::kElem || fate == kChanged) continue;
        if (fate == kAdded && keys[0][kAdded].size() > kMostOutlined) continue;
        AddOutline(item, session, outlines[fate]);
      }
    }
    pack.Text().Text("name", Utf8(done.back().name)).Name("counts");
    WriteChangeCounts(pack.Text(), session, done.back());
  }
  constexpr const char* kPools[] = {"element", "node"};
  constexpr const char* kFates[] = {"added", "removed", "changed"};
  for (int pool = 0; pool < 2; ++pool) {
    for (int fate = 0; fate < 3; ++fate) {
      pack.Integers(std::string(kPools[pool]) + "_" + kFates[fate], keys[pool][fate]);
    }
  }
  pack.Integers("element_turned", turned);
  // Relative to the first of them, for floats are too coarse far from the origin.
  Json& json = pack.Text();
  std::array<double, 3> from{};
  for (const auto& lines : outlines) {
    if (!lines.empty()) from = {lines[0], lines[1], lines[2]};
  }
  json.Name("outline_origin").StartArray();
  for (const double c : from) json.Number(c);
  json.EndArray();
  for (const Fate fate : {kAdded, kRemoved}) {
    std::vector<float> relative(outlines[fate].size());
    for (std::size_t i = 0; i < relative.size(); ++i) {
      relative[i] = ToFloat(outlines[fate][i] - from[i % 3]);
    }
    pack.Floats(std::string("outlines_") + kFates[fate], relative);
  }
  return pack.Finish();
}

}  // namespace qx::viewer
