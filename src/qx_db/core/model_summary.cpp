#include "qx_db/core/model_summary.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <sstream>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/model_database.h"
#include "qx_db/core/schema_text.h"
#include "qx_db/core/state_hash.h"
#include "qx_db/core/step_log.h"
#include "qx_db/record/mesh_records.h"

namespace qx {
namespace {

constexpr const char* kState = "summary.state";
constexpr const char* kElements = "summary.elements";
constexpr const char* kBox = "summary.box";

/// The numbers of a text with blanks between them; none where something else stands there.
template <class Number>
std::optional<std::vector<Number>> Numbers(const std::string& text) {
  std::vector<Number> numbers;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Number number{};
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    numbers.push_back(number);
  }
  return numbers;
}

bool Equal(const tagTVector3<double>& a, const tagTVector3<double>& b) {
  return +a.x == +b.x && +a.y == +b.y && +a.z == +b.z;
}

bool IsFiniteVector(const tagTVector3<double>& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Counts what a summary tells of the records.
class Tally {
 public:
  void Add(std::uint16_t type, const TStructBase& record) {
    if (type == code::kNode) AddNode(static_cast<const tagTNode&>(record));
    if (type == code::kElem) AddElement(static_cast<const tagTElem&>(record).type);
  }
  bool IsFinite() const { return finite_; }
  const ModelSummary& Counted() const { return counted_; }

 private:
  void AddNode(const tagTNode& node) {
    const tagTVector3<double> at = node.position;
    finite_ = finite_ && IsFiniteVector(at);
    if (!counted_.box) counted_.box = ModelSummary::Box{at, at};
    auto& [low, high] = *counted_.box;
    low = {std::min<double>(low.x, at.x), std::min<double>(low.y, at.y),
           std::min<double>(low.z, at.z)};
    high = {std::max<double>(high.x, at.x), std::max<double>(high.y, at.y),
            std::max<double>(high.z, at.z)};
  }
  void AddElement(std::int32_t type) {
    if (!last_ || last_->first != type) last_ = &*counted_.elements.try_emplace(type, 0).first;
    ++last_->second;
  }

  ModelSummary counted_;
  std::pair<const std::int32_t, std::int64_t>* last_ = nullptr;
  bool finite_ = true;
};

/// A pool of records that Tally knows, or of others.
bool HoldsMeshRecords(const DPoolBase& pool) {
  const std::uint16_t type = pool.GetTypeCode();
  const auto record = type == code::kNode || type == code::kElem ? pool.NewRecord() : nullptr;
  return dynamic_cast<const tagTNode*>(record.get()) || dynamic_cast<const tagTElem*>(record.get());
}

}  // namespace

// ---- as rows ------------------------------------------------------------------------------------

ModelSummary::TextRows ModelSummary::Rows() const {
  std::string types;
  for (const auto& [type, count] : elements) {
    types += fmt::format("{}{} {}", types.empty() ? "" : " ", type, count);
  }
  TextRows rows{{kState, fmt::format("{:016x}", state)}, {kElements, types}};
  if (box) {
    const auto& [low, high] = *box;
    rows.emplace_back(
        kBox, fmt::format("{} {} {} {} {} {}", +low.x, +low.y, +low.z, +high.x, +high.y, +high.z));
  }
  return rows;
}

std::optional<ModelSummary> ModelSummary::FromRows(const TextRows& rows) {
  const auto find = [&](std::string_view name) -> const std::string* {
    const auto at =
        std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.first == name; });
    return at == rows.end() ? nullptr : &at->second;
  };
  const std::string* state = find(kState);
  const std::string* elements = find(kElements);
  if (!state || !elements) return std::nullopt;
  ModelSummary summary;
  const char* const end = state->data() + state->size();
  const auto [read, error] = std::from_chars(state->data(), end, summary.state, 16);
  if (error != std::errc() || read != end) return std::nullopt;
  const auto types = Numbers<std::int64_t>(*elements);
  if (!types || types->size() % 2 != 0) return std::nullopt;
  for (std::size_t i = 0; i < types->size(); i += 2) {
    const std::int64_t type = (*types)[i];
    const std::int64_t count = (*types)[i + 1];
    if (type != static_cast<std::int32_t>(type) || count < 1) return std::nullopt;
    if (!summary.elements.emplace(static_cast<std::int32_t>(type), count).second) {
      return std::nullopt;
    }
  }
  if (const std::string* box = find(kBox)) {
    const auto at = Numbers<double>(*box);
    if (!at || at->size() != 6) return std::nullopt;
    const auto& n = *at;
    summary.box = Box{{n[0], n[1], n[2]}, {n[3], n[4], n[5]}};
    if (!IsFiniteVector(summary.box->low) || !IsFiniteVector(summary.box->high)) {
      return std::nullopt;
    }
  }
  return summary;
}

// ---- writing ------------------------------------------------------------------------------------

struct SummaryWriter::Impl {
  explicit Impl(const CQXUnitCtrl& units) : hasher(units) {}
  StateHasher hasher;
  Tally tally;
  int type = -1;         // of the pool being written
  bool counted = false;  // its records are tallied
  bool in_order = true;
};

SummaryWriter::SummaryWriter(const CQXUnitCtrl& units) : impl_(std::make_unique<Impl>(units)) {}
SummaryWriter::~SummaryWriter() = default;

void SummaryWriter::BeginPool(const DPoolBase& pool) {
  impl_->in_order = impl_->in_order && pool.GetTypeCode() > impl_->type;
  impl_->type = pool.GetTypeCode();
  impl_->counted = HoldsMeshRecords(pool);
  impl_->hasher.BeginPool(pool.GetTypeCode(), pool.GetSize());
}

