#pragma once
// What the library asks the application about everything that is the application's own: materials,
// properties, loads, cases, bodies, and masses that follow from them.
//
// Conventions of all operations, unless one says otherwise:
// - `session` is the model the question is about. Numbers are in its model units.
// - An int result is 1 for yes or done and 0 for no, not done or unknown; an ITR result is a
//   record, 0 for none; a count is the number of entries put into `out`.
// - A default body answers as an application without that feature does. It touches no output, save
//   for the two operations that zero their three masses.
// - An iterator may be 0, or name a record that was removed: answer as for something unknown.
// - Colours are 0x00BBGGRR.

#include <vector>

#include "qx_db/callback/interface_slot.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/array_elements.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// The application's side of the database. The order of the operations is part of the binary
/// interface.
class QXDB_API IAppDB : public CallbackSlot<IAppDB, Registration::kLastWins> {
 public:
  virtual ~IAppDB();
  IAppDB& operator=(const IAppDB&) = default;

  // ---- must be supplied -------------------------------------------------------------------------
  // Questions whose answer only the owner of the materials can give: an application without any
  // answers 0. The numbers of modes are the application's; 99 is the one the library asks.

  /// Whether the application is in a mode. 99: elements follow removed nodes and properties also
  /// when elements alone were edited, and merged tendon nodes may have to be split.
  virtual int QueryMode(CQXDBSession* session, int mode) = 0;
  /// A material's key, 0 for none.
  virtual Key GetMatlKey(CQXDBSession* session, ITR matl) = 0;
  /// A key that no material uses yet.
  virtual Key GetMatlNewKey(CQXDBSession* session) = 0;
  /// The material of a key.
  virtual ITR MatlFindItr(CQXDBSession* session, Key key) = 0;
  /// The first material of that name.
  virtual ITR GetMatlByName(CQXDBSession* session, const CString& name) = 0;
  virtual int SetMatlName(CQXDBSession* session, ITR matl, const CString& name) = 0;
  /// The application's number of a material's kind (elastic, fluid, ...).
  virtual int GetMatlType(CQXDBSession* session, ITR matl) = 0;
  /// Whether a property uses the material.
  virtual int IsMatlUsed(CQXDBSession* session, ITR matl) = 0;
  /// Removes a material that nothing uses.
  virtual int RemoveMatlW(CQXDBSession* session, ITR matl) = 0;

  // ---- materials --------------------------------------------------------------------------------

