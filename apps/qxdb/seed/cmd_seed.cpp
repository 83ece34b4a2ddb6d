// Seeding edges: size controls, what they make of a part, and the arithmetic behind them.

#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/cad_input.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/seed/seed_output.h"

namespace qx::app {
namespace {

// ---- what is asked for --------------------------------------------------------------------------

/// Where a preview is written, besides the table.
struct OutputOptions {
  std::string svg;
  std::string vtu;
  std::string points;
  bool force = false;
};

/// The seeding as given on the command line, in current units.
struct SeedingOptions {
  std::string method = "divisions";
  std::optional<double> size;
  SeedingKnown known;
  double uniform = 0;
  bool symmetric = false;
  std::vector<double> at;
};

struct SeedOptions {
  std::string model;
  std::string cad;
  std::string edges;
  std::string reverse;
  std::string name;
  SeedingOptions seeding;
  bool replace = false;
  bool dry_run = false;
  OutputOptions output;
};

Failure Missing(const char* method, const char* what) {
  return {"", "size control", fmt::format("method {} needs {}", method, what),
          "see the options with: qxdb seed add --help"};
}

// ---- from options to a size control -------------------------------------------------------------

/// What an option that a method takes no notice of would silently be lost as.
Outcome CheckTaken(const SeedingOptions& options, const std::string& taken) {
  struct Option {
    const char* name;  // with a blank behind it, so that none is found in another
    bool given;
  };
  const Option all[] = {
      {"--size ", options.size.has_value()},
      {"--divisions ", options.known.divisions.has_value()},
      {"--first ", options.known.first.has_value()},
      {"--last ", options.known.last.has_value()},
      {"--ratio ", options.known.ratio.has_value()},
      {"--uniform ", options.uniform != 0},
      {"--symmetric ", options.symmetric},
      {"--at ", !options.at.empty()},
  };
  for (const Option& option : all) {
    if (!option.given || taken.find(option.name) != std::string::npos) continue;
    return Failure{
        "", "size control",
        fmt::format("method {} has no use for {}", options.method,
                    std::string_view(option.name).substr(0, std::strlen(option.name) - 1)),
        "leave it out or use another --method"};
  }
  return {};
}

Outcome FillSize(const SeedingOptions& options, double, tagTSzct& control) {
  if (!options.size) return Missing("size", "--size");
  control.dbl_params[0] = *options.size;
  return {};
}

Outcome FillDivisions(const SeedingOptions& options, double, tagTSzct& control) {
  if (!options.known.divisions) return Missing("divisions", "--divisions");
  control.int_params[0] = *options.known.divisions;
  return {};
}

/// A symmetric grading has as many divisions in either half, and no end for a uniform part.
Outcome CheckSymmetric(const SeedingOptions& options) {
  if (!options.symmetric) return {};
  if (options.uniform != 0) {
    return Failure{"", "size control", "a uniform part at one end leaves nothing symmetric",
                   "leave out --uniform or --symmetric"};
  }
  const int n = options.known.divisions.value_or(2);
  if (n % 2 == 0) return {};
  return Failure{"", "size control", fmt::format("{} divisions cannot be symmetric", n),
                 "give an even number of divisions"};
}

/// What is graded: the edge, or half of it. A uniform part leaves no simple sum to solve.
Result<SeedingSolution> SolveGraded(Grading grading, const SeedingOptions& options, double length) {
  if (options.uniform != 0) {
    return Failure{"", "size control", "nothing can be solved for beside a uniform part",
                   "give the sizes (linear) or the ratio and the divisions (geometric)"};
  }
  SeedingKnown known = options.known;
  known.length = options.symmetric ? length / 2 : length;
  if (known.divisions && options.symmetric) *known.divisions /= 2;
  auto solved = SolveSeeding(grading, known);
  if (solved && options.symmetric) solved->divisions *= 2;
  return solved;
}

Outcome FillLinear(const SeedingOptions& options, double length, tagTSzct& control) {
  control.dbl_params[3] = options.uniform;
  control.int_params[2] = options.symmetric;
  const SeedingKnown& known = options.known;
  if (Outcome checked = CheckSymmetric(options); !checked) return checked;
  if (known.divisions == 0) return Missing("linear", "at least 1 division");
  const bool scaled = !known.divisions || options.uniform != 0;  // to what they fill
  if (known.first && known.last && !known.ratio && scaled) {
    control.dbl_params[1] = *known.first;
    control.dbl_params[2] = *known.last;
    control.int_params[1] = known.divisions.value_or(0);
    return {};
  }
  const auto solved = SolveGraded(Grading::kLinear, options, length);
  if (!solved) return solved.AsOutcome();
  control.dbl_params[1] = solved->first;
  control.dbl_params[2] = solved->last;
  control.int_params[1] = solved->divisions;
  return {};
}

Outcome FillGeometric(const SeedingOptions& options, double length, tagTSzct& control) {
  control.dbl_params[7] = options.uniform;
  control.int_params[6] = options.symmetric;
  const SeedingKnown& known = options.known;
  if (Outcome checked = CheckSymmetric(options); !checked) return checked;
  if (known.ratio && known.divisions && !known.first && !known.last) {
    control.dbl_params[6] = *known.ratio;
    control.int_params[5] = *known.divisions;
    return {};
  }
  const auto solved = SolveGraded(Grading::kGeometric, options, length);
  if (!solved) return solved.AsOutcome();
  control.dbl_params[6] = solved->ratio;
  control.int_params[5] = solved->divisions;
  return {};
}

Outcome FillHyperbolic(const SeedingOptions& options, double, tagTSzct& control) {
  const SeedingKnown& known = options.known;
  if (!known.first || !known.divisions) return Missing("hyperbolic", "--first and --divisions");
  control.dbl_params[4] = *known.first;
  control.dbl_params[5] = known.last.value_or(0);
  control.int_params[3] = *known.divisions;
  control.int_params[4] = known.last.has_value();
  return {};
}

Outcome FillPositions(const SeedingOptions& options, double, tagTSzct& control) {
  if (options.at.empty()) return Missing("positions", "--at");
  control.custom_ratios.Assign(options.at.data(), options.at.size());
  return {};
}

struct MethodRow {
  std::int32_t method;
  const char* options;  ///< that it takes, each with a blank behind it
  Outcome (*fill)(const SeedingOptions& options, double length, tagTSzct& control);
};

constexpr MethodRow kMethods[] = {
    {tagTSzct::kBySize, "--size ", FillSize},
    {tagTSzct::kByDivisions, "--divisions ", FillDivisions},
    {tagTSzct::kLinearGrading, "--first --last --ratio --divisions --uniform --symmetric ",
     FillLinear},
    {tagTSzct::kGeometricGrading, "--first --last --ratio --divisions --uniform --symmetric ",
     FillGeometric},
    {tagTSzct::kHyperbolic, "--first --last --divisions ", FillHyperbolic},
    {tagTSzct::kByPositions, "--at ", FillPositions},
};

/// The size control for an edge of this length. Sizes are turned into model units.
Result<tagTSzct> MakeControl(const CQXDBSession& session, SeedingOptions options, double length) {
  for (auto* size : {&options.size, &options.known.first, &options.known.last}) {
    if (*size) **size = session.Units().In(CQXSzctUnit::Instance().Code(0), **size);
  }
  for (const MethodRow& row : kMethods) {
    if (options.method != MethodName(row.method)) continue;
    tagTSzct control;
    control.method = row.method;
    if (Outcome taken = CheckTaken(options, row.options); !taken) return taken.Error();
    if (Outcome filled = row.fill(options, length, control); !filled) return filled.Error();
    return control;
  }
  return Failure{"", "size control", "method " + options.method + " is not known",
                 "see the methods with: qxdb seed add --help"};
}

bool SameSeeding(const tagTSzct& a, const tagTSzct& b) {
  const auto same = [](double x, double y) {
    return std::fabs(x - y) <= 1e-6 * std::max(std::fabs(x), std::fabs(y));
  };
  return std::equal(std::begin(a.int_params), std::end(a.int_params), b.int_params) &&
         std::equal(std::begin(a.dbl_params), std::end(a.dbl_params), b.dbl_params, same);
}

// ---- edges --------------------------------------------------------------------------------------

/// The edges of the part whose keys are in the list; every part of the list must name one. A range
/// leaves out edges without length, which a single key may name.
Result<std::vector<int>> SelectEdges(const SeedPreview& preview, const SeedOptions& options,
                                     const std::string& list) {
  std::vector<int> selected;
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(',', begin), list.size());
    const std::string part = list.substr(begin, end - begin);
    const auto range = KeyRanges::Parse(part);
    if (!range) return range.Error();
    const bool single = part.find_first_not_of("0123456789") == std::string::npos;
    const std::size_t before = selected.size();
    for (const auto& [edge, itr] : preview.keys.edges) {
      const bool fits = single || preview.cad->GetEdgeKind(edge) != EdgeKind::kDegenerate;
      if (fits && range->Contains(preview.KeyOf(edge))) selected.push_back(edge);
    }
    if (selected.size() == before) {
      return Failure{options.cad, "edge " + part, "is not the key of an edge of this part",
                     "see the keys with: qxdb geom"};
    }
    begin = end + 1;
  }
  std::sort(selected.begin(), selected.end());
  selected.erase(std::unique(selected.begin(), selected.end()), selected.end());
  return selected;
}

