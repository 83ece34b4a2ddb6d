#pragma once
// What every deck that a reader gives must stand.

#include <cstdlib>

#include "qx_db/qx_db.h"

#include "exchange/deck.h"

/// Puts the deck into a model, which is sound then, and as before once the step is taken back. A
/// deck that no model takes is refused with a reason.
inline void MustMakeASoundModel(const qx::exchange::Deck& deck) {
  qx::CQXDBSession session(qx::AddStandardPools);
  const std::uint64_t before = session.StateHash();
  qx::exchange::LossReport report;
  const qx::Outcome added = qx::exchange::AddDeck(session, deck, "input", report);
  if (!session.Validate().empty()) std::abort();
  if (!added && (added.Error().what.empty() || session.StateHash() != before)) std::abort();
  while (session.Undo()) {
  }
  if (session.StateHash() != before || !session.Validate().empty()) std::abort();
}
