#pragma once

#include <string>

#include "tests/support/scratch_directory.h"

namespace gateway_test {

/// A certificate authority of a test's own, in a directory that is removed at the end. Each
/// certificate is NAME.crt with the key NAME.key. Failures throw std::runtime_error.
class Certificates {
 public:
  /// `name` is the authority's.
  explicit Certificates(const std::string& name = "test authority");

  /// The certificate of the authority itself.
  [[nodiscard]] std::string authority() const { return directory_.file("ca.crt"); }
  [[nodiscard]] std::string certificate(const std::string& name) const {
    return directory_.file(name + ".crt");
  }
  [[nodiscard]] std::string key(const std::string& name) const {
    return directory_.file(name + ".key");
  }

  /// For a server at the host `host`, a name or "IP:…" for an address; its files are named `name`.
  void makeServer(const std::string& name, const std::string& host = "localhost") const;
  /// For a client whose common name is `name`; `days` is how long it is valid from now on, or, if
  /// negative, how long ago it expired.
  void makeClient(const std::string& name, int days = 30) const;

  /// Lines of a configuration: a listener with the server certificate `name` that demands client
  /// certificates of this authority.
  [[nodiscard]] std::string listener(const std::string& name) const;

 private:
  void make(const std::string& name, const std::string& extensions, int days) const;

  test_support::ScratchDirectory directory_;
};

}  // namespace gateway_test
