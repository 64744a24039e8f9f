#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

/// Fixtures of the tests of modelgate.
namespace gateway_test {

/// Runs an MQTT broker of a test's own, mosquitto, on a Unix socket and, on request, on a port of
/// 127.0.0.1. Its files are in a directory that is removed at the end. The test's process ignores
/// SIGPIPE from then on, as modelgate does.
///
/// Failures throw std::runtime_error with the broker's output.
class Broker {
 public:
  struct Options {
    /// Whether it also listens on a TCP port.
    bool tcp = false;
    /// Whether its end of TCP connections is without delay, as the shipped configuration has it.
    bool noDelay = true;
    /// Lines of its configuration before the first listener, and after the one of the TCP port,
    /// such as those for TLS.
    std::string general = {};
    std::string listener = {};
    /// Whether clients without a name are let in.
    bool anonymous = true;
    /// Instead of all of that: the whole configuration, for a TCP port alone.
    std::function<std::string(int port)> whole = {};
  };

  /// Starts it and waits until it accepts connections.
  Broker() : Broker(Options()) {}
  explicit Broker(Options options);
  /// Kills it if it still runs.
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  /// Where it is: "unix:/tmp/…/broker", "mqtt://127.0.0.1:PORT", "mqtts://HOST:PORT".
  [[nodiscard]] std::string url() const { return "unix:" + socket(); }
  [[nodiscard]] std::string tcpUrl() const { return "mqtt://127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] std::string tlsUrl(const std::string& host = "localhost") const {
    return "mqtts://" + host + ":" + std::to_string(port_);
  }
  [[nodiscard]] std::string socket() const { return directory_.file("broker"); }
  [[nodiscard]] int port() const { return port_; }

  /// Ends it in good order, or at once; it forgets everything. `start` then starts it anew at the
  /// same addresses.
  void stop();
  void kill();
  void start();
  void restart() {
    kill();
    start();
  }
  /// Stops its process for a while, as if the network was gone.
  void pause();
  void resume();

  /// Resident memory in KiB.
  [[nodiscard]] long memory() const;
  /// Its log so far.
  [[nodiscard]] std::string log() const { return directory_.read("log"); }

 private:
  void configure();
  [[nodiscard]] bool accepts() const;
  void launch();

  Options options_;
  test_support::ScratchDirectory directory_;
  int port_ = 0;
  std::unique_ptr<test_support::Process> process_;
};

}  // namespace gateway_test
