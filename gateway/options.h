#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "gateway/link/broker_address.h"

namespace modelgate {

/// What `modelgate` is to do, from its command line and configuration file. Parsing reads no file
/// but the latter, and makes no other system call.
struct Options {
  enum class Role { exporter, viewer };
  Role role = Role::exporter;

  BrokerAddress broker{false, "localhost", 1883, {}};
  std::string fleet = "default";
  std::string caFile;
  std::string certFile;
  std::string keyFile;
  std::string user;
  std::string passwordFile;
  std::chrono::seconds keepAlive{10};
  bool verbose = false;

  // To export.
  std::string device;  ///< empty: the host's name
  std::vector<std::string> servers;
  std::vector<std::string> allowSet;
  std::vector<std::string> json;
  std::chrono::milliseconds interval{50};
  std::chrono::milliseconds heartbeat{10'000};
  bool retainValues = false;

  // To view.
  std::vector<std::string> devices;
  std::string group;  ///< empty: none
};

/// What `--help` and `--version` print.
struct OptionText {
  std::string text;
};
/// What is wrong, as a line for a person.
struct OptionError {
  std::string text;
};
using ParsedOptions = std::variant<Options, OptionText, OptionError>;

/// `arguments` are those after the program's name. What the command line states replaces what the
/// configuration file states of the same name, lists included.
[[nodiscard]] ParsedOptions parseOptions(const std::vector<std::string>& arguments);

}  // namespace modelgate
