#pragma once
// What readers of meshes in HDF5 files have in common.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "exchange/format.h"
#include "exchange/hdf5/h5_reader.h"

namespace qx::exchange {

/// Fills a deck from a file, and collects what is wrong with the file.
class H5DeckReader {
 protected:
  H5DeckReader(H5Reader& in, const std::string& name, const ReadOptions& options,
               std::vector<Failure>& faults)
      : in_(in), name_(name), options_(options), faults_(faults), before_(faults.size()) {}

  /// The path of a node or an array as a place in a message: "Base/Zone".
  static std::string PlaceOf(const std::string& path) {
    std::string place = path.substr(path.starts_with('/') ? 1 : 0);
    if (place.ends_with("/ data")) place.resize(place.size() - 6);
    return place;
  }

  void Tell(double done) const {
    if (options_.progress) options_.progress(done);
  }
  bool HasFaults() const { return faults_.size() > before_; }
  /// Whether there is a point in going on.
  bool Ok() const { return in_.Ok() && faults_.size() < LossReport::kMostFaults; }
  void Fault(std::string place, std::string what) {
    if (faults_.size() >= LossReport::kMostFaults) return;
    faults_.push_back({name_, std::move(place), std::move(what), "write the file again"});
  }
  /// Keeps what was wrong with an array, and goes on with the others.
  void KeepError() {
    if (in_.Ok()) return;
    Failure failure = in_.TakeError();
    Fault(PlaceOf(failure.place), std::move(failure.what));
  }

  /// The deck once it is checked, unless there are faults. `leaves_nodes`: elements were left out,
  /// or nodes of them.
  std::optional<Deck> Checked(bool leaves_nodes) {
    KeepError();
    if (HasFaults()) return std::nullopt;
    if (leaves_nodes) ReportUnused(deck_, deck_.report);
    (void)CheckMesh(deck_, name_, &faults_);
    if (HasFaults()) return std::nullopt;
    Tell(1);
    return std::move(deck_);
  }

  H5Reader& in_;
  const std::string& name_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  std::size_t before_;
  Deck deck_;
};

}  // namespace qx::exchange
