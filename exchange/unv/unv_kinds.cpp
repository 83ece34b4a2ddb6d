#include "exchange/unv/unv_kinds.h"

#include <iterator>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

using namespace element;

// Around each face of corners in turn, those between them in their place; edges across in between.
constexpr std::int8_t kLine3Order[] = {0, 2, 1};
constexpr std::int8_t kTri6Order[] = {0, 3, 1, 4, 2, 5};
constexpr std::int8_t kQuad8Order[] = {0, 4, 1, 5, 2, 6, 3, 7};
constexpr std::int8_t kTet10Order[] = {0, 4, 1, 5, 2, 6, 7, 8, 9, 3};
constexpr std::int8_t kWedge15Order[] = {0, 6, 1, 7, 2, 8, 12, 13, 14, 3, 9, 4, 10, 5, 11};
constexpr std::int8_t kHex20Order[] = {0,  8,  1, 9,  2, 10, 3, 11, 16, 17,
                                       18, 19, 4, 12, 5, 13, 6, 14, 7,  15};

struct Kind {
  std::int32_t code;
  std::int32_t descriptor;
  const std::int8_t* order = nullptr;
};
constexpr Kind kKinds[] = {
    {kPoint, 161},               // lumped mass
    {kLine2, 21},                // linear beam
    {kLine3, 24, kLine3Order},   // parabolic beam
    {kTri3, 91},                 // thin shell
    {kTri6, 92, kTri6Order},     //
    {kQuad4, 94},                //
    {kQuad8, 95, kQuad8Order},   //
    {kTet4, 111},                // solid
    {kTet10, 118, kTet10Order},  //
    {kPyramid5, 0},              //
    {kPyramid13, 0},             //
    {kWedge6, 112},              //
    {kWedge15, 113, kWedge15Order},
    {kHex8, 115},
    {kHex20, 116, kHex20Order},
};

/// Surfaces of three nodes a side: of four when they are cubic.
bool IsCubicTriangle(std::int64_t descriptor) {
  return descriptor > 40 && descriptor < 100 && descriptor % 10 == 3;
}

struct Row {
  std::int32_t nodes;
  std::int32_t code;
};
template <std::size_t n>
std::optional<UnvKind> Find(const Row (&rows)[n], std::int64_t nodes) {
  for (const Row& row : rows) {
    if (row.nodes == nodes) return UnvKind{row.code, FindElementType(row.code)->nodes != nodes};
  }
  return std::nullopt;
}

}  // namespace

std::optional<UnvKind> FindUnvKind(std::int64_t descriptor, std::int64_t nodes) {
  constexpr Row kLines[] = {{2, kLine2}, {3, kLine3}};
  constexpr Row kSurfaces[] = {{3, kTri3}, {6, kTri6}, {4, kQuad4}, {8, kQuad8}, {9, kQuad8}};
  constexpr Row kSolids[] = {{4, kTet4},     {10, kTet10}, {6, kWedge6},
                             {15, kWedge15}, {8, kHex8},   {20, kHex20}};
  const auto is_from = [&](std::int64_t first, std::int64_t last) {
    return descriptor >= first && descriptor <= last;
  };
  if (descriptor == 161 && nodes == 1) return UnvKind{kPoint};
  if (descriptor == 11 || is_from(21, 24) || is_from(31, 32) || is_from(171, 172)) {
    return Find(kLines, nodes);
  }
  if (IsCubicTriangle(descriptor)) return std::nullopt;
  if (is_from(41, 99) || descriptor == 300) return Find(kSurfaces, nodes);
  if (is_from(101, 118)) return Find(kSolids, nodes);
  return std::nullopt;
}

bool IsUnvBeam(std::int64_t descriptor) {
  return descriptor == 11 || (descriptor >= 21 && descriptor <= 24);
}

std::int32_t UnvDescriptorOf(std::int32_t code) { return kKinds[code - 1].descriptor; }

const std::int8_t* UnvOrderOf(std::int32_t code) { return kKinds[code - 1].order; }

}  // namespace qx::exchange
