#include "exchange/nastran/nas_lines.h"

#include <algorithm>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kOrientation = kNasOrientation;
constexpr std::size_t kForm = 7;  ///< OFFT of bars and beams, the system of a bush
constexpr std::size_t kPins = 8;
constexpr std::size_t kOffsets[] = {10, 13};

template <class V>
V As(const Vector3& v) {
  return V{v.x, v.y, v.z};
}

bool IsZero(const Vector3& v) { return v.x == 0 && v.y == 0 && v.z == 0; }

/// The axis about which the records of the model turn a line by an angle, turned: in the plane of
/// its x and y axes, as the format wants it.
Vector3 FromBeta(const Vector3& a, const Vector3& b, double beta_deg) {
  constexpr double kVertical = 0.01;
  const Vector3 d = b - a;
  const double length = Length(d);
  if (length == 0) return {0, 0, 1};
  const bool is_vertical = std::hypot(d.x, d.y) / length < kVertical;
  const Vector3 x = (1 / length) * d;
  const Vector3 z = Rotated(is_vertical ? Vector3(1, 0, 0) : Vector3(0, 0, 1), x, beta_deg);
  return Cross(z, x);
}

}  // namespace

bool IsNasLine(std::string_view card) {
  return card == "CBAR" || card == "CBEAM" || card == "CBUSH";
}

NasLineForm NasLineForm::Of(const NasText& text, const NasCard& card, const NasCard* defaults) {
  NasLineForm form;
  form.fills = false;
  if (card.name == "CONM2") {
    form.is_absolute = DeckInteger(text.FieldText(card, 2)) == -1;
  } else if (card.name != "CBUSH") {
    std::string_view ends = text.FieldText(card, kForm);
    if (ends.empty() && defaults) ends = text.FieldText(*defaults, kForm);
    const std::string upper = AsciiUpper(std::string(ends));
    const bool is_form = upper.size() == 3 && upper.find_first_not_of("GBO") == std::string::npos;
    if (is_form) form.ends = upper;
    form.says_ends = NasGivesEnds(text, defaults);
    // A blank orientation would be that of the defaults.
    for (std::size_t f = kOrientation; defaults && f < kOrientation + 3; ++f) {
      form.fills = form.fills || !text.FieldText(*defaults, f).empty();
    }
  }
  return form;
}

bool NasGivesEnds(const NasText& text, const NasCard* defaults) {
  return defaults && !text.FieldText(*defaults, kForm).empty();
}

// ---- in -----------------------------------------------------------------------------------------

namespace {

class LineReader {
 public:
  LineReader(NasFieldReader& in, const NasCard& card, const NasCard* defaults,
             const std::array<Key, 2>& nodes, const NasNodeFrames& frames, Deck& deck)
      : in_(in), card_(card), defaults_(defaults), nodes_(nodes), frames_(frames), deck_(deck) {
    key_ = in.Number(card, 0);
    form_ = NasLineForm::Of(in.Source(), card, defaults);
  }

  void ReadOrientation(const NasSystems& systems) {
    const auto is_given = [&](const NasCard& card) {
      return !in_.Text(card, kOrientation).empty() || !in_.Text(card, kOrientation + 1).empty() ||
             !in_.Text(card, kOrientation + 2).empty();
    };
    tagTEcrd orientation;
    orientation.key = key_;
    orientation.element_type = element::kLine2;
    if (card_.name == "CBUSH" && !in_.Text(card_, kForm).empty()) {
      const Key system = in_.Number(card_, kForm);
      if (!systems.IsRectangular(system)) return;
      orientation.method = tagTEcrd::kByCoordinateSystem;
      orientation.coordinate_system = static_cast<ITR>(system);
      deck_.Of<tagTEcrd>().push_back(orientation);
      return;
    }
    const NasCard& from = is_given(card_) || !defaults_ ? card_ : *defaults_;
    if (!is_given(from)) return;
    const std::string_view first = in_.Text(from, kOrientation);
    const bool is_node = DeckInteger(first) && in_.Text(from, kOrientation + 1).empty() &&
                         in_.Text(from, kOrientation + 2).empty();
    if (is_node) {
      orientation.method = tagTEcrd::kByNode;
      orientation.reference_node = static_cast<ITR>(in_.Number(from, kOrientation));
    } else {
      const Vector3 v(in_.Vector(from, kOrientation).data());
      orientation.method = tagTEcrd::kByVector;
      orientation.reference_vector =
          As<tagTVector3<double>>(form_.ends[0] == 'B' ? v : frames_(nodes_[0]).axes.ToGlobal(v));
    }
    deck_.Of<tagTEcrd>().push_back(orientation);
  }

