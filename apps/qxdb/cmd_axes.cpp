// Showing the local axes of elements, as numbers and as a picture.

#include <array>
#include <fmt/format.h>
#include <memory>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/axes_svg.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/selection.h"

namespace qx::app {
namespace {

struct AxesOptions {
  std::string model;
  std::string keys;
  std::string svg;
  bool material = false;
};

std::string Direction(const Vector3& v) {
  const auto part = [](double c) { return fmt::format("{:8.5f}", c == 0 ? 0.0 : c); };
  return part(v.x) + " " + part(v.y) + " " + part(v.z);
}

void WriteAxes(const Triad& axes, JsonText& json) {
  const std::pair<const char*, const Vector3*> rows[] = {
      {"x", &axes.x}, {"y", &axes.y}, {"z", &axes.z}};
  for (const auto& [name, v] : rows) {
    // Adding zero makes a zero of a negative one.
    json.Raw(name, fmt::format("[{}, {}, {}]", v->x + 0.0, v->y + 0.0, v->z + 0.0));
  }
}

void Run(const AxesOptions& options, Context& context) {
  CQXDocBase document(host::SetUpModel);
  if (Outcome opened = document.Open(options.model); !opened) {
    return context.Refuse(opened.Error());
  }
  const CQXDBSession& session = *document.GetDBSession();
  const auto& elements = Pool<tagTElem>(session);
  const auto ranges = KeyRanges::Parse(options.keys);
  if (!ranges) return context.Refuse(ranges.Error());
  const TArray<ITR> items = ranges->Select(elements);
  if (items.IsEmpty()) {
    return context.Refuse(NothingSelected(options.model, elements, options.keys));
  }
  Table table({">elem", ">type", "x", "y", "z"});
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("elements");
  std::vector<DrawnElement> drawn;
  for (const ITR item : items) {
    const tagTElem& element = elements.GetAtNU(item);
    double axes[3][3]{};
    const bool good = options.material ? elements.GetElemMatlVector(item, axes) != 0
                                       : elements.GetElemLocalVector(item, axes) != 0;
    const Triad triad = Triad::From(axes);
    drawn.push_back({item, good, triad});
    json.Begin().Integer("key", element.key).Integer("type", element.type);
    json.Bool("determined", good);
    if (good) WriteAxes(triad, json);
    json.End();
    const std::string none = "not determined";
    table.Row({fmt::format("{}", element.key), fmt::format("{}", element.type),
               good ? Direction(triad.x) : none, good ? Direction(triad.y) : "",
               good ? Direction(triad.z) : ""});
  }
  json.End();
  if (!options.svg.empty()) {
    if (Outcome free = CheckOutput(options.svg, {options.model}); !free) {
      return context.Refuse(free.Error());
    }
    constexpr std::size_t kMost = 2000;
    if (drawn.size() > kMost) {
      return context.Refuse({options.svg, "",
                             Grouped(items.GetSize()) + " elements are too many "
                                                        "for one picture",
                             "select at most " + Grouped(kMost)});
    }
    const std::string picture = AxesSvg(session, drawn);
    if (Outcome written = WriteWholeFile(options.svg, picture); !written) {
      return context.Refuse(written.Error());
    }
  }
  context.Print(table.Text(), json.End());
}

}  // namespace

void AddAxes(CLI::App& app, Context& context) {
  CLI::App* command = AddCommand(app, context, "axes", "Show the local axes of elements",
                                 "qxdb axes frame.qxm 1-40 --svg axes.svg");
  auto options = std::make_shared<AxesOptions>();
  command->add_option("model", options->model, "Model file")->required();
  command->add_option("keys", options->keys, "Keys: 1-5,9,100- or all")->required();
  command->add_flag("--material", options->material, "Material axes instead of element axes");
  command->add_option("--svg", options->svg, "Draw the elements and their axes into this file");
  command->callback([options, &context] { Run(*options, context); });
}

}  // namespace qx::app
