#pragma once
// The callback interfaces: what the library asks of its application and what it tells it. This is
// all that the author of a host reads; docs/host.md tells how to begin, docs/callbacks.md lists
// every operation with its default and its callers, host/ is a host that works.
//
// Derive from the interfaces that matter to you, make one object of each class before a model is
// opened, and keep them until the last is closed. Where there is no object, the library goes on as
// if the defaults had answered. In the order of this header:
//
//   IQXDbInterface   the process: which session is active, may it be changed, progress   supply 6
//   IUpdateDB        the model changed; refreshes the selection lists (combo_refresh.h)  supply 1
//   ICustomMcas      analysis cases                                                      supply 8
//   IFuncDB          function types of your own
//   ICustomPostDB    pictures of results
//   IRenderConnect   temporary shapes in your views
//   IElemSideDetect  base of a detector of element sides: no slot, as many as you like
//   IAppDB           materials, properties, masses and all else that is yours            supply 9
//
// What is to be supplied has no default because none would be true of every application; it stands
// first in its class, save ICustomMcas::IsFatigue, whose place is fixed. All other operations can
// be left out until you have the feature that they ask about.
//
// Conventions of all operations, unless one says otherwise:
// - `session` is the model the question is about. Numbers are in its model units.
// - An int result is 1 for yes or done and 0 for no, not done or unknown; an ITR result is a
//   record, 0 for none; a count is the number of entries put into `out`.
// - A default body answers as an application without that feature does. It touches no output, save
//   for the two operations that zero their three masses.
// - An iterator may be 0, or name a record that was removed: answer as for something unknown.
// - Colours are 0x00BBGGRR.
// - The order of the operations of a class is part of the binary interface.
// - Threads: objects are made and ended on the main thread, before any model is open and after. A
//   call comes on the thread that works with `session`; where an application has sessions on
//   several threads, snapshots among them, its operations must bear that. Those that are told of
//   changes or show something concern the user interface, and so the thread of the sessions bound
//   to it.

#include <vector>

#include "qx_db/callback/interface_slot.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/array_elements.h"

namespace qx {

QX_CALLBACKS_BEGIN

// ==== the process ================================================================================

/// The process that the library runs in: all operations must be supplied. The first object that is
/// made stays registered for good, so keep it to the end.
class QXDB_API IQXDbInterface : public CallbackSlot<IQXDbInterface, Registration::kFirstWins> {
 public:
  virtual ~IQXDbInterface();
  IQXDbInterface& operator=(const IQXDbInterface&) = default;

  /// Whether tendon nodes that a merge joined must be split again in this session. Asked after
  /// elements were processed for removed nodes, in the modes that IAppDB::QueryMode(99) tells.
  virtual int NeedSplitMergedTendonNode(CQXDBSession* session) = 0;
  /// The session that commands act on, null when no model is open.
  virtual CQXDBSession* GetActiveSession() = 0;
  /// Folder of the material libraries, empty when there is none.
  virtual CString GetMaterialFolder() = 0;
  /// Whether the model may not be changed.
  virtual int IsReadOnly(CQXDBSession* session) = 0;
  /// Shows how far a long operation has come, from 0 to 1.
  virtual void ShowProgress(CQXDBSession* session, double fraction) = 0;
  /// Whether the user wants a long operation to stop.
  virtual int IsCancelled(CQXDBSession* session) = 0;

 protected:
  IQXDbInterface();
  IQXDbInterface(const IQXDbInterface&) = default;
};

// ==== changes ====================================================================================

/// Told after a change: of every session, by the library itself, after each commit, undo, redo,
/// load and roll-back of an outermost transaction, with the change flags of the pools concerned
/// still set. The session cannot be edited meanwhile. Calls come on the thread that drives the
/// session.
class QXDB_API IUpdateDB : public CallbackSlot<IUpdateDB, Registration::kLastWins> {
 public:
  virtual ~IUpdateDB();
  IUpdateDB& operator=(const IUpdateDB&) = default;

