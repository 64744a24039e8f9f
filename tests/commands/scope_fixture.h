#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "tests/model/sample_server.h"
#include "tests/support/captured_output.h"
#include "tests/support/port_name.h"

namespace treescope::test {

/// A shell in batch mode beside a server of the sample's tree, not yet connected.
class ScopeFixture : public testing::Test {
 protected:
  /// A shell that counts what is asked of `du`.
  class Scope : public TreeScope {
   public:
    using TreeScope::TreeScope;
    int doDu(const char* path) override {
      ++dropped;
      droppedPath = path == nullptr ? "(null)" : path;
      wasConnected = connected();
      return TreeScope::doDu(path);
    }
    unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                               EvtSrv::MemoryHolder* reply) override {
      updates += type == EvtTyp_Model_Update ? 1 : 0;
      return TreeScope::receiveModelEvent(sender, type, data, reply);
    }
    [[nodiscard]] const std::vector<std::string>& currentPath() const { return currentPath_; }

    int dropped = 0;
    int updates = 0;
    std::string droppedPath;
    bool wasConnected = false;
  };

  /// What one command gave: its result, and what it wrote to standard output.
  struct Answer {
    int result;
    std::string output;
    bool operator==(const Answer&) const = default;
  };

  /// Runs `command` as it would be typed.
  Answer run(const std::string& command);

  /// Takes events until `count` updates more have arrived; what they printed.
  std::string takeUpdates(int count);

  /// Hands the update with these bytes to the shell; what that printed.
  std::string handUpdate(std::vector<std::uint8_t> bytes);

  void connect() { ASSERT_EQ(run("cd " + name_), (Answer{1, ""})); }

  std::string name_ = test_support::uniquePortName();
  SampleServer server_{name_};
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, true};
  Scope scope_{&manager_, 1};
};

}  // namespace treescope::test
