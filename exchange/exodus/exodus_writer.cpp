#include "exchange/exodus/exodus_writer.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>

#include "qx_db/platform/new_file.h"
#include "qx_db/record/element_types.h"

#include "exchange/exodus/exodus_kinds.h"
#include "exchange/exodus/exodus_model.h"
#include "exchange/exodus/nc_file.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

using Type = NcWriter::Type;

/// Writes one file: the definitions, then the values.
class ExodusFile {
 public:
  ExodusFile(const ExodusModel& model, const CQXDBSession& session, NcWriter& out,
             LossReport& report, const Progress& progress)
      : model_(model), session_(session), out_(out), report_(report), progress_(progress) {}

  void Write() {
    Prepare();
    DefineAll();
    out_.EndDefinitions();
    Tell(0.35);
    PutMesh();
    Tell(0.6);
    PutSets("ns", "node_ns", model_.NodeSets());
    PutSets("els", "elem_els", model_.ElementSets());
    PutSets("ss", "elem_ss", model_.SideSets());
    PutVariables();
    for (const auto& [name, lines] : texts_) out_.Put(name, lines, WidthOf(lines, 33));
  }

 private:
  void Tell(double done) const {
    if (progress_) progress_(done);
  }

  static std::size_t WidthOf(const std::vector<std::string>& texts, std::size_t least) {
    for (const std::string& text : texts) least = std::max(least, text.size() + 1);
    return least;
  }
  template <class List>
  static std::vector<std::string> NamesOf(const List& list) {
    std::vector<std::string> names;
    for (const auto& item : list) names.push_back(item.name);
    return names;
  }

  /// Which blocks have which attributes and variables, how long names are, what is carried.
  void Prepare() {
    first_.push_back(0);
    for (const auto& block : model_.Blocks()) {
      first_.push_back(first_.back() + block.elements.size());
    }
    const auto has_values = [&](const ExodusModel::Variable& variable) {
      std::vector<bool> has(model_.Blocks().size());
      for (const auto& [step, field] : variable.at) {
        const std::vector<double> values = model_.Values(variable, step, false);
        for (std::size_t b = 0; b < has.size(); ++b) {
          has[b] = has[b] || std::any_of(At(values, first_[b]), At(values, first_[b + 1]),
                                         [](double x) { return !std::isnan(x); });
        }
      }
      return has;
    };
    for (const auto& variable : model_.ElementVariables()) {
      variable_blocks_.push_back(has_values(variable));
    }
    for (const auto& variable : model_.Attributes())
      attribute_blocks_.push_back(has_values(variable));
    for (const auto& names :
         {NamesOf(model_.Blocks()), NamesOf(model_.NodeSets()), NamesOf(model_.ElementSets()),
          NamesOf(model_.SideSets()), NamesOf(model_.NodeVariables()),
          NamesOf(model_.ElementVariables()), NamesOf(model_.Attributes())}) {
      name_width_ = WidthOf(names, name_width_);
    }
    auto* const session = const_cast<CQXDBSession*>(&session_);
    host::ForEach<tagTCarried>(session, [&](ITR, const tagTCarried& carried) {
      const std::string name = Utf8(carried.keyword.View());
      const bool is_known = name == "qa_records" || name == "info_records";
      if (carried.format.View() != u"exodus" || !is_known) return true;
      std::vector<std::string>& lines = texts_[name];
      std::string line;
      for (const char c : carried.text) {
        if (c != '\n') {
          line += c;
        } else {
          lines.push_back(std::move(line));
          line.clear();
        }
      }
      return true;
    });
    if (auto qa = texts_.find("qa_records"); qa != texts_.end()) {
      qa->second.resize(qa->second.size() / 4 * 4);
    }
    std::erase_if(texts_, [](const auto& text) { return text.second.empty(); });
    host::ForEach<tagTOrigin>(session, [&](ITR, const tagTOrigin& origin) {
      if (title_.empty()) title_ = Utf8(origin.title.View());
      return title_.empty();
    });
  }

  static std::vector<double>::const_iterator At(const std::vector<double>& values, std::size_t i) {
    return values.begin() + static_cast<std::ptrdiff_t>(i);
  }

  // ---- definitions --------------------------------------------------------------------------

