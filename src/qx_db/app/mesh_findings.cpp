#include "qx_db/app/mesh_findings.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

std::vector<Key> KeysOf(const DenseMesh& mesh, const std::function<bool(std::uint32_t)>& concerns) {
  std::vector<Key> keys;
  LongWork work(mesh.ElementCount());
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    work.Step();
    if (concerns(e)) keys.push_back(mesh.Element(e).key);
  }
  return keys;
}

/// The elements of sides, each once.
std::vector<Key> KeysOf(const DenseMesh& mesh, const std::vector<DenseSide>& sides) {
  std::vector<Key> keys;
  keys.reserve(sides.size());
  for (const DenseSide& side : sides) keys.push_back(mesh.Element(side.element).key);
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

template <std::uint8_t Fault>
std::vector<Key> WithFault(const DenseMesh& mesh, double) {
  return KeysOf(mesh, [&](std::uint32_t e) { return (mesh.Faults(e) & Fault) != 0; });
}

/// Size against the longest reach to the power of the dimension, below which an element is flat.
constexpr double kFlat = 1e-12;

enum class SizeSign { kNegative, kZero };

/// The sign of an element's length, area or volume, measured against its extent.
bool HasSize(const DenseMesh& mesh, std::uint32_t e, SizeSign sign) {
  const CornerShape shape = mesh.Shape(e);
  if (!mesh.IsUsable(e) || shape < CornerShape::kLine) return false;
  Point3 p[8];
  mesh.CornerPositions(e, p);
  double extent = 0;
  for (std::size_t i = 1; i < mesh.Corners(e).size(); ++i) {
    extent = std::max(extent, Distance(p[0], p[i]));
  }
  const double size = ShapeSize(shape, p);
  const double flat = kFlat * std::pow(extent, topology::DimensionOf(shape));
  return sign == SizeSign::kNegative ? size < -flat : std::abs(size) <= flat;
}

std::vector<Key> Inverted(const DenseMesh& mesh, double) {
  return KeysOf(mesh, [&](std::uint32_t e) { return IsInvertedSolid(mesh, e); });
}

std::vector<Key> Flat(const DenseMesh& mesh, double) {
  return KeysOf(mesh, [&](std::uint32_t e) { return HasSize(mesh, e, SizeSign::kZero); });
}

std::vector<Key> MisorientedShells(const DenseMesh& mesh, double) {
  std::vector<Key> keys;
  for (const std::uint32_t e : OrientShells(mesh).to_flip) keys.push_back(mesh.Element(e).key);
  return keys;
}

std::vector<Key> RepeatedElements(const DenseMesh& mesh, double) {
  std::vector<Key> keys;
  for (const Duplicate& pair : DuplicateElements(mesh)) {
    keys.push_back(mesh.Element(pair.first).key);
  }
  return keys;
}

std::vector<Key> RepeatedNodes(const DenseMesh& mesh, double tolerance) {
  std::vector<Key> keys;
  for (const Duplicate& pair : DuplicateNodes(mesh, tolerance)) {
    keys.push_back(mesh.NodeKey(pair.first));
  }
  return keys;
}

std::vector<Key> KeysOfUnusedNodes(const DenseMesh& mesh, double) {
  std::vector<Key> keys;
  for (const std::uint32_t n : FindUnusedNodes(mesh).unused) keys.push_back(mesh.NodeKey(n));
  return keys;
}

/// Line elements that are sound but for their orientation.
std::vector<Key> WithoutAxes(const DenseMesh& mesh, double) {
  const auto& elements = Pool<tagTElem>(mesh.Session());
  return KeysOf(mesh, [&](std::uint32_t e) {
    const std::int32_t type = mesh.Element(e).type;
    if (!element_rule::IsWithEcrdType(type) && !element_rule::HasDefaultOrientation(type)) {
      return false;
    }
    double axes[3][3];
    return mesh.IsUsable(e) && !HasSize(mesh, e, SizeSign::kZero) &&
           !elements.GetElemLocalVector(mesh.Element(e), axes);
  });
}

std::vector<Key> UndefinedNodes(const DenseMesh& mesh, double) {
  std::vector<Key> keys;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    if (!IsFinite(mesh.Position(n))) keys.push_back(mesh.NodeKey(n));
  }
  return keys;
}

struct Kind {
  std::string_view name, label, remedy;
  bool is_fault;
  bool of_nodes;
  std::vector<Key> (*find)(const DenseMesh&, double);
};

