#pragma once
// A deck of random elements of every kind, with all that formats may hold of a model.

#include <cmath>
#include <random>
#include <set>
#include <string>

#include "exchange/deck.h"
#include "sample_mesh.h"

namespace sample {

/// Names that a file of text can stumble over.
inline const char* const kAwkwardNames[] = {
    "plain", "two words", "a,b", "say \"yes\"", "line\nend", "Fläche №1", "end, set=other",
    "x=y",   "*NODE",     "Top", "TOP",         "<&>'",      "7",         "a.b",
};

/// Nodes, elements with positive sizes, groups, properties, materials, systems and fields. Keys are
/// random and unsorted.
inline qx::exchange::Deck RandomDeck(unsigned seed) {
  using namespace qx;
  std::mt19937 random(seed);
  const auto uniform = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  std::set<Key> used;
  const auto new_key = [&] {
    for (;;) {
      const Key key = std::uniform_int_distribution<Key>(1, 9'000'000)(random);
      if (used.insert(key).second) return key;
    }
  };
  exchange::Deck deck;
  // A property for each dimension, of what its elements are.
  constexpr std::int32_t kTypes[] = {0, tagTProp::kBeam, tagTProp::kPlate, tagTProp::kSolid};
  for (Key d = 1; d < 4; ++d) {
    tagTMatl material;
    material.key = d;
    material.name.Set(d == 1 ? u"steel, hard" : d == 2 ? u"Alu" : u"glass \"fine\"");
    material.elastic_modulus = uniform(1, 300) * 1e9;
    material.poisson_ratio = uniform(0.1, 0.4);
    material.density = uniform(1000, 9000);
    deck.Of<tagTMatl>().push_back(material);
    tagTProp property;
    property.key = d;
    property.name.Set(d == 2 ? u"skin, outer" : d == 1 ? u"bars" : u"body");
    property.type = kTypes[d];
    property.material = static_cast<ITR>(d);
    if (d == 1) property.area = uniform(1e-4, 1e-2);
    if (d == 2) property.thickness = uniform(1e-3, 1e-1);
    deck.Of<tagTProp>().push_back(property);
  }
  tagTCord system;
  system.key = 5;
  system.name.Set(u"axes, \"skew\"");
  system.origin = {uniform(-1, 1), 0, 0};
  system.axis_point = {system.origin.x + 1, 1, 0};
  system.plane_point = {system.origin.x - 1, 1, 0};
  deck.Of<tagTCord>().push_back(system);

  std::vector<Key> of_kind[4];
  for (std::int32_t code = 1; code <= 15; ++code) {
    const Shape& shape = ShapeOf(code);
    const auto count = static_cast<std::size_t>(FindElementType(code)->nodes);
    for (int twin = 0; twin < 3; ++twin) {
      std::vector<Point> points = shape.corners;
      for (const auto& [a, b] : shape.edges) {
        if (points.size() == count) break;
        points.push_back(Middle(shape.corners[static_cast<std::size_t>(a)],
                                shape.corners[static_cast<std::size_t>(b)]));
      }
      const Point shift{uniform(-100, 100), uniform(-100, 100), uniform(-100, 100)};
      const double scale = uniform(0.1, 10);
      exchange::Mesh::Element element{new_key(), code, deck.connectivity.size()};
      element.property = shape.dimension;
      for (const Point& point : points) {
        deck.node_keys.push_back(new_key());
        deck.connectivity.push_back(deck.node_keys.back());
        for (std::size_t d = 0; d < 3; ++d) {
          const double wobble = shape.dimension > 1 ? uniform(-0.02, 0.02) : 0;
          deck.coordinates.push_back(shift[d] + scale * (point[d] + wobble));
        }
      }
      if (code == element::kPoint) {
        tagTSprop mass;
        mass.key = element.key;
        mass.mass = uniform(1, 2);
        deck.Of<tagTSprop>().push_back(mass);
      }
      of_kind[shape.dimension].push_back(element.key);
      deck.elements.push_back(element);
    }
  }
  // Groups of elements that overlap, groups of nodes, parts of groups.
  int place = 0;
  for (const char* name : kAwkwardNames) {
    exchange::Mesh::Group group;
    group.name = name;
    const auto& own = of_kind[place % 4];
    if (place % 3 == 2) {
      for (int i = 0; i < 4; ++i) {
        group.nodes.push_back(deck.node_keys[static_cast<std::size_t>(place * 7 + i)]);
      }
    } else {
      group.elements.assign(own.begin(), own.begin() + 2 + place % 2);
    }
    if (place == 4) group.parent = 0;
    deck.groups.push_back(std::move(group));
    ++place;
  }
  for (int f = 0; f < 3; ++f) {
    tagTField field;
    field.key = f + 1;
    field.name.Set(f == 0 ? u"heat, \"now\"" : f == 1 ? u"stress" : u"some");
    field.components = f == 1 ? 3 : 1;
    field.step = 1;
    field.time = 0.5;
    field.place = f == 0 ? tagTField::kNodes : tagTField::kElements;
    if (f == 0) {
      for (const Key key : deck.node_keys) {
        field.node_values.Add({uniform(-1, 1), static_cast<ITR>(key)});
      }
    } else {
      for (std::size_t e = 0; e < deck.elements.size(); e += static_cast<std::size_t>(f)) {
        for (int c = 0; c < field.components; ++c) {
          field.element_values.Add({uniform(-1, 1), static_cast<ITR>(deck.elements[e].key)});
        }
      }
    }
    deck.Of<tagTField>().push_back(std::move(field));
  }
  return deck;
}

}  // namespace sample
