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
  /// Measures and fields that go in; without any, the usual measures as far as they take no more
  /// than `value_bytes`.
  std::vector<std::string> values;
  std::size_t value_bytes = std::size_t{8} << 20;
  std::string scene;                 ///< what to show, as JSON; empty for the page with its panels
  std::int64_t step = Source::kNow;  ///< the state that is the page's present
  bool with_changes = false;         ///< what the step before that state changed
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
