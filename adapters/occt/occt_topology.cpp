#include "adapters/occt/occt_topology.h"

#include <BRepAdaptor_Surface.hxx>
#include <BRepTools_WireExplorer.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Iterator.hxx>
#include <TopoDS_Wire.hxx>

namespace qx::occt {
namespace {

const char* SurfaceName(GeomAbs_SurfaceType type) {
  switch (type) {
    case GeomAbs_Plane:
      return "plane";
    case GeomAbs_Cylinder:
      return "cylinder";
    case GeomAbs_Cone:
      return "cone";
    case GeomAbs_Sphere:
      return "sphere";
    case GeomAbs_Torus:
      return "torus";
    case GeomAbs_BezierSurface:
    case GeomAbs_BSplineSurface:
      return "spline";
    case GeomAbs_SurfaceOfRevolution:
      return "revolution";
    case GeomAbs_SurfaceOfExtrusion:
      return "extrusion";
    default:
      return "other";
  }
}

/// The uses of a wire's edges, following each other where the wire is connected.
void AddLoop(const TopoDS_Wire& wire, const TopoDS_Face& face, int loop,
             const TopTools_IndexedMapOfShape& edges, CadFace& out) {
  const std::size_t before = out.edges.size();
  const auto add = [&](const TopoDS_Shape& edge) {
    out.edges.push_back({edges.FindIndex(edge), edge.Orientation() == TopAbs_REVERSED, loop});
  };
  for (BRepTools_WireExplorer walk(wire, face); walk.More(); walk.Next()) add(walk.Current());
  std::size_t all = 0;
  for (TopoDS_Iterator each(wire); each.More(); each.Next()) ++all;
  if (out.edges.size() - before == all) return;
  out.edges.resize(before);  // the walk stops where a wire has a gap
  for (TopoDS_Iterator each(wire); each.More(); each.Next()) add(each.Value());
}

CadFace MakeFace(const TopoDS_Face& face, int body, const TopTools_IndexedMapOfShape& edges) {
  CadFace out;
  out.body = body;
  out.kind = SurfaceName(BRepAdaptor_Surface(face, false).GetType());
  int loop = 0;
  // Looked at from outside the solid: a reversed face runs its loops the other way round, which
  // changes no seed, so that loops are taken as the surface has them.
  const TopoDS_Face forward = TopoDS::Face(face.Oriented(TopAbs_FORWARD));
  for (TopExp_Explorer wires(forward, TopAbs_WIRE); wires.More(); wires.Next()) {
    AddLoop(TopoDS::Wire(wires.Current()), forward, loop++, edges, out);
  }
  return out;
}

struct BodyKind {
  TopAbs_ShapeEnum shape;
  TopAbs_ShapeEnum outside;  ///< bodies of this kind are those not inside one of that
  const char* name;
};

constexpr BodyKind kBodyKinds[] = {
    {TopAbs_SOLID, TopAbs_SHAPE, "solid"}, {TopAbs_SHELL, TopAbs_SOLID, "shell"},
    {TopAbs_FACE, TopAbs_SHELL, "face"},   {TopAbs_WIRE, TopAbs_FACE, "wire"},
    {TopAbs_EDGE, TopAbs_WIRE, "edge"},
};

}  // namespace

void ReadTopology(const TopoDS_Shape& shape, CadTopology& topology,
                  TopTools_IndexedMapOfShape& edges) {
  TopExp::MapShapes(shape, TopAbs_EDGE, edges);
  topology.edge_bodies.assign(static_cast<std::size_t>(edges.Extent()), 0);
  TopTools_IndexedMapOfShape bodies;
  TopTools_IndexedMapOfShape faces;
  for (const BodyKind& kind : kBodyKinds) {
    for (TopExp_Explorer walk(shape, kind.shape, kind.outside); walk.More(); walk.Next()) {
      if (bodies.Contains(walk.Current())) continue;
      const int body = bodies.Add(walk.Current());
      topology.bodies.emplace_back(kind.name);
      for (TopExp_Explorer face(walk.Current(), TopAbs_FACE); face.More(); face.Next()) {
        if (faces.Contains(face.Current())) continue;
        const int number = faces.Add(face.Current());
        topology.faces.push_back(MakeFace(TopoDS::Face(face.Current()), body, edges));
        topology.faces.back().number = number;
      }
      for (TopExp_Explorer edge(walk.Current(), TopAbs_EDGE); edge.More(); edge.Next()) {
        int& owner =
            topology.edge_bodies[static_cast<std::size_t>(edges.FindIndex(edge.Current()) - 1)];
        if (owner == 0) owner = body;
      }
    }
  }
}

}  // namespace qx::occt
