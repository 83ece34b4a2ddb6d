#include "exchange/abaqus/inp_kinds.h"

#include <algorithm>
#include <iterator>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

using enum InpFamily;

/// Names that are a family and the number of nodes: C3D8R.
struct FamilyName {
  std::string_view prefix;
  InpFamily family;
  int dimension;
};
constexpr FamilyName kFamilies[] = {
    {"C3D", kSolid, 3},         {"DC3D", kSolid, 3},        {"DCC3D", kSolid, 3},
    {"AC3D", kSolid, 3},        {"EC3D", kSolid, 3},        {"FC3D", kSolid, 3},
    {"F3D", kSolid, 3},         {"Q3D", kSolid, 3},         {"EMC3D", kSolid, 3},
    {"COH3D", kSolid, 3},       {"SC", kSolid, 3},          {"CSS", kSolid, 3},
    {"CPS", kPlaneStress, 2},   {"DC2D", kPlaneStress, 2},  {"DCC2D", kPlaneStress, 2},
    {"AC2D", kPlaneStress, 2},  {"CPE", kPlaneStrain, 2},   {"CPEG", kPlaneStrain, 2},
    {"COH2D", kPlaneStrain, 2}, {"CAX", kAxisymmetric, 2},  {"CGAX", kAxisymmetric, 2},
    {"DCAX", kAxisymmetric, 2}, {"ACAX", kAxisymmetric, 2}, {"COHAX", kAxisymmetric, 2},
    {"S", kShell, 2},           {"DS", kShell, 2},          {"R3D", kShell, 2},
    {"M3D", kMembrane, 2},      {"SFM3D", kMembrane, 2},    {"T2D", kTruss, 1},
    {"T3D", kTruss, 1},         {"DC1D", kTruss, 1},        {"AC1D", kTruss, 1},
    {"FRAME2D", kBeam, 1},      {"FRAME3D", kBeam, 1},      {"R2D", kBeam, 1},
    {"RAX", kBeam, 1},          {"RB2D", kBeam, 1},         {"RB3D", kBeam, 1},
};

/// Names of their own; of those with a suffix, the part before it.
struct OwnName {
  std::string_view name;
  std::int32_t type;
  InpFamily family;
  bool has_suffix;
};
constexpr OwnName kOwnNames[] = {
    {"STRI3", element::kTri3, kShell, false},
    {"STRI65", element::kTri6, kShell, false},
    {"B21", element::kLine2, kBeam, true},
    {"B22", element::kLine3, kBeam, true},
    {"B23", element::kLine2, kBeam, true},
    {"B31", element::kLine2, kBeam, true},
    {"B32", element::kLine3, kBeam, true},
    {"B33", element::kLine2, kBeam, true},
    {"PIPE21", element::kLine2, kBeam, true},
    {"PIPE22", element::kLine3, kBeam, true},
    {"PIPE31", element::kLine2, kBeam, true},
    {"PIPE32", element::kLine3, kBeam, true},
    {"ELBOW31", element::kLine2, kBeam, true},
    {"ELBOW32", element::kLine3, kBeam, false},
    {"SAX1", element::kLine2, kBeam, true},
    {"SAX2", element::kLine3, kBeam, true},
    {"DSAX1", element::kLine2, kBeam, false},
    {"DSAX2", element::kLine3, kBeam, false},
    {"MAX1", element::kLine2, kBeam, false},
    {"MAX2", element::kLine3, kBeam, false},
    {"MASS", element::kPoint, kMass, false},
    {"ROTARYI", element::kPoint, kMass, false},
    {"HEATCAP", element::kPoint, kMass, false},
    {"SPRING1", element::kPoint, kSpring, false},
    {"SPRING2", element::kLine2, kSpring, false},
    {"SPRINGA", element::kLine2, kSpring, false},
    {"DASHPOT1", element::kPoint, kSpring, false},
    {"DASHPOT2", element::kLine2, kSpring, false},
    {"DASHPOTA", element::kLine2, kSpring, false},
    {"CONN2D2", element::kLine2, kConnector, false},
    {"CONN3D2", element::kLine2, kConnector, false},
    {"JOINTC", element::kLine2, kConnector, false},
    {"GAPUNI", element::kLine2, kConnector, true},
    {"GAPCYL", element::kLine2, kConnector, false},
    {"GAPSPHER", element::kLine2, kConnector, false},
    {"ITSCYL", element::kLine2, kConnector, false},
    {"ITSUNI", element::kLine2, kConnector, false},
};

