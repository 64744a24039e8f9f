#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/descriptor.h"

namespace gateway_test {

/// A network of a test's own: a loopback, and what is connected to it. It has no name, so any
/// number of tests have theirs, and it ends with this object and the last process in it, even if
/// the test is killed.
///
/// Failures throw std::runtime_error or std::system_error. For one thread, which must be the one
/// that made it.
class NetworkNamespace {
 public:
  /// Why this process cannot have any; empty if it can.
  static std::string obstacle();

  NetworkNamespace();
  NetworkNamespace(const NetworkNamespace&) = delete;
  NetworkNamespace& operator=(const NetworkNamespace&) = delete;

  /// Calls `function` with this network as that of the calling thread: sockets and processes that
  /// it makes belong to it.
  template <typename Function>
  std::invoke_result_t<Function> inside(Function function) const {
    const Visit visit(*this);
    return function();
  }

  /// Lays a cable to `far`: the end here is the interface `name` with the address 10.0.`number`.1,
  /// that of the other is 10.0.`number`.2.
  void connect(const NetworkNamespace& far, const std::string& name, int number) const;
  /// Pulls the cable out, and plugs it in again. Connections over it are not reset: what is sent is
  /// lost and sent again.
  void cut(const std::string& name) const { ip({"link", "set", name, "down"}); }
  void mend(const std::string& name) const { ip({"link", "set", name, "up"}); }

 private:
  class Visit {
   public:
    explicit Visit(const NetworkNamespace& visited);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

   private:
    test_support::Descriptor before_;
  };

  void ip(std::vector<std::string> arguments) const;

  test_support::Descriptor own_;
};

}  // namespace gateway_test
