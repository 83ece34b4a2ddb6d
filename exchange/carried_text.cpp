#include "exchange/carried_text.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "qx_db/record/verbs.h"

namespace qx::exchange {
namespace {

template <class Entry>
void List(const TArray<Entry>& keys, bool in_session, std::vector<Key>& now) {
  for (const Entry& key : keys) {
    if (key.place < 0 || static_cast<std::size_t>(key.place) >= now.size()) continue;
    const bool is_gone = in_session && (!key.target || KeyedSetBase::IsRemoved(key.target));
    now[static_cast<std::size_t>(key.place)] = is_gone      ? 0
                                               : in_session ? KeyOf(key.target)
                                                            : static_cast<Key>(key.target);
  }
}

/// A key as it stood there when it is the same, in the room of the old one where it fits.
std::string Written(std::string_view was, Key key) {
  Key former = 0;
  std::from_chars(was.data(), was.data() + was.size(), former);
  if (former == key) return std::string(was);
  return fmt::format("{:<{}}", key, was.size());
}

}  // namespace

FollowedText Follow(const tagTCarried& carried, bool in_session, std::string_view gone) {
  std::vector<Key> now(carried.places.size());  // of each place; 0 where the record is gone
  List(carried.node_keys, in_session, now);
  List(carried.element_keys, in_session, now);
  List(carried.system_keys, in_session, now);
  const std::string_view from(carried.text.data(), carried.text.size());
  FollowedText followed;
  std::size_t done = 0;
  for (std::size_t i = 0; i < now.size(); ++i) {
    const tagTTextPlace& place = carried.places[static_cast<std::ptrdiff_t>(i)];
    const auto at = static_cast<std::size_t>(std::max(place.at, 0));
    const auto length = static_cast<std::size_t>(std::max(place.length, 0));
    if (at < done || at > from.size() || length > from.size() - at) continue;  // no such place
    const std::string_view was = from.substr(at, length);
    followed.text += from.substr(done, at - done);
    done = at + length;
    followed.gone += now[i] == 0;
    followed.text += now[i] == 0 ? std::string(gone) : Written(was, now[i]);
  }
  followed.text += from.substr(std::min(done, from.size()));
  return followed;
}

}  // namespace qx::exchange
