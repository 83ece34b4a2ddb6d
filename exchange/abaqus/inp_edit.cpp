#include "exchange/abaqus/inp_edit.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

/// Whether a number was changed: more than by its way through units and back.
bool Differ(double a, double b) {
  return std::abs(a - b) > 1e-14 * std::max(std::abs(a), std::abs(b));
}

/// How the line that ends there ends.
std::string_view LineEndOf(std::string_view text, std::size_t end) {
  return end > 1 && text[end - 1] == '\n' && text[end - 2] == '\r' ? "\r\n" : "\n";
}

}  // namespace

void Apply(std::string_view text, std::vector<InpEdit> edits, std::size_t begin, std::size_t end,
           const PutText& put) {
  // What is put in at a place comes before what is put instead of that which stands there.
  const auto order = [](const InpEdit& edit) {
    return std::pair(edit.begin, edit.end != edit.begin);
  };
  std::stable_sort(edits.begin(), edits.end(),
                   [&order](const InpEdit& a, const InpEdit& b) { return order(a) < order(b); });
  end = std::min(end, text.size());
  std::size_t done = begin;
  char last = '\n';  // that was put
  const auto add = [&](std::string_view piece) {
    if (piece.empty()) return;
    put(piece);
    last = piece.back();
  };
  for (const InpEdit& edit : edits) {
    if (edit.begin < done || edit.end > end) continue;
    add(text.substr(done, edit.begin - done));
    if (edit.begin == text.size() && !edit.text.empty() && last != '\n') add("\n");
    add(edit.text);
    done = edit.end;
  }
  add(text.substr(done, end - done));
}

std::string Apply(std::string_view text, std::vector<InpEdit> edits, std::size_t begin,
                  std::size_t end) {
  std::string out;
  Apply(text, std::move(edits), begin, end, [&out](std::string_view piece) { out += piece; });
  return out;
}

InpEditor::InpEditor(const InpText& text, const InpModel& model, const Deck& now,
                     const std::vector<InpKeysNow>& keys, const SystemFrames& systems,
                     LossReport& report, const Progress& progress)
    : text_(text),
      model_(model),
      now_(now),
      systems_(systems),
      report_(report),
      steps_(progress, 3 * (now.node_keys.size() + now.elements.size())),
      then_(DeckOf(model, &groups_)),
      states_(model.placements.size()),
      new_(now, systems, report),
      section_names_(SectionNames(model)) {
  // Of the deck as it was, only what is not the mesh is looked at.
  then_.node_keys = {};
  then_.coordinates = {};
  then_.elements = {};
  then_.connectivity = {};
  for (std::size_t i = 0; i < now.node_keys.size(); ++i) {
    steps_.Step();
    node_place_.Add(now.node_keys[i], i);
  }
  for (std::size_t i = 0; i < now.elements.size(); ++i) {
    steps_.Step();
    element_place_.Add(now.elements[i].key, i);
  }
  for (const InpSet& set : model.sets) names_.Take(set.name);
  Locate(keys);
}

void InpEditor::Write(const PutText& put) {
  AdoptNew();
  for (std::size_t p = 0; p < states_.size(); ++p) {
    EditNodes(p);
    EditElements(p);
    WriteOutGenerators(p);
  }
  EditSets();
  EditSystems();
  EditMaterials();
  EditSections();
  EditMasses();
  for (std::size_t p = 0; p < states_.size(); ++p) AppendNew(p);
  ReportRest();
  Merge(put);
}

// ---- what is where ------------------------------------------------------------------------------

