#include "exchange/nastran/nas_renew.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <set>

#include "qx_db/record/element_types.h"

#include "exchange/nastran/nas_card_text.h"
#include "exchange/nastran/nas_match.h"
#include "exchange/nastran/nas_names.h"
#include "exchange/nastran/nas_properties.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_rules.h"
#include "exchange/nastran/nas_tally.h"
#include "exchange/nastran/nas_units.h"

namespace qx::exchange {
namespace {

using Kind = NasSource::Kind;

constexpr double kSameNumber = 1e-12;

class Renewer {
 public:
  Renewer(const tagTCarried& carried, const Deck& now, const std::map<Key, Key>& systems,
          const NasSetTags& tags, const CQXUnitCtrl& units, const std::string& path,
          LossReport& report, const Progress& progress)
      : path_(path),
        progress_(progress),
        units_(units),
        text_(std::string(carried.text.data(), carried.text.size()), path),
        numbers_(carried, text_, now, systems),
        now_deck_(now),
        tags_(tags),
        report_(report) {}

  Result<std::string> Text() {
    names_ = NasNamesOf(text_);
    MatchNumbers();
    if (Outcome fits = CheckKeys(); !fits) return fits.Error();
    const NasCardText now(now_deck_, property_cards_, material_cards_);
    const Progress follow = ShareOf(progress_, 0, 0.2);
    Outcome followed = FollowNasNumbers(text_, numbers_, edits_, path_, report_, follow);
    if (!followed) return followed.Error();
    std::vector<NasSource> sources;
    std::vector<Failure> faults;
    NasReading reading;
    reading.sources = &sources;
    reading.carries = false;
    reading.progress = ShareOf(progress_, 0.2, 0.5);
    reading.is_described = [this](std::size_t card) { return IsDescribed(card); };
    const Result<Deck> before = ParseNastran(text_, path_, faults, reading);
    if (!before) {  // never a deck without the text that came with it
      return Failure{path_, before.Error().place,
                     "cannot be written: the deck that the model came from does not read any "
                     "more: " +
                         before.Error().what,
                     "export to another format, or delete the CARRIED record to write a new deck"};
    }
    const NasCardText then(*before, property_cards_, material_cards_);
    then_ = &then;
    now_ = &now;
    for (const NasCard& card : text_.Cards()) {
      if (card.name == "GRDSET") grid_defaults_ = &card;
      if (card.name == "BAROR") bar_defaults_ = &card;
      if (card.name == "BEAMOR") beam_defaults_ = &card;
    }
    const Progress renew = ShareOf(progress_, 0.5, 1);
    StepCounter steps(renew, sources.size());
    for (std::size_t i = 0; i < sources.size(); ++i) {
      steps.Step();
      if (sources[i].kind == Kind::kCarried) {
        units_.Count(text_, text_.Cards()[sources[i].card], NasFields());
        continue;
      }
      std::size_t end = i + 1;
      while (end < sources.size() && sources[end].card == sources[i].card) ++end;
      for (std::size_t j = i; j < end; ++j) DoneOf(sources[j].kind).push_back(sources[j].key);
      RenewCard({sources.begin() + static_cast<std::ptrdiff_t>(i),
                 sources.begin() + static_cast<std::ptrdiff_t>(end)});
      i = end - 1;
    }
    for (std::vector<Key>& keys : done_) std::sort(keys.begin(), keys.end());
    for (const NasCard& card : text_.Cards()) {
      if (!replaced_.contains(card.begin)) PatchCard(text_, card, edits_);
    }
    RenewNames(sources);
    std::string head;
    WriteNasSets(text_, numbers_, now_deck_, WrittenGroups(), tags_, edits_, head, report_);
    AddNewCards();
    Tell(*before);
    if (!head.empty()) edits_.insert(edits_.begin(), {0, 0, std::move(head)});
    return ApplyEdits(text_.Text(), std::move(edits_));
  }

