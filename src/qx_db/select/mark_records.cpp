// Conditions on what records say of themselves and of each other: keys, types, sets, properties.
// They look at elements one after the other, and need no mesh.

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/item_marks.h"
#include "qx_db/model/plain_pools.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/nearest_word.h"
#include "qx_db/select/type_words.h"

namespace qx::select {
namespace {

/// Marks elements that pass a test, or their faces.
template <class Test>
Outcome MarkElementsThat(const MeshView& mesh, const Term& term, Marks& marks, const Test& test) {
  Marks elements = mesh.None(SelectKind::kElements);
  const std::vector<ITR>& records = mesh.Elements().Records();
  elements.Fill([&](std::size_t e) {
    return test(*static_cast<const tagTElem*>(KeyedSetBase::RecordAt(records[e])));
  });
  marks = term.kind == SelectKind::kFaces ? mesh.FacesOfElements(elements) : std::move(elements);
  return {};
}

/// Ranges in order, those that meet as one, so that a key is found among them by halving.
class KeyTest {
 public:
  explicit KeyTest(std::vector<KeyRange> ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const KeyRange& a, const KeyRange& b) { return a.first < b.first; });
    for (const KeyRange& range : ranges) {
      if (range.step > 1) {
        stepped_.push_back(range);
      } else if (!plain_.empty() && range.first <= plain_.back().last) {
        plain_.back().last = std::max(plain_.back().last, range.last);
      } else {
        plain_.push_back(range);
      }
    }
  }
  bool operator()(Key key) const {
    const auto after =
        std::upper_bound(plain_.begin(), plain_.end(), key,
                         [](Key wanted, const KeyRange& range) { return wanted < range.first; });
    if (after != plain_.begin() && key <= (after - 1)->last) return true;
    return std::any_of(stepped_.begin(), stepped_.end(), [&](const KeyRange& range) {
      return key >= range.first && key <= range.last && (key - range.first) % range.step == 0;
    });
  }

 private:
  std::vector<KeyRange> plain_, stepped_;
};

// ---- named records ------------------------------------------------------------------------------

struct NamedPool {
  std::uint16_t type;
  std::string_view label;    ///< "mesh set"
  std::string_view command;  ///< that shows them
};
constexpr NamedPool kMeshSets{code::kMset, "mesh set", "qxdb sets MODEL"};
constexpr NamedPool kActiveSets{code::kActiveElemSet, "active element set",
                                "qxdb show MODEL activeelemset"};
constexpr NamedPool kProperties{code::kProp, "property", "qxdb show MODEL prop"};
constexpr NamedPool kMaterials{code::kMatl, "material", "qxdb show MODEL matl"};
constexpr NamedPool kGeometries{code::kGeom, "geometry", "qxdb show MODEL geom"};

std::string NameAt(ITR item) { return KeyedSetBase::RecordAt(item)->GetName().ToUtf8(); }

/// Records that are named, each once.
struct Named {
  std::vector<ITR> items;
  bool none = false;  ///< the word alone is among the names

  bool Has(ITR item) const { return std::find(items.begin(), items.end(), item) != items.end(); }
};

void Add(Named& named, ITR item) {
  if (item != 0 && !named.Has(item)) named.items.push_back(item);
}

Failure Unknown(const MeshView& mesh, const NamedPool& what, const NameOrKey& name,
                const DPoolBase* pool) {
  const std::string shown = name.kind == NameOrKey::Kind::kKey ? std::to_string(name.key)
                                                               : fmt::format("\"{}\"", name.name);
  std::vector<std::string> known;
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    known.push_back(NameAt(at));
  }
  const std::string nearest = NearestWord(name.name, known);
  return mesh.Fault(name.at, fmt::format("there is no {} {}", what.label, shown),
                    nearest.empty() ? fmt::format("see {} for those there are", what.command)
                                    : fmt::format("did you mean \"{}\"?", nearest));
}