  void DefineAll() {
    // What version 4.98 of the format's own library wrote first, and every one since reads.
    out_.Real("api_version", 4.98f);
    out_.Real("version", 4.98f);
    out_.Integer("floating_point_word_size", 8);
    out_.Integer("file_size", 1);
    out_.Integer(kExodusOwn, 1);
    out_.Integer("maximum_name_length", static_cast<int>(name_width_) - 1);
    out_.Text("", "title", title_);
    names_ = out_.Dimension("len_name", name_width_);
    out_.Dimension("len_string", 33);
    out_.Dimension("len_line", 81);
    out_.Dimension("four", 4);
    steps_ = out_.Dimension("time_step", 0);
    const int dimensions = out_.Dimension("num_dim", 3);
    out_.Define("time_whole", Type::kReal, {steps_});
    const std::size_t nodes = model_.Source().node_keys.size();
    if (nodes > 0) {
      const int count = out_.Dimension("num_nodes", nodes);
      for (const char* axis : {"coordx", "coordy", "coordz"}) {
        out_.Define(axis, Type::kReal, {count});
      }
      out_.Define("node_num_map", Type::kInteger, {count});
      DefineVariables("num_nod_var", "name_nod_var", model_.NodeVariables());
      for (std::size_t v = 0; v < model_.NodeVariables().size(); ++v) {
        out_.Define(fmt::format("vals_nod_var{}", v + 1), Type::kReal, {steps_, count});
      }
    }
    out_.Define("coor_names", Type::kText, {dimensions, names_});
    if (model_.Elements() > 0) {
      out_.Define("elem_num_map", Type::kInteger, {out_.Dimension("num_elem", model_.Elements())});
    }
    DefineBlocks();
    DefineSets("num_node_sets", "ns", "num_nod_ns", "node_ns", model_.NodeSets());
    DefineSets("num_elem_sets", "els", "num_ele_els", "elem_els", model_.ElementSets());
    DefineSets("num_side_sets", "ss", "num_side_ss", "elem_ss", model_.SideSets());
    for (const auto& [name, lines] : texts_) {
      const bool is_qa = name == "qa_records";
      const std::size_t width = WidthOf(lines, 33);
      const int length = out_.Dimension(
          width == 33 ? std::string("len_string") : fmt::format("len_{}", name), width);
      const std::size_t count = is_qa ? lines.size() / 4 : lines.size();
      std::vector<int> shape{out_.Dimension(is_qa ? "num_qa_rec" : "num_info", count), length};
      if (is_qa) shape.insert(shape.begin() + 1, out_.Dimension("four", 4));
      out_.Define(name, Type::kText, shape);
    }
  }

  void DefineVariables(const char* dimension, const char* names,
                       const std::vector<ExodusModel::Variable>& variables) {
    if (variables.empty()) return;
    out_.Define(names, Type::kText, {out_.Dimension(dimension, variables.size()), names_});
  }

  void DefineBlocks() {
    const auto& blocks = model_.Blocks();
    if (blocks.empty()) return;
    const int count = out_.Dimension("num_el_blk", blocks.size());
    out_.Define("eb_status", Type::kInteger, {count});
    out_.Define("eb_prop1", Type::kInteger, {count});
    out_.Text("eb_prop1", "name", "ID");
    out_.Define("eb_names", Type::kText, {count, names_});
    DefineVariables("num_elem_var", "name_elem_var", model_.ElementVariables());
    if (!model_.ElementVariables().empty()) {
      out_.Define("elem_var_tab", Type::kInteger,
                  {count, out_.Dimension("num_elem_var", model_.ElementVariables().size())});
    }
    for (std::size_t b = 0; b < blocks.size(); ++b) {
      if (blocks[b].elements.empty()) continue;
      const std::size_t n = b + 1;
      const auto width = static_cast<std::size_t>(FindElementType(blocks[b].code)->nodes);
      const int elements =
          out_.Dimension(fmt::format("num_el_in_blk{}", n), blocks[b].elements.size());
      const std::string connect = fmt::format("connect{}", n);
      out_.Define(connect, Type::kInteger,
                  {elements, out_.Dimension(fmt::format("num_nod_per_el{}", n), width)});
      out_.Text(connect, "elem_type", std::string(ExodusTypeOf(blocks[b].code)));
      std::size_t attributes = 0;
      for (const std::vector<bool>& has : attribute_blocks_) attributes += has[b];
      if (attributes > 0) {
        const int length = out_.Dimension(fmt::format("num_att_in_blk{}", n), attributes);
        out_.Define(fmt::format("attrib{}", n), Type::kReal, {elements, length});
        out_.Define(fmt::format("attrib_name{}", n), Type::kText, {length, names_});
      }
      for (std::size_t v = 0; v < variable_blocks_.size(); ++v) {
        if (!variable_blocks_[v][b]) continue;
        out_.Define(fmt::format("vals_elem_var{}eb{}", v + 1, n), Type::kReal, {steps_, elements});
      }
    }
  }

