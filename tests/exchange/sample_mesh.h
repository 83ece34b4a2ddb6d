#pragma once
// A small mesh with elements of every kind that MSH files share with us, and its form as a MSH
// file of each version and encoding.

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/record/element_types.h"

#include "exchange/mesh.h"

namespace sample {

using qx::Key;
using Point = std::array<double, 3>;
using Edges = std::vector<std::pair<int, int>>;

/// A text as the name of a test.
inline std::string TestName(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
  return text;
}

inline Point Middle(const Point& a, const Point& b) {
  return {(a[0] + b[0]) / 2, (a[1] + b[1]) / 2, (a[2] + b[2]) / 2};
}

/// A shape: its corners, its edges in the order of our mid-side nodes, and in the order of MSH's.
struct Shape {
  int dimension;
  std::vector<Point> corners;
  Edges edges;
  Edges msh_edges;
};

inline const std::vector<Shape>& Shapes() {
  static const Edges kTri{{0, 1}, {1, 2}, {2, 0}};
  static const Edges kQuad{{0, 1}, {1, 2}, {2, 3}, {3, 0}};
  static const std::vector<Shape> shapes{
      {0, {{0, 0, 0}}, {}, {}},
      {1, {{0, 0, 0}, {1, 0, 0}}, {{0, 1}}, {{0, 1}}},
      {2, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, kTri, kTri},
      {2, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, kQuad, kQuad},
      {3,
       {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
       {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}},
       {{0, 1}, {1, 2}, {0, 2}, {0, 3}, {2, 3}, {1, 3}}},
      {3,
       {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}},
       {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}},
       {{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 4}, {2, 3}, {2, 4}, {3, 4}}},
      {3,
       {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}},
       {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
       {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 4}, {2, 5}, {3, 4}, {3, 5}, {4, 5}}},
      {3,
       {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}},
       {{0, 1},
        {1, 2},
        {2, 3},
        {3, 0},
        {4, 5},
        {5, 6},
        {6, 7},
        {7, 4},
        {0, 4},
        {1, 5},
        {2, 6},
        {3, 7}},
       {{0, 1},
        {0, 3},
        {0, 4},
        {1, 2},
        {1, 5},
        {2, 3},
        {2, 6},
        {3, 7},
        {4, 5},
        {4, 7},
        {5, 6},
        {6, 7}}},
  };
  return shapes;
}

/// The shape of one of our element type codes: 1 is the point, then two codes a shape.
inline const Shape& ShapeOf(std::int32_t code) {
  return Shapes()[static_cast<std::size_t>(code / 2)];
}

/// An element kind of MSH files: its number, the code it is read as, and its nodes.
struct Kind {
  int number;
  std::int32_t code;
  int nodes;
};
inline constexpr Kind kKinds[] = {
    {1, 2, 2},  {2, 4, 3},  {3, 6, 4},    {4, 8, 4},    {5, 14, 8},   {6, 12, 6},   {7, 10, 5},
    {8, 3, 3},  {9, 5, 6},  {10, 7, 9},   {11, 9, 10},  {12, 15, 27}, {13, 13, 18}, {14, 11, 14},
    {15, 1, 1}, {16, 7, 8}, {17, 15, 20}, {18, 13, 15}, {19, 11, 13},
};

struct Element {
  Kind kind;
  Key key;
  std::vector<Key> nodes;  // as in the file
  std::vector<std::int32_t> groups;
};

/// The mesh as the file tells it.
struct Sample {
  std::vector<Key> node_keys;
  std::vector<Point> points;
  std::vector<Element> elements;
};

