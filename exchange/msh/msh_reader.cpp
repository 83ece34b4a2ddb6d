#include "exchange/msh/msh_reader.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <set>

#include "qx_db/platform/file.h"

#include "exchange/msh/msh_sections.h"

namespace qx::exchange {
namespace {

enum class Version { kNone, k2, k40, k41 };

/// Which function reads which section.
struct SectionReader {
  Version version;
  std::string_view name;
  ReadMshSection read;
};

constexpr SectionReader kSections[] = {
    {Version::k2, "PhysicalNames", ReadPhysicalNames},
    {Version::k2, "QXMeshSets", ReadMeshSets},
    {Version::k2, "Nodes", msh2::ReadNodes},
    {Version::k2, "ParametricNodes", msh2::ReadParametricNodes},
    {Version::k2, "Elements", msh2::ReadElements},
    {Version::k2, "NodeData", ReadNodeData},
    {Version::k2, "ElementData", ReadElementData},
    {Version::k2, "ElementNodeData", ReadElementNodeData},
    {Version::k2, "Periodic", ReadPeriodicText},
    {Version::k2, "QXUnits", ReadUnits},
    {Version::k40, "PhysicalNames", ReadPhysicalNames},
    {Version::k40, "QXMeshSets", ReadMeshSets},
    {Version::k40, "Entities", msh40::ReadEntities},
    {Version::k40, "PartitionedEntities", msh40::ReadPartitionedEntities},
    {Version::k40, "Nodes", msh40::ReadNodes},
    {Version::k40, "Elements", msh40::ReadElements},
    {Version::k40, "NodeData", ReadNodeData},
    {Version::k40, "ElementData", ReadElementData},
    {Version::k40, "ElementNodeData", ReadElementNodeData},
    {Version::k40, "Periodic", ReadPeriodicText},
    {Version::k40, "GhostElements", ReadGhostElements},
    {Version::k40, "QXUnits", ReadUnits},
    {Version::k41, "PhysicalNames", ReadPhysicalNames},
    {Version::k41, "QXMeshSets", ReadMeshSets},
    {Version::k41, "Entities", msh41::ReadEntities},
    {Version::k41, "PartitionedEntities", msh41::ReadPartitionedEntities},
    {Version::k41, "Nodes", msh41::ReadNodes},
    {Version::k41, "Elements", msh41::ReadElements},
    {Version::k41, "NodeData", ReadNodeData},
    {Version::k41, "ElementData", ReadElementData},
    {Version::k41, "ElementNodeData", ReadElementNodeData},
    {Version::k41, "Periodic", ReadPeriodic41},
    {Version::k41, "GhostElements", ReadGhostElements},
    {Version::k41, "QXUnits", ReadUnits},
};

Version FindVersion(MshCursor& in) {
  const double number = in.TextReal();
  if (number >= 2 && number < 3) return Version::k2;  // 2.0 to 2.2 differ in no section
  if (number == 4.0) return Version::k40;
  if (number == 4.1) return Version::k41;
  in.Fail(fmt::format("version {} of the format is not read", number),
          "write the file in version 2.2, 4.0 or 4.1");
  return Version::kNone;
}

/// $MeshFormat: version, text or binary, the size of a number, and the number 1 to tell the order
/// of bytes.
Version ReadMeshFormat(MshCursor& in) {
  const Version version = FindVersion(in);
  const std::int64_t type = in.TextInteger();
  if (type != 0 && type != 1) {
    in.Fail(fmt::format("file type {} is neither 0 nor 1", type), "write the file again");
  }
  const std::int64_t size = in.TextInteger();
  if (size != 8 && !(size == 4 && version == Version::k41)) {
    in.Fail(fmt::format("numbers of {} bytes are not read", size), "write the file with 8 bytes");
  }
  if (type == 0) return version;
  in.EndLine();
  MshCursor::Encoding encoding{true, false, static_cast<int>(size)};
  in.SetEncoding(encoding);
  const std::int32_t one = in.Int();
  encoding.swapped = one == 0x01000000;
  if (one != 1 && !encoding.swapped) {
    in.Fail("the mark of the byte order is not the number 1", "write the file again");
  }
  in.SetEncoding(encoding);
  return version;
}

const SectionReader* FindSection(Version version, std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kSections), std::end(kSections), [&](const SectionReader& section) {
        return section.version == version && section.name == name;
      });
  return found == std::end(kSections) ? nullptr : found;
}

