#pragma once
// A surface on its way from a file into a deck: what the readers of STL, OBJ and PLY fill.
// Threads: shares nothing; one at a time for each object.

#include <array>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/file.h"

#include "exchange/format.h"

namespace qx::exchange {

/// "points" and "tolerance", of every reader of surfaces.
std::span<const FormatOption> SurfaceReadOptions();

/// Points, faces of them and the groups that faces are in. Points are numbered from 0 as they come
/// and become nodes from 1; faces become elements from 1.
class SurfaceBuilder {
 public:
  /// Nothing is owned. `faults` takes what is wrong with the file, up to the bound.
  SurfaceBuilder(const char* format, const std::string& file, const ReadOptions& options,
                 std::vector<Failure>& faults)
      : file_(file), options_(options), faults_(faults), before_(faults.size()) {
    deck_.format = format;
  }

  /// Whether the reader should go on: there is room for faults.
  bool Ok() const { return faults_.size() < LossReport::kMostFaults; }
  void Fault(std::string place, std::string what, std::string remedy = "write the file again");
  LossReport& Report() { return deck_.report; }
  void Tell(double done) const {
    if (options_.progress) options_.progress(0.7 * done);
  }

  void Reserve(std::size_t points, std::size_t faces);
  std::size_t Points() const { return deck_.coordinates.size() / 3; }
  std::uint32_t AddPoint(const std::array<double, 3>& at);
  /// The group of that name, which is made when it is new.
  std::size_t GroupOf(std::string_view name, std::int32_t color = Mesh::Group::kNone);
  /// A face of points that are there, in any number of groups. With more than four corners it is
  /// divided into triangles, with fewer than three it is left out; both are told.
  void AddFace(std::span<const std::uint32_t> points, std::span<const std::size_t> groups);
  std::size_t Faces() const { return faces_; }

  /// The deck, with points joined where the options say so; the first fault when there is one.
  Result<Deck> Finish();

 private:
  void AddElement(std::span<const std::uint32_t> points, std::span<const std::size_t> groups);
  void JoinPoints(double tolerance);

  const std::string& file_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  std::size_t before_;
  Deck deck_;
  std::size_t faces_ = 0;
  std::map<std::string, std::size_t, std::less<>> groups_;
};

/// Reads a file whole and parses it.
using ParseSurface = Result<Deck>(std::string_view bytes, const std::string& name,
                                  const ReadOptions& options, std::vector<Failure>& faults);
template <ParseSurface* parse>
Result<Deck> ReadSurface(const std::string& path, const ReadOptions& options,
                         std::vector<Failure>& faults) {
  const Result<std::string> bytes = ReadWholeFile(path);
  if (bytes) return parse(*bytes, path, options, faults);
  faults.push_back(bytes.Error());
  return bytes.Error();
}

/// "#RRGGBB" of a colour 0x00BBGGRR.
std::string ColorName(std::int32_t color);

}  // namespace qx::exchange
