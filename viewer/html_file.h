#pragma once
// The page and its data in one file, which works without a server or a network.

#include <cstdint>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "viewer/source.h"

namespace qx::viewer {

struct HtmlOptions {
  /// Solids up to this number go into the file whole, so that it can cut them.
  std::uint32_t most_solids = 2'000'000;
  /// The steps of the history go in, latest first, as long as they take no more than this.
  std::size_t step_bytes = std::size_t{8} << 20;
  /// The usual measures and fields go in as long as they take no more than this.
  std::size_t value_bytes = std::size_t{8} << 20;
};

/// What a page holds, and what it had to leave out, in words for the user.
struct HtmlReport {
  std::uint64_t bytes = 0;
  std::size_t surface_corners = 0;
  std::size_t base_bytes = 0;  ///< compressed
  std::vector<std::string> left_out;
};

Result<std::string> HtmlPage(Source& source, const HtmlOptions& options, HtmlReport& report);

}  // namespace qx::viewer
