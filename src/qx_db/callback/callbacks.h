#pragma once
// The callback interfaces: what the library asks of the application and what it tells it. Derive
// from the interfaces that matter to you, make one object of each class before a model is opened,
// and keep them until the models are closed. docs/callbacks.md lists every operation.

#include "qx_db/callback/app_db.h"
#include "qx_db/callback/custom_analysis.h"
#include "qx_db/callback/custom_post.h"
#include "qx_db/callback/db_interface.h"
#include "qx_db/callback/elem_side_detect.h"
#include "qx_db/callback/func_db.h"
#include "qx_db/callback/render_connect.h"
#include "qx_db/callback/update_db.h"
