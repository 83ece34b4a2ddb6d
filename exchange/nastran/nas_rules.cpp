#include "exchange/nastran/nas_rules.h"

#include <algorithm>
#include <charconv>
#include <unordered_map>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

// A rule's words are one for each field or list, after the fields of the quick reference guides,
// counted from 0 behind the card's name:
//   n2      field 2 numbers a node; e an element, s a system, p a property, m a material;
//   g4      field 4 names a SET1 of nodes; h one of elements;
//   E0      it is the number of what the card describes;
//   n2-4    fields 2 to 4;
//   n1/8    field 1, 9, 17, ... to the end;
//   n1:3    when the node goes, fields 1 to 3 go, and the card with the last such group;
//   n2+     a list to the end, in which ranges may stand; N0+ of numbers of its own;
//   n2+!    the same, where a range stands alone on a card.
// A word with an @ names a form that needs code of its own.
struct Rule {
  std::string_view names;  ///< of cards with the same fields
  std::string_view words;
  std::string_view set = {};  ///< beginning of the name of the boundary set that field 0 numbers
  // What elements of the model it makes: NasElementCard.
  std::int32_t linear = 0;
  std::int32_t quadratic = 0;
  std::string_view properties = {};
  std::int32_t single = 0;
};
constexpr Rule kRules[] = {
    {"GRID", "N0 s1 s5"},
    {"GRDSET", "s1 s5"},
    {"SPOINT EPOINT", "N0+!"},
    {"CORD1R CORD1C CORD1S", "S0 n1-3 S4 n5-7"},
    {"CORD2R CORD2C CORD2S", "S0 s1"},
    // Elements of the model.
    {"CONM2", "E0 n1 s2", {}, element::kPoint},
    {"CBAR", "E0 p1 n2-4", {}, element::kLine2, 0, "PBAR PBARL"},
    {"CROD", "E0 p1 n2-3", {}, element::kLine2, 0, "PROD"},
    {"CTUBE", "E0 p1 n2-3", {}, element::kLine2, 0, "PTUBE"},
    {"CONROD", "E0 n1-2 m3", {}, element::kLine2},
    {"CBEAM", "E0 p1 n2-4 n16-17", {}, element::kLine2, 0, "PBEAM PBEAML"},
    {"CBUSH", "E0 p1 n2-4 s7 s9", {}, element::kLine2, 0, "PBUSH", element::kPoint},
    {"PLOTEL", "E0 n1-2 E4 n5-6", {}, element::kLine2},
    {"CTRIA3 CTRIAR", "E0 p1 n2-4 s5", {}, element::kTri3},
    {"CTRIA6", "E0 p1 n2-7 s8", {}, element::kTri3, element::kTri6},
    {"CQUAD4 CQUADR", "E0 p1 n2-5 s6", {}, element::kQuad4},
    {"CSHEAR", "E0 p1 n2-5", {}, element::kQuad4, 0, "PSHEAR"},
    {"CQUAD8", "E0 p1 n2-9 s14", {}, element::kQuad4, element::kQuad8},
    {"CTETRA", "E0 p1 n2-11", {}, element::kTet4, element::kTet10},
    {"CPYRAM", "E0 p1 n2-14", {}, element::kPyramid5, element::kPyramid13},
    {"CPENTA", "E0 p1 n2-16", {}, element::kWedge6, element::kWedge15},
    {"CHEXA", "E0 p1 n2-21", {}, element::kHex8, element::kHex20},
    // Elements that stay text.
    {"CBUSH1D", "E0 p1 n2-3 s4"},
    {"CONM1", "E0 n1 s2"},
    {"PLOTEL3", "E0 n1-3"},
    {"PLOTEL4", "E0 n1-4"},
    {"CELAS1 CDAMP1 CMASS1", "E0 p1 n2 n4"},
    {"CELAS2 CDAMP2 CMASS2", "E0 n2 n4"},
    {"CELAS3 CDAMP3 CMASS3 CVISC", "E0 p1 n2-3"},
    {"CELAS4 CDAMP4 CMASS4", "E0 n2-3"},
    {"CGAP", "E0 p1 n2-4 s7"},
    {"CTRIAX6", "E0 m1 n2-7"},
    {"RBAR RROD", "E0 n1-2"},
    {"RTRPLT", "E0 n1-3"},
    {"RBE2", "E0 n1 n3+"},
    {"RBE1", "E0 n1/8 n3/8 n5/8"},
    {"RBE3", "E0 n2 @RBE3"},
    {"RSPLINE", "E0 n2 n3/2"},
    // Loads and constraints.
    {"MPC", "n1/8 n4/8", "MPC"},
    {"MPCADD", "", "MPC"},
    {"SPC", "n1:3 n4:3", "SPC"},
    {"SPC1", "n2+!", "SPC"},
    {"SPCADD", "", "SPC"},
    {"SUPORT1", "n1:2 n3:2 n5:2", "SUPORT1"},
    {"SPCD", "n1:3 n4:3", "LOAD"},
    {"FORCE MOMENT RFORCE", "n1 s2", "LOAD"},
    {"FORCE1 MOMENT1", "n1 n3-4", "LOAD"},
    {"FORCE2 MOMENT2", "n1 n3-6", "LOAD"},
    {"SLOAD", "n1:2 n3:2 n5:2", "LOAD"},
    {"GRAV ACCEL", "s1", "LOAD"},
    {"ACCEL1", "s1 n8+", "LOAD"},
    {"PLOAD", "n2-5", "LOAD"},
    {"PLOAD1", "e1", "LOAD"},
    {"PLOAD2", "e2+!", "LOAD"},
    {"PLOAD4", "@PLOAD4 s8", "LOAD"},
    {"DEFORM", "e1:2 e3:2 e5:2", "LOAD"},
    {"TEMP", "n1:2 n3:2 n5:2", "LOAD"},
    {"TEMPP1", "@TEMP", "LOAD"},
    {"TEMPRB", "@TEMP", "LOAD"},
    {"TEMPD LOAD", "", "LOAD"},
    {"DLOAD TLOAD1 TLOAD2 RLOAD1 RLOAD2", "", "DLOAD"},
    {"DAREA", "n1:3 n4:3", "DAREA"},
    {"LSEQ", "", "LSEQ"},
    {"TIC", "n1", "IC"},
    {"LOADCYN", ""},
    {"DELAY DPHASE", "n1:3 n4:3"},
    {"SUPORT ASET BSET CSET OMIT QSET", "n0:2 n2:2 n4:2 n6:2"},
    {"USET", "n1:2 n3:2 n5:2"},
    {"ASET1 BSET1 CSET1 OMIT1 QSET1", "n1+!"},
    {"USET1", "n2+!"},
    // Properties and materials.
    {"PSHELL", "P0 m1 m3 m5 m10"},
    {"PCOMP", "P0 m8/4"},
    {"PCOMPG", "P0 m9/8"},
    {"PSOLID", "P0 m1 s2"},
    {"PROD PTUBE PBAR PBARL PBEAM PBEAML PSHEAR", "P0 m1"},
    {"PBUSH PBUSH1D PGAP", "P0"},
    {"PFAST", "P0 s2"},
    {"PLPLANE", "P0 m1 s2"},
    {"PELAS PVISC", "P0 P4"},
    {"PDAMP PMASS", "P0 P2 P4 P6"},
    {"PBUSHT PELAST PDAMPT", "p0"},
    {"MAT1 MAT2 MAT3 MAT8 MAT9 MAT10 MAT11", "M0"},
    {"MATS1 MATT1 MATT2 MATT3 MATT8 MATT9 MAT4 MAT5 MATF", "m0"},
    {"NSM NSML", "@NSM"},
    {"NSM1 NSML1", "@NSM1"},
    {"NSMADD", ""},
    {"BAROR BEAMOR", "p1 n4"},
    // Sets, aeroelasticity, optimisation.
    {"SET1", "@SET1"},
    {"SET3", "@SET3"},
    {"AEROS", "s0-1"},
    {"AERO", "s0"},
    {"AESURF", "s2 s4"},
    {"CAERO1 CAERO2", "s2"},
    {"MONPNT1", "s10 s14"},
    {"MONPNT3", "g9 h10 s11"},
    {"SPLINE1 SPLINE4", "g4"},
    {"SPLINE5", "g4 s7"},
    {"SPLINE2", "g4 s7"},
    {"PANEL", "g1/2"},
    {"AECOMP", "@AECOMP"},
    {"AELIST AESTAT AEFACT PAERO1 PAERO2 TRIM FLFACT FLUTTER MKAERO1 MKAERO2", ""},
    {"DVPREL1", "p2"},
    {"DVMREL1", "m2"},
    {"DVCREL1", "e2"},
    {"DVGRID", "n1 s2"},
    {"DESVAR DCONSTR DCONADD DLINK DOPTPRM", ""},
    // Numbers of their own kinds only.
    {"PARAM", "@PARAM"},
    {"EIGR EIGB", "n9"},
    {"EIGC", "n3"},
    {"EIGRL TSTEP TSTEPNL FREQ FREQ1 FREQ2 FREQ3 FREQ4 NLPARM NLPCI MDLPRM", ""},
    {"TABLED1 TABLED2 TABLED3 TABLED4 TABLEM1 TABLEM2 TABLEM3 TABLEM4 TABLES1 TABLEST TABDMP1", ""},
    {"TABRND1 RANDPS ENDDATA INCLUDE", ""},
};