void ReadSections(MshCursor& in, MshBuilder& mesh) {
  constexpr const char* kWriteWhole = "write the whole mesh as a MSH file";
  Version version = Version::kNone;
  std::set<std::string_view> seen;
  while (const auto name = in.NextSection()) {
    const SectionReader* section = FindSection(version, *name);
    const bool is_format = *name == "MeshFormat";
    const bool may_repeat = name->ends_with("Data");
    if ((section || is_format) && !may_repeat && !seen.insert(*name).second) {
      in.Fail("the section is there twice", "remove one");
    }
    if (is_format) {
      version = ReadMeshFormat(in);
    } else if (section) {
      section->read(in, mesh);
    } else if (version == Version::kNone && (*name == "NOD" || *name == "ELM")) {
      in.Fail("this is a MSH file of version 1, which is not read",
              "write it in version 2.2 or 4.1 with a program that reads version 1");
    } else if (version == Version::kNone && FindSection(Version::k2, *name)) {
      in.Fail("the section stands before $MeshFormat", "put $MeshFormat first");
    } else {
      CarryUnknown(in, mesh, *name);
      continue;
    }
    in.EndSection();
  }
  if (version == Version::kNone) in.Fail("there is no $MeshFormat section", kWriteWhole);
  if (!seen.contains("Nodes") && !seen.contains("ParametricNodes")) {
    in.Fail("there is no $Nodes section", kWriteWhole);
  }
  if (!seen.contains("Elements")) in.Fail("there is no $Elements section", kWriteWhole);
}

}  // namespace

std::string ReadQuotedName(MshCursor& in) {
  const std::string_view line = in.RestOfLine();
  const std::size_t first = line.find('"');
  const std::size_t last = line.rfind('"');
  if (first == last) {
    in.Fail("a name in quotes is missing", "put the name of the group in quotes");
    return {};
  }
  const std::string_view name = line.substr(first + 1, last - first - 1);
  if (!IsUtf8(name) || name.find('\0') != std::string_view::npos) {
    in.Fail("the name is not UTF-8 text", "write the file in UTF-8");
    return {};
  }
  return std::string(name);
}

void ReadPhysicalNames(MshCursor& in, MshBuilder& mesh) {
  const std::int64_t count = in.TextInteger();
  for (std::int64_t i = 0; i < count && in.Ok(); ++i) {
    const std::int64_t dimension = in.TextInteger();
    const std::int64_t tag = in.TextInteger();
    if (dimension < 0 || dimension > 3 || tag != static_cast<std::int32_t>(tag)) {
      in.Fail(fmt::format("{} {} names no physical group", dimension, tag),
              "give its dimension, from 0 to 3, and its tag");
    }
    const MshBuilder::Tag group{static_cast<int>(dimension), static_cast<std::int32_t>(tag)};
    if (!mesh.NameGroup(group, ReadQuotedName(in))) {
      in.Fail("the physical group has a name already", "remove one of the names");
    }
    in.PassOver();
  }
}

Result<Deck> ParseMsh(std::string_view bytes, const std::string& name, const Progress& progress,
                      std::vector<Failure>* faults) {
  std::vector<Failure> found;
  Result<Deck> deck = Failure{name, "", "is empty", "write the file again"};
  if (!bytes.empty()) {
    MshCursor in(bytes, name, progress);
    MshBuilder builder;
    ReadSections(in, builder);
    found = in.PassedOver();
    if (!in.Ok()) found.push_back(in.Error());
    if (found.empty()) {
      deck = builder.Finish(in, bytes.size());
      if (!in.Ok()) found.push_back(in.Error());
    }
    if (found.empty()) (void)CheckMesh(*deck, name, &found);
  } else {
    found.push_back(deck.Error());
  }
  if (!found.empty()) deck = found.front();
  if (faults) *faults = std::move(found);
  if (deck && progress) progress(1.0);
  return deck;
}

Result<Deck> ReadMsh(const std::string& path, const Progress& progress,
                     std::vector<Failure>* faults) {
  const Result<std::string> bytes = ReadWholeFile(path);
  if (!bytes && faults) faults->push_back(bytes.Error());
  if (!bytes) return bytes.Error();
  return ParseMsh(*bytes, path, progress, faults);
}

}  // namespace qx::exchange
