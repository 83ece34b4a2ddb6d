#pragma once
// A mesh between a file and a model: what every reader fills and AddMesh puts into a session.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx::exchange {

/// Told how far an operation is, from 0 to 1; at most about a hundred times.
using Progress = std::function<void(double)>;

/// A mesh as plain arrays. Node order within an element is this library's.
struct Mesh {
  struct Element {
    Key key;
    std::int32_t type;  ///< element type code, 1 to 15
    std::size_t first;  ///< index of its first node in `connectivity`
    friend bool operator==(const Element&, const Element&) = default;
  };
  /// A named group of elements. Groups may overlap, share a name, and be empty.
  struct Group {
    static constexpr std::int32_t kNone = -1;

    std::string name;    ///< UTF-8
    int dimension = -1;  ///< of its elements; -1 when they differ or are not known
    std::vector<Key> elements;
    std::vector<Key> nodes = {};  ///< that belong to it besides those of its elements
    std::int32_t parent = kNone;  ///< index of the group that it is a part of
    std::int32_t color = kNone;   ///< 0xRRGGBB; kNone for one of the model's choice
    Key key = 0;                  ///< wish for a key in the model; 0 for none
    friend bool operator==(const Group&, const Group&) = default;
  };

  std::vector<Key> node_keys;
  std::vector<double> coordinates;  ///< three a node, in the session's current length unit
  std::vector<Element> elements;
  std::vector<Key> connectivity;  ///< node keys, element after element
  std::vector<Group> groups;
  /// What the reader changed or left out, a line each: "9-node quadrilaterals were read as 8-node
  /// quadrilaterals: 48".
  std::vector<std::string> notes;
};

/// Checks a mesh as a whole: keys between 1 and 2147483647, none twice, finite coordinates, every
/// node of every element and every element and node of every group there, and no group a part of
/// itself. The first fault is reported with
/// `file` and the key. Cost proportional to the mesh.
Outcome CheckMesh(const Mesh& mesh, const std::string& file);

/// Fails when no file of a mesh could hold the model's: without pools of nodes and elements, with
/// more than fit, or with a node whose coordinates, in current units, are not finite numbers.
Outcome CheckCanBeWritten(const CQXDBSession& session, const std::string& path);

/// What AddMesh did.
struct AddReport {
  std::size_t nodes = 0;
  std::size_t elements = 0;
  std::size_t groups = 0;
  /// What did not go in as it was, a line each: names that were cut.
  std::vector<std::string> notes;
};

/// Adds a mesh that has passed CheckMesh to a session as one undoable step: nodes, elements, and
/// for each group a mesh set of its elements with their nodes, in the groups' hierarchy, under the
/// group's name, of which 63 UTF-16 units are kept. A set's key is the one that its group wishes if
/// that is free, else a new one; a group that wishes for the key of the default mesh set fills that
/// one as long as it is empty. Fails, with the session as it was, when the number of a node or an
/// element is taken already. `file` stands for the mesh in messages.
Outcome AddMesh(CQXDBSession& session, const Mesh& mesh, const std::string& file,
                AddReport* report = nullptr);

}  // namespace qx::exchange