 private:
  /// A number that the format does not have would make a deck that no solver reads.
  Outcome CheckKeys() const {
    constexpr const char* kWords[] = {"node", "element", "coordinate system", "property",
                                      "material"};
    for (std::size_t i = 0; i < kNasKinds; ++i) {
      const auto kind = static_cast<NasKind>(i);
      const std::vector<Key>& are = numbers_.Are(kind);
      const auto above = std::upper_bound(are.begin(), are.end(), kNasMaxNumber);
      const auto odd =
          std::find_if(above, are.end(), [&](Key number) { return !numbers_.Was(kind, number); });
      if (odd == are.end()) continue;
      return Failure{path_, fmt::format("{} {}", kWords[i], *odd),
                     fmt::format("numbers of the format end at {}", kNasMaxNumber),
                     "renumber it, or write another format"};
    }
    return {};
  }

  std::vector<Key>& DoneOf(Kind kind) { return done_[static_cast<std::size_t>(kind)]; }
  bool IsDone(Kind kind, Key key) const {
    return NasHas(done_[static_cast<std::size_t>(kind)], key);
  }

  bool IsDescribed(std::size_t card) const {
    const NasCard& of = text_.Cards()[card];
    for (const std::size_t field : {0, 4}) {
      const bool is_given = field < of.fields.size() && of.fields[field].length > 0;
      if (is_given && numbers_.At(of.fields[field].at)) return true;
    }
    return false;
  }

  void MatchNumbers() {
    MatchNasRecords(text_, now_deck_, names_, numbers_, property_cards_, material_cards_);
    // Properties without a card are called by the number that elements name them by.
    for (const tagTProp& property : now_deck_.Of<tagTProp>()) {
      const std::string name = Utf8(property.name.View());
      if (property.type != tagTProp::kUndefined || !name.starts_with(kNasPlaceholder)) continue;
      const auto was = DeckInteger(std::string_view(name).substr(kNasPlaceholder.size()));
      if (was && *was > 0 && *was <= kMaxKey) {
        numbers_.Rename(NasKind::kProperty, static_cast<Key>(*was), property.key);
      }
    }
  }

  // ---- cards ------------------------------------------------------------------------------------

  void RenewCard(const std::vector<NasSource>& parts) {
    const std::size_t index = parts[0].card;
    const NasCard& card = text_.Cards()[index];
    const Key key = parts[0].key;
    switch (parts[0].kind) {
      case Kind::kNode:
        if (now_->HasNode(key)) return RenewNode(index, key);
        break;
      case Kind::kElement: {
        const NasLineForm form = NasLineForm::Of(text_, card, DefaultsOf(card.name));
        return Patch(index, then_->Element(key, form), now_->Element(key, form));
      }
      case Kind::kProperty:
        return RenewProperty(index, key);
      case Kind::kMaterial:
        return RenewMaterial(index, key);
      case Kind::kSystem:
        if (card.name[4] == '1') return RenewOnNodes(index, parts);
        return Patch(index, then_->System(key), now_->System(key));
      case Kind::kCarried:
        return;
    }
    text_.Remove(index);
  }

  const NasCard* DefaultsOf(std::string_view card) const {
    return card == "CBAR" ? bar_defaults_ : card == "CBEAM" ? beam_defaults_ : nullptr;
  }

