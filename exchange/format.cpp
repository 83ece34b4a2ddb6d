#include "exchange/format.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

#include "exchange/abaqus/abaqus_format.h"
#ifdef QX_HAS_CGNS
#include "exchange/cgns/cgns_format.h"
#endif
#include "exchange/deck_text.h"
#ifdef QX_HAS_EXODUS
#include "exchange/exodus/exodus_format.h"
#endif
#ifdef QX_HAS_MED
#include "exchange/med/med_format.h"
#endif
#include "exchange/msh/msh_format.h"
#include "exchange/nastran/nas_format.h"
#include "exchange/surface/surface_formats.h"
#include "exchange/unv/unv_format.h"
#include "exchange/vtk/vtk_formats.h"

namespace qx::exchange {
namespace {

std::string ExtensionOf(const std::string& path) {
  std::string extension = Utf8FromPath(PathFromUtf8(path).extension());
  for (char& c : extension) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return extension;
}

/// What files of other kinds begin with, so that one can be told what it has.
struct OtherKind {
  std::string_view head;
  const char* what;
};
constexpr OtherKind kOtherKinds[] = {
    {"SQLite format 3", "a model file or another database"},
    {"ISO-10303-21", "STEP geometry: bring it in with qxdb geom"},
    {"DBRep_DrawableShape", "BREP geometry: bring it in with qxdb geom"},
    {"CASCADE Topology", "BREP geometry: bring it in with qxdb geom"},
    {"\x89HDF", "an HDF5 file"},
    {"CDF\x01", "a netCDF file"},
    {"CDF\x02", "a netCDF file"},
    {"CDF\x05", "a netCDF file"},
    {"PK\x03\x04", "a ZIP archive: unpack it first"},
    {"\x1f\x8b", "a gzip archive: unpack it first"},
    {"\xfd"
     "7zXZ",
     "an xz archive: unpack it first"},
    {"BZh", "a bzip2 archive: unpack it first"},
    {"%PDF", "a PDF document"},
    {"\x89PNG", "a picture"},
};

/// Formats of components that this build may lack.
struct Component {
  std::string_view extensions;  ///< each with a comma behind it
  std::string_view title;
  std::string_view name;
  bool is_on;
};
#ifdef QX_HAS_EXODUS
constexpr bool kHasExodus = true;
#else
constexpr bool kHasExodus = false;
#endif
#ifdef QX_HAS_CGNS
constexpr bool kHasCgns = true;
#else
constexpr bool kHasCgns = false;
#endif
#ifdef QX_HAS_MED
constexpr bool kHasMed = true;
#else
constexpr bool kHasMed = false;
#endif
constexpr Component kComponents[] = {
    {".cgns,", "CGNS", "QX_CGNS", kHasCgns},
    {".exo,.e,.g,.ex2,.exii,.gen,", "Exodus", "QX_EXODUS", kHasExodus},
    {".med,.rmed,", "MED", "QX_MED", kHasMed},
};

/// What to say of a file whose format is left out of this build; none for others.
std::optional<Failure> IsLeftOut(const std::string& path, const std::string& extension) {
  for (const Component& component : kComponents) {
    if (component.is_on || extension.empty() ||
        component.extensions.find(extension + ",") == std::string_view::npos) {
      continue;
    }
    return Failure{path, "", fmt::format("this build has no {} files", component.title),
                   fmt::format("build with -D{}=ON", component.name)};
  }
  return std::nullopt;
}

std::string WhatItLooksLike(std::string_view head) {
  if (head.empty()) return "it is empty";
  for (const OtherKind& kind : kOtherKinds) {
    if (head.starts_with(kind.head)) return std::string("it looks like ") + kind.what;
  }
  const bool is_text = std::all_of(head.begin(), head.end(), [](char c) {
    return static_cast<unsigned char>(c) >= 0x20 || c == '\n' || c == '\r' || c == '\t';
  });
  if (!is_text) return "it looks like binary data";
  if (head.find_first_not_of(" \t\r\n") == std::string_view::npos) return "it is blank";
  if (head[head.find_first_not_of(" \t\r\n")] == '<') return "it looks like XML";
  if (head[head.find_first_not_of(" \t\r\n")] == '{') return "it looks like JSON";
  return "it looks like text";
}

bool HasExtension(const Format& format, const std::string& extension) {
  return std::find(format.extensions.begin(), format.extensions.end(), extension) !=
         format.extensions.end();
}

bool FitsAny(std::string_view any, const std::string& value) {
  if (any != "NUMBER") return !any.empty();
  const std::optional<double> number = DeckReal(value);
  return number && std::isfinite(*number) && *number >= 0;
}

}  // namespace

std::string ValuesOf(const FormatOption& option) {
  return fmt::format("{}{}{}", option.values, option.any.empty() ? "" : ", ", option.any);
}

Result<std::string> HeadOfFile(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  std::string head(65536, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  if (in.bad() || !in.is_open()) {
    return Failure{path, "", "cannot be read", "check its permissions"};
  }
  head.resize(static_cast<std::size_t>(in.gcount()));
  return head;
}

std::string CapabilityWords(unsigned capabilities) {
  constexpr std::pair<unsigned, std::string_view> kWords[] = {
      {capability::kSurface, "surfaces"},
      {capability::kElements, "elements"},
      {capability::kSets, "sets"},
      {capability::kFields, "fields"},
      {capability::kSystems, "coordinate systems"},
      {capability::kProperties, "properties"},
      {capability::kUnits, "units"},
      {capability::kCarried, "its own text"},
  };
  std::string words;
  for (const auto& [bit, word] : kWords) {
    if (capabilities & bit) words += fmt::format("{}{}", words.empty() ? "" : ", ", word);
  }
  return words;
}

std::span<const Format> Formats() {
  static const Format formats[] = {AbaqusFormat(),
#ifdef QX_HAS_CGNS
                                   CgnsFormat(),
#endif
#ifdef QX_HAS_EXODUS
                                   ExodusFormat(),
#endif
#ifdef QX_HAS_MED
                                   MedFormat(),
#endif
                                   MshFormat(),    NastranFormat(), ObjFormat(),
                                   PlyFormat(),    PvtuFormat(),    StlFormat(),
                                   UnvFormat(),    VtkFormat(),     VtuFormat()};
  return formats;
}

const Format* FindFormat(std::string_view name) {
  const auto formats = Formats();
  const auto found = std::find_if(formats.begin(), formats.end(),
                                  [&](const Format& format) { return format.name == name; });
  return found == formats.end() ? nullptr : &*found;
}

bool IsOfFormat(const Format& format, const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && format.looks_like && format.looks_like(*head);
}

Result<const Format*> FormatToRead(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  if (!head) return head.Error();
  const std::string extension = ExtensionOf(path);
  const Format* by_name = nullptr;
  const Format* by_content = nullptr;
  for (const Format& format : Formats()) {
    if (!format.read) continue;
    const bool is_named = HasExtension(format, extension);
    if (is_named && !by_name) by_name = &format;
    if (format.looks_like && format.looks_like(*head) && (!by_content || is_named)) {
      by_content = &format;
    }
  }
  if (by_content) return by_content;
  if (by_name && by_name->may_be && by_name->may_be(*head)) return by_name;
  if (const auto left_out = IsLeftOut(path, extension)) return *left_out;
  const std::string looks = WhatItLooksLike(*head);
  if (by_name) {
    return Failure{path, "", fmt::format("is no {}: {}", by_name->title, looks),
                   fmt::format("use one of: {}; or insist with --format {}", KnownExtensions(true),
                               by_name->name)};
  }
  return Failure{path, "", "is of no known format: " + looks,
                 "use one of: " + KnownExtensions(true)};
}

Result<const Format*> FormatToWrite(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  for (const Format& format : Formats()) {
    if (format.write && HasExtension(format, extension)) return &format;
  }
  if (const auto left_out = IsLeftOut(path, extension)) return *left_out;
  return Failure{path, "", "has an unknown format", "use one of: " + KnownExtensions(false)};
}

Result<OptionValues> ParseOptionValues(std::span<const FormatOption> options,
                                       std::span<const std::string> given) {
  std::string known;
  for (const FormatOption& option : options) {
    known += fmt::format("{}{}={}", known.empty() ? "" : "; ", option.name, ValuesOf(option));
  }
  if (known.empty()) known = "none";
  OptionValues values;
  for (const std::string& text : given) {
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    const auto option =
        std::find_if(options.begin(), options.end(),
                     [&](const FormatOption& known_option) { return known_option.name == name; });
    const bool is_known =
        option != options.end() && !value.empty() &&
        (fmt::format(", {}, ", option->values).find(", " + value + ", ") != std::string::npos ||
         FitsAny(option->any, value));
    if (!is_known) {
      return Failure{"", "", fmt::format("'{}' is no option of the format", text),
                     "its options are: " + known};
    }
    values[name] = value;
  }
  return values;
}

std::string_view ValueOf(const OptionValues& values, std::span<const FormatOption> options,
                         std::string_view name) {
  if (const auto given = values.find(name); given != values.end()) return given->second;
  for (const FormatOption& option : options) {
    if (option.name == name) return option.values.substr(0, option.values.find(','));
  }
  return {};
}

std::string KnownExtensions(bool to_read) {
  std::string known;
  for (const Format& format : Formats()) {
    if (to_read ? !format.read : !format.write) continue;
    for (const std::string_view extension : format.extensions) {
      known += fmt::format("{}{}", known.empty() ? "" : ", ", extension);
    }
  }
  return known;
}

}  // namespace qx::exchange
