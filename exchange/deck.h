#pragma once
// The neutral deck: what every reader fills and every writer of decks is given. The mesh is plain
// arrays (mesh.h); everything about it is the catalogue's own records, with keys where a model has
// iterators, so that a deck and a model can say the same.
// Threads: shares nothing; one at a time for each object. AddDeck and DeckOf: as transfer.h.

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "qx_db/model/deck_pools.h"
#include "qx_db/record/catalogue.h"

#include "exchange/mesh.h"
#include "host/material_records.h"
#include "host/property_records.h"

namespace qx::exchange {

/// Key of the global coordinate system, which every model has.
inline constexpr Key kGlobalSystem = 1;

/// The records that a deck can have, in the order in which they enter a model. Those keyed by an
/// element have its key. References hold keys; one to a mesh set holds the place of its group in
/// `groups`, from 1. Numbers are in the session's current units.
using DeckRecords =
    std::tuple<std::vector<tagTCord>, std::vector<tagTMatl>, std::vector<tagTProp>,
               std::vector<tagTMeshCsys>, std::vector<tagTEcrd>, std::vector<tagTE1DOffset>,
               std::vector<tagTE1DRelease>, std::vector<tagTE2DThick>, std::vector<tagTE2DOffset>,
               std::vector<tagTE2DMatlCsys>, std::vector<tagTE3DMatlCsys>, std::vector<tagTSprop>,
               std::vector<tagTBset>, std::vector<tagTField>, std::vector<tagTSetTag>,
               std::vector<tagTBlock>, std::vector<tagTCarried>, std::vector<tagTOrigin>>;

/// A file's content, or a model's, between the two.
struct Deck : Mesh {
  std::string format;  ///< name of the format it was read from, which the groups' tags are of
  DeckRecords records;
  std::optional<UnitSystem> units;  ///< that the file says its numbers are in

  template <class T>
  std::vector<T>& Of() {
    return std::get<std::vector<T>>(records);
  }
  template <class T>
  const std::vector<T>& Of() const {
    return std::get<std::vector<T>>(records);
  }
};

/// Adds a deck that has passed CheckMesh to a session as one undoable step: the mesh as AddMesh
/// does, and the records. A key that the model has already is replaced by a new one, together with
/// what refers to it; those of nodes and elements must be free. What the model has no pool for is
/// told in `report`, with names that were cut. Fails with the session as it was. A deck that is
/// moved here gives up its memory as it is added.
Outcome AddDeck(CQXDBSession& session, Deck deck, const std::string& file, LossReport& report,
                const Progress& progress = {});

/// The whole of a session that a deck can say, in current units, in pool order. Elements without
/// all their nodes are left out and told of in the deck's report, as are elements of codes without
/// a known number of nodes. Changes nothing.
Deck DeckOf(const CQXDBSession& session, const Progress& progress = {});

/// Tells of what a file of `format` does not have of a model: records of every pool but those of
/// `written`, and of those that every model has; text that other formats left; boundary sets, which
/// are text, too, where none of the format came with them. With kCarried and kBset among `written`
/// the writer itself tells what of the format's own text and sets it leaves out.
void ReportUnwritten(const CQXDBSession& session, std::string_view format,
                     std::span<const std::uint16_t> written, LossReport& report);

/// Names of the members in which a record differs from what is said of it, which is of the same
/// type: "specific heat, color"; "" for none. Its key and its name do not count, nor do arrays.
std::string UnsaidMembers(const Schema& schema, const TStructBase& held, const TStructBase& said);

/// Fails when a number of a record is none: nothing that can be written reads as it.
Outcome CheckNumbers(const Deck& deck, const std::string& path);

/// Tells of elements that a format has no word for, by type: how many, and the key of the first.
struct UnwrittenElements {
  void Add(std::int32_t type, Key key);
  void Report(LossReport& report) const;

  struct Count {
    std::uint64_t count = 0;
    Key first = 0;
  };
  std::map<std::int32_t, Count> of_type;
};
/// Tells of elements without all their nodes, which no format can have.
void ReportIncomplete(std::uint64_t count, Key first, LossReport& report);
/// Tells of nodes that no element has, where a reader left out elements, or nodes of them.
void ReportUnused(const Mesh& mesh, LossReport& report);

}  // namespace qx::exchange
