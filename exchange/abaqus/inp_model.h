#pragma once
// What an Abaqus or CalculiX deck says, with the places in its text where it says it. Parts keep
// the numbers that they have in the deck; inp_deck.h makes one mesh of their instances.

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "qx_db/lib/math.h"

#include "exchange/abaqus/inp_kinds.h"
#include "exchange/abaqus/inp_text.h"
#include "host/material_records.h"
#include "host/property_records.h"

namespace qx::exchange {

// Scopes of numbers that every deck has; those of its parts are behind them.
inline constexpr std::size_t kModel = 0;
inline constexpr std::size_t kAssembly = 1;

inline constexpr std::string_view kInpComment = "**";

inline constexpr std::size_t kNoPlace = ~std::size_t{0};

/// Where numbers stand in a list: constant time; memory in proportion to the list, not to the
/// numbers.
class InpIndex {
 public:
  /// False when the number is there already.
  bool Add(Key number, std::size_t place);
  /// kNoPlace for a number that is not there.
  std::size_t Find(Key number) const;

 private:
  std::vector<std::uint32_t> dense_;  // place + 1
  std::unordered_map<Key, std::uint32_t> sparse_;
  std::size_t count_ = 0;
};

/// A rotation about the origin and then a translation.
struct InpFrame {
  Vector3 x{1, 0, 0};  ///< where the axes go
  Vector3 y{0, 1, 0};
  Vector3 z{0, 0, 1};
  Vector3 origin;
  bool is_identity = true;

  Vector3 To(const Vector3& p) const {
    return is_identity ? p : origin + p.x * x + p.y * y + p.z * z;
  }
  Vector3 From(const Vector3& p) const {
    const Vector3 d = p - origin;
    return is_identity ? p : Vector3{Dot(d, x), Dot(d, y), Dot(d, z)};
  }
};

/// The coordinates that nodes are given in: of a type of tagTCord, in a frame.
struct InpInput {
  std::int32_t type = 0;
  InpFrame frame;

  Vector3 To(const Vector3& given) const;
  Vector3 From(const Vector3& point) const;
};

/// Where a node or an element stands in the text: its data line or lines. One that a keyword
/// generates has no length.
struct InpSpot {
  std::size_t at = 0;
  std::uint32_t length = 0;
};

/// Nodes or elements that follow each other and come from one keyword.
struct InpRun {
  std::size_t first;      ///< place of the first
  std::size_t block;      ///< index of the keyword
  std::size_t input = 0;  ///< of nodes: among the inputs
};

struct InpElement {
  Key number;
  std::int32_t type;
  std::size_t first;           ///< in `connectivity`, in our order
  std::int32_t section = -1;   ///< index among the model's sections
  std::int32_t type_name = 0;  ///< index among the model's type names
};

/// Nodes and elements that are numbered together: those of the model, of a part, or of the
/// assembly.
struct InpScope {
  std::string name;              ///< of the part or instance; "" for model and assembly
  std::size_t begin_block = 0;   ///< *PART or *INSTANCE; 0 for the model
  std::size_t end = 0;           ///< place in the text where its definitions end
  std::vector<Key> numbers;      ///< of nodes
  std::vector<double> points;    ///< three a node
  std::vector<InpSpot> node_at;  ///< of each node
  std::vector<InpRun> node_runs;
  InpIndex nodes;
  std::vector<InpElement> elements;
  std::vector<Key> connectivity;        ///< numbers of nodes
  std::vector<std::int32_t> instances;  ///< of them, in the assembly; empty elsewhere
  std::vector<InpSpot> element_at;
  std::vector<InpRun> element_runs;
  InpIndex element_index;
  std::set<Key> unknown_elements;  ///< of types that the model lacks
  std::map<std::string, std::size_t> node_sets;
  std::map<std::string, std::size_t> element_sets;
  std::map<std::string, std::size_t> surfaces;

  Vector3 Point(std::size_t node) const { return Vector3(&points[3 * node]); }
};

/// A member of a set. In a set of the assembly it may belong to an instance.
struct InpMember {
  Key number;
  std::int32_t instance = -1;
  std::int32_t side = -1;  ///< of a surface: from 0 as the topology table numbers them
  friend auto operator<=>(const InpMember&, const InpMember&) = default;
};

/// Sides of an element that are no edges of it: the top and bottom of shells.
inline constexpr std::int32_t kInpTop = -1;
inline constexpr std::int32_t kInpBottom = -2;

struct InpSet {
  enum class Kind { kNodes, kElements, kSides, kSurfaceNodes };
  Kind kind = Kind::kNodes;
  std::string name;
  std::size_t scope = 0;
  std::vector<InpMember> members;       ///< ascending, each once
  std::vector<std::size_t> parts;       ///< sets that it is made of
  std::vector<std::size_t> blocks;      ///< keywords that list it
  std::vector<std::size_t> parameters;  ///< keywords of nodes and elements that name it
};

/// A part where the assembly places it; of a deck without instances each part as it is.
struct InpPlacement {
  std::string name;  ///< of the instance; "" where there is none
  std::size_t scope = 0;
  std::size_t block = kNoPlace;  ///< *INSTANCE
  InpFrame frame;
  Key node_shift = 0;  ///< what its numbers are more in the model
  Key element_shift = 0;
};

struct InpSection {
  std::size_t block = 0;
  std::size_t scope = 0;
  std::size_t set = 0;
  std::string material;  ///< label
  std::string system;    ///< label of the orientation
  tagTProp property;     ///< what the model has of it; without references
  bool is_mass = false;  ///< it states masses of points
  double mass = 0;
  std::array<double, 6> inertia{};
  std::optional<Vector3> direction;  ///< of a beam's first axis
  double offset = 0;                 ///< of shells, in thicknesses
};

struct InpMaterial {
  std::size_t block = 0;
  std::string label;
  std::map<std::string, std::size_t> options;  ///< block of each that is read
  std::size_t last = 0;                        ///< last block of the material
  tagTMatl record;
};

struct InpSystem {
  std::size_t block = 0;
  std::string label;           ///< of an orientation; "" for a transformation
  std::size_t set = kNoPlace;  ///< nodes of a transformation
  tagTCord record;
};

struct InpModel {
  std::vector<InpScope> scopes;  ///< the model first, the assembly second
  std::vector<InpPlacement> placements;
  std::vector<InpInput> inputs;  ///< the global rectangular one first
  std::vector<std::string> type_names;
  std::vector<InpSet> sets;
  std::vector<InpSection> sections;
  std::vector<InpMaterial> materials;
  std::vector<InpSystem> systems;
  std::vector<std::string> conditions;  ///< names of boundary sets
  bool has_assembly = false;
  std::string title;
  std::size_t model_end = 0;  ///< place of the first *STEP, or the end
  LossReport report;
  std::map<std::string, std::uint64_t> carried;    ///< keywords without a place in the model
  std::map<std::string, std::uint64_t> unchecked;  ///< of which it is not known what they number

  /// Whether keys of the model are the numbers of the deck.
  bool IsFlat() const;
  const InpRun& RunOf(const std::vector<InpRun>& runs, std::size_t place) const;
  /// Number of nodes of an element.
  static std::size_t NodesOf(const InpElement& element);
};

/// Reads the deck; faults, of which there is a bound, make it fail.
Result<InpModel> ParseInp(const InpText& text, const std::string& file, const ReadOptions& options,
                          std::vector<Failure>& faults);

}  // namespace qx::exchange
