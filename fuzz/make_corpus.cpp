// Makes the seeds of the fuzz targets anew, by the library's own writers:
//
//   build/sanitize/bin/make_corpus fuzz
//
// writes corpus/TARGET/seed-* and dict/json.dict below that folder. What is called "hand-*" there
// is written by hand, what is called by a number was found by a target (fuzz/run.sh).

#include <algorithm>
#include <fmt/format.h>
#include <random>
#include <set>

#include "qx_db/core/schema_text.h"
#include "qx_db/model/plain_pools.h"
#include "qx_db/select/selection.h"

#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "fuzz/h5_text.h"
#include "fuzz/model_parts.h"
#include "host/session.h"
#include "host/texts.h"
#include "tests/exchange/sample_mesh.h"

namespace qx::fuzz {
namespace {

namespace fs = std::filesystem;
constexpr std::size_t kLongest = 16 << 10;

std::string root;  // the folder fuzz

/// Adds a seed to a target's corpus, unless it has the same already.
void Put(const std::string& target, const std::string& name, const std::string& bytes) {
  static std::set<std::pair<std::string, std::string>> all;
  if (bytes.size() > kLongest || !all.emplace(target, bytes).second) return;
  const std::string folder = root + "/corpus/" + target;
  fs::create_directories(folder);
  Need(static_cast<bool>(WriteWholeFile(folder + "/seed-" + name, bytes)));
}

// ---- meshes and decks ---------------------------------------------------------------------------

/// An HDF5 file of ours as the targets take it.
std::string TextOf(const std::string& path) {
  const auto file = exchange::H5Reader::Open(path);
  Need(static_cast<bool>(file));
  std::string text;
  Describe(**file, "", {"label", "type", "order", "MAJ", "MIN", "REL", "DIM", "ESP",
                        "REP",   "TYP",  "UNI",   "DES", "NDT", "NOR", "NUM", "NBR",
                        "GEO",   "NOM",  "UNT",   "NCO", "MAI", "PFL", "NGA", "PDT"},
           text);
  Need((*file)->Ok());
  return text;
}

/// What the session is in a format; one of them with each of the format's options in turn.
void ExportTo(CQXDBSession& session, const exchange::Format& format, const std::string& of) {
  std::vector<std::pair<std::string, exchange::OptionValues>> choices{{"", {}}};
  for (const exchange::FormatOption& option : format.write_options) {
    if (of != "small") break;
    std::string values = std::string(option.values) + ", ";
    for (std::size_t end; (end = values.find(", ")) != values.npos; values.erase(0, end + 2)) {
      const std::string value = values.substr(0, end);
      choices.push_back({"-" + value, {{std::string(option.name), value}}});
    }
  }
  for (const auto& [name, values] : choices) {
    exchange::ExportOptions options;
    options.format = &format;
    options.write.values = values;
    exchange::LossReport losses;
    const std::string path = Folder() + "/written";
    const bool is_surface = format.capabilities & exchange::capability::kSurface;
    const bool is_written(exchange::ExportFile(session, path, options, losses));
    if (!is_written && is_surface) continue;  // lines and points have none
    Need(is_written);
    const std::string target(format.name == "vtu" ? "vtk" : is_surface ? "surface" : format.name);
    if (target == "cgns" || target == "med") {
      Put(target, of + name, TextOf(path));
      continue;
    }
    const std::string which = is_surface ? std::string(format.name) + "-" : "";
    Put(target, which + of + name, *ReadWholeFile(path));
  }
}

/// A deck in every format that is written.
void ExportAll(const exchange::Deck& deck, const std::string& name) {
  CQXDBSession session(host::SetUpModel);
  exchange::LossReport losses;
  Need(static_cast<bool>(exchange::AddDeck(session, deck, name, losses)));
  for (const exchange::Format& format : exchange::Formats()) {
    if (format.write) ExportTo(session, format, name);
  }
}

void MakeDecks() {
  const auto small = sample::Make({1, 3, 4, 15});
  for (const sample::Form& form : sample::kForms) {
    std::string name = form.version + std::string(form.binary ? "-binary" : "") +
                       (form.swapped ? "-swapped" : "") + (form.size_bytes == 4 ? "-4" : "");
    Put("msh", name, sample::Write(small, form));
  }
  for (const int kind : {5, 6, 7, 8, 9, 11, 16, 17, 18, 19}) {
    ExportAll(*exchange::ParseMsh(sample::Write(sample::Make({kind}), {"4.1"}), "sample"),
              "kind" + std::to_string(kind));
  }
  ExportAll(*exchange::ParseMsh(sample::Write(small, {"4.1"}), "sample"), "small");
  for (const char* target : {"abaqus", "nastran", "surface", "unv", "vtk"}) {
    for (const fs::directory_entry& entry : fs::directory_iterator(root + "/corpus/" + target)) {
      const std::string name = entry.path().stem();
      if (!name.starts_with("hand-")) continue;
      std::vector<Failure> faults;
      const auto* format = *exchange::FormatToRead(entry.path());
      const auto deck = format->read(entry.path(), {}, faults);
      if (!deck) fmt::print("{}\n", deck.Error().Line());
      if (deck) ExportAll(*deck, target + name.substr(4));
    }
  }
  const std::string vtu = *ReadWholeFile(root + "/corpus/vtk/seed-small-ascii");
  for (const char* points : {"", " GhostLevel=\"1\""}) {
    Put("pvtu", fmt::format("two{}", std::strlen(points)),
        fmt::format(
            "<?xml version=\"1.0\"?>\n<VTKFile type=\"PUnstructuredGrid\" version=\"1.0\">\n"
            "<PUnstructuredGrid{}>\n<PPoints>\n<PDataArray type=\"Float64\" "
            "NumberOfComponents=\"3\"/>\n</PPoints>\n<Piece Source=\"p.vtu\"/>\n<Piece "
            "Source=\"./p.vtu\"/>\n</PUnstructuredGrid>\n</VTKFile>\n",
            points) +
            '\0' + vtu);
  }
}

// ---- records ------------------------------------------------------------------------------------

/// Every record type in a pool without rules, with two records each that refer to one another.
class Records {
 public:
  Records() : session(AddPools) {
    std::map<std::uint16_t, std::vector<ITR>> items;
    for (DPoolBase* pool : session.Pools()) {
      TStructBase* record = pool->GetDataPtrForUndoRedo();
      for (const Key key : {1, 7}) {
        record->Init();
        StoreAt(reinterpret_cast<char*>(record) + 8, key);
        items[pool->GetTypeCode()].push_back(pool->InsertNU(record));
      }
    }
    for (DPoolBase* pool : session.Pools()) {
      for (const ITR item : items[pool->GetTypeCode()]) {
        Fill(pool->GetSchema(), *KeyedSetBase::RecordAt(item), items);
      }
    }
  }
  CQXDBSession session;

