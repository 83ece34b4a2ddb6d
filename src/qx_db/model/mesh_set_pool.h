#pragma once
// Mesh sets: named, coloured groups of nodes and elements, in a hierarchy. docs/mesh-sets.md tells
// the rules in full. Threads: see DPoolBase; names are learned by queries, for one at a time.

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_set>

#include "qx_db/model/item_marks.h"
#include "qx_db/model/mesh_pools.h"

namespace qx {

class ExternalMeshSets;
struct ImportReport;

/// The mesh sets. A set lists its nodes and elements, which other sets may list too, and names its
/// parent by key; a parent key that names no set makes a top-level set. The set with key 1 is the
/// default mesh set.
///
/// When a step ends, dead nodes, elements and geometry leave the sets; the children of a set that
/// died go up to its parent, those of a renumbered set follow it; and a step that would make a set
/// its own ancestor is refused, and so is one that gives the default mesh set another key. It may
/// be deleted like any other; AddDefault makes it anew.
///
/// Operations give 1 for success and 0 for failure. TR_ ones, and those that say so, are one
/// undoable step that joins a transaction that is open and, while the session records, leave
/// nothing behind when they fail; Private_ ones are to be called within a transaction. Sets that
/// are given must be in the pool: any other iterator, and one given twice, makes the operation
/// fail. Nodes and elements must be iterators that their pools gave out.
class QXDB_API DPoolMset : public DPoolPlain<tagTMset> {
 public:
  static constexpr Key kDefaultKey = 1;
  static constexpr std::size_t kLongestName = 63;

  explicit DPoolMset(CQXDBSession* session);
  ~DPoolMset() override;

  // ---- the default mesh set ---------------------------------------------------------------------

  /// Creates the default mesh set, named by "IDS_QX_DB_DEFAULT_MESH"; 0 when there is one.
  int AddDefault() override;
  /// The default mesh set, 0 when there is none.
  ITR DefaultItr() const { return Find(kDefaultKey); }

  // ---- names and colours ------------------------------------------------------------------------

  /// 1 when a set bears this name. Case counts; only the first 63 characters do.
  int CheckName(const char16_t* name) const;
  int Exist(const char16_t* name) const { return CheckName(name); }
  /// A name for a copy: the base of `name` alone, or, where a set has that base, the base with the
  /// highest number in use plus one: "Mesh-3". May be longer than a set's name can be.
  CString GetNewCopyName(const char16_t* name);
  /// Splits a trailing hyphen with digits off a name: "Mesh-12" into "Mesh" and 12. Without one, or
  /// with the hyphen in first place, the name stays and the number is 0.
  static void GetStrAndNumber(TString<64>& name, int& number);
  /// The next colour of a table of 36, 0x00BBGGRR as all colours. One counter for the whole
  /// process, for any thread.
  static std::int32_t GetNewColor();
  /// Gathers anew which bases of names are in use with which highest number. Queries see to it by
  /// themselves.
  void ReBuildMap();

  // ---- looking up -------------------------------------------------------------------------------

  /// The sets whose parent key is `parent`, in pool order; returns their number.
  std::int32_t GetItrListByParentMsetK(std::int32_t parent, TArray<ITR>& out) const;
  std::int32_t GetItrListByParentMsetK(std::int32_t parent, std::list<ITR>& out) const;
  /// The sets without a parent set: those whose parent key is `none`, or names no set.
  std::int32_t GetItrListByNoParentMsetK(std::int32_t none, TArray<ITR>& out) const;
  /// The first set that was meshed from this geometry.
  int GetItrByGeomItr(const ITR& geometry, ITR& out) const;
  /// Whether `pos` is a set of this pool. Any number may be asked for. Cost: a walk over the sets.
  bool Holds(ITR pos) const;

  // ---- adding and changing ----------------------------------------------------------------------

  /// Adds an empty set, with the next colour that no set has, under a key above 1. Refuses, with a
  /// message, a name that is empty, longer than 63 characters or in use, and a parent that is
  /// neither 0 nor a set's key.
  int TR_Add(const char16_t* name, Key parent, ITR& out);
  /// Refuses names as TR_Add does.
  int TR_Rename(const ITR& set, const char16_t* name);
  /// Puts a set below another, or at the top with 0; refused where it would be its own ancestor.
  int TR_SetParent(const ITR& set, Key parent);
  /// Adds nodes and elements that the set does not list yet, at the end, in the given order. 0 for
  /// a dead or null iterator.
  int Private_Add_NodeElem(const ITR& set, const TArray<ITR>& nodes, const TArray<ITR>& elements);
  /// Takes nodes and elements off the set's lists; what it does not list is passed over.
  int Private_Del_NodeElem(const ITR& set, const TArray<ITR>& nodes, const TArray<ITR>& elements);
  /// Moves the contents and children of `others` to `into` and removes them; one step. `into` keeps
  /// its name, colour and geometry. Where it was below one of them it moves up past it.
  int Merge(ITR into, const TArray<ITR>& others);
  int Merge(ITR into, const std::list<ITR>& others);
  /// Brings the lists in line with the mesh: dead, null and repeated entries go, nodes of a set's
  /// elements come. With `gather` not 0, nodes and elements of no set go to the default mesh set,
  /// which is created when missing. One step.
  int RebuildMeshset(int gather);
  /// Makes sets whose geometry is gone sets without geometry: no link and no connection to it.
  int TR_Modify_NoGeom();

