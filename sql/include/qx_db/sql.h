#pragma once
// The public interface of QX_db::sql: a model as tables of SQLite.
#include "sql/model_tables.h"
