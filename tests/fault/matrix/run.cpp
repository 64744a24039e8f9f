#include "tests/fault/matrix/run.h"

#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sstream>

namespace fault_matrix {

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// `line` without what is in brackets and without runs of spaces.
std::string withoutValues(const std::string& line) {
  std::string rest;
  bool inValue = false;
  for (const char c : line) {
    inValue = inValue && c != ']';
    if (!inValue && (c != ' ' || !rest.ends_with(' '))) {
      rest += c;
    }
    inValue = inValue || c == '[';
  }
  return rest;
}

/// `line` with the value 7, which the scenarios store, in place of 42, the one before.
std::string afterStore(std::string line) {
  for (std::size_t at = line.find("42"); at != std::string::npos; at = line.find("42", at)) {
    line.replace(at, 2, "7");
  }
  return line;
}

/// Whether a shell may print `line` where a request has failed: the value is then missing
/// or the one before a store that was not made; a name is missing or stands for the nodes
/// below it.
bool isPlausible(const std::string& line, const std::vector<std::string>& expected) {
  if (line.starts_with("ERROR: ") || line.find("noname-") != std::string::npos) {
    return true;
  }
  const bool empty = line.find("[]") != std::string::npos;
  const std::string stored = afterStore(line);
  const std::string rest = withoutValues(line);
  return std::any_of(expected.begin(), expected.end(), [&](const std::string& one) {
    return one == line || one == stored || one.starts_with(line + "/") ||
           (empty && withoutValues(one) == rest);
  });
}

}  // namespace

std::string treeDescription(int limit) {
  return R"({"name": "Model_m", "children": [{"name": "drive", "children": [
  {"name": "speed", "type": "int32", "value": 42},
  {"name": "label", "type": "text", "value": "two words"},
  {"name": "gains", "type": "double", "elements": [{"name": "p", "value": 1.5}, {"value": 0.25}]}]},
  {"name": "limit", "type": "uint16", "value": )" +
         std::to_string(limit) + "}]}\n";
}

Run::Run(const Programs& programs, const Fault& fault, Reference& reference)
    : programs_(programs), fault_(fault), reference_(reference) {}

bool Run::isTransparent() const {
  return fault_.error == EINTR && fault_.call != SYS_ioctl;
}

Program& Run::startServer() {
  writeFile("tree.json", treeDescription(3));
  Program& server = stage_.start({programs_.server, "--tree", "tree.json"});
  stage_.expect(stage_.waitUntil([&] { return server.written == "ready Model_m\n"; }),
                "the server is not ready: " + shown(server.reported));
  return server;
}

void Run::checkExit(const Program& program, int code) {
  if (!program.status || program.status->signal == SIGKILL) {
    return;  // It did not end, which is recorded.
  }
  if (program.status->signal != 0) {
    stage_.fail("ended by signal " + std::to_string(program.status->signal) + ": " +
                shown(program.reported));
  } else if (program.status->code != code) {
    stage_.fail("exit status " + std::to_string(program.status->code) + ": " +
                shown(program.reported));
  }
}

void Run::checkText(const std::string& name, const std::string& text) {
  if (fault_.call < 0) {
    reference_[name] = text;
    return;
  }
  const std::string& expected = reference_[name];
  if (text == expected) {
    return;
  }
  if (isTransparent()) {
    stage_.fail(name + " differs after an interrupted call: " + shown(text));
    return;
  }
  const std::vector<std::string> lines = linesOf(expected);
  for (const std::string& line : linesOf(text)) {
    if (!isPlausible(line, lines)) {
      stage_.fail(name + ": unexpected line: " + shown(line));
      return;
    }
  }
}

void Run::checkClient(const std::string& speed, const std::string& other) {
  Program& client = stage_.start(
      {programs_.shell, "-c", "cd Model_m;get /drive/speed;get /drive/gains[1];get /limit"});
  stage_.waitForEnd(client);
  const auto expected = [](const std::string& value) {
    return "/drive/speed    [" + value + "]\n/drive/gains[1] [0.25]\n/limit  [3]\n";
  };
  stage_.expect(client.written == expected(speed) || client.written == expected(other),
                "another client reads " + shown(client.written) + shown(client.reported));
}

void Run::stopServer(Program& server) {
  static_cast<void>(::kill(server.pid, SIGTERM));
  stage_.waitForEnd(server);
  stage_.expect(server.status == ExitStatus{0, 0}, "the server did not exit with 0");
  for (const std::string& name : namesIn("/tmp")) {
    stage_.fail("left in /tmp: " + shown(name));
  }
}

}  // namespace fault_matrix