void InpEditor::Locate(const std::vector<InpKeysNow>& keys) {
  for (std::size_t p = 0; p < states_.size(); ++p) {
    const InpScope& scope = ScopeOf(p);
    State& state = states_[p];
    const bool is_flat = model_.IsFlat() || p >= keys.size();
    state.nodes.resize(scope.numbers.size());
    for (std::size_t i = 0; i < scope.numbers.size(); ++i) {
      const Key key = is_flat ? scope.numbers[i] : i < keys[p].nodes.size() ? keys[p].nodes[i] : 0;
      state.nodes[i] = node_place_.Find(key) == kNoPlace ? 0 : key;
      state.next_node = std::max(state.next_node, scope.numbers[i] + 1);
      if (!model_.IsFlat() && state.nodes[i] > 0) node_local_[key] = {p, scope.numbers[i]};
    }
    state.elements.resize(scope.elements.size());
    for (std::size_t i = 0; i < scope.elements.size(); ++i) {
      steps_.Step();
      const Key number = scope.elements[i].number;
      const Key key = is_flat ? number : i < keys[p].elements.size() ? keys[p].elements[i] : 0;
      state.elements[i] = element_place_.Find(key);
      state.next_element = std::max(state.next_element, number + 1);
      if (!model_.IsFlat() && state.elements[i] != kNoPlace) element_local_[key] = {p, number};
    }
  }
}

InpEditor::Local InpEditor::LocalNode(Key key) const {
  if (model_.IsFlat()) return {0, key};
  const auto found = node_local_.find(key);
  return found == node_local_.end() ? Local() : found->second;
}

InpEditor::Local InpEditor::LocalElement(Key key) const {
  if (model_.IsFlat()) return {0, key};
  const auto found = element_local_.find(key);
  return found == element_local_.end() ? Local() : found->second;
}

Key InpEditor::NowKey(std::size_t p, Key number) const {
  const std::size_t place = ScopeOf(p).nodes.Find(number);
  return place == kNoPlace ? 0 : states_[p].nodes[place];
}

Key InpEditor::NowElement(std::size_t p, Key number) const {
  const std::size_t place = ScopeOf(p).element_index.Find(number);
  if (place == kNoPlace || states_[p].elements[place] == kNoPlace) return 0;
  return now_.elements[states_[p].elements[place]].key;
}

/// New nodes and elements go to the instance that what they are tied to belongs to, else to the
/// first one.
void InpEditor::AdoptNew() {
  if (model_.IsFlat()) {
    for (const Key key : now_.node_keys) {
      if (ScopeOf(0).nodes.Find(key) == kNoPlace) states_[0].new_nodes.push_back(key);
    }
    for (std::size_t i = 0; i < now_.elements.size(); ++i) {
      if (ScopeOf(0).element_index.Find(now_.elements[i].key) == kNoPlace) {
        states_[0].new_elements.push_back(i);
      }
    }
    return;
  }
  std::vector<std::size_t> left;
  for (std::size_t i = 0; i < now_.elements.size(); ++i) {
    if (!element_local_.contains(now_.elements[i].key)) left.push_back(i);
  }
  const auto adopt = [&](std::size_t element, std::size_t p) {
    State& state = states_[p];
    const Mesh::Element& of = now_.elements[element];
    for (std::size_t i = 0; i < now_.NodesOf(element); ++i) {
      const Key node = now_.connectivity[of.first + i];
      if (node_local_.contains(node)) continue;
      node_local_[node] = {p, state.next_node++};
      state.new_nodes.push_back(node);
    }
    element_local_[of.key] = {p, state.next_element++};
    state.new_elements.push_back(element);
  };
  for (bool goes_on = true; goes_on && !left.empty();) {
    goes_on = false;
    std::vector<std::size_t> still;
    for (const std::size_t element : left) {
      std::size_t p = kNoPlace;
      for (std::size_t i = 0; i < now_.NodesOf(element) && p == kNoPlace; ++i) {
        p = LocalNode(now_.connectivity[now_.elements[element].first + i]).placement;
      }
      if (p == kNoPlace) {
        still.push_back(element);
      } else {
        adopt(element, p);
        goes_on = true;
      }
    }
    left = std::move(still);
  }
  for (const std::size_t element : left) adopt(element, 0);
  for (const Key key : now_.node_keys) {
    if (node_local_.contains(key)) continue;
    node_local_[key] = {0, states_[0].next_node++};
    states_[0].new_nodes.push_back(key);
  }
}

// ---- nodes --------------------------------------------------------------------------------------

