#include "TestCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>

namespace tav::test {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using ExtPtr = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION, X509_EXTENSION_free>>;

void check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("test certificate: ") + what);
}

void addExtension(X509* cert, int nid, const std::string& value) {
  X509V3_CTX context{};
  X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
  ExtPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
  check(extension != nullptr, "extension");
  check(X509_add_ext(cert, extension.get(), -1) == 1, "add extension");
}

void writePem(const std::filesystem::path& path, const std::function<int(FILE*)>& write) {
  FILE* file = std::fopen(path.c_str(), "w");
  check(file != nullptr, "open file");
  const int written = write(file);
  std::fclose(file);
  check(written == 1, "write PEM");
}

}  // namespace

TestCertificate::TestCertificate(const std::vector<std::string>& dnsNames) {
  static std::atomic<int> counter{0};
  _dir = std::filesystem::temp_directory_path() /
         ("tav-e2e-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(_dir);

  KeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "prime256v1"));
  check(key != nullptr, "key");
  CertPtr cert(X509_new());
  check(cert != nullptr, "certificate");
  X509_set_version(cert.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
  X509_gmtime_adj(X509_getm_notAfter(cert.get()), 24 * 3600);
  check(X509_set_pubkey(cert.get(), key.get()) == 1, "public key");
  X509_NAME* name = X509_get_subject_name(cert.get());
  const std::string commonName = "TavCore test";
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
  check(X509_set_issuer_name(cert.get(), name) == 1, "issuer");
  std::string altNames;
  for (const auto& dns : dnsNames)
    altNames += (altNames.empty() ? "DNS:" : ",DNS:") + dns;
  addExtension(cert.get(), NID_subject_alt_name, altNames);
  addExtension(cert.get(), NID_basic_constraints, "critical,CA:TRUE");
  addExtension(cert.get(), NID_key_usage, "critical,digitalSignature,keyCertSign");
  check(X509_sign(cert.get(), key.get(), EVP_sha256()) > 0, "sign");

  writePem(certFile(), [&](FILE* f) { return PEM_write_X509(f, cert.get()); });
  writePem(keyFile(), [&](FILE* f) {
    return PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  });
}

TestCertificate::~TestCertificate() {
  std::error_code ignored;
  std::filesystem::remove_all(_dir, ignored);
}

}  // namespace tav::test
