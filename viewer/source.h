#pragma once
// The document that a page shows: its present, its past, and what is asked of both.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "qx_db/core/document.h"
#include "qx_db/platform/outcome.h"

#include "viewer/edits.h"
#include "viewer/page_data.h"

namespace qx::viewer {

/// One model file opened to be looked at. Everything here is for one thread.
class Source {
 public:
  /// Asks for the present state.
  static constexpr std::int64_t kNow = -1;

  /// Opens a model: to read, or with the right to write. `refusal` may be empty.
  static Result<std::unique_ptr<Source>> Open(const std::string& path, bool editing,
                                              RefusalText refusal);

  /// A pack of the page's data by its name: "base", "volume", "findings", "glyphs", "changes" (what
  /// the step before that state changed), "steps" (the history and where the present stands in it),
  /// or "values/NAME". `step`: the number of steps done in the
  /// state that is meant. Looking at the past takes the model into memory once more.
  Result<std::string> Get(std::string_view name, std::int64_t step = kNow);
  /// The same of a record; see RecordText.
  Result<std::string> Record(std::string_view table, Key key, std::int64_t step = kNow);

  /// See ApplyEdit and PreviewEdit; both fail in a source that is not for editing.
  Outcome Edit(std::string_view request);
  Result<std::string> Preview(std::string_view request);

  /// Takes in what another process has changed in the file. False when nothing was, or when the
  /// file cannot be read at the moment, so that the page goes on with what it has.
  bool Follow();
  /// Grows whenever the present changes.
  std::uint64_t Revision() const { return revision_; }

  const CQXDBSession& Session() const { return *document_.GetDBSession(); }
  std::size_t StepsDone() const { return Session().History().Done().size(); }
  std::size_t StepCount() const { return StepsDone() + Session().History().Undone().size(); }
  bool IsEditing() const { return editing_; }
  const std::string& Path() const { return path_; }
  /// Without a server behind it, the page offers less.
  void SetServed(bool served) {
    served_ = served;
    base_.clear();
  }
  /// Gives the page the seeds of a part (SeedPack), by the name "seeds"; they stay as they are.
  void SetSeeds(std::string pack) {
    seeds_ = std::move(pack);
    base_.clear();
  }
  bool HasSeeds() const { return !seeds_.empty(); }
  /// The present as numbers.
  const PageData& Present();

 private:
  struct State {
    const CQXDBSession* session;
    const PageData* data;
  };
  Source(std::string path, bool editing, RefusalText refusal);
  Result<State> StateAt(std::int64_t step);
  void Changed();

  std::string path_;
  bool editing_;
  bool served_ = true;
  RefusalText refusal_;
  std::string seeds_;
  CQXDocBase document_;
  std::optional<PageData> data_;
  std::string base_;                  // of the present, once it was asked for
  std::unique_ptr<CQXDocBase> past_;  // stands at another step
  std::optional<PageData> past_data_;
  std::uint64_t revision_ = 1;
  ModelStamp stamp_;
  std::filesystem::file_time_type written_;
  std::uintmax_t size_ = 0;
};

}  // namespace qx::viewer
