#include "exchange/vtk/vtu_reader.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <pugixml.hpp>

#include "qx_db/platform/file.h"

#include "exchange/vtk/buffer.h"
#include "exchange/vtk/vtk_builder.h"
#include "exchange/vtk/vtk_coding.h"

namespace qx::exchange {
namespace {

constexpr FormatOption kReadOptions[] = {
    {"points", "separate, merged", "what points that pieces share become: nodes each, or one"},
};

constexpr const char* kRemedy = "write the file again";
constexpr std::uint32_t kMostComponents = 1000;

std::optional<VtkNumber> FindNumber(std::string_view type) {
  constexpr std::string_view kTypes[] = {"Int8",   "UInt8", "Int16",  "UInt16",  "Int32",
                                         "UInt32", "Int64", "UInt64", "Float32", "Float64"};
  const auto* found = std::find(std::begin(kTypes), std::end(kTypes), type);
  if (found == std::end(kTypes)) return std::nullopt;
  return static_cast<VtkNumber>(found - std::begin(kTypes));
}

/// One file: its XML, and the bytes behind it.
class VtuFile {
 public:
  VtuFile(Buffer bytes, const std::string& name) : bytes_(std::move(bytes)), name_(name) {}

  Outcome Parse();
  /// "UnstructuredGrid"
  std::string_view Type() const { return root_.attribute("type").as_string(); }
  pugi::xml_node Grid() const { return root_.child(root_.attribute("type").as_string()); }
  VtkNotes Notes() const { return VtkNotes::Read(document_); }
  bool HasOldHexahedra() const { return root_.attribute("version").as_double() < 2.1; }

  /// Adds the pieces of an unstructured grid; faults are gathered.
  void Add(VtkBuilder& builder, const ReadOptions& options, std::vector<Failure>& faults);
  Failure Fault(const pugi::xml_node& node, std::string what, std::string remedy = kRemedy) const;

 private:
  Outcome CutAppended();
  Outcome ReadCoding();
  void AddPiece(const pugi::xml_node& piece, std::size_t index, std::size_t pieces,
                VtkBuilder& builder, std::vector<Failure>& faults);
  void ReadArrays(const pugi::xml_node& section, std::uint64_t targets, VtkBuilder& builder,
                  std::vector<VtkArray>& arrays, std::vector<Failure>& faults);
  /// False, with what is wrong in `faults`, for an array that cannot be read.
  bool ReadArray(const pugi::xml_node& node, std::uint64_t values, VtkArray& array,
                 std::vector<Failure>& faults);
  Outcome ReadNumber(const pugi::xml_node& node, const char* attribute, std::uint64_t most,
                     std::uint64_t& number) const;
  void ReadFieldData(const pugi::xml_node& grid, VtkBuilder& builder);
  std::size_t LineOf(std::ptrdiff_t place) const;
  std::string PlaceOf(const pugi::xml_node& node, std::size_t line) const;

