#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace modelgate {

/// The settings of TLS connections to one host: TLS 1.2 or later, the peer's certificate checked
/// against the authority and the host's name. For one connection at a time.
class TlsContext {
 public:
  struct Options {
    std::string host;      ///< a name or an address, as the certificate must have it
    std::string caFile;    ///< empty: the system's authorities
    std::string certFile;  ///< empty: no certificate
    std::string keyFile;   ///< empty: in `certFile`
  };

  /// Reads the files. Throws std::runtime_error, with a line for a person, if that fails.
  explicit TlsContext(Options options);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  /// OpenSSL's SSL_CTX.
  [[nodiscard]] ssl_ctx_st* get() const { return context_; }
  /// Why the last certificate of a peer was refused; empty if none was.
  [[nodiscard]] const std::string& verifyError() const { return verifyError_; }

 private:
  struct Callbacks;
  void load();
  void checkPeer();

  Options options_;
  std::string verifyError_;
  ssl_ctx_st* context_ = nullptr;
};

/// Why a connection failed: the reason of the line `text` of OpenSSL's error list
/// ("error:0A000086:SSL routines::certificate verify failed").
[[nodiscard]] std::string tlsReason(const std::string& text);

}  // namespace modelgate
