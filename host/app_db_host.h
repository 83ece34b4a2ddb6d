#pragma once
// The reference application's side of the database: what it answers from its own materials and
// properties. Operations that it does not override have nothing behind them in this host.
// Threads: as IAppDB: that of the session asked about.

#include <memory>

#include "qx_db/callback/callbacks.h"

#include "host/session.h"

namespace qx::host {

class ElementMasses;

/// Answers from the host's pools of the session asked about. A null session, a session without
/// those pools, and an iterator that is null or stale give the answer of the default interface.
/// Every change is one undoable step.
class HostAppDB final : public IAppDB {
 public:
  HostAppDB();
  ~HostAppDB() override;

  // ---- materials (app_db_materials.cpp) ---------------------------------------------------------

  /// This host has no modes.
  int QueryMode(CQXDBSession*, int) override { return 0; }
  Key GetMatlKey(CQXDBSession* session, ITR matl) override;
  Key GetMatlNewKey(CQXDBSession* session) override;
  ITR MatlFindItr(CQXDBSession* session, Key key) override;
  ITR GetMatlByName(CQXDBSession* session, const CString& name) override;
  int SetMatlName(CQXDBSession* session, ITR matl, const CString& name) override;
  int GetMatlType(CQXDBSession* session, ITR matl) override;
  int IsMatlUsed(CQXDBSession* session, ITR matl) override;
  int RemoveMatlW(CQXDBSession* session, ITR matl) override;

  int AddCADMatl(CQXDBSession* session, const std::vector<MATERIAL_PARAM>& materials) override;
  ITR AddMaterial(CQXDBSession* session, MATERIAL_PARAM material) override;
  double GetElemMatlDensity(CQXDBSession* session, ITR elem) override;
  int GetElemMatlType(CQXDBSession* session, ITR elem) override;
  int GetMatlColor(CQXDBSession* session, ITR matl) override;
  int SetMatlColor(CQXDBSession* session, ITR matl, int color) override;
  double GetMatlDensity(CQXDBSession* session, ITR matl) override;
  /// Item n is the n-th number of tagTMatl, from 0.
  int GetMatlItemInElem(CQXDBSession* session, ITR elem, int item, double& value) override;
  ITR GetMatlItrInElem(CQXDBSession* session, ITR elem) override;
  ITR GetMatlItrInProp(CQXDBSession* session, ITR prop) override;
  /// Materials of this host have the sub-type 0.
  int GetMatlList(CQXDBSession* session, const T_QX_MATL_FILTER& filter, TArray<ITR>& out) override;
  Key GetMatlMaxKey(CQXDBSession* session) override;
  int GetMatlName(CQXDBSession* session, ITR matl, TString<64>& out) override;
  int GetMatlTensilInElem(CQXDBSession* session, ITR elem, double& strength) override;
  int IsSameMatl(CQXDBSession* session, ITR matl, MATERIAL_PARAM other) override;
  int IsSameMatlType(CQXDBSession* session, ITR first, ITR second) override;
  int IsStructuralMatl(CQXDBSession* session, ITR matl) override;
  int SetMatlInProp(CQXDBSession* session, ITR prop, ITR matl) override;

  // ---- properties (app_db_properties.cpp) -------------------------------------------------------

  /// The first property that fits the type's dimension.
  ITR GetElemProp(CQXDBSession* session, int elem_type) override;
  ITR GetElemProp(CQXDBSession* session, ITR elem) override;
  int GetExceptDimPropTypeList(CQXDBSession* session, int dimension,
                               TArray<std::int32_t>& out) override;
  ITR GetPropByName(CQXDBSession* session, const CString& name) override;
  ITR PropFindItr(CQXDBSession* session, Key key) override;
  Key GetPropKey(CQXDBSession* session, ITR prop) override;
  Key GetPropMaxKey(CQXDBSession* session) override;
  Key GetPropNewKey(CQXDBSession* session) override;
  int GetPropList(CQXDBSession* session, TArray<ITR>& out) override;
  int GetPropList(CQXDBSession* session, const T_QX_PROP_FILTER& filter, TArray<ITR>& out) override;
  int GetPropList(CQXDBSession* session, int dimension, TArray<ITR>& out) override;
  void GetPropListNamebyCobxFilter(CQXDBSession* session, const T_QX_PROP_FILTER& filter,
                                   TArray<TString<64>>& out) override;
  int IsPropUndefined(CQXDBSession* session, ITR prop) override;
  /// The values are those of AddProperty.
  int IsSameProp(CQXDBSession* session, ITR prop, int type, TArray<double> values) override;