void InpEditor::EditNodes(std::size_t p) {
  const InpScope& scope = ScopeOf(p);
  const InpFrame& frame = model_.placements[p].frame;
  State& state = states_[p];
  for (std::size_t i = 0; i < scope.numbers.size(); ++i) {
    steps_.Step();
    const InpSpot& spot = scope.node_at[i];
    if (state.nodes[i] == 0) {
      state.has_changed_nodes = true;
      if (spot.length > 0) state.edits.push_back({spot.at, spot.at + spot.length, {}});
      continue;
    }
    const Vector3 now(&now_.coordinates[3 * node_place_.Find(state.nodes[i])]);
    const Vector3 then = frame.To(scope.Point(i));
    if (!Differ(now.x, then.x) && !Differ(now.y, then.y) && !Differ(now.z, then.z)) continue;
    state.has_changed_nodes = true;
    if (spot.length > 0) MoveNode(p, i, frame.From(now));
  }
}

/// Writes the coordinates that changed into the node's line; the others keep their text.
void InpEditor::MoveNode(std::size_t p, std::size_t node, const Vector3& to) {
  const InpScope& scope = ScopeOf(p);
  const InpSpot& spot = scope.node_at[node];
  const InpInput& input = model_.inputs[model_.RunOf(scope.node_runs, node).input];
  const Vector3 given = input.From(to);
  InpLines lines(text_.Text(), spot.at, spot.at + spot.length);
  if (!lines.Next()) return;
  const auto fields = lines.Fields();
  const Vector3 was = input.From(scope.Point(node));
  // What a rotation leaves of a number that stayed is no change.
  const double size = Length(was) + Length(given);
  for (int i = 0; i < 3; ++i) {
    const bool is_plain = model_.placements[p].frame.is_identity && input.frame.is_identity;
    if (is_plain && input.type == 0 ? !Differ(given[i], was[i])
                                    : std::abs(given[i] - was[i]) <= 1e-14 * size) {
      continue;
    }
    const auto field = static_cast<std::size_t>(i) + 1;
    if (field < fields.size() && !fields[field].empty()) {
      const auto at = static_cast<std::size_t>(fields[field].data() - text_.Text().data());
      states_[p].edits.push_back({at, at + fields[field].size(), InpReal(given[i])});
      continue;
    }
    // The line has no such number yet: it is written anew.
    std::string text;
    AppendNode(text, scope.numbers[node], given);
    text.pop_back();
    text += LineEndOf(text_.Text(), spot.at + spot.length);
    states_[p].edits.push_back({spot.at, spot.at + spot.length, std::move(text)});
    return;
  }
}

// ---- elements -----------------------------------------------------------------------------------

/// A node as the text of a placement names it; empty where it cannot.
std::string InpEditor::NodeName(std::size_t p, Key key) {
  const Local local = LocalNode(key);
  if (local.placement == p) return fmt::format("{}", local.number);
  if (local.placement == kNoPlace || model_.placements[p].scope != kAssembly) return {};
  return fmt::format("{}.{}", model_.placements[local.placement].name, local.number);
}

bool InpEditor::IsSame(std::size_t p, std::size_t element, std::size_t now) const {
  const InpScope& scope = ScopeOf(p);
  const InpElement& then = scope.elements[element];
  if (then.type != now_.elements[now].type) return false;
  const std::size_t first = now_.elements[now].first;
  for (std::size_t i = 0; i < InpModel::NodesOf(then); ++i) {
    const std::int32_t instance = scope.instances.empty() ? -1 : scope.instances[then.first + i];
    const std::size_t of = instance < 0 ? p : static_cast<std::size_t>(instance);
    if (NowKey(of, scope.connectivity[then.first + i]) != now_.connectivity[first + i]) {
      return false;
    }
  }
  return true;
}

