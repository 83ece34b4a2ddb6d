#pragma once
// The steps of reading a deck into an InpModel, keyword by keyword.

#include <array>
#include <string>
#include <vector>

#include "exchange/abaqus/inp_model.h"

namespace qx::exchange {

class InpParser {
 public:
  InpParser(const InpText& text, const std::string& file, const ReadOptions& options,
            std::vector<Failure>& faults)
      : text_(text), file_(file), options_(options), faults_(faults) {}

  Result<InpModel> Parse();

 private:
  using Kind = InpSet::Kind;
  using SetNames = std::map<std::string, std::size_t> InpScope::*;

  // ---- faults and fields ------------------------------------------------------------------------

  bool IsFull() const { return faults_.size() >= LossReport::kMostFaults; }
  /// Whether to go on: not full of faults and not cancelled. Asks now and then.
  bool GoesOn();
  void Fault(std::size_t at, std::string what, std::string remedy);
  Key Number(std::string_view field, std::size_t line, const char* of_what);
  double Real(std::string_view field, std::size_t line);
  double RealAt(std::span<const std::string_view> fields, std::size_t place, std::size_t line);
  Vector3 VectorAt(std::span<const std::string_view> fields, std::size_t place, std::size_t line);
  std::string Required(const char* parameter);
  /// The parameter's value; whoever asks for it minds it.
  std::optional<std::string_view> Parameter(const char* name) {
    minded_.insert(name);
    return text_.Parameter(*block_, name);
  }
  InpLines Lines() const { return {text_.Text(), block_->data, block_->end}; }
  InpScope& Scope() { return model_.scopes[scope_]; }

  // ---- structure (inp_parser.cpp) ---------------------------------------------------------------

  void ReadBlock();
  void TellOfUnminded();
  bool ReadStructure();
  void BeginScope(std::string name);
  void EndScope();
  void ReadInstance();
  void EndInstance();
  void PlaceParts();
  void ShiftNumbers();
  void Carry();

  // ---- nodes, elements and sets (inp_mesh.cpp) --------------------------------------------------

  std::size_t GivenInput();
  void ReadNodes();
  void ReadElements();
  void ReadSystem();
  void ReadSet(Kind kind);
  void ReadSurface();
  void AddNode(Key number, const Vector3& point, InpSpot spot);
  /// `nodes` are in our order.
  void AddElement(Key number, std::int32_t type, std::int32_t type_name,
                  std::span<const InpMember> nodes, InpSpot spot);
  void BeginNodeRun();
  void BeginElementRun();
  InpMember NodeOf(std::string_view field, std::size_t line);
  void CheckElements();
  void FinishSets();
  /// A number in a set that was not there yet.
  struct Late {
    std::size_t set;
    InpMember member;
    std::size_t block;
    std::size_t line;
  };
  void CheckLate(const Late& late, std::set<std::pair<std::size_t, InpMember>>& gone);
  /// The scope whose numbers a member of a set in `scope` has.
  const InpScope& ScopeOf(const InpMember& member, std::size_t scope) const;
  static void Compact(InpSet& set);

  SetNames NamesOf(Kind kind) const;
  /// The set of that name in the scope, made when it is not there yet.
  std::size_t SetOf(Kind kind, std::string_view name);
  /// kNoPlace when there is none. Names may have an instance before them: "Part-1-1.Top".
  std::size_t FindSet(Kind kind, std::string_view name, std::int32_t& instance) const;
  void AddPart(std::size_t set, std::size_t part, std::int32_t instance);
  std::int32_t FindInstance(std::string_view name) const;
  void AddToParameterSet(const char* parameter, Kind kind, std::size_t first_new);

  // ---- generated nodes and elements (inp_generate.cpp) ------------------------------------------

  void GenerateNodes();  // NGEN
  void FillNodes();      // NFILL
  std::size_t CopiedSet(Kind kind);
  void CopyNodes();         // NCOPY
  void GenerateElements();  // ELGEN
  void CopyElements();      // ELCOPY
  Key Generated(std::int64_t number, std::size_t line, const char* of_what);
  /// Counts what keywords generate; false, with a fault, when it becomes too much.
  bool MayGenerate(std::int64_t count, std::size_t line);
  void AddGenerated(std::int64_t number, const Vector3& point, std::size_t line);
  void CopyElement(std::size_t element, std::int64_t number, std::int64_t node_shift,
                   bool is_reflected, std::size_t line);

  // ---- sections, materials and systems (inp_sections.cpp) ---------------------------------------

  bool ReadSection();
  void ReadMaterial();
  bool ReadMaterialOption();
  void ReadOrientation();
  void ReadTransform();
  void AssignSections();
  void ReadBeamShape(InpSection& section, std::string_view shape,
                     std::span<const std::string_view> fields, std::size_t line);

  const InpText& text_;
  const std::string& file_;
  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  InpModel model_;
  std::size_t at_ = 0;                 ///< index of the block
  const InpBlock* block_ = nullptr;    ///< the block
  std::set<std::string_view> minded_;  ///< parameters of the block that were asked for
  bool is_carried_ = false;            ///< the block, whole
  std::size_t scope_ = 0;
  std::size_t input_ = 0;  ///< of *SYSTEM, among the inputs
  bool in_instance_ = false;
  bool is_skipping_ = false;  ///< what an instance adds to a part
  bool is_cancelled_ = false;
  std::size_t asked_ = 0;
  double told_ = 0;  ///< of the progress
  std::size_t steps_ = 0;
  std::string step_ = "Initial";
  std::map<std::string, std::size_t> scopes_;  ///< parts by label
  std::map<std::string, std::size_t> type_names_;
  std::map<std::string, std::size_t> materials_;
  std::map<std::string, std::int32_t> instances_;  ///< by label, among the placements
  std::vector<Late> late_;
  std::uint64_t generated_ = 0;
  std::size_t material_ = kNoPlace;                                ///< whose options follow
  std::vector<std::pair<std::size_t, std::string>> section_sets_;  ///< block and name of each
  std::uint64_t missing_in_ranges_ = 0;
  std::map<std::string, std::uint64_t> reduced_;
  std::map<std::string, std::uint64_t> unknown_types_;
  std::map<std::string, std::uint64_t> simplified_;
};

/// Rotation by an angle in degrees about the line from a to b, after a translation. False when the
/// points are one.
bool InpRotation(const Vector3& shift, const Vector3& a, const Vector3& b, double angle_deg,
                 InpFrame& frame);
/// Frame with that x axis, its y axis towards `in_plane`. False when they are parallel.
bool InpFrameOf(const Vector3& origin, const Vector3& along, const Vector3& in_plane,
                InpFrame& frame);

}  // namespace qx::exchange