struct Word {
  NasKind kind;
  bool is_own;
  std::size_t first;
  std::size_t last;
  std::size_t step;
  std::size_t group;
  bool is_list;
  bool is_alone;
  bool is_set;
};
struct CardRule {
  std::vector<Word> words;
  std::string_view form;
  std::string_view set;
};

NasKind KindOf(char letter) {
  constexpr std::string_view kLetters = "nespm";
  return static_cast<NasKind>(kLetters.find(letter));
}

Word Parsed(std::string_view text) {
  Word word{};
  word.is_own = text[0] < 'a';
  word.is_set = text[0] == 'g' || text[0] == 'h';
  word.kind = text[0] == 'g'   ? NasKind::kNode
              : text[0] == 'h' ? NasKind::kElement
                               : KindOf(static_cast<char>(text[0] | 0x20));
  const auto number = [&text] {
    std::size_t value = 0;
    const char* end = std::from_chars(text.data(), text.data() + text.size(), value).ptr;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
  };
  text.remove_prefix(1);
  word.first = word.last = number();
  while (!text.empty()) {
    const char mark = text[0];
    text.remove_prefix(1);
    if (mark == '-') word.last = number();
    if (mark == '/') word.step = number();
    if (mark == ':') word.group = number();
    if (mark == '+') word.is_list = true;
    if (mark == '!') word.is_alone = true;
  }
  return word;
}

