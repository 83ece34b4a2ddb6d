#pragma once
// The registry of file formats: what import, export, their help and their documentation derive
// from. docs/decks.md tells how to add one.
// Threads: the table is fixed; readers and writers as transfer.h says of its functions.

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// One choice that a reader or writer offers: `--option name=value`.
struct FormatOption {
  std::string_view name;
  std::string_view values;   ///< "ascii, binary"; the first is what it does untold
  std::string_view meaning;  ///< "how numbers are stored"
  /// What a value may be besides these: "NUMBER", which is not negative, or any text, as "NAMES".
  std::string_view any = {};
};

/// What was chosen, by name. Names and values have been checked against the format's options.
using OptionValues = std::map<std::string, std::string, std::less<>>;

/// Asked now and then whether to stop; null for never.
using IsCancelled = std::function<bool()>;

struct ReadOptions {
  Progress progress;
  IsCancelled is_cancelled;
  std::vector<std::string> include_dirs;  ///< folders besides the deck's own that it may include
  OptionValues values;
};

struct WriteOptions {
  Progress progress;
  IsCancelled is_cancelled;  ///< asked whenever progress is told; by ExportFile only
  OptionValues values;
};

/// What a file of a format keeps of a model that goes out and comes back; whatever else the model
/// has is told as lost. For help and documentation, and for what tells of units.
namespace capability {
inline constexpr unsigned kElements = 1;
inline constexpr unsigned kSets = 2;
inline constexpr unsigned kFields = 4;
inline constexpr unsigned kSystems = 8;
inline constexpr unsigned kProperties = 16;
inline constexpr unsigned kCarried = 32;   ///< of its own text what the model has no place for
inline constexpr unsigned kUnits = 64;     ///< the file says which its numbers are in
inline constexpr unsigned kSurface = 128;  ///< faces, those that are free of solids; no numbers
}  // namespace capability

/// A file format. A format is a folder of exchange/ and one row of the table in format.cpp.
struct Format {
  std::string_view name;                         ///< "msh"
  std::string_view title;                        ///< "Gmsh mesh (MSH 2.0, 2.2, 4.0, 4.1)"
  std::span<const std::string_view> extensions;  ///< ".msh", lower case
  unsigned capabilities = 0;
  /// Whether a file that begins so, with up to 64 KiB, is of the format; what `write` has
  /// written must be. Looks at bytes only.
  bool (*looks_like)(std::string_view head) = nullptr;
  /// Whether a file of one of the extensions may be of the format though its head does not tell;
  /// null for never.
  bool (*may_be)(std::string_view head) = nullptr;
  /// Whether `write` made the file, and nobody changed it by hand: it may be replaced unasked. Null
  /// for a format that is only read. False where the file cannot be read.
  bool (*is_own)(const std::string& path) = nullptr;
  /// Reads and checks a file; null for a format that is only written. Of several faults the first
  /// is returned, all of them, up to LossReport::kMostFaults, go to `faults`.
  Result<Deck> (*read)(const std::string& path, const ReadOptions& options,
                       std::vector<Failure>& faults) = nullptr;
  /// Writes a session in current units; null for a format that is only read. The file is complete
  /// or not there.
  Outcome (*write)(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                   LossReport& report) = nullptr;
  /// Tells what only the text says that a model carries of a file of the format: one of another
  /// does not have it. Null for a format that carries none, or whose writers tell.
  void (*tell_text)(CQXDBSession& session, LossReport& report) = nullptr;
  std::span<const FormatOption> read_options = {};
  std::span<const FormatOption> write_options = {};
};

/// "all, NAMES": the values of an option and what else it takes.
std::string ValuesOf(const FormatOption& option);

/// All formats, in the order of their names.
std::span<const Format> Formats();

/// The format of that name; null for an unknown one.
const Format* FindFormat(std::string_view name);

/// "elements, sets, units": the capabilities in words.
std::string CapabilityWords(unsigned capabilities);

/// The first bytes of a file, up to 64 KiB.
Result<std::string> HeadOfFile(const std::string& path);

/// Whether a file begins as those of the format do; not so where it cannot be read.
bool IsOfFormat(const Format& format, const std::string& path);

/// The format to read a file with: the one its first bytes look like, whatever its extension.
/// Fails in a line that names what the file looks like and which formats are known.
Result<const Format*> FormatToRead(const std::string& path);

/// The format to write a file in, by its extension. Fails naming those that are known.
Result<const Format*> FormatToWrite(const std::string& path);

/// "ascii" of {"encoding=ascii"}: checks that each is a choice of `options`. Fails naming those
/// there are.
Result<OptionValues> ParseOptionValues(std::span<const FormatOption> options,
                                       std::span<const std::string> given);

/// Chosen value of an option, or its default.
std::string_view ValueOf(const OptionValues& values, std::span<const FormatOption> options,
                         std::string_view name);

/// ".msh, .vtu" of all formats that can be read or that can be written.
std::string KnownExtensions(bool to_read);

}  // namespace qx::exchange
