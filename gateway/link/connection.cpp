#include "gateway/link/connection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "gateway/link/properties.h"
#include "gateway/link/tls_context.h"
#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

/// How many packets `process` reads before other descriptors get their turn.
constexpr std::size_t packetsPerTurn = 64;

/// How many packets, about, are read while output waits: an acknowledgement of each is kept until
/// it can be written.
constexpr std::size_t maxUnanswered = 32'768;
/// The bytes with TLS, beside those of messages, that count as a packet.
constexpr std::size_t bytesOfPacket = 16;

}  // namespace

void Connection::rethrow() {
  if (exception_) {
    std::rethrow_exception(std::exchange(exception_, nullptr));
  }
}

void Connection::require(int result) {
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
}

Connection::~Connection() {
  mosquitto_destroy(client_);
}

int Connection::descriptor() const {
  return ended_ ? -1 : mosquitto_socket(client_);
}

bool Connection::isHandshaking() const {
  const auto* const ssl = static_cast<const SSL*>(mosquitto_ssl_get(client_));
  return ssl != nullptr && SSL_is_init_finished(ssl) == 0;
}

bool Connection::hasPendingInput() const {
  const auto* const ssl = static_cast<const SSL*>(mosquitto_ssl_get(client_));
  return ssl != nullptr && SSL_pending(ssl) > 0;
}

bool Connection::isFlushed() const {
  return !mosquitto_want_write(client_);
}

short Connection::events() const {
  // In a handshake the library always wants to write, although it is the broker's turn.
  const bool output = isHandshaking()
                          ? SSL_want_write(static_cast<const SSL*>(mosquitto_ssl_get(client_))) != 0
                          : mosquitto_want_write(client_);
  return static_cast<short>((isReading() ? POLLIN : 0) | (output ? POLLOUT : 0));
}

bool Connection::check(int result) {
  if (ended_) {
    return false;
  }
  if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_) >= 0) {
    return true;
  }
  fail(result, errno);
  return false;
}

void Connection::fail(int result, int error) {
  std::string reason;
  if (refusal_ != 0) {
    reason = accepted_ ? "the broker disconnects: " : "the broker refuses: ";
    reason += mosquitto_reason_string(refusal_);
  } else if (tls_ && !tls_->verifyError().empty()) {
    reason = "the broker's certificate: " + tls_->verifyError();
  } else if (!tlsError_.empty()) {
    reason = "TLS: " + tlsError_;
  } else if (result == MOSQ_ERR_ERRNO && error == EPROTO && !accepted_) {
    // What the broker said was lost, because something was written after it had closed.
    reason = "TLS: the broker closed the connection, perhaps for want of a valid certificate";
  } else if (result == MOSQ_ERR_ERRNO) {
    reason = std::generic_category().message(error);
  } else if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_LOST) {
    reason = "the broker closed the connection";
  } else if (result == MOSQ_ERR_KEEPALIVE) {
    // The library has no text for it.
    reason = "the broker does not answer";
  } else {
    reason = mosquitto_strerror(result);
  }
  end(std::move(reason));
}

void Connection::end(std::string reason) {
  if (!ended_) {
    ended_ = true;
    reason_ = std::move(reason);
  }
}

bool Connection::takenOver() const {
  return refusal_ == MQTT_RC_SESSION_TAKEN_OVER;
}

/// While connecting: whether the socket has an error or is at its end, which the library does not
/// notice in a handshake.
bool Connection::peerHasGone() {
  char byte = 0;
  const ssize_t length = ::recv(descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (length == 0) {
    fail(MOSQ_ERR_CONN_LOST, 0);
  } else if (length < 0 && errno != EAGAIN && errno != EINTR) {
    fail(MOSQ_ERR_ERRNO, errno);
  }
  return ended_;
}

/// In a handshake the library takes no notice of a failed system call, whose errno is `error`.
bool Connection::checkHandshake(int error) {
  if (isHandshaking() &&
      SSL_get_error(static_cast<const SSL*>(mosquitto_ssl_get(client_)), -1) == SSL_ERROR_SYSCALL) {
    fail(error != 0 ? MOSQ_ERR_ERRNO : MOSQ_ERR_CONN_LOST, error);
    return false;
  }
  return true;
}

/// Reads what there is of one packet, or goes on with the handshake.
bool Connection::step() {
  errno = 0;
  const std::size_t before = calls_;
  if (!check(mosquitto_loop_read(client_, 1)) || !checkHandshake(errno)) {
    return false;
  }
  const bool empty = errno == EAGAIN;
  isWhole_ = isWhole_ || !empty || calls_ != before;
  if (!isHandshaking() && mosquitto_want_write(client_) &&
      !check(mosquitto_loop_write(client_, 1))) {
    return false;
  }
  return !empty || hasPendingInput();
}

bool Connection::isReading() const {
  return unanswered_ <= maxUnanswered;
}

/// Reads the packets of a turn.
void Connection::read() {
  readLimit_.renew();
  isWhole_ = false;
  contents_ = 0;
  std::size_t count = 0;
  // What TLS has decrypted must be read now: the socket does not say that it is there.
  for (; count < packetsPerTurn || hasPendingInput(); ++count) {
    if (!step() || exception_ || isHandshaking()) {
      break;
    }
  }
  // With TLS a step may be many packets.
  const std::size_t bytes = std::max(readLimit_.taken(), contents_) - contents_;
  unanswered_ += std::max(count, bytes / bytesOfPacket);
  if (packetLimit_.isExceeded(descriptor(), isWhole_, PacketLimit::Clock::now())) {
    end("the broker sends a packet that is too large");
  }
}

bool Connection::process() {
  const bool connecting = !accepted_;
  if (connecting && peerHasGone()) {
    return false;
  }
  processing_ = true;
  if (isReading()) {
    read();
  } else {
    static_cast<void>(check(mosquitto_loop_write(client_, 1)));
  }
  unanswered_ = !accepted_ || isFlushed() ? 0 : unanswered_;
  processing_ = false;
  rethrow();
  if (!ended_ && connecting) {
    if (accepted_) {
      // Each packet would be described to it.
      mosquitto_log_callback_set(client_, nullptr);
      tlsError_.clear();
    } else {
      static_cast<void>(peerHasGone());
    }
  }
  return !ended_;
}

bool Connection::tick() {
  return check(mosquitto_loop_misc(client_));
}

int Connection::publish(const Publication& publication) {
  const PropertyList properties = publicationProperties(publication);
  int id = 0;
  const int result = mosquitto_publish_v5(
      client_, &id, publication.topic.c_str(), static_cast<int>(publication.payload.size()),
      publication.payload.data(), publication.qos, publication.retain, properties.get());
  require(result);
  if (!processing_) {
    rethrow();
  }
  return result == MOSQ_ERR_SUCCESS ? id : 0;
}

int Connection::subscribe(const std::string& filter, int qos) {
  int id = 0;
  const int result = mosquitto_subscribe_v5(client_, &id, filter.c_str(), qos, 0, nullptr);
  require(result);
  return result == MOSQ_ERR_SUCCESS ? id : 0;
}

bool Connection::unsubscribe(const std::string& filter) {
  const int result = mosquitto_unsubscribe_v5(client_, nullptr, filter.c_str(), nullptr);
  require(result);
  return result == MOSQ_ERR_SUCCESS;
}

void Connection::disconnect() {
  PropertyList properties;
  properties.addNumber(MQTT_PROP_SESSION_EXPIRY_INTERVAL, 0);
  static_cast<void>(check(mosquitto_disconnect_v5(client_, 0, properties.get())));
}

}  // namespace modelgate