  Buffer bytes_;
  std::string name_;
  std::string own_head_;       // the XML where something is appended
  std::string_view head_;      // the XML, of which the document keeps parts
  std::string_view appended_;  // behind the underscore
  bool appended_is_raw_ = false;
  std::vector<std::size_t> line_ends_;
  pugi::xml_document document_;
  pugi::xml_node root_;
  std::unique_ptr<VtkDecoder> decoder_;
};

std::string VtuFile::PlaceOf(const pugi::xml_node& node, std::size_t line) const {
  const std::string_view name = node.attribute("Name").as_string();
  std::string place = fmt::format("line {}, {}", line, node.name());
  if (!name.empty()) place += fmt::format(" \"{}\"", name);
  return place;
}

Failure VtuFile::Fault(const pugi::xml_node& node, std::string what, std::string remedy) const {
  std::string place = node ? PlaceOf(node, LineOf(node.offset_debug())) : std::string();
  return {name_, std::move(place), std::move(what), std::move(remedy)};
}

/// Number of the line at a place of the XML.
std::size_t VtuFile::LineOf(std::ptrdiff_t place) const {
  const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(place, 0));
  return static_cast<std::size_t>(std::lower_bound(line_ends_.begin(), line_ends_.end(), at) -
                                  line_ends_.begin()) +
         1;
}

/// No XML may hold raw bytes, so that what is appended is cut off before the rest is parsed.
Outcome VtuFile::CutAppended() {
  constexpr std::string_view kTag = "<AppendedData";
  const std::string_view bytes = bytes_.View();
  head_ = bytes;
  const std::size_t tag = bytes.find(kTag);
  if (tag == std::string::npos) return {};
  const std::size_t end = bytes.find('>', tag);
  const std::size_t mark =
      end == std::string::npos ? end : bytes.find_first_not_of(" \t\r\n", end + 1);
  if (mark == std::string::npos || bytes[mark] != '_') {
    return Failure{name_, "AppendedData", "no underscore stands before the data", kRemedy};
  }
  const std::string declared = std::string(bytes.substr(tag, end - tag)) + "/>";
  pugi::xml_document document;
  const pugi::xml_node node =
      document.load_string(declared.c_str()) ? document.first_child() : pugi::xml_node();
  const std::string_view encoding = node.attribute("encoding").as_string("base64");
  if (!node || (encoding != "raw" && encoding != "base64")) {
    return Failure{name_, "AppendedData",
                   fmt::format("'{}' is no encoding that is known", encoding), kRemedy};
  }
  appended_is_raw_ = encoding == "raw";
  appended_ = bytes.substr(mark + 1);
  if (!appended_is_raw_) appended_ = appended_.substr(0, appended_.find('<'));
  own_head_ = std::string(bytes.substr(0, tag)) + "</VTKFile>";
  head_ = own_head_;
  return {};
}

Outcome VtuFile::Parse() {
  const std::uint64_t file_bytes = bytes_.Size();
  if (Outcome cut = CutAppended(); !cut) return cut;
  for (std::size_t at = 0; (at = head_.find('\n', at)) != std::string::npos; ++at) {
    line_ends_.push_back(at);
  }
  // Entities that a document declares are never expanded: a few bytes stay a few bytes.
  const pugi::xml_parse_result parsed =
      document_.load_buffer_inplace(const_cast<char*>(head_.data()), head_.size(),
                                    pugi::parse_escapes | pugi::parse_pi, pugi::encoding_auto);
  if (!parsed) {
    const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0));
    const auto line = std::lower_bound(line_ends_.begin(), line_ends_.end(), at);
    return Failure{name_, fmt::format("line {}", line - line_ends_.begin() + 1),
                   fmt::format("this is no XML: {}", parsed.description()), kRemedy};
  }
  root_ = document_.child("VTKFile");
  if (!root_) return Failure{name_, "", "there is no VTKFile element", "name another file"};
  const std::string type(Type());
  if (type != "UnstructuredGrid" && type != "PUnstructuredGrid") {
    return Fault(root_, fmt::format("a VTK file of type '{}' is not read", type),
                 "write it as an unstructured grid");
  }
  if (!Grid()) return Fault(root_, fmt::format("there is no {} element", type));
  VtkCoding coding;
  const std::string_view order = root_.attribute("byte_order").as_string("LittleEndian");
  if (order != "LittleEndian" && order != "BigEndian") {
    return Fault(root_, fmt::format("byte order '{}' is not known", order));
  }
  coding.swapped = (order == "LittleEndian") != (std::endian::native == std::endian::little);
  const std::string_view header = root_.attribute("header_type").as_string("UInt32");
  if (header != "UInt32" && header != "UInt64") {
    return Fault(root_, fmt::format("header type '{}' is not known", header));
  }
  coding.header_number = header == "UInt64" ? 8 : 4;
  const std::string_view compressor = root_.attribute("compressor").as_string();
  if (compressor == "vtkZLibDataCompressor") {
    coding.compression = VtkCompression::kZlib;
  } else if (compressor == "vtkLZ4DataCompressor") {
    coding.compression = VtkCompression::kLz4;
  } else if (!compressor.empty()) {
    return Fault(root_, fmt::format("what '{}' packs is not read", compressor),
                 "write the file with zlib, LZ4 or without compression");
  }
  decoder_ = std::make_unique<VtkDecoder>(coding, file_bytes);
  return {};
}

Outcome VtuFile::ReadNumber(const pugi::xml_node& node, const char* attribute, std::uint64_t most,
                            std::uint64_t& number) const {
  std::string_view text = node.attribute(attribute).as_string();
  text = text.substr(std::min(text.find_first_not_of(' '), text.size()));
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::string_view rest = text.substr(static_cast<std::size_t>(stop - text.data()));
  if (error == std::errc() && number <= most && rest.find_first_not_of(' ') == rest.npos) return {};
  return Fault(node, fmt::format("{} is '{}', not a number from 0 to {}", attribute, text, most));
}

