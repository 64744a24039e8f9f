#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "bench/child_process.h"

namespace bench {

/// A private mosquitto, which reads a configuration file.
class BrokerProcess {
 public:
  explicit BrokerProcess(std::string configFile) : configFile_(std::move(configFile)) {}

  /// Begins to run it. Throws `std::runtime_error` if no process can be created.
  void start();
  /// Kills it; returns when it is gone.
  void kill();
  /// Its resident memory in KiB; 0 if it does not run.
  [[nodiscard]] std::size_t memory() const;

 private:
  std::string configFile_;
  std::unique_ptr<Child> process_;
};

}  // namespace bench
