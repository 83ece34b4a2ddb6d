#pragma once
// Text that is carried along, put together and taken apart again.
// Threads: shares nothing; one at a time for each object.

#include <fmt/format.h>
#include <iterator>
#include <string>
#include <string_view>

#include "exchange/deck.h"

namespace qx::exchange {

/// Builds a carried record whose text is lines of numbers, some of which are keys.
class CarriedText {
 public:
  CarriedText(std::u16string_view keyword, std::int32_t checked) {
    record_.keyword.Set(keyword);
    record_.checked = checked;
  }
  template <class T>
  void Number(T number) {
    fmt::format_to(std::back_inserter(text_), "{} ", number);
  }
  void NodeKey(Key key) { AddKey(record_.node_keys, key); }
  void ElementKey(Key key) { AddKey(record_.element_keys, key); }
  void EndLine() {
    if (text_.ends_with(' ')) text_.pop_back();
    text_ += '\n';
  }
  tagTCarried Take() {
    record_.text.Assign(text_.data(), text_.size());
    return std::move(record_);
  }

 private:
  template <class Entry>
  void AddKey(TArray<Entry>& keys, Key key) {
    const auto at = static_cast<std::int32_t>(text_.size());
    Number(key);
    keys.Add({record_.places.GetSize(), static_cast<ITR>(key)});
    record_.places.Add({at, static_cast<std::int32_t>(text_.size()) - at - 1});
  }

  tagTCarried record_;
  std::string text_;
};

/// What became of the keys in a carried text.
struct FollowedText {
  std::string text;        ///< with each key that its record has now
  std::uint64_t gone = 0;  ///< keys whose records are not there any more
};

/// The text of a record in a session or, with keys for iterators, in a deck. A key whose record is
/// gone becomes `gone`.
FollowedText Follow(const tagTCarried& carried, bool in_session, std::string_view gone);

}  // namespace qx::exchange
