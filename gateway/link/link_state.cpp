#include "gateway/link/link_state.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "gateway/link/tls_context.h"

namespace modelgate {

namespace {

/// How many publications of QoS 1 may wait for the broker.
constexpr std::size_t maxWaiting = 20;
/// How often a connection gets its turn at least, while this process runs.
constexpr std::chrono::seconds longestPause{2};

}  // namespace

std::shared_ptr<TlsContext> makeTls(const LinkOptions& options) {
  if (!options.broker.tls) {
    return nullptr;
  }
  return std::make_shared<TlsContext>(
      TlsContext::Options{options.broker.host, options.caFile, options.certFile, options.keyFile});
}

void BrokerLink::State::attempt() {
  retryTimer = {};
  const BrokerAddress& broker = options.broker;
  if (!broker.path.empty()) {
    addresses = {std::string()};
  } else if (isNumericHost(broker.host)) {
    addresses = {broker.host};
  } else {
    phase = Phase::looking;
    lookup.begin(broker.host, [this](std::vector<std::string> found, const std::string& error) {
      if (phase != Phase::looking) {
        return;
      }
      if (found.empty()) {
        lost(error, false);
        return;
      }
      addresses = std::move(found);
      connectNext();
    });
    return;
  }
  connectNext();
}

void BrokerLink::State::connectNext() {
  const std::string address = std::move(addresses.front());
  addresses.erase(addresses.begin());
  phase = Phase::connecting;
  try {
    connection = std::make_unique<Connection>(options, address, makeTls(options), *this);
  } catch (const std::runtime_error& error) {
    lost(error.what(), false);
    return;
  }
  if (connection->hasEnded()) {
    ended();
    return;
  }
  awaitAnswer();
  updateWatch();
}

void BrokerLink::State::awaitAnswer() {
  limitTimer = loop.after(AnswerLimit::first, [this] {
    // More than that is for a broker that has taken the connection.
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(connection->descriptor(), reinterpret_cast<sockaddr*>(&peer), &size) != 0) {
      return noAnswer();
    }
    limitTimer = loop.after(answerLimit.limit() - AnswerLimit::first, [this] {
      answerLimit.missed();
      noAnswer();
    });
  });
}

void BrokerLink::State::noAnswer() {
  connection->end("no answer");
  ended();
}

void BrokerLink::State::accepted() {
  phase = Phase::connected;
  answerLimit.answered();
  addresses.clear();
  limitTimer = {};
  lastInput = Clock::now();
  lastTurn = lastInput;
  isDelayed = false;
  backOff.connected(lastInput);
  scheduleKeepAlive();
  blocked = false;
  if (handlers.connected) {
    handlers.connected();
  }
}

void BrokerLink::State::scheduleKeepAlive() {
  const auto pause =
      std::clamp<milliseconds>(options.keepAlive / 5, milliseconds(1000), longestPause);
  keepAliveTimer = loop.after(pause, [this] { checkKeepAlive(); });
}

void BrokerLink::State::noteTurn() {
  const Clock::time_point now = Clock::now();
  isDelayed = isDelayed || now - lastTurn > longestPause + std::chrono::seconds(1);
  lastTurn = now;
}

void BrokerLink::State::checkKeepAlive() {
  noteTurn();
  pollfd state{watchedDescriptor, POLLIN, 0};
  // After a suspension of the process there may be input that is only to be read.
  const bool isEmpty = ::poll(&state, 1, 0) == 0;
  isDelayed = isDelayed && !isEmpty;
  if (isEmpty && lastTurn - lastInput > options.keepAlive * 3 / 2) {
    connection->end("no sign of life from the broker");
  } else {
    connection->tick();
  }
  if (connection->hasEnded()) {
    ended();
    return;
  }
  scheduleKeepAlive();
  updateWatch();
}

void BrokerLink::State::updateWatch() {
  const int descriptor = connection ? connection->descriptor() : -1;
  if (descriptor != watchedDescriptor && watchedDescriptor >= 0) {
    loop.unwatch(watchedDescriptor);
    watchedDescriptor = -1;
  }
  if (descriptor < 0) {
    return;
  }
  const short events = connection->events();
  if (descriptor != watchedDescriptor || events != watchedEvents) {
    loop.watch(descriptor, events, [this] { ready(); });
    watchedDescriptor = descriptor;
    watchedEvents = events;
  }
}

void BrokerLink::State::ready() {
  noteTurn();
  pollfd state{watchedDescriptor, POLLIN, 0};
  if (watchedEvents == POLLIN || ::poll(&state, 1, 0) > 0) {
    lastInput = lastTurn;
  }
  processing = true;
  try {
    connection->process();
  } catch (...) {
    processing = false;
    throw;
  }
  processing = false;
  // Until nothing is left of it, whatever is read may have waited.
  isDelayed = isDelayed && ::poll(&state, 1, 0) > 0;
  settle();
}

