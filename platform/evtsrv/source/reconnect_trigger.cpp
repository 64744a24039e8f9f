#include "evtsrv/source/reconnect_trigger.h"

#include <sys/inotify.h>

#include <array>

#include "evtsrv/source/mailbox.h"

namespace EvtSrv::internal {

namespace {

enum TriggerRole : unsigned { directoryRole, delayRole };

// A server makes its mailbox or moves it there, opens it, also one that a killed server
// has left, and may then change its access.
constexpr std::uint32_t returnEvents = IN_CREATE | IN_MOVED_TO | IN_OPEN | IN_ATTRIB | IN_ONLYDIR;

// Bounds the work of one dispatch. There is space for any one event.
constexpr std::size_t triggerReadSize = 4096;

}  // namespace

void ReconnectTrigger::start(const std::string& name) {
  core_.clientMutex().assertHeld();
  fileName_ = mailboxFileName(name);
  if (!timer_.isOpen()) {
    openTimer();
  }
  if (!watch_.isOpen()) {
    openWatch();
  }
}

void ReconnectTrigger::openTimer() {
  core_.clientMutex().assertHeld();
  if (timer_.adopt(core_.system(), core_.system().createTimer()) == 0 &&
      core_.reactor().add(timer_.number(), EPOLLIN, *this, delayRole, onTimer_) < 0) {
    closeTimer();
  }
}

void ReconnectTrigger::openWatch() {
  core_.clientMutex().assertHeld();
  System& system = core_.system();
  if (watch_.adopt(system, system.createWatch()) == 0 &&
      (system.addWatch(watch_.number(), pipeDirectoryToWatch, returnEvents) < 0 ||
       core_.reactor().add(watch_.number(), EPOLLIN, *this, directoryRole, onWatch_) < 0)) {
    closeWatch();
  }
}

void ReconnectTrigger::closeTimer() {
  onTimer_.end();
  timer_.reset();
}

void ReconnectTrigger::closeWatch() {
  onWatch_.end();
  watch_.reset();
}

void ReconnectTrigger::stop() {
  core_.clientMutex().assertHeld();
  closeWatch();
  closeTimer();
}

bool ReconnectTrigger::callAfter(int milliseconds) {
  core_.clientMutex().assertHeld();
  return timer_.isOpen() && core_.system().setTimer(timer_.number(), milliseconds) == 0;
}

bool ReconnectTrigger::ready(unsigned role, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  if (role == delayRole) {
    std::array<std::uint8_t, sizeof(std::uint64_t)> expirations{};
    if (core_.system().read(timer_.number(), expirations) > 0) {
      listener_.mayConnect();
    }
    return false;
  }
  alignas(inotify_event) std::array<std::uint8_t, triggerReadSize> bytes;
  const ssize_t count = core_.system().read(watch_.number(), bytes);
  if (count > 0 && concernsMailbox(std::span(bytes).first(static_cast<std::size_t>(count)))) {
    listener_.mayConnect();
  } else if (count <= 0 && count != -EAGAIN) {
    closeWatch();
    listener_.mayConnect();
  }
  return false;
}

/// Whether one of these events (inotify(7)) is about the mailbox, or may be. Ends a watch
/// whose directory has gone.
bool ReconnectTrigger::concernsMailbox(std::span<const std::uint8_t> bytes) {
  bool concerns = false;
  while (const auto event = takeWatchEvent(bytes)) {
    concerns = concerns || (event->what & IN_Q_OVERFLOW) != 0 || event->name == fileName_;
    if ((event->what & IN_IGNORED) != 0) {
      closeWatch();
      concerns = true;
    }
  }
  return concerns;
}

}  // namespace EvtSrv::internal
