#include "qx_db/core/state_hash.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <mutex>
#include <optional>
#include <vector>
#include <xxhash.h>

#include "qx_db/core/image_stream.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {

// ---- the hash -----------------------------------------------------------------------------------

struct StateHasher::State {
  XXH3_state_t xxh;
};

StateHasher::StateHasher(const CQXUnitCtrl& units) : state_(std::make_unique<State>()) {
  XXH3_64bits_reset(&state_->xxh);
  for (const UnitSystem& system : {units.Model(), units.Current()}) {
    XXH3_64bits_update(&state_->xxh, system.index.data(), sizeof(system.index));
  }
}

StateHasher::~StateHasher() = default;

void StateHasher::BeginPool(std::uint16_t type, std::int32_t records) {
  if (records == 0) return;
  const std::int32_t head[2] = {type, records};
  XXH3_64bits_update(&state_->xxh, head, sizeof(head));
}

void StateHasher::AddImage(std::span<const char> image) {
  XXH3_64bits_update(&state_->xxh, image.data(), image.size());
}

std::uint64_t StateHasher::Digest() const { return XXH3_64bits_digest(&state_->xxh); }

// ---- what is known of it ------------------------------------------------------------------------

namespace {

/// What tells a state from every other of this process, without a look at its records.
struct StateName {
  UnitSystem model, current;
  /// Of all pools, as a record that is saved may name one that is not; and of each the order of its
  /// list, and whether it is saved.
  std::vector<std::uint64_t> revisions;
  bool operator==(const StateName& other) const {
    return revisions == other.revisions && model.index == other.model.index &&
           current.index == other.current.index;
  }
};

StateName NameOf(const CQXDBSession& session) {
  StateName name{session.OwnUnits().Model(), session.OwnUnits().Current(), {}};
  for (const DPoolBase* pool : session.Pools()) {
    const KeyedSetBase& set = pool->Set();
    name.revisions.push_back(set.Revision());
    name.revisions.push_back(std::uint64_t{set.ListEpoch()} << 1 | (pool->NeedSaveNLoad() ? 1 : 0));
  }
  return name;
}

/// The last states that were asked for. A few: the one that was opened or saved, and the present
/// ones of some sessions.
class KnownStates {
 public:
  std::optional<std::uint64_t> Find(const StateName& name) {
    const std::lock_guard guard(mutex_);
    for (const Known& known : known_) {
      if (known.name == name) return known.hash;
    }
    return std::nullopt;
  }
  void Add(StateName name, std::uint64_t hash) {
    if (name.revisions.empty()) return;  // nothing names the session
    const std::lock_guard guard(mutex_);
    known_[next_++ % std::size(known_)] = {std::move(name), hash};
  }

 private:
  struct Known {
    StateName name;
    std::uint64_t hash = 0;
  };
  std::mutex mutex_;
  Known known_[8];
  std::size_t next_ = 0;
};

KnownStates& Known() {
  static KnownStates states;
  return states;
}

}  // namespace

std::uint64_t CQXDBSession::StateHash() const {
  StateHasher hasher(OwnUnits());
  std::vector<DPoolBase*> pools(order_);
  std::sort(pools.begin(), pools.end(),
            [](auto* a, auto* b) { return a->GetTypeCode() < b->GetTypeCode(); });
  std::vector<char> image;
  std::size_t records = 0;
  for (const DPoolBase* pool : pools) records += static_cast<std::size_t>(pool->GetSize());
  LongWork work(records);
  for (const DPoolBase* pool : pools) {
    if (!pool->NeedSaveNLoad()) continue;
    hasher.BeginPool(pool->GetTypeCode(), pool->GetSize());
    const Schema& schema = pool->GetSchema();
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      work.Step();
      const TStructBase& record = *KeyedSetBase::RecordAt(pos);
      image.resize(ImageSize(schema, record));
      WriteImage(schema, record, image.data());
      image.resize(DropUnsaved(schema, image.data(), image.size()));
      ImageIteratorsToKeys(schema, image.data());
      hasher.AddImage(image);
    }
  }
  return hasher.Digest();
}

std::uint64_t KnownStateHash(const CQXDBSession& session) {
  StateName name = NameOf(session);
  if (const auto known = Known().Find(name)) return *known;
  const std::uint64_t hash = session.StateHash();
  Known().Add(std::move(name), hash);
  return hash;
}

}  // namespace qx
