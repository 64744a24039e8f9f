#include "gateway/exporter/tree_worker.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "gateway/exporter/server_discovery.h"

namespace modelgate {

using ModelSrv::ModelRes;

namespace {

/// Between two attempts to connect, if nothing says that the server has come.
constexpr std::chrono::seconds connectPause{5};

}  // namespace

TreeWorker::TreeWorker(std::string port, std::chrono::milliseconds interval, Handlers handlers)
    : port_(std::move(port)),
      interval_(interval),
      handlers_(std::move(handlers)),
      server_({.lost =
                   [this] {
                     isUp_ = false;
                     expectsBegin_ = true;
                     handlers_.up(false);
                   },
               .restored = [this] { readAt_ = Clock::now(); }}),
      thread_([this] { run(); }) {}

TreeWorker::~TreeWorker() {
  stop();
  thread_.join();
}

void TreeWorker::stop() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  wakeUp_.notify_one();
  server_.wake();
}

bool TreeWorker::request(WorkerRequest request) {
  {
    const std::lock_guard lock(mutex_);
    if (isStopping_ || hasLeft_ || requests_.size() >= maxRequests) {
      return false;
    }
    requests_.push_back(std::move(request));
  }
  server_.wake();
  return true;
}

void TreeWorker::setActive(bool isActive) {
  {
    const std::lock_guard lock(mutex_);
    isActive_ = isActive;
  }
  server_.wake();
}

void TreeWorker::retry() {
  {
    const std::lock_guard lock(mutex_);
    shouldRetry_ = true;
  }
  wakeUp_.notify_one();
}

void TreeWorker::run() {
  bool isOver = false;
  while (!isOver) {
    try {
      if (awaitConnection()) {
        readAt_ = Clock::now();
        serve();
      }
    } catch (const std::exception& error) {
      reject(error.what(), true);
    }
    isOver = !leave();
  }
  hasEnded_ = true;
  if (handlers_.ended) {
    handlers_.ended();
  }
}

/// False if the thread is to end.
bool TreeWorker::awaitConnection() {
  bool isConnected = connect();
  while (!isConnected && pauseUnconnected()) {
    isConnected = connect();
  }
  return isConnected;
}

bool TreeWorker::connect() {
  {
    const std::lock_guard lock(mutex_);
    shouldRetry_ = hasLeft_ = false;
  }
  const ModelRes result = server_.connect(port_);
  if (result != ModelSrv::ModelRes_Success) {
    handlers_.failed(ModelSrv::describe(result));
  }
  return result == ModelSrv::ModelRes_Success;
}

bool TreeWorker::pauseUnconnected() {
  std::unique_lock lock(mutex_);
  wakeUp_.wait_for(lock, connectPause, [this] { return isStopping_ || shouldRetry_; });
  return !isStopping_;
}

bool TreeWorker::isStopping() {
  const std::lock_guard lock(mutex_);
  return isStopping_;
}

/// Ends the connection, and waits until the server has gone. False if the thread is to end.
bool TreeWorker::leave() {
  // Opened before the connection ends, so that it is the mailbox of this server.
  pollfd mailbox{openMailbox(port_), 0, 0};
  server_.disconnect();
  isWatching_ = isRejected_ = false;
  // Without the mailbox, the server has gone, or is looked for at times.
  while (!isStopping() && mailbox.fd >= 0 && mailbox.revents == 0) {
    std::array<pollfd, 2> waits{mailbox, {server_.pollDescriptor(), POLLIN, 0}};
    static_cast<void>(::poll(waits.data(), waits.size(), -1));
    mailbox.revents = waits[0].revents;
    server_.dispatch(0);
  }
  if (mailbox.fd >= 0) {
    ::close(mailbox.fd);
  } else {
    pauseUnconnected();
  }
  return !isStopping();
}

/// Until the thread is to end, or the server was left.
void TreeWorker::serve() {
  while (serveRequests()) {
    const Clock::time_point now = Clock::now();
    const Clock::time_point unwatchedAt = nextUnwatchedRead();
    if (readAt_ && *readAt_ <= now) {
      readAgain();
    } else if (unwatchedAt <= now) {
      readUnwatched();
    } else {
      server_.dispatch(
          millisecondsUntil(std::min(readAt_.value_or(Clock::time_point::max()), unwatchedAt)));
    }
  }
}

TreeWorker::Clock::time_point TreeWorker::nextUnwatchedRead() {
  const std::lock_guard lock(mutex_);
  return isActive_ && isUp_ && !unwatched_.empty() ? unwatchedAt_ : Clock::time_point::max();
}

int TreeWorker::millisecondsUntil(Clock::time_point next) {
  if (next == Clock::time_point::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(left, 0));
}

}  // namespace modelgate
