#include "qx_db/shape/transform.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "qx_db/app/element_turning.h"
#include "qx_db/core/belongings.h"
#include "qx_db/lib/variants.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/record_numbers.h"
#include "qx_db/model/mesh_coordinate_pool.h"
#include "qx_db/pool/bulk_edit.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/shape/group_set.h"
#include "qx_db/shape/material_directions.h"
#include "qx_db/shape/next_key.h"

namespace qx {
namespace {

tagTVector3<double> Packed(const Vector3& v) { return v.As<tagTVector3<double>>(); }

/// The reference of a line's orientation leads to its y axis, in some editions to its z axis; the
/// other follows by the right hand, and so is the one that a reflection turns round.
bool ReferenceIsZ() { return IsVariantA() || IsVariantC(); }

class Mover {
 public:
  /// `alone`: no other elements have these nodes; `tells` what stays as it is, for which all of the
  /// model is looked at.
  Mover(CQXDBSession& session, const ShapeParts& parts, const AffineMap& map, ShapeReport& report,
        bool alone, bool tells)
      : session_(session),
        map_(map),
        report_(report),
        tells_(tells),
        elements_(Pool<tagTElem>(session)) {
    for (const ITR node : parts.nodes) nodes_.Add(node);
    for (const ITR element : parts.elements) {
      for (const ITR node : elements_.GetAtNU(element).nodes) {
        if (NodeAt(node)) nodes_.Add(node);
      }
    }
    moved_nodes_.insert(nodes_.Records().begin(), nodes_.Records().end());
    if (alone) {
      whole_.assign(parts.elements.begin(), parts.elements.end());
    } else {
      FindElements();
    }
    moved_.insert(whole_.begin(), whole_.end());
  }

  Outcome Run() {
    const double determinant = map_.Determinant();
    if (!std::isfinite(determinant) || determinant == 0) {
      return Failure{"", "", "the transformation flattens what it is done to",
                     "give factors other than 0"};
    }
    if (Outcome within = CheckReach(); !within) return within;
    const bool turns = map_.TurnsDirections();
    MaterialDirections material(session_);
    TakeLineAxes(turns);
    if (turns) {
      material.Take(whole_);
      material.Turn([&](const Vector3& v) { return map_.Direction(v); });
    }
    const std::size_t set = SetMany(
        Pool<tagTNode>(session_), nodes_.Records(),
        [&](tagTNode& node, std::size_t) { node.position = Packed(map_(Vector3(node.position))); });
    if (set != nodes_.Records().size()) return RefusedByModel();
    if (map_.IsMirror()) {
      std::vector<ITR> turned;
      for (const ITR element : whole_) {
        if (!FlipOf(elements_.GetAtNU(element).type).empty()) turned.push_back(element);
      }
      if (!TurnElements(session_, turned, true)) return RefusedByModel();
    }
    if (!TurnLines(turns)) return RefusedByModel();
    if (turns &&
        (!TurnOffsets() || !TurnPlates() || !TurnSolids() || !TurnSpecials() || !material.Put())) {
      return RefusedByModel();
    }
    if (tells_) NoteTheRest(turns);
    return {};
  }

 private:
  void FindElements() {
    std::int64_t partly = 0;
    for (ITR at = elements_.GetHeadPosition(); at; elements_.Next(at)) {
      const auto& list = elements_.GetAtNU(at).nodes;
      const auto inside = std::count_if(list.begin(), list.end(),
                                        [&](ITR node) { return moved_nodes_.contains(node); });
      if (inside == 0) continue;
      if (inside == list.GetSize()) {
        whole_.push_back(at);
      } else {
        ++partly;
      }
    }
    report_.Note("elements with only some of their nodes among these change their shape", partly);
  }

  const DPoolNode& Nodes() const { return Pool<tagTNode>(session_); }
  bool IsMoved(ITR element) const { return moved_.contains(element); }

  Outcome CheckReach() const {
    for (const ITR node : nodes_.Records()) {
      const tagTNode& record = *NodeAt(node);
      if (IsFinite(map_(Vector3(record.position)))) continue;
      return Failure{"", "node " + std::to_string(record.key),
                     "would have a coordinate that is no finite number", "move it less far"};
    }
    return {};
  }

  // ---- lines ------------------------------------------------------------------------------------

  /// How a line is to be oriented where nothing else will do: by the image of an axis of its own.
  struct LineAxis {
    ITR element;
    Vector3 reference;
  };

