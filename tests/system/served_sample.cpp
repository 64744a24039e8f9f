#include "tests/system/served_sample.h"

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "tests/support/port_name.h"
#include "tests/support/programs.h"

namespace {

constexpr const char* sampleTree = R"({"name": "Model_rig", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "offset", "type": "float", "value": 0, "access": "protected"},
    {"id": 12, "name": "", "type": "uint16", "value": 7}]},
  {"id": 2, "name": "empty", "children": []}]})";

}  // namespace

ServedSample::ServedSample() : ServedSample(sampleTree) {}

ServedSample::ServedSample(const std::string& tree)
    : name_(test_support::uniquePortName()),
      file_("/tmp/" + test_support::uniquePortName("tree_") + ".json") {
  std::ofstream(file_) << tree;
  try {
    serve();
  } catch (...) {
    ::unlink(file_.c_str());
    throw;
  }
}

void ServedSample::serve() {
  const std::vector<std::string> command{test_support::modelsrvdProgram(), "--name", name_,
                                         "--tree", file_};
  process_ = std::make_unique<test_support::Process>(command);
  if (!process_->waitForLine("ready " + name_)) {
    throw std::runtime_error("modelsrvd is not ready: " + process_->errors());
  }
}

void ServedSample::kill() {
  process_->signal(SIGKILL);
  if (!process_->waitForExit()) {
    throw std::runtime_error("modelsrvd does not end");
  }
}

ServedSample::~ServedSample() {
  process_.reset();
  // One that was killed leaves its mailbox.
  ::unlink(test_support::mailboxPath(name_).c_str());
  ::unlink(file_.c_str());
}
