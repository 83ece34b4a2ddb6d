#pragma once
// Every record type of the library.
// Threads: any; the tables never change.

#include "qx_db/record/analysis_records.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/geometry_records.h"
#include "qx_db/record/mesh_records.h"
#include "qx_db/record/mesh_settings_record.h"
#include "qx_db/record/set_records.h"

/// Calls X(type) for every record type, in the order of their codes.
// clang-format off
#define QX_FOR_EACH_RECORD(X) \
  X(tagTCord) X(tagTNode) X(tagTElem) X(tagTMset) X(tagTFunc) X(tagTGeom) X(tagTGKey) \
  X(tagTSzct) X(tagTInfo) X(tagTCurve) X(tagTSprs) X(tagTGset) X(tagTBset) X(tagTLset) \
  X(tagTDset) X(tagTTset) X(tagTWrkPl) X(tagTGrid) X(tagTDatum) X(tagTFRset) X(tagTEcrd) \
  X(tagTDefSize) X(tagTMeshCsys) X(tagTPropCtrl) X(tagTE1DOffset) X(tagTE1DRelease) \
  X(tagTE2DThick) X(tagTE2DOffset) X(tagTE2DMatlCsys) X(tagTSprop) X(tagTTTset) X(tagTCFDset) \
  X(tagTOpti) X(tagTGElemHead) X(tagTE2DRelease) X(tagTFunc3D) X(tagTViewPoint) X(tagTLdfs) \
  X(tagTE3DMatlCsys) X(tagTE3DScaleFac) X(tagTCFDPset) X(tagTEset) X(tagTTEset) X(tagTNvok) \
  X(tagTEvok) X(tagTFQuan) X(tagTRegion) X(tagMGInfo) X(tagTPUnit) X(tagTESid) X(tagTLyct) \
  X(tagTPFlow) X(tagTStlz) X(tagPOHVCase) X(tagTPink) X(tagTRtcb) X(tagTE2DSatUnsat) \
  X(tagTE3DSatUnsat) X(tagTE2DAutoTemp) X(tagTE3DAutoTemp) X(tagTActiveElemSet) X(tagTGElem)
// clang-format on