/// What so many nodes form; higher orders than ours by the member of their family that has no
/// nodes inside.
struct Shape {
  int dimension;
  std::size_t nodes;
  std::int32_t type;
};
constexpr Shape kShapes[] = {
    {1, 2, element::kLine2},      {1, 3, element::kLine3},    {2, 3, element::kTri3},
    {2, 4, element::kQuad4},      {2, 6, element::kTri6},     {2, 8, element::kQuad8},
    {2, 9, element::kQuad8},      {3, 4, element::kTet4},     {3, 5, element::kPyramid5},
    {3, 6, element::kWedge6},     {3, 8, element::kHex8},     {3, 10, element::kTet10},
    {3, 13, element::kPyramid13}, {3, 15, element::kWedge15}, {3, 18, element::kWedge15},
    {3, 20, element::kHex20},     {3, 27, element::kHex20},
};

bool IsLetter(char c) { return c >= 'A' && c <= 'Z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Names to give elements that have none.
struct Given {
  std::int32_t type;
  InpFamily family;
  std::string_view name;
};
constexpr Given kGiven[] = {
    {element::kPoint, kMass, "MASS"},        {element::kPoint, kSpring, "SPRING1"},
    {element::kLine2, kBeam, "B31"},         {element::kLine3, kBeam, "B32"},
    {element::kLine2, kTruss, "T3D2"},       {element::kLine3, kTruss, "T3D3"},
    {element::kLine2, kSpring, "SPRINGA"},   {element::kLine2, kConnector, "CONN3D2"},
    {element::kTri3, kShell, "S3"},          {element::kTri6, kShell, "STRI65"},
    {element::kQuad4, kShell, "S4"},         {element::kQuad8, kShell, "S8R"},
    {element::kTri3, kMembrane, "M3D3"},     {element::kTri6, kMembrane, "M3D6"},
    {element::kQuad4, kMembrane, "M3D4"},    {element::kQuad8, kMembrane, "M3D8"},
    {element::kTri3, kPlaneStress, "CPS3"},  {element::kTri6, kPlaneStress, "CPS6"},
    {element::kQuad4, kPlaneStress, "CPS4"}, {element::kQuad8, kPlaneStress, "CPS8"},
    {element::kTri3, kPlaneStrain, "CPE3"},  {element::kTri6, kPlaneStrain, "CPE6"},
    {element::kQuad4, kPlaneStrain, "CPE4"}, {element::kQuad8, kPlaneStrain, "CPE8"},
    {element::kTet4, kSolid, "C3D4"},        {element::kTet10, kSolid, "C3D10"},
    {element::kPyramid5, kSolid, "C3D5"},    {element::kWedge6, kSolid, "C3D6"},
    {element::kWedge15, kSolid, "C3D15"},    {element::kHex8, kSolid, "C3D8"},
    {element::kHex20, kSolid, "C3D20"},
};

struct Keyword {
  std::string_view name;
  InpKeys keys;
};
using enum InpKeys;
constexpr Keyword kKeysOfKeywords[] = {
    {"BOUNDARY", kNodeFirst},
    {"CLOAD", kNodeFirst},
    {"CFLUX", kNodeFirst},
    {"CFILM", kNodeFirst},
    {"CRADIATE", kNodeFirst},
    {"TEMPERATURE", kNodeFirst},
    {"FIELD", kNodeFirst},
    {"KINEMATICCOUPLING", kNodeFirst},
    {"DISTRIBUTINGCOUPLING", kNodeFirst},
    {"MONITOR", kParameters},
    {"NODALTHICKNESS", kNodeFirst},
    {"DLOAD", kElementFirst},
    {"DFLUX", kElementFirst},
    {"FILM", kElementFirst},
    {"RADIATE", kElementFirst},

    {"MPC", kNodesBehind},
    {"EQUATION", kEquation},
    {"RIGIDBODY", kParameters},
    {"COUPLING", kParameters},
    {"PRE-TENSIONSECTION", kParameters},
    {"INITIALCONDITIONS", kByType},
};

/// Keywords whose data names sets and numbers that are no keys.
constexpr std::string_view kWithoutKeys[] = {"AMPLITUDE",
                                             "ASSEMBLY",
                                             "BASEMOTION",
                                             "BEAMGENERALSECTION",
                                             "BEAMSECTION",
                                             "BUCKLE",
                                             "CHANGEFRICTION",
                                             "CONDUCTIVITY",
                                             "CONNECTORBEHAVIOR",
                                             "CONNECTORDAMPING",
                                             "CONNECTORELASTICITY",
                                             "CONNECTORSECTION",
                                             "CONTACT",
                                             "CONTACTCONTROLS",
                                             "CONTACTFILE",
                                             "CONTACTINCLUSIONS",
                                             "CONTACTOUTPUT",
                                             "CONTACTPAIR",
                                             "CONTACTPRINT",
                                             "CONTACTPROPERTYASSIGNMENT",
                                             "CONTROLS",
                                             "COUPLEDTEMPERATURE-DISPLACEMENT",
                                             "CREEP",
                                             "DAMPING",
                                             "DASHPOT",
                                             "DENSITY",
                                             "DEPVAR",
                                             "DISTRIBUTING",
                                             "DISTRIBUTIONTABLE",
                                             "DSFLUX",
                                             "DSLOAD",
                                             "DYNAMIC",
                                             "ELASTIC",
                                             "ELEMENTOUTPUT",
                                             "ELFILE",
                                             "ELPRINT",
                                             "EMBEDDEDELEMENT",
                                             "ENDASSEMBLY",
                                             "ENDINSTANCE",
                                             "ENDPART",
                                             "ENDSTEP",
                                             "ENERGYOUTPUT",
                                             "EXPANSION",
                                             "FREQUENCY",
                                             "FRICTION",
                                             "GAPCONDUCTANCE",
                                             "GENERAL",
                                             "HEADING",
                                             "HEATTRANSFER",
                                             "HYPERELASTIC",
                                             "HYPERFOAM",
                                             "INSTANCE",
                                             "KINEMATIC",
                                             "LATENTHEAT",
                                             "MASS",
                                             "MATERIAL",
                                             "MEMBRANESECTION",
                                             "MODALDAMPING",
                                             "MODALDYNAMIC",
                                             "NODEFILE",
                                             "NODEOUTPUT",
                                             "NODEPRINT",
                                             "ORIENTATION",
                                             "OUTPUT",
                                             "PARAMETER",
                                             "PART",
                                             "PHYSICALCONSTANTS",
                                             "PLASTIC",
                                             "PREPRINT",
                                             "RESTART",
                                             "RIGIDSURFACE",
                                             "ROTARYINERTIA",
                                             "SECTIONCONTROLS",
                                             "SECTIONPRINT",
                                             "SFILM",
                                             "SHELLGENERALSECTION",
                                             "SHELLSECTION",
                                             "SOLIDSECTION",
                                             "SPECIFICHEAT",
                                             "SPRING",
                                             "SRADIATE",
                                             "STATIC",
                                             "STEADYSTATEDYNAMICS",
                                             "STEP",
                                             "SURFACEBEHAVIOR",
                                             "SURFACEINTERACTION",
                                             "SURFACESECTION",
                                             "SYSTEM",
                                             "TIE",
                                             "TIMEPOINTS",
                                             "TRANSFORM",
                                             "TRANSVERSESHEARSTIFFNESS",
                                             "USERMATERIAL",
                                             "VISCO",
                                             "VISCOELASTIC",
                                             "VISCOSITY",
                                             "BULKVISCOSITY",
                                             "FIXEDMASSSCALING",
                                             "INERTIARELIEF",
                                             "FILEOUTPUT",
                                             "CLEARANCE",
                                             "CONTACTDAMPING",
                                             "CONTACTINTERFERENCE",
                                             "COHESIVESECTION",
                                             "GASKETSECTION",
                                             "INCREMENTATIONOUTPUT",
                                             "CHANGECONTACTTYPE",
                                             "PARTICLECHARACTERISTICS"};

constexpr std::string_view kConditions[] = {"BOUNDARY",
                                            "CLOAD",
                                            "CFLUX",
                                            "CFILM",
                                            "CRADIATE",
                                            "TEMPERATURE",
                                            "FIELD",
                                            "DLOAD",
                                            "DFLUX",
                                            "DSLOAD",
                                            "DSFLUX",
                                            "FILM",
                                            "SFILM",
                                            "RADIATE",
                                            "SRADIATE",
                                            "INITIALCONDITIONS",
                                            "BASEMOTION",
                                            "CONNECTORLOAD",
                                            "CONNECTORMOTION",
                                            "INERTIARELIEF",
                                            "MPC",
                                            "EQUATION",
                                            "RIGIDBODY",
                                            "COUPLING",
                                            "KINEMATICCOUPLING",
                                            "DISTRIBUTINGCOUPLING",
                                            "TIE",
                                            "PRE-TENSIONSECTION"};

template <class List>
bool IsIn(const List& list, std::string_view name) {
  return std::find(std::begin(list), std::end(list), name) != std::end(list);
}

}  // namespace

