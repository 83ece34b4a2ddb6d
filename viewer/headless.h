#pragma once
// A browser without a window, told what to do through a pair of pipes: no address, no port and no
// file that another user could reach.

#include <functional>
#include <memory>
#include <rapidjson/document.h>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "viewer/pack.h"

namespace qx::viewer {

/// A browser of the Chromium family showing one page. The process ends with the object. For one
/// thread at a time, but for Stop.
class HeadlessBrowser {
 public:
  /// Answers what the page asks with a script that the page then runs.
  using Answer = std::function<Result<std::string>(std::string_view question)>;

  /// Starts chromium-headless-shell, chromium and the like from PATH, or the one that QXDB_BROWSER
  /// names; returns before it is up.
  static Result<std::unique_ptr<HeadlessBrowser>> Start();
  ~HeadlessBrowser();
  HeadlessBrowser(const HeadlessBrowser&) = delete;
  HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

  /// Opens an empty page of so many pixels and puts `html` into it, without running its scripts.
  Outcome OpenPage(int width, int height, std::string_view html);
  /// Gives the page a function of that name, of one text: a question for Evaluate's `answer`.
  Outcome Expose(std::string_view name);
  /// Runs a script and waits for the promise that it may return. What it asks meanwhile is
  /// answered; fails with the first error of this or any other script of the page, those told to
  /// its console among them, or the first answer that failed.
  Outcome Evaluate(std::string_view script, const Answer& answer = {});
  /// What the page looks like, as the bytes of a PNG file.
  Result<std::string> Screenshot();
  /// Ends the process, so that another thread that waits for it fails at once.
  void Stop();

 private:
  class Folder;
  HeadlessBrowser();
  /// Calls a method of the protocol with parameters, a JSON object, and waits for its result.
  Result<rapidjson::Document> Call(std::string_view method, std::string_view parameters,
                                   const Answer& answer = {});
  Outcome AnswerAll(const Answer& answer);
  /// Fails with the text of an error that a script of the page met, whoever ran it, or told the
  /// console.
  Outcome CheckScripts(const rapidjson::Document& message) const;
  Outcome Send(std::string_view method, std::string_view parameters);
  Result<rapidjson::Document> Receive();
  Failure Lost(const std::string& what) const;

  std::unique_ptr<Folder> folder_;
  std::string program_;
  int process_ = -1;
  int socket_ = -1;
  std::string received_;
  std::string session_;             // of the page
  std::vector<std::string> asked_;  // by the page, not answered yet
  std::int64_t last_ = 0;           // number of a call
};

}  // namespace qx::viewer
