#include "exchange/unv/unv_fields.h"

#include <cstdio>
#include <utility>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/unv/unv_kinds.h"
#include "exchange/unv/unv_reader.h"

namespace qx::exchange {
namespace {

constexpr std::int64_t kStatic = 1, kModes = 2, kTransient = 4, kFrequencies = 5;
constexpr std::int64_t kMostValues = 10000;

std::string Trimmed(std::string_view line) { return CleanText(Words(line).Rest()); }

bool IsKey(std::int64_t number) { return number >= 0 && number <= kMaxKey; }

}  // namespace

bool UnvFields::ReadHead2414(UnvText& in, Head& head) {
  std::vector<std::int64_t> numbers;
  std::vector<double> reals;
  if (!in.Integers(1, numbers) || !in.NeedLine()) return false;
  head.name = Trimmed(in.Line());
  if (!in.Integers(1, numbers)) return false;
  head.location = numbers[0];
  std::string line;
  for (int i = 0; i < 5; ++i) {
    if (!in.NeedLine()) return false;
    line = in.Line();
  }
  if (line.starts_with(kUnvField)) {
    std::sscanf(line.c_str() + kUnvField.size(), "%d %d", &head.category, &head.is_whole);
  }
  if (!in.Integers(6, numbers)) return false;
  head.analysis = numbers[1];
  head.result = numbers[3];
  head.type = numbers[4];
  head.values = numbers[5];
  if (!in.Integers(8, numbers)) return false;
  if (!in.NeedLine()) return false;  // who made it
  if (!in.Reals(12, reals, 13)) return false;
  const bool has_modes = head.analysis == kModes;
  const bool has_frequencies = head.analysis == kFrequencies;
  head.step = has_modes                  ? numbers[5]
              : has_frequencies          ? numbers[7]
              : head.analysis == kStatic ? numbers[4]
                                         : numbers[6];
  head.time = has_modes || has_frequencies ? reals[1] : reals[0];
  return true;
}

bool UnvFields::ReadHead55(UnvText& in, Head& head) {
  for (int i = 0; i < 5; ++i) {
    if (!in.NeedLine()) return false;
    if (i == 0) head.name = Trimmed(in.Line());
  }
  std::vector<std::int64_t> numbers;
  std::vector<double> reals;
  if (!in.Integers(6, numbers)) return false;
  head.analysis = numbers[1];
  head.result = numbers[3];
  head.type = numbers[4];
  head.values = numbers[5];
  if (!in.Integers(2, numbers)) return false;
  const std::int64_t integers = numbers[0];
  const std::int64_t count = numbers[1];
  if (integers < 0 || integers > 100 || count < 0 || count > 100) {
    in.Fail("the result says that it has too many numbers");
    return false;
  }
  std::vector<std::int64_t> all(numbers.begin() + 2, numbers.end());
  while (static_cast<std::int64_t>(all.size()) < integers) {
    if (!in.NeedLine() || !in.IntegersOfLine(numbers)) return false;
    if (numbers.empty()) return in.Fail("numbers are missing"), false;
    all.insert(all.end(), numbers.begin(), numbers.end());
  }
  if (!in.Reals(static_cast<std::size_t>(std::max<std::int64_t>(count, 1)), reals, 13))
    return false;
  head.step = integers >= 2 ? all[1] : integers == 1 ? all[0] : 0;
  head.time = reals[0];
  return true;
}

const Mesh::Element* UnvFields::ElementOf(Key key) {
  for (; known_ < deck_.elements.size(); ++known_) {
    elements_.emplace(deck_.elements[known_].key, known_);
  }
  const auto found = elements_.find(key);
  return found == elements_.end() ? nullptr : &deck_.elements[found->second];
}

void UnvFields::Read(UnvText& in) {
  Head head;
  const std::string place = in.Place();
  // Of a broken result nothing is kept; the mesh that it is of may be whole.
  const auto leave_out = [&] {
    deck_.report.Lost("results that are broken were left out", 1, in.WrongPlace(), in.Wrong());
    in.PassOver();
  };
  if (in.Name() == "2414" ? !ReadHead2414(in, head) : !ReadHead55(in, head)) return leave_out();
  if (in.Name() == "56") head.location = 2;
  if (head.location < 1 || head.location > 3 || head.type < 1 || head.type > 6 || head.values < 1 ||
      head.values > kMostValues) {
    deck_.report.Lost("results in a form that is not read were left out", 1, place,
                      "those of nodes, elements and nodes of elements are");
    return in.Rest(), void();
  }
  if (head.type >= 5) {
    head.parts = 2;
    head.values *= 2;
    deck_.report.Changed("complex results became their real and imaginary parts", 1, place,
                         "the model has real numbers");
  }
  // Those written here have none.
  if (head.result != 0 || (head.analysis != kTransient && head.analysis != 0)) {
    deck_.report.Lost("what results are (modes, load sets, kinds of quantities)", 1, place,
                      "of it the model has a name, a number and a time");
  }
  tagTField field;
  field.key = static_cast<Key>(deck_.Of<tagTField>().size() + 1);
  field.name.Set(Utf16(head.name));
  if (Utf8(field.name.View()) != head.name) {
    deck_.report.Changed("names of results were cut", 1, head.name,
                         "a field's name has 63 characters");
  }
  field.components = static_cast<std::int32_t>(head.values);
  field.place = head.location == 1   ? tagTField::kNodes
                : head.location == 2 ? tagTField::kElements
                                     : tagTField::kElementNodes;
  const std::int64_t step = std::clamp<std::int64_t>(head.step, 0, kMaxKey);
  field.step = static_cast<std::int32_t>(step);
  field.time = head.time;
  field.category = FindUnitCategory(head.category) ? head.category : unit::kUnknown;
  field.integers = head.is_whole != 0;
  ReadValues(in, head, field);
  if (!in.Wrong().empty()) return leave_out();
  deck_.Of<tagTField>().push_back(std::move(field));
}

void UnvFields::ReadValues(UnvText& in, const Head& head, tagTField& field) {
  const std::size_t width = head.type == 4 || head.type == 6 ? 20 : 13;
  const bool is_of_nodes = head.location == 1, is_of_corners = head.location == 3;
  const std::size_t own_count = is_of_corners ? 3 : 1;  // place of a record's own number of values
  std::vector<std::int64_t> numbers;
  std::vector<double> values, sorted;
  std::uint64_t gone = 0, others = 0, fewer = 0;
  Key first_gone = 0, first_other = 0, first_fewer = 0;
  bool is_first = true;
  while (in.NextLine()) {
    if (!in.IntegersOfLine(numbers)) return;
    if (numbers.empty()) continue;
    if (!IsKey(numbers[0])) return in.Fail("a number is beyond what the model has");
    const auto key = static_cast<Key>(numbers[0]);
    // Records of elements say how many values they have: those of layers follow each other.
    std::int64_t count = head.values;
    if (!is_of_nodes && numbers.size() > own_count) count = head.parts * numbers[own_count];
    if (count < 1 || count > kMostValues) {
      return in.Fail(fmt::format("a record cannot have {} values", count));
    }
    const auto per_place = static_cast<std::size_t>(count);
    std::size_t nodes = 1;
    if (is_of_corners) {
      if (numbers.size() < 3 || numbers[2] < 1 || numbers[2] > 1000) {
        return in.Fail("the element has no number of nodes");
      }
      nodes = static_cast<std::size_t>(numbers[2]);
    }
    // One may stand for all nodes of an element.
    const bool is_same = is_of_corners && numbers[1] == 2;
    const std::size_t all = is_same ? per_place : nodes * per_place;
    if (!in.Reals(all, values, width)) return;
    deck_.report.Lost("values beyond those that a result says to have", values.size() - all,
                      in.Place(), "their lines are longer");
    values.resize(all);
    if (std::exchange(is_first, false) && count != head.values) {
      field.components = static_cast<std::int32_t>(count);
      deck_.report.Changed("results got as many components as their records have values", 1,
                           in.Place(),
                           fmt::format("of each {}, their head says {}", count, head.values));
    }
    if (count != field.components) {
      if (others++ == 0) first_other = key;
      continue;
    }
    if (is_of_nodes) {
      for (const double value : values) field.node_values.Add({value, static_cast<ITR>(key)});
      continue;
    }
    const Mesh::Element* element = ElementOf(key);
    if (!element) {
      if (gone++ == 0) first_gone = key;
      continue;
    }
    if (is_of_corners) {
      // In the order in which the file lists them.
      const auto own = static_cast<std::size_t>(FindElementType(element->type)->nodes);
      if (own > nodes) {
        if (fewer++ == 0) first_fewer = key;
        continue;
      }
      const std::int8_t* order = UnvOrderOf(element->type);
      sorted.resize(own * per_place);
      for (std::size_t k = 0; k < own; ++k) {
        const std::size_t to = order ? static_cast<std::size_t>(order[k]) : k;
        for (std::size_t c = 0; c < per_place; ++c) {
          sorted[to * per_place + c] = values[(is_same ? 0 : k * per_place) + c];
        }
      }
      values.swap(sorted);
    }
    for (const double value : values) field.element_values.Add({value, static_cast<ITR>(key)});
  }
  const auto tell = [&](const char* what, std::uint64_t elements, Key first, const char* why) {
    deck_.report.Lost(what, elements, fmt::format("element {}", first), why);
  };
  tell("results of elements that were not read", gone, first_gone,
       "they are not in the file, or left out");
  tell("results of elements with another number of values were left out", others, first_other,
       "a field has as many of each as of its first");
  tell("results of elements at fewer nodes than they have were left out", fewer, first_fewer,
       "a field has values of each node");
}

}  // namespace qx::exchange