std::optional<InpElementType> FindInpElement(std::string_view name) {
  for (const OwnName& own : kOwnNames) {
    const bool is_it = own.has_suffix
                           ? name.starts_with(own.name) &&
                                 (name.size() == own.name.size() || IsLetter(name[own.name.size()]))
                           : name == own.name;
    if (!is_it) continue;
    const auto nodes = static_cast<std::size_t>(FindElementType(own.type)->nodes);
    return InpElementType{own.type, nodes, nodes, own.family};
  }
  for (const FamilyName& family : kFamilies) {
    if (!name.starts_with(family.prefix)) continue;
    std::string_view rest = name.substr(family.prefix.size());
    std::size_t nodes = 0;
    while (!rest.empty() && IsDigit(rest[0]) && nodes < 100) {
      nodes = nodes * 10 + static_cast<std::size_t>(rest[0] - '0');
      rest.remove_prefix(1);
    }
    if (nodes == 0 || (!rest.empty() && !IsLetter(rest[0]))) continue;
    for (const Shape& shape : kShapes) {
      if (shape.dimension != family.dimension || shape.nodes != nodes) continue;
      InpElementType found{shape.type, nodes, nodes, family.family};
      if (nodes == 15 && rest.starts_with('V')) found.most_nodes = 18;
      if (nodes == 27) found.nodes = 21;
      return found;
    }
  }
  return std::nullopt;
}

