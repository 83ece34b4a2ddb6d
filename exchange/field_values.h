#pragma once
// Fields of decks as the tables that files keep: a column of values for each component, one value
// for each node or element.
// Threads: shares nothing; one at a time for each object.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// Adds a field of nodes or elements, without values, to a deck. Of a name that is too long as much
/// is kept as there is room for, and told. The reference holds until the next is added.
tagTField& AddField(Deck& deck, const std::string& name, std::int32_t place,
                    std::int32_t components, std::int32_t step, double time);

/// Adds the values of a target; none where one of them is not a number.
void AddValues(tagTField& field, Key target, const double* first, std::size_t stride);

/// Whether a field is such a table. One that is none is told of as left out.
bool IsTable(const tagTField& field, LossReport& report);

/// A field's values by target, in the order of the targets.
struct FieldTable {
  std::vector<std::size_t> targets;  ///< places in the file, ascending
  std::vector<double> values;        ///< of all targets, component after component

  bool IsOf(std::size_t count) const { return targets.size() == count; }
  const double* Column(std::int32_t component) const {
    return values.data() + static_cast<std::size_t>(component) * targets.size();
  }
};

/// The table of a field with a fixed number of components. `place_of` gives the place of the node
/// or element with a key, from 0; kNowhere for one that the file does not have.
inline constexpr std::size_t kNowhere = ~std::size_t{0};
template <class PlaceOf>
FieldTable TableOf(const tagTField& field, PlaceOf&& place_of) {
  struct Row {
    std::size_t place;
    std::size_t first;  // of its values in the list
  };
  FieldTable table;
  const auto fill = [&](const auto& list) {
    const auto width = static_cast<std::ptrdiff_t>(field.components);
    std::vector<Row> rows;
    const auto count = static_cast<std::ptrdiff_t>(list.GetSize());
    for (std::ptrdiff_t i = 0; i + width <= count; i += width) {
      const std::size_t place = place_of(static_cast<Key>(ITR{list[i].target}));
      if (place != kNowhere) rows.push_back({place, static_cast<std::size_t>(i)});
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.place < b.place; });
    const auto same = [](const Row& a, const Row& b) { return a.place == b.place; };
    rows.erase(std::unique(rows.begin(), rows.end(), same), rows.end());
    table.values.resize(rows.size() * static_cast<std::size_t>(width));
    for (std::size_t r = 0; r < rows.size(); ++r) {
      table.targets.push_back(rows[r].place);
      for (std::ptrdiff_t c = 0; c < width; ++c) {
        table.values[static_cast<std::size_t>(c) * rows.size() + r] =
            list[static_cast<std::ptrdiff_t>(rows[r].first) + c].value;
      }
    }
  };
  if (field.components < 1 || field.place == tagTField::kElementNodes) return table;
  if (field.place == tagTField::kNodes) {
    fill(field.node_values);
  } else {
    fill(field.element_values);
  }
  return table;
}

/// Tells what a file that has a field's table, and no more, leaves out of it: values of what is not
/// in the file, and what is known of their unit.
void TellOfTable(const tagTField& field, const FieldTable& table, LossReport& report);

}  // namespace qx::exchange
