#include "sql/module.h"

#include <new>

namespace qx::sql {
namespace {

/// What SQLite keeps as long as prepared statements name the tables, also once those are dropped.
struct Module {
  std::unique_ptr<Catalogue> catalogue;  // none when the last table is dropped
  int tables = 0;                        // created and not dropped
  int cursors = 0;                       // open on any of them

  bool IsInUse() const { return cursors > 0 || (catalogue && catalogue->link.IsWriting()); }
};

/// SQLite's part first, as it wants.
struct Vtab {
  sqlite3_vtab base;
  sqlite3* db;
  Table* table;
  Link* link;
  Module* module;
};
struct Vcursor {
  explicit Vcursor(const Vtab& table) : module(table.module), cursor(table.table->Open()) {
    ++module->cursors;
  }
  ~Vcursor() { --module->cursors; }
  Vcursor(const Vcursor&) = delete;
  Vcursor& operator=(const Vcursor&) = delete;

  sqlite3_vtab_cursor base{};
  Module* module;
  std::unique_ptr<Cursor> cursor;
};

Vtab& Of(sqlite3_vtab* base) { return *reinterpret_cast<Vtab*>(base); }
Cursor& Of(sqlite3_vtab_cursor* base) { return *reinterpret_cast<Vcursor*>(base)->cursor; }

void Say(sqlite3_vtab* table, const std::string& text) {
  sqlite3_free(table->zErrMsg);
  table->zErrMsg = sqlite3_mprintf("%s", text.c_str());
}

/// Nothing is thrown into SQLite: what a failure says becomes its message.
int Caught(sqlite3_vtab* table) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
  } catch (const std::exception& fault) {
    Say(table, fault.what());
    return SQLITE_ERROR;
  } catch (...) {  // who watches long work has ended it
    return SQLITE_INTERRUPT;
  }
}

template <class Work>
int Guard(sqlite3_vtab* table, int code, Work&& work) {
  try {
    const Outcome done = work();
    if (done) return SQLITE_OK;
    Say(table, done.Line());
    return code;
  } catch (...) {
    return Caught(table);
  }
}

int Connect(sqlite3* db, void* data, int count, const char* const* arguments, sqlite3_vtab** out,
            char** error) {
  auto& module = *static_cast<Module*>(data);
  if (!module.catalogue) {
    *error = sqlite3_mprintf("the model is closed");
    return SQLITE_ERROR;
  }
  Catalogue& catalogue = *module.catalogue;
  const std::string name = count > 3 ? arguments[3] : "";
  const auto found = catalogue.tables.find(name);
  if (found == catalogue.tables.end()) {
    *error = sqlite3_mprintf("the model has no table \"%s\"", name.c_str());
    return SQLITE_ERROR;
  }
  const int declared = sqlite3_declare_vtab(db, found->second->Declaration().c_str());
  if (declared != SQLITE_OK) return declared;
  sqlite3_vtab_config(db, SQLITE_VTAB_CONSTRAINT_SUPPORT, 1);
  auto* table = new (std::nothrow) Vtab{{}, db, found->second.get(), &catalogue.link, &module};
  if (!table) return SQLITE_NOMEM;
  *out = &table->base;
  return SQLITE_OK;
}

int Create(sqlite3* db, void* data, int count, const char* const* arguments, sqlite3_vtab** out,
           char** error) {
  const int connected = Connect(db, data, count, arguments, out, error);
  if (connected == SQLITE_OK) ++static_cast<Module*>(data)->tables;
  return connected;
}

int Disconnect(sqlite3_vtab* table) {
  delete &Of(table);
  return SQLITE_OK;
}

/// All tables go or none: what is in use keeps the first from being dropped already.
int Destroy(sqlite3_vtab* table) {
  Module& module = *Of(table).module;
  if (module.IsInUse()) return SQLITE_LOCKED;
  Disconnect(table);
  if (--module.tables == 0) module.catalogue.reset();
  return SQLITE_OK;
}

int BestIndex(sqlite3_vtab* table, sqlite3_index_info* info) {
  int result = SQLITE_OK;
  const int guarded = Guard(table, SQLITE_ERROR, [&]() -> Outcome {
    result = Of(table).table->BestIndex(*info);
    return {};
  });
  return guarded == SQLITE_OK ? result : guarded;
}

