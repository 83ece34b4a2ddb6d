#pragma once
// Pieces of a deck, written: lines of nodes and elements, sets, materials, sections and systems.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/abaqus/inp_model.h"
#include "exchange/system_frames.h"

namespace qx::exchange {

/// A number that reads back as the same; with `digits` above 0, rounded to these, for comparing.
std::string InpReal(double value, int digits = 0);

/// A name as the format takes it: in quotes where it has other characters than plain names have.
std::string InpName(std::string_view name);

/// "number, x, y, z".
void AppendNode(std::string& text, Key number, const Vector3& point);

/// "number, nodes", sixteen numbers to a line; the nodes are in the file's order.
void AppendElement(std::string& text, Key number, std::span<const std::string> nodes);

/// Numbers or names, sixteen to a line.
void AppendList(std::string& text, std::span<const Key> numbers);

/// *NSET or *ELSET; with `instance` that parameter.
std::string SetText(bool is_nodes, std::string_view name, std::span<const Key> numbers,
                    std::string_view instance = {});

/// "S1" of a side as the topology table numbers them; SPOS and SNEG of kInpTop and kInpBottom, E1
/// of the edges of shells.
std::string SideName(std::int32_t side, bool is_shell);

/// Data line of a material's option in the deck's terms; empty when the material says nothing
/// about it.
std::string MaterialOption(const tagTMatl& material, std::string_view option, int digits = 0);
inline constexpr std::string_view kInpMaterialOptions[][2] = {{"ELASTIC", "Elastic"},
                                                              {"DENSITY", "Density"},
                                                              {"EXPANSION", "Expansion"},
                                                              {"CONDUCTIVITY", "Conductivity"},
                                                              {"SPECIFICHEAT", "Specific Heat"}};
/// *EXPANSION with its ZERO=, and the like.
std::string MaterialOptionHead(const tagTMatl& material, std::string_view option,
                               std::string_view title);
std::string MaterialText(const tagTMatl& material, std::string_view name);
/// Names of parts of a material, or a property, that are not written; empty when there are none.
std::string UnwrittenPartsOf(const tagTMatl& material);
std::string UnwrittenPartsOf(const tagTProp& property);

/// A section of a property; empty when the format has none for it. `direction` is that of beams.
std::string SectionText(const tagTProp& property, std::string_view set, std::string_view material,
                        double elastic, double shear, std::string_view orientation,
                        const std::optional<Vector3>& direction);

std::string OrientationText(const SystemFrame& system, std::string_view name);
std::string TransformText(const SystemFrame& system, std::string_view set);

}  // namespace qx::exchange