/// Two elements of each kind of `numbers`, or of all kinds, side by side, none sharing nodes.
/// All are in group 1 of their dimension, tetrahedra in group 5 as well.
inline Sample Make(const std::vector<int>& numbers = {}) {
  Sample mesh;
  for (const Kind& kind : kKinds) {
    if (!numbers.empty() && std::count(numbers.begin(), numbers.end(), kind.number) == 0) continue;
    const Shape& shape = ShapeOf(kind.code);
    for (int twin = 0; twin < 2; ++twin) {
      Element element{kind, static_cast<Key>(10 + mesh.elements.size()), {}, {1}};
      if (shape.corners.size() == 4 && shape.dimension == 3) element.groups = {1, 5};
      const double shift = 2.0 * static_cast<double>(mesh.elements.size());
      std::vector<Point> points = shape.corners;
      for (const auto& [a, b] : shape.msh_edges) {
        if (points.size() == static_cast<std::size_t>(kind.nodes)) break;
        points.push_back(Middle(shape.corners[static_cast<std::size_t>(a)],
                                shape.corners[static_cast<std::size_t>(b)]));
      }
      points.resize(static_cast<std::size_t>(kind.nodes), Point{0.3, 0.3, 0.3});  // face, centre
      for (Point& point : points) {
        point[0] += shift;
        mesh.points.push_back(point);
        mesh.node_keys.push_back(static_cast<Key>(3 * mesh.points.size() + 4));
        element.nodes.push_back(mesh.node_keys.back());
      }
      mesh.elements.push_back(element);
    }
  }
  return mesh;
}

// ---- as a file ----------------------------------------------------------------------------------

struct Form {
  const char* version;
  bool binary = false;
  bool swapped = false;
  int size_bytes = 8;
};
inline constexpr Form kForms[] = {
    {"2.2"},
    {"2.2", true},
    {"2.2", true, true},
    {"4.0"},
    {"4.0", true},
    {"4.0", true, true},
    {"4.1"},
    {"4.1", true},
    {"4.1", true, true},
    {"4.1", true, false, 4},
    {"4.1", true, true, 4},
};
inline std::string Name(const Form& form) {
  return std::string(form.version) + (form.binary ? " binary" : " text") +
         (form.swapped ? " swapped" : "") + (form.size_bytes == 4 ? " 4-byte" : "");
}

/// Puts numbers together as a file stores them.
class Emitter {
 public:
  explicit Emitter(const Form& form) : form_(form) { text_.precision(17); }

  void Text(const std::string& text) { text_ << text; }
  void Int(std::int32_t value) { Put(value); }
  void Size(std::uint64_t value) {
    form_.size_bytes == 4 ? Put(static_cast<std::uint32_t>(value)) : Put(value);
  }
  void Real(double value) { Put(value); }
  void Number(Key key) {
    std::string(form_.version) == "4.1" ? Size(static_cast<std::uint64_t>(key)) : Int(key);
  }
  /// Ends a line in a text file; binary sections have none.
  void Line() {
    if (!form_.binary) text_ << '\n';
  }
  std::string Take() const { return text_.str(); }

 private:
  template <class T>
  void Put(T value) {
    if (!form_.binary) {
      text_ << value << ' ';
      return;
    }
    auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if (form_.swapped) std::reverse(bytes.begin(), bytes.end());
    text_.write(bytes.data(), sizeof(T));
  }
  const Form& form_;
  std::ostringstream text_;
};

inline void EmitVersion2(const Sample& mesh, const Form& form, Emitter& out) {
  out.Text("$Nodes\n" + std::to_string(mesh.points.size()) + "\n");
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    out.Int(mesh.node_keys[i]);
    for (const double x : mesh.points[i]) out.Real(x);
    out.Line();
  }
  std::size_t count = 0;
  for (const Element& element : mesh.elements) count += element.groups.size();
  out.Text("\n$EndNodes\n$Elements\n" + std::to_string(count) + "\n");
  Key further = 1000;  // this version repeats an element for each further group
  std::int32_t entity = 1;
  for (const Element& element : mesh.elements) {
    for (const std::int32_t group : element.groups) {
      const Key key = group == element.groups.front() ? element.key : further++;
      const std::int32_t number = element.kind.number;
      form.binary ? (out.Int(number), out.Int(1), out.Int(2), out.Int(key))
                  : (out.Int(key), out.Int(number), out.Int(2));
      out.Int(group), out.Int(entity);
      for (const Key node : element.nodes) out.Int(node);
      out.Line();
    }
    ++entity;
  }
  out.Text("\n$EndElements\n");
}

