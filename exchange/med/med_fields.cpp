#include "exchange/med/med_fields.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <set>

#include "qx_db/platform/text.h"

#include "exchange/field_values.h"
#include "exchange/room.h"

namespace qx::exchange {
namespace {

// Types of the values, of the enumeration of the library. Those of the last are of the machine.
constexpr std::int32_t kReal = 6, kInt32 = 24, kInt64 = 26, kInt = 28;
constexpr std::size_t kNameWidth = 64;
constexpr std::size_t kShortWidth = 16;  // of names of components and units
constexpr std::int64_t kMostComponents = 10000;

class MedFieldReader {
 public:
  MedFieldReader(H5Reader& in, const std::string& mesh, const std::map<std::string, MedRun>& types,
                 Deck& deck)
      : in_(in), mesh_(mesh), types_(types), deck_(deck) {}

  void Read() {
    for (const std::string& name : in_.Children("/CHA")) {
      ReadField(name);
      // Of a broken field nothing more is read; the mesh that it is of may be whole.
      if (in_.Ok()) continue;
      const Failure failure = in_.TakeError();
      deck_.report.Lost("fields that are broken were left out, from there on", 1,
                        TrimmedMed(failure.place.substr(1)), failure.what);
    }
  }

 private:
  void ReadField(const std::string& name) {
    path_ = "/CHA/" + name;
    name_ = TrimmedMed(name);
    if (const auto of = in_.TextAttribute(path_, "MAI"); of && TrimmedMed(*of) != mesh_) {
      deck_.report.Lost("fields of other meshes were left out", 1, name_, "a model has one mesh");
      return;
    }
    components_ = in_.IntegerAttribute(path_, "NCO").value_or(0);
    if (components_ < 1 || components_ > kMostComponents) {
      return in_.Fail(path_, fmt::format("it has {} components", components_));
    }
    const auto type = in_.IntegerAttribute(path_, "TYP").value_or(kReal);
    is_whole_ = type == kInt32 || type == kInt64 || type == kInt;
    for (const char* texts : {"NOM", "UNI"}) {
      const std::string words = TrimmedMed(in_.TextAttribute(path_, texts).value_or(""));
      deck_.report.Lost("names and units of the components of fields were left out",
                        words.find_first_not_of(' ') != words.npos && texts[0] == 'N', name_,
                        "the model counts components");
    }
    for (const std::string& step : in_.Children(path_)) {
      if (in_.Ok() && in_.IsGroup(path_ + "/" + step)) ReadStep(path_ + "/" + step);
    }
  }

  void ReadStep(const std::string& path) {
    step_ = std::clamp<std::int64_t>(in_.IntegerAttribute(path, "NDT").value_or(0), 0, kMaxKey);
    time_ = in_.RealAttribute(path, "PDT").value_or(0);
    if (!std::isfinite(time_) || time_ == -1) time_ = 0;
    deck_.report.Lost("numbers of iterations of fields were left out",
                      in_.IntegerAttribute(path, "NOR").value_or(-1) > 0, name_,
                      "a field has a step and a time");
    of_nodes_ = of_elements_ = kNowhere;
    for (const std::string& what : in_.Children(path)) {
      if (what == "NOE") {
        ReadSupport(path + "/" + what, {0, deck_.node_keys.size()}, true);
      } else if (const auto type = types_.find(what.starts_with("MAI.") ? what.substr(4) : "");
                 type != types_.end()) {
        ReadSupport(path + "/" + what, type->second, false);
      } else {
        deck_.report.Lost(fmt::format("values of fields at {} were left out", TrimmedMed(what)), 1,
                          name_, "the model has those of nodes and of elements that it has");
      }
    }
  }

  void ReadSupport(const std::string& path, const MedRun& run, bool is_of_nodes) {
    for (const std::string& profile : in_.Children(path)) {
      const std::string values = path + "/" + profile;
      if (!in_.Ok() || !in_.IsGroup(values)) continue;
      if (in_.IntegerAttribute(values, "NGA").value_or(1) > 1) {
        deck_.report.Lost("values of fields at points within elements were left out", 1, name_,
                          "an element of the model has one");
        continue;
      }
      ReadValues(values, profile, run, is_of_nodes);
    }
  }

  void ReadValues(const std::string& path, const std::string& profile, const MedRun& run,
                  bool is_of_nodes) {
    std::vector<std::int64_t> numbers;
    const bool is_all = profile == kMedAll;
    if (!is_all) numbers = in_.Integers("/PROFILS/" + profile + "/PFL");
    const std::size_t count = is_all ? run.count : numbers.size();
    const auto components = static_cast<std::size_t>(components_);
    const std::vector<double> values =
        in_.Reals(path + "/CO", static_cast<std::uint64_t>(count) * components);
    if (!in_.Ok() || count == 0) return;
    for (const std::int64_t number : numbers) {
      if (number >= 1 && number <= static_cast<std::int64_t>(run.count)) continue;
      return in_.Fail("/PROFILS/" + profile, fmt::format("it names {} of {}", number, run.count));
    }
    tagTField& field = Field(is_of_nodes);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = run.first + (is_all ? i : static_cast<std::size_t>(numbers[i]) - 1);
      AddValues(field, is_of_nodes ? deck_.node_keys[at] : deck_.elements[at].key, &values[i],
                count);
    }
  }

