#pragma once
// What VTK's formats have no place for, kept in processing instructions of the XML file, which
// every other reader passes over: units, which arrays are sets and how files know them, steps and
// units of fields.

#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "exchange/mesh.h"

namespace qx::exchange {

struct VtkNotes {
  struct Set {
    std::string array;  ///< of 0 and 1 for the cells, and for the points that are its own
    std::string name;
    Key key = 0;
    Key parent = 0;  ///< key of the set that it is a part of; 0 for none
    std::int32_t color = Mesh::Group::kNone;
  };
  struct Tag {
    Key set = 0;  ///< key
    std::string format;
    Mesh::SetTag tag;
  };
  struct Field {
    std::string array;
    bool of_points = true;
    std::string name;
    std::int32_t category = unit::kUnknown;
    std::int32_t integers = 0;
    std::int32_t step = 0;
    double time = 0;
    bool partial = false;  ///< what is NaN was not there
  };

  std::optional<UnitSystem> units;
  std::vector<Set> sets;
  std::vector<Tag> tags;
  std::vector<Field> fields;

  /// Puts them into a document, as its last children.
  void Write(pugi::xml_document& document) const;
  /// Takes what is well formed from a document, passing over the rest.
  static VtkNotes Read(const pugi::xml_document& document);
};

}  // namespace qx::exchange
