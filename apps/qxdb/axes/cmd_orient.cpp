// Orienting line elements.

#include <cmath>
#include <fmt/format.h>

#include "qx_db/lib/message.h"
#include "qx_db/model/element_axes.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

struct OrientOptions {
  std::string model;
  std::string keys;
  Key node = 0;
  std::vector<double> vector;
  double beta_deg = 0;
  Key system = 0;
  bool repair = false;
  Option* by_node = nullptr;
  Option* by_vector = nullptr;
  Option* by_beta = nullptr;
  Option* by_system = nullptr;
};

std::string Describe(const tagTEcrd& record) {
  const auto& v = record.reference_vector;
  switch (record.method) {
    case tagTEcrd::kByNode:
      return fmt::format("node {}", KeyOf(record.reference_node));
    case tagTEcrd::kByVector:
      return fmt::format("vector {} {} {}", Short(v.x), Short(v.y), Short(v.z));
    case tagTEcrd::kByBetaAngle:
      return fmt::format("beta {} deg", Short(record.beta_angle_deg));
    case tagTEcrd::kByCoordinateSystem:
      return record.coordinate_system ? fmt::format("system {}", KeyOf(record.coordinate_system))
                                      : "default system";
    default:
      return fmt::format("unknown method {}", record.method);
  }
}

Outcome Read(const OrientOptions& options, const CQXDBSession& session, tagTEcrd& record) {
  if (options.by_node->is_given) {
    record.method = tagTEcrd::kByNode;
    record.reference_node = Pool<tagTNode>(session).Find(options.node);
    if (record.reference_node == 0) {
      return Failure{options.model, fmt::format("node {}", options.node), "does not exist",
                     "name a node of the model"};
    }
  } else if (options.by_vector->is_given) {
    record.method = tagTEcrd::kByVector;
    record.reference_vector = {options.vector[0], options.vector[1], options.vector[2]};
    const Vector3 vector(record.reference_vector);
    if (!IsFinite(vector) || Length(vector) == 0) {
      return Failure{"", Describe(record), "is no direction",
                     "give three numbers that are not all zero"};
    }
  } else if (options.by_beta->is_given) {
    record.method = tagTEcrd::kByBetaAngle;
    record.beta_angle_deg = options.beta_deg;
    if (!std::isfinite(options.beta_deg)) {
      return Failure{"", Describe(record), "is no angle", "give a number of degrees"};
    }
  } else {
    const auto& systems = Pool<tagTCord>(session);
    record.method = tagTEcrd::kByCoordinateSystem;
    record.coordinate_system = systems.Find(options.system);
    const std::string place = fmt::format("cord {}", options.system);
    if (record.coordinate_system == 0) {
      return Failure{options.model, place, "does not exist", "name a coordinate system"};
    }
    if (systems.GetAtNU(record.coordinate_system).type != tagTCord::kRectangular) {
      return Failure{options.model, place, "is not rectangular, so it orients no element",
                     "name a rectangular system"};
    }
    Frame frame;
    if (!systems.GetFrame(record.coordinate_system, frame)) {
      return Failure{options.model, place, "has no axes, so it orients no element",
                     "correct its points, or name another system"};
    }
  }
  return {};
}

/// Orients one element, unless that would leave it without axes.
Outcome Orient(const OrientOptions& options, DPoolElem& elements, ITR item, tagTEcrd record) {
  const tagTElem element = elements.GetAtNU(item);
  const std::string place = fmt::format("elem {}", element.key);
  double center[3];
  if (element.nodes.GetSize() < 2 || !elements.GetElemCenter(element, center)) {
    return Failure{options.model, place, "lacks nodes, so it has no line to turn about",
                   "give it its nodes first"};
  }
  const DPoolNode& nodes = Pool<tagTNode>(*elements.GetSession());
  const bool needs_line = record.method != tagTEcrd::kByCoordinateSystem;
  const double length =
      Distance(nodes.Position(element.nodes[0]), nodes.Position(element.nodes[1]));
  if (needs_line && !(length >= kShortestElement)) {
    return Failure{options.model, place, "has no length, so it has no line to turn about",
                   "move one of its nodes, or orient it by a system"};
  }
  if (!elements.SetAtNUwCsys(item, element, record, 1)) return RefusalOf(options.model);
  double axes[3][3];
  if (!elements.Calc1DElemLocalVector(element, record, axes)) {
    return Failure{options.model, place, "would have no axes by " + Describe(record),
                   "orient it otherwise"};
  }
  return {};
}

