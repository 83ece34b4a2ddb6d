#include "exchange/unv/unv_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <iterator>
#include <ostream>
#include <unordered_map>

#include "qx_db/platform/file.h"
#include "qx_db/record/element_types.h"

#include "exchange/carried_text.h"
#include "exchange/deck.h"
#include "exchange/system_frames.h"
#include "exchange/text_lines.h"
#include "exchange/unv/unv_kinds.h"
#include "exchange/unv/unv_reader.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

constexpr Key kGlobal = 1;  ///< system of that number

/// Digits of axes, which are worked out anew each time: fewer than would show how.
double Rounded(double x) { return std::round(x * 1e12) / 1e12 + 0.0; }

/// A name as a line has it.
std::string NameLine(const std::string& name) { return std::string(Words(CleanText(name)).Rest()); }

/// Whether a text has numbers that may have units: those with a point.
bool HasReal(std::string_view text) {
  const auto is_digit = [&](std::size_t at) {
    return at < text.size() && text[at] >= '0' && text[at] <= '9';
  };
  for (std::size_t at = text.find('.'); at != text.npos; at = text.find('.', at + 1)) {
    if (is_digit(at + 1) || (at > 0 && is_digit(at - 1))) return true;
  }
  return false;
}

class UnvFile {
 public:
  UnvFile(const CQXDBSession& session, LossReport& report, const Progress& progress)
      : session_(session),
        report_(report),
        progress_(progress),
        deck_(DeckOf(session, ShareOf(progress, 0, 0.3))) {
    report_.Append(deck_.report);
    const UnitSystem& current = session.Units().Current();
    are_units_kept_ = session.Units().Model() == current;
    for (const tagTOrigin& origin : deck_.Of<tagTOrigin>()) {
      are_units_kept_ =
          std::equal(current.index.begin(), current.index.end(), std::begin(origin.units));
    }
    FindForms();
    ListElements();
    FillReport();
  }

  const Deck& Source() const { return deck_; }

  void Write(std::ostream& out) {
    out_ = &out;
    WriteHeader();
    WriteSystems();
    Tell(0.4);
    WriteNodes();
    Tell(0.6);
    WriteElements();
    Tell(0.8);
    WriteGroups();
    WriteFields();
    WriteCarried();
    Flush();
    Tell(0.95);
  }

 private:
  /// Descriptor, tables, colour, ends: as the block of an element says.
  using Form = std::array<int, 6>;

  void Tell(double done) const {
    if (progress_) progress_(done);
  }
  template <class... Args>
  void Add(fmt::format_string<Args...> form, Args&&... args) {
    fmt::format_to(std::back_inserter(text_), form, std::forward<Args>(args)...);
  }
  void Flush() {
    *out_ << text_;
    text_.clear();
  }
  void Step() {
    if (++steps_ % 4096 == 0) Flush();
  }
  void Begin(std::string_view dataset) { Add("    -1\n{:>6}\n", dataset); }
  void End() { text_ += "    -1\n"; }

  /// As 1PD25.16.
  void Real25(double x) {
    const std::size_t at = text_.size();
    Add("{:25.16E}", x);
    for (std::size_t i = at; i < text_.size(); ++i) {
      if (text_[i] == 'E') text_[i] = 'D';
    }
  }

  // ---- before -------------------------------------------------------------------------------

  void FindForms() {
    for (const tagTBlock& block : deck_.Of<tagTBlock>()) {
      if (block.format.View() != u"unv") continue;
      Form form{};
      const std::string name = Utf8(block.name.View());
      if (std::sscanf(name.c_str(), "kind %d physical %d material %d color %d ends %d %d", &form[0],
                      &form[1], &form[2], &form[3], &form[4], &form[5]) != 6) {
        continue;
      }
      for (const ITR element : block.elements) forms_[static_cast<Key>(element)] = form;
    }
  }

  Form FormOf(const Mesh::Element& element) const {
    const std::int32_t usual = UnvDescriptorOf(element.type);
    const auto found = forms_.find(element.key);
    if (found == forms_.end()) {
      return {usual, element.property != 0 ? element.property : 1, 1, 7, 0, 0};
    }
    Form form = found->second;
    const auto kind = FindUnvKind(form[0], FindElementType(element.type)->nodes);
    if (!kind || kind->code != element.type) form[0] = usual;
    return form;
  }

  void ListElements() {
    UnwrittenElements others;
    for (const Mesh::Element& element : deck_.elements) {
      const bool is_known = FindElementType(element.type) && UnvDescriptorOf(element.type) != 0;
      if (!is_known) others.Add(element.type, element.key);
      if (is_known) written_.emplace(element.key, &element);
    }
    others.Report(report_);
  }

