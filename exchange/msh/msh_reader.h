#pragma once
// Gmsh MSH files, versions 2.0 to 2.2, 4.0 and 4.1, ASCII and binary.
// Threads: functions from any; a session given is read or filled as transfer.h says.

#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// Reads and checks a mesh. Node and element numbers of the file become keys. Physical groups, also
/// those without elements, become groups, named as in the file or "dim-tag" where it gives no
/// name, each with its dimension and tag, each a part of the smallest one that has all its elements
/// and more. Files of WriteMsh tell groups of several dimensions, hierarchy, colours and keys
/// themselves. Where version 2.2 repeats an element under a further number for a further group, the
/// element is read once, under its first number. Element kinds that this library lacks are reduced
/// to their serendipity member where its nodes are a subset, and left out otherwise. All nodes are
/// kept. Entities become blocks, data sections fields; periodicity, ghosts and, from text files,
/// sections of other programs are carried. The mesh's report says so with counts. A failure names
/// file, place and remedy: of several the first is returned, all of them, up to
/// LossReport::kMostFaults, go to `faults`.
Result<Deck> ReadMsh(const std::string& path, const Progress& progress = {},
                     std::vector<Failure>* faults = nullptr);

/// The same from memory; `name` stands for the file in messages.
Result<Deck> ParseMsh(std::string_view bytes, const std::string& name,
                      const Progress& progress = {}, std::vector<Failure>* faults = nullptr);

}  // namespace qx::exchange
