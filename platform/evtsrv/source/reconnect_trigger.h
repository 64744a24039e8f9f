#pragma once

#include <span>
#include <string>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/manager_core.h"

namespace EvtSrv::internal {

/// Waits for the moment to connect again to a port whose connection was lost: that
/// something happens to the mailbox, or that a time has passed. It watches the directory
/// of the mailboxes (inotify(7)) and has a timer (timerfd_create(2)); both hang on the
/// manager's reactor. Requires the client mutex for every call.
class ReconnectTrigger final : public ReadyHandler {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;

    /// It may be possible to connect now. Calls no code of the program.
    virtual void mayConnect() = 0;
  };

  /// `core` and `listener` outlive this.
  ReconnectTrigger(ManagerCore& core, Listener& listener) : core_(core), listener_(listener) {}

  /// Begins to watch the mailbox of port `name`. What watches already is kept; what the
  /// system refused before is tried again.
  void start(const std::string& name);

  /// Ends the watch and the timer.
  void stop();

  /// Whether the mailbox is watched. If not, as when the user has too many watches, only
  /// the timer can call the listener.
  [[nodiscard]] bool isWatching() const { return watch_.isOpen(); }

  /// Calls the listener after `milliseconds`, 1 or more; replaces an earlier time. False
  /// if there is no timer.
  bool callAfter(int milliseconds);

  bool ready(unsigned role, std::uint32_t events) override;

 private:
  [[nodiscard]] bool concernsMailbox(std::span<const std::uint8_t> bytes);
  void openWatch();
  void openTimer();
  void closeWatch();
  void closeTimer();

  ManagerCore& core_;
  Listener& listener_;

  // Guarded by the client mutex.
  std::string fileName_;
  FileDescriptor watch_;
  FileDescriptor timer_;
  Registration onWatch_;
  Registration onTimer_;
};

}  // namespace EvtSrv::internal
