#pragma once
// The reference application layer with its English texts: link QX_db::host.

#include "host/application.h"
#include "host/axes_picture.h"
#include "host/element_mass.h"
#include "host/records.h"
#include "host/seed_preview.h"
#include "host/session.h"
#include "host/texts.h"
