#pragma once
// Which faults of a server's certificate a probe forgives.
// Threads: the one that uses the handle.

#include "qx_db/net/curl_handles.h"

namespace qx {

/// Has a handle forgive exactly a certificate's dates and host name, the latter also where it is
/// signed by itself; everything else about the chain is refused. False, when nothing is secured,
/// where the TLS library offers no way to forgive these alone: then do not connect.
bool ForgiveDateAndName(CURL* easy);

/// What a user can do about a certificate that was refused.
const char* CertificateRemedy(CURL* easy);

}  // namespace qx
