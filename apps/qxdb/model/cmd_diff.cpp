// What distinguishes two models, member by member.

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <iterator>
#include <optional>

#include "qx_db/core/model_diff.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/describe.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

using Kind = RecordDifference::Kind;

struct DiffOptions {
  std::string first;
  std::string second;
  std::size_t most = 100;
};

/// A member that differs, as text.
struct MemberChange {
  std::string name, before, after;
  bool operator==(const MemberChange&) const = default;
};

/// Two models, and what is told of a difference between them.
class Comparison {
 public:
  Comparison(const Model& first, const Model& second) : first_(first), second_(second) {}

  std::vector<MemberChange> ChangesOf(const RecordDifference& of) const {
    std::vector<MemberChange> changes;
    if (of.members.empty()) return changes;
    const TStructBase& before = RecordOf(first_, of);
    const TStructBase& after = RecordOf(second_, of);
    for (const Row* row : of.members) {
      changes.push_back(
          {Utf8(row->name), MemberValueText(*row, before), MemberValueText(*row, after)});
    }
    return changes;
  }

  std::string TextOf(const RecordDifference& difference) const {
    switch (difference.kind) {
      case Kind::kOnlyInFirst:
        return "only in " + first_.path;
      case Kind::kOnlyInSecond:
        return "only in " + second_.path;
      case Kind::kOrder:
        return "same records in another order";
      case Kind::kChanged:
        break;
    }
    std::string text;
    for (const MemberChange& change : ChangesOf(difference)) {
      if (!text.empty()) text += "; ";
      const std::string lists = ListText(change.before, change.after);
      text += change.name + ' ';
      text += lists.empty() ? Cut(change.before) + " -> " + Cut(change.after) : lists;
    }
    return text;
  }

  std::string PoolOf(const RecordDifference& of) const {
    return PoolLabel(*first_.session.GetDataPool(of.type));
  }

