#include "tests/net/certificates.h"

#include <atomic>
#include <cstdlib>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace qx::net_test {
namespace {

/// A test that cannot make its certificates cannot say anything.
void Require(bool made) {
  if (!made) std::abort();
}

void AddExtension(X509* certificate, int kind, const std::string& value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  Require(extension && X509_add_ext(certificate, extension, -1));
  X509_EXTENSION_free(extension);
}

std::string TextOf(BIO* memory) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory, &data);
  std::string text(data, static_cast<std::size_t>(size));
  BIO_free(memory);
  return text;
}

}  // namespace

Identity Issue(const Wish& wish) {
  static std::atomic<long> serial{1000};
  Identity made{
      PrivateKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")), Certificate(X509_new()), {}};
  X509* const certificate = made.certificate.get();
  Require(made.key && certificate && X509_set_version(certificate, X509_VERSION_3));
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), wish.valid_from_s);
  X509_gmtime_adj(X509_getm_notAfter(certificate), wish.valid_to_s);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME* const name = X509_get_subject_name(certificate);
  const auto* bytes = reinterpret_cast<const unsigned char*>(wish.name.c_str());
  Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, bytes, -1, -1, 0));
  X509_set_issuer_name(certificate,
                       wish.issuer ? X509_get_subject_name(wish.issuer->certificate.get()) : name);
  if (wish.authority) {
    AddExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    const bool is_number = wish.name.find_first_not_of("0123456789.") == wish.name.npos;
    AddExtension(certificate, NID_subject_alt_name, (is_number ? "IP:" : "DNS:") + wish.name);
  }
  const Identity* const signer = wish.signed_with ? wish.signed_with : wish.issuer;
  Require(X509_sign(certificate, signer ? signer->key.get() : made.key.get(), EVP_sha256()) > 0);
  return made;
}

std::string Pem(const Identity& identity) {
  BIO* const memory = BIO_new(BIO_s_mem());
  Require(PEM_write_bio_X509(memory, identity.certificate.get()));
  return TextOf(memory);
}

std::string RevocationPem(const Identity& issuer, const std::vector<const Identity*>& revoked) {
  X509_CRL* const list = X509_CRL_new();
  X509_CRL_set_version(list, X509_CRL_VERSION_2);
  X509_CRL_set_issuer_name(list, X509_get_subject_name(issuer.certificate.get()));
  ASN1_TIME* const now = X509_gmtime_adj(nullptr, -60);
  ASN1_TIME* const later = X509_gmtime_adj(nullptr, 3600);
  X509_CRL_set1_lastUpdate(list, now);
  X509_CRL_set1_nextUpdate(list, later);
  for (const Identity* identity : revoked) {
    X509_REVOKED* const entry = X509_REVOKED_new();
    X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(identity->certificate.get()));
    X509_REVOKED_set_revocationDate(entry, now);
    Require(X509_CRL_add0_revoked(list, entry));
  }
  X509_CRL_sort(list);
  Require(X509_CRL_sign(list, issuer.key.get(), EVP_sha256()) > 0);
  BIO* const memory = BIO_new(BIO_s_mem());
  Require(PEM_write_bio_X509_CRL(memory, list));
  ASN1_TIME_free(now);
  ASN1_TIME_free(later);
  X509_CRL_free(list);
  return TextOf(memory);
}

}  // namespace qx::net_test
