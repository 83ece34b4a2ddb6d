#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

#include "qx_db/qx_db.h"

namespace qx {
namespace {

/// A record's name, then its gateway fields in the order of its description, each
/// "NAME|type|label". The type is left out where any gateway type may stand, the label where it is
/// the name with blanks for underscores. Spelling is as the outside knows it.
constexpr const char* kExpectedFields = R"(
tagTActiveElemSet
  NAME; ELEM_KEY_ARRAY
tagTBset
  NAME; DESC
tagTCFDPset
  NAME; DESC
tagTCFDset
  NAME; DESC
tagTCord
  NAME; METHOD|Integer; TYPE|Integer; REF_CORD; PLANE|Integer; ORIGIN; PT_AXIS; PT_PLAIN;
  ROT_ORDER|Integer; ROT_ANGLE
tagTDatum
  SHOW|Bool; TYPE|Integer; NAME; COLOR|Integer; vPOSITION; VECTOR; REF
tagTDefSize
  NAME; USE|Bool; TYPE|Integer; VALUE|Real; FIRST_SHOW|Bool
tagTDset
  NAME; DESC
tagTE1DOffset
  NAME; ELEM_KEY_ARRAY; END_A_OFFSET|Bool; A_W1|Real; A_W2|Real; A_W3|Real; END_B_OFFSET|Bool;
  B_W1|Real; B_W2|Real; B_W3|Real; CSYS_TYPE|Integer; REF_SECTION|Bool
tagTE1DRelease
  NAME; ELEM_KEY_ARRAY; bENDA_T1|Bool; bENDA_T2|Bool; bENDA_T3|Bool; bENDA_R1|Bool; bENDA_R2|Bool;
  bENDA_R3|Bool; bENDB_T1|Bool; bENDB_T2|Bool; bENDB_T3|Bool; bENDB_R1|Bool; bENDB_R2|Bool;
  bENDB_R3|Bool; TYPE|Integer; dENDA_T1|Real; dENDA_T2|Real; dENDA_T3|Real; dENDA_R1|Real;
  dENDA_R2|Real; dENDA_R3|Real; dENDB_T1|Real; dENDB_T2|Real; dENDB_T3|Real; dENDB_R1|Real;
  dENDB_R2|Real; dENDB_R3|Real
tagTE2DMatlCsys
  NAME; ELEM_KEY_ARRAY; TYPE|Integer; COORDINATE; CSYS_TYPE|Integer; ANGLE|Real; REF_VECTOR
tagTE2DOffset
  NAME; ELEM_KEY_ARRAY; FUNC; OFFSET_DISTANCE|Real
tagTE2DRelease
  NAME; ELEM_KEY_ARRAY; NODE_KEY_ARRAY; CORD; FX|Bool; FY|Bool; FZ|Bool; MX|Bool; MY|Bool; MZ|Bool
tagTE2DThick
  NAME; ELEM_KEY_ARRAY; UNIFORM|Integer; FUNC; T1|Real; T2|Real; T3|Real; T4|Real
tagTE3DMatlCsys
  LOCAL_VECTOR_X; LOCAL_VECTOR_Y; LOCAL_VECTOR_Z
tagTE3DScaleFac
  TENSILE_MOD; THERMAL_EXP; NU; RHO|Real
tagTEcrd
  ELEM_TYPE|Integer; TYPE|Integer; REF_NODE|Integer; REF; BETA_ANGLE|Real; CORD; INTER_X
tagTElem
  TYPE|Integer; NODE_KEY_ARRAY; PROPERTY|Integer
tagTEset
  NAME; DESC
tagTFRset
  NAME; DESC
tagTFunc
  NAME; FVAL; FVALY; FVALZ; TYPE|Integer; INDEPVAR|Integer; REF_CORD; NUMOFVAR|Integer;
  INDEPVAR2|Integer; FVAL2||FVA2L; EXTRAPOLATION|Integer; VAR|Real; EXTRAPOLATIONY|Integer;
  VALUE|Real; EXTRAPOLATIONZ|Integer; NXINDEP|Integer; NXDEP|Integer
tagTGElem
  GKEY|Integer; ELEM0; ELEM1; ELEM2; ELEM3; ELEM4; ELEM5; ELEM6; ELEM7; ELEM8; ELEM9; ELEM10;
  ELEM11; NODE|Integer
tagTGElemHead
  GKEY|Integer; GEDATA
tagTGeom
  NAME; COLOR|Integer; HITEM|Integer; PROP|Integer; TYPE|Integer; GSET; MATL|Integer
tagTGKey
  INSTANCE|Integer; BODY|Integer; ITEM_ITEM|Integer; ITEM_TYPE|Integer; GEOM
tagTGrid
  SHOW|Bool; NUM_TYPE|Integer; LOC_TYPE|Integer; WIDTH|Real; NUM|Integer; SHOW_WCS|Bool
tagTGset
  NAME; DESC
tagTInfo
  TARGET_KEY|Integer; TYPE|Integer; SHOW|Bool; MESHSHOW|Bool; MODE|Integer
tagTLdfs
  NAME; ELEM_TYPE|Integer; POINT1; POINT2; POINT3
tagTLset
  NAME; DESC
tagTLyct
  NAME; FACE|Integer; EDGE; LAYER|Integer; H|Real; RHO|Real
tagTMeshCsys
  TYPE|Integer|UI_TYPE; MESH_KEY|Integer; CSYS_KEY|Integer
tagTMset
  NAME; NODE_KEY_ARRAY; ELEM_KEY_ARRAY; COLOR|Integer; CONNECT_NODE_SIZE|Integer;
  PARENT_MSET_KEY|Integer; CONNECT|Bool; GEOM_KEY|Integer
tagTNode
  POS||X, Y, Z
tagTPink
  PILE_ELEM|Integer; LINK_ELEM|Integer
tagTPropCtrl
  NAME; TYPE|Integer; GKEY; PROP|Integer; STATE|Integer
tagTSprop
  bDOF; bTEMP|Bool; CORD_TYPE|Integer; REF_NODE|Integer; POS_DIR; CORD; bLARGE_ROT|Bool;
  RIGID_TYPE|Integer; DOF_LINE1|Integer; DOF_LINE2|Integer; WIEGHT_DOF; MASS_VALUE|Real;
  DI11|Real; DI21|Real; DI22|Real; DI31|Real; DI32|Real; DI33|Real; NODE_OFFSET|Bool|bNODE OFFSET;
  POS_OFFSET; WEIGHT|Real; DAMP_LOC_TYPE|Integer; bDOF; DAMP_LOCATE|Real; LOC_CORD;
  METHOD|Integer; ELEM_FIRST|Integer; ELEM_SECOND|Integer; WELD_TYPE|Integer; WELD_NODE|Integer;
  WELD_PROP_A|Integer; WELD_PROP_B|Integer; bWELD_CSYS|Bool|dWELD CSYS; WELD_CSYS||WELDC SYS;
  MASS_X|Real; MASS_Y|Real; MASS_Z|Real; MOTHER_ELEM|Integer; MOTHER_ELEM2|Integer; GAUTHINK;
  nINFINITE|Integer; bLOCATION|Bool; LOCATION; ELEM_VBAR_MOTHER; bSELF_WEIGHT|Bool;
  FLUID_BND|Integer
tagTSprs
  NAME; GKEY; BODY_GKEY; STATE|Integer
tagTSzct
  NAME; GKEY; GKEY_REV||GKEYREV; BODY_GKEY; METHOD|Integer; INT_PARAM; DBL_PARAM; CUSTOM_SEED;
  CUSTOM_RATIO; ADAPTIVE|Bool; STATE|Integer; LOCKED
tagTTEset
  NAME; DESC
tagTTset
  NAME; DESC
tagTTTset
  NAME; DESC
tagTViewPoint
  TYPE|Integer; NAME; VER|Integer; ZOOM_FACTOR|Real; CENTER; QUATER
)";

constexpr const char* kAnyType = "any";

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// "name|type|label" in full.
std::string FullField(const std::string& text) {
  std::istringstream parts(text);
  std::string name, type, label;
  std::getline(parts, name, '|');
  std::getline(parts, type, '|');
  std::getline(parts, label);
  if (type.empty()) type = kAnyType;
  if (label.empty()) {
    label = name;
    std::replace(label.begin(), label.end(), '_', ' ');
  }
  return name + '|' + type + '|' + label;
}

std::map<std::string, std::vector<std::string>> ExpectedFields() {
  std::map<std::string, std::vector<std::string>> records;
  std::istringstream lines(kExpectedFields);
  std::string record;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    if (!line.starts_with(' ')) {
      record = line;
      continue;
    }
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ';');) {
      records[record].push_back(FullField(Trimmed(field)));
    }
  }
  return records;
}