  void FillReport() {
    std::uint64_t with_property = 0;
    Key first_with_property = 0;
    for (const Mesh::Element& element : deck_.elements) {
      if (element.property != 0 && with_property++ == 0) first_with_property = element.key;
    }
    report_.Lost("elements whose property is a number only", with_property,
                 fmt::format("element {}", first_with_property),
                 "tables of properties are not written");
    for (const Mesh::Group& group : deck_.groups) {
      if (group.parent != Mesh::Group::kNone) {
        report_.Lost("places of sets in others", 1, group.name, "groups have no hierarchy");
      }
      if (NameLine(group.name) != group.name || group.name.empty()) {
        report_.Changed("names of sets", 1, group.name.empty() ? "an empty one" : group.name,
                        "a name is the text of a line");
      }
    }
    constexpr std::uint16_t kWritten[] = {code::kNode,  code::kElem,  code::kMset,   code::kCord,
                                          code::kField, code::kBlock, code::kCarried};
    ReportUnwritten(session_, "unv", kWritten, report_);
  }

  // ---- datasets -----------------------------------------------------------------------------

  void WriteHeader() {
    std::string title;
    for (const tagTOrigin& origin : deck_.Of<tagTOrigin>()) {
      if (title.empty()) title = NameLine(Utf8(origin.title.View()));
    }
    const UnitSystem& units = session_.Units().Current();
    std::string names;
    for (int i = 0; i < kUnitBaseCount; ++i) {
      const auto base = static_cast<UnitBase>(i);
      names += fmt::format(" {}", UnitsOf(base)[static_cast<std::size_t>(units[base])].name);
    }
    Begin("151");
    Add("NONE\n{}\nQX_db\n", title.empty() ? "NONE" : title);
    Add("{:20}{:10}{:10}{:10}\n{:20}\n{}{}\n{:20}\n", "", 0, 0, 0, "", kUnvOwn, names, "");
    End();
    const auto unit_of = [&](UnitBase base) {
      return UnitsOf(base)[static_cast<std::size_t>(units[base])];
    };
    const UnitDefinition length = unit_of(UnitBase::kLength);
    const UnitDefinition force = unit_of(UnitBase::kForce);
    const UnitDefinition heat = unit_of(UnitBase::kTemperature);
    const bool is_newton = force.numerator == force.denominator;
    const int code = !is_newton                                      ? 9
                     : length.numerator == length.denominator        ? 1
                     : length.numerator * 1000 == length.denominator ? 10
                                                                     : 9;
    Begin("164");
    Add("{:10}{:<20}{:10}\n", code, fmt::format("{}, {}", length.name, force.name).substr(0, 20),
        2);
    Real25(length.denominator / length.numerator);
    Real25(force.denominator / force.numerator);
    Real25(heat.denominator / heat.numerator);
    Add("\n");
    Real25(heat.offset);
    Add("\n");
    End();
  }

