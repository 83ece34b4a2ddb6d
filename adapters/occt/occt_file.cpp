// Reading CAD files. The kernel's readers take what they can of a damaged file without a word, so
// that the end of each file is checked before they see it.

#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <IGESControl_Reader.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_Printer.hxx>
#include <STEPControl_Reader.hxx>
#include <Standard_Failure.hxx>
#include <TopoDS_Shape.hxx>
#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>
#include <sstream>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

#include "adapters/occt/occt_cad.h"
#include "adapters/occt/trial.h"

#if defined(__SANITIZE_ADDRESS__)
#define QX_LEAKS_ARE_SOUGHT
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_LEAKS_ARE_SOUGHT
#endif
#endif
#ifdef QX_LEAKS_ARE_SOUGHT
#include <sanitizer/lsan_interface.h>
#endif

namespace qx::occt {
namespace {

/// The kernel registers what it knows once in a process, some 3 kB, and never frees it: nothing is
/// a leak that it takes meanwhile.
struct [[maybe_unused]] KernelAtWork {
#ifdef QX_LEAKS_ARE_SOUGHT
  __lsan::ScopedDisabler disabler;
#endif
};

std::string_view TrimmedEnd(std::string_view text) {
  const auto end = text.find_last_not_of(" \t\r\n");
  return text.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

std::string_view LastLine(std::string_view text) {
  const auto at = text.find_last_of('\n');
  return at == std::string_view::npos ? text : text.substr(at + 1);
}

// ---- whether a file is of its kind, and whole ---------------------------------------------------

bool IsWholeStep(std::string_view text) {
  return text.find("ISO-10303-21;") < 4096 && TrimmedEnd(text).ends_with("END-ISO-10303-21;");
}

/// Lines of 80 columns; the one of the section T comes last.
bool IsWholeIges(std::string_view text) {
  const std::string_view last = LastLine(TrimmedEnd(text));
  return last.size() == 80 && last[72] == 'T' && text.size() > 72 && text[72] == 'S';
}

/// The list of shapes ends in "*", and the reference to the outermost one, "+1 0", follows.
bool IsWholeBrep(std::string_view text) {
  // Another version than these makes the kernel talk on standard output.
  constexpr std::string_view kVersions[] = {"CASCADE Topology V1, (c)", "CASCADE Topology V2, (c)",
                                            "CASCADE Topology V3, (c)"};
  if (std::none_of(std::begin(kVersions), std::end(kVersions),
                   [&](std::string_view version) { return text.find(version) < 4096; })) {
    return false;
  }
  text = TrimmedEnd(text);
  const std::string_view last = TrimmedEnd(LastLine(text));
  const std::string_view before = TrimmedEnd(text.substr(0, text.size() - last.size()));
  const auto blank = last.find(' ');
  if (last.size() < 4 || (last[0] != '+' && last[0] != '-') || blank == std::string_view::npos) {
    return false;
  }
  for (std::size_t i = 1; i < last.size(); ++i) {
    if (i != blank && !std::isdigit(static_cast<unsigned char>(last[i]))) return false;
  }
  return before.ends_with('*');
}

// ---- the kernel's readers -----------------------------------------------------------------------

template <class Reader>
bool ReadBy(const std::string& path, const std::string&, TopoDS_Shape& shape) {
  Reader reader;
  if (reader.ReadFile(path.c_str()) != IFSelect_RetDone) return false;
  reader.TransferRoots();
  shape = reader.OneShape();
  return true;
}

bool ReadBrep(const std::string&, const std::string& bytes, TopoDS_Shape& shape) {
  std::istringstream in(bytes);
  BRep_Builder builder;
  BRepTools::Read(shape, in, builder);
  return !in.bad();
}

struct Format {
  const char* extensions;  ///< upper case, each with a blank behind it
  const char* name;
  bool (*is_whole)(std::string_view bytes);
  bool (*read)(const std::string& path, const std::string& bytes, TopoDS_Shape& shape);
};

constexpr Format kFormats[] = {
    {".STEP .STP ", "STEP", IsWholeStep, ReadBy<STEPControl_Reader>},
    {".IGES .IGS ", "IGES", IsWholeIges, ReadBy<IGESControl_Reader>},
    {".BREP .BRP ", "BREP", IsWholeBrep, ReadBrep},
};

const Format* FindFormat(const std::string& path) {
  const std::string extension = AsciiUpper(Utf8FromPath(PathFromUtf8(path).extension()));
  if (extension.empty()) return nullptr;
  for (const Format& format : kFormats) {
    if (std::string_view(format.extensions).find(extension + " ") != std::string_view::npos) {
      return &format;
    }
  }
  return nullptr;
}

/// The readers talk on standard output, which belongs to the program.
void Silence() {
  static const bool done = [] {
    Message::DefaultMessenger()->RemovePrinters(STANDARD_TYPE(Message_Printer));
    return true;
  }();
  static_cast<void>(done);
}

enum Reading { kRead, kUnreadable, kNoShapes, kNoEdges };

/// What is wrong and what to do, by Reading.
struct Trouble {
  const char* what;
  const char* remedy;
};
constexpr Trouble kTroubles[] = {
    {"", ""},
    {"is damaged: the CAD kernel cannot read it", "export it again"},
    {"holds no shapes", "export the part with its geometry"},
    {"holds no edges", "export the part with its edges"},
};

Reading Read(const Format& format, const std::string& path, const std::string& bytes, double scale,
             std::unique_ptr<ICADSession>& session) {
  TopoDS_Shape shape;
  try {
    {
      const KernelAtWork at_work;
      if (!format.read(path, bytes, shape)) return kUnreadable;
    }
    if (shape.IsNull()) return kNoShapes;
    session = MakeCadSession(shape, scale);
  } catch (const Standard_Failure&) {
    return kUnreadable;
  } catch (const std::exception&) {
    return kUnreadable;
  }
  if (!session) return kUnreadable;
  return session->GetEdgeCount() == 0 ? kNoEdges : kRead;
}

/// Processor time that no sound file of this size needs.
unsigned MostSeconds(std::size_t bytes) { return static_cast<unsigned>(5 + bytes / 50'000); }

}  // namespace

Result<std::unique_ptr<ICADSession>> ReadCadFile(const std::string& path, double unit_in_metres) {
  const Format* format = FindFormat(path);
  if (!format) {
    return Failure{path, "", "is in no CAD format that is read", "use STEP, IGES or BREP"};
  }
  const auto bytes = ReadWholeFile(path);
  if (!bytes) return bytes.Error();
  if (!format->is_whole(*bytes)) {
    return Failure{path, "", std::string("is no ") + format->name + " file, or was cut short",
                   "export it again"};
  }
  Silence();
  constexpr double kKernelUnit = 0.001;  // shapes are in millimetres
  std::unique_ptr<ICADSession> session;
  const auto read = [&] {
    return static_cast<int>(Read(*format, path, *bytes, kKernelUnit / unit_in_metres, session));
  };
  // A file with one wrong digit can make the kernel crash or go on for ever. What is read here has
  // been read once before.
  const TrialResult trial = Try(read, MostSeconds(bytes->size()));
  const int result = !trial.ended ? kUnreadable : trial.answer == kRead ? read() : trial.answer;
  if (result == kRead) return session;
  const Trouble& trouble = kTroubles[result <= kNoEdges ? result : kUnreadable];
  return Failure{path, "", trouble.what, trouble.remedy};
}

extern "C" void qx_read_cad_file(const std::string& path, double unit_in_metres,
                                 Result<std::unique_ptr<ICADSession>>& into) {
  into = ReadCadFile(path, unit_in_metres);
}

}  // namespace qx::occt
