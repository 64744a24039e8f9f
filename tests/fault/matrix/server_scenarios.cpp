#include <cerrno>
#include <csignal>

#include "tests/fault/matrix/run.h"

// Calls of the server fail, beside clients that work.
namespace fault_matrix {

namespace {

/// Runs a client of the server to its end, and returns what it has printed.
std::string client(Run& run, const std::string& commands) {
  Program& shell = run.stage().start({run.programs().shell, "-c", "cd Model_m;" + commands});
  run.stage().waitForEnd(shell);
  run.checkExit(shell, 0);
  return shell.written;
}

/// Waits until `server` is ready, or has ended; whether it is ready.
bool awaitReady(Run& run, Program& server) {
  const auto isReady = [&] { return server.written.find('\n') != std::string::npos; };
  if (!run.stage().waitUntil([&] { return isReady() || server.status; })) {
    run.stage().fail("is neither ready nor ends");
  }
  return isReady() && !server.status;
}

/// A server that ends by itself says why.
void checkGivenUp(Run& run, const Program& server) {
  if (!server.status || server.status->signal != 0) {
    run.checkExit(server, 1);
    return;
  }
  const int code = server.status->code;
  run.stage().expect(code == 1 || code == 2, "ends with exit status " + std::to_string(code));
  run.stage().expect(server.reported.starts_with("modelsrvd: ") && server.reported.ends_with('\n'),
                     "ends without a message: " + shown(server.reported));
  run.stage().expect(!run.isTransparent(),
                     "ends after an interrupted call: " + shown(server.reported));
}

/// Stops the server, which may have given up, and checks what it leaves.
void finish(Run& run, Program& server) {
  if (!server.status) {
    static_cast<void>(::kill(server.pid, SIGTERM));
    if (run.stage().waitForEnd(server)) {
      run.checkExit(server, 0);
    }
  } else {
    checkGivenUp(run, server);
  }
  for (const std::string& name : namesIn("/tmp")) {
    run.stage().fail("left in /tmp: " + shown(name));
  }
}

constexpr int attempts = 3;

/// What a client reads from a tree with these values.
std::string valuesOf(int speed, int limit) {
  return "/drive/speed    [" + std::to_string(speed) + "]\n/drive/gains[1] [0.25]\n/limit  [" +
         std::to_string(limit) + "]\n";
}

/// Has clients read the values until one of them reads them, which a single failure may
/// prevent; what that one has read, or the last one.
std::string readValues(Run& run, const Program& server) {
  std::string read;
  for (int i = 0; i < attempts && !server.status && read != valuesOf(7, 3) &&
                  read != valuesOf(42, 3) && read != valuesOf(42, 4);
       ++i) {
    read = client(run, "get /drive/speed;get /drive/gains[1];get /limit");
    run.stage().expect(i == 0 || !run.isTransparent(), "an interrupted call stops a client");
  }
  return read;
}

/// The server reads its tree again, or says why it cannot and keeps the one it has.
void reload(Run& run, Program& server, const std::string& before) {
  writeFile("tree.json", treeDescription(4));
  const std::size_t mark = server.reported.size();
  static_cast<void>(::kill(server.pid, SIGHUP));
  std::string read;
  run.stage().waitUntil([&] {
    read = readValues(run, server);
    return server.status || read == valuesOf(42, 4) || server.reported.size() > mark;
  });
  if (!server.status && read != valuesOf(42, 4)) {
    run.stage().expect(server.reported.size() > mark && read == before,
                       "reload: " + shown(read) + shown(server.reported));
    run.stage().expect(!run.isTransparent(), "reload: " + shown(server.reported));
  }
}

Program& runTree(Run& run) {
  writeFile("tree.json", treeDescription(3));
  Program& server = run.stage().start({run.programs().server, "--tree", "tree.json"}, &run.fault());
  if (awaitReady(run, server)) {
    const std::string first = client(run, "ls;set 7 /drive/speed;eu /limit;ls -lr");
    run.checkText("first client", first);
    const std::string values = readValues(run, server);
    const bool acknowledged = first.find("[7]") != std::string::npos;
    run.stage().expect(
        server.status || values == valuesOf(7, 3) || (!acknowledged && values == valuesOf(42, 3)),
        "does not go on: " + shown(values) + shown(server.reported));
    reload(run, server, values);
  }
  finish(run, server);
  return server;
}

Program& runHost(Run& run) {
  Program& server = run.stage().start(
      {run.programs().server, "--name", "Model_m", "--period", "50"}, &run.fault());
  if (awaitReady(run, server)) {
    static_cast<void>(client(run, "set 60 /settings/period;ls -lr"));
    // A single failure may prevent one client, and what it requests.
    std::string label;
    const auto isStored = [&] { return label.find("[x]") != std::string::npos; };
    for (int i = 0; i < attempts && !server.status && !isStored(); ++i) {
      label = client(run, "str x /settings/label;get /settings/label");
    }
    run.stage().expect(server.status || isStored(),
                       "does not go on: " + shown(label) + shown(server.reported));
  }
  finish(run, server);
  return server;
}

/// The state file is always whole, and has what the server has acknowledged when it ends.
Program& runState(Run& run) {
  const auto state = [](int speed) {
    return "{\"state\": 1, \"parts\": [\n{\"path\":[\"drive\",\"speed\"],\"ids\":[1,1],"
           "\"type\":\"int32\",\"value\":" +
           std::to_string(speed) + "}\n]}\n";
  };
  writeFile("tree.json", treeDescription(3));
  writeFile("state.json", state(5));
  Program& server = run.stage().start(
      {run.programs().server, "--tree", "tree.json", "--state", "state.json"}, &run.fault());
  bool isStored = false;
  if (awaitReady(run, server)) {
    for (int i = 0; i < attempts && !server.status && !isStored; ++i) {
      isStored =
          client(run, "set 7 /drive/speed;get /drive/speed").find("[7]") != std::string::npos;
    }
    run.stage().expect(server.status || isStored, "does not go on: " + shown(server.reported));
    const auto isWritten = [&] { return contentsOf("state.json") == state(7); };
    run.stage().waitUntil(
        [&] { return !isStored || server.status || isWritten() || !server.reported.empty(); });
    run.stage().expect(!isStored || server.status || isWritten() || !run.isTransparent(),
                       "an interrupted call prevents a write: " + shown(server.reported));
  }
  finish(run, server);
  const std::string written = contentsOf("state.json");
  const bool isClean = server.status && *server.status == ExitStatus{};
  run.stage().expect(written == state(7) || (written == state(5) && !(isStored && isClean)),
                     "state: " + shown(written) + shown(server.reported));
  run.stage().expect(contentsOf("state.json.new").empty(), "left: state.json.new");
  return server;
}

Program& runHelp(Run& run) {
  Program& server = run.stage().start({run.programs().server, "--help"}, &run.fault());
  run.stage().waitForEnd(server);
  run.checkText("output", server.written);
  if (server.status && server.status->code != 0) {
    checkGivenUp(run, server);
  } else {
    run.checkExit(server, 0);
    Reference& reference = run.reference();
    run.stage().expect(server.written == reference["output"], "output is missing, exit status 0");
  }
  return server;
}

}  // namespace

const std::vector<Scenario> serverScenarios{{"modelsrvd --tree", runTree},
                                            {"modelsrvd --state", runState},
                                            {"modelsrvd", runHost},
                                            {"modelsrvd --help", runHelp}};

}  // namespace fault_matrix