 private:
  static const TStructBase& RecordOf(const Model& model, const RecordDifference& of) {
    return *KeyedSetBase::RecordAt(model.session.GetDataPool(of.type)->Find(of.key));
  }
  /// Of two long lists of keys "without 1001-1010, with 7"; "" of anything else, and where only
  /// their order differs.
  static std::string ListText(const std::string& before, const std::string& after) {
    if (std::max(before.size(), after.size()) <= kMostShown) return "";
    const auto old_keys = KeysOf(before);
    const auto new_keys = KeysOf(after);
    if (!old_keys || !new_keys) return "";
    std::vector<Key> gone, come;
    std::set_difference(old_keys->begin(), old_keys->end(), new_keys->begin(), new_keys->end(),
                        std::back_inserter(gone));
    std::set_difference(new_keys->begin(), new_keys->end(), old_keys->begin(), old_keys->end(),
                        std::back_inserter(come));
    std::string text;
    if (!gone.empty()) text += "without " + RangesText(gone);
    if (!come.empty()) text += (text.empty() ? "with " : ", with ") + RangesText(come);
    return text;
  }
  /// The keys of a list "[3; 1; 2]" in rising order; none of another value.
  static std::optional<std::vector<Key>> KeysOf(const std::string& list) {
    if (list.size() < 2 || list.front() != '[' || list.back() != ']') return std::nullopt;
    std::vector<Key> keys;
    const char* at = list.data() + 1;
    const char* end = list.data() + list.size() - 1;
    while (at < end) {
      Key key = 0;
      const auto [stop, error] = std::from_chars(at, end, key);
      if (error != std::errc() || (stop != end && *stop != ';')) return std::nullopt;
      keys.push_back(key);
      at = stop == end ? end : stop + 1;
      while (at < end && *at == ' ') ++at;
    }
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  /// "1-5, 9, ... (1 200)" of keys in rising order.
  static std::string RangesText(const std::vector<Key>& keys) {
    constexpr int kMostRanges = 4;
    std::string text;
    int ranges = 0;
    for (std::size_t i = 0; i < keys.size();) {
      if (ranges++ == kMostRanges) {
        return text + fmt::format(", ... ({})", Grouped(std::int64_t(keys.size())));
      }
      std::size_t last = i;
      while (last + 1 < keys.size() && keys[last + 1] == keys[last] + 1) ++last;
      text += fmt::format("{}{}", text.empty() ? "" : ", ", keys[i]);
      if (last > i) text += fmt::format("-{}", keys[last]);
      i = last + 1;
    }
    return text;
  }
  /// A list of many values by its beginning.
  static std::string Cut(const std::string& value) {
    if (value.size() <= kMostShown) return value;
    std::size_t end = kMostShown;
    while (end > 0 && (static_cast<unsigned char>(value[end]) & 0xC0) == 0x80) --end;
    return value.substr(0, end) + "...";
  }

  static constexpr std::size_t kMostShown = 60;
  const Model& first_;
  const Model& second_;
};

/// How many differences from the first on are of one kind, in the same members, of a pool's records
/// one after the other.
std::size_t RunOf(std::span<const RecordDifference> differences) {
  const RecordDifference& first = differences.front();
  std::size_t run = 1;
  while (run < differences.size() && first.kind != Kind::kOrder) {
    const RecordDifference& next = differences[run];
    if (next.kind != first.kind || next.type != first.type || next.members != first.members ||
        next.key != differences[run - 1].key + 1) {
      break;
    }
    ++run;
  }
  return run;
}

/// Rows for people: runs of three and more in one, by the values of the first where they differ.
Table TableOf(const Comparison& comparison, const std::vector<RecordDifference>& differences,
              std::size_t most, std::size_t& shown) {
  Table table({"pool", ">key", "difference"});
  std::size_t rows = 0;
  for (shown = 0; shown < differences.size() && rows < most; ++rows) {
    const RecordDifference& first = differences[shown];
    std::size_t run = RunOf(std::span(differences).subspan(shown));
    if (run < 3) run = 1;
    std::string text = comparison.TextOf(first);
    std::string keys = std::to_string(first.key);
    if (run > 1) {
      keys += fmt::format("-{}", differences[shown + run - 1].key);
      bool is_same = true;
      for (std::size_t i = 1; is_same && i < run && first.kind == Kind::kChanged; ++i) {
        is_same = comparison.TextOf(differences[shown + i]) == text;
      }
      if (!is_same) text += fmt::format(" and so on, in {} records", Grouped(std::int64_t(run)));
    }
    table.Row({comparison.PoolOf(first), keys, text});
    shown += run;
  }
  return table;
}

Outcome Diff(const DiffOptions& options, Context& context) {
  Model first(options.first), second(options.second);
  for (Model* model : {&first, &second}) {
    if (Outcome opened = model->Open(); !opened) return opened;
  }
  const auto differences = DiffModels(first.session, second.session);
  const Comparison comparison(first, second);
  JsonText json;
  json.Begin().Integer("differences", static_cast<std::int64_t>(differences.size()));
  json.BeginArray("list");
  for (const RecordDifference& d : differences) {
    if (!context.json) break;
    json.Begin().Text("pool", comparison.PoolOf(d)).Integer("key", d.key);
    json.Text("difference", d.kind == Kind::kChanged ? "changed" : comparison.TextOf(d));
    if (d.kind == Kind::kChanged) json.BeginArray("members");
    for (const MemberChange& change : comparison.ChangesOf(d)) {
      json.Begin().Text("name", change.name).Text("before", change.before);
      json.Text("after", change.after).End();
    }
    if (d.kind == Kind::kChanged) json.End();
    json.End();
  }
  std::size_t shown = 0;
  const Table table = TableOf(comparison, differences, options.most, shown);
  std::string text = differences.empty() ? "no differences\n" : table.Text();
  if (differences.size() > shown) {
    text += fmt::format("... and {} more; see all with --most {}\n", differences.size() - shown,
                        differences.size());
  }
  const bool same_units = first.session.Units().Model() == second.session.Units().Model();
  if (!same_units) text += "the models have different units: their numbers do not compare\n";
  json.End().Bool("same_units", same_units);
  context.exit_code = differences.empty() && same_units ? kDone : kNo;
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddDiff(Command& app, Context& context) {
  const auto [command, options] = AddCommand<DiffOptions>(
      app, context, "diff", "Compare two models record by record, with what values became",
      "qxdb diff before.qxm after.qxm", Diff);
  command->Add("first", &options->first, "Model file").OpenModel().Required();
  command->Add("second", &options->second, "Model file").Model().Required();
  command->Add("--most", &options->most, "Lines to print; --json has all differences")
      .ShowDefault();
}

}  // namespace qx::app
