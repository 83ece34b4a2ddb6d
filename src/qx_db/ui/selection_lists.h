#pragma once
// The drop-down lists that dialogs pick records from, one class for each kind of record and two for
// functions. docs/selection-lists.md tells what each option admits.
// Threads: that of the user interface.

#include "qx_db/callback/app_types.h"
#include "qx_db/record/analysis_records.h"
#include "qx_db/record/geometry_records.h"
#include "qx_db/ui/selection_list.h"

namespace qx {

// Queries give the record in `out` and 1, or 0 and 0. Options are flags, 0 for off; setting one
// rebuilds a list that is bound.

// ---- sets that can be made by typing a name -----------------------------------------------------

// GetSelected...: the selected record. GetSelected...OrCreate: the record with the typed name,
// which it makes, in one undoable step, when there is none.

/// Boundary sets.
class QXDB_API CCobxBset : public TSelectionList<ComboFamily::kBset> {
 public:
  int GetSelectedBset(ITR& out) const { return GetSelected(out); }
  int GetSelectedBsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Load sets.
class QXDB_API CCobxLset : public TSelectionList<ComboFamily::kLset> {
 public:
  int GetSelectedLset(ITR& out) const { return GetSelected(out); }
  int GetSelectedLsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Thermal sets.
class QXDB_API CCobxTset : public TSelectionList<ComboFamily::kTset> {
 public:
  int GetSelectedTset(ITR& out) const { return GetSelected(out); }
  int GetSelectedTsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Thermal transient sets.
class QXDB_API CCobxTTset : public TSelectionList<ComboFamily::kTTset> {
 public:
  int GetSelectedTTset(ITR& out) const { return GetSelected(out); }
  int GetSelectedTTsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Fluid sets.
class QXDB_API CCobxCFDset : public TSelectionList<ComboFamily::kCFDset> {
 public:
  int GetSelectedCFDset(ITR& out) const { return GetSelected(out); }
  int GetSelectedCFDsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Fluid particle sets.
class QXDB_API CCobxCFDPset : public TSelectionList<ComboFamily::kCFDPset> {
 public:
  int GetSelectedCFDPset(ITR& out) const { return GetSelected(out); }
  int GetSelectedCFDPsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Electric sets.
class QXDB_API CCobxEset : public TSelectionList<ComboFamily::kEset> {
 public:
  int GetSelectedEset(ITR& out) const { return GetSelected(out); }
  int GetSelectedEsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Thermo-electric sets.
class QXDB_API CCobxTEset : public TSelectionList<ComboFamily::kTEset> {
 public:
  int GetSelectedTEset(ITR& out) const { return GetSelected(out); }
  int GetSelectedTEsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
};

/// Dynamic sets.
class QXDB_API CCobxDset : public TSelectionList<ComboFamily::kDset> {
 public:
  int GetSelectedDset(ITR& out) const { return GetSelected(out); }
  int GetSelectedDsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
  int GetSelectedName(CString& out) const { return GetSelectedText(out); }
};

/// Frequency-response sets.
class QXDB_API CCobxFRset : public TSelectionList<ComboFamily::kFRset> {
 public:
  int GetSelectedFRset(ITR& out) const { return GetSelected(out); }
  int GetSelectedFRsetOrCreate(ITR& out) { return GetSelectedOrCreate(out); }
  int GetSelectedName(CString& out) const { return GetSelectedText(out); }
};

/// Geometry sets.
class QXDB_API CCobxGset : public TSelectionList<ComboFamily::kGset> {
 public:
  int GetSelectedGset(ITR& out) const { return GetSelected(out); }
  int GetSelectedGsetOrCreate(ITR& out);
  /// The same with `name` in the place of what is typed, which it replaces.
  int SetCurrentGsetOrCreate(const CString& name, ITR& out);
  /// Selects the first set of that name. 1; or 0, with nothing selected, when none has it.
  int SetCurrentSet(const CString& name);
  /// Whether the last OrCreate of any list of this class made a new set.
  static int IsNew() { return m_bNew ? 1 : 0; }

 private:
  static bool m_bNew;
};

// ---- mesh sets and views ------------------------------------------------------------------------

/// Mesh sets.
class QXDB_API CCobxMset : public TSelectionList<ComboFamily::kMset> {
 public:
  int GetSelectedMset(ITR& out) const { return GetSelected(out); }
  /// On: the first item stands for the whole mesh; it is selected as the iterator 0. Off at first.
  void SetParentName(int on) { SetOption(parent_name_, on != 0); }

 private:
  void AddItems() override;

  bool parent_name_ = false;
};

/// Saved views.
class QXDB_API CCobxViewPoint : public TSelectionList<ComboFamily::kViewPoint> {
 public:
  int GetSelectedViewPoint(ITR& out) const { return GetSelected(out); }
};

// ---- materials and properties, as the application lists them ------------------------------------

/// Materials that the registered IAppDB lists, as "key: name".
class QXDB_API CCobxMatl : public TSelectionList<ComboFamily::kMatl> {
 public:
  int GetSelectedMatl(ITR& out) const { return GetSelected(out); }
  /// Admits materials of this type, or of these, only.
  void SetTypeFilter(std::int32_t type) { SetTypeFilter(std::vector{type}); }
  void SetTypeFilter(const std::vector<std::int32_t>& types) { SetOption(types_, types); }
  /// Of those, admits materials of this sub-type, or of these, only.
  void SetSubTypeFilter(std::int32_t type) { SetSubTypeFilter(std::vector{type}); }
  void SetSubTypeFilter(const std::vector<std::int32_t>& types) { SetOption(sub_types_, types); }
  /// Admits all types and sub-types.
  void ClearTypeFilter();
  /// On: structural materials besides those of the types. Off at first.
  void SetStructure(int on) { SetOption(structure_, on != 0); }
  /// On: structural materials whatever their type, and no others. Off at first.
  void SetOnlyStructure(int on) { SetOption(only_structure_, on != 0); }
  /// On: of the materials admitted only what a membrane can be made of, structural ones. Off at
  /// first.
  void EnableMembraneOpt(int on) { SetOption(membrane_, on != 0); }

