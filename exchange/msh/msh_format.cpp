#include "exchange/msh/msh_format.h"

#include "exchange/msh/msh_reader.h"
#include "exchange/msh/msh_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".msh"};

constexpr FormatOption kWriteOptions[] = {
    {"encoding", "binary, ascii", "how numbers are stored"},
    {"version", "4.1, 2.2", "version of the format"},
};

bool LooksLike(std::string_view head) {
  const std::size_t first = head.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return false;
  head.remove_prefix(first);
  return head.starts_with("$MeshFormat") || head.starts_with("$NOD") ||
         (head.starts_with("$Comments") && head.find("$MeshFormat") != std::string_view::npos);
}

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && LooksLike(*head) && head->find("$QXUnits") != std::string::npos;
}

Result<Deck> Read(const std::string& path, const ReadOptions& options,
                  std::vector<Failure>& faults) {
  return ReadMsh(path, options.progress, &faults);
}

Outcome Write(CQXDBSession& session, const std::string& path, const WriteOptions& options,
              LossReport& report) {
  const bool is_text = ValueOf(options.values, kWriteOptions, "encoding") == "ascii";
  const bool is_old = ValueOf(options.values, kWriteOptions, "version") == "2.2";
  return WriteMsh(session, path, is_text ? MshEncoding::kAscii : MshEncoding::kBinary, &report,
                  options.progress, is_old ? MshVersion::k22 : MshVersion::k41);
}

}  // namespace

Format MshFormat() {
  Format format;
  format.name = "msh";
  format.title = "Gmsh mesh (MSH 2.0 to 2.2, 4.0, 4.1)";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kFields |
                        capability::kCarried | capability::kUnits;
  format.looks_like = LooksLike;
  format.is_own = IsOwn;
  format.read = Read;
  format.write = Write;
  format.write_options = kWriteOptions;
  return format;
}

}  // namespace qx::exchange