void BrokerLink::State::settle() {
  const bool broken = std::exchange(breakOff, false);
  if (phase == Phase::idle) {
    done();
    return;
  }
  if (broken) {
    drop();
    scheduleRetry();
    return;
  }
  if (connection->hasEnded()) {
    ended();
    return;
  }
  updateWatch();
  if (phase == Phase::connecting && connection->isAccepted()) {
    accepted();
  } else if (phase == Phase::finishing) {
    advanceFinish();
    return;
  }
  notifyWritable();
}

void BrokerLink::State::notifyWritable() {
  if (blocked && phase == Phase::connected && !processing && capacity()) {
    blocked = false;
    if (handlers.writable) {
      handlers.writable();
    }
  }
}

bool BrokerLink::State::capacity() const {
  return phase == Phase::connected && waiting.size() < maxWaiting && connection->isFlushed();
}

bool BrokerLink::State::publish(const Publication& publication) {
  const int id = connection->publish(publication);
  if (id == 0) {
    return false;
  }
  if (publication.qos > 0) {
    waiting.emplace(id, publication.topic);
  }
  written();
  return true;
}

void BrokerLink::State::written() {
  if (!processing) {
    updateWatch();
  }
}

void BrokerLink::State::holdBack(milliseconds delay) {
  notBefore = Clock::now() + delay;
  switch (phase) {
    case Phase::waiting:
      scheduleRetry();
      break;
    case Phase::looking:
    case Phase::connecting:
    case Phase::connected:
      if (processing) {
        breakOff = true;
      } else {
        drop();
        scheduleRetry();
      }
      break;
    default:
      break;
  }
}

void BrokerLink::State::drop() {
  lookup.abandon();
  limitTimer = {};
  keepAliveTimer = {};
  waiting.clear();
  subscriptions.clear();
  if (watchedDescriptor >= 0) {
    loop.unwatch(watchedDescriptor);
    watchedDescriptor = -1;
  }
  connection.reset();
}

void BrokerLink::State::ended() {
  const std::string reason = connection->reason();
  const bool takenOver = connection->takenOver();
  const bool wasConnecting = phase == Phase::connecting;
  if (phase == Phase::finishing) {
    done();
    return;
  }
  drop();
  if (wasConnecting && !addresses.empty()) {
    connectNext();
    return;
  }
  lost(reason, takenOver);
}

void BrokerLink::State::lost(const std::string& reason, bool takenOver) {
  drop();
  phase = Phase::waiting;
  if (handlers.disconnected) {
    handlers.disconnected(reason, takenOver);
  }
  // The handler may have finished the link.
  if (phase == Phase::waiting) {
    scheduleRetry();
  }
}

void BrokerLink::State::scheduleRetry() {
  phase = Phase::waiting;
  const Clock::time_point now = Clock::now();
  const Clock::time_point next = now + backOff.lost(now);
  retryTimer = loop.at(std::max(next, notBefore), [this] { attempt(); });
}

void BrokerLink::State::finish(std::optional<Publication> last, milliseconds limit,
                               std::function<void()> whenDone) {
  over = true;
  finished = std::move(whenDone);
  if (phase != Phase::connected) {
    done();
    return;
  }
  if (last) {
    static_cast<void>(publish(*last));
  }
  phase = Phase::finishing;
  limitTimer = loop.after(limit, [this] {
    if (phase == Phase::finishing) {
      connection->disconnect();
    }
    done();
  });
  if (!processing) {
    advanceFinish();
  }
}

void BrokerLink::State::advanceFinish() {
  updateWatch();
  if (!waiting.empty() || !connection->isFlushed()) {
    return;
  }
  // The client library closes the socket as soon as DISCONNECT is written. If something that has
  // arrived was not read by then, the system resets the connection and DISCONNECT may be lost.
  const int descriptor = ::fcntl(connection->descriptor(), F_DUPFD_CLOEXEC, 0);
  loop.unwatch(std::exchange(watchedDescriptor, -1));
  connection->disconnect();
  if (descriptor < 0) {
    done();
    return;
  }
  phase = Phase::closing;
  closing = std::make_unique<HalfClose>(loop, descriptor, [this] { done(); });
}

void BrokerLink::State::done() {
  phase = Phase::idle;
  retryTimer = {};
  if (processing) {
    return;  // `settle` follows
  }
  drop();
  closing.reset();
  if (finished) {
    loop.post(std::exchange(finished, nullptr));
  }
}

void BrokerLink::State::messageArrived(const Message& message) {
  if (handlers.message && !breakOff) {
    Message received = message;
    received.isDelayed = isDelayed;
    handlers.message(received);
  }
}

void BrokerLink::State::published(int id, int reason) {
  if (waiting.empty()) {
    return;
  }
  const auto found = waiting.find(id);
  if (found == waiting.end()) {
    return;
  }
  const std::string topic = std::move(found->second);
  waiting.erase(found);
  if (reason >= 128 && handlers.refused) {
    handlers.refused(topic, mosquitto_reason_string(reason));
  }
}

void BrokerLink::State::subscriptionTaken(int id, bool granted) {
  const auto found = subscriptions.find(id);
  if (found == subscriptions.end()) {
    return;
  }
  const std::string filter = std::move(found->second);
  subscriptions.erase(found);
  if (handlers.subscribed) {
    handlers.subscribed(filter, granted);
  }
}

}  // namespace modelgate