  void DefineSets(const char* dimension, const std::string& letters, const std::string& size,
                  const std::string& members, const std::vector<ExodusModel::Set>& sets) {
    if (sets.empty()) return;
    const int count = out_.Dimension(dimension, sets.size());
    out_.Define(letters + "_status", Type::kInteger, {count});
    out_.Define(letters + "_prop1", Type::kInteger, {count});
    out_.Text(letters + "_prop1", "name", "ID");
    out_.Define(letters + "_names", Type::kText, {count, names_});
    for (std::size_t s = 0; s < sets.size(); ++s) {
      if (sets[s].members.empty()) continue;
      const int length = out_.Dimension(size + std::to_string(s + 1), sets[s].members.size());
      out_.Define(members + std::to_string(s + 1), Type::kInteger, {length});
      if (letters == "ss") {
        out_.Define(fmt::format("side_ss{}", s + 1), Type::kInteger, {length});
      }
    }
  }

  // ---- values -------------------------------------------------------------------------------

  void PutMesh() {
    const Deck& mesh = model_.Source();
    const std::size_t nodes = mesh.node_keys.size();
    for (std::size_t d = 0; d < 3 && nodes > 0; ++d) {
      std::vector<double> axis(nodes);
      for (std::size_t i = 0; i < nodes; ++i) axis[i] = mesh.coordinates[3 * i + d];
      out_.Put(fmt::format("coord{}", "xyz"[d]), axis);
    }
    out_.Put("coor_names", {"x", "y", "z"}, name_width_);
    if (nodes > 0) out_.Put("node_num_map", mesh.node_keys);
    const auto& blocks = model_.Blocks();
    if (blocks.empty()) return;
    std::vector<std::int32_t> status, ids, element_keys;
    for (std::size_t b = 0; b < blocks.size(); ++b) {
      status.push_back(!blocks[b].elements.empty());
      ids.push_back(blocks[b].id);
      if (blocks[b].elements.empty()) continue;
      const std::int8_t* const order = ExodusOrderOf(blocks[b].code);
      const auto width = static_cast<std::size_t>(FindElementType(blocks[b].code)->nodes);
      std::vector<std::int32_t> connectivity;
      connectivity.reserve(blocks[b].elements.size() * width);
      for (const std::size_t i : blocks[b].elements) {
        element_keys.push_back(mesh.elements[i].key);
        const Key* const own = mesh.connectivity.data() + mesh.elements[i].first;
        for (std::size_t k = 0; k < width; ++k) {
          const Key key = own[order ? static_cast<std::size_t>(order[k]) : k];
          connectivity.push_back(static_cast<std::int32_t>(model_.NodePlace(key)) + 1);
        }
      }
      out_.Put(fmt::format("connect{}", b + 1), connectivity);
      Tell(0.35 + 0.25 * static_cast<double>(b + 1) / static_cast<double>(blocks.size()));
      PutAttributes(b);
    }
    out_.Put("eb_status", status);
    out_.Put("eb_prop1", ids);
    out_.Put("eb_names", NamesOf(blocks), name_width_);
    if (!element_keys.empty()) out_.Put("elem_num_map", element_keys);
  }

  void PutAttributes(std::size_t b) {
    std::vector<std::vector<double>> columns;
    std::vector<std::string> names;
    std::uint64_t missing = 0;
    for (std::size_t a = 0; a < attribute_blocks_.size(); ++a) {
      if (!attribute_blocks_[a][b]) continue;
      const std::vector<double> all = model_.Values(model_.Attributes()[a], 0, false);
      columns.emplace_back(At(all, first_[b]), At(all, first_[b + 1]));
      names.push_back(model_.Attributes()[a].name);
      for (double& value : columns.back()) {
        missing += std::isnan(value);
        if (std::isnan(value)) value = 0;
      }
    }
    if (columns.empty()) return;
    report_.Changed("attributes that elements of a block do not have became 0", missing,
                    fmt::format("block {}", model_.Blocks()[b].id),
                    "all elements of a block have them");
    std::vector<double> rows;
    for (std::size_t e = 0; e < columns[0].size(); ++e) {
      for (const std::vector<double>& column : columns) rows.push_back(column[e]);
    }
    out_.Put(fmt::format("attrib{}", b + 1), rows);
    out_.Put(fmt::format("attrib_name{}", b + 1), names, name_width_);
  }

