#include "tests/gateway/link/flooding_broker.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <utility>

#include "tests/support/process.h"

namespace gateway_test {

namespace {

using test_support::Descriptor;

/// The most bytes of a TLS record.
constexpr std::size_t recordSize = 16384;

struct FreeSsl {
  void operator()(SSL* ssl) const { SSL_free(ssl); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

bool writeAll(SSL* ssl, std::string_view bytes) {
  return SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size())) ==
         static_cast<int>(bytes.size());
}

/// CONNACK without properties, for MQTT 5, as the answer to the first packet.
bool acceptClient(SSL* ssl) {
  std::array<char, 4096> bytes{};
  return SSL_accept(ssl) == 1 && SSL_read(ssl, bytes.data(), bytes.size()) > 0 &&
         writeAll(ssl, {"\x20\x03\0\0\0", 5});
}

/// False if the client goes.
bool flood(SSL* ssl, std::string_view pattern, std::size_t packetSize, std::size_t count) {
  std::string first(FloodingBroker::message);
  first.append(pattern.substr(0, recordSize - first.size()));
  std::size_t rest = count * packetSize - (recordSize - FloodingBroker::message.size());
  std::size_t position = (recordSize - FloodingBroker::message.size()) % packetSize;
  bool isThere = writeAll(ssl, first);
  while (isThere && rest > 0) {
    const std::size_t size = std::min(recordSize, rest);
    isThere = writeAll(ssl, pattern.substr(position, size));
    rest -= size;
    position = (position + size) % packetSize;
  }
  return isThere;
}

}  // namespace

FloodingBroker::FloodingBroker(const Certificates& certificates, const std::string& name,
                               std::string_view packet, std::size_t count)
    : packetSize_(packet.size()), count_(count) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  while (pattern_.size() < recordSize + packetSize_) {
    pattern_ += packet;
  }
  thread_ = std::thread([this, certificate = certificates.certificate(name),
                         key = certificates.key(name)] { serve(certificate, key); });
}

FloodingBroker::~FloodingBroker() {
  static_cast<void>(::shutdown(listener_.get(), SHUT_RDWR));
  thread_.join();
}

void FloodingBroker::serve(std::string certificate, std::string key) {
  const std::unique_ptr<SSL_CTX, FreeSsl> context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str());
  SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM);
  const Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client.isOpen()) {
    return;
  }
  const std::unique_ptr<SSL, FreeSsl> ssl(SSL_new(context.get()));
  SSL_set_fd(ssl.get(), client.get());
  if (!acceptClient(ssl.get()) || !flood(ssl.get(), pattern_, packetSize_, count_)) {
    return;
  }
  hasSentAll_ = true;
  std::array<char, 4096> bytes{};
  while (SSL_read(ssl.get(), bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace gateway_test