  /// Fields of a card that the model now says otherwise. A card of another name takes its place.
  void Patch(std::size_t index, const NasFields& then, const NasFields& now) {
    const NasCard& card = text_.Cards()[index];
    if (now.IsEmpty()) return text_.Remove(index);
    if (now.Name() == card.name) units_.Count(text_, card, then);
    const std::size_t count = std::max(then.Count(), now.Count());
    // A number of what is gone was taken out of the text; the model may say another.
    const auto is_emptied = [&card](std::size_t f) {
      const auto change = card.Changes().find(f);
      return change != card.Changes().end() && change->second.empty();
    };
    const auto is_same = [&](std::size_t f) {
      return then.At(f).IsSame(now.At(f)) && !is_emptied(f);
    };
    bool all_same = then.Name() == now.Name();
    for (std::size_t f = 0; all_same && f < count; ++f) all_same = is_same(f);
    if (!all_same && now.Name() != card.name) return Replace(index, now);
    for (const auto& [f, text] : card.Changes()) {
      if (f < count || !text.empty()) continue;
      emptied_.Add(text_, card);
      break;
    }
    // An orientation goes as a whole: what is blank would come from a card of defaults, and a node
    // has nothing beside it.
    bool is_turned = false;
    if (card.name == "CBAR" || card.name == "CBEAM" || card.name == "CBUSH") {
      bool is_own = false;
      for (std::size_t f = kNasOrientation; f < kNasOrientation + 3; ++f) {
        is_turned = is_turned || !is_same(f);
        is_own = is_own || !text_.FieldText(card, f).empty();
      }
      const bool stays_vector = then.At(kNasOrientation).kind == NasValue::Kind::kReal &&
                                now.At(kNasOrientation).kind == NasValue::Kind::kReal;
      is_turned = is_turned && !(is_own && stays_vector);
    }
    for (std::size_t f = 0; !all_same && f < count; ++f) {
      const bool is_of_turned = is_turned && f >= kNasOrientation && f < kNasOrientation + 3;
      if (is_same(f) && !is_of_turned) continue;
      const std::string_view text = text_.FieldText(card, f);
      // A shell without a material for shear does not get one.
      if (text.empty() && card.name == "PSHELL" && f == 5) continue;
      if (then.At(f).IsRead(text)) {
        text_.Change(index, f, now.At(f).Text());
      } else {
        kept_.Add(text_, card);
      }
    }
  }

  void Replace(std::size_t index, const NasFields& now) {
    const NasCard& card = text_.Cards()[index];
    rewritten_.Add(text_, card);
    replaced_.insert(card.begin);
    ReplaceCard(text_, card, now.Text(), edits_);
  }

  void RenewNode(std::size_t index, Key key) {
    const NasCard& card = text_.Cards()[index];
    const auto field = [&](std::size_t f) {
      const std::string_view own = text_.FieldText(card, f);
      return own.empty() && grid_defaults_ ? text_.FieldText(*grid_defaults_, f) : own;
    };
    const auto number = [&](std::size_t f) {
      return static_cast<Key>(std::max<std::int64_t>(0, DeckInteger(field(f)).value_or(0)));
    };
    const auto given = [&](std::size_t f) {
      return DeckReal(text_.FieldText(card, f)).value_or(0);
    };
    Key system = number(1);
    const Vector3 point = now_->PointOf(key);
    const Vector3 was(given(2), given(3), given(4));
    if (!now_->Systems().Knows(system)) {
      system = 0;
      text_.Change(index, 1, grid_defaults_ ? "0" : "");
    }
    const Vector3 stands = *now_->Systems().ToBasic(system, was);
    const double size = std::max({Length(point), Length(stands), std::abs(was.x)});
    if (Distance(stands, point) > kSameNumber * size) {
      const Vector3 at = *now_->Systems().FromBasic(system, point);
      const tagTCord* record = now_->SystemOf(system);
      const std::int32_t type = record ? record->type : tagTCord::kRectangular;
      for (int i = 0; i < 3; ++i) {
        const bool is_angle =
            (type != tagTCord::kRectangular && i == 1) || (type == tagTCord::kSpherical && i == 2);
        const double scale = is_angle ? 360 : Length(at - Vector3(0, is_angle ? at.y : 0, 0));
        const double moved = is_angle ? std::remainder(at[i] - was[i], 360) : at[i] - was[i];
        if (std::abs(moved) <= kSameNumber * scale) continue;
        NasFields value;
        text_.Change(index, static_cast<std::size_t>(2 + i), value.Real(at[i], scale).At(0).Text());
      }
    }
    const Key output = now_->OutputOf(key);
    if (output == number(5)) return;
    text_.Change(index, 5, output ? fmt::format("{}", output) : grid_defaults_ ? "0" : "");
  }