  /// One record, or one for each end where they are given in different systems.
  void ReadOffsets() {
    std::array<Vector3, 2> offsets;
    std::array<bool, 2> by_element{};
    for (std::size_t end = 0; end < 2; ++end) {
      offsets[end] = Vector3(in_.Vector(card_, kOffsets[end]).data());
      by_element[end] = form_.ends[end + 1] == 'O';
      if (!by_element[end]) offsets[end] = frames_(nodes_[end]).axes.ToGlobal(offsets[end]);
    }
    const bool both = !IsZero(offsets[0]) && !IsZero(offsets[1]);
    if (both && by_element[0] == by_element[1]) {
      AddOffset(offsets, by_element[0]);
      return;
    }
    for (std::size_t end = 0; end < 2; ++end) {
      if (IsZero(offsets[end])) continue;
      std::array<Vector3, 2> one;
      one[end] = offsets[end];
      AddOffset(one, by_element[end]);
    }
  }

  void ReadReleases() {
    tagTE1DRelease release;
    bool any = false;
    for (std::size_t end = 0; end < 2; ++end) {
      for (const char c : in_.Text(card_, kPins + end)) {
        if (c < '1' || c > '6') continue;
        release.released[end * 6 + static_cast<std::size_t>(c - '1')] = 1;
        any = true;
      }
    }
    if (!any) return;
    release.key = static_cast<Key>(deck_.Of<tagTE1DRelease>().size()) + 1;
    release.elements.Add(static_cast<ITR>(key_));
    deck_.Of<tagTE1DRelease>().push_back(release);
  }

 private:
  void AddOffset(const std::array<Vector3, 2>& ends, bool by_element) {
    tagTE1DOffset offset;
    offset.key = static_cast<Key>(deck_.Of<tagTE1DOffset>().size()) + 1;
    offset.elements.Add(static_cast<ITR>(key_));
    offset.end_a = !IsZero(ends[0]);
    offset.end_b = !IsZero(ends[1]);
    for (int i = 0; i < 3; ++i) {
      offset.offset_a[i] = ends[0][i];
      offset.offset_b[i] = ends[1][i];
    }
    offset.csys_type = by_element;
    offset.from_section = 0;
    deck_.Of<tagTE1DOffset>().push_back(offset);
  }

  NasFieldReader& in_;
  const NasCard& card_;
  const NasCard* defaults_;
  std::array<Key, 2> nodes_;
  const NasNodeFrames& frames_;
  Deck& deck_;
  Key key_ = 0;
  NasLineForm form_;
};

}  // namespace

void ReadNasLine(NasFieldReader& in, const NasCard& card, const NasCard* defaults,
                 const std::array<Key, 2>& nodes, const NasNodeFrames& frames,
                 const NasSystems& systems, Deck& deck) {
  LineReader line(in, card, defaults, nodes, frames, deck);
  line.ReadOrientation(systems);
  if (card.name == "CBUSH") return;
  line.ReadOffsets();
  line.ReadReleases();
}

void ReadNasMass(NasFieldReader& in, const NasCard& card, Key node, const NasNodeFrames& frames,
                 Deck& deck) {
  tagTSprop mass;
  mass.key = in.Number(card, 0);
  mass.mass = in.Real(card, 3);
  Vector3 offset(in.Vector(card, 4).data());
  if (NasLineForm::Of(in.Source(), card, nullptr).is_absolute) {
    offset = offset - frames(node).at;
  } else if (const Key system = in.Number(card, 2)) {
    mass.coordinate_system = static_cast<ITR>(system);
  }
  mass.offset = As<tagTVector3<double>>(offset);
  mass.has_offset = !IsZero(offset);
  for (std::size_t i = 0; i < 6; ++i) mass.inertia[i] = in.Real(card, 8 + i);
  deck.Of<tagTSprop>().push_back(mass);
}

