#pragma once
// What the callback interfaces take from the application: types that are its own, declared only,
// and small plain structures that both sides must agree on.
// Threads: values: one at a time for each object.

#include <cstdint>

#include "qx_db/record/values.h"

namespace qx {

class CQXDBSession;
class CQXDocBase;
class CQXUnitCtrl;
struct tagTElem;

// ---- the application's own: the library hands pointers on and never looks inside ----------------

class CDocument;                ///< a document of the application's framework
class CPOHCase;                 ///< a case of post-processing results
class CVResult;                 ///< one result set
class CQXViewBase;              ///< a window that draws a model
class CComboBox;                ///< a drop-down list of the toolkit
struct T_RPT_POST_IMAGE_PARAM;  ///< how the images of a report look

// ---- agreed on ----------------------------------------------------------------------------------

/// A material as another program describes it, in model units. 0 where a number is not known.
struct MATERIAL_PARAM {
  TString<64> name;
  double elastic_modulus = 0;
  double poisson_ratio = 0;
  double density = 0;            ///< mass density
  double thermal_expansion = 0;  ///< per degree
  double conductivity = 0;
  double specific_heat = 0;
  double yield_stress = 0;
};

/// Which materials a list admits. Empty arrays and zeros admit all.
struct T_QX_MATL_FILTER {
  TArray<std::int32_t> types;
  TArray<std::int32_t> sub_types;
  std::int32_t structure = 0;       ///< flag: structural materials, besides those admitted above
  std::int32_t only_structure = 0;  ///< flag: structural materials and no others
};

/// Which properties a list admits. Empty arrays and zeros admit all.
struct T_QX_PROP_FILTER {
  TArray<std::int32_t> types;
  std::int32_t beam_only = 0;  ///< flag
  std::int32_t cfd_only = 0;   ///< flag
};

/// The coordinate system that results of an analysis case are written in.
struct T_QX_RES_OUTCSYS_D {
  std::int32_t kind = 0;      ///< 0 global, 1 the element's, 2 `coordinate_system`
  ITR coordinate_system = 0;  ///< a tagTCord
};

/// A marker: a point with a direction, fixed to a body.
struct T_QX_MARKER_INFO {
  Key key = 0;
  tagTVector3<double> position;  ///< in model length units
  tagTVector3<double> x_axis;
  tagTVector3<double> z_axis;
  ITR body = 0;
};

/// A picture to be saved.
struct T_SAVE_PIC_D {
  TString<256> path;
  std::int32_t width = 0;  ///< in pixels, as is the height
  std::int32_t height = 0;
};

/// Ends of a taper beam and what its section is between them.
struct T_QX_TAPER_D {
  ITR start_property = 0;
  ITR end_property = 0;
  double ratio = 0;  ///< place along the length, 0 at the start, 1 at the end
};

}  // namespace qx