  /// Must be supplied: brings the application's own views of the model up to date. Not called by
  /// the library; an override of UpdateDB may use it.
  virtual void UpdateView(CQXDBSession* session) = 0;
  /// Refreshes the selection lists of the session whose records changed since the flags of its
  /// pools were cleared, family by family in the order of ComboRefreshOrder. `item` is not used
  /// here. Nothing happens for a null session. The lists of a session without views
  /// (CQXDBSession::AddView), which any thread may drive, are none.
  virtual void UpdateDB(CQXDBSession* session, ITR item);

 protected:
  IUpdateDB();
  IUpdateDB(const IUpdateDB&) = default;

 private:
  static void Tell(CQXDBSession& session);
};

// ==== analysis cases =============================================================================

/// Questions about analysis cases. Unlike that of the other interfaces its constructor is public.
class QXDB_API ICustomMcas : public CallbackSlot<ICustomMcas, Registration::kLastWins> {
 public:
  ICustomMcas();
  ICustomMcas(const ICustomMcas&) = default;
  ICustomMcas& operator=(const ICustomMcas&) = default;
  virtual ~ICustomMcas();

  // ---- must be supplied -------------------------------------------------------------------------

  /// All analysis cases; returns their number.
  virtual int GetMcasList(CQXDBSession* session, TArray<ITR>& out) = 0;
  /// The case of a key, 0 for none.
  virtual ITR McasFindItr(CQXDBSession* session, Key key) = 0;
  /// A case's name.
  virtual int GetMcasName(CQXDBSession* session, ITR mcas, TString<64>& out) = 0;
  /// The application's number of a case's kind (static, modal, ...); 0 for an unknown case.
  virtual int GetMcasType(CQXDBSession* session, ITR mcas) = 0;
  /// The steps of a case, in order; returns their number.
  virtual int GetScasList(CQXDBSession* session, ITR mcas, TArray<ITR>& out) = 0;
  /// Whether a case depends on its history.
  virtual int IsNonlinear(CQXDBSession* session, ITR mcas) = 0;
  /// Whether a case runs over time.
  virtual int IsTransient(CQXDBSession* session, ITR mcas) = 0;

  // ---- fatigue and optimisation -----------------------------------------------------------------

  /// The kinds of fatigue analysis of a case; returns their number.
  virtual int GetFatType(CQXDBSession* session, ITR mcas, TArray<std::int32_t>& out) { return 0; }
  /// Must be supplied: whether a case is a fatigue analysis.
  virtual int IsFatigue(CQXDBSession* session, ITR mcas) = 0;
  /// Whether a case is a design-of-experiments study.
  virtual int IsDOEOpt(CQXDBSession* session, ITR mcas) { return 0; }
  /// Whether a case is an optimisation.
  virtual int IsOpt(CQXDBSession* session, ITR mcas) { return 0; }
};

// ==== functions ==================================================================================

/// Function types of the application.
class QXDB_API IFuncDB : public CallbackSlot<IFuncDB, Registration::kLastWins> {
 public:
  virtual ~IFuncDB();
  IFuncDB& operator=(const IFuncDB&) = default;

  /// Appends the application's data types to a list of function types. Returns 1 when it added any.
  virtual int AddDataTypeInCombo(CQXDBSession* session, CComboBox* combo) { return 0; }

 protected:
  IFuncDB();
  IFuncDB(const IFuncDB&) = default;
};

// ==== results ====================================================================================

/// Post-processing of the application.
class QXDB_API ICustomPostDB : public CallbackSlot<ICustomPostDB, Registration::kLastWins> {
 public:
  virtual ~ICustomPostDB();
  ICustomPostDB& operator=(const ICustomPostDB&) = default;

