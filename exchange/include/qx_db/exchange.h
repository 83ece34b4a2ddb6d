#pragma once
// Meshes and decks in and out of models: link QX_db::exchange.

#include "exchange/msh/msh_reader.h"
#include "exchange/msh/msh_writer.h"
#include "exchange/transfer.h"
#include "exchange/vtk/vtu_writer.h"
