#pragma once
// Damaged HDF5 files, on which the library falls over: versions of it read memory that is not
// theirs, or never come to an end.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "exchange/format.h"
#include "exchange/hdf5/h5_reader.h"

namespace qx::exchange {

/// Fails, naming `file`, unless `read` comes to an end in a process of its own, which is a copy of
/// this one: what then runs here sees the same bytes in the same state. It has a time that fits the
/// file's size, in bytes. Meanwhile the options are asked whether to stop.
Outcome ComesToAnEnd(const std::string& file, std::uint64_t size, const ReadOptions& options,
                     const std::function<void()>& read);

/// What `ask` says in such a process; false where it does not come to an end.
bool IsTrueApart(const std::function<bool()>& ask);

/// Reads a file of so many bytes by a reader of its format, once apart and then here: the deck, or
/// the first of what was added to `faults`.
template <class Reader>
Result<Deck> ReadHdf5(const std::function<Result<std::unique_ptr<H5Reader>>()>& open,
                      std::uint64_t size, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  const std::size_t before = faults.size();
  const auto read = [&](const ReadOptions& with) -> std::optional<Deck> {
    const auto file = open();
    if (!file) faults.push_back(file.Error());
    return file ? Reader(**file, name, with, faults).Read() : std::nullopt;
  };
  if (Outcome sound = ComesToAnEnd(name, size, options, [&] { (void)read({}); }); !sound) {
    faults.push_back(sound.Error());
    return sound.Error();
  }
  std::optional<Deck> deck = read(options);
  if (!deck) return faults[before];
  return std::move(*deck);
}

}  // namespace qx::exchange
