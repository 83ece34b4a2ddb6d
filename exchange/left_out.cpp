// What a format has no place for, in words.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

#include "qx_db/model/set_rules.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "exchange/deck.h"
#include "exchange/key_set.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

constexpr const char* kWhy = "the format has no place for them";

struct Words {
  std::uint16_t code;
  const char* plural;
  const char* one;
};
constexpr Words kWords[] = {
    {code::kCord, "coordinate systems", "coordinate system"},
    {code::kMset, "mesh sets", "mesh set"},
    {code::kMatl, "materials", "material"},
    {code::kProp, "properties", "property"},
    {code::kMeshCsys, "systems of the nodes of mesh sets", "assignment"},
    {code::kEcrd, "orientations of elements", "element"},
    {code::kE1DOffset, "offsets of lines", "offset"},
    {code::kE1DRelease, "releases of the ends of lines", "release"},
    {code::kE2DThick, "thicknesses of single surface elements", "thickness"},
    {code::kE2DOffset, "offsets of surface elements", "offset"},
    {code::kE2DMatlCsys, "material systems of surface elements", "assignment"},
    {code::kE3DMatlCsys, "material systems of solid elements", "assignment"},
    {code::kSprop, "masses and stiffnesses of single elements", "element"},
    {code::kActiveElemSet, "active element sets", "set"},
    {code::kField, "fields", "field"},
    {code::kSetTag, "numbers that files gave to mesh sets", "number"},
    {code::kBlock, "divisions of the mesh that files had", "block"},
};

/// "material 3" and "materials", or, of records without words of their own, those with their name.
struct Named {
  std::string plural;
  std::string one;
};
Named NamesOf(const Schema& schema, std::uint16_t code) {
  for (const Words& words : kWords) {
    if (words.code == code) return {words.plural, words.one};
  }
  const std::string name = Utf8(IONameOf(schema.Name())).substr(1);
  return {"records of " + name, name};
}

CQXDBSession* Mutable(const CQXDBSession& session) { return const_cast<CQXDBSession*>(&session); }

/// Whether text of the format came with the model; tells of that of others, by format.
bool ReportCarried(const CQXDBSession& session, std::string_view format, bool is_written,
                   LossReport& report) {
  bool has_own = false;
  std::map<std::string, std::pair<std::uint64_t, std::string>> others;
  host::ForEach<tagTCarried>(Mutable(session), [&](ITR, const tagTCarried& carried) {
    const std::string from = Utf8(carried.format.View());
    if (is_written && from == format) {
      has_own = true;
      return true;
    }
    auto& [count, first] = others[from];
    if (count++ == 0) first = Utf8(carried.keyword.View());
    return true;
  });
  for (const auto& [from, of_format] : others) {
    report.Lost(fmt::format("text that came from {} files was left out", from), of_format.first,
                of_format.second, "only that format has a place for it");
  }
  return has_own;
}

void ReportBoundarySets(const CQXDBSession& session, LossReport& report) {
  std::uint64_t count = 0;
  std::string first;
  host::ForEach<tagTBset>(Mutable(session), [&](ITR, const tagTBset& set) {
    if (count++ == 0) first = Utf8(set.name.View());
    return true;
  });
  report.Lost("boundary sets were left out", count, first,
              "their loads and constraints are text of another format");
}

/// Sets go out with the members that they have, and stay as they are then.
void ReportRules(const CQXDBSession& session, LossReport& report) {
  std::uint64_t kept = 0, broken = 0;
  std::string first, first_broken, why;
  const auto* const sets = session.GetPool<DPoolMset>(code::kMset);
  for (ITR at = sets ? sets->GetHeadPosition() : 0; at; sets->Next(at)) {
    if (RuleOf(session, at).empty()) continue;
    const std::string name = Utf8(sets->GetAtNU(at).name.View());
    if (kept++ == 0) first = name;
    const auto& fault = MembersOf(session, at).Fault();
    if (!fault || broken++ > 0) continue;
    first_broken = name;
    why = fault->place + ": " + fault->what;
  }
  report.Lost("rules of mesh sets were left out", kept, first,
              "the sets are written as the lists that they are now");
  report.Lost("mesh sets were written without what their rules select", broken, first_broken, why);
}

/// Tells of tags or blocks that other formats left: a format writes its own.
template <class T>
void ReportOfOthers(const CQXDBSession& session, std::string_view format, const char* what,
                    LossReport& report) {
  std::map<std::string, std::pair<std::uint64_t, Key>> others;
  host::ForEach<T>(Mutable(session), [&](ITR, const T& record) {
    const std::string from = Utf8(record.format.View());
    if (from == format) return true;
    auto& [count, first] = others[from];
    if (count++ == 0) first = record.key;
    return true;
  });
  for (const auto& [from, of_format] : others) {
    report.Lost(fmt::format("{} that came from {} files were left out", what, from),
                of_format.first, fmt::format("number {}", of_format.second),
                "each format has its own");
  }
}

}  // namespace

