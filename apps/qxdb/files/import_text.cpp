#include "apps/qxdb/files/import_text.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <tuple>
#include <vector>

#include "qx_db/platform/plain_text.h"
#include "qx_db/record/verbs.h"

#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

std::string LabelOf(const CQXDBSession& session, std::uint16_t type) {
  return PoolLabel(*session.GetDataPool(type));
}

/// A line for the references of one member of a record that lead the same way; those that were
/// cleared stand first.
std::vector<std::string> LooseLines(const ImportReport& report, const CQXDBSession& session) {
  constexpr int kNamed = 6;
  std::vector<std::string> lines;
  for (const bool linked : {false, true}) {
    const ImportReport::Loose* former = nullptr;
    int count = 0;
    const auto end = [&] {
      if (count > kNamed) lines.back() += fmt::format(" and {} more", count - kNamed);
      if (former) lines.back() += linked ? ": the model's own" : ": do not come along; cleared";
    };
    for (const ImportReport::Loose& loose : report.loose) {
      if (loose.linked != linked) continue;
      if (!former || std::tie(former->type, former->key, former->member) !=
                         std::tie(loose.type, loose.key, loose.member)) {
        end();
        count = 0;
        lines.push_back(fmt::format("{} {} {}: {}", LabelOf(session, loose.type), loose.key,
                                    Utf8(loose.member), LabelOf(session, loose.target)));
      }
      former = &loose;
      if (++count <= kNamed)
        lines.back() += fmt::format("{} {}", count > 1 ? "," : "", loose.target_key);
    }
    end();
  }
  return lines;
}

std::string PoolsText(const ImportReport& report, const CQXDBSession& session, JsonText& json) {
  Table table({"pool", ">records", ">overwritten", ">renumbered", ">joined"});
  json.Begin("pools");
  for (const ImportReport::Pool& pool : report.pools) {
    const auto renumbered = std::count_if(pool.keys.begin(), pool.keys.end(),
                                          [](const auto& key) { return key.first != key.second; });
    const auto records = static_cast<std::int64_t>(pool.keys.size()) - pool.joined;
    const std::string label = LabelOf(session, pool.type);
    table.Row({label, Grouped(records), Grouped(pool.overwritten), Grouped(renumbered),
               Grouped(pool.joined)});
    json.Begin(label).Integer("records", records).Integer("overwritten", pool.overwritten);
    json.Integer("renumbered", renumbered).Integer("joined", pool.joined).End();
  }
  json.End();
  return table.IsEmpty() ? "nothing came\n" : table.Text();
}

/// The sets that came under other keys, by which they are named from now on.
std::vector<std::string> RenumberedSets(const ImportReport& report, const CQXDBSession& session) {
  std::vector<std::string> lines;
  for (const ImportReport::Pool& pool : report.pools) {
    if (pool.type != code::kMset) continue;
    for (const auto& [outside, here] : pool.keys) {
      if (outside == here) continue;
      lines.push_back(fmt::format("{} {}: came as {}", LabelOf(session, pool.type), outside, here));
    }
  }
  return lines;
}

template <class Decision>
std::vector<std::string> LinesOf(const std::vector<Decision>& decisions,
                                 const CQXDBSession& session) {
  std::vector<std::string> lines;
  for (const Decision& one : decisions) lines.push_back(one.Line(session));
  return lines;
}

std::vector<std::string> RecordsOf(const std::vector<std::pair<std::uint16_t, Key>>& records,
                                   const CQXDBSession& session) {
  std::vector<std::string> lines;
  for (const auto& [type, key] : records) {
    lines.push_back(fmt::format("{} {}", LabelOf(session, type), key));
  }
  return lines;
}

/// "12 elem stay behind ...", by pool.
std::vector<std::string> LeftLines(const ImportReport& report, const CQXDBSession& session) {
  std::map<std::uint16_t, std::int64_t> counts;
  for (const auto& [type, key] : report.left) ++counts[type];
  std::vector<std::string> lines;
  for (const auto& [type, count] : counts) {
    lines.push_back(fmt::format("{} {} stay behind, being nothing without what does not come",
                                Grouped(count), LabelOf(session, type)));
  }
  return lines;
}

}  // namespace

std::string DescribeImport(const ImportReport& report, const CQXDBSession& session,
                           JsonText& json) {
  std::string text = PoolsText(report, session, json);
  const auto tell = [&](const char* name, const std::vector<std::string>& all,
                        const std::vector<std::string>& shown, const char* ending = "") {
    constexpr std::size_t kShown = 20;
    json.BeginArray(name);
    for (const std::string& line : all) json.Text({}, line);
    json.End();
    for (std::size_t i = 0; i < std::min(kShown, shown.size()); ++i) {
      text += OneLine(shown[i]) + ending + "\n";
    }
    if (shown.size() > kShown) {
      text += fmt::format("and {} {} more; --json has them all\n", shown.size() - kShown, name);
    }
  };
  const auto tell_all = [&](const char* name, const std::vector<std::string>& lines,
                            const char* ending = "") { tell(name, lines, lines, ending); };
  tell_all("renumbered_sets", RenumberedSets(report, session));
  tell_all("clashes", LinesOf(report.clashes, session));
  tell_all("renamed", LinesOf(report.renamed, session));
  tell("left", RecordsOf(report.left, session), LeftLines(report, session));
  tell("loose", LinesOf(report.loose, session), LooseLines(report, session));
  tell_all("unconverted", RecordsOf(report.unconverted, session),
           ": numbers of a kind that is not known kept the units they had");
  return text;
}

}  // namespace qx::app
