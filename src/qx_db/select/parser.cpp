// From a selection's text to its tree: or, and, not, parentheses; conditions by their table.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <optional>

#include "qx_db/lib/units.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/platform/text.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/lexer.h"
#include "qx_db/select/nearest_word.h"
#include "qx_db/select/term.h"

namespace qx::select {
namespace {

constexpr SelectKind kKinds[] = {SelectKind::kElements, SelectKind::kNodes, SelectKind::kFaces};
constexpr std::string_view kHelp = "see qxdb help select for all conditions";

std::string Lower(std::string_view word) {
  std::string lower(word);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return lower;
}

/// "nodes or faces"
std::string TextOf(Kinds kinds) {
  std::string text;
  for (const SelectKind kind : {SelectKind::kNodes, SelectKind::kElements, SelectKind::kFaces}) {
    if ((kinds & BitOf(kind)) == 0) continue;
    text += (text.empty() ? "" : " or ") + std::string(NameOf(kind));
  }
  return text;
}

struct ComparisonSign {
  std::string_view sign;
  Comparison comparison;
};
constexpr ComparisonSign kComparisons[] = {
    {"<", Comparison::kLess},     {"<=", Comparison::kAtMost}, {">", Comparison::kMore},
    {">=", Comparison::kAtLeast}, {"=", Comparison::kEqual},   {"!=", Comparison::kOther},
};

bool IsJoining(std::string_view word) {
  return word == "and" || word == "or" || word == "not" || word == "with" || word == "in";
}

/// Reads a whole text. A fault ends it, and is kept.
class Parser {
 public:
  Parser(std::string_view text, std::vector<Token> tokens)
      : text_(text), tokens_(std::move(tokens)) {}

  std::optional<Term> Read() {
    if (Now().kind == Token::Kind::kEnd) {
      Fault(0, "the selection is empty", "write one such as: hex8 and box 0,0,0 1,1,1");
      return std::nullopt;
    }
    auto term = Selection();
    if (!term) return std::nullopt;
    if (Now().kind == Token::Kind::kEnd) return term;
    if (Now().Is(")")) {
      Fault(Now().at, "no parenthesis is open here", "leave it out");
    } else {
      Fault(Now().at, fmt::format("\"{}\" follows a selection that is complete", Now().raw),
            "join conditions by and, or");
    }
    return std::nullopt;
  }

  /// Settles of what every term is. False, with a fault, where they do not go together.
  bool Settle(Term& term, Kinds wanted, SelectKind preferred) {
    if ((term.kinds & wanted) == 0) {
      Fault(term.at,
            fmt::format("selects {} where {} are wanted", TextOf(term.kinds), TextOf(wanted)),
            fmt::format("write {} of (...)", TextOf(wanted)));
      return false;
    }
    const Kinds left = term.kinds & wanted;
    SelectKind kind = preferred;
    if ((left & BitOf(kind)) == 0) {
      kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                           [&](SelectKind each) { return (left & BitOf(each)) != 0; });
    }
    Fix(term, kind);
    return true;
  }

  const std::optional<Failure>& Failed() const { return failed_; }

 private:
  static constexpr int kDeepest = 64;
  using MaybeTerm = std::optional<Term>;

  const Token& Now() const { return tokens_[next_]; }
  const Token& Ahead() const { return tokens_[std::min(next_ + 1, tokens_.size() - 1)]; }
  void Go() { next_ += next_ + 1 < tokens_.size(); }
  bool IsWord(std::string_view word) const {
    return Now().kind == Token::Kind::kWord && EqualNoCase(Now().raw, word);
  }
  bool TakeWord(std::string_view word) {
    const bool is_it = IsWord(word);
    if (is_it) Go();
    return is_it;
  }
  bool TakeSign(std::string_view sign) {
    const bool is_it = Now().Is(sign);
    if (is_it) Go();
    return is_it;
  }
  /// Keeps the first fault.
  bool Fault(std::size_t at, std::string what, std::string remedy) {
    if (!failed_) failed_ = FaultAt(text_, at, std::move(what), std::move(remedy));
    return false;
  }
  bool Expected(std::string_view what, const Condition& condition) {
    const std::string met = Now().kind == Token::Kind::kEnd
                                ? "the text ends"
                                : fmt::format("there is \"{}{}\"", Now().raw, Now().unit);
    return Fault(Now().at, fmt::format("{} where {} is expected", met, what),
                 fmt::format("write {}, as {}", condition.syntax, condition.example));
  }

