#include "exchange/vtk/vtk_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <fmt/format.h>

#include "qx_db/platform/text.h"

#include "exchange/vtk/vtk_builder.h"
#include "exchange/vtk/vtk_coding.h"

namespace qx::exchange {
namespace {

constexpr const char* kAgain = "write the file again";

/// Types of numbers by the names of the format. Identifiers are 32 bits in binary files.
struct TypeName {
  std::string_view name;
  VtkNumber number;
};
constexpr TypeName kTypes[] = {
    {"unsigned_char", VtkNumber::kUInt8},
    {"char", VtkNumber::kInt8},
    {"signed_char", VtkNumber::kInt8},
    {"unsigned_short", VtkNumber::kUInt16},
    {"short", VtkNumber::kInt16},
    {"unsigned_int", VtkNumber::kUInt32},
    {"int", VtkNumber::kInt32},
    {"unsigned_long", VtkNumber::kUInt64},
    {"long", VtkNumber::kInt64},
    {"vtktypeint64", VtkNumber::kInt64},
    {"vtktypeuint64", VtkNumber::kUInt64},
    {"long_long", VtkNumber::kInt64},
    {"unsigned_long_long", VtkNumber::kUInt64},
    {"vtkidtype", VtkNumber::kInt32},
    {"float", VtkNumber::kFloat32},
    {"double", VtkNumber::kFloat64},
};

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

/// Names are written with "%20" for a blank and the like.
std::string Unquoted(std::string_view name) {
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    unsigned value = 0;
    if (name[i] == '%' && i + 2 < name.size() &&
        std::from_chars(name.data() + i + 1, name.data() + i + 3, value, 16).ptr ==
            name.data() + i + 3) {
      out += static_cast<char>(value);
      i += 2;
    } else {
      out += name[i];
    }
  }
  return IsUtf8(out) ? out : std::string(name);
}

class LegacyReader {
 public:
  LegacyReader(std::string_view bytes, const std::string& name, const ReadOptions& options,
               std::vector<Failure>& faults)
      : all_(bytes), rest_(bytes), name_(name), options_(options), faults_(faults) {}

  /// The deck, unless there are faults.
  std::optional<Deck> Read() {
    ReadHead();
    while (Ok()) {
      const std::string keyword = AsciiUpper(Word());
      if (keyword.empty()) break;
      if (options_.is_cancelled && options_.is_cancelled()) Fail("the import was cancelled", "");
      if (!ReadPart(keyword) && Ok()) {
        Fail(fmt::format("'{}' is not known here", keyword.substr(0, 40)), kAgain);
      }
      if (options_.progress) options_.progress(0.8 * static_cast<double>(At()) / all_.size());
    }
    if (Ok() && kind_ == Kind::kNone) Fail("there is no DATASET", kAgain);
    MakeStructure();
    if (Ok()) {
      piece_.cells = piece_.types.Count();
      CheckData();
    }
    if (HasFaults()) return std::nullopt;
    if (!builder_.Add(piece_, name_, faults_)) return std::nullopt;
    Deck deck = builder_.Finish("vtk");  // sound by the way it was made
    if (options_.progress) options_.progress(1.0);
    return deck;
  }

 private:
  enum class Kind { kNone, kUnstructured, kPoly, kGrid, kImage, kRectilinear };

  // ---- the text -----------------------------------------------------------------------------

  /// Whether it is known how the file goes on.
  bool Ok() const { return !is_lost_; }
  bool HasFaults() const { return !faults_.empty(); }
  std::size_t At() const { return all_.size() - rest_.size(); }
  /// A fault behind which nothing more can be read.
  void Fail(std::string what, std::string remedy) {
    if (!is_lost_) Fault(At(), std::move(what), std::move(remedy));
    is_lost_ = true;
  }
  void Fault(std::size_t at, std::string what, std::string remedy) {
    if (faults_.size() >= LossReport::kMostFaults) return;
    std::string place = fmt::format("byte {}", at);
    if (!is_binary_) {
      const auto end = all_.begin() + static_cast<std::ptrdiff_t>(at);
      place = fmt::format("line {}", std::count(all_.begin(), end, '\n') + 1);
    }
    faults_.push_back({name_, std::move(place), std::move(what), std::move(remedy)});
  }
  /// Told of a word that is no number; the values go on behind it.
  bool GoOnBehind(std::string_view word) {
    Fault(static_cast<std::size_t>(word.data() - all_.data()),
          fmt::format("'{}' is no number of its type", word.substr(0, 40)), kAgain);
    is_lost_ = is_lost_ || faults_.size() >= LossReport::kMostFaults;
    return !is_lost_;
  }

