#pragma once
// What the names of Abaqus and CalculiX mean: element types, and where keywords name nodes and
// elements by their numbers.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qx::exchange {

/// What an element type is for; sections and the choice of a name depend on it.
enum class InpFamily {
  kSolid,
  kPlaneStress,
  kPlaneStrain,
  kAxisymmetric,
  kShell,
  kMembrane,
  kTruss,
  kBeam,
  kMass,
  kSpring,
  kConnector,
};

/// An element type of the format.
struct InpElementType {
  std::int32_t type = 0;       ///< ours
  std::size_t nodes = 0;       ///< that a line has
  std::size_t most_nodes = 0;  ///< that it can have
  InpFamily family = InpFamily::kSolid;
};

/// What a name in upper case stands for; none for a type that has no place in a model. Suffixes
/// for formulations do not matter: C3D8R, C3D8I and DC3D8 are the same here.
std::optional<InpElementType> FindInpElement(std::string_view name);

/// Node of ours that stands at `place` in the file. The order is the same but for lines of three
/// nodes, whose middle node stands between the others.
std::size_t InpNode(std::int32_t type, std::size_t place);

/// The name for an element that came from another format; empty when there is none.
std::string_view InpElementName(std::int32_t type, InpFamily family);

/// Where the data lines of a keyword name nodes and elements by number.
enum class InpKeys {
  kUnknown,  ///< the keyword is not known
  kNone,
  kNodeFirst,     ///< each line begins with a node
  kElementFirst,  ///< each line begins with an element
  kNodesBehind,   ///< each line has nodes behind its first field: MPC
  kEquation,      ///< a count, then node, degree of freedom and factor
  kParameters,    ///< REFNODE=, ROTNODE=, NODE= of the keyword line, which others may have too
  kByType,        ///< TYPE= tells
};
InpKeys InpKeysOf(std::string_view keyword);
/// The same of a keyword with a TYPE=.
InpKeys InpKeysOfType(std::string_view keyword, std::string_view type);

/// Whether a keyword states a load, a condition or a constraint: it becomes a boundary set.
bool IsInpCondition(std::string_view keyword);

}  // namespace qx::exchange
