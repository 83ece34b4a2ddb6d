// Makes examples/joint.step: two plates that meet at a face, one of them with a curved side. The
// bodies share no edges, as parts of an assembly do not, so that the four edges round the joint
// come in pairs that lie on each other.

#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepPrimAPI_MakePrism.hxx>
#include <BRep_Builder.hxx>
#include <Geom_BezierCurve.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_Printer.hxx>
#include <STEPControl_Writer.hxx>
#include <TColgp_Array1OfPnt.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Face.hxx>
#include <cstdio>
#include <gp_Vec.hxx>

namespace {

constexpr double kThickness = 8;

TopoDS_Edge Line(const gp_Pnt& from, const gp_Pnt& to) {
  return BRepBuilderAPI_MakeEdge(from, to).Edge();
}

/// A plate of the thickness, above a closed outline of four edges.
TopoDS_Shape Plate(const TopoDS_Edge& a, const TopoDS_Edge& b, const TopoDS_Edge& c,
                   const TopoDS_Edge& d) {
  const TopoDS_Wire outline = BRepBuilderAPI_MakeWire(a, b, c, d).Wire();
  const TopoDS_Face bottom = BRepBuilderAPI_MakeFace(outline).Face();
  return BRepPrimAPI_MakePrism(bottom, gp_Vec(0, 0, kThickness)).Shape();
}

/// A curve that its parameter runs along slowly at first and fast in the end.
TopoDS_Edge Curved(const gp_Pnt& from, const gp_Pnt& to) {
  TColgp_Array1OfPnt poles(1, 5);
  poles(1) = from;
  poles(2) = gp_Pnt(38, 34, 0);
  poles(3) = gp_Pnt(33, 46, 0);
  poles(4) = gp_Pnt(19, 40, 0);
  poles(5) = to;
  return BRepBuilderAPI_MakeEdge(Handle(Geom_Curve)(new Geom_BezierCurve(poles))).Edge();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_joint FILE.step\n");
    return 2;
  }
  Message::DefaultMessenger()->RemovePrinters(STANDARD_TYPE(Message_Printer));
  const gp_Pnt p00(0, 0, 0);
  const gp_Pnt p40(40, 0, 0);
  const gp_Pnt p44(40, 30, 0);
  const gp_Pnt p04(0, 30, 0);
  const gp_Pnt p80(70, 0, 0);
  const gp_Pnt p84(70, 30, 0);
  TopoDS_Compound parts;
  BRep_Builder builder;
  builder.MakeCompound(parts);
  builder.Add(parts, Plate(Line(p00, p40), Line(p40, p44), Curved(p44, p04), Line(p04, p00)));
  // The side at the joint runs the other way round here.
  builder.Add(parts, Plate(Line(p40, p80), Line(p80, p84), Line(p84, p44), Line(p44, p40)));
  Interface_Static::SetCVal("write.step.product.name", "joint");
  STEPControl_Writer writer;
  const bool written = writer.Transfer(parts, STEPControl_ManifoldSolidBrep) == IFSelect_RetDone &&
                       writer.Write(argv[1]) == IFSelect_RetDone;
  if (!written) std::fprintf(stderr, "%s cannot be written\n", argv[1]);
  return written ? 0 : 1;
}