/// The members of what a pool describes, as "name|type|label". The type of a field whose type is
/// not fixed is only checked to be one.
std::vector<std::string> DescribedFields(DPoolBase& pool,
                                         const std::vector<std::string>& expected) {
  static const std::set<std::string_view> kTypes = {"Null",   "String", "Integer", "Real",
                                                    "Object", "Array",  "Bool"};
  dbgateway::DataBase document;
  dbgateway::Field description = document.NewDescription("fields");
  EXPECT_TRUE(pool.DescAPI(&description));
  document.AddDescription(description);
  std::vector<std::string> fields;
  document.FindCollection("fields").value().ForEach(
      [&](Key, std::string_view name, const dbgateway::Record& field) {
        const std::string label(field.Find("__DESC__").Text());
        std::string type(field.Find("__TYPE__").Text());
        EXPECT_TRUE(kTypes.contains(type)) << name << " is of type \"" << type << '"';
        const std::string any = std::string(name) + '|' + kAnyType + '|' + label;
        const std::size_t at = fields.size();
        if (at < expected.size() && expected[at] == any) type = kAnyType;
        fields.push_back(std::string(name) + '|' + type + '|' + label);
      });
  return fields;
}

TEST(GatewayFields, EveryRecordDescribesItselfAsWrittenDown) {
  auto expected = ExpectedFields();
  CQXDBSession session(AddStandardPools);
  for (DPoolBase* pool : session.Pools()) {
    SCOPED_TRACE(pool->GetSchema().Name());
    // A record that is not written down has no gateway form and describes nothing.
    const std::vector<std::string> fields = expected[pool->GetSchema().Name()];
    EXPECT_EQ(DescribedFields(*pool, fields), fields);
    expected.erase(pool->GetSchema().Name());
  }
  for (const auto& [record, fields] : expected) ADD_FAILURE() << "no pool holds " << record;
}

}  // namespace
}  // namespace qx
