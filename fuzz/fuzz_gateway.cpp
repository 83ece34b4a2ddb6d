// Any bytes as a gateway document for a whole model: refused with the model as it was, or a sound
// model that can be taken back, and whose own document makes the same model again.

#include <cstdlib>

#include "qx_db/qx_db.h"

namespace {

void Need(bool holds) {
  if (!holds) std::abort();
}

std::string TextOf(qx::CQXDBSession& session) {
  qx::dbgateway::DataBase document;
  Need(static_cast<bool>(qx::WriteDocument(session, document)));
  return document.ToText();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  dbgateway::DataBase document;
  if (!document.Parse({reinterpret_cast<const char*>(data), size})) return 0;
  CQXDBSession session(AddStandardPools);
  const std::uint64_t empty = session.StateHash();
  const Outcome read = ReadDocument(session, document);
  Need(session.Validate().empty());
  if (!read) {
    Need(!read.Error().what.empty() && session.StateHash() == empty);
    return 0;
  }
  const std::string text = TextOf(session);
  dbgateway::DataBase again;
  Need(static_cast<bool>(again.Parse(text)));
  CQXDBSession copy(AddStandardPools);
  Need(static_cast<bool>(ReadDocument(copy, again)));
  Need(TextOf(copy) == text);
  const std::uint64_t filled = session.StateHash();
  const bool is_change = session.Undo() != 0;
  Need(session.StateHash() == empty);
  if (is_change) Need(session.Redo() != 0);
  Need(session.StateHash() == filled && session.Validate().empty());
  [[maybe_unused]] const Outcome deleted = ApplyDeletions(session, document);
  Need(session.Validate().empty());
  return 0;
}