void SummaryWriter::Add(const TStructBase& record, std::span<const char> image) {
  impl_->hasher.AddImage(image);
  if (impl_->counted) impl_->tally.Add(static_cast<std::uint16_t>(impl_->type), record);
}

std::optional<ModelSummary> SummaryWriter::Summary() const {
  if (!impl_->in_order || !impl_->tally.IsFinite()) return std::nullopt;
  ModelSummary summary = impl_->tally.Counted();
  summary.state = impl_->hasher.Digest();
  return summary;
}

// ---- reading ------------------------------------------------------------------------------------

namespace {

std::optional<ModelSummary> SummaryIn(const ModelDatabase& database) {
  Statement meta(database.db.get(),
                 "SELECT name, value FROM meta WHERE name IN"
                 " ('summary.state', 'summary.elements', 'summary.box')");
  ModelSummary::TextRows rows;
  int step = 0;
  while ((step = meta.Step()) == SQLITE_ROW) rows.emplace_back(meta.Text(0), meta.Text(1));
  return step == SQLITE_DONE ? ModelSummary::FromRows(rows) : std::nullopt;
}

/// Whether reading the pages gives the state that was written: every pool with records has the form
/// here that it has in the file.
bool HasPresentForms(const ModelDatabase& database, const CQXDBSession& session) {
  Statement pools(database.db.get(), "SELECT code, schema FROM pool");
  int step = 0;
  while ((step = pools.Step()) == SQLITE_ROW) {
    const std::int64_t type = pools.Int(0);
    const DPoolBase* pool = type >= 0 && type <= 0xFFFF
                                ? session.GetDataPool(static_cast<std::uint16_t>(type))
                                : nullptr;
    if (!pool || !pool->NeedSaveNLoad() || SchemaToText(pool->GetSchema()) != pools.Text(1)) {
      return false;
    }
  }
  return step == SQLITE_DONE;
}

/// Whether the pages hold the last state, that of a file that was closed: nothing behind them but
/// how it came about.
bool PagesAreLast(RawFile& file, const std::string& path, const ModelDatabase& database,
                  ModelFileReport& report) {
  const std::uint64_t id = database.StepsId();
  if (id == 0) return false;
  const auto log = StepLog::Read(file, path, database.header.PageBytes(), id);
  if (!log || !log->closed || log->unfinished_step) return false;
  report.stamp = {id, log->frames.size()};
  return std::all_of(log->frames.begin(), log->frames.end(),
                     [](const StepFrame& frame) { return frame.kind == FrameKind::kPast; });
}

/// Whether a summary goes with the numbers of records that the directory tells.
bool Agrees(const ModelSummary& summary, const ModelFileReport& report) {
  std::int64_t nodes = 0;
  std::int64_t elements = 0;
  for (const ModelFileReport::Pool& pool : report.pools) {
    if (pool.type == code::kNode) nodes = pool.records;
    if (pool.type == code::kElem) elements = pool.records;
  }
  for (const auto& [type, count] : summary.elements) {
    if (count > elements) return false;
    elements -= count;
  }
  return elements == 0 && summary.box.has_value() == (nodes > 0);
}

}  // namespace

std::optional<ModelGlance> GlanceAtModel(const std::string& path, CQXDBSession& session,
                                         std::span<const std::uint16_t> pools) {
  const auto file = OpenModelFile(path, false);
  if (!file) return std::nullopt;
  ModelGlance glance;
  {
    const auto database = ModelDatabase::Open(**file, path);
    if (!database) return std::nullopt;
    const auto summary = SummaryIn(*database);
    if (!summary || !HasPresentForms(*database, session)) return std::nullopt;
    glance.summary = *summary;
    if (!PagesAreLast(**file, path, *database, glance.report)) return std::nullopt;
  }
  const auto reader = ModelFileReader::Open(path, *file);
  if (!reader || !(*reader)->CheckAllPages() || !(*reader)->ReadUnits(session.Units())) {
    return std::nullopt;
  }
  session.SetKeptHistory((*reader)->ReadKeptHistory());
  for (const std::uint16_t type : pools) {
    DPoolBase* pool = session.GetDataPool(type);
    if (pool && !(*reader)->ReadPool(*pool)) return std::nullopt;
  }
  const ModelStamp stamp = glance.report.stamp;
  glance.report = (*reader)->Report();
  glance.report.stamp = stamp;
  if (!Agrees(glance.summary, glance.report)) return std::nullopt;
  return glance;
}

std::string FindSummaryFault(const std::string& path, const CQXDBSession& session) {
  CQXDBSession empty(session.Setup());
  const auto glance = GlanceAtModel(path, empty, {});
  if (!glance) return {};
  Tally tally;
  for (const std::uint16_t type : {code::kNode, code::kElem}) {
    const DPoolBase* pool = session.GetDataPool(type);
    if (!pool || !HoldsMeshRecords(*pool)) continue;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      tally.Add(type, *KeyedSetBase::RecordAt(pos));
    }
  }
  const ModelSummary& said = glance->summary;
  const ModelSummary& found = tally.Counted();
  const bool same_box = said.box && found.box ? Equal(said.box->low, found.box->low) &&
                                                    Equal(said.box->high, found.box->high)
                                              : said.box.has_value() == found.box.has_value();
  const std::string what = said.elements != found.elements     ? "its elements"
                           : !same_box                         ? "its box"
                           : said.state != session.StateHash() ? "its state"
                                                               : "";
  return what.empty() ? what : "the file's summary says another thing of " + what;
}

}  // namespace qx