  // ---- joining ----------------------------------------------------------------------------------

  /// [nodes | elements | faces] terms joined by or.
  MaybeTerm Selection() {
    if (++depth_ > kDeepest) {
      Fault(Now().at, fmt::format("is nested more than {} deep", kDeepest),
            "make mesh sets of its parts");
      return std::nullopt;
    }
    const std::size_t at = Now().at;
    const std::optional<SelectKind> prefix = Prefix();
    MaybeTerm term = Joined("or", Term::Op::kOr);
    --depth_;
    if (!term || !prefix) return term;
    if ((term->kinds & BitOf(*prefix)) == 0) {
      Fault(term->at, fmt::format("selects {}, no {}", TextOf(term->kinds), NameOf(*prefix)),
            fmt::format("write {} of (...)", NameOf(*prefix)));
      return std::nullopt;
    }
    term->kinds = BitOf(*prefix);
    term->at = at;
    return term;
  }

  /// "nodes", "elements" or "faces" before a condition, not "nodes of".
  std::optional<SelectKind> Prefix() {
    for (const SelectKind kind : kKinds) {
      if (!IsWord(NameOf(kind))) continue;
      const Token& ahead = Ahead();
      const bool is_conversion =
          ahead.kind == Token::Kind::kWord &&
          (EqualNoCase(ahead.raw, "of") || EqualNoCase(ahead.raw, "touching"));
      if (is_conversion) return std::nullopt;
      Go();
      return kind;
    }
    return std::nullopt;
  }

  MaybeTerm Joined(std::string_view word, Term::Op op) {
    const auto part = [&] {
      return op == Term::Op::kOr ? Joined("and", Term::Op::kAnd) : Negated();
    };
    MaybeTerm first = part();
    if (!first || !IsWord(word)) return first;
    Term joined;
    joined.op = op;
    joined.at = first->at;
    joined.kinds = first->kinds;
    joined.parts.push_back(std::move(*first));
    while (TakeWord(word)) {
      MaybeTerm next = part();
      if (!next) return std::nullopt;
      if ((joined.kinds & next->kinds) == 0) {
        Fault(next->at,
              fmt::format("selects {}, but what stands before it {}", TextOf(next->kinds),
                          TextOf(joined.kinds)),
              fmt::format("put it into {} of (...)", TextOf(joined.kinds)));
        return std::nullopt;
      }
      joined.kinds &= next->kinds;
      joined.parts.push_back(std::move(*next));
    }
    return joined;
  }

  MaybeTerm Negated() {
    const std::size_t at = Now().at;
    bool negated = false, is_one = false;
    for (; TakeWord("not"); negated = !negated) is_one = true;
    MaybeTerm term = Primary();
    if (!term || !is_one) return term;
    term->at = at;
    if (!negated) return term;
    Term inverse;
    inverse.op = Term::Op::kNot;
    inverse.at = at;
    inverse.kinds = term->kinds;
    inverse.parts.push_back(std::move(*term));
    return inverse;
  }

  MaybeTerm Primary() {
    if (!Now().Is("(")) return ReadCondition();
    const std::size_t at = Now().at;
    return Parenthesis(at);
  }

  MaybeTerm Parenthesis(std::size_t at) {
    Go();
    MaybeTerm term = Selection();
    if (!term) return std::nullopt;
    if (!TakeSign(")")) {
      if (Now().kind != Token::Kind::kEnd) {
        Fault(Now().at, fmt::format("\"{}\" follows a condition that is complete", Now().raw),
              "join conditions by and, or");
      }
      Fault(at, "the parenthesis is not closed", "close it with )");
      return std::nullopt;
    }
    return term;
  }

  // ---- conditions -------------------------------------------------------------------------------