  /// Adds materials that came with a CAD model. Returns their number.
  virtual int AddCADMatl(CQXDBSession* session, const std::vector<MATERIAL_PARAM>& materials) {
    return 0;
  }
  /// Adds one material.
  virtual ITR AddMaterial(CQXDBSession* session, MATERIAL_PARAM material) { return 0; }
  /// Gives a material to elements.
  virtual int ApplyMatl(CQXDBSession* session, ITR matl, const TArray<ITR>& elems) { return 0; }
  /// Derives the material of an interface between two materials.
  virtual int CalculateInterfaceMaterial(CQXDBSession* session, ITR first, ITR second,
                                         MATERIAL_PARAM& out) {
    return 0;
  }
  /// Renews the normal and shear stiffness of the interfaces that an element touches.
  virtual void CalculateInterfaceKnKtUpdate(CQXDBSession* session, ITR elem) {}
  virtual int UpdateInterfaceWizardMaterial(CQXDBSession* session, ITR matl) { return 0; }
  /// Mass density of an element's material.
  virtual double GetElemMatlDensity(CQXDBSession* session, ITR elem) { return 0.0; }
  virtual int GetElemMatlType(CQXDBSession* session, ITR elem) { return 0; }
  virtual int GetMatlColor(CQXDBSession* session, ITR matl) { return 0; }
  virtual int SetMatlColor(CQXDBSession* session, ITR matl, int color) { return 0; }
  /// Mass density of a material.
  virtual double GetMatlDensity(CQXDBSession* session, ITR matl) { return 0.0; }
  /// Number `item` of the material of an element (the application numbers them).
  virtual int GetMatlItemInElem(CQXDBSession* session, ITR elem, int item, double& value) {
    return 0;
  }
  virtual ITR GetMatlItrInElem(CQXDBSession* session, ITR elem) { return 0; }
  virtual ITR GetMatlItrInProp(CQXDBSession* session, ITR prop) { return 0; }
  /// The materials that a filter admits, in pool order.
  virtual int GetMatlList(CQXDBSession* session, const T_QX_MATL_FILTER& filter, TArray<ITR>& out) {
    return 0;
  }
  /// Mass of all elements of a material.
  virtual double GetMatlMass(CQXDBSession* session, ITR matl) { return 0.0; }
  virtual Key GetMatlMaxKey(CQXDBSession* session) { return 0; }
  virtual int GetMatlName(CQXDBSession* session, ITR matl, TString<64>& out) { return 0; }
  /// Tensile strength of an element's material.
  virtual int GetMatlTensilInElem(CQXDBSession* session, ITR elem, double& strength) { return 0; }
  /// Whether a material among those of the elements rules automatic ground springs out.
  virtual int HasImpossibleMatlForAutoGRSurfSpring(CQXDBSession* session,
                                                   const TArray<ITR>& elems) {
    return 0;
  }
  /// Whether a material is the same as one described.
  virtual int IsSameMatl(CQXDBSession* session, ITR matl, MATERIAL_PARAM other) { return 0; }
  virtual int IsSameMatlType(CQXDBSession* session, ITR first, ITR second) { return 0; }
  virtual int IsStructuralMatl(CQXDBSession* session, ITR matl) { return 0; }
  virtual int SetMatlInProp(CQXDBSession* session, ITR prop, ITR matl) { return 0; }
  /// The same for the property of a gauging shell.
  virtual int SetGaugingPropMatl(CQXDBSession* session, ITR prop, ITR matl) { return 0; }

  // ---- properties: finding and listing ----------------------------------------------------------

  /// The property that new elements of a type get.
  virtual ITR GetElemProp(CQXDBSession* session, int elem_type) { return 0; }
  /// The property of an element.
  virtual ITR GetElemProp(CQXDBSession* session, ITR elem) { return 0; }
  /// Kinds of property that fit no element of a dimension.
  virtual int GetExceptDimPropTypeList(CQXDBSession* session, int dimension,
                                       TArray<std::int32_t>& out) {
    return 0;
  }
  virtual ITR GetPropByName(CQXDBSession* session, const CString& name) { return 0; }
  virtual ITR PropFindItr(CQXDBSession* session, Key key) { return 0; }
  virtual Key GetPropKey(CQXDBSession* session, ITR prop) { return 0; }
  virtual Key GetPropMaxKey(CQXDBSession* session) { return 0; }
  /// A key that no property uses yet.
  virtual Key GetPropNewKey(CQXDBSession* session) { return 0; }
  /// All properties, in pool order.
  virtual int GetPropList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// The properties that a filter admits.
  virtual int GetPropList(CQXDBSession* session, const T_QX_PROP_FILTER& filter, TArray<ITR>& out) {
    return 0;
  }
  /// The properties that fit elements of a dimension (0 point to 3 solid).
  virtual int GetPropList(CQXDBSession* session, int dimension, TArray<ITR>& out) { return 0; }
  /// The names that a property list shows, for the properties that a filter admits.
  virtual void GetPropListNamebyCobxFilter(CQXDBSession* session, const T_QX_PROP_FILTER& filter,
                                           TArray<TString<64>>& out) {}
  virtual int IsPropUndefined(CQXDBSession* session, ITR prop) { return 0; }
  /// Whether elements made from a mother element use its property.
  virtual int IsUsedMotherElemProp(CQXDBSession* session, ITR elem) { return 0; }
  /// Whether a property is the same as one of a kind with these values.
  virtual int IsSameProp(CQXDBSession* session, ITR prop, int type, TArray<double> values) {
    return 0;
  }

  // ---- properties: contents ---------------------------------------------------------------------

