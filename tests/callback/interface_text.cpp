#include "tests/callback/interface_text.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <unistd.h>
#include <utility>

#ifndef QX_COMPILER  // a build that does not ask it
#define QX_COMPILER "false"
#define QX_INCLUDES ""
#endif

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

/// Who calls which operation, by the compiler's word: the header is compiled with every operation
/// deprecated under its interface and slot, and the warnings are read.
class Callers {
 public:
  Callers() {
    const fs::path root = QX_SOURCE_DIR;
    const fs::path marked = fs::temp_directory_path() / ("qx_callers_" + std::to_string(getpid()));
    WriteMarkedHeader(root / "src" / kHeader, marked / kHeader);
    for (const char* top : {"src/qx_db", "adapters", "exchange", "host", "apps", "viewer"}) {
      for (const auto& entry : fs::recursive_directory_iterator(root / top)) {
        if (entry.path().extension() != ".cpp") continue;
        static const std::regex named(
            "\\bI(AppDB|UpdateDB|FuncDB|CustomPostDB|CustomMcas|"
            "RenderConnect|QXDbInterface)\\b");
        if (std::regex_search(ReadText(entry.path()), named)) Compile(entry.path(), marked);
      }
    }
    fs::remove_all(marked);
  }

  std::string Of(const std::string& interface, int slot) const {
    const auto found = of_.find({interface, slot});
    std::string list;
    for (const std::string& name : found == of_.end() ? std::set<std::string>() : found->second) {
      list += (list.empty() ? "`" : ", `") + name + "`";
    }
    return list.empty() ? "the application" : list;
  }
  /// The sources that did not compile.
  const std::vector<std::string>& Faults() const { return faults_; }

 private:
  static constexpr const char* kHeader = "qx_db/callback/callbacks.h";

  static void WriteMarkedHeader(const fs::path& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    std::ifstream in(from);
    std::ofstream out(to);
    std::string interface;
    int slot = 0;
    static const std::regex class_line("^class QXDB_API (I\\w+) : public Call.*");
    std::smatch match;
    for (std::string line; std::getline(in, line);) {
      if (std::regex_match(line, match, class_line)) {
        interface = match[1];
        slot = 0;
      }
      if (line.starts_with("  virtual ") && line.find('~') == std::string::npos) {
        out << "  [[deprecated(\"slot " << interface << ' ' << ++slot << "\")]]" << line << '\n';
      } else {
        out << line << '\n';
      }
    }
  }

  void Compile(const fs::path& source, const fs::path& marked) {
    const std::string command = std::string("LC_ALL=C ") + QX_COMPILER +
                                " -std=c++20 -fsyntax-only "
                                "-Wdeprecated-declarations -I'" +
                                marked.string() + "'" QX_INCLUDES " '" + source.string() + "' 2>&1";
    FILE* said = popen(command.c_str(), "r");
    std::string text;
    for (char buffer[4096]; said && std::fgets(buffer, sizeof(buffer), said);) text += buffer;
    std::string name = fs::relative(source, QX_SOURCE_DIR).generic_string();
    if (!said || pclose(said) != 0) faults_.push_back(name + ": " + text);
    if (name.starts_with("src/")) name = name.substr(4);
    static const std::regex call("slot (I\\w+) ([0-9]+)");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      std::smatch match;
      // A warning stands in the source, "note: declared here" and the lines shown in the header.
      const bool is_call = line.starts_with(source.string()) && line.find("warning:") != line.npos;
      if (is_call && std::regex_search(line, match, call)) {
        of_[{match[1], std::stoi(match[2])}].insert(name);
      }
    }
  }

  std::map<std::pair<std::string, int>, std::set<std::string>> of_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<DeclaredInterface> DeclaredInterfaces() {
  return ParseHeader(QX_SOURCE_DIR "/src/qx_db/callback/callbacks.h");
}

std::string CallbackPage() {
  const Callers callers;
  for (const std::string& fault : callers.Faults()) ADD_FAILURE() << fault;
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
      ++slot;
      page += "| " + std::to_string(slot) + " | `" + operation.signature + "` | " +
              operation.answer + " | " + callers.Of(interface.name, slot) + " | " +
              operation.comment + " |\n";
    }
  }
  return page;
}

}  // namespace qx
