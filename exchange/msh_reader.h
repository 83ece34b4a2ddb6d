#pragma once
// Gmsh MSH files, versions 2.2, 4.0 and 4.1, ASCII and binary.

#include <string>
#include <string_view>

#include "exchange/mesh.h"

namespace qx::exchange {

/// Reads and checks a mesh. Node and element numbers of the file become keys. Physical groups, also
/// those without elements, become groups, named as in the file or "dim-tag" where it gives no
/// name, each a part of the smallest one that has all its elements and more. Files of WriteMsh tell
/// groups of several dimensions, hierarchy, colours and keys themselves. Where version 2.2 repeats
/// an element under a further number for a further group, the element is read once, under its first
/// number. Element kinds that this library lacks are reduced to their serendipity member where its
/// nodes are a subset, and left out otherwise. All nodes are kept. The mesh's notes say so with
/// counts. A failure names file, place and remedy.
Result<Mesh> ReadMsh(const std::string& path, const Progress& progress = {});

/// The same from memory; `name` stands for the file in messages.
Result<Mesh> ParseMsh(std::string_view bytes, const std::string& name,
                      const Progress& progress = {});

}  // namespace qx::exchange
