#include "viewer/html_file.h"

#include <algorithm>
#include <map>

#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/platform/file.h"

#include "viewer/assets.h"
#include "viewer/base64.h"
#include "viewer/field_values.h"

namespace qx::viewer {
namespace {

void Put(std::string& text, std::string_view mark, std::string_view with) {
  const std::size_t at = text.find(mark);
  if (at != std::string::npos) text.replace(at, mark.size(), with);
}

/// Collects what the page is to hold.
class Filling {
 public:
  Filling(Source& source, HtmlReport& report) : source_(source), report_(report) {}

  /// A pack of the state that is the page's present.
  Outcome Add(const std::string& name) { return AddAs(name, name, Source::kNow); }
  Outcome Add(const std::string& name, std::int64_t step) {
    return AddAs(name + "@" + std::to_string(step), name, step);
  }

  /// The states before the present one and what their steps changed.
  Outcome AddHistory(std::size_t most_bytes) {
    const auto count = static_cast<std::int64_t>(source_.StepCount());
    const auto now = static_cast<std::int64_t>(source_.StepsDone());
    std::size_t bytes = 0;
    std::int64_t taken = 0;
    for (std::int64_t step = count; step >= 0 && bytes <= most_bytes; --step, ++taken) {
      const std::size_t before = blocks_.size();
      if (step != now) {
        if (Outcome added = Add("base", step); !added) return added;
        bytes += last_;
      }
      if (step > 0) {
        if (Outcome added = Add("changes", step); !added) return added;
        bytes += last_;
      }
      if (bytes > most_bytes) {
        blocks_.resize(before);
        break;
      }
    }
    if (taken < count + 1) {
      report_.left_out.push_back("the oldest " + std::to_string(count + 1 - taken) +
                                 " states of the history, for the file's size");
    }
    return {};
  }

  Outcome AddValues(const HtmlOptions& options) {
    std::vector<std::string> names;
    // The most telling first.
    for (const char* name : {"scaled-jacobian", "aspect-ratio", "min-angle"}) names.push_back(name);
    for (std::string& name : FieldNames(source_.Session())) names.push_back(std::move(name));
    for (const MeasureInfo& info : Measures()) {
      const std::string name(info.name);
      if (info.shown == Shown::kByDefault &&
          std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
      }
    }
    names.insert(names.end(), {"part", "thickness", "x", "y", "z"});
    std::size_t bytes = 0;
    for (const std::string& name : names) {
      if (bytes > options.value_bytes) {
        report_.left_out.push_back("colours by " + name + " and what follows it in the list");
        return {};
      }
      if (Outcome added = Add(std::string(kValuesPrefix) + name); !added) return added;
      bytes += last_;
    }
    return {};
  }

  const std::string& Blocks() const { return blocks_; }
  std::size_t Last() const { return last_; }

 private:
  Outcome AddAs(const std::string& full, const std::string& name, std::int64_t step) {
    Result<std::string> pack = source_.Get(name, step);
    if (!pack) return pack.Error();
    // Names are the library's own; still, nothing of the kind gets out of its quotes.
    last_ = pack->size();
    blocks_ += "<script type=\"application/octet-stream\" data-name=\"" + EscapedHtml(full) +
               "\">" + ToBase64(*pack) + "</script>\n";
    return {};
  }

  Source& source_;
  HtmlReport& report_;
  std::string blocks_;
  std::size_t last_ = 0;
};

}  // namespace

Result<std::string> HtmlPage(Source& source, const HtmlOptions& options, HtmlReport& report) {
  source.SetServed(false);
  Filling filling(source, report);
  if (Outcome added = filling.Add("base"); !added) return added.Error();
  report.base_bytes = filling.Last();
  report.surface_corners = source.Present().Surface().CornerCount();
  if (source.Present().SolidCount() <= options.most_solids) {
    if (Outcome added = filling.Add("volume"); !added) return added.Error();
  } else {
    report.left_out.push_back("the inside: no cuts, and nothing behind what is hidden");
  }
  for (const char* name : {"findings", "glyphs"}) {
    if (Outcome added = filling.Add(name); !added) return added.Error();
  }
  if (source.HasSeeds()) {
    if (Outcome added = filling.Add("seeds"); !added) return added.Error();
  }
  if (Outcome added = filling.AddValues(options); !added) return added.Error();
  if (Outcome added = filling.AddHistory(options.step_bytes); !added) return added.Error();

  std::string page(PageHtml());
  const std::string name = Utf8FromPath(PathFromUtf8(source.Path()).filename());
  Put(page, "<!--TITLE-->", EscapedHtml(name));
  std::string head =
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data: blob:; "
      "base-uri 'none'; form-action 'none'\">\n<style>\n";
  head += PageStyle();
  head += "</style>";
  Put(page, "<!--HEAD-->", head);
  std::string tail = filling.Blocks();
  tail += "<script>\n";
  tail += PageScript();
  tail += "</script>";
  Put(page, "<!--TAIL-->", tail);
  report.bytes = page.size();
  return page;
}

}  // namespace qx::viewer
