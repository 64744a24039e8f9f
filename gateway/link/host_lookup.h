#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gateway/link/event_loop.h"

namespace modelgate {

/// Resolves host names without blocking the loop: each on a thread of its own, since a resolver may
/// take half a minute. For the loop's thread.
class HostLookup {
 public:
  /// The addresses as text, in the resolver's order; if there are none, `error` is a line for a
  /// person.
  using Done = std::function<void(std::vector<std::string> addresses, std::string error)>;

  explicit HostLookup(EventLoop& loop);
  /// A lookup that is under way comes to nothing; its thread ends on its own.
  ~HostLookup();
  HostLookup(const HostLookup&) = delete;
  HostLookup& operator=(const HostLookup&) = delete;

  /// Calls `done` in the loop, later. A lookup before it comes to nothing.
  void begin(const std::string& host, Done done);
  /// A lookup that is under way comes to nothing.
  void abandon();

 private:
  struct Pending;

  EventLoop& loop_;
  std::shared_ptr<Pending> pending_;
};

/// Whether `host` is an address, which needs no lookup.
[[nodiscard]] bool isNumericHost(const std::string& host);

}  // namespace modelgate