 private:
  bool HasSource() const override;
  void AddItems() override;

  std::vector<std::int32_t> types_;
  std::vector<std::int32_t> sub_types_;
  bool structure_ = false;
  bool only_structure_ = false;
  bool membrane_ = false;
};

/// Properties that the registered IAppDB lists, as "key: name".
class QXDB_API CCobxProp : public TSelectionList<ComboFamily::kProp> {
 public:
  int GetSelectedProp(ITR& out) const { return GetSelected(out); }
  /// Admits properties of this type besides those added before; without any all types.
  void AddTypeFilter(std::int32_t type);
  void ClearTypeFilter() { SetOption(types_, {}); }
  /// On: of those, beams only. Off at first.
  void EnableBeamOnly(int on) { SetOption(beam_only_, on != 0); }
  /// On: of those, properties of fluid materials only. Off at first.
  void EnableCFDOnly(int on) { SetOption(cfd_only_, on != 0); }
  /// Off: no properties at all, for elements that take none. On at first.
  void EnableProp(int on) { SetOption(enabled_, on != 0); }

 private:
  bool HasSource() const override;
  void AddItems() override;

  std::vector<std::int32_t> types_;
  bool beam_only_ = false;
  bool cfd_only_ = false;
  bool enabled_ = true;
};

// ---- coordinate systems -------------------------------------------------------------------------

/// Coordinate systems. The items for the system of the element and of its material, where they are
/// enabled, come first and are selected as the iterator 0.
class QXDB_API CCobxCord : public TSelectionList<ComboFamily::kCord> {
 public:
  int GetSelectedCord(ITR& out) const { return GetSelected(out); }
  /// Whether the item for the element's system, or its material's, is the selected one.
  int IsECordSelected() const { return IsSelected(kElementSystem); }
  int IsMCordSelected() const { return IsSelected(kMaterialSystem); }

  /// Off: no cylindrical and spherical systems. On at first.
  void EnableCylind(int on) { SetOption(curved_, on != 0); }
  /// On: an item for the element's own system; for its material's. Off at first.
  void EnableECord(int on) { SetOption(element_, on != 0); }
  void EnableMCord(int on) { SetOption(material_, on != 0); }
  /// On: systems of this one type only, which ends the other restriction to one type and goes
  /// before EnableCylind. Off: all types again.
  void SetOnlyCylindrical(int on) { SetOption(only_type_, on ? tagTCord::kCylindrical : kAny); }
  void SetOnlyRectangle(int on) { SetOption(only_type_, on ? tagTCord::kRectangular : kAny); }

 private:
  static constexpr std::int32_t kAny = -1;

  int IsSelected(Key key) const;
  void AddItems() override;
  bool Admits(const TStructBase& record) const override;

  bool curved_ = true;
  bool element_ = false;
  bool material_ = false;
  std::int32_t only_type_ = kAny;
};

// ---- functions ----------------------------------------------------------------------------------

/// Functions, and after them the data types that the registered IFuncDB adds. A surface function
/// has two variables; a space function has one, a length; every other one is always admitted.
class QXDB_API CCobxFunc : public TSelectionList<ComboFamily::kFunc> {
 public:
  int GetSelectedFunc(ITR& out) const { return GetSelected(out); }
  /// Off: no space functions; no surface functions. On at first.
  void EnableSpaceFunc(int on) { SetOption(space_, on != 0); }
  void EnableSurfaceFunc(int on) { SetOption(surface_, on != 0); }
  /// On: only functions all of whose variables are of kinds in the mask. Off at first.
  void EnableFilterVariable(int on) { SetOption(filter_, on != 0); }
  /// Bit n of the mask stands for the variable with the code n (FunctionKind). All bits at first.
  void SetVariableFilterMask(std::uint32_t mask) { SetOption(mask_, mask); }
  void SetFuncComboBoxList() { OnUpdateList(); }

 private:
  void AddItems() override;
  bool Admits(const TStructBase& record) const override;

  bool space_ = true;
  bool surface_ = true;
  bool filter_ = false;
  std::uint32_t mask_ = ~std::uint32_t{0};
};

/// Functions of one kind of value in one kind of variable.
class QXDB_API CCobxFuncQX : public TSelectionList<ComboFamily::kFuncQX> {
 public:
  static constexpr std::int32_t kAny = -1;

  int GetSelectedFunc(ITR& out) const { return GetSelected(out); }
  /// The code (FunctionKind) of the values; of the variable, of the first where there are two.
  /// kAny, as at first, admits all.
  void SetDepVar(std::int32_t kind) { SetOption(values_, kind); }
  void SetIndepVar(std::int32_t kind) { SetOption(variable_, kind); }
  void SetFuncComboBoxList() { OnUpdateList(); }

 private:
  bool Admits(const TStructBase& record) const override;

  std::int32_t values_ = kAny;
  std::int32_t variable_ = kAny;
};

}  // namespace qx