  void RenewProperty(std::size_t index, Key key) {
    const std::string_view card = text_.Cards()[index].name;
    const std::optional<tagTProp> in_units = units_.Written(then_->PropertyOf(key));
    const tagTProp* then = in_units ? &*in_units : nullptr;
    const tagTProp* now = now_->PropertyOf(key);
    const NasFields fields = now_->Property(key);
    if (then && now && (card == "PBARL" || card == "PBEAML") && fields.Name() == card) {
      tagTProp mixed = *then;  // with what the card's own fields say
      mixed.key = key;
      mixed.non_structural_mass = now->non_structural_mass;
      mixed.material = now->material;
      const std::string_view whole = NasWholeCard(card);
      if (!Says(NasPropertyCard(whole, mixed), NasPropertyCard(whole, *now))) {
        const NasFields as_whole = NasPropertyCard(whole, *now);
        TellUnsaid<tagTProp>(*now, as_whole, nullptr);
        return Replace(index, as_whole);
      }
    }
    if (now) TellUnsaid(*now, fields, then);
    Patch(index, then_->Property(key), fields);
  }

  void RenewMaterial(std::size_t index, Key key) {
    const NasFields fields = now_->Material(key);
    if (const tagTMatl* now = now_->MaterialOf(key)) {
      const std::optional<tagTMatl> then = units_.Written(then_->MaterialOf(key));
      TellUnsaid(*now, fields, then ? &*then : nullptr);
    }
    Patch(index, then_->Material(key), fields);
  }

  /// Tells of the members of a property or a material that neither its card says, as a reader takes
  /// it, nor the text does, of which `then` is what it was read as; null for a new card.
  template <class T>
  void TellUnsaid(const T& now, const NasFields& card, const T* then) {
    constexpr bool kIsMaterial = std::is_same_v<T, tagTMatl>;
    if (card.IsEmpty()) return;
    T said = NasReadBack<T>(card);
    if constexpr (!kIsMaterial) {
      if (now.type == tagTProp::kPlaneStress) said.type = now.type;  // told by itself
    }
    std::string names = UnsaidMembers(T::GetSchema(), now, said);
    if (then && !names.empty()) {
      const std::string others = UnsaidMembers(T::GetSchema(), now, *then);
      names = InBoth(names, others);
    }
    if (names.empty()) return;
    report_.Lost(fmt::format("parts of {} were left out: {}",
                             kIsMaterial ? "materials" : "properties", names),
                 1, fmt::format("{} {}", kIsMaterial ? "material" : "property", now.key),
                 fmt::format("{} cards have no fields for them", card.Name()));
  }

  static std::string InBoth(std::string_view a, std::string_view b) {
    std::string both;
    const std::string other = fmt::format(", {}, ", b);
    while (!a.empty()) {
      const std::size_t end = std::min(a.find(", "), a.size());
      const std::string_view name = a.substr(0, end);
      if (other.find(fmt::format(", {}, ", name)) != std::string::npos) {
        both += fmt::format("{}{}", both.empty() ? "" : ", ", name);
      }
      a.remove_prefix(std::min(end + 2, a.size()));
    }
    return both;
  }

  static bool Says(const NasFields& a, const NasFields& b) {
    bool is_same = true;
    for (std::size_t f = 0; f < std::max(a.Count(), b.Count()); ++f) {
      is_same = is_same && a.At(f).IsSame(b.At(f));
    }
    return is_same;
  }

