#pragma once
// The records of the finite-element mesh: nodes, elements, the orientation of line elements,
// active element sets and element sides.
// Threads: records are values (TStructBase).

#include <optional>
#include <vector>

#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

class DBG_NODE;
struct DBG_ELEM;
struct DBG_ERCD;
struct DBG_ACTIVEELEMSET;

#pragma pack(push, 4)

/// A mesh node.
struct QXDB_API tagTNode final : TRecord<tagTNode, code::kNode> {
  Key key = 0;
  tagTVector3<double> position;  ///< in model length units
  std::uint32_t flags = 0;       ///< state bits, set by the pools

  /// Copies `length` bytes of the members after the vptr to `buffer`; returns 1.
  virtual int REad(char* buffer, int length) const;
  /// Towards the gateway (`out`) makes the value present with this position; from it takes the
  /// position of a present value and leaves the node alone otherwise. Returns true.
  bool api_convert_data(CQXDBSession* session, DBG_NODE* value, bool out);
};

/// A finite element.
struct QXDB_API tagTElem final : TRecord<tagTElem, code::kElem> {
  Key key = 0;
  std::int32_t type = 0;         ///< element type code, see app/topology_table.h
  TRefArray<code::kNode> nodes;  ///< in connectivity order
  TRef<code::kProp> property;    ///< a record of the host's property pool
  std::uint32_t flags = 0;       ///< state bits, set by the pools
  std::int32_t overlap = 0;      ///< overlap marker

  /// Towards the gateway (`out`) sets type, node keys (0 for none) and, when there is one, the
  /// property key. From it takes the parts that are present; an entry whose key is unknown keeps
  /// its node, and an absent property key is looked up as key 0. Returns true.
  bool api_convert_data(CQXDBSession* session, DBG_ELEM* value, bool out);
};

/// How a line element is turned about its axis. Keyed by the element's key.
struct QXDB_API tagTEcrd final : TRecord<tagTEcrd, code::kEcrd> {
  /// Values of `method`.
  static constexpr std::int32_t kByNode = 0;
  static constexpr std::int32_t kByVector = 1;
  static constexpr std::int32_t kByBetaAngle = 2;
  static constexpr std::int32_t kByCoordinateSystem = 3;

  tagTEcrd();

  Key key = 0;
  std::int32_t element_type = 0;
  std::int32_t method = 0;  ///< default by edition: vector, or beta angle in A and C
  TRef<code::kNode> reference_node;
  tagTVector3<double> reference_vector{0, 0, 1};
  double beta_angle_deg = 0;  ///< default by edition: 0, or 90 in A and C
  TRef<code::kCord> coordinate_system;
  tagTVector3<double> intersection_x;  ///< direction, used by interface elements

  /// As for an element: every part towards the gateway, the present parts from it.
  bool api_convert_data(CQXDBSession* session, DBG_ERCD* value, bool out);
};

/// A named set of elements.
struct QXDB_API tagTActiveElemSet final : TRecord<tagTActiveElemSet, code::kActiveElemSet> {
  Key key = 0;
  TString<64> name;
  TRefArray<code::kElem> elements;

  bool api_convert_data(CQXDBSession* session, DBG_ACTIVEELEMSET* value, bool out);
};

/// An element side, given by the nodes that bound it.
struct QXDB_API tagTESid final : TRecord<tagTESid, code::kESid> {
  Key key = 0;
  TRefArray<code::kNode> nodes;
};

#pragma pack(pop)

static_assert(sizeof(tagTNode) == 40 && alignof(tagTNode) == 4);
static_assert(sizeof(tagTElem) == 48 && alignof(tagTElem) == 4);

QX_DECLARE_RECORD(tagTNode);
QX_DECLARE_RECORD(tagTElem);
QX_DECLARE_RECORD(tagTEcrd);
QX_DECLARE_RECORD(tagTActiveElemSet);
QX_DECLARE_RECORD(tagTESid);

/// Unit categories, group by group.
using CQXNodeUnit = TUnitDescriptor<tagTNode, 1>;
using CQXEcrdUnit = TUnitDescriptor<tagTEcrd, 1>;
extern template class TUnitDescriptor<tagTNode, 1>;
extern template class TUnitDescriptor<tagTEcrd, 1>;

/// A node's position as a plain gateway value that may be absent.
class DBG_NODE {
 public:
  bool Present() const { return position_.has_value(); }
  double X() const { return position_ ? position_->x : 0.0; }
  double Y() const { return position_ ? position_->y : 0.0; }
  double Z() const { return position_ ? position_->z : 0.0; }
  /// Setting one coordinate of an absent value makes it present with the others zero.
  void SetX(double x) { Engage().x = x; }
  void SetY(double y) { Engage().y = y; }
  void SetZ(double z) { Engage().z = z; }

 private:
  tagTVector3<double>& Engage() {
    if (!position_) position_.emplace();
    return *position_;
  }
  std::optional<tagTVector3<double>> position_;
};

/// An element as a plain gateway value; each part may be absent.
struct DBG_ELEM {
  std::optional<std::int32_t> type;
  std::optional<std::vector<Key>> node_keys;
  std::optional<Key> property_key;
};

/// An orientation record and an active element set as plain gateway values.
struct DBG_ERCD {
  std::optional<std::int32_t> element_type;
  std::optional<std::int32_t> method;
  std::optional<Key> reference_node_key;
  std::optional<tagTVector3<double>> reference_vector;
  std::optional<double> beta_angle_deg;
  std::optional<Key> coordinate_system_key;
  std::optional<tagTVector3<double>> intersection_x;
};
struct DBG_ACTIVEELEMSET {
  std::optional<CString> name;
  std::optional<std::vector<Key>> element_keys;
};

}  // namespace qx
