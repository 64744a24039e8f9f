#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_node.h"
#include "tests/support/captured_output.h"
#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"

namespace treescope::test {

using test_support::SampleServer;

/// A node that counts the requests about it and the parts below it.
class CountedNode : public ModelSrv::ModelNode {
 public:
  using ModelNode::ModelNode;
  std::atomic<int> requests{0};

 protected:
  ModelNode* asNode() override {
    ++requests;
    return ModelNode::asNode();
  }
};

/// A shell in batch mode and a server of the sample tree, not yet connected.
class ScopeFixture : public testing::Test {
 protected:
  /// A shell that records its calls of `du` and counts updates.
  class Scope : public TreeScope {
   public:
    using TreeScope::TreeScope;
    int doDu(const char* path) override {
      ++duCalls;
      duPath = path == nullptr ? "(null)" : path;
      connectedDuringDu = connected();
      const int code = TreeScope::doDu(path);
      subscribedAfterDu = connected() ? currentPart()->subscriptions().size() : 0;
      return code;
    }
    unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                               EvtSrv::MemoryHolder* reply) override {
      updates += type == EvtTyp_Model_Update ? 1 : 0;
      return TreeScope::receiveModelEvent(sender, type, data, reply);
    }
    [[nodiscard]] const std::vector<std::string>& currentPath() const { return currentPath_; }

    int duCalls = 0;
    int updates = 0;
    std::string duPath;
    bool connectedDuringDu = false;
    std::size_t subscribedAfterDu = 0;
  };

  /// The result code of a command and its output.
  struct CommandResult {
    int result;
    std::string output;
    bool operator==(const CommandResult&) const = default;
  };

  /// Runs `command` like a typed one.
  CommandResult run(const std::string& command);

  /// Dispatches events until `count` more updates have arrived; returns their output.
  std::string takeUpdates(int count);

  /// Passes an update event with these bytes to the shell; returns its output.
  std::string deliverUpdate(std::vector<std::uint8_t> bytes);

  void connect() { ASSERT_EQ(run("cd " + name_), (CommandResult{1, ""})); }

  std::string name_ = test_support::uniquePortName();
  SampleServer server_{name_};
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, true};
  Scope scope_{&manager_, 1};
};

}  // namespace treescope::test