  MaybeTerm ReadCondition() {
    Term term;
    term.at = Now().at;
    const Condition* row = FindRow(term.arguments);
    if (!row) return std::nullopt;
    term.condition = row;
    term.kinds = row->kinds;
    if (!ReadArguments(*row, term)) return std::nullopt;
    if (!term.arguments.faces.empty()) term.kinds = kFaceKind;
    if (row->of != 0) {
      for (Term& part : term.parts) {
        if (!Settle(part, row->of, row->preferred)) return std::nullopt;
      }
    } else {
      for (Term& part : term.parts) {
        if ((part.kinds & term.kinds) == 0) {
          Fault(
              part.at,
              fmt::format("selects {}, and {} are wanted", TextOf(part.kinds), TextOf(term.kinds)),
              fmt::format("write {} of (...)", TextOf(term.kinds)));
          return std::nullopt;
        }
        term.kinds &= part.kinds;
      }
    }
    return term;
  }

  /// The row that the words here begin. Goes past its head, unless that is the keys themselves.
  const Condition* FindRow(Arguments& arguments) {
    if (Now().kind == Token::Kind::kNumber) {
      arguments.word = "keys";
      return RowOf("keys");
    }
    if (Now().kind != Token::Kind::kWord) {
      Fault(Now().at,
            Now().kind == Token::Kind::kEnd
                ? std::string("the text ends where a condition is expected")
                : fmt::format("there is {} where a condition is expected", Now().raw),
            std::string(kHelp));
      return nullptr;
    }
    std::string word = Lower(Now().raw);
    constexpr std::string_view kOfMeasures = "quality.";
    const bool is_measure = word.starts_with(kOfMeasures);
    if (is_measure) word.erase(0, kOfMeasures.size());
    const Condition* found = RowOf(word);
    if (!found || (is_measure && !found->syntax.starts_with("MEASURE"))) {
      UnknownWord(word);
      return nullptr;
    }
    arguments.word = word;
    Go();
    return found;
  }

  const Condition* RowOf(const std::string& head) {
    const Condition* found = nullptr;
    for (const Condition& row : ConditionRows()) {
      const auto heads = HeadsOf(row);
      if (std::find(heads.begin(), heads.end(), head) == heads.end()) continue;
      const auto words = WordsOf(row.syntax);
      const bool is_told = words.size() > 1 && Ahead().kind == Token::Kind::kWord &&
                           EqualNoCase(Ahead().raw, words[1]);
      if (!found || is_told) found = &row;
    }
    return found;
  }

  void UnknownWord(const std::string& word) {
    std::vector<std::string> known = ConditionWords();
    if (IsJoining(word)) {
      Fault(Now().at, fmt::format("\"{}\" stands where a condition is expected", Now().raw),
            std::string(kHelp));
      return;
    }
    const std::string nearest = NearestWord(word, known);
    Fault(Now().at, fmt::format("\"{}\" is no condition", Now().raw),
          nearest.empty() ? std::string(kHelp) : fmt::format("did you mean {}?", nearest));
  }

  bool ReadArguments(const Condition& row, Term& term) {
    const std::vector<std::string_view> words = WordsOf(row.syntax);
    for (std::size_t i = 1; i < words.size(); ++i) {
      std::string_view word = words[i];
      if (word.front() == '[') {
        if (!IsWord(word.substr(1))) break;  // what may be left out stands last
        Go();
        continue;
      }
      if (word.back() == ']') word.remove_suffix(1);
      if (word.front() >= 'a') {
        if (!TakeWord(word)) return Expected(fmt::format("\"{}\"", word), row);
        if (word == "children") term.arguments.with_children = true;
        continue;
      }
      if (!ReadArgument(word, row, term)) return false;
    }
    return true;
  }

  bool ReadArgument(std::string_view what, const Condition& row, Term& term) {
    Arguments& to = term.arguments;
    if (what == "KEYS") return ReadKeys(row, to);
    if (what == "NAMES") return ReadNames(row, to);
    if (what == "COUNT") return ReadCount(row, to);
    if (what == "SYSTEM") return ReadSystem(row, to);
    if (what == "LIMIT") return ReadLimit(row, to);
    if (what == "LENGTH") return ReadQuantity("a length", row, to) && IsNotNegative("length", to);
    if (what == "ANGLE") return ReadQuantity("an angle", row, to) && IsNotNegative("angle", to);
    if (what == "POINT") return ReadThree("a point x,y,z", row, to);
    if (what == "DIRECTION") return ReadThree("a direction x,y,z", row, to);
    const std::size_t at = Now().at;
    if (!Now().Is("(")) return Expected("a selection in parentheses", row);
    MaybeTerm part = Parenthesis(at);
    if (part) term.parts.push_back(std::move(*part));
    return part.has_value();
  }