bool VtuFile::ReadArray(const pugi::xml_node& node, std::uint64_t values, VtkArray& array,
                        std::vector<Failure>& faults) {
  const std::size_t before = faults.size();
  const auto wrong = [&](Failure fault) {
    if (faults.size() < LossReport::kMostFaults) faults.push_back(std::move(fault));
    return false;
  };
  array.name = node.attribute("Name").as_string();
  const char* const type = node.attribute("type").as_string();
  const auto number = FindNumber(type);
  if (!number) return wrong(Fault(node, fmt::format("numbers of type '{}' are not known", type)));
  array.number = *number;
  array.place = Fault(node, "").place;
  const std::string_view format = node.attribute("format").as_string("ascii");
  std::string what;
  if (format == "appended") {
    std::uint64_t offset = 0;
    Outcome read = ReadNumber(node, "offset", appended_.size(), offset);
    if (!read) return wrong(read.Error());
    what = decoder_->Decode(appended_.substr(offset), !appended_is_raw_, values, array);
  } else if (format == "binary") {
    what = decoder_->Decode(node.text().get(), true, values, array);
  } else if (format == "ascii") {
    const auto on_wrong = [&](std::string_view word) {
      wrong({name_, PlaceOf(node, LineOf(word.data() - head_.data())),
             fmt::format("'{}' is no {}", word.substr(0, 40),
                         array.IsInteger() ? "integer" : "number"),
             kRemedy});
      return faults.size() < LossReport::kMostFaults;
    };
    what = decoder_->Parse(node.text().get(), values, array, on_wrong);
  } else {
    what = fmt::format("format '{}' is not known", format);
  }
  if (!what.empty()) return wrong(Fault(node, std::move(what)));
  return faults.size() == before;
}

void VtuFile::ReadArrays(const pugi::xml_node& section, std::uint64_t targets, VtkBuilder& builder,
                         std::vector<VtkArray>& arrays, std::vector<Failure>& faults) {
  for (const pugi::xml_node& node : section.children()) {
    const std::string_view name = node.name();
    if (name != "DataArray" && name != "Array") continue;
    const std::string_view type = node.attribute("type").as_string();
    if (type == "String" || type == "Bit") {
      builder.Report().Lost(
          type == "String" ? "arrays of texts were left out" : "arrays of bits were left out", 1,
          PlaceOf(node, LineOf(node.offset_debug())), "fields hold numbers");
      continue;
    }
    VtkArray array;
    std::uint64_t components = 1;
    if (node.attribute("NumberOfComponents")) {
      Outcome read = ReadNumber(node, "NumberOfComponents", kMostComponents, components);
      if (!read) {
        if (faults.size() < LossReport::kMostFaults) faults.push_back(read.Error());
        continue;
      }
      if (components == 0) components = 1;  // as some writers say for one
    }
    array.components = static_cast<std::uint32_t>(components);
    if (ReadArray(node, targets * components, array, faults)) arrays.push_back(std::move(array));
    if (faults.size() >= LossReport::kMostFaults) return;
  }
}

void VtuFile::ReadFieldData(const pugi::xml_node& grid, VtkBuilder& builder) {
  for (const pugi::xml_node& node : grid.child("FieldData").children()) {
    VtkArray array;
    const std::string_view name = node.attribute("Name").as_string();
    std::vector<Failure> none;  // what cannot be read is left out
    if (name == "TimeValue" && ReadArray(node, 1, array, none)) {
      array.ForEach([&](auto value) { builder.SetTime(static_cast<double>(value)); });
    } else {
      builder.Report().Lost("arrays of the whole grid were left out", 1,
                            PlaceOf(node, LineOf(node.offset_debug())),
                            "the model has values of nodes and elements only");
    }
  }
}

