#pragma once
// Fields of cards on the way out: values, their text, and lines of a card of which some changed.
// Threads: shares nothing; one at a time for each object.

#include <string>
#include <string_view>
#include <vector>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

/// A number as text of at most `width` characters, with the point that makes it a real one: exact
/// where that fits, else with the most digits that do.
std::string NasReal(double value, std::size_t width);

/// What a field says.
struct NasValue {
  enum class Kind { kBlank, kNumber, kReal, kWord };

  Kind kind = Kind::kBlank;
  Key number = 0;
  double real = 0;
  double scale = 0;  ///< size of what the number is a part of: a vector's length
  std::string word;

  /// As a small or a large field holds it.
  std::string Text() const;
  /// Whether both say the same; numbers to twelve digits of their scale.
  bool IsSame(const NasValue& other) const;
  /// Whether a field that says so in a deck was read as this value; a blank one may have been.
  bool IsRead(std::string_view text) const;
};

/// The fields of one card behind its name.
class NasFields {
 public:
  explicit NasFields(std::string name = {}) : name_(std::move(name)) {}
  NasFields& Number(Key key);  ///< blank for 0
  NasFields& Real(double value, double scale = 0);
  NasFields& RealOrBlank(double value);  ///< blank for 0
  template <class V>
  NasFields& Vector(const V& v, double scale) {
    return Real(v[0], scale).Real(v[1], scale).Real(v[2], scale);
  }
  NasFields& Blank(int count = 1);
  NasFields& Word(std::string text);  ///< blank for ""
  /// A field wherever it is; those before it that are not there are blank.
  void Set(std::size_t field, NasValue value);

  bool IsEmpty() const { return name_.empty(); }
  const std::string& Name() const { return name_; }
  std::size_t Count() const { return values_.size(); }
  /// Blank beyond the last.
  const NasValue& At(std::size_t field) const;
  /// The card in small fields where all fit, in large ones otherwise; "" without a name.
  std::string Text() const;

 private:
  std::string name_;
  std::vector<NasValue> values_;
};

/// A card in small fields where all texts fit, in large ones otherwise.
std::string NasCardLines(std::string_view name, std::vector<std::string> fields);

/// A stretch of a text and what stands there instead.
struct NasEdit {
  std::size_t begin;
  std::size_t end;
  std::string text;
};

/// Applies edits, in the order of their places; of two that overlap the first.
std::string ApplyEdits(std::string_view text, std::vector<NasEdit> edits);

/// Takes a card with its lines out of the text, or puts `text` in their place.
void ReplaceCard(const NasText& text, const NasCard& card, std::string with,
                 std::vector<NasEdit>& edits);

/// What the changes of a card make of its lines: fields in their place where that has room for
/// them, the whole card in fields that have it otherwise, with the texts of those that stay.
void PatchCard(const NasText& text, const NasCard& card, std::vector<NasEdit>& edits);

}  // namespace qx::exchange
