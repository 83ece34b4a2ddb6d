#include "qx_db/model/cad_keys.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

namespace qx {
namespace {

/// Enough of a file's name that the body's number still fits behind it.
std::u16string ObjectName(const std::string& name) {
  constexpr std::size_t kMostUnits = 50;
  std::u16string text = Utf16(name);
  if (text.size() > kMostUnits) text.resize(kMostUnits);
  return text + u":";
}

/// Adds keys under rising numbers.
class KeyWriter {
 public:
  KeyWriter(CQXDBSession& session, std::int32_t instance)
      : keys_(Pool<tagTGKey>(session)), instance_(instance) {}

  ITR Add(std::int32_t type, int number, int body, ITR geometry) {
    tagTGKey key;
    key.key = keys_.Set().GetFreeKey();
    key.instance = instance_;
    key.body = body;
    key.SetItem(type, number);
    key.geometry = geometry;
    return keys_.InsertNU(key);
  }

 private:
  PoolOf<tagTGKey>::type& keys_;
  std::int32_t instance_;
};

constexpr int kMostItems = 0xFFFFFF;  // what the number in a geometry key holds

std::int32_t NextInstance(const CQXDBSession& session) {
  std::int32_t last = 0;
  auto& keys = Pool<tagTGKey>(session);
  for (ITR pos = keys.GetHeadPosition(); pos;) {
    last = std::max(last, keys.GetNextNU(pos).instance);
  }
  return last + 1;
}

}  // namespace

Result<CadInstance> AddCadGeometry(CQXDBSession& session, const ICADSession& cad,
                                   const std::string& name) {
  const CadTopology& topology = cad.GetTopology();
  if (cad.GetEdgeCount() > kMostItems) {
    return Failure{name, "", fmt::format("has more than {} edges", kMostItems), "split the part"};
  }
  CadInstance added;
  added.number = NextInstance(session);
  CTransaction transaction(&session);
  transaction.Begin(qxLoadText("IDS_QX_TRANS_IMPORT_GEOMETRY").c_str());
  auto& objects = Pool<tagTGeom>(session);
  KeyWriter writer(session, added.number);
  std::map<int, ITR> object_of;  // 0 for edges and faces without a body
  const auto object = [&](int body) {
    ITR& itr = object_of[body];
    if (itr == 0) {
      tagTGeom geometry;
      geometry.key = objects.Set().GetFreeKey();
      geometry.name.Set(ObjectName(name) + Utf16(std::to_string(body)));
      geometry.item_handle = body;
      itr = objects.InsertNU(geometry);
    }
    return itr;
  };
  for (int body = 1; body <= static_cast<int>(topology.bodies.size()); ++body) {
    added.bodies[body] = writer.Add(tagTGKey::kBody, body, body, object(body));
  }
  for (const CadFace& face : topology.faces) {
    added.faces[face.number] =
        writer.Add(tagTGKey::kFace, face.number, face.body, object(face.body));
  }
  for (int edge = 1; edge <= cad.GetEdgeCount(); ++edge) {
    const int body = topology.edge_bodies[static_cast<std::size_t>(edge - 1)];
    added.edges[edge] = writer.Add(tagTGKey::kEdge, edge, body, object(body));
  }
  if (!transaction.Commit()) {
    return Failure{name, "", "the model refused the geometry", "see the message above"};
  }
  return added;
}

Result<CadInstance> FindCadGeometry(const CQXDBSession& session, const ICADSession& cad,
                                    const std::string& name) {
  const std::u16string prefix = ObjectName(name);
  auto& keys = Pool<tagTGKey>(session);
  auto& objects = Pool<tagTGeom>(session);
  CadInstance found;
  for (ITR pos = keys.GetHeadPosition(); pos;) {
    const ITR at = pos;
    const tagTGKey& key = keys.GetNextNU(pos);
    if (key.geometry == 0) continue;
    const auto& object_name = objects.GetAtNU(key.geometry).name;
    const bool same = object_name.View().starts_with(prefix) &&
                      object_name.View().find(u':', prefix.size()) == std::u16string_view::npos;
    if (!same || key.instance < found.number) continue;
    if (key.instance > found.number) found = {key.instance, {}, {}, {}};
    auto* items = key.ItemType() == tagTGKey::kBody   ? &found.bodies
                  : key.ItemType() == tagTGKey::kFace ? &found.faces
                  : key.ItemType() == tagTGKey::kEdge ? &found.edges
                                                      : nullptr;
    if (items) (*items)[key.ItemNumber()] = at;
  }
  if (found.number == 0) {
    return Failure{name, "", "its geometry is not in the model", "bring it in first"};
  }
  const bool fits = std::all_of(found.edges.begin(), found.edges.end(),
                                [&](const auto& edge) { return cad.HasEdge(edge.first); });
  if (!fits || found.edges.size() != static_cast<std::size_t>(cad.GetEdgeCount())) {
    return Failure{name, "", "has other edges than when it was brought into the model",
                   "bring it in again"};
  }
  return found;
}

}  // namespace qx