void VtuFile::AddPiece(const pugi::xml_node& node, std::size_t index, std::size_t pieces,
                       VtkBuilder& builder, std::vector<Failure>& faults) {
  VtkPiece piece;
  if (pieces > 1) piece.place = fmt::format("piece {}", index + 1);
  const auto wrong = [&](Failure fault) {
    if (faults.size() < LossReport::kMostFaults) faults.push_back(std::move(fault));
  };
  Outcome counted = ReadNumber(node, "NumberOfPoints", kMaxKey, piece.points);
  if (counted) counted = ReadNumber(node, "NumberOfCells", kMaxKey, piece.cells);
  if (!counted) return wrong(counted.Error());
  const std::size_t before = faults.size();
  const pugi::xml_node points = node.child("Points").child("DataArray");
  if (points) {
    ReadArray(points, piece.points * 3, piece.coordinates, faults);
  } else if (piece.points > 0) {
    wrong(Fault(node, "there are no Points"));
  }
  const pugi::xml_node cells = node.child("Cells");
  struct Part {
    const char* name;
    VtkArray* array;
  };
  bool has_offsets = true;
  for (const Part& part : {Part{"types", &piece.types}, Part{"offsets", &piece.offsets},
                           Part{"connectivity", &piece.connectivity}}) {
    const pugi::xml_node array = cells.find_child_by_attribute("DataArray", "Name", part.name);
    if (!array && piece.cells == 0) continue;
    if (!array) {
      wrong(Fault(cells ? cells : node, fmt::format("there is no {} array", part.name)));
      has_offsets &= part.array != &piece.offsets;
      continue;
    }
    std::uint64_t values = piece.cells;
    if (part.array == &piece.connectivity) {
      if (!has_offsets) break;  // how many there are is not known
      // As many as the last offset says: what is behind belongs to no cell.
      values = 0;
      piece.offsets.ForEach([&](auto value) { values = static_cast<std::uint64_t>(value); });
      if (values > std::uint64_t{1} << 40) {
        wrong(Fault(array, "the offsets name too many points"));
        break;
      }
      if (array.attribute("format").as_string() == std::string_view("ascii") && values == 0) {
        continue;
      }
    }
    const bool is_read = ReadArray(array, values, *part.array, faults);
    if (is_read && !part.array->IsInteger()) wrong(Fault(array, "its numbers are not whole"));
    if (part.array == &piece.offsets) has_offsets = is_read && part.array->IsInteger();
  }
  ReadArrays(node.child("PointData"), piece.points, builder, piece.point_data, faults);
  ReadArrays(node.child("CellData"), piece.cells, builder, piece.cell_data, faults);
  if (faults.size() == before) builder.Add(piece, name_, faults);
}

void VtuFile::Add(VtkBuilder& builder, const ReadOptions& options, std::vector<Failure>& faults) {
  const pugi::xml_node grid = Grid();
  ReadFieldData(grid, builder);
  const auto pieces = static_cast<std::size_t>(
      std::distance(grid.children("Piece").begin(), grid.children("Piece").end()));
  std::size_t index = 0;
  for (const pugi::xml_node& piece : grid.children("Piece")) {
    if (options.is_cancelled && options.is_cancelled()) {
      faults.push_back({name_, "", "the import was cancelled", ""});
      return;
    }
    AddPiece(piece, index, pieces, builder, faults);
    if (faults.size() >= LossReport::kMostFaults) return;
    ++index;
  }
}

// ---- pieces of a PVTU file ----------------------------------------------------------------------

bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
  const auto [at, rest] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
  return at == folder.end() || (std::next(at) == folder.end() && at->empty());
}

/// The path of a piece, which stays below the file's folder or one that is trusted.
Result<std::string> PiecePath(const std::string& file, const std::string& source,
                              const ReadOptions& options) {
  const std::filesystem::path own = PathFromUtf8(file).parent_path();
  std::vector<std::filesystem::path> folders{own.empty() ? std::filesystem::path(".") : own};
  for (const std::string& more : options.include_dirs) folders.push_back(PathFromUtf8(more));
  std::string name = source;
  std::replace(name.begin(), name.end(), '\\', '/');
  std::error_code error;
  for (const std::filesystem::path& folder : folders) {
    const std::filesystem::path found = folder / PathFromUtf8(name);
    if (!std::filesystem::is_regular_file(found, error)) continue;
    const std::filesystem::path real = std::filesystem::weakly_canonical(found, error);
    const bool is_allowed =
        std::any_of(folders.begin(), folders.end(), [&](const std::filesystem::path& allowed) {
          return IsBelow(real, std::filesystem::weakly_canonical(allowed, error));
        });
    if (is_allowed) return Utf8FromPath(found);
    return Failure{file, "", fmt::format("piece '{}' is not below the file's folder", source),
                   "name its folder with --include-dir if you trust the file"};
  }
  return Failure{file, "", fmt::format("piece '{}' is not there", source),
                 "put it there or name its folder with --include-dir"};
}

