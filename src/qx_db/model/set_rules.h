#pragma once
// Mesh sets whose members follow from a rule, and the one answer to what the members of a set are.
// Parsing and evaluating rules is of select/, which defines what is declared here.
// Threads: as the session's reading; members are derived under a lock, so that any number may ask
// while nobody edits.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/record/set_rule_record.h"

namespace qx {

/// The members of a mesh set: what it lists, and behind that what its rule selects and the list has
/// not: in the order of the pools; elements come with their nodes. They hold until the next edit.
class QXDB_API SetMembers {
 public:
  SetMembers();
  const TArray<ITR>& Nodes() const;
  const TArray<ITR>& Elements() const;
  /// Why the rule cannot be evaluated now, as that it names a property which is gone: the members
  /// are then those of the list alone. Its place is a column of the rule.
  const std::optional<Failure>& Fault() const;

  struct Content;
  explicit SetMembers(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

 private:
  std::shared_ptr<const Content> content_;
};

/// The members of a set that is in its pool. Constant time for a set without a rule, and for one
/// with a rule while nothing has changed; else conditions that look at one node or element alone
/// are asked again of what the steps since then touched, and a rule with any other condition, such
/// as "connected to", of the whole model. Throws std::bad_alloc, and what a WorkWatch throws.
QXDB_API SetMembers MembersOf(const CQXDBSession& session, ITR set);

/// The rule of a set in UTF-8; "" where it has none.
QXDB_API std::string RuleOf(const CQXDBSession& session, ITR set);

/// Gives a set a rule, or, for an empty text, takes it away; to be called in a transaction. Lengths
/// without a unit are in that of `units`, null for the session's current ones, and are kept with
/// it, so that the rule means the same whatever the units become. Fails, changing nothing, where
/// the text is none, is too long, selects faces, names what is not there, or would have the set
/// depend on itself.
QXDB_API Outcome SetRule(CQXDBSession& session, ITR set, std::string_view text,
                         const UnitSystem* units = nullptr);

/// Makes what the set's members are now its list, and takes its rule away; in a transaction. Fails,
/// changing nothing, where the rule cannot be evaluated.
QXDB_API Outcome MakePlain(CQXDBSession& session, ITR set);
/// The same of every set of a session that is another model's, or none of it: what its rules name
/// means nothing elsewhere. While references are iterators; the failure names the set.
QXDB_API Outcome MakeAllPlain(CQXDBSession& session);

extern template class DPool<tagTSetRule>;
extern template class DPoolExtDB<tagTSetRule>;
extern template class DPoolPlain<tagTSetRule>;

/// The rules of mesh sets. When a step ends, rules follow the names and keys of the sets that they
/// name; a step is refused that leaves a rule without a set it names, or lets sets depend on
/// themselves, whoever made it.
class QXDB_API DPoolSetRule : public DPoolPlain<tagTSetRule> {
 public:
  explicit DPoolSetRule(CQXDBSession* session);
  ~DPoolSetRule() override;

  int ProcessRelation() override;
  void OnAfterLoad(unsigned long flags, void* context) override;

  /// Whether a rule names the set, so that it is in use although it may list nothing.
  bool IsNamed(ITR set) const;

  /// How many nodes and elements were asked so far for what rules select: what following costs.
  std::uint64_t Asked() const;

  struct Derived;
  /// What was derived from the rules, for MembersOf.
  Derived& Known() const { return *derived_; }

 private:
  std::unique_ptr<Derived> derived_;
};

template <>
struct PoolOf<tagTSetRule> {
  using type = DPoolSetRule;
};

}  // namespace qx
