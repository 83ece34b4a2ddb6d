#include "exchange/unv/unv_format.h"

#include "qx_db/platform/file.h"

#include "exchange/text_lines.h"
#include "exchange/unv/unv_reader.h"
#include "exchange/unv/unv_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".unv", ".uff"};

/// A line of -1, then the number of a dataset, and one behind it.
bool LooksLike(std::string_view head) {
  TextLines lines(head);
  std::string_view word;
  while (word.empty() && lines.Next()) word = Words(lines.Line()).Rest();
  if (word != "-1" || !lines.Next()) return false;
  std::string_view number = Words(lines.Line()).Next();
  if (number == "58b") return true;
  const int dataset = WholeOf<int>(number).value_or(0);
  return dataset > 0 && dataset < 100000 && lines.Next();
}

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && LooksLike(*head) && head->find(kUnvOwn) != std::string::npos;
}

Result<Deck> Read(const std::string& path, const ReadOptions& options,
                  std::vector<Failure>& faults) {
  const Result<std::string> bytes = ReadWholeFile(path);
  if (bytes) return ParseUnv(*bytes, path, options, faults);
  faults.push_back(bytes.Error());
  return bytes.Error();
}

}  // namespace

Format UnvFormat() {
  Format format;
  format.name = "unv";
  format.title = "Universal file";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kFields |
                        capability::kSystems | capability::kCarried | capability::kUnits;
  format.looks_like = LooksLike;
  format.is_own = IsOwn;
  format.read = Read;
  format.write = WriteUnv;
  return format;
}

}  // namespace qx::exchange
