#include "qx_db/record/array_elements.h"

#include <cstddef>

namespace qx {
namespace {

constexpr auto kValue = static_cast<std::int32_t>(MemberKind::kValue);

}  // namespace

const IO_VAR* tagTWeightDOF::GetVarIOInfo() {
  static const IO_VAR vars[] = {
      {u"_DWEIGHT", kValue, 0, 8, 0, nullptr, 0}, {u"_DOF6T1", kValue, 8, 4, 0, nullptr, 0},
      {u"_DOF6T2", kValue, 12, 4, 0, nullptr, 0}, {u"_DOF6T3", kValue, 16, 4, 0, nullptr, 0},
      {u"_DOF6R1", kValue, 20, 4, 0, nullptr, 0}, {u"_DOF6R2", kValue, 24, 4, 0, nullptr, 0},
      {u"_DOF6R3", kValue, 28, 4, 0, nullptr, 0}, {},
  };
  static_assert(offsetof(tagTWeightDOF, dof) == 8);
  return vars;
}

const IO_VAR* tagTSelectedResult::GetVarIOInfo() {
  static const IO_VAR vars[] = {
      {u"_ANALNAME", kValue, 0, 128, 0, nullptr, 0},
      {u"_STEPNAME", kValue, 128, 128, 0, nullptr, 0},
      {u"_FACTOR", kValue, 256, 8, 0, nullptr, 0},
      {},
  };
  static_assert(offsetof(tagTSelectedResult, factor) == 256);
  return vars;
}

}  // namespace qx