Result<Named> Find(const MeshView& mesh, const Term& term, const NamedPool& what,
                   bool may_be_none) {
  const DPoolBase* const pool = mesh.Session().GetDataPool(what.type);
  Named named;
  for (const NameOrKey& name : term.arguments.names) {
    if (name.kind == NameOrKey::Kind::kNone && may_be_none) {
      named.none = true;
      continue;
    }
    const std::size_t before = named.items.size();
    bool is_there = name.kind == NameOrKey::Kind::kAny;
    if (name.kind == NameOrKey::Kind::kKey) {
      const ITR found = pool ? pool->Find(name.key) : 0;
      is_there = found != 0;
      Add(named, found);
    } else {
      const std::u16string wanted = Utf16(name.name);
      for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
        const bool is_it = name.kind == NameOrKey::Kind::kAny ||
                           KeyedSetBase::RecordAt(at)->GetName().View() == wanted;
        if (!is_it) continue;
        is_there = true;
        if (before == 0 && name.kind == NameOrKey::Kind::kAny) {
          named.items.push_back(at);  // all of them, without a search each
        } else {
          Add(named, at);
        }
      }
    }
    if (!is_there) return Unknown(mesh, what, name, pool);
  }
  return named;
}

/// Puts records of one of two pools, given by iterators, into the marks of a term.
class Listed {
 public:
  Listed(const MeshView& mesh, SelectKind kind)
      : numbers_(kind == SelectKind::kNodes ? mesh.Nodes() : mesh.Elements()),
        marks_(numbers_.Count()) {}

  void Add(std::span<const ITR> items) {
    for (const ITR item : items) Add(item);
  }
  void Add(ITR item) {
    const std::uint32_t number = numbers_.Find(item);
    if (number != PoolNumbers::kNone) marks_.Add(number);
  }
  void Into(const MeshView& mesh, const Term& term, Marks& marks) {
    marks = term.kind == SelectKind::kFaces ? mesh.FacesOfElements(marks_) : std::move(marks_);
  }

 private:
  const Numbering& numbers_;
  Marks marks_;
};

std::span<const ITR> SpanOf(const TArray<ITR>& list) { return {list.data(), list.size()}; }

void AddList(const Term& term, const tagTMset& set, Listed& listed) {
  listed.Add(SpanOf(term.kind == SelectKind::kNodes
                        ? static_cast<const TArray<ITR>&>(set.nodes)
                        : static_cast<const TArray<ITR>&>(set.elements)));
}

template <class T>
const T& At(ITR item) {
  return *static_cast<const T*>(KeyedSetBase::RecordAt(item));
}

}  // namespace

Outcome MarkAll(const MeshView& mesh, const Term& term, Marks& marks) {
  marks = mesh.All(term.kind);
  return {};
}

Outcome MarkKeys(const MeshView& mesh, const Term& term, Marks& marks) {
  for (const auto& [element, face] : term.arguments.faces) {
    const DPoolBase* const pool = mesh.Session().GetDataPool(code::kElem);
    const std::uint32_t e = mesh.Elements().Find(pool ? pool->Find(element) : 0);
    if (e == PoolNumbers::kNone) continue;  // as with keys: what is not there is not selected
    if (face < 0 || static_cast<std::uint32_t>(face) >= mesh.FaceCount(e)) continue;
    marks.Add(MeshView::FaceNumber(e, static_cast<std::size_t>(face)));
  }
  if (!term.arguments.faces.empty()) return {};
  const KeyTest test(term.arguments.keys);
  if (term.kind != SelectKind::kNodes) {
    return MarkElementsThat(mesh, term, marks, [&](const tagTElem& e) { return test(e.key); });
  }
  const std::vector<ITR>& nodes = mesh.Nodes().Records();
  marks.Fill([&](std::size_t n) { return test(KeyOf(nodes[n])); });
  return {};
}