  /// Draws one picture for each result into `folder`, names the files in `files`, and returns 1.
  virtual int MakeResultImageFile(TArray<CVResult*>& results, TArray<TString<64>>& files,
                                  T_RPT_POST_IMAGE_PARAM* look, CString folder, CString extension) {
    return 0;
  }
  /// Saves the picture of a document's current view.
  virtual int MakeSaveResultImageFile(CQXDocBase* document, T_SAVE_PIC_D* picture) { return 0; }

 protected:
  ICustomPostDB();
  ICustomPostDB(const ICustomPostDB&) = default;
};

// ==== views ======================================================================================

/// Drawing in the application's views.
class QXDB_API IRenderConnect : public CallbackSlot<IRenderConnect, Registration::kLastWins> {
 public:
  virtual ~IRenderConnect();
  IRenderConnect& operator=(const IRenderConnect&) = default;

  /// Draws a shape under an identifier until it is replaced: `lines` and `triangles` are indices
  /// into `points`, by two and by three; `rgba` is four bytes of colour. Returns 1 when drawn.
  virtual int AddTempShape(CQXViewBase* view, std::int32_t id, TArray<tagTVector3<float>>& points,
                           TArray<std::int32_t>& lines, TArray<std::int32_t>& triangles,
                           unsigned char* rgba, float line_width) {
    return 0;
  }

 protected:
  IRenderConnect();
  IRenderConnect(const IRenderConnect&) = default;
};

// ==== element sides ==============================================================================

/// Derived from by the application; there may be any number. It has no operation of its own.
/// Requires that the document outlives it.
class QXDB_API IElemSideDetect {
 public:
  /// Everything is null for a null document.
  explicit IElemSideDetect(CQXDocBase* document);
  virtual ~IElemSideDetect();
  IElemSideDetect(const IElemSideDetect&) = default;
  IElemSideDetect& operator=(const IElemSideDetect&) = default;

 protected:
  CQXDocBase* m_pDoc;
  CQXDBSession* m_pSession;
  /// The session's units: detection tolerances are lengths that a user gave.
  CQXUnitCtrl* m_pUnits;
};

// ==== the application ============================================================================

/// The application's side of the database.
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
  /// Renames a material.
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
  /// Renews what a wizard for interfaces derived from a material.
  virtual int UpdateInterfaceWizardMaterial(CQXDBSession* session, ITR matl) { return 0; }
  /// Mass density of an element's material.
  virtual double GetElemMatlDensity(CQXDBSession* session, ITR elem) { return 0.0; }
  /// The number of the kind of an element's material.
  virtual int GetElemMatlType(CQXDBSession* session, ITR elem) { return 0; }
  /// A material's colour.
  virtual int GetMatlColor(CQXDBSession* session, ITR matl) { return 0; }
  /// Gives a material a colour.
  virtual int SetMatlColor(CQXDBSession* session, ITR matl, int color) { return 0; }
  /// Mass density of a material.
  virtual double GetMatlDensity(CQXDBSession* session, ITR matl) { return 0.0; }
  /// Number `item` of the material of an element (the application numbers them).
  virtual int GetMatlItemInElem(CQXDBSession* session, ITR elem, int item, double& value) {
    return 0;
  }
  /// The material of an element, by way of its property.
  virtual ITR GetMatlItrInElem(CQXDBSession* session, ITR elem) { return 0; }
  /// The material of a property.
  virtual ITR GetMatlItrInProp(CQXDBSession* session, ITR prop) { return 0; }
  /// The materials that a filter admits, in pool order.
  virtual int GetMatlList(CQXDBSession* session, const T_QX_MATL_FILTER& filter, TArray<ITR>& out) {
    return 0;
  }
  /// Mass of all elements of a material.
  virtual double GetMatlMass(CQXDBSession* session, ITR matl) { return 0.0; }
  /// The largest key of a material.
  virtual Key GetMatlMaxKey(CQXDBSession* session) { return 0; }
  /// A material's name.
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
  /// Whether two materials are of one kind.
  virtual int IsSameMatlType(CQXDBSession* session, ITR first, ITR second) { return 0; }
  /// Whether a material is one for structures, rather than a fluid.
  virtual int IsStructuralMatl(CQXDBSession* session, ITR matl) { return 0; }
  /// Gives a property a material.
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
  /// The first property of that name.
  virtual ITR GetPropByName(CQXDBSession* session, const CString& name) { return 0; }
  /// The property of a key.
  virtual ITR PropFindItr(CQXDBSession* session, Key key) { return 0; }
  /// A property's key, 0 for none.
  virtual Key GetPropKey(CQXDBSession* session, ITR prop) { return 0; }
  /// The largest key of a property.
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
  /// Whether a property only holds a place (MakeUndefinedProp).
  virtual int IsPropUndefined(CQXDBSession* session, ITR prop) { return 0; }
  /// Whether elements made from a mother element use its property.
  virtual int IsUsedMotherElemProp(CQXDBSession* session, ITR elem) { return 0; }
  /// Whether a property is the same as one of a kind with these values.
  virtual int IsSameProp(CQXDBSession* session, ITR prop, int type, TArray<double> values) {
    return 0;
  }

