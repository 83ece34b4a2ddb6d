// Showing the local axes of elements, as numbers and as a picture.

#include <array>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "host/axes_picture.h"

namespace qx::app {
namespace {

struct AxesOptions {
  std::string model;
  std::string keys;
  std::string svg;
  bool force = false;
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

Outcome Run(Model& model, const AxesOptions& options, const Context& context) {
  if (Outcome free = CheckOutput(options.svg, OutputKind::kSvg, options.force, {options.model});
      !free)
    return free;
  const CQXDBSession& session = model.session;
  const auto& elements = Pool<tagTElem>(session);
  const auto items = PickItems(model, elements, options.keys);
  if (!items) return items.Error();
  Table table({">elem", ">type", "x", "y", "z"});
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("elements");
  std::vector<host::DrawnElement> drawn;
  for (const ITR item : *items) {
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
    constexpr std::size_t kMost = 2000;
    if (drawn.size() > kMost) {
      return Failure{options.svg, "",
                     Grouped(items->GetSize()) +
                         " elements are too many "
                         "for one picture",
                     "select at most " + Grouped(kMost)};
    }
    const std::string picture = host::AxesSvg(session, drawn);
    if (Outcome written = WriteWholeFile(options.svg, MarkedSvg(picture)); !written) return written;
  }
  context.Print(table.Text(), json.End());
  return {};
}

}  // namespace

void AddAxes(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<AxesOptions>(app, context, "axes", "Show the local axes of elements",
                                   "qxdb axes frame.qxm 1-40 --svg axes.svg", Run);
  command->Add("keys", &options->keys, "Keys: 1-5,9,100- or all").Keys().Required();
  command->Add("--material", &options->material, "Material axes instead of element axes");
  command->Add("--svg", &options->svg, "Draw the elements and their axes into this file")
      .File({".svg"});
  AddForce(*command, options->force);
}

}  // namespace qx::app
