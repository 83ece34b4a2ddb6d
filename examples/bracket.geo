// An angle bracket: two legs with a rib between them and three bolt holes. Millimetres.
// Meshed with: gmsh bracket.geo -3 -order 2 -format msh41 -bin -o bracket.msh
SetFactory("OpenCASCADE");

width = 40;
length = 60;
thickness = 8;
rib = 6;
hole = 4.5;

Box(1) = {0, 0, 0, length, width, thickness};               // base
Box(2) = {0, 0, 0, thickness, width, length};               // upright
Point(101) = {thickness, (width - rib) / 2, thickness};
Point(102) = {length - 14, (width - rib) / 2, thickness};
Point(103) = {thickness, (width - rib) / 2, length - 14};
Line(101) = {101, 102};
Line(102) = {102, 103};
Line(103) = {103, 101};
Curve Loop(101) = {101, 102, 103};
Plane Surface(101) = {101};
Extrude {0, rib, 0} { Surface{101}; }                       // rib
ribs() = Volume{:};
BooleanUnion(10) = { Volume{1}; Delete; }{ Volume{2, 3}; Delete; };
Cylinder(21) = {length - 12, 9, -1, 0, 0, thickness + 2, hole};
Cylinder(22) = {length - 12, width - 9, -1, 0, 0, thickness + 2, hole};
Cylinder(23) = {-1, width / 2, length - 7, thickness + 2, 0, 0, hole};
BooleanDifference(30) = { Volume{10}; Delete; }{ Volume{21, 22, 23}; Delete; };

e = 0.01;
base_holes() = Surface In BoundingBox {length - 12 - hole - e, 9 - hole - e, -e,
                                       length - 12 + hole + e, width - 9 + hole + e, thickness + e};
load_hole() = Surface In BoundingBox {-e, width / 2 - hole - e, length - 7 - hole - e,
                                      thickness + e, width / 2 + hole + e, length - 7 + hole + e};
foot() = Surface In BoundingBox {-e, -e, -e, length + e, width + e, e};

Physical Volume("bracket") = {30};
Physical Surface("bolted to base") = {base_holes()};
Physical Surface("loaded hole") = {load_hole()};
Physical Surface("foot") = {foot()};

Mesh.MeshSizeMax = 4.5;
Mesh.MeshSizeFromCurvature = 14;
Mesh.Optimize = 1;
Mesh.HighOrderOptimize = 1;
