// Any bytes as gateway text: parsed, read into every pool, written and parsed again.

#include <cstdlib>

#include "qx_db/qx_db.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  dbgateway::DataBase document;
  if (!document.Parse({reinterpret_cast<const char*>(data), size})) return 0;
  CQXDBSession session(AddStandardPools);
  for (DPoolBase* pool : session.Pools()) {
    pool->ReadAPI(&document, 0);
    pool->ReadAPI(&document, 1);
  }
  if (!session.Validate().empty()) std::abort();
  const std::string text = document.ToText();
  dbgateway::DataBase again;
  if (!again.Parse(text) || again.ToText() != text) std::abort();
  return 0;
}