int Open(sqlite3_vtab* table, sqlite3_vtab_cursor** out) {
  return Guard(table, SQLITE_ERROR, [&]() -> Outcome {
    *out = &(new Vcursor(Of(table)))->base;
    return {};
  });
}

int Close(sqlite3_vtab_cursor* cursor) {
  delete reinterpret_cast<Vcursor*>(cursor);
  return SQLITE_OK;
}

int Filter(sqlite3_vtab_cursor* cursor, int plan, const char*, int count, sqlite3_value** values) {
  return Guard(cursor->pVtab, SQLITE_ERROR, [&] {
    return Of(cursor).Filter(plan, Arguments(values, static_cast<std::size_t>(count)));
  });
}

// Once for each row, and for each value of it: no failure is made where there is none.

int Next(sqlite3_vtab_cursor* cursor) {
  try {
    if (Of(cursor).Next()) return SQLITE_OK;
    Say(cursor->pVtab, Of(cursor).Fault().Line());
    return SQLITE_ABORT;
  } catch (...) {
    return Caught(cursor->pVtab);
  }
}

int AtEnd(sqlite3_vtab_cursor* cursor) { return Of(cursor).AtEnd(); }

int Value(sqlite3_vtab_cursor* cursor, sqlite3_context* to, int column) {
  try {
    Of(cursor).Value(to, column);
    return SQLITE_OK;
  } catch (...) {
    return Caught(cursor->pVtab);
  }
}

int RowId(sqlite3_vtab_cursor* cursor, sqlite3_int64* out) {
  *out = Of(cursor).RowId();
  return SQLITE_OK;
}

// ---- writing ------------------------------------------------------------------------------------

int Update(sqlite3_vtab* base, int count, sqlite3_value** values, sqlite3_int64* row_id) {
  Vtab& table = Of(base);
  return Guard(base, SQLITE_CONSTRAINT, [&]() -> Outcome {
    if (!table.link->IsWritable()) {
      return Failure{"", "table " + table.table->Name(), "the model is open to be read only",
                     "open it for writing"};
    }
    return table.table->Update(table.db, Arguments(values, static_cast<std::size_t>(count)),
                               row_id);
  });
}

int Begin(sqlite3_vtab* base) {
  Vtab& table = Of(base);
  return Guard(base, SQLITE_ERROR, [&]() -> Outcome {
    return table.link->IsWritable() ? table.link->Begin(table.db) : Outcome();
  });
}

int Sync(sqlite3_vtab* base) {
  return Guard(base, SQLITE_CONSTRAINT, [&] { return Of(base).link->Sync(); });
}

/// An operation of the link that fails by no more than a lack of memory.
template <void (Link::*kDo)()>
int Do(sqlite3_vtab* base) {
  return Guard(base, SQLITE_ERROR, [&]() -> Outcome {
    (Of(base).link->*kDo)();
    return {};
  });
}
template <void (Link::*kDo)(int)>
int DoAt(sqlite3_vtab* base, int level) {
  return Guard(base, SQLITE_ERROR, [&]() -> Outcome {
    (Of(base).link->*kDo)(level);
    return {};
  });
}

const sqlite3_module kModule = [] {
  sqlite3_module module{};
  module.iVersion = 2;
  module.xCreate = Create;
  module.xConnect = Connect;
  module.xDestroy = Destroy;
  module.xDisconnect = Disconnect;
  module.xBestIndex = BestIndex;
  module.xOpen = Open;
  module.xClose = Close;
  module.xFilter = Filter;
  module.xNext = Next;
  module.xEof = AtEnd;
  module.xColumn = Value;
  module.xRowid = RowId;
  module.xUpdate = Update;
  module.xBegin = Begin;
  module.xSync = Sync;
  module.xCommit = Do<&Link::Commit>;
  module.xRollback = Do<&Link::Rollback>;
  module.xSavepoint = DoAt<&Link::Savepoint>;
  module.xRelease = DoAt<&Link::Release>;
  module.xRollbackTo = DoAt<&Link::RollbackTo>;
  return module;
}();

}  // namespace

int AddModule(sqlite3* db, const std::string& module, std::unique_ptr<Catalogue> catalogue) {
  auto* data = new Module{std::move(catalogue)};
  return sqlite3_create_module_v2(db, module.c_str(), &kModule, data,
                                  [](void* old) { delete static_cast<Module*>(old); });
}

}  // namespace qx::sql