  // ---- properties: contents ---------------------------------------------------------------------

  /// A property's name.
  virtual CString GetPropName(CQXDBSession* session, ITR prop) { return {}; }
  /// The same by key.
  virtual CString GetPropName(CQXDBSession* session, Key key) { return {}; }
  /// Name and kind, as lists show them.
  virtual CString GetPropNameIncludeType(CQXDBSession* session, ITR prop) { return {}; }
  /// Renames a property.
  virtual int SetPropName(CQXDBSession* session, ITR prop, const CString& name) { return 0; }
  /// A property's colour.
  virtual int GetPropColor(CQXDBSession* session, ITR prop) { return 0; }
  /// Gives a property a colour.
  virtual int SetPropColor(CQXDBSession* session, ITR prop, int color) { return 0; }
  /// Both at once; left as they are for an unknown property.
  virtual void GetPropNameColor(CQXDBSession* session, ITR prop, CString& name, int& color) {}
  /// The coordinate system a property is described in.
  virtual ITR GetPropCord(CQXDBSession* session, ITR prop) { return 0; }
  /// Dimension of the elements a property fits.
  virtual int GetPropDim(CQXDBSession* session, ITR prop) { return 0; }
  /// Whether a property is one of elastic links.
  virtual int GetPropElasticLink(CQXDBSession* session, ITR prop) { return 0; }
  /// Whether a property is one of rigid links.
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
  /// Makes a property one of another kind.
  virtual void SetPropertyType(CQXDBSession* session, ITR prop, int type) {}

  // ---- properties: making and removing ----------------------------------------------------------

