#include "qx_db/lib/variants.h"

namespace qx {
namespace {

struct Host {
  Edition edition = Edition::kGeneral;
  bool online = false;
};
Host g_host;

}  // namespace

void SetEdition(Edition edition, bool online) { g_host = {edition, online}; }

bool IsVariantA() { return g_host.edition == Edition::kA; }
bool IsVariantAOnline() { return IsVariantA() && g_host.online; }
bool IsVariantB() { return g_host.edition == Edition::kB; }
bool IsVariantBOnline() { return IsVariantB() && g_host.online; }
bool IsVariantC() { return g_host.edition == Edition::kC; }
bool IsVariantD() { return g_host.edition == Edition::kD; }

}  // namespace qx