Outcome MarkTypes(const MeshView& mesh, const Term& term, Marks& marks) {
  const std::string& word = term.arguments.word;
  std::array<bool, 256> is_one{};
  for (std::size_t code = 0; code < is_one.size(); ++code) {
    is_one[code] = IsOfType(word, static_cast<std::int32_t>(code));
  }
  return MarkElementsThat(mesh, term, marks, [&](const tagTElem& element) {
    const auto type = static_cast<std::uint32_t>(element.type);
    return type < is_one.size() && is_one[type];
  });
}

Outcome MarkTypeCodes(const MeshView& mesh, const Term& term, Marks& marks) {
  const KeyTest test(term.arguments.keys);
  return MarkElementsThat(mesh, term, marks,
                          [&](const tagTElem& element) { return test(element.type); });
}

Result<std::vector<ITR>> SetsNamedBy(const MeshView& mesh, const Term& term) {
  auto named = Find(mesh, term, kMeshSets, false);
  if (!named) return named.Error();
  const DPoolBase* const sets = mesh.Session().GetDataPool(code::kMset);
  if (term.arguments.with_children) {
    // Whoever has a chosen parent is chosen, until nobody is new; rings of parents end it, too.
    for (bool more = true; more;) {
      more = false;
      for (ITR at = sets->GetHeadPosition(); at; sets->Next(at)) {
        const ITR parent = sets->Find(At<tagTMset>(at).parent_key);
        if (parent == 0 || !named->Has(parent) || named->Has(at)) continue;
        named->items.push_back(at);
        more = true;
      }
    }
  }
  return std::move(named->items);
}

Outcome MarkSets(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto named = SetsNamedBy(mesh, term);
  if (!named) return named.Error();
  Listed listed(mesh, term.kind);
  for (const ITR set : *named) {
    const SetMembers members = MembersOf(mesh.Session(), set);
    if (const auto& fault = members.Fault()) {
      return mesh.Fault(term.arguments.names.front().at,
                        fmt::format("the rule of mesh set \"{}\" has no answer: {}: {}",
                                    NameAt(set), fault->place, fault->what),
                        fault->remedy);
    }
    listed.Add(SpanOf(term.kind == SelectKind::kNodes ? members.Nodes() : members.Elements()));
  }
  listed.Into(mesh, term, marks);
  return {};
}

Outcome MarkActiveSets(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto named = Find(mesh, term, kActiveSets, false);
  if (!named) return named.Error();
  Listed listed(mesh, SelectKind::kElements);
  for (const ITR set : named->items) listed.Add(SpanOf(At<tagTActiveElemSet>(set).elements));
  listed.Into(mesh, term, marks);
  return {};
}

Outcome MarkOrphans(const MeshView& mesh, const Term& term, Marks& marks) {
  Listed listed(mesh, term.kind);
  const DPoolBase* const sets = mesh.Session().GetDataPool(code::kMset);
  for (ITR at = sets ? sets->GetHeadPosition() : 0; at; sets->Next(at)) {
    AddList(term, At<tagTMset>(at), listed);
  }
  listed.Into(mesh, term, marks);
  marks.Complement(mesh.All(term.kind));
  return {};
}

namespace {

/// Elements with one of these properties, or with none of any.
Outcome MarkElementsOf(const MeshView& mesh, const Term& term, const Named& properties,
                       Marks& marks) {
  std::vector<ITR> wanted = properties.items;
  std::sort(wanted.begin(), wanted.end());
  const bool none = properties.none;
  return MarkElementsThat(mesh, term, marks, [&](const tagTElem& element) {
    const ITR property = element.property;
    if (property == 0) return none;
    return std::binary_search(wanted.begin(), wanted.end(), property);
  });
}

}  // namespace

Outcome MarkProperties(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto named = Find(mesh, term, kProperties, true);
  if (!named) return named.Error();
  return MarkElementsOf(mesh, term, *named, marks);
}

