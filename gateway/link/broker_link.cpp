#include "gateway/link/broker_link.h"

#include <mosquitto.h>

#include <stdexcept>
#include <utility>

#include "gateway/link/link_state.h"

namespace modelgate {

namespace {

constexpr std::chrono::seconds minKeepAlive{5};
constexpr std::chrono::seconds maxKeepAlive{65535};
constexpr std::size_t maxWill = 65535;

}  // namespace

BrokerLink::BrokerLink(EventLoop& loop, LinkOptions options, Handlers handlers) {
  if (options.clientId.empty()) {
    throw std::runtime_error("no client id");
  }
  if (options.keepAlive < minKeepAlive || options.keepAlive > maxKeepAlive) {
    throw std::runtime_error("keep-alive: expected 5 to 65535 s");
  }
  if (options.will && (options.will->payload.size() > maxWill ||
                       mosquitto_pub_topic_check(options.will->topic.c_str()) != 0)) {
    throw std::runtime_error("the will cannot be a message");
  }
  static_cast<void>(makeTls(options));
  state_ = std::make_unique<State>(loop, std::move(options), std::move(handlers));
}

BrokerLink::~BrokerLink() = default;

void BrokerLink::start() {
  if (state_->phase == State::Phase::idle && !state_->over) {
    state_->attempt();
  }
}

void BrokerLink::finish(std::optional<Publication> last, std::chrono::milliseconds limit,
                        std::function<void()> done) {
  state_->finish(std::move(last), limit, std::move(done));
}

void BrokerLink::backOff(std::chrono::milliseconds delay) {
  state_->holdBack(delay);
}

bool BrokerLink::isConnected() const {
  return state_->phase == State::Phase::connected;
}

bool BrokerLink::publish(const Publication& publication) {
  return isConnected() && state_->publish(publication);
}

bool BrokerLink::subscribe(std::string_view filter, int qos) {
  if (!isConnected()) {
    return false;
  }
  std::string text(filter);
  const int id = state_->connection->subscribe(text, qos);
  if (id != 0) {
    state_->subscriptions.emplace(id, std::move(text));
    state_->written();
  }
  return id != 0;
}

bool BrokerLink::unsubscribe(std::string_view filter) {
  const bool sent = isConnected() && state_->connection->unsubscribe(std::string(filter));
  if (sent) {
    state_->written();
  }
  return sent;
}

bool BrokerLink::hasCapacity() const {
  const bool capacity = state_->capacity();
  state_->blocked = !capacity;
  return capacity;
}

}  // namespace modelgate
