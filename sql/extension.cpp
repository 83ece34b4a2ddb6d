// The loadable extension qxdb.so: models as tables for whatever program uses SQLite.
//
//   SELECT qx_open('bracket.qxm');            the model's tables, to be read
//   SELECT qx_open('bracket.qxm', 'write');   statements change the model, each is a step
//   SELECT qx_open('b.qxm', 'read', 'b_');    a second model: its tables are b_node, b_element ...
//   SELECT qx_close();  qx_close('b_')        takes them off and lets go of the file
//   SELECT qx_undo();  qx_undo('b_')          takes the last step back
//
// A model belongs to the connection that opened it, and is closed with it.
// Threads: those of the connection, one at a time.

#include <map>
#include <memory>
#include <string>

#include "qx_db/core/document.h"

#include "host/application.h"
#include "host/session.h"
#include "host/texts.h"
#include "sql/model_tables.h"
#include "sql/sqlite_api.h"

SQLITE_EXTENSION_INIT1

namespace qx::sql {
namespace {

struct LessNoCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return sqlite3_stricmp(a.c_str(), b.c_str()) < 0;
  }
};

/// The models of one connection, by the prefix of their tables.
struct Models {
  std::map<std::string, std::shared_ptr<CQXDocBase>, LessNoCase> open;
};

/// What makes a process an application, once for all connections.
void BecomeApplication() {
  static const bool has_texts = [] { return bool(host::RegisterTexts("")); }();
  (void)has_texts;
  static const host::Application application;
}

Models& ModelsOf(sqlite3_context* call) {
  return **static_cast<std::shared_ptr<Models>*>(sqlite3_user_data(call));
}

std::string TextOf(int count, sqlite3_value** values, int i) {
  const auto* text =
      i < count ? reinterpret_cast<const char*>(sqlite3_value_text(values[i])) : nullptr;
  return text ? text : "";
}

void Fail(sqlite3_context* to, const Failure& failure) {
  sqlite3_result_error(to, failure.Line().c_str(), -1);
}

/// Nothing is thrown into SQLite.
template <class Work>
void Answer(sqlite3_context* to, Work&& work) {
  try {
    if (const Outcome done = work(); !done) return Fail(to, done.Error());
    sqlite3_result_null(to);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(to);
  } catch (const std::exception& fault) {
    sqlite3_result_error(to, fault.what(), -1);
  }
}

Outcome Close(sqlite3* db, Models& models, const std::string& prefix) {
  const auto found = models.open.find(prefix);
  if (found == models.open.end()) {
    return Failure{"", "qx_close", "no model is open under that prefix", "open one with qx_open"};
  }
  if (Outcome dropped = DropModelTables(db, prefix); !dropped) return dropped;
  models.open.erase(found);
  return {};
}

void QxOpen(sqlite3_context* to, int count, sqlite3_value** values) {
  Models& models = ModelsOf(to);
  const std::string path = TextOf(count, values, 0);
  const std::string mode = count > 1 ? TextOf(count, values, 1) : "read";
  const std::string prefix = TextOf(count, values, 2);
  Answer(to, [&]() -> Outcome {
    if (mode != "read" && mode != "write") {
      return Failure{"", "qx_open", "'" + mode + "' is neither 'read' nor 'write'", "name one"};
    }
    if (models.open.contains(prefix)) {
      return Failure{path, "", "another model has the tables of that name",
                     "close it with qx_close, or give this one's a prefix"};
    }
    BecomeApplication();
    const auto model = std::make_shared<CQXDocBase>(host::SetUpModel);
    if (Outcome opened = mode == "write" ? model->OpenForEditing(path) : model->Open(path);
        !opened) {
      return opened;
    }
    Outcome added = AddModelTables(sqlite3_context_db_handle(to), *model->GetDBSession(),
                                   {mode == "write", prefix, model});
    if (added) models.open.emplace(prefix, model);
    return added;
  });
}

void QxClose(sqlite3_context* to, int count, sqlite3_value** values) {
  Models& models = ModelsOf(to);
  Answer(to,
         [&] { return Close(sqlite3_context_db_handle(to), models, TextOf(count, values, 0)); });
}

void QxUndo(sqlite3_context* to, int count, sqlite3_value** values) {
  Models& models = ModelsOf(to);
  const std::string prefix = TextOf(count, values, 0);
  Answer(to, [&]() -> Outcome {
    const auto found = models.open.find(prefix);
    if (found == models.open.end()) {
      return Failure{"", "qx_undo", "no model is open under that prefix", "open one with qx_open"};
    }
    CQXDocBase& document = *found->second;
    if (!document.Keeper()) {
      return Failure{document.Path(), "", "is open to be read only", "open it with 'write'"};
    }
    if (document.GetDBSession()->Undo()) return {};
    return Failure{document.Path(), "", "there is no step to take back now", "see the table step"};
  });
}

}  // namespace
}  // namespace qx::sql

/// Called by SQLite when the extension is loaded.
extern "C" __attribute__((visibility("default"))) int sqlite3_qxdb_init(
    sqlite3* db, char** error, const sqlite3_api_routines* api) {
  SQLITE_EXTENSION_INIT2(api)
  using qx::sql::Models;
  constexpr int kNeeded = 3026000;  // sqlite3_vtab_nochange and what else is called
  if (sqlite3_libversion_number() < kNeeded) {
    *error = sqlite3_mprintf("qxdb needs SQLite 3.26 or newer");
    return SQLITE_ERROR;
  }
  const auto models = std::make_shared<Models>();
  const auto drop = [](void* data) { delete static_cast<std::shared_ptr<Models>*>(data); };
  const auto add = [&](const char* name, int least, int most,
                       void (*call)(sqlite3_context*, int, sqlite3_value**)) {
    int result = SQLITE_OK;
    for (int count = least; count <= most && result == SQLITE_OK; ++count) {
      result = sqlite3_create_function_v2(db, name, count, SQLITE_UTF8 | SQLITE_DIRECTONLY,
                                          new std::shared_ptr<Models>(models), call, nullptr,
                                          nullptr, drop);
    }
    return result;
  };
  int result = add("qx_open", 1, 3, qx::sql::QxOpen);
  if (result == SQLITE_OK) result = add("qx_close", 0, 1, qx::sql::QxClose);
  if (result == SQLITE_OK) result = add("qx_undo", 0, 1, qx::sql::QxUndo);
  // What the model library keeps for the life of the process must not be unloaded before.
  return result == SQLITE_OK ? SQLITE_OK_LOAD_PERMANENTLY : result;
}
