#pragma once
// The whole public interface of QX_db.

#include "qx_db/core/document.h"
#include "qx_db/core/model_diff.h"
#include "qx_db/core/model_file.h"
#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"
#include "qx_db/gateway/document_exchange.h"
#include "qx_db/lib/message.h"
#include "qx_db/lib/units.h"
#include "qx_db/lib/variants.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/pool/data_pool.h"
#include "qx_db/record/catalogue.h"
#include "qx_db/record/function_kinds.h"
