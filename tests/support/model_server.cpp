#include "tests/support/model_server.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>

#include "tests/support/port_name.h"

namespace test_support {
namespace {

std::string shortPortName() {
  static std::atomic<unsigned> count{0};
  return "Model_" + portNameMark() + std::to_string(++count);
}

std::vector<std::string> commandOf(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{modelsrvdProgram()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

const std::string_view ModelServer::sampleTree = R"({"name": "Model_sample", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "offset", "type": "float", "value": 0, "access": "protected"},
    {"id": 12, "name": "", "type": "uint16", "value": 7}]},
  {"id": 2, "name": "empty", "children": []}]})";

ModelServer::ModelServer() : ModelServer(OfTree(), sampleTree) {}

ModelServer ModelServer::ofTree(std::string_view description) {
  return {OfTree(), description};
}

ModelServer::ModelServer(OfTree, std::string_view description)
    : name_(shortPortName()), options_{"--tree", files_.write("tree.json", description)} {
  restart();
}

ModelServer::ModelServer(std::vector<std::string> options, bool mergeErrors)
    : name_(shortPortName()), options_(std::move(options)), mergeErrors_(mergeErrors) {
  restart();
}

ModelServer::~ModelServer() {
  process_.reset();
  // A killed server leaves its mailbox.
  ::unlink(mailboxPath(name_).c_str());
}

void ModelServer::restart() {
  std::vector<std::string> arguments = options_;
  arguments.insert(arguments.end(), {"--name", name_});
  process_ =
      std::make_unique<Process>(commandOf(arguments), ProcessOptions{.mergeErrors = mergeErrors_});
  if (const auto line = process_->readLine(); line != "ready " + name_) {
    throw std::runtime_error("modelsrvd is not ready: " + line.value_or("") + process_->errors());
  }
}

void ModelServer::hang() {
  process_->signal(SIGSTOP);
}

void ModelServer::resume() {
  process_->signal(SIGCONT);
}

void ModelServer::kill() {
  process_->signal(SIGKILL);
  if (!process_->waitForExit()) {
    throw std::runtime_error("modelsrvd does not end");
  }
}

bool ModelServer::stops(int signal) {
  process_->signal(signal);
  return process_->waitForExit() == ExitStatus{} && process_->errors().empty();
}

Finished runModelsrvd(const std::vector<std::string>& arguments) {
  return run(commandOf(arguments));
}

}  // namespace test_support
