#pragma once
// The rows of files of surfaces in the registry: STL, OBJ and PLY, with their readers.
// Threads: any; the tables never change. Readers: as transfer.h says.

#include "exchange/format.h"

namespace qx::exchange {

Format ObjFormat();
Format PlyFormat();
Format StlFormat();

/// A file that is in memory already; `name` stands for it in messages. As the format's own reader.
Result<Deck> ParseObj(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults);
Result<Deck> ParsePly(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults);
Result<Deck> ParseStl(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults);

}  // namespace qx::exchange
