#include <cstdio>
#include <iostream>
#include <sqlite3.h>

#include "apps/qxdb/sql/sql_model.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace qx::app {

Outcome RunPrompt(SqlModel& model, RowForm form, const Context&) {
  const RowSink out = ToStandardOutput(form);
  std::string waiting;
  for (std::string line; std::getline(std::cin, line);) {
    if (waiting.empty() && line.starts_with('.')) {
      const Result<bool> ran = model.RunDotCommand(line, form, out);
      if (!ran) return ran.Error();
      continue;
    }
    waiting += line + '\n';
    if (!sqlite3_complete(waiting.c_str())) continue;
    if (Outcome run = model.Run(waiting, form, out); !run) return run;
    waiting.clear();
  }
  return model.Run(waiting, form, out);
}

}  // namespace qx::app
