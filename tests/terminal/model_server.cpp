#include "tests/terminal/model_server.h"

#include <atomic>
#include <csignal>
#include <stdexcept>

#include "tests/support/port_name.h"
#include "tests/support/programs.h"

namespace terminal_test {
namespace {

std::string shortName() {
  static std::atomic<unsigned> count{0};
  return "Model_" + test_support::portNameMark() + std::to_string(++count);
}

}  // namespace

const std::string ModelServer::drive = R"({"name": "Model_drive", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "speedlimit", "type": "int32", "value": 90},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "label", "type": "text", "value": "two words"},
    {"id": 5, "name": "motor", "children": [
      {"id": 1, "name": "current", "type": "float", "value": 0}]},
    {"id": 12, "name": "", "type": "uint16", "value": 7}]},
  {"id": 2, "name": "empty", "children": []}]})";

ModelServer::ModelServer(const std::string& tree) : name_(shortName()) {
  start({"--tree", files_.write("tree.json", tree)});
}

ModelServer::ModelServer(const std::vector<std::string>& arguments) : name_(shortName()) {
  start(arguments);
}

void ModelServer::start(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{test_support::modelsrvdProgram(), "--name", name_};
  command.insert(command.end(), arguments.begin(), arguments.end());
  process_ = std::make_unique<test_support::Process>(command);
  if (!process_->waitForLine("ready " + name_)) {
    throw std::runtime_error("modelsrvd is not ready: " + process_->errors());
  }
}

void ModelServer::hang() {
  process_->signal(SIGSTOP);
}

void ModelServer::resume() {
  process_->signal(SIGCONT);
}

}  // namespace terminal_test
