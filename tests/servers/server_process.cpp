#include "tests/servers/server_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/port_name.h"
#include "tests/support/programs.h"

namespace modelsrvd {

namespace {

std::vector<std::string> commandFor(const std::vector<std::string>& args) {
  std::vector<std::string> command{test_support::modelsrvdProgram()};
  command.insert(command.end(), args.begin(), args.end());
  return command;
}

std::vector<std::string> withName(std::vector<std::string> args, const std::string& name) {
  args.insert(args.end(), {"--name", name});
  return args;
}

}  // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& options, bool mergeErrors)
    : name_(test_support::uniquePortName()),
      process_(commandFor(withName(options, name_)), {{}, {}, mergeErrors}) {
  EXPECT_EQ(process_.readLine(), "ready " + name_) << process_.errors();
}

bool ServerProcess::stops(int signal) {
  process_.signal(signal);
  const auto status = process_.waitForExit();
  return status == test_support::ExitStatus{} && process_.errors().empty();
}

TemporaryFile::TemporaryFile(const std::string& text)
    : path_(testing::TempDir() + "modelsrvd_test_XXXXXX") {
  const int descriptor = ::mkstemp(path_.data());
  EXPECT_GE(descriptor, 0);
  ::close(descriptor);
  write(text);
}

TemporaryFile::~TemporaryFile() {
  std::filesystem::remove(path_);
}

void TemporaryFile::write(const std::string& text) const {
  std::ofstream(path_, std::ios::trunc) << text;
}

test_support::Finished runServer(const std::vector<std::string>& args) {
  return test_support::run(commandFor(args));
}

}  // namespace modelsrvd