void InpEditor::EditElements(std::size_t p) {
  const InpScope& scope = ScopeOf(p);
  State& state = states_[p];
  for (std::size_t i = 0; i < scope.elements.size(); ++i) {
    steps_.Step();
    const InpSpot& spot = scope.element_at[i];
    const std::size_t now = state.elements[i];
    if (now != kNoPlace && IsSame(p, i, now)) continue;
    state.has_changed_elements = true;
    if (spot.length == 0) continue;  // the generator is written out
    std::string text;
    if (now != kNoPlace && now_.elements[now].type == scope.elements[i].type) {
      std::vector<std::string> nodes;
      for (std::size_t n = 0; n < now_.NodesOf(now); ++n) {
        const std::size_t of = InpNode(scope.elements[i].type, n);
        nodes.push_back(NodeName(p, now_.connectivity[now_.elements[now].first + of]));
      }
      if (std::find(nodes.begin(), nodes.end(), std::string()) != nodes.end()) {
        report_.Lost("changes of elements to nodes of other instances were left out", 1,
                     fmt::format("element {}", now_.elements[now].key));
        continue;
      }
      AppendElement(text, scope.elements[i].number, nodes);
    } else if (now != kNoPlace) {
      state.new_elements.push_back(now);  // of another type now
    }
    state.edits.push_back({spot.at, spot.at + spot.length, std::move(text)});
  }
}

/// Keywords that generate what has changed since give way to what they generated.
void InpEditor::WriteOutGenerators(std::size_t p) {
  const InpScope& scope = ScopeOf(p);
  State& state = states_[p];
  const auto end_of = [](const std::vector<InpRun>& runs, std::size_t run, std::size_t all) {
    return run + 1 < runs.size() ? runs[run + 1].first : all;
  };
  for (std::size_t r = 0; state.has_changed_nodes && r < scope.node_runs.size(); ++r) {
    const InpRun& run = scope.node_runs[r];
    if (Block(run.block).keyword == "NODE") continue;
    std::string text = "*Node\n";
    for (std::size_t i = run.first; i < end_of(scope.node_runs, r, scope.numbers.size()); ++i) {
      if (state.nodes[i] == 0) continue;
      const Vector3 now(&now_.coordinates[3 * node_place_.Find(state.nodes[i])]);
      AppendNode(text, scope.numbers[i], model_.placements[p].frame.From(now));
    }
    Replace(run.block, state.edits, std::move(text));
    written_out_.insert(run.block);
  }
  for (std::size_t r = 0; state.has_changed_elements && r < scope.element_runs.size(); ++r) {
    const InpRun& run = scope.element_runs[r];
    if (Block(run.block).keyword == "ELEMENT") continue;
    std::vector<std::size_t> elements;
    for (std::size_t i = run.first; i < end_of(scope.element_runs, r, scope.elements.size()); ++i) {
      if (state.elements[i] != kNoPlace) elements.push_back(state.elements[i]);
    }
    Replace(run.block, state.edits,
            new_.Elements(
                elements, [&](Key key) { return LocalElement(key).number; },
                [&](Key key) { return NodeName(p, key); }));
    written_out_.insert(run.block);
  }
}

/// What is new stands in front of everything that names it: sets, surfaces, sections and steps.
void InpEditor::AppendNew(std::size_t p) {
  State& state = states_[p];
  const InpScope& scope = ScopeOf(p);
  std::size_t behind_all = 0, behind_nodes = 0, first_node = scope.end, first_element = scope.end;
  for (const InpRun& run : scope.node_runs) {
    first_node = std::min(first_node, Block(run.block).begin);
    behind_nodes = std::max(behind_nodes, DataEnd(Block(run.block)));
  }
  for (const InpRun& run : scope.element_runs) {
    first_element = std::min(first_element, Block(run.block).begin);
    behind_all = std::max(behind_all, DataEnd(Block(run.block)));
  }
  behind_all = std::max(behind_all, behind_nodes);
  std::string nodes;
  if (!state.new_nodes.empty()) nodes += "*Node\n";
  for (const Key key : state.new_nodes) {
    const Vector3 now(&now_.coordinates[3 * node_place_.Find(key)]);
    AppendNode(nodes, LocalNode(key).number, model_.placements[p].frame.From(now));
  }
  const std::string elements = new_.Elements(
      state.new_elements, [&](Key key) { return LocalElement(key).number; },
      [&](Key key) { return NodeName(p, key); });
  const auto put_in = [&state](std::size_t at, std::string text) {
    if (!text.empty()) state.edits.insert(state.edits.begin(), {at, at, std::move(text)});
  };
  if (behind_all == 0) {  // the scope has nothing of its own yet
    put_in(scope.end, nodes + elements);
    return;
  }
  put_in(std::max(first_element == scope.end ? behind_all : first_element, behind_nodes), elements);
  if (!nodes.empty() && model_.inputs.size() > 1) {
    // Nodes that follow may count in the frame of a *SYSTEM, which must stay as it is for them.
    put_in(behind_nodes == 0 ? behind_all : behind_nodes, "*System\n" + nodes);
  } else {
    put_in(std::min(first_node, first_element), nodes);
  }
}