  // ---- deleting ---------------------------------------------------------------------------------

  /// Deletes sets with those of their nodes and elements that no remaining set lists. Refused when
  /// the orientation of a remaining element needs one of the nodes.
  int TR_Del(const TArray<ITR>& sets);
  int TR_Del(const std::list<ITR>& sets);
  /// The same within a transaction. What can refuse is asked before anything is changed.
  int Private_Del(const TArray<ITR>& sets);
  int Private_Del(const std::list<ITR>& sets);
  /// Deletes every set with its mesh; the default mesh set stays, empty. Nodes and elements of no
  /// set stay.
  int TR_Del_All();
  /// Removes the sets that list nothing, but for the default mesh set.
  int TR_Del_EmptyMset();
  /// The same for one set and all below it, from the bottom up.
  int Private_Del_EmptyMset(ITR set);

  // ---- sets of another model file ---------------------------------------------------------------

  /// Opens a model file and lists its mesh sets by key and name, in their order. The model itself
  /// is not changed; a message says why a file cannot be read.
  int LoadExtDB(const char16_t* file, TArray<std::int32_t>& keys, CStringArray& names);
  int IsExtDB() const override { return external_ != nullptr; }
  /// The sets of the opened file; returns their number, 0 when none is open.
  std::int32_t GetExtDBIdName(TArray<Key>& ids, CStringArray& names) override;
  void RemoveAllExtDB() override;
  /// Brings sets of the opened file into the model with their nodes, elements, and the records of
  /// those elements; mesh_set_import.h tells how. `keep_keys`: nodes and elements keep their keys,
  /// refused where one is taken; otherwise they get new ones. `with_children`: also the sets below
  /// them. `parent`: key of the set to put the topmost ones under, 0 for none.
  int Private_Import(const TArray<std::int32_t>& keys, int keep_keys, int with_children,
                     int parent);
  int TR_Import(const TArray<std::int32_t>& keys, int keep_keys, int with_children, int parent);
  /// What the last import that succeeded did; null when there was none since the file was opened.
  const ImportReport* LastImport() const;

  // ---- for the session --------------------------------------------------------------------------

  using DPoolPlain<tagTMset>::InsertNU;
  ITR InsertNU(const tagTMset& record) override;
  int ProcessRelation() override;
  void OnAfterLoad(unsigned long flags, void* context) override;
  /// Sets that came from outside under a name in use receive copy names.
  int NameApart(std::span<const ITR> items, std::vector<ITR>& renamed) override;

  /// A free key above that of the default mesh set; negative when there is none.
  Key NewSetKey() const;
  /// A name that no set has yet: `name` itself, or a copy name, cut so that it fits.
  std::u16string FreeName(std::u16string_view name);

 private:
  struct Orphans {
    ItemMarks nodes;
    ItemMarks elements;
  };

  std::int32_t NextFreeColor() const;
  int InStep(const char* text_key, const std::function<int()>& work);
  bool AcceptName(std::u16string_view name, ITR renamed) const;
  bool HoldsAll(std::span<const ITR> sets) const;
  int Delete(std::span<const ITR> sets, ITR emptied = 0);
  Orphans FindOrphans(std::span<const ITR> sets, ITR emptied) const;
  bool MayDelete(const Orphans& orphans) const;
  int DeleteMesh(const Orphans& orphans);
  int DeleteEmptyBelow(std::span<const ITR> roots);
  int MergeInto(ITR into, std::span<const ITR> others);
  int Rebuild(bool gather);

  bool AreNamesKnown() const { return names_revision_ == Set().Revision(); }
  void NoteName(std::u16string_view name);

  std::map<std::u16string, std::int32_t, std::less<>> names_;  // highest number by base
  std::unordered_set<std::u16string> used_names_;
  std::uint64_t names_revision_ = ~std::uint64_t{0};  // of the sets they were gathered from
  std::unique_ptr<ExternalMeshSets> external_;
};

template <>
struct PoolOf<tagTMset> {
  using type = DPoolMset;
};

}  // namespace qx