Outcome MarkMaterials(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto named = Find(mesh, term, kMaterials, true);
  if (!named) return named.Error();
  // What a property is, is the application's; which of its members name a material its rows tell.
  Named properties;
  properties.none = named->none;
  const DPoolBase* const pool = mesh.Session().GetDataPool(code::kProp);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const auto copy = pool->CopyRecord(at);
    bool is_used = false, has_any = false;
    ForEachReference(pool->GetSchema(), *copy, [&](const Row& row, const char* slot) {
      if (row.target != code::kMatl) return;
      const auto material = LoadAt<ITR>(slot);
      has_any |= material != 0;
      is_used |= named->Has(material);
    });
    if (is_used || (named->none && !has_any)) properties.items.push_back(at);
  }
  return MarkElementsOf(mesh, term, properties, marks);
}

Outcome MarkGeometry(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto named = Find(mesh, term, kGeometries, false);
  if (!named) return named.Error();
  const CQXDBSession& session = mesh.Session();
  Listed listed(mesh, term.kind);
  const DPoolBase* const sets = session.GetDataPool(code::kMset);
  for (ITR at = sets ? sets->GetHeadPosition() : 0; at; sets->Next(at)) {
    const auto& set = At<tagTMset>(at);
    if (named->Has(set.geometry)) AddList(term, set, listed);
  }
  const DPoolBase* const meshed = session.GetDataPool(code::kGElem);
  for (ITR at = meshed ? meshed->GetHeadPosition() : 0; at; meshed->Next(at)) {
    const auto& item = At<tagTGElem>(at);
    const ITR key = item.geometry_key;
    if (!IsLive(key) || !named->Has(At<tagTGKey>(key).geometry)) continue;
    if (term.kind == SelectKind::kNodes) {
      listed.Add(item.node);
      for (const auto& list : item.elements) {
        for (const ITR element : list) {
          if (IsLive(element)) listed.Add(SpanOf(At<tagTElem>(element).nodes));
        }
      }
    } else {
      for (const auto& list : item.elements) listed.Add(SpanOf(list));
    }
  }
  listed.Into(mesh, term, marks);
  return {};
}

// ---- words for types ----------------------------------------------------------------------------

namespace {

std::string_view WithoutDigits(std::string_view name) {
  return name.substr(0, name.find_first_of("0123456789"));
}

struct DimensionWord {
  std::string_view word;
  int dimension;
};
constexpr DimensionWord kDimensions[] = {
    {"solid", 3}, {"surface-element", 2}, {"shell", 2}, {"line", 1}, {"beam", 1}, {"point", 0}};

constexpr std::string_view kLinear = "linear", kQuadratic = "quadratic", kSpecial = "special";

}  // namespace

std::vector<std::string> TypeWords() {
  std::vector<std::string> words;
  const auto add = [&](std::string_view word) {
    if (std::find(words.begin(), words.end(), word) == words.end()) words.emplace_back(word);
  };
  for (const ElementType& type : ElementTypes()) add(type.name);
  for (const ElementType& type : ElementTypes()) add(WithoutDigits(type.name));
  for (const DimensionWord& each : kDimensions) add(each.word);
  for (const std::string_view word : {kLinear, kQuadratic, kSpecial}) add(word);
  return words;
}

bool IsOfType(const std::string& word, std::int32_t code) {
  if (word == kSpecial) return topology::DimensionOf(code) == topology::kSpecialDimension;
  const ElementType* const type = FindElementType(code);
  if (!type) return false;
  if (word == kLinear) return type->nodes == type->corners;
  if (word == kQuadratic) return type->nodes > type->corners;
  const auto is_named = [&](const DimensionWord& each) {
    return each.word == word && each.dimension == type->dimension;
  };
  return type->name == word || WithoutDigits(type->name) == word ||
         std::any_of(std::begin(kDimensions), std::end(kDimensions), is_named);
}

}  // namespace qx::select
