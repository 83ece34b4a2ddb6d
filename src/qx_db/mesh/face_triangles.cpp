#include "qx_db/mesh/face_triangles.h"

namespace qx {
namespace {

constexpr NodeTriangle kTriangle[] = {{0, 1, 2}};
constexpr NodeTriangle kQuadrilateral[] = {{0, 1, 2}, {0, 2, 3}};

constexpr NodeTriangle kFace6[] = {{0, 3, 5}, {1, 4, 3}, {2, 5, 4}, {3, 4, 5}};
constexpr NodeTriangle kFace8[] = {{0, 4, 7}, {1, 5, 4}, {2, 6, 5},
                                   {3, 7, 6}, {4, 5, 7}, {6, 7, 5}};

constexpr NodeTriangle kElement5[] = {{0, 3, 5}, {3, 4, 5}, {3, 1, 4}, {5, 4, 2}};
constexpr NodeTriangle kElement7[] = {{0, 4, 7}, {4, 1, 5}, {5, 2, 6},
                                      {6, 3, 7}, {4, 5, 7}, {5, 6, 7}};

struct Entry {
  std::int32_t what;
  std::span<const NodeTriangle> triangles;
};

constexpr Entry kByNodes[] = {{3, kTriangle}, {4, kQuadrilateral}, {6, kFace6}, {8, kFace8}};
constexpr Entry kByCode[] = {{4, kTriangle}, {5, kElement5}, {6, kQuadrilateral}, {7, kElement7}};

std::span<const NodeTriangle> Look(std::span<const Entry> table, std::int32_t what) {
  for (const Entry& entry : table) {
    if (entry.what == what) return entry.triangles;
  }
  return {};
}

}  // namespace

std::span<const NodeTriangle> TrianglesOfFace(std::int32_t nodes) { return Look(kByNodes, nodes); }

std::span<const NodeTriangle> TrianglesOfElement(std::int32_t code) { return Look(kByCode, code); }

}  // namespace qx
