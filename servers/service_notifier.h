#pragma once

#include <optional>
#include <string>

#include "servers/error.h"

namespace modelsrvd {

/// Reports the state of the service to the service manager, as systemd's `Type=notify` and
/// `Type=notify-reload` expect (sd_notify(3)): a datagram to the socket that the environment
/// variable NOTIFY_SOCKET names, a path, or "@" and an abstract name. Without it nothing is sent.
///
/// For one thread. Waits at most a second for the manager.
class ServiceNotifier {
 public:
  /// Reads the environment.
  ServiceNotifier();

  [[nodiscard]] std::optional<Error> ready() const;
  /// To be followed by `ready`.
  [[nodiscard]] std::optional<Error> reloading() const;
  [[nodiscard]] std::optional<Error> stopping() const;

 private:
  [[nodiscard]] std::optional<Error> send(const std::string& state) const;

  std::string socket_;
};

}  // namespace modelsrvd