/// Takes the edges out of the controls they have, or fails for the first one that has one.
Outcome FreeEdges(DPoolSzct& controls, const SeedPreview& preview, const std::vector<int>& edges,
                  const SeedOptions& options) {
  TArray<ITR> items;
  for (const int edge : edges) {
    const ITR item = preview.keys.edges.at(edge);
    ITR control = 0;
    if (!options.replace && controls.Exist(item, control)) {
      return Failure{options.model, fmt::format("edge {}", preview.KeyOf(edge)),
                     fmt::format("has size control {} already", controls.GetAtNU(control).key),
                     "take it out of that one with --replace"};
    }
    items.Add(item);
  }
  std::set<ITR> former;  // the controls that lose edges
  for (const ITR item : items) {
    ITR control = 0;
    if (controls.Exist(item, control)) former.insert(control);
  }
  if (!controls.IsEmpty() && !controls.DeleteGKeyArrayExist(items)) {
    return RefusalOf(options.model);
  }
  for (const ITR pos : former) {
    const tagTSzct& control = controls.GetAtNU(pos);
    const bool useless =
        control.edges.IsEmpty() && control.reversed_edges.IsEmpty() && control.bodies.IsEmpty();
    if (useless && !controls.Remove(pos)) return RefusalOf(options.model);
  }
  return {};
}

