#include "exchange/vtk/vtu_format.h"

#include "exchange/vtk/vtu_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".vtu"};

constexpr FormatOption kWriteOptions[] = {
    {"encoding", "base64, raw, inline, ascii", "how arrays are stored"},
};

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
  format.write = Write;
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