  /// The field of the step, made where its first values are met.
  tagTField& Field(bool is_of_nodes) {
    std::size_t& place = is_of_nodes ? of_nodes_ : of_elements_;
    std::vector<tagTField>& fields = deck_.Of<tagTField>();
    if (place == kNowhere) {
      place = fields.size();
      AddField(deck_, name_, is_of_nodes ? tagTField::kNodes : tagTField::kElements,
               static_cast<std::int32_t>(components_), static_cast<std::int32_t>(step_), time_)
          .integers = is_whole_;
    }
    return fields[place];
  }

  H5Reader& in_;
  const std::string& mesh_;
  const std::map<std::string, MedRun>& types_;
  Deck& deck_;
  // Of the field that is read:
  std::string path_, name_;
  std::int64_t components_ = 0;
  bool is_whole_ = false;
  std::int64_t step_ = 0;
  double time_ = 0;
  std::size_t of_nodes_ = kNowhere, of_elements_ = kNowhere;  // its place in the deck
};

class MedFieldWriter {
 public:
  MedFieldWriter(H5Writer& out, const std::string& mesh,
                 const std::vector<std::pair<std::string_view, MedRun>>& types, std::size_t nodes,
                 LossReport& report)
      : out_(out), mesh_(mesh), types_(types), nodes_(nodes), report_(report) {}

  void Write(const tagTField& field, const FieldTable& table) {
    const bool is_of_nodes = field.place == tagTField::kNodes;
    const bool is_whole =
        field.integers != 0 && std::all_of(table.values.begin(), table.values.end(), [](double v) {
          return v == std::nearbyint(v) && std::abs(v) <= std::numeric_limits<std::int32_t>::max();
        });
    const std::string step = StepOf(field, is_whole);
    if (is_of_nodes) return WritePart(step + "/NOE", field, table, {0, nodes_}, is_whole);
    for (const auto& [name, run] : types_) {
      WritePart(fmt::format("{}/MAI.{}", step, name), field, table, run, is_whole);
    }
  }

 private:
  struct Written {
    std::int32_t components;
    bool is_whole;
    std::map<std::int32_t, double> time_of_step;
    std::set<std::pair<std::int32_t, std::int32_t>> places;  // of each step
  };

  /// The group of a field's step. A name has one number of components, and values once a step.
  std::string StepOf(const tagTField& field, bool is_whole) {
    const std::string own = Utf8(field.name.View());
    std::string name = FittingMed(own, kNameWidth);
    std::replace(name.begin(), name.end(), '/', '_');
    if (name == ".") name = "_";
    const std::string base = name;
    std::map<std::string, Written>::iterator found;
    for (int n = 2;; ++n) {
      found = written_.find(name);
      if (found == written_.end()) break;
      const Written& there = found->second;
      const auto time = there.time_of_step.find(field.step);
      if (there.components == field.components && there.is_whole == is_whole &&
          !there.places.contains({field.step, field.place}) &&
          (time == there.time_of_step.end() || time->second == field.time)) {
        break;
      }
      name = fmt::format("{} ({})", FittingMed(base, kNameWidth - 14), n);
    }
    report_.Changed("names of fields became others", name != own, own,
                    "a name has 64 bytes and names one");
    if (written_.empty()) out_.Group("/CHA");
    const std::string path = "/CHA/" + name;
    if (found == written_.end()) {
      found = written_.emplace(name, Written{field.components, is_whole, {}, {}}).first;
      const auto texts = kShortWidth * static_cast<std::size_t>(field.components) + 1;
      out_.Group(path);
      out_.Integer(path, "NCO", field.components);
      out_.Integer(path, "TYP", is_whole ? kInt32 : kReal);
      out_.Text(path, "NOM", std::string(texts - 1, ' '), texts);
      out_.Text(path, "UNI", std::string(texts - 1, ' '), texts);
      out_.Text(path, "UNT", std::string(kShortWidth, ' '), kShortWidth + 1);
      out_.Text(path, "MAI", mesh_, kNameWidth + 1);
    }
    // What has no step has number -1.
    const bool has_step = field.step != 0 || field.time != 0;
    const std::int32_t number = has_step ? field.step : -1;
    const std::string step = fmt::format("{}/{:020}{:020}", path, number, -1);
    found->second.places.insert({field.step, field.place});
    if (found->second.time_of_step.emplace(field.step, field.time).second) {
      out_.Group(step);
      out_.Integer(step, "NDT", number);
      out_.Integer(step, "NOR", -1);
      out_.Real(step, "PDT", field.time);
      out_.Integer(step, "RDT", -1);
      out_.Integer(step, "ROR", -1);
    }
    return step;
  }

