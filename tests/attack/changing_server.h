#pragma once

#include <sys/types.h>

#include <string>

namespace attack {

/// A server, in a process of its own, that lets clients change the structure of its tree: each
/// store of another value in its part `toggle` adds or removes a node with `changingParts` parts.
/// It has `readPart`, too.
class ChangingServer {
 public:
  static constexpr unsigned short toggle = 6;
  static constexpr unsigned short changing = 7;  ///< the node
  static constexpr unsigned short changingParts = 100;

  /// Serves the port `name`. Throws `std::runtime_error` if that cannot be connected to.
  explicit ChangingServer(const std::string& name);
  ~ChangingServer();
  ChangingServer(const ChangingServer&) = delete;
  ChangingServer& operator=(const ChangingServer&) = delete;

  [[nodiscard]] pid_t process() const { return pid_; }

 private:
  pid_t pid_;
  std::string mailbox_;
};

}  // namespace attack
