// How a connection begins, and what the client library calls.

#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "gateway/link/connection.h"
#include "gateway/link/packet_limit.h"
#include "gateway/link/properties.h"
#include "gateway/link/tls_context.h"
#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

/// What a message has besides its payload, at most: topics and other properties.
constexpr std::size_t maxHeaders = std::size_t{256} * 1024;

static_assert(maxPayload + maxHeaders < PacketLimit::maxPacket);

/// Prepares the client library once in a process.
void prepareLibrary() {
  static const int result = mosquitto_lib_init();
  if (result != MOSQ_ERR_SUCCESS) {
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
  ++calls_;
  try {
    call(listener_);
  } catch (...) {
    // The library's frames are C.
    exception_ = std::current_exception();
  }
  // The library stops reading when it finds EAGAIN here, which a handler may have left.
  errno = 0;
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
    // which has failed because it has no path.
    result = mosquitto_connect_async(client_, address.c_str(), options.broker.port, keepAlive);
  }
  if (check(result) && checkHandshake(errno)) {
    static_cast<void>(::fcntl(descriptor(), F_SETFD, FD_CLOEXEC));
    if (auto* const ssl = static_cast<SSL*>(mosquitto_ssl_get(client_))) {
      readLimit_.attach(ssl);
    }
  }
}

}  // namespace modelgate