  /// Systems that are given by nodes stay so where these are where the model has the system.
  void RenewOnNodes(std::size_t index, const std::vector<NasSource>& parts) {
    const NasCard& card = text_.Cards()[index];
    std::string text;
    bool is_same = true;
    for (const NasSource& part : parts) {
      const tagTCord* system = now_->SystemOf(part.key);
      if (!system) {
        is_same = false;
        continue;
      }
      const std::size_t first = part.part * 4;
      if (StandsOnNodes(card, first, *system)) {
        std::vector<std::string> fields;
        for (std::size_t f = first; f < first + 4; ++f)
          fields.emplace_back(text_.FieldText(card, f));
        text += NasCardLines(card.name, std::move(fields));
        continue;
      }
      is_same = false;
      off_nodes_.Add(text_, card);
      text += now_->System(part.key).Text();
    }
    if (is_same) return;
    replaced_.insert(card.begin);
    ReplaceCard(text_, card, std::move(text), edits_);
  }

  bool StandsOnNodes(const NasCard& card, std::size_t first, const tagTCord& system) const {
    constexpr std::int32_t kByAxisZ = 2;
    constexpr std::string_view kLetters = "RCS";
    if (system.plane != kByAxisZ || system.method != tagTCord::kByPoints || system.reference != 0 ||
        kLetters.find(card.name[5]) != static_cast<std::size_t>(system.type))
      return false;
    const Vector3 points[] = {system.origin, system.axis_point, system.plane_point};
    for (std::size_t i = 0; i < 3; ++i) {
      const auto node = DeckInteger(text_.FieldText(card, first + 1 + i));
      if (!node || !now_->HasNode(static_cast<Key>(*node))) return false;
      const Vector3 at = now_->PointOf(static_cast<Key>(*node));
      if (Distance(at, points[i]) > kSameNumber * std::max(Length(at), Length(points[0])))
        return false;
    }
    return true;
  }

  // ---- names ------------------------------------------------------------------------------------

  std::string NameLine(NasKind kind, Key number) const {
    const auto line = [&](const auto* record) {
      return record ? NasNameLine(kind, number, Utf8(record->name.View())) : std::string();
    };
    if (kind == NasKind::kProperty) return line(now_->PropertyOf(number));
    if (kind == NasKind::kMaterial) return line(now_->MaterialOf(number));
    return line(now_->SystemOf(number));
  }

  void RenewNames(const std::vector<NasSource>& sources) {
    std::set<std::pair<NasKind, Key>> there;
    for (const NasName& name : names_) {
      const Key now = numbers_.Now(name.kind, name.number);
      there.insert({name.kind, now});
      std::string line = NameLine(name.kind, now);
      if (line != text_.Text().substr(name.begin, name.end - name.begin)) {
        edits_.push_back({name.begin, name.end, std::move(line)});
      }
    }
    for (const NasSource& source : sources) {
      const bool is_named = source.kind == Kind::kProperty || source.kind == Kind::kMaterial ||
                            source.kind == Kind::kSystem;
      if (!is_named) continue;
      const NasKind kind = source.kind == Kind::kProperty   ? NasKind::kProperty
                           : source.kind == Kind::kMaterial ? NasKind::kMaterial
                                                            : NasKind::kSystem;
      if (there.contains({kind, source.key})) continue;
      const std::size_t at = text_.Cards()[source.card].begin;
      if (std::string line = NameLine(kind, source.key); !line.empty()) {
        edits_.push_back({at, at, std::move(line)});
      }
    }
    for (const tagTProp& property : now_deck_.Of<tagTProp>()) {
      if (now_->HasProperty(property.key) || there.contains({NasKind::kProperty, property.key}))
        continue;
      loose_names_ += NameLine(NasKind::kProperty, property.key);
    }
  }

