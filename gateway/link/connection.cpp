#include "gateway/link/connection.h"

#include <fcntl.h>
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

/// What a message has besides its payload, at most: topics and other properties.
constexpr std::size_t maxHeaders = std::size_t{256} * 1024;

/// Prepares the client library once in a process.
void prepareLibrary() {
  static const int result = mosquitto_lib_init();
  if (result != MOSQ_ERR_SUCCESS) {
    throw std::bad_alloc();
  }
}

void require(int result) {
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
}

}  // namespace

struct Connection::Callbacks {
  static Connection& self(void* object) { return *static_cast<Connection*>(object); }

  static void connected(mosquitto* /*client*/, void* object, int reason, int /*flags*/,
                        const mosquitto_property* /*properties*/) {
    self(object).accepted_ = reason == 0;
    self(object).refusal_ = reason;
  }

  static void disconnected(mosquitto* /*client*/, void* object, int reason,
                           const mosquitto_property* /*properties*/) {
    // Reasons of the broker begin at 128; those below are the library's own results.
    if (reason >= 128) {
      self(object).refusal_ = reason;
    }
  }

  static void message(mosquitto* /*client*/, void* object, const mosquitto_message* message,
                      const mosquitto_property* properties) {
    const MessageProperties found(properties);
    Message arrived;
    arrived.topic = message->topic;
    arrived.payload = {static_cast<const char*>(message->payload),
                       static_cast<std::size_t>(message->payloadlen)};
    arrived.retained = message->retain;
    arrived.expiry = found.expiry();
    arrived.contentType = found.contentType();
    arrived.responseTopic = found.responseTopic();
    arrived.correlation = found.correlation();
    self(object).contents_ += arrived.topic.size() + arrived.payload.size();
    self(object).callListener([&](Listener& listener) { listener.messageArrived(arrived); });
  }

  static void published(mosquitto* /*client*/, void* object, int id, int reason,
                        const mosquitto_property* /*properties*/) {
    self(object).callListener([&](Listener& listener) { listener.published(id, reason); });
  }

  static void subscribed(mosquitto* /*client*/, void* object, int id, int count, const int* granted,
                         const mosquitto_property* /*properties*/) {
    const bool taken = count > 0 && granted[0] < 128;
    self(object).callListener([&](Listener& listener) { listener.subscriptionTaken(id, taken); });
  }

  static void logged(mosquitto* /*client*/, void* object, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) {
      self(object).tlsError_ = tlsReason(text);
    }
  }
};

template <typename Call>
void Connection::callListener(const Call& call) {
  try {
    call(listener_);
  } catch (...) {
    // The library's frames are C.
    exception_ = std::current_exception();
  }
  // The library stops reading when it finds EAGAIN here, which a handler may have left.
  errno = 0;
}

void Connection::rethrow() {
  if (exception_) {
    std::rethrow_exception(std::exchange(exception_, nullptr));
  }
}

Connection::Connection(const LinkOptions& options, const std::string& address,
                       std::shared_ptr<TlsContext> tls, Listener& listener)
    : listener_(listener), tls_(std::move(tls)) {
  prepareLibrary();
  client_ = mosquitto_new(options.clientId.c_str(), true, this);
  if (client_ == nullptr) {
    throw std::bad_alloc();
  }
  try {
    configure(options);
    connect(options, address);
  } catch (...) {
    mosquitto_destroy(client_);
    throw;
  }
}

Connection::~Connection() {
  mosquitto_destroy(client_);
}

void Connection::configure(const LinkOptions& options) {
  require(mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5));
  if (options.broker.path.empty()) {
    // Otherwise a small message waits until the one before it was acknowledged, 40 ms.
    require(mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1));
  }
  if (tls_) {
    require(mosquitto_int_option(client_, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0));
    require(mosquitto_void_option(client_, MOSQ_OPT_SSL_CTX, tls_->get()));
    mosquitto_log_callback_set(client_, Callbacks::logged);
  }
  if (!options.user.empty()) {
    require(
        mosquitto_username_pw_set(client_, options.user.c_str(),
                                  options.password.empty() ? nullptr : options.password.c_str()));
  }
  if (options.will) {
    setWill(*options.will, options.willDelay);
  }
  setCallbacks();
}

void Connection::setCallbacks() {
  mosquitto_connect_v5_callback_set(client_, Callbacks::connected);
  mosquitto_disconnect_v5_callback_set(client_, Callbacks::disconnected);
  mosquitto_message_v5_callback_set(client_, Callbacks::message);
  mosquitto_publish_v5_callback_set(client_, Callbacks::published);
  mosquitto_subscribe_v5_callback_set(client_, Callbacks::subscribed);
}

void Connection::setWill(const Publication& will, std::chrono::seconds delay) {
  PropertyList properties = publicationProperties(will);
  properties.addNumber(MQTT_PROP_WILL_DELAY_INTERVAL, delay.count());
  const int result =
      mosquitto_will_set_v5(client_, will.topic.c_str(), static_cast<int>(will.payload.size()),
                            will.payload.data(), will.qos, will.retain, properties.get());
  require(result);
  if (result == MOSQ_ERR_SUCCESS) {
    // They are the client's now.
    properties.release();
  }
}

void Connection::connect(const LinkOptions& options, const std::string& address) {
  PropertyList properties;
  // The broker keeps the session, and with it a delayed will, for no longer than that needs.
  properties.addNumber(MQTT_PROP_SESSION_EXPIRY_INTERVAL,
                       options.will ? options.willDelay.count() : 0);
  properties.addNumber(MQTT_PROP_MAXIMUM_PACKET_SIZE, maxPayload + maxHeaders);
  const int keepAlive = static_cast<int>(options.keepAlive.count());
  const bool local = !options.broker.path.empty();
  int result = mosquitto_connect_bind_v5(client_, local ? options.broker.path.c_str() : "", 0,
                                         keepAlive, nullptr, properties.get());
  require(result);
  if (!local) {
    // The one call that does not block takes no properties, but uses those of the call before it,
    // which has failed for want of a path.
    result = mosquitto_connect_async(client_, address.c_str(), options.broker.port, keepAlive);
  }
  if (check(result) && checkHandshake(errno)) {
    static_cast<void>(::fcntl(descriptor(), F_SETFD, FD_CLOEXEC));
    if (auto* const ssl = static_cast<SSL*>(mosquitto_ssl_get(client_))) {
      readLimit_.attach(ssl);
    }
  }
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
  if (!check(mosquitto_loop_read(client_, 1)) || !checkHandshake(errno)) {
    return false;
  }
  const bool empty = errno == EAGAIN;
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