 private:
  static void AddPools(CQXDBSession& session) {
#define QX_ADD_POOL(T) session.AddPool(std::make_unique<DPoolPlain<T>>(&session));
    QX_FOR_EACH_RECORD(QX_ADD_POOL)
    QX_FOR_EACH_DECK_RECORD(QX_ADD_POOL)
#undef QX_ADD_POOL
  }
  template <class Items>
  void Fill(const Schema& schema, TStructBase& record, Items& items) {
    const auto put = [&](const Row& row, char* at, std::int32_t size) {
      if (row.IsReference()) {
        const std::vector<ITR>& targets = items[row.target];
        StoreAt(at, targets.empty() ? ITR{0} : targets[random_() % targets.size()]);
        return;
      }
      for (std::int32_t i = 0; i + 4 <= size; i += 4) {
        StoreAt(at + i, static_cast<std::int32_t>(random_() % 4));
      }
      if (row.number == Row::Number::kDouble) {
        for (std::int32_t i = 0; i + 8 <= size; i += 8) StoreAt(at + i, random_() % 64 / 8.0);
      } else if (row.number == Row::Number::kText) {
        std::memset(at, 0, static_cast<std::size_t>(size));
        std::memcpy(at, u"name", std::min<std::size_t>(8, static_cast<std::size_t>(size) - 2));
      }
    };
    for (const Row& row : schema.Rows().subspan(1)) {
      char* member = reinterpret_cast<char*>(&record) + row.offset;
      if (!row.IsArray()) {
        put(row, member, row.size);
        continue;
      }
      auto& array = *reinterpret_cast<ArrayStorage*>(member);
      array.Resize(2, static_cast<std::size_t>(row.element_size));
      for (std::int32_t i = 0; i < 2; ++i) {
        char* element = static_cast<char*>(array.data) + i * row.element_size;
        if (!row.elements) put(row, element, row.element_size);
        for (const Row& part : row.elements ? row.elements->Rows() : std::span<const Row>()) {
          put(part, element + part.offset, part.size);
        }
      }
    }
  }
  std::mt19937 random_{7};
};

/// A word of a dictionary for libFuzzer.
std::string DictionaryLine(const std::string& word) { return "\"\\\"" + word + "\\\"\"\n"; }

void MakeRecords() {
  Records records;
  CQXDBSession standard(AddStandardPools);
  std::set<std::string> words;
  std::size_t index = 0;
  for (DPoolBase* pool : standard.Pools()) {
    DPoolBase* filled = records.session.GetDataPool(pool->GetTypeCode());
    const std::string name = pool->GetSchema().Name();
    dbgateway::DataBase document;
    DPoolBase* const one[] = {filled};
    Need(static_cast<bool>(WriteDocument(records.session, document, one)));
    const std::string text = document.ToText();
    Put("json", name, text);
    Put("gateway", name, text);
    for (std::size_t at = 0; (at = text.find('"', at)) != text.npos;) {
      const std::size_t end = text.find('"', at + 1);
      const std::string word = text.substr(at + 1, end - at - 1);
      const bool is_name = std::all_of(word.begin(), word.end(),
                                       [](char c) { return c == '_' || (c >= 'A' && c <= 'Z'); });
      if (is_name && !word.empty() && text[end + 1] == ':') words.insert(word);
      at = end + 1;
    }
    // Each target takes the bytes of a record or of a pool in a way of its own.
    const TStructBase& record = *KeyedSetBase::RecordAt(filled->GetHeadPosition());
    const auto copy = filled->CopyRecord(filled->GetHeadPosition());
    std::string image(record.GetSizePlusVfptr() - 8, '\0');
    copy->Data2Stream(image.data(), static_cast<int>(image.size()));
    ImageIteratorsToKeys(filled->GetSchema(), image.data());
    Put("image", name, static_cast<char>(index) + image);
    if (index++ % 4 == 0) {
      CQXBulkHandler file(Folder() + "/records");
      Need(static_cast<bool>(file.Write(*filled, UnitSystem())));
      Put("record_file", name, *ReadWholeFile(file.Path()));
    }
  }
  std::string dictionary = "# Tables and fields; made by make_corpus.\n";
  for (const std::string& word : words) dictionary += DictionaryLine(word);
  Need(static_cast<bool>(WriteWholeFile(root + "/dict/json.dict", dictionary)));
  fs::copy_file(root + "/dict/json.dict", root + "/dict/gateway.dict",
                fs::copy_options::overwrite_existing);
  dbgateway::DataBase document;
  const std::uint16_t together[] = {code::kNode, code::kElem, code::kMset};
  std::vector<DPoolBase*> pools;
  for (const std::uint16_t code : together) pools.push_back(records.session.GetDataPool(code));
  Need(static_cast<bool>(WriteDocument(records.session, document, pools)));
  Put("gateway", "mesh", document.ToText());
}

// ---- materials ----------------------------------------------------------------------------------

std::string Written(const MaterialTable& table, MaterialForm form, const char* page) {
  const std::string path = Folder() + "/materials";
  Need(
      static_cast<bool>(WriteMaterials(table, path, form, *CodePage::Named(page), LibraryUnits())));
  return *ReadWholeFile(path);
}

void MakeMaterials() {
  MaterialTable solids;
  for (const StructuralColumn& column : StructuralColumns()) {
    solids.columns.push_back({std::string(column.property), column.kind, LibraryUnits()});
  }
  MaterialTable fluids;
  fluids.title = u"FLUIDS";
  for (const FluidProperty& property : FluidProperties()) {
    fluids.columns.push_back({std::string(property.property), property.kind, property.units});
  }
  for (MaterialTable* table : {&solids, &fluids}) {
    for (int i = 0; i < 3; ++i) {
      const CString name = u"M" + Utf16(std::to_string(i));
      Material material{table == &solids ? CString(i < 2 ? u"Steel" : u"Wood") : CString(), name,
                        std::vector<double>(table->columns.size(), 0)};
      for (std::size_t k = 0; k < 10; ++k) material.values[k] = static_cast<double>(k) + i / 4.0;
      table->materials.push_back(std::move(material));
    }
  }
  constexpr const char* kPages[] = {"UTF-8", "1252", "932", "949"};
  for (char page = 0; page < 4; ++page) {
    Put("material_text", kPages[+page], page + Written(solids, MaterialForm::kText, kPages[+page]));
  }
  for (char how = 1; how < 4; how = static_cast<char>(how + 2)) {  // bit 0: the newer form
    const char* page = how & 2 ? "936" : "1252";
    std::string text = Written(solids, MaterialForm::kGdbp, page);
    const std::size_t date = text.find("Date : ") + 7;
    text.replace(date, text.find('\n', date) - date, "2000/01/01");
    Put("material_gdb", page, how + text);
  }
  Put("material_fluid", "three", Written(fluids, MaterialForm::kFluid, "UTF-8"));
  // The binary forms without magic and titles, which the target adds.
  std::string binary = Written(solids, MaterialForm::kBinary, "UTF-8");
  const std::size_t magic = 2 * kStructuralMagic.size();
  Put("material_binary", "solids",
      binary.substr(magic, 8) + binary.substr(magic + 8 + 21 * kBlockBytes));
  binary = Written(fluids, MaterialForm::kParticle, "UTF-8");
  const std::size_t titles = 1 + kFluidPropertyCount;
  Put("material_binary", "particles",
      binary.substr(2 * kParticleMagic.size(), 12) +
          binary.substr(2 * kParticleMagic.size() + 12 + titles * kBlockBytes));
}

// ---- model files --------------------------------------------------------------------------------

void MakeModels() {
  std::mt19937 random(3);
  for (int i = 0; i < 48; ++i) {  // what the target does to a file that is there
    std::string script(16 + random() % 48, '\0');
    for (char& byte : script) byte = static_cast<char>(random());
    Put("model", fmt::format("{:02}", i), script);
  }
  const FileParts parts = TakeApart(BaseFile());
  std::string frames;
  int count = 0;
  const auto put = [&](const FrameRow& frame) {
    const std::size_t size = frame.payload.size();
    frames +=
        {static_cast<char>(frame.kind), static_cast<char>(size), static_cast<char>(size >> 8)};
    frames += frame.payload;
    if (count++ % 4 == 0) Put("steps", fmt::format("{:02}", count), frames);
  };
  // The steps before the state that the pages hold; those since; all of them.
  std::string past;
  for (const FrameRow& frame : parts.frames) {
    if (frame.kind == FrameKind::kPast) put(frame);
  }
  past = std::exchange(frames, "");
  for (const FrameRow& frame : parts.frames) {
    if (frame.kind != FrameKind::kPast) put(frame);
  }
  Put("steps", "all", past + frames);
}

// ---- selections ---------------------------------------------------------------------------------

/// The examples of the conditions, in the order of their table.
void MakeSelections() {
  int number = 0;
  for (const ConditionInfo& each : Conditions()) {
    Put("select", fmt::format("{:02}", ++number), std::string(each.example));
  }
}

}  // namespace
}  // namespace qx::fuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    fmt::print(stderr, "make_corpus FOLDER: the folder fuzz of the sources\n");
    return 2;
  }
  qx::fuzz::root = argv[1];
  if (!qx::host::RegisterTexts("")) return 1;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(qx::fuzz::root + "/corpus")) {
    if (entry.path().filename().string().starts_with("seed-")) std::filesystem::remove(entry);
  }
  qx::fuzz::MakeDecks();
  qx::fuzz::MakeRecords();
  qx::fuzz::MakeMaterials();
  qx::fuzz::MakeModels();
  qx::fuzz::MakeSelections();
  return 0;
}
