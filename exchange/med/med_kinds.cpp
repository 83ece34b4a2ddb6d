#include "exchange/med/med_kinds.h"

#include <algorithm>
#include <iterator>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

using namespace element;

// The library's documentation, "Connectivités", gives edges by their corners and middles, and faces
// that look outward by their edges. The first face of every solid looks outward by the order of its
// nodes, which those of the model do not: solids are turned over. Middles of edges follow the
// corners, around the lower face, around the upper one, then upright.
constexpr std::int8_t kTet10Order[] = {0, 2, 1, 3, 6, 5, 4, 7, 9, 8};
constexpr std::int8_t kPyramid13Order[] = {0, 3, 2, 1, 4, 8, 7, 6, 5, 9, 12, 11, 10};
constexpr std::int8_t kWedge15Order[] = {0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13};
constexpr std::int8_t kHex20Order[] = {0, 3, 2,  1,  4,  7,  6,  5,  11, 10,
                                       9, 8, 15, 14, 13, 12, 16, 19, 18, 17};

constexpr MedKind kKinds[] = {
    {"PO1", 1, 1, kPoint},
    {"SE2", 102, 2, kLine2},
    {"SE3", 103, 3, kLine3},
    {"TR3", 203, 3, kTri3},
    {"TR6", 206, 6, kTri6},
    {"QU4", 204, 4, kQuad4},
    {"QU8", 208, 8, kQuad8},
    {"TE4", 304, 4, kTet4, kTet10Order},
    {"T10", 310, 10, kTet10, kTet10Order},
    {"PY5", 305, 5, kPyramid5, kPyramid13Order},
    {"P13", 313, 13, kPyramid13, kPyramid13Order},
    {"PE6", 306, 6, kWedge6, kWedge15Order},
    {"P15", 315, 15, kWedge15, kWedge15Order},
    {"HE8", 308, 8, kHex8, kHex20Order},
    {"H20", 320, 20, kHex20, kHex20Order},
    {"SE4", 104, 4, kLine2, nullptr, true},
    {"TR7", 207, 7, kTri6, nullptr, true},
    {"QU9", 209, 9, kQuad8, nullptr, true},
    {"P18", 318, 18, kWedge15, kWedge15Order, true},
    {"H27", 327, 27, kHex20, kHex20Order, true},
};

}  // namespace

std::optional<MedKind> FindMedKind(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [&](const MedKind& kind) { return kind.name == name; });
  return found == std::end(kKinds) ? std::nullopt : std::optional(*found);
}

const MedKind& MedKindOf(std::int32_t code) { return kKinds[code - 1]; }

}  // namespace qx::exchange
