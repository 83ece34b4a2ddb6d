// Every allocation fails in turn: a step is made whole or not at all, in memory and in the file.

#include <functional>
#include <gtest/gtest.h>
#include <new>

#include "qx_db/gateway/document.h"
#include "qx_db/gateway/document_exchange.h"
#include "qx_db/platform/raw_file.h"

#include "tests/core/durable_model.h"
#include "tests/core/failing_memory.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

constexpr const char* kGatewayText = R"({"NODE": {"901": {"POS": [1, 2, 3]}, "902": {}}})";

/// A disk that has everything at once, so that a thousand models are saved in seconds.
class FastDisk final : public FileSystem {
 public:
  FastDisk() { SetFiles(this); }
  ~FastDisk() override { SetFiles(nullptr); }
  int Open(const std::string& path, bool writing, std::unique_ptr<RawFile>& file) override {
    std::unique_ptr<RawFile> real;
    if (const int error = FileSystem::Open(path, writing, real)) return error;
    file = std::make_unique<File>(std::move(real));
    return 0;
  }
  int Create(const std::string& path, bool guarded, std::unique_ptr<RawFile>& file) override {
    std::unique_ptr<RawFile> real;
    if (const int error = FileSystem::Create(path, guarded, real)) return error;
    file = std::make_unique<File>(std::move(real));
    return 0;
  }
  int SyncFolderOf(const std::string&) override { return 0; }

 private:
  struct File final : RawFile {
    explicit File(std::unique_ptr<RawFile> file) : real(std::move(file)) {}
    int Read(char* to, std::size_t size, std::uint64_t at) override {
      return real->Read(to, size, at);
    }
    int Write(const char* from, std::size_t size, std::uint64_t at) override {
      return real->Write(from, size, at);
    }
    int Resize(std::uint64_t size) override { return real->Resize(size); }
    int Sync() override { return 0; }
    int Size(std::uint64_t& size) override { return real->Size(size); }
    int Id(FileId& id) override { return real->Id(id); }
    int Claim() override { return real->Claim(); }
    std::unique_ptr<RawFile> real;
  };
};

struct Case {
  const char* name;
  std::function<void(CQXDocBase&)> work;
};

TEST(FailingMemoryTest, LeavesEveryStepWholeOrUnmade) {
  const ScratchFolder folder;
  const FastDisk disk;
  const std::string path = folder.Path("memory.qxm");
  const std::string other = folder.Path("other.qxm");
  {
    CQXDocBase document(SetUpSmallModel);
    RandomEdits edits(8);
    for (int i = 0; i < 15; ++i) edits.Step(*document.GetDBSession());
    ASSERT_EQ(document.SaveAs(other).Line(), "");
    ASSERT_EQ(document.KeepSteps().Line(), "");
    for (int i = 0; i < 5; ++i) edits.Step(*document.GetDBSession());
  }
  const Case cases[] = {
      {"edit",
       [](CQXDocBase& document) {
         RandomEdits edits(99);
         for (int i = 0; i < 6; ++i) {
           CTransaction transaction(document.GetDBSession());
           transaction.Begin(u"Outer");
           edits.Step(*document.GetDBSession());
           edits.Step(*document.GetDBSession());
           edits.Step(*document.GetDBSession());
           if (i == 5) transaction.Commit();
         }
       }},
      {"edit that goes on after a failure",
       [](CQXDocBase& document) {
         CQXDBSession& session = *document.GetDBSession();
         auto& sets = *session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);
         CTransaction transaction(&session);
         transaction.Begin(u"Larger");
         tagTActiveElemSet larger = sets.GetAtNU(sets.GetHeadPosition());
         try {
           for (int i = 0; i < 6; ++i) larger.elements.Append(larger.elements);
           larger.key = 900;
           sets.SetAtNU(sets.GetHeadPosition(), larger);
         } catch (const std::bad_alloc&) {  // the record is as it was
         }
         transaction.Commit();
         if (session.Undo()) session.Redo();
       }},
      {"step written in pieces",
       [](CQXDocBase& document) {
         CTransaction transaction(document.GetDBSession());
         transaction.Begin(u"Many");
         tagTNode node;
         for (node.key = 1000; node.key < 6600; ++node.key) {
           document.GetDBSession()->GetPool<DPoolNode>(code::kNode)->InsertNU(node);
         }
         transaction.Commit();
       }},
      {"undo", [](CQXDocBase& document) { document.GetDBSession()->Undo(); }},
      {"redo", [](CQXDocBase& document) { document.GetDBSession()->Redo(); }},
      {"save", [](CQXDocBase& document) { (void)!document.Save(); }},
      {"load", [&](CQXDocBase& document) { (void)!document.Open(other); }},
      {"gateway",
       [](CQXDocBase& document) {
         dbgateway::DataBase text;
         if (text.Parse(kGatewayText)) (void)!ReadDocument(*document.GetDBSession(), text);
       }},
  };
  for (const Case& c : cases) {
    std::uint64_t whole = 0;  // the state when nothing fails
    {
      CQXDocBase document(SetUpSmallModel);
      RandomEdits edits(4);
      for (int i = 0; i < 25; ++i) edits.Step(*document.GetDBSession());
      document.GetDBSession()->Undo();
      ASSERT_EQ(document.SaveAs(path).Line(), "");
      c.work(document);
      whole = document.GetDBSession()->StateHash();
    }
    bool failed = true;
    int failures = 0;
    for (int allocation = 0; failed; ++allocation) {
      SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(allocation));
      CQXDocBase document(SetUpSmallModel);
      CQXDBSession& session = *document.GetDBSession();
      ASSERT_EQ(document.SaveAs(path).Line(), "");
      ASSERT_EQ(document.KeepSteps().Line(), "");
      RandomEdits edits(4);
      for (int i = 0; i < 25; ++i) edits.Step(session);
      session.Undo();
      const std::uint64_t before = session.StateHash();
      bool threw = false;
      {
        const FailingMemory memory(allocation);
        try {
          c.work(document);
        } catch (const std::bad_alloc&) {
          threw = true;
        }
        failed = memory.HasFailed();
      }
      failures += failed;
      ASSERT_EQ(session.Validate(), "");
      const std::uint64_t after = session.StateHash();
      ASSERT_TRUE(after == before || after == whole) << (threw ? "threw" : "returned");
      if (document.Keeper()) {
        CQXDocBase reopened(SetUpSmallModel);
        // Undo and redo are told to the file first; one that then failed is written with the next.
        edits.Step(session);
        ASSERT_EQ(reopened.Open(path).Line(), "");
        ASSERT_EQ(reopened.GetDBSession()->StateHash(), session.StateHash());
      }
    }
    EXPECT_GT(failures, 0) << c.name;
  }
}

}  // namespace
}  // namespace qx