// ---- together -----------------------------------------------------------------------------------

std::size_t InpEditor::DataEnd(const InpBlock& block) const {
  InpLines lines(text_.Text(), block.data, block.end);
  std::size_t end = block.data;
  while (lines.Next()) end = lines.End();
  return end;
}

void InpEditor::Replace(std::size_t block, std::vector<InpEdit>& edits, std::string instead) {
  edits.push_back({Block(block).begin, DataEnd(Block(block)), std::move(instead)});
}

void InpEditor::AddTo(std::size_t scope, const InpEdit& edit) {
  bool is_placed = false;
  for (std::size_t p = 0; p < states_.size(); ++p) {
    if (model_.placements[p].scope != scope) continue;
    states_[p].edits.push_back(edit);
    is_placed = true;
  }
  if (!is_placed) edits_.push_back(edit);
}

/// Instances whose part must say different things get parts of their own.
void InpEditor::Merge(const PutText& put) {
  std::map<std::size_t, std::vector<std::size_t>> placed;  // of a scope
  for (std::size_t p = 0; p < states_.size(); ++p) {
    placed[model_.placements[p].scope].push_back(p);
  }
  for (const auto& [scope, placements] : placed) {
    const std::vector<InpEdit>& first = states_[placements[0]].edits;
    edits_.insert(edits_.end(), first.begin(), first.end());
    std::map<std::size_t, std::string> copies;  // names, by the placement that it is made for
    for (std::size_t i = 1; i < placements.size(); ++i) {
      const std::size_t p = placements[i];
      if (states_[p].edits == first) continue;
      std::string name;
      for (const auto& [other, its_name] : copies) {
        if (states_[other].edits == states_[p].edits) name = its_name;
      }
      const InpBlock& head = Block(model_.scopes[scope].begin_block);
      if (name.empty()) {
        name = names_.New(model_.scopes[scope].name + "-" + model_.placements[p].name);
        copies[p] = name;
        const std::size_t part_end = model_.scopes[scope].end;
        const std::size_t behind =
            std::find_if(text_.Blocks().begin(), text_.Blocks().end(),
                         [part_end](const InpBlock& block) { return block.begin == part_end; })
                ->data;
        std::vector<InpEdit> edits = states_[p].edits;
        for (const InpParameter& parameter : text_.Parameters(head)) {
          if (parameter.name != "NAME") continue;
          edits.push_back({parameter.begin, parameter.end, ", name=" + InpName(name)});
        }
        edits_.push_back(
            {behind, behind, Apply(text_.Text(), std::move(edits), head.begin, behind)});
        if (split_parts_++ == 0) split_part_ = model_.scopes[scope].name;
      }
      const InpBlock& instance = Block(model_.placements[p].block);
      for (const InpParameter& parameter : text_.Parameters(instance)) {
        if (parameter.name != "PART") continue;
        edits_.push_back({parameter.begin, parameter.end, ", part=" + InpName(name)});
      }
    }
  }
  report_.Changed("parts were written once more for instances that are no longer alike",
                  split_parts_, split_part_, "a part says one thing for all its instances");
  if (!written_out_.empty()) {
    std::string file;
    report_.Changed("generated nodes and elements that changed were written out",
                    written_out_.size(), text_.Place(Block(*written_out_.begin()).begin, file),
                    "the keywords state what they were");
  }
  Apply(text_.Text(), std::move(edits_), 0, kNoPlace, put);
}

}  // namespace qx::exchange