  CString GetPropName(CQXDBSession* session, ITR prop) override;
  CString GetPropName(CQXDBSession* session, Key key) override;
  CString GetPropNameIncludeType(CQXDBSession* session, ITR prop) override;
  int SetPropName(CQXDBSession* session, ITR prop, const CString& name) override;
  int GetPropColor(CQXDBSession* session, ITR prop) override;
  int SetPropColor(CQXDBSession* session, ITR prop, int color) override;
  void GetPropNameColor(CQXDBSession* session, ITR prop, CString& name, int& color) override;
  ITR GetPropCord(CQXDBSession* session, ITR prop) override;
  int GetPropDim(CQXDBSession* session, ITR prop) override;
  int GetPropElasticLink(CQXDBSession* session, ITR prop) override;
  int GetPropRigidLink(CQXDBSession* session, ITR prop) override;
  int GetPropType(CQXDBSession* session, ITR prop) override;
  int GetPropertyType(CQXDBSession* session, ITR elem) override;
  void SetPropertyType(CQXDBSession* session, ITR prop, int type) override;

  /// Values: a plate's thickness and non-structural mass; a line's area, second moments about y
  /// and z, torsional constant and non-structural mass; a point's mass; a spring's six stiffnesses.
  /// 0 for an unknown kind and for more values than the kind has.
  ITR AddProperty(CQXDBSession* session, int type, CString name, TArray<double> values) override;
  ITR MakeElasticLinkProp(CQXDBSession* session, const double stiffness[6]) override;
  ITR MakeInterfaceProp(CQXDBSession* session, ITR matl) override;
  ITR MakePntSpringProp(CQXDBSession* session, const double stiffness[6]) override;
  ITR MakePropPlate(CQXDBSession* session, ITR matl, double thickness) override;
  ITR MakePropSolid(CQXDBSession* session, ITR matl) override;
  ITR MakePropSpring(CQXDBSession* session, CString name, TArray<double> stiffness) override;
  ITR MakeUndefinedProp(CQXDBSession* session, int dimension) override;
  ITR MakeUndefinedProp(CQXDBSession* session, int dimension, Key key) override;
  int RemovePropW(CQXDBSession* session, ITR prop) override;

  // ---- elements, thicknesses and masses (app_db_elements.cpp) -----------------------------------

  int GetPropThickness(CQXDBSession* session, ITR prop, double& thickness) override;
  int GetPropThickness(CQXDBSession* session, const tagTElem& elem, double& thickness) override;
  int Get2DPropPlstrnThickness(CQXDBSession* session, ITR elem, double& thickness) override;
  double GetFaceThickAvg(CQXDBSession* session, ITR elem) override;
  double GetFaceThickAvgFromProp(CQXDBSession* session, ITR elem) override;
  double GetBeamVolume(CQXDBSession* session, ITR elem) override;
  double GetFaceVolume(CQXDBSession* session, ITR elem) override;
  double GetFaceVolume(CQXDBSession* session, ITR elem, double area) override;
  double GetMatlMass(CQXDBSession* session, ITR matl) override;
  double GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems) override;
  void GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems, double& mass_x, double& mass_y,
                   double& mass_z) override;
  double GetSpecialElemMass(CQXDBSession* session, ITR elem) override;
  void GetSpecialElemMass(CQXDBSession* session, ITR elem, double& mass_x, double& mass_y,
                          double& mass_z) override;
  int GetMassCenter(CQXDBSession* session, const TArray<ITR>& elems, double center[3]) override;

  int Get1DElemPerimeter(CQXDBSession* session, ITR elem, double& perimeter) override;
  int GetElemListByCommonNodeItr(CQXDBSession* session, const TArray<ITR>& nodes,
                                 TArray<ITR>& out) override;
  int GetElemListByNodeItr(CQXDBSession* session, ITR node, TArray<ITR>& out) override;
  int GetElemListByNodeItrArray(CQXDBSession* session, const TArray<ITR>& nodes,
                                TArray<ITR>& out) override;
  int GetGeomAll(CQXDBSession* session, TArray<ITR>& out) override;
  int IsE1DOffset(CQXDBSession* session, ITR elem) override;
  /// Whether a material or property refers to the record.
  int IsUsed(CQXDBSession* session, int type, ITR item) override;
  CString GetFRsetName(CQXDBSession* session, ITR set) override;
  /// Every command may run.
  int AllowCommand(int, int, int) override { return 1; }
  /// A model is 3D when it has a solid or nodes at different z, else 2D; an empty one is neither.
  int Is2DModel(CQXDBSession* session) override;
  int Is3DModel(CQXDBSession* session) override;

 private:
  /// What is known of thicknesses, kept from question to question while it holds.
  const ElementMasses& MassesOf(CQXDBSession* session);

  std::unique_ptr<ElementMasses> masses_;
};

}  // namespace qx::host
