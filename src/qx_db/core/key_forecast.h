#pragma once
// Where steps lead that nobody has taken back or done again yet: which keys records would have.
// Threads: any number while none changes the session.

#include <cstdint>
#include <map>
#include <unordered_map>

#include "qx_db/core/session.h"

namespace qx {

/// Follows the keys of records along the history, from the present state on, to where two of a pool
/// would share one. No file can hold such a state. Cost of a step: its changes in pools in which
/// keys may be shared, and nothing where none is such, which is the rule.
class KeyForecast {
 public:
  explicit KeyForecast(const CQXDBSession& session) : session_(session) {}

  struct Clash {
    const DPoolBase* pool = nullptr;
    ITR first = 0, second = 0;
    Key key = -1;
    explicit operator bool() const { return pool != nullptr; }
  };
  /// Takes a step back, or does it again, where the history would do so next. What it tells is the
  /// first of the step's records that would share its key with another, and does not do so now.
  Clash Pass(const Step& step, bool undo);

 private:
  /// Of one pool, the records that have come to other keys than they have now; -1 of one that is
  /// not there.
  struct Keys {
    std::unordered_map<ITR, Key> of;
    std::unordered_multimap<Key, ITR> holders;
  };

  void Follow(const Step& step, const Change& change, bool undo);
  Clash ClashOf(const Change& change) const;

  const CQXDBSession& session_;
  std::map<std::uint16_t, Keys> pools_;
};

}  // namespace qx
