#pragma once
// The structures that array members are made of: plain, packed, without a key.
// Threads: records are values (TStructBase).

#include "qx_db/record/schema.h"

namespace qx {

#pragma pack(push, 4)

/// A side of an element. Whether the number names a face or an edge is not stored.
struct QXDB_API tagTElemSide {
  TRef<code::kElem> element;
  std::int32_t side = 0;
  friend bool operator==(const tagTElemSide&, const tagTElemSide&) = default;

  static const ElementSchema& GetSchema();
};

/// A weight and the degrees of freedom it applies to.
struct QXDB_API tagTWeightDOF {
  double weight = 0;
  std::int32_t dof[6]{};  ///< flags T1 to T3, R1 to R3

  static const ElementSchema& GetSchema();
  static const IO_VAR* GetVarIOInfo() { return GetSchema().IoVars(); }
};

/// A pair of a function table.
struct QXDB_API tagTFuncValue {
  double variable = 0;
  double value = 0;

  static const ElementSchema& GetSchema();
};

/// One function of a 3D function and the value of the variable it stands for.
struct QXDB_API tagTFunc3DSet {
  double variable = 0;
  TRef<code::kFunc> function;

  static const ElementSchema& GetSchema();
  static const IO_VAR* GetVarIOInfo() { return GetSchema().IoVars(); }
};

/// The thickness of a gauging shell at a distance.
struct QXDB_API tagTGaugingThick {
  double distance = 0;
  double thickness = 0;

  static const ElementSchema& GetSchema();
};

/// A result and its factor in a combination.
struct QXDB_API tagTSelectedResult {
  TString<64> analysis;
  TString<64> step;
  double factor = 0;

  static const ElementSchema& GetSchema();
  static const IO_VAR* GetVarIOInfo() { return GetSchema().IoVars(); }
};

#pragma pack(pop)

static_assert(sizeof(tagTElemSide) == 12 && sizeof(tagTWeightDOF) == 32);
static_assert(sizeof(tagTFuncValue) == 16 && sizeof(tagTFunc3DSet) == 16);
static_assert(sizeof(tagTSelectedResult) == 264);

}  // namespace qx
