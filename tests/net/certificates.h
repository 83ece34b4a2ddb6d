#pragma once
// Certificates made for a test.

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <vector>

namespace qx::net_test {

template <auto Free>
struct Freed {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using PrivateKey = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;

/// A certificate with its key, and the certificates above it that a server sends along.
struct Identity {
  PrivateKey key;
  Certificate certificate;
  std::vector<X509*> chain;  // of other identities, which live longer
};

/// What a certificate says.
struct Wish {
  std::string name = "127.0.0.1";
  long valid_from_s = -3600;  // from now
  long valid_to_s = 3600;
  bool authority = false;
  const Identity* issuer = nullptr;       // null: signed by itself
  const Identity* signed_with = nullptr;  // another's key in the place of the issuer's
};

Identity Issue(const Wish& wish);
/// PEM text of a certificate, and of a list of what `issuer` revoked.
std::string Pem(const Identity& identity);
std::string RevocationPem(const Identity& issuer, const std::vector<const Identity*>& revoked);

}  // namespace qx::net_test