  /// The mesh sets with the elements that have a card; of points that have none their nodes.
  std::vector<Mesh::Group> WrittenGroups() const {
    std::vector<Mesh::Group> groups = now_deck_.groups;
    if (now_->Unwritten().empty()) return groups;
    std::map<Key, std::size_t> index;
    for (std::size_t e = 0; e < now_deck_.elements.size(); ++e) {
      index[now_deck_.elements[e].key] = e;
    }
    for (Mesh::Group& group : groups) {
      std::set<Key> of_written;
      std::set<Key> of_points;
      std::erase_if(group.elements, [&](Key key) {
        const std::size_t e = index.at(key);
        const Mesh::Element& element = now_deck_.elements[e];
        const bool is_written = now_->HasElement(key);
        for (std::size_t i = 0; i < now_deck_.NodesOf(e); ++i) {
          const Key node = now_deck_.connectivity[element.first + i];
          if (is_written) of_written.insert(node);
          if (!is_written && element.type == element::kPoint) of_points.insert(node);
        }
        return !is_written;
      });
      for (const Key node : group.nodes) of_points.erase(node);
      for (const Key node : of_points) {
        if (!of_written.contains(node)) group.nodes.push_back(node);
      }
    }
    return groups;
  }

  // ---- what is new ------------------------------------------------------------------------------

  void AddNewCards() {
    std::string added;
    const auto add = [&](Kind kind, Key key, const NasFields& card, const std::string& name = {}) {
      if (!IsDone(kind, key)) added += name + card.Text();
    };
    for (const tagTCord& system : now_deck_.Of<tagTCord>()) {
      add(Kind::kSystem, system.key, now_->System(system.key),
          NameLine(NasKind::kSystem, system.key));
    }
    for (const Key key : Sorted(now_deck_.node_keys)) {
      if (IsDone(Kind::kNode, key)) continue;
      NasFields card = now_->Node(key, grid_defaults_ != nullptr);
      // Constraints and the superelement of the defaults are of the nodes that came with them.
      for (const std::size_t f : {6, 7}) {
        const bool is_given = grid_defaults_ && !text_.FieldText(*grid_defaults_, f).empty();
        card.Word(is_given ? "0" : "");
      }
      added += card.Text();
    }
    NasLineForm form;
    form.says_ends = NasGivesEnds(text_, bar_defaults_) || NasGivesEnds(text_, beam_defaults_);
    std::vector<Key> elements;
    for (const Mesh::Element& element : now_deck_.elements) elements.push_back(element.key);
    for (const Key key : Sorted(std::move(elements))) {
      if (!IsDone(Kind::kElement, key)) added += now_->Element(key, form).Text();
    }
    for (const tagTProp& property : now_deck_.Of<tagTProp>()) {
      if (!now_->HasProperty(property.key)) continue;
      const NasFields card = now_->Property(property.key);
      if (!IsDone(Kind::kProperty, property.key)) TellUnsaid<tagTProp>(property, card, nullptr);
      add(Kind::kProperty, property.key, card, NameLine(NasKind::kProperty, property.key));
    }
    for (const tagTMatl& material : now_deck_.Of<tagTMatl>()) {
      const NasFields card = now_->Material(material.key);
      if (!IsDone(Kind::kMaterial, material.key)) TellUnsaid<tagTMatl>(material, card, nullptr);
      add(Kind::kMaterial, material.key, card, NameLine(NasKind::kMaterial, material.key));
    }
    added += loose_names_;
    if (added.empty()) return;
    const std::size_t end = text_.BulkEnd();
    const std::string_view before = std::string_view(text_.Text()).substr(0, end);
    if (!before.empty() && !before.ends_with('\n')) added.insert(0, "\n");
    edits_.push_back({end, end, std::move(added)});
  }