/// Makes the control of the options for its edges.
Result<tagTSzct> ControlOf(const CQXDBSession& session, const SeedPreview& preview,
                           const std::vector<int>& edges, const SeedOptions& options) {
  std::optional<tagTSzct> control;
  for (const int edge : edges) {
    auto made = MakeControl(session, options.seeding, preview.cad->GetEdgeLength(edge));
    if (!made) {
      Failure failure = made.Error();
      failure.place = fmt::format("edge {}", preview.KeyOf(edge));
      return failure;
    }
    if (control && !SameSeeding(*control, *made)) {
      return Failure{options.model, fmt::format("edge {}", preview.KeyOf(edge)),
                     "is of another length, for which other numbers solve the seeding",
                     "give edges of one length, or all numbers of the method"};
    }
    if (!control) control = std::move(*made);
    control->edges.Add(preview.keys.edges.at(edge));
  }
  control->key = Pool<tagTSzct>(session).Set().GetFreeKey();
  if (!options.name.empty()) {
    const std::u16string name = Utf16(options.name);
    const std::size_t most = std::size(control->name.units) - 1;
    if (name.size() > most) {
      return Failure{options.model, "--name",
                     fmt::format("has {} characters, more than {}", name.size(), most),
                     "give a shorter name"};
    }
    control->name.Set(name);
  }
  if (options.reverse.empty()) return *control;
  const auto reversed = SelectEdges(preview, options, options.reverse);
  if (!reversed) return reversed.Error();
  for (const int edge : *reversed) {
    if (!std::binary_search(edges.begin(), edges.end(), edge)) {
      return Failure{options.model, fmt::format("edge {}", preview.KeyOf(edge)),
                     "is to be reversed but not seeded", "name it among the edges as well"};
    }
    control->reversed_edges.Add(preview.keys.edges.at(edge));
  }
  return *control;
}

// ---- the commands -------------------------------------------------------------------------------

/// A model and its part, opened.
struct Opened {
  Model& model;
  std::unique_ptr<ICADSession> cad;
  SeedPreview preview;
};

Outcome OpenPart(const SeedOptions& options, Opened& opened) {
  const OutputOptions& output = options.output;
  const std::pair<const std::string&, OutputKind> files[] = {{output.svg, OutputKind::kSvg},
                                                             {output.points, OutputKind::kPoints}};
  std::vector<std::string> named = {options.model, options.cad};
  for (const auto& [file, kind] : files) {
    if (Outcome free = CheckOutput(file, kind, output.force, named); !free) return free;
    named.push_back(file);
  }
  if (Outcome free = CheckOutput(output.vtu, *exchange::FindFormat("vtu"), output.force, named);
      !free) {
    return free;
  }
  const CQXDBSession& session = opened.model.session;
  auto cad = OpenCad(options.cad, session);
  if (!cad) return cad.AsOutcome();
  opened.cad = std::move(*cad);
  opened.preview.cad = opened.cad.get();
  auto keys = FindCadGeometry(session, *opened.cad, FileName(options.cad));
  if (!keys) {
    Failure failure = keys.Error();
    failure.remedy += " with: qxdb geom " + options.cad + " " + options.model + " --add";
    return failure;
  }
  opened.preview.keys = std::move(*keys);
  return {};
}