  void TakeLineAxes(bool turns) {
    for (const ITR at : whole_) {
      const tagTElem& element = elements_.GetAtNU(at);
      if (!element_rule::IsWithEcrdType(element.type)) continue;
      tagTEcrd record;
      const bool stored = elements_.GetElemCSys(at, record) != 0;
      const bool is_frame = element_rule::HasDefaultOrientation(element.type);
      if (!stored && !is_frame) continue;
      if (!turns && record.method != tagTEcrd::kByNode) continue;
      if (record.method == tagTEcrd::kByNode && moved_nodes_.contains(record.reference_node)) {
        continue;
      }
      if (stored && record.method == tagTEcrd::kByVector) continue;
      double axes[3][3];
      if (!is_frame || !elements_.GetElemLocalVector(at, axes)) {
        ++lines_left_;
        continue;
      }
      // By system a line has the axes of the system, which need not lie along it: no vector then
      // says the same.
      Vector3 along = Nodes().Position(element.nodes[1]) - Nodes().Position(element.nodes[0]);
      constexpr double kRounding = 1e-9;
      if (!Normalize(along) || Distance(along, Vector3(axes[0])) > kRounding) {
        ++lines_left_;
        continue;
      }
      lines_.push_back({at, map_.Direction(Vector3(axes[ReferenceIsZ() ? 2 : 1]))});
    }
  }

  bool TurnLines(bool turns) {
    auto& orientations = Pool<tagTEcrd>(session_);
    for (const LineAxis& line : lines_) {
      tagTElem element = elements_.GetAtNU(line.element);
      tagTEcrd record;
      elements_.GetElemCSys(line.element, record);
      record.method = tagTEcrd::kByVector;
      record.reference_vector = Packed(line.reference);
      record.reference_node = 0;
      record.coordinate_system = 0;
      if (!elements_.SetAtNUwCsys(line.element, element, record, 0)) return false;
    }
    if (!turns) return true;
    std::unordered_set<ITR> done;
    for (const LineAxis& line : lines_) done.insert(line.element);
    for (const ITR at : whole_) {
      const ITR item = session_.Owned().Find(code::kEcrd, at);
      if (!item) continue;
      tagTEcrd record = orientations.GetAtNU(item);
      if (!done.contains(at)) {
        record.reference_vector = Packed(map_.Direction(Vector3(record.reference_vector)));
      }
      record.intersection_x = Packed(map_.Direction(Vector3(record.intersection_x)));
      if (!orientations.SetAtNU(item, record)) return false;
    }
    return true;
  }

  /// A length along a direction keeps its length.
  Vector3 OffsetOf(const Vector3& v) const {
    Vector3 image = map_.Direction(v);
    const double length = Length(v);
    return Normalize(image) ? length * image : v;
  }

  bool TurnOffsets() {
    using Numbers = AttributeNumbers<6>;
    const auto get = [](const tagTE1DOffset& record) {
      Numbers numbers;
      for (std::size_t i = 0; i < 3; ++i) {
        numbers[i] = record.offset_a[i];
        numbers[i + 3] = record.offset_b[i];
      }
      return numbers;
    };
    const auto turned = [&](const tagTE1DOffset& record, ITR) {
      Numbers numbers = get(record);
      if (record.csys_type != 0) {  // along the element's own axes, one of which is turned round
        if (!map_.IsMirror()) return numbers;
        const std::size_t axis = ReferenceIsZ() ? 1 : 2;
        for (const std::size_t i : {axis, axis + 3}) {
          if (numbers[i] != 0) numbers[i] = -numbers[i];
        }
        return numbers;
      }
      for (const std::size_t i : {0, 3}) {
        const Vector3 image = OffsetOf({numbers[i], numbers[i + 1], numbers[i + 2]});
        for (int k = 0; k < 3; ++k) numbers[i + static_cast<std::size_t>(k)] = image[k];
      }
      return numbers;
    };
    const auto put = [](tagTE1DOffset& record, const Numbers& numbers) {
      for (std::size_t i = 0; i < 3; ++i) {
        record.offset_a[i] = numbers[i];
        record.offset_b[i] = numbers[i + 3];
      }
    };
    return Regroup<tagTE1DOffset, 6>(
        session_, [&](const tagTE1DOffset&, ITR element) { return IsMoved(element); }, get, turned,
        put);
  }

  // ---- plates, solids, special elements ---------------------------------------------------------

  bool TurnPlates() {
    using Numbers = AttributeNumbers<3>;
    const auto get = [](const tagTE2DMatlCsys& record) {
      const auto& v = record.reference_vector;
      return Numbers{v.x, v.y, v.z};
    };
    const auto concerned = [&](const tagTE2DMatlCsys& record, ITR element) {
      return record.type == tagTE2DMatlCsys::kByVector && IsMoved(element);
    };
    const auto turned = [&](const tagTE2DMatlCsys& record, ITR) {
      const Vector3 image = map_.Direction(Vector3(record.reference_vector));
      return Numbers{image.x, image.y, image.z};
    };
    const auto put = [](tagTE2DMatlCsys& record, const Numbers& n) {
      record.reference_vector = {n[0], n[1], n[2]};
    };
    return Regroup<tagTE2DMatlCsys, 3>(session_, concerned, get, turned, put);
  }