  virtual CString GetPropName(CQXDBSession* session, ITR prop) { return {}; }
  /// The same by key.
  virtual CString GetPropName(CQXDBSession* session, Key key) { return {}; }
  /// Name and kind, as lists show them.
  virtual CString GetPropNameIncludeType(CQXDBSession* session, ITR prop) { return {}; }
  virtual int SetPropName(CQXDBSession* session, ITR prop, const CString& name) { return 0; }
  virtual int GetPropColor(CQXDBSession* session, ITR prop) { return 0; }
  virtual int SetPropColor(CQXDBSession* session, ITR prop, int color) { return 0; }
  virtual void GetPropNameColor(CQXDBSession* session, ITR prop, CString& name, int& color) {}
  /// The coordinate system a property is described in.
  virtual ITR GetPropCord(CQXDBSession* session, ITR prop) { return 0; }
  /// Dimension of the elements a property fits.
  virtual int GetPropDim(CQXDBSession* session, ITR prop) { return 0; }
  virtual int GetPropElasticLink(CQXDBSession* session, ITR prop) { return 0; }
  virtual int GetPropRigidLink(CQXDBSession* session, ITR prop) { return 0; }
  /// Thickness by property.
  virtual int GetPropThickness(CQXDBSession* session, ITR prop, double& thickness) { return 0; }
  /// Thickness of an element, with what changes its property's for it.
  virtual int GetPropThickness(CQXDBSession* session, const tagTElem& elem, double& thickness) {
    return 0;
  }
  /// Thickness of a plane-strain element.
  virtual int Get2DPropPlstrnThickness(CQXDBSession* session, ITR elem, double& thickness) {
    return 0;
  }
  /// Mean thickness of a surface element.
  virtual double GetFaceThickAvg(CQXDBSession* session, ITR elem) { return 0.0; }
  /// The same, of its property alone.
  virtual double GetFaceThickAvgFromProp(CQXDBSession* session, ITR elem) { return 0.0; }
  /// The application's number of a property's kind.
  virtual int GetPropType(CQXDBSession* session, ITR prop) { return 0; }
  /// The same of an element's property.
  virtual int GetPropertyType(CQXDBSession* session, ITR elem) { return 0; }
  virtual void SetPropertyType(CQXDBSession* session, ITR prop, int type) {}

  // ---- properties: making and removing ----------------------------------------------------------

  /// Adds a property of a kind with that kind's values.
  virtual ITR AddProperty(CQXDBSession* session, int type, CString name, TArray<double> values) {
    return 0;
  }
  virtual ITR MakeElasticLinkProp(CQXDBSession* session, const double stiffness[6]) { return 0; }
  virtual ITR MakeInterfaceProp(CQXDBSession* session, ITR matl) { return 0; }
  virtual ITR MakePntSpringProp(CQXDBSession* session, const double stiffness[6]) { return 0; }
  virtual ITR MakePropPlate(CQXDBSession* session, ITR matl, double thickness) { return 0; }
  virtual ITR MakePropSolid(CQXDBSession* session, ITR matl) { return 0; }
  virtual ITR MakePropSpring(CQXDBSession* session, CString name, TArray<double> stiffness) {
    return 0;
  }
  /// A property of point springs that stand for the ground under nodes.
  virtual ITR MakeNodePsPrProp(CQXDBSession* session, TArray<ITR> nodes, double stiffness) {
    return 0;
  }
  /// The section at a place of a taper beam.
  virtual ITR MakeTaperSection(CQXDBSession* session, const T_QX_TAPER_D& taper) { return 0; }
  /// A property that only holds a place, for elements of a dimension.
  virtual ITR MakeUndefinedProp(CQXDBSession* session, int dimension) { return 0; }
  /// The same under a key.
  virtual ITR MakeUndefinedProp(CQXDBSession* session, int dimension, Key key) { return 0; }
  /// Removes a property that nothing uses.
  virtual int RemovePropW(CQXDBSession* session, ITR prop) { return 0; }
  /// What the application does when special properties come into being by activation.
  virtual void OnAfterActiveSprop(CQXDBSession* session, unsigned long flags) {}

  // ---- volumes and masses -----------------------------------------------------------------------

