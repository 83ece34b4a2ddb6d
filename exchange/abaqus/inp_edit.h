#pragma once
// A deck's text brought up to what the model has become.

#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "exchange/abaqus/inp_deck.h"
#include "exchange/abaqus/inp_new.h"

namespace qx::exchange {

/// A stretch of a text and what stands there instead.
struct InpEdit {
  std::size_t begin;
  std::size_t end;
  std::string text;
  friend bool operator==(const InpEdit&, const InpEdit&) = default;
};

/// Puts a text with edits; of those that overlap, the first.
void Apply(std::string_view text, std::vector<InpEdit> edits, std::size_t begin, std::size_t end,
           const PutText& put);
std::string Apply(std::string_view text, std::vector<InpEdit> edits, std::size_t begin = 0,
                  std::size_t end = kNoPlace);

/// Node and element keys that an instance's nodes and elements have now, in the order of its part;
/// 0 for what is gone.
struct InpKeysNow {
  std::vector<Key> nodes;
  std::vector<Key> elements;
};

class InpEditor {
 public:
  /// The deck as its text has it, and the model as it is now. `keys` has an entry for each
  /// placement, or none where the numbers of the deck are the keys.
  InpEditor(const InpText& text, const InpModel& model, const Deck& now,
            const std::vector<InpKeysNow>& keys, const SystemFrames& systems, LossReport& report,
            const Progress& progress);

  /// Puts the text as the model has it now.
  void Write(const PutText& put);

 private:
  /// What a node or element of the model is in the deck.
  struct Local {
    std::size_t placement = kNoPlace;
    Key number = 0;
  };
  /// A placement as the model has it now.
  struct State {
    std::vector<Key> nodes;             ///< keys now, of the scope's nodes
    std::vector<std::size_t> elements;  ///< places in now.elements; kNoPlace for gone
    std::vector<Key> new_nodes;
    std::vector<std::size_t> new_elements;
    std::vector<InpEdit> edits;  ///< within the scope's text
    bool has_changed_nodes = false;
    bool has_changed_elements = false;
    Key next_node = 1;  ///< number for a new one
    Key next_element = 1;
  };

  const InpScope& ScopeOf(std::size_t placement) const {
    return model_.scopes[model_.placements[placement].scope];
  }
  const InpBlock& Block(std::size_t index) const { return text_.Blocks()[index]; }
  Local LocalNode(Key key) const;
  Local LocalElement(Key key) const;

  void Locate(const std::vector<InpKeysNow>& keys);
  void AdoptNew();
  void EditNodes(std::size_t p);
  void MoveNode(std::size_t p, std::size_t node, const Vector3& to);
  void EditElements(std::size_t p);
  bool IsSame(std::size_t p, std::size_t element, std::size_t now) const;
  std::string NodeName(std::size_t p, Key key);
  void WriteOutGenerators(std::size_t p);
  void AppendNew(std::size_t p);

  void EditSets();
  void EditSet(std::size_t group, const Mesh::Group* now);
  void RewriteSet(const InpGroup& what, const std::vector<InpMember>& members);
  void AppendNewSet(const Mesh::Group& group);
  std::vector<InpMember> MembersNow(const InpGroup& what, const Mesh::Group& now);
  std::string SetOrSurface(const InpSet& set, const std::vector<InpMember>& members) const;
  void Replace(std::size_t block, std::vector<InpEdit>& edits, std::string instead);
  /// Where edits of a set or section belong that stands in `scope` and is of placement `p`.
  std::vector<InpEdit>& EditsOf(std::size_t scope, std::size_t p) {
    return p != kNoPlace && model_.placements[p].scope == scope ? states_[p].edits : edits_;
  }
  std::size_t DataEnd(const InpBlock& block) const;

  void EditSections();
  void EditSectionMembers(std::size_t p);
  void EditSectionValues(std::size_t section, const tagTProp& then, const tagTProp& now);
  void EditMasses();
  void EditMaterials();
  void EditSystems();
  void ReportRest();
  void ReportProperties();
  void ReportMasses();
  /// Adds an edit of a scope's own text: to all placements of a part, once elsewhere.
  void AddTo(std::size_t scope, const InpEdit& edit);
  void SetParameter(std::size_t scope, const InpBlock& block, const char* name,
                    const std::string& value);
  /// Replaces a field of a data line, or writes the line where the block has none.
  void SetField(std::size_t scope, const InpBlock& block, std::size_t row, std::size_t field,
                const std::string& value);
  Key NowKey(std::size_t p, Key number) const;
  Key NowElement(std::size_t p, Key number) const;
  const tagTProp* Property(Key key) const { return new_.PropertyOf(key); }

  void Merge(const PutText& put);

  const InpText& text_;
  const InpModel& model_;
  const Deck& now_;
  const SystemFrames& systems_;
  LossReport& report_;
  StepCounter steps_;
  std::vector<InpGroup> groups_;
  Deck then_;
  std::vector<State> states_;
  std::vector<InpEdit> edits_;  ///< outside of parts
  InpIndex node_place_;         // in now
  InpIndex element_place_;      // in now
  std::unordered_map<Key, Local> node_local_;
  std::unordered_map<Key, Local> element_local_;
  InpNewText new_;
  std::vector<std::string> section_names_;
  std::map<std::pair<std::size_t, std::size_t>, std::vector<Key>> set_now_;  ///< element numbers
  std::map<Key, std::int32_t> section_of_;  ///< of a property's key
  std::set<std::size_t> written_out_;       ///< blocks of generators
  InpNames names_;
  std::uint64_t split_parts_ = 0;
  std::string split_part_;
};

}  // namespace qx::exchange
