#pragma once

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/coherence/tree_model.h"
#include "tests/platform/modelsrv/test_client.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"

namespace coherence {

/// The number of steps of each schedule: TREESCOPE_SCHEDULE_STEPS if it is set.
int scheduleSteps();

/// The server of a schedule (coherence_server.cpp), in another process, and what its tree is at any
/// time. Changes are chosen at random, and are done when a call returns.
class ChangingServer {
 public:
  explicit ChangingServer(unsigned seed);
  /// Lets the server exit, which removes its mailbox.
  ~ChangingServer();
  ChangingServer(const ChangingServer&) = delete;
  ChangingServer& operator=(const ChangingServer&) = delete;

  unsigned below(unsigned limit) {
    return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_);
  }

  [[nodiscard]] const std::string& port() const { return port_; }
  [[nodiscard]] const TreeModel& tree() const { return tree_; }
  test_support::Process& process() { return *process_; }

  /// A part that clients can see.
  Chain anyPart();

  /// Changes the value of a part, or lets a node of the test's class hide or show its children.
  void change(const Chain& chain);
  void hideOrShow(const Chain& chain);
  /// Lets `client` store a value, or a part of one; does nothing to a node.
  void store(modelsrv_tests::Client& client, const Chain& chain);

  /// Adds a part of some kind to a node. Returns its chain; none if `parent` is not a node, or has
  /// a part with the id that was chosen.
  std::optional<Chain> addPart(const Chain& parent);
  void add(const Chain& chain, const std::string& kind);
  /// Does nothing to the root and to the node with many children, which is kept for listings.
  void remove(const Chain& chain);

  /// Starts another server after this one has ended. Its tree is the first one again.
  void start();
  /// Kills it (SIGKILL), or lets it exit, and returns when it has ended.
  void kill();
  void finish();
  /// Lets it have no descriptors for other sessions, or have them again.
  void refuse(bool refuses) { command(refuses ? "fill - 1" : "fill - 0"); }

 private:
  void command(const std::string& line);
  std::string anyText() { return "t" + std::to_string(below(1'000'000)); }
  std::vector<std::string> anyTexts();
  static void setElement(PartModel& part, unsigned element, const std::string& text);

  std::mt19937 random_;
  const std::string port_ = test_support::uniquePortName();
  std::unique_ptr<test_support::Process> process_;
  TreeModel tree_;
};

}  // namespace coherence