  /// Volume of a line element: length by the area of its section.
  virtual double GetBeamVolume(CQXDBSession* session, ITR elem) { return 0.0; }
  /// Volume of a surface element: area by thickness.
  virtual double GetFaceVolume(CQXDBSession* session, ITR elem) { return 0.0; }
  /// Volume under a part of one, of this area.
  virtual double GetFaceVolume(CQXDBSession* session, ITR elem, double area) { return 0.0; }
  /// Mass of elements together.
  virtual double GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems) { return 0.0; }
  /// The same along the global axes; point masses may differ by axis.
  virtual void GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems, double& mass_x,
                           double& mass_y, double& mass_z) {
    mass_x = mass_y = mass_z = 0.0;
  }
  /// Mass of a special element.
  virtual double GetSpecialElemMass(CQXDBSession* session, ITR elem) { return 0.0; }
  virtual void GetSpecialElemMass(CQXDBSession* session, ITR elem, double& mass_x, double& mass_y,
                                  double& mass_z) {
    mass_x = mass_y = mass_z = 0.0;
  }
  /// Centre of mass of elements together; 0 when they have none.
  virtual int GetMassCenter(CQXDBSession* session, const TArray<ITR>& elems, double center[3]) {
    return 0;
  }

  // ---- elements and geometry --------------------------------------------------------------------

  /// Axes of an element's material, three unit vectors in global coordinates.
  virtual int Calc2DElemMatlVector(CQXDBSession* session, ITR elem, double axes[3][3]) { return 0; }
  /// Angle in degrees from a surface element's x axis to its material's.
  virtual int Calc2DElemVectorAngle(CQXDBSession* session, ITR elem, double& angle_deg) {
    return 0;
  }
  virtual int Calc3DElemMatlVector(CQXDBSession* session, ITR elem, double axes[3][3]) { return 0; }
  /// The same of an element that is in no pool yet.
  virtual int Calc3DElemMatlVector(CQXDBSession* session, const tagTElem& elem, double axes[3][3]) {
    return 0;
  }
  /// Perimeter of a line element's section.
  virtual int Get1DElemPerimeter(CQXDBSession* session, ITR elem, double& perimeter) { return 0; }
  virtual int Get2DNormalVec(CQXDBSession* session, ITR elem, double normal[3]) { return 0; }
  virtual int GetCADItemCenter(CQXDBSession* session, ITR item, double center[3]) { return 0; }
  /// Elements that contain all of the nodes.
  virtual int GetElemListByCommonNodeItr(CQXDBSession* session, const TArray<ITR>& nodes,
                                         TArray<ITR>& out) {
    return 0;
  }
  /// Elements that contain a node.
  virtual int GetElemListByNodeItr(CQXDBSession* session, ITR node, TArray<ITR>& out) { return 0; }
  /// Elements that contain any of the nodes.
  virtual int GetElemListByNodeItrArray(CQXDBSession* session, const TArray<ITR>& nodes,
                                        TArray<ITR>& out) {
    return 0;
  }
  /// All geometry items.
  virtual int GetGeomAll(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// The geometry item that a path of names leads to.
  virtual ITR GetGeomItr(CQXDBSession* session, CString path) { return 0; }
  virtual int GetInfiniteType(CQXDBSession* session, ITR elem) { return 0; }
  /// Type of the element that a pile stands in.
  virtual int GetPileMotherElemType(CQXDBSession* session, ITR elem) { return 0; }
  /// Elements and sets of elements in tied contacts.
  virtual int GetTiedCtElemList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  virtual int GetTiedCtElemSetList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// Whether a line element is offset from its nodes.
  virtual int IsE1DOffset(CQXDBSession* session, ITR elem) { return 0; }
  /// Whether the application's own data use a record of a type code.
  virtual int IsUsed(CQXDBSession* session, int type, ITR item) { return 0; }
  virtual int LoadExtDBMset(CQXDBSession* session, ITR mesh_set) { return 0; }
  virtual int MakeCfd2StruFSIInterface(CQXDBSession* session, const TArray<ITR>& mesh_sets) {
    return 0;
  }
  virtual void SetMeshCfd2Stru(CQXDBSession* session, ITR mesh_set) {}
  virtual int MakePntSpringElem(CQXDBSession* session, const TArray<ITR>& nodes, ITR prop) {
    return 0;
  }
  /// Adds a node at a point.
  virtual void MakeNewNode(CQXDBSession* session, const tagTVector3<double>& position, ITR& node) {}
  /// Stiffness of the point springs on a surface, node by node.
  virtual void GetPntPsprValueOnSurf(CQXDBSession* session, const TArray<tagTElemSide>& sides,
                                     TArray<double>& out) {}
  virtual void GetPntPsprDampingValueOnSurf(CQXDBSession* session,
                                            const TArray<tagTElemSide>& sides,
                                            TArray<double>& out) {}
  /// Drops the elements that are not infinite ones from a selection.
  virtual int SelFilterInfinite(CQXDBSession* session, TArray<ITR>& elems) { return 0; }
  /// Adds or removes markers after geometry came or went.
  virtual int AddDelMarkerByGeomState(CQXDBSession* session, ITR geometry, int state) { return 0; }

  // ---- special elements, joints and markers -----------------------------------------------------

  /// What kind of special element it is, as numbers, names and lists show it.
  virtual CString GetSpecialElemType(CQXDBSession* session, ITR elem) { return {}; }
  virtual CString GetSpecialElemTypeName(CQXDBSession* session, ITR elem) { return {}; }
  virtual CString GetSpecialElemAdditionalInfo(CQXDBSession* session, ITR elem) { return {}; }
  /// Text of a special element's quantity, with its unit.
  virtual CString GetSpecialElemQttStr(CQXDBSession* session, ITR elem) { return {}; }
  /// The multi-body element of a key, and a walk over all of them: the head position, then
  /// MElemNext until the position is 0.
  virtual ITR FindMElem(CQXDBSession* session, Key key) { return 0; }
  virtual ITR MElemGetHeadPosition(CQXDBSession* session) { return 0; }
  virtual void MElemNext(CQXDBSession* session, ITR& pos) {}
  virtual void MElemSetParamIdx(CQXDBSession* session, ITR pos, std::uint32_t index) {}
  virtual int GetMElemSize(CQXDBSession* session) { return 0; }
  virtual ITR GetMElemJointItr(CQXDBSession* session, ITR elem) { return 0; }
  virtual int GetMElemJointList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  virtual int GetMElemJointName(CQXDBSession* session, ITR joint, TString<64>& out) { return 0; }
  /// The marker of a key, and the same walk over markers.
  virtual ITR FindMarker(CQXDBSession* session, Key key) { return 0; }
  virtual ITR MarkerGetHeadPosition(CQXDBSession* session) { return 0; }
  virtual void MarkerNext(CQXDBSession* session, ITR& pos) {}
  virtual void MarkerSetParamIdx(CQXDBSession* session, ITR pos, std::uint32_t index) {}
  virtual int GetMarkerInfo(CQXDBSession* session, ITR marker, T_QX_MARKER_INFO& out) { return 0; }
  virtual int GetMarkerSize(CQXDBSession* session) { return 0; }
  /// Whether the bolts between two groups of sides can be made, and making them.
  virtual int CheckGBolt(CQXDBSession* session, TArray<tagTElemSide> heads,
                         TArray<tagTElemSide> nuts) {
    return 0;
  }
  virtual int MakeGBolt(CQXDBSession* session, TArray<tagTElemSide> heads,
                        TArray<tagTElemSide> nuts) {
    return 0;
  }

  // ---- rigid and flexible bodies ----------------------------------------------------------------

  /// Makes elements a rigid body. Without bodies of its own an application has nothing to refuse.
  virtual int RigidBodyAdd(CQXDBSession* session, const TArray<ITR>& elems) { return 1; }
  virtual int ExistRigidBody(CQXDBSession* session, ITR elem) { return 0; }
  virtual int IsFlexibleBody(CQXDBSession* session, ITR body) { return 0; }
  virtual int IsThereRigidModel(CQXDBSession* session) { return 0; }
  /// Index of the body next to a point, -1 for none.
  virtual int GetNearestBody(CQXDBSession* session, const double point[3]) { return -1; }
  /// Derives what the application keeps of its rigid bodies anew.
  virtual void GenerateAllRigidInfo(CQXDBSession* session) {}
  virtual ITR AddPart(CQXDBSession* session, const CString& name) { return 0; }

  // ---- loads, cases and analysis ----------------------------------------------------------------

  virtual ITR AddDisplace(CQXDBSession* session, TArray<ITR> nodes, TArray<double> values) {
    return 0;
  }
  virtual ITR AddEnergy(CQXDBSession* session, ITR set, double energy) { return 0; }
  virtual ITR AddGravity(CQXDBSession* session, CString name, tagTVector3<double> acceleration) {
    return 0;
  }
  virtual ITR AddInitVelocity(CQXDBSession* session, const TArray<ITR>& nodes,
                              const double velocity[3]) {
    return 0;
  }
  /// Gravity in the form that explicit solvers take.
  virtual ITR AddLsdynaGravity(CQXDBSession* session, ITR function, const double direction[3]) {
    return 0;
  }
  virtual ITR AddMasterCase(CQXDBSession* session, CString name, int type) { return 0; }
  virtual ITR AddSubCase(CQXDBSession* session, ITR master_case, CString name, TArray<ITR> sets) {
    return 0;
  }
  virtual ITR MakeBoundaryCondition(CQXDBSession* session, CString set_name, TArray<ITR> nodes,
                                    int dof_mask) {
    return 0;
  }
  /// Fixes nodes for the application's own use; not undoable.
  virtual int PrivateFixedConstraint(CQXDBSession* session, const TArray<ITR>& nodes) { return 0; }
  /// Contact pairs.
  virtual int GetCtppList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  virtual CString GetFRsetName(CQXDBSession* session, ITR set) { return {}; }
  /// Results that a view starts with: name, kinds of a group, and kinds with their names.
  virtual int GetDefaultVresName(int kind, CString& out) { return 0; }
  virtual const std::vector<int>* GetDefaultVresType(int group) { return nullptr; }
  virtual void GetDefaultVresType(int group, TArray<std::int32_t>& kinds,
                                  TArray<TString<128>>& names, CPOHCase* results) {}
  /// Number of the diagram that line results are first drawn with.
  virtual int GetDefaultDiagramDir(CQXDBSession* session) { return 1; }
  virtual int GetMcasResCsysInfo(CQXDBSession* session, ITR master_case, T_QX_RES_OUTCSYS_D& out) {
    return 0;
  }
  /// The case that a case belongs to.
  virtual ITR GetParentItrByCaseItr(CQXDBSession* session, ITR item) { return 0; }
  virtual ITR GetVcasItrByKey(CQXDBSession* session, Key key) { return 0; }
  virtual int GetStageCount(CQXDBSession* session, ITR stage_set) { return 0; }
  virtual int GetStageSetCount(CQXDBSession* session) { return 0; }

  // ---- the model and the application ------------------------------------------------------------

  /// Whether a command may run now: its number and two that it brings along.
  virtual int AllowCommand(int command, int first, int second) { return 0; }
  virtual int Is2DModel(CQXDBSession* session) { return 0; }
  virtual int Is3DModel(CQXDBSession* session) { return 0; }
  virtual int IsGravZ(CQXDBSession* session) { return 0; }
  /// Global axis that gravity acts along: 0 x, 1 y, 2 z.
  virtual int GetGravityDir(CQXDBSession* session) { return 1; }
  /// The record behind an object of the post-processor.
  virtual ITR GetDBItrByQXPostObj(CQXDBSession* session, const void* object) { return 0; }
  /// Three coordinates of a node, and of all nodes with their number. Owned by the document.
  virtual const double* GetNodePos(CDocument* document, Key node) { return nullptr; }
  virtual const double* GetNodePosArr(CDocument* document, int& count) { return nullptr; }
  /// Replaces keys of an external store by iterators, in place.
  virtual void Transferto_extkey_2_dbitr(CQXDBSession* session, int type, TArray<ITR>& items) {}

 protected:
  IAppDB();
  IAppDB(const IAppDB&) = default;
};

QX_CALLBACKS_END

}  // namespace qx