template <class Visit>
void ForEachWord(std::string_view text, Visit&& visit) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (end > 0) visit(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

using CardRules = std::unordered_map<std::string_view, CardRule>;
const CardRules& Table() {
  static const CardRules table = [] {
    CardRules made;
    for (const Rule& rule : kRules) {
      CardRule card;
      card.set = rule.set;
      ForEachWord(rule.words, [&](std::string_view word) {
        if (word[0] == '@') {
          card.form = word.substr(1);
        } else {
          card.words.push_back(Parsed(word));
        }
      });
      ForEachWord(rule.names, [&](std::string_view name) { made.emplace(name, card); });
    }
    return made;
  }();
  return table;
}

/// The keys of one card.
class KeyLister {
 public:
  KeyLister(const NasText& text, const NasCard& card) : text_(text), card_(card) {}

  NasKeys List() {
    const auto rule = Table().find(card_.name);
    if (rule == Table().end()) {
      keys_.is_known = false;
      return keys_;
    }
    for (const Word& word : rule->second.words) {
      if (word.is_list) {
        Add(word.kind, word.is_alone ? NasKeyList::Form::kAlone : NasKeyList::Form::kMixed,
            word.first, card_.fields.size());
        keys_.lists.back().is_own = word.is_own;
        continue;
      }
      const std::size_t last = word.step ? card_.fields.size() : word.last;
      for (std::size_t f = word.first; f <= last; f += std::max<std::size_t>(word.step, 1)) {
        if (word.is_set) {
          AddSet(word.kind, f);
        } else {
          Add(word.kind, f, word.is_own, word.group);
        }
      }
    }
    const std::string_view form = rule->second.form;
    if (form == "RBE3") Rbe3();
    if (form == "PLOAD4") Pload4();
    if (form == "TEMP") Temperatures();
    if (form == "SET1") {
      Add(NasKind::kNode, NasKeyList::Form::kMixed, 1, card_.fields.size());
      keys_.lists.back().is_of_users = true;
    }
    if (form == "SET3") Set3();
    if (form == "AECOMP" && AsciiUpper(Text(1)) == "SET1") {
      for (std::size_t f = 2; f < card_.fields.size(); ++f) AddSet(NasKind::kNode, f);
    }
    // The point that weights are taken about; 0 is the origin.
    if (form == "PARAM" && AsciiUpper(Text(0)) == "GRDPNT") Add(NasKind::kNode, 1);
    if (form == "NSM" || form == "NSM1") NonStructuralMass(form == "NSM1");
    return std::move(keys_);
  }

 private:
  std::string_view Text(std::size_t field) const { return text_.FieldText(card_, field); }
  bool IsKey(std::size_t field) const {
    const auto number = DeckInteger(Text(field));
    return number && *number > 0 && *number <= kMaxKey;
  }
  void Add(NasKind kind, std::size_t field, bool is_own = false, std::size_t group = 0) {
    if (IsKey(field)) keys_.fields.push_back({field, kind, is_own, group});
  }
  void Add(NasKind kind, NasKeyList::Form form, std::size_t first, std::size_t end) {
    keys_.lists.push_back({kind, form, first, end});
  }
  void AddSet(NasKind kind, std::size_t field) {
    if (IsKey(field)) keys_.sets.push_back({field, kind});
  }

  /// An element with what holds there, then more elements with the same.
  void Temperatures() {
    const std::size_t others = card_.name == "TEMPP1" ? 8 : 16;
    Add(NasKind::kElement, 1);
    if (card_.fields.size() <= others) return;
    Add(NasKind::kElement, NasKeyList::Form::kMixed, others, card_.fields.size());
  }

  /// Weight, component and nodes, again and again, then UM with pairs of nodes and components.
  void Rbe3() {
    std::size_t f = 4;
    const auto is_weight = [&](std::size_t at) {
      return DeckReal(Text(at)) && !DeckInteger(Text(at));
    };
    const auto is_word = [&](std::size_t at) { return !Text(at).empty() && !DeckReal(Text(at)); };
    while (f < card_.fields.size() && !(is_word(f) && Text(f).size() > 1)) {
      if (!is_weight(f)) {
        ++f;
        continue;
      }
      f += 1;
      while (f < card_.fields.size() && Text(f).empty()) ++f;
      const std::size_t first = ++f;
      while (f < card_.fields.size() && !is_weight(f) &&
             (!is_word(f) || AsciiUpper(Text(f)) == "THRU"))
        ++f;
      Add(NasKind::kNode, NasKeyList::Form::kHoles, first, f);
    }
    if (AsciiUpper(Text(f)) != "UM") return;
    bool is_node = true;
    for (++f; f < card_.fields.size() && !is_word(f); ++f) {
      if (Text(f).empty()) continue;
      if (is_node) Add(NasKind::kNode, f);
      is_node = !is_node;
    }
  }

  void Pload4() {
    if (AsciiUpper(Text(6)) == "THRU") {
      keys_.lists.push_back({NasKind::kElement, NasKeyList::Form::kFirstLast, 1, 8, 6});
      return;
    }
    Add(NasKind::kElement, 1);
    Add(NasKind::kNode, 6);
    Add(NasKind::kNode, 7);
  }

  void Set3() {
    const std::string of = AsciiUpper(Text(1));
    if (of == "GRID" || of == "POINT") {
      Add(NasKind::kNode, NasKeyList::Form::kMixed, 2, card_.fields.size());
    } else if (of == "ELEM" || of == "PROP") {
      Add(of == "ELEM" ? NasKind::kElement : NasKind::kProperty, NasKeyList::Form::kMixed, 2,
          card_.fields.size());
    } else {
      keys_.is_known = false;
    }
  }

  void NonStructuralMass(bool is_list) {
    const std::string of = AsciiUpper(Text(1));
    const bool is_element = of == "ELEMENT" || of == "CONROD";
    const NasKind kind = is_element ? NasKind::kElement : NasKind::kProperty;
    if (is_list) {
      Add(kind, NasKeyList::Form::kMixed, 3, card_.fields.size());
      return;
    }
    for (std::size_t f = 2; f < card_.fields.size(); f += 2) Add(kind, f, false, 2);
  }

  const NasText& text_;
  const NasCard& card_;
  NasKeys keys_;
};

}  // namespace

