#include "exchange/vtk/vtk_formats.h"

#include "exchange/vtk/vtk_reader.h"
#include "exchange/vtk/vtu_reader.h"
#include "exchange/vtk/vtu_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kVtuExtensions[] = {".vtu"};
constexpr std::string_view kPvtuExtensions[] = {".pvtu"};
constexpr std::string_view kVtkExtensions[] = {".vtk"};

constexpr FormatOption kWriteOptions[] = {
    {"encoding", "base64, raw, inline, ascii", "how arrays are stored"},
    {"compression", "none, zlib, lz4", "how they are packed; text never is"},
};

/// Our own notes stand before the root and may be long.
bool LooksLikeVtu(std::string_view head) {
  return head.find("<VTKFile") != head.npos || head.find("<?qxdb note=") != head.npos;
}
bool LooksLikePvtu(std::string_view head) {
  return LooksLikeVtu(head) && head.find("\"PUnstructuredGrid\"") != head.npos;
}
bool LooksLikeVtk(std::string_view head) { return head.starts_with("# vtk DataFile"); }

bool IsOwnVtu(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && LooksLikeVtu(*head) && head->find("<?qxdb ") != std::string::npos;
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  const std::string_view name = ValueOf(options.values, kWriteOptions, "encoding");
  const VtuEncoding encoding = name == "raw"      ? VtuEncoding::kAppendedRaw
                               : name == "inline" ? VtuEncoding::kInlineBase64
                               : name == "ascii"  ? VtuEncoding::kAscii
                                                  : VtuEncoding::kAppendedBase64;
  const std::string_view packed = ValueOf(options.values, kWriteOptions, "compression");
  const VtuCompression compression = packed == "zlib"  ? VtuCompression::kZlib
                                     : packed == "lz4" ? VtuCompression::kLz4
                                                       : VtuCompression::kNone;
  return WriteVtu(session, path, encoding, {}, &report, options.progress, compression);
}

}  // namespace

Format VtuFormat() {
  Format format;
  format.name = "vtu";
  format.title = "VTK XML unstructured grid";
  format.extensions = kVtuExtensions;
  format.capabilities =
      capability::kElements | capability::kSets | capability::kFields | capability::kUnits;
  format.looks_like = LooksLikeVtu;
  format.is_own = IsOwnVtu;
  format.read = ReadVtu;
  format.write = Write;
  format.read_options = VtuReadOptions();
  format.write_options = kWriteOptions;
  return format;
}

Format PvtuFormat() {
  Format format;
  format.name = "pvtu";
  format.title = "VTK XML unstructured grid in pieces";
  format.extensions = kPvtuExtensions;
  format.capabilities = capability::kElements | capability::kFields;
  format.looks_like = LooksLikePvtu;
  format.read = ReadVtu;
  format.read_options = VtuReadOptions();
  return format;
}

Format VtkFormat() {
  Format format;
  format.name = "vtk";
  format.title = "VTK legacy file";
  format.extensions = kVtkExtensions;
  format.capabilities = capability::kElements | capability::kFields;
  format.looks_like = LooksLikeVtk;
  format.read = ReadVtk;
  return format;
}

}  // namespace qx::exchange
