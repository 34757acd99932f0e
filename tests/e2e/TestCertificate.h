#pragma once
// A self-signed certificate made at test time, written as PEM files into a
// fresh temporary directory that is removed with the object.

#include <filesystem>
#include <string>
#include <vector>

namespace tav::test {

class TestCertificate {
 public:
  /// A certificate valid for `dnsNames` (its own authority), with an EC key.
  explicit TestCertificate(const std::vector<std::string>& dnsNames);
  ~TestCertificate();
  TestCertificate(const TestCertificate&) = delete;
  TestCertificate& operator=(const TestCertificate&) = delete;

  [[nodiscard]] std::string certFile() const { return (_dir / "cert.pem").string(); }
  [[nodiscard]] std::string keyFile() const { return (_dir / "key.pem").string(); }

 private:
  std::filesystem::path _dir;
};

}  // namespace tav::test
