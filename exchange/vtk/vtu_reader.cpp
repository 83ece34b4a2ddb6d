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

constexpr const char* kAgain = "write the file again";
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

  /// Adds the pieces of an unstructured grid.
  Outcome Add(VtkBuilder& builder, const ReadOptions& options);
  Failure Fault(const pugi::xml_node& node, std::string what, std::string remedy = kAgain) const;

 private:
  Outcome CutAppended();
  Outcome ReadCoding();
  Outcome AddPiece(const pugi::xml_node& piece, std::size_t index, std::size_t pieces,
                   VtkBuilder& builder);
  Outcome ReadArrays(const pugi::xml_node& section, std::uint64_t targets, VtkBuilder& builder,
                     std::vector<VtkArray>& arrays);
  Outcome ReadArray(const pugi::xml_node& node, std::uint64_t values, VtkArray& array);
  Outcome ReadNumber(const pugi::xml_node& node, const char* attribute, std::uint64_t most,
                     std::uint64_t& number) const;
  void ReadFieldData(const pugi::xml_node& grid, VtkBuilder& builder);
  std::size_t LineOf(const pugi::xml_node& node) const;

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

Failure VtuFile::Fault(const pugi::xml_node& node, std::string what, std::string remedy) const {
  std::string place;
  if (node) {
    const std::string_view name = node.attribute("Name").as_string();
    place = fmt::format("line {}, {}", LineOf(node), node.name());
    if (!name.empty()) place += fmt::format(" \"{}\"", name);
  }
  return {name_, std::move(place), std::move(what), std::move(remedy)};
}

std::size_t VtuFile::LineOf(const pugi::xml_node& node) const {
  const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0));
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
    return Failure{name_, "AppendedData", "no underscore stands before the data", kAgain};
  }
  const std::string declared = std::string(bytes.substr(tag, end - tag)) + "/>";
  pugi::xml_document document;
  const pugi::xml_node node =
      document.load_string(declared.c_str()) ? document.first_child() : pugi::xml_node();
  const std::string_view encoding = node.attribute("encoding").as_string("base64");
  if (!node || (encoding != "raw" && encoding != "base64")) {
    return Failure{name_, "AppendedData",
                   fmt::format("'{}' is no encoding that is known", encoding), kAgain};
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
                   fmt::format("this is no XML: {}", parsed.description()), kAgain};
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

Outcome VtuFile::ReadArray(const pugi::xml_node& node, std::uint64_t values, VtkArray& array) {
  array.name = node.attribute("Name").as_string();
  const char* const type = node.attribute("type").as_string();
  const auto number = FindNumber(type);
  if (!number) return Fault(node, fmt::format("numbers of type '{}' are not known", type));
  array.number = *number;
  array.place = Fault(node, "").place;
  const std::string_view format = node.attribute("format").as_string("ascii");
  std::string wrong;
  if (format == "appended") {
    std::uint64_t offset = 0;
    if (Outcome read = ReadNumber(node, "offset", appended_.size(), offset); !read) return read;
    wrong = decoder_->Decode(appended_.substr(offset), !appended_is_raw_, values, array);
  } else if (format == "binary") {
    wrong = decoder_->Decode(node.text().get(), true, values, array);
  } else if (format == "ascii") {
    wrong = decoder_->Parse(node.text().get(), values, array);
  } else {
    wrong = fmt::format("format '{}' is not known", format);
  }
  if (!wrong.empty()) return Fault(node, std::move(wrong));
  return {};
}

Outcome VtuFile::ReadArrays(const pugi::xml_node& section, std::uint64_t targets,
                            VtkBuilder& builder, std::vector<VtkArray>& arrays) {
  for (const pugi::xml_node& node : section.children()) {
    const std::string_view name = node.name();
    if (name != "DataArray" && name != "Array") continue;
    const std::string_view type = node.attribute("type").as_string();
    if (type == "String" || type == "Bit") {
      builder.Report().Lost(
          type == "String" ? "arrays of texts were left out" : "arrays of bits were left out", 1,
          fmt::format("\"{}\"", node.attribute("Name").as_string()), "fields hold numbers");
      continue;
    }
    VtkArray array;
    std::uint64_t components = 1;
    if (node.attribute("NumberOfComponents")) {
      if (Outcome read = ReadNumber(node, "NumberOfComponents", kMostComponents, components);
          !read) {
        return read;
      }
      if (components == 0) components = 1;  // as some writers say for one
    }
    array.components = static_cast<std::uint32_t>(components);
    if (Outcome read = ReadArray(node, targets * components, array); !read) return read;
    arrays.push_back(std::move(array));
  }
  return {};
}

void VtuFile::ReadFieldData(const pugi::xml_node& grid, VtkBuilder& builder) {
  for (const pugi::xml_node& node : grid.child("FieldData").children()) {
    VtkArray array;
    const std::string_view name = node.attribute("Name").as_string();
    if (name == "TimeValue" && ReadArray(node, 1, array)) {
      array.ForEach([&](auto value) { builder.SetTime(static_cast<double>(value)); });
    } else {
      builder.Report().Lost("arrays of the whole grid were left out", 1,
                            fmt::format("\"{}\"", name),
                            "the model has values of nodes and elements only");
    }
  }
}

