#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {

void Gateway() {
  CQXDBSession session(AddStandardPools);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (int i = 1; i <= kMillion; ++i) nodes.InsertNU(MakeNode(i));
  dbgateway::DataBase document;
  TArray<Key> all;
  nodes.WriteAPI(&document, all, 0);
  const std::string text = document.ToText();
  rapidjson::Document theirs;
  theirs.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  Compare(
      "write the text of a million nodes", "RapidJSON Writer", 0.6,
      [&] { return Time([&] { Keep(document.ToText().size()); }); },
      [&] {
        return Time([&] {
          rapidjson::StringBuffer buffer;
          rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
          theirs.Accept(writer);
          Keep(buffer.GetSize());
        });
      });
  Compare(
      "the same, streamed", "RapidJSON Writer", 0.6,
      [&] {
        return Time([&] {
          std::size_t size = 0;
          document.WriteTo([&](std::string_view piece) { size += piece.size(); });
          Keep(size);
        });
      },
      [&] {
        return Time([&] {
          struct Sink {
            using Ch [[maybe_unused]] = char;
            void Put(char c) {
              if (used == sizeof(buffer)) Flush();
              buffer[used++] = c;
            }
            void Flush() {
              Keep(buffer[0]);
              used = 0;
            }
            char buffer[32768];
            std::size_t used = 0;
          } sink;
          rapidjson::Writer<Sink> writer(sink);
          theirs.Accept(writer);
        });
      });
  Compare(
      "parse it", "RapidJSON full precision", 1.1,
      [&] {
        dbgateway::DataBase parsed;
        return Time([&] { Keep(static_cast<bool>(parsed.Parse(text))); });
      },
      [&] {
        rapidjson::Document parsed;
        return Time([&] {
          parsed.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
          Keep(parsed.HasParseError());
        });
      });
}

}  // namespace qx::bench
