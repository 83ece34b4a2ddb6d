#pragma once
// The structures that array members are made of: plain, packed, without a key.

#include "qx_db/record/schema.h"

namespace qx {

#pragma pack(push, 4)

/// A side of an element. Whether the number names a face or an edge is not stored.
struct tagTElemSide {
  ITR element = 0;
  std::int32_t side = 0;
  friend bool operator==(const tagTElemSide&, const tagTElemSide&) = default;
};

/// A weight and the degrees of freedom it applies to.
struct QXDB_API tagTWeightDOF {
  double weight = 0;
  std::int32_t dof[6]{};  ///< flags T1 to T3, R1 to R3

  static const IO_VAR* GetVarIOInfo();
};

/// A pair of a function table.
struct tagTFuncValue {
  double variable = 0;
  double value = 0;
};

/// One function of a 3D function and the value of the variable it stands for.
struct tagTFunc3DSet {
  double variable = 0;
  ITR function = 0;  ///< a tagTFunc
};

/// The thickness of a gauging shell at a distance.
struct tagTGaugingThick {
  double distance = 0;
  double thickness = 0;
};

/// A result and its factor in a combination.
struct QXDB_API tagTSelectedResult {
  TString<64> analysis;
  TString<64> step;
  double factor = 0;

  static const IO_VAR* GetVarIOInfo();
};

#pragma pack(pop)

static_assert(sizeof(tagTElemSide) == 12 && sizeof(tagTWeightDOF) == 32);
static_assert(sizeof(tagTFuncValue) == 16 && sizeof(tagTFunc3DSet) == 16);
static_assert(sizeof(tagTSelectedResult) == 264);

namespace detail {
template <>
struct MemberTraits<tagTFuncValue> : MemberTraits<double> {};
template <>
struct MemberTraits<tagTGaugingThick> : MemberTraits<double> {};
}  // namespace detail

}  // namespace qx