Outcome VtuFile::AddPiece(const pugi::xml_node& node, std::size_t index, std::size_t pieces,
                          VtkBuilder& builder) {
  VtkPiece piece;
  if (pieces > 1) piece.place = fmt::format("piece {}", index + 1);
  Outcome read = ReadNumber(node, "NumberOfPoints", kMaxKey, piece.points);
  if (read) read = ReadNumber(node, "NumberOfCells", kMaxKey, piece.cells);
  if (!read) return read;
  const pugi::xml_node points = node.child("Points").child("DataArray");
  if (!points && piece.points > 0) return Fault(node, "there are no Points");
  if (points) read = ReadArray(points, piece.points * 3, piece.coordinates);
  if (!read) return read;
  const pugi::xml_node cells = node.child("Cells");
  struct Part {
    const char* name;
    VtkArray* array;
  };
  for (const Part& part : {Part{"types", &piece.types}, Part{"offsets", &piece.offsets},
                           Part{"connectivity", &piece.connectivity}}) {
    const pugi::xml_node array = cells.find_child_by_attribute("DataArray", "Name", part.name);
    if (!array && piece.cells == 0) continue;
    if (!array) return Fault(cells ? cells : node, fmt::format("there is no {} array", part.name));
    std::uint64_t values = piece.cells;
    if (part.array == &piece.connectivity) {
      // As many as the last offset says: what is behind belongs to no cell.
      values = 0;
      piece.offsets.ForEach([&](auto value) { values = static_cast<std::uint64_t>(value); });
      if (values > std::uint64_t{1} << 40) return Fault(array, "the offsets name too many points");
      if (array.attribute("format").as_string() == std::string_view("ascii") && values == 0) {
        continue;
      }
    }
    read = ReadArray(array, values, *part.array);
    if (!read) return read;
    if (!part.array->IsInteger()) return Fault(array, "its numbers are not whole");
  }
  const auto data = [&](const char* section, std::uint64_t targets, std::vector<VtkArray>& arrays) {
    if (read) read = ReadArrays(node.child(section), targets, builder, arrays);
  };
  data("PointData", piece.points, piece.point_data);
  data("CellData", piece.cells, piece.cell_data);
  if (!read) return read;
  return builder.Add(std::move(piece), name_);
}

Outcome VtuFile::Add(VtkBuilder& builder, const ReadOptions& options) {
  const pugi::xml_node grid = Grid();
  ReadFieldData(grid, builder);
  const auto pieces = static_cast<std::size_t>(
      std::distance(grid.children("Piece").begin(), grid.children("Piece").end()));
  std::size_t index = 0;
  for (const pugi::xml_node& piece : grid.children("Piece")) {
    if (options.is_cancelled && options.is_cancelled()) {
      return Failure{name_, "", "the import was cancelled", ""};
    }
    if (Outcome added = AddPiece(piece, index, pieces, builder); !added) return added;
    ++index;
  }
  return {};
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

Outcome AddPieceFiles(const VtuFile& file, const std::string& name, const ReadOptions& options,
                      VtkBuilder& builder) {
  const auto sources = file.Grid().children("Piece");
  const auto count = static_cast<std::size_t>(std::distance(sources.begin(), sources.end()));
  builder.SetPieces(count);
  std::size_t done = 0;
  for (const pugi::xml_node& node : sources) {
    const std::string source = node.attribute("Source").as_string();
    if (source.empty()) return file.Fault(node, "the piece names no file");
    const Result<std::string> path = PiecePath(name, source, options);
    if (!path) return path.AsOutcome();
    Result<Buffer> bytes = ReadBuffer(*path);
    if (!bytes) return bytes.AsOutcome();
    VtuFile piece(std::move(*bytes), *path);
    if (Outcome parsed = piece.Parse(); !parsed) return parsed;
    if (piece.Type() != "UnstructuredGrid") {
      return Failure{*path, "", "a piece is no unstructured grid", kAgain};
    }
    builder.SetOldHexahedra(piece.HasOldHexahedra());
    if (Outcome added = piece.Add(builder, options); !added) return added;
    if (options.progress) options.progress(static_cast<double>(++done) / (count + 1.0));
  }
  return {};
}

Result<Deck> Read(Buffer bytes, const std::string& name, const ReadOptions& options,
                  bool with_files) {
  if (bytes.Size() == 0) return Failure{name, "", "is empty", kAgain};
  VtuFile file(std::move(bytes), name);
  if (Outcome parsed = file.Parse(); !parsed) return parsed.Error();
  VtkBuilder builder(ValueOf(options.values, kReadOptions, "points") == "merged");
  builder.SetNotes(file.Notes());
  builder.SetOldHexahedra(file.HasOldHexahedra());
  Outcome added;
  if (file.Type() == "PUnstructuredGrid") {
    if (with_files) added = AddPieceFiles(file, name, options, builder);
  } else {
    const auto pieces = file.Grid().children("Piece");
    builder.SetPieces(static_cast<std::size_t>(std::distance(pieces.begin(), pieces.end())));
    if (options.progress) options.progress(0.1);
    added = file.Add(builder, options);
  }
  if (!added) return added.Error();
  if (options.progress) options.progress(0.8);
  Deck deck = builder.Finish("vtu");
  // Keys, coordinates and nodes are sound by the way they were made; sets name one another.
  if (!deck.groups.empty()) {
    if (Outcome checked = CheckMesh(deck, name); !checked) return checked.Error();
  }
  if (options.progress) options.progress(1.0);
  return Result<Deck>(std::move(deck));
}

}  // namespace

std::span<const FormatOption> VtuReadOptions() { return kReadOptions; }

Result<Deck> ReadVtu(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults) {
  Result<Buffer> bytes = ReadBuffer(path);
  Result<Deck> deck = bytes ? Read(std::move(*bytes), path, options, true) : bytes.Error();
  if (!deck) faults.push_back(deck.Error());
  return deck;
}

Result<Deck> ParseVtu(std::string_view bytes, const std::string& name) {
  Buffer copy(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.Data());
  return Read(std::move(copy), name, {}, false);
}

}  // namespace qx::exchange