  static std::vector<Key> Sorted(std::vector<Key> keys) {
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  // ---- the report -------------------------------------------------------------------------------

  void Tell(const Deck& before) {
    units_.Tell(report_);
    for (const auto& [name, told] : rewritten_) {
      report_.Changed("changed " + name + " cards were written as others", told.count, told.where,
                      "they cannot say what the model holds now; what only they said is gone");
    }
    for (const auto& [name, told] : kept_) {
      report_.Lost("changes of what " + name + " cards describe were left out", told.count,
                   told.where, "these have no fields for them, or say more there");
    }
    for (const auto& [name, told] : emptied_) {
      report_.Lost("numbers of what is gone were taken out of " + name + " cards", told.count,
                   told.where, "the model has no place for these fields");
    }
    for (const auto& [name, told] : off_nodes_) {
      report_.Changed(name + " cards were written by their points", told.count, told.where,
                      "their nodes are elsewhere, or the system was changed");
    }
    for (const auto& [type, told] : now_->Unwritten()) {
      const ElementType* kind = FindElementType(type);
      const std::string what =
          kind ? std::string(kind->plural) : fmt::format("elements of type {}", type);
      report_.Lost(
          what + " were left out", told.first, fmt::format("element {}", told.second),
          type == element::kPoint ? "they have no mass" : "the format has no card for them");
    }
    TellProperties(before);
    TellSystems();
    TellRecords(before);
  }

  void TellProperties(const Deck& before) {
    std::uint64_t blank = 0;
    std::uint64_t taken = 0;
    std::uint64_t by_default = 0;
    Key first_blank = 0;
    Key first_taken = 0;
    Key first_by_default = 0;
    for (const Mesh::Element& element : now_deck_.elements) {
      const NasFields card = element.property ? NasFields() : now_->Element(element.key);
      if (element.property || card.IsEmpty() || !FindNasElementCard(card.Name())->has_property)
        continue;
      const NasCard* defaults = DefaultsOf(card.Name());
      if (defaults && !text_.FieldText(*defaults, 1).empty()) {
        if (++by_default == 1) first_by_default = element.key;
      } else if (now_->PropertyOf(element.key)) {
        if (++taken == 1) first_taken = element.key;
      } else if (!then_->HasElement(element.key) || then_->PropertyOfElement(element.key) != 0) {
        if (++blank == 1) first_blank = element.key;
      }
    }
    report_.Changed("elements without a property name none in their cards", blank,
                    fmt::format("element {}", first_blank),
                    "the format takes that for the property of their own number");
    report_.Changed("elements without a property have the one of the card of defaults", by_default,
                    fmt::format("element {}", first_by_default),
                    "BAROR or BEAMOR fills their blank fields");
    report_.Changed("elements without a property have the one of their own number", taken,
                    fmt::format("element {}", first_taken), "the format takes none for that");
    std::set<Key> placeholders;
    for (const tagTProp& property : before.Of<tagTProp>()) placeholders.insert(property.key);
    for (const tagTProp& property : now_deck_.Of<tagTProp>()) {
      const std::string where = fmt::format("property {}", property.key);
      if (!now_->HasProperty(property.key) && !placeholders.contains(property.key)) {
        report_.Lost("properties have no card but their number", 1, where,
                     "it is not known what kind they are, or the format has none for it");
      }
      const bool is_new = !IsDone(Kind::kProperty, property.key);
      const bool is_spring = NasCardOfProperty(property) == "PBUSH";
      if (now_->HasProperty(property.key) && is_new && !is_spring && property.material == 0) {
        report_.Changed("properties without a material were written without one", 1, where,
                        "the format takes that for another kind, or refuses it");
      }
      if (property.type == tagTProp::kPlaneStress) {
        report_.Changed("properties of plane stress were written as those of membranes", 1, where,
                        "the format has none of their own");
      }
    }
    for (const tagTMatl& material : now_deck_.Of<tagTMatl>()) {
      if (material.type == tagTMatl::kIsotropic || material_cards_.contains(material.key)) continue;
      report_.Changed("materials that are not isotropic solids were written as such", 1,
                      fmt::format("material {}", material.key), "MAT1 has no fields for them");
    }
  }

  void TellSystems() {
    for (const tagTCord& system : now_deck_.Of<tagTCord>()) {
      constexpr std::int32_t kByAxisZ = 2;
      const bool is_plain = system.plane == kByAxisZ && system.method == tagTCord::kByPoints;
      if (is_plain || now_->Systems().FrameOf(system.key)) continue;
      report_.Lost("coordinate systems without axes were written by their points", 1,
                   fmt::format("system {}", system.key), "their points give no axes");
    }
  }

  /// Records of which the cards say only some of what they can hold.
  void TellRecords(const Deck& before) {
    std::set<std::u16string> sets;
    for (const tagTBset& set : before.Of<tagTBset>()) sets.emplace(set.name.View());
    for (const tagTBset& set : now_deck_.Of<tagTBset>()) {
      if (sets.erase(std::u16string(set.name.View())) > 0) continue;
      report_.Lost("boundary sets were left out", 1, Utf8(set.name.View()),
                   "the deck has no cards of theirs");
    }
    for (const std::u16string& name : sets) {
      report_.Changed("cards of boundary sets that are gone or have another name were kept", 1,
                      Utf8(name), "they are text of the deck");
    }
    for (const tagTEcrd& record : now_deck_.Of<tagTEcrd>()) {
      report_.Changed("lines with the axes of a system were written along their nodes",
                      now_->IsAcross(record), fmt::format("element {}", record.key),
                      "the first axis of the system is not that of the line, or it is no "
                      "rectangular one");
      const bool is_gone = record.method == tagTEcrd::kByNode && record.reference_node == 0;
      if (!is_gone || !now_->HasElement(record.key)) continue;
      report_.Changed("lines are turned as those without an orientation", 1,
                      fmt::format("element {}", record.key), "the node of theirs is gone");
    }
    std::set<Key> elements;
    for (const Mesh::Element& element : now_deck_.elements) elements.insert(element.key);
    for (const tagTSprop& record : now_deck_.Of<tagTSprop>()) {
      if (now_->IsMass(record.key) || !elements.contains(record.key)) continue;
      report_.Lost("special properties of elements were left out", 1,
                   fmt::format("element {}", record.key), "only masses have a card for them");
    }
    for (const tagTE1DOffset& record : now_deck_.Of<tagTE1DOffset>()) {
      report_.Lost("offsets that follow from sections were left out", record.from_section != 0,
                   fmt::format("offset {}", record.key), "the format has fields for lengths only");
    }
    NasShellRecords::Tell(now_deck_, report_);
    for (const tagTE1DRelease& record : now_deck_.Of<tagTE1DRelease>()) {
      const auto any = [](const PackedDouble(&numbers)[3]) {
        return std::any_of(std::begin(numbers), std::end(numbers),
                           [](double number) { return number != 0; });
      };
      const bool is_partial = any(record.partial_translation_a) || any(record.partial_rotation_a) ||
                              any(record.partial_translation_b) || any(record.partial_rotation_b);
      report_.Lost("partial releases were written as whole ones", is_partial,
                   fmt::format("release {}", record.key), "the format has whole ones only");
    }
  }

  const std::string& path_;
  const Progress& progress_;
  NasUnits units_;
  NasText text_;
  NasNumbers numbers_;
  const Deck& now_deck_;
  const NasSetTags& tags_;
  LossReport& report_;
  std::vector<NasName> names_;
  NasCardText::Names property_cards_;
  NasCardText::Names material_cards_;
  const NasCardText* then_ = nullptr;
  const NasCardText* now_ = nullptr;
  const NasCard* grid_defaults_ = nullptr;
  const NasCard* bar_defaults_ = nullptr;
  const NasCard* beam_defaults_ = nullptr;
  std::vector<NasEdit> edits_;
  std::set<std::size_t> replaced_;        // cards, by their places
  std::array<std::vector<Key>, 6> done_;  // by kind; ascending once all cards are gone through
  std::string loose_names_;
  NasTally rewritten_;
  NasTally kept_;
  NasTally emptied_;
  NasTally off_nodes_;
};

}  // namespace

Result<std::string> RenewNasDeck(const tagTCarried& carried, const Deck& now,
                                 const std::map<Key, Key>& systems, const NasSetTags& tags,
                                 const CQXUnitCtrl& units, const std::string& path,
                                 LossReport& report, const Progress& progress) {
  return Renewer(carried, now, systems, tags, units, path, report, progress).Text();
}

}  // namespace qx::exchange
