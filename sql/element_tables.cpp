// Tables with a row for each element: what follows from its nodes.

#include <algorithm>
#include <cmath>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/model/standard_pools.h"

#include "sql/derived_tables.h"
#include "sql/record_source.h"

namespace qx::sql {
namespace {

/// A column of an element, and how its value is found.
struct Fact {
  Column column;
  std::function<void(sqlite3_context*, Link&, ITR, const Units&)> give;
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const tagTElem& ElementOf(ITR item) {
  return static_cast<const tagTElem&>(*KeyedSetBase::RecordAt(item));
}

bool AreThere(std::span<const ITR> nodes) {
  return !nodes.empty() &&
         std::all_of(nodes.begin(), nodes.end(), [](ITR node) { return NodeAt(node); });
}

/// A measure of an element; the library says 0 also of one that lacks a node, which has none.
double MeasureOf(ITR item, double value) {
  if (value != 0) return value;
  const tagTElem& element = ElementOf(item);
  const bool is_whole = element.nodes.GetSize() >= ElementTopology(element.type).Nodes() &&
                        AreThere({element.nodes.data(), element.nodes.size()});
  return is_whole ? value : kNaN;
}

void GiveNumber(sqlite3_context* to, double value) {
  std::isnan(value) ? sqlite3_result_null(to) : sqlite3_result_double(to, value);
}

std::vector<Column> ColumnsOf(const std::vector<Fact>& facts) {
  std::vector<Column> columns = {{.name = "element", .meaning = "key of the element"}};
  for (const Fact& fact : facts) columns.push_back(fact.column);
  columns.push_back(UnitColumn());
  return columns;
}

class ElementTable final : public Table {
 public:
  ElementTable(Link& link, std::string name, std::string meaning, std::vector<Fact> facts)
      : Table(std::move(name), ColumnsOf(facts)),
        link_(link),
        meaning_(std::move(meaning)),
        facts_(std::move(facts)) {
    access_.pool = link.Session().GetDataPool(code::kElem);
    access_.key = 0;
    access_.unit = static_cast<int>(facts_.size()) + 1;
  }

  std::string Meaning() const override { return meaning_; }
  int BestIndex(sqlite3_index_info& info) override {
    return RecordSource::BestIndex(access_, info);
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }

 private:
  class Reading final : public RecordCursor {
   public:
    explicit Reading(const ElementTable& table)
        : RecordCursor(table.link_, table.access_), table_(table) {}

    void Value(sqlite3_context* to, int column) override {
      if (!source_.IsThere()) return;
      if (column == 0) return sqlite3_result_int(to, KeyOf(source_.Item()));
      const auto index = static_cast<std::size_t>(column - 1);
      if (index >= table_.facts_.size()) return source_.TheUnits().GiveNames(to);
      table_.facts_[index].give(to, table_.link_, source_.Item(), source_.TheUnits());
    }

   private:
    const ElementTable& table_;
  };

