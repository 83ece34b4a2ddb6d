#include <gtest/gtest.h>

#include "qx_db/platform/pages.h"

#include "tests/core/mesh_session.h"

#if !defined(_WIN32) && !defined(__SANITIZE_ADDRESS__)
#if !defined(__has_feature)
#define QX_LIMITS_ADDRESSES 1
#elif !__has_feature(address_sanitizer)
#define QX_LIMITS_ADDRESSES 1
#endif
#endif

#ifdef QX_LIMITS_ADDRESSES
#include <sys/resource.h>

namespace qx {
namespace {

/// Leaves this process so many bytes of addresses beside those that it has.
void LeaveAddresses(std::size_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = (std::size_t{1} << 47) - AddressesLeft() + bytes;
  setrlimit(RLIMIT_AS, &limit);
}

tagTNode NodeOf(Key key) {
  tagTNode node;
  node.key = key;
  return node;
}

template <class Edit>
void InStep(CQXDBSession& session, Edit&& edit) {
  CTransaction step(&session);
  step.Begin(u"edit");
  edit();
  step.Commit();
}

TEST(FewAddresses, HoldARecordOfEveryPool) {
  const auto fill = [] {
    LeaveAddresses(std::size_t{4} << 30);
    CQXDBSession session(AddStandardPools);
    for (DPoolBase* pool : session.Pools()) {
      const auto record = pool->NewRecord();
      KeyedSetBase::SetKey(*record, 1);
      if (!pool->InsertNU(record.get())) std::exit(1);
    }
    std::exit(0);
  };
  EXPECT_EXIT(fill(), testing::ExitedWithCode(0), "");
}

/// An undo needs no memory from the system to find keys again, whatever the index was in between.
TEST(FewAddresses, AreEnoughForAnUndo) {
  const auto undo = [] {
    CQXDBSession session(AddStandardPools);
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    auto& elements = *session.GetPool<DPoolElem>(code::kElem);
    InStep(session, [&] {
      tagTElem element;
      element.key = 1;
      element.type = 2;
      element.nodes = {nodes.InsertNU(NodeOf(5)), nodes.InsertNU(NodeOf(6))};
      elements.InsertNU(element);
    });
    const auto before = session.StateHash();
    InStep(session, [&] { nodes.RemoveAll(), elements.RemoveAll(); });
    InStep(session, [&] { nodes.InsertNU(NodeOf(2000000000)); });
    session.Undo();
    LeaveAddresses(0);
    std::exit(session.Undo() && session.StateHash() == before && session.Validate().empty() ? 0
                                                                                            : 1);
  };
  EXPECT_EXIT(undo(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace qx
#endif
