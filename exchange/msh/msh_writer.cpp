#include "exchange/msh/msh_writer.h"

#include <algorithm>
#include <ostream>

#include "qx_db/platform/file.h"

#include "exchange/msh/msh_write_sections.h"

namespace qx::exchange {
namespace {

void WriteNames(const MshModel& model, MshSink& out) {
  std::string lines;
  std::size_t count = 0;
  for (int dimension = 0; dimension < 4; ++dimension) {
    for (const MshModel::Set& set : model.Sets()) {
      const auto tag = set.tags.find(dimension);
      if (tag == set.tags.end() || !tag->second.named) continue;
      ++count;
      // The first quote ends a name for others; $QXMeshSets has it as it is.
      std::string name = set.name;
      std::replace(name.begin(), name.end(), '"', '\'');
      lines += fmt::format("{} {} \"{}\"\n", dimension, tag->second.number, name);
    }
  }
  if (count > 0) out.Text("$PhysicalNames\n{}\n{}$EndPhysicalNames\n", count, lines);
}

void WriteSets(const MshModel& model, MshSink& out) {
  if (model.Sets().empty()) return;
  std::map<Key, std::size_t> place;  // from 1
  for (std::size_t i = 0; i < model.Sets().size(); ++i) {
    place.emplace(model.Sets()[i].record->key, i + 1);
  }
  out.Text("$QXMeshSets\n{}\n", model.Sets().size());
  for (const MshModel::Set& set : model.Sets()) {
    const auto parent = place.find(set.record->parent_key);
    out.Text("{} {:06X} {} {}", set.record->key, static_cast<std::uint32_t>(set.record->color),
             parent == place.end() ? 0 : parent->second, set.tags.size());
    for (const auto& [dimension, tag] : set.tags) out.Text(" {} {}", dimension, tag.number);
    out.Text(" {}", set.extra_nodes.size());
    for (const Key node : set.extra_nodes) out.Text(" {}", node);
    out.Text(" \"{}\"\n", set.name);
  }
  out.Text("$EndQXMeshSets\n");
}

void WriteUnits(const MshModel& model, MshSink& out) {
  const UnitSystem& units = model.Session().Units().Current();
  out.Text("$QXUnits\n");
  for (int i = 0; i < kUnitBaseCount; ++i) {
    const auto base = static_cast<UnitBase>(i);
    out.Text("{}{}", i > 0 ? " " : "", UnitsOf(base)[static_cast<std::size_t>(units[base])].name);
  }
  out.Text("\n$EndQXUnits\n");
}

void Write(const MshModel& model, MshSink& out, bool binary, MshVersion version,
           LossReport& report) {
  const bool is_old = version == MshVersion::k22;
  out.Text("$MeshFormat\n{} {} 8\n", is_old ? "2.2" : "4.1", binary ? 1 : 0);
  if (binary) out.Int(1);
  out.EndSection("MeshFormat");
  WriteUnits(model, out);  // first, for it tells whose the file is
  WriteNames(model, out);
  WriteSets(model, out);
  if (is_old) {
    WriteMesh22(model, out, binary, report);
  } else {
    WriteMesh41(model, out);
  }
  WriteCarried(model, out, binary, version, report);
  WriteFields(model, out, binary, is_old, report);
}

Outcome CheckNumbers(const DPoolBase& pool, const char* what, const std::string& path) {
  if (!pool.Find(0)) return {};
  return Failure{path, fmt::format("{} 0", what), "numbers in a MSH file begin at 1",
                 "renumber the model"};
}

}  // namespace

Outcome WriteMsh(const CQXDBSession& session, const std::string& path, MshEncoding encoding,
                 LossReport* report, const Progress& progress, MshVersion version) {
  if (!session.GetDataPool(code::kMset)) {
    return Failure{path, "", "the model has no pool of mesh sets", "add the standard pools"};
  }
  Outcome fits = CheckCanBeWritten(session, path);
  if (fits) fits = CheckNumbers(*session.GetDataPool(code::kNode), "node", path);
  if (fits) fits = CheckNumbers(*session.GetDataPool(code::kElem), "element", path);
  if (!fits) return fits;

  const MshModel model(session);
  LossReport found;
  model.FillReport(found);
  if (progress) progress(0);  // what there is to write is known
  const bool binary = encoding == MshEncoding::kBinary;
  Outcome written = WriteFileBy(path, [&](std::ostream& out) {
    MshSink sink(out, binary, model.Items(), progress);
    Write(model, sink, binary, version, found);
  });
  if (!written) return written;
  if (report) report->Append(found);
  if (progress) progress(1.0);
  return {};
}

}  // namespace qx::exchange
