#include "tests/callback/interface_text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

namespace qx {
namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string OneLine(const std::string& text) {
  std::istringstream words(text);
  std::string line;
  for (std::string word; words >> word;) line += (line.empty() ? "" : " ") + word;
  return line;
}

/// What a default body answers, in words.
std::string AnswerOf(const std::string& tail) {
  static const std::map<std::string, std::string> words = {
      {"= 0;", "must be supplied"},
      {"{}", "nothing"},
      {"{ return {}; }", "empty text"},
      {"{ return nullptr; }", "null"},
      {"{ mass_x = mass_y = mass_z = 0.0; }", "zeroes the masses"},
      {";", "refreshes the selection lists"},
  };
  if (const auto found = words.find(tail); found != words.end()) return found->second;
  std::smatch match;
  if (std::regex_match(tail, match, std::regex("\\{ return (-?[0-9.]+); \\}"))) return match[1];
  return "unknown body: " + tail;
}

/// Splits a declaration behind the parenthesis that closes its parameters.
DeclaredOperation Parse(const std::string& declaration) {
  DeclaredOperation operation;
  const std::string text = OneLine(declaration);
  std::size_t end = text.find('(');
  int depth = 0;
  do {
    depth += text[end] == '(' ? 1 : text[end] == ')' ? -1 : 0;
    ++end;
  } while (depth > 0 && end < text.size());
  operation.signature = text.substr(std::string("virtual ").size(), end - 8);
  operation.answer = AnswerOf(OneLine(text.substr(end)));
  const std::size_t open = operation.signature.find('(');
  const std::size_t start = operation.signature.find_last_of(" *&", open) + 1;
  operation.name = operation.signature.substr(start, open - start);
  return operation;
}

bool IsWhole(const std::string& declaration) {
  const auto count = [&](char c) { return std::count(declaration.begin(), declaration.end(), c); };
  const bool body = count('{') > 0 && count('{') == count('}');
  return count('(') > 0 && count('(') == count(')') &&
         (body || (count('{') == 0 && OneLine(declaration).back() == ';'));
}

std::vector<DeclaredInterface> ParseHeader(const fs::path& path) {
  std::vector<DeclaredInterface> found;
  DeclaredInterface result;  // the class that is being read, if it has a name
  std::istringstream lines(ReadText(path));
  std::string section, comment, declaration;
  static const std::regex comment_line("\\s*/// (.*)");
  static const std::regex heading("  // ---- (.*?) -+");
  static const std::regex class_line("^class QXDB_API (I\\w+) : public Call.*");
  std::smatch match;
  for (std::string line; std::getline(lines, line);) {
    const bool is_operation = !result.name.empty() && line.starts_with("  virtual ");
    if (!declaration.empty() || is_operation) {
      declaration += line + ' ';
      if (!IsWhole(declaration)) continue;
      if (declaration.find('~') != std::string::npos) {
        result.destructor_first = result.operations.empty();
      } else {
        result.operations.push_back(Parse(declaration));
        result.operations.back().section = section;
        result.operations.back().comment = OneLine(comment);
      }
      declaration.clear();
      comment.clear();
    } else if (std::regex_match(line, match, comment_line)) {
      comment += match[1].str() + ' ';
    } else if (std::regex_match(line, match, heading)) {
      section = match[1];
    } else if (std::regex_match(line, match, class_line)) {
      result.name = match[1];
      result.comment = OneLine(comment);
      comment.clear();
    } else if (line == "};" && !result.name.empty()) {
      found.push_back(std::exchange(result, {}));
      section.clear();
    } else {
      comment.clear();
    }
  }
  return found;
}

/// The sources that call an operation of an interface: they name the interface, and the operation
/// behind a pointer, or behind `app`, as what is given an application to ask calls it.
class Callers {
 public:
  Callers() {
    const fs::path root = QX_SOURCE_DIR;
    for (const char* top : {"src/qx_db", "adapters", "exchange", "host", "apps"}) {
      if (!fs::exists(root / top)) continue;
      for (const auto& entry : fs::recursive_directory_iterator(root / top)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
        const std::string text = ReadText(entry.path());
        if (text.find("::Instance()") == std::string::npos) continue;
        std::string name = fs::relative(entry.path(), root).generic_string();
        const bool is_interface = name.starts_with("src/qx_db/callback/");
        if (is_interface && !name.ends_with("/callbacks.cpp")) continue;
        if (name.starts_with("src/")) name = name.substr(4);
        texts_[name] = text;
      }
    }
  }

  std::string Of(const std::string& interface, const std::string& operation) const {
    std::set<std::string> names;
    for (const auto& [name, text] : texts_) {
      if (text.find(interface + "::Instance()") == std::string::npos) continue;
      for (const char* of : {"->", " app."}) {
        if (text.find(of + operation + "(") != std::string::npos) names.insert(name);
      }
    }
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "`" : ", `") + name + "`";
    return list.empty() ? "the application" : list;
  }

 private:
  std::map<std::string, std::string> texts_;
};

}  // namespace

std::vector<DeclaredInterface> DeclaredInterfaces() {
  return ParseHeader(QX_SOURCE_DIR "/src/qx_db/callback/callbacks.h");
}

std::string CallbackPage() {
  const Callers callers;
  std::string page =
      "# Callback interfaces\n\n"
      "What the library asks of the application, operation by operation, in the order of the "
      "slots; the\ndestructor stands before the first. Generated from "
      "`src/qx_db/callback/callbacks.h`, "
      "which reads from top\nto bottom, by `QX_UPDATE_DOCS=1 test_callback`; a test fails when it "
      "is "
      "stale. *The application* as caller\nmeans its own modules: nothing in this repository calls "
      "the operation.\n\n`IElemSideDetect` has a destructor only and no slot.\n";
  for (const DeclaredInterface& interface : DeclaredInterfaces()) {
    page += "\n## " + interface.name + "\n\n" + interface.comment + '\n';
    std::string section = "none yet";
    int slot = 0;
    for (const DeclaredOperation& operation : interface.operations) {
      if (operation.section != section) {
        section = operation.section;
        if (!section.empty()) page += "\n### " + section + '\n';
        page += "\n| slot | operation | default | called by | |\n|---|---|---|---|---|\n";
      }
      page += "| " + std::to_string(++slot) + " | `" + operation.signature + "` | " +
              operation.answer + " | " + callers.Of(interface.name, operation.name) + " | " +
              operation.comment + " |\n";
    }
  }
  return page;
}

}  // namespace qx