  /// Adds a property of a kind with that kind's values.
  virtual ITR AddProperty(CQXDBSession* session, int type, CString name, TArray<double> values) {
    return 0;
  }
  /// A property of elastic links: stiffness along and about three axes.
  virtual ITR MakeElasticLinkProp(CQXDBSession* session, const double stiffness[6]) { return 0; }
  /// A property of interfaces.
  virtual ITR MakeInterfaceProp(CQXDBSession* session, ITR matl) { return 0; }
  /// A property of point springs: stiffness along and about three axes.
  virtual ITR MakePntSpringProp(CQXDBSession* session, const double stiffness[6]) { return 0; }
  /// A property of plates.
  virtual ITR MakePropPlate(CQXDBSession* session, ITR matl, double thickness) { return 0; }
  /// A property of solids.
  virtual ITR MakePropSolid(CQXDBSession* session, ITR matl) { return 0; }
  /// A property of springs between two nodes.
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
  /// The same along the global axes.
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
  /// The same of a solid.
  virtual int Calc3DElemMatlVector(CQXDBSession* session, ITR elem, double axes[3][3]) { return 0; }
  /// The same of an element that is in no pool yet.
  virtual int Calc3DElemMatlVector(CQXDBSession* session, const tagTElem& elem, double axes[3][3]) {
    return 0;
  }
  /// Perimeter of a line element's section.
  virtual int Get1DElemPerimeter(CQXDBSession* session, ITR elem, double& perimeter) { return 0; }
  /// Unit normal of a surface element.
  virtual int Get2DNormalVec(CQXDBSession* session, ITR elem, double normal[3]) { return 0; }
  /// Centre of a geometry item.
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
  /// The number of the kind of an infinite element, 0 for any other.
  virtual int GetInfiniteType(CQXDBSession* session, ITR elem) { return 0; }
  /// Type of the element that a pile stands in.
  virtual int GetPileMotherElemType(CQXDBSession* session, ITR elem) { return 0; }
  /// Elements in tied contacts.
  virtual int GetTiedCtElemList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// Sets of elements in tied contacts.
  virtual int GetTiedCtElemSetList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// Whether a line element is offset from its nodes.
  virtual int IsE1DOffset(CQXDBSession* session, ITR elem) { return 0; }
  /// Whether the application's own data use a record of a type code.
  virtual int IsUsed(CQXDBSession* session, int type, ITR item) { return 0; }
  /// Brings in the elements of a mesh set that an external store holds.
  virtual int LoadExtDBMset(CQXDBSession* session, ITR mesh_set) { return 0; }
  /// Makes the interface over which a flow loads a structure.
  virtual int MakeCfd2StruFSIInterface(CQXDBSession* session, const TArray<ITR>& mesh_sets) {
    return 0;
  }
  /// Makes a mesh set of a flow one of the structure.
  virtual void SetMeshCfd2Stru(CQXDBSession* session, ITR mesh_set) {}
  /// Makes a point spring of a property at each node.
  virtual int MakePntSpringElem(CQXDBSession* session, const TArray<ITR>& nodes, ITR prop) {
    return 0;
  }
  /// Adds a node at a point.
  virtual void MakeNewNode(CQXDBSession* session, const tagTVector3<double>& position, ITR& node) {}
  /// Stiffness of the point springs on a surface, node by node.
  virtual void GetPntPsprValueOnSurf(CQXDBSession* session, const TArray<tagTElemSide>& sides,
                                     TArray<double>& out) {}
  /// Damping of the same.
  virtual void GetPntPsprDampingValueOnSurf(CQXDBSession* session,
                                            const TArray<tagTElemSide>& sides,
                                            TArray<double>& out) {}
  /// Drops the elements that are not infinite ones from a selection.
  virtual int SelFilterInfinite(CQXDBSession* session, TArray<ITR>& elems) { return 0; }
  /// Adds or removes markers after geometry came or went.
  virtual int AddDelMarkerByGeomState(CQXDBSession* session, ITR geometry, int state) { return 0; }

  // ---- special elements, joints and markers -----------------------------------------------------

