#pragma once
// The page as it was bundled when the program was built.

#include <string>
#include <string_view>

namespace qx::viewer {

std::string_view PageHtml();
std::string_view PageScript();
std::string_view PageStyle();

/// A text inside HTML, whatever is in it.
std::string EscapedHtml(std::string_view text);

}  // namespace qx::viewer
