// Shells and solids on faces: the skin of solids, and what is extruded from faces.

#include <cmath>
#include <fmt/format.h>

#include "qx_db/shape/faces.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/model/where.h"
#include "apps/qxdb/shape/shape_step.h"

namespace qx::app {
namespace {

struct FaceOptions : ShapeOptions {
  std::string set;
  Key property = 0;
  std::vector<double> by;
  double height = 0;
  Key layers = 1;
  Option *by_way = nullptr, *by_height = nullptr, *by_property = nullptr;
};

/// The property of a key that was given; 0 for none.
Result<ITR> PropertyOf(const Model& model, const FaceOptions& options) {
  if (!options.by_property->is_given) return ITR{0};
  const DPoolBase* pool = model.session.GetDataPool(code::kProp);
  const ITR found = pool ? pool->Find(options.property) : 0;
  if (found) return found;
  return Failure{model.path, fmt::format("prop {}", options.property), "does not exist",
                 "see the properties with: qxdb show " + model.path + " prop"};
}

Outcome RunSkin(Model& model, const FaceOptions& options, const Context& context) {
  const auto picked = PickShape(model, options.where, {});
  if (!picked) return picked.Error();
  if (picked->kind == SelectKind::kNodes) {
    return Failure{"", "where", "selects nodes, and the skin is that of solids or of faces",
                   "write elements of (...) or faces of (...)"};
  }
  const auto property = PropertyOf(model, options);
  if (!property) return property.Error();
  std::vector<tagTElemSide> faces(picked->faces.begin(), picked->faces.end());
  if (picked->kind == SelectKind::kElements) {
    const std::vector<ITR> solids(picked->items.begin(), picked->items.end());
    faces = FacesAround(solids);
  }
  return ShapeStep(model, options, context, u"Make skin",
                   [&](CQXDBSession& session, ShapeReport& report) {
                     return MakeSkin(session, faces, {options.set, *property}, report);
                   });
}

Outcome RunExtrude(Model& model, const FaceOptions& options, const Context& context) {
  if (options.by_way->is_given == options.by_height->is_given) {
    return Failure{"", "extrude", "takes one of --by and --height", "see: qxdb help extrude"};
  }
  const auto picked = PickShape(model, options.where, SelectKind::kFaces);
  if (!picked) return picked.Error();
  const auto property = PropertyOf(model, options);
  if (!property) return property.Error();
  const CQXUnitCtrl& units = model.session.Units();
  ExtrusionPlan plan;
  plan.layers = options.layers;
  plan.set = options.set;
  plan.property = *property;
  plan.height = units.In(unit::kLength, options.height);
  if (options.by_way->is_given) {
    plan.by =
        Vector3(units.In(unit::kLength, options.by[0]), units.In(unit::kLength, options.by[1]),
                units.In(unit::kLength, options.by[2]));
  }
  const bool has_way = plan.by ? IsFinite(*plan.by) && Length(*plan.by) > 0
                               : std::isfinite(plan.height) && plan.height != 0;
  if (!has_way) {
    return Failure{"", plan.by ? "--by" : "--height", "gives no height",
                   "give a length other than 0"};
  }
  const std::vector<tagTElemSide> faces(picked->faces.begin(), picked->faces.end());
  return ShapeStep(model, options, context, u"Extrude faces",
                   [&](CQXDBSession& session, ShapeReport& report) {
                     return Extrude(session, faces, plan, report);
                   });
}

void AddCommon(Command& command, FaceOptions& options, const std::string& set) {
  options.set = set;
  // Room for " bottom" and the number of a copy name in what a set's name may have.
  const auto fault = [](const std::string& name) -> std::string {
    constexpr std::size_t kLongest = 48;
    return name.empty() || name.size() > kLongest ? "the name of a set has 1 to 48 bytes" : "";
  };
  command.Add("--set", &options.set, "Mesh set for what is made").Check({fault, ""}).ShowDefault();
  options.by_property =
      &command.Add("--property", &options.property, "Property of the new elements, by key");
}

}  // namespace

void AddFaceShapes(Command& app, Context& context) {
  const auto [skin, skin_options] =
      AddModelCommand<FaceOptions>(app, context, "skin", "Make shells on the free faces of solids",
                                   "qxdb skin bracket.qxm --set coat", RunSkin);
  AddShapeOptions(*skin, *skin_options,
                  "Solids, whose faces to each other are left out, or faces; all solids without it",
                  true);
  AddCommon(*skin, *skin_options, "skin");

  const auto [extrude, options] = AddModelCommand<FaceOptions>(
      app, context, "extrude", "Make layers of solids on faces",
      "qxdb extrude plate.qxm --where 'quad' --height 2 --layers 4", RunExtrude);
  AddShapeOptions(*extrude, *options, "Faces of solids or surface elements; every face without it",
                  true);
  options->by_way = &extrude
                         ->Add("--by", &options->by,
                               "Way from bottom to top in x, y and z, in current length units")
                         .Count(3);
  options->by_height = &extrude->Add(
      "--height", &options->height,
      "Height along the normals of the faces, in current length units; below 0 against them");
  extrude->Add("--layers", &options->layers, "Layers of solids").Range(1, 10000).ShowDefault();
  AddCommon(*extrude, *options, "extrusion");
  extrude->notes =
      "Sets of the nodes at the bottom, at the top and along the sides are made too: the name of "
      "--set\nwith \" bottom\", \" top\" and \" sides\".";
}

}  // namespace qx::app
