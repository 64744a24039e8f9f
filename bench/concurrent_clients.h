#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/served_tree.h"

namespace bench {

/// Clients that ask one server at the same time, each on a connection of its own and each
/// its next question when it has the answer to the one before: four processes of 16
/// threads.
class ConcurrentClients {
 public:
  static constexpr unsigned processes = 4;
  static constexpr unsigned clientsEach = 16;
  static constexpr unsigned size = processes * clientsEach;
  static constexpr unsigned questionsEach = 200;

  /// Connected to `server`, a `ServedTree`, and bound to `processor` (see `pinTo`).
  /// Throws `std::runtime_error` where that cannot be.
  ConcurrentClients(const std::string& server, unsigned processor);
  ~ConcurrentClients();
  ConcurrentClients(const ConcurrentClients&) = delete;
  ConcurrentClients& operator=(const ConcurrentClients&) = delete;

  /// Lets each ask `questionsEach` questions, from a common start on; returns when the
  /// last has its last answer. False where one got none.
  [[nodiscard]] bool ask() const;

 private:
  [[nodiscard]] bool allSucceed() const;
  void run(const std::string& server, unsigned processor) const;
  void live(const std::string& server, bool pinned) const;

  int starts_[2] = {-1, -1};
  int results_[2] = {-1, -1};
  std::vector<std::unique_ptr<Child>> processes_;
};

}  // namespace bench
