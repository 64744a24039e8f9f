#include "gateway/link/tls_context.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "gateway/link/host_lookup.h"

namespace modelgate {

namespace {

/// The reason of OpenSSL's first error, the cause of the others; empties the list of errors, which
/// the next call reads.
std::string takeReason() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (ERR_SYSTEM_ERROR(code)) {
    return std::generic_category().message(static_cast<int>(ERR_GET_REASON(code)));
  }
  const char* const reason = ERR_reason_error_string(code);
  return reason != nullptr ? reason : "unknown error";
}

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + takeReason());
}

/// A key that needs a passphrase is an error: there is no terminal to read it from.
int noPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
  return 0;
}

}  // namespace

struct TlsContext::Callbacks {
  static TlsContext& self(const SSL* ssl) {
    return *static_cast<TlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  }
  static void nameHost(const SSL* ssl, int event, int value);
  static int verify(int good, X509_STORE_CTX* store);
};

/// Sends the host's name in the handshake. The client library would send the address that it
/// connects to.
void TlsContext::Callbacks::nameHost(const SSL* ssl, int event, int /*value*/) {
  if ((event & SSL_CB_HANDSHAKE_START) == 0) {
    return;
  }
  const std::string& host = self(ssl).options_.host;
  // The function's own type is without const for a historical reason.
  SSL* const connection = const_cast<SSL*>(ssl);
  const char* const name = isNumericHost(host) ? nullptr : host.c_str();
  SSL_set_tlsext_host_name(connection, name);
}

/// Keeps the reason of a refusal: the client library may drop the connection with it.
int TlsContext::Callbacks::verify(int good, X509_STORE_CTX* store) {
  if (good == 0) {
    const auto* const ssl = static_cast<const SSL*>(
        X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    self(ssl).verifyError_ = X509_verify_cert_error_string(X509_STORE_CTX_get_error(store));
  }
  return good;
}

TlsContext::TlsContext(Options options) : options_(std::move(options)) {
  ERR_clear_error();
  context_ = SSL_CTX_new(TLS_client_method());
  if (context_ == nullptr) {
    throw std::bad_alloc();
  }
  try {
    SSL_CTX_set_min_proto_version(context_, TLS1_2_VERSION);
    SSL_CTX_set_mode(context_, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_default_passwd_cb(context_, noPassphrase);
    SSL_CTX_set_app_data(context_, this);
    SSL_CTX_set_info_callback(context_, Callbacks::nameHost);
    checkPeer();
    load();
  } catch (...) {
    SSL_CTX_free(context_);
    throw;
  }
}

TlsContext::~TlsContext() {
  SSL_CTX_free(context_);
}

void TlsContext::checkPeer() {
  SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, Callbacks::verify);
  X509_VERIFY_PARAM* const parameters = SSL_CTX_get0_param(context_);
  X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  const int set = isNumericHost(options_.host)
                      ? X509_VERIFY_PARAM_set1_ip_asc(parameters, options_.host.c_str())
                      : X509_VERIFY_PARAM_set1_host(parameters, options_.host.c_str(), 0);
  if (set != 1) {
    fail(options_.host + ": ");
  }
}

void TlsContext::load() {
  if (options_.caFile.empty()) {
    if (SSL_CTX_set_default_verify_paths(context_) != 1) {
      fail("the system's certificates: ");
    }
  } else if (SSL_CTX_load_verify_file(context_, options_.caFile.c_str()) != 1) {
    fail(options_.caFile + ": ");
  }
  if (options_.certFile.empty()) {
    return;
  }
  if (SSL_CTX_use_certificate_chain_file(context_, options_.certFile.c_str()) != 1) {
    fail(options_.certFile + ": ");
  }
  const std::string& keyFile = options_.keyFile.empty() ? options_.certFile : options_.keyFile;
  if (SSL_CTX_use_PrivateKey_file(context_, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
    fail(keyFile + ": ");
  }
  if (SSL_CTX_check_private_key(context_) != 1) {
    fail(keyFile + ": not the key of " + options_.certFile + ": ");
  }
}

std::string tlsReason(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  return colon == std::string::npos ? text : text.substr(colon + 1);
}

}  // namespace modelgate