  void PutSets(const std::string& letters, const std::string& members,
               const std::vector<ExodusModel::Set>& sets) {
    if (sets.empty()) return;
    std::vector<std::int32_t> status, ids;
    for (std::size_t s = 0; s < sets.size(); ++s) {
      status.push_back(!sets[s].members.empty());
      ids.push_back(sets[s].id);
      if (sets[s].members.empty()) continue;
      out_.Put(members + std::to_string(s + 1), sets[s].members);
      if (letters == "ss") out_.Put(fmt::format("side_ss{}", s + 1), sets[s].sides);
    }
    out_.Put(letters + "_status", status);
    out_.Put(letters + "_prop1", ids);
    out_.Put(letters + "_names", NamesOf(sets), name_width_);
  }

  void PutVariables() {
    const auto& of_nodes = model_.NodeVariables();
    const auto& of_elements = model_.ElementVariables();
    const bool has_nodes = !model_.Source().node_keys.empty() && !of_nodes.empty();
    const bool has_elements = !model_.Blocks().empty() && !of_elements.empty();
    if (has_nodes) out_.Put("name_nod_var", NamesOf(of_nodes), name_width_);
    if (has_elements) {
      out_.Put("name_elem_var", NamesOf(of_elements), name_width_);
      std::vector<std::int32_t> table;
      for (std::size_t b = 0; b < model_.Blocks().size(); ++b) {
        for (const std::vector<bool>& has : variable_blocks_) table.push_back(has[b]);
      }
      out_.Put("elem_var_tab", table);
    }
    for (std::size_t step = 0; step < model_.Steps().size(); ++step) {
      out_.PutTime(step, model_.Steps()[step].second);
      Tell(0.6 + 0.3 * static_cast<double>(step) / static_cast<double>(model_.Steps().size()));
      for (std::size_t v = 0; v < of_nodes.size() && has_nodes; ++v) {
        out_.PutAt(fmt::format("vals_nod_var{}", v + 1), step,
                   model_.Values(of_nodes[v], step, true));
      }
      for (std::size_t v = 0; v < of_elements.size() && has_elements; ++v) {
        const std::vector<double> all = model_.Values(of_elements[v], step, false);
        for (std::size_t b = 0; b < model_.Blocks().size(); ++b) {
          if (!variable_blocks_[v][b]) continue;
          out_.PutAt(fmt::format("vals_elem_var{}eb{}", v + 1, b + 1), step,
                     {At(all, first_[b]), At(all, first_[b + 1])});
        }
      }
    }
  }

  const ExodusModel& model_;
  const CQXDBSession& session_;
  NcWriter& out_;
  LossReport& report_;
  const Progress& progress_;
  std::vector<std::size_t> first_;  // of each block, among all elements of the file
  std::vector<std::vector<bool>> variable_blocks_;
  std::vector<std::vector<bool>> attribute_blocks_;
  std::size_t name_width_ = 33;
  int names_ = -1;
  int steps_ = -1;
  std::map<std::string, std::vector<std::string>> texts_;
  std::string title_;
};

}  // namespace

Outcome WriteExodus(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                    LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  const ExodusModel model(session, found, ShareOf(options.progress, 0, 0.3));
  if (options.progress) options.progress(0.3);
  const auto file = NewFile::Create(path);
  if (!file) return file.AsOutcome();
  // The usual container takes arrays below 4 GiB.
  constexpr std::size_t kMost = (std::size_t{1} << 32) / sizeof(double) - 1;
  bool is_large = model.Source().node_keys.size() >= kMost;
  for (const auto& block : model.Blocks()) {
    is_large = is_large || block.elements.size() >= kMost / 10;  // 20 nodes of 4 bytes each
  }
  NcWriter out((*file)->Name(), is_large);
  ExodusFile(model, session, out, found, options.progress).Write();
  if (const std::string wrong = out.Finish(); !wrong.empty()) {
    return Failure{path, "", "cannot be written: " + wrong, out.Remedy()};
  }
  if (Outcome placed = (*file)->TakePlace(); !placed) return placed;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

}  // namespace qx::exchange