inline void EmitVersion4(const Sample& mesh, const Form& form, Emitter& out) {
  const bool v41 = std::string(form.version) == "4.1";
  const std::size_t blocks = mesh.elements.size() / 2;  // twins share an entity
  const auto dimension = [&](std::size_t block) {
    return ShapeOf(mesh.elements[2 * block].kind.code).dimension;
  };
  const auto entity = [&](int dim, std::size_t tag) {
    v41 ? (out.Int(dim), out.Int(static_cast<int>(tag)))
        : (out.Int(static_cast<int>(tag)), out.Int(dim));
  };
  out.Text("$Entities\n");
  for (int d = 0; d < 4; ++d) {
    std::size_t count = 0;
    for (std::size_t b = 0; b < blocks; ++b) count += dimension(b) == d;
    out.Size(count);
  }
  for (int d = 0; d < 4; ++d) {
    for (std::size_t b = 0; b < blocks; ++b) {
      if (dimension(b) != d) continue;
      out.Line(), out.Int(static_cast<int>(b + 1));
      for (int i = 0; i < (v41 && d == 0 ? 3 : 6); ++i) out.Real(0.5);
      const std::vector<std::int32_t>& groups = mesh.elements[2 * b].groups;
      out.Size(groups.size());
      for (const std::int32_t group : groups) out.Int(group == 5 ? -5 : group);
      if (d > 0) out.Size(2), out.Int(7), out.Int(-8);
    }
  }
  out.Text("\n$EndEntities\n$Nodes\n");
  const std::size_t half = mesh.points.size() / 2;
  out.Size(2), out.Size(mesh.points.size());
  if (v41) out.Size(1), out.Size(99999);
  for (int block = 0; block < 2; ++block) {  // nodes on a surface, with two parameters, and others
    const std::size_t begin = block == 0 ? 0 : half;
    const std::size_t end = block == 0 ? half : mesh.points.size();
    out.Line(), entity(block == 0 ? 2 : 3, 1), out.Int(block == 0 ? 1 : 0), out.Size(end - begin);
    const auto point = [&](std::size_t i) {
      for (const double x : mesh.points[i]) out.Real(x);
      if (block == 0) out.Real(0.25), out.Real(0.75);
    };
    for (std::size_t i = begin; i < end; ++i) {
      out.Line(), out.Number(mesh.node_keys[i]);
      if (!v41) point(i);
    }
    for (std::size_t i = begin; v41 && i < end; ++i) out.Line(), point(i);
  }
  out.Text("\n$EndNodes\n$Elements\n");
  out.Size(blocks), out.Size(mesh.elements.size());
  if (v41) out.Size(1), out.Size(99999);
  for (std::size_t b = 0; b < blocks; ++b) {
    out.Line(), entity(dimension(b), b + 1), out.Int(mesh.elements[2 * b].kind.number), out.Size(2);
    for (std::size_t i = 2 * b; i < 2 * b + 2; ++i) {
      out.Line(), out.Number(mesh.elements[i].key);
      for (const Key node : mesh.elements[i].nodes) out.Number(node);
    }
  }
  out.Text("\n$EndElements\n");
}

/// The file of a mesh: groups 1 are named "dimension N", group 5 is not named.
inline std::string Write(const Sample& mesh, const Form& form) {
  Emitter out(form);
  out.Text(std::string("$MeshFormat\n") + form.version + (form.binary ? " 1 " : " 0 ") +
           std::to_string(form.size_bytes) + "\n");
  if (form.binary) out.Int(1), out.Text("\n");
  out.Text("$EndMeshFormat\n$Comments\nno $Nodes here\n$EndComments\n$PhysicalNames\n4\n");
  for (int d = 0; d < 4; ++d) {
    out.Text(std::to_string(d) + " 1 \"dimension " + std::to_string(d) + "\"\n");
  }
  out.Text("$EndPhysicalNames\n");
  form.version[0] == '2' ? EmitVersion2(mesh, form, out) : EmitVersion4(mesh, form, out);
  return out.Take();
}

}  // namespace sample
