#pragma once
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace tovani::adserver {

// A throw-away certificate authority and one server certificate it signed, made in memory
// at every start so that no key is ever committed or reused.
class TlsMaterial {
 public:
  // `dnsNames` go into the server certificate's subject alternative names (127.0.0.1 is
  // added as an IP address). Throws std::runtime_error when OpenSSL fails.
  static TlsMaterial generate(const std::vector<std::string>& dnsNames);

  X509* serverCertificate() const { return serverCert_.get(); }
  EVP_PKEY* serverKey() const { return serverKey_.get(); }
  std::string caPem() const;

 private:
  struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  struct FreeCert {
    void operator()(X509* cert) const { X509_free(cert); }
  };
  std::unique_ptr<EVP_PKEY, FreeKey> caKey_, serverKey_;
  std::unique_ptr<X509, FreeCert> caCert_, serverCert_;
};

}  // namespace tovani::adserver