  // ---- arguments --------------------------------------------------------------------------------

  /// A whole number from 0 up that a text is.
  static std::optional<Key> WholeOf(std::string_view text) {
    Key key = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, key);
    if (error != std::errc() || stop != end || key < 0) return std::nullopt;
    return key;
  }

  bool TakeKey(std::string_view text, const Condition& row, Key& key,
               std::string_view what = "a key") {
    const auto whole = Now().kind == Token::Kind::kNumber && Now().unit.empty()
                           ? WholeOf(text)
                           : std::optional<Key>();
    if (!whole) return Expected(what, row);
    key = *whole;
    Go();
    return true;
  }

  /// 1,5,10:20,100:200:2,7-9,300- or faces, 17.3
  bool ReadKeys(const Condition& row, Arguments& to) {
    do {
      if (row.evaluate == MarkKeys && TakeFace(to)) continue;
      KeyRange range{0, 0, 1};
      const std::size_t at = Now().at;
      if (!TakeKey(Now().raw, row, range.first)) return false;
      range.last = range.first;
      if (Now().kind == Token::Kind::kNumber && Now().is_joined && Now().raw.starts_with('-')) {
        if (!TakeKey(Now().raw.substr(1), row, range.last)) return false;
      } else if (Now().Is("-") && Now().is_joined) {
        Go();
        range.last = std::numeric_limits<Key>::max();
      } else if (TakeSign(":")) {
        if (!TakeKey(Now().raw, row, range.last)) return false;
        if (TakeSign(":") && !TakeKey(Now().raw, row, range.step)) return false;
      }
      if (range.last < range.first || range.step < 1) {
        return Fault(at, "the range is empty", "write it as FIRST:LAST or FIRST:LAST:STEP");
      }
      to.keys.push_back(range);
    } while (TakeSign(","));
    if (to.faces.empty() || to.keys.empty()) return true;
    return Fault(Now().at, "keys and faces are mixed", "join them: 1:5 or 17.3");
  }

  /// "17.3": element 17, face 3.
  bool TakeFace(Arguments& to) {
    const std::size_t dot = Now().raw.find('.');
    if (Now().kind != Token::Kind::kNumber || !Now().unit.empty() ||
        dot == std::string_view::npos) {
      return false;
    }
    const auto element = WholeOf(Now().raw.substr(0, dot));
    const auto face = WholeOf(Now().raw.substr(dot + 1));
    if (!element || !face) return false;
    to.faces.emplace_back(*element, *face);
    Go();
    return true;
  }

  bool ReadNames(const Condition& row, Arguments& to) {
    do {
      NameOrKey name{NameOrKey::Kind::kName, "", 0, Now().at};
      if (Now().kind == Token::Kind::kText) {
        name.name = Now().text;
      } else if (Now().kind == Token::Kind::kWord && !IsJoining(Lower(Now().raw))) {
        name.name = std::string(Now().raw);
        if (IsWord("any")) name.kind = NameOrKey::Kind::kAny;
        if (IsWord("none")) name.kind = NameOrKey::Kind::kNone;
      } else if (Now().kind == Token::Kind::kNumber && Now().unit.empty() && WholeOf(Now().raw)) {
        name.kind = NameOrKey::Kind::kKey;
        name.key = *WholeOf(Now().raw);
      } else {
        return Expected("a key or a name (in double quotes unless it is one word)", row);
      }
      Go();
      to.names.push_back(std::move(name));
    } while (TakeSign(","));
    return true;
  }

  bool ReadCount(const Condition& row, Arguments& to) {
    Key count = 0;
    if (!TakeKey(Now().raw, row, count, "a whole number from 0 up")) return false;
    to.count = count;
    return true;
  }

  bool IsNotNegative(std::string_view what, const Arguments& to) {
    const Quantity& read = to.numbers.back();
    return read.value >= 0 ||
           Fault(read.at, fmt::format("the {} is negative", what),
                 fmt::format("write {} {} from 0 up", what.front() == 'a' ? "an" : "a", what));
  }

  bool ReadSystem(const Condition& row, Arguments& to) {
    to.system_at = Now().at;
    return TakeKey(Now().raw, row, to.system);
  }