/// Adds the file of one piece. What is wrong with it does not keep the others from being looked at.
void AddPieceFile(const VtuFile& file, const std::string& name, const pugi::xml_node& node,
                  const ReadOptions& options, VtkBuilder& builder, std::vector<Failure>& faults) {
  const std::string source = node.attribute("Source").as_string();
  if (source.empty()) return faults.push_back(file.Fault(node, "the piece names no file"));
  const Result<std::string> path = PiecePath(name, source, options);
  if (!path) return faults.push_back(path.Error());
  Result<Buffer> bytes = ReadBuffer(*path);
  if (!bytes) return faults.push_back(bytes.Error());
  VtuFile piece(std::move(*bytes), *path);
  if (Outcome parsed = piece.Parse(); !parsed) return faults.push_back(parsed.Error());
  if (piece.Type() != "UnstructuredGrid") {
    return faults.push_back({*path, "", "a piece is no unstructured grid", kRemedy});
  }
  builder.SetOldHexahedra(piece.HasOldHexahedra());
  piece.Add(builder, options, faults);
}

void AddPieceFiles(const VtuFile& file, const std::string& name, const ReadOptions& options,
                   VtkBuilder& builder, std::vector<Failure>& faults) {
  const auto sources = file.Grid().children("Piece");
  const auto count = static_cast<std::size_t>(std::distance(sources.begin(), sources.end()));
  builder.SetPieces(count);
  std::size_t done = 0;
  for (const pugi::xml_node& node : sources) {
    AddPieceFile(file, name, node, options, builder, faults);
    if (faults.size() >= LossReport::kMostFaults) return;
    if (options.progress) options.progress(static_cast<double>(++done) / (count + 1.0));
  }
}

/// The deck, unless something was added to `faults`.
std::optional<Deck> Read(Buffer bytes, const std::string& name, const ReadOptions& options,
                         bool with_files, std::vector<Failure>& faults) {
  const std::size_t before = faults.size();
  const auto fail = [&](Failure fault) {
    faults.push_back(std::move(fault));
    return std::nullopt;
  };
  if (bytes.Size() == 0) return fail({name, "", "is empty", kRemedy});
  VtuFile file(std::move(bytes), name);
  if (Outcome parsed = file.Parse(); !parsed) return fail(parsed.Error());
  VtkBuilder builder(ValueOf(options.values, kReadOptions, "points") == "merged");
  builder.SetNotes(file.Notes());
  builder.SetOldHexahedra(file.HasOldHexahedra());
  if (file.Type() == "PUnstructuredGrid") {
    if (with_files) AddPieceFiles(file, name, options, builder, faults);
  } else {
    const auto pieces = file.Grid().children("Piece");
    builder.SetPieces(static_cast<std::size_t>(std::distance(pieces.begin(), pieces.end())));
    if (options.progress) options.progress(0.1);
    file.Add(builder, options, faults);
  }
  if (faults.size() > before) return std::nullopt;
  if (options.progress) options.progress(0.8);
  Deck deck = builder.Finish("vtu");
  // Keys, coordinates and nodes are sound by the way they were made; sets name one another.
  if (!deck.groups.empty() && !CheckMesh(deck, name, &faults)) return std::nullopt;
  if (options.progress) options.progress(1.0);
  return deck;
}

}  // namespace

std::span<const FormatOption> VtuReadOptions() { return kReadOptions; }

Result<Deck> ReadVtu(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults) {
  Result<Buffer> bytes = ReadBuffer(path);
  if (!bytes) {
    faults.push_back(bytes.Error());
    return bytes.Error();
  }
  const std::size_t before = faults.size();
  std::optional<Deck> deck = Read(std::move(*bytes), path, options, true, faults);
  if (!deck) return faults[before];
  return std::move(*deck);
}

Result<Deck> ParseVtu(std::string_view bytes, const std::string& name,
                      std::vector<Failure>* faults) {
  Buffer copy(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.Data());
  std::vector<Failure> found;
  std::optional<Deck> deck = Read(std::move(copy), name, {}, false, found);
  if (faults) faults->insert(faults->end(), found.begin(), found.end());
  if (!deck) return found.front();
  return std::move(*deck);
}

}  // namespace qx::exchange