  /// The short name of a special element's kind, as tables show it.
  virtual CString GetSpecialElemType(CQXDBSession* session, ITR elem) { return {}; }
  /// The name of that kind, in full.
  virtual CString GetSpecialElemTypeName(CQXDBSession* session, ITR elem) { return {}; }
  /// What else a table says of a special element.
  virtual CString GetSpecialElemAdditionalInfo(CQXDBSession* session, ITR elem) { return {}; }
  /// Text of a special element's quantity, with its unit.
  virtual CString GetSpecialElemQttStr(CQXDBSession* session, ITR elem) { return {}; }
  /// The multi-body element of a key.
  virtual ITR FindMElem(CQXDBSession* session, Key key) { return 0; }
  /// The first multi-body element; MElemNext leads from one to the next.
  virtual ITR MElemGetHeadPosition(CQXDBSession* session) { return 0; }
  /// The next one; 0 after the last.
  virtual void MElemNext(CQXDBSession* session, ITR& pos) {}
  /// Keeps a number with one for the time of a computation.
  virtual void MElemSetParamIdx(CQXDBSession* session, ITR pos, std::uint32_t index) {}
  /// How many there are.
  virtual int GetMElemSize(CQXDBSession* session) { return 0; }
  /// The joint of a multi-body element.
  virtual ITR GetMElemJointItr(CQXDBSession* session, ITR elem) { return 0; }
  /// All joints.
  virtual int GetMElemJointList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// A joint's name.
  virtual int GetMElemJointName(CQXDBSession* session, ITR joint, TString<64>& out) { return 0; }
  /// The marker of a key.
  virtual ITR FindMarker(CQXDBSession* session, Key key) { return 0; }
  /// The first marker; MarkerNext leads from one to the next.
  virtual ITR MarkerGetHeadPosition(CQXDBSession* session) { return 0; }
  /// The next one; 0 after the last.
  virtual void MarkerNext(CQXDBSession* session, ITR& pos) {}
  /// Keeps a number with one for the time of a computation.
  virtual void MarkerSetParamIdx(CQXDBSession* session, ITR pos, std::uint32_t index) {}
  /// Where a marker is and what it is fixed to.
  virtual int GetMarkerInfo(CQXDBSession* session, ITR marker, T_QX_MARKER_INFO& out) { return 0; }
  /// How many there are.
  virtual int GetMarkerSize(CQXDBSession* session) { return 0; }
  /// Whether bolts between two groups of sides can be made.
  virtual int CheckGBolt(CQXDBSession* session, TArray<tagTElemSide> heads,
                         TArray<tagTElemSide> nuts) {
    return 0;
  }
  /// Makes them.
  virtual int MakeGBolt(CQXDBSession* session, TArray<tagTElemSide> heads,
                        TArray<tagTElemSide> nuts) {
    return 0;
  }

  // ---- rigid and flexible bodies ----------------------------------------------------------------

  /// Makes elements a rigid body. Without bodies of its own an application has nothing to refuse.
  virtual int RigidBodyAdd(CQXDBSession* session, const TArray<ITR>& elems) { return 1; }
  /// Whether an element belongs to a rigid body.
  virtual int ExistRigidBody(CQXDBSession* session, ITR elem) { return 0; }
  /// Whether a body is flexible.
  virtual int IsFlexibleBody(CQXDBSession* session, ITR body) { return 0; }
  /// Whether the model has rigid bodies.
  virtual int IsThereRigidModel(CQXDBSession* session) { return 0; }
  /// Index of the body next to a point, -1 for none.
  virtual int GetNearestBody(CQXDBSession* session, const double point[3]) { return -1; }
  /// Derives what the application keeps of its rigid bodies anew.
  virtual void GenerateAllRigidInfo(CQXDBSession* session) {}
  /// Adds a part without elements.
  virtual ITR AddPart(CQXDBSession* session, const CString& name) { return 0; }

  // ---- loads, cases and analysis ----------------------------------------------------------------