  /// The values of a run of what the table is of.
  void WritePart(const std::string& path, const tagTField& field, const FieldTable& table,
                 const MedRun& run, bool is_whole) {
    const auto begin = std::lower_bound(table.targets.begin(), table.targets.end(), run.first);
    const auto end = std::lower_bound(begin, table.targets.end(), run.first + run.count);
    if (begin == end) return;
    const auto first = static_cast<std::size_t>(begin - table.targets.begin());
    const auto count = static_cast<std::size_t>(end - begin);
    const std::string profile = count == run.count ? kMedAll : ProfileOf(begin, end, run.first);
    out_.Group(path);
    out_.Text(path, "GAU", "", kNameWidth + 1);
    out_.Text(path, "PFL", profile, kNameWidth + 1);
    const std::string values = path + "/" + profile;
    out_.Group(values);
    out_.Integer(values, "NBR", static_cast<std::int32_t>(count));
    out_.Integer(values, "NGA", 1);
    out_.Text(values, "GAU", "", kNameWidth + 1);
    std::vector<double> reals;
    for (std::int32_t c = 0; c < field.components; ++c) {
      const double* const column = table.Column(c) + first;
      reals.insert(reals.end(), column, column + count);
    }
    if (is_whole) {
      const std::vector<std::int32_t> whole(reals.begin(), reals.end());
      out_.Put(values + "/CO", std::span<const std::int32_t>(whole));
    } else {
      out_.Put(values + "/CO", std::span<const double>(reals));
    }
  }

  template <class Iterator>
  std::string ProfileOf(Iterator begin, Iterator end, std::size_t first) {
    std::vector<std::int32_t> numbers;
    for (; begin != end; ++begin) numbers.push_back(static_cast<std::int32_t>(*begin - first) + 1);
    const auto [found, is_new] =
        profiles_.try_emplace(numbers, fmt::format("profile_{}", profiles_.size() + 1));
    if (is_new) {
      if (profiles_.size() == 1) out_.Group("/PROFILS");
      const std::string path = "/PROFILS/" + found->second;
      out_.Group(path);
      out_.Integer(path, "NBR", static_cast<std::int32_t>(numbers.size()));
      out_.Put(path + "/PFL", std::span<const std::int32_t>(numbers));
    }
    return found->second;
  }

  H5Writer& out_;
  const std::string& mesh_;
  const std::vector<std::pair<std::string_view, MedRun>>& types_;
  std::size_t nodes_;
  LossReport& report_;
  std::map<std::string, Written> written_;
  std::map<std::vector<std::int32_t>, std::string> profiles_;
};

}  // namespace

std::string TrimmedMed(std::string text) {
  text.resize(std::min(text.find('\0'), text.size()));
  text.resize(text.find_last_not_of(' ') + 1);
  return IsUtf8(text) ? text : "?";
}

std::string FittingMed(const std::string& name, std::size_t most) {
  std::string own = name.substr(0, name.find('\0'));
  if (own.size() > most) {
    while (most > 0 && (static_cast<unsigned char>(own[most]) & 0xc0) == 0x80) --most;
    own.resize(most);
  }
  own.resize(own.find_last_not_of(' ') + 1);
  return own.empty() ? "set" : own;
}

void ReadMedFields(H5Reader& in, const std::string& mesh,
                   const std::map<std::string, MedRun>& types, Deck& deck) {
  MedFieldReader(in, mesh, types, deck).Read();
}

void WriteMedFields(H5Writer& out, const std::string& mesh, const Deck& deck,
                    const std::unordered_map<Key, std::int32_t>& node_number,
                    const std::unordered_map<Key, std::uint32_t>& place_of,
                    const std::vector<std::pair<std::string_view, MedRun>>& types,
                    LossReport& report) {
  MedFieldWriter writer(out, mesh, types, deck.node_keys.size(), report);
  for (const tagTField& field : deck.Of<tagTField>()) {
    if (!IsTable(field, report)) continue;
    const FieldTable table = TableOf(field, [&](Key key) {
      if (field.place == tagTField::kNodes) {
        const auto found = node_number.find(key);
        return found == node_number.end() ? kNowhere : static_cast<std::size_t>(found->second) - 1;
      }
      const auto found = place_of.find(key);
      return found == place_of.end() ? kNowhere : std::size_t{found->second};
    });
    if (!table.targets.empty()) writer.Write(field, table);
    TellOfTable(field, table, report);
  }
}

}  // namespace qx::exchange
