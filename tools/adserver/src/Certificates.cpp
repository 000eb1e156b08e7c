#include "Certificates.hpp"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace tovani::adserver {
namespace {

constexpr long kOneHour = 60L * 60;
constexpr long kValidity = 30L * 24 * 60 * 60;  // far beyond any test or demo run

[[noreturn]] void fail(const char* what) {
  const unsigned long code = ERR_get_error();
  char reason[256] = "no detail";
  if (code != 0) ERR_error_string_n(code, reason, sizeof reason);
  throw std::runtime_error(std::string("certificate generation failed at ") + what + ": " + reason);
}

void check(int ok, const char* what) {
  if (ok <= 0) fail(what);
}

EVP_PKEY* newKey() {
  // P-256 keys are quick to make and every TLS client accepts them.
  EVP_PKEY* key = EVP_EC_gen("P-256");
  if (key == nullptr) fail("key generation");
  return key;
}

void setName(X509_NAME* name, const char* commonName) {
  const auto text = [](const char* s) { return reinterpret_cast<const unsigned char*>(s); };
  check(X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, text("tovani development"), -1, -1, 0),
        "subject");
  check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text(commonName), -1, -1, 0),
        "subject");
}

void addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
  if (ext == nullptr) fail("extension");
  const int ok = X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
  check(ok, "extension");
}

// A certificate for `key` named `commonName`, not yet signed; `issuer` null means self.
X509* newCertificate(EVP_PKEY* key, const char* commonName, X509* issuer) {
  X509* cert = X509_new();
  if (cert == nullptr) fail("certificate");
  check(X509_set_version(cert, 2), "version");
  BIGNUM* serial = BN_new();
  if (serial == nullptr || BN_rand(serial, 64, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
      BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert)) == nullptr) {
    BN_free(serial);
    X509_free(cert);
    fail("serial number");
  }
  BN_free(serial);
  // Back-dated an hour so that a client clock a little behind still accepts it.
  X509_gmtime_adj(X509_getm_notBefore(cert), -kOneHour);
  X509_gmtime_adj(X509_getm_notAfter(cert), kValidity);
  check(X509_set_pubkey(cert, key), "public key");
  setName(X509_get_subject_name(cert), commonName);
  check(X509_set_issuer_name(cert, X509_get_subject_name(issuer != nullptr ? issuer : cert)),
        "issuer");
  return cert;
}

}  // namespace

TlsMaterial TlsMaterial::generate(const std::vector<std::string>& dnsNames) {
  TlsMaterial m;
  m.caKey_.reset(newKey());
  m.caCert_.reset(newCertificate(m.caKey_.get(), "tovani development CA", nullptr));
  X509* ca = m.caCert_.get();
  addExtension(ca, ca, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(ca, ca, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(ca, ca, NID_subject_key_identifier, "hash");
  check(X509_sign(ca, m.caKey_.get(), EVP_sha256()), "CA signature");

  std::string names;
  for (const auto& dns : dnsNames) names += "DNS:" + dns + ",";
  names += "IP:127.0.0.1";
  const std::string commonName = dnsNames.empty() ? "localhost" : dnsNames.front();
  m.serverKey_.reset(newKey());
  m.serverCert_.reset(newCertificate(m.serverKey_.get(), commonName.c_str(), ca));
  X509* server = m.serverCert_.get();
  addExtension(server, server, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(server, server, NID_key_usage, "critical,digitalSignature,keyEncipherment");
  addExtension(server, server, NID_ext_key_usage, "serverAuth");
  addExtension(server, ca, NID_authority_key_identifier, "keyid:always");
  addExtension(server, server, NID_subject_alt_name, names);
  check(X509_sign(server, m.caKey_.get(), EVP_sha256()), "server signature");
  return m;
}

std::string TlsMaterial::caPem() const {
  BIO* bio = BIO_new(BIO_s_mem());
  if (bio == nullptr) fail("PEM buffer");
  if (PEM_write_bio_X509(bio, caCert_.get()) != 1) {
    BIO_free(bio);
    fail("PEM encoding");
  }
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  std::string pem(data, static_cast<std::size_t>(size));
  BIO_free(bio);
  return pem;
}

}  // namespace tovani::adserver
