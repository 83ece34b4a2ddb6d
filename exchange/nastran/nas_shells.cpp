#include "exchange/nastran/nas_shells.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace qx::exchange {
namespace {

/// Fields of a card, counted from 0 behind its name.
struct Places {
  std::string_view card;
  std::size_t direction;
  std::size_t offset;
  std::size_t flag;  ///< 1: thicknesses are parts of the property's
  std::size_t thickness;
  std::size_t corners;
};
constexpr Places kPlaces[] = {
    {"CTRIA3", 5, 6, 9, 10, 3}, {"CTRIAR", 5, 6, 9, 10, 3}, {"CTRIA6", 8, 9, 13, 10, 3},
    {"CQUAD4", 6, 7, 9, 10, 4}, {"CQUADR", 6, 7, 9, 10, 4}, {"CQUAD8", 14, 15, 16, 10, 4},
};

const Places* PlacesOf(std::string_view card) {
  const auto* const found = std::find_if(std::begin(kPlaces), std::end(kPlaces),
                                         [&](const Places& places) { return places.card == card; });
  return found == std::end(kPlaces) ? nullptr : found;
}

/// Adds an element to the record that says the same, or to a new one.
template <class T, class What>
void AddTo(std::vector<T>& records, std::map<What, std::size_t>& places, const What& what,
           Key element, const auto& say) {
  const auto [found, is_new] = places.try_emplace(what, records.size());
  if (is_new) {
    T record;
    record.key = static_cast<Key>(records.size()) + 1;
    say(record);
    records.push_back(std::move(record));
  }
  records[found->second].elements.Add(static_cast<ITR>(element));
}

bool SaysDirection(const tagTE2DMatlCsys& record) {
  return record.type == tagTE2DMatlCsys::kByAngle ||
         (record.type == tagTE2DMatlCsys::kByCoordinateSystem && record.csys_axis == 0);
}

}  // namespace

bool IsNasShell(std::string_view card) { return PlacesOf(card) != nullptr; }

void NasShellReader::Read(const NasCard& card, Key element, const NasSystems& systems) {
  const Places& at = *PlacesOf(card.name);
  // What is no number stays in the card, too.
  const auto real = [&](std::size_t field) {
    const double value = DeckReal(in_.Text(card, field)).value_or(0);
    return std::isfinite(value) ? value : 0;
  };
  if (const auto number = DeckInteger(in_.Text(card, at.direction))) {
    const Key system = *number >= 0 && *number <= kMaxKey ? static_cast<Key>(*number) : -1;
    if (systems.Knows(system)) {
      AddTo(deck_.Of<tagTE2DMatlCsys>(), by_system_, system, element, [&](tagTE2DMatlCsys& record) {
        record.type = tagTE2DMatlCsys::kByCoordinateSystem;
        record.coordinate_system = static_cast<ITR>(system);
      });
    }
  } else if (const double angle = real(at.direction); angle != 0) {
    AddTo(deck_.Of<tagTE2DMatlCsys>(), by_angle_, angle, element,
          [&](tagTE2DMatlCsys& record) { record.angle_deg = angle; });
  }
  if (const double offset = real(at.offset); offset != 0) {
    AddTo(deck_.Of<tagTE2DOffset>(), by_offset_, offset, element,
          [&](tagTE2DOffset& record) { record.offset = offset; });
  }
  std::array<double, 4> corners{};
  for (std::size_t i = 0; i < at.corners; ++i) corners[i] = real(at.thickness + i);
  if (at.corners == 3) corners[3] = corners[2];
  const bool are_given =
      std::all_of(corners.begin(), corners.end(), [](double t) { return t > 0; });
  if (!are_given || real(at.flag) != 0) return;
  AddTo(deck_.Of<tagTE2DThick>(), by_thickness_, corners, element, [&](tagTE2DThick& record) {
    std::copy(corners.begin(), corners.end(), record.thickness);
    record.uniform = std::count(corners.begin(), corners.end(), corners[0]) == 4;
  });
}

NasShellRecords::NasShellRecords(const Deck& deck) {
  const auto list = [&](const auto& records, auto Records::*of) {
    for (const auto& record : records) {
      for (const ITR element : record.elements) of_[static_cast<Key>(element)].*of = &record;
    }
  };
  list(deck.Of<tagTE2DMatlCsys>(), &Records::direction);
  list(deck.Of<tagTE2DOffset>(), &Records::offset);
  list(deck.Of<tagTE2DThick>(), &Records::thickness);
}

void NasShellRecords::Add(NasFields& card, Key element) const {
  const Places* at = PlacesOf(card.Name());
  const auto found = of_.find(element);
  if (!at || found == of_.end()) return;
  const auto& [direction, offset, thickness] = found->second;
  const auto put = [&card](std::size_t place, const NasFields& field) {
    card.Set(place, field.At(0));
  };
  if (direction && SaysDirection(*direction)) {
    const bool by_angle = direction->type == tagTE2DMatlCsys::kByAngle;
    const auto system = static_cast<Key>(direction->coordinate_system);
    put(at->direction, by_angle ? NasFields().RealOrBlank(direction->angle_deg)
                                : NasFields().Word(fmt::format("{}", system)));
  }
  if (offset) put(at->offset, NasFields().RealOrBlank(offset->offset));
  for (std::size_t i = 0; thickness && i < at->corners; ++i) {
    put(at->thickness + i, NasFields().Real(thickness->thickness[thickness->uniform ? 0 : i]));
  }
}

void NasShellRecords::Tell(const Deck& deck, LossReport& report) {
  for (const tagTE2DMatlCsys& record : deck.Of<tagTE2DMatlCsys>()) {
    report.Lost("material directions of shells were left out", !SaysDirection(record),
                fmt::format("assignment {}", record.key),
                "the format has angles and first axes of systems only");
  }
  const auto varies = [&](const char* what, const auto& record) {
    report.Lost(what, record.function != 0, fmt::format("record {}", record.key),
                "the format has no functions for them");
  };
  for (const tagTE2DOffset& record : deck.Of<tagTE2DOffset>()) {
    varies("functions of offsets of shells were left out", record);
  }
  for (const tagTE2DThick& record : deck.Of<tagTE2DThick>()) {
    varies("functions of thicknesses of shells were left out", record);
  }
}

}  // namespace qx::exchange