  /// Adds imposed displacements of nodes.
  virtual ITR AddDisplace(CQXDBSession* session, TArray<ITR> nodes, TArray<double> values) {
    return 0;
  }
  /// Adds energy to a set of elements.
  virtual ITR AddEnergy(CQXDBSession* session, ITR set, double energy) { return 0; }
  /// Adds gravity.
  virtual ITR AddGravity(CQXDBSession* session, CString name, tagTVector3<double> acceleration) {
    return 0;
  }
  /// Adds initial velocities.
  virtual ITR AddInitVelocity(CQXDBSession* session, const TArray<ITR>& nodes,
                              const double velocity[3]) {
    return 0;
  }
  /// Gravity in the form that explicit solvers take.
  virtual ITR AddLsdynaGravity(CQXDBSession* session, ITR function, const double direction[3]) {
    return 0;
  }
  /// Adds an analysis case of a kind.
  virtual ITR AddMasterCase(CQXDBSession* session, CString name, int type) { return 0; }
  /// Adds a step to a case, with sets of loads and supports.
  virtual ITR AddSubCase(CQXDBSession* session, ITR master_case, CString name, TArray<ITR> sets) {
    return 0;
  }
  /// Supports nodes, a bit a degree of freedom: T1 first, R3 last.
  virtual ITR MakeBoundaryCondition(CQXDBSession* session, CString set_name, TArray<ITR> nodes,
                                    int dof_mask) {
    return 0;
  }
  /// Fixes nodes for the application's own use; not undoable.
  virtual int PrivateFixedConstraint(CQXDBSession* session, const TArray<ITR>& nodes) { return 0; }
  /// Contact pairs.
  virtual int GetCtppList(CQXDBSession* session, TArray<ITR>& out) { return 0; }
  /// Name of a frequency-response set.
  virtual CString GetFRsetName(CQXDBSession* session, ITR set) { return {}; }
  /// The name of the result that a view of a kind starts with.
  virtual int GetDefaultVresName(int kind, CString& out) { return 0; }
  /// The kinds of results of a group; owned by the application.
  virtual const std::vector<int>* GetDefaultVresType(int group) { return nullptr; }
  /// The same with their names, of the results given.
  virtual void GetDefaultVresType(int group, TArray<std::int32_t>& kinds,
                                  TArray<TString<128>>& names, CPOHCase* results) {}
  /// Number of the diagram that line results are first drawn with.
  virtual int GetDefaultDiagramDir(CQXDBSession* session) { return 1; }
  /// The coordinate system of a case's results.
  virtual int GetMcasResCsysInfo(CQXDBSession* session, ITR master_case, T_QX_RES_OUTCSYS_D& out) {
    return 0;
  }
  /// The case that a case belongs to.
  virtual ITR GetParentItrByCaseItr(CQXDBSession* session, ITR item) { return 0; }
  /// The result case of a key.
  virtual ITR GetVcasItrByKey(CQXDBSession* session, Key key) { return 0; }
  /// Stages of a set of construction stages.
  virtual int GetStageCount(CQXDBSession* session, ITR stage_set) { return 0; }
  /// Sets of construction stages.
  virtual int GetStageSetCount(CQXDBSession* session) { return 0; }

  // ---- the model and the application ------------------------------------------------------------

  /// Whether a command may run now: its number and two that it brings along.
  virtual int AllowCommand(int command, int first, int second) { return 0; }
  /// Whether the model lies in a plane.
  virtual int Is2DModel(CQXDBSession* session) { return 0; }
  /// Whether the model is one in space.
  virtual int Is3DModel(CQXDBSession* session) { return 0; }
  /// Whether gravity acts along the global z axis.
  virtual int IsGravZ(CQXDBSession* session) { return 0; }
  /// Global axis that gravity acts along: 0 x, 1 y, 2 z.
  virtual int GetGravityDir(CQXDBSession* session) { return 1; }
  /// The record behind an object of the post-processor.
  virtual ITR GetDBItrByQXPostObj(CQXDBSession* session, const void* object) { return 0; }
  /// Three coordinates of a node. Owned by the document.
  virtual const double* GetNodePos(CDocument* document, Key node) { return nullptr; }
  /// The same of all nodes, and how many.
  virtual const double* GetNodePosArr(CDocument* document, int& count) { return nullptr; }
  /// Replaces keys of an external store by iterators, in place.
  virtual void Transferto_extkey_2_dbitr(CQXDBSession* session, int type, TArray<ITR>& items) {}

 protected:
  IAppDB();
  IAppDB(const IAppDB&) = default;
};

QX_CALLBACKS_END

}  // namespace qx