  bool TurnSolids() {
    auto& pool = Pool<tagTE3DMatlCsys>(session_);
    if (pool.IsEmpty()) return true;
    for (const ITR element : whole_) {
      const ITR item = session_.Owned().Find(code::kE3DMatlCsys, element);
      if (!item) continue;
      tagTE3DMatlCsys record = pool.GetAtNU(item);
      Vector3 x = map_.Direction(Vector3(record.x_axis));
      Vector3 y = map_.Direction(Vector3(record.y_axis));
      Vector3 z;
      // What is no right-handed system is an unset record.
      if (!Normalize(x) || !UnitNormal(x, y, z)) continue;
      record.x_axis = Packed(x);
      record.y_axis = Packed(Cross(z, x));
      record.z_axis = Packed(z);
      if (!pool.SetAtNU(item, record)) return false;
    }
    return true;
  }

  bool TurnSpecials() {
    auto& pool = Pool<tagTSprop>(session_);
    if (pool.IsEmpty()) return true;
    for (const ITR element : whole_) {
      const ITR item = session_.Owned().Find(code::kSprop, element);
      if (!item) continue;
      tagTSprop record = pool.GetAtNU(item);
      const bool has_inertia = std::any_of(std::begin(record.inertia), std::end(record.inertia),
                                           [](double part) { return part != 0; });
      if (record.has_offset || record.has_location || has_inertia) ++specials_left_;
      constexpr std::int32_t kByVector = 1;
      if (record.csys_type != kByVector) continue;
      record.reference_vector = Packed(map_.Direction(Vector3(record.reference_vector)));
      if (!pool.SetAtNU(item, record)) return false;
    }
    return true;
  }

  // ---- what stays -------------------------------------------------------------------------------

  template <class T, class Concerns>
  std::int64_t CountRecords(Concerns&& concerns) const {
    auto* pool = session_.GetPool<DPool<T>>(T::kType);
    std::int64_t count = 0;
    for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
      count += concerns(pool->GetAtNU(at)) ? 1 : 0;
    }
    return count;
  }
  template <class Entries>
  bool AnyMoved(const Entries& entries) const {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
      return moved_nodes_.contains(entry.target) || moved_.contains(entry.target);
    });
  }
  bool ListsMoved(const TArray<ITR>& elements) const {
    return std::any_of(elements.begin(), elements.end(), [&](ITR at) { return IsMoved(at); });
  }

  void NoteTheRest(bool turns) {
    if (map_.ChangesLengths()) {
      const auto lists = [&](const auto& record) { return ListsMoved(record.elements); };
      report_.Note("thicknesses and offsets keep their lengths",
                   CountRecords<tagTE2DThick>(lists) + CountRecords<tagTE2DOffset>(lists) +
                       CountRecords<tagTE1DOffset>(lists));
    }
    report_.Note("fields of values keep their numbers",
                 CountRecords<tagTField>([&](const tagTField& field) {
                   return AnyMoved(field.node_values) || AnyMoved(field.element_values);
                 }));
    report_.Note("pieces of carried text (loads, constraints) stay as they are",
                 CountRecords<tagTCarried>([&](const tagTCarried& text) {
                   return AnyMoved(text.node_keys) || AnyMoved(text.element_keys);
                 }));
    report_.Note("mesh sets keep their geometry, which stays where it is",
                 CountRecords<tagTMset>([&](const tagTMset& set) {
                   return set.geometry != 0 && ListsMoved(set.elements);
                 }));
    if (!turns) return;
    report_.Note("material axes of plates by coordinate system: the system stays as it is",
                 CountRecords<tagTE2DMatlCsys>([&](const tagTE2DMatlCsys& record) {
                   return record.type == tagTE2DMatlCsys::kByCoordinateSystem &&
                          ListsMoved(record.elements);
                 }));
    report_.Note("lines keep an orientation by a system, or one that is not of a beam",
                 lines_left_);
    report_.Note("special elements keep their offset, location or inertia", specials_left_);
    auto* assigned = session_.GetPool<DPoolMeshCsys>(tagTMeshCsys::kType);
    if (!assigned || assigned->IsEmpty()) return;
    std::int64_t in_systems = 0;
    for (const ITR node : nodes_.Records()) in_systems += assigned->GetNodeCSysItr(node) != 0;
    report_.Note("nodes stay in the coordinate systems that their mesh sets are assigned to",
                 in_systems);
  }

  CQXDBSession& session_;
  const AffineMap map_;
  ShapeReport& report_;
  const bool tells_;
  DPoolElem& elements_;
  DistinctRecords nodes_;
  std::unordered_set<ITR> moved_nodes_;
  std::vector<ITR> whole_;         ///< elements all of whose nodes move
  std::unordered_set<ITR> moved_;  ///< the same
  std::vector<LineAxis> lines_;
  std::int64_t lines_left_ = 0;
  std::int64_t specials_left_ = 0;
};

