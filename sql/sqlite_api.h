#pragma once
// SQLite as the tables see it: its library, or, in a loadable extension, the functions that the
// program which loads it hands over. That program may have an SQLite of its own beside the one that
// the model file is read with, so that an extension must call no other.
// Threads: as the connection's.

#ifdef QX_SQL_EXTENSION
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT3
#else
#include <sqlite3.h>
#endif
