#pragma once
// Bytes as text (RFC 4648, with padding).

#include <string>
#include <string_view>

namespace qx::viewer {

std::string ToBase64(std::string_view bytes);
/// Empty for a text that is none.
std::string FromBase64(std::string_view text);

}  // namespace qx::viewer
