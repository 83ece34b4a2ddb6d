#include "qx_db/select/rule_text.h"

#include <algorithm>

#include "qx_db/lib/units.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/lexer.h"

namespace qx::select {
namespace {

/// Whether a coordinate of a system is an angle.
bool IsAngle(const CQXDBSession& session, Key system, std::size_t coordinate) {
  const auto* const pool = session.GetPool<DPoolCord>(code::kCord);
  const ITR at = system != 0 && pool ? pool->Find(system) : 0;
  if (at == 0) return false;
  const std::int32_t type = pool->GetAtNU(at).type;
  return (type == tagTCord::kCylindrical && coordinate == 1) ||
         (type == tagTCord::kSpherical && coordinate > 0);
}

/// Which power of a length a number of a condition is; 0 for what is none.
int LengthPower(const CQXDBSession& session, const Term& term, std::size_t number) {
  const Evaluate what = term.condition->evaluate;
  const Arguments& arguments = term.arguments;
  const auto coordinate = [&](std::size_t i) {
    return IsAngle(session, arguments.system, i % 3) ? 0 : 1;
  };
  if (what == MarkBox) return coordinate(number);
  if (what == MarkSphere) return number < 3 ? coordinate(number) : 1;
  if (what == MarkCylinder) return number < 6 ? coordinate(number) : 1;
  if (what == MarkAbove || what == MarkBelow) return number < 3 ? coordinate(number) : 0;
  if (what == MarkCoordinate) return coordinate(static_cast<std::size_t>(arguments.word[0] - 'x'));
  if (what == MarkMeasure) {
    return FindMeasure(arguments.word)->measure == Measure::kDimension ? 1 : 0;
  }
  if (what == MarkSize) return arguments.word == "length" ? 1 : arguments.word == "area" ? 2 : 3;
  return 0;
}

void AddUnits(const CQXDBSession& session, const UnitSystem& units, std::string_view text,
              const std::vector<Token>& tokens, const Term& term, std::vector<TextEdit>& edits) {
  for (std::size_t i = 0; term.condition && i < term.arguments.numbers.size(); ++i) {
    const Quantity& quantity = term.arguments.numbers[i];
    const int power = quantity.unit.empty() ? LengthPower(session, term, i) : 0;
    if (power == 0) continue;
    const auto token = std::find_if(tokens.begin(), tokens.end(),
                                    [&](const Token& each) { return each.at == quantity.at; });
    const int length = units[UnitBase::kLength];
    std::string written(text.substr(token->at, token->raw.size()));
    written += UnitsOf(UnitBase::kLength)[static_cast<std::size_t>(length)].name;
    if (power > 1) written += std::to_string(power);
    edits.push_back({quantity.at, std::move(written)});
  }
  for (const Term& part : term.parts) AddUnits(session, units, text, tokens, part, edits);
}

}  // namespace

std::string Edited(std::string_view text, std::vector<TextEdit> edits) {
  const auto tokens = Tokens(text);
  std::string edited(text);
  if (!tokens) return edited;
  std::sort(edits.begin(), edits.end(),
            [](const TextEdit& a, const TextEdit& b) { return a.at > b.at; });
  for (const TextEdit& edit : edits) {
    for (const Token& token : *tokens) {
      if (token.at == edit.at) edited.replace(token.at, token.raw.size(), edit.text);
    }
  }
  return edited;
}

std::string Quoted(ITR set) {
  const std::string name = KeyedSetBase::RecordAt(set)->GetName().ToUtf8();
  for (const char* const quote : {"", "\"", "'"}) {
    std::string quoted = quote + name + quote;
    const auto term = ReadTerm("set " + quoted, {});
    if (!term || term->arguments.names.size() != 1) continue;
    const NameOrKey& read = term->arguments.names.front();
    if (read.kind == NameOrKey::Kind::kName && read.name == name) return quoted;
  }
  return std::to_string(KeyOf(set));
}

std::string WithUnits(const CQXDBSession& session, std::string_view text, const UnitSystem& units) {
  const auto tokens = Tokens(text);
  const auto term = ReadTerm(text, {});
  if (!tokens || !term) return std::string(text);
  std::vector<TextEdit> edits;
  AddUnits(session, units, text, *tokens, *term, edits);
  return Edited(text, std::move(edits));
}

void ForEachSetCondition(const Term& term, const std::function<void(const Term&)>& visit) {
  if (term.condition && term.condition->evaluate == MarkSets) visit(term);
  for (const Term& part : term.parts) ForEachSetCondition(part, visit);
}

}  // namespace qx::select
