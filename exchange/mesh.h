#pragma once
// A mesh between a file and a model: what every reader fills and AddMesh puts into a session.
// Threads: shares nothing; one at a time for each object. AddMesh: the one that drives the session.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

#include "exchange/loss_report.h"

namespace qx::exchange {

/// Told how far an operation is, from 0 to 1; at most about a hundred times.
using Progress = std::function<void(double)>;

/// The progress of a part of an operation, which is its share from `begin` to `end`.
inline Progress ShareOf(const Progress& whole, double begin, double end) {
  if (!whole) return {};
  return [&whole, begin, end](double done) { whole(begin + (end - begin) * done); };
}

/// Counts steps of which there may be millions, and tells the progress now and then: often enough
/// to stop within a moment.
class StepCounter {
 public:
  StepCounter(const Progress& progress, std::size_t total)
      : progress_(progress), total_(total), pace_(total / 40 + 1024) {}
  void Step() {
    if (++done_ % pace_ != 0 || !progress_) return;
    progress_(static_cast<double>(done_) / static_cast<double>(std::max(total_, done_) + 1));
  }

 private:
  const Progress& progress_;
  std::size_t total_;
  std::size_t pace_;
  std::size_t done_ = 0;
};

/// A mesh as plain arrays. Node order within an element is this library's.
struct Mesh {
  struct Element {
    Key key;
    std::int32_t type;  ///< element type code
    std::size_t first;  ///< index of its first node in `connectivity`
    Key property = 0;   ///< key of its property; 0 for none
    friend bool operator==(const Element&, const Element&) = default;
  };
  /// How a file knows a group: its number there, for elements of one dimension. See tagTSetTag.
  struct SetTag {
    std::int32_t kind = 0;
    std::int32_t dimension = -1;
    std::int32_t tag = 0;
    bool named = true;
    std::vector<std::pair<Key, std::int32_t>> sides = {};  ///< element and side, from 0
    friend bool operator==(const SetTag&, const SetTag&) = default;
  };
  /// A named group of elements. Groups may overlap, share a name, and be empty.
  struct Group {
    static constexpr std::int32_t kNone = -1;

    std::string name;    ///< UTF-8
    int dimension = -1;  ///< of its elements; -1 when they differ or are not known
    std::vector<Key> elements;
    std::vector<Key> nodes = {};    ///< that belong to it besides those of its elements
    std::int32_t parent = kNone;    ///< index of the group that it is a part of
    std::int32_t color = kNone;     ///< 0x00BBGGRR; kNone for one of the model's choice
    Key key = 0;                    ///< wish for a key in the model; 0 for none
    std::vector<SetTag> tags = {};  ///< how the file knows it
    friend bool operator==(const Group&, const Group&) = default;
  };

  std::vector<Key> node_keys;
  std::vector<double> coordinates;  ///< three a node, in the session's current length unit
  std::vector<Element> elements;
  std::vector<Key> connectivity;  ///< node keys, element after element
  std::vector<Group> groups;
  /// What the reader changed, left out or took for granted: "9-node quadrilaterals were read as
  /// 8-node quadrilaterals: 48".
  LossReport report;

  /// Number of nodes of the element at `index`: what its type says, or, for a code without a known
  /// number, what there is up to the next element.
  std::size_t NodesOf(std::size_t index) const;
};

/// Checks a mesh as a whole: keys between 1 and 2147483647, none twice, finite coordinates, every
/// node of every element and every element and node of every group there, and no group a part of
/// itself. The first fault is returned, with `file` and the key; all of them, up to
/// LossReport::kMostFaults, are added to `faults`. Cost proportional to the mesh.
Outcome CheckMesh(const Mesh& mesh, const std::string& file,
                  std::vector<Failure>* faults = nullptr);

/// Fails when no file of a mesh could hold the model's: without pools of nodes and elements, with
/// more than fit, or with a node whose coordinates, in current units, are not finite numbers.
Outcome CheckCanBeWritten(const CQXDBSession& session, const std::string& path);

/// What AddMesh did.
struct AddReport {
  std::size_t nodes = 0;
  std::size_t elements = 0;
  std::size_t groups = 0;
  std::vector<Key> set_keys;  ///< of the mesh sets that the groups became
  LossReport losses;          ///< names that were cut, references to nothing
};

/// Keys that records got in the model where their own were taken.
using KeyMap = std::unordered_map<Key, Key>;

/// Adds a mesh that has passed CheckMesh to a session as one undoable step: nodes, elements, and
/// for each group a mesh set of its elements with their nodes, in the groups' hierarchy, under the
/// group's name, of which 63 UTF-16 units are kept. A set's key is the one that its group wishes if
/// that is free, else a new one; a group that wishes for the key of the default mesh set fills that
/// one as long as it is empty. Fails, with the session as it was, when the number of a node or an
/// element is taken already. Elements refer to the properties of the model with their keys, or with
/// those that `properties` gives for them. `file` stands for the mesh in messages.
Outcome AddMesh(CQXDBSession& session, const Mesh& mesh, const std::string& file,
                AddReport* report = nullptr, const KeyMap& properties = {},
                const Progress& progress = {});

}  // namespace qx::exchange