  bool ReadLimit(const Condition& row, Arguments& to) {
    for (const auto& [sign, comparison] : kComparisons) {
      const std::size_t at = Now().at;
      if (!TakeSign(sign)) continue;
      if (!CheckSignEnds(at, sign)) return false;
      to.comparison = comparison;
      return ReadQuantity("a number", row, to);
    }
    return Expected("one of < <= > >= = !=", row);
  }

  /// A comparison as other languages write it is told what it is here.
  bool CheckSignEnds(std::size_t at, std::string_view sign) {
    if (!Now().is_joined) return true;
    constexpr std::pair<std::string_view, std::string_view> kElsewhere[] = {
        {"==", "="}, {"=<", "<="}, {"=>", ">="}, {"<>", "!="}};
    const std::string written = std::string(sign) + std::string(Now().raw);
    for (const auto& [theirs, ours] : kElsewhere) {
      if (written != theirs) continue;
      return Fault(at, fmt::format("\"{}\" is no comparison", theirs),
                   fmt::format("did you mean {}?", ours));
    }
    return true;
  }

  bool ReadThree(std::string_view what, const Condition& row, Arguments& to) {
    for (int i = 0; i < 3; ++i) {
      if (i > 0 && !TakeSign(",")) return Expected(what, row);
      if (!ReadQuantity(what, row, to)) return false;
    }
    return true;
  }

  /// A number with the name of a unit of lengths or angles, and its power, against it or behind it.
  bool ReadQuantity(std::string_view what, const Condition& row, Arguments& to) {
    if (Now().kind != Token::Kind::kNumber) return Expected(what, row);
    Quantity quantity;
    quantity.value = Now().value;
    quantity.at = Now().at;
    std::string_view unit = Now().unit;
    Go();
    const std::string_view word = Now().kind == Token::Kind::kWord ? Now().raw : "";
    // Inches stand against their number: behind a blank "in" names the system.
    if (unit.empty() && IsUnit(word) && !EqualNoCase(word, "in")) {
      unit = word;
      Go();
    }
    if (!unit.empty() && !IsUnit(unit)) {
      return Fault(quantity.at, fmt::format("\"{}\" is no unit of a length or an angle", unit),
                   "write one of " + UnitNames());
    }
    quantity.unit = std::string(unit.substr(0, unit.find_first_of("23")));
    quantity.power = unit.ends_with('2') ? 2 : unit.ends_with('3') ? 3 : 1;
    to.numbers.push_back(std::move(quantity));
    return true;
  }

  static bool IsUnit(std::string_view unit) {
    const std::string_view name = unit.substr(0, unit.find_first_of("23"));
    if (name.empty() || name.size() + 1 < unit.size()) return false;
    const bool is_power = name.size() < unit.size();
    return FindUnit(UnitBase::kLength, name) >= 0 ||
           (!is_power && FindUnit(UnitBase::kAngle, name) >= 0);
  }
  static std::string UnitNames() {
    std::string names;
    for (const UnitBase base : {UnitBase::kLength, UnitBase::kAngle}) {
      for (const UnitDefinition& each : UnitsOf(base)) {
        names += (names.empty() ? "" : ", ") + std::string(each.name);
      }
    }
    return names;
  }

  // ---- kinds ------------------------------------------------------------------------------------

  static void Fix(Term& term, SelectKind kind) {
    term.kind = kind;
    if (term.op == Term::Op::kCondition && term.condition->of != 0) return;  // settled by the row
    for (Term& part : term.parts) Fix(part, kind);
  }

  const std::string_view text_;
  const std::vector<Token> tokens_;
  std::size_t next_ = 0;
  int depth_ = 0;
  std::optional<Failure> failed_;
};

}  // namespace

Result<Term> ReadTerm(std::string_view text, std::optional<SelectKind> wanted) {
  if (!IsUtf8(text)) {
    return Failure{"", "where", "the selection is no text of UTF-8", "write it in UTF-8"};
  }
  auto tokens = Tokens(text);
  if (!tokens) return tokens.Error();
  Parser parser(text, std::move(*tokens));
  std::optional<Term> term = parser.Read();
  const Kinds kinds = wanted ? BitOf(*wanted) : kAnyKind;
  const bool is_sound = term && parser.Settle(*term, kinds, wanted.value_or(SelectKind::kElements));
  if (!is_sound) return *parser.Failed();
  return std::move(*term);
}

}  // namespace qx::select