// ---- copies -------------------------------------------------------------------------------------

void NoteLeft(const CQXDBSession& session, const std::map<std::uint16_t, std::int64_t>& left,
              ShapeReport& report) {
  for (const auto& [type, count] : left) {
    std::string name = session.GetDataPool(type)->GetAPIName().ToUtf8();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
      return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    report.Note("records of " + name + " tell nothing of the copies", count);
  }
}

}  // namespace

Outcome Transform(CQXDBSession& session, const ShapeParts& parts, const AffineMap& map,
                  ShapeReport& report) {
  return Mover(session, parts, map, report, false, true).Run();
}

Outcome TransformCopies(CQXDBSession& session, const ShapeParts& parts, const AffineMap& map,
                        int copies, SetsOfMade sets, ShapeReport& report) {
  auto& nodes = Pool<tagTNode>(session);
  auto& elements = Pool<tagTElem>(session);
  DistinctRecords originals;
  for (const ITR node : parts.nodes) originals.Add(node);
  for (const ITR element : parts.elements) {
    for (const ITR node : elements.GetAtNU(element).nodes) {
      if (NodeAt(node)) originals.Add(node);
    }
  }
  const auto& of_nodes = originals.Records();
  const auto many = static_cast<std::size_t>(copies);
  NextKey node_keys(nodes), element_keys(elements);
  if (!node_keys.Has(of_nodes.size() * many) || !element_keys.Has(parts.elements.size() * many)) {
    return Failure{"", "", "there are not as many keys left as the copies need",
                   "make fewer, or renumber with: qxdb edit renumber"};
  }
  // By copy, then by original: what is made of one record follows each other only when turned.
  std::vector<std::vector<ITR>> made_nodes(many), made_elements(many);
  for (std::size_t c = 0; c < many; ++c) {
    std::unordered_map<ITR, ITR> copy_of;
    copy_of.reserve(of_nodes.size());
    for (const ITR node : of_nodes) {
      tagTNode copy = nodes.GetAtNU(node);
      copy.key = node_keys.Take();
      const ITR made = nodes.InsertNU(copy);
      if (!made) return RefusedByModel();
      made_nodes[c].push_back(made);
      copy_of.emplace(node, made);
    }
    for (const ITR element : parts.elements) {
      tagTElem copy = elements.GetAtNU(element);
      copy.key = element_keys.Take();
      for (ITR& node : copy.nodes) {
        const auto found = copy_of.find(node);
        if (found != copy_of.end()) node = found->second;
      }
      const ITR made = elements.InsertNU(copy);
      if (!made) return RefusedByModel();
      made_elements[c].push_back(made);
    }
  }
  std::vector<Made> from_nodes, from_elements;
  const auto collect = [&](std::span<const ITR> of, const std::vector<std::vector<ITR>>& made,
                           std::uint16_t type, std::vector<Made>& out) {
    for (std::size_t i = 0; i < of.size(); ++i) {
      for (std::size_t c = 0; c < many; ++c) {
        out.push_back({of[i], made[c][i]});
        report.made.push_back({type, KeyOf(of[i]), KeyOf(made[c][i])});
      }
    }
  };
  collect(of_nodes, made_nodes, code::kNode, from_nodes);
  collect(parts.elements, made_elements, code::kElem, from_elements);
  AttachedPlan plan;
  plan.nodes = from_nodes;
  plan.elements = from_elements;
  plan.sets = sets;
  plan.sides = [](int, const tagTElemSide& of, ITR made, std::vector<tagTElemSide>& out) {
    out.push_back({made, of.side});
  };
  std::map<std::uint16_t, std::int64_t> left;
  if (!PassOn(session, plan, left)) return RefusedByModel();
  NoteLeft(session, left, report);
  AffineMap step = map;
  for (std::size_t c = 0; c < many; ++c, step = step.Then(map)) {
    ShapeReport of_copy;
    const ShapeParts copy{made_nodes[c], made_elements[c]};
    if (Outcome moved = Mover(session, copy, step, of_copy, true, c == 0).Run(); !moved)
      return moved;
    if (c == 0) {  // the same of every copy
      report.notes.insert(report.notes.end(), of_copy.notes.begin(), of_copy.notes.end());
    }
  }
  return {};
}

}  // namespace qx
