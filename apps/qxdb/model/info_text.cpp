#include "apps/qxdb/model/info_text.h"

#include <fmt/format.h>

#include "qx_db/model/deck_pools.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/describe.h"

#include "apps/qxdb/model/history_bounds.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

constexpr std::size_t kShownNames = 4;

/// Names one after the other, the first few where there are many.
class NameList {
 public:
  void Add(const std::string& name) {
    if (name.empty() || name == "\"\"") return;
    if (count_++ < kShownNames) text_ += (text_.empty() ? "" : ", ") + name;
  }
  std::string Text() const {
    if (count_ <= kShownNames) return text_;
    return text_ + fmt::format(" and {} more", Grouped(std::int64_t(count_ - kShownNames)));
  }

 private:
  std::size_t count_ = 0;
  std::string text_;
};

const Row* NameRow(const Schema& schema) {
  for (const Row& row : schema.Rows()) {
    if (Utf8(row.name) == "_NAME" && MemberKindText(row).starts_with("text")) return &row;
  }
  return nullptr;
}

std::string Line(const std::string& label, std::int64_t count, const std::string& names) {
  std::string line = fmt::format("{:<9} {:>11}  {}", label, Grouped(count), OneLine(names));
  line.resize(line.find_last_not_of(' ') + 1);
  return line + '\n';
}

/// Whether info tells of the pool in another place.
bool IsToldElsewhere(std::uint16_t type) {
  return type == code::kNode || type == code::kElem || type == code::kMset ||
         type == code::kActiveElemSet || type == code::kSetTag;
}

std::int64_t RecordsOf(const InfoSource& source, const DPoolBase& pool) {
  if (!source.glance) return pool.GetSize();
  for (const ModelFileReport::Pool& in_file : source.glance->pools) {
    if (in_file.type == pool.GetTypeCode()) return in_file.records;
  }
  return 0;
}

void InfoPools(const InfoSource& source, std::string& text, JsonText& json) {
  json.BeginArray("pools");
  for (const DPoolBase* pool : source.session.Pools()) {
    const std::int64_t records = RecordsOf(source, *pool);
    if (IsToldElsewhere(pool->GetTypeCode()) || records == 0) continue;
    json.Begin().Text("pool", PoolLabel(*pool)).Integer("records", records);
    NameList names;
    if (const Row* row = NameRow(pool->GetSchema())) {
      json.BeginArray("names");
      for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
        const std::string quoted = MemberValueText(*row, *KeyedSetBase::RecordAt(pos));
        names.Add(quoted);
        json.Text({}, quoted.size() < 2 ? quoted : quoted.substr(1, quoted.size() - 2));
      }
      json.End();
    }
    json.End();
    text += Line(PoolLabel(*pool), records, names.Text());
  }
  json.End();
}

/// What sets were in the file that they came from.
void InfoTags(const InfoSource& source, std::string& text, JsonText& json) {
  const DPoolBase& tags = *source.session.GetDataPool(code::kSetTag);
  const DPoolBase& sets = *source.session.GetDataPool(code::kMset);
  NameList names;
  json.BeginArray("tags");
  for (ITR pos = tags.GetHeadPosition(); pos; tags.Next(pos)) {
    const auto& tag = static_cast<const tagTSetTag&>(*KeyedSetBase::RecordAt(pos));
    const ITR set = source.glance ? sets.Find(static_cast<Key>(+tag.set)) : +tag.set;
    const std::string name =
        set ? Utf8(static_cast<const tagTMset*>(KeyedSetBase::RecordAt(set))->name.View()) : "";
    const std::string format = Utf8(tag.format.View());
    names.Add(fmt::format("{} {} of \"{}\"", format, +tag.tag, name));
    json.Begin().Text("set", name).Text("format", format).Integer("tag", tag.tag);
    json.Integer("dimension", tag.dimension).End();
  }
  json.End();
  if (tags.GetSize() > 0) text += Line("settag", tags.GetSize(), names.Text());
}

}  // namespace

bool IsNeededForInfo(const DPoolBase& pool) {
  const std::uint16_t type = pool.GetTypeCode();
  if (type == code::kNode || type == code::kElem) return false;
  return IsToldElsewhere(type) || NameRow(pool.GetSchema()) != nullptr;
}

void InfoRest(const InfoSource& source, std::string& text, JsonText& json) {
  InfoTags(source, text, json);
  InfoPools(source, text, json);
  json.Begin("history")
      .Integer("undoable", source.undoable)
      .Integer("redoable", source.redoable)
      .Integer("most_steps", static_cast<std::int64_t>(source.session.KeptHistory().steps))
      .Integer("most_bytes", static_cast<std::int64_t>(source.session.KeptHistory().bytes))
      .End();
  text += fmt::format("history   {:>11}  step{} to undo, {} to redo; keeps {}\n",
                      Grouped(source.undoable), source.undoable == 1 ? "" : "s",
                      Grouped(source.redoable), BoundsText(source.session.KeptHistory()));
}

}  // namespace qx::app