bool NasKnowsKeysOf(const NasCard& card) { return Table().contains(card.name); }

NasKeys NasKeysOf(const NasText& text, const NasCard& card) { return KeyLister(text, card).List(); }

NasItems NasItemsOf(const NasText& text, const NasCard& card, const NasKeyList& list) {
  NasItems found;
  std::size_t f = list.first;
  const auto number_at = [&](std::size_t field) {
    const auto number = DeckInteger(text.FieldText(card, field));
    return number && *number > 0 && *number <= kMaxKey ? static_cast<Key>(*number) : 0;
  };
  const auto next = [&] {
    for (++f; f < list.end && text.FieldText(card, f).empty();) ++f;
    return f < list.end ? number_at(f) : 0;
  };
  for (; f < list.end; ++f) {
    const std::string word = AsciiUpper(text.FieldText(card, f));
    if (word.empty()) continue;
    if (word == "THRU" && !found.items.empty() && !found.items.back().is_range) {
      found.items.back().to = next();
      found.items.back().is_range = found.has_ranges = true;
      found.is_odd = found.is_odd || found.items.back().to < found.items.back().from;
    } else if (word == "BY" && !found.items.empty() && found.items.back().is_range) {
      found.items.back().step = next();
      found.is_odd = found.is_odd || found.items.back().step < 1;
    } else if (const auto number = DeckInteger(word); number && *number > 0 && *number <= kMaxKey) {
      found.items.push_back({static_cast<Key>(*number), static_cast<Key>(*number), 1, false});
      found.is_odd = found.is_odd || !found.rest.empty();
    } else if (DeckReal(word) && !number) {
      found.rest.emplace_back(text.FieldText(card, f));
    } else {
      found.is_odd = true;
    }
  }
  return found;
}

