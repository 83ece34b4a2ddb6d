#include "viewer/assets.h"

#include "viewer_assets.h"  // where the build put the bundle

// The assembler takes the files in as they are, which costs no compile time.
#define QX_ASSET(name, file)               \
  __asm__(                                 \
      ".section .rodata\n"                 \
      ".global qx_asset_" #name            \
      "\n"                                 \
      "qx_asset_" #name                    \
      ":\n"                                \
      ".incbin \"" file                    \
      "\"\n"                               \
      ".global qx_asset_" #name            \
      "_end\n"                             \
      "qx_asset_" #name                    \
      "_end:\n"                            \
      ".previous\n");                      \
  extern "C" const char qx_asset_##name[]; \
  extern "C" const char qx_asset_##name##_end[];

QX_ASSET(html, QX_ASSET_HTML)
QX_ASSET(script, QX_ASSET_SCRIPT)
QX_ASSET(style, QX_ASSET_STYLE)

namespace qx::viewer {

std::string_view PageHtml() { return {qx_asset_html, qx_asset_html_end}; }
std::string_view PageScript() { return {qx_asset_script, qx_asset_script_end}; }
std::string_view PageStyle() { return {qx_asset_style, qx_asset_style_end}; }

std::string EscapedHtml(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace qx::viewer