Outcome WriteOutputs(const Opened& opened, const OutputOptions& output) {
  const SeedPreview& preview = opened.preview;
  if (!output.svg.empty()) {
    const std::string picture = MarkedSvg(host::SeedPicture(preview));
    if (Outcome written = WriteWholeFile(output.svg, picture); !written) {
      return written;
    }
  }
  if (!output.points.empty()) {
    if (Outcome written = WriteWholeFile(output.points, SeedPointsJson(preview)); !written) {
      return written;
    }
  }
  if (output.vtu.empty()) return {};
  return WriteSeedVtu(preview, opened.model.session.Units().Model(), output.vtu);
}

void PrintPreview(const Opened& opened, const std::string& last_line, JsonText& json,
                  const Context& context) {
  const CQXDBSession& session = opened.model.session;
  WriteSeedJson(opened.preview, json);
  context.Print(SeedTable(opened.preview, session) + last_line, json.End());
}

Outcome AddControl(Opened& opened, const SeedOptions& options, tagTSzct& control) {
  CQXDBSession& session = opened.model.session;
  DPoolSzct& controls = Pool<tagTSzct>(session);
  const auto edges = SelectEdges(opened.preview, options, options.edges);
  if (!edges) return edges.AsOutcome();
  auto made = ControlOf(session, opened.preview, *edges, options);
  if (!made) return made.AsOutcome();
  control = std::move(*made);
  if (Outcome freed = FreeEdges(controls, opened.preview, *edges, options); !freed) return freed;
  if (!controls.InsertNU(control)) {
    return Failure{options.model, "", "there is no key left for a size control", "renumber some"};
  }
  host::SeedPart(session, *opened.cad, opened.preview);
  for (const SeedPreview::Fault& fault : opened.preview.faults) {
    if (fault.control == control.key) return fault.failure;
  }
  for (const SeedMismatch& mismatch : opened.preview.mismatches) {
    const bool ours = std::binary_search(edges->begin(), edges->end(), mismatch.edge) ||
                      std::binary_search(edges->begin(), edges->end(), mismatch.other);
    if (!ours || options.output.force) continue;
    const std::string other =
        mismatch.other ? fmt::format(" and {}", opened.preview.KeyOf(mismatch.other)) : "";
    return Failure{options.model,
                   fmt::format("edge {}{}", opened.preview.KeyOf(mismatch.edge), other),
                   mismatch.what, "seed both the same way (--reverse turns one), or add --force"};
  }
  return {};
}

Outcome Add(Model& model, const SeedOptions& options, const Context& context) {
  Opened opened{model, {}, {}};
  if (Outcome done = OpenPart(options, opened); !done) return done;
  tagTSzct control;
  Edit edit(model);
  Outcome done = edit.Do(qxLoadText("IDS_QX_TRANS_ADD_SZCT").c_str(),
                         [&] { return AddControl(opened, options, control); });
  // The outputs first: where one cannot be written, nothing is stored.
  if (done) done = WriteOutputs(opened, options.output);
  if (done) done = edit.Save(options.dry_run);
  if (!done) return done;
  JsonText json;
  json.Begin().Text("model", options.model).Integer("control", control.key);
  json.Bool("saved", !options.dry_run);
  PrintPreview(
      opened,
      fmt::format("size control {} on {} edge{}{}\n", control.key, control.edges.GetSize(),
                  control.edges.GetSize() == 1 ? "" : "s", options.dry_run ? " (not saved)" : ""),
      json, context);
  return {};
}

Outcome Show(Model& model, const SeedOptions& options, Context& context) {
  Opened opened{model, {}, {}};
  if (Outcome done = OpenPart(options, opened); !done) return done;
  CQXDBSession& session = opened.model.session;
  host::SeedPart(session, *opened.cad, opened.preview);
  if (Outcome written = WriteOutputs(opened, options.output); !written) return written;
  JsonText json;
  json.Begin().Text("model", options.model);
  const SeedPreview& preview = opened.preview;
  if (!preview.mismatches.empty() || !preview.faults.empty()) context.exit_code = kNo;
  PrintPreview(opened, "", json, context);
  return {};
}

struct SolveOptions {
  std::string grading = "geometric";
  SeedingKnown known;
};

