#pragma once
// The settings of mesh generation. The codes are those of the meshers that the host drives.
// Threads: records are values (TStructBase).

#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// The settings of mesh generation.
struct QXDB_API tagMGInfo final : TRecord<tagMGInfo, code::kMGInfo> {
  Key key = 0;
  std::int32_t dialog = 0;
  std::int32_t method = 0;
  std::int32_t element_size_method = 0;
  double percentage = 0.05;
  double element_length = 0.0;
  std::int32_t mesher_1d = 0;
  std::int32_t mesher_2d = 2;
  std::int32_t mesher_3d = 1;
  std::int32_t element_type_2d = 2;
  std::int32_t element_type_3d = 0;
  std::int32_t optimise_1d = 3;
  std::int32_t optimise_2d = 3;
  std::int32_t optimise_3d = 3;
  double refine_1d = 1.5;
  double refine_2d = 1.0;
  double refine_3d = 1.1;
  std::int32_t high_order = 1;
  std::int32_t project_mid_nodes = 1;
  std::int32_t match_adjacent_faces = 0;
  std::int32_t adaptive_seeding = 0;
  std::int32_t proximity = 0;
  std::int32_t pattern = 1;
  std::int32_t special_faces = 0;
  double pattern_angle_deg = 15.0;
  double pattern_length_ratio = 0.7;
  std::int32_t curvature_sensitivity = 0;
  std::int32_t max_iterations = 0;
  std::int32_t merge = 1;
  double merge_tolerance = 0.00001;
  std::int32_t divisions = 10;
  std::int32_t imprint_type = 0;
  std::int32_t keep_boundary_edges = 1;
  double remove_pattern_angle_deg = 15.0;
  std::int32_t planar_interior = 0;
  std::int32_t planar_edges = 1;
  std::int32_t split_overlaps = 0;
  std::int32_t min_volume_layers_on = 0;
  std::int32_t min_volume_layers = 2;
  double first_layer_height = 0.0;
  double layer_growth = 1.3;
  std::int32_t layers = 3;
  std::int32_t smooth_normals = 1;
  std::int32_t interior_edges = 0;
  std::int32_t optimise_boundary = 1;
  std::int32_t retriangulate = 1;
  std::int32_t layer_surface = 0;
  double refine_limit_2d = 3.0;
  double refine_limit_3d = 3.0;
  std::int32_t interior_faces = 0;
  std::int32_t copy_interior_faces = 1;
  std::int32_t min_level = 6;
  std::int32_t max_level = 10;
  double min_size = 0.0;
  double max_size = 0.0;
  double ridge_angle_deg = 45.0;
  std::int32_t hex_auto_size = 0;
  std::int32_t complete_ridges = 1;
  std::int32_t allow_invalid_elements = 0;
  std::int32_t recover_sharp_angles = 1;
  std::int32_t flat_hexes = 0;
  std::int32_t refine_flag = 1;
  std::int32_t inner_net = 0;
  std::int32_t collapse_method = 1;
  std::int32_t multiple_normals = 0;
  double multiple_normal_angle_deg = 30.0;
  double max_angle_deg = 165.0;
  std::int32_t one_mesh_set = 0;
  std::int32_t skip_meshed = 1;
  std::int32_t user_mesh_set = 0;
  std::int32_t offset_positive = 1;
  std::int32_t internal_mesh = 1;
  std::int32_t auto_imprint = 0;
  TRefArray<code::kGKey> bodies;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagMGInfo);

/// Unit categories, group by group.
using CQXMGInfoUnit = TUnitDescriptor<tagMGInfo, 2>;
extern template class TUnitDescriptor<tagMGInfo, 2>;

}  // namespace qx
