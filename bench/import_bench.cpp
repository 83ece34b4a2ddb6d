#include <filesystem>

#include "qx_db/bulk/model_import.h"

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {

/// A model of a million nodes and a million elements into one of the same size, with new keys,
/// beside loading it.
void Import() {
  const auto folder = std::filesystem::temp_directory_path() / "qx_bench_import";
  std::filesystem::create_directories(folder);
  const std::string path = (folder / "model.qxm").string();
  CQXDBSession into(AddStandardPools);
  auto& nodes = *into.GetPool<DPoolNode>(code::kNode);
  auto& elements = *into.GetPool<DPoolElem>(code::kElem);
  for (int i = 1; i <= kMillion; ++i) nodes.InsertNU(MakeNode(i));
  for (int i = 1; i <= kMillion; ++i) {
    tagTElem element;
    element.key = i;
    element.type = 21;
    element.nodes = {nodes.Find(i), nodes.Find(i % kMillion + 1),
                     nodes.Find((i + 7) % kMillion + 1)};
    elements.InsertNU(element);
  }
  if (!SaveModel(into, path)) return;
  Compare(
      "import a model into one of its size", "load it", 2.0,
      [&] {
        const double seconds = Time([&] {
          const auto from = ExternalModel::Open(path, AddStandardPools);
          Keep(ImportRecords(into, **from, {})->Records());
        });
        into.Undo();
        into.ForgetHistory();
        return seconds;
      },
      [&] {
        CQXDBSession opened(AddStandardPools);
        return Time([&] { Keep(static_cast<bool>(LoadModel(opened, path))); });
      },
      Memory::kFresh, 3);
  std::filesystem::remove_all(folder);
}

}  // namespace qx::bench
