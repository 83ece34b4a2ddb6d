#include "exchange/nastran/nas_carried.h"

#include <algorithm>
#include <array>

#include "qx_db/platform/text.h"

#include "exchange/nastran/nas_reader.h"

namespace qx::exchange {
namespace {

/// Cards that are carried: where their node and element numbers stand. Lists go to the end.
struct KeyRule {
  std::string_view name;
  std::array<std::int8_t, 5> nodes{-1, -1, -1, -1, -1};
  std::int8_t node_list = -1;
  std::array<std::int8_t, 2> elements{-1, -1};
  std::int8_t element_list = -1;
};
constexpr KeyRule kKeyRules[] = {
    {"SPC", {1, 4, -1, -1, -1}},
    {"SPC1", {-1, -1, -1, -1, -1}, 2},
    {"FORCE", {1, -1, -1, -1, -1}},
    {"MOMENT", {1, -1, -1, -1, -1}},
    {"FORCE1", {1, 3, 4, -1, -1}},
    {"MOMENT1", {1, 3, 4, -1, -1}},
    {"PLOAD", {2, 3, 4, 5, -1}},
    {"PLOAD1", {-1, -1, -1, -1, -1}, -1, {1, -1}},
    {"PLOAD2", {-1, -1, -1, -1, -1}, -1, {-1, -1}, 2},
    {"PLOAD4", {6, 7, -1, -1, -1}, -1, {1, -1}},
    {"TEMP", {1, 3, 5, -1, -1}},
    {"RBE2", {1, -1, -1, -1, -1}, 3},
    {"RBAR", {1, 2, -1, -1, -1}},
    {"CELAS1", {2, 4, -1, -1, -1}},
    {"CELAS2", {2, 4, -1, -1, -1}},
    {"CDAMP1", {2, 4, -1, -1, -1}},
    {"CDAMP2", {2, 4, -1, -1, -1}},
    {"CMASS1", {2, 4, -1, -1, -1}},
    {"CMASS2", {2, 4, -1, -1, -1}},
    {"CONM1", {1, -1, -1, -1, -1}},
    {"CVISC", {2, 3, -1, -1, -1}},
    {"SUPORT", {0, 2, 4, 6, -1}},
    {"ASET1", {-1, -1, -1, -1, -1}, 1},
};

/// Cards that are read, or that name no node and no element.
constexpr std::string_view kWithoutKeys[] = {
    "GRID",    "GRDSET",  "CORD2R", "CORD2C",  "CORD2S",  "CROD",    "CTUBE",  "CONROD",
    "CBAR",    "CBEAM",   "CBUSH",  "CTRIA3",  "CTRIAR",  "CTRIA6",  "CQUAD4", "CQUADR",
    "CSHEAR",  "CQUAD8",  "CTETRA", "CPYRAM",  "CPENTA",  "CHEXA",   "CONM2",  "BAROR",
    "BEAMOR",  "GRAV",    "LOAD",   "SPCADD",  "MPCADD",  "TEMPD",   "PARAM",  "EIGR",
    "EIGRL",   "EIGC",    "EIGB",   "TSTEP",   "FREQ",    "FREQ1",   "FREQ2",  "NLPARM",
    "TABLED1", "TABLED2", "DLOAD",  "ENDDATA", "MAT1",    "MAT2",    "MAT4",   "MAT8",
    "MAT9",    "MAT10",   "MATS1",  "MATT1",   "DCONSTR", "INCLUDE", "PLOTEL"};

bool IsKnown(std::string_view name) {
  // Properties have numbers of their own only.
  return (name.starts_with('P') && !name.starts_with("PLOAD")) ||
         std::find(std::begin(kWithoutKeys), std::end(kWithoutKeys), name) !=
             std::end(kWithoutKeys);
}

}  // namespace

tagTCarried CarryNasText(const NasText& text, const std::function<bool(bool, Key)>& is_there,
                         NasUnchecked& unchecked) {
  tagTCarried carried;
  carried.key = 1;
  carried.format.Set(u"nastran");
  carried.keyword.Set(kNasDeck);
  carried.checked = tagTCarried::kChecked;
  carried.text.Assign(text.Text().data(), text.Text().size());
  struct Place {
    NasField field;
    bool is_node;
    Key key;
  };
  std::vector<Place> places;
  for (const NasCard& card : text.Cards()) {
    const auto rule = std::find_if(std::begin(kKeyRules), std::end(kKeyRules),
                                   [&](const KeyRule& r) { return r.name == card.name; });
    if (rule == std::end(kKeyRules)) {
      if (!IsKnown(card.name)) ++unchecked.cards[card.name];
      continue;
    }
    const auto add = [&](std::size_t field, bool is_node) {
      const auto number = DeckInteger(text.FieldText(card, field));
      if (!number || *number < 1 || *number > kMaxKey) return;
      const auto key = static_cast<Key>(*number);
      if (is_there(is_node, key)) {
        places.push_back({card.fields[field], is_node, key});
      }
    };
    for (const std::int8_t field : rule->nodes) {
      if (field >= 0) add(static_cast<std::size_t>(field), true);
    }
    for (const std::int8_t field : rule->elements) {
      if (field >= 0) add(static_cast<std::size_t>(field), false);
    }
    const std::int8_t list = std::max(rule->node_list, rule->element_list);
    for (std::size_t f = static_cast<std::size_t>(list); list >= 0 && f < card.fields.size(); ++f) {
      if (AsciiUpper(text.FieldText(card, f)) != "THRU") continue;
      ++unchecked.ranges[card.name];
      break;
    }
    for (std::size_t f = static_cast<std::size_t>(rule->node_list);
         rule->node_list >= 0 && f < card.fields.size(); ++f) {
      add(f, true);
    }
    for (std::size_t f = static_cast<std::size_t>(rule->element_list);
         rule->element_list >= 0 && f < card.fields.size(); ++f) {
      add(f, false);
    }
  }
  std::sort(places.begin(), places.end(),
            [](const Place& a, const Place& b) { return a.field.at < b.field.at; });
  for (const Place& place : places) {
    const std::int32_t index = carried.places.GetSize();
    if (place.is_node) {
      carried.node_keys.Add({index, static_cast<ITR>(place.key)});
    } else {
      carried.element_keys.Add({index, static_cast<ITR>(place.key)});
    }
    carried.places.Add(
        {static_cast<std::int32_t>(place.field.at), static_cast<std::int32_t>(place.field.length)});
  }
  return carried;
}

}  // namespace qx::exchange
