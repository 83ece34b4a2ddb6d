#include "exchange/vtk/vtu_format.h"

#include "exchange/vtk/vtu_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".vtu"};

constexpr FormatOption kWriteOptions[] = {
    {"encoding", "base64, raw, inline, ascii", "how arrays are stored"},
};

bool LooksLike(std::string_view head) {
  return head.find("<VTKFile ") != std::string_view::npos &&
         head.find("UnstructuredGrid") != std::string_view::npos;
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  const std::string_view name = ValueOf(options.values, kWriteOptions, "encoding");
  const VtuEncoding encoding = name == "raw"      ? VtuEncoding::kAppendedRaw
                               : name == "inline" ? VtuEncoding::kInlineBase64
                               : name == "ascii"  ? VtuEncoding::kAscii
                                                  : VtuEncoding::kAppendedBase64;
  return WriteVtu(session, path, encoding, {}, &report, options.progress);
}

}  // namespace

Format VtuFormat() {
  Format format;
  format.name = "vtu";
  format.title = "VTK XML unstructured grid";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets;
  format.looks_like = LooksLike;
  format.write = Write;
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
