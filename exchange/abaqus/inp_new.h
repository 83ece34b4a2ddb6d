#pragma once
// What a model has that no deck's text has yet, as text.

#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "exchange/abaqus/inp_deck.h"
#include "exchange/abaqus/inp_pieces.h"

namespace qx::exchange {

/// Names as the deck has them: without quotes and line ends, of at most 80 characters, and each but
/// once, whatever the case of its letters.
class InpNames {
 public:
  void Take(std::string_view name) { taken_.insert(InpLabel(name)); }
  /// A name that nothing has yet, like the one that is wished for.
  std::string New(const std::string& wish);
  /// The same for the name of something in the model, `wish` for one without; a name that becomes
  /// another is told, as one "of" those things.
  std::string Fit(const std::string& name, const std::string& wish, const char* of,
                  LossReport& report);

 private:
  std::set<std::string> taken_;
};

/// Writes nodes and elements, sets, materials, systems and sections of a deck.
class InpNewText {
 public:
  InpNewText(const Deck& now, const SystemFrames& systems, LossReport& report,
             const Progress& progress = {});

  /// Name of an element's type: the one it came with, or one that fits its property. Empty for an
  /// element that the format has none for.
  std::string TypeOf(std::size_t element) const;
  /// Whether the format has an element for that one.
  bool Writes(Key element) const { return !left_out_.contains(element); }
  /// Elements by their types. `number` and `node` say what is written for keys.
  std::string Elements(std::span<const std::size_t> elements, const std::function<Key(Key)>& number,
                       const std::function<std::string(Key)>& node);
  std::string Material(const tagTMatl& material);
  std::string System(const tagTCord& system);
  /// A section over a set; tells what it leaves out.
  std::string Section(const tagTProp& property, const std::string& set,
                      std::span<const Key> elements);
  const tagTProp* PropertyOf(Key key) const;
  const tagTMatl* MaterialOf(const tagTProp& property) const;
  std::string SystemOf(const tagTProp& property) const;
  /// Names as the deck has them; empty for key 0.
  std::string MaterialName(Key key) const { return NameIn(material_names_, key); }
  std::string SystemName(Key key) const { return NameIn(system_names_, key); }
  /// Puts the whole deck.
  void All(const PutText& put);

 private:
  static std::string NameIn(const std::map<Key, std::string>& names, Key key) {
    const auto found = names.find(key);
    return found == names.end() ? std::string() : found->second;
  }
  /// Appends elements to a text, which `pass` may take what it has of in between.
  void AppendElements(std::span<const std::size_t> elements, const std::function<Key(Key)>& number,
                      const std::function<std::string(Key)>& node, std::string& text,
                      const std::function<void()>& pass);
  InpFamily FamilyOf(const Mesh::Element& element) const;
  void AppendGroups(std::string& text, const std::function<void()>& pass);
  void TellOfNewSet(const std::string& name);
  std::string Masses();
  void AppendGroup(std::string& text, const Mesh::Group& group, std::size_t place);

  const Deck& now_;
  const SystemFrames& systems_;
  LossReport& report_;
  const Progress progress_;
  StepCounter steps_;
  InpNames names_;
  std::vector<std::string> group_names_;
  std::map<Key, std::string> material_names_;
  std::map<Key, std::string> system_names_;
  std::unordered_map<Key, std::string> type_names_;  // of elements that came from a deck
  std::map<Key, const tagTProp*> properties_;
  std::map<Key, const tagTMatl*> materials_;
  std::unordered_map<Key, const tagTEcrd*> orientations_;
  std::unordered_map<Key, std::size_t> masses_;
  std::unordered_set<Key> left_out_;
  std::uint64_t new_sets_ = 0;
};

}  // namespace qx::exchange
