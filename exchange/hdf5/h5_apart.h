#pragma once
// Damaged HDF5 files, on which the library falls over: versions of it read memory that is not
// theirs, or never come to an end.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "exchange/format.h"
#include "exchange/hdf5/h5_reader.h"

namespace qx::exchange {

/// What a run in a process of its own may take.
struct ApartLimits {
  std::uint64_t processor_seconds = 10;
  std::uint64_t clock_seconds = 40;
  std::uint64_t bytes = std::uint64_t{4} << 30;  ///< beyond what this process has
};

/// How such a run ended.
enum class ApartEnd {
  kTrue,       ///< it said so
  kFalse,      ///< it said so
  kCrash,      ///< it said nothing
  kMemory,     ///< it had none left
  kTime,       ///< it took too long
  kNoProcess,  ///< there was none
};

/// Runs `ask` in a process that is a copy of this one, and calls `wait` now and then meanwhile. On
/// kNoProcess errno tells why. Systems that do not bound a process's memory leave that out.
ApartEnd RunApart(const std::function<bool()>& ask, const ApartLimits& limits,
                  const std::function<void()>& wait);

/// Fails, naming `file`, unless `read` comes to an end in a process of its own: what then runs here
/// sees the same bytes in the same state. Its limits grow with the file's size, in bytes. Meanwhile
/// the options are asked whether to stop.
Outcome ComesToAnEnd(const std::string& file, std::uint64_t size, const ReadOptions& options,
                     const std::function<void()>& read);

/// What `ask` says in such a process; false where it does not come to an end.
bool IsTrueApart(const std::function<bool()>& ask);

/// Tells of links that a reader of the file did not follow: as losses where it found a mesh, else
/// first among the faults from `before` on.
void TellOfLinks(const H5Reader& in, const std::string& name, std::optional<Deck>& deck,
                 std::vector<Failure>& faults, std::size_t before);

/// Where a file is read before it is read here. Without that it must be one that the library gets
/// through, as one that it has just made.
enum class FirstRead { kApart, kNone };

/// Reads a file of so many bytes by a reader of its format, once apart and then here: the deck, or
/// the first of what was added to `faults`.
template <class Reader>
Result<Deck> ReadHdf5(const std::function<Result<std::unique_ptr<H5Reader>>()>& open,
                      std::uint64_t size, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults, FirstRead first = FirstRead::kApart) {
  const std::size_t before = faults.size();
  const auto read = [&](const ReadOptions& with) -> std::optional<Deck> {
    const auto file = open();
    if (!file) {
      faults.push_back(file.Error());
      return std::nullopt;
    }
    std::optional<Deck> deck = Reader(**file, name, with, faults).Read();
    TellOfLinks(**file, name, deck, faults, before);
    return deck;
  };
  if (first == FirstRead::kApart) {
    if (Outcome sound = ComesToAnEnd(name, size, options, [&] { (void)read({}); }); !sound) {
      faults.push_back(sound.Error());
      return sound.Error();
    }
  }
  std::optional<Deck> deck = read(options);
  if (!deck) return faults[before];
  return std::move(*deck);
}

}  // namespace qx::exchange