  Link& link_;
  const std::string meaning_;
  const std::vector<Fact> facts_;
  Access access_;
};

/// A real column of one category.
Fact Real(std::string name, std::string meaning, int category,
          std::function<double(Link&, ITR)> value) {
  Column column{.name = std::move(name), .type = ColumnType::kReal, .meaning = std::move(meaning)};
  column.category = category;
  column.has_unit = category != unit::kNone;
  if (const UnitCategory* found = FindUnitCategory(category); found && column.has_unit) {
    column.unit = found->name;
  }
  return {std::move(column), [category, value = std::move(value)](sqlite3_context* to, Link& link,
                                                                  ITR item, const Units& units) {
            GiveNumber(to, units.FromModel(category, value(link, item)));
          }};
}

// ---- quality ------------------------------------------------------------------------------------

/// Quantity of a measure of an element of that shape.
int CategoryOfMeasure(Measure measure, CornerShape shape) {
  if (measure == Measure::kDimension) return unit::kLength;
  if (measure != Measure::kSize && measure != Measure::kJacobian) return unit::kNone;
  if (shape == CornerShape::kLine) return unit::kLength;
  return shape < CornerShape::kTetrahedron ? unit::kArea : unit::kVolume;
}

std::vector<Fact> QualityFacts() {
  std::vector<Fact> facts;
  for (const MeasureInfo& info : Measures()) {
    Column column{.name = std::string(info.name), .type = ColumnType::kReal};
    std::replace(column.name.begin(), column.name.end(), '-', '_');
    column.meaning =
        std::string(info.label) + (info.high_is_bad ? ", high is bad" : ", low is bad");
    column.unit = info.unit == "deg" ? "angle, always in deg" : std::string(info.unit);
    if (CategoryOfMeasure(info.measure, CornerShape::kHexahedron) != unit::kNone) {
      column.unit = info.measure == Measure::kDimension ? "length" : "length, area or volume";
      column.has_unit = true;
    }
    facts.push_back(
        {column, [&info](sqlite3_context* to, Link& link, ITR item, const Units& units) {
           const double value = link.QualityOf(info, item);
           const CornerShape shape = topology::ShapeOf(ElementOf(item).type);
           GiveNumber(to, units.FromModel(CategoryOfMeasure(info.measure, shape), value));
         }});
  }
  return facts;
}

// ---- sizes and axes -----------------------------------------------------------------------------

std::vector<Fact> MeasureFacts() {
  const auto of_dimension = [](int dimension) {
    return [dimension](Link& link, ITR item) {
      const bool fits = topology::DimensionOf(ElementOf(item).type) == dimension;
      if (!fits) return kNaN;
      return MeasureOf(item, CQXMeshUtil(&link.Session()).GetElemQuantity(item));
    };
  };
  std::vector<Fact> facts;
  facts.push_back({{.name = "dimension", .meaning = "0 point to 3 solid, 4 special, 5 unknown"},
                   [](sqlite3_context* to, Link&, ITR item, const Units&) {
                     sqlite3_result_int(to, topology::DimensionOf(ElementOf(item).type));
                   }});
  facts.push_back(Real("length", "of a line from its ends", unit::kLength, of_dimension(1)));
  facts.push_back(Real("area", "of a surface from its corners", unit::kArea, of_dimension(2)));
  facts.push_back(Real("volume",
                       "of a solid from its corners, negative when inside out; of lines and "
                       "surfaces by section and thickness",
                       unit::kVolume, [](Link& link, ITR item) {
                         return MeasureOf(item, CQXMeshUtil(&link.Session()).GetElemVolume(item));
                       }));
  facts.push_back(Real("min_length", "shortest distance of neighbours in its list of nodes",
                       unit::kLength, [](Link& link, ITR item) {
                         const CQXMeshUtil util(&link.Session());
                         return MeasureOf(item, util.GetElemMinLength({item, 0}));
                       }));
  for (int axis = 0; axis < 3; ++axis) {
    facts.push_back(Real(std::string("center_") + "xyz"[axis], "mean of its nodes", unit::kLength,
                         [axis](Link& link, ITR item) {
                           double center[3];
                           const int done =
                               CQXMeshUtil(&link.Session()).GetElemCenter(item, center);
                           return done ? center[axis] : kNaN;
                         }));
  }
  return facts;
}

std::vector<Fact> AxesFacts() {
  std::vector<Fact> facts;
  for (int axis = 0; axis < 3; ++axis) {
    for (int part = 0; part < 3; ++part) {
      const std::string name = std::string{"xyz"[axis]} + '_' + "xyz"[part];
      facts.push_back(Real(name,
                           std::string("global ") + "xyz"[part] + " of the unit vector of local " +
                               "xyz"[axis] + ", NULL when not determined",
                           unit::kNone, [axis, part](Link& link, ITR item) {
                             double axes[3][3]{};
                             const int done =
                                 Pool<tagTElem>(link.Session()).GetElemLocalVector(item, axes);
                             return done ? axes[axis][part] + 0.0 : kNaN;
                           }));
    }
  }
  return facts;
}

// ---- sides --------------------------------------------------------------------------------------

/// A row for each face of a solid and each edge of a surface.
class SideTable final : public Table {
 public:
  explicit SideTable(Link& link) : Table("element_side", MakeColumns()), link_(link) {
    access_.pool = link.Session().GetDataPool(code::kElem);
    access_.key = kElementColumn;
    access_.unit = kUnitColumn;
  }

  std::string Meaning() const override { return "faces of solids and edges of surfaces"; }
  int BestIndex(sqlite3_index_info& info) override {
    const int result = RecordSource::BestIndex(access_, info);
    info.estimatedRows *= 5;
    return result;
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }

 private:
  enum : int {
    kElementColumn,
    kSideColumn,
    kKindColumn,
    kNodesColumn,
    kSizeColumn,
    kCenterColumn,
    kNormalColumn = kCenterColumn + 3,
    kUnitColumn = kNormalColumn + 3
  };

