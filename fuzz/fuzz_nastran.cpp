// Nastran decks from outside: whatever the bytes, a deck is sound and makes a sound model, or is
// refused with a reason. A model whose nodes got other numbers makes a deck that reads again.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qx_db/qx_db.h"

#include "exchange/nastran/nas_follow.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_writer.h"
#include "fuzz/sound_model.h"
#include "host/session.h"

namespace {

void MustComeBack(const qx::exchange::Deck& deck) {
  qx::CQXDBSession session(qx::host::SetUpModel);
  qx::exchange::LossReport report;
  if (!qx::exchange::AddDeck(session, deck, "input", report)) return;
  auto& nodes = *session.GetPool<qx::DPoolNode>(qx::code::kNode);
  qx::CTransaction step(&session);
  step.Begin(u"renumber");
  std::vector<qx::ITR> every_third;
  for (qx::ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
    if (nodes.GetAtNU(at).key % 3 == 0) every_third.push_back(at);
  }
  for (const qx::ITR at : every_third) {
    qx::tagTNode node = nodes.GetAtNU(at);
    node.position.x += 1;
    const qx::Key key = nodes.Set().GetNewKey();
    if (key > 0 && key <= qx::exchange::kNasMaxNumber) node.key = key;
    nodes.SetAtNU(at, node);
  }
  if (!step.Commit()) return;
  const auto text = qx::exchange::NasDeckText(session, "output", report);
  if (!text) std::abort();
  std::vector<qx::Failure> faults;
  const auto again =
      qx::exchange::ParseNastran(qx::exchange::NasText(*text, "output"), "output", faults);
  if (!again || again->node_keys.size() != deck.node_keys.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qx::exchange::NasText text(std::string(reinterpret_cast<const char*>(data), size), "input");
  std::vector<qx::Failure> faults;
  const auto deck = qx::exchange::ParseNastran(text, "input", faults);
  if (deck ? !qx::exchange::CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
  if (deck) MustMakeASoundModel(*deck);
  if (deck) MustComeBack(*deck);
  return 0;
}