Outcome Repair(Model& model, const Context& context) {
  Edit edit(model);
  if (!model.document.Activate()) return RefusalOf(model.path);
  if (Outcome saved = edit.Save(); !saved) return saved;
  JsonText json;
  json.Begin().Text("model", model.path).Bool("saved", edit.IsSaved());
  edit.Changes().Write(json);
  context.Print(edit.Changes().Text() + (edit.IsSaved() ? "saved" : ""), json.End());
  return {};
}

Outcome Show(const CQXDBSession& session, const TArray<ITR>& items, const Context& context) {
  auto& elements = Pool<tagTElem>(session);
  Table table({">elem", "type", "orientation"});
  JsonText json;
  json.Begin().BeginArray("orientations");
  for (const ITR item : items) {
    const tagTElem& element = elements.GetAtNU(item);
    tagTEcrd record;
    const bool stored = elements.GetElemCSys(item, record) != 0;
    if (!stored && !element_rule::HasDefaultOrientation(element.type)) continue;
    const std::string how = Describe(record) + (stored ? "" : " (default)");
    table.Row({fmt::format("{}", element.key), fmt::format("{}", element.type), how});
    json.Begin().Integer("elem", element.key).Text("orientation", how);
    json.Bool("stored", stored).End();
  }
  context.Print(table.IsEmpty() ? "no line elements among these\n" : table.Text(),
                json.End().End());
  return {};
}

Outcome Run(Model& model, const OrientOptions& options, const Context& context) {
  if (options.repair) return Repair(model, context);
  auto& elements = Pool<tagTElem>(model.session);
  const auto items = PickItems(model, elements, options.keys);
  if (!items) return items.Error();
  if (!options.by_node->is_given && !options.by_vector->is_given && !options.by_beta->is_given &&
      !options.by_system->is_given) {
    return Show(model.session, *items, context);
  }
  tagTEcrd record;
  if (Outcome read = Read(options, model.session, record); !read) return read;
  Edit edit(model);
  std::int64_t oriented = 0;
  Outcome done = edit.Do(qxLoadText("IDS_QX_TRANS_ORIENT").c_str(), [&]() -> Outcome {
    for (const ITR item : *items) {
      if (!element_rule::IsWithEcrdType(elements.GetAtNU(item).type)) continue;
      if (Outcome turned = Orient(options, elements, item, record); !turned) return turned;
      ++oriented;
    }
    if (oriented > 0) return {};
    return Failure{options.model, "elem " + options.keys, "has no line element",
                   "name elements of a type that carries an orientation"};
  });
  if (done) done = edit.Save();
  if (!done) return done;
  JsonText json;
  json.Begin().Text("model", options.model).Integer("oriented", oriented);
  json.Text("orientation", Describe(record));
  context.Print(fmt::format("{} element{} oriented by {}\n", Grouped(oriented),
                            oriented == 1 ? "" : "s", Describe(record)),
                json.End());
  return {};
}

}  // namespace

void AddOrient(Command& app, Context& context) {
  const auto [command, options] = AddModelCommand<OrientOptions>(
      app, context, "orient", "Show or set the orientation of line elements",
      "qxdb orient frame.qxm 1-40 --vector 0 1 0", Run);
  Option& keys = command->Add("keys", &options->keys, "Keys: 1-5,9,100- or all").Keys();
  options->by_node = &command->Add("--node", &options->node, "Reference node, by key");
  options->by_vector = &command->Add("--vector", &options->vector, "Reference vector").Count(3);
  options->by_beta = &command->Add("--beta", &options->beta_deg, "Angle about the line, degrees");
  options->by_system = &command->Add("--cord", &options->system, "Coordinate system, by key");
  Option& repair = command->Add(
      "--repair", &options->repair,
      "For all elements: make the records that are missing, remove those of no element");
  command->AtMostOne(
      "how", "One of these; none shows what is set",
      {options->by_node, options->by_vector, options->by_beta, options->by_system, &repair});
  command->ExactlyOne(keys, repair);
}

}  // namespace qx::app
