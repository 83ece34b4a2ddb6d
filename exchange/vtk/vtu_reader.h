#pragma once
// VTK XML unstructured grids into decks: VTU, and the PVTU that gathers them.

#include <string>
#include <string_view>

#include "exchange/format.h"

namespace qx::exchange {

/// Reads and checks a grid in any of the format's encodings: text, binary, appended raw or base64,
/// packed by zlib or LZ4, of either byte order. Cells become elements, arrays fields; of files of
/// our own, keys, sets, tags and units come back. Points get their place as key, from 1, where the
/// file tells none. The pieces of a PVTU file must lie below its folder or one of the
/// `include_dirs`. Of several faults the first is returned, all, up to the bound, go to `faults`.
Result<Deck> ReadVtu(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults);

/// The same of a file in memory; `name` stands for it in messages. Pieces of a PVTU file are not
/// read.
Result<Deck> ParseVtu(std::string_view bytes, const std::string& name,
                      std::vector<Failure>* faults = nullptr);

/// Options of reading, shared by VTU and PVTU.
std::span<const FormatOption> VtuReadOptions();

}  // namespace qx::exchange