  static std::vector<Column> MakeColumns() {
    std::vector<Column> columns = {
        {.name = "element", .meaning = "key of the element"},
        {.name = "side", .meaning = "number of the face or edge, from 0 on"},
        {.name = "kind",
         .type = ColumnType::kText,
         .meaning = "face of a solid, edge of a surface"},
        {.name = "nodes", .meaning = "how many it has"},
        {.name = "size",
         .type = ColumnType::kReal,
         .meaning = "area of a face, length of an edge",
         .unit = "area or length",
         .has_unit = true}};
    for (const char part : {'x', 'y', 'z'}) {
      Column& column = columns.emplace_back();
      column.name = std::string("center_") + part;
      column.type = ColumnType::kReal;
      column.meaning = "mean of its corners";
      column.unit = "length";
      column.category = unit::kLength;
      column.has_unit = true;
    }
    for (const char part : {'x', 'y', 'z'}) {
      Column& column = columns.emplace_back();
      column.name = std::string("normal_") + part;
      column.type = ColumnType::kReal;
      column.meaning = "unit normal of a face; of an edge the direction out of its surface";
    }
    columns.push_back(UnitColumn());
    return columns;
  }

  static int SidesOf(ITR item) {
    const ElementTopology shape(ElementOf(item).type);
    const bool has =
        shape.Class() == topology::kSolidClass || shape.Class() == topology::kSurfaceClass;
    return has ? shape.Sides() : 0;
  }

  class Reading final : public PartCursor {
   public:
    explicit Reading(const SideTable& table)
        : PartCursor(table.link_, table.access_), table_(table) {}

    sqlite3_int64 RowId() override {
      return source_.IsThere() ? sqlite3_int64{KeyOf(source_.Item())} << 8 | place_ : -1;
    }

    void Value(sqlite3_context* to, int column) override {
      const ITR item = source_.Item();
      if (!source_.IsThere()) return;
      const ElementTopology shape(ElementOf(item).type);
      const bool is_face = shape.Class() == topology::kSolidClass;
      const tagTElemSide side{item, Side()};
      const int kind = is_face ? CQXMeshUtil::kFaceSide : CQXMeshUtil::kEdgeSide;
      const CQXMeshUtil util(&table_.link_.Session());
      const Units& units = source_.TheUnits();
      switch (column) {
        case kElementColumn:
          return sqlite3_result_int(to, KeyOf(item));
        case kSideColumn:
          return sqlite3_result_int(to, Side());
        case kKindColumn:
          return sqlite3_result_text(to, is_face ? "face" : "edge", 4, SQLITE_STATIC);
        case kNodesColumn:
          return sqlite3_result_int64(
              to, static_cast<sqlite3_int64>(is_face ? shape.Face(Side(), true).size()
                                                     : shape.Edge(Side(), true).size()));
        case kSizeColumn:
          if (!AreThere(SideNodes(kind, side, is_face).Nodes())) return sqlite3_result_null(to);
          return sqlite3_result_double(
              to, is_face ? units.FromModel(unit::kArea, util.GetFaceArea(side))
                          : units.FromModel(unit::kLength, util.GetEdgeLength(side)));
        case kUnitColumn:
          return units.GiveNames(to);
        default:
          break;
      }
      double vector[3]{};
      if (column < kNormalColumn) {
        const int done = util.GetElemCenter(kind, side, vector);
        const double part = vector[column - kCenterColumn];
        return done ? sqlite3_result_double(to, units.FromModel(unit::kLength, part))
                    : sqlite3_result_null(to);
      }
      const int done = is_face ? util.GetElemSideNormal(side, vector)
                               : util.GetElemEdgeSideOutward(side, vector);
      return done ? sqlite3_result_double(to, vector[column - kNormalColumn] + 0.0)
                  : sqlite3_result_null(to);
    }

   private:
    std::int64_t Parts() const override { return SidesOf(source_.Item()); }
    std::int32_t Side() const { return static_cast<std::int32_t>(place_); }

    const SideTable& table_;
  };

  Link& link_;
  Access access_;
};

}  // namespace

std::vector<std::unique_ptr<Table>> MakeElementTables(Link& link) {
  std::vector<std::unique_ptr<Table>> tables;
  const auto add = [&](const char* name, const char* meaning, std::vector<Fact> facts) {
    tables.push_back(std::make_unique<ElementTable>(link, name, meaning, std::move(facts)));
  };
  add("element_quality", "how well elements are shaped; NULL where a shape lacks a measure",
      QualityFacts());
  add("element_measure", "sizes and centres of elements", MeasureFacts());
  add("element_axes", "local axes of elements", AxesFacts());
  tables.push_back(std::make_unique<SideTable>(link));
  return tables;
}

}  // namespace qx::sql
