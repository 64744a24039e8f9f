#include "tests/gateway/link/certificates.h"

#include <stdexcept>
#include <vector>

#include "tests/support/process.h"

namespace gateway_test {

namespace {

void openssl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "openssl");
  const test_support::Finished finished = test_support::run(arguments);
  if (finished.status.code != 0 || finished.status.signal != 0) {
    throw std::runtime_error("openssl " + arguments[1] + ": " + finished.errors);
  }
}

}  // namespace

Certificates::Certificates(const std::string& name) {
  openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
           "-subj", "/CN=" + name, "-days", "30", "-keyout", directory_.file("ca.key"), "-out",
           authority()});
}

void Certificates::make(const std::string& name, const std::string& extensions, int days) const {
  const std::string request = directory_.file(name + ".csr");
  openssl({"req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
           "/CN=" + name, "-keyout", key(name), "-out", request});
  openssl({"x509", "-req", "-in", request, "-CA", authority(), "-CAkey", directory_.file("ca.key"),
           "-CAcreateserial", "-days", std::to_string(days), "-extfile",
           directory_.write(name + ".ext", extensions), "-out", certificate(name)});
}

void Certificates::makeServer(const std::string& name, const std::string& host) const {
  const std::string subject = host.starts_with("IP:") ? host : "DNS:" + host;
  make(name, "extendedKeyUsage=serverAuth\nsubjectAltName=" + subject + "\n", 30);
}

void Certificates::makeClient(const std::string& name, int days) const {
  make(name, "extendedKeyUsage=clientAuth\n", days);
}

std::string Certificates::listener(const std::string& name) const {
  return "cafile " + authority() + "\ncertfile " + certificate(name) + "\nkeyfile " + key(name) +
         "\nrequire_certificate true\nuse_identity_as_username true\n";
}

}  // namespace gateway_test
