#include "exchange/field_values.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/platform/text.h"

namespace qx::exchange {

tagTField& AddField(Deck& deck, const std::string& name, std::int32_t place,
                    std::int32_t components, std::int32_t step, double time) {
  std::vector<tagTField>& fields = deck.Of<tagTField>();
  tagTField field;
  field.key = static_cast<Key>(fields.size() + 1);
  field.name.Set(Utf16(name));
  if (const std::string kept = Utf8(field.name.View()); kept != name) {
    deck.report.Changed("names of fields were cut", 1,
                        fmt::format("\"{}\", now \"{}\"", name, kept),
                        "a field's name has 63 characters");
  }
  field.place = place;
  field.components = components;
  field.step = step;
  field.time = time;
  fields.push_back(std::move(field));
  return fields.back();
}

void AddValues(tagTField& field, Key target, const double* first, std::size_t stride) {
  const auto count = static_cast<std::size_t>(field.components);
  for (std::size_t c = 0; c < count; ++c) {
    if (std::isnan(first[c * stride])) return;
  }
  for (std::size_t c = 0; c < count; ++c) {
    const auto iterator = static_cast<ITR>(target);
    if (field.place == tagTField::kNodes) {
      field.node_values.Add({first[c * stride], iterator});
    } else {
      field.element_values.Add({first[c * stride], iterator});
    }
  }
}

bool IsTable(const tagTField& field, LossReport& report) {
  if (field.place != tagTField::kElementNodes && field.components > 0) return true;
  report.Lost(field.components < 1 ? "fields whose values have no fixed number"
                                   : "fields by node of each element",
              1, Utf8(field.name.View()), "the format has values of nodes and elements only");
  return false;
}

void TellOfTable(const tagTField& field, const FieldTable& table, LossReport& report) {
  const std::string name = Utf8(field.name.View());
  const std::int64_t values = field.place == tagTField::kNodes ? field.node_values.GetSize()
                                                               : field.element_values.GetSize();
  report.Lost("values of fields", static_cast<std::uint64_t>(values) - table.values.size(), name,
              "what they are of is not in the file, or has another number of them");
  report.Lost("kinds of units of fields", field.category != unit::kUnknown, name,
              "the format has no place for them");
}

}  // namespace qx::exchange
