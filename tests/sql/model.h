#pragma once
// Models that tests ask.

#include <random>

#include "qx_db/qx_db.h"

#include "host/session.h"

namespace qx::sql {

/// A block of cells by cells by cells hexahedra of edge 1, node keys from 1 on in rows along x; two
/// properties in turn, a set "lower" of the lower half under a set "all", and two lone nodes.
inline void FillBlock(CQXDBSession& session, int cells) {
  CTransaction transaction(&session);
  transaction.Begin(u"block");
  auto& nodes = Pool<tagTNode>(session);
  auto& elements = Pool<tagTElem>(session);
  auto& properties = *session.GetPool<DPoolProp>(code::kProp);
  const int n = cells + 1;
  std::vector<ITR> at;
  for (int i = 0; i < n * n * n + 2; ++i) {
    tagTNode node;
    node.key = i + 1;
    node.position = {double(i % n), double(i / n % n), double(i / n / n)};
    at.push_back(nodes.InsertNU(node));
  }
  ITR property[2];
  for (int i = 0; i < 2; ++i) {
    tagTProp record;
    record.key = i + 1;
    record.name.Set(i ? u"steel" : u"wood");
    record.type = tagTProp::kSolid;
    property[i] = properties.InsertNU(record);
  }
  tagTMset all, lower;
  all.key = 2;
  all.name.Set(u"all");
  lower.key = 3;
  lower.name.Set(u"lower");
  lower.parent_key = 2;
  for (int i = 0; i < cells * cells * cells; ++i) {
    const int x = i % cells, y = i / cells % cells, z = i / cells / cells;
    const auto node = [&](int a, int b, int c) {
      return at[static_cast<std::size_t>(((z + c) * n + y + b) * n + x + a)];
    };
    tagTElem element;
    element.key = i + 1;
    element.type = 14;  // 8-node hexahedron
    element.property = property[i % 2];
    element.nodes = {node(0, 0, 0), node(1, 0, 0), node(1, 1, 0), node(0, 1, 0),
                     node(0, 0, 1), node(1, 0, 1), node(1, 1, 1), node(0, 1, 1)};
    const ITR item = elements.InsertNU(element);
    (2 * z < cells ? lower : all).elements.Add(item);
  }
  Pool<tagTMset>(session).InsertNU(all);
  Pool<tagTMset>(session).InsertNU(lower);
  transaction.Commit();
}

}  // namespace qx::sql
