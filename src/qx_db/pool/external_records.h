#pragma once
// The second store of a pool, for records from outside. Written once, without templates; DPoolExtDB
// adds the type.
// Threads: see DPoolBase; the external store counts as part of the pool.

#include <memory>
#include <unordered_map>

#include "qx_db/pool/keyed_set.h"
#include "qx_db/pool/pool_base.h"
#include "qx_db/record/key_map_record.h"

namespace qx {

/// Records that came from outside and those of them that were transferred: the map from external
/// keys to the keys that the records received, and what tells where each came to be, by the record,
/// so that it may get another key. `pool` is the pool proper, for whose life this is.
class QXDB_API ExternalRecords {
 public:
  explicit ExternalRecords(DPoolBase& pool);

  KeyedSetBase& Store() { return store_; }
  /// Replaces a record of the store; one that was transferred becomes a new one there.
  int SetAt(ITR item, const TStructBase& record);
  /// As IExternalStore::FindExtDB.
  ITR Find(Key key, int& external);
  /// As IExternalStore::TransferToDB, where `free_key` is what the record receives unless it is to
  /// keep its own.
  ITR Transfer(ITR item, int keep_key, Key free_key);
  void SetHashSize(std::int32_t n);

 private:
  /// What became of a record of the store.
  struct Transferred {
    ITR item;                             ///< in the store
    RecordStamp record;                   ///< in the pool proper, whatever key it has there by now
    std::unique_ptr<TStructBase> former;  ///< as it was before it was overwritten
  };
  bool IsTransferred(ITR item) const { return external_keys_.contains(item); }
  /// Where a transferred record is; 0 when it has left the pool since, or when one that was
  /// overwritten is what it was before.
  ITR PositionOf(const Transferred& transferred) const;
  /// Where the record of an external key came to be; 0 when it has not come, or is to come again.
  ITR PositionOf(Key external);
  void ForgetLost();

  DPoolBase& pool_;
  CKeySet<tagTKeyMap> key_map_;  // external keys to received ones
  KeyedSetBase store_;
  std::unique_ptr<TStructBase> moving_;               // scratch, for its arrays' room
  std::unordered_map<Key, Transferred> transferred_;  // by external key
  std::unordered_map<ITR, Key> external_keys_;        // of items that have received ones
  std::unordered_map<Key, ITR> shadowed_;             // items whose external key another received
};

}  // namespace qx