std::size_t InpNode(std::int32_t type, std::size_t place) {
  if (type != element::kLine3 || place == 0) return place;
  return place == 1 ? 2 : 1;
}

std::string_view InpElementName(std::int32_t type, InpFamily family) {
  for (const Given& given : kGiven) {
    if (given.type == type && given.family == family) return given.name;
  }
  return {};
}

InpKeys InpKeysOf(std::string_view keyword) {
  for (const Keyword& known : kKeysOfKeywords) {
    if (known.name == keyword) return known.keys;
  }
  return IsIn(kWithoutKeys, keyword) ? kNone : kUnknown;
}

InpKeys InpKeysOfType(std::string_view, std::string_view type) {
  constexpr std::string_view kOfNodes[] = {"TEMPERATURE",  "VELOCITY",    "ROTATINGVELOCITY",
                                           "FIELD",        "PRESSURE",    "PORE PRESSURE",
                                           "DISPLACEMENT", "ACCELERATION"};
  constexpr std::string_view kOfElements[] = {"STRESS", "HARDENING", "SOLUTION", "PLASTIC STRAIN"};
  return IsIn(kOfNodes, type) ? kNodeFirst : IsIn(kOfElements, type) ? kElementFirst : kUnknown;
}

bool IsInpCondition(std::string_view keyword) { return IsIn(kConditions, keyword); }

}  // namespace qx::exchange