Outcome Solve(const SolveOptions& options, const Context& context) {
  const auto grading = options.grading == "linear" ? Grading::kLinear : Grading::kGeometric;
  const auto solved = SolveSeeding(grading, options.known);
  if (!solved) return solved.Error();
  JsonText json;
  json.Begin().Text("grading", options.grading).Integer("divisions", solved->divisions);
  json.Real("first", solved->first).Real("last", solved->last).Real("ratio", solved->ratio);
  json.Real("length", solved->length).Bool("rounded", solved->rounded).End();
  std::string text = fmt::format(
      "divisions {:>12}\nfirst     {:>12}\nlast      {:>12}\nratio     {:>12}\nlength    {:>12}\n",
      Grouped(solved->divisions), Short(solved->first), Short(solved->last), Short(solved->ratio),
      Short(solved->length));
  if (solved->rounded) text += "the divisions were rounded, and the sizes scaled to the length\n";
  context.Print(text, json);
  return {};
}

// ---- their options ------------------------------------------------------------------------------

/// The outputs, and --force, which a command may give a second meaning.
void AddOutputs(Command& command, OutputOptions& output, const char* also_forced = "") {
  command.Add("--svg", &output.svg, "Write a picture of the edges and their seeds").File({".svg"});
  command.Add("--points", &output.points, "Write the points as JSON").File({".json"});
  command.Add("--vtu", &output.vtu, "Write the points and intervals as a VTK file").File({".vtu"});
  AddForce(command, output.force, also_forced);
}

void AddKnown(Command& command, SeedingKnown& known) {
  command.Add("--divisions", &known.divisions, "Number of divisions");
  command.Add("--first", &known.first, "Size at the start");
  command.Add("--last", &known.last, "Size at the end");
  command.Add("--ratio", &known.ratio, "Last size over first size");
}

void AddSeedAdd(Command& group, Context& context) {
  const auto [command, options] =
      AddModelCommand<SeedOptions>(group, context, "add", "Seed edges by a new size control",
                                   "qxdb seed add joint.qxm joint.step 12-15 --method geometric "
                                   "--divisions 10 --ratio 4 --svg joint.svg",
                                   Add);
  SeedingOptions& seeding = options->seeding;
  std::vector<std::string> methods;
  for (const MethodNameEntry& entry : MethodNames()) methods.emplace_back(entry.name);
  command->Add("file", &options->cad, "CAD file of the part").File(kCadExtensions).Required();
  command->Add("edges", &options->edges, "Keys of edges: 12-15,20 or all").Keys().Required();
  command->Add("--method", &seeding.method, "How to seed").OneOf(methods).ShowDefault();
  command->Add("--size", &seeding.size, "Element size");
  AddKnown(*command, seeding.known);
  command->Add("--uniform", &seeding.uniform,
               "Fraction of the edge to divide evenly: at its start, or, negative, its end");
  command->Add("--symmetric", &seeding.symmetric, "Grade from both ends to the middle");
  command->Add("--at", &seeding.at, "Fractions of the length, e.g. 0.1 0.25 0.7");
  command->Add("--reverse", &options->reverse, "Keys of edges to seed from their end").Keys();
  command->Add("--name", &options->name, "Name of the size control");
  command->Add("--replace", &options->replace, "Take the edges out of other size controls");
  command->Add("--dry-run", &options->dry_run, "Show the seeds, save nothing");
  AddOutputs(*command, options->output, "; store seeds that do not match across a joint");
}

void AddSeedShow(Command& group, Context& context) {
  const auto [command, options] = AddModelCommand<SeedOptions>(
      group, context, "show", "Show all seeds and check that they match",
      "qxdb seed show joint.qxm joint.step --svg joint.svg", Show);
  command->Add("file", &options->cad, "CAD file of the part").File(kCadExtensions).Required();
  AddOutputs(*command, options->output);
}

void AddSeedSolve(Command& group, Context& context) {
  const auto [command, options] = AddCommand<SolveOptions>(
      group, context, "solve", "Solve a grading for what is not given of it",
      "qxdb seed solve --first 0.5 --ratio 4 --length 20", Solve);
  command->Add("--grading", &options->grading, "How sizes grow")
      .OneOf({"geometric", "linear"})
      .ShowDefault();
  AddKnown(*command, options->known);
  command->Add("--length", &options->known.length, "Length of the edge");
}

}  // namespace

void AddSeed(Command& app, Context& context) {
  Command* group = AddCommand(app, context, "seed", "Seed edges for meshing",
                              "qxdb seed add joint.qxm joint.step all --divisions 10");
  AddSeedAdd(*group, context);
  AddSeedShow(*group, context);
  AddSeedSolve(*group, context);
}

}  // namespace qx::app
