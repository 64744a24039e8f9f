#pragma once

#include <signal.h>

#include <algorithm>
#include <memory>

#include "tests/tools/treectl_fixture.h"

namespace treectl {

/// Runs of the program that last.
class WatchTest : public TreectlTest {
 protected:
  /// Starts the program.
  std::unique_ptr<test_support::Process> start(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{treectlProgram()};
    for (const std::string& argument : arguments) {
      command.push_back(filled(argument));
    }
    return std::make_unique<test_support::Process>(command);
  }

  void set(const std::string& address, const std::string& value) {
    expect({{"set", "--protected", address, value}});
  }

  /// The next line, without what stands before `key`.
  static std::string lineFrom(test_support::Process& process, std::string_view key) {
    const std::string line = process.readLine().value_or("nothing");
    return line.substr(std::min(line.find(key), line.size()));
  }
};

}  // namespace treectl
