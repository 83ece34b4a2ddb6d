#pragma once
// Says in a picture who drew it.

#include <string>

namespace qx::viewer {

/// A PNG file with a text chunk "Software" that names us behind its header (chunk tEXt of the
/// format), so that the next picture may take its place unasked. What is no PNG file comes
/// back as it is.
std::string MarkedPng(std::string png);

}  // namespace qx::viewer