constexpr Kind kKinds[] = {
    {"unknown-types", "elements of unknown type", "", true, false, WithFault<fault::kUnknownType>},
    {"wrong-node-counts", "elements with a wrong number of nodes", "", true, false,
     WithFault<fault::kWrongNodeCount>},
    {"missing-nodes", "elements with a missing node", "", true, false,
     WithFault<fault::kMissingNode>},
    {"undefined-nodes", "nodes with a coordinate that is no number", "", true, true,
     UndefinedNodes},
    {"repeated-nodes", "elements with a node twice", "", true, false,
     WithFault<fault::kRepeatedNode>},
    {"inverted-solids", "inverted solids", "fix --solids", true, false, Inverted},
    {"flat-elements", "elements without length, area or volume", "", true, false, Flat},
    {"misoriented-shells", "shells turned against their neighbours", "fix --shells", true, false,
     MisorientedShells},
    {"duplicate-elements", "duplicate elements", "fix --duplicate-elements", true, false,
     RepeatedElements},
    {"duplicate-nodes", "duplicate nodes", "fix --merge-nodes TOLERANCE", false, true,
     RepeatedNodes},
    {"unreferenced-nodes", "nodes that no element uses", "fix --unreferenced-nodes", false, true,
     KeysOfUnusedNodes},
    {"without-axes", "line elements whose orientation gives no axes", "orient KEYS --beta ANGLE",
     true, false, WithoutAxes},
};

struct SideKind {
  std::string_view name, label;
  bool is_fault;
  LooseSides (*find)(const DenseMesh&);
  std::vector<DenseSide> LooseSides::*which;
};

constexpr SideKind kSideKinds[] = {
    {"free-edges", "surface elements with a free edge", false, LooseEdges, &LooseSides::free},
    {"shared-edges", "surface elements at an edge of three or more", false, LooseEdges,
     &LooseSides::shared},
    {"free-faces", "solids with a free face", false, LooseFaces, &LooseSides::free},
    {"shared-faces", "solids at a face of three or more", true, LooseFaces, &LooseSides::shared},
};

}  // namespace

bool IsInvertedSolid(const DenseMesh& mesh, std::uint32_t e) {
  return mesh.Shape(e) >= CornerShape::kTetrahedron && HasSize(mesh, e, SizeSign::kNegative);
}

UnusedNodes FindUnusedNodes(const DenseMesh& mesh) {
  UnusedNodes found{UnreferencedNodes(mesh)};
  if (found.unused.empty()) return found;
  std::vector<char> needed(mesh.NodeCount(), 0);
  for (const DPoolBase* pool : mesh.Session().Pools()) {
    const auto rows = pool->GetSchema().References();
    const bool leads_to_nodes = std::any_of(rows.begin(), rows.end(), [](const Row* row) {
      return row->target == code::kNode && !row->IsArray();
    });
    for (ITR at = leads_to_nodes ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
      for (const Row* row : rows) {
        if (row->target != code::kNode || row->IsArray()) continue;
        const ITR node = LoadAt<ITR>(detail::Bytes(*KeyedSetBase::RecordAt(at)) + row->offset);
        const std::uint32_t number = node ? mesh.Numbers().Find(node) : PoolNumbers::kNone;
        if (number != PoolNumbers::kNone) needed[number] = 1;
      }
    }
  }
  const std::size_t without_elements = found.unused.size();
  std::erase_if(found.unused, [&](std::uint32_t n) { return needed[n] != 0; });
  found.kept = static_cast<std::int64_t>(without_elements - found.unused.size());
  return found;
}

std::vector<Finding> FindFaults(const DenseMesh& mesh, double tolerance) {
  std::vector<Finding> findings;
  LongWork work(std::size(kKinds) + std::size(kSideKinds));
  for (const Kind& kind : kKinds) {
    work.Step();
    findings.push_back({kind.name, kind.label, kind.remedy, kind.is_fault,
                        kind.find(mesh, tolerance), kind.of_nodes});
  }
  LooseSides loose;
  LooseSides (*found)(const DenseMesh&) = nullptr;
  for (const SideKind& kind : kSideKinds) {
    work.Step();
    // Rows of one kind of side stand together: it is matched once.
    if (found != kind.find) loose = kind.find(mesh);
    found = kind.find;
    findings.push_back(
        {kind.name, kind.label, "", kind.is_fault, KeysOf(mesh, loose.*kind.which), false});
  }
  return findings;
}

std::vector<std::string_view> FindingNames() {
  std::vector<std::string_view> names;
  for (const Kind& kind : kKinds) names.push_back(kind.name);
  for (const SideKind& kind : kSideKinds) names.push_back(kind.name);
  return names;
}

}  // namespace qx
