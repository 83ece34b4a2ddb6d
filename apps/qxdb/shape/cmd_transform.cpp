// Moving, turning, scaling and reflecting parts of a mesh.

#include <cmath>
#include <fmt/format.h>

#include "qx_db/shape/transform.h"

#include "apps/qxdb/shape/shape_step.h"

namespace qx::app {
namespace {

struct TransformOptions : ShapeOptions {
  std::vector<double> translate, scale, mirror, axis, at;
  double rotate_deg = 0;
  Key in = 0, from = 0, to = 0;
  Key copies = 0;
  std::string sets = "same";
  Option *by_translate = nullptr, *by_rotate = nullptr, *by_scale = nullptr, *by_mirror = nullptr;
  Option *by_axis = nullptr, *by_at = nullptr, *by_in = nullptr;
  Option *by_from = nullptr, *by_to = nullptr;
};

Result<Frame> FrameOf(const Model& model, Key key) {
  const auto& systems = Pool<tagTCord>(model.session);
  const ITR system = systems.Find(key);
  const std::string place = fmt::format("cord {}", key);
  if (!system) {
    return Failure{model.path, place, "does not exist",
                   "see the systems with: qxdb show " + model.path + " cord"};
  }
  Frame frame;
  if (systems.GetFrame(system, frame)) return frame;
  return Failure{model.path, place, "has no axes", "correct its points, or name another system"};
}

Failure WrongNumbers(const char* option, const char* fault) {
  return {"", option, fault, "see: qxdb help transform"};
}

/// The three numbers of an option along the axes of the frame.
Result<Vector3> DirectionOf(const Frame& frame, const std::vector<double>& numbers,
                            const char* option) {
  Vector3 v = frame.axes.ToGlobal({numbers[0], numbers[1], numbers[2]});
  if (Normalize(v)) return v;
  return WrongNumbers(option, "is no direction: three numbers that are not all zero give one");
}

Result<AffineMap> MapOf(const Model& model, const TransformOptions& options) {
  if (options.by_from->is_given) {
    const auto from = FrameOf(model, options.from), to = FrameOf(model, options.to);
    if (!from) return from.Error();
    if (!to) return to.Error();
    return AffineMap::Between(from->origin, from->axes, to->origin, to->axes);
  }
  Frame frame;
  if (options.by_in->is_given) {
    const auto given = FrameOf(model, options.in);
    if (!given) return given.Error();
    frame = *given;
  }
  const auto point = [&](const std::vector<double>& numbers) {
    Vector3 v;
    for (int i = 0; i < 3; ++i) {
      v[i] = model.session.Units().In(unit::kLength, numbers[static_cast<std::size_t>(i)]);
    }
    return frame.axes.ToGlobal(v);
  };
  const Point3 at = frame.origin + (options.by_at->is_given ? point(options.at) : Point3());
  if (options.by_translate->is_given) return AffineMap::Translation(point(options.translate));
  if (options.by_rotate->is_given) {
    const auto axis = DirectionOf(
        frame, options.by_axis->is_given ? options.axis : std::vector<double>{0, 0, 1}, "--axis");
    if (!axis) return axis.Error();
    return AffineMap::Rotation(at, *axis, options.rotate_deg);
  }
  if (options.by_mirror->is_given) {
    const auto normal = DirectionOf(frame, options.mirror, "--mirror");
    if (!normal) return normal.Error();
    return AffineMap::Mirror(at, *normal);
  }
  const auto& f = options.scale;
  if (f.size() == 2) return WrongNumbers("--scale", "takes one factor, or three");
  for (const double factor : f) {
    if (!(std::isfinite(factor) && factor > 0)) {
      return WrongNumbers("--scale", "takes factors above 0: what mirrors is told by --mirror");
    }
  }
  return AffineMap::Scaling(at, frame.axes,
                            f.size() == 1 ? Vector3(f[0], f[0], f[0]) : Vector3(f[0], f[1], f[2]));
}

Outcome CheckChoice(const TransformOptions& options) {
  const auto fault = [](const char* place, const char* what) {
    return Failure{"", place, what, "see: qxdb help transform"};
  };
  int ways = 0;
  for (const Option* way : {options.by_translate, options.by_rotate, options.by_scale,
                            options.by_mirror, options.by_from}) {
    ways += way->is_given;
  }
  if (ways != 1) {
    return fault("transform", "takes one of --translate, --rotate, --scale, --mirror and --from");
  }
  if (options.by_from->is_given != options.by_to->is_given) {
    return fault(options.by_from->is_given ? "--from" : "--to",
                 "needs the other of --from and --to");
  }
  if (options.by_axis->is_given && !options.by_rotate->is_given) {
    return fault("--axis", "goes with --rotate");
  }
  if (options.by_at->is_given && (options.by_translate->is_given || options.by_from->is_given)) {
    return fault("--at", "goes with --rotate, --scale and --mirror");
  }
  if (options.by_in->is_given && options.by_from->is_given) {
    return fault("--in", "does not go with --from");
  }
  for (const auto* numbers : {&options.translate, &options.at, &options.axis, &options.mirror}) {
    for (const double number : *numbers) {
      if (!std::isfinite(number)) return fault("transform", "takes finite numbers");
    }
  }
  if (!std::isfinite(options.rotate_deg)) return fault("--rotate", "takes a finite angle");
  if (options.copies == 0 && (options.sets != "same" || !options.key_map.empty())) {
    return fault(options.key_map.empty() ? "--sets" : "--key-map", "goes with --copies");
  }
  return {};
}

Outcome Run(Model& model, const TransformOptions& options, const Context& context) {
  if (Outcome fits = CheckChoice(options); !fits) return fits;
  const auto map = MapOf(model, options);
  if (!map) return map.Error();
  const auto picked = PickShape(model, options.where, {});
  if (!picked) return picked.Error();
  if (picked->kind == SelectKind::kFaces) {
    return Failure{"", "where", "selects faces, and nodes or elements are transformed",
                   "write nodes of (...) or elements of (...)"};
  }
  std::vector<ITR> nodes, elements;
  (picked->kind == SelectKind::kNodes ? nodes : elements)
      .assign(picked->items.begin(), picked->items.end());
  if (options.where.empty()) {  // everything: nodes that no element has, too
    auto& pool = Pool<tagTNode>(model.session);
    for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) nodes.push_back(at);
  }
  const SetsOfMade sets = options.sets == "new"    ? SetsOfMade::kNew
                          : options.sets == "none" ? SetsOfMade::kNone
                                                   : SetsOfMade::kSame;
  const auto work = [&](CQXDBSession& session, ShapeReport& report) {
    const ShapeParts parts{nodes, elements};
    return options.copies == 0
               ? Transform(session, parts, *map, report)
               : TransformCopies(session, parts, *map, options.copies, sets, report);
  };
  return ShapeStep(model, options, context, options.copies ? u"Copy mesh" : u"Transform mesh",
                   work);
}

}  // namespace

