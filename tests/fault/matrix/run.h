#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/fault/matrix/stage.h"

/// One run: a scenario in which a call fails, and what must hold in spite of that.
namespace fault_matrix {

/// The programs of the build.
struct Programs {
  std::string shell;
  std::string server;
};

/// What a scenario leaves when nothing fails, by a name for each output and file.
using Reference = std::map<std::string, std::string>;

class Run {
 public:
  /// The fault -1 makes the reference; any other one is compared with it.
  Run(const Programs& programs, const Fault& fault, Reference& reference);

  Stage& stage() { return stage_; }
  [[nodiscard]] const Programs& programs() const { return programs_; }
  [[nodiscard]] const Fault& fault() const { return fault_; }
  [[nodiscard]] Reference& reference() { return reference_; }

  /// Whether the fault is one that a program must make up for: a signal interrupted the
  /// call. For a terminal POSIX lists that for a change of its mode alone.
  [[nodiscard]] bool isTransparent() const;

  /// Starts the server of `tree` that no call fails in, and waits until it is ready.
  Program& startServer();

  /// That `program` ended with the exit status `code`, and not by a signal.
  void checkExit(const Program& program, int code);

  /// That `text` is the reference called `name`, or what of it an error leaves: lines of
  /// the reference, and messages. A transparent fault leaves all of it.
  void checkText(const std::string& name, const std::string& text);

  /// That a new client reads `speed`, or `other`, and everything else that the tree holds.
  void checkClient(const std::string& speed, const std::string& other);

  /// Stops `server` as a user does, and checks that it leaves nothing in /tmp.
  void stopServer(Program& server);

 private:
  Stage stage_;
  const Programs& programs_;
  const Fault& fault_;
  Reference& reference_;
};

/// The description that the servers publish as Model_m, with the value of /limit.
std::string treeDescription(int limit);

struct Scenario {
  const char* name;
  /// Runs it, and returns the program whose call fails.
  Program& (*run)(Run& run);
};

extern const std::vector<Scenario> shellScenarios;
extern const std::vector<Scenario> serverScenarios;

}  // namespace fault_matrix