void ReportUnwritten(const CQXDBSession& session, std::string_view format,
                     std::span<const std::uint16_t> written, LossReport& report) {
  const auto writes = [&](std::uint16_t code) {
    return std::find(written.begin(), written.end(), code) != written.end();
  };
  const bool has_text = ReportCarried(session, format, writes(code::kCarried), report);
  const bool keeps_all = format == "vtu";  // in its notes
  if (writes(code::kSetTag) && !keeps_all) {
    ReportOfOthers<tagTSetTag>(session, format, "tags of sets", report);
  }
  if (writes(code::kBlock)) ReportOfOthers<tagTBlock>(session, format, "blocks", report);
  for (const DPoolBase* pool : session.Pools()) {
    const std::uint16_t code = pool->GetTypeCode();
    if (code == code::kBset && !(has_text && writes(code))) ReportBoundarySets(session, report);
    if (code == code::kBset || code == code::kCarried || code == code::kOrigin) continue;
    if (code == code::kSetRule) ReportRules(session, report);
    if (writes(code) || !pool->NeedSaveNLoad() || code == code::kSetRule) continue;
    std::uint64_t count = 0;
    Key first = 0;
    for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
      if (code == code::kCord && KeyOf(at) == kGlobalSystem) continue;
      if (count++ == 0) first = KeyOf(at);
    }
    const Named named = NamesOf(pool->GetSchema(), code);
    report.Lost(named.plural + " were left out", count, fmt::format("{} {}", named.one, first),
                kWhy);
  }
}

namespace {

/// "specific heat" of a member that the gateway calls SPECIFIC_HEAT, or is a part of.
std::string WordsOf(const Schema& schema, const Row& row) {
  std::string words;
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    if (schema.GatewayRows()[i]->offset > row.offset) break;
    words = schema.Gateway()[i].name;
  }
  for (char& c : words) c = c == '_' ? ' ' : static_cast<char>(c >= 'A' && c <= 'Z' ? c | 0x20 : c);
  return words;
}

const char* At(const TStructBase& record, const Row& row) {
  return reinterpret_cast<const char*>(&record) + row.offset;
}

bool IsSame(const Row& row, const char* a, const char* b) {
  if (row.number != Row::Number::kDouble) return std::memcmp(a, b, std::size_t(row.size)) == 0;
  for (std::int32_t at = 0; at < row.size; at += 8) {
    const auto x = LoadAt<double>(a + at);
    const auto y = LoadAt<double>(b + at);
    if (!(std::abs(x - y) <= 1e-12 * std::max(std::abs(x), std::abs(y)))) return false;
  }
  return true;
}

}  // namespace

std::string UnsaidMembers(const Schema& schema, const TStructBase& held, const TStructBase& said) {
  std::string names;
  std::string last;
  for (const Row& row : schema.Rows().subspan(1)) {
    if (row.IsArray() || std::u16string_view(row.name) == u"_NAME") continue;
    if (IsSame(row, At(held, row), At(said, row))) continue;
    std::string name = WordsOf(schema, row);
    if (name == last) continue;
    names += (names.empty() ? "" : ", ") + name;
    last = std::move(name);
  }
  return names;
}

Outcome CheckNumbers(const Deck& deck, const std::string& path) {
  Outcome outcome;
  const auto check = [&](const auto& records) {
    using T = typename std::decay_t<decltype(records)>::value_type;
    for (const T& record : records) {
      for (const Row& row : T::GetSchema().Rows()) {
        if (row.IsArray() || row.number != Row::Number::kDouble) continue;
        for (std::int32_t at = 0; outcome && at < row.size; at += 8) {
          if (std::isfinite(LoadAt<double>(At(record, row) + at))) continue;
          outcome =
              Failure{path, fmt::format("{} {}", NamesOf(T::GetSchema(), T::kType).one, record.key),
                      fmt::format("its {} is not a finite number", WordsOf(T::GetSchema(), row)),
                      "correct it in the model"};
        }
      }
    }
  };
  std::apply([&](const auto&... records) { (check(records), ...); }, deck.records);
  return outcome;
}

void UnwrittenElements::Add(std::int32_t type, Key key) {
  Count& of = of_type[type];
  if (of.count++ == 0) of.first = key;
}

void UnwrittenElements::Report(LossReport& report) const {
  for (const auto& [type, of] : of_type) {
    const ElementType* const known = FindElementType(type);
    report.Lost(
        (known ? std::string(known->plural) : fmt::format("special elements of type {}", type)) +
            " were left out",
        of.count, fmt::format("element {}", of.first), "the format has no such element");
  }
}

void ReportIncomplete(std::uint64_t count, Key first, LossReport& report) {
  report.Lost("elements without all their nodes were left out", count,
              fmt::format("element {}", first), "their nodes are gone");
}

void ReportUnused(const Mesh& mesh, LossReport& report) {
  const KeySet used(mesh.connectivity);
  std::uint64_t count = 0;
  Key first = 0;
  for (const Key key : mesh.node_keys) {
    if (!used.Contains(key) && count++ == 0) first = key;
  }
  report.Changed("nodes that belong to no element that was read", count,
                 fmt::format("node {}", first), "only elements that were not read had them");
}

}  // namespace qx::exchange