// ---- out ----------------------------------------------------------------------------------------

namespace {

void AddVector(NasFields& card, const Vector3& v) {
  const double size = Length(v);
  for (int i = 0; i < 3; ++i) card.Real(v[i], size);
}

void AddOrientation(NasFields& card, const NasLineRecords& records, const NasLineForm& form,
                    const std::array<Key, 2>& nodes, const NasNodeFrames& frames,
                    const NasSystems& systems) {
  tagTEcrd record;
  const bool is_bush = card.Name() == "CBUSH";
  const tagTEcrd* given = records.orientation;
  const bool is_gone =
      given && given->method == tagTEcrd::kByNode && given->reference_node == 0;  // its node is
  if (given && !is_gone) record = *given;
  if (is_bush ? !given || is_gone : !given && !form.fills) {
    card.Blank(3);
    return;
  }
  const auto system = static_cast<Key>(record.coordinate_system);
  Vector3 v = record.reference_vector;
  switch (record.method) {
    case tagTEcrd::kByNode:
      card.Number(static_cast<Key>(record.reference_node)).Blank(2);
      return;
    case tagTEcrd::kByCoordinateSystem: {
      if (is_bush) {
        card.Blank(3).Word(fmt::format("{}", system));
        return;
      }
      const Triad axes = systems.FrameOf(system).value_or(Frame()).axes;
      Vector3 along = frames(nodes[1]).at - frames(nodes[0]).at;
      const bool is_along_y = Normalize(along) && std::abs(Dot(along, axes.y)) > 0.9999;
      v = is_along_y ? axes.z : axes.y;
      break;
    }
    case tagTEcrd::kByBetaAngle:
      v = FromBeta(frames(nodes[0]).at, frames(nodes[1]).at, record.beta_angle_deg);
      break;
    default:
      break;
  }
  AddVector(card, form.ends[0] == 'B' ? v : frames(nodes[0]).axes.ToLocal(v));
}

}  // namespace

void AddNasLine(NasFields& card, const NasLineRecords& records, const NasLineForm& form,
                const std::array<Key, 2>& nodes, const NasNodeFrames& frames,
                const NasSystems& systems) {
  AddOrientation(card, records, form, nodes, frames, systems);
  if (card.Name() == "CBUSH") return;
  std::string ends = form.ends;
  std::array<Vector3, 2> offsets;
  for (std::size_t end = 0; end < 2; ++end) {
    const tagTE1DOffset* record = records.offsets[end];
    if (!record) continue;
    const PackedDouble(&numbers)[3] = end == 0 ? record->offset_a : record->offset_b;
    const Vector3 offset(numbers[0], numbers[1], numbers[2]);
    const bool by_element = record->csys_type == 1;
    ends[end + 1] = by_element ? 'O' : 'G';
    offsets[end] = by_element ? offset : frames(nodes[end]).axes.ToLocal(offset);
  }
  card.Word(ends == "GGG" && !form.says_ends ? "" : ends);
  for (std::size_t end = 0; end < 2; ++end) {
    std::string pins;
    for (std::size_t i = 0; records.release && i < 6; ++i) {
      if (records.release->released[end * 6 + i]) pins += static_cast<char>('1' + i);
    }
    card.Word(pins);
  }
  for (std::size_t end = 0; end < 2; ++end) {
    if (IsZero(offsets[end])) {
      card.Blank(3);
    } else {
      AddVector(card, offsets[end]);
    }
  }
}

void AddNasMass(NasFields& card, const tagTSprop& mass, const NasLineForm& form, Key node,
                const NasNodeFrames& frames) {
  Vector3 offset = mass.offset;
  if (form.is_absolute) {
    offset = offset + frames(node).at;
    card.Word("-1");
  } else {
    card.Number(static_cast<Key>(mass.coordinate_system));
  }
  card.Real(mass.mass);
  if (IsZero(offset)) {
    card.Blank(3);
  } else {
    AddVector(card, offset);
  }
  card.Blank();
  for (const double inertia : mass.inertia) card.RealOrBlank(inertia);
}

}  // namespace qx::exchange