  /// The next word, on whatever line; "" at the end.
  std::string_view Word() {
    std::size_t first = 0;
    while (first < rest_.size() && static_cast<unsigned char>(rest_[first]) <= ' ') ++first;
    std::size_t end = first;
    while (end < rest_.size() && static_cast<unsigned char>(rest_[end]) > ' ') ++end;
    const std::string_view word = rest_.substr(first, end - first);
    rest_.remove_prefix(end);
    return word;
  }
  /// What is left of the line; the next one is behind it.
  std::string_view Line() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }
  std::uint64_t Number(const char* of_what, std::uint64_t most = kMaxKey) {
    const std::string_view word = Word();
    std::uint64_t number = 0;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || stop != word.data() + word.size() || number > most) {
      Fail(fmt::format("'{}' is no number of {}", word.substr(0, 40), of_what), kAgain);
      return 0;
    }
    return number;
  }
  double Real() {
    std::vector<double> value;
    const auto on_wrong = [](std::string_view) { return false; };
    if (!ParseNumbers(rest_, 1, value, on_wrong) || value.empty()) {
      Fail("a number is missing", kAgain);
      return 0;
    }
    return value[0];
  }
  std::optional<VtkNumber> Type(std::string_view word) {
    const std::string name = Lower(word);
    for (const TypeName& type : kTypes) {
      if (type.name == name) return type.number;
    }
    return std::nullopt;
  }
  /// A word that must be a type of numbers.
  VtkNumber NumberType() {
    const std::string_view word = Word();
    const auto type = Type(word);
    if (!type) Fail(fmt::format("'{}' is no type of numbers", word.substr(0, 40)), kAgain);
    return type.value_or(VtkNumber::kFloat64);
  }

  /// The next `count` numbers; in binary files they begin on the next line.
  void ReadNumbers(VtkNumber number, std::uint64_t count, VtkArray& array) {
    if (!Ok()) return;
    array.number = number;
    array.place = fmt::format("byte {}", At());
    const std::uint64_t least = is_binary_ ? SizeOf(number) : 2;  // a digit and a blank
    if (is_binary_) Line();
    const std::uint64_t room = rest_.size() + (is_binary_ ? 0 : 1);  // no blank behind the last
    if (count > room / least) {
      return Fail(fmt::format("the file ends before {} values", count), kAgain);
    }
    if (is_binary_) {
      array.swapped = std::endian::native == std::endian::little;
      array.Borrow(rest_.substr(0, count * least));
      rest_.remove_prefix(count * least);
      return;
    }
    const auto parse = [&](auto values) {
      MakeRoom(values, count);
      const auto on_wrong = [&](std::string_view word) { return GoOnBehind(word); };
      if (!ParseNumbers(rest_, count, values, on_wrong)) return;
      if (values.size() < count) {
        return Fail(fmt::format("the file ends before {} values", count), kAgain);
      }
      array.Own(values);
    };
    if (array.IsInteger()) {
      parse(std::vector<std::int64_t>());
    } else {
      parse(std::vector<double>());
    }
  }

  // ---- parts --------------------------------------------------------------------------------

  void ReadHead() {
    constexpr std::string_view kMagic = "# vtk DataFile Version ";
    const std::string_view first = Line();
    if (!first.starts_with(kMagic)) {
      return Fail("the first line is not '# vtk DataFile Version'", "name another file");
    }
    const std::string_view version = first.substr(kMagic.size());
    std::from_chars(version.data(), version.data() + version.size(), version_);
    if (!(version_ >= 1 && version_ < 6)) {
      return Fail(fmt::format("version '{}' is not read", version.substr(0, 20)),
                  "write version 3.0 or 5.1");
    }
    builder_.SetOldHexahedra(version_ < 5.1);
    Line();
    const std::string encoding = AsciiUpper(Word());
    Line();
    if (encoding != "ASCII" && encoding != "BINARY") {
      return Fail("the third line is neither ASCII nor BINARY", kAgain);
    }
    is_binary_ = encoding == "BINARY";
  }

  bool ReadPart(const std::string& keyword) {
    if (keyword == "DATASET") return ReadKind();
    if (keyword == "METADATA") return SkipMetadata();
    if (keyword == "FIELD") return ReadField();
    if (kind_ == Kind::kNone) return false;
    if (keyword == "POINT_DATA" || keyword == "CELL_DATA") {
      of_points_ = keyword == "POINT_DATA";
      targets_ = Number("values");
      (of_points_ ? point_values_ : cell_values_) = targets_;
      in_data_ = true;
      return true;
    }
    if (in_data_) return ReadData(keyword);
    if (keyword == "POINTS") {
      piece_.points = Number("points");
      const VtkNumber type = NumberType();
      ReadNumbers(type, 3 * piece_.points, piece_.coordinates);
      return true;
    }
    if (keyword == "CELLS" && kind_ == Kind::kUnstructured) return ReadCells(lists_[0]);
    if (keyword == "CELL_TYPES" && kind_ == Kind::kUnstructured) {
      ReadNumbers(VtkNumber::kInt32, Number("cells"), piece_.types);
      return true;
    }
    constexpr std::string_view kLists[] = {"VERTICES", "LINES", "POLYGONS", "TRIANGLE_STRIPS"};
    for (std::size_t i = 0; i < 4; ++i) {
      if (keyword == kLists[i] && kind_ == Kind::kPoly) return ReadCells(lists_[i]);
    }
    if (keyword == "DIMENSIONS") {
      for (std::uint64_t& size : dimensions_) size = Number("points along an axis");
      return true;
    }
    if (keyword == "ORIGIN" || keyword == "SPACING" || keyword == "ASPECT_RATIO") {
      for (double& value : keyword == "ORIGIN" ? origin_ : spacing_) value = Real();
      return true;
    }
    if (keyword.size() == 13 && keyword.ends_with("_COORDINATES") && keyword[0] >= 'X' &&
        keyword[0] <= 'Z') {
      const std::uint64_t count = Number("coordinates");
      const VtkNumber type = NumberType();
      VtkArray array;
      ReadNumbers(type, count, array);
      std::vector<double>& axis = axes_[static_cast<std::size_t>(keyword[0] - 'X')];
      array.ForEach([&](auto value) { axis.push_back(static_cast<double>(value)); });
      return true;
    }
    return false;
  }

  bool ReadKind() {
    const std::string kind = AsciiUpper(Word());
    constexpr std::pair<std::string_view, Kind> kKinds[] = {
        {"UNSTRUCTURED_GRID", Kind::kUnstructured},
        {"POLYDATA", Kind::kPoly},
        {"STRUCTURED_GRID", Kind::kGrid},
        {"STRUCTURED_POINTS", Kind::kImage},
        {"RECTILINEAR_GRID", Kind::kRectilinear}};
    for (const auto& [name, number] : kKinds) {
      if (name == kind) kind_ = number;
    }
    if (kind_ == Kind::kNone) {
      Fail(fmt::format("a data set of type '{}' is not read", kind.substr(0, 40)),
           "write it as an unstructured grid");
    }
    return true;
  }

  /// Lines up to an empty one.
  bool SkipMetadata() {
    Line();
    while (!rest_.empty() && !Line().empty()) {
    }
    return true;
  }

  struct List {
    VtkArray offsets;  // where each cell ends
    VtkArray nodes;
  };

  /// Cells as offsets and nodes, or, before version 5, each with its number of nodes before it.
  bool ReadCells(List& list) {
    const std::uint64_t count = Number("cells");
    const std::uint64_t size = Number("numbers of cells");
    if (!Ok()) return true;
    if (version_ < 5) {
      VtkArray array;
      ReadNumbers(VtkNumber::kInt32, size, array);
      if (!HasFaults()) array.InOwnType([&]<class T>(T) { DivideCells<T>(array, count, list); });
      return true;
    }
    for (const char* part : {"OFFSETS", "CONNECTIVITY"}) {
      if (count == 0) break;
      if (AsciiUpper(Word()) != part) {
        Fail(fmt::format("there is no {}", part), kAgain);
        return true;
      }
      const std::size_t at = At();
      const VtkNumber type = NumberType();
      const bool is_offsets = part[0] == 'O';
      VtkArray& array = is_offsets ? list.offsets : list.nodes;
      ReadNumbers(type, is_offsets ? count : size, array);
      if (!Ok()) return true;
      if (!array.IsInteger()) Fault(at, fmt::format("the {} are not whole numbers", part), kAgain);
    }
    if (HasFaults() || list.offsets.Count() == 0) return true;
    list.offsets.InOwnType([&]<class T>(T) {
      if (list.offsets.At<T>(0) != T{}) Fault(At(), "the first offset is not 0", kAgain);
    });
    list.offsets.DropFirst(1);
    return true;
  }

  /// Of numbers with each cell's number of nodes before its nodes.
  template <class T>
  void DivideCells(const VtkArray& array, std::uint64_t count, List& list) {
    const std::size_t size = array.Count();
    if (count > size)
      return Fail(fmt::format("{} cells cannot have {} numbers", count, size), kAgain);
    auto* end = list.offsets.Allocate<std::int64_t>(VtkNumber::kInt64, count);
    auto* const nodes = list.nodes.Allocate<std::int32_t>(VtkNumber::kInt32, size - count);
    std::size_t at = 0;
    std::size_t done = 0;
    for (std::uint64_t cell = 0; cell < count; ++cell) {
      const auto of_cell = at < size ? static_cast<std::int64_t>(array.At<T>(at)) : -1;
      // Those behind have a number each at least.
      if (of_cell < 0 || static_cast<std::uint64_t>(of_cell) >
                             size - at - 1 - std::min(count - cell - 1, size - at - 1)) {
        return Fail(fmt::format("cell {} has more nodes than there are numbers", cell), kAgain);
      }
      ++at;
      for (std::int64_t i = 0; i < of_cell; ++i, ++at) {
        const auto node = static_cast<std::int64_t>(array.At<T>(at));
        nodes[done++] =
            node == static_cast<std::int32_t>(node) ? static_cast<std::int32_t>(node) : -1;
      }
      *end++ = static_cast<std::int64_t>(done);
    }
    if (at != size) {
      Fail(fmt::format("{} of {} numbers of cells belong to none", size - at, size), kAgain);
    }
  }

  // ---- data ---------------------------------------------------------------------------------

  void AddArray(VtkArray array) {
    (of_points_ ? piece_.point_data : piece_.cell_data).push_back(std::move(array));
  }

  void ReadArray(std::string_view name, std::string_view type, std::uint64_t components) {
    VtkArray array;
    array.name = Unquoted(name);
    array.components = static_cast<std::uint32_t>(components);
    const auto number = Type(type);
    if (!number) return Fail(fmt::format("'{}' is no type of numbers", type.substr(0, 40)), kAgain);
    ReadNumbers(*number, targets_ * components, array);
    array.place = fmt::format("\"{}\"", array.name);
    if (Ok()) AddArray(std::move(array));
  }

  bool ReadData(const std::string& keyword) {
    if (keyword == "FIELD") return ReadField();
    struct Attribute {
      std::string_view keyword;
      std::uint64_t components;
    };
    constexpr Attribute kAttributes[] = {{"VECTORS", 3},   {"NORMALS", 3},    {"TENSORS", 9},
                                         {"TENSORS6", 6},  {"GLOBAL_IDS", 1}, {"PEDIGREE_IDS", 1},
                                         {"EDGE_FLAGS", 1}};
    for (const Attribute& attribute : kAttributes) {
      if (attribute.keyword != keyword) continue;
      const std::string_view name = Word();
      ReadArray(name, Word(), attribute.components);
      return true;
    }
    if (keyword == "TEXTURE_COORDINATES") {
      const std::string_view name = Word();
      const std::uint64_t components = Number("coordinates", 3);
      ReadArray(name, Word(), components);
      return true;
    }
    if (keyword == "SCALARS") {
      const std::string_view name = Word();
      const std::string_view type = Word();
      std::uint64_t components = 1;
      if (const std::string_view more = rest_.substr(0, rest_.find('\n'));
          more.find_first_not_of(" \t\r") != more.npos) {
        components = Number("components", kMostComponents);
      }
      const std::string_view before = rest_;
      if (AsciiUpper(Word()) == "LOOKUP_TABLE") {
        Word();
      } else {
        rest_ = before;
      }
      ReadArray(name, type, std::max<std::uint64_t>(components, 1));
      return true;
    }
    if (keyword == "COLOR_SCALARS" || keyword == "LOOKUP_TABLE") {
      // Colours, which the model has no place for: bytes, or reals in text.
      const std::string name(Word());
      const bool is_table = keyword == "LOOKUP_TABLE";
      const std::uint64_t number = Number("colours");
      VtkArray array;
      ReadNumbers(is_binary_ ? VtkNumber::kUInt8 : VtkNumber::kFloat32,
                  is_table ? 4 * number : number * targets_, array);
      builder_.Report().Lost("colours were left out", 1, fmt::format("\"{}\"", name),
                             "the model has values, not colours");
      return true;
    }
    return false;
  }

  bool ReadField() {
    Word();
    const std::uint64_t arrays = Number("arrays");
    for (std::uint64_t i = 0; i < arrays && Ok(); ++i) {
      std::string_view name = Word();
      while (name == "METADATA" && Ok()) {
        SkipMetadata();
        name = Word();
      }
      const std::uint64_t components = Number("components", kMostComponents);
      const std::uint64_t tuples = Number("tuples");
      const std::string_view type = Word();
      if (!Ok()) break;
      if (const std::string lower = Lower(type); lower == "string" || lower == "utf8_string") {
        SkipTexts(components * tuples);
        builder_.Report().Lost("arrays of texts were left out", 1,
                               fmt::format("\"{}\"", Unquoted(name)), "fields hold numbers");
        continue;
      }
      VtkArray array;
      array.name = Unquoted(name);
      array.components = static_cast<std::uint32_t>(std::max<std::uint64_t>(components, 1));
      const auto number = Type(type);
      if (!number) {
        Fail(fmt::format("'{}' is no type of numbers", type.substr(0, 40)), kAgain);
        break;
      }
      ReadNumbers(*number, components * tuples, array);
      array.place = fmt::format("\"{}\"", array.name);
      if (!Ok()) break;
      if (in_data_ && components > 0 && tuples == targets_) {
        AddArray(std::move(array));
      } else if (in_data_) {
        Fail(fmt::format("array \"{}\" has {} values for {}", array.name, tuples, targets_),
             kAgain);
      } else if ((array.name == "TIME" || array.name == "TimeValue") && array.Count() == 1) {
        array.ForEach([&](auto value) { builder_.SetTime(static_cast<double>(value)); });
      } else {
        builder_.Report().Lost("arrays of the whole grid were left out", 1,
                               fmt::format("\"{}\"", array.name),
                               "the model has values of nodes and elements only");
      }
    }
    return true;
  }

  /// Texts: a line each, or each with its length before it, whose bytes are told by its first bits.
  void SkipTexts(std::uint64_t count) {
    Line();
    for (std::uint64_t i = 0; i < count && Ok(); ++i) {
      if (rest_.empty()) return Fail("the file ends within texts", kAgain);
      if (!is_binary_) {
        Line();
        continue;
      }
      constexpr std::size_t kWidths[] = {8, 4, 2, 1};
      const auto first = static_cast<unsigned char>(rest_[0]);
      const std::size_t width = kWidths[first >> 6];
      if (rest_.size() < width) return Fail("the file ends within texts", kAgain);
      std::uint64_t length = first & 63;
      for (std::size_t b = 1; b < width; ++b) {
        length = length << 8 | static_cast<unsigned char>(rest_[b]);
      }
      if (rest_.size() - width < length) return Fail("the file ends within texts", kAgain);
      rest_.remove_prefix(width + length);
    }
  }

  // ---- the grid -----------------------------------------------------------------------------

  void MakeStructure() {
    if (HasFaults()) return;
    if (kind_ == Kind::kUnstructured) {
      piece_.offsets = std::move(lists_[0].offsets);
      piece_.connectivity = std::move(lists_[0].nodes);
      if (piece_.types.Count() != piece_.offsets.Count()) {
        Fail(fmt::format("there are {} cells and {} types of cells", piece_.offsets.Count(),
                         piece_.types.Count()),
             kAgain);
      }
    } else if (kind_ == Kind::kPoly) {
      JoinLists();
    } else {
      MakeGrid();
    }
  }

  void JoinLists() {
    std::vector<std::int64_t> types, offsets, nodes;
    for (std::size_t i = 0; i < 4; ++i) {
      std::int64_t begin = 0;
      for (const std::int64_t end : lists_[i].offsets.Integers()) {
        const std::int64_t count = end - begin;
        begin = end;
        constexpr std::int64_t kMany[] = {kVtkPolyVertex, kVtkPolyLine, 7, kVtkTriangleStrip};
        const bool is_plain =
            count >= 1 && count <= 4 && (i < 2 ? count == (i == 0 ? 1 : 2) : i == 2 && count > 2);
        constexpr std::int64_t kPlain[] = {0, 1, 3, 5, 9};
        types.push_back(is_plain ? kPlain[count] : kMany[i]);
        offsets.push_back(static_cast<std::int64_t>(nodes.size()) + end);
      }
      lists_[i].nodes.ForEach([&](auto node) { nodes.push_back(AsInteger(node)); });
    }
    piece_.types.Own(types);
    piece_.offsets.Own(offsets);
    piece_.connectivity.Own(nodes);
  }

  /// Points, unless they are there, and cells of a grid whose points run in rows.
  void MakeGrid() {
    const auto& [nx, ny, nz] = dimensions_;
    if (nx < 1 || ny < 1 || nz < 1) return Fail("there are no DIMENSIONS", kAgain);
    // A few bytes must not become a grid that fills the memory.
    const std::uint64_t most = 16 * static_cast<std::uint64_t>(all_.size()) + 1000000;
    if (nx > most || ny > most / nx || nz > most / (nx * ny)) {
      return Fail("the file is too short for so many points", kAgain);
    }
    const std::uint64_t points = nx * ny * nz;
    if (kind_ == Kind::kGrid) {
      if (piece_.points != points) {
        return Fail(fmt::format("there are {} points for a grid of {}", piece_.points, points),
                    kAgain);
      }
    } else {
      MakePoints();
      if (!Ok()) return;
    }
    piece_.points = points;
    MakeGridCells();
  }

  void MakePoints() {
    for (std::size_t d = 0; d < 3; ++d) {
      std::vector<double>& axis = axes_[d];
      if (kind_ == Kind::kImage) {
        axis.clear();
        for (std::uint64_t i = 0; i < dimensions_[d]; ++i) {
          axis.push_back(origin_[d] + spacing_[d] * static_cast<double>(i));
        }
      }
      if (axis.size() != dimensions_[d]) {
        return Fail(
            fmt::format("axis {} has {} coordinates for {}", "xyz"[d], axis.size(), dimensions_[d]),
            kAgain);
      }
    }
    std::vector<double> coordinates;
    for (const double z : axes_[2]) {
      for (const double y : axes_[1]) {
        for (const double x : axes_[0]) coordinates.insert(coordinates.end(), {x, y, z});
      }
    }
    piece_.coordinates.Own(coordinates);
  }

  void MakeGridCells() {
    // Steps between neighbours along the axes that have more than one point.
    std::vector<std::int64_t> steps;
    std::array<std::uint64_t, 3> cells{};
    std::int64_t step = 1;
    for (std::size_t d = 0; d < 3; ++d) {
      cells[d] = std::max<std::uint64_t>(dimensions_[d] - 1, 1);
      if (dimensions_[d] > 1) steps.push_back(step);
      step *= static_cast<std::int64_t>(dimensions_[d]);
    }
    const auto row = static_cast<std::int64_t>(dimensions_[0]);
    const std::int64_t layer = row * static_cast<std::int64_t>(dimensions_[1]);
    std::vector<std::int64_t> corners{0};
    if (steps.size() > 0) corners = {0, steps[0]};
    if (steps.size() > 1) corners.insert(corners.end(), {steps[0] + steps[1], steps[1]});
    if (steps.size() > 2) {
      for (std::size_t i = 0; i < 4; ++i) corners.push_back(corners[i] + steps[2]);
    }
    constexpr std::int64_t kCellTypes[] = {1, 3, 9, 12};
    std::vector<std::int64_t> types, offsets, nodes;
    for (std::uint64_t z = 0; z < cells[2]; ++z) {
      for (std::uint64_t y = 0; y < cells[1]; ++y) {
        for (std::uint64_t x = 0; x < cells[0]; ++x) {
          const std::int64_t first = static_cast<std::int64_t>(x) +
                                     static_cast<std::int64_t>(y) * row +
                                     static_cast<std::int64_t>(z) * layer;
          for (const std::int64_t corner : corners) nodes.push_back(first + corner);
          types.push_back(kCellTypes[steps.size()]);
          offsets.push_back(static_cast<std::int64_t>(nodes.size()));
        }
      }
    }
    piece_.types.Own(types);
    piece_.offsets.Own(offsets);
    piece_.connectivity.Own(nodes);
  }

  /// Values must be as many as what they belong to.
  void CheckData() {
    const auto check = [&](const std::optional<std::uint64_t>& values, std::uint64_t count,
                           const char* what) {
      if (!values || *values == count) return;
      Fault(At(), fmt::format("there are values for {} {} of {}", *values, what, count), kAgain);
    };
    check(point_values_, piece_.points, "points");
    check(cell_values_, piece_.cells, "cells");
  }

  static constexpr std::uint64_t kMostComponents = 1000;

  std::string_view all_;
  std::string_view rest_;
  const std::string& name_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  bool is_lost_ = false;
  double version_ = 0;
  bool is_binary_ = false;
  Kind kind_ = Kind::kNone;
  VtkBuilder builder_{false};
  VtkPiece piece_;
  std::array<List, 4> lists_;
  std::array<std::uint64_t, 3> dimensions_{};
  std::array<double, 3> origin_{};
  std::array<double, 3> spacing_{1, 1, 1};
  std::array<std::vector<double>, 3> axes_;
  bool in_data_ = false;
  bool of_points_ = true;
  std::uint64_t targets_ = 0;
  std::optional<std::uint64_t> point_values_;
  std::optional<std::uint64_t> cell_values_;
};

}  // namespace

Result<Deck> ParseVtk(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>* faults) {
  if (bytes.empty()) return Failure{name, "", "is empty", kAgain};
  std::vector<Failure> found;
  std::optional<Deck> deck = LegacyReader(bytes, name, options, found).Read();
  if (faults) faults->insert(faults->end(), found.begin(), found.end());
  if (!deck) return found.front();
  return std::move(*deck);
}

Result<Deck> ReadVtk(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults) {
  const Result<Buffer> bytes = ReadBuffer(path);
  Result<Deck> deck = bytes ? ParseVtk(bytes->View(), path, options, &faults) : bytes.Error();
  if (!deck && faults.empty()) faults.push_back(deck.Error());
  return deck;
}

}  // namespace qx::exchange