std::span<const NasElementCard> NasElementCards() {
  static const std::vector<NasElementCard> cards = [] {
    std::vector<NasElementCard> made;
    for (const Rule& rule : kRules) {
      if (rule.linear == 0) continue;
      ForEachWord(rule.names, [&](std::string_view name) {
        NasElementCard card{name,           0,           false,          rule.linear,
                            rule.quadratic, rule.single, rule.properties};
        for (const Word& word : Table().at(name).words) {
          if (word.kind == NasKind::kProperty) card.has_property = true;
          if (word.kind == NasKind::kNode && card.first_node == 0) card.first_node = word.first;
        }
        made.push_back(card);
      });
    }
    return made;
  }();
  return cards;
}

const NasElementCard* FindNasElementCard(std::string_view name) {
  static const auto by_name = [] {
    std::unordered_map<std::string_view, const NasElementCard*> made;
    for (const NasElementCard& card : NasElementCards()) made.emplace(card.name, &card);
    return made;
  }();
  const auto found = by_name.find(name);
  return found == by_name.end() ? nullptr : found->second;
}

std::string_view NasBoundarySet(std::string_view card) {
  const auto rule = Table().find(card);
  return rule == Table().end() ? std::string_view() : rule->second.set;
}

bool NasTellsADeck(std::string_view card) {
  const auto rule = Table().find(card);
  if (rule == Table().end()) return false;
  const std::vector<Word>& words = rule->second.words;
  return !rule->second.set.empty() ||
         std::any_of(words.begin(), words.end(), [](const Word& word) { return word.is_own; });
}

}  // namespace qx::exchange
