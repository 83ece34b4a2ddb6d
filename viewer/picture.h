#pragma once
// Pictures of a model in PNG files, for reports: the page, drawn by a browser that shows no window.

#include <cstdint>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "viewer/source.h"

namespace qx::viewer {

struct PictureOptions {
  int width = 1600, height = 1000;  ///< of the whole, in pixels
  /// "iso", "front", "back", "left", "right", "top", "bottom"; several share the picture.
  std::vector<std::string> views{"iso"};
  /// "none", "set", "property", "material", "kind", "part", or what PageData::Values knows; empty
  /// for what tells most: sets if they list most elements, else properties, else kinds.
  std::string color;
  std::string palette;        ///< of a range of colours: "viridis" unless said
  std::vector<double> range;  ///< two numbers, or none for what there is
  /// What is seen: mesh sets by name; all when there are none.
  std::vector<std::string> sets;
  /// Cut away what lies above this place on an axis, "x", "y" or "z", 0 to 1 of the model's extent.
  std::string cut_axis;
  double cut_at = 0.5;
  std::int64_t step = Source::kNow;  ///< the state shown
  bool changes = false;              ///< mark what that step changed
  bool findings = false;             ///< mark what is wrong
  bool no_edges = false;
  bool dark = false;
  bool perspective = false;
};

/// Draws a model file into a PNG file. Takes a browser that HeadlessBrowser finds.
Outcome DrawPicture(const std::string& model, const PictureOptions& options,
                    const std::string& png);

}  // namespace qx::viewer
