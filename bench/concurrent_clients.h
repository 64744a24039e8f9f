#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/served_tree.h"

namespace bench {

/// Clients that send requests to one server concurrently, each on a connection of its own. A
/// client sends its next request when it has the reply to the one before. There are four
/// processes of 16 threads.
class ConcurrentClients {
 public:
  static constexpr unsigned processes = 4;
  static constexpr unsigned clientsEach = 16;
  static constexpr unsigned size = processes * clientsEach;
  static constexpr unsigned requestsEach = 200;

  /// Connected to `server`, a `ServedTree`, and bound to `processor` (see `pinTo`).
  /// Throws `std::runtime_error` if a client cannot connect.
  ConcurrentClients(const std::string& server, unsigned processor);
  ~ConcurrentClients();
  ConcurrentClients(const ConcurrentClients&) = delete;
  ConcurrentClients& operator=(const ConcurrentClients&) = delete;

  /// Starts all clients, each of which sends `requestsEach` requests, and returns when all
  /// have their last reply. False if a request failed.
  [[nodiscard]] bool run() const;

 private:
  [[nodiscard]] bool allSucceed() const;
  void runProcess(const std::string& server, unsigned processor) const;
  void runClient(const std::string& server, bool pinned) const;

  Pipe starts_;
  Pipe results_;
  std::vector<std::unique_ptr<Child>> processes_;
};

}  // namespace bench
