#include "exchange/vtk/vtk_notes.h"

#include <charconv>
#include <fmt/format.h>
#include <sstream>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

constexpr const char* kTarget = "qxdb";

/// The attributes of an element as the text of an instruction. In it no ">" stands for itself, so
/// that nothing ends the instruction early.
void AddInstruction(pugi::xml_document& document, const pugi::xml_node& element) {
  std::ostringstream out;
  element.print(out, "", pugi::format_raw);
  std::string text = out.str();
  const std::size_t first = text.find(' ') + 1;
  text = text.substr(first, text.rfind('/') - first);
  for (std::size_t at = 0; (at = text.find('>', at)) != std::string::npos;) {
    text.replace(at, 1, "&gt;");
  }
  pugi::xml_node instruction = document.append_child(pugi::node_pi);
  instruction.set_name(kTarget);
  instruction.set_value(text.c_str());
}

std::string SidesText(const Mesh::SetTag& tag) {
  std::string text;
  for (const auto& [element, side] : tag.sides) {
    fmt::format_to(std::back_inserter(text), "{}{} {}", text.empty() ? "" : " ", element, side);
  }
  return text;
}

void ReadSides(std::string_view text, Mesh::SetTag& tag) {
  const char* at = text.data();
  const char* const end = at + text.size();
  const auto next = [&](std::int32_t& number) {
    while (at != end && *at == ' ') ++at;
    const auto [stop, error] = std::from_chars(at, end, number);
    at = stop;
    return error == std::errc();
  };
  for (std::int32_t element = 0, side = 0; next(element) && next(side);) {
    if (element > 0 && side >= 0 && side < 12) tag.sides.emplace_back(element, side);
  }
}

/// A text that is fit for a name, or "".
std::string Text(const pugi::xml_attribute& attribute) {
  const std::string text = attribute.as_string();
  return IsUtf8(text) ? text : std::string();
}

std::optional<UnitSystem> ReadUnits(std::istringstream names) {
  UnitSystem units;
  for (int i = 0; i < kUnitBaseCount; ++i) {
    const auto base = static_cast<UnitBase>(i);
    std::string name;
    names >> name;
    units[base] = FindUnit(base, name);
    if (units[base] < 0) return std::nullopt;
  }
  return units;
}

}  // namespace

void VtkNotes::Write(pugi::xml_document& document) const {
  pugi::xml_document scratch;
  const auto add = [&](const char* what, const auto& fill) {
    pugi::xml_node element = scratch.append_child("x");
    element.append_attribute("note") = what;
    fill([&](const char* name) { return element.append_attribute(name); });
    AddInstruction(document, element);
    scratch.reset();
  };
  if (units) {
    add("units", [&](auto attribute) {
      std::string names;
      for (int i = 0; i < kUnitBaseCount; ++i) {
        const auto base = static_cast<UnitBase>(i);
        if (i > 0) names += ' ';
        names += UnitsOf(base)[static_cast<std::size_t>((*units)[base])].name;
      }
      attribute("names") = names.c_str();
    });
  }
  for (const Set& set : sets) {
    add("set", [&](auto attribute) {
      attribute("key") = set.key;
      attribute("array") = set.array.c_str();
      attribute("name") = set.name.c_str();
      if (set.parent > 0) attribute("parent") = set.parent;
      if (set.color >= 0) attribute("color") = fmt::format("{:06X}", set.color).c_str();
    });
  }
  for (const Tag& tag : tags) {
    add("tag", [&](auto attribute) {
      attribute("set") = tag.set;
      attribute("format") = tag.format.c_str();
      attribute("kind") = tag.tag.kind;
      attribute("dimension") = tag.tag.dimension;
      attribute("tag") = tag.tag.tag;
      attribute("named") = tag.tag.named ? 1 : 0;
      if (!tag.tag.sides.empty()) attribute("sides") = SidesText(tag.tag).c_str();
    });
  }
  for (const Field& field : fields) {
    add("field", [&](auto attribute) {
      attribute("of") = field.of_points ? "points" : "cells";
      attribute("array") = field.array.c_str();
      attribute("name") = field.name.c_str();
      attribute("category") = field.category;
      attribute("integers") = field.integers;
      attribute("step") = field.step;
      attribute("time") = fmt::format("{}", field.time).c_str();
      attribute("partial") = field.partial ? 1 : 0;
    });
  }
}

VtkNotes VtkNotes::Read(const pugi::xml_document& document) {
  VtkNotes notes;
  for (const pugi::xml_node& node : document.children(kTarget)) {
    if (node.type() != pugi::node_pi) continue;
    pugi::xml_document one;
    if (!one.load_string(fmt::format("<x {}/>", node.value()).c_str())) continue;
    const pugi::xml_node x = one.first_child();
    const std::string_view what = x.attribute("note").as_string();
    if (what == "units") {
      notes.units = ReadUnits(std::istringstream(x.attribute("names").as_string()));
    } else if (what == "set") {
      const std::string color = x.attribute("color").as_string();
      std::int32_t rgb = Mesh::Group::kNone;
      if (color.size() == 6) std::from_chars(color.data(), color.data() + 6, rgb, 16);
      notes.sets.push_back({Text(x.attribute("array")), Text(x.attribute("name")),
                            std::max(x.attribute("key").as_int(), 0),
                            std::max(x.attribute("parent").as_int(), 0), rgb});
    } else if (what == "tag") {
      Tag tag{x.attribute("set").as_int(), Text(x.attribute("format")), {}};
      tag.tag.kind = x.attribute("kind").as_int();
      tag.tag.dimension = x.attribute("dimension").as_int(-1);
      tag.tag.tag = x.attribute("tag").as_int();
      tag.tag.named = x.attribute("named").as_int(1) != 0;
      ReadSides(x.attribute("sides").as_string(), tag.tag);
      notes.tags.push_back(std::move(tag));
    } else if (what == "field") {
      std::int32_t category = x.attribute("category").as_int(unit::kUnknown);
      if (category < 0 || category >= unit::kCount) category = unit::kUnknown;
      notes.fields.push_back({Text(x.attribute("array")),
                              std::string_view(x.attribute("of").as_string()) == "points",
                              Text(x.attribute("name")), category, x.attribute("integers").as_int(),
                              x.attribute("step").as_int(), x.attribute("time").as_double(),
                              x.attribute("partial").as_int() != 0});
    }
  }
  return notes;
}

}  // namespace qx::exchange