  void WriteSystems() {
    const SystemFrames frames = SystemsOf(session_);
    bool has_any = false;
    for (const tagTCord& system : deck_.Of<tagTCord>()) {
      if (system.key == kGlobal) continue;
      const auto frame = frames.find(system.key);
      if (frame == frames.end()) {
        report_.Lost("coordinate systems whose points give no axes", 1,
                     fmt::format("system {}", system.key), "they are none");
        continue;
      }
      if (!has_any) {
        Begin("2420");
        Add("{:10}\nNONE\n", 1);
        WriteSystem(kGlobal, 0, "Global", SystemFrame{0, {}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
      }
      has_any = true;
      const std::string name = Utf8(system.name.View());
      if (NameLine(name) != name) {
        report_.Changed("names of coordinate systems", 1, name, "a name is the text of a line");
      }
      WriteSystem(system.key, frame->second.type, NameLine(name), frame->second);
    }
    if (has_any) End();
  }

  void WriteSystem(Key key, std::int32_t type, const std::string& name, const SystemFrame& frame) {
    Add("{:10}{:10}{:10}\n{}\n", key, type, 8, name);
    for (const Vector3& axis : {frame.x, frame.y, frame.z}) {
      for (const double x : {axis.x, axis.y, axis.z}) Real25(Rounded(x));
      Add("\n");
    }
    for (const double x : {frame.origin.x, frame.origin.y, frame.origin.z}) Real25(x + 0.0);
    Add("\n");
  }

  void WriteNodes() {
    if (deck_.node_keys.empty()) return;
    Begin("2411");
    for (std::size_t i = 0; i < deck_.node_keys.size(); ++i) {
      Add("{:10}{:10}{:10}{:10}\n", deck_.node_keys[i], kGlobal, kGlobal, 11);
      for (std::size_t d = 0; d < 3; ++d) Real25(deck_.coordinates[3 * i + d]);
      Add("\n");
      Step();
    }
    End();
  }

  void WriteElements() {
    if (written_.empty()) return;
    Begin("2412");
    for (const Mesh::Element& element : deck_.elements) {
      if (!written_.contains(element.key)) continue;
      const auto nodes = static_cast<std::size_t>(FindElementType(element.type)->nodes);
      const Form form = FormOf(element);
      Add("{:10}{:10}{:10}{:10}{:10}{:10}\n", element.key, form[0], form[1], form[2], form[3],
          nodes);
      if (IsUnvBeam(form[0])) Add("{:10}{:10}{:10}\n", 0, form[4], form[5]);
      const std::int8_t* order = UnvOrderOf(element.type);
      for (std::size_t k = 0; k < nodes; ++k) {
        const std::size_t place = order ? static_cast<std::size_t>(order[k]) : k;
        Add("{:10}{}", deck_.connectivity[element.first + place],
            k % 8 == 7 || k + 1 == nodes ? "\n" : "");
      }
      Step();
    }
    End();
  }

  void WriteGroups() {
    if (deck_.groups.empty()) return;
    constexpr int kNode = 7, kElement = 8;
    constexpr std::size_t kMostName = 40;
    Begin("2477");
    for (const Mesh::Group& group : deck_.groups) {
      std::vector<std::pair<int, Key>> members;
      for (const Key key : group.elements) {
        if (written_.contains(key)) members.emplace_back(kElement, key);
      }
      for (const Key key : group.nodes) members.emplace_back(kNode, key);
      std::string name = NameLine(group.name);
      if (name.empty()) name = fmt::format("group {}", group.key);
      if (name.size() > kMostName) {
        report_.Assumed("names of more than 40 characters are written whole",
                        "the format has so many: other programs may read these alone");
      }
      Add("{:10}{:10}{:10}{:10}{:10}{:10}{:10}{:10}\n{}\n", group.key, 0, 0, 0, 0, 0, 0,
          members.size(), name);
      for (std::size_t m = 0; m < members.size(); ++m) {
        Add("{:10}{:10}{:10}{:10}{}", members[m].first, members[m].second, 0, 0,
            m % 2 == 1 || m + 1 == members.size() ? "\n" : "");
        Step();
      }
    }
    End();
  }

  void WriteFields() {
    int label = 0;
    for (const tagTField& field : deck_.Of<tagTField>()) {
      const std::string name = Utf8(field.name.View());
      if (field.components < 1) {
        report_.Lost("fields whose values have no fixed number", 1, name,
                     "results have so many of each node or element");
        continue;
      }
      if (NameLine(name) != name) {
        report_.Changed("names of fields", 1, name, "a name is the text of a line");
      }
      const int location = field.place == tagTField::kNodes      ? 1
                           : field.place == tagTField::kElements ? 2
                                                                 : 3;
      if (std::abs(std::strtod(fmt::format("{:.5E}", field.time).c_str(), nullptr) - field.time) >
          1e-12 * std::abs(field.time)) {
        report_.Changed("times of results were rounded to six digits", 1, name,
                        "results have so many");
      }
      if (!are_units_kept_ && field.category == unit::kUnknown && field.integers == 0) {
        report_.Changed("results of an unknown kind of unit keep the units that they have", 1, name,
                        "it is not known how their values convert");
      }
      const bool has_step = field.step != 0 || field.time != 0;
      // What the values are by their number: a scalar, displacements, a tensor; 0 for unknown.
      const int kind = field.components == 1   ? 1
                       : field.components == 3 ? 2
                       : field.components == 6 ? 4
                                               : 0;
      Begin("2414");
      Add("{:10}\n{}\n{:10}\nNONE\nNONE\nNONE\nNONE\n{} {} {}\n", ++label, NameLine(name), location,
          kUnvField, field.category, field.integers);
      Add("{:10}{:10}{:10}{:10}{:10}{:10}\n", 1, has_step ? 4 : 0, kind, 0, 4, field.components);
      Add("{:10}{:10}{:10}{:10}{:10}{:10}{:10}{:10}\n{:10}{:10}\n", 0, 0, 0, 0, 0, 0, field.step, 0,
          0, 0);
      Add("{:13.5E}{:13.5E}{:13.5E}{:13.5E}{:13.5E}{:13.5E}\n", field.time, 0.0, 0.0, 0.0, 0.0,
          0.0);
      Add("{:13.5E}{:13.5E}{:13.5E}{:13.5E}{:13.5E}{:13.5E}\n", 0.0, 0.0, 0.0, 0.0, 0.0, 0.0);
      if (location == 1) {
        WriteValues(field.node_values, field,
                    [](Key key, std::size_t) { return fmt::format("{:10}\n", key); });
      } else {
        WriteValues(field.element_values, field, [&](Key key, std::size_t count) {
          const auto per_node = static_cast<std::size_t>(field.components);
          return location == 2 ? fmt::format("{:10}{:10}\n", key, field.components)
                               : fmt::format("{:10}{:10}{:10}{:10}\n", key, 1, count / per_node,
                                             field.components);
        });
      }
      End();
    }
  }

  /// The values of one target follow each other, under a head.
  template <class List, class Head>
  void WriteValues(const List& list, const tagTField& field, const Head& head) {
    std::vector<double> values;
    std::uint64_t rounded = 0;
    const auto count = static_cast<std::size_t>(list.GetSize());
    for (std::size_t i = 0; i < count;) {
      const auto target = [&](std::size_t at) {
        return static_cast<Key>(ITR{list[static_cast<std::ptrdiff_t>(at)].target});
      };
      const Key key = target(i);
      values.clear();
      const std::size_t most = field.place == tagTField::kElementNodes
                                   ? count
                                   : static_cast<std::size_t>(field.components);
      for (; i < count && target(i) == key && values.size() < most; ++i) {
        values.push_back(list[static_cast<std::ptrdiff_t>(i)].value);
      }
      if (key == 0) continue;
      if (field.place != tagTField::kNodes && !written_.contains(key)) {
        report_.Lost("values of elements that are not written", values.size(),
                     fmt::format("element {}", key), "the format has no such element");
        continue;
      }
      if (field.place == tagTField::kElementNodes && !Sort(key, field, values)) continue;
      text_ += head(key, values.size());
      for (std::size_t v = 0; v < values.size(); ++v) {
        const std::size_t at = text_.size();
        Add("{:20.12E}", values[v]);
        if (WholeOf<double>(Words(std::string_view(text_).substr(at)).Rest()) != values[v]) {
          ++rounded;
        }
        if (v % 3 == 2 || v + 1 == values.size()) text_ += '\n';
      }
      Step();
    }
    report_.Changed("values of results were rounded to 13 digits", rounded, Utf8(field.name.View()),
                    "results have so many");
  }

  /// The values of an element's nodes in the order of the file.
  bool Sort(Key key, const tagTField& field, std::vector<double>& values) {
    const std::int32_t type = written_.at(key)->type;
    const auto per_node = static_cast<std::size_t>(field.components);
    const auto nodes = static_cast<std::size_t>(FindElementType(type)->nodes);
    if (values.size() != nodes * per_node) {
      report_.Lost("values of elements that are not as many as their nodes", values.size(),
                   fmt::format("element {}", key), "results have so many of each node");
      return false;
    }
    const std::int8_t* order = UnvOrderOf(type);
    if (!order) return true;
    const std::vector<double> ours = values;
    for (std::size_t k = 0; k < nodes; ++k) {
      for (std::size_t c = 0; c < per_node; ++c) {
        values[k * per_node + c] = ours[static_cast<std::size_t>(order[k]) * per_node + c];
      }
    }
    return true;
  }

  void WriteCarried() {
    for (const tagTCarried& carried : deck_.Of<tagTCarried>()) {
      if (carried.format.View() != u"unv") continue;
      Begin(Utf8(carried.keyword.View()));
      const std::string text = Follow(carried, false, "0").text;
      text_ += text;
      End();
      if (!are_units_kept_ && HasReal(text)) {
        const std::string name = Utf8(carried.keyword.View());
        report_.Changed(fmt::format("datasets {} keep the units that the file was read in", name),
                        1, "dataset " + name,
                        "they are text; it is not known which of their numbers have units");
      }
      Step();
    }
  }

  const CQXDBSession& session_;
  LossReport& report_;
  const Progress& progress_;
  Deck deck_;
  std::unordered_map<Key, Form> forms_;
  std::unordered_map<Key, const Mesh::Element*> written_;
  std::ostream* out_ = nullptr;
  std::string text_;
  std::size_t steps_ = 0;
  bool are_units_kept_ = true;  ///< what the model never converts is in those that are written
};

}  // namespace

Outcome WriteUnv(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                 LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  UnvFile file(session, found, options.progress);
  if (Outcome finite = CheckNumbers(file.Source(), path); !finite) return finite;
  const Outcome written = WriteFileBy(path, [&](std::ostream& out) { file.Write(out); });
  if (!written) return written;
  report.Append(found);
  if (options.progress) options.progress(1);
  return {};
}

}  // namespace qx::exchange