void AddTransform(Command& app, Context& context) {
  const auto [command, options] = AddModelCommand<TransformOptions>(
      app, context, "transform", "Move, turn, scale or mirror a part of a mesh, or copies of it",
      "qxdb transform bracket.qxm --mirror 1 0 0 --copies 1", Run);
  AddShapeOptions(*command, *options, "Nodes or elements with their nodes; all without it", true);
  options->by_translate = &command
                               ->Add("--translate", &options->translate,
                                     "Shift in x, y and z, in current length "
                                     "units")
                               .Count(3);
  options->by_rotate = &command->Add("--rotate", &options->rotate_deg,
                                     "Angle in degrees, by the right hand about --axis");
  options->by_scale =
      &command->Add("--scale", &options->scale, "Factor, or one along each of x, y and z")
           .Count(1, 3);
  options->by_mirror =
      &command->Add("--mirror", &options->mirror, "Normal of the plane to reflect in").Count(3);
  options->by_from = &command->Add("--from", &options->from,
                                   "System, by key, that comes to lie where that of --to is");
  options->by_to = &command->Add("--to", &options->to, "System, by key, to go to");
  options->by_axis =
      &command->Add("--axis", &options->axis, "Direction of the axis of --rotate; 0 0 1 without")
           .Count(3);
  options->by_at = &command
                        ->Add("--at", &options->at,
                              "Point of the axis or plane, or that scaling leaves; 0 0 0 without")
                        .Count(3);
  options->by_in = &command->Add("--in", &options->in,
                                 "System, by key, along whose axes these numbers are; global "
                                 "without");
  command
      ->Add("--copies", &options->copies,
            "Leave the originals and make so many copies, each from the one before")
      .Range(1, 100000);
  command
      ->Add("--sets", &options->sets,
            "Mesh sets of copies: the same, new ones beside each, or none")
      .OneOf({"same", "new", "none"})
      .ShowDefault();
  command->notes =
      "New keys follow the largest of their pool, copy after copy, in the order of the pool.";
}

}  // namespace qx::app
