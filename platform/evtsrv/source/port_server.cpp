#include "evtsrv/source/port_server.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/buffer_lease.h"

namespace EvtSrv::internal {

namespace {

// The roles of the descriptors.
enum Role : unsigned { mailboxRole, watchRole, timerRole, retryRole, claimRole };

constexpr unsigned hellosPerTurn = 8;
constexpr int secondMs = 1000;

}  // namespace

PortServer::PortServer(ManagerCore& core, ServedPort& port)
    : core_(core),
      port_(&port),
      accounts_(std::make_shared<Accounts>(&core.turns())),
      turn_(core.turns(), turns_, *this) {}

EvtRes PortServer::start(const std::string& name, std::optional<gid_t> group) {
  core_.clientMutex().assertHeld();
  if (core_.state() != EvtRes_Success) {
    return core_.state();
  }
  if (mailbox_.isOpen() || stopping_) {
    return EvtRes_Busy;
  }
  group_ = group;
  int result = reserve_.adopt(core_.system(), core_.system().createEvent());
  if (result == 0) {
    result = timer_.adopt(core_.system(), core_.system().createTimer());
  }
  if (result == 0) {
    result = retryTimer_.adopt(core_.system(), core_.system().createTimer());
  }
  const EvtRes opened = result < 0 ? resultOf(result) : mailbox_.open(core_.system(), name, group);
  if (opened != EvtRes_Success) {
    reserve_.reset();
    timer_.reset();
    retryTimer_.reset();
    return opened;
  }
  result = listen();
  if (result == 0 && mailbox_.watchDescriptor() >= 0) {
    result = awaitInput(mailbox_.watchDescriptor(), watchRole, onWatch_);
  }
  if (result == 0) {
    result = awaitInput(timer_.number(), timerRole, onTimer_);
  }
  if (result == 0) {
    result = awaitInput(retryTimer_.number(), retryRole, onRetry_);
  }
  if (result == 0) {
    result = watchClaim();
  }
  if (result < 0) {
    closeMailbox();
    return resultOf(result);
  }
  return EvtRes_Success;
}

/// Reports to `ready` when there is input. 0 or a negative error number.
int PortServer::awaitInput(int descriptor, unsigned role, Registration& registration) {
  try {
    return core_.reactor().add(descriptor, EPOLLIN, *this, role, registration);
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

int PortServer::listen() {
  return awaitInput(mailbox_.descriptor(), mailboxRole, onMailbox_);
}

/// Begins to close what connects to the claim.
int PortServer::watchClaim() {
  const int claim = mailbox_.claim().descriptor();
  const int result = claim < 0 ? 0 : awaitInput(claim, claimRole, onClaim_);
  claimIsWatched_ = result == 0;
  return result;
}

void PortServer::closeMailbox() {
  onMailbox_.end();
  onWatch_.end();
  onTimer_.end();
  onRetry_.end();
  onClaim_.end();
  timer_.reset();
  retryTimer_.reset();
  retries_ = {};
  timerRuns_ = false;
  hellosWait_ = false;
  mailbox_.remove();
  reserve_.reset();
  hellos_ = {};
}

void PortServer::beginStop() {
  core_.clientMutex().assertHeld();
  if (!mailbox_.isOpen()) {
    return;
  }
  closeMailbox();
  stopping_ = true;
  core_.beginTermination();
  // Backwards: if a link ends immediately, the last link, which is done already, takes its
  // index.
  for (std::size_t i = links_.size(); i > 0; --i) {
    const auto link = links_[i - 1];
    link->drainAndClose();
  }
  endStopIfDone();
}

bool PortServer::stopping() const {
  core_.clientMutex().assertHeld();
  return stopping_;
}

std::size_t PortServer::connectionCount() const {
  core_.clientMutex().assertHeld();
  return links_.size();
}

void PortServer::endStopIfDone() {
  if (stopping_ && links_.empty()) {
    stopping_ = false;
    core_.endTermination();
  }
}

void PortServer::close() {
  core_.clientMutex().assertHeld();
  port_ = nullptr;
  closeMailbox();
  ended_.clear();
  for (const auto& link : std::exchange(links_, {})) {
    link->closeSilently();
  }
  endStopIfDone();
}

void PortServer::linkEnded(ServerLink& link) {
  core_.clientMutex().assertHeld();
  const std::size_t index = link.index;
  if (index < links_.size() && links_[index].get() == &link) {
    std::swap(links_[index], links_.back());
    links_[index]->index = index;
    if (!link.releaseSession() && !stopping_) {
      ended_.push_back(std::move(links_.back()));
      core_.turns().add(turn_);
    }
    links_.pop_back();
  }
  endStopIfDone();
}

bool PortServer::ready(unsigned role, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  if (role == timerRole) {
    secondPassed();
    return false;
  }
  if (role == watchRole) {
    return checkMailbox();
  }
  if (role == retryRole) {
    retry();
    return false;
  }
  if (role == claimRole) {
    closeClaimants();
    return false;
  }
  if (!core_.turns().mayServeNow()) {
    core_.turns().add(turn_);
    return false;
  }
  return takeTurn();
}

/// Makes the mailbox again if it was removed.
bool PortServer::checkMailbox() {
  const auto keepAlive = shared_from_this();
  if (!mailbox_.takeRemoval()) {
    return false;
  }
  // Clients that have found the mailbox before it was removed are served.
  if (mailbox_.descriptor() >= 0) {
    readAllHellos();
    core_.turns().add(turn_);
  }
  restoreMailbox();
  return false;
}

void PortServer::restoreMailbox() {
  if (!mailbox_.isOpen()) {
    return;
  }
  onMailbox_.end();
  EvtRes result = mailbox_.restore();
  if (result == EvtRes_NoDescriptors) {
    reserve_.reset();
    result = mailbox_.restore();
    takeReserve();
  }
  if (result == EvtRes_Success) {
    listenOrRetry();
    return;
  }
  retryLater();
  if (result == EvtRes_NameInUse && port_ != nullptr) {
    // A hello that waits would get a session beside those of the other server.
    hellos_ = {};
    hellosWait_ = false;
    port_->nameLost();
    for (const auto& link : std::exchange(links_, {})) {
      link->closeSilently();
    }
  }
}

/// Begins to read the mailbox that was made again. If that fails, the hellos stay in it.
void PortServer::listenOrRetry() {
  if (listen() < 0) {
    retryLater();
  } else {
    retries_ = {};
  }
}

/// No event reports that descriptors or space have become free, or that another server of the
/// name has been killed.
void PortServer::retryLater() {
  const std::int64_t now = core_.system().nowMs();
  retries_.failed(now);
  // Without the timer, only what the watch reports leads to another attempt.
  static_cast<void>(core_.system().setTimer(retryTimer_.number(), retries_.remaining(now)));
}

void PortServer::retry() {
  std::array<std::uint8_t, sizeof(std::uint64_t)> expirations{};
  if (core_.system().read(retryTimer_.number(), expirations) <= 0) {
    return;
  }
  const auto keepAlive = shared_from_this();
  if (!claimIsWatched_ && watchClaim() < 0) {
    retryLater();
  }
  if (!mailbox_.isOpen()) {
    return;
  }
  if (mailbox_.descriptor() < 0) {
    restoreMailbox();
  } else if (!onMailbox_.isActive()) {
    listenOrRetry();
  }
}

void PortServer::closeClaimants() {
  int result = mailbox_.claim().closeConnections();
  if (result == -EMFILE || result == -ENFILE) {
    reserve_.reset();
    result = mailbox_.claim().closeConnections();
    takeReserve();
  }
  if (result < 0 && result != -EAGAIN) {
    // They would be reported all the time.
    onClaim_.end();
    claimIsWatched_ = false;
    retryLater();
  }
}

bool PortServer::takeTurn() {
  core_.clientMutex().assertHeld();
  // openSession() may make the owner release this.
  const auto keepAlive = shared_from_this();
  const TurnQueue::Charge charge(core_.turns(), turn_);
  releaseSessions();
  const bool found = serveHellos();
  if (hellosWait_ || !ended_.empty()) {
    core_.turns().add(turn_);
  }
  return found;
}

/// Frees a part of what the ended connections have held.
void PortServer::releaseSessions() {
  if (!ended_.empty() && ended_.back()->releaseSession()) {
    ended_.pop_back();
  }
}

/// Adds what is in the mailbox to `hellos_`.
void PortServer::readAllHellos() {
  try {
    readMailbox();
    hellosWait_ = true;
  } catch (const std::bad_alloc&) {
    // The hellos stay in the mailbox.
  }
}

bool PortServer::serveHellos() {
  if (!hellosWait_) {
    readAllHellos();
  }
  hellosWait_ = false;
  bool found = false;
  for (unsigned accepted = 0; accepted < hellosPerTurn; ++accepted) {
    const auto hello = hellos_.next();
    if (!hello) {
      return found;
    }
    found = true;
    try {
      accept(*hello);
    } catch (const std::bad_alloc&) {
      // This client sees its pipes closed; the next ones are served.
    }
  }
  hellosWait_ = mailbox_.isOpen();
  return found;
}

unsigned PortServer::frameBegun() {
  core_.clientMutex().assertHeld();
  if (!timerRuns_) {
    timerRuns_ = core_.system().setTimer(timer_.number(), secondMs) == 0;
  }
  return seconds_;
}

void PortServer::secondPassed() {
  std::array<std::uint8_t, sizeof(std::uint64_t)> expirations{};
  if (core_.system().read(timer_.number(), expirations) <= 0) {
    return;
  }
  ++seconds_;
  bool isNeeded = false;
  for (const auto& link : links_) {
    isNeeded = link->secondPassed(seconds_) || isNeeded;
  }
  timerRuns_ = isNeeded && core_.system().setTimer(timer_.number(), secondMs) == 0;
}

void PortServer::readMailbox() {
  if (mailbox_.descriptor() < 0) {
    return;
  }
  BufferLease lease(core_.readSlot());
  lease.bytes().resize(readSize);
  const ssize_t count = core_.system().read(mailbox_.descriptor(), lease.bytes());
  if (count > 0) {
    hellos_.feed(std::span(lease.bytes()).first(static_cast<std::size_t>(count)));
  }
}

}  // namespace EvtSrv::internal
