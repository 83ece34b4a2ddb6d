#pragma once
// Selection lists and the credential prompt on Qt widgets: link QX_db::qt.

#include "adapters/qt/qt_combo_window.h"
#include "adapters/qt/qt_credential_prompt.h"
